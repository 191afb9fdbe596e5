#!/usr/bin/env python3
"""Includes stay within the edges that the table in docs/ARCHITECTURE.md allows.

The table's rows read `| folder | may include | outside |`: folders below src/ separated by blanks, and the outside
libraries that the folder's .cpp files may see. Tests and benches are callers, not parts: they may include anything.

Usage: check_edges.py PROJECT_ROOT
"""
import pathlib
import re
import sys

OUTSIDE = {  # library: how its headers are spelled
    "openusd": r"^pxr/", "opensubdiv": r"^opensubdiv/", "openassetio": r"^openassetio", "boost": r"^boost/",
    "openexr": r"^(OpenEXR|Imath|Imf|half)", "png": r"^png", "jpeg": r"^(jpeglib|jerror)", "opencolorio": r"^OpenColorIO/", "cli11": r"^CLI/", "json": r"^nlohmann/", "embree": r"^embree",
    "python": r"^Python\.h|^pybind11/|^nanobind/",
}
INCLUDE = re.compile(r'^\s*#\s*include\s*[<"]([^>"]+)[>"]', re.M)


def read_table(architecture):
    rows = {}
    for line in architecture.read_text().splitlines():
        cells = [c.strip().replace("`", "") for c in line.strip().strip("|").split("|")]
        if len(cells) == 3 and re.match(r"^(tarn|ovo|vela(/\w+)?|python)$", cells[0]):
            rows[cells[0]] = (set(cells[1].split()) | {cells[0]}, set(cells[2].split()))
    return rows


def folder_of(path):
    parts = path.split("/")
    if parts[0] == "vela":
        return f"vela/{parts[1]}" if len(parts) > 2 else "vela"
    return parts[0]


def main():
    root = pathlib.Path(sys.argv[1])
    table = read_table(root / "docs/ARCHITECTURE.md")
    if len(table) < 4:
        print("the table of allowed edges was not found in docs/ARCHITECTURE.md")
        return 1
    faults, count = [], 0
    files = [f for f in sorted((root / "src").rglob("*")) if f.suffix in (".h", ".cpp")]
    for file in files:
        if re.search(r"_(test|bench|fuzz|helper)\.cpp$", file.name):
            continue
        name = file.relative_to(root / "src").as_posix()
        own = folder_of(name)
        if own not in table:
            faults.append(f"{name}: folder {own} has no row in the table")
            continue
        folders, outside = table[own]
        for target in INCLUDE.findall(file.read_text()):
            count += 1
            if re.match(r"^(tarn|ovo|vela)/", target):
                there = folder_of(target)
                if there == "vela" and target != "vela/vela.h":
                    continue  # Api.h and Version.h belong to everybody
                if there not in folders and "*" not in folders:
                    faults.append(f"{name} includes {target}: {own} may include {' '.join(sorted(folders))}")
                if "/detail/" in target and there != own:
                    faults.append(f"{name} includes {target}: detail/ is its folder's own")
            for library, pattern in OUTSIDE.items():
                if re.match(pattern, target):
                    if library not in outside:
                        faults.append(f"{name} includes {target}: {own} may not see {library}")
                    elif file.suffix == ".h" and "/detail/" not in name:
                        faults.append(f"{name} includes {target}: public headers show no outside library")
    # The module sees what users of the library see: installed headers, and no other folder's details.
    folders, outside = table["python"]
    glue = [f for f in sorted((root / "python/src").rglob("*")) if f.suffix in (".h", ".cpp")]
    for file in glue:
        for target in INCLUDE.findall(file.read_text()):
            count += 1
            if re.match(r"^(tarn|ovo|vela)/", target) and ("/detail/" in target or not (root / "src" / target).is_file()):
                faults.append(f"python/src/{file.name} includes {target}: it may see public headers alone")
            for library, pattern in OUTSIDE.items():
                if re.match(pattern, target) and library not in outside:
                    faults.append(f"python/src/{file.name} includes {target}: python may not see {library}")
    assert glue, "no file of python/src was read"
    files += glue
    assert count > 0, "no includes were read"
    print("\n".join(faults) or f"{count} includes in {len(files)} files stay within the table")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
