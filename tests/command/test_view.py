#!/usr/bin/env python3
"""vela view over HTTP: who gets an answer, and that pictures, pixels and selections are those of the other verbs.

Usage: test_view.py COMMAND PROJECT_ROOT
"""
import http.client
import json
import os
import pathlib
import re
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import unittest

COMMAND, ROOT = sys.argv[1], pathlib.Path(sys.argv[2])
sys.path.insert(0, str(ROOT / "tests/support"))
from serving import serving  # noqa: E402

SCENE = """#usda 1.0
(
    upAxis = "Y"
    startTimeCode = 1
    endTimeCode = 10
)
def Xform "World"
{
    def Mesh "Wall"
    {
        point3f[] points = [(-4, -3, 0), (4, -3, 0), (4, 3, 0), (-4, 3, 0)]
        int[] faceVertexCounts = [4]
        int[] faceVertexIndices = [0, 1, 2, 3]
        color3f[] primvars:displayColor = [(0.8, 0.3, 0.2)]
    }
    def Cube "Box"
    {
        double size = 2
        double3 xformOp:translate.timeSamples = { 1: (-1, 0, 2), 10: (2, 0, 2) }
        uniform token[] xformOpOrder = ["xformOp:translate"]
    }
    def Mesh "Behind" (
        kind = "component"
    )
    {
        token visibility = "invisible"
        point3f[] points = [(-4, -3, -1), (4, -3, -1), (4, 3, -1), (-4, 3, -1)]
        int[] faceVertexCounts = [4]
        int[] faceVertexIndices = [0, 1, 2, 3]
    }
    def Camera "Eye"
    {
        float horizontalAperture = 24
        float verticalAperture = 18
        float focalLength = 30
        float exposure = 0.5
        double3 xformOp:translate = (0, 0, 12)
        uniform token[] xformOpOrder = ["xformOp:translate"]
    }
    def Camera "Side"
    {
        float horizontalAperture = 24
        float verticalAperture = 12
        float focalLength = 24
        double3 xformOp:translate = (1, 1, 9)
        uniform token[] xformOpOrder = ["xformOp:translate"]
    }
}
"""
SMALL = ("--size", "48", "--samples", "4")
JSON = {"Content-Type": "application/json"}


def run(*arguments, **more):
    return subprocess.run([COMMAND, *map(str, arguments)], capture_output=True, timeout=120, **more)


