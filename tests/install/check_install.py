#!/usr/bin/env python3
"""Installs into an empty prefix, then builds and runs a consumer of what is there: by find_package and by pkg-config.

Usage: check_install.py BUILD_DIR CONSUMER_SOURCE CXX
"""
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile


def run(*command, **options):
    done = subprocess.run([str(c) for c in command], capture_output=True, text=True, **options)
    if done.returncode != 0:
        sys.exit(f"{' '.join(map(str, command))}\nfailed with {done.returncode}\n{done.stdout}\n{done.stderr}")
    return done.stdout.strip()


def main():
    build, source, compiler = map(pathlib.Path, sys.argv[1:4])
    expected = f"vela {[l for l in (build / 'CMakeCache.txt').read_text().splitlines() if l.startswith('CMAKE_PROJECT_VERSION:')][0].split('=')[1]} hit at distance 3"
    with tempfile.TemporaryDirectory() as scratch:
        prefix, consumer = pathlib.Path(scratch, "prefix"), pathlib.Path(scratch, "consumer")
        run("cmake", "--install", build, "--prefix", prefix)
        for path in ("include/tarn/Vec.h", "include/ovo/Stage.h", "include/vela/vela.h", "lib/libvela.so", "bin/vela",
                     "lib/cmake/Vela/VelaConfig.cmake", "lib/pkgconfig/vela.pc"):
            assert (prefix / path).exists(), f"{path} was not installed"
        private = [str(p.relative_to(prefix)) for p in prefix.rglob("detail")]
        assert not private, f"private headers were installed: {private}"

        # The sources' headers must not be in reach: only the prefix is.
        shutil.copytree(source, consumer)
        run("cmake", "-G", "Ninja", "-S", consumer, "-B", consumer / "build", f"-DCMAKE_PREFIX_PATH={prefix}", f"-DCMAKE_CXX_COMPILER={compiler}")
        run("cmake", "--build", consumer / "build")
        said = run(consumer / "build/consumer")
        assert said == expected, f"by find_package: {said!r}"

        environment = dict(os.environ, PKG_CONFIG_PATH=str(prefix / "lib/pkgconfig"))
        flags = run("pkg-config", "--cflags", "--libs", "vela", env=environment).split()
        run(compiler, "-std=c++17", consumer / "main.cpp", *flags, f"-Wl,-rpath,{prefix}/lib", "-o", consumer / "by_pkg_config")
        said = run(consumer / "by_pkg_config")
        assert said == expected, f"by pkg-config: {said!r}"

        said = run(prefix / "bin/vela", "--version")
        assert expected.split()[1] in said, f"vela --version: {said!r}"

        examples = pathlib.Path(__file__).resolve().parents[2] / "examples"
        environment = dict(os.environ, OPENASSETIO_DEFAULT_CONFIG=str(examples / "assets/openassetio.toml"))
        said = run(prefix / "bin/vela", "resolve", "bal:///demo/still-life", env=environment, cwd=scratch)
        assert said == str(examples / "demo/demo.usda"), f"vela resolve: {said!r}"
    print(expected)


if __name__ == "__main__":
    main()
