#!/usr/bin/env python3
"""What the public headers show is run: each example between \\code and \\endcode compiles without a
warning and exits with 0, its asserts in force.

An example is the body of a function; one that defines main() is a program of its own. It sees its
own header, vela/vela.h and the standard headers below; `#include` lines of its own are allowed. It
runs in a process of its own, in the project's root, with the log on the standard error stream.
Examples of one folder share a program, so that few have to be compiled.

Each class, exported record and class template must be named in the code of an example in its own
header; plain records and what is in a namespace detail need not.

Usage: check_header_examples.py PROJECT_ROOT COMPILER LIBRARY[,LIBRARY...] HEADER...
"""
import concurrent.futures
import os
import pathlib
import re
import subprocess
import sys
import tempfile

STANDARD = ("cassert", "cmath", "cstdio", "iostream", "memory", "sstream", "string", "thread", "vector")
BEGIN = re.compile(r"^\s*///\s*\\code(\{\.cpp\})?\s*$")
END = re.compile(r"^\s*///\s*\\endcode\s*$")
CHIEF = re.compile(
    r"^(?:class|struct(?= \w+_API)) (?:\w+_API )?(?!\w+_API)(\w+)\b(?!::)[^;]*\{$"
    r"|^template <[^\n]*>\n(?:class|struct) (\w+) \{$", re.M)
PRIVATE = re.compile(r"^namespace [\w:]*\bdetail \{.*?^\}", re.M | re.S)


class Example:
    """One example: its header, the line its code begins at, the code."""

    def __init__(self, header, line, code):
        self.header, self.line, self.code = header, line, code

    def __str__(self):
        return f"{self.header}:{self.line}"


def read_examples(name, text):
    found, code, start = [], None, 0
    for number, line in enumerate(text.splitlines(), 1):
        if BEGIN.match(line):
            if code is not None:
                raise SystemExit(f"{name}:{number}: \\code inside \\code")
            code, start = [], number + 1
        elif END.match(line):
            if code is None:
                raise SystemExit(f"{name}:{number}: \\endcode without \\code")
            found.append(Example(name, start, code))
            code = None
        elif code is not None:
            inside = re.match(r"^\s*///( ?)(.*)$", line)
            if not inside:
                raise SystemExit(f"{name}:{number}: an example ends without \\endcode")
            code.append(inside[2])
    if code is not None:
        raise SystemExit(f"{name}: an example ends without \\endcode")
    return found


def is_program(example):
    return any(re.match(r"\s*int main\(", line) for line in example.code)


def preamble(headers):
    includes = [f"#include <{h}>" for h in STANDARD]
    return includes + [f'#include "{h}"' for h in dict.fromkeys([*headers, "vela/vela.h"])]


def lines_of(example):
    return [f'#line {example.line} "{example.header}"', *example.code]


def shared_program(examples):
    """All examples of a folder as functions; the program runs the one that its argument numbers."""
    own = [line for e in examples for line in e.code if line.startswith("#include")]
    text = preamble([e.header for e in examples]) + own
    for number, example in enumerate(examples):
        body = ["" if line.startswith("#include") else line for line in example.code]
        text += [f"static void example{number}() {{", f'#line {example.line} "{example.header}"', *body, "}"]
    text += ['#line 1 "runner"', "int main(int, char** arguments) {", "  switch (std::stoi(arguments[1])) {"]
    text += [f"    case {number}: example{number}(); return 0;" for number in range(len(examples))]
    return "\n".join(text + ["  }", "  return 1;", "}", ""])


def run(command, **options):
    try:
        done = subprocess.run(command, capture_output=True, text=True, timeout=300, **options)
    except subprocess.TimeoutExpired:
        return "does not end"
    return "" if done.returncode == 0 else f"exit code {done.returncode}\n{done.stdout}{done.stderr}"


def main():
    root, compiler, libraries = pathlib.Path(sys.argv[1]).resolve(), sys.argv[2], sys.argv[3].split(",")
    headers = [pathlib.Path(h) for h in sys.argv[4:]]
    environment = {k: v for k, v in os.environ.items() if not k.startswith(("HALDEN_", "OPENASSETIO_", "BRAE_"))}
    environment["HALDEN_LOG_FILE"] = ""

    faults, folders, programs, missing = [], {}, [], set()
    for header in headers:
        name, text = header.relative_to(root / "src").as_posix(), header.read_text()
        found = read_examples(name, text)
        code = re.sub(r"//[^\n]*", "", "\n".join(line for e in found for line in e.code))
        for match in CHIEF.finditer(PRIVATE.sub("", text)):
            chief = match[1] or match[2]
            # Templates of the mathematics also by their short forms: Vec3f, Ray3d.
            if not re.search(rf"\b{chief}(3?[fdi])?\b", code):
                missing.add(f"{name}: {chief}")
        for example in found:
            if is_program(example):
                programs.append(("\n".join([f'#include "{name}"', *lines_of(example), ""]), [(example, [])]))
            else:
                folders.setdefault(pathlib.PurePosixPath(name).parent, []).append(example)
    for examples in folders.values():
        programs.append((shared_program(examples), [(e, [str(i)]) for i, e in enumerate(examples)]))
    assert programs, "no examples were found"

    with tempfile.TemporaryDirectory() as scratch, concurrent.futures.ThreadPoolExecutor(2) as pool:

        def check(job):
            number, (text, examples) = job
            source, binary = f"{scratch}/{number}.cpp", f"{scratch}/{number}"
            pathlib.Path(source).write_text(text)
            rpaths = [f"-Wl,-rpath,{pathlib.Path(library).parent}" for library in libraries]
            fault = run([compiler, "-std=c++17", "-Wall", "-Wextra", "-Werror", f"-I{root / 'src'}", source, "-o", binary,
                         *libraries, *rpaths, "-pthread"])
            if fault:
                return [f"does not compile: {', '.join(str(e) for e, _ in examples)}: {fault}"]
            answers = [(e, run([binary, *arguments], cwd=root, env=environment)) for e, arguments in examples]
            return [f"{e}: {answer}" for e, answer in answers if answer]

        for answer in pool.map(check, enumerate(programs)):
            faults += answer

    faults += [f"{m}: no example of the header names it" for m in sorted(missing)]
    count = sum(len(examples) for _, examples in programs)
    print("\n".join(faults) or f"{count} examples of {len(headers)} headers run")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
