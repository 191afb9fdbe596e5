"""Mattes, checked by a reader written from what Cryptomatte 1.2.0 publishes of its format; hashes by another implementation.

test_cryptomatte.py COMMAND
"""

import json
import os
import pathlib
import struct
import subprocess
import sys
import tempfile
import unittest

import mmh3

sys.path.insert(0, os.path.dirname(__file__))
import exr  # noqa: E402

COMMAND = sys.argv[1]

# Two models in a group, a loose mesh above which there is no model, instances of a model; sides that cut through pixels.
SCENE = """#usda 1.0
(
    defaultPrim = "World"
    upAxis = "Y"
)
def Xform "World" (
    kind = "assembly"
)
{
    def Xform "Chairs" (
        kind = "group"
    )
    {
        def Xform "Red" (
            kind = "component"
        )
        {
            def Mesh "Seat"
            {
                point3f[] points = [(-3.1, -1.2, 0), (-0.3, -1, 0), (-0.2, 1.3, 0), (-3, 1, 0)]
                int[] faceVertexCounts = [4]
                int[] faceVertexIndices = [0, 1, 2, 3]
            }
            def Mesh "Back"
            {
                point3f[] points = [(-2, -0.5, 0.5), (0.7, -0.4, 0.5), (-1, 2, 0.5)]
                int[] faceVertexCounts = [3]
                int[] faceVertexIndices = [0, 1, 2]
            }
        }
        def Mesh "Cushion"
        {
            point3f[] points = [(0.5, -1.7, 0.2), (1.9, -1.6, 0.2), (1.2, 0.4, 0.2)]
            int[] faceVertexCounts = [3]
            int[] faceVertexIndices = [0, 1, 2]
        }
    }
    def PointInstancer "Many"
    {
        int[] protoIndices = [0, 0, 0]
        point3f[] positions = [(1, 1, 1), (1.6, 1.2, 1.1), (-2, -1.5, 1)]
        rel prototypes = </World/Many/Leaf>
        def Mesh "Leaf" (
            kind = "component"
        )
        {
            point3f[] points = [(-0.5, -0.5, 0), (0.5, -0.45, 0), (0, 0.5, 0)]
            int[] faceVertexCounts = [3]
            int[] faceVertexIndices = [0, 1, 2]
        }
    }
    def Mesh "Unseen"
    {
        point3f[] points = [(-0.5, -0.5, 90), (0.5, -0.45, 90), (0, 0.5, 90)]
        int[] faceVertexCounts = [3]
        int[] faceVertexIndices = [0, 1, 2]
    }
    def Camera "Eye"
    {
        double3 xformOp:translate = (0, 0, 12)
        uniform token[] xformOpOrder = ["xformOp:translate"]
    }
}
def Xform "Loose"
{
    def Mesh "W\u00f6rld"
    {
        point3f[] points = [(2.2, -1, 0.3), (3.4, -0.8, 0.3), (2.6, 1.9, 0.3)]
        int[] faceVertexCounts = [3]
        int[] faceVertexIndices = [0, 1, 2]
    }
}
"""
OBJECTS = {"/World/Chairs/Red/Seat", "/World/Chairs/Red/Back", "/World/Chairs/Cushion", "/World/Many/Leaf[0]", "/World/Many/Leaf[1]",
           "/World/Many/Leaf[2]", "/Loose/W\u00f6rld"}
ASSETS = {"Red", "Chairs", "Leaf", "Loose"}


def identifier(name):
    """The id of a name, as Cryptomatte defines it."""
    bits = mmh3.hash(name.encode("utf-8"), 0, signed=False)
    if (bits >> 23) & 255 in (0, 255):
        bits ^= 1 << 23
    return bits


