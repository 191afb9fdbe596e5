#!/usr/bin/env python3
"""Writes the texts of corpora, one named case a line, into a folder as the seeds of a fuzz target.

A line is `name | text` or `name | text | more`. In the text \\n and \\t stand for themselves, \\xNN for a byte, and a
backslash before anything else for that.

Usage: make_seeds.py FOLDER COLUMN PREFIXES CORPUS...

COLUMN says which part of a line is the text: 1 is the one behind the name. Each text becomes a seed behind each
character of PREFIXES, or by itself when there are none.
"""
import pathlib
import re
import sys


def unescape(text):
    def byte(match):
        escape = match.group(1)
        if escape[0:1] == b"x":
            return bytes([int(escape[1:], 16)])
        return {b"n": b"\n", b"t": b"\t"}.get(escape, escape)

    return re.sub(rb"\\(x[0-9a-fA-F]{2}|.)", byte, text.encode())


def main():
    folder, column, prefixes = pathlib.Path(sys.argv[1]), int(sys.argv[2]), sys.argv[3]
    folder.mkdir(parents=True, exist_ok=True)
    count = 0
    for corpus in map(pathlib.Path, sys.argv[4:]):
        for line in corpus.read_text().splitlines():
            if not line or line.startswith("#"):
                continue
            parts = line.split(" | ")
            for prefix in prefixes or [""]:
                seed = folder / f"{corpus.stem} {parts[0]} {prefix}".strip()
                seed.write_bytes(prefix.encode() + unescape(parts[column]))
                count += 1
    assert count > 0, f"{sys.argv[4:]} hold no case"
    print(f"{count} seeds")


if __name__ == "__main__":
    main()
