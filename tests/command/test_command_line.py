#!/usr/bin/env python3
"""The built command from outside: help, exit codes, messages, broken files, files written whole or not at all, the same
bytes from any number of threads.

Usage: test_command_line.py COMMAND PROJECT_ROOT EXRHEADER
"""
import fcntl
import json
import math
import os
import pathlib
import pty
import re
import signal
import struct
import subprocess
import sys
import tempfile
import termios
import time
import unittest
import zlib

COMMAND, ROOT, EXRHEADER = sys.argv[1], pathlib.Path(sys.argv[2]), sys.argv[3]
sys.path.insert(0, str(ROOT / "tests/support"))
from serving import serves  # noqa: E402

# A room of shapes, purposes and orientations; Z up, a unit is a metre.
SCENE = """#usda 1.0
(
    defaultPrim = "World"
    metersPerUnit = 1
    upAxis = "Z"
    startTimeCode = 1
    endTimeCode = 10
)

def Xform "World"
{
    def Mesh "Floor"
    {
        int[] faceVertexCounts = [4]
        int[] faceVertexIndices = [0, 1, 2, 3]
        point3f[] points = [(-4, -4, 0), (4, -4, 0), (4, 4, 0), (-4, 4, 0)]
        uniform token subdivisionScheme = "none"
    }
    def Xform "Box"
    {
        double3 xformOp:translate.timeSamples = { 1: (0, 0, 0.5), 10: (2, 0, 0.5) }
        uniform token[] xformOpOrder = ["xformOp:translate"]
        def Mesh "Shell"
        {
            int[] faceVertexCounts = [4, 4, 4, 4, 4, 4]
            int[] faceVertexIndices = [0, 2, 3, 1, 4, 5, 7, 6, 0, 1, 5, 4, 2, 6, 7, 3, 0, 4, 6, 2, 1, 3, 7, 5]
            point3f[] points = [(-.5, -.5, -.5), (.5, -.5, -.5), (-.5, .5, -.5), (.5, .5, -.5),
                                (-.5, -.5, .5), (.5, -.5, .5), (-.5, .5, .5), (.5, .5, .5)]
            color3f[] primvars:displayColor = [(0.8, 0.2, 0.1)]
            uniform token subdivisionScheme = "none"
        }
    }
    def Mesh "Marker"
    {
        uniform token purpose = "guide"
        int[] faceVertexCounts = [3]
        int[] faceVertexIndices = [0, 1, 2]
        point3f[] points = [(-1, -1, 2), (1, -1, 2), (0, 1, 2)]
    }
    def Mesh "Hidden"
    {
        token visibility = "invisible"
        int[] faceVertexCounts = [3]
        int[] faceVertexIndices = [0, 1, 2]
        point3f[] points = [(-1, -1, 3), (1, -1, 3), (0, 1, 3)]
    }
    def NurbsCurves "Wire"
    {
    }
    def PointInstancer "Many"
    {
        int[] protoIndices = [0, 0]
        point3f[] positions = [(2.5, 0, 0), (-2.5, 0, 0)]
        rel prototypes = </World/Many/Proto>
        def Mesh "Proto"
        {
            int[] faceVertexCounts = [3]
            int[] faceVertexIndices = [0, 1, 2]
            point3f[] points = [(-1, -1, 9), (1, -1, 9), (0, 1, 9)]
        }
    }
    def Camera "Top"
    {
        float focalLength = 20
        float horizontalAperture = 20
        float verticalAperture = 15
        float2 clippingRange = (0.1, 100)
        double3 xformOp:translate = (0, 0, 8)
        uniform token[] xformOpOrder = ["xformOp:translate"]
    }
    def Camera "Flat"
    {
        token projection = "orthographic"
        float horizontalAperture = 80
        float verticalAperture = 60
        float2 clippingRange = (0.1, 100)
        double3 xformOp:translate = (0, 0, 8)
        uniform token[] xformOpOrder = ["xformOp:translate"]
    }
}
"""

VERBS = ("render", "view", "pick", "explain", "info", "mesh", "make", "channels", "select", "resolve", "selftest", "help")


def run(*arguments, **more):
    return subprocess.run([COMMAND, *map(str, arguments)], capture_output=True, text=True, timeout=120, **more)


