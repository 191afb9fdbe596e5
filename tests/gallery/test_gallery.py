"""The commands and scripts of the gallery, and the notebooks that are made of these, run and give the pictures of the documentation."""

import os
import pathlib
import re
import subprocess
import sys
import tempfile

import nbclient
import nbformat
import numpy
import PIL.Image
import pytest
import traitlets.config

from commands import commands_of, run_all
from notebooks import notebook_of

ROOT = pathlib.Path(__file__).resolve().parents[2]
SCRIPTS = sorted((ROOT / "examples/gallery").glob("*.py"))
PAGE = ROOT / "docs/gallery.md"
COMMANDS = dict(commands_of(PAGE))
PICTURES = ROOT / "docs/images/gallery"


@pytest.fixture
def folder(tmp_path, monkeypatch):
    """What scripts run in: the examples are found there, and the module is that of the build tree."""
    (tmp_path / "examples").symlink_to(ROOT / "examples")
    monkeypatch.setenv("IPYTHONDIR", str(tmp_path / "ipython"))
    return tmp_path


@pytest.fixture
def kernel(monkeypatch):
    """Kernels listen at sockets in a folder of their own: a free TCP port that Jupyter finds may be taken before it is bound.

    The folder's path is short, since that of a socket has at most 107 bytes, and whole, since a kernel works elsewhere.
    """
    with tempfile.TemporaryDirectory(prefix="vela-nb-") as runtime:
        monkeypatch.setenv("JUPYTER_RUNTIME_DIR", runtime)
        config = traitlets.config.Config()
        config.KernelManager.transport = "ipc"
        config.KernelManager.ip = f"{runtime}/kernel"
        yield config


def assert_same_picture(file, name):
    """The renderer gives the same bits everywhere; sines of NumPy differ in their last one, which may turn a ray."""
    with PIL.Image.open(file) as found, PIL.Image.open(PICTURES / name) as wanted:
        assert found.size == wanted.size
        difference = numpy.abs(numpy.asarray(found.convert("RGB"), int) - numpy.asarray(wanted.convert("RGB"), int))
    assert numpy.mean(difference > 2) < 0.002, f"{name}: {100 * numpy.mean(difference > 2):.2f} % of the values differ"


def test_there_are_ten_of_each():
    assert len(SCRIPTS) == 10
    assert len(COMMANDS) == 10
    assert all(lines and all(line.startswith("vela ") for line in lines) for lines in COMMANDS.values())


def test_the_scenes_are_what_their_script_writes(folder):
    scenes = ROOT / "examples/gallery/scenes"
    subprocess.run([sys.executable, "-W", "error", str(scenes / "make_scenes.py"), str(folder)], check=True, timeout=60)
    written = sorted(path.name for path in folder.glob("*.usda"))
    assert written == sorted(path.name for path in scenes.glob("*.usda"))
    for name in written:
        assert (folder / name).read_text() == (scenes / name).read_text(), f"{name}: scripts/update-gallery writes it anew"


@pytest.mark.parametrize("name", COMMANDS)
def test_commands_give_their_picture(name, folder, monkeypatch):
    monkeypatch.setenv("PATH", os.environ["VELA_COMMAND_FOLDER"] + os.pathsep + os.environ["PATH"])
    run_all(COMMANDS[name], folder)
    assert (folder / f"{name}.png").read_bytes() == (PICTURES / f"{name}.png").read_bytes(), "the renderer gives the same bytes everywhere"


@pytest.mark.parametrize("script", SCRIPTS, ids=lambda path: path.stem)
def test_a_script_gives_its_picture(script, folder):
    done = subprocess.run([sys.executable, "-W", "error", str(script)], capture_output=True, text=True, timeout=300, cwd=folder,
                          env=os.environ)
    assert done.returncode == 0, done.stdout + done.stderr
    assert done.stdout.strip(), "a script says what it has found"
    assert_same_picture(folder / f"{script.stem}.png", f"{script.stem}.png")


@pytest.mark.parametrize("script", SCRIPTS, ids=lambda path: path.stem)
def test_a_notebook_is_its_script(script, folder, kernel):
    text = script.with_suffix(".ipynb").read_text()
    assert text == notebook_of(script), "scripts/update-gallery writes it anew"
    book = nbformat.reads(text, as_version=4)
    client = nbclient.NotebookClient(book, timeout=300, kernel_name="python3", config=kernel,
                                     resources={"metadata": {"path": str(folder)}})
    client.execute()
    assert_same_picture(folder / f"{script.stem}.png", f"{script.stem}.png")
    # The last cell shows the picture.
    assert any("image/png" in output.get("data", {}) for output in book.cells[-1].outputs)


def test_the_page_shows_each_of_them():
    page = PAGE.read_text()
    assert set(re.findall(r"\]\(\.\./examples/gallery/(\w+)\.py\)", page)) == {script.stem for script in SCRIPTS}
    assert set(re.findall(r"\]\(\.\./examples/gallery/(\w+)\.ipynb\)", page)) == {script.stem for script in SCRIPTS}
    shown = set(re.findall(r"images/gallery/(\w+\.png)", page))
    assert shown == {path.name for path in PICTURES.glob("*.png")} == {f"{name}.png" for name in [script.stem for script in SCRIPTS] + list(COMMANDS)}
