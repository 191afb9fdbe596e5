#!/usr/bin/env python3
"""The packaged library within a host that has its own OpenUSD, TBB, Embree and Python: whatever is
loaded first, each gives what it gives alone, and the process ends well.

Usage: check_isolation.py PACKAGES PROJECT_ROOT

PACKAGES is the folder that scripts/package writes. Other OpenUSDs are the usd-core-* folders in
build/peers, which scripts/setup fetches; at least one must be there.
"""
import itertools
import json
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

PACKAGES, ROOT = (pathlib.Path(a).resolve() for a in sys.argv[1:3])
SCENE = ROOT / "examples/demo/demo.usda"

# The host: does its steps in order and prints what each found. "both" opens the scene through both
# OpenUSDs at the same time, from two threads.
HOST = """
import ctypes, json, sys, threading
guest_file, peer_file, scene, mode, *steps = sys.argv[1:]
mode = getattr(ctypes, mode)
held = {}

def library(file):
    if file not in held:
        held[file] = ctypes.CDLL(file, mode=mode)
    return held[file]

def guest():
    look = library(guest_file).guestLook
    look.argtypes = [ctypes.c_char_p, ctypes.POINTER(ctypes.c_double)]
    distance = ctypes.c_double()
    return [look(scene.encode(), ctypes.byref(distance)), distance.value]

def peer():
    look = library(peer_file).peerLook
    look.restype = ctypes.c_double
    return look()

def usd():
    from pxr import Usd, UsdGeom
    stage = Usd.Stage.Open(scene)
    meshes = [p for p in stage.Traverse() if p.IsA(UsdGeom.Mesh)]
    points = sum(len(UsdGeom.Mesh(m).GetPointsAttr().Get()) for m in meshes)
    return [Usd.GetVersion()[1], len(meshes), points]

def both():
    found = []
    work = threading.Thread(target=lambda: found.extend(guest() for _ in range(10)))
    work.start()
    own = [usd() for _ in range(10)]
    work.join()
    assert len(found) == 10 and all(f == found[0] for f in found), found
    assert all(o == own[0] for o in own), own
    return [found[0], own[0]]

def close():
    # The plug-in alone: Debian's TBB ends a process that unmaps it, with or without another one.
    import _ctypes
    _ctypes.dlclose(held.pop(guest_file)._handle)
    return "closed"

print(json.dumps([globals()[step]() for step in steps]))
"""


def run(*command, **options):
    done = subprocess.run([str(c) for c in command], capture_output=True, text=True, timeout=300,
                          **options)
    if done.returncode != 0:
        raise AssertionError(f"{' '.join(map(str, command))}\nended with {done.returncode}\n"
                             f"{done.stdout}\n{done.stderr}")
    return done


class Isolation(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.scratch = pathlib.Path(tempfile.mkdtemp())
        cls.addClassCleanup(shutil.rmtree, cls.scratch, True)
        [archive] = PACKAGES.glob("vela-*-linux-x86_64.tar.gz")
        run("tar", "-xzf", archive, "-C", cls.scratch)
        [cls.tree] = cls.scratch.glob("vela-*")
        shutil.copytree(ROOT / "tests/install/guest", cls.scratch / "source")
        run("cmake", "-G", "Ninja", "-S", cls.scratch / "source", "-B", cls.scratch / "build",
            f"-DCMAKE_PREFIX_PATH={cls.tree}")
        run("cmake", "--build", cls.scratch / "build")
        peers = sorted((ROOT / "build/peers").glob("usd-core-*"))
        cls.others = {p.name.removeprefix("usd-core-"): p for p in peers}
        assert cls.others, "no usd-core in build/peers: run scripts/setup work"
        cls.alone = {step: cls.host(list(cls.others)[0], "RTLD_LOCAL", step)[0]
                     for step in ("guest", "peer")}
        cls.alone_usd = {v: cls.host(v, "RTLD_LOCAL", "usd")[0] for v in cls.others}
        assert cls.alone["guest"][0] > 1 and cls.alone["peer"] > 0, cls.alone

    @classmethod
    def host(cls, version, mode, *steps):
        environment = {"PATH": "/usr/bin:/bin", "PYTHONPATH": str(cls.others[version]),
                       "LANG": "C.UTF-8"}
        done = run(sys.executable, "-c", HOST, cls.scratch / "build/libguest.so",
                   cls.scratch / "build/libpeer.so", SCENE, mode, *steps, env=environment)
        assert not done.stderr, f"{version} {mode} {steps}: {done.stderr}"
        return json.loads(done.stdout)

    def check(self, version, mode, *steps):
        expected = {**self.alone, "usd": self.alone_usd[version], "close": "closed"}
        expected["both"] = [expected["guest"], expected["usd"]]
        with self.subTest(version=version, mode=mode, steps=steps):
            self.assertEqual(self.host(version, mode, *steps), [expected[s] for s in steps])

    def modes(self):
        return itertools.product(self.others, ("RTLD_LOCAL", "RTLD_GLOBAL"))

    def test_another_openusd_first_and_last(self):
        for version, mode in self.modes():
            self.check(version, mode, "usd", "guest", "usd", "guest")
            self.check(version, mode, "guest", "usd", "guest", "usd")

    def test_another_openusd_at_the_same_time(self):
        for version, mode in self.modes():
            self.check(version, mode, "both")

    def test_another_tbb_and_embree_first_and_last(self):
        for mode in ("RTLD_LOCAL", "RTLD_GLOBAL"):
            version = list(self.others)[0]
            self.check(version, mode, "peer", "guest", "peer", "guest")
            self.check(version, mode, "guest", "peer", "guest", "peer")

    def test_all_of_them_in_any_order(self):
        for version, mode in self.modes():
            for steps in itertools.permutations(("usd", "guest", "peer")):
                self.check(version, mode, *steps)

    def test_it_is_closed_and_the_host_goes_on(self):
        for version, mode in self.modes():
            self.check(version, mode, "guest", "peer", "close", "usd", "guest", "close")
        for mode in ("RTLD_LOCAL", "RTLD_GLOBAL"):
            self.check(list(self.others)[0], mode, "guest", "close")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
