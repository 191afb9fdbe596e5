"""Pictures: rendered with progress and Ctrl-C, read as arrays, written."""

import io
import os
import pickle
import signal
import subprocess
import sys
import threading

import numpy
import pytest

import vela

from conftest import DEMO, ROOT, run_python


@pytest.fixture(scope="module")
def picture():
    return vela.render(DEMO, size=(64, 36), layers=["rgba", "depth", "prim", "N"], samples=4)


def test_layers_are_arrays(picture):
    assert picture.keys() == list(picture) and len(picture) == 4 and set(picture) == {"rgba", "depth", "prim", "N"}
    assert picture["rgba"].shape == (36, 64, 4) and picture["depth"].shape == (36, 64) and picture["N"].shape == (36, 64, 3)
    assert picture["prim"].dtype == numpy.uint32 and picture["depth"].dtype == numpy.float32
    assert numpy.array_equal(picture["rgb"], picture["rgba"][:, :, :3]) and numpy.array_equal(picture["Z"], picture["depth"])
    assert "alpha" in picture and "heat" not in picture and 5 not in picture
    with pytest.raises(KeyError, match="no layer or channel 'heat', but rgba"):
        picture["heat"]
    assert picture.layer_channels("N") == ["N.x", "N.y", "N.z"]
    assert max(picture["prim"].ravel()) <= len(picture.manifest)


def test_pictures_do_not_depend_on_threads_or_regions(picture):
    again = vela.render(DEMO, size=(64, 36), layers=["rgba", "depth", "prim", "N"], samples=4, threads=1)
    assert again == picture
    part = vela.render(DEMO, size=(64, 36), layers=["depth"], samples=4, region=(10, 5, 30, 25))
    assert numpy.array_equal(part["depth"], picture["depth"][5:25, 10:30])


@pytest.mark.parametrize(("options", "kind", "text"), [
    ({"layers": ["heat"]}, ValueError, "no such layer: heat"), ({"layers": []}, ValueError, "."),
    ({"samples": 0}, ValueError, "samples"), ({"camera": "/Nowhere"}, LookupError, "/Nowhere"),
    ({"size": (-1, 4)}, ValueError, "."), ({"size": (1 << 20, 4)}, ValueError, "."), ({"size": 5}, TypeError, "."),
    ({"layers": 5}, TypeError, "."), ({"time": "now"}, TypeError, "."), ({"nonsense": 1}, TypeError, "nonsense"),
])
def test_options_that_make_no_picture_say_why(options, kind, text):
    with pytest.raises(kind, match=text):
        vela.render(DEMO, **{"size": (8, 8), **options})


def test_what_cannot_be_shown_is_told(memory_stage):
    memory_stage.define_prim("/Camera", "Camera").create_attr("horizontalAperture", "float").set(0)
    with pytest.warns(vela.VelaWarning, match="/Camera: "):
        vela.render(memory_stage, size=(8, 8), layers="depth", samples=1)


def test_progress_rises_to_one():
    shares = []
    vela.render(DEMO, size=(64, 36), layers="depth", progress=shares.append)
    assert shares == sorted(shares) and shares[-1] == 1.0 and 0 <= shares[0] <= 1


def test_what_progress_raises_stops_the_work():
    class Enough(Exception):
        pass

    def stop(share):
        raise Enough

    with pytest.raises(Enough):
        vela.render(DEMO, size=(640, 360), samples=256, progress=stop)


def test_a_bar_is_shown_where_tqdm_is(capsys):
    vela.render(DEMO, size=(64, 36), layers="depth", progress=True)
    assert "vela" in capsys.readouterr().err


def test_ctrl_c_ends_it():
    begun = threading.Event()

    def press():
        begun.wait()
        os.kill(os.getpid(), signal.SIGINT)

    threading.Thread(target=press).start()
    with pytest.raises(KeyboardInterrupt):
        vela.render(DEMO, size=(4000, 3000), samples=4096, progress=lambda share: begun.set())


def test_other_threads_run_meanwhile():
    ticks = []
    stop = threading.Event()

    def tick():
        while not stop.is_set():
            ticks.append(len(ticks))

    worker = threading.Thread(target=tick)
    worker.start()
    before = len(ticks)
    vela.render(DEMO, size=(160, 90), samples=16, threads=1)
    after = len(ticks)
    stop.set()
    worker.join()
    assert after > before


def test_a_stage_cannot_change_while_it_is_read(stage):
    mesh = stage.meshes()[0]
    changed = []

    def change(share):
        with pytest.raises(RuntimeError, match="cannot change while another call reads it"):
            mesh.set_points([[0, 0, 0]])
        with pytest.raises(RuntimeError):
            stage.close()
        changed.append(share)

    vela.render(stage, size=(64, 36), layers="depth", progress=change)
    assert changed
    mesh.set_points([[0, 0, 0]])