class Case(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        self.at = pathlib.Path(self.folder.name)
        self.scene = self.at / "scene.usda"
        self.scene.write_text(SCENE)

    def names(self):
        return sorted(p.name for p in self.at.iterdir())

    def good(self, *arguments, **more):
        done = run(*arguments, **more)
        self.assertEqual(done.returncode, 0, done.stderr)
        return done

    def asked(self, *arguments, **more):
        """Something is found, or not."""
        done = run(*arguments, **more)
        self.assertIn(done.returncode, (0, 5), done.stderr)
        return done

    def bad(self, code, *arguments):
        """Fails with the code, on standard error alone, the last line in this command's form; gives that line."""
        done = run(*arguments)
        self.assertEqual(done.returncode, code, f"{arguments}\n{done.stdout}{done.stderr}")
        self.assertEqual(done.stdout, "")
        line = done.stderr.strip().splitlines()[-1]
        self.assertRegex(line, r"^vela( \w+)?: error: [^:]+")
        return line


class Help(Case):
    def test_every_help_fits_a_terminal_and_exits_with_0(self):
        for verb in [None, *VERBS]:
            done = self.good(*([verb] if verb else []), "--help")
            self.assertEqual(done.stderr, "")
            self.assertLessEqual(max(map(len, done.stdout.splitlines())), 80)
            self.assertEqual(self.good("help", *([verb] if verb else [])).stdout, done.stdout)

    def test_the_examples_of_the_help_work(self):
        count = 0
        for verb in VERBS:
            text = run(verb, "--help").stdout.replace("\\\n", "")
            for line in text.split("Examples", 1)[1].splitlines():
                if not line.strip() or "bal:///" in line:  # those want an asset manager, and have tests of their own
                    continue
                words = line.split()
                self.assertEqual(words[0], "vela")
                words = [str(ROOT / w) if w.startswith("examples/") else w for w in words[1:]]
                if words[0] == "render":  # as they stand, but small: what is tested is that they run
                    words += ["--samples", "1"] if "--samples" not in words else []
                    words += ["--size", "64x32"] if "--size" not in words else []
                if words[0] == "view":  # which answers until it is told to end
                    self.assertEqual(serves([COMMAND], *words, cwd=self.at), "")
                else:
                    self.good(*words, cwd=self.at)
                count += 1
        self.assertGreaterEqual(count, 16)

    def test_the_options_of_the_help_are_those_that_are_read(self):
        for verb in VERBS:
            # Examples may show other verbs too.
            options = set(re.findall(r"--[a-z-]+", run(verb, "--help").stdout.split("Examples", 1)[0])) - {"--help"}
            self.assertGreater(len(options), 0)
            for option in options:
                # An option that is not known is complained about by name. A page would be served until it is told to end.
                ends = ["--port", "x"] if verb == "view" else []
                self.assertNotIn(f"no such option: {option}", run(verb, self.scene, option, *ends).stderr)
            self.assertIn("no such option: --no-such", run(verb, self.scene, "--no-such").stderr)

    def test_the_version_is_told(self):
        self.assertRegex(self.good("--version").stdout, r"^vela \d+\.\d+\.\d+\n$")

    def test_how_it_was_built_is_told(self):
        said = self.good("--version", "--build-info").stdout
        self.assertTrue(said.startswith(self.good("--version").stdout), said)
        for fact in ("compiler          GCC \\d+|compiler          Clang \\d+", "instruction sets  .*SSE2", "OpenUSD           \\d+\\.\\d+, ",
                     "TBB               20\\d\\d\\.\\d+\\.\\d+, ", "OpenSubdiv        3\\.\\d+\\.\\d+, ", "OpenAssetIO       1\\.0\\.\\d+, /",
                     "Python            ", "loaded            /"):
            self.assertRegex(said, f"(?m)^{fact}")

    def test_no_verb_prints_the_help_as_an_error(self):
        done = run()
        self.assertEqual((done.returncode, done.stdout), (2, ""))
        self.assertIn("vela render", done.stderr)


class Usage(Case):
    def test_wrong_usage_exits_with_2_and_names_what_to_try(self):
        out = self.at / "a.exr"
        for arguments in (["paint"], ["render"], ["render", self.scene], ["render", self.scene, "-o"],
                          ["render", self.scene, "-o", out, "--size", "10x"], ["render", self.scene, "-o", out, "--size", "0x9"],
                          ["render", self.scene, "-o", out, "--size", "9x99999999999"],
                          ["render", self.scene, "-o", out, "--samples", "0"], ["render", self.scene, "-o", out, "--samples", "x"],
                          ["render", self.scene, "-o", out, "--time", "soon"], ["render", self.scene, "-o", out, "--time", "nan"],
                          ["render", self.scene, "-o", out, "--threads", "-1"], ["render", self.scene, "-o", out, "--lens", "fisheye"],
                          ["render", self.scene, "-o", out, "--layers", "rgba,heat"], ["render", self.scene, "-o", out, "--layers", ","],
                          ["render", self.scene, "-o", out, "--layers", "forward"], ["render", self.scene, "-o", out, "--engine", "x"],
                          ["render", self.scene, "-o", out, "--purpose", "all"], ["render", self.scene, "-o", out, "--pattern", "x"],
                          ["render", self.scene, "-o", out, "--subdivide", "-1"], ["render", self.scene, "-o", out, "--subdivide", "12"],
                          ["render", self.scene, "-o", out, "--subdivide", "fine"],
                          ["render", self.scene, "-o", out, "--subdivide", "1", "--engine", "hit-detector"],
                          ["pick", self.scene, "--pixel", "1,1", "--smooth", "--engine", "hit-detector"],
                          ["render", self.scene, "-o", "a.tif"], ["render", self.scene, "-o", "a.x", "--png", "a.x"],
                          ["render", self.scene, "-o", out, "--no-such", "1"], ["render", self.scene, "extra", "-o", out],
                          ["pick", self.scene], ["pick", self.scene, "--pixel", "1"], ["pick", self.scene, "--pixel", "1,2,3"],
                          ["pick", self.scene, "--pixel", "-1,0"], ["pick", self.scene, "--pixel", "1280,0"],
                          ["pick", self.scene, "--ray", "0,0,0,0,0,0"], ["pick", self.scene, "--ray", "0,0,0,0,1"],
                          ["pick", self.scene, "--ray", "0,0,0,0,0,inf"], ["pick", self.scene, "--pixel", "1,1", "--ray", "0,0,9,0,0,-1"],
                          ["info"], ["info", self.scene, "--time", "x"], ["info", self.scene, "--log-level"],
                          ["select"], ["select", self.scene], ["select", self.scene, "--rect", "1,2,3,4"],
                          ["select", self.scene, "--rect", "1,2,3", "-o", out], ["select", self.scene, "--rect", "1,2,3,9999999", "-o", out],
                          ["select", self.scene, "--rect", "1,2,3,4", "-o", out, "--parts", "edges"],
                          ["select", self.scene, "--rect", "1,2,3,4", "-o", out, "--json"], ["select", "--show", out, "--rect", "1,2,3,4"]):
            line = self.bad(2, *arguments)
            self.assertRegex(line, r"; try |; leave ", arguments)
        line = self.bad(2, "render", self.scene, "-o", out, "--layers", "rgba,forward")
        self.assertTrue(line.startswith("vela render: error: the layer cannot be rendered: forward; try rgba,"), line)
        self.assertEqual(self.names(), ["scene.usda"])


class BrokenInput(Case):
    def check(self, file, attempt):
        for arguments in (["render", file, "-o", self.at / "out.exr"], ["pick", file, "--pixel", "0,0"], ["info", file]):
            line = self.bad(1, *arguments)
            self.assertTrue(line.startswith(f"vela {arguments[0]}: error: cannot open the scene: {file}: "), line)
            self.assertIn(f"; {attempt}", line)
            self.assertEqual(line.count(str(file)), 1, line)
            self.assertNotIn("pxr", line)
        self.assertNotIn("out.exr", self.names())

    def test_a_missing_file(self):
        self.check(self.at / "none.usda", "name a .usd")
        line = self.bad(1, "info", self.at / "scne.usd")
        self.assertTrue(line.endswith(f"there is no such file; try {self.scene}"), line)

    def test_the_file_is_named_once_however_it_is_spelled(self):
        (self.at / "text.usda").write_text("hello")
        (self.at / "syntax.usda").write_text("#usda 1.0\ndef Mesh {")
        (self.at / "cut.usdc").write_bytes(b"PXR-USDC\0\0")
        (self.at / "none.usdz").write_bytes(b"PK\3\4")
        (self.at / "empty.usda").write_bytes(b"")
        os.symlink("nowhere.usda", self.at / "link.usda")
        for name, why in (("text.usda", "it is not a valid usda layer; see what"), ("syntax.usda", "line 2:"), ("cut.usdc", "the file is cut off; "),
                          ("none.usdz", "the file is no scene; "), ("empty.usda", "the file is empty; write it anew"), ("gone.usda", "there is no such file; "),
                          ("link.usda", "there is no such file; see where the link leads")):
            for spelled in (name, "./" + name, str(self.at / name), "../" + self.at.name + "/" + name):
                done = run("info", spelled, cwd=self.at)
                self.assertEqual(done.returncode, 1)
                self.assertTrue(done.stderr.startswith(f"vela info: error: cannot open the scene: {spelled}: {why}"), done.stderr)
                self.assertEqual(len(re.findall(re.escape(name), done.stderr)), 1, done.stderr)

    def test_an_empty_file(self):
        (self.at / "empty.usda").touch()
        self.check(self.at / "empty.usda", "write it anew")

    def test_a_file_that_is_no_scene(self):
        (self.at / "text.usd").write_text("hello\n")
        self.check(self.at / "text.usd", "see what its reader complains of")

    def test_a_folder(self):
        (self.at / "folder.usd").mkdir()
        self.check(self.at / "folder.usd", "name a .usd")

    def test_a_file_that_is_cut_off(self):
        (self.at / "cut.usda").write_text(SCENE[: len(SCENE) // 2])
        self.check(self.at / "cut.usda", "see what its reader complains of")

    def test_a_text_nested_deeper_than_a_stack(self):
        deep = 20000
        (self.at / "deep.usda").write_text("#usda 1.0\n" + 'def "a" {\n' * deep + "}\n" * deep)
        self.check(self.at / "deep.usda", "see what its reader complains of")

    def render_small(self, scene):
        return self.good("render", scene, "-o", self.at / "out.exr", "--png", self.at / "out.png", "--size", "32x18", "--samples", "1")

    def test_broken_faces_are_left_out_and_the_rest_is_shown(self):
        (self.at / "bad.usda").write_text("""#usda 1.0
def Mesh "M"
{
    int[] faceVertexCounts = [3, -5, 3, 2, 3, 900000000, 3]
    int[] faceVertexIndices = [0, 1, 9999, 0, 1, 3, 0, 1, 0, 1, 2]
    point3f[] points = [(0, 0, 0), (1, 0, 0), (0, 1, 0), (nan, 0, inf)]
    color3f[] primvars:displayColor = [(1, 0, 0), (0, 1, 0)] ( interpolation = "vertex" )
    normal3f[] normals = [(0, 0, 1)] ( interpolation = "faceVarying" )
}
""")
        self.render_small(self.at / "bad.usda")
        found = json.loads(self.good("pick", self.at / "bad.usda", "--ray", "0.2,0.2,5,0,0,-1", "--json").stdout)
        self.assertEqual((found["prim"], found["face"], found["distance"]), ("/M", 4, 5))
        self.good("info", self.at / "bad.usda")

    def test_a_broken_reference_is_said_once_and_the_rest_is_shown(self):
        text = SCENE.replace('def NurbsCurves "Wire"\n', 'def "Lost" ( references = @./lost.usda@ )\n')
        (self.at / "lost_arc.usda").write_text(text)
        done = self.render_small(self.at / "lost_arc.usda")
        self.assertEqual(len(re.findall("lost.usda@|lost.usda'|/lost.usda", done.stderr)) > 0, True, done.stderr)
        warnings = [l for l in done.stderr.splitlines() if "warning" in l]
        self.assertEqual(len(warnings), len(set(warnings)))

    def test_a_reference_to_itself_ends(self):
        (self.at / "cycle.usda").write_text('#usda 1.0\ndef "A" ( references = </A/B> )\n{\n    def "B" ( references = </A> )\n    {\n    }\n}\n')
        self.render_small(self.at / "cycle.usda")

    def test_an_empty_scene_gives_an_empty_picture_and_a_warning(self):
        (self.at / "empty_scene.usda").write_text("#usda 1.0\n")
        self.assertIn("nothing to show", self.render_small(self.at / "empty_scene.usda").stderr)

    def test_no_such_camera(self):
        line = self.bad(1, "render", self.scene, "-o", self.at / "out.exr", "--camera", "/World/Box")
        self.assertEqual(line, "vela render: error: no such camera: /World/Box; try --camera /World/Top")

    def test_a_folder_that_is_not_there(self):
        line = self.bad(1, "render", self.scene, "-o", self.at / "no" / "out.exr")
        self.assertIn("cannot write", line)
        line = self.bad(1, "render", self.scene, "-o", self.at)
        self.assertIn("it is a folder", line)


def read_png(file):
    """Width, height and rows of bytes of an 8-bit RGB PNG."""
    data = file.read_bytes()
    assert data[:8] == b"\x89PNG\r\n\x1a\n"
    at, packed, size = 8, b"", None
    while at < len(data):
        length, kind = struct.unpack(">I4s", data[at:at + 8])
        body = data[at + 8:at + 8 + length]
        if kind == b"IHDR":
            size = struct.unpack(">II", body[:8])
            assert body[8:10] == b"\x08\x02", "8 bits, RGB"
        packed += body if kind == b"IDAT" else b""
        at += 12 + length
    raw, rows, stride = zlib.decompress(packed), [], size[0] * 3
    before = bytes(stride)
    for y in range(size[1]):
        kind, line = raw[y * (stride + 1)], bytearray(raw[y * (stride + 1) + 1:(y + 1) * (stride + 1)])
        for i in range(stride):
            a = line[i - 3] if i >= 3 else 0
            b, c = before[i], before[i - 3] if i >= 3 else 0
            p = a + b - c
            nearest = min((abs(p - a), 0, a), (abs(p - b), 1, b), (abs(p - c), 2, c))[2]
            line[i] = (line[i] + (0, a, b, (a + b) // 2, nearest)[kind]) & 255
        rows.append(bytes(line))
        before = line
    return size[0], size[1], rows


class Pictures(Case):
    def test_the_files_are_the_same_for_any_number_of_threads(self):
        seen = set()
        for threads in (1, 2, 3, 7):
            self.good("render", self.scene, "-o", self.at / "a.exr", "--png", self.at / "a.png", "--size", "150x85", "--samples", "9",
                      "--time", "4", "--threads", threads)
            seen.add((self.at / "a.exr").read_bytes() + (self.at / "a.png").read_bytes())
        self.assertEqual(len(seen), 1)

    def test_another_frame_has_other_samples(self):
        pictures = []
        for t in (1, 2):
            self.good("render", self.scene, "--png", self.at / "a.png", "--size", "64x36", "--samples", "4", "--time", t,
                      "--exclude", "/World/Box")
            pictures.append((self.at / "a.png").read_bytes())
        self.assertNotEqual(*pictures)

    def test_an_exr_reader_lists_the_layers_by_their_names(self):
        self.assertTrue(EXRHEADER and "NOTFOUND" not in EXRHEADER, "exrheader is missing")
        self.good("render", self.scene, "-o", self.at / "a.exr", "--size", "32x18", "--samples", "1",
                  "--layers", "rgba,depth,N,P,prim,face,albedo")
        text = subprocess.run([EXRHEADER, self.at / "a.exr"], capture_output=True, text=True, check=True).stdout
        found = re.findall(r"^    ([\w.]+), (\d+-bit [\w -]+?), sampling 1 1", text, re.M)
        floats = ["A", "B", "G", "N.x", "N.y", "N.z", "P.x", "P.y", "P.z", "R", "Z", "albedo.B", "albedo.G", "albedo.R",
                  "face.id", "prim.id"]
        wanted = [(n, "32-bit floating-point") for n in floats]
        self.assertEqual(sorted(found), sorted(wanted))
        self.assertIn('"/World/Floor":1', text)
        self.assertIn('"/World/Box/Shell":2', text)

    def test_only_the_layers_asked_for_are_written(self):
        for layers, names in (("rgb", ["B", "G", "R"]), ("alpha", ["A"]), ("depth", ["Z"]), ("N", ["N.x", "N.y", "N.z"])):
            self.good("render", self.scene, "-o", self.at / "a.exr", "--size", "16x9", "--layers", layers)
            text = subprocess.run([EXRHEADER, self.at / "a.exr"], capture_output=True, text=True, check=True).stdout
            self.assertEqual(re.findall(r"^    ([\w.]+), 32-bit", text, re.M), names)

    def test_no_temporary_file_is_left(self):
        self.good("render", self.scene, "-o", self.at / "a.exr", "--png", self.at / "a.png", "--size", "16x9")
        self.assertEqual(self.names(), ["a.exr", "a.png", "scene.usda"])

    def test_a_picture_that_is_there_is_replaced_at_once_or_kept(self):
        (self.at / "a.exr").write_text("old")
        self.bad(1, "render", self.at / "none.usda", "-o", self.at / "a.exr")
        self.assertEqual((self.at / "a.exr").read_text(), "old")
        self.good("render", self.scene, "-o", self.at / "a.exr", "--size", "16x9")
        self.assertEqual((self.at / "a.exr").read_bytes()[:4], b"\x76\x2f\x31\x01")

    def test_what_cannot_be_shown_is_counted_in_one_line(self):
        done = self.good("render", self.scene, "-o", self.at / "a.exr", "--size", "16x9")
        self.assertEqual(done.stderr, "vela render: note: left out: 1 subdivision surface shown as its control mesh, 1 NurbsCurves\n")
        self.assertEqual(done.stdout, "")

    def test_the_png_has_the_colours_of_the_scene_evenly_lit(self):
        # A red box seen from above: plainly redder than it is green; the floor is grey and lit alike all over.
        self.good("render", self.scene, "--png", self.at / "a.png", "--size", "64x48", "--samples", "4", "--camera", "/World/Flat")
        width, height, rows = read_png(self.at / "a.png")
        self.assertEqual((width, height), (64, 48))
        red, green, blue = rows[24][32 * 3:32 * 3 + 3]
        self.assertGreater(red, green + 60)
        floor = [rows[y][x * 3 + 1] for y in (6, 40) for x in (8, 56)]
        self.assertLess(max(floor) - min(floor), 12)

    def test_scenes_of_any_size_give_the_same_picture(self):
        # Powers of two change no digit of a float.
        pictures = set()
        for power in (-40, -20, 0, 20, 40):
            text = SCENE.replace('def Xform "World"\n{', f'def Xform "World"\n{{\n    double3 xformOp:scale = ({2.0 ** power!r}, {2.0 ** power!r}, {2.0 ** power!r})\n'
                                 '    uniform token[] xformOpOrder = ["xformOp:scale"]')
            text = re.sub(r'    def Camera "\w+"\n    \{.*?\n    \}\n', "", text, flags=re.S)
            (self.at / "scaled.usda").write_text(text)
            self.good("render", self.at / "scaled.usda", "--png", self.at / "a.png", "--size", "96x54", "--samples", "4")
            pictures.add((self.at / "a.png").read_bytes())
        self.assertEqual(len(pictures), 1)


class Picks(Case):
    def pick(self, *arguments):
        found = json.loads(self.asked("pick", self.scene, *arguments, "--json").stdout)
        self.assertEqual(found.pop("version"), 1)
        return found

    def test_a_ray_from_above_meets_the_box_then_the_floor_beside_it(self):
        found = self.pick("--ray", "0.1,0.2,5,0,0,-2")
        self.assertEqual(found, {"hit": True, "prim": "/World/Box/Shell", "entry": 1, "face": 1, "distance": 2.0,
                                 "position": [0.1, 0.2, 1.0], "normal": [0.0, 0.0, 1.0]})
        self.assertEqual(self.pick("--ray", "3,3,5,0,0,-1")["prim"], "/World/Floor")

    def test_the_material_of_the_face_is_named_where_one_is_bound(self):
        scene = self.at / "bound.usda"
        square = "int[] faceVertexCounts = [4]\nint[] faceVertexIndices = [0, 1, 2, 3]\npoint3f[] points = [(0,0,0), (1,0,0), (1,1,0), (0,1,0)]\n"
        scene.write_text('#usda 1.0\ndef Scope "Looks" {\ndef Material "A" {\n}\ndef Material "B" {\n}\n}\n'
                         'def Mesh "M" {\n' + square + 'rel material:binding = </Looks/A>\nrel material:binding:preview = </Looks/B>\n}\n'
                         'def Mesh "Plain" {\n' + square + 'double3 xformOp:translate = (2, 0, 0)\n'
                         'uniform token[] xformOpOrder = ["xformOp:translate"]\n}\n')
        ray = ("pick", scene, "--ray", "0.5,0.5,5,0,0,-1")
        self.assertIn("\nmaterial  /Looks/A\n", self.good(*ray).stdout)
        self.assertEqual(json.loads(self.good(*ray, "--json", "--material-purpose", "preview").stdout)["material"], "/Looks/B")
        beside = self.good("pick", scene, "--ray", "2.5,0.5,5,0,0,-1")
        self.assertNotIn("material", beside.stdout)
        self.assertIn("all", self.bad(2, *ray, "--material-purpose", "all"))
        self.assertEqual(json.loads(self.good("info", scene, "--json").stdout)["materials"],
                         [{"path": "/Looks/A", "prims": 1, "previewSurface": False, "textures": []}])
        self.assertIn("\nMaterials: 1\n         1  /Looks/A (no preview surface)\n", self.good("info", scene).stdout)

    def test_a_miss_is_told_and_is_no_error(self):
        self.assertEqual(self.pick("--ray", "0,0,5,0,0,1"), {"hit": False})
        missed = run("pick", self.scene, "--ray", "0,0,5,0,0,1")
        self.assertEqual((missed.returncode, missed.stdout), (5, "nothing there\n"))

    def test_the_text_says_the_same(self):
        text = self.good("pick", self.scene, "--ray", "0.1,0.2,5,0,0,-2").stdout
        self.assertEqual(text, "prim      /World/Box/Shell\nentry     1\nface      1\ndistance  2\nposition  0.1 0.2 1\nnormal    0 0 1\n")

    def test_time_moves_the_box(self):
        self.assertEqual(self.pick("--ray", "2,0,5,0,0,-1", "--time", "10")["prim"], "/World/Box/Shell")
        self.assertEqual(self.pick("--ray", "2,0,5,0,0,-1", "--time", "1")["prim"], "/World/Floor")
        self.assertAlmostEqual(self.pick("--ray", "0,0,5,0.6,0,-1", "--time", "1")["position"][2], 0.0, 5)

    def test_guides_and_hidden_prims_come_when_asked_for(self):
        down = ("--ray", "0,0,20,0,0,-1")
        self.assertEqual(self.pick(*down)["prim"], "/World/Box/Shell")
        self.assertEqual(self.pick(*down, "--purpose", "default,guide")["prim"], "/World/Marker")
        self.assertEqual(self.pick(*down, "--invisible")["prim"], "/World/Hidden")

    def test_prims_are_left_out_by_path_with_what_is_below(self):
        self.assertEqual(self.pick("--ray", "0,0,5,0,0,-1", "--exclude", "/World/Box")["prim"], "/World/Floor")
        self.assertEqual(self.pick("--ray", "0,0,5,0,0,-1", "--exclude", "/World/Box", "--exclude", "/World/Floor"), {"hit": False})

    def test_prims_are_taken_by_type(self):
        self.assertEqual(self.pick("--ray", "0,0,5,0,0,-1", "--include-type", "Mesh")["prim"], "/World/Box/Shell")
        self.assertEqual(self.pick("--ray", "0,0,5,0,0,-1", "--include-type", "Sphere"), {"hit": False})

    def test_prototypes_of_instancers_are_no_strays(self):
        self.assertEqual(self.pick("--ray", "0,0,20,0,0,-1")["position"][2], 1.0)

    def test_both_engines_agree_on_a_plain_hit(self):
        tracer = self.pick("--pixel", "20,30", "--size", "64x48")
        detector = self.pick("--pixel", "20,30", "--size", "64x48", "--engine", "hit-detector")
        self.assertEqual((tracer["prim"], tracer["face"]), (detector["prim"], detector["face"]))
        for a, b in zip(tracer["position"], detector["position"]):
            self.assertAlmostEqual(a, b, 4)

    def test_pixel_0_0_is_top_left(self):
        # The camera looks down with +y up in the picture: the first pixel is at -x, +y.
        x, y, _ = self.pick("--pixel", "0,0", "--size", "64x48", "--camera", "/World/Flat")["position"]
        self.assertAlmostEqual(x, -4 + 8 / 128, 5)
        self.assertAlmostEqual(y, 3 - 8 / 128, 5)


class Selections(Case):
    """Seen from above by the orthographic camera: 80 x 60 pixels of a tenth of a unit, the box in the middle 10 of each."""

    def select(self, rect, *more):
        out = self.at / "s.sel"
        self.asked("select", self.scene, "--camera", "/World/Flat", "--size", "80x60", "--time", "1", "--rect", rect, "-o", out, *more)
        report = json.loads(self.good("select", "--show", out, "--json").stdout)
        return {o["path"]: o for o in report["objects"]}

    def chosen(self, part):
        return [i for run in part["runs"] for i in range(run["first"], run["last"] + 1) if run["value"] == 1]

    def test_objects_that_show_are_selected_as_wholes(self):
        found = self.select("38,28,41,31")
        self.assertEqual(list(found), ["/World/Box/Shell"])
        self.assertTrue(found["/World/Box/Shell"]["selected"])

    def test_through_takes_what_is_hidden_too(self):
        self.assertEqual(set(self.select("38,28,41,31", "--through")), {"/World/Box/Shell", "/World/Floor"})

    def test_through_takes_what_lies_exactly_upon_another(self):
        scene = self.at / "upon.usda"
        square = ('point3f[] points = [(-1, -1, 0), (1, -1, 0), (1, 1, 0), (-1, 1, 0)]\n'
                  'int[] faceVertexCounts = [4]\nint[] faceVertexIndices = [0, 1, 2, 3]\n')
        scene.write_text('#usda 1.0\n(upAxis = "Z")\n'
                         f'def Mesh "A" {{\n{square}}}\ndef Mesh "B" {{\n{square}}}\n'
                         'def Mesh "Aside" {\n' + square + 'double3 xformOp:translate = (5, 0, 0)\n'
                         'uniform token[] xformOpOrder = ["xformOp:translate"]\n}\n'
                         'def PointInstancer "Many" {\nrel prototypes = [</Many/Proto>]\nint[] protoIndices = [0, 0, 0, 0]\n'
                         'point3f[] positions = [(0, 0, 0), (0, 0, 0), (0, 0, -1), (50, 50, -9)]\n'
                         'def Mesh "Proto" {\n' + square + '}\n}\n'
                         'def Camera "Above" {\ntoken projection = "orthographic"\nfloat horizontalAperture = 40\n'
                         'float verticalAperture = 30\nfloat2 clippingRange = (0.1, 100)\ndouble3 xformOp:translate = (0, 0, 9)\n'
                         'uniform token[] xformOpOrder = ["xformOp:translate"]\n}\n')
        out = self.at / "upon.sel"
        for engine, through, found in (("tracer", [], (1, {"/A"})), ("tracer", ["--through"], (5, {"/A", "/B", "/Many/Proto"})),
                                       ("hit-detector", ["--through"], (2, {"/A", "/B"}))):
            said = self.good("select", scene, "--rect", "330,230,332,232", "--size", "640x480", "--lens", "orthographic", "--camera", "/Above",
                             "--engine", engine, "--parts", "faces", "-o", out, *through).stdout
            self.assertIn(f"faces of {found[0]} object", said)
            report = json.loads(self.good("select", "--show", out, "--json").stdout)
            self.assertEqual({o["path"] for o in report["objects"]}, found[1])

    def test_faces_met_are_selected_one_by_one(self):
        shell = self.select("38,28,41,31", "--parts", "faces")["/World/Box/Shell"]
        self.assertEqual((shell["selected"], shell["faces"]["size"], self.chosen(shell["faces"])), (False, 6, [1]))
        shell = self.select("38,28,41,31", "--parts", "faces", "--through")["/World/Box/Shell"]
        self.assertEqual(self.chosen(shell["faces"]), [0, 1])

    def test_vertices_are_those_within_the_rectangle(self):
        # The left half of the box's top: the corners at x = -0.5, which the rectangle reaches and the right ones not.
        shell = self.select("33,20,39,39", "--parts", "vertices")["/World/Box/Shell"]
        self.assertEqual((shell["vertices"]["size"], self.chosen(shell["vertices"])), (8, [4, 6]))

    def test_of_a_refined_mesh_the_scenes_own_faces_and_vertices_are_selected(self):
        # The box as a subdivision surface: a ball-like body whose corners have moved in from 0.5 to 0.5 * 5/9 on the limit.
        self.scene.write_text(SCENE.replace('subdivisionScheme = "none"', 'subdivisionScheme = "catmullClark"'))
        shell = self.select("38,28,41,31", "--parts", "faces", "--subdivide", "3")["/World/Box/Shell"]
        self.assertEqual((shell["faces"]["size"], self.chosen(shell["faces"])), (6, [1]))
        shell = self.select("38,28,41,31", "--parts", "faces", "--subdivide", "3", "--through")["/World/Box/Shell"]
        self.assertEqual(self.chosen(shell["faces"]), [0, 1])
        # The left half, which shows the top and the rounded left side.
        shell = self.select("36,26,39,33", "--parts", "vertices", "--subdivide", "3")["/World/Box/Shell"]
        self.assertEqual((shell["vertices"]["size"], self.chosen(shell["vertices"])), (8, [0, 2, 4, 6]))
        # Where the control mesh's corner would be there is nothing any more.
        self.assertEqual(set(self.select("34,24,35,25", "--subdivide", "3")), {"/World/Floor"})
        self.assertEqual(set(self.select("34,24,35,25")), {"/World/Floor", "/World/Box/Shell"})

    def test_pick_says_of_a_refined_mesh_what_the_picture_has(self):
        self.scene.write_text(SCENE.replace('subdivisionScheme = "none"', 'subdivisionScheme = "catmullClark"'))
        at = ["--camera", "/World/Flat", "--size", "80x60", "--time", "1", "--pixel", "38,28", "--subdivide", "2"]
        flat = json.loads(self.good("pick", self.scene, *at, "--json").stdout)
        smooth = json.loads(self.good("pick", self.scene, *at, "--smooth", "--json").stdout)
        self.assertEqual((flat["prim"], flat["face"], smooth["face"]), ("/World/Box/Shell", 1, 1))
        self.assertEqual(flat["position"], smooth["position"])
        self.assertNotEqual(flat["normal"], smooth["normal"])
        # The pixel lies 0.15 to the left and above the middle of a body that is all but round: its normal leans that way alike.
        x, y, z = smooth["normal"]
        self.assertAlmostEqual(x, -y, 4)
        self.assertLess(x, -0.1)
        self.assertAlmostEqual(x * x + y * y + z * z, 1, 5)

    def test_a_selected_face_of_a_refined_mesh_is_tinted_whole(self):
        self.scene.write_text(SCENE.replace('subdivisionScheme = "none"', 'subdivisionScheme = "catmullClark"'))
        self.select("38,28,41,31", "--parts", "faces", "--subdivide", "3")
        view = ["--camera", "/World/Flat", "--size", "80x60", "--time", "1", "--samples", "1", "--subdivide", "3"]
        for name, more in (("plain", []), ("tinted", ["--selection", self.at / "s.sel"])):
            self.good("render", self.scene, "--png", self.at / f"{name}.png", *view, *more)
        plain, tinted = (read_png(self.at / f"{name}.png")[2] for name in ("plain", "tinted"))
        changed = {(x, y) for y in range(60) for x in range(80) if plain[y][3 * x:3 * x + 3] != tinted[y][3 * x:3 * x + 3]}
        # The top face's patch: about 0.55 wide, its corners at 5/9 of the control mesh's.
        self.assertTrue({(x, y) for x in range(38, 42) for y in range(28, 32)} <= changed)
        self.assertTrue(changed <= {(x, y) for x in range(36, 44) for y in range(26, 34)}, changed)

    def test_what_cannot_be_refined_is_said_and_shown(self):
        self.scene.write_text(SCENE.replace('subdivisionScheme = "none"', 'subdivisionScheme = "loop"'))
        done = self.good("pick", self.scene, "--camera", "/World/Flat", "--size", "80x60", "--time", "1", "--pixel", "38,28", "--subdivide", "2")
        self.assertIn("note: 2 subdivision surfaces are shown unrefined, the first /World/Floor: the scheme loop is for triangles alone", done.stderr)
        self.assertIn("/World/Box/Shell", done.stdout)

    def test_more_faces_than_memory_holds_are_refused(self):
        self.scene.write_text(SCENE.replace('subdivisionScheme = "none"', 'subdivisionScheme = "catmullClark"'))
        line = self.bad(1, "render", self.scene, "-o", self.at / "a.exr", "--subdivide", "11")
        self.assertIn("too many faces: /World/Box/Shell: level 11 makes", line)
        self.assertIn("try --subdivide 10", line)

    def test_a_selection_is_added_to(self):
        self.select("38,28,41,31", "--parts", "faces")
        found = self.select("2,2,3,3", "--add", self.at / "s.sel")
        self.assertEqual(self.chosen(found["/World/Box/Shell"]["faces"]), [1])
        self.assertTrue(found["/World/Floor"]["selected"])
        again = self.select("38,28,41,31", "--parts", "faces", "--add", self.at / "s.sel")
        self.assertEqual(self.chosen(again["/World/Box/Shell"]["faces"]), [1])  # once more is no more

    def test_a_rectangle_of_nothing_is_an_empty_selection(self):
        self.assertEqual(self.select("38,28,41,31", "--exclude", "/World"), {})
        self.assertEqual(self.good("select", "--show", self.at / "s.sel").stdout, "nothing is selected\n")

    def test_the_overlay_changes_what_is_selected_and_nothing_else(self):
        self.select("38,28,41,31")
        view = ["--camera", "/World/Flat", "--size", "80x60", "--time", "1", "--samples", "1"]
        for name, more in (("plain", []), ("tinted", ["--selection", self.at / "s.sel"])):
            self.good("render", self.scene, "--png", self.at / f"{name}.png", *view, *more)
        plain, tinted = (read_png(self.at / f"{name}.png")[2] for name in ("plain", "tinted"))
        changed = {(x, y) for y in range(60) for x in range(80) if plain[y][3 * x:3 * x + 3] != tinted[y][3 * x:3 * x + 3]}
        self.assertEqual(changed, {(x, y) for x in range(35, 45) for y in range(25, 35)})

    def test_a_damaged_selection_is_told(self):
        bad = self.at / "bad.sel"
        for text in ("", "junk", "geoselection { paths 1 { /A 1", "geoselection { paths 2 { } }", "geoselection { paths 0 {", "geoselection { paths 0 { } } x"):
            bad.write_text(text)
            self.assertIn("cannot read the selection: " + str(bad), self.bad(1, "select", "--show", bad))
        self.assertIn("No such file", self.bad(1, "render", self.scene, "--png", self.at / "a.png", "--selection", self.at / "none.sel"))


class Logs(Case):
    def test_lines_go_to_the_file_asked_for_at_the_level_asked_for(self):
        log = self.at / "a.log"
        self.good("info", self.scene, "--log-file", log, "--log-level", "Verbose")
        text = log.read_text()
        self.assertRegex(text, r"^\[vela Verbose\]\[\d{4}/\d\d/\d\d:\d\d:\d\d:\d\d\] vela info: begins\n")
        self.assertIn(f"opened {self.scene}", text)
        self.bad(1, "info", self.at / "none.usda", "--log-file", log)
        self.assertIn("[vela Error]", log.read_text())

    def test_without_a_file_the_log_goes_to_standard_error(self):
        environment = {k: v for k, v in os.environ.items() if k not in ("HALDEN_LOG_FILE", "TEMP", "HALDEN_LOG_LEVEL")}
        done = self.good("info", self.scene, "--log-level", "message", cwd=self.at, env=environment)
        self.assertIn("[vela Message]", done.stderr)
        self.assertEqual(self.names(), ["scene.usda"])  # and no file with backslashes in its name

    def test_a_level_that_is_none_is_wrong_usage(self):
        environment = {k: v for k, v in os.environ.items() if k not in ("HALDEN_LOG_FILE", "TEMP")}
        for more in (["loud"], []):
            done = run("info", self.scene, "--log-level", *more, cwd=self.at, env=environment)
            self.assertEqual(done.returncode, 2)
            self.assertIn("wrong usage: --log-level", done.stderr)
        self.assertEqual(self.names(), ["scene.usda"])


# Instances: turned by 90 degrees about z, grown, moved in time, hidden, of two meshes each, and one within another.
INSTANCES = """#usda 1.0
def Xform "World"
{
    double3 xformOp:translate = (100, 0, 0)
    uniform token[] xformOpOrder = ["xformOp:translate"]
    def PointInstancer "Many"
    {
        int[] protoIndices = [0, 0, 1, 0, 7, 0]
        int64[] ids = [10, 11, 12, 13, 14, 15]
        int64[] invisibleIds = [13]
        point3f[] positions = [(0, 0, 0), (10, 0, 0), (20, 0, 0), (30, 0, 0), (40, 0, 0), (50, 0, 0)]
        point3f[] positions.timeSamples = {
            1: [(0, 0, 0), (10, 0, 0), (20, 0, 0), (30, 0, 0), (40, 0, 0), (50, 0, 0)],
            3: [(0, 0, 0), (10, 0, 8), (20, 0, 0), (30, 0, 0), (40, 0, 0), (50, 0, 0)],
        }
        quath[] orientations = [(1, 0, 0, 0), (0.70710678, 0, 0, 0.70710678), (1, 0, 0, 0), (1, 0, 0, 0), (1, 0, 0, 0), (1, 0, 0, 0)]
        float3[] scales = [(1, 1, 1), (2, 1, 3), (1, 1, 1), (1, 1, 1), (1, 1, 1), (-1, 1, 1)]
        rel prototypes = [</World/Many/Pair>, </World/Many/Group>]
        def Xform "Pair"
        {
            double3 xformOp:translate = (0, 0, 1)
            uniform token[] xformOpOrder = ["xformOp:translate"]
            def Mesh "Near"
            {
                int[] faceVertexCounts = [3]
                int[] faceVertexIndices = [0, 1, 2]
                point3f[] points = [(1, 0, 0), (2, 0, 0), (1, 0.5, 0)]
            }
            def Mesh "Far"
            {
                int[] faceVertexCounts = [3]
                int[] faceVertexIndices = [0, 1, 2]
                point3f[] points = [(-1, 0, 0), (-1, 1, 0), (-2, 0, 0)]
            }
            def Mesh "Hidden"
            {
                token visibility = "invisible"
                int[] faceVertexCounts = [3]
                int[] faceVertexIndices = [0, 1, 2]
                point3f[] points = [(1, 0, 1), (2, 0, 1), (1, 0.5, 1)]
            }
            def Mesh "Guide"
            {
                uniform token purpose = "guide"
                int[] faceVertexCounts = [3]
                int[] faceVertexIndices = [0, 1, 2]
                point3f[] points = [(1, 0, 2), (2, 0, 2), (1, 0.5, 2)]
            }
        }
        def Xform "Group"
        {
            def PointInstancer "Few"
            {
                int[] protoIndices = [0, 0]
                point3f[] positions = [(0, 0, 0), (0, 4, 0)]
                rel prototypes = [</Library/Leaf>]
                int64[] invisibleIds = [0]
            }
        }
    }
}
over "Library"
{
    def Mesh "Leaf"
    {
        int[] faceVertexCounts = [3]
        int[] faceVertexIndices = [0, 1, 2]
        point3f[] points = [(-1, -1, 5), (1, -1, 5), (0, 1, 5)]
    }
}
"""


class Instances(Case):
    def setUp(self):
        super().setUp()
        self.scene.write_text(INSTANCES)

    def down(self, x, y, *more):
        """What lies below a place: name and height; None where nothing is."""
        found = json.loads(self.asked("pick", self.scene, "--ray", f"{x},{y},100,0,0,-1", "--json", *more).stdout)
        return (found["prim"], round(found["position"][2], 5)) if found["hit"] else None

    def test_an_instance_stands_where_the_instancer_puts_it(self):
        self.assertEqual(self.down(101.2, 0.1), ("/World/Many/Pair/Near[0]", 1))
        self.assertEqual(self.down(98.8, 0.1), ("/World/Many/Pair/Far[0]", 1))
        # Scaled by (2, 1, 3), then turned so that x becomes y: (1.2, 0.1, 1) goes to (-0.1, 2.4, 3).
        self.assertEqual(self.down(109.9, 2.4), ("/World/Many/Pair/Near[1]", 3))
        self.assertIsNone(self.down(110.1, 2.4))
        # A negative scale mirrors: the parts change sides.
        self.assertEqual(self.down(148.8, 0.1), ("/World/Many/Pair/Near[5]", 1))

    def test_prototypes_do_not_show_where_they_are_written(self):
        found = json.loads(self.asked("pick", self.scene, "--ray", "0,0,100,0,0,-1", "--json").stdout)
        self.assertEqual(found, {"version": 1, "hit": False})

    def test_positions_are_those_of_the_time(self):
        # Half way from the first to the second sample; scaled heights are the same.
        self.assertEqual(self.down(109.9, 2.4, "--time", "2"), ("/World/Many/Pair/Near[1]", 7))
        self.assertEqual(self.down(109.9, 2.4, "--time", "3"), ("/World/Many/Pair/Near[1]", 11))

    def test_invisible_ids_are_hidden_until_asked_for(self):
        self.assertIsNone(self.down(131.2, 0.1))
        self.assertEqual(self.down(131.2, 0.1, "--invisible"), ("/World/Many/Pair/Hidden[3]", 2))

    def test_inactive_ids_are_gone_whatever_is_asked_for(self):
        self.scene.write_text(INSTANCES.replace('PointInstancer "Many"', 'PointInstancer "Many" ( inactiveIds = [11] )'))
        self.assertEqual(self.down(101.2, 0.1), ("/World/Many/Pair/Near[0]", 1))
        self.assertIsNone(self.down(109.9, 2.4))
        self.assertIsNone(self.down(109.9, 2.4, "--invisible"))
        self.assertEqual(self.down(131.2, 0.1, "--invisible"), ("/World/Many/Pair/Hidden[3]", 2))

    def test_visibility_and_purpose_hold_within_prototypes(self):
        self.assertEqual(self.down(101.2, 0.1, "--purpose", "default,guide"), ("/World/Many/Pair/Guide[0]", 3))
        self.assertEqual(self.down(101.2, 0.1, "--invisible"), ("/World/Many/Pair/Hidden[0]", 2))

    def test_an_instancer_within_a_prototype_has_both_numbers(self):
        # Its own first instance is hidden by its place; the prototype is elsewhere, so the inner instancer is named.
        self.assertEqual(self.down(120, 4), ("/Library/Leaf[/World/Many 2][/World/Many/Group/Few 1]", 5))
        self.assertIsNone(self.down(120, 0))

    def test_parts_of_prototypes_are_left_out_by_path(self):
        self.assertIsNone(self.down(101.2, 0.1, "--exclude", "/World/Many/Pair/Near"))
        self.assertEqual(self.down(98.8, 0.1, "--exclude", "/World/Many/Pair/Near"), ("/World/Many/Pair/Far[0]", 1))
        self.assertIsNone(self.down(120, 4, "--exclude", "/Library"))

    def test_an_instance_of_no_prototype_is_said_and_left_out(self):
        done = self.asked("pick", self.scene, "--ray", "0,0,100,0,0,-1")
        self.assertEqual(done.stderr, "vela pick: note: left out: 1 instance without a prototype or a position, 3 subdivision "
                         "surfaces shown as their control meshes\n")

    def test_an_instancer_in_its_own_prototype_ends(self):
        self.scene.write_text("""#usda 1.0
def PointInstancer "A"
{
    int[] protoIndices = [0, 0]
    point3f[] positions = [(0, 0, 0), (5, 0, 0)]
    rel prototypes = </A/P>
    def Xform "P"
    {
        def PointInstancer "B"
        {
            int[] protoIndices = [0, 0]
            point3f[] positions = [(0, 0, 0), (0, 5, 0)]
            rel prototypes = </A>
        }
        def Mesh "M"
        {
            int[] faceVertexCounts = [3]
            int[] faceVertexIndices = [0, 1, 2]
            point3f[] points = [(-1, -1, 0), (1, -1, 0), (0, 1, 0)]
        }
    }
}
""")
        self.assertEqual(self.down(5, 0), ("/A/P/M[1]", 0))

    def test_the_manifest_names_each_instance(self):
        # So large that the smallest shows: what does not is not named.
        self.good("render", self.scene, "-o", self.at / "a.exr", "--size", "2560x1440", "--layers", "prim")
        text = subprocess.run([EXRHEADER, self.at / "a.exr"], capture_output=True, text=True, check=True).stdout
        for number, name in enumerate(("Pair/Near[0]", "Pair/Far[0]", "Pair/Near[1]", "Pair/Far[1]"), 1):
            self.assertIn(f'"/World/Many/{name}":{number}', text)

    def test_the_detector_says_what_it_leaves_out(self):
        done = run("pick", self.scene, "--ray", "101.2,0.1,100,0,0,-1", "--engine", "hit-detector")
        self.assertEqual((done.returncode, done.stdout), (5, "nothing there\n"))
        self.assertIn("vela pick: note: the hit detector takes plain meshes alone: 7 others are left out", done.stderr)

    def test_a_hundred_thousand_instances_are_soon_picked(self):
        count = 100_000
        self.scene.write_text(f"""#usda 1.0
def PointInstancer "A"
{{
    int[] protoIndices = [{", ".join(["0"] * count)}]
    point3f[] positions = [{", ".join(f"({i * 3}, 0, 0)" for i in range(count))}]
    rel prototypes = </A/P>
    def Mesh "P"
    {{
        int[] faceVertexCounts = [3]
        int[] faceVertexIndices = [0, 1, 2]
        point3f[] points = [(-1, -1, 0), (1, -1, 0), (0, 1, 0)]
    }}
}}
""")
        self.assertEqual(self.down(77_777 * 3, 0), ("/A/P[77777]", 0))


class Shapes(Case):
    """Shape prims against their formulas: rays from all sides."""

    def hit(self, text, origin, direction):
        lines = re.sub(r" (?=uniform |double |\})", "\n", text)
        self.scene.write_text("#usda 1.0\n" + lines)
        ray = ",".join(str(v) for v in (*origin, *direction))
        done = run("pick", self.scene, "--ray", ray, "--json")
        found = json.loads(done.stdout)
        self.assertEqual(done.returncode, 0 if found["hit"] else 5, done.stderr)
        return found if found["hit"] else None

    def meets(self, text, origin, direction, position, normal, within=1e-3):
        found = self.hit(text, origin, direction)
        self.assertIsNotNone(found, text)
        for a, b in zip(found["position"], position):
            self.assertAlmostEqual(a, b, delta=within)
        for a, b in zip(found["normal"], normal):  # of the face: half a side's turn off at most
            self.assertAlmostEqual(a, b, delta=0.06)

    def misses(self, text, origin, direction):
        self.assertIsNone(self.hit(text, origin, direction), text)

    def test_a_cube_has_its_six_sides(self):
        for text, half in (('def Cube "C" { }', 1), ('def Cube "C" { double size = 0.5 }', 0.25)):
            for axis in range(3):
                for side in (-1, 1):
                    towards = [-side if i == axis else 0 for i in range(3)]
                    start = [9 * side if i == axis else 0.1 * (i + 1) * half for i in range(3)]
                    end = [half * side if i == axis else start[i] for i in range(3)]
                    self.meets(text, start, towards, end, [-t for t in towards], 1e-6)
            self.misses(text, (9, half * 1.01, 0), (-1, 0, 0))

    def test_a_sphere_is_round_to_a_thousandth(self):
        text = 'def Sphere "S" { double radius = 3 }'
        for direction in ((1, 0, 0), (0, 1, 0), (0, 0, -1), (0.6, 0.48, 0.64), (-0.36, 0.8, -0.48)):
            self.meets(text, [9 * v for v in direction], [-v for v in direction], [3 * v for v in direction], direction, 3e-3)
        for angle in (0.0, 0.3, 1.1, 2.5, 4.0):  # its outline, along x
            y, z = math.cos(angle), math.sin(angle)
            self.misses(text, (9, 3.0001 * y, 3.0001 * z), (-1, 0, 0))
            self.assertIsNotNone(self.hit(text, (9, 2.996 * y, 2.996 * z), (-1, 0, 0)))
        self.meets('def Sphere "S" { }', (9, 0, 0), (-1, 0, 0), (1, 0, 0), (1, 0, 0))  # the radius is 1 where none is given

    def test_a_cylinder_stands_along_its_axis(self):
        for name, axis in (("X", 0), ("Y", 1), ("Z", 2)):
            text = f'def Cylinder "C" {{ uniform token axis = "{name}" double height = 6 double radius = 0.5 }}'
            up = [1.0 if i == axis else 0.0 for i in range(3)]
            side = [1.0 if i == (axis + 1) % 3 else 0.0 for i in range(3)]
            at = lambda a, b: [a * u + b * s for u, s in zip(up, side)]
            self.meets(text, at(9, 0.4), [-u for u in up], at(3, 0.4), up)
            self.meets(text, at(-9, 0.4), up, at(-3, 0.4), [-u for u in up])
            self.meets(text, at(2.9, 9), [-s for s in side], at(2.9, 0.5), side)
            self.misses(text, at(3.01, 9), [-s for s in side])
        self.meets('def Cylinder "C" { }', (0, 0, 9), (0, 0, -1), (0, 0, 1), (0, 0, 1))

    def test_a_cone_narrows_to_its_tip(self):
        text = 'def Cone "C" { double height = 4 double radius = 1 }'
        r = 1 / math.sqrt(17)
        self.meets(text, (9, 0, 1), (-1, 0, 0), (0.25, 0, 1), (4 * r, 0, r))
        self.meets(text, (0.2, 0.3, -9), (0, 0, 1), (0.2, 0.3, -2), (0, 0, -1))
        self.misses(text, (9, 0.1, 1.7), (-1, 0, 0))
        self.misses(text, (9, 0, 2.001), (-1, 0, 0))

    def test_a_capsule_ends_in_half_spheres(self):
        text = 'def Capsule "C" { uniform token axis = "X" }'  # height 1, radius 0.5
        self.meets(text, (9, 0, 0), (-1, 0, 0), (1, 0, 0), (1, 0, 0))
        self.meets(text, (-9, 0.3, 0), (1, 0, 0), (-0.9, 0.3, 0), (-0.8, 0.6, 0))
        self.meets(text, (0.2, 9, 0), (0, -1, 0), (0.2, 0.5, 0), (0, 1, 0))

    def test_a_plane_has_its_width_and_length_along_the_right_axes(self):
        for name, up, width, length in (("X", 0, 2, 1), ("Y", 1, 0, 2), ("Z", 2, 0, 1)):
            text = f'def Plane "P" {{ uniform token axis = "{name}" double width = 6 double length = 2 }}'
            down = [-1 if i == up else 0 for i in range(3)]
            def at(w, l):
                place = [9.0, 9.0, 9.0]
                place[width], place[length] = w, l
                return place
            found = self.hit(text, at(2.9, 0.9), down)
            self.assertEqual((found["distance"], found["normal"]), (9, [-d for d in down]))
            self.misses(text, at(0.9, 1.1), down)
            self.misses(text, at(3.1, 0.9), down)

    def test_shapes_are_placed_animated_and_instanced(self):
        text = """
def Sphere "S"
{
    double radius.timeSamples = { 1: 1, 3: 2 }
    double3 xformOp:translate = (0, 0, 10)
    uniform token[] xformOpOrder = ["xformOp:translate"]
}
def PointInstancer "I"
{
    int[] protoIndices = [0]
    point3f[] positions = [(50, 0, 0)]
    rel prototypes = </I/C>
    def Cube "C" { }
}
"""
        self.scene.write_text("#usda 1.0\n" + text)
        for time, top in ((1, 11), (2, 11.5)):
            found = json.loads(self.good("pick", self.scene, "--ray", "0,0,99,0,0,-1", "--time", time, "--json").stdout)
            self.assertAlmostEqual(found["position"][2], top, 3)
        found = json.loads(self.good("pick", self.scene, "--ray", "50.5,0,99,0,0,-1", "--json").stdout)
        self.assertEqual((found["prim"], round(found["position"][2], 4)), ("/I/C[0]", 1))

    def test_measures_that_are_none_show_nothing(self):
        self.misses('def Sphere "S" { double radius = nan }', (0, 0, 9), (0, 0, -1))
        self.misses('def Cube "C" { double size = inf }', (0, 0, 9), (0, 0, -1))

    def test_the_outline_in_a_picture_has_the_area_of_the_circle(self):
        self.scene.write_text("""#usda 1.0
def Sphere "S"
{
    color3f[] primvars:displayColor = [(0.1, 0.7, 0.1)]
}
def Camera "C"
{
    token projection = "orthographic"
    float horizontalAperture = 40
    float verticalAperture = 40
    float2 clippingRange = (0.1, 100)
    double3 xformOp:translate = (0, 0, 8)
    uniform token[] xformOpOrder = ["xformOp:translate"]
}
""")
        self.good("render", self.scene, "--png", self.at / "a.png", "--size", "100x100", "--samples", "1")
        rows = read_png(self.at / "a.png")[2]
        green = sum(row[3 * x + 1] > row[3 * x] + 20 for row in rows for x in range(100))
        self.assertAlmostEqual(green, math.pi * 25 ** 2, delta=25)  # 40 tenths are 100 pixels


class LeftOut(Case):
    """What is said besides the result, and what --strict makes of it."""

    PICTURE = ["--size", "32x18", "--samples", "1"]

    def said(self, *arguments, **more):
        return self.good(*arguments, **more).stderr.splitlines()

    def scene_of(self, text):
        # Scene files want a line for each statement.
        self.scene.write_text("#usda 1.0\n" + text.replace("{", "{\n").replace("}", "\n}"))

    def test_lights_that_show_are_not_left_out_and_what_does_not_count_of_them_is_told(self):
        out = ["-o", self.at / "a.exr", *self.PICTURE]
        self.scene_of('def Cube "C" { }\ndef DistantLight "L" { }\ndef DomeLight "D" { }')
        self.assertEqual(self.said("render", self.scene, *out), [])
        self.scene_of('def Cube "C" { }\ndef DistantLight "L" { float inputs:intensity = nan\nfloat inputs:angle = inf }\n'
                      'def SphereLight "S" { asset inputs:shaping:ies:file = @lamp.ies@ }')
        self.assertEqual(self.said("render", self.scene, *out),
                         ["vela render: note: 2 settings of lights do not count, the first /L: angle is not finite",
                          "vela render: note: left out: 1 light profile"])
        # Nobody asks them when none of them shines.
        self.assertEqual(self.said("render", self.scene, *out, "--lights", "own"), ["vela render: note: left out: 1 light profile"])
        self.assertEqual(self.said("render", self.scene, *out, "--layers", "depth"), [])
        self.scene_of('def Cube "C" { }\ndef DomeLight "D" { asset inputs:texture:file = @./gone.png@ }')
        self.assertEqual(self.said("render", self.scene, *out),
                         [f"vela render: note: 1 texture is missing or cannot be read: {self.at / 'gone.png'}: it is missing"])
        self.assertIn("--bounces", self.bad(2, "render", self.scene, *out, "--bounces", "9"))
        self.assertIn("--lights", self.bad(2, "render", self.scene, *out, "--lights", "none"))
        self.scene_of('def Cube "C" { }')
        self.assertIn("--bounces", self.said("render", self.scene, *out, "--lights", "own", "--bounces", "2")[0])

    def test_lights_and_materials_concern_colours_alone(self):
        self.scene_of('def Cube "C" { rel material:binding = </M> }\ndef Material "M" { }\ndef PortalLight "L" { }')
        out = ["-o", self.at / "a.exr", *self.PICTURE]
        self.assertEqual(self.said("render", self.scene, *out), ["vela render: note: left out: 1 light, 1 material"])
        self.assertEqual(self.said("render", self.scene, *out, "--layers", "N,depth"), [])
        self.assertEqual(run("pick", self.scene, "--pixel", "16,9", *self.PICTURE[:2]).stderr, "")

    def test_strict_turns_what_is_said_into_3_and_does_the_work(self):
        self.scene_of('def Cube "C" { }\ndef NurbsCurves "W" { }')
        for verb in (["render", "-o", self.at / "a.exr", *self.PICTURE], ["pick", "--ray", "0,0,9,0,0,-1"],
                     ["select", "--rect", "0,0,31,17", "--size", "32x18", "-o", self.at / "a.sel"]):
            for level in ([], ["--log-level", "error"], ["--log-level", "quiet"]):
                done = run(verb[0], self.scene, *verb[1:], "--strict", *level)
                self.assertEqual(done.returncode, 3, done.stderr)
                self.assertEqual(done.stderr, "" if level else f"vela {verb[0]}: note: left out: 1 NurbsCurves\n")
                self.assertEqual(self.good(verb[0], self.scene, *verb[1:]).stdout, done.stdout)
        self.assertTrue((self.at / "a.exr").exists() and (self.at / "a.sel").exists())
        # What is worse stays worse; what is whole is whole.
        self.assertEqual(run("pick", self.scene, "--ray", "9,9,9,0,0,-1", "--strict").returncode, 5)
        self.scene_of('def Cube "C" { }')
        self.good("pick", self.scene, "--ray", "0,0,9,0,0,-1", "--strict")

    def test_levels_keep_lines_back(self):
        self.scene_of('def NurbsCurves "W" { }')
        for level, count in ((None, 2), ("verbose", 2), ("message", 2), ("warning", 1), ("error", 0), ("quiet", 0)):
            for options, variables in (([] if level is None else ["--log-level", level], {}),
                                       ([], {} if level is None else {"HALDEN_LOG_LEVEL": level})):
                done = self.good("render", self.scene, "-o", self.at / "a.exr", *self.PICTURE, *options, env=dict(os.environ, **variables))
                self.assertEqual(sum("note:" in l or "warning:" in l for l in done.stderr.splitlines()), count, done.stderr)
        self.assertIn("error:", run("info", self.at / "none.usda", "--log-level", "quiet").stderr)

    def test_names_of_nothing_are_said(self):
        out = ["-o", self.at / "a.exr", *self.PICTURE, "--log-file", self.at / "log"]
        said = self.said("render", self.scene, *out, "--exclude", "/World/Bx", "--exclude", "/World/Box", "--include-type", "Mseh")
        self.assertTrue([l for l in said if l.startswith("vela render: note: --exclude /World/Bx names nothing in the scene; try --exclude /World/Box")], said)
        self.assertIn("vela render: note: --include-type Mseh names nothing in the scene; try --include-type Mesh", said)
        self.assertFalse([l for l in said if "/World/Box names" in l])
        (self.at / "s.sel").write_text("geoselection { paths 2 { /World/Floor 1 { verts 0 0 } { faces 0 0 } /World/None 1 "
                                       "{ verts 0 0 } { faces 0 0 } } }")
        said = self.said("render", self.scene, *out, "--selection", self.at / "s.sel")
        self.assertTrue([l for l in said if l.endswith("s.sel has /World/None, which is not in the scene")], said)
        self.assertFalse([l for l in said if "/World/Floor" in l])

    def test_a_camera_that_sees_nothing_is_said(self):
        self.scene_of('def Cube "C" { }\ndef Camera "Away" { double3 xformOp:translate = (0, 0, -9)\n'
                      'uniform token[] xformOpOrder = ["xformOp:translate"] }')
        for layers in ("rgba", "depth"):
            said = self.said("render", self.scene, "-o", self.at / "a.exr", *self.PICTURE, "--layers", layers)
            self.assertEqual(said, ["vela render: warning: the camera sees nothing: /Away"])

    def test_options_without_effect_are_said(self):
        self.scene_of('def Cube "C" { }')
        for arguments, option in ((["render", self.scene, "--png", self.at / "a.png", *self.PICTURE, "--layers", "N"], "--layers"),
                                  (["render", self.scene, "--png", self.at / "a.png", *self.PICTURE, "--pattern", "regular"], "--pattern"),
                                  (["pick", self.scene, "--ray", "0,0,9,0,0,-1", "--size", "9x9"], "--size"),
                                  (["make", "grid", "-o", self.at / "m.usda", "--no-caps"], "--no-caps"),
                                  (["make", "sphere", "-o", self.at / "m.usda", "--separate-points"], "--separate-points")):
            self.assertRegex("\n".join(self.said(*arguments)), f"^vela {arguments[0]}: note: {option} has no effect: ")

    def test_lines_that_are_nearly_the_same_are_one(self):
        self.scene_of("".join(f'def "A{i}" ( references = @./lost{i}.usda@ ) {{ }}\n' for i in range(30)) + 'def Cube "C" { }')
        said = self.said("pick", self.scene, "--ray", "0,0,9,0,0,-1")
        self.assertEqual(len(said), 1, said)
        self.assertIn(" (and 29 more like it)", said[0])

    def test_colours_are_for_terminals_that_want_them(self):
        def shown(**variables):
            try:
                ours, theirs = pty.openpty()
            except OSError as why:
                self.skipTest(f"this machine has no terminals to give: {why}")
            environment = {k: v for k, v in os.environ.items() if k not in ("NO_COLOR", "TERM")}
            subprocess.run([COMMAND, "info", self.at / "none.usda"], stderr=theirs, env=dict(environment, **variables), timeout=60)
            os.close(theirs)
            text = os.read(ours, 4096).decode()
            os.close(ours)
            return text
        self.assertIn("vela info: \033[1;31merror:\033[0m cannot open", shown(TERM="xterm"))
        for variables in ({"TERM": "xterm", "NO_COLOR": "1"}, {"TERM": "dumb"}, {}):
            self.assertIn("vela info: error: cannot open", shown(**variables))
        self.assertIn("\033", shown(TERM="xterm", NO_COLOR=""))


class WhatShows(Case):
    """Cameras by a part of their path, masks, variants and turns."""

    def entry(self, *arguments):
        return json.loads(self.asked("pick", self.scene, *arguments, "--json").stdout).get("prim")

    def test_a_camera_goes_by_any_part_of_its_path_that_no_other_has(self):
        at = ["--pixel", "32,24", "--size", "64x48"]
        for whole, part in (("/World/Top", "Top"), ("/World/Top", "To"), ("/World/Flat", "/World/Fl")):
            self.assertEqual(self.good("pick", self.scene, *at, "--camera", part).stdout, self.good("pick", self.scene, *at, "--camera", whole).stdout)
            self.good("render", self.scene, "-o", self.at / "a.exr", "--size", "16x9", "--samples", "1", "--camera", part)
        line = self.bad(1, "pick", self.scene, *at, "--camera", "World")
        self.assertEqual(line, "vela pick: error: several cameras: World: it stands for /World/Top, /World/Flat; name more of the path")

    def test_a_mask_leaves_nothing_else(self):
        down = ["--ray", "0,0,5,0,0,-1"]
        self.assertEqual(self.entry(*down), "/World/Box/Shell")
        self.assertEqual(self.entry(*down, "--mask", "/World/Floor"), "/World/Floor")
        self.assertEqual(self.entry(*down, "--mask", "/World/Floor", "--mask", "/World/Box"), "/World/Box/Shell")
        self.assertEqual(self.entry(*down, "--mask", "/World", "--exclude", "/World/Box"), "/World/Floor")
        done = run("pick", self.scene, *down, "--mask", "/World/Flor")
        self.assertEqual(done.returncode, 5)
        self.assertIn("--mask /World/Flor names nothing in the scene; try --mask /World/Floor", done.stderr)

    def test_a_variant_takes_the_place_of_the_scenes_own(self):
        self.scene.write_text("""#usda 1.0
def Xform "A" (
    variants = { string size = "small" }
    prepend variantSets = "size"
)
{
    variantSet "size" = {
        "small" {
            def Cube "C"
            {
            }
        }
        "large" {
            def Cube "C"
            {
                double size = 8
            }
        }
    }
}
""")
        height = lambda *more: json.loads(self.good("pick", self.scene, "--ray", "0,0,99,0,0,-1", "--json", *more).stdout)["position"][2]
        self.assertEqual((round(height(), 5), round(height("--variant", "/A:size=large"), 5)), (1, 4))
        for choice, why in (("/A:size=lrge", "the set has no such variant; try --variant /A:size=large"),
                            ("/A:sze=large", "the prim has no such set of variants; try --variant /A:size"),
                            ("/B:size=large", "there is no such prim; try /A"), ("/A:xyzzy=large", "the prim has no such set of variants; vela info")):
            line = self.bad(1, "pick", self.scene, "--ray", "0,0,99,0,0,-1", "--variant", choice)
            self.assertTrue(line.startswith(f"vela pick: error: no such variant: {choice}: {why}"), line)
        for text in ("A:size=large", "/A", "/A:size"):
            self.bad(2, "pick", self.scene, "--ray", "0,0,99,0,0,-1", "--variant", text)

    def test_a_turn_shows_another_side(self):
        def place(*turn):
            found = json.loads(self.good("pick", self.scene, "--pixel", "50,23", "--size", "65x47", "--camera", "Top", "--json", "--include-type", "Mesh",
                                         "--exclude", "/World/Box", *turn).stdout)
            return [round(v, 3) for v in found["position"]]
        # Seen straight from above, about the vertical.
        x, y, z = place()
        self.assertGreater(abs(x), 1)
        self.assertEqual(place("--turn", "0"), [x, y, z])
        self.assertEqual(place("--turn", "90"), [-y + 0.0, x, z])
        self.assertEqual(place("--turn", "450"), [-y + 0.0, x, z])
        self.assertEqual(place("--turn", "-90"), [y, -x, z])
        self.bad(2, "pick", self.scene, "--pixel", "1,1", "--turn", "x")


class Series(Case):
    """Several pictures of one command line."""

    SMALL = ["--size", "16x9", "--samples", "1", "--layers", "P"]

    def series(self, *arguments, code=0):
        done = run("render", self.scene, *arguments, *self.SMALL)
        self.assertEqual(done.returncode, code, done.stderr)
        return done.stderr

    def pictures(self):
        return [n for n in self.names() if n.endswith(".exr")]

    def test_each_frame_is_the_picture_of_its_time(self):
        self.series("-o", self.at / "a.####.exr", "--frames", "1-5x2,10")
        self.assertEqual(self.pictures(), ["a.0001.exr", "a.0003.exr", "a.0005.exr", "a.0010.exr"])
        for time, name in (("3", "a.0003.exr"), ("10", "a.0010.exr")):
            self.series("-o", self.at / "b.exr", "--time", time)
            self.assertEqual((self.at / "b.exr").read_bytes(), (self.at / name).read_bytes())
        self.series("-o", self.at / "c.%02d.exr", "--time", "7")
        self.assertIn("c.07.exr", self.pictures())

    def test_one_name_for_several_pictures_is_refused(self):
        for arguments in (["--frames", "1-2"], ["--turntable", "2"], ["--camera", "all"]):
            line = self.bad(2, "render", self.scene, "-o", self.at / "a.exr", *arguments)
            self.assertIn("it is one name for several ", line)
        self.series("-o", self.at / "a.exr", "--frames", "3")  # one frame needs no place
        for arguments in (["--frames", "1", "--time", "1"], ["--frames", "1", "--turntable", "3"], ["--frames", "a"], ["--turntable", "0"]):
            self.bad(2, "render", self.scene, "-o", self.at / "a.####.exr", *arguments)

    def test_places_that_nothing_fills_are_said(self):
        for name, place in (("a.####.exr", "the frame's place"), ("a.%04d.exr", "the frame's place"), ("{camera}.exr", "{camera}"), ("a.{frame}.exr", "{frame}"),
                            ("a.{layers}.png", "{layers}")):
            said = self.series("-o", self.at / name)
            self.assertIn(f"vela render: note: {self.at / name}: {place} stays as it is: ", said)
            self.assertIn(name, self.names())
        for name, options in (("a.####.exr", ["--time", "3"]), ("a.%02d.exr", ["--frames", "3"]), ("{camera}.exr", ["--camera", "Top"]), ("{layer}.exr", []),
                              ("a#1.exr", []), ("100%.exr", []), ("{{x}}.exr", []), ("{}.exr", [])):
            self.assertNotIn("stays", self.series("-o", self.at / name, *options))
        self.assertLessEqual({"a.0003.exr", "a.03.exr", "Top.exr", "P.exr", "a#1.exr", "100%.exr"}, set(self.names()))

    def test_every_camera_makes_its_picture(self):
        self.series("-o", self.at / "{camera}.exr", "--camera", "all")
        self.assertEqual(self.pictures(), ["Flat.exr", "Top.exr"])
        self.series("-o", self.at / "one.exr", "--camera", "/World/Flat")
        self.assertEqual((self.at / "one.exr").read_bytes(), (self.at / "Flat.exr").read_bytes())
        self.series("-o", self.at / "{camera}.##.exr", "--camera", "all", "--frames", "1,2")
        self.assertEqual(len(self.pictures()), 7)
        self.scene.write_text('#usda 1.0\ndef Cube "C"\n{\n}\n')
        self.assertIn("no such camera: all: the scene has none".replace("all: the", "all; the"), self.series("-o", self.at / "{camera}.exr", "--camera", "all", code=1))

    def test_cameras_of_one_name_go_by_their_paths(self):
        self.scene.write_text('#usda 1.0\ndef Cube "C"\n{\n}\n' + "".join(
            f'def Xform "{rig}"\n{{\n    def Camera "Eye"\n    {{\n    }}\n}}\n' for rig in ("L", "R")))
        self.series("-o", self.at / "{camera}.exr", "--camera", "all")
        self.assertEqual(self.pictures(), ["L_Eye.exr", "R_Eye.exr"])

    def test_a_turntable_goes_once_around(self):
        self.series("-o", self.at / "t.#.exr", "--turntable", "4", "--camera", "Top")
        self.assertEqual(self.pictures(), [f"t.{i}.exr" for i in (1, 2, 3, 4)])
        for step, degrees in ((1, "0"), (2, "90"), (4, "270")):
            self.series("-o", self.at / "one.exr", "--turn", degrees, "--camera", "Top")
            self.assertEqual((self.at / "one.exr").read_bytes(), (self.at / f"t.{step}.exr").read_bytes())
        self.assertEqual(len({(self.at / f"t.{i}.exr").read_bytes() for i in (1, 2, 3, 4)}), 4)
        # Its header makes it again.
        done = run("render", self.scene, "--like", self.at / "t.2.exr", "-o", self.at / "again.exr")
        self.assertEqual((done.returncode, (self.at / "again.exr").read_bytes()), (0, (self.at / "t.2.exr").read_bytes()), done.stderr)

    def test_masks_and_variants_are_in_the_header_too(self):
        for options in (["--mask", "/World/Floor"], ["--camera", "Fla", "--turn", "30", "--mask", "/World/Box", "--mask", "/World/Floor"]):
            self.series("-o", self.at / "a.exr", *options)
            done = run("render", self.scene, "--like", self.at / "a.exr", "-o", self.at / "b.exr")
            self.assertEqual((done.returncode, (self.at / "a.exr").read_bytes()), (0, (self.at / "b.exr").read_bytes()), done.stderr)

    def test_what_is_there_is_skipped(self):
        (self.at / "a.1.exr").write_bytes(b"mine")
        self.series("-o", self.at / "a.#.exr", "--frames", "1-3", "--skip-existing")
        self.assertEqual((self.at / "a.1.exr").read_bytes(), b"mine")
        self.assertEqual(self.pictures(), ["a.1.exr", "a.2.exr", "a.3.exr"])
        self.series("-o", self.at / "a.#.exr", "--frames", "1-3")
        self.assertNotEqual((self.at / "a.1.exr").read_bytes(), b"mine")

    def test_what_is_skipped_and_is_no_whole_picture_is_said(self):
        files = ["-o", self.at / "a.#.exr", "-o", self.at / "b.#.jpg", "--png", self.at / "c.#.png"]
        arguments = [*files, "--frames", "1-3"]
        self.series(*arguments)
        said = self.series(*arguments, "--skip-existing")
        self.assertNotIn("skipped", said)
        for name in ("a.2.exr", "b.2.jpg", "c.2.png"):
            whole = (self.at / name).read_bytes()
            for damaged in (whole[:-1], whole[: len(whole) // 2], whole[:4], b"", b"mine"):
                (self.at / name).write_bytes(damaged)
                said = self.series(*arguments, "--skip-existing").splitlines()
                self.assertRegex(said[-1], "^vela render: warning: skipped as it is there, though it is no whole picture: "
                                           f"{self.at / name}: [^;]+; remove it, and it is made$")
                # Nothing is harmed, and under --strict it counts.
                self.assertEqual((self.at / name).read_bytes(), damaged)
            self.series(*arguments, "--skip-existing", "--strict", code=3)
            (self.at / name).unlink()
            self.series(*arguments, "--skip-existing")
            self.assertEqual((self.at / name).read_bytes(), whole)

    def test_a_bad_picture_does_not_keep_the_others_from_being_made(self):
        (self.at / "a.2.exr").mkdir()
        said = self.series("-o", self.at / "a.#.exr", "--frames", "1-3", code=4).splitlines()
        self.assertIn(f"vela render: frame 2: error: cannot write: {self.at}/a.2.exr: it is a folder; name a file in it", said)
        self.assertEqual(said[-1], "vela render: error: not all pictures are made: frame 2: 1 of 3 failed; see the lines above; "
                                   "--skip-existing makes these alone")
        self.assertEqual(self.pictures(), ["a.1.exr", "a.2.exr", "a.3.exr"])
        for name in ("a.1.exr", "a.3.exr"):
            (self.at / name).unlink()
            (self.at / name).mkdir()
        self.series("-o", self.at / "a.#.exr", "--frames", "1-3", code=1)

    def test_what_is_left_out_is_said_once_for_all_frames(self):
        said = self.series("-o", self.at / "a.#.exr", "--frames", "1-3")
        self.assertEqual(said.count("left out"), 1, said)


class NothingFound(Case):
    def test_a_rectangle_is_cut_off_at_the_picture(self):
        size = ["--size", "64x48", "--camera", "/World/Top", "--parts", "vertices"]
        for given, same in (("-5,-9,20,20", "0,0,20,20"), ("40,30,9999,9999", "40,30,63,47"), ("-1000000,-1,1000000,99", "0,0,63,47")):
            codes = [run("select", self.scene, *size, f"--rect={rect}", "-o", self.at / name).returncode
                     for rect, name in ((given, "a.sel"), (same, "b.sel"))]
            self.assertEqual(codes[0], codes[1])
            self.assertIn(codes[0], (0, 5))
            self.assertEqual((self.at / "a.sel").read_bytes(), (self.at / "b.sel").read_bytes())

    def test_a_selection_of_nothing_is_written_and_exits_with_5(self):
        self.good("select", self.scene, "--rect", "0,0,63,47", "--size", "64x48", "--camera", "/World/Top", "-o", self.at / "all.sel")
        for rect in ("-9,-9,-1,-1", "64,0,99,47", "0,48,9,99"):
            done = run("select", self.scene, "--rect", rect, "--size", "64x48", "--add", self.at / "all.sel", "-o", self.at / "a.sel")
            self.assertEqual(done.returncode, 5, done.stderr)
            self.assertIn("objects of 0 objects picked", done.stdout)
            self.assertEqual((self.at / "a.sel").read_bytes(), (self.at / "all.sel").read_bytes())


class Facts(Case):
    def test_curves_and_points_are_listed_and_picked(self):
        scene = self.at / "curves.usda"
        scene.write_text('#usda 1.0\ndef BasisCurves "Hair"\n{\n uniform token type = "linear"\n int[] curveVertexCounts = [2, 2]\n'
                         ' point3f[] points = [(0, 0, 0), (4, 0, 0), (0, 2, 0), (4, 2, 0)]\n float[] widths = [1]\n}\n'
                         'def Points "Dust"\n{\n point3f[] points = [(9, 9, 0), (9, 5, 0)]\n float[] widths = [1, -1]\n}\n')
        facts = json.loads(self.good("info", scene, "--json").stdout)
        self.assertEqual(facts["curves"], [
            {"path": "/Hair", "type": "BasisCurves", "points": 4, "curves": 2, "purpose": "default", "visible": True},
            {"path": "/Dust", "type": "Points", "points": 2, "curves": 2, "purpose": "default", "visible": True}])
        self.assertIn("Curves and points: 2, with 4 curves and balls of 6 points\n", self.good("info", scene).stdout)
        self.assertNotIn("curves", json.loads(self.good("info", self.scene, "--json").stdout))
        done = self.good("pick", scene, "--ray", "1,2,9,0,0,-1", "--json")
        hit = json.loads(done.stdout)
        self.assertEqual((hit["prim"], hit["face"], hit["distance"], hit["normal"]), ("/Hair", 1, 8.5, [0, 0, 1]))
        self.assertEqual(done.stderr, "vela pick: note: left out: 1 curve or point that cannot be used\n")
        self.assertIn("/Dust", self.good("explain", scene, "--ray", "9,9,9,0,0,-1").stdout)

    def test_info_has_metadata_types_meshes_and_cameras(self):
        facts = json.loads(self.good("info", self.scene, "--json").stdout)
        self.assertEqual((facts["upAxis"], facts["metersPerUnit"], facts["timeCodes"], facts["defaultPrim"]), ("Z", 1, [1, 10], "World"))
        self.assertEqual(facts["primsByType"], {"NurbsCurves": 1, "Camera": 2, "Mesh": 5, "PointInstancer": 1, "Xform": 2})
        shell = next(m for m in facts["meshes"] if m["path"] == "/World/Box/Shell")
        self.assertEqual((shell["points"], shell["faces"], shell["triangles"], shell["subdivisionScheme"]), (8, 6, 12, "none"))
        hidden = next(m for m in facts["meshes"] if m["path"] == "/World/Hidden")
        self.assertFalse(hidden["visible"])
        top, flat = facts["cameras"]
        self.assertEqual((top["path"], top["projection"]), ("/World/Top", "perspective"))
        self.assertAlmostEqual(top["fieldOfViewDegrees"][0], 53.13010235, 6)
        self.assertAlmostEqual(top["focalLengthMm"], 2000, 6)  # a unit is a metre here
        self.assertEqual((flat["projection"], flat["windowUnits"]), ("orthographic", [8, 6]))

    def test_the_text_form_has_the_same_numbers(self):
        text = self.good("info", self.scene).stdout
        for part in ("up axis Z", "1 metres a unit", "time codes 1 to 10", "Meshes: 5", "/World/Box/Shell", "Cameras: 2", "53.13"):
            self.assertIn(part, text)


class Interruption(Case):
    def interrupted(self, number):
        process = subprocess.Popen([COMMAND, "render", self.scene, "-o", self.at / "a.exr", "--png", self.at / "a.png", "--size", "4000x4000",
                                    "--samples", "400"], stderr=subprocess.PIPE, text=True)
        deadline = time.monotonic() + 60
        while not any(n.startswith(".a.exr.part") for n in self.names()) and time.monotonic() < deadline:
            time.sleep(0.02)
        self.assertIsNone(process.poll())
        process.send_signal(number)
        error = process.communicate(timeout=60)[1]
        self.assertEqual(process.returncode, 130)
        self.assertEqual(error.splitlines()[-1], "vela render: interrupted; nothing was written")
        self.assertEqual(self.names(), ["scene.usda"])

    def test_an_interrupted_render_leaves_nothing(self):
        self.interrupted(signal.SIGINT)

    def test_a_terminated_render_leaves_nothing(self):
        self.interrupted(signal.SIGTERM)

    def test_progress_is_shown_on_a_terminal_only(self):
        try:
            ours, theirs = pty.openpty()
        except OSError as why:
            self.skipTest(f"this machine has no terminals to give: {why}")
        process = subprocess.Popen([COMMAND, "render", self.scene, "-o", self.at / "a.exr", "--size", "600x600", "--samples", "9",
                                    "--threads", "1"], stderr=theirs)
        os.close(theirs)
        shown = b""
        try:
            while piece := os.read(ours, 4096):
                shown += piece
        except OSError:  # the other end is closed
            pass
        os.close(ours)
        self.assertEqual(process.wait(timeout=60), 0)
        self.assertRegex(shown.decode(), r"vela render: +\d+ %  \d+\.\d million rays/s  \d+:\d\d left")
        self.assertRegex(shown.decode(), r"600 x 600, 4 meshes, \d+\.\d million rays, \d+\.\d s")

    def test_progress_stays_within_a_narrow_terminal(self):
        try:
            ours, theirs = pty.openpty()
        except OSError as why:
            self.skipTest(f"this machine has no terminals to give: {why}")
        fcntl.ioctl(theirs, termios.TIOCSWINSZ, struct.pack("HHHH", 24, 20, 0, 0))
        process = subprocess.Popen([COMMAND, "render", self.scene, "-o", self.at / "a.exr", "--size", "600x600", "--samples", "9", "--threads", "1"], stderr=theirs)
        os.close(theirs)
        shown = b""
        try:
            while piece := os.read(ours, 4096):
                shown += piece
        except OSError:  # the other end is closed
            pass
        os.close(ours)
        self.assertEqual(process.wait(timeout=60), 0)
        lines = [line for line in re.split("[\r\n]+", shown.decode()) if "%" in line or line.isspace()]
        self.assertGreater(len(lines), 1)
        self.assertEqual({len(line) for line in lines}, {19})


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=1)
