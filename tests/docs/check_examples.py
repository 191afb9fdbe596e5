#!/usr/bin/env python3
"""What pages and help texts show is run, in scratch folders that see the project's examples.

- Each ```cpp block of the README and the guide is a whole program that compiles and exits with 0.
- Each line of a ```sh block of any page but the gallery, whose tests run them, is run by bash, in order; a comment `# exit code N` states another code than 0. `export NAME=VALUE`
  holds for the rest of the block. `vela view` is ended when it has given its page. No other block may hold a line that begins with `vela `.
- Each example of `vela help VERB` is run, in the order of the verbs, and exits with 0. Man pages have the same examples.
- What a page names as `vela VERB --option` within a line is in the table of the command; scripts and presets that blocks of other kinds name are there.

Usage: check_examples.py PROJECT_ROOT COMPILER LIBRARY[,LIBRARY...] COMMAND
"""
import json
import os
import pathlib
import re
import shlex
import subprocess
import sys
import tempfile

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "support"))
from serving import serves  # noqa: E402

BLOCK = re.compile(r"^```(\w*)\n(.*?)^```", re.M | re.S)
EXPORT = re.compile(r"^export (\w+)=(\S+)$")
STATED = re.compile(r"# exit code (\d+)\s*$")
INLINE = re.compile(r"`vela ((?:--)?[a-z][^`]*)`")
# Its commands take a minute together, and tests/gallery runs each and looks at what it gives.
RUN_ELSEWHERE = "docs/gallery.md"
ASSETS = "examples/assets/openassetio.toml"


def run(command, stated=0, **options):
    """Empty when the command ends as is stated, else what it did."""
    done = subprocess.run(command, capture_output=True, timeout=600, **options)
    said = (done.stdout + done.stderr).decode(errors="replace")
    return "" if done.returncode == stated else f"exit code {done.returncode}, not {stated}\n{said}"


class Scratch:
    """A folder to run lines in, with the command on the path."""

    def __init__(self, root, command):
        self.folder = tempfile.TemporaryDirectory()
        self.at = pathlib.Path(self.folder.name)
        (self.at / "examples").symlink_to(root / "examples")
        kept = {k: v for k, v in os.environ.items() if not k.startswith(("HALDEN_", "OPENASSETIO_DEFAULT")) and k not in ("OCIO", "COLUMNS", "NO_COLOR")}
        self.environment = dict(kept, PATH=f"{pathlib.Path(command).parent}:{os.environ['PATH']}")

    def run_line(self, line, **exported):
        if line.startswith("vela view "):  # which answers until it is told to end
            return serves(["vela"], *shlex.split(line)[1:], cwd=self.at, env={**self.environment, **exported})
        stated = STATED.search(line)
        # A pipe ends with the code of the command that fails, as a reader of its output would want to know.
        return run(["bash", "-o", "pipefail", "-c", line], int(stated[1]) if stated else 0, cwd=self.at, env={**self.environment, **exported})


def joined(text):
    """The lines of a text, those that end on a backslash with the next one."""
    return [line.strip() for line in re.sub(r"\\\n\s*", "", text).splitlines() if line.strip()]


