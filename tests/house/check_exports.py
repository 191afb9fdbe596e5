#!/usr/bin/env python3
"""What a public header declares is exported by the library, and nothing is that is not the project's.

Tests are linked with the objects of a library, where nothing is hidden, so a public function without its export macro works for
them and for nobody else. Every symbol of the project that their objects call must be exported, unless it is private: of a
namespace `detail`, or declared in no public header. And every symbol that a library exports is of the project's namespaces: what it is
built from must never meet a host's own copy of that.

Usage: check_exports.py NM OBJECT_LIST HEADER_LIST LIBRARY...    (the lists: files of one path a line)
"""
import pathlib
import re
import subprocess
import sys

OURS = ("tarn", "ovo", "vela", "Halden")
OPERATOR = re.compile(r"operator\s*(\(\)|\[\]|new\[\]|delete\[\]|[^\w\s(]+|[\w:<>*& ]+?)(?=\()")


# An exported name: that of a function or of data, a vtable, type information, a thunk, a guard, static data of a function.
OURS_MANGLED = re.compile(r"_Z(GV)?(T[VTIS]|Th[n\d]+_|Tv[n\d_]+_)?Z?NK?[RO]?(%s)" % "|".join(f"{len(n)}{n}" for n in OURS))


def symbols(nm, option, files):
    done = subprocess.run([nm, *option, *files], capture_output=True, text=True, check=True)
    return {line.split()[-1] for line in done.stdout.splitlines() if line and not line.endswith(":")}


def without_templates(text):
    out, depth = "", 0
    for c in text:
        depth += c == "<"
        if depth == 0:
            out += c
        depth -= c == ">"
    return out


def parts(demangled):
    """The qualified name of a demangled symbol: ["vela", "HitDetector", "intersect"]; None when it is not the project's."""
    name = re.sub(r"^(vtable|typeinfo name|typeinfo|VTT|guard variable) for ", "", demangled)
    name = re.sub(r"\[abi:\w+\]", "", name).replace("(anonymous namespace)", "{anonymous}")
    operator = OPERATOR.search(name)
    if operator:
        name, last = name[:operator.start()], "operator" + operator.group(1).strip()
    else:
        name, last = name.split("(", 1)[0] if not name.startswith("(") else name, ""
    name = without_templates(name).strip().split(" ")[-1]
    found = [p for p in name.split("::") if p] + ([last] if last else [])
    return found if len(found) > 1 and found[0] in OURS else None


def declares(text, qualified):
    """Whether a header names the symbol: its function, and the class or namespace that it stands in."""
    last, scope = qualified[-1].lstrip("~"), qualified[-2]
    spelled = re.escape(last) if last.startswith("operator") else rf"\b{re.escape(last)}\b"
    spelled = spelled.replace("operator", r"operator\s*")
    return re.search(spelled, text) and re.search(rf"\b{re.escape(scope)}\b", text)


def main():
    nm, objects, headers, libraries = sys.argv[1], *(pathlib.Path(f).read_text().split("\n") for f in sys.argv[2:4]), sys.argv[4:]
    objects, headers = [o for o in objects if o], [h for h in headers if h]
    needed = symbols(nm, ["-u"], objects)
    exported = symbols(nm, ["-D", "--defined-only"], libraries)
    exported = {s.split("@")[0] for s in exported}
    needed = sorted(s for s in needed if s.startswith("_Z"))
    names = subprocess.run(["c++filt"], input="\n".join(needed), capture_output=True, text=True, check=True).stdout.splitlines()
    code = {h: re.sub(r"//.*", "", pathlib.Path(h).read_text()) for h in headers}
    faults = [f"{name} is exported and not the project's" for name in sorted(exported) if not OURS_MANGLED.match(name)]
    count = 0
    for symbol, name in zip(needed, names):
        qualified = parts(name)
        if not qualified or "detail" in qualified:
            continue
        if symbol in exported:
            count += 1
            continue
        homes = [h for h in headers if declares(code[h], qualified)]
        if homes:
            faults.append(f"{name} is declared in {homes[0]} and not exported")
    assert count > 100, f"the tests call {count} exported functions: the lists are not what they should be"
    print("\n".join(faults) or f"{count} functions that tests call are exported")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
