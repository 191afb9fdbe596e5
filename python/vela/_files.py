"""How results get into files: whole, or not at all."""

from __future__ import annotations

import contextlib
import errno
import glob
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
    beside = _write_beside(name, data, mode)
    try:
        os.replace(beside, name)
    except BaseException:
        os.unlink(beside)
        raise


def _write_beside(name: str, data: bytes, mode: int | None) -> str:
    """Writes a file of another name in the same folder, with the permissions that a new one has where `mode` is None."""
    handle, beside = tempfile.mkstemp(dir=os.path.dirname(name), prefix=f".{os.path.basename(name)}.vela-part-")
    try:
        with open(handle, "wb") as file:
            file.write(data)
        if mode is None:
            mask = os.umask(0)
            os.umask(mask)
            mode = 0o666 & ~mask
        os.chmod(beside, stat.S_IMODE(mode))
    except BaseException:
        os.unlink(beside)
        raise
    return beside


def stamp(name: str) -> int | None:
    """When the file was last written, in nanoseconds; None when there is none."""
    try:
        return os.stat(name).st_mtime_ns
    except FileNotFoundError:
        return None


def write_once(name: str, data: bytes, before: int | None) -> bool:
    """Writes a file that several processes may be at, whole: the first of them does, the others leave it alone.

    `before` is the stamp of the file that is to be replaced, None when none was there. False when another process has
    written it since. What processes that were killed on the way left beside it is removed.
    """
    name = os.path.realpath(name)
    mode = None
    if before is not None:
        try:
            mode = os.stat(name).st_mode
        except FileNotFoundError:
            before = None
    beside = _write_beside(name, data, mode)
    try:
        is_first = _take_name(beside, name, before)
    finally:
        with contextlib.suppress(FileNotFoundError):
            os.unlink(beside)
    for left in glob.glob(f".{glob.escape(os.path.basename(name))}.vela-part-*", root_dir=os.path.dirname(name)):
        with contextlib.suppress(OSError):
            os.unlink(os.path.join(os.path.dirname(name), left))
    return is_first


def _take_name(beside: str, name: str, before: int | None) -> bool:
    """Gives a file its name, unless another process was first."""
    try:
        if before is None:
            # Of several that make a link of one name one alone succeeds.
            os.link(beside, name)
            return True
        if stamp(name) == before:
            os.replace(beside, name)
            return True
        return False
    except FileExistsError:
        return False
    except FileNotFoundError:
        # Another process was first, and took this file for a remainder.
        if os.path.exists(name):
            return False
        raise
    except OSError as error:
        # There are file systems without links.
        if before is not None or error.errno not in (errno.EPERM, errno.EOPNOTSUPP, errno.ENOSYS, errno.EMLINK):
            raise
        if os.path.exists(name):
            return False
        os.replace(beside, name)
        return True
