#!/usr/bin/env python3
"""scripts/check-abi tells what callers notice from what they do not: tried with small libraries.

Usage: check_abi_rules.py PROJECT_ROOT
"""
import contextlib
import importlib.machinery
import importlib.util
import io
import pathlib
import subprocess
import sys
import tempfile
import unittest

SCRIPT = pathlib.Path(sys.argv[1]).resolve() / "scripts/check-abi"
loader = importlib.machinery.SourceFileLoader("check_abi", str(SCRIPT))
check_abi = importlib.util.module_from_spec(importlib.util.spec_from_loader("check_abi", loader))
loader.exec_module(check_abi)

BEFORE = """struct Options { int size; };
int measure(const Options& options) { return options.size; }
int forget() { return 0; }
"""


class Rules(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.at = pathlib.Path(folder.name)

    def interface(self, name, text, soname):
        library, file = self.at / f"{name}.so", self.at / f"{name}.abi"
        # A type counts when a public header of the project, known by its name, declares it.
        header = self.at / "Stage.h"
        header.write_text(text)
        subprocess.run(["g++", "-g", "-shared", "-fPIC", "-x", "c++", header, "-x",
                        "none", f"-Wl,-soname,{soname}", "-o", library], check=True)
        check_abi.write_interface(library, file)
        return file

    def compare(self, text, soname="libvela.so.0.2"):
        kept = self.interface("kept", BEFORE, "libvela.so.0.2")
        said = io.StringIO()
        with contextlib.redirect_stdout(said):
            fine = check_abi.compare(kept, self.interface("present", text, soname))
        return fine, said.getvalue()

    def test_the_same_interface_serves(self):
        fine, said = self.compare(BEFORE)
        self.assertTrue(fine)
        self.assertEqual(said, "libvela.so.0.2: serves callers of libvela.so.0.2\n")

    def test_a_new_function_serves(self):
        self.assertTrue(self.compare(BEFORE + "int remember() { return 1; }")[0])

    def test_a_function_that_is_gone_is_a_fault(self):
        fine, said = self.compare(BEFORE.replace("int forget() { return 0; }", ""))
        self.assertFalse(fine)
        self.assertIn("forget", said)

    def test_another_layout_is_a_fault(self):
        fine, said = self.compare(BEFORE.replace("int size;", "double scale; int size;"))
        self.assertFalse(fine)
        self.assertIn("Options", said)

    def test_under_another_soname_it_is_a_report(self):
        fine, said = self.compare("int remember() { return 1; }", "libvela.so.0.3")
        self.assertTrue(fine)
        self.assertIn("libvela.so.0.3: is another interface than libvela.so.0.2", said)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
