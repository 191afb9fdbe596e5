"""The pictures that the command writes: formats by name, headers, what a picture is made like, colour as displays show it.

test_pictures.py COMMAND PROJECT_ROOT
"""

import fcntl
import json
import math
import os
import pathlib
import pty
import re
import struct
import subprocess
import sys
import tempfile
import termios
import unittest
import zlib

sys.path.insert(0, os.path.dirname(__file__))
import exr  # noqa: E402

COMMAND, ROOT = sys.argv[1], pathlib.Path(sys.argv[2])

# A wall that fills the lower half of a square film, lit from everywhere; a second camera of another shape.
SCENE = """#usda 1.0
(
    defaultPrim = "World"
    upAxis = "Y"
    framesPerSecond = 23.976
    timeCodesPerSecond = 24
)
def Xform "World"
{
    def Mesh "Wall"
    {
        point3f[] points = [(-9, -9, 0), (9, -9, 0), (9, 0, 0), (-9, 0, 0)]
        int[] faceVertexCounts = [4]
        int[] faceVertexIndices = [0, 1, 2, 3]
        color3f[] primvars:displayColor = [(1, 1, 1)]
    }
    def Mesh "Odd"
    {
        point3f[] points = [(0, 0, 0), (1, 0, 0), (0, 1, 0)]
        int[] faceVertexCounts = [3]
        int[] faceVertexIndices = [0, 1, 2]
    }
    def Camera "Eye"
    {
        float horizontalAperture = 24
        float verticalAperture = 24
        float focalLength = 48
        double3 xformOp:translate = (0, 0, 20)
        uniform token[] xformOpOrder = ["xformOp:translate"]
    }
    def Camera "Bright"
    {
        float horizontalAperture = 30
        float verticalAperture = 15
        float focalLength = 48
        float exposure = 1
        double3 xformOp:translate = (0, -4, 12)
        uniform token[] xformOpOrder = ["xformOp:translate"]
    }
}
"""
PNG, JPEG, EXR = b"\x89PNG", b"\xff\xd8\xff", b"\x76\x2f\x31\x01"
SMALL = ("--size", "16x16", "--samples", "4")


