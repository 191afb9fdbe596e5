#!/usr/bin/env python3
"""The wheel of scripts/build-wheel on a bare Debian 12, made by debootstrap, with nothing but python3-venv: it installs without a
network, imports, renders, and its command runs. Needs root, and a minute.

Usage: check_wheel_bare.py FOLDER_OF_THE_WHEEL PROJECT_ROOT
"""

import pathlib
import shutil
import sys

from bare_root import bare_root, run

PROGRAM = """
import numpy, vela
picture = vela.render("/demo/demo.usda", size=(64, 36), layers=["rgba", "depth"], samples=1)
assert picture["depth"].shape == (36, 64) and numpy.isfinite(picture["rgba"]).all()
for name in ("a.exr", "a.png", "a.jpg"):
    picture.save("/tmp/" + name)
assert vela.ovo.try_scene("/demo/demo.usda").outcome.name == "OPENS"
print(vela.version())
"""


def main():
    folder, project = (pathlib.Path(text).resolve() for text in sys.argv[1:3])
    wheel, = folder.glob("vela-*.whl")
    with bare_root("python3-venv") as root:
        (root.path / "wheels").mkdir()
        shutil.copy(wheel, root.path / "wheels")
        # What the wheel needs, as pip chooses it; within the root there is no network.
        run(project / "build/env/bin/python", "-m", "pip", "--disable-pip-version-check", "-q", "download", "-d", root.path / "wheels",
            "--only-binary", ":all:", wheel)
        shutil.copytree(project / "examples/demo", root.path / "demo")
        root.run("python3", "-m", "venv", "/env")
        root.run("/env/bin/pip", "--disable-pip-version-check", "-q", "install", "--no-index", "--find-links", "/wheels", "vela")
        version = root.run("/env/bin/python", "-c", PROGRAM).strip()
        assert all((root.path / "tmp" / name).stat().st_size > 100 for name in ("a.exr", "a.png", "a.jpg"))
        assert root.run("/env/bin/vela", "--version").split()[-1] == version
        root.run("/env/bin/vela", "render", "/demo/demo.usda", "-o", "/tmp/b.exr", "--size", "16x16")
        packages = len(list((root.path / "var/lib/dpkg/info").glob("*.list")))
    print(f"{wheel.name}: installed on a Debian 12 of {packages} packages, rendered by Python and by the command")


if __name__ == "__main__":
    sys.exit(main())
