"""The command and files: what it never harms, what it does not hang on, and how it ends when its reader dies.

test_files.py COMMAND
"""

import fcntl
import json
import os
import pathlib
import resource
import signal
import stat
import subprocess
import sys
import tempfile
import threading
import time
import unittest

COMMAND = sys.argv[1]
SCENE = """#usda 1.0
(
    subLayers = [@./layer.usda@]
)
def Mesh "M" {
    uniform token subdivisionScheme = "none"
    point3f[] points = [(-1, -1, 0), (1, -1, 0), (1, 1, 0), (-1, 1, 0)]
    int[] faceVertexCounts = [4]
    int[] faceVertexIndices = [0, 1, 2, 3]
}
def "Part" (
    references = @./part.usda@
)
{
}
"""
LAYER = '#usda 1.0\nover "M" {\n}\n'
PART = '#usda 1.0\n(\n    defaultPrim = "P"\n)\ndef "P" {\n}\n'
SMALL = ("--size", "8x8", "--samples", "1")
EXR = b"\x76\x2f\x31\x01"
PNG = b"\x89PNG"


class Case(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        self.at = pathlib.Path(self.folder.name).resolve()
        self.scene = self.at / "scene.usda"
        for name, text in (("scene.usda", SCENE), ("layer.usda", LAYER), ("part.usda", PART)):
            (self.at / name).write_text(text)
        self.before = self.texts()

    def texts(self):
        return {p.name: p.read_bytes() for p in self.at.iterdir() if p.is_file()}

    def run_command(self, *arguments, **more):
        more = {"capture_output": True, "timeout": 60, "cwd": self.at, **more}
        return subprocess.run([COMMAND, *map(str, arguments)], **more)

    def good(self, *arguments, **more):
        done = self.run_command(*arguments, **more)
        self.assertEqual(done.returncode, 0, (done.stderr or b"").decode())
        return done

    def refused(self, code, why, *arguments, **more):
        """Fails with a line that holds `why`, and every file stays as it was."""
        done = self.run_command(*arguments, **more)
        error = done.stderr.decode()
        self.assertEqual(done.returncode, code, error)
        self.assertRegex(error.splitlines()[-1], r"^vela \w+: error: ")
        self.assertIn(why, error)
        self.assertEqual(self.texts(), self.before)
        return error


class NeverDestroys(Case):
    def test_an_output_that_is_the_scene_is_refused(self):
        for option in ("-o", "--png"):
            self.refused(1, "it is named like a scene", "render", self.scene, option, self.scene, *SMALL)
        os.link(self.scene, self.at / "linked.exr")
        os.symlink("scene.usda", self.at / "soft.exr")
        (self.at / "sub").mkdir()
        self.before = self.texts()
        for name in ("linked.exr", "soft.exr", "sub/../linked.exr", self.at / "linked.exr"):
            self.refused(1, "it is a file that this command reads", "render", self.scene, "-o", name, *SMALL)

    def test_an_output_that_is_a_layer_of_the_scene_is_refused(self):
        for layer in ("layer.usda", "part.usda"):
            link = self.at / f"{layer}.exr"
            os.link(self.at / layer, link)
            self.before = self.texts()
            self.refused(1, "it is a file that this command reads", "render", self.scene, "-o", link, *SMALL)
            self.refused(1, "it is a file that this command reads", "select", self.scene, "--rect", "0,0,3,3", "--size", "8x8", "-o", link)

    def test_an_output_that_is_a_texture_is_refused(self):
        (self.at / "maps").mkdir()
        names = ("wood.png", "later.png", "sky.exr", "maps/tile.1001.png", "maps/tile.1100.png")
        for name in names:
            (self.at / name).write_bytes(b"texture")
        self.scene.write_text(SCENE + """def Scope "Looks" {
    def Shader "Wood" {
        asset inputs:file = @./wood.png@
        asset inputs:file.timeSamples = { 1: @./later.png@ }
    }
    def Shader "Tiles" {
        asset inputs:file = @maps/tile.<UDIM>.png@
        asset inputs:missing = @nowhere.png@
    }
    def DomeLight "Sky" {
        asset inputs:texture:file = @./sky.exr@
    }
}
""")
        os.link(self.at / "wood.png", self.at / "linked.png")
        self.before = self.texts()
        for name in (*names, "linked.png", "./maps/../wood.png"):
            option = "-o" if name.endswith("exr") else "--png"
            self.refused(1, "it is a file that this command reads", "render", self.scene, option, name, *SMALL)
        self.refused(1, "it is a file that this command reads", "select", self.scene, "--rect", "0,0,3,3", "--size", "8x8", "-o", "wood.png")
        self.assertEqual((self.at / "maps/tile.1001.png").read_bytes(), b"texture")
        self.good("render", self.scene, "--png", "maps/tile.1101.png", *SMALL)
        self.good("render", self.scene, "--png", "maps/tile.1101.png", *SMALL)

    def test_scenes_names_are_refused_for_pictures_and_selections(self):
        for name in ("new.usd", "new.usda", "new.usdc", "new.usdz"):
            self.refused(1, "it is named like a scene", "render", self.scene, "-o", name, *SMALL)
            self.refused(1, "it is named like a scene", "select", self.scene, "--rect", "0,0,3,3", "--size", "8x8", "-o", name)

    def test_a_selection_that_is_shown_is_refused_and_one_that_is_added_to_is_replaced(self):
        self.good("select", self.scene, "--rect", "0,0,3,3", "--size", "8x8", "-o", "s.sel")
        os.link(self.at / "s.sel", self.at / "s.exr")
        self.before = self.texts()
        self.refused(1, "it is a file that this command reads", "render", self.scene, "--selection", "s.sel", "-o", "./s.exr", *SMALL)
        (self.at / "s.exr").unlink()
        self.good("select", self.scene, "--rect", "0,0,3,3", "--size", "8x8", "--add", "s.sel", "-o", "s.sel")
        self.assertTrue((self.at / "s.sel").read_text().startswith("geoselection"))

    def test_two_outputs_in_one_file_are_refused(self):
        os.symlink("a.exr", self.at / "b.png")
        for one, option, other in (("a.exr", "-o", "./a.exr"), ("a.exr", "-o", self.at / "a.exr"), ("a.exr", "--png", "b.png")):
            self.refused(1, "it is the same file as", "render", self.scene, "-o", one, option, other, *SMALL)

    def test_two_outputs_in_one_stream_are_refused(self):
        os.mkfifo(self.at / "pipe.exr")
        for one, other in (("-", "-"), ("-", "/dev/stdout"), ("/dev/stdout", "/dev/fd/1"), ("pipe.exr", "./pipe.exr")):
            error = self.refused(1, "it is the same file as " + one, "render", self.scene, "-o", one, "-o", other, "--format", "exr", *SMALL)
            self.assertEqual(len(error.splitlines()), 1, error)
        with open(self.at / "a.exr", "wb") as file:
            self.before = self.texts()
            self.refused(1, "it is the same file as a.exr", "render", self.scene, "-o", "a.exr", "--png", "/dev/stdout", *SMALL,
                         capture_output=False, stdout=file, stderr=subprocess.PIPE)
        # What is thrown away may be as many as one likes.
        if os.geteuid() == 0:
            self.good("render", self.scene, "-o", "/dev/null", "--png", "/dev/null", "-o", "-", *SMALL, capture_output=False, stdout=subprocess.DEVNULL)

    def test_an_input_behind_a_descriptor_is_refused(self):
        for name in ("scene.usda", "layer.usda", "part.usda"):
            with open(self.at / name, "ab") as file:
                there = {"capture_output": False, "stdout": file, "stderr": subprocess.PIPE, "pass_fds": [file.fileno()]}
                for output in ("-", "/dev/stdout", f"/dev/fd/{file.fileno()}"):
                    self.refused(1, "it is a file that this command reads", "render", self.scene, "-o", output, *SMALL, **there)
                self.refused(1, "it is a file that this command reads", "select", self.scene, "--rect", "0,0,3,3", "--size", "8x8", "-o", "-", **there)
        # What can be read from without harm to what is written: a pipe.
        self.good("select", self.scene, "--rect", "0,0,7,7", "--size", "8x8", "-o", "s.sel")
        text = (self.at / "s.sel").read_bytes()
        done = self.good("render", self.scene, "--selection", "/dev/stdin", "-o", "-", *SMALL, input=text)
        self.assertEqual(done.stdout[:4], EXR)

    def test_what_a_selection_says_of_itself_is_not_mixed_into_it(self):
        arguments = ("select", self.scene, "--rect", "0,0,3,3", "--size", "8x8", "-o")
        self.good(*arguments, "s.sel")
        for name in ("-", "/dev/stdout", "/proc/self/fd/1"):
            done = self.good(*arguments, name)
            self.assertEqual(done.stdout, (self.at / "s.sel").read_bytes())
            self.assertIn(b"picked", done.stderr)

    def test_a_loop_of_links_is_refused_and_stays(self):
        for name, target in (("a.exr", "a.exr"), ("b.exr", "c.exr"), ("c.exr", "b.exr")):
            os.symlink(target, self.at / name)
        for name in ("a.exr", "b.exr"):
            self.refused(1, "Too many levels of symbolic links", "render", self.scene, "-o", name, *SMALL)
            self.assertTrue((self.at / name).is_symlink())

    def test_names_that_no_file_can_have_are_refused_before_the_work(self):
        long = "n" * 252 + ".exr"
        for arguments in (("-o", long), ("--png", "n" * 252 + ".png"), ("-o", "a.exr", "--layers", "crypto_object", "--manifest", "n" * 256)):
            error = self.refused(1, "File name too long", "render", self.scene, *arguments, "--size", "16000x16000", "--samples", "4096", "--log-level", "verbose")
            self.assertNotIn("opened", error)
        for option, more in (("-o", ()), ("--png", ()), ("-o", ("--format", "exr"))):
            self.refused(2, f"{option}: '' does not say what to write", "render", self.scene, option, "", *more)
        self.refused(1, "cannot write: '': it is no name; name a file", "select", self.scene, "--rect", "0,0,3,3", "--size", "8x8", "-o", "")
        self.refused(1, "No such file or directory", "render", self.scene, "-o", "a/b/", "--format", "exr")

    def test_names_that_are_no_utf8_are_names(self):
        scene, picture = os.fsencode(self.at) + b"/caf\xe9.usda", os.fsencode(self.at) + b"/caf\xe9.exr"
        with open(scene, "w") as file:
            file.write(PART)
        done = subprocess.run([COMMAND, "render", scene, "-o", picture, *SMALL], capture_output=True, timeout=60)
        self.assertEqual(done.returncode, 0, done.stderr)
        again = subprocess.run([COMMAND, "render", "--like", picture, "-o", "again.exr"], cwd=self.at, capture_output=True, timeout=60)
        self.assertEqual(again.returncode, 0, again.stderr)
        with open(picture, "rb") as file:
            self.assertEqual(file.read(), (self.at / "again.exr").read_bytes())
        # A report of it can be read, whatever stands for that byte.
        done = subprocess.run([COMMAND, "info", scene, "--json"], capture_output=True, timeout=60)
        self.assertEqual(json.loads(done.stdout)["file"], str(self.at / "caf\ufffd.usda"))

    def test_names_of_any_characters_stay_within_their_line(self):
        name = "a\nb\x1b[31m\tc.usda"
        for arguments in (("info", name), ("info", name, "scene.usda"), ("mesh", name, "scene.usda"), ("render", self.scene, "-o", name + "/a.exr"),
                          ("render", self.scene, "--camera", name, "-o", "a.exr"), ("pick", self.scene, "--pixel", "0,0", "--exclude", "/" + name),
                          ("select", "--show", name), ("resolve", name, "scene.usda"), ("channels", name)):
            done = self.run_command(*arguments)
            self.assertNotEqual(done.stderr, b"")
            for line in done.stderr.decode().splitlines():
                self.assertTrue(line.startswith(f"vela {arguments[0]}: "), line)
                self.assertNotRegex(line, "[\\x00-\\x1f]")
            self.assertIn(b"a\\nb\\x1b[31m\\tc", done.stderr)
        (self.at / "binary.sel").write_bytes(b"\x01\x02\x1b[2J\0")
        self.assertNotRegex(self.run_command("select", "--show", "binary.sel").stderr, b"[\\x00-\\x09\\x0b-\\x1f]")

    def test_the_log_is_appended_to_no_input_and_no_output(self):
        (self.at / "wood.png").write_bytes(PNG + b"\r\n\x1a\n\0\0\0\rIHDR")
        (self.at / "config.ocio").write_text("ocio_profile_version: 1\n")
        (self.at / "job.log").write_text("begun\n")
        self.before = self.texts()
        self.refused(2, "it is there, and holds something else than text", "info", self.scene, "--log-file", "wood.png", "--log-level", "verbose")
        for name in ("OCIO", "OPENASSETIO_DEFAULT_CONFIG"):
            self.refused(2, f"it is the file that {name} names", "info", self.scene, "--log-file", "config.ocio", "--log-level", "verbose",
                         env=dict(os.environ, **{name: str(self.at / "config.ocio")}))
        # Names that the command line does not have as they are.
        for name, arguments in (("a.2.exr", ("-o", "a.#.exr", "--frames", "2")), ("x.depth.exr", ("-o", "x.{layer}.exr", "--layers", "depth,N"))):
            done = self.run_command("render", self.scene, *arguments, "--log-file", name, "--log-level", "verbose", *SMALL)
            self.assertEqual(done.returncode, 1)
            self.assertIn(f"cannot write: {name}: it is the log's file; give the output a name of its own".encode(), done.stderr)
            self.assertTrue((self.at / name).read_bytes().startswith(b"[vela Verbose]"))
        self.good("info", self.scene, "--log-file", "job.log", "--log-level", "verbose")
        self.assertTrue((self.at / "job.log").read_text().startswith("begun\n[vela Verbose]"))

    def test_the_log_is_written_into_no_file_of_the_command(self):
        self.refused(2, "it is named like a scene", "info", self.scene, "--log-file", self.scene, "--log-level", "verbose")
        self.refused(2, "it is named like a scene", "info", self.scene, "--log-file", "other.usda", "--log-level", "verbose")
        self.refused(2, "reads or writes", "render", self.scene, "-o", "a.exr", "--log-file", "./a.exr", *SMALL)
        self.refused(2, "reads or writes", "render", self.scene, "--selection=s.sel", "-o", "a.exr", "--log-file", "s.sel", *SMALL)

    def test_scenes_are_made_as_pictures_are(self):
        self.good("make", "cube", "-o", "made.usda")
        text = (self.at / "made.usda").read_bytes()
        self.assertEqual(text[:9], b"#usda 1.0")
        for name in ("-", "/dev/stdout"):
            self.assertEqual(self.good("make", "cube", "-o", name).stdout, text)
        self.good("make", "cube", "-o", "made.usdc")
        os.mkfifo(self.at / "pipe.usdc")
        got = []
        reader = threading.Thread(target=lambda: got.append((self.at / "pipe.usdc").read_bytes()))
        reader.start()
        self.good("make", "cube", "-o", "pipe.usdc")
        reader.join(60)
        self.assertEqual(got, [(self.at / "made.usdc").read_bytes()])
        # Links stay, those that lead nowhere too; loops are refused.
        (self.at / "sub").mkdir()
        for name in ("there.usda", "gone.usda"):
            os.symlink("sub/" + name, self.at / name)
        (self.at / "sub/there.usda").write_text("#usda 1.0\n")
        (self.at / "sub/there.usda").chmod(0o640)
        os.symlink("loop.usda", self.at / "loop.usda")
        for name in ("there.usda", "gone.usda"):
            self.good("make", "cube", "-o", name)
            self.assertTrue((self.at / name).is_symlink())
            self.assertEqual((self.at / "sub" / name).read_bytes(), text)
        self.assertEqual(stat.S_IMODE((self.at / "sub/there.usda").stat().st_mode), 0o640)
        self.assertEqual(sorted(p.name for p in (self.at / "sub").iterdir()), ["gone.usda", "there.usda"])
        umask = os.umask(0)
        os.umask(umask)
        self.assertEqual(stat.S_IMODE((self.at / "sub/gone.usda").stat().st_mode), 0o666 & ~umask)
        if os.geteuid() == 0:
            os.chown(self.at / "made.usda", 12345, 54321)
            self.good("make", "cube", "-o", "made.usda")
            self.assertEqual(((self.at / "made.usda").stat().st_uid, (self.at / "made.usda").stat().st_gid), (12345, 54321))
        self.before = self.texts()
        for name, why in (("loop.usda", "Too many levels of symbolic links"), ("sub", "its name ends in none of .usd, .usda and .usdc"),
                          ("x.usdz", "its name ends in none of"), ("none/x.usda", "No such file or directory"), ("n" * 251 + ".usda", "File name too long"),
                          ("/dev/full", "No space left on device")):
            error = self.refused(1, why, "make", "cube", "-o", name)
            self.assertEqual(error.count(name), 1)

    def test_what_a_killed_make_left_is_removed_by_the_next_one(self):
        # A scene has two names while it is written.
        for name in (".x.usda.part-4000000.usda", "..x.usda.part-4000000.4000000-1.usda", "..x.usda.part-4000001.4000001-1.usda",
                     "..y.usda.part-4.4-1.usda", "..x.usda.part-4.4-1.exr", "..x.usda.usda", "..usda", "..x.usda.part-a.4-1.usda"):
            (self.at / name).write_bytes(b"half")
        self.before = self.texts()
        # What another one is writing stays: the name of the temporary file is held while the scene's own is there.
        with open(self.at / ".x.usda.part-4000001.usda", "wb") as held:
            fcntl.flock(held, fcntl.LOCK_EX)
            self.good("make", "cube", "-o", "x.usda")
            self.assertEqual(set(self.before) - set(self.texts()), {".x.usda.part-4000000.usda", "..x.usda.part-4000000.4000000-1.usda"})
        self.good("make", "cube", "-o", "x.usda")
        self.assertEqual({n for n in self.texts() if n.startswith(".")},
                         {"..y.usda.part-4.4-1.usda", "..x.usda.part-4.4-1.exr", "..x.usda.usda", "..usda", "..x.usda.part-a.4-1.usda"})

    def test_mode_and_owner_are_kept(self):
        picture = self.at / "a.exr"
        picture.write_bytes(b"old")
        picture.chmod(0o600)
        self.good("render", self.scene, "-o", "a.exr", *SMALL)
        self.assertEqual(picture.read_bytes()[:4], EXR)
        self.assertEqual(stat.S_IMODE(picture.stat().st_mode), 0o600)
        if os.geteuid() == 0:
            os.chown(picture, 12345, 54321)
            picture.chmod(0o664)
            self.good("render", self.scene, "-o", "a.exr", *SMALL)
            status = picture.stat()
            self.assertEqual((status.st_uid, status.st_gid, stat.S_IMODE(status.st_mode)), (12345, 54321, 0o664))

    def test_a_link_stays_and_its_target_is_replaced(self):
        (self.at / "sub").mkdir()
        (self.at / "sub" / "real.exr").write_bytes(b"old")
        os.symlink("sub/real.exr", self.at / "a.exr")
        os.symlink("sub/new.exr", self.at / "b.exr")
        for link, target in (("a.exr", "real.exr"), ("b.exr", "new.exr")):
            self.good("render", self.scene, "-o", link, *SMALL)
            self.assertTrue((self.at / link).is_symlink())
            self.assertEqual((self.at / "sub" / target).read_bytes()[:4], EXR)
        self.assertEqual(sorted(p.name for p in (self.at / "sub").iterdir()), ["new.exr", "real.exr"])

    def test_devices_are_written_through(self):
        if os.geteuid() == 0:
            self.good("render", self.scene, "-o", "/dev/null", *SMALL)
            self.good("render", self.scene, "--png", "/dev/null", *SMALL)
            self.assertTrue(stat.S_ISCHR(os.stat("/dev/null").st_mode))
        done = self.run_command("render", self.scene, "-o", "/dev/full", *SMALL)
        self.assertEqual(done.returncode, 1)
        self.assertIn(b"No space left on device", done.stderr)

    def test_pipes_and_descriptors_and_standard_output_are_written_through(self):
        self.good("render", self.scene, "-o", "plain.exr", "--png", "plain.png", *SMALL)
        exr, png = ((self.at / name).read_bytes() for name in ("plain.exr", "plain.png"))
        self.assertEqual(self.good("render", self.scene, "-o", "-", *SMALL).stdout, exr)
        self.assertEqual(self.good("render", self.scene, "--png", "/dev/stdout", *SMALL).stdout, png)
        with open(self.at / "by-number", "w+b") as file:
            file.write(b"x" * 100000)
            file.flush()
            self.good("render", self.scene, "-o", f"/dev/fd/{file.fileno()}", *SMALL, pass_fds=[file.fileno()])
            file.seek(0)
            self.assertEqual(file.read(), exr)
        os.mkfifo(self.at / "pipe.exr")
        got = []
        reader = threading.Thread(target=lambda: got.append((self.at / "pipe.exr").read_bytes()))
        reader.start()
        self.good("render", self.scene, "-o", "pipe.exr", *SMALL)
        reader.join(60)
        self.assertEqual(got, [exr])
        self.assertTrue(stat.S_ISFIFO((self.at / "pipe.exr").stat().st_mode))

    def test_names_of_up_to_255_bytes_are_written(self):
        name = "n" * 251 + ".exr"
        self.good("render", self.scene, "-o", name, *SMALL)
        self.assertEqual((self.at / name).read_bytes()[:4], EXR)

    @unittest.skipIf(os.geteuid() == 0, "root may write everything")
    def test_a_file_that_may_not_be_written_stays(self):
        (self.at / "a.exr").write_bytes(b"old")
        (self.at / "a.exr").chmod(0o444)
        self.before = self.texts()
        self.refused(1, "Permission denied", "render", self.scene, "-o", "a.exr", *SMALL)

    def test_what_is_said_into_closed_streams_goes_into_no_file(self):
        self.good("render", self.scene, "-o", "plain.exr", "--mask", "/M", "--exclude", "/Nothing", *SMALL)
        plain = (self.at / "plain.exr").read_bytes()
        # A note, statistics, a picture in characters: all that is printed.
        arguments = ["render", self.scene, "-o", "a.exr", "--mask", "/M", "--exclude", "/Nothing", "--stats", *SMALL]
        for closed, more, code in (([2], [], 0), ([0, 2], [], 0), ([1], ["--show", "rgba"], 1), ([0, 1, 2], ["--show", "rgba"], 1), ([1, 2], [], 0)):
            line = " ".join(f"{n}{'<' if n == 0 else '>'}&-" for n in closed)
            done = subprocess.run(["bash", "-c", f'"$0" "$@" {line}', COMMAND, *map(str, arguments), *more], cwd=self.at, capture_output=True, timeout=60)
            self.assertEqual(done.returncode, code, (line, done.stderr))
            self.assertEqual((self.at / "a.exr").read_bytes(), plain, line)
        done = subprocess.run(["bash", "-c", '"$0" "$@" >&-', COMMAND, "render", self.scene, "-o", "-", *SMALL], cwd=self.at, capture_output=True, timeout=60)
        self.assertEqual((done.returncode, done.stderr.splitlines()[-1]), (1, b"vela render: error: cannot write: -: Bad file descriptor; see whether it may be written to"))
        done = subprocess.run(["bash", "-c", '"$0" "$@" >&-', COMMAND, "info", self.scene], cwd=self.at, capture_output=True, timeout=60)
        self.assertEqual(done.returncode, 1)

    def test_a_full_standard_output_is_an_error(self):
        with open("/dev/full", "w") as full:
            for arguments in (("channels", "--json"), ("channels",), ("info", self.scene)):
                done = self.run_command(*arguments, capture_output=False, stdout=full, stderr=subprocess.PIPE)
                self.assertEqual(done.returncode, 1, arguments)
                self.assertIn(b"cannot write: standard output", done.stderr)


class Pipes(Case):
    def test_a_pipe_as_a_scene_or_reference_is_refused_at_once(self):
        os.mkfifo(self.at / "pipe.usda")
        done = self.run_command("info", "pipe.usda", timeout=20)
        self.assertEqual(done.returncode, 1)
        self.assertIn(b"it is no regular file", done.stderr)
        for name, text in (("r.usda", '#usda 1.0\ndef "A" (references = @./pipe.usda@) {\n}\ndef "B" {\n}\n'),
                           ("s.usda", "#usda 1.0\n(subLayers = [@./pipe.usda@])\n")):
            (self.at / name).write_text(text)
            done = self.run_command("info", name, timeout=20)
            self.assertEqual(done.returncode, 0)
            self.assertIn(b"pipe.usda", done.stderr)

    def test_a_selection_may_come_out_of_a_pipe(self):
        self.good("select", self.scene, "--rect", "0,0,7,7", "--size", "8x8", "-o", "s.sel")
        os.mkfifo(self.at / "pipe.sel")
        writer = threading.Thread(target=lambda: (self.at / "pipe.sel").write_bytes((self.at / "s.sel").read_bytes()))
        writer.start()
        self.assertIn(b"/M", self.good("select", "--show", "pipe.sel").stdout)
        writer.join(60)

    def test_a_pipe_that_nobody_writes_ends_with_a_signal(self):
        os.mkfifo(self.at / "pipe.sel")
        for number in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP):
            process = subprocess.Popen([COMMAND, "select", "--show", "pipe.sel"], cwd=self.at, stderr=subprocess.PIPE)
            time.sleep(0.5)
            self.assertIsNone(process.poll())
            process.send_signal(number)
            self.assertIn(b"interrupted", process.communicate(timeout=30)[1])
            self.assertEqual(process.returncode, 130)

    def test_a_device_without_an_end_is_refused(self):
        done = self.run_command("select", "--show", "/dev/zero")
        self.assertEqual(done.returncode, 1)
        self.assertIn(b"larger than", done.stderr)

    def test_a_log_pipe_that_nobody_reads_is_refused(self):
        os.mkfifo(self.at / "log")
        done = self.run_command("info", self.scene, "--log-file", "log", "--log-level", "verbose", timeout=20)
        self.assertEqual(done.returncode, 2)
        self.assertIn(b"a pipe that nobody reads", done.stderr)

    def test_a_run_of_a_selection_claims_no_more_than_a_gigabyte(self):
        (self.at / "big.sel").write_text("geoselection { paths 1 { /a 0 { verts 1500000000 { 1500000000 1 } 0 } { faces 0 0 } } }")
        before = resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss
        done = self.run_command("select", "--show", "big.sel")
        self.assertEqual(done.returncode, 1)
        self.assertLess(max(before, resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss), 3_000_000)