def read_png(file):
    """Width, height, channels and codes."""
    data, at, packed = pathlib.Path(file).read_bytes(), 8, b""
    while at < len(data):
        size, kind = struct.unpack_from(">I4s", data, at)
        body = data[at + 8 : at + 8 + size]
        if kind == b"IHDR":
            width, height, depth, colours = struct.unpack_from(">IIBB", body)
        elif kind == b"IDAT":
            packed += body
        at += size + 12
    assert depth == 8
    channels = {2: 3, 6: 4}[colours]
    raw, step, rows = zlib.decompress(packed), channels, []
    line = width * channels
    for y in range(height):
        kind, row = raw[y * (line + 1)], bytearray(raw[y * (line + 1) + 1 : (y + 1) * (line + 1)])
        above = rows[-1] if rows else bytes(line)
        for i in range(line):
            a, b, c = (row[i - step] if i >= step else 0), above[i], (above[i - step] if i >= step else 0)
            p = a + b - c
            near = min((abs(p - a), 0, a), (abs(p - b), 1, b), (abs(p - c), 2, c))[2]
            row[i] = (row[i] + (0, a, b, (a + b) // 2, near)[kind]) & 255
        rows.append(bytes(row))
    return width, height, channels, b"".join(rows)


def encoded(v):
    v = min(max(v, 0.0), 1.0)
    return int((12.92 * v if v <= 0.0031308 else 1.055 * v ** (1 / 2.4) - 0.055) * 255 + 0.5)


class Case(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.at = pathlib.Path(folder.name).resolve()
        (self.at / "scene.usda").write_text(SCENE)

    def run_command(self, *arguments, **more):
        return subprocess.run([COMMAND, *map(str, arguments)], timeout=120, **{"cwd": self.at, "capture_output": True, **more})

    def good(self, *arguments, **more):
        done = self.run_command(*arguments, **more)
        self.assertEqual(done.returncode, 0, done.stderr.decode())
        return done

    def render(self, *arguments, **more):
        return self.good("render", "scene.usda", *SMALL, *arguments, **more)

    def refused(self, code, why, *arguments, **more):
        before = sorted(p.name for p in self.at.rglob("*"))
        done = self.run_command("render", "scene.usda", *SMALL, *arguments, **more)
        error = done.stderr.decode()
        self.assertEqual(done.returncode, code, error)
        self.assertIn(why, error.splitlines()[-1])
        self.assertEqual(sorted(p.name for p in self.at.rglob("*")), before)
        return error

    def head(self, name, size=4):
        return (self.at / name).read_bytes()[:size]


class Formats(Case):
    def test_the_name_says_the_format(self):
        names = {"a.exr": EXR, "b.EXR": EXR, "c.png": PNG, "d.PNG": PNG, "e.jpg": JPEG, "f.jpeg": JPEG, "g.JPG": JPEG}
        self.render(*(word for name in names for word in ("-o", name)))
        for name, head in names.items():
            self.assertEqual(self.head(name, len(head)), head, name)
        self.assertEqual((self.at / "c.png").read_bytes(), (self.at / "d.PNG").read_bytes())
        self.assertEqual((self.at / "a.exr").read_bytes(), (self.at / "b.EXR").read_bytes())

    def test_unknown_and_wrong_extensions_are_refused(self):
        for name in ("a.tif", "a.exr.gz", "a.webp", "a."):
            self.refused(2, "try .exr, .png or .jpg", "-o", name)
        self.refused(2, "does not say what to write", "-o", "picture")
        self.refused(2, "no picture is written as .tiff", "--png", "a.tiff")
        self.refused(2, "is no name of a PNG file; try -o a.jpg", "--png", "a.jpg")
        self.refused(2, "is no name of a PNG file; try -o a.exr", "--png", "a.exr")
        self.refused(2, "'tiff' is none of exr, png, jpg", "-o", "a.exr", "--format", "tiff")
        self.refused(1, "it is named like a scene", "-o", "new.usda")

    def test_a_format_may_be_said_where_the_name_does_not(self):
        self.render("-o", "picture", "--format", "jpg", "--png", "other")
        self.assertEqual(self.head("picture", 3), JPEG)
        self.assertEqual(self.head("other"), PNG)
        self.assertEqual(self.render("-o", "-").stdout[:4], EXR)
        self.assertEqual(self.render("-o", "-", "--format", "png").stdout[:4], PNG)
        self.assertEqual(self.render("--png", "-").stdout[:4], PNG)
        self.render("-o", "-", "-o", "same.exr")
        self.assertEqual(self.render("-o", "-").stdout, (self.at / "same.exr").read_bytes())

    def test_layers_get_files_of_their_own(self):
        self.render("-o", "x.{layer}.exr", "-o", "y.{layer}.png", "-o", "z.{layer}.jpg", "--layers", "rgba,depth,N,prim,crypto_object")
        names = ["N", "crypto_object", "depth", "prim", "rgba"]
        self.assertEqual(sorted(p.name for p in self.at.glob("x.*")), [f"x.{n}.exr" for n in names])
        self.assertEqual(sorted(p.name for p in self.at.glob("y.*")), [f"y.{n}.png" for n in names])
        self.assertEqual(sorted(p.name for p in self.at.glob("z.*")), [f"z.{n}.jpg" for n in names])
        self.assertEqual(set(exr.read(self.at / "x.N.exr").channels), {"N.x", "N.y", "N.z"})
        self.assertEqual(len(exr.read(self.at / "x.crypto_object.exr").channels), 12)
        self.assertFalse([k for k in exr.read(self.at / "x.N.exr").header if "cryptomatte" in k or "prim" in k])
        # The wall's normal looks at the camera; nothing is black.
        _, _, _, codes = read_png(self.at / "y.N.png")
        self.assertEqual(set(codes[i : i + 3] for i in range(0, len(codes), 3)), {bytes((128, 128, 255)), bytes(3)})

    def test_an_image_shows_colour_or_the_only_layer(self):
        self.render("-o", "a.png", "-o", "a.exr", "--png", "b.png", "--layers", "depth")
        self.render("--png", "c.png")
        self.assertEqual((self.at / "b.png").read_bytes(), (self.at / "c.png").read_bytes())
        self.assertNotEqual((self.at / "a.png").read_bytes(), (self.at / "c.png").read_bytes())
        self.assertEqual(set(exr.read(self.at / "a.exr").channels), {"Z"})
        self.render("-o", "d.png", "--layers", "depth,rgba,N")
        self.assertEqual((self.at / "d.png").read_bytes(), (self.at / "c.png").read_bytes())
        self.refused(2, "an image shows one layer, not 2; try {layer} in its name", "-o", "e.png", "--layers", "depth,N")

    def test_outputs_may_not_be_one_file(self):
        self.refused(1, "it is the same file as a.exr", "-o", "a.exr", "-o", "./a.exr")
        self.refused(1, "it is the same file as a.png", "-o", "a.png", "--png", "a.png")
        self.refused(1, "it is the same file as a.json.exr", "-o", "a.json.exr", "--manifest", "a.json.exr", "--layers", "crypto_object")

    def test_all_files_appear_or_none(self):
        (self.at / "old.exr").write_bytes(b"old")
        self.refused(1, "No such file", "-o", "old.exr", "-o", "missing/b.png")
        self.assertEqual(self.head("old.exr"), b"old")
        if os.path.exists("/dev/full"):
            done = self.run_command("render", "scene.usda", *SMALL, "-o", "/dev/full")
            self.assertEqual(done.returncode, 1)

    def test_compression_and_half_floats(self):
        for name, code in (("none", 0), ("rle", 1), ("zips", 2), ("zip", 3), ("piz", 4), ("dwaa", 8)):
            self.render("-o", "a.exr", "--layers", "rgba", "--compression", name)
            header = (self.at / "a.exr").read_bytes()
            self.assertIn(b"compression\0compression\0\1\0\0\0" + bytes([code]), header)
        for name in ("pxr24", "b44", "b44a", "dwaa", "dwab"):
            self.refused(2, f"{name} is for colour alone", "-o", "b.exr", "--compression", name)
            self.refused(2, f"{name} is for colour alone", "-o", "b.exr", "--compression", name, "--layers", "crypto_object")
        self.refused(2, "'gzip' is none of none, rle", "-o", "b.exr", "--compression", "gzip")
        self.render("-o", "c.exr", "-o", "d.exr", "--layers", "rgba,depth", "--half")
        picture = exr.read(self.at / "c.exr")
        self.assertEqual(picture.types, {"A": 1, "B": 1, "G": 1, "R": 1, "Z": 2})

    def test_backgrounds(self):
        self.render("--png", "a.png", "--background", "none")
        self.render("--png", "b.png", "--background", "1,0.5,0", "-o", "b.jpg")
        self.render("-o", "c.exr", "--layers", "rgba")
        alpha = exr.read(self.at / "c.exr").channels["A"]
        width, height, channels, codes = read_png(self.at / "a.png")
        self.assertEqual((width, height, channels), (16, 16, 4))
        self.assertEqual([codes[4 * i + 3] for i in range(256)], [int(a * 255 + 0.5) for a in alpha])
        _, _, channels, codes = read_png(self.at / "b.png")
        self.assertEqual(channels, 3)
        self.assertEqual(codes[:3], bytes((255, 128, 0)))
        self.refused(2, "JPEG has no alpha", "-o", "d.jpg", "--background", "none")
        for wrong in ("blue", "1,2", "0,0,2", "1,1,1,1"):
            self.refused(2, f"'{wrong}' is not none or a colour", "-o", "d.png", "--background", wrong)


class Headers(Case):
    def test_they_say_how_the_picture_was_taken(self):
        self.render("-o", "a.exr", "--time", "12.5", "--camera", "/World/Eye")
        picture = exr.read(self.at / "a.exr")
        self.assertEqual(picture.value("camera"), "/World/Eye")
        self.assertEqual(picture.value("frame"), 12.5)
        self.assertEqual(picture.value("framesPerSecond"), (24000, 1001))
        self.assertEqual(picture.value("vela/scene"), "scene.usda")
        self.assertEqual(picture.value("screenWindowWidth"), 0.5)
        self.assertEqual(picture.value("screenWindowCenter"), (0, 0))
        self.assertEqual(picture.value("dataWindow"), (0, 0, 15, 15))
        self.assertEqual(picture.value("displayWindow"), (0, 0, 15, 15))
        self.assertEqual({picture.types[c] for c in picture.types}, {2})
        # The upper edge of the wall, in the middle of the film.
        m = picture.value("worldToNDC")
        x, y, w = (sum(v * m[4 * r + c] for r, v in enumerate((0, 0, 0, 1))) for c in (0, 1, 3))
        self.assertAlmostEqual(x / w, 0.5, places=5)
        self.assertAlmostEqual(y / w, 0.5, places=5)

    def test_the_manifest_names_what_shows_alone(self):
        self.render("-o", "a.exr", "--exclude", "/World/Odd")
        picture = exr.read(self.at / "a.exr")
        self.assertEqual(json.loads(picture.value("prim/manifest")), {"/World/Wall": 1})
        self.assertEqual(picture.header["idManifest"][0], "idmanifest")
        self.assertEqual(set(picture.channels["prim.id"]), {0.0, 1.0})

    def test_two_command_lines_for_one_picture_make_the_same_bytes(self):
        (self.at / "far").mkdir()
        os.symlink("../scene.usda", self.at / "far" / "scene.usda")
        one = ("--size", "16x16", "--samples", "5", "--exclude", "/B", "--exclude", "/A")
        two = ("--exclude=/A", "--exclude", "/B", "--samples", "4", "--size", "16", "--camera", "/World/Eye", "--threads", "1", "--lens", "perspective",
               "--purpose", "render,default", "--layers", "face,prim,N,P,depth,rgba", "--png", "x.png", "--exposure", "3", "--compression", "zip")
        self.good("render", "scene.usda", "-o", "a.exr", *one)
        self.good("render", "./scene.usda", "-o", "b.exr", *two)
        self.good("render", "scene.usda", "-o", self.at / "c.exr", *one, cwd=self.at / "far")
        self.assertEqual((self.at / "a.exr").read_bytes(), (self.at / "b.exr").read_bytes())
        self.assertEqual((self.at / "a.exr").read_bytes(), (self.at / "c.exr").read_bytes())
        self.assertEqual(exr.read(self.at / "a.exr").value("vela/options"),
                         "--camera /World/Eye --lens perspective --size 16x16 --exclude /A --exclude /B --purpose default,render --samples 4 "
                         "--compression zip --layers rgba,depth,P,N,prim,face")


class Like(Case):
    OPTIONS = (
        (),
        ("--camera", "/World/Bright", "--size", "20", "--samples", "1", "--time", "0.1"),
        ("--lens", "spherical", "--size", "32x16", "--purpose", "proxy,default", "--invisible"),
        ("--subdivide", "1", "--smooth", "--include-type", "Mesh", "--exclude", "/World/Odd", "--pattern", "regular"),
        ("--engine", "hit-detector", "--layers", "rgba,crypto_asset", "--compression", "none"),
        ("--layers", "rgb,albedo", "--half", "--compression", "dwab", "--exclude", "/it's odd", "--exclude", "/a b"),
    )

    def test_the_same_picture_comes_again_byte_for_byte(self):
        for options in self.OPTIONS:
            size = () if "--size" in options else ("--size", "24")
            self.good("render", "scene.usda", "-o", "a.exr", *options, *size)
            self.good("render", "--like", "a.exr", "-o", "b.exr", "--threads", "1")
            self.assertEqual((self.at / "a.exr").read_bytes(), (self.at / "b.exr").read_bytes(), options)
            self.good("render", "scene.usda", "--like", "b.exr", "-o", "c.exr")
            self.assertEqual((self.at / "a.exr").read_bytes(), (self.at / "c.exr").read_bytes(), options)

    def test_variants_stand_in_the_header(self):
        quad = lambda name, x: f'def Mesh "{name}" {{\n point3f[] points = [({x}, 1, 0), ({x + 3}, 1, 0), ({x + 3}, 4, 0), ({x}, 4, 0)]\n' \
                               ' int[] faceVertexCounts = [4]\n int[] faceVertexIndices = [0, 1, 2, 3]\n}\n'
        sets = f'variantSet "look" = {{ "day" {{\n}}\n "late-night" {{\n{quad("Moon", 1)}}}\n}}\nvariantSet "size" = {{ "small" {{\n}}\n "large" {{\n{quad("Big", -4)}}}\n}}\n'
        head = 'def Xform "World" (\n variants = { string look = "day" }\n prepend variantSets = ["look", "size"]\n)\n{\n' + sets
        (self.at / "scene.usda").write_text(SCENE.replace('def Xform "World"\n{\n', head))
        pictures = set()
        for choice in ([], ["/World:look=late-night"], ["/World:size=large"], ["/World:size=large", "/World:look=late-night"]):
            self.render("-o", "a.exr", *(word for one in choice for word in ("--variant", one)), "--camera", "Eye")
            self.good("render", "--like", "a.exr", "-o", "b.exr")
            self.assertEqual((self.at / "a.exr").read_bytes(), (self.at / "b.exr").read_bytes(), choice)
            picture = exr.read(self.at / "a.exr")
            pictures.add(tuple(picture.channels["B"]) + tuple(picture.channels["Z"]))
            # The order in which they are typed is none of the picture's.
            self.render("-o", "c.exr", *(word for one in reversed(choice) for word in ("--variant", one)), "--camera", "Eye")
            self.assertEqual((self.at / "a.exr").read_bytes(), (self.at / "c.exr").read_bytes(), choice)
        self.assertEqual(len(pictures), 4)
        # One that is given takes the place of all that the picture has.
        self.good("render", "--like", "a.exr", "-o", "d.exr", "--variant", "/World:look=day")
        self.assertIn(" --variant /World:look=day --purpose", exr.read(self.at / "d.exr").value("vela/options"))

    def test_frames_take_the_place_of_its_time(self):
        self.render("-o", "a.exr", "--time", "3")
        self.good("render", "--like", "a.exr", "--frames", "1-3", "-o", "b.#.exr")
        self.assertEqual((self.at / "b.3.exr").read_bytes(), (self.at / "a.exr").read_bytes())
        self.assertEqual(exr.read(self.at / "b.1.exr").value("frame"), 1)
        self.good("render", "--like", "a.exr", "--turntable", "2", "-o", "t.#.exr")
        self.assertEqual(exr.read(self.at / "t.2.exr").value("frame"), 3)

    def test_a_scene_that_has_changed_is_said(self):
        changed = "b.exr differs from a.exr, though its options are the same: the scene, or a file that it reads, has changed"
        like = lambda *more: re.sub(".*: left out: .*\n", "", self.good("render", "--like", "a.exr", "-o", "b.exr", *more).stderr.decode())
        self.render("-o", "a.exr", "--camera", "Eye")
        self.assertEqual(like(), "")
        (self.at / "scene.usda").write_text(SCENE.replace("[(1, 1, 1)]", "[(1, 1, 0.5)]"))
        self.assertEqual(like(), f"vela render: note: {changed}\n")
        # Another picture is asked for.
        for more in (("--size", "8x8"), ("--layers", "depth"), ("--exclude", "/World/Odd")):
            self.assertEqual(like(*more), "", more)
        # What does not show does not count.
        (self.at / "scene.usda").write_text(SCENE + '\ndef Xform "More"\n{\n}\n')
        self.assertEqual(like(), "")
        # Names beside the picture make another header of the same picture.
        self.render("-o", "a.exr", "--layers", "crypto_object", "--manifest", "names.json")
        self.assertEqual(like(), "")
        self.assertEqual(like("--manifest", "others.json"), "")
        self.render("-o", "a.exr", "--layers", "crypto_object")
        self.assertEqual(like("--manifest", "others.json"), "")

    def test_what_is_gone_from_the_scene_is_said(self):
        self.render("-o", "a.exr", "--camera", "/World/Bright", "--exclude", "/World/Odd", "--include-type", "Mesh")
        made = "vela render: note: a.exr was made with --camera /World/Bright --lens perspective "
        (self.at / "scene.usda").write_text(SCENE.replace('"Bright"', '"Dark"'))
        done = self.run_command("render", "--like", "a.exr", "-o", "b.exr")
        first, last = done.stderr.decode().splitlines()
        self.assertEqual(done.returncode, 1)
        self.assertTrue(first.startswith(made), first)
        self.assertTrue(last.startswith("vela render: error: no such camera: /World/Bright; try --camera /World/"), last)
        (self.at / "scene.usda").write_text(SCENE.replace('"Odd"', '"Even"'))
        done = self.good("render", "--like", "a.exr", "-o", "b.exr")
        self.assertIn(b"note: --exclude /World/Odd names nothing in the scene", done.stderr)
        self.assertIn(b"note: b.exr differs from a.exr", done.stderr)
        # One that is typed is known to who typed it.
        (self.at / "scene.usda").write_text(SCENE)
        done = self.run_command("render", "--like", "a.exr", "-o", "b.exr", "--camera", "/Nowhere")
        self.assertEqual((done.returncode, len(done.stderr.splitlines())), (1, 1), done.stderr)
        # A variant, a region, a layer of another version.
        self.render("-o", "c.exr", "--region", "8,8,15,15")
        done = self.run_command("render", "--like", "c.exr", "-o", "b.exr", "--size", "8x8")
        self.assertIn(b"note: c.exr was made with ", done.stderr)
        self.assertIn(b"--region: it lies outside the picture of 8 x 8 pixels", done.stderr)
        data = (self.at / "c.exr").read_bytes()
        (self.at / "c.exr").write_bytes(data.replace(b"--layers rgba,depth", b"--layers rgba,fresh").replace(b"vela 0.", b"vela 9."))
        done = self.run_command("render", "--like", "c.exr", "-o", "b.exr")
        self.assertEqual(done.returncode, 2)
        self.assertIn(b"note: c.exr was made by vela 9.", done.stderr)
        self.assertIn(b"fresh", done.stderr.splitlines()[-1])

    def test_the_choice_of_lights_stands_in_the_header_where_there_is_one(self):
        plain = (self.at / "scene.usda").read_text()
        chosen = (("--lights", "own"), ("--lights", "both", "--bounces", "0"), ("--bounces", "3"), ())
        for options in chosen:
            # A scene without lights is the same picture whatever is chosen.
            self.render("-o", "a.exr", *options)
            self.render("-o", "b.exr")
            self.assertEqual((self.at / "a.exr").read_bytes(), (self.at / "b.exr").read_bytes(), options)
        (self.at / "scene.usda").write_text(plain + 'def DomeLight "Sky" {\nfloat inputs:intensity = 0.3\n}\n')
        headers = []
        for options in chosen:
            self.render("-o", "a.exr", *options)
            self.good("render", "--like", "a.exr", "-o", "b.exr", "--threads", "1")
            self.assertEqual((self.at / "a.exr").read_bytes(), (self.at / "b.exr").read_bytes(), options)
            header = exr.read(self.at / "a.exr").value("vela/options")
            self.assertEqual(" ".join(options) in header, True, header)
            headers.append(header)
        self.assertNotIn("--lights", headers[2] + headers[3])
        self.assertNotIn("--bounces", headers[0] + headers[3])
        # Bounces of what has none change nothing.
        self.render("-o", "c.exr", "--lights", "own", "--bounces", "5")
        self.assertEqual(exr.read(self.at / "c.exr").value("vela/options"), headers[0])

    def test_lens_and_shutter_stand_in_the_header_where_they_count(self):
        lens = "float fStop = 0.5\nfloat focusDistance = 3\ndouble shutter:close = 0.5\nfloat4[] clippingPlanes = [(1, 0, 0, 2)]\n"
        scene = (self.at / "scene.usda").read_text()
        eye = 'def Camera "Eye"\n    {\n'
        self.assertIn(eye, scene)
        (self.at / "scene.usda").write_text(scene.replace(eye, eye + lens, 1) +
                                            'def Cube "Mover" {\ndouble3 xformOp:translate.timeSamples = { 1: (-4, 0, -6), 2: (4, 0, -6) }\n'
                                            'uniform token[] xformOpOrder = ["xformOp:translate"]\n}\n')
        plain = self.render("-o", "p.exr", "--camera", "Eye", "--time", "1").stderr.decode()
        for word in ("depth of field", "clipping planes", "motion blur"):
            self.assertIn(word, plain)
        bodies = {(self.at / "p.exr").read_bytes()}
        for options in (("--dof",), ("--motion",), ("--motion", "--motion-steps", "5"), ("--clip",), ("--overscan", "3"),
                        ("--overscan", "4", "--clip", "--dof", "--motion")):
            said = self.render("-o", "a.exr", "--camera", "Eye", "--time", "1", *options).stderr.decode()
            self.assertNotIn("without effect", said)
            self.assertEqual("depth of field" in said, "--dof" not in options)
            self.assertEqual("motion blur" in said, "--motion" not in options)
            self.good("render", "--like", "a.exr", "-o", "b.exr", "--threads", "1")
            self.assertEqual((self.at / "a.exr").read_bytes(), (self.at / "b.exr").read_bytes(), options)
            header = exr.read(self.at / "a.exr").value("vela/options").split()
            for option in ("--dof", "--motion", "--clip", "--overscan", "--motion-steps"):
                self.assertEqual(option in header, option in options, header)
            bodies.add((self.at / "a.exr").read_bytes())
        self.assertEqual(len(bodies), 7)
        # What has no effect is said, and the picture is the plain one.
        for options, why in ((("--dof", "--lens", "orthographic"), "depth of field: the camera is none of perspective"),
                             (("--motion", "--exclude", "/Mover"), "motion: nothing moves while the shutter is open")):
            said = self.render("-o", "a.exr", "--camera", "Eye", "--time", "1", *options).stderr.decode()
            self.assertIn("note: without effect: " + why, said)
            self.render("-o", "b.exr", "--camera", "Eye", "--time", "1", *(word for word in options if word not in ("--dof", "--motion")))
            self.assertEqual((self.at / "a.exr").read_bytes(), (self.at / "b.exr").read_bytes())
        done = self.run_command("render", "scene.usda", "-o", "a.exr", "--overscan", "2", "--lens", "spherical")
        self.assertEqual(done.returncode, 2, done.stderr)
        self.assertIn(b"overscan", done.stderr)
        # What is cut away is not picked either: the window is ten units wide at the wall.
        where = ("--camera", "Eye", "--time", "1", "--pixel", "2,12", *SMALL[:2])
        self.assertIn(b"/World/Wall", self.good("pick", "scene.usda", *where).stdout)
        self.assertNotIn(b"/World/Wall", self.run_command("pick", "scene.usda", "--clip", *where).stdout)

    def test_overscan_lies_around_the_picture(self):
        self.render("-o", "a.exr", "--png", "a.png", "--layers", "rgba,depth,prim,crypto_object")
        self.render("-o", "b.exr", "--png", "b.png", "--layers", "rgba,depth,prim,crypto_object", "--overscan", "5")
        self.assertEqual((self.at / "a.png").read_bytes(), (self.at / "b.png").read_bytes())
        a, b = exr.read(self.at / "a.exr"), exr.read(self.at / "b.exr")
        self.assertEqual(b.value("displayWindow"), a.value("displayWindow"))
        self.assertEqual(b.value("dataWindow"), (-5, -5, 20, 20))
        self.assertEqual((b.width, b.height), (26, 26))
        for name, values in a.channels.items():
            inner = [b.channels[name][(y + 5) * 26 + 5 + x] for y in range(16) for x in range(16)]
            self.assertEqual(list(values), inner, name)
        # Regions and bands reach into it.
        self.render("-o", "c.exr", "--overscan", "5", "--region=-5,-5,2,3")
        self.assertEqual(exr.read(self.at / "c.exr").value("dataWindow"), (-5, -5, 2, 3))
        for k in range(1, 4):
            self.render("-o", f"t.{k}.exr", "--overscan", "5", "--tile", f"{k}/3")
        self.render("-o", "whole.exr", "--overscan", "5")
        self.render("-o", "joined.exr", "--overscan", "5", "--from-tiles", "t.{tile}.exr")
        self.assertEqual((self.at / "whole.exr").read_bytes(), (self.at / "joined.exr").read_bytes())
        done = self.run_command("render", "scene.usda", "-o", "joined.exr", *SMALL, "--from-tiles", "t.{tile}.exr")
        self.assertNotEqual(done.returncode, 0, "bands with overscan are none of the picture without")
        done = self.run_command("render", "scene.usda", "-o", "d.png", *SMALL, "--overscan", "5", "--region=-5,-5,-2,-2")
        self.assertEqual(done.returncode, 1, done.stderr)

    def test_a_selection_stands_in_the_header(self):
        self.good("select", "scene.usda", "--rect", "0,12,3,15", *SMALL[:2], "-o", "s.sel")
        self.render("-o", "a.exr", "--selection", "s.sel")
        (self.at / "s.sel").unlink()
        self.good("render", "--like", "a.exr", "-o", "b.exr")
        self.assertEqual((self.at / "a.exr").read_bytes(), (self.at / "b.exr").read_bytes())
        self.render("-o", "c.exr")
        self.assertNotEqual(exr.read(self.at / "a.exr").channels["B"], exr.read(self.at / "c.exr").channels["B"])

    def test_what_is_given_counts(self):
        self.render("-o", "a.exr", "--camera", "/World/Bright", "--exclude", "/World/Odd")
        self.good("render", "--like", "a.exr", "-o", "b.exr", "--size", "8x8", "--layers", "depth", "--png", "b.png")
        self.render("-o", "c.exr", "--camera", "/World/Bright", "--exclude", "/World/Odd", "--layers", "depth")
        b = exr.read(self.at / "b.exr")
        self.assertEqual((b.width, b.height, set(b.channels)), (8, 8, {"Z"}))
        self.assertEqual(b.value("vela/options"), exr.read(self.at / "c.exr").value("vela/options").replace("16x16", "8x8"))
        self.assertEqual(self.head("b.png"), PNG)

    def test_the_scene_may_lie_beside_the_picture(self):
        (self.at / "shots").mkdir()
        self.render("-o", "shots/a.exr")
        (self.at / "scene.usda").rename(self.at / "shots" / "scene.usda")
        self.good("render", "--like", "shots/a.exr", "-o", "b.exr")
        self.assertEqual((self.at / "shots/a.exr").read_bytes(), (self.at / "b.exr").read_bytes())
        (self.at / "shots" / "scene.usda").unlink()
        done = self.run_command("render", "--like", "shots/a.exr", "-o", "b.exr")
        self.assertEqual(done.returncode, 1)
        self.assertIn(b"cannot find the scene: scene.usda: shots/a.exr was made of it; name it: vela render SCENE --like shots/a.exr", done.stderr)

    def test_what_is_no_such_picture_is_told(self):
        (self.at / "a.exr").write_bytes(b"no picture")
        self.refused(1, "cannot read how the picture was made: a.exr", "-o", "b.exr", "--like", "a.exr")
        self.refused(1, "cannot read how the picture was made: missing.exr", "-o", "b.exr", "--like", "missing.exr")
        self.render("-o", "a.exr")
        self.refused(1, "it is a file that this command reads", "-o", "a.exr", "--like", "a.exr")
        data = (self.at / "a.exr").read_bytes()
        (self.at / "a.exr").write_bytes(data.replace(b"--samples", b"--sambles"))
        self.refused(1, "no such option: --sambles", "-o", "b.exr", "--like", "a.exr")
        (self.at / "a.exr").write_bytes(data.replace(b"vela 0.", b"vela 9."))
        done = self.good("render", "--like", "a.exr", "-o", "b.exr")
        self.assertIn(b"note: a.exr was made by vela 9.", done.stderr)
        done = self.run_command("render", "-o", "b.exr")
        self.assertEqual(done.returncode, 2)
        self.assertIn(b"FILE: it is missing", done.stderr)


class Regions(Case):
    WHOLE = ("--size", "24x40", "--samples", "4", "--layers", "rgba,depth,N,prim,crypto_object")

    def region(self, *arguments, out="part.exr"):
        return self.good("render", "scene.usda", *self.WHOLE, "-o", out, *arguments)

    def check_crop(self, part, whole, x0, y0, x1, y1):
        """Corners included, bit for bit."""
        self.assertEqual((part.width, part.height), (x1 - x0 + 1, y1 - y0 + 1))
        self.assertEqual(part.value("dataWindow"), (x0, y0, x1, y1))
        self.assertEqual(part.value("displayWindow"), (0, 0, 23, 39))
        self.assertEqual(set(part.channels), set(whole.channels))
        for name, values in whole.channels.items():
            crop = [values[24 * y + x] for y in range(y0, y1 + 1) for x in range(x0, x1 + 1)]
            self.assertEqual([exr.bits(v) for v in part.channels[name]], [exr.bits(v) for v in crop], name)

    def test_it_is_a_crop_of_the_whole_picture(self):
        self.region("--png", "whole.png", out="whole.exr")
        whole = exr.read(self.at / "whole.exr")
        _, _, _, codes = read_png(self.at / "whole.png")
        for asked, taken in (("3,5,20,30", (3, 5, 20, 30)), ("20,30,3,5", (3, 5, 20, 30)), ("7,19,7,19", (7, 19, 7, 19)),
                             ("-5,-5,3,99", (0, 0, 3, 39)), ("23,0,999,2", (23, 0, 23, 2))):
            self.region("--region", asked, "--png", "part.png")
            self.check_crop(exr.read(self.at / "part.exr"), whole, *taken)
            # The backdrop, which changes from row to row, is the whole picture's too.
            x0, y0, x1, y1 = taken
            width, height, channels, part = read_png(self.at / "part.png")
            self.assertEqual((width, height, channels), (x1 - x0 + 1, y1 - y0 + 1, 3))
            self.assertEqual(bytes(part), b"".join(bytes(codes[3 * (24 * y + x0) : 3 * (24 * y + x1 + 1)]) for y in range(y0, y1 + 1)), asked)

    def test_all_of_it_is_the_whole_picture(self):
        self.region(out="whole.exr")
        self.region("--region", "-1,0,500,39")
        self.assertEqual((self.at / "part.exr").read_bytes(), (self.at / "whole.exr").read_bytes())

    def test_its_header_makes_it_again(self):
        self.region("--region", "-9,5,20,30", "--threads", "3")
        self.assertIn(" --size 24x40 --region 0,5,20,30 --purpose ", exr.read(self.at / "part.exr").value("vela/options"))
        self.good("render", "--like", "part.exr", "-o", "again.exr", "--threads", "1")
        self.assertEqual((self.at / "again.exr").read_bytes(), (self.at / "part.exr").read_bytes())
        self.good("render", "--like", "part.exr", "-o", "other.exr", "--region", "1,2,3,4")
        self.assertEqual(exr.read(self.at / "other.exr").value("dataWindow"), (1, 2, 3, 4))

    def test_it_names_what_shows_in_it_alone(self):
        self.region(out="whole.exr")
        self.region("--region", "0,30,23,39")
        for name in ("prim/manifest", "cryptomatte/" + self.key() + "/manifest"):
            names = [set(json.loads(exr.read(self.at / file).value(name))) for file in ("whole.exr", "part.exr")]
            self.assertEqual(names, [{"/World/Wall", "/World/Odd"}, {"/World/Wall"}], name)

    def key(self):
        return next(n for n in exr.read(self.at / "part.exr").header if n.startswith("cryptomatte/")).split("/")[1]

    def test_what_holds_nothing_is_said(self):
        for outside in ("24,0,30,9", "0,40,9,41", "-9,0,-1,9"):
            before = sorted(p.name for p in self.at.iterdir())
            done = self.run_command("render", "scene.usda", *self.WHOLE, "-o", "a.exr", "--region", outside)
            self.assertEqual(done.returncode, 1)
            self.assertIn(b"nothing to render: --region: it lies outside the picture of 24 x 40 pixels; try --region 0,0,23,39", done.stderr)
            self.assertEqual(sorted(p.name for p in self.at.iterdir()), before)
        self.refused(2, "'1,2,3' is not X0,Y0,X1,Y1; try --region 0,0,640,360", "-o", "a.exr", "--region", "1,2,3")
        self.refused(2, "--region: 'x' is no whole number", "-o", "a.exr", "--region", "1,2,3,x")
        self.assertIn(b"warning: nothing shows in the region", self.region("--region", "0,0,2,2").stderr)

    def test_each_frame_and_camera_has_it(self):
        self.good("render", "scene.usda", *self.WHOLE, "--camera", "all", "--frames", "1,2", "-o", "{camera}.#.exr", "--region", "3,5,20,30")
        self.good("render", "scene.usda", *self.WHOLE, "--camera", "/World/Bright", "--time", "2", "-o", "whole.exr")
        self.assertEqual(len(list(self.at.glob("Eye.?.exr"))), 2)
        self.check_crop(exr.read(self.at / "Bright.2.exr"), exr.read(self.at / "whole.exr"), 3, 5, 20, 30)
        # Cameras have heights of their own.
        done = self.run_command("render", "scene.usda", "--size", "24", "--samples", "1", "--camera", "all", "-o", "h.{camera}.exr", "--region", "0,20,9,23")
        self.assertEqual(done.returncode, 4, done.stderr)
        self.assertEqual([p.name for p in self.at.glob("h.*")], ["h.Eye.exr"])


class Shown(Case):
    CELL = re.compile(r"\x1b\[38;2;(\d+);(\d+);(\d+)m(?:\x1b\[48;2;(\d+);(\d+);(\d+)m|\x1b\[49m)\u2580")
    # Nothing but alpha: white below, black above.
    SHOW = ("--size", "160x160", "--samples", "1", "--mask", "/World/Wall", "--show", "alpha", "--log-level", "error")
    BLACK, WHITE = (0, 0, 0), (255, 255, 255)
    HALVES = [[(BLACK, BLACK)] * 80] * 20 + [[(WHITE, WHITE)] * 80] * 20

    def cells(self, text):
        """Rows of cells, each two colours, None where a cell has no lower one; nothing else stands in the text."""
        rows = []
        for line in text.decode().splitlines():
            self.assertEqual(self.CELL.sub("", line), "\x1b[0m")
            rows.append([(tuple(map(int, m[:3])), tuple(map(int, m[3:])) if m[3] else None) for m in self.CELL.findall(line)])
        return rows

    def environment(self, **more):
        return {**{k: v for k, v in os.environ.items() if k not in ("NO_COLOR", "COLUMNS", "TERM")}, **more}

    def shown(self, *arguments, **more):
        return self.good("render", "scene.usda", *arguments, env=self.environment(**more.pop("env", {})), **more)

    def on_terminal(self, columns, rows, *arguments, **more):
        """What a terminal of that size is sent on standard output."""
        try:
            master, slave = pty.openpty()
        except OSError as why:
            self.skipTest(f"this machine has no terminals to give: {why}")
        fcntl.ioctl(slave, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))
        process = subprocess.Popen([COMMAND, "render", "scene.usda", *arguments], cwd=self.at, stdout=slave, stderr=subprocess.PIPE,
                                   env=self.environment(**{"TERM": "xterm", **more}))
        os.close(slave)
        text = b""
        try:
            while part := os.read(master, 1 << 16):
                text += part
        except OSError:  # a terminal that nobody has open any more
            pass
        os.close(master)
        self.assertEqual(process.communicate(timeout=60)[1], b"")
        self.assertEqual(process.returncode, 0)
        return text.replace(b"\r\n", b"\n")

    def test_a_picture_of_two_colours(self):
        done = self.shown(*self.SHOW)
        self.assertEqual(self.cells(done.stdout), self.HALVES)
        self.assertEqual(done.stderr, b"")
        self.assertEqual([p.name for p in self.at.iterdir()], ["scene.usda"])

    def test_a_colour_is_the_mean_of_the_pixels_that_it_stands_for(self):
        self.shown("--size", "64x64", "--samples", "4", "--camera", "Eye", "--show", "rgba", "--png", "a.png", env={"COLUMNS": "16"})
        rows = self.cells(self.shown("--size", "64x64", "--samples", "4", "--camera", "Eye", "--show", "rgba", env={"COLUMNS": "16"}).stdout)
        self.assertEqual([len(row) for row in rows], [16] * 8)
        codes = read_png(self.at / "a.png")[3]
        for i, row in enumerate(rows):
            for j, cell in enumerate(row):
                for half, colour in enumerate(cell):
                    y = 8 * i + 4 * half
                    for k in range(3):
                        mean = sum(codes[3 * (64 * (y + v) + 4 * j + u) + k] for v in range(4) for u in range(4)) / 16
                        self.assertEqual(colour[k], int(mean + 0.5))
        self.assertGreater(len({cell for row in rows for cell in row}), 3)

    def test_small_ones_keep_their_pixels(self):
        done = self.shown("--size", "6x6", "--samples", "1", "--mask", "/World/Wall", "--show", "alpha", "--region", "1,0,5,4")
        b, w = self.BLACK, self.WHITE
        self.assertEqual(self.cells(done.stdout), [[(b, b)] * 5, [(b, w)] * 5, [(w, None)] * 5])

    def test_without_colour_in_characters(self):
        done = self.shown(*self.SHOW, env={"NO_COLOR": "1"})
        self.assertEqual(done.stdout.decode(), (" " * 80 + "\n") * 20 + ("@" * 80 + "\n") * 20)
        self.assertEqual(self.cells(self.shown(*self.SHOW, env={"NO_COLOR": ""}).stdout), self.HALVES)

    def test_a_file_is_as_wide_as_columns_say(self):
        for columns, width in (("40", 40), ("1", 1), ("500", 160), ("x", 80), ("0", 80), ("-3", 80), ("", 80)):
            rows = self.cells(self.shown(*self.SHOW, env={"COLUMNS": columns, "TERM": "dumb"}).stdout)
            self.assertEqual({len(row) for row in rows}, {width}, columns)
            self.assertEqual(len(rows), (width + 1) // 2, columns)

    def test_all_of_it_fits_a_terminal(self):
        for columns, rows, size in ((20, 60, (20, 10)), (1, 60, (1, 1)), (200, 11, (20, 10)), (200, 1, (2, 1)), (0, 0, (80, 40))):
            cells = self.cells(self.on_terminal(columns, rows, *self.SHOW, COLUMNS="80"))
            self.assertEqual((len(cells[0]), len(cells)), size, (columns, rows))
        self.assertEqual(self.on_terminal(9, 4, *self.SHOW, NO_COLOR="1"), b"      \n======\n@@@@@@\n")

    def test_a_terminal_that_is_dumb_gets_characters(self):
        self.assertEqual(self.on_terminal(4, 9, *self.SHOW, TERM="dumb"), b"    \n@@@@\n")

    def test_it_is_never_mixed_into_a_picture(self):
        self.shown(*self.SHOW, "-o", "a.exr")
        for name in ("-", "/dev/stdout", "/dev/fd/1", "/proc/self/fd/1"):
            done = self.shown(*self.SHOW, "-o", name)
            self.assertEqual(done.stdout, (self.at / "a.exr").read_bytes(), name)
            self.assertEqual(self.cells(done.stderr), self.HALVES, name)
        # Into what is thrown away nothing is mixed.
        if os.geteuid() == 0:
            self.assertEqual(self.shown(*self.SHOW, "-o", "/dev/null", "--png", "/dev/null").stderr, b"")
        self.refused(2, "--show: does not go with /dev/stderr, which leaves neither standard output nor error for it", *self.SHOW[4:], "-o", "-", "--png", "/dev/stderr")
        done = self.run_command("render", "scene.usda", *self.SHOW, "-o", "-", stderr=subprocess.STDOUT, stdout=subprocess.PIPE, capture_output=False)
        self.assertEqual(done.returncode, 2)
        self.assertIn(b"--show: does not go with -, which", done.stdout)

    def test_each_frame_is_drawn_below_its_name(self):
        small = ("--size", "2x4", "--samples", "1", "--mask", "/World/Wall", "--show", "alpha")
        text = self.shown(*small, "--frames", "1,2.5", env={"NO_COLOR": "1"}).stdout.decode()
        self.assertEqual(text, "frame 1\n  \n@@\nframe 2.5\n  \n@@\n")
        text = self.shown(*small, "--camera", "all", env={"NO_COLOR": "1"}).stdout.decode()
        self.assertEqual(re.findall("^camera .*$", text, re.M), ["camera /World/Eye", "camera /World/Bright"])
        # No title stands above a single one.
        self.assertEqual(self.shown(*small, "--frames", "7", env={"NO_COLOR": "1"}).stdout, b"  \n@@\n")

    def test_it_looks_as_images_do(self):
        dark, light = (sum(sum(c[0]) for row in self.cells(self.shown("--show", "rgba", *SMALL, "--exposure", stops).stdout) for c in row) for stops in ("-4", "4"))
        self.assertLess(dark, light)
        # What is nothing is black.
        done = self.shown("--show", "rgba", *SMALL, "--mask", "/World/Wall", "--camera", "Eye", "--background", "none")
        self.assertEqual(self.cells(done.stdout)[0], [(self.BLACK, self.BLACK)] * 16)
        self.assertNotIn(b"has no effect", done.stderr)

    def test_layers_that_there_are_not_are_refused(self):
        self.refused(2, "heat", "--show", "heat")
        self.refused(2, "--show: its value is missing", "--show")

    def test_options_of_files_have_no_effect_without_one(self):
        done = self.shown("--show", "alpha", *SMALL, "--skip-existing", "--half", "--layers", "depth")
        for option, why in (("--skip-existing", "no file is written"), ("--half", "no output is an EXR"), ("--layers", "there is no -o that takes layers")):
            self.assertIn(f"note: {option} has no effect: {why}", done.stderr.decode())

    def test_a_full_standard_output_is_an_error(self):
        with open("/dev/full", "wb") as full:
            done = self.run_command("render", "scene.usda", *self.SHOW, capture_output=False, stdout=full, stderr=subprocess.PIPE)
        self.assertEqual(done.returncode, 1)
        self.assertIn(b"cannot write: standard output: ", done.stderr)


class Sizes(Case):
    def sizes(self, *arguments):
        self.good("render", "scene.usda", "-o", "a.exr", "--layers", "depth", *arguments)
        picture = exr.read(self.at / "a.exr")
        return picture.width, picture.height

    def test_the_height_follows_the_film(self):
        self.assertEqual(self.sizes("--size", "96"), (96, 96))
        self.assertEqual(self.sizes("--size", "96", "--camera", "/World/Bright"), (96, 48))
        self.assertEqual(self.sizes("--size", "96x20", "--camera", "/World/Bright"), (96, 20))
        self.assertEqual(self.sizes("--size", "96", "--lens", "spherical"), (96, 48))
        self.assertEqual(self.sizes("--camera", "/World/Bright"), (1280, 640))
        for wrong in ("x20", "20x", "0", "96x20x3", "wide"):
            self.refused(2, "--size", "-o", "b.exr", "--size", wrong)

    def test_picks_take_the_pixels_of_the_picture(self):
        self.assertEqual(self.good("pick", "scene.usda", "--pixel", "48,95", "--size", "96", "--json").returncode, 0)
        done = self.run_command("pick", "scene.usda", "--pixel", "48,96", "--size", "96")
        self.assertEqual(done.returncode, 2)
        self.assertIn(b"outside the picture of 96 x 96 pixels", done.stderr)


class Colour(Case):
    def codes(self, *arguments, **more):
        self.render("--png", "x.png", *arguments, **more)
        return read_png(self.at / "x.png")[3]

    def linear(self, *arguments):
        self.render("-o", "x.exr", "--layers", "rgba", *arguments)
        return exr.read(self.at / "x.exr").channels

    def test_white_in_full_light_is_not_clipped(self):
        camera = ("--camera", "/World/Bright")
        red = self.linear(*camera)["R"]
        self.assertGreater(max(red) * 2, 1.2)  # by the exposure of that camera
        soft, clip = self.codes(*camera), self.codes(*camera, "--view", "clip")
        at = max(range(len(red)), key=red.__getitem__)
        self.assertEqual(clip[3 * at], 255)
        self.assertLess(soft[3 * at], 255)

    def test_clip_is_the_plain_encoding(self):
        red = self.linear("--camera", "/World/Eye")
        codes = self.codes("--camera", "/World/Eye", "--view", "clip")
        whole = [i for i, alpha in enumerate(red["A"]) if alpha == 1]
        self.assertGreater(len(whole), 50)
        for i in whole:
            self.assertAlmostEqual(codes[3 * i], encoded(red["R"][i]), delta=1)

    def test_exposure_is_the_cameras_and_what_is_given(self):
        # Values of the EXR are never exposed.
        plain = self.linear("--camera", "/World/Bright")
        self.assertEqual(exr.read(self.at / "x.exr").value("exposure"), 1.0)
        self.assertEqual(plain["R"], self.linear("--camera", "/World/Bright", "--exposure", "2")["R"])
        codes = self.codes("--camera", "/World/Bright", "--exposure", "-3", "--view", "clip")
        for i, alpha in enumerate(plain["A"]):
            if alpha == 1:
                self.assertAlmostEqual(codes[3 * i], encoded(plain["R"][i] / 4), delta=1)
        for wrong in ("bright", "1,2", "65", "nan"):
            self.refused(2, f"'{wrong}' is not a number from -64 to 64", "-o", "a.png", "--exposure", wrong)

    def test_a_configuration_of_the_environment(self):
        (self.at / "config.ocio").write_text("""ocio_profile_version: 1
search_path: ""
roles: {scene_linear: linear, default: linear}
displays:
  screen:
    - !<View> {name: Dark, colorspace: dark}
    - !<View> {name: Raw, colorspace: linear}
colorspaces:
  - !<ColorSpace> {name: linear}
  - !<ColorSpace>
    name: dark
    from_reference: !<MatrixTransform> {matrix: [0.25, 0, 0, 0, 0, 0.25, 0, 0, 0, 0, 0.25, 0, 0, 0, 0, 1]}
""")
        there = {"env": dict(os.environ, OCIO=str(self.at / "config.ocio"))}
        red = self.linear("--camera", "/World/Eye")
        dark, raw = self.codes("--camera", "/World/Eye", **there), self.codes("--camera", "/World/Eye", "--view", "Raw", **there)
        for i, alpha in enumerate(red["A"]):
            if alpha == 1:
                self.assertAlmostEqual(dark[3 * i], min(red["R"][i] * 0.25, 1) * 255, delta=1)
                self.assertAlmostEqual(raw[3 * i], min(red["R"][i], 1) * 255, delta=1)
        plain = self.codes("--camera", "/World/Eye")
        self.assertEqual(self.codes("--camera", "/World/Eye", "--view", "soft", **there), plain)
        self.refused(1, "it has no view Film; there is Dark, Raw", "-o", "a.png", "--view", "Film", **there)
        self.refused(1, "it has no display wall; there is screen", "-o", "a.png", "--display", "wall", **there)
        broken = {"env": dict(os.environ, OCIO=str(self.at / "none.ocio"))}
        self.refused(1, "cannot show colour as OCIO asks", "-o", "a.png", **broken)
        # Files without colour for displays need none.
        self.render("-o", "a.exr", **broken)
        self.refused(2, "there is no view Film; try soft or clip", "-o", "a.png", "--view", "Film")
        # It is a file that is read.
        link = self.at / "config.png"
        os.link(self.at / "config.ocio", link)
        self.refused(1, "it is a file that this command reads", "-o", "config.png", **there)


class Statistics(Case):
    def test_they_have_each_step(self):
        done = self.render("-o", "a.exr", "--stats")
        found = dict(re.findall(r"^vela render: stats: (\w+) +([\d.]+)", done.stderr.decode(), re.M))
        self.assertEqual(list(found), ["open", "build", "trace", "shade", "write", "memory", "rays"])
        self.assertGreater(float(found["memory"]), 10)
        # Four samples and the centre of each pixel.
        self.assertEqual(int(found["rays"]), 5 * 256)
        self.assertRegex(done.stderr.decode(), r"from the camera, [1-9]\d* to lights")
        self.assertNotIn(b"stats", self.render("-o", "b.exr").stderr)
        self.assertEqual((self.at / "a.exr").read_bytes(), (self.at / "b.exr").read_bytes())


class Demo(Case):
    def test_the_demo_is_made_again_from_its_header(self):
        self.good("render", ROOT / "examples/demo/demo.usda", "-o", "a.exr", "--size", "160", "--samples", "4", "--layers", "rgba,depth,prim,crypto_object")
        self.good("render", ROOT / "examples/demo/demo.usda", "--like", "a.exr", "-o", "b.exr")
        self.assertEqual((self.at / "a.exr").read_bytes(), (self.at / "b.exr").read_bytes())
        self.assertTrue(all(math.isinf(z) or z > 0 for z in exr.read(self.at / "a.exr").channels["Z"]))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
