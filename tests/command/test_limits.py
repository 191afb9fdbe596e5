"""What a scene may make the command do: limits, their options and messages, and the folder that a scene is kept in.

test_limits.py COMMAND
"""

import os
import pathlib
import re
import resource
import struct
import subprocess
import sys
import tempfile
import unittest
import zlib

COMMAND = sys.argv[1]
MESH = """def Mesh "M" {
    uniform token subdivisionScheme = "none"
    point3f[] points = [(-1, -1, 0), (1, -1, 0), (1, 1, 0), (-1, 1, 0)]
    int[] faceVertexCounts = [4]
    int[] faceVertexIndices = [0, 1, 2, 3]
    texCoord2f[] primvars:st = [(0, 0), (1, 0), (1, 1), (0, 1)] (
        interpolation = "vertex"
    )
    rel material:binding = </Look>
}
def Material "Look" {
    token outputs:surface.connect = </Look/S.outputs:surface>
    def Shader "S" {
        uniform token info:id = "UsdPreviewSurface"
        color3f inputs:diffuseColor.connect = </Look/T.outputs:rgb>
        token outputs:surface
    }
    def Shader "T" {
        uniform token info:id = "UsdUVTexture"
        asset inputs:file = @FILE@
        float2 inputs:st.connect = </Look/R.outputs:result>
        float3 outputs:rgb
    }
    def Shader "R" {
        uniform token info:id = "UsdPrimvarReader_float2"
        string inputs:varname = "st"
        float2 outputs:result
    }
}
"""


def png(width, height):
    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))

    rows = b"".join(b"\0" + b"\xff\0\0" * width for _ in range(height))
    head = struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0)
    return b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", head) + chunk(b"IDAT", zlib.compress(rows)) + chunk(b"IEND", b"")


def tenfold(levels):
    """Each level has ten references to the one below it."""
    text = 'def "L0" {\n}\n'
    for level in range(1, levels + 1):
        text += f'def "L{level}" {{\n'
        text += "".join(f'def "c{i}" (references = </L{level - 1}>) {{\n}}\n' for i in range(10)) + "}\n"
    return text


