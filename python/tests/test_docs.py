"""Every example in a docstring runs, every class has one, and so have the functions of the module."""

import doctest
import inspect
import re
import subprocess
import sys
import types

import pytest

import vela
import vela.dask
import vela.trimesh

from conftest import ROOT

MODULES = [vela, vela.tarn, vela.ovo, vela.scene, vela.selection, vela.asset, vela.log, vela.look, vela.picture, vela.interop,
           vela.trimesh, vela.dask]


def public_things():
    """Each public class and function once, with the members of the classes, by name."""
    found, seen = [], set()

    def add(name, thing):
        if id(thing) in seen or name.rpartition(".")[2].startswith("_"):
            return
        seen.add(id(thing))
        found.append((name, thing))
        if inspect.isclass(thing):
            for member, value in vars(thing).items():
                if isinstance(value, property):
                    found.append((f"{name}.{member}", value))
                elif not member.startswith("_") and (callable(value) or isinstance(value, staticmethod)):
                    add(f"{name}.{member}", value)

    for module in MODULES:
        # A module that says what it offers imports more than that.
        for name in getattr(module, "__all__", list(vars(module))):
            thing = getattr(module, name)
            if not name.startswith("_") and not isinstance(thing, types.ModuleType) and callable(thing):
                add(f"{module.__name__}.{name}", thing)
    return found


THINGS = public_things()


def examples():
    parser = doctest.DocTestParser()
    for name, thing in THINGS + [(module.__name__, module) for module in MODULES]:
        text = inspect.getdoc(thing) or ""
        if ">>>" in text:
            yield pytest.param(parser.get_doctest(text, {"vela": vela}, name, None, None), id=name)


@pytest.mark.parametrize("example", list(examples()))
def test_the_example_of_a_docstring_runs(example, monkeypatch):
    monkeypatch.chdir(ROOT)
    monkeypatch.delenv("OPENASSETIO_DEFAULT_CONFIG", raising=False)
    out = []
    runner = doctest.DocTestRunner(optionflags=doctest.ELLIPSIS)
    runner.run(example, out=out.append)
    assert runner.failures == 0, "".join(out)
    assert runner.tries > 0


def is_enumeration(thing):
    return inspect.isclass(thing) and hasattr(thing, "__members__")


def test_everything_public_says_what_it_is():
    missing = [name for name, thing in THINGS if not (inspect.getdoc(thing) or "").strip()]
    assert not missing


def test_every_class_has_an_example():
    missing = [name for name, thing in THINGS if inspect.isclass(thing) and not issubclass(thing, (Warning, tuple))
               and ">>>" not in (inspect.getdoc(thing) or "") and thing.__qualname__ == thing.__name__]
    assert not missing, missing


TABLE = [[cell.strip() for cell in line.strip("|").split("|")] for line in (ROOT / "docs/python.md").read_text().splitlines()
         if line.startswith("| `")]


def test_the_table_has_every_public_header():
    told = {name for row in TABLE for name in re.findall(r"`([\w/]+\.h)`", row[0])}
    there = {path.relative_to(ROOT / "src").as_posix() for path in (ROOT / "src").rglob("*.h")
             if "detail" not in path.parts and not path.name.startswith("Test") and "_test" not in path.name}
    assert len(there) > 80 and told == there, told ^ there


def test_the_table_names_what_is_there():
    count = 0
    for row in TABLE:
        for name in re.findall(r"`([A-Za-z][\w.]*)`", row[2]):
            if name in ("int", "str", "math", "threads", "variants", "options", "progress", "vela"):
                continue
            thing = vela
            for part in name.split("."):
                assert hasattr(thing, part), name
                thing = getattr(thing, part)
            count += 1
    assert count > 150


def test_the_programs_of_the_pages_run(tmp_path):
    (tmp_path / "examples").symlink_to(ROOT / "examples")
    pages = [ROOT / "docs/python.md", ROOT / "README.md", *sorted((ROOT / "docs/guide").glob("*.md"))]
    programs = [code for page in pages for code in re.findall(r"^```python\n(.*?)^```", page.read_text(), re.M | re.S)]
    assert len(programs) >= 3
    for code in programs:
        # From a file: a program that starts processes is imported by them.
        (tmp_path / "program.py").write_text(code)
        done = subprocess.run([sys.executable, "-W", "error", "program.py"], capture_output=True, text=True, timeout=300, cwd=tmp_path)
        assert done.returncode == 0, code + done.stderr
