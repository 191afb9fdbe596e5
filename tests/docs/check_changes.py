#!/usr/bin/env python3
"""The worked examples of docs/contributing: each patch applies to the tree as it is; or each is applied to a copy of the last commit, built
and tested.

Usage: check_changes.py PROJECT_ROOT          only whether they apply
       check_changes.py PROJECT_ROOT --build  in build/changes; minutes the first time (.ci/run changes calls it)
"""
import pathlib
import re
import subprocess
import sys


def run(*command, cwd):
    done = subprocess.run([str(part) for part in command], capture_output=True, text=True, cwd=cwd)
    if done.returncode != 0:
        sys.exit(f"{' '.join(map(str, command))}\nended with {done.returncode}\n{done.stdout[-4000:]}{done.stderr[-4000:]}")
    return done.stdout


def changes(folder):
    """Each patch with the commands that the page gives for it: (path, targets, pattern of tests)."""
    page = (folder / "README.md").read_text()
    found = re.findall(r"\]\(([\w-]+\.patch)\)\.\n```\ncmake --build --preset dev --target (.+?) && ctest --preset dev -R '(.+?)'\n```", page)
    assert sorted(name for name, _, _ in found) == sorted(path.name for path in folder.glob("*.patch")), "each patch has its commands on the page"
    assert len(found) >= 4
    return [(folder / name, targets.split(), tests) for name, targets, tests in found]


def main():
    root = pathlib.Path(sys.argv[1]).resolve()
    wanted = changes(root / "docs/contributing")
    for patch, _, _ in wanted:
        run("git", "apply", "--check", patch, cwd=root)
    if "--build" not in sys.argv:
        print(f"{len(wanted)} patches apply")
        return

    tree = root / "build/changes"
    if not (tree / ".git").exists():
        run("git", "clone", "-q", "--shared", root, tree, cwd=root)
    run("git", "fetch", "-q", root, "HEAD", cwd=tree)
    run("git", "reset", "-q", "--hard", "FETCH_HEAD", cwd=tree)
    run("git", "clean", "-q", "-d", "-f", cwd=tree)
    (tree / "build").mkdir(exist_ok=True)
    for name in ("env", "peers"):
        if (root / "build" / name).exists() and not (tree / "build" / name).exists():
            (tree / "build" / name).symlink_to(root / "build" / name)
    for patch, targets, tests in wanted:
        run("git", "apply", patch, cwd=tree)
        run("cmake", "--preset", "dev", cwd=tree)
        run("cmake", "--build", "--preset", "dev", "--target", *targets, cwd=tree)
        said = run("ctest", "--preset", "dev", "-R", tests, "--no-tests=error", cwd=tree)
        print(f"{patch.name}: {', '.join(targets)} built; {re.search(r'.*tests passed.*', said)[0]}", flush=True)
        run("git", "apply", "-R", patch, cwd=tree)
        run("git", "clean", "-q", "-d", "-f", cwd=tree)


if __name__ == "__main__":
    main()
