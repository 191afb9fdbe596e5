"""The command `vela` of a wheel: the program that lies in the package."""

from __future__ import annotations

import os
import pathlib
import sys
import typing


def main() -> typing.NoReturn:
    """Becomes that program."""
    program = pathlib.Path(__file__).parent / "sdk/bin/vela"
    if not program.exists():
        sys.exit("vela: this module was built without the command; it is bin/vela of the build folder")
    os.execv(program, [sys.argv[0], *sys.argv[1:]])