@pytest.mark.parametrize(("name", "start"), [("a.exr", b"\x76\x2f\x31\x01"), ("a.png", b"\x89PNG"), ("a.JPG", b"\xff\xd8")])
def test_files_are_written_by_their_extension(picture, tmp_path, name, start):
    picture.save(tmp_path / name)
    data = (tmp_path / name).read_bytes()
    assert data.startswith(start) and data == picture.to_bytes(name[-3:].lower())
    file = io.BytesIO()
    picture.save(file, format=name[-3:].lower())
    assert file.getvalue() == data
    assert sorted(path.name for path in tmp_path.iterdir()) == [name]


def test_files_that_are_there_keep_their_permissions(picture, tmp_path):
    file = tmp_path / "a.png"
    file.write_bytes(b"old")
    file.chmod(0o640)
    link = tmp_path / "link.png"
    link.symlink_to(file)
    picture.save(link)
    assert link.is_symlink() and file.read_bytes().startswith(b"\x89PNG") and file.stat().st_mode & 0o777 == 0o640


def test_a_file_that_cannot_be_written_is_an_oserror_and_nothing_is_left(picture, tmp_path):
    with pytest.raises(FileNotFoundError):
        picture.save(tmp_path / "nowhere/a.png")
    with pytest.raises(IsADirectoryError):
        (tmp_path / "a.png").mkdir()
        picture.save(tmp_path / "a.png")
    with pytest.raises(ValueError, match="expected a name that ends with .exr, .png or .jpg"):
        picture.save(tmp_path / "a.tif")
    with pytest.raises(ValueError, match="format: expected"):
        picture.to_bytes("tif")
    with pytest.raises(ValueError, match="compression: there is no 'best'"):
        picture.to_bytes("exr", compression="best")
    with pytest.raises(ValueError):
        picture.to_bytes("exr", compression="dwaa")
    assert [path.name for path in tmp_path.iterdir()] == ["a.png"]


def test_notebooks_see_a_picture(picture):
    assert picture._repr_png_() == picture.to_bytes("png")
    depth = vela.Picture({"depth": picture["depth"]})
    assert depth._repr_png_().startswith(b"\x89PNG")
    assert picture.display("rgba", behind="nothing").shape == (36, 64, 4)
    assert picture.display(behind=[0, 0, 0], view="clip", exposure=1).dtype == numpy.uint8
    for wrong in ({"view": "film"}, {"layer": "P"}, {"behind": "nobody"}):
        with pytest.raises(ValueError):
            picture.display(**{"layer": "rgba", **wrong})


def test_pictures_are_made_from_arrays_and_pickled(picture):
    again = pickle.loads(pickle.dumps(picture))
    assert again == picture and again.attributes.keys() == picture.attributes.keys() and again.manifest == picture.manifest
    made = vela.Picture({"depth": picture["depth"]}, {"comment": "made", "frame": 5, "camera": "/C"})
    assert made.attributes == {"comment": "made", "frame": 5, "camera": "/C"} and made != picture
    for wrong in ({"depth": numpy.zeros((2, 2, 3), numpy.float32)}, {"depth": [1.0]},
                  {"depth": numpy.zeros((2, 2), numpy.float32), "Z2": numpy.zeros((1, 1))},
                  {"depth": numpy.zeros((2, 2), numpy.float32), "N": numpy.zeros((1, 1, 3), numpy.float32)}):
        with pytest.raises((ValueError, KeyError)):
            vela.Picture(wrong)


def test_the_text_of_a_file_is_read(picture, tmp_path):
    picture.save(tmp_path / "a.exr")
    assert "{" in vela.picture.read_exr_text(tmp_path / "a.exr", "prim/manifest")
    with pytest.raises(ValueError):
        vela.picture.read_exr_text(tmp_path / "a.exr", "nothing")
    with pytest.raises(FileNotFoundError):
        vela.picture.read_exr_text(tmp_path / "b.exr", "nothing")


@pytest.mark.parametrize("named", [False, True])
def test_a_log_file_is_written_where_one_is_named_alone(tmp_path, named):
    code = """
import os, vela
os.chdir(%r)
vela.log.set_level(4)
vela.log.write(1, "a line")
vela.asset.clear_cache()
""" % str(tmp_path)
    environment = {key: value for key, value in os.environ.items() if not key.startswith("HALDEN")}
    if named:
        environment["HALDEN_LOG_FILE"] = str(tmp_path / "a.log")
    done = subprocess.run([sys.executable, "-c", code], env=environment, capture_output=True, text=True, timeout=60)
    assert done.returncode == 0, done.stderr
    assert [path.name for path in tmp_path.iterdir()] == (["a.log"] if named else [])
    if named:
        assert "a line" in (tmp_path / "a.log").read_text()


def test_logging_is_pythons(caplog):
    vela.log.set_level(vela.log.Level.WARNING)
    with caplog.at_level("DEBUG", logger="vela"):
        vela.log.write(vela.log.Level.WARNING, "50 % of it", vela.log.channel("Textures"))
        vela.log.write(vela.log.Level.VERBOSE, "not told")
        with pytest.raises(ValueError):
            vela.asset.setup_manager(ROOT / "missing.toml")
    told = [(record.name, record.levelname, record.getMessage()) for record in caplog.records]
    assert ("vela", "WARNING", "Textures: 50 % of it") in told and not any("not told" in text for _, _, text in told)