class Case(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.at = pathlib.Path(folder.name)
        self.scene = self.at / "scene.usda"
        self.scene.write_text(SCENE)

    def serve(self, *words, scene=None, **options):
        context = serving([COMMAND, "view"], scene or self.scene, *words, **options)
        server = context.__enter__()
        self.addCleanup(context.__exit__, None, None, None)
        return server

    def made(self, name, *words, scene=None):
        """The bytes of a picture that vela render makes."""
        done = run("render", scene or self.scene, "-o", self.at / name, *words)
        self.assertEqual(done.returncode, 0, done.stderr)
        return (self.at / name).read_bytes()


class Rules(Case):
    def test_who_does_not_know_the_token_gets_nothing(self):
        server = self.serve(*SMALL)
        wrong = ("0" if server.token[0] != "0" else "1") + server.token[1:]
        for path in ("/", "", "/index.html", "/scene", f"/{wrong}/", f"/{server.token[:-1]}/", f"/{server.token}0/", f"//{server.token}/", f"/x/{server.token}/",
                     f"/?{server.token}", f"/{server.token.upper()}x/"):
            with self.subTest(path):
                status, _, body = server.request("GET", path)
                self.assertIn(status, (400, 403))
                self.assertNotIn(b"<html", body)
                self.assertNotIn(server.token.encode(), body)
        self.assertEqual(server.request("POST", "/scene", "{}", JSON)[0], 403)
        self.assertEqual(server.get("/")[0], 200)

    def test_the_token_is_another_one_each_time(self):
        self.assertNotEqual(self.serve(*SMALL).token, self.serve(*SMALL).token)

    def test_another_host_is_refused(self):
        server = self.serve(*SMALL)
        path = f"/{server.token}/"
        for host in (f"evil.example:{server.port}", "127.0.0.1", "127.0.0.1:1", f"127.0.0.1.evil.example:{server.port}", "", f"127.0.0.1:{server.port}0", f":{server.port}"):
            with self.subTest(host):
                self.assertEqual(server.request("GET", path, headers={"Host": host})[0], 403)
        for host in (f"127.0.0.1:{server.port}", f"localhost:{server.port}", f"[::1]:{server.port}"):
            self.assertEqual(server.request("GET", path, headers={"Host": host})[0], 200)

    def test_another_origin_is_refused(self):
        server = self.serve(*SMALL)
        for origin in ("http://evil.example", "null", f"https://127.0.0.1:{server.port}", f"http://127.0.0.1:{server.port + 1}", f"http://localhost:{server.port}"):
            self.assertEqual(server.request("POST", f"/{server.token}/scene", "{}", {**JSON, "Origin": origin})[0], 403, origin)
        self.assertEqual(server.request("POST", f"/{server.token}/scene", "{}", {**JSON, "Origin": f"http://127.0.0.1:{server.port}"})[0], 200)

    def test_what_a_form_of_another_page_could_send_is_refused(self):
        server = self.serve(*SMALL)
        for kind in ("text/plain", "application/x-www-form-urlencoded", "multipart/form-data", ""):
            self.assertEqual(server.request("POST", f"/{server.token}/scene", "{}", {"Content-Type": kind})[0], 415)
        self.assertEqual(server.request("PUT", f"/{server.token}/scene", "{}", JSON)[0], 405)
        self.assertEqual(server.get("/scene")[0], 404)

    def test_what_is_too_large_is_refused(self):
        server = self.serve(*SMALL)
        head = f"POST /{server.token}/scene HTTP/1.1\r\nHost: 127.0.0.1:{server.port}\r\nContent-Type: application/json\r\n"
        # Refused by what the header says, before a byte of it is sent.
        self.assertIn(b" 413 ", self.raw(server, f"{head}Content-Length: 900000000\r\n\r\n"))
        self.assertIn(b" 431 ", self.raw(server, f"{head}X: {'x' * 40000}\r\n\r\n"))
        self.assertIn(b" 400 ", self.raw(server, "no such thing\r\n\r\n"))
        self.assertEqual(server.ask("/scene", text="x" * 900000)[0], 200)

    def raw(self, server, text):
        with socket.create_connection((server.host, server.port), timeout=60) as stream:
            stream.sendall(text.encode())
            return stream.recv(4096)

    def test_too_many_at_once_are_refused_and_the_others_served(self):
        server = self.serve(*SMALL)
        held = [socket.create_connection((server.host, server.port), timeout=60) for _ in range(64)]
        try:
            # Connections are taken in their order: this one is the first too many.
            with socket.create_connection((server.host, server.port), timeout=60) as stream:
                self.assertIn(b" 503 ", stream.recv(4096))
            held[0].sendall(f"GET /{server.token}/ HTTP/1.1\r\nHost: 127.0.0.1:{server.port}\r\n\r\n".encode())
            self.assertIn(b" 200 ", held[0].recv(4096))
        finally:
            for stream in held:
                stream.close()

    def test_no_path_leads_to_the_file_system(self):
        server = self.serve(*SMALL)
        (self.at / "secret.txt").write_text("a secret")
        for path in ("/../secret.txt", "/secret.txt", "/%2e%2e/secret.txt", str(self.at / "secret.txt"), "/..%2fsecret.txt", "//etc/passwd", "/index.html/../../etc/passwd",
                     "/scene.usda", "/index.html%00", "/index.html?x=/etc/passwd"):
            with self.subTest(path):
                status, _, body = server.get(path)
                self.assertEqual(status, 404)
                self.assertNotIn(b"secret\n", body)
        # Nor does what a request says: a camera or a prim is looked for in the scene.
        before = sorted(self.at.iterdir())
        for body in ({"camera": "/etc/passwd"}, {"exclude": ["/etc/passwd"]}, {"mask": ["../../etc"]}, {"camera": "../secret.txt"}):
            self.assertIn(server.ask("/view", **body)[0], (200, 422))
        self.assertEqual(server.ask("/tree", path="/etc/passwd")[0], 400)
        self.assertEqual(sorted(self.at.iterdir()), before)

    def test_what_browsers_are_told(self):
        server = self.serve(*SMALL)
        files = ["/", "/main.js", "/style.css", "/icon.svg"]
        types = ["text/html; charset=utf-8", "text/javascript; charset=utf-8", "text/css; charset=utf-8", "image/svg+xml"]
        for file, kind in zip(files, types):
            status, headers, body = server.get(file)
            self.assertEqual((status, headers["Content-Type"]), (200, kind))
            self.assertEqual(headers["Cache-Control"], "no-store")
            self.assertEqual(headers["Referrer-Policy"], "no-referrer")
            self.assertIn("default-src 'none'", headers["Content-Security-Policy"])
            self.assertIn("frame-ancestors 'none'", headers["Content-Security-Policy"])
            self.assertNotIn("Access-Control-Allow-Origin", headers)
            if file != "/":
                self.assertEqual(body, (ROOT / "tools/vela/view/page" / file[1:]).read_bytes())
        # Nothing of the page comes from elsewhere.
        for file in (ROOT / "tools/vela/view/page").iterdir():
            self.assertNotRegex(file.read_text().replace("http://www.w3.org/2000/svg", ""), "https?://", file.name)

    def test_it_listens_on_this_machine_alone_unless_told_otherwise(self):
        server = self.serve(*SMALL)
        self.assertEqual(server.host, "127.0.0.1")
        self.assertNotIn("--bind", server.end()[1])
        other = self.serve(*SMALL, "--bind", "0.0.0.0")
        other.host = "127.0.0.1"
        self.assertEqual(other.get("/")[0], 200)
        self.assertIn("it is not encrypted", other.end()[1])

    def test_where_it_cannot_listen(self):
        with socket.create_server(("127.0.0.1", 0)) as taken:
            done = run("view", self.scene, "--port", taken.getsockname()[1])
        self.assertEqual(done.returncode, 1)
        self.assertRegex(done.stderr.decode(), "cannot serve the page: 127.0.0.1 port \\d+: .*; try another --port, or none")
        self.assertIn(b"in numbers", run("view", self.scene, "--bind", "localhost").stderr)
        self.assertEqual(run("view", self.scene, "--port", "70000").returncode, 2)
        self.assertEqual(run("view", self.at / "none.usda").returncode, 1)
        self.assertEqual(run("view", self.scene, "--camera", "/None").returncode, 1)

    def test_a_signal_ends_it_while_it_renders(self):
        for number in (signal.SIGINT, signal.SIGTERM):
            server = self.serve("--size", "4000", "--samples", "4096")
            asked = threading.Thread(target=lambda server=server: self.end_of(server))
            asked.start()
            # Until it is at work: questions are answered beside it.
            server.json("/status")
            self.assertEqual(server.end(number)[0], 0)
            asked.join(60)
            self.assertFalse(asked.is_alive())

    @staticmethod
    def end_of(server):
        try:
            server.ask("/picture", client="a", layer="rgba")
        except (http.client.HTTPException, OSError):
            pass

    def test_the_browser_is_opened_without_the_address_on_its_command_line(self):
        browser, said = self.at / "browser", self.at / "said"
        browser.write_text(f'#!/bin/sh\necho "$1" > {said}.new\ncat "$1" >> {said}.new\nmv {said}.new {said}\n')
        browser.chmod(0o755)
        server = self.serve(*SMALL, "--open", env=dict(os.environ, BROWSER=str(browser), TMPDIR=str(self.at)))
        while not said.exists():
            self.assertEqual(server.json("/status")["generation"], 1)
        name, text = said.read_text().split("\n", 1)
        self.assertNotIn(server.token, name)
        self.assertIn(server.url, text)
        self.assertEqual(pathlib.Path(name).stat().st_mode & 0o777, 0o600)
        self.assertEqual(server.end()[0], 0)
        self.assertFalse(pathlib.Path(name).exists())
        missing = self.serve(*SMALL, "--open", env=dict(os.environ, BROWSER=str(self.at / "none")))
        self.assertIn("no browser is opened", missing.end()[1])


class Pictures(Case):
    def whole(self, server, rows=7, client="a", number=1, **body):
        """The answer to a picture's last band."""
        view = server.json("/view", **body)
        height = view["height"]
        for y0 in range(0, height, rows):
            status, headers, picture = server.ask("/picture", client=client, number=number, y0=y0, y1=min(y0 + rows, height), **body)
            self.assertEqual(status, 200, picture)
            if y0 + rows < height:
                self.assertEqual(headers["Vela-Row"], str(y0))
        self.assertEqual(headers["Content-Type"], "image/png")
        return picture

    def test_a_whole_picture_is_that_of_render(self):
        server = self.serve(*SMALL)
        cases = [({}, ()), ({"camera": "/World/Side"}, ("--camera", "/World/Side")), ({"lens": "spherical"}, ("--lens", "spherical")),
                 ({"time": 5.0}, ("--time", "5")), ({"turn": 30.0}, ("--turn", "30")), ({"width": 31, "height": 20}, ("--size", "31x20")),
                 ({"samples": 9}, ("--samples", "9")), ({"invisible": True, "exclude": ["/World/Wall"]}, ("--invisible", "--exclude", "/World/Wall")),
                 ({"mask": ["/World/Box"], "smooth": True}, ("--mask", "/World/Box", "--smooth")), ({"purposes": ["proxy"]}, ("--purpose", "proxy"))]
        for number, (body, words) in enumerate(cases):
            given = [w for pair in zip(SMALL[::2], SMALL[1::2]) if pair[0] not in words for w in pair]
            with self.subTest(words):
                self.assertEqual(self.whole(server, number=number, **body), self.made("a.png", *given, *words))

    def test_each_layer_is_that_of_render(self):
        server = self.serve(*SMALL)
        layers = [row["name"] for row in server.json("/scene")["layers"]]
        self.assertLessEqual({"rgba", "depth", "N", "P", "prim", "face"}, set(layers))
        for number, layer in enumerate(layers):
            self.assertEqual(self.whole(server, number=number, layer=layer), self.made("a.png", *SMALL, "--layers", layer), layer)

    def test_options_of_the_command_line_hold(self):
        words = (*SMALL, "--background", "none", "--exposure", "1", "--view", "clip", "--lights", "own", "--pattern", "regular", "--threads", "1", "--camera", "Side")
        self.assertEqual(self.whole(self.serve(*words)), self.made("a.png", *words))

    def test_the_demo_is_that_of_render(self):
        demo = ROOT / "examples/demo/demo.usda"
        words = ("--size", "64", "--samples", "1")
        self.assertEqual(self.whole(self.serve(*words, scene=demo), rows=32), self.made("a.png", *words, scene=demo))

    def test_an_exr_is_that_of_render(self):
        server = self.serve(*SMALL)
        for body, words in (({}, ()), ({"camera": "/World/Side", "time": 3.0}, ("--camera", "Side", "--time", "3"))):
            status, headers, exr = server.ask("/exr", client="a", **body)
            self.assertEqual((status, headers["Content-Type"]), (200, "image/x-exr"))
            self.assertEqual(exr, self.made("a.exr", *SMALL, *words))

    def test_a_camera_that_was_moved(self):
        server = self.serve(*SMALL)
        view = server.json("/view", camera="/World/Eye")
        # Where it stands already it is the same picture; the bytes of an EXR say no options, for none make it.
        still = {"camera": "/World/Eye", "pose": view["matrix"], "width": 48, "height": view["height"]}
        self.assertEqual(self.whole(server, **still), self.made("a.png", *SMALL))
        exr = server.ask("/exr", client="a", **still)[2]
        self.assertNotIn(b"vela/options", exr)
        # As another camera, with its own film, from the first one's place.
        moved = list(view["matrix"])
        moved[12:15] = [1, 1, 9]
        side = self.whole(server, number=2, camera="/World/Side", pose=moved, width=48, height=24)
        self.assertEqual(side, self.made("a.png", *SMALL, "--camera", "Side"))
        for bad in ([1] * 16, [0] * 16, view["matrix"][:15], [*view["matrix"][:15], "1"], [*view["matrix"][:15], 2]):
            self.assertEqual(server.ask("/view", pose=bad)[0], 400)

    def test_depth_in_a_range(self):
        server = self.serve(*SMALL)
        plain = self.whole(server, layer="depth")
        status, headers, _ = server.ask("/picture", client="a", number=2, layer="depth")
        near, far = float(headers["Vela-Near"]), float(headers["Vela-Far"])
        self.assertAlmostEqual(near, 9.0, places=4)
        self.assertAlmostEqual(far, 12.0, places=4)
        self.assertEqual(self.whole(server, number=3, layer="depth", near=near, far=far), plain)
        self.assertNotEqual(self.whole(server, number=4, layer="depth", near=near, far=20.0), plain)

    def test_drafts_are_small_and_quick_to_make(self):
        server = self.serve(*SMALL)
        for layer in ("rgba", "N", "depth", "prim"):
            status, headers, picture = server.ask("/picture", client="a", draft=True, width=16, height=12, layer=layer)
            self.assertEqual((status, headers["Content-Type"], headers["Vela-Width"]), (200, "image/jpeg", "16"))
            self.assertEqual(picture[:3], b"\xff\xd8\xff")

    def test_what_was_asked_before_is_given_up(self):
        server = self.serve("--size", "2000", "--samples", "1024")
        answers = []
        slow = threading.Thread(target=lambda: answers.append(server.ask("/picture", client="a", number=1)))
        slow.start()
        # Another client's picture is its own affair.
        self.assertEqual(server.ask("/picture", client="b", number=9, draft=True, width=8, height=6)[0], 200)
        self.assertEqual(server.ask("/picture", client="a", number=2, draft=True, width=8, height=6)[0], 200)
        slow.join(60)
        self.assertEqual(answers[0][0], 409)
        self.assertEqual(server.ask("/picture", client="a", number=1, draft=True, width=8, height=6)[0], 409)

    def test_bands_come_from_the_top(self):
        server = self.serve(*SMALL)
        self.assertEqual(server.ask("/picture", client="a", number=1, y0=8, y1=16)[0], 409)
        self.assertEqual(server.ask("/picture", client="a", number=1, y0=0, y1=8)[0], 200)
        self.assertEqual(server.ask("/picture", client="a", number=1, y0=16, y1=24)[0], 409)
        self.assertEqual(server.ask("/picture", client="a", number=1, y0=8, y1=16, layer="N")[0], 409)


class Questions(Case):
    def test_the_scene(self):
        scene = self.serve(*SMALL).json("/scene")
        self.assertEqual(scene["file"], "scene.usda")
        self.assertEqual(scene["cameras"], ["/World/Eye", "/World/Side"])
        self.assertEqual(scene["range"], [1, 10])
        self.assertEqual((scene["defaults"]["samples"], scene["defaults"]["width"]), (4, 48))
        self.assertNotIn(str(self.at), json.dumps(scene))

    def test_pixels_are_those_of_pick_and_explain(self):
        server = self.serve(*SMALL)
        for x, y in ((24, 18), (5, 5), (0, 0)):
            place = ["--size", "48", "--pixel", f"{x},{y}", "--json"]
            body = {"rect": [x, y, x, y]}
            self.assertEqual(server.json("/pick", **body), json.loads(run("pick", self.scene, *place).stdout))
            self.assertEqual(server.json("/explain", **body), json.loads(run("explain", self.scene, *place).stdout))

    def test_rectangles_are_those_of_select(self):
        server = self.serve(*SMALL)
        run("select", self.scene, "--size", "48", "--rect", "0,0,47,35", "-o", self.at / "a.sel")
        answer = server.json("/select", rect=[0, 0, 47, 35])
        self.assertEqual(answer["selection"], (self.at / "a.sel").read_text())
        self.assertEqual({row["path"] for row in answer["report"]["objects"]}, {"/World/Wall", "/World/Box"})
        run("select", self.scene, "--size", "48", "--rect", "20,15,21,16", "--parts", "faces", "--through", "--add", self.at / "a.sel", "-o", self.at / "b.sel")
        more = server.json("/select", rect=[21, 16, 20, 15], parts="faces", through=True, selection=answer["selection"])
        self.assertEqual(more["selection"], (self.at / "b.sel").read_text())
        self.assertEqual(server.json("/select", rect=[-1, -1, -1, -1], selection=answer["selection"])["picked"], 0)
        self.assertEqual(server.ask("/select", rect=[0, 0, 1, 1], selection="geoselection { x")[0], 400)

    def test_the_tree_and_the_search_in_it(self):
        server = self.serve(*SMALL)
        self.assertEqual([row["path"] for row in server.json("/tree", path="/")["rows"]], ["/World"])
        rows = server.json("/tree", path="/World")["rows"]
        self.assertEqual([row["name"] for row in rows], ["Wall", "Box", "Behind", "Eye", "Side"])
        self.assertEqual([row["visible"] for row in rows], [True, True, False, True, True])
        self.assertEqual([row["path"] for row in server.json("/search", text="BOX")["rows"]], ["/World/Box"])
        self.assertEqual(server.json("/search", text="camera")["all"], 2)
        self.assertEqual(server.json("/search", text="none of it")["all"], 0)

    def test_a_scene_that_changes_on_disk(self):
        server = self.serve(*SMALL)
        self.assertEqual(server.json("/status"), {"changed": False, "generation": 1})
        self.scene.write_text(SCENE.replace('"Box"', '"Crate"') + "\n")
        self.assertTrue(server.json("/status")["changed"])
        server.json("/reload")
        self.assertEqual(server.json("/status"), {"changed": False, "generation": 2})
        self.assertEqual(server.json("/search", text="crate")["all"], 1)
        # One that cannot be opened leaves what is there.
        self.scene.write_text("no scene")
        status, _, said = server.ask("/reload")
        self.assertEqual(status, 422)
        self.assertIn(b"cannot open the scene", said)
        self.assertEqual(server.json("/search", text="crate")["all"], 1)

    def test_nonsense_is_refused_and_changes_nothing(self):
        server = self.serve(*SMALL)
        path = f"/{server.token}/"
        for body in ("", "{", "[]", "1", '"x"', "null", '{"camera": 1}', '{"width": 0}', '{"width": 1e9}', '{"width": 16384, "height": 16384}', '{"time": "x"}', '{"time": 1e999}',
                     '{"lens": "x"}', '{"purposes": ["x"]}', '{"exclude": 1}', '{"samples": 0}', '{"zoom": 0}', '{"subdivide": 99}', "[" * 100000):
            with self.subTest(body[:40]):
                self.assertEqual(server.request("POST", path + "view", body, JSON)[0], 400)
        self.assertEqual(server.ask("/view", camera="/None")[0], 422)
        for body in ({}, {"client": ""}, {"client": "a", "layer": "heat"}, {"client": "a", "layer": "crypto_object"}, {"client": "a", "y0": -1}, {"client": "x" * 65}):
            self.assertEqual(server.ask("/picture", **body)[0], 400, body)
        for body in ({}, {"rect": [1, 2, 3]}, {"rect": [1, 2, 3, "4"]}, {"rect": [0, 0, 1, 1], "parts": "x"}):
            self.assertEqual(server.ask("/select", **body)[0], 400, body)
        self.assertEqual(server.ask("/none")[0], 404)
        self.assertEqual(server.json("/status")["generation"], 1)

    def test_several_ask_at_once(self):
        server = self.serve(*SMALL)
        answers = []

        def ask(i):
            answers.append(server.ask("/picture", client=f"c{i}", layer=("rgba", "N")[i % 2], time=float(1 + i % 5))[0])
            answers.append(server.ask("/pick", rect=[i, i, i, i], time=float(1 + i % 5))[0])

        threads = [threading.Thread(target=ask, args=(i,)) for i in range(20)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join(120)
        self.assertEqual(answers, [200] * 40)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=1)
