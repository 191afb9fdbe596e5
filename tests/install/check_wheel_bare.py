#!/usr/bin/env python3
"""The wheel of scripts/build-wheel on a bare Debian 12, made by debootstrap, with nothing but python3-venv: it installs without a
network, imports, renders, and its command runs. Needs root, and a minute.

Usage: check_wheel_bare.py FOLDER_OF_THE_WHEEL PROJECT_ROOT
"""

import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

PROGRAM = """
import numpy, vela
picture = vela.render("/demo/demo.usda", size=(64, 36), layers=["rgba", "depth"], samples=1)
assert picture["depth"].shape == (36, 64) and numpy.isfinite(picture["rgba"]).all()
for name in ("a.exr", "a.png", "a.jpg"):
    picture.save("/tmp/" + name)
assert vela.ovo.try_scene("/demo/demo.usda").outcome.name == "OPENS"
print(vela.version())
"""


def run(*command):
    done = subprocess.run([str(part) for part in command], capture_output=True, text=True, timeout=900)
    assert done.returncode == 0, f"{command}: exit code {done.returncode}\n{done.stdout}{done.stderr}"
    return done.stdout


def mirror():
    """Where this machine's own packages come from."""
    for file in [*pathlib.Path("/etc/apt/sources.list.d").glob("*.sources"), pathlib.Path("/etc/apt/sources.list")]:
        found = re.search(r"^(?:URIs: |deb (?:\[.*?\] )?)(\S+)", file.read_text(), re.M) if file.is_file() else None
        if found:
            return found[1]
    raise SystemExit("check_wheel_bare: no source of Debian packages is set up")


def main():
    folder, project = (pathlib.Path(text).resolve() for text in sys.argv[1:3])
    wheel, = folder.glob("vela-*.whl")
    with tempfile.TemporaryDirectory(prefix="vela-bare-") as scratch:
        root = pathlib.Path(scratch) / "root"
        run("debootstrap", "--variant=minbase", "--include=python3-venv", "bookworm", root, mirror())
        (root / "wheels").mkdir()
        shutil.copy(wheel, root / "wheels")
        # What the wheel needs, as pip chooses it; within the root there is no network.
        run(project / "build/env/bin/python", "-m", "pip", "--disable-pip-version-check", "-q", "download", "-d", root / "wheels", "--only-binary",
            ":all:", wheel)
        shutil.copytree(project / "examples/demo", root / "demo")
        inside = ["chroot", root, "/usr/bin/env", "-i", "PATH=/usr/sbin:/usr/bin:/sbin:/bin", "HOME=/root", "LANG=C.UTF-8"]
        # Where processes see themselves, as on any machine.
        run("mount", "-t", "proc", "proc", root / "proc")
        try:
            run(*inside, "python3", "-m", "venv", "/env")
            run(*inside, "/env/bin/pip", "--disable-pip-version-check", "-q", "install", "--no-index", "--find-links", "/wheels", "vela")
            version = run(*inside, "/env/bin/python", "-c", PROGRAM).strip()
            assert all((root / "tmp" / name).stat().st_size > 100 for name in ("a.exr", "a.png", "a.jpg"))
            assert run(*inside, "/env/bin/vela", "--version").split()[-1] == version
            run(*inside, "/env/bin/vela", "render", "/demo/demo.usda", "-o", "/tmp/b.exr", "--size", "16x16")
        finally:
            run("umount", root / "proc")
        packages = len(list((root / "var/lib/dpkg/info").glob("*.list")))
    print(f"{wheel.name}: installed on a Debian 12 of {packages} packages, rendered by Python and by the command")


if __name__ == "__main__":
    sys.exit(main())