class Limits(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.at = pathlib.Path(folder.name).resolve()

    def write(self, name, text):
        path = self.at / name
        path.parent.mkdir(exist_ok=True)
        path.write_bytes(text) if isinstance(text, bytes) else path.write_text("#usda 1.0\n" + text)
        return path

    def run_command(self, *arguments):
        return subprocess.run([COMMAND, *map(str, arguments)], capture_output=True, text=True, timeout=100, cwd=self.at)

    def said(self, code, *arguments):
        done = self.run_command(*arguments)
        self.assertEqual(done.returncode, code, done.stderr)
        return done.stderr

    def test_what_is_left_out_is_said_and_the_rest_is_shown(self):
        scene = self.write("many.usda", tenfold(4))
        for option, count, words in (("--max-prims", 100, "more than 100 prims: the rest is left out"),
                                     ("--max-arcs", 200, "more than 200 arcs to prims: the rest is left out"),
                                     ("--max-depth", 3, "nested more than 3 prims deep")):
            said = self.said(0, "info", scene, option, count)
            self.assertIn("warning", said)
            self.assertIn(words, said)
            self.said(3, "info", scene, option, count, "--strict")
        self.assertEqual(self.said(0, "info", scene), "")

    def test_what_goes_too_far_is_an_error(self):
        for name in "abc":
            self.write(f"{name}.usda", '(\n    defaultPrim = "P"\n)\ndef "P" {\n}\n')
        scene = self.write("parts.usda", "".join(f'def "{n}" (references = @./{n}.usda@) {{\n}}\n' for n in "abc"))
        self.assertIn("it is composed of more than 3 files", self.said(1, "info", scene, "--max-layers", 3))
        self.said(0, "info", scene, "--max-layers", 4)

        chain = "".join(f'def "c{i}" (references = </c{i - 1}>) {{\n}}\n' for i in range(1, 30))
        scene = self.write("chain.usda", 'def "c0" {\n}\n' + chain)
        self.assertIn("/c11: more than 10 arcs lead from one to the next",
                      self.said(1, "info", scene, "--max-arc-chain", 10))
        self.said(0, "info", scene)

        many = self.write("many.usda", 'def PointInstancer "I" {\n    rel prototypes = </I/P>\n'
                          '    int[] protoIndices = [0, 0, 0]\n    point3f[] positions = [(0, 0, 0), (1, 0, 0), (2, 0, 0)]\n'
                          + MESH.replace('"M"', '"P"') + "}\n")
        pick = ("pick", many, "--ray", "0,0,9,0,0,-1")
        self.assertIn("too many instances: /I: there are more than 2", self.said(1, *pick, "--max-instances", 2))
        self.assertEqual(self.run_command(*pick, "--max-instances", 3).returncode, 0)

        mesh = self.write("mesh.usda", MESH.replace('"none"', '"bilinear"'))
        pick = ("pick", mesh, "--ray", "0,0,9,0,0,-1", "--subdivide", 3)
        self.assertIn("too many faces", self.said(1, *pick, "--max-faces", 63))
        self.assertEqual(self.run_command(*pick, "--max-faces", 64).returncode, 0)

    def test_opening_ends_when_its_time_is_over(self):
        scene = self.write("slow.usda", tenfold(7))
        said = self.said(1, "info", scene, "--max-time", "0.2")
        self.assertRegex(said, r"^vela info: error: cannot read the scene: .*slow.usda: opening it takes longer than 0.2 seconds; "
                         r"try --max-time 3600, or 0 for no limit\n$")
        # Nothing that comes after opening counts.
        small = self.write("small.usda", MESH.replace("FILE", "none.png"))
        if not os.environ.get("VELA_SANITIZE"):  # it would take minutes
            self.said(0, "render", small, "-o", "a.exr", "--size", "700x700", "--samples", "144", "--max-time", "2")

    @unittest.skipIf(os.environ.get("VELA_SANITIZE"), "sanitizers have no limit of memory")
    def test_memory_is_limited(self):
        scene = self.write("large.usda", tenfold(6))
        said = self.said(1, "info", scene, "--max-memory", "200")
        self.assertRegex(said, r"^vela info: error: out of memory; ")

    @unittest.skipIf(os.environ.get("VELA_SANITIZE"), "sanitizers take more address space than there is")
    def test_too_little_address_space_is_an_error(self):
        scene = self.write("a.usda", tenfold(2))
        opened = 0
        for megabytes in range(200, 1400, 50):
            small = lambda: resource.setrlimit(resource.RLIMIT_AS, (megabytes << 20, megabytes << 20))
            done = subprocess.run([COMMAND, "info", scene], capture_output=True, text=True, timeout=100, preexec_fn=small)
            opened += done.returncode == 0
            if done.returncode != 0:
                self.assertRegex(done.stderr, r"^vela info: error: (cannot open the scene: .*: )?out of memory[:;] ", megabytes)
        self.assertGreater(opened, 0)

    def test_a_root_keeps_arcs_and_textures_inside(self):
        self.write("out.usda", '(\n    defaultPrim = "P"\n)\ndef Scope "P" {\n    def Cube "Outside" {\n    }\n}\n')
        self.write("out.png", png(2, 2))
        self.write("in/in.png", png(2, 2))
        scene = self.write("in/scene.usda", 'def "A" (references = @../out.usda@) {\n}\n' + MESH.replace("FILE", "../out.png"))
        render = ("render", scene, "-o", self.at / "a.exr", "--size", "8x8", "--samples", "1")
        self.assertEqual(self.said(0, *render), "")
        said = self.said(0, *render, "--root", self.at / "in")
        self.assertRegex(said, r"warning: .*out.usda: it lies outside of the folder that the scene is kept in")
        self.assertRegex(said, r"out.png: it is missing")
        self.assertNotIn("Outside", self.run_command("info", scene, "--root", self.at / "in").stdout)
        inside = self.write("in/inside.usda", MESH.replace("FILE", "./in.png"))
        self.assertEqual(self.said(0, "render", inside, *render[2:], "--root", self.at / "in"), "")
        self.assertIn("it lies outside of", self.said(1, "info", self.at / "out.usda", "--root", self.at / "in"))
        self.assertIn("is no folder", self.said(1, "info", scene, "--root", self.at / "none"))

    def test_large_textures_are_left_out(self):
        self.write("a.png", png(4, 3))
        scene = self.write("scene.usda", MESH.replace("FILE", "./a.png"))
        render = ("render", scene, "-o", self.at / "a.exr", "--size", "8x8", "--samples", "1")
        self.assertIn("it has 4 x 3 pixels, more than 11", self.said(0, *render, "--max-texture", "11"))
        self.assertEqual(self.said(0, *render, "--max-texture", "12"), "")

    def test_values_that_are_none_are_wrong_usage(self):
        scene = self.write("a.usda", "")
        for option in ("--max-prims", "--max-arcs", "--max-arc-chain", "--max-depth", "--max-layers", "--max-instances",
                       "--max-faces", "--max-memory"):
            for value in ("0", "-1", "x", "1e3", "99999999999999999999"):
                self.assertIn("is no whole number from 1 to", self.said(2, "info", scene, option, value), option)
        self.assertIn("--root: '' is not a folder", self.said(2, "info", scene, "--root", ""))
        for value in ("-1", "x", "nan", "inf"):
            self.said(2, "info", scene, "--max-time", value)

    def test_every_option_stands_in_the_table_of_limits(self):
        text = (pathlib.Path(__file__).parents[2] / "SECURITY.md").read_text()
        listed = set(re.findall(r"`(--max-[a-z-]+)", text))
        offered = set(re.findall(r"^  (--max-[a-z-]+)", self.run_command("help", "render").stdout, re.M))
        self.assertEqual(listed, offered)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
