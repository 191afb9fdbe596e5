"""What stands on disk when writing ends early: the old file whole or the new one, and nothing else.

The limit on the size of files (RLIMIT_FSIZE) ends writing at an exact byte: with the signal that
comes with it ignored as a full disk does, with the signal in force by killing the writer.

test_writes.py COMMAND
"""

import pathlib
import resource
import signal
import subprocess
import sys
import tempfile
import unittest

COMMAND = sys.argv[1]
SCENE = """#usda 1.0
def Mesh "M" {
    uniform token subdivisionScheme = "none"
    point3f[] points = [(-1, -1, 0), (1, -1, 0), (1, 1, 0), (-1, 1, 0)]
    int[] faceVertexCounts = [4]
    int[] faceVertexIndices = [0, 1, 2, 3]
}
"""
RENDER = ("render", "scene.usda", "--size", "64x48", "--samples", "1", "--layers", "rgba,depth,N,prim")
SELECT = ("select", "scene.usda", "--rect", "0,0,63,47", "--size", "64x48")
# What writes, and the file that it writes last.
WRITERS = {
    "EXR": ((*RENDER, "-o", "out.exr"), "out.exr"),
    "EXR of halves, by ZIP": ((*RENDER, "--half", "--compression", "zip", "-o", "out.exr"), "out.exr"),
    "PNG": ((*RENDER, "-o", "out.png"), "out.png"),
    "JPEG": ((*RENDER, "-o", "out.jpg"), "out.jpg"),
    "two pictures": ((*RENDER, "-o", "out.exr", "--png", "out.png"), "out.exr"),
    "a band": ((*RENDER, "--tile", "1/2", "-o", "out.exr"), "out.exr"),
    "selection": ((*SELECT, "-o", "out.sel"), "out.sel"),
    "selection added to itself": ((*SELECT, "--add", "out.sel", "-o", "out.sel"), "out.sel"),
    "shape as text": (("make", "sphere", "-o", "out.usda"), "out.usda"),
    "shape as crate": (("make", "sphere", "-o", "out.usdc"), "out.usdc"),
    "job": (("submit", "scene.usda", "--frames", "1-4", "-o", "f.####.exr", "--job", "out.json"), "out.json"),
}


class Writes(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        self.at = pathlib.Path(self.folder.name).resolve()

    def run_command(self, words, limit=None, is_killed=False):
        def prepare():
            signal.signal(signal.SIGXFSZ, signal.SIG_DFL if is_killed else signal.SIG_IGN)
            resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
            if limit is not None:
                resource.setrlimit(resource.RLIMIT_FSIZE, (limit, limit))

        # Pipes know no limit. No signal is set back after `prepare`.
        return subprocess.run([COMMAND, *words], cwd=self.at, capture_output=True, text=True, timeout=120,
                              preexec_fn=prepare, restore_signals=False)

    def files(self):
        return {p.name: p.read_bytes() for p in self.at.iterdir()}

    def start(self):
        for path in self.at.iterdir():
            path.unlink()
        (self.at / "scene.usda").write_text(SCENE)

    def whole(self, words):
        """What is written without a limit, over an old file."""
        self.start()
        if "out.sel" in words:
            self.assertEqual(self.run_command((*SELECT[:3], "31,23,32,24", *SELECT[4:], "-o", "out.sel")).returncode, 0)
        before = self.files()
        done = self.run_command(words)
        self.assertEqual(done.returncode, 0, done.stderr)
        return before, self.files()

    def test_a_writer_that_cannot_go_on_leaves_the_old_file_and_says_so_in_one_line(self):
        self.check(is_killed=False)

    def test_a_writer_that_is_killed_leaves_the_old_file_and_nothing_else(self):
        self.check(is_killed=True)

    def check(self, is_killed):
        for name, (words, output) in WRITERS.items():
            before, after = self.whole(words)
            size = len(after[output])
            for limit in sorted({0, 1, size // 2, size - 1}):
                for old in ({}, {name: b"old file\n" * 9 for name in after if name.startswith("out.")}):
                    self.start()
                    for path, content in {**old, **before}.items():
                        (self.at / path).write_bytes(content)
                    there = self.files()
                    done = self.run_command(words, limit, is_killed)
                    with self.subTest(writer=name, limit=limit, size=size, old=output in there):
                        self.assertEqual(done.returncode, 1, done.stderr)
                        errors = [line for line in done.stderr.splitlines() if ": error: " in line]
                        self.assertEqual(len(errors), 1, done.stderr)
                        self.assertRegex(errors[0], rf"^vela {words[0]}: error: ")
                        self.assertEqual(self.files(), there)

    def test_exactly_enough_room_is_enough(self):
        for name, (words, _) in WRITERS.items():
            before, after = self.whole(words)
            self.start()
            for path, content in before.items():
                (self.at / path).write_bytes(content)
            room = max(len(content) for path, content in after.items() if path != "scene.usda")
            done = self.run_command(words, room)
            with self.subTest(writer=name, room=room):
                self.assertEqual(done.returncode, 0, done.stderr)
                self.assertEqual(set(self.files()), set(after))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
