#!/usr/bin/env python3
"""Shapes made by the built command, and meshes inspected by it: counts by formula, defects, exit codes.

Usage: test_meshes.py COMMAND
"""
import json
import math
import pathlib
import subprocess
import sys
import tempfile
import unittest

COMMAND = sys.argv[1]

BROKEN = """#usda 1.0
def Mesh "Whole"
{
    int[] faceVertexCounts = [3]
    int[] faceVertexIndices = [0, 1, 2]
    point3f[] points = [(0, 0, 0), (1, 0, 0), (0, 1, 0)]
}
def Mesh "Broken"
{
    int[] faceVertexCounts = [4, 4, 3, 3, 2, 3, 3]
    int[] faceVertexIndices = [0, 1, 3, 2, 0, 1, 2, 3, 0, 1, 9, 0, 4, 4, 5, 5, 0, 0, 0, 6, 7, 8, 1, 2]
    point3f[] points = [(0, 0, 0), (1, 0, 0), (1, 1, 0), (0, 1, 0), (2, 0, 0), (3, 0, 0), (4, 0, 0), (nan, 0, 0), (5, 0, 0)]
    texCoord2f[] primvars:st = [(0, 0), (1, 1)] (interpolation = "vertex")
}
"""

SUBSETS = """#usda 1.0
def Mesh "M"
{
    int[] faceVertexCounts = [4, 4]
    int[] faceVertexIndices = [0, 1, 4, 3, 1, 2, 5, 4]
    point3f[] points = [(-2, -1, 0), (0, -1, 0), (2, -1, 0), (-2, 1, 0), (0, 1, 0), (2, 1, 0)]
    uniform token subdivisionScheme = "none"
    def GeomSubset "left"
    {
        uniform token elementType = "face"
        int[] indices = [0]
    }
    def GeomSubset "right"
    {
        uniform token elementType = "face"
        int[] indices = [1]
    }
}
"""


