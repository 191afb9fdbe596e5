#!/usr/bin/env python3
"""Consumers of an install in an empty prefix: each CMake from 3.16 on that is there, each compiler,
each level of the language, and the project as a part of another one.

Usage: check_consumers.py BUILD_DIR|ARCHIVE PROJECT_ROOT

BUILD_DIR is installed, ARCHIVE (a .tar.gz of scripts/package) is unpacked. CMakes of other versions are looked for in
build/peers/cmake-*; scripts/setup puts them there. Compilers are g++ and whatever clang++ and
clang++-NN are on the PATH. A version that is absent is named in the output, and passed over.
"""
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

BUILD, ROOT = (pathlib.Path(a).resolve() for a in sys.argv[1:3])
OLD_CMAKES = ("3.16", "3.22")
# Each with its pkg-config package and what it says.
CONSUMERS = {"consumer": ("vela", "hit at distance 3"), "picture_consumer": ("vela-picture", "a picture of 32 x 18 pixels")}
LEVELS = ("c++17", "c++20", "c++23")
WARNINGS = ("-Wall", "-Wextra", "-Wpedantic", "-Wconversion", "-Wshadow", "-Werror")


def run(*command, **options):
    done = subprocess.run([str(c) for c in command], capture_output=True, text=True, **options)
    if done.returncode != 0:
        raise AssertionError(f"{' '.join(map(str, command))}\nfailed with {done.returncode}\n{done.stdout}\n{done.stderr}")
    return done.stdout.strip()


def compilers():
    """Every compiler of the PATH, each once."""
    found = {}
    for folder in os.environ["PATH"].split(os.pathsep):
        for file in sorted(pathlib.Path(folder).glob("*")) if pathlib.Path(folder).is_dir() else []:
            if re.fullmatch(r"(g|clang)\+\+(-\d+)?", file.name) and os.access(file, os.X_OK):
                found.setdefault(file.resolve(), file)
    return sorted(found.values())


class Consumers(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.scratch = pathlib.Path(tempfile.mkdtemp())
        cls.addClassCleanup(shutil.rmtree, cls.scratch, True)
        cls.prefix = cls.scratch / "prefix"
        if BUILD.is_dir():
            run("cmake", "--install", BUILD, "--prefix", cls.prefix)
        else:
            run("tar", "-xzf", BUILD, "-C", cls.scratch)
            [unpacked] = cls.scratch.iterdir()
            unpacked.rename(cls.prefix)
        cls.source = cls.scratch / "consumer"
        for name in CONSUMERS:
            shutil.copytree(ROOT / "tests/install" / name, cls.scratch / name)

    def build(self, name, cmake, *options):
        for consumer, (_, expected) in CONSUMERS.items():
            folder = self.scratch / name / consumer
            run(cmake, "-G", "Ninja", "-S", self.scratch / consumer, "-B", folder, f"-DCMAKE_PREFIX_PATH={self.prefix}", *options)
            run(cmake, "--build", folder)
            self.assertIn(expected, run(folder / "consumer"))

    def test_by_find_package_of_this_cmake(self):
        self.build("today", "cmake")

    def test_by_find_package_of_older_cmakes(self):
        for version in OLD_CMAKES:
            with self.subTest(version=version):
                there = sorted((ROOT / "build/peers").glob(f"cmake-{version}.*/cmake/data/bin/cmake"))
                if not there:
                    print(f"passed over: no CMake {version} in build/peers")
                    continue
                self.build(f"cmake-{version}", there[0])

    def test_a_component_that_does_not_exist(self):
        with self.assertRaisesRegex(AssertionError, "has no component 'nonsense'"):
            self.build("nonsense", "cmake", "-DVELA_COMPONENTS=nonsense")

    def test_headers_are_silent_for_every_compiler_and_level(self):
        environment = dict(os.environ, PKG_CONFIG_PATH=str(self.prefix / "lib/pkgconfig"))
        flags = run("pkg-config", "--cflags", "vela-picture", env=environment).split()
        used = compilers()
        self.assertTrue(used, "no compiler is on the PATH")
        for compiler in used:
            levels = [level for level in LEVELS
                      if subprocess.run([compiler, f"-std={level}", "-fsyntax-only", "-x", "c++", os.devnull], capture_output=True).returncode == 0]
            self.assertIn("c++17", levels)
            for level in levels:
                for consumer in CONSUMERS:
                    with self.subTest(compiler=compiler.name, level=level, consumer=consumer):
                        run(compiler, f"-std={level}", *WARNINGS, "-fsyntax-only", *flags, self.scratch / consumer / "main.cpp")
        print("compilers:", *(c.name for c in used))

    def test_by_pkg_config_with_every_compiler(self):
        environment = dict(os.environ, PKG_CONFIG_PATH=str(self.prefix / "lib/pkgconfig"))
        for compiler in compilers():
            for consumer, (package, expected) in CONSUMERS.items():
                with self.subTest(compiler=compiler.name, consumer=consumer):
                    flags = run("pkg-config", "--cflags", "--libs", package, env=environment).split()
                    program = self.scratch / f"{consumer}_{compiler.name}"
                    run(compiler, "-std=c++17", self.scratch / consumer / "main.cpp", *flags, f"-Wl,-rpath,{self.prefix}/lib", "-o", program)
                    self.assertIn(expected, run(program))

    def test_as_a_part_of_another_project(self):
        self.check_part("subdirectory", f'add_subdirectory("{ROOT}" vela)')

    def test_as_fetched_content(self):
        self.check_part("fetched", f'''include(FetchContent)
FetchContent_Declare(vela SOURCE_DIR "{ROOT}")
FetchContent_MakeAvailable(vela)''')

    def check_part(self, name, command):
        outer = self.scratch / name
        outer.mkdir()
        (outer / "CMakeLists.txt").write_text(f"""cmake_minimum_required(VERSION 3.25)
project(Outer LANGUAGES CXX)
set(VELA_PYTHON_ENV "{ROOT}/build/env" CACHE PATH "")
{command}
add_executable(outer "{self.source}/main.cpp")
target_link_libraries(outer PRIVATE Vela::vela)
foreach(target IN ITEMS vela-command vela_test_support)
  if(TARGET ${{target}})
    message(FATAL_ERROR "${{target}} is made for a project that asks for the library alone")
  endif()
endforeach()
""")
        run("cmake", "-G", "Ninja", "-S", outer, "-B", outer / "build")
        # Its headers are found; the library is not built once more for this.
        run("cmake", "--build", outer / "build", "--target", "CMakeFiles/outer.dir" + str(self.source / "main.cpp") + ".o")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
