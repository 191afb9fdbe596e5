#!/usr/bin/env python3
"""Installs into an empty prefix, then builds and runs consumers of what is there, by find_package and by pkg-config: one of libvela
alone, one of libvela_picture.

Usage: check_install.py BUILD_DIR CONSUMERS CXX    (CONSUMERS: the folder of their sources)
"""
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile


def run(*command, **options):
    done = subprocess.run([str(c) for c in command], capture_output=True, text=True, **options)
    if done.returncode != 0:
        sys.exit(f"{' '.join(map(str, command))}\nfailed with {done.returncode}\n{done.stdout}\n{done.stderr}")
    return done.stdout.strip()


def check_consumer(name, package, expected, source, scratch, prefix, compiler):
    """Builds and runs the consumer in the folder \p name. The sources' headers must not be in reach: only the prefix is."""
    consumer = pathlib.Path(scratch, name)
    shutil.copytree(source / name, consumer)
    run("cmake", "-G", "Ninja", "-S", consumer, "-B", consumer / "build", f"-DCMAKE_PREFIX_PATH={prefix}", f"-DCMAKE_CXX_COMPILER={compiler}")
    run("cmake", "--build", consumer / "build")
    said = run(consumer / "build/consumer")
    assert said == expected, f"{name} by find_package: {said!r}"

    environment = dict(os.environ, PKG_CONFIG_PATH=str(prefix / "lib/pkgconfig"))
    flags = run("pkg-config", "--cflags", "--libs", package, env=environment).split()
    run(compiler, "-std=c++17", consumer / "main.cpp", *flags, f"-Wl,-rpath,{prefix}/lib", "-o", consumer / "by_pkg_config")
    said = run(consumer / "by_pkg_config")
    assert said == expected, f"{name} by pkg-config: {said!r}"


def needed_libraries(file):
    return re.findall(r"NEEDED.*\[(.*?)\]", run("readelf", "-d", file))


def main():
    build, source, compiler = map(pathlib.Path, sys.argv[1:4])
    version = [l for l in (build / "CMakeCache.txt").read_text().splitlines() if l.startswith("CMAKE_PROJECT_VERSION:")][0].split("=")[1]
    with tempfile.TemporaryDirectory() as scratch:
        prefix = pathlib.Path(scratch, "prefix")
        run("cmake", "--install", build, "--prefix", prefix)
        for path in ("include/tarn/Vec.h", "include/ovo/Stage.h", "include/vela/vela.h", "include/vela/picture/picture.h", "lib/libvela.so",
                     "lib/libvela_picture.so", "bin/vela", "lib/cmake/Vela/VelaConfig.cmake", "lib/pkgconfig/vela.pc",
                     "lib/pkgconfig/vela-picture.pc"):
            assert (prefix / path).exists(), f"{path} was not installed"
        private = [str(p.relative_to(prefix)) for p in prefix.rglob("detail")]
        assert not private, f"private headers were installed: {private}"
        pictures = [n for n in needed_libraries(prefix / "lib/libvela.so") if re.search("OpenEXR|Imath|png", n)]
        assert not pictures, f"libvela needs what only pictures need: {pictures}"

        check_consumer("consumer", "vela", f"vela {version} hit at distance 3", source, scratch, prefix, compiler)
        check_consumer("picture_consumer", "vela-picture", "a picture of 32 x 18 pixels, rgba depth, OpenEXR and PNG", source, scratch,
                       prefix, compiler)

        said = run(prefix / "bin/vela", "--version")
        assert version in said, f"vela --version: {said!r}"

        examples = pathlib.Path(__file__).resolve().parents[2] / "examples"
        # As ovo::tryScene() starts it: limits of memory, prims, files, arcs, chains and depth; the root; the file.
        said = run(prefix / "lib/vela/scene-trial", "0", "1", "100", "100", "1000", "10", "10", "", str(examples / "demo/demo.usda"))
        assert said.startswith("opens"), f"scene-trial: {said!r}"
        environment = dict(os.environ, OPENASSETIO_DEFAULT_CONFIG=str(examples / "assets/openassetio.toml"))
        said = run(prefix / "bin/vela", "resolve", "bal:///demo/still-life", env=environment, cwd=scratch)
        assert said == str(examples / "demo/demo.usda"), f"vela resolve: {said!r}"
    print(f"vela {version} is installed, found and used")


if __name__ == "__main__":
    main()