class Meshes(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        self.at = pathlib.Path(self.folder.name)

    def vela(self, *arguments):
        return subprocess.run([COMMAND, *map(str, arguments)], capture_output=True, text=True)

    def inspected(self, file, code=0):
        done = self.vela("mesh", file, "--json")
        self.assertEqual(done.returncode, code, done.stderr)
        return json.loads(done.stdout)["meshes"]

    def made(self, *arguments, suffix="usda"):
        file = self.at / f"shape.{suffix}"
        done = self.vela("make", *arguments, "-o", file)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        meshes = self.inspected(file)
        self.assertEqual(len(meshes), 1)
        return meshes[0]

    def test_geometry_subsets_leave_all_faces_to_their_mesh(self):
        file = self.at / "subsets.usda"
        file.write_text(SUBSETS)
        self.assertEqual([(m["prim"], m["faces"]) for m in self.inspected(file)], [("/M", 2)])
        for ray, face in (("-1,0.5,5,0,0,-1", 0), ("1,0.5,5,0,0,-1", 1)):
            picked = json.loads(self.vela("pick", file, f"--ray={ray}", "--json").stdout)
            self.assertEqual((picked["prim"], picked["face"]), ("/M", face))

    def test_shapes_have_their_counts_and_measures(self):
        cube = self.made("cube", "--rows", "3", "--columns", "2", "--size", "1,2,3")
        self.assertEqual((cube["faces"], cube["points"], cube["borderEdges"]), (2 * (6 + 2) * 2, 2 * 5 + 8 * 3, 0))
        self.assertEqual(cube["bounds"], {"min": [-0.5, -1, -1.5], "max": [0.5, 1, 1.5]})
        self.assertEqual({p["name"] for p in cube["primvars"]}, {"primvars:st", "normals"})
        grid = self.made("grid", "--rows", "4", "--columns", "5", suffix="usdc")
        self.assertEqual((grid["faces"], grid["points"], grid["borderEdges"]), (20, 30, 18))
        cylinder = self.made("cylinder", "--rows", "2", "--columns", "12")
        self.assertEqual((cylinder["faces"], cylinder["points"], cylinder["borderEdges"]), (48, 38, 0))
        tube = self.made("cylinder", "--no-caps", "--columns", "12")
        self.assertEqual((tube["faces"], tube["points"], tube["borderEdges"]), (12, 24, 24))
        sphere = self.made("sphere", "--rows", "8", "--columns", "16", "--size", "2,2,2")
        self.assertEqual((sphere["faces"], sphere["points"], sphere["borderEdges"]), (8 * 16, 7 * 16 + 2, 0))
        self.assertEqual((sphere["bounds"]["min"][1], sphere["bounds"]["max"][1]), (-1, 1))
        self.assertEqual(sphere["points"] - sphere["edges"] + sphere["faces"], 2)

    def test_a_refined_shape_has_its_scheme_and_no_normals(self):
        cube = self.made("cube", "--scheme", "catmullClark")
        self.assertEqual(cube["subdivisionScheme"], "catmullClark")
        self.assertEqual([p["name"] for p in cube["primvars"]], ["primvars:st"])

    def test_wrong_words_are_wrong_usage_and_an_unwritable_file_bad_input(self):
        for arguments in (["ball", "-o", "a.usda"], ["cube"], ["cube", "-o", "a.usda", "--size", "1,2"], ["sphere", "-o", "a.usda", "--rows", "1"],
                          ["cube", "-o", "a.usda", "--columns", "0"], ["cube", "-o", "a.usda", "--size", "1,0,1"],
                          ["cube", "-o", "a.usda", "--scheme", "smooth"], ["cube", "-o", "a.usda", "--size", "1e31,1,1"],
                          ["cube", "-o", "a.usda", "--rows", "20000", "--columns", "20000"],
                          ["grid", "-o", "a.usda", "--rows", "1000000", "--columns", "1000000"]):
            done = self.vela("make", *arguments)
            self.assertEqual(done.returncode, 2, arguments)
            self.assertIn("vela make: error: wrong usage", done.stderr)
        done = self.vela("make", "cube", "-o", self.at / "nowhere" / "a.usda")
        self.assertEqual(done.returncode, 1)
        self.assertIn("vela make: error: cannot write the scene", done.stderr)

    def test_defects_are_named_and_give_exit_code_one(self):
        file = self.at / "broken.usda"
        file.write_text(BROKEN)
        whole, broken = self.inspected(file, 1)
        self.assertEqual(whole["defects"], [])
        found = {d["kind"]: (d["count"], d["first"]) for d in broken["defects"]}
        self.assertEqual(found, {
            "counts do not add up to the number of indices": (1, 22),
            "face of fewer than three vertices": (1, 4),
            "index out of range": (1, 10),
            "folded face": (1, 0),
            "face that names a point twice": (2, 3),
            "edge along which two faces run the same way": (1, 1),
            "point that is not finite": (1, 7),
            "primvar whose count does not fit its interpolation": (1, 0)})
        done = self.vela("mesh", file)
        self.assertEqual(done.returncode, 1)
        self.assertIn("defect: folded face: 1, first 0", done.stdout)
        self.assertIn("of 2 meshes", done.stderr)
        self.assertEqual(self.vela("mesh", file, "/Whole").returncode, 0)

    def test_a_face_whose_sides_cross_is_folded(self):
        def star(step):  # the corners of a pentagon in steps of one are a pentagon, in steps of two a star
            at = [(math.cos(2 * math.pi * step * i / 5), math.sin(2 * math.pi * step * i / 5)) for i in range(5)]
            return at
        outlines = {
            "Pentagon": (star(1), 0),
            "Star": (star(2), 1),
            "Concave": ([(0, 0), (4, 0), (4, 4), (2, 1), (0, 4)], 0),
            "Spiral": ([(0, 0), (5, 0), (5, 5), (0, 5), (0, 1), (1, 1), (1, 4), (4, 4), (4, 2), (0.5, 2), (0.5, 0.5)], 1),
            "Eight": ([(0, 0), (1, 1), (2, 0), (2, 2), (1, 1.5), (0, 2)], 0),
            "Balanced": ([(0, 0), (2, 2), (2, 0), (0, 2), (-1, 1)], 1),
            "Straight": ([(0, 0), (1, 0), (2, 0), (2, 1), (1, 1), (0, 1)], 0),
        }
        for plane in ("{0}, {1}, 0", "0, {0}, {1}", "{1}, 7, {0}", "{0}, {1}, {0}"):
            text = "#usda 1.0\n"
            for name, (corners, _) in outlines.items():
                points = ", ".join("(" + plane.format(*c) + ")" for c in corners)
                text += f'def Mesh "{name}"\n{{\n int[] faceVertexCounts = [{len(corners)}]\n int[] faceVertexIndices = {list(range(len(corners)))}\n point3f[] points = [{points}]\n}}\n'
            file = self.at / "outlines.usda"
            file.write_text(text)
            for mesh, (name, (_, folded)) in zip(self.inspected(file, 1), outlines.items()):
                self.assertEqual([d["kind"] for d in mesh["defects"]], ["folded face"] * folded, (name, plane))

    def test_a_prim_that_is_no_mesh_is_bad_input(self):
        file = self.at / "broken.usda"
        file.write_text(BROKEN)
        done = self.vela("mesh", file, "/Nowhere")
        self.assertEqual(done.returncode, 1)
        self.assertIn("vela mesh: error: no such mesh: /Nowhere", done.stderr)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=1)
