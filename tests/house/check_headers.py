#!/usr/bin/env python3
"""Each public header compiles alone, without a warning; all of them together do at every language level that a caller may use.
vela/vela.h has all of libvela; vela/picture/picture.h those of the library that stands beside it, and of them vela.h has none.
No header has 300 lines: one that grows to that holds two ideas.

A header that misses an include misses it at every level, and what a newer level forbids it forbids in company too: so alone
at the lowest level and together at the others finds what all combinations would, in a third of the time.

Usage: check_headers.py COMPILER SOURCE_ROOT HEADER...
"""
import concurrent.futures
import pathlib
import subprocess
import sys

LEVELS = ("c++17", "c++20", "c++23")
LINES = 300
UMBRELLAS = {"vela/vela.h": "vela/", "vela/picture/picture.h": "vela/picture/"}  # the headers of a folder, but for deeper ones


def compiles(compiler, root, headers, level):
    code = "".join(f'#include "{h}"\n#include "{h}"\n' for h in headers)
    command = [compiler, f"-std={level}", "-fsyntax-only", "-Wall", "-Wextra", "-Wconversion", "-Wdouble-promotion",
               "-Werror", f"-I{root}", "-x", "c++", "-"]
    done = subprocess.run(command, input=code, capture_output=True, text=True)
    return "" if done.returncode == 0 else f"{' '.join(headers)} as {level}:\n{done.stderr}"


def main():
    compiler, root, headers = sys.argv[1], pathlib.Path(sys.argv[2]), sys.argv[3:]
    names = [str(pathlib.Path(h).relative_to(root)) for h in headers]
    assert names, "no public headers were given"
    with concurrent.futures.ThreadPoolExecutor(2) as pool:
        jobs = [pool.submit(compiles, compiler, root, [n], LEVELS[0]) for n in names]
        jobs += [pool.submit(compiles, compiler, root, names, level) for level in LEVELS[1:]]
        faults = [job.result() for job in jobs]

    for umbrella, folder in UMBRELLAS.items():
        text = (root / umbrella).read_text()
        for name in names:
            home = max((f for f in UMBRELLAS.values() if name.startswith(f)), key=len, default="")
            if name in UMBRELLAS or home == "":
                continue
            if (f'#include "{name}"' in text) != (home == folder):
                faults.append(f"{umbrella} {'does not include' if home == folder else 'includes'} {name}")
    lengths = {n: len((root / n).read_text().splitlines()) for n in names}
    faults += [f"{n} has {lengths[n]} lines: part it, {LINES - 1} are the most" for n in names
               if lengths[n] >= LINES]
    faults = [f for f in faults if f]
    print("\n".join(faults) or f"{len(names)} headers compile alone as {', '.join(LEVELS)}")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
