"""The commands of the gallery's page, picture by picture.

As a program it runs them all: commands.py PAGE FOLDER, where FOLDER sees the project's examples and the command is on the path.
"""
import pathlib
import re
import subprocess
import sys

PICTURE = re.compile(r"^!\[[^]\n]*\]\(images/gallery/(\w+)\.png\)$", re.M)
BLOCK = re.compile(r"^```sh\n(.*?)^```", re.M | re.S)


def commands_of(page):
    """The name of each picture that commands make, and the commands."""
    found = []
    for section in page.read_text().split("\n### ")[1:]:
        for block in BLOCK.findall(section):
            [name] = PICTURE.findall(section)
            found.append((name, block.splitlines()))
    return found


def run_all(lines, folder):
    for line in lines:
        done = subprocess.run(["bash", "-c", line], cwd=folder, capture_output=True, text=True, timeout=300)
        assert done.returncode == 0, f"{line}\n{done.stdout}{done.stderr}"


def main():
    for name, lines in commands_of(pathlib.Path(sys.argv[1])):
        print("\n".join(lines))
        run_all(lines, sys.argv[2])


if __name__ == "__main__":
    main()