class Checker:
    def __init__(self, root, compiler, libraries, command):
        self.root, self.compiler, self.command = root, compiler, command
        self.libraries = [word for library in libraries for word in (library, f"-Wl,-rpath,{pathlib.Path(library).parent}")]
        self.faults = []
        self.counts = {"programs": 0, "command lines of pages": 0, "examples of help texts": 0, "options named": 0, "scripts and presets named": 0}
        done = subprocess.run([command, "--help"], capture_output=True, text=True, check=True)
        self.verbs = list(dict.fromkeys(re.findall(r"^  vela ([a-z]+)", done.stdout, re.M)))
        self.options = {verb: set(re.findall(r"(?<![\w-])(--[a-z-]+|-[a-z])\b", self.text("help", verb))) for verb in self.verbs}
        self.common = set(re.findall(r"(?<![\w-])(--[a-z-]+|-[a-z])\b", done.stdout))

    def text(self, *arguments):
        return subprocess.run([self.command, *arguments], capture_output=True, text=True, check=True).stdout

    def count(self, what, where, fault):
        self.counts[what] += 1
        if fault:
            self.faults.append(f"{where}: {fault}")

    def check_program(self, page, text, scratch):
        (scratch.at / "example.cpp").write_text(text)
        fault = run([self.compiler, "-std=c++17", "-Wall", "-Wextra", "-Werror", f"-I{self.root / 'src'}", "example.cpp", "-o", "example",
                     *self.libraries], cwd=scratch.at) or run(["./example"], cwd=scratch.at)
        self.count("programs", f"{page}: a cpp example", fault and f"{fault}\n{text}")

    def check_lines(self, page, text, scratch):
        exported = {}
        for line in joined(text):
            if variable := EXPORT.match(line):
                exported[variable[1]] = variable[2]
            elif not line.startswith("#"):
                self.count("command lines of pages", f"{page}: {line}", scratch.run_line(line, **exported))

    def check_names(self, page, text):
        """Of a block that is no shell's: scripts of the tree and presets."""
        presets = {p["name"] for kind in json.loads((self.root / "CMakePresets.json").read_text()).values() if isinstance(kind, list) for p in kind}
        for line in text.splitlines():
            if line.startswith("vela "):
                self.faults.append(f"{page}: {line}: a command line outside an sh block, which is not run")
            for word in re.findall(r"(?:^|&& )((?:\./|scripts/|\.ci/)\S+)", line):
                self.count("scripts and presets named", page, "" if os.access(self.root / word, os.X_OK) else f"{word}: there is no such script")
            for name in re.findall(r"--preset (\S+)", line):
                self.count("scripts and presets named", page, "" if name in presets else f"{name}: there is no such preset")

    def check_inline(self, page, text):
        for span in INLINE.findall(text):
            words = span.split()
            if words[0].startswith("--"):
                known = self.common
            elif words[0] in self.verbs:
                known = self.common | self.options[words[0]]
            else:
                self.faults.append(f"{page}: vela {span}: there is no such verb")
                continue
            for option in [w.split("=")[0] for w in words if re.match(r"--?[a-z]", w)]:
                self.count("options named", page, "" if option in known else f"vela {span}: there is no such option: {option}")

    def check_page(self, page):
        name, text = page.relative_to(self.root).as_posix(), page.read_text()
        scratch = Scratch(self.root, self.command)
        isGuide = name == "README.md" or name.startswith("docs/guide/")
        for language, block in BLOCK.findall(text):
            if language == "sh" and name != RUN_ELSEWHERE:
                self.check_lines(name, block, scratch)
            elif language == "cpp" and isGuide:
                self.check_program(name, block, scratch)
            elif language == "":
                self.check_names(name, block)
        self.check_inline(name, BLOCK.sub("", text))

    def check_help(self):
        """All in one folder: an example may take what one before it has made."""
        scratch = Scratch(self.root, self.command)
        for verb in self.verbs:
            examples = joined(self.text("help", verb).split("\nExamples\n")[1])
            page = self.text("help", "--man", verb).split("\n.SH EXAMPLES\n")[1].split("\n.SH ")[0]
            of_page = [" ".join(part.split()) for part in re.findall(r"^\.nf\n(.*?)\n\.fi$", page.replace("\\e\n", "").replace("\\-", "-"), re.M | re.S)]
            self.faults += [f"vela help --man {verb}: its examples are not those of the help"] if of_page != [" ".join(e.split()) for e in examples] else []
            for example in examples:
                self.count("examples of help texts", f"vela help {verb}: {example}", scratch.run_line(example, OPENASSETIO_DEFAULT_CONFIG=ASSETS))


def main():
    checker = Checker(pathlib.Path(sys.argv[1]).resolve(), sys.argv[2], sys.argv[3].split(","), sys.argv[4])
    listed = subprocess.run(["git", "-C", checker.root, "ls-files", "-z", "*.md"], capture_output=True, text=True)
    # Without git, as in an archive of the source: whatever pages there are but those of builds.
    names = listed.stdout.split("\0")[:-1] or [p.relative_to(checker.root) for p in checker.root.rglob("*.md") if "build" not in p.relative_to(checker.root).parts]
    pages = [checker.root / name for name in names]
    for page in pages:
        checker.check_page(page)
    checker.check_help()
    for what, count in checker.counts.items():
        assert count > 0, f"no {what} were found: nothing was checked"
    print("\n".join(checker.faults) or f"{len(pages)} pages: " + ", ".join(f"{count} {what}" for what, count in checker.counts.items()))
    return 1 if checker.faults else 0


if __name__ == "__main__":
    sys.exit(main())
