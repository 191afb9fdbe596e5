"""A bare Debian 12, made by debootstrap, that the checks of wheel and packages install into. Needs root."""

import contextlib
import pathlib
import re
import shutil
import subprocess
import tempfile


def run(*command, code=0):
    done = subprocess.run([str(part) for part in command], capture_output=True, text=True, timeout=1800)
    assert done.returncode == code, f"{command}: exit code {done.returncode}\n{done.stdout}{done.stderr}"
    return done.stdout


def mirror():
    """Where this machine's own packages come from."""
    for file in [*pathlib.Path("/etc/apt/sources.list.d").glob("*.sources"), pathlib.Path("/etc/apt/sources.list")]:
        found = re.search(r"^(?:URIs: |deb (?:\[.*?\] )?)(\S+)", file.read_text(), re.M) if file.is_file() else None
        if found:
            return found[1]
    raise SystemExit("bare_root: no source of Debian packages is set up")


class BareRoot:
    def __init__(self, path):
        self.path = path

    def run(self, *command, code=0):
        """The output of \\p command within the root, in an environment of four variables."""
        return run("chroot", self.path, "/usr/bin/env", "-i", "PATH=/usr/sbin:/usr/bin:/sbin:/bin", "HOME=/root", "LANG=C.UTF-8",
                   "DEBIAN_FRONTEND=noninteractive", *command, code=code)

    def connect(self):
        """Lets apt within the root fetch as this machine's does."""
        etc = self.path / "etc"
        for name in ("resolv.conf", "hosts", "ssl/certs/ca-certificates.crt"):
            if pathlib.Path("/etc", name).is_file():
                (etc / name).parent.mkdir(parents=True, exist_ok=True)
                shutil.copy(pathlib.Path("/etc", name), etc / name)
        for name in ("apt/sources.list.d", "apt/apt.conf.d", "apt/keyrings"):
            if pathlib.Path("/etc", name).is_dir():
                shutil.copytree(pathlib.Path("/etc", name), etc / name, dirs_exist_ok=True)
        if any((etc / "apt/sources.list.d").iterdir()):
            (etc / "apt/sources.list").unlink(missing_ok=True)
        self.run("apt-get", "update", "-qq")

    def install(self, *packages):
        self.run("apt-get", "install", "-y", "-qq", "--no-install-recommends", *packages)

    def files(self):
        """All files but those that installers keep their own books in."""
        found = run("find", self.path, "-xdev", "!", "-type", "d", "-printf", "/%P\n").splitlines()
        return {name for name in found if not re.match(r"/(var/(lib/(apt|dpkg)|cache|log)|tmp|proc)/|/etc/ld\.so\.cache", name)}


@contextlib.contextmanager
def bare_root(*packages):
    """Gives a root with Debian's smallest system and \\p packages; it is gone afterwards."""
    with tempfile.TemporaryDirectory(prefix="vela-bare-") as scratch:
        root = pathlib.Path(scratch) / "root"
        run("debootstrap", "--variant=minbase", *(["--include=" + ",".join(packages)] if packages else []), "bookworm", root, mirror())
        # Where processes see themselves, as on any machine.
        run("mount", "-t", "proc", "proc", root / "proc")
        try:
            yield BareRoot(root)
        finally:
            run("umount", root / "proc")
