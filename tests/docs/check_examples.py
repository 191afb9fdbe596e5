#!/usr/bin/env python3
"""What the README and the guide show is run: each ```cpp block is a whole program that compiles and exits with 0; each line of a
```sh block that begins with `vela ` exits with 0, after `export NAME=VALUE` lines with that variable. Both run in a scratch folder that sees the project's examples.

Usage: check_examples.py PROJECT_ROOT COMPILER LIBRARY COMMAND
"""
import os
import pathlib
import re
import shlex
import subprocess
import sys
import tempfile

BLOCK = re.compile(r"^```(\w+)\n(.*?)^```", re.M | re.S)
EXPORT = re.compile(r"^export (\w+)=(\S+)$")


def run(command, **options):
    done = subprocess.run(command, capture_output=True, text=True, timeout=600, **options)
    return "" if done.returncode == 0 else f"exit code {done.returncode}\n{done.stdout}{done.stderr}"


def main():
    root, compiler, library, command = pathlib.Path(sys.argv[1]).resolve(), sys.argv[2], pathlib.Path(sys.argv[3]), sys.argv[4]
    pages = [root / "README.md", *sorted((root / "docs/guide").glob("*.md"))]
    faults, programs, lines = [], 0, 0
    with tempfile.TemporaryDirectory() as scratch:
        scratch = pathlib.Path(scratch)
        (scratch / "examples").symlink_to(root / "examples")
        environment = dict(os.environ, PATH=f"{pathlib.Path(command).parent}:{os.environ['PATH']}")
        for page in pages:
            for language, text in BLOCK.findall(page.read_text()):
                if language == "cpp":
                    programs += 1
                    (scratch / "example.cpp").write_text(text)
                    fault = run([compiler, "-std=c++17", "-Wall", "-Wextra", "-Werror", f"-I{root / 'src'}", "example.cpp", "-o", "example",
                                 str(library), f"-Wl,-rpath,{library.parent}"], cwd=scratch) or run(["./example"], cwd=scratch)
                    if fault:
                        faults.append(f"{page.name}: a cpp example: {fault}\n{text}")
                elif language == "sh":
                    exported = dict(environment)
                    for line in text.splitlines():
                        if variable := EXPORT.match(line):
                            exported[variable[1]] = variable[2]
                        if not line.startswith("vela "):
                            continue
                        lines += 1
                        fault = run(shlex.split(line, comments=True), cwd=scratch, env=exported)
                        if fault:
                            faults.append(f"{page.name}: {line}: {fault}")
    assert programs > 0 and lines > 0, f"{programs} programs and {lines} lines were found: nothing was checked"
    print("\n".join(faults) or f"{programs} programs and {lines} command lines of {len(pages)} pages run")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
