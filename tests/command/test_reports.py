#!/usr/bin/env python3
"""Every report of --json against its schema, and what `vela info` tells of several files.

Usage: test_reports.py COMMAND PROJECT_ROOT
"""
import json
import pathlib
import subprocess
import sys
import tempfile
import unittest

try:
    import jsonschema
except ImportError:
    jsonschema = None

COMMAND, ROOT = sys.argv[1], pathlib.Path(sys.argv[2])
DEMO = ROOT / "examples/demo/demo.usda"
SCHEMAS = ROOT / "tools/vela/schemas"

SCENE = """#usda 1.0
(
    metersPerUnit = 0.01
    startTimeCode = 1
    endTimeCode = 5
)
def Xform "World" (
    variants = { string look = "day" }
    prepend variantSets = "look"
)
{
    variantSet "look" = {
        "day" {
        }
        "night" {
            def Sphere "Moon"
            {
            }
        }
    }
    def Mesh "M"
    {
        int[] faceVertexCounts = [4, 7]
        int[] faceVertexIndices = [0, 1, 2, 3]
        point3f[] points = [(-1, -1, 0), (1, -1, 0), (1, 1, 0), (-1, nan, 0)]
    }
    def DistantLight "Sun"
    {
    }
    def Material "Red"
    {
        def Shader "Map"
        {
            asset inputs:file = @./none.png@
        }
    }
    def Xform "Part" (
        instanceable = true
        references = @./part.usda@</Part>
    )
    {
    }
    def Camera "A"
    {
    }
    def Camera "B"
    {
        token projection = "orthographic"
    }
}
"""


def run(*arguments, **more):
    return subprocess.run([COMMAND, *map(str, arguments)], capture_output=True, text=True, timeout=120, **more)


