#!/usr/bin/env python3
"""The same commit gives the same bytes: builds the packages once more, in another folder, and
compares them with those that are there.

Usage: check_reproducible.py PROJECT_ROOT      (scripts/package has run; nothing is uncommitted)
"""
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(sys.argv[1]).resolve()


def run(*command, **options):
    done = subprocess.run([str(c) for c in command], capture_output=True, text=True, **options)
    if done.returncode != 0:
        sys.exit(f"{' '.join(map(str, command))}\nended with {done.returncode}\n"
                 f"{done.stdout}\n{done.stderr}")
    return done.stdout


def main():
    changes = run("git", "status", "--porcelain", cwd=ROOT)
    if changes:
        sys.exit(f"commit first; a clone would lack\n{changes}")
    first = ROOT / "build/package"
    with tempfile.TemporaryDirectory(dir=ROOT / "build") as folder:
        clone = pathlib.Path(folder, "another folder")
        run("git", "clone", "-q", ROOT, clone)
        (clone / "build").mkdir()
        for env in ("env", "docs/env"):
            shutil.copytree(ROOT / "build" / env, clone / "build" / env, symlinks=True)
        # Whoever builds has another mask of permissions, and other words for things.
        environment = dict(os.environ, LANG="C", TZ="Asia/Tokyo")
        run("bash", "-c", "umask 077; scripts/package", cwd=clone, env=environment)
        second = clone / "build/package"
        names = sorted(f.name for f in first.iterdir())
        assert len(names) >= 8, names
        assert names == sorted(f.name for f in second.iterdir()), names
        different = [n for n in names if (first / n).read_bytes() != (second / n).read_bytes()]
        if different:
            kept = ROOT / "build/package-again"
            shutil.rmtree(kept, ignore_errors=True)
            shutil.copytree(second, kept)
            sys.exit(f"differ: {' '.join(different)}; the second ones are in {kept}")
    print(f"{len(names)} files are the same, byte for byte")


if __name__ == "__main__":
    main()
