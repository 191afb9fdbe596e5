#!/usr/bin/env python3
"""What is made from the table of verbs: help, man pages, completions, the parser with its suggestions; and the table of messages, each of
which is provoked.

Usage: test_table.py COMMAND PROJECT_ROOT
"""
import os
import pathlib
import re
import resource
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

COMMAND, ROOT = sys.argv[1], pathlib.Path(sys.argv[2])
VERSION = subprocess.run([COMMAND, "--version"], capture_output=True, text=True).stdout.split()[1]
DEMO = ROOT / "examples/demo/demo.usda"


def run(*arguments, **more):
    return subprocess.run([COMMAND, *map(str, arguments)], capture_output=True, text=True, timeout=120, **more)


def verbs():
    return re.findall(r"^  vela ([a-z]+)", run("--help").stdout, re.M)


def options(verb):
    """Names of the options as the help lists them, with whether each takes a value."""
    text = run("help", verb).stdout.split("\nExamples\n")[0]
    rows = re.findall(r"^  ((?:-\w, )?--[a-z-]+)( \S+)?", text, re.M)
    return {name.split(", ")[-1]: bool(value.strip()) for name, value in rows}


class Case(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.at = pathlib.Path(folder.name)

    def error(self, code, *arguments, **more):
        done = run(*arguments, **more)
        self.assertEqual(done.returncode, code, f"{arguments}\n{done.stdout}{done.stderr}")
        return done.stderr.splitlines()[-1]


class Parser(Case):
    def test_slips_are_answered_by_what_was_meant(self):
        for arguments, attempt in ((["rendr", DEMO], "try vela render"), (["piick"], "try vela pick"), (["RENDER"], "try vela render"),
                                   ([DEMO], f"try vela info {DEMO}"), (["xyzzy"], "try vela --help"),
                                   (["render", DEMO, "--sampels", "3"], "try --samples"), (["render", DEMO, "--sample", "3"], "try --samples"),
                                   (["render", DEMO, "--smoth"], "try --smooth"), (["pick", DEMO, "--pixels=1,2"], "try --pixel"),
                                   (["info", DEMO, "--size", "9x9"], "vela render has it; try vela help info"),
                                   (["info", DEMO, "--xyzzy"], "try vela help info"), (["info", DEMO, "-x"], "try vela help info"),
                                   (["render", DEMO, "-o", "a.exr", "--lens", "spheric"], "try spherical"),
                                   (["render", DEMO, "-o", "a.exr", "--engine", "hitdetector"], "try --engine hit-detector"),
                                   (["render", DEMO, "-o", "a.exr", "--layers", "rgba,deph"], "try depth"),
                                   (["render", DEMO, "--show", "rgbb"], "try rgba or rgb"),
                                   (["make", "spere", "-o", "a.usda"], "try sphere"), (["info", DEMO, "--log-level", "warn"], "try --log-level warning"),
                                   (["help", "rendr"], "try vela render")):
            line = self.error(2, *arguments, cwd=self.at)
            self.assertTrue(line.endswith("; " + attempt), line)

    def test_cameras_and_meshes_too(self):
        line = self.error(1, "pick", DEMO, "--pixel", "1,1", "--camera", "/Demo/Camra")
        self.assertTrue(line.endswith("; try --camera /Demo/Camera"), line)
        mesh = re.search(r"\d  (/\S+)", run("info", DEMO).stdout)[1]
        line = self.error(1, "mesh", DEMO, mesh[:-1])
        self.assertRegex(line, "; try " + mesh + "(,| or |$)")
        self.assertIn("/Demo: its type is Xform", self.error(1, "mesh", DEMO, "/Demo"))

    def test_options_may_stand_before_the_verb(self):
        self.assertEqual(run("--json", "channels").stdout, run("channels", "--json").stdout)
        self.assertEqual(run("--name", "rgba", "channels").stdout, run("channels", "--name", "rgba").stdout)
        self.assertEqual(run("--log-level", "quiet", "--json", "channels").stdout, run("channels", "--json").stdout)
        self.assertIn("no verb is given", self.error(2, "--json"))

    def test_an_option_takes_a_value_in_every_verb_or_in_none(self):
        # Else options in front of the verb could not be read.
        takes = {}
        for verb in verbs():
            for name, value in options(verb).items():
                self.assertEqual(takes.setdefault(name, value), value, f"{verb} {name}")

    def test_values_may_be_joined_and_look_like_options(self):
        self.assertEqual(run("channels", "--name=rgba").stdout, run("channels", "--name", "rgba").stdout)
        self.assertEqual(run("pick", DEMO, "--ray", "-1,200,0,0,-1,0").returncode, 0)
        self.assertIn("--time: '-x' is no number", self.error(2, "info", DEMO, "--time", "-x"))
        self.assertIn("--time: its value is missing", self.error(2, "info", DEMO, "--time", "--json"))

    def test_beginnings_of_options_are_not_taken(self):
        self.assertIn("no such option: --js", self.error(2, "channels", "--js"))

    def test_what_follows_two_hyphens_is_no_option(self):
        (self.at / "--json").write_text("#usda 1.0\n")
        self.assertIn("cannot open the scene: --json", self.error(1, "info", "--", "--json", cwd=self.at))

    def test_an_order_of_arguments_by_the_environment_changes_nothing(self):
        done = run("info", DEMO, "--json", env=dict(os.environ, POSIXLY_CORRECT="1"))
        self.assertEqual((done.returncode, done.stdout[:1]), (0, "{"))


class MadeTexts(Case):
    def test_every_option_stands_in_the_man_page_and_in_the_completions(self):
        shells = {shell: run("help", "--completion", shell).stdout for shell in ("bash", "zsh", "fish")}
        for verb in verbs():
            page = run("help", "--man", verb).stdout
            self.assertIn(f"vela\\-{verb}", page)
            self.assertGreater(len(options(verb)), 0, verb)
            for name in options(verb):
                self.assertIn("\\fB" + name.replace("-", "\\-") + "\\fR", page)
                for shell, text in shells.items():
                    self.assertIn(name if shell != "fish" else f"-l {name[2:]}", text, f"{shell} {name}")
        self.assertIn("\\fBvela render\\fR", run("help", "--man").stdout)

    def test_man_pages_are_sound(self):
        man = shutil.which("groff")
        if not man:
            self.skipTest("this machine has no groff")
        for verb in [None, *verbs()]:
            page = run("help", "--man", *([verb] if verb else [])).stdout
            done = subprocess.run([man, "-man", "-Tascii", "-ww", "-z"], input=page, capture_output=True, text=True)
            self.assertEqual((done.returncode, done.stderr), (0, ""), verb)

    def test_man_pages_fit_a_terminal(self):
        man = shutil.which("groff")
        if not man:
            self.skipTest("this machine has no groff")
        for verb in [None, *verbs()]:
            page = run("help", "--man", *([verb] if verb else [])).stdout
            text = subprocess.run([man, "-man", "-Tascii", "-P-c", "-P-b", "-P-u"], input=page, capture_output=True, text=True).stdout
            self.assertGreater(len(text.splitlines()), 20)
            self.assertLessEqual(max(map(len, text.splitlines())), 80, verb)

    def complete(self, *words):
        """What bash offers behind the words; the last is the one that is being typed."""
        script = run("help", "--completion", "bash").stdout
        (self.at / "vela.bash").write_text(script)
        listed = " ".join(f"'{w}'" for w in ("vela", *words))
        done = subprocess.run(["bash", "-c", f"set -eu; source ./vela.bash; COMP_WORDS=({listed}); COMP_CWORD={len(words)}; _vela; "
                               'printf "%s\\n" "${COMPREPLY[@]-}"'], capture_output=True, text=True, cwd=self.at)
        self.assertEqual((done.returncode, done.stderr), (0, ""), words)
        return set(done.stdout.split())

    def test_bash_completes_verbs_options_and_values(self):
        for name in ("a.usda", "b.txt", "c.sel"):
            (self.at / name).touch()
        self.assertEqual(self.complete("re"), {"render", "resolve"})
        self.assertEqual(self.complete("render", "--samp"), {"--samples"})
        self.assertEqual(self.complete("render", "x.usda", "--lens", "s"), {"spherical"})
        self.assertEqual(self.complete("render", "x.usda", "--lens", "=", "s"), {"spherical"})
        self.assertEqual(self.complete("make", "cube", "--scheme", "="), {"none", "catmullClark", "loop", "bilinear"})
        self.assertEqual(self.complete("render", "x.usda", "--purpose", "proxy,g"), {"proxy,guide"})
        self.assertEqual(self.complete("render", "x.usda", "--layers", "rg"), {"rgb", "rgba"})
        self.assertEqual(self.complete("render", "x.usda", "--show", "dep"), {"depth"})
        self.assertEqual(self.complete("info", ""), {"a.usda"})
        self.assertEqual(self.complete("select", "--show", ""), {"c.sel"})
        self.assertEqual(self.complete("help", "inf"), {"info"})
        self.assertEqual(self.complete("--json", "inf"), {"info"})

    def test_the_other_shells_take_theirs(self):
        for shell in ("zsh", "fish"):
            program = shutil.which(shell)
            if program:
                done = subprocess.run([program, "-n"], input=run("help", "--completion", shell).stdout, capture_output=True, text=True)
                self.assertEqual((done.returncode, done.stderr), (0, ""), shell)

    def test_fish_completes_verbs_options_and_values(self):
        program = shutil.which("fish")
        if not program:
            self.skipTest("this machine has no fish")
        (self.at / "vela.fish").write_text(run("help", "--completion", "fish").stdout)
        (self.at / "folder").mkdir()
        def complete(line):
            done = subprocess.run([program, "--no-config", "-c", f"source vela.fish; complete -C '{line}'"], capture_output=True, text=True, cwd=self.at)
            self.assertEqual((done.returncode, done.stderr), (0, ""), line)
            return {offered.split("\t")[0] for offered in done.stdout.splitlines()}
        self.assertEqual(complete("vela re"), {"render", "resolve"})
        self.assertEqual(complete("vela render --samp"), {"--samples"})
        self.assertEqual(complete("vela render x.usda --lens s"), {"spherical"})
        self.assertEqual(complete("vela render x.usda --lens=s"), {"--lens=spherical"})
        self.assertEqual(complete("vela help --share "), {"folder/"})
        self.assertEqual(complete("vela --json inf"), {"info"})
        self.assertEqual(complete("vela select --show "), {"vela.fish", "folder/"})

    def test_all_of_them_are_written_as_files(self):
        self.assertEqual(run("help", "--share", self.at / "share").returncode, 0)
        names = {str(p.relative_to(self.at / "share")) for p in (self.at / "share").rglob("*") if p.is_file()}
        self.assertEqual(names, {"man/man1/vela.1", *(f"man/man1/vela-{v}.1" for v in verbs()), "bash-completion/completions/vela",
                                 "zsh/site-functions/_vela", "fish/vendor_completions.d/vela.fish"})
        (self.at / "file").touch()
        self.assertIn("cannot write", self.error(1, "help", "--share", self.at / "file"))


def table():
    """The rows of the table of messages: exit code and the whole text, by name."""
    rows, text = {}, run("help", "--messages").stdout
    for code, name, pattern in re.findall(r"^(\d+)  (\w+)\n((?:    .*\n)+)", text, re.M):
        rows[name] = int(code), " ".join(pattern.split())
    return rows


class Messages(Case):
    """Every row of the table is provoked, and comes as it stands there."""

    # For what the command checks before the library does, or what only a fault of the program brings about.
    GUARDS = {"badOption", "cannotShow", "otherFailure"}

    def setUp(self):
        super().setUp()
        self.scene, self.out = self.at / "scene.usda", self.at / "a.exr"
        self.scene.write_text("""#usda 1.0
def Mesh "M" {
    int[] faceVertexCounts = [4, 7]
    int[] faceVertexIndices = [0, 1, 2, 3]
    point3f[] points = [(-1, -1, 0), (1, -1, 0), (1, 1, 0), (-1, 1, 0)]
}
def Camera "Flat" {
    float focalLength = 0
}
def Camera "FlatToo" {
}
""")

    def slow_scene(self):
        """Ten million prims by references: they take seconds."""
        text = '#usda 1.0\ndef "L0" {\n}\n'
        for level in range(1, 8):
            cells = "".join(f'def "c{i}" (references = </L{level - 1}>) {{\n}}\n' for i in range(10))
            text += f'def "L{level}" {{\n{cells}}}\n'
        path = self.at / "slow.usda"
        path.write_text(text)
        return path

    def cases(self):
        s, out = self.scene, self.out
        render = ["render", s, "-o", out]
        (self.at / "bad.sel").write_text("geoselection { x")
        rows = ", ".join(["0"] * 4000)
        places = ", ".join(["(0, 0, 0)"] * 4000)
        nested = self.at / "nested.usda"
        nested.write_text(f"""#usda 1.0
def PointInstancer "A" {{
    int[] protoIndices = [{rows}]
    point3f[] positions = [{places}]
    rel prototypes = </A/B>
    def PointInstancer "B" {{
        int[] protoIndices = [{rows}]
        point3f[] positions = [{places}]
        rel prototypes = </A/B/Empty>
        def Xform "Empty" {{
        }}
    }}
}}
""")
        run("make", "grid", "-o", self.at / "big.usda", "--rows", "100", "--columns", "100", "--scheme", "catmullClark")
        gone = self.at / "gone.usda"
        gone.write_text("#usda 1.0\n")
        run("render", gone, "-o", self.at / "gone.exr", "--size", "8x8", "--samples", "1")
        gone.unlink()
        return {
            "noVerb": ["--json"], "unknownVerb": ["xyzzy"], "unknownOption": ["info", s, "--xyzzy"], "furtherArgument": ["mesh", s, "/M", "x"],
            "missingArgument": ["info"], "missingOption": ["make", "cube"], "missingValue": ["info", s, "--time"],
            "needlessValue": ["info", s, "--json=1"], "givenTwice": ["info", s, "--time", "1", "--time", "2"],
            "badInteger": [*render, "--samples", "0"], "badNumber": ["info", s, "--time", "x"], "badNumbers": ["pick", s, "--ray", "1"],
            "badForm": ["pick", s, "--pixel", "9"], "badWord": [*render, "--engine", "x"], "badLens": [*render, "--lens", "x"],
            "badLayer": [*render, "--layers", "heat"], "noLayers": [*render, "--layers", ","], "noOutput": ["render", s],
            "unknownExtension": ["render", s, "-o", "a.tif"], "noExtension": ["render", s, "-o", "a"],
            "wrongExtension": ["render", s, "--png", "a.exr"], "manyLayers": ["render", s, "-o", "a.png", "--layers", "N,depth"],
            "badCompression": [*render, "--compression", "dwaa", "--layers", "depth"], "badView": ["render", s, "-o", "a.png", "--view", "xyzzy"],
            "badConfiguration": ["render", s, "-o", "a.png"], "noSceneOfRecord": ["render", "--like", self.at / "gone.exr", "-o", out],
            "noRecord": ["render", s, "--like", s, "-o", out], "oneOfTwo": ["pick", s], "badFrames": [*render, "--frames", "1-"],
            "regionOutside": [*render, "--size", "8x8", "--samples", "1", "--region", "8,0,9,9"],
            "oneNameForMany": [*render, "--frames", "1-2"],
            "picturesFailed": ["render", s, "-o", self.at / "{camera}.exr", "--camera", "all", "--size", "8x8", "--samples", "1"],
            "notTogether": [*render, "--smooth", "--engine", "hit-detector"], "noDirection": ["pick", s, "--ray", "0,0,0,0,0,0"],
            "onlyWith": ["select", s, "--rect", "0,0,1,1", "-o", "a.sel", "--json"], "pixelOutside": ["pick", s, "--pixel", "9999,0"],
            "notAbove": ["make", "cube", "-o", "a.usda", "--size", "0,1,1"],
            "tooManyMade": ["make", "grid", "-o", "a.usda", "--rows", "1000000", "--columns", "1000000"],
            "badLogFile": ["info", s, "--log-file", "log.usda"], "outputReference": ["make", "cube", "-o", "bal://no/x.usda"],
            "cannotOpen": ["info", "none.usda"], "tooManyInstances": ["pick", nested, "--ray", "0,0,9,0,0,-1"],
            "tooManyFaces": ["render", self.at / "big.usda", "-o", out, "--subdivide", "11"], "noSuchCamera": [*render, "--camera", "/None"],
            "unusableCamera": [*render, "--camera", "/Flat"], "severalCameras": [*render, "--camera", "Fla"],
            "noSuchVariant": ["pick", s, "--ray", "0,0,9,0,0,-1", "--variant", "/M:look=day"], "noSuchMesh": ["mesh", s, "/None"], "defects": ["mesh", s],
            "noSelection": ["select", "--show", "none.sel"], "damagedSelection": ["select", "--show", "bad.sel"],
            "cannotWrite": ["render", s, "-o", "none/a.exr"], "cannotWriteScene": ["make", "cube", "-o", "none/a.usda"],
            "readerTooSlow": ["info", self.slow_scene(), "--max-time", "0.2"],
            "noTile": [*render, "--from-tiles", self.at / "none.{tile}.exr"],
            "otherVersion": ["submit", s, "--check", "9.8.7"],
            "notHere": ["submit", s, "--check", VERSION, "--input", self.at / "none.sel"],
            "cannotServe": ["view", s, "--bind", "localhost"], "noManager": ["resolve", "bal:///x"], "badManager": ["resolve", "bal:///x"], "cannotResolve": ["resolve", "file://elsewhere/x"],
            "outOfMemory": None, "killed": None, "readerCrashed": None, "crashed": None}

    def line_of(self, name, arguments):
        environment = {k: v for k, v in os.environ.items() if k != "OPENASSETIO_DEFAULT_CONFIG"}
        if name == "badManager":
            environment["OPENASSETIO_DEFAULT_CONFIG"] = str(self.at / "none.toml")
        if name == "badConfiguration":
            environment["OCIO"] = str(self.at / "none.ocio")
        if arguments is not None:
            done = run(*arguments, cwd=self.at, env=environment)
            return done.returncode, done.stderr.splitlines()[-1]
        if name == "outOfMemory":
            if os.environ.get("VELA_SANITIZE"):
                return None  # sanitizers have no limit of memory
            small = lambda: resource.setrlimit(resource.RLIMIT_DATA, (1 << 28, 1 << 28))
            done = run("render", DEMO, "-o", self.out, "--size", "16384x16384", "--samples", "1", "--threads", "1", preexec_fn=small)
            return done.returncode, done.stderr.splitlines()[-1]
        if name in ("readerCrashed", "crashed") and os.environ.get("VELA_SANITIZE"):
            return None  # a sanitizer takes the signal for a fault of its own finding
        # A signal to the process that does the work: while it has a scene, and while it waits for a selection.
        if name == "readerCrashed":
            arguments = ["render", DEMO, "-o", self.out, "--size", "4000x4000", "--samples", "64"]
        else:
            os.mkfifo(self.at / "pipe.sel") if not (self.at / "pipe.sel").exists() else None
            arguments = ["select", "--show", "pipe.sel"]
        process = subprocess.Popen([COMMAND, *map(str, arguments)], stderr=subprocess.PIPE, stdout=subprocess.DEVNULL, text=True, cwd=self.at)
        children = pathlib.Path(f"/proc/{process.pid}/task/{process.pid}/children")
        if name == "readerCrashed":
            deadline = time.monotonic() + 60
            while not list(self.at.glob(".a.exr.part-*")) and time.monotonic() < deadline:
                time.sleep(0.02)
            time.sleep(0.5)  # until the scene is open
        else:
            writer = os.open(self.at / "pipe.sel", os.O_WRONLY)  # returns when the command reads
        worker = int(children.read_text().split()[0])
        os.kill(worker, signal.SIGKILL if name == "killed" else signal.SIGSEGV)
        error = process.communicate(timeout=60)[1]
        if name != "readerCrashed":
            os.close(writer)
        return process.returncode, error.splitlines()[-1]

    def test_each_row_is_provoked(self):
        rows, cases = table(), self.cases()
        self.assertEqual(set(rows), set(cases) | self.GUARDS, "each row wants a case here")
        for name, arguments in cases.items():
            with self.subTest(name):
                said = self.line_of(name, arguments)
                if said is None:
                    continue
                code, pattern = rows[name]
                # Empty values take the colon or the semicolon before them along.
                form = re.sub(r"((?:: |; )?)\\\{\d\\\}", lambda m: "(" + m[1] + ".+)?" if m[1] else ".+", re.escape(pattern).replace("\\ ", " "))
                self.assertRegex(said[1], r"^vela( \w+)?: error: " + form + "$")
                self.assertEqual(said[0], code)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=1)
