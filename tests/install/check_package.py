#!/usr/bin/env python3
"""What scripts/package wrote: an archive that works wherever it is unpacked, Debian packages, and
the list of what they carry.

Usage: check_package.py PACKAGES PROJECT_ROOT
"""
import html.parser
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
import urllib.parse

PACKAGES, ROOT = (pathlib.Path(a).resolve() for a in sys.argv[1:3])
# What a machine must have by itself.
SYSTEM = re.compile(r"^(linux-vdso|ld-linux-x86-64|lib(c|m|dl|pthread|rt|stdc\+\+|gcc_s))\.so")
STRANGE = re.compile(r"pxr|Pcp|Sdf|OpenSubdiv|Osd|boost|tbb|Imf_|Imath", re.I)


def run(*command, code=0, **options):
    done = subprocess.run([str(c) for c in command], capture_output=True, text=True, timeout=300,
                          **options)
    if done.returncode != code:
        raise AssertionError(f"{' '.join(map(str, command))}\nended with {done.returncode}\n"
                             f"{done.stdout}\n{done.stderr}")
    return done


def is_program(file):
    return file.is_file() and not file.is_symlink() and file.read_bytes()[:4] == b"\x7fELF"


def symbols(file, option):
    lines = run("nm", "-D", "-C", option, file).stdout.splitlines()
    return [line.split(maxsplit=2 if option == "--defined-only" else 1)[-1] for line in lines]


class Links(html.parser.HTMLParser):
    """Files that a page refers to, and the addresses that it loads from elsewhere."""

    def __init__(self, page):
        super().__init__()
        self.files, self.elsewhere = set(), set()
        self.feed(page.read_text())

    def handle_starttag(self, tag, attributes):
        attributes = dict(attributes)
        target = attributes.get("href" if tag in ("a", "link") else "src")
        if not target or target.startswith(("#", "data:", "mailto:")):
            return
        address = urllib.parse.urlsplit(target)
        if address.scheme or address.netloc:
            if tag != "a":
                self.elsewhere.add(target)
        elif address.path:
            self.files.add(urllib.parse.unquote(address.path))


def check_site(test, site):
    """Every page's links, pictures, styles and scripts are there, and none comes from elsewhere."""
    pages = sorted(site.rglob("*.html"))
    test.assertGreater(len(pages), 60)
    for page in pages:
        links = Links(page)
        test.assertEqual(links.elsewhere, set(), page)
        for file in links.files:
            test.assertTrue((page.parent / file).is_file(), f"{page}: {file}")
    index = (site / "searchindex.js").read_text()
    for name in ("docs/guide/first-picture", "reference/python", "vela/trace/SceneTracer.h"):
        test.assertTrue(f'"{name}"' in index, f"the search does not know {name}")
    for name in ("vela::SceneTracer", "vela::ChannelManager", "ovo::Stage"):
        test.assertTrue(any(name in p.read_text() for p in site.glob("reference/*.html")), name)


