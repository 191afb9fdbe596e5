#!/usr/bin/env python3
"""The packages of scripts/package on a bare Debian 12, made by debootstrap: the command renders a scene, a .usdz and an asset
reference; the README's program is built and run; and what was installed goes without a trace. Then the archive, unpacked into a
root of its own. Needs root, a network for Debian's packages, and some minutes.

Usage: check_package_bare.py FOLDER_OF_THE_PACKAGES PROJECT_ROOT
"""

import pathlib
import re
import shutil
import struct
import sys
import zipfile

from bare_root import bare_root, run

# OpenAssetIO of a machine's own Python, and a manager in it, as users of references have them.
MANAGER = ("openassetio", "openassetio-mediacreation", "openassetio-manager-bal")
CONSUMER = """cmake_minimum_required(VERSION 3.25)
project(program LANGUAGES CXX)
find_package(Vela REQUIRED)
add_executable(program main.cpp)
target_link_libraries(program PRIVATE Vela::vela)
"""


def write_usdz(path, folder):
    """The demo as one file: entries are stored as they are and begin at multiples of 64 bytes, the root layer first."""
    files = sorted((file for file in folder.rglob("*") if file.suffix in (".usda", ".png", ".jpg")),
                   key=lambda file: (file.name != "demo.usda", file.as_posix()))
    with zipfile.ZipFile(path, "w", zipfile.ZIP_STORED) as package:
        for file in files:
            entry = zipfile.ZipInfo(file.relative_to(folder).as_posix())
            header = package.fp.tell() + 30 + len(entry.filename.encode())
            gap = -header % 64
            if gap:
                # A field of zeros; its own head has four bytes.
                size = gap - 4 if gap >= 4 else gap + 60
                entry.extra = struct.pack("<HH", 0x1986, size) + bytes(size)
            package.writestr(entry, file.read_bytes())


def is_picture(file):
    return file.read_bytes()[:4] in (b"v/1\x01", b"\x89PNG") and file.stat().st_size > 1000


def check_packages(packages, project):
    readme = (project / "README.md").read_text()
    program, = re.findall(r"```cpp\n(.*?)```", readme, re.S)
    with bare_root() as root:
        root.connect()
        before = root.files()
        (root.path / "packages").mkdir()
        for file in packages.glob("*.deb"):
            shutil.copy(file, root.path / "packages")
        names = sorted(f"/packages/{file.name}" for file in packages.glob("*.deb") if "-dev_" not in file.name)
        assert len(names) >= 3, names
        root.install(*names)
        for tool in ("c++", "g++", "gcc", "cmake", "python3"):
            assert not list((root.path / "usr/bin").glob(tool)), f"{tool} is there"

        work = root.path / "trial"
        shutil.copytree(project / "examples", work / "examples")
        write_usdz(work / "demo.usdz", project / "examples/demo")
        small = ("--size", "96x54", "--samples", "1")
        root.run("vela", "render", "/trial/examples/demo/demo.usda", "-o", "/trial/a.exr", *small)
        root.run("vela", "render", "/trial/demo.usdz", "-o", "/trial/b.png", *small)
        root.run("vela", "render", "/trial/examples/demo/demo.usda", "-o", "/trial/c.png", *small)
        assert is_picture(work / "a.exr") and is_picture(work / "c.png")
        assert (work / "b.png").read_bytes() == (work / "c.png").read_bytes(), "the package shows another picture than its files"

        # References: an interpreter, and a manager in it, come when somebody wants them.
        root.install("python3-venv", "libpython3.11")
        root.run("python3", "-m", "venv", "/env")
        pins = dict(re.findall(r"^([\w-]+)==(\S+)$", (project / "scripts/requirements.txt").read_text(), re.M))
        manager = [f"{name}=={pins[name]}" for name in MANAGER]
        run(project / "build/env/bin/python", "-m", "pip", "--disable-pip-version-check", "-q", "download", "-d", root.path / "wheels",
            "--only-binary", ":all:", *manager)
        root.run("/env/bin/pip", "--disable-pip-version-check", "-q", "install", "--no-index", "--find-links", "/wheels", *manager)
        resolving = ("env", "VELA_PYTHON=/env/bin/python3",
                     "OPENASSETIO_DEFAULT_CONFIG=/trial/examples/assets/openassetio.toml")
        root.run(*resolving, "vela", "render", "bal:///demo/still-life", "-o", "/trial/d.png", *small)
        assert (work / "d.png").read_bytes() == (work / "c.png").read_bytes()

        # The README's program, from the installed files.
        development = [f"/packages/{file.name}" for file in packages.glob("*-dev_*.deb")]
        root.install(*development, "g++", "cmake", "make")
        (work / "program").mkdir()
        (work / "program/main.cpp").write_text(program)
        (work / "program/CMakeLists.txt").write_text(CONSUMER)
        root.run("cmake", "-S", "/trial/program", "-B", "/trial/program/build")
        root.run("cmake", "--build", "/trial/program/build")
        said = root.run("sh", "-c", "cd /trial && program/build/program")
        assert len(said.split()) >= 3, said

        # Gone again: nothing of the project is left, not even what a program compiled as it ran.
        ours = [line.split()[0] for line in root.run("dpkg-query", "-W", "-f", "${Package} ${Version}\n").splitlines() if "vela" in line]
        root.run("apt-get", "purge", "-y", "-qq", *ours)
        left = {name for name in root.files() - before if "vela" in name.lower() and not name.startswith(("/trial/", "/packages/", "/env/"))}
        assert not left, f"left behind: {sorted(left)}"
    print(f"{len(names) + len(development)} packages: installed, rendered a scene, a .usdz and a reference, built a program, removed")


def check_archive(packages, project):
    archive, = packages.glob("vela-*-linux-x86_64.tar.gz")
    with bare_root() as root:
        # Without a package of Debian's but the smallest system: the C++ library is of it, libm of libc6.
        (root.path / "opt/anywhere").mkdir(parents=True)
        run("tar", "-xzf", archive, "-C", root.path / "opt/anywhere", "--strip-components=1")
        shutil.copytree(project / "examples/demo", root.path / "demo")
        root.run("/opt/anywhere/bin/vela", "render", "/demo/demo.usda", "-o", "/demo/a.exr", "--png", "/demo/a.png", "--size", "96x54",
                 "--samples", "1")
        assert is_picture(root.path / "demo/a.exr") and is_picture(root.path / "demo/a.png")
    print(f"{archive.name}: unpacked on the smallest Debian 12, rendered")


if __name__ == "__main__":
    folder, root_of_project = (pathlib.Path(text).resolve() for text in sys.argv[1:3])
    check_packages(folder, root_of_project)
    check_archive(folder, root_of_project)
