#!/usr/bin/env python3
"""Which OpenAssetIO a build takes, tried with packages made for this test: a full C++ install before the Python environment's, one of
another version passed over, and a clear word where there is neither. Only the choice is tested: these packages hold no library.

Usage: check_openassetio.py PROJECT_ROOT PYTHON_ENV
"""
import pathlib
import subprocess
import sys
import tempfile
import unittest

ROOT, ENVIRONMENT = pathlib.Path(sys.argv[1]).resolve(), sys.argv[2]

PROJECT = """cmake_minimum_required(VERSION 3.25)
project(Choice LANGUAGES CXX)
list(APPEND CMAKE_MODULE_PATH "%s/cmake")
include(OpenAssetIO)
get_target_property(libraries vela_openassetio INTERFACE_LINK_LIBRARIES)
get_target_property(definitions vela_openassetio INTERFACE_COMPILE_DEFINITIONS)
message(STATUS "choice: [${libraries}] [${definitions}] [${VELA_OPENASSETIO_LIBS}]")
""" % ROOT

CONFIG = "add_library(OpenAssetIO::openassetio-core INTERFACE IMPORTED)\n"
# As packages of this kind write it: the minor version counts.
VERSION = """set(PACKAGE_VERSION "%s")
if(PACKAGE_VERSION VERSION_GREATER_EQUAL PACKAGE_FIND_VERSION AND "%s" STREQUAL "${PACKAGE_FIND_VERSION_MAJOR}.${PACKAGE_FIND_VERSION_MINOR}")
  set(PACKAGE_VERSION_COMPATIBLE TRUE)
endif()
"""


class Choice(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.at = pathlib.Path(folder.name)
        (self.at / "CMakeLists.txt").write_text(PROJECT)

    def package(self, version):
        folder = self.at / f"install-{version}"
        folder.mkdir()
        (folder / "OpenAssetIOConfig.cmake").write_text(CONFIG)
        (folder / "OpenAssetIOConfigVersion.cmake").write_text(VERSION % (version, version.rsplit(".", 1)[0]))
        return f"-DOpenAssetIO_DIR={folder}"

    def configure(self, *options):
        done = subprocess.run(["cmake", "-G", "Ninja", "-S", self.at, "-B", self.at / "build", *options], capture_output=True, text=True, timeout=300)
        return done.returncode, done.stdout, " ".join(done.stderr.split())

    def test_a_full_install_comes_first_and_brings_its_headers(self):
        code, said, _ = self.configure(self.package("1.0.3"), f"-DVELA_PYTHON_ENV={ENVIRONMENT}")
        self.assertEqual(code, 0)
        self.assertIn("choice: [OpenAssetIO::openassetio-core] [VELA_OPENASSETIO_HEADERS=1] []", said)
        self.assertIn("OpenAssetIO: " + str(self.at / "install-1.0.3"), said)

    def test_a_full_install_needs_no_environment(self):
        self.assertEqual(self.configure(self.package("1.0.2"), f"-DVELA_PYTHON_ENV={self.at}/none")[0], 0)

    def test_the_python_of_a_full_install_is_compiled_in(self):
        option = self.package("1.0.2")
        config = self.at / "install-1.0.2/OpenAssetIOConfig.cmake"
        config.write_text(CONFIG + "set(OpenAssetIO_Python_VERSION_MAJOR 3)\n"
                          "set(OpenAssetIO_Python_VERSION_MINOR 13)\n")
        code, said, _ = self.configure(option)
        self.assertEqual(code, 0)
        self.assertIn('[VELA_OPENASSETIO_HEADERS=1;VELA_OPENASSETIO_PYTHON="3.13."]', said)

    def test_another_version_is_passed_over_with_a_word(self):
        for version in ("0.9.9", "1.1.0", "2.0.0"):
            code, said, _ = self.configure(self.package(version), f"-DVELA_PYTHON_ENV={ENVIRONMENT}")
            self.assertEqual(code, 0)
            self.assertIn(f"OpenAssetIOConfig.cmake is passed over: it is version {version}, and 1.0 is needed", said)
            self.assertIn("choice: [vela_openassetio_core] [VELA_OPENASSETIO_PYTHON=", said)

    def test_without_either_the_advice_is_clear(self):
        code, _, said = self.configure(f"-DVELA_PYTHON_ENV={self.at}/none")
        self.assertNotEqual(code, 0)
        self.assertIn(f"OpenAssetIO was not found in {self.at}/none. Run scripts/setup", said)
        self.assertIn("or give a C++ install of OpenAssetIO 1.0 with -DOpenAssetIO_DIR=", said)

    def test_an_environment_of_another_version_is_refused(self):
        (self.at / "env/lib/python3.11/site-packages/openassetio-1.1.0.dist-info").mkdir(parents=True)
        code, _, said = self.configure(f"-DVELA_PYTHON_ENV={self.at}/env")
        self.assertNotEqual(code, 0)
        self.assertIn("OpenAssetIO 1.0 is needed and ", said)
        (self.at / "env/lib/python3.11/site-packages/openassetio-1.1.0.dist-info").rename(
            self.at / "env/lib/python3.11/site-packages/openassetio-1.0.9.dist-info")
        code, _, said = self.configure(f"-DVELA_PYTHON_ENV={self.at}/env")
        self.assertNotEqual(code, 0)
        self.assertIn("holds no libopenassetio.so.1.0", said)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