class Archive(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.scratch = pathlib.Path(tempfile.mkdtemp())
        cls.addClassCleanup(shutil.rmtree, cls.scratch, True)
        [archive] = PACKAGES.glob("vela-*-linux-x86_64.tar.gz")
        cls.version = re.fullmatch(r"vela-([\d.]+)-linux-x86_64.tar.gz", archive.name)[1]
        # Anywhere: a folder with a blank and letters beyond ASCII.
        cls.folder = cls.scratch / "some folder \u00e4"
        cls.folder.mkdir()
        run("tar", "-xzf", archive, "-C", cls.folder)
        [cls.tree] = cls.folder.iterdir()
        cls.programs = [f for f in cls.tree.rglob("*") if is_program(f)]
        cls.environment = {"PATH": "/usr/bin:/bin", "LANG": "C.UTF-8", "HOME": str(cls.scratch)}

    def vela(self, *arguments, **options):
        tree = options.pop("tree", self.tree)
        environment = {**self.environment, **options.pop("env", {})}
        return run(tree / "bin/vela", *arguments, env=environment, cwd=self.scratch, **options)

    def test_it_holds_what_it_should(self):
        for path in ("bin/vela", "include/vela/vela.h", "lib/libvela.so", "lib/libvela_picture.so",
                     "lib/cmake/Vela/VelaConfig.cmake", "lib/pkgconfig/vela.pc",
                     "lib/vela/openassetio/libopenassetio.so.1.0", "lib/vela/scene-trial", "share/man/man1/vela.1",
                     "share/doc/vela/LICENSE", "share/doc/vela/third-party/sdf-LICENSE.txt",
                     "share/doc/vela/third-party/tbb-LICENSE.txt",
                     "share/doc/vela/third-party/opensubdiv-NOTICE.txt",
                     "share/doc/vela/third-party/openassetio-LICENSE.txt",
                     "share/doc/vela/third-party/furo-LICENSE.txt",
                     "share/doc/vela/third-party/sphinx-LICENSE.txt",
                     "share/doc/vela/html/index.html"):
            self.assertTrue((self.tree / path).exists(), path)
        for package in ("libfmt-dev", "libtomlplusplus-dev", "libpcre2-8-0"):
            licence = self.tree / f"share/doc/vela/third-party/{package}-copyright"
            self.assertIn("Copyright", licence.read_text(), package)
        licence = (self.tree / "share/doc/vela/third-party/openassetio-LICENSE.txt").read_text()
        self.assertIn("Copyright", licence[:200])
        self.assertIn("TERMS AND CONDITIONS", licence)

    def test_all_but_the_system_travels_along(self):
        # Those in lib/vela are found by the run paths of whoever needs them.
        tops = [p for p in self.programs if p.parent != self.tree / "lib/vela"]
        self.assertGreater(len(tops), 5)
        for program in tops:
            for line in run("ldd", program, env=self.environment).stdout.splitlines():
                name, _, place = line.strip().partition(" => ")
                if SYSTEM.match(pathlib.Path(name.split()[0]).name) or "statically" in name:
                    continue
                self.assertTrue(place.startswith(str(self.folder)),
                                f"{program.relative_to(self.tree)}: {line.strip()}")

    def test_it_runs_on_the_glibc_that_is_promised(self):
        limits = {"GLIBC": (2, 36), "GLIBCXX": (3, 4, 30), "CXXABI": (1, 3, 13)}
        seen = set()
        for program in self.programs:
            wanted = run("readelf", "--version-info", "--wide", program).stdout
            for name, text in re.findall(r"\b(GLIBC|GLIBCXX|CXXABI)_([\d.]+)", wanted):
                seen.add(name)
                self.assertLessEqual(tuple(map(int, text.split("."))), limits[name], program)
        self.assertEqual(seen, set(limits))

    def test_no_name_of_what_it_is_built_from_goes_in_or_out(self):
        for name in ("libvela.so", "libvela_picture.so"):
            library = (self.tree / "lib" / name).resolve()
            out = symbols(library, "--defined-only")
            self.assertGreater(len(out), 20)
            self.assertEqual([s for s in out if STRANGE.search(s.split("(")[0])], [], name)
        within = symbols((self.tree / "lib/libvela.so").resolve(), "-u")
        self.assertGreater(len(within), 50)
        self.assertEqual([s for s in within if STRANGE.search(s)], [])

    def test_no_path_of_the_machine_that_built_it(self):
        paths = [os.fsencode(p) for p in
                 (ROOT, os.environ.get("VELA_CACHE") or pathlib.Path.home() / ".cache/vela")]
        for file in self.tree.rglob("*"):
            if file.is_file():
                for path in paths:
                    self.assertNotIn(path, file.read_bytes(), file.relative_to(self.tree))

    def test_it_is_small(self):
        size = sum(f.stat().st_size for f in self.programs
                   if f.parent.name in ("bin", "lib"))
        self.assertLess(size, 20_000_000)

    def test_the_site_is_whole(self):
        check_site(self, self.tree / "share/doc/vela/html")

    def test_the_command_works(self):
        self.assertEqual(self.vela("--version").stdout, f"vela {self.version}\n")
        self.vela("render", ROOT / "examples/demo/demo.usda", "-o", "demo.exr", "--png", "demo.png",
                  "--size", "64x36", "--samples", "4")
        self.assertEqual((self.scratch / "demo.png").read_bytes()[:4], b"\x89PNG")
        self.assertEqual((self.scratch / "demo.exr").read_bytes()[:4], b"v/1\x01")

    def test_it_says_how_it_was_built(self):
        said = self.vela("--version", "--build-info").stdout
        facts = dict(re.findall(r"^(\S.*?)  +(.+)$", said, re.M))
        for name, value in {"Vela": re.escape(self.version), "compiler": r"GCC \d+\.\d+.*C\+\+17",
                            "instruction sets": "SSE2", "OpenUSD": r"\d+\.\d+, within the library",
                            "TBB": r"\d+\.\d+\.\d+, within", "OpenSubdiv": r"\d\.\d\.\d, within",
                            "OpenAssetIO": r"1\.0\.\d+, .*/lib/vela/openassetio/",
                            "Python": r"3\.\d+"}.items():
            self.assertRegex(facts[name], value, said)
        self.assertNotIn("libpython", said, "nothing asked for Python yet")

    def test_without_openassetio_the_rest_works_and_one_line_says_so(self):
        tree = self.scratch / "without"
        shutil.copytree(self.tree, tree, symlinks=True)
        shutil.rmtree(tree / "lib/vela/openassetio")
        self.vela("info", ROOT / "examples/demo/demo.usda", tree=tree)
        config = self.scratch / "openassetio.toml"
        config.write_text('[manager]\nidentifier = "org.vela.test.none"\n')
        failed = self.vela("resolve", "bal:///x", tree=tree, code=1,
                           env={"OPENASSETIO_DEFAULT_CONFIG": str(config)})
        self.assertIn("OpenAssetIO is not installed: ", failed.stderr)
        self.assertIn("OpenAssetIO is not installed: ",
                      self.vela("--version", "--build-info", tree=tree).stdout)

    def test_without_its_tables_it_says_what_is_missing(self):
        tree = self.scratch / "no-tables"
        shutil.copytree(self.tree, tree, symlinks=True)
        for name in ("ar", "sdf", "ovo"):
            shutil.rmtree(tree / f"lib/vela/usd/{name}")
            failed = self.vela("info", ROOT / "examples/demo/demo.usda", tree=tree, code=1)
            self.assertIn("the installation is incomplete", failed.stderr)
            self.assertIn("plugInfo.json is missing", failed.stderr)


class Debian(unittest.TestCase):
    def contents(self, package):
        lines = run("dpkg-deb", "-c", package).stdout.splitlines()
        return {line.split()[5] for line in lines if not line.startswith("d")}

    def test_no_file_is_in_two_packages(self):
        seen = {}
        packages = sorted(PACKAGES.glob("*.deb"))
        self.assertEqual(len(packages), 5)
        for package in packages:
            for file in self.contents(package):
                self.assertNotIn(file, seen, package.name)
                seen[file] = package.name
        self.assertIn("./usr/bin/vela", seen)

    def test_the_documentation_is_a_package_that_needs_nothing(self):
        [package] = PACKAGES.glob("vela-doc_*_all.deb")
        field = {name: run("dpkg-deb", "-f", package, name).stdout.strip()
                 for name in ("Architecture", "Depends", "Section")}
        self.assertEqual(field, {"Architecture": "all", "Depends": "", "Section": "doc"})
        with tempfile.TemporaryDirectory() as scratch:
            run("dpkg-deb", "-x", package, scratch)
            folder = pathlib.Path(scratch, "usr/share/doc/vela-doc")
            check_site(self, folder / "html")
            self.assertTrue((folder / "copyright").is_file())
            self.assertTrue((folder / "third-party/snowballstemmer-LICENSE.txt").is_file())
            registered = pathlib.Path(scratch, "usr/share/doc-base/vela-doc").read_text()
            [index] = re.findall(r"^Index: /(.*)$", registered, re.M)
            self.assertTrue(pathlib.Path(scratch, index).is_file(), index)

    def test_lintian_finds_no_error(self):
        if not shutil.which("lintian"):
            self.skipTest("lintian is not installed: run scripts/setup work")
        done = subprocess.run(["lintian", "--fail-on", "error", *PACKAGES.glob("*.deb")],
                              capture_output=True, text=True, timeout=600)
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)


