"""vela selftest: the numbers that docs/CONVENTIONS.md publishes, on any number of threads and by every variant of the C library's mathematics.

test_selftest.py COMMAND SOURCE
"""

import os
import pathlib
import re
import subprocess
import sys
import unittest

COMMAND, SOURCE = sys.argv[1], pathlib.Path(sys.argv[2])
# The C library has variants of its functions for processors with fused multiplication; names of before 2.33 and after.
PLAIN = "glibc.cpu.hwcaps=-AVX2_Usable,-FMA_Usable,-FMA4_Usable,-AVX2,-FMA,-FMA4"


class Selftest(unittest.TestCase):
    def run_command(self, *arguments, **variables):
        done = subprocess.run([COMMAND, "selftest", *arguments], capture_output=True, text=True, timeout=300,
                              env={**os.environ, **variables})
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return done.stdout

    def test_it_prints_what_is_published(self):
        page = (SOURCE / "docs/CONVENTIONS.md").read_text()
        [published] = re.findall(r"^```\n(rays .*?)^```", page, re.M | re.S)
        self.assertEqual(self.run_command(), published)

    def test_threads_and_the_c_library_change_nothing(self):
        first = self.run_command("--threads", "1")
        self.assertRegex(first, r"^(?:[a-z]+ +[0-9a-f]{16}\n){8}$")
        for threads in ("2", "3", "16"):
            self.assertEqual(self.run_command("--threads", threads), first, threads)
        self.assertEqual(self.run_command(GLIBC_TUNABLES=PLAIN), first)
        self.assertEqual(self.run_command(LC_ALL="de_DE.UTF-8"), first)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
