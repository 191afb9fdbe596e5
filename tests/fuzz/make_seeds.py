#!/usr/bin/env python3
"""Writes the texts of a corpus, one named case a line, into a folder as the seeds of a fuzz target.

A line is `name | text` or `name | text | more`, with \\n, \\t and \\\\ in the text standing for themselves.

Usage: make_seeds.py CORPUS FOLDER
"""
import pathlib
import re
import sys


def unescape(text):
    return re.sub(r"\\(.)", lambda m: {"n": "\n", "t": "\t"}.get(m.group(1), m.group(1)), text)


def main():
    corpus, folder = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
    folder.mkdir(parents=True, exist_ok=True)
    count = 0
    for line in corpus.read_text().splitlines():
        if not line or line.startswith("#"):
            continue
        name, text = line.split(" | ")[:2]
        (folder / name).write_bytes(unescape(text).encode())
        count += 1
    assert count > 0, f"{corpus} holds no case"
    print(f"{count} seeds")


if __name__ == "__main__":
    main()