class Sums(unittest.TestCase):
    def test_the_sums_are_those_of_the_files(self):
        run("sha256sum", "--check", "--strict", "SHA256SUMS", cwd=PACKAGES)

    def test_the_list_of_what_travels_along_is_whole(self):
        [file] = PACKAGES.glob("*.spdx.json")
        document = json.loads(file.read_text())
        self.assertEqual(document["spdxVersion"], "SPDX-2.3")
        names = {p["name"] for p in document["packages"]}
        for name in ("vela", "pxr-sdf", "pxr-tbb-dev", "opensubdiv", "openassetio", "boost",
                     "furo", "sphinx"):
            self.assertIn(name, names)
        with tempfile.TemporaryDirectory() as scratch:
            [archive] = PACKAGES.glob("*.tar.gz")
            run("tar", "-xzf", archive, "-C", scratch)
            for library in pathlib.Path(scratch).glob("*/lib/vela/*.so*"):
                self.assertIn(library.name, names)
        known = {p["SPDXID"] for p in document["packages"]} | {"SPDXRef-DOCUMENT"}
        for relation in document["relationships"]:
            self.assertIn(relation["spdxElementId"], known)
            self.assertIn(relation["relatedSpdxElement"], known)
        for package in document["packages"]:
            self.assertNotIn(package["versionInfo"], ("", "unknown"), package["name"])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