class Case(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.at = pathlib.Path(folder.name)
        self.scene = self.at / "scene.usda"
        self.scene.write_text(SCENE)
        (self.at / "part.usda").write_text('#usda 1.0\ndef Xform "Part"\n{\n    def Cube "C"\n    {\n    }\n}\n')
        self.assertEqual(run("select", DEMO, "--rect", "0,0,99,99", "--parts", "faces", "-o", self.at / "s.sel").returncode, 0)

    def reports(self):
        yield "pick", ["pick", DEMO, "--pixel", "640,360"]
        yield "pick", ["pick", DEMO, "--ray", "0,9999,0,0,1,0"]
        yield "explain", ["explain", DEMO, "--pixel", "640,360"]
        yield "explain", ["explain", self.scene, "--ray", "0,0,9,0,0,-1", "--all", "--exclude", "/World/Part"]
        yield "info", ["info", DEMO]
        yield "info", ["info", self.scene]
        yield "info", ["info", self.scene, DEMO, "--depth", "0"]
        yield "mesh", ["mesh", DEMO]
        yield "mesh", ["mesh", self.scene]
        yield "mesh", ["mesh", self.scene, DEMO]
        yield "channels", ["channels"]
        for name in ("rgba", "depth.Z", "N.new", ""):
            yield "channels", ["channels", "--name", name]
        yield "select", ["select", "--show", self.at / "s.sel"]
        yield "select", ["select", "--show", self.at / "s.sel", self.at / "s.sel"]
        yield "resolve", ["resolve", self.scene, "file://elsewhere/a"]


class Schemas(Case):
    def test_every_report_has_its_version_and_holds_to_its_schema(self):
        used = set()
        for name, arguments in self.reports():
            done = run(*arguments, "--json")
            report = json.loads(done.stdout)
            self.assertEqual((next(iter(report)), report["version"]), ("version", 1), arguments)
            used.add(name)
            if jsonschema:
                schema = json.loads((SCHEMAS / f"{name}.schema.json").read_text())
                jsonschema.Draft7Validator.check_schema(schema)
                jsonschema.validate(report, schema)
        self.assertEqual(used, {p.name.split(".")[0] for p in SCHEMAS.glob("*.schema.json")})
        if not jsonschema:
            self.skipTest("this Python has no jsonschema: scripts/setup brings it")

    def test_a_report_of_another_form_does_not_pass(self):
        if not jsonschema:
            self.skipTest("this Python has no jsonschema: scripts/setup brings it")
        for name, arguments in self.reports():
            report = json.loads(run(*arguments, "--json").stdout)
            schema = json.loads((SCHEMAS / f"{name}.schema.json").read_text())
            for bad in ({**report, "more": 1}, {k: v for k, v in report.items() if k != "version"}, {**report, "version": 2}):
                self.assertFalse(jsonschema.Draft7Validator(schema).is_valid(bad))

    def test_every_verb_with_json_has_a_schema(self):
        for verb in ("render", "pick", "explain", "info", "mesh", "make", "channels", "select", "resolve", "selftest", "help"):
            has = "\n  --json " in run("help", verb).stdout
            self.assertEqual((SCHEMAS / f"{verb}.schema.json").exists(), has, verb)


class Info(Case):
    def info(self, *arguments):
        done = run("info", *arguments, "--json")
        self.assertEqual(done.returncode, 0, done.stderr)
        return json.loads(done.stdout)

    def test_tree_boxes_variants_lights_textures_instances_and_layers(self):
        facts = self.info(self.scene)
        self.assertEqual(facts["boundingBoxUnits"], {"min": [-1, -1, -1], "max": [1, 1, 1]})
        self.assertEqual(facts["boundingBoxMetres"], {"min": [-0.01] * 3, "max": [0.01] * 3})
        tree = {n["path"]: n for n in facts["tree"]}
        self.assertEqual((tree["/World"]["primsBelow"], tree["/World"]["type"], tree["/World"]["depth"]), (8, "Xform", 1))
        self.assertEqual((tree["/World/Part"]["instance"], tree["/World/M"]["boundingBoxUnits"]["max"]), (True, [1, 1, 0]))
        self.assertIn("/World/Red/Map", tree)
        self.assertEqual(facts["variants"], [{"prim": "/World", "set": "look", "selected": "day", "variants": ["day", "night"]}])
        self.assertEqual(facts["lights"], [{"path": "/World/Sun", "type": "DistantLight", "visible": True}])
        self.assertEqual(facts["textures"], [{"file": "./none.png", "resolved": None, "missing": True, "shader": "/World/Red/Map", "uses": 1}])
        self.assertEqual(facts["instances"], {"prims": 1, "pointInstancers": []})
        self.assertEqual([(l["arc"], pathlib.Path(l["file"]).name) for l in facts["layers"]], [("root", "scene.usda"), ("reference", "part.usda")])
        (self.at / "none.png").write_bytes(b"x")
        self.assertEqual(self.info(self.scene)["textures"][0]["missing"], False)

    def test_images_of_lights_are_listed_found_or_missing(self):
        scene = self.at / "lit.usda"
        scene.write_text('#usda 1.0\ndef DomeLight "Sky" {\nasset inputs:texture:file = @./sky.png@\n}\n'
                         'def RectLight "Slide" {\nasset inputs:texture:file = @./gone.png@\n}\n')
        (self.at / "sky.png").write_bytes(b"x")
        self.assertEqual([(t["file"], t["missing"], t["shader"]) for t in self.info(scene)["textures"]],
                         [("./sky.png", False, "/Sky"), ("./gone.png", True, "/Slide")])
        self.assertIn("Textures: 2\n  ./sky.png\n  ./gone.png (missing)\n", run("info", scene).stdout)

    def test_the_text_says_the_same(self):
        text = run("info", self.scene).stdout
        for part in ("from -1 -1 -1 to 1 1 1 units", "from -0.01 -0.01 -0.01 to 0.01 0.01 0.01 metres", "World (Xform), 8 below",
                     "/World:look=day of day night", "/World/Sun (DistantLight)", "./none.png (missing)", "Instances: 1 prims",
                     "part.usda (reference of scene.usda)"):
            self.assertIn(part, text)

    def test_the_depth_of_the_tree(self):
        self.assertEqual([n["path"] for n in self.info(self.scene, "--depth", "1")["tree"]], ["/World"])
        self.assertEqual(self.info(self.scene, "--depth", "0")["tree"], [])

    def test_several_files_are_told_one_by_one_and_a_bad_one_leaves_the_others(self):
        (self.at / "bad.usda").write_text("hello")
        done = run("info", self.scene, self.at / "bad.usda", DEMO, "--json")
        self.assertEqual(done.returncode, 4)
        self.assertEqual([f["file"] for f in json.loads(done.stdout)["files"]], [str(self.scene), str(DEMO)])
        self.assertEqual(len(done.stderr.splitlines()), 1, done.stderr)
        text = run("info", self.scene, DEMO)
        self.assertEqual((text.returncode, text.stdout), (0, run("info", self.scene).stdout + "\n" + run("info", DEMO).stdout))
        self.assertEqual(run("info", self.at / "bad.usda", self.at / "none.usda").returncode, 1)


class SeveralFiles(Case):
    """A file that is bad is named and leaves the others."""

    def setUp(self):
        super().setUp()
        for name in ("a", "b"):
            self.assertEqual(run("make", "cube", "-o", self.at / f"{name}.usda").returncode, 0)
        (self.at / "bad.usda").write_text("hello")
        self.names = [str(self.at / n) for n in ("a.usda", "bad.usda", "b.usda")]

    def test_meshes_of_several(self):
        a, bad, b = self.names
        done = run("mesh", a, bad, b, "--json")
        self.assertEqual((done.returncode, [f["file"] for f in json.loads(done.stdout)["files"]]), (4, [a, b]))
        self.assertRegex(done.stderr, f"^vela mesh: error: cannot open the scene: {bad}: [^\n]+\n$")
        self.assertEqual(json.loads(done.stdout)["files"][0], {k: v for k, v in json.loads(run("mesh", a, "--json").stdout).items() if k != "version"})
        done = run("mesh", a, b)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.assertEqual(done.stdout, f"{a}\n{run('mesh', a).stdout}\n{b}\n{run('mesh', b).stdout}")
        self.assertEqual(run("mesh", bad, bad).returncode, 1)

    def test_one_with_defects_is_told_whole_and_counts_as_failed(self):
        a = self.names[0]
        done = run("mesh", self.scene, a, "--json")
        self.assertEqual((done.returncode, [f["file"] for f in json.loads(done.stdout)["files"]]), (4, [str(self.scene), a]))
        self.assertIn(f"vela mesh: error: defects: {self.scene}: ", done.stderr)
        self.assertEqual(run("mesh", self.scene, self.scene).returncode, 1)

    def test_the_last_argument_may_be_a_prim_of_each(self):
        a, bad, b = self.names
        path = json.loads(run("mesh", a, "--json").stdout)["meshes"][0]["prim"]
        done = run("mesh", a, b, path, "--json")
        self.assertEqual((done.returncode, [[m["prim"] for m in f["meshes"]] for f in json.loads(done.stdout)["files"]]), (0, [[path], [path]]))
        # The error does not have the file, so that the line does.
        done = run("mesh", self.scene, a, path, "--json")
        self.assertEqual((done.returncode, len(json.loads(done.stdout)["files"])), (4, 1))
        self.assertRegex(done.stderr.splitlines()[-1], f"^vela mesh: {self.scene}: error: no such mesh: {path}; ")
        # A name of a scene is one, whether it is there or not; so is a reference. Behind a prim nothing follows.
        for last, why in ((self.at / "none.usda", "cannot open the scene"), ("bal:///no", "cannot resolve: bal:///no")):
            done = run("mesh", a, last)
            self.assertEqual(done.returncode, 4)
            self.assertIn(why, done.stderr)
        done = run("mesh", a, "/Cube", b)
        self.assertEqual(done.returncode, 2)
        self.assertIn(f"wrong usage: {b}: vela mesh takes no further argument", done.stderr)

    def test_selections_are_shown_one_by_one(self):
        s, t, none = self.at / "s.sel", self.at / "t.sel", self.at / "none.sel"
        self.assertEqual(run("select", DEMO, "--rect", "600,300,700,400", "-o", t).returncode, 0)
        texts = {f: run("select", "--show", f).stdout for f in (s, t)}
        self.assertEqual(run("select", "--show", s, t).stdout, f"{s}\n{texts[s]}\n{t}\n{texts[t]}")
        self.assertEqual(run("select", "--show", s, "--show", t).stdout, run("select", "--show", s, t).stdout)
        done = run("select", "--show", s, none, t, "--json")
        self.assertEqual((done.returncode, [f["file"] for f in json.loads(done.stdout)["files"]]), (4, [str(s), str(t)]))
        self.assertRegex(done.stderr, f"^vela select: error: cannot read the selection: {none}: [^\n]+\n$")
        self.assertEqual(json.loads(done.stdout)["files"][0]["objects"], json.loads(run("select", "--show", s, "--json").stdout)["objects"])

    def test_a_scene_is_one_for_verbs_that_look_at_one(self):
        a, _, b = self.names
        for arguments in (["render", a, b, "-o", self.at / "x.exr"], ["pick", a, b, "--pixel", "1,1"], ["explain", a, b, "--pixel", "1,1"],
                          ["select", a, b, "--rect", "0,0,1,1", "-o", self.at / "x.sel"]):
            done = run(*arguments)
            self.assertEqual(done.returncode, 2)
            self.assertIn(f"wrong usage: {b}: vela {arguments[0]} takes no further argument", done.stderr)


class Explain(Case):
    def test_the_first_that_shows_is_what_pick_finds(self):
        seen = 0
        for x, y in ((640, 360), (100, 600), (900, 300), (640, 10)):
            found = json.loads(run("pick", DEMO, "--pixel", f"{x},{y}", "--json").stdout)
            why = json.loads(run("explain", DEMO, "--pixel", f"{x},{y}", "--json").stdout)
            shows = [p for p in why["prims"] if p["hiddenBy"] is None and p["tracer"]["verdict"] == "shows"]
            self.assertEqual([p["prim"] for p in shows], [found["prim"]] if found["hit"] else [])
            if found["hit"]:
                seen += 1
                self.assertEqual((shows[0]["tracer"]["face"], shows[0]["tracer"]["distance"]), (found["face"], found["distance"]))
        self.assertGreater(seen, 1)

    def test_what_is_left_out_says_by_what(self):
        found = json.loads(run("pick", DEMO, "--pixel", "640,360", "--json").stdout)["prim"]
        text = run("explain", DEMO, "--pixel", "640,360", "--exclude", found).stdout
        self.assertRegex(text, found + r" \(\w+\)\n  left out by --exclude\n  tracer        would be met at [0-9.]+, face \d+\n  hit detector  ")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=1)
