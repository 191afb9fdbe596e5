"""How results get into files: whole, or not at all."""

from __future__ import annotations

import os
import stat
import tempfile
import typing

Target = typing.Union[str, bytes, "os.PathLike[typing.Any]", typing.BinaryIO]


def write(target: Target, data: bytes) -> None:
    """Writes bytes into a file, or to what has a method `write`.

    A file that is there is replaced at once when all bytes are beside it, and keeps its permissions; a link stays and what it
    leads to is replaced. What is no file, such as a pipe, is written to.
    """
    if not isinstance(target, (str, bytes, os.PathLike)):
        target.write(data)
        return
    name = os.path.realpath(os.fsdecode(target))
    try:
        mode: int | None = os.stat(name).st_mode
    except FileNotFoundError:
        mode = None
    if mode is not None and not stat.S_ISREG(mode):
        with open(name, "wb") as file:
            file.write(data)
        return
    if mode is not None and not os.access(name, os.W_OK):
        raise PermissionError(13, "the file cannot be written", name)
    handle, beside = tempfile.mkstemp(dir=os.path.dirname(name), prefix=f".{os.path.basename(name)}.")
    try:
        with open(handle, "wb") as file:
            file.write(data)
        if mode is None:
            mask = os.umask(0)
            os.umask(mask)
            mode = 0o666 & ~mask
        os.chmod(beside, stat.S_IMODE(mode))
        os.replace(beside, name)
    except BaseException:
        os.unlink(beside)
        raise