class Matte:
    """One matte of a picture, read as Cryptomatte defines it."""

    def __init__(self, picture, name, folder=None):
        key = "%08x" % mmh3.hash(name.encode(), 0, signed=False)
        head = f"cryptomatte/{key[:7]}/"
        self.facts = {k[len(head) :]: picture.value(k) for k in picture.header if k.startswith(head)}
        assert self.facts["name"] == name
        assert self.facts["hash"] == "MurmurHash3_32"
        assert self.facts["conversion"] == "uint32_to_float32"
        text = self.facts["manifest"] if "manifest" in self.facts else (folder / self.facts["manif_file"]).read_text("utf-8")
        self.manifest = json.loads(text)
        layers = sorted({c.rsplit(".", 1)[0] for c in picture.channels if c[: len(name)] == name and c[len(name) : len(name) + 2].isdigit()})
        assert layers == [f"{name}{i:02}" for i in range(len(layers))], layers
        self.pixels = []
        for i in range(picture.width * picture.height):
            ranks = []
            for layer in layers:
                r, g, b, a = (picture.channels[f"{layer}.{c}"][i] for c in "rgba")
                ranks += [(exr.bits(r), g), (exr.bits(b), a)]
            self.pixels.append(ranks)


class Mattes(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.at = pathlib.Path(cls.folder.name)
        (cls.at / "scene.usda").write_text(SCENE, "utf-8")
        cls.run_command("-o", "a.exr", "--layers", "crypto_object,crypto_asset,rgba,prim,alpha")
        cls.picture = exr.read(cls.at / "a.exr")
        cls.object, cls.asset = Matte(cls.picture, "crypto_object"), Matte(cls.picture, "crypto_asset")

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    @classmethod
    def run_command(cls, *arguments):
        done = subprocess.run([COMMAND, "render", "scene.usda", "--size", "48x27", "--samples", "16", *map(str, arguments)], cwd=cls.at,
                              capture_output=True, text=True, timeout=120)
        assert done.returncode == 0, done.stderr
        return done

    def test_check_values_of_the_published_hash(self):
        for name, bits in (("hello", 0x248BFA47), ("hello, world", 0x149BBB7F), ("", 0x00800000)):
            self.assertEqual(identifier(name), bits)

    def test_channels_are_whole_floats(self):
        names = [c for c in self.picture.types if c.startswith("crypto")]
        self.assertEqual(len(names), 2 * 3 * 4)
        self.assertEqual({self.picture.types[c] for c in names}, {2})

    def test_manifests_name_what_shows_by_its_own_hash(self):
        for matte, names in ((self.object, OBJECTS), (self.asset, ASSETS)):
            self.assertEqual(set(matte.manifest), names)
            for name, digits in matte.manifest.items():
                self.assertRegex(digits, r"^[0-9a-f]{8}$")
                self.assertEqual(int(digits, 16), identifier(name), name)

    def test_every_id_of_a_pixel_is_in_the_manifest_and_every_name_shows(self):
        for matte in (self.object, self.asset):
            seen = {bits for ranks in matte.pixels for bits, _ in ranks if bits}
            self.assertEqual(seen, {int(d, 16) for d in matte.manifest.values()})

    def test_ranks_go_by_coverage_and_empty_ones_are_zero(self):
        mixed = 0
        for matte in (self.object, self.asset):
            for ranks in matte.pixels:
                shares = [share for _, share in ranks]
                self.assertEqual(shares, sorted(shares, reverse=True))
                self.assertLessEqual(sum(shares), 1.0)
                for bits, share in ranks:
                    self.assertEqual(bits == 0, share == 0)
                    self.assertEqual(share * 16, round(share * 16))
                full = [bits for bits, _ in ranks if bits]
                self.assertEqual(len(full), len(set(full)))
                mixed += len(full) > 1
        self.assertGreater(mixed, 30)

    def test_shares_add_up_to_alpha(self):
        # Alpha is a sum of sixteenths too, added in another order.
        for matte in (self.object, self.asset):
            for ranks, alpha in zip(matte.pixels, self.picture.channels["A"]):
                self.assertAlmostEqual(sum(share for _, share in ranks), alpha, places=6)

    def test_assets_are_sums_of_their_objects(self):
        asset_of = {"/World/Chairs/Red/Seat": "Red", "/World/Chairs/Red/Back": "Red", "/World/Chairs/Cushion": "Chairs", "/Loose/W\u00f6rld": "Loose"}
        by_bits = {identifier(name): identifier(asset_of.get(name, "Leaf")) for name in OBJECTS}
        for objects, assets in zip(self.object.pixels, self.asset.pixels):
            sums = {}
            for bits, share in objects:
                if bits:
                    sums[by_bits[bits]] = sums.get(by_bits[bits], 0) + share
            self.assertEqual(sums, {bits: share for bits, share in assets if bits})

    def test_what_the_centre_shows_covers_some_of_its_pixel(self):
        names = {number: name for name, number in json.loads(self.picture.value("prim/manifest")).items()}
        agree = total = 0
        for number, ranks in zip(self.picture.channels["prim.id"], self.object.pixels):
            if number:
                total += 1
                agree += ranks[0][0] == identifier(names[number])
        self.assertGreater(agree, 0.95 * total)

    def test_threads_and_other_layers_change_nothing(self):
        self.run_command("-o", "b.exr", "--layers", "crypto_asset,crypto_object", "--threads", "1")
        again = exr.read(self.at / "b.exr")
        for channel in again.channels:
            self.assertEqual(again.channels[channel], self.picture.channels[channel], channel)
        self.assertEqual({k: v for k, v in again.header.items() if "cryptomatte" in k}, {k: v for k, v in self.picture.header.items() if "cryptomatte" in k})

    def test_materials_are_those_of_faces(self):
        (self.at / "looks.usda").write_text("""#usda 1.0
def Scope "Looks" {
    def Material "Red" {
    }
    def Material "Blue" {
    }
    def Material "Unused" {
    }
}
def Mesh "Wall" (prepend apiSchemas = ["MaterialBindingAPI"]) {
    rel material:binding = </Looks/Red>
    point3f[] points = [(-2, -1, 0), (0, -1, 0), (2, -1, 0), (2, 1, 0), (0, 1, 0), (-2, 1, 0)]
    int[] faceVertexCounts = [4, 4]
    int[] faceVertexIndices = [0, 1, 4, 5, 1, 2, 3, 4]
    def GeomSubset "Half" (prepend apiSchemas = ["MaterialBindingAPI"]) {
        uniform token elementType = "face"
        uniform token familyName = "materialBind"
        int[] indices = [1]
        rel material:binding = </Looks/Blue>
    }
}
def Mesh "Bare" {
    point3f[] points = [(-2, 1.5, 0), (2, 1.5, 0), (0, 2.5, 0)]
    int[] faceVertexCounts = [3]
    int[] faceVertexIndices = [0, 1, 2]
}
""")
        subprocess.run([COMMAND, "render", "looks.usda", "-o", "m.exr", "--size", "48x27", "--layers", "crypto_material,crypto_object,material"],
                       cwd=self.at, check=True, timeout=120)
        picture = exr.read(self.at / "m.exr")
        matte, objects = Matte(picture, "crypto_material"), Matte(picture, "crypto_object")
        self.assertEqual(set(matte.manifest), {"/Looks/Red", "/Looks/Blue"})
        names = {number: name for name, number in json.loads(picture.value("material/manifest")).items()}
        found = set()
        for number, ranks, whole in zip(picture.channels["material.id"], matte.pixels, objects.pixels):
            if ranks[0][1] == 1:
                self.assertEqual(ranks[0][0], identifier(names[number]))
                found.add(names[number])
            # Where nothing is bound there is no name.
            if whole[0] == (identifier("/Bare"), 1):
                self.assertEqual(ranks[0], (0, 0))
                found.add("none")
        self.assertEqual(found, {"/Looks/Red", "/Looks/Blue", "none"})

    def test_a_matte_alone_says_nothing_of_the_other(self):
        self.run_command("-o", "c.exr", "--layers", "crypto_asset")
        alone = exr.read(self.at / "c.exr")
        self.assertEqual(len([k for k in alone.header if k.startswith("cryptomatte/")]), 4)
        self.assertEqual(Matte(alone, "crypto_asset").manifest, self.asset.manifest)

    def test_the_manifest_may_stand_in_a_file_beside_the_picture(self):
        (self.at / "shots").mkdir()
        self.run_command("-o", "shots/d.{layer}.exr", "--layers", "crypto_object,crypto_asset,rgba", "--manifest", "shots/names.json")
        for name, inside in (("crypto_object", self.object), ("crypto_asset", self.asset)):
            picture = exr.read(self.at / "shots" / f"d.{name}.exr")
            beside = Matte(picture, name, self.at / "shots")
            self.assertEqual(beside.facts["manif_file"], "names.json")
            self.assertNotIn("manifest", beside.facts)
            self.assertEqual(beside.pixels, inside.pixels)
            self.assertLessEqual(inside.manifest.items(), beside.manifest.items())
        self.assertEqual(set(beside.manifest), OBJECTS | ASSETS)
        self.run_command("-o", "e.exr", "--layers", "crypto_object", "--manifest", "shots/other.json")
        self.assertEqual(Matte(exr.read(self.at / "e.exr"), "crypto_object", self.at).facts["manif_file"], "shots/other.json")

    def test_more_names_than_ranks_leave_the_least_out(self):
        strips = "".join(
            f"""def Mesh "S{i}" {{
    point3f[] points = [({x}, -1, 0), ({x + w}, -1, 0), ({x + w}, 1, 0), ({x}, 1, 0)]
    int[] faceVertexCounts = [4]
    int[] faceVertexIndices = [0, 1, 2, 3]
}}
""" for i, (x, w) in enumerate([(-1.0, 0.5), (-0.5, 0.375), (-0.125, 0.25), (0.125, 0.25), (0.375, 0.25), (0.625, 0.125), (0.75, 0.125), (0.875, 0.125)]))
        (self.at / "strips.usda").write_text(f"""#usda 1.0
{strips}
def Camera "Eye" {{
    token projection = "orthographic"
    float horizontalAperture = 20
    float verticalAperture = 20
    double3 xformOp:translate = (0, 0, 5)
    uniform token[] xformOpOrder = ["xformOp:translate"]
}}
""")
        subprocess.run([COMMAND, "render", "strips.usda", "-o", "f.exr", "--size", "1x1", "--samples", "4096", "--pattern", "regular", "--layers",
                        "crypto_object"], cwd=self.at, check=True, timeout=120)
        (ranks,) = Matte(exr.read(self.at / "f.exr"), "crypto_object").pixels
        self.assertEqual(len(ranks), 6)
        self.assertEqual([round(share * 16) for _, share in ranks], [4, 3, 2, 2, 2, 1])
        self.assertEqual([bits for bits, _ in ranks[:2]], [identifier("/S0"), identifier("/S1")])
        self.assertEqual({bits for bits, _ in ranks[2:5]}, {identifier(f"/S{i}") for i in (2, 3, 4)})
        # Equal shares stand in the order of their ids, so that neighbours do not flicker.
        self.assertEqual([bits for bits, _ in ranks[2:5]], sorted(bits for bits, _ in ranks[2:5]))

    def test_a_shared_id_is_said(self):
        # Two names with one hash, found by search.
        pair = ("/P87000", "/P104417")
        self.assertEqual(*map(identifier, pair))
        (self.at / "pair.usda").write_text("#usda 1.0\n" + "".join(f"""def Mesh "{name[1:]}" {{
    point3f[] points = [({x}, -1, 0), ({x + 1}, -1, 0), ({x}, 1, 0)]
    int[] faceVertexCounts = [3]
    int[] faceVertexIndices = [0, 1, 2]
}}
""" for x, name in enumerate(pair)))
        done = subprocess.run([COMMAND, "render", "pair.usda", "-o", "g.exr", "--size", "32x18", "--layers", "crypto_object"], cwd=self.at,
                              capture_output=True, text=True, timeout=120)
        self.assertEqual(done.returncode, 0)
        self.assertIn(f"{pair[1]} has the id of {pair[0]}", done.stderr)
        self.assertEqual(set(Matte(exr.read(self.at / "g.exr"), "crypto_object").manifest), set(pair))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
