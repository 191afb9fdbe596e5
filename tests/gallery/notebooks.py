#!/usr/bin/env python3
"""Notebooks of scripts whose cells begin with `# %%`, by jupytext, without outputs and beside the scripts.

Usage: notebooks.py FOLDER
"""

import pathlib
import sys

import jupytext


def notebook_of(script: pathlib.Path) -> str:
    """The notebook as text; the same for the same script."""
    book = jupytext.read(script)
    book.metadata = {"kernelspec": {"display_name": "Python 3", "language": "python", "name": "python3"}}
    # The format before cells had names, which are drawn at random.
    book.nbformat, book.nbformat_minor = 4, 4
    for cell in book.cells:
        cell.pop("id", None)
    return jupytext.writes(book, fmt="ipynb").rstrip() + "\n"


if __name__ == "__main__":
    for path in sorted(pathlib.Path(sys.argv[1]).glob("*.py")):
        path.with_suffix(".ipynb").write_text(notebook_of(path))
