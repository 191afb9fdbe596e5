#!/usr/bin/env python3
"""Writes the types of the native module, for checkers and editors: by nanobind's own generator, and then what it cannot know.

Usage: make_stubs.py FOLDER_OF_THE_PACKAGE
"""

import pathlib
import re
import subprocess
import sys

SUBSYSTEMS = ("tarn", "ovo", "selection", "log", "asset", "look", "scene", "picture")
# Methods that the Python side gives native classes.
ADDED = {"Picture": ("to_bytes = vela._render.encode", "save = vela._render.save", "_repr_png_ = vela._render._repr_png_")}


def without_hashes(text: str) -> str:
    """The lines that say that a class has no hash; one that derives from such a class needs none."""
    lines, is_derived = [], False
    for line in text.split("\n"):
        if re.match(r" *class ", line):
            is_derived = "(" in line
        match = re.match(r"( +)__hash__: None = None$", line)
        if not match:
            lines.append(line)
        elif not is_derived:
            lines.append(f"{match[1]}__hash__: typing.ClassVar[None]  # type: ignore[assignment]")
    return "\n".join(lines)


def finish(text: str) -> str:
    """The generator's text, as checkers accept it."""
    # Names that it takes for modules, and methods that are shared by classes.
    text = re.sub(r"^import (?!enum|typing|numpy|os|vela\b)[A-Z]\w*\n", "", text, flags=re.M)
    text = re.sub(r"^from vela\.(?:_records|_render) import .*\n", "", text, flags=re.M)
    # Submodules belong to the native module alone: the package has files of these names.
    text = re.sub(r"^( {4}\w+) as \w+(,?)$", r"\1\2", text, flags=re.M)
    text = re.sub(r"^__all__.*\n", "", text, flags=re.M)
    # Anything may be compared, and what is mutable has no hash.
    text = re.sub(r"def (__eq__|__ne__)\(self, \w+: [^,)]+, /\)", r"def \1(self, other: object, /)", text)
    text = re.sub(r"(def __(?:repr|str)__\(self\)) -> object", r"\1 -> str", text)
    text = without_hashes(text)
    text = text.replace("arg: tuple, /", "arg: tuple[typing.Any, ...], /").replace("arg: list, /", "arg: list[typing.Any], /")
    for name, members in ADDED.items():
        text = re.sub(rf"^(class {name}:\n(?: {{4}}\"\"\"\n(?:.*\n)*?    \"\"\"\n)?)",
                      lambda match: match[1] + "\n" + "".join(f"    {member}\n" for member in members), text, flags=re.M)
    head, rest = re.match(r'((?:"""(?:.|\n)*?"""\n)?\n?)((?:.|\n)*)', text).groups()
    imports = "import os\nimport typing\n" + ("import vela._render\n" if "vela._render." in rest else "") + \
        ("import vela._path\n" if "vela._path." in rest else "")
    return head + imports + rest


def main():
    package = pathlib.Path(sys.argv[1])
    subprocess.run([sys.executable, "-m", "nanobind.stubgen", "-q", "-r", "-i", str(package.parent), "-m", "vela._vela", "-O",
                    str(package)], check=True)
    for name in ("__init__", *SUBSYSTEMS):
        file = package / "_vela" / f"{name}.pyi"
        text = finish(file.read_text())
        # Defaults are written without the module that they come from.
        file.write_text(text if name == "__init__" else text.replace("= LensProjection.", "= vela._vela.LensProjection."))


if __name__ == "__main__":
    main()
