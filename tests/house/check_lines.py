#!/usr/bin/env python3
"""Lines of C++ and CMake have at most 100 columns.

Excepted are lines within a raw string, R"(...)": they are data, in the layout that data of their kind has.

Usage: check_lines.py PROJECT_ROOT
"""
import pathlib
import re
import sys

LIMIT = 100
RAW = re.compile(r'R"([^()\\\s]*)\((.*?)\)\1"', re.S)


def raw_lines(text):
    """The numbers of the lines that a raw string covers, its first and last line included."""
    covered = set()
    for match in RAW.finditer(text):
        first = text.count("\n", 0, match.start()) + 1
        covered.update(range(first, first + match.group(0).count("\n") + 1))
    return covered


def too_long(path):
    text = path.read_text()
    excepted = raw_lines(text) if path.suffix in (".h", ".cpp") else set()
    return [n for n, line in enumerate(text.split("\n"), 1) if len(line) > LIMIT and n not in excepted]


def main():
    root = pathlib.Path(sys.argv[1])
    files = [f for folder in ("bench", "cmake", "python", "src", "tests", "tools") for f in sorted((root / folder).rglob("*"))]
    files = [f for f in files if f.suffix in (".h", ".cpp", ".cmake") or f.name == "CMakeLists.txt"] + [root / "CMakeLists.txt"]
    assert len(files) > 100, f"{len(files)} files were found below {root}"
    faults = [f"{f.relative_to(root)}:{n}: more than {LIMIT} columns" for f in files for n in too_long(f)]
    print("\n".join(faults) or f"{len(files)} files, no line of more than {LIMIT} columns")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
