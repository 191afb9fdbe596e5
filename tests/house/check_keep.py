#!/usr/bin/env python3
"""Every KEEP tag in the code stands in a test as well, and the other way round.

Usage: check_keep.py PROJECT_ROOT
"""
import pathlib
import re
import sys

TAG = re.compile(r"KEEP\(([a-z0-9-]+)\)")


def main():
    root = pathlib.Path(sys.argv[1])
    code, tests = {}, {}
    for folder in ("src", "tools", "python", "tests"):
        for file in sorted((root / folder).rglob("*")):
            if file.suffix not in (".h", ".cpp", ".py"):
                continue
            is_test = folder == "tests" or re.search(r"(_(test|helper)\.cpp|^test_.*\.py|_test\.py)$", file.name)
            for tag in TAG.findall(file.read_text()):
                (tests if is_test else code).setdefault(tag, file.relative_to(root))
    faults = [f"KEEP({t}) in {f} has no test" for t, f in code.items() if t not in tests]
    faults += [f"KEEP({t}) in {f} has no code" for t, f in tests.items() if t not in code]
    print("\n".join(faults) or f"{len(code)} KEEP tags, each with its test")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
