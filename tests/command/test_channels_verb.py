#!/usr/bin/env python3
"""`vela channels` from outside: the default registry as a table and as JSON, and what a name is.

Usage: test_channels_verb.py COMMAND
"""
import json
import subprocess
import sys
import unittest

COMMAND = sys.argv[1]

# number, name, owning layer, place in it, purpose
CHANNELS = [
    (1, "rgba.red", "rgb", 0, "color-red"), (2, "rgba.green", "rgb", 1, "color-green"), (3, "rgba.blue", "rgb", 2, "color-blue"),
    (4, "rgba.alpha", "rgba", 3, "color-alpha"), (5, "depth.Z", "depth", 0, "data-depth"),
    (6, "forward.u", "motion", 0, "data-vec-x"), (7, "forward.v", "motion", 1, "data-vec-y"),
    (8, "backward.u", "motion", 2, "data-vec-x"), (9, "backward.v", "motion", 3, "data-vec-y"),
    (14, "mask.a", "mask", 0, "mask"), (15, "rotopaint_mask.a", "rotopaint_mask", 0, "mask"),
    (16, "deep.front", "deep", 0, "data-depth"), (17, "deep.back", "deep", 1, "data-depth"),
    (18, "mask_planartrack.a", "mask_planartrack", 0, "mask"), (19, "mask_splinewarp.a", "mask_splinewarp", 0, "mask"),
    (20, "sample.coverage", "sample", 0, "blendable"), (21, "cutout.alpha", "cutout", 0, "color-alpha"),
    (22, "cutout.depth", "cutout", 1, "data-depth"),
]
LAYERS = ["rgb", "rgba", "alpha", "depth", "motion", "forward", "backward", "deep", "mask", "rotopaint_mask", "mask_planartrack",
          "mask_splinewarp", "sample", "cutout"]


def run(*arguments):
    return subprocess.run([COMMAND, "channels", *arguments], capture_output=True, text=True, timeout=60)


class Channels(unittest.TestCase):
    def good(self, *arguments):
        done = run(*arguments)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return done.stdout

    def asked(self, name):
        return json.loads(self.good("--name", name, "--json"))

    def test_the_table_has_every_channel_and_layer(self):
        lines = self.good().splitlines()
        self.assertEqual(lines[0], "Channels: 18")
        rows = [line.split() for line in lines[2:20]]
        self.assertEqual(rows, [[str(c), name, layer, str(place), purpose] for c, name, layer, place, purpose in CHANNELS])
        self.assertEqual(lines[21], "Layers: 14")
        rows = [line.split() for line in lines[23:37]]
        self.assertEqual([row[0] for row in rows], LAYERS)
        self.assertEqual(rows[1], ["rgba", "color4", "color4f", "rgba.red", "rgba.green", "rgba.blue", "rgba.alpha"])
        self.assertEqual(rows[6], ["backward", "data-vec2", "float2", "backward.u", "backward.v"])
        self.assertEqual(lines[38], "The next new channel is 23; 1000 are free.")

    def test_the_json_says_the_same(self):
        report = json.loads(self.good("--json"))
        self.assertEqual([(c["channel"], c["name"], c["layer"], c["place"], c["purpose"]) for c in report["channels"]], CHANNELS)
        self.assertEqual([layer["name"] for layer in report["layers"]], LAYERS)
        self.assertEqual(report["layers"][4]["channels"][3], {"channel": 9, "name": "backward.v"})
        self.assertEqual((report["firstFree"], report["free"]), (23, 1000))

    def test_a_channel_is_told_by_its_name(self):
        self.assertEqual(self.good("--name", "depth.Z"),
                         "channel   5\nname      depth.Z\nlayer     depth\nplace     0\npurpose   data-depth\nvalue     float\n")
        self.assertEqual(self.asked("depth.Z")["channel"]["channel"], 5)

    def test_a_rewritten_name_is_told_as_what_it_becomes(self):
        report = self.asked("rgb.green")
        self.assertEqual((report["name"], report["channelName"]), ("rgb.green", "rgba.green"))
        self.assertEqual(report["channel"]["channel"], 2)

    def test_a_layer_is_told_by_its_name(self):
        self.assertEqual(self.good("--name", "motion"), "layer     motion\npurpose   data\nvalue     float\n"
                         "channels  forward.u forward.v backward.u backward.v\n")
        self.assertIsNone(self.asked("motion")["channel"])

    def test_a_new_name_is_told_with_what_it_would_become(self):
        self.assertEqual(self.good("--name", "N.x"), "not in the registry: N.x\n"
                         "created now, it would be channel 23 of layer N, with purpose data-vec-x\n")
        self.assertEqual(self.asked("N.x")["new"], {"channel": 23, "layer": "N", "purpose": "data-vec-x"})
        self.assertIn("as a channel, it is called other.Z", self.good("--name", "Z"))
        self.assertEqual(self.asked("x.")["new"], {"channel": 23, "layer": "x", "purpose": "auto"})

    def test_a_name_that_cannot_become_a_channel_is_told_too(self):
        for name in ("", ".x"):
            self.assertIn("cannot become a channel", self.good("--name", name))
            self.assertNotIn("new", self.asked(name))

    def test_wrong_usage_exits_with_2(self):
        for arguments in (["--name"], ["extra"], ["--nmae", "x"], ["--name", "a", "--name", "b"]):
            done = run(*arguments)
            self.assertEqual((done.returncode, done.stdout), (2, ""), arguments)
            self.assertRegex(done.stderr, r"^vela channels: error: .*; (try|leave) .*\n$")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