LONG = ("--size", "4000x4000", "--samples", "400", "--threads", "1")


class Endings(Case):
    def start(self, *arguments, files=1):
        process = subprocess.Popen([COMMAND, "render", self.scene, "-o", "a.exr", *LONG, *arguments], cwd=self.at, stderr=subprocess.PIPE)
        deadline = time.monotonic() + 60
        while len(self.leftovers()) < files and time.monotonic() < deadline:
            time.sleep(0.02)
        self.assertIsNone(process.poll())
        return process

    def leftovers(self):
        return [p.name for p in self.at.iterdir() if ".part-" in p.name]

    def children(self, process):
        # Its only child: the process that works.
        found = subprocess.run(["ps", "-o", "pid=", "--ppid", str(process.pid)], capture_output=True, text=True).stdout.split()
        self.assertEqual(len(found), 1, found)
        return int(found[0])

    def test_a_hang_up_leaves_nothing(self):
        process = self.start()
        process.send_signal(signal.SIGHUP)
        process.communicate(timeout=60)
        self.assertEqual(process.returncode, 130)
        self.assertEqual(self.texts(), self.before)

    def test_an_ignored_signal_stays_ignored(self):
        process = subprocess.Popen([COMMAND, "render", self.scene, "-o", "a.exr", "--size", "300x300", "--samples", "100"], cwd=self.at,
                                   preexec_fn=lambda: signal.signal(signal.SIGHUP, signal.SIG_IGN))
        time.sleep(0.3)
        process.send_signal(signal.SIGHUP)
        self.assertEqual(process.wait(timeout=120), 0)

    def test_a_killed_worker_is_one_line_and_leaves_nothing(self):
        (self.at / "a.exr").write_bytes(b"old")
        self.before = self.texts()
        process = self.start()
        os.kill(self.children(process), signal.SIGKILL)
        error = process.communicate(timeout=60)[1].decode()
        self.assertEqual(process.returncode, 1)
        self.assertEqual(len(error.splitlines()), 1, error)
        self.assertIn("vela render: error: killed", error)
        self.assertEqual(self.texts(), self.before)

    # A sanitizer takes the signal for a fault of its own finding.
    @unittest.skipIf(os.environ.get("VELA_SANITIZE"), "built with a sanitizer")
    def test_a_crash_while_a_scene_is_read_names_the_scene(self):
        process = self.start()
        os.kill(self.children(process), signal.SIGSEGV)
        error = process.communicate(timeout=60)[1].decode()
        self.assertEqual(process.returncode, 1)
        self.assertIn(f"vela render: error: cannot read the scene: {self.scene}: ", error)
        self.assertIn("crashed", error)
        self.assertEqual(self.texts(), self.before)

    def test_a_kill_of_the_process_above_ends_the_worker_and_leaves_nothing(self):
        process = self.start()
        worker = self.children(process)
        process.kill()
        process.communicate(timeout=60)
        deadline = time.monotonic() + 60
        while pathlib.Path(f"/proc/{worker}").exists() and time.monotonic() < deadline:
            time.sleep(0.05)
        self.assertEqual(self.texts(), self.before)

    def test_a_killed_worker_leaves_nothing_of_many_files(self):
        process = self.start("-o", "x.{layer}.exr", "-o", "y.{layer}.png", "--layers", "rgba,depth,N,P,prim,face,crypto_object,albedo", files=17)
        self.assertEqual(len(self.leftovers()), 17)
        os.kill(self.children(process), signal.SIGKILL)
        process.communicate(timeout=60)
        self.assertEqual(self.texts(), self.before)

    def test_what_is_named_is_no_leftover(self):
        self.good("render", self.scene, "-o", "a.exr", *SMALL)
        self.good("select", self.scene, "--rect", "0,0,3,3", "--size", "8x8", "-o", "s.sel")
        for name, other in ((".b.exr.part-4.exr", "a.exr"), (".t.sel.part-4.sel", "s.sel"), (".t.sel.part-5", "s.sel"), (".b.exr.part-4.usda", "part.usda"),
                            (".b.exr.part-x.exr", "a.exr"), (".b.exr.part-", "a.exr")):
            (self.at / name).write_bytes((self.at / other).read_bytes())
        before = self.texts()
        self.good("render", self.scene, "--like", ".b.exr.part-4.exr", "-o", "b.exr")
        self.good("select", self.scene, "--rect", "0,0,3,3", "--size", "8x8", "--add", ".t.sel.part-4.sel", "-o", "t.sel")
        after = self.texts()
        # What no command line has named is a leftover, when its name is like one.
        self.assertEqual(set(before) - set(after), {".t.sel.part-5"})

    def test_when_all_is_killed_the_next_run_clears_up(self):
        (self.at / "a.exr").write_bytes(b"old")
        process = self.start()
        worker = self.children(process)
        os.kill(worker, signal.SIGSTOP)
        process.kill()
        os.kill(worker, signal.SIGKILL)
        process.communicate(timeout=60)
        self.assertEqual((self.at / "a.exr").read_bytes(), b"old")
        self.assertEqual(len(self.leftovers()), 1)
        self.good("render", self.scene, "-o", "a.exr", *SMALL)
        self.assertEqual(self.leftovers(), [])
        self.assertEqual((self.at / "a.exr").read_bytes()[:4], EXR)

    def test_what_a_killed_run_left_in_the_folder_for_temporary_files_is_removed_too(self):
        temporary = self.at / "tmp"
        temporary.mkdir()
        for name in (".vela.part-4000000", ".vela.png.part-4000000.png", ".velar.part-1", "vela.part-1"):
            (temporary / name).write_bytes(b"half")
        environment = dict(os.environ, TMPDIR=str(temporary))
        self.good("render", self.scene, "-o", "-", *SMALL, env=environment)
        self.assertEqual({p.name for p in temporary.iterdir()}, {".vela.png.part-4000000.png", ".velar.part-1", "vela.part-1"})

    def test_what_a_killed_run_left_is_removed_by_the_next_one_and_nothing_else(self):
        for name in (".a.exr.part-4000000.exr", ".a.exr.part-1", ".b.exr.part-1", "a.exr.part-1"):
            (self.at / name).write_bytes(b"half")
        self.good("render", self.scene, "-o", "a.exr", *SMALL)
        self.assertEqual(set(self.texts()) - set(self.before), {"a.exr", ".b.exr.part-1", "a.exr.part-1"})
        # What another run is writing stays.
        process = self.start()
        held = self.leftovers()
        self.good("render", self.scene, "-o", "a.exr", *SMALL)
        self.assertTrue(set(held) <= set(self.leftovers()))
        process.terminate()
        process.communicate(timeout=60)

    def test_opening_ends_at_the_first_signal(self):
        # Many references to references: seconds of composing.
        text = '#usda 1.0\ndef "L0" {\n}\n'
        for level in range(1, 8):
            text += f'def "L{level}" {{\n' + "".join(f'def "c{i}" (references = </L{level - 1}>) {{\n}}\n' for i in range(10)) + "}\n"
        (self.at / "slow.usda").write_text(text)
        process = subprocess.Popen([COMMAND, "info", "slow.usda"], cwd=self.at, stderr=subprocess.PIPE, stdout=subprocess.DEVNULL)
        time.sleep(1.5)
        self.assertIsNone(process.poll())
        process.send_signal(signal.SIGTERM)
        start = time.monotonic()
        self.assertIn(b"vela info: interrupted; nothing was written", process.communicate(timeout=60)[1])
        self.assertEqual(process.returncode, 130)
        self.assertLess(time.monotonic() - start, 20)

    # The bookkeeping of a sanitizer does not fit below such a limit.
    @unittest.skipIf(os.environ.get("VELA_SANITIZE"), "built with a sanitizer")
    def test_more_memory_than_there_is_is_an_error(self):
        def limit():
            resource.setrlimit(resource.RLIMIT_DATA, (400_000_000, 400_000_000))
        done = self.run_command("render", self.scene, "-o", "a.exr", "--size", "16000x16000", "--samples", "1", preexec_fn=limit)
        self.assertEqual(done.returncode, 1, done.stderr)
        self.assertIn(b"out of memory", done.stderr)
        self.assertEqual(self.texts(), self.before)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=1)
