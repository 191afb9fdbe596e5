"""The types of the module are whole: checked as strictly as mypy can, and by pyright, with a program that uses them."""

import json
import os
import pathlib
import shutil
import subprocess
import sys

import vela

PROGRAM = '''
import numpy
import numpy.typing
import vela
import vela.dask
from vela.selection import GeoSelection

stage: vela.Stage = vela.open("a.usda", variants=["/A:b=c"])
prim: vela.Prim = stage.prim(vela.Path("/World"))
parent: vela.Path = prim.path.parent
mesh = vela.ovo.MeshPrim(prim)
points: numpy.typing.NDArray[numpy.float32] = mesh.points(time=1.0)
tracer = vela.SceneTracer()
tracer.add_placement(tracer.add_mesh(points, [4], [0, 1, 2, 3]), vela.tarn.translation([1, 2, 3]))
tracer.build()
hits: vela.Hits = tracer.intersect(points, points, max_distance=5, threads=2)
near: numpy.typing.NDArray[numpy.float64] = hits.distance[hits.hit]
chosen = GeoSelection()
chosen.set_object_selected(prim.path, True)
picture: vela.Picture = vela.render(stage, size=(64, 36), layers=["depth"], selection=chosen, progress=print)
depth = picture["depth"]
picture.save("x.exr")
data: bytes = picture.to_bytes("png")
sample = vela.Camera.Sample()
sample.optics.focal_length = 5.0
rays: vela.Rays = vela.LinearProjection().rays(points[:, :2], sample)
tracer_numbers: list[int] = vela.interop.place(tracer, object())
client = vela.dask.connect("tcp://farm:8786", timeout=5)
pictures: list[vela.Picture] = vela.dask.render(client, "a.usda", frames="1-9", samples=4).result()
written: list[str] = vela.dask.render(client, "a.usda", frames=[1, 2.5], output="a.##.exr", size=(64, 36)).result()
whole: vela.Picture = vela.dask.tiles(client, "a.usda", count=9, lights=vela.picture.LightChoice.OWN).result()
met: vela.SurfaceHits = vela.dask.intersect(client, "a.usda", points, points).result(timeout=9)
names: list[str] = [alias.name for alias in vela.default_channel_manager().channels()]
'''


def mypy(*arguments, folder):
    return subprocess.run([sys.executable, "-m", "mypy", "--strict", "--cache-dir", str(folder / "cache"), *arguments],
                          capture_output=True, text=True, timeout=600, cwd=folder,
                          env=dict(os.environ, PYTHONPATH=str(pathlib.Path(vela.__file__).absolute().parents[1])))


def test_the_package_is_typed_strictly(tmp_path):
    done = mypy("-p", "vela", folder=tmp_path)
    assert done.returncode == 0, done.stdout + done.stderr
    program = tmp_path / "program.py"
    program.write_text(PROGRAM)
    done = mypy(str(program), folder=tmp_path)
    assert done.returncode == 0, done.stdout + done.stderr
    # And what is wrong is found.
    program.write_text(PROGRAM + "\npicture.save()\nstage.prim(5)\nhits.distances\nvela.dask.tiles(client, 5)\n")
    assert mypy(str(program), folder=tmp_path).stdout.count("error:") == 4


def pyright(folder, program):
    """Over a copy of the package and a program; what it found, as texts."""
    package = folder / "package"
    if not package.exists():
        shutil.copytree(pathlib.Path(vela.__file__).parent, package / "vela")
    (package / "program.py").write_text(program)
    settings = {"include": ["package"], "extraPaths": ["package"], "typeCheckingMode": "standard"}
    (folder / "pyrightconfig.json").write_text(json.dumps(settings))
    done = subprocess.run([sys.executable, "-m", "pyright", "--outputjson", "--pythonpath", sys.executable, "-p", str(folder)],
                          capture_output=True, text=True, timeout=600, cwd=folder,
                          env=dict(os.environ, PYRIGHT_PYTHON_IGNORE_WARNINGS="1"))
    told = json.loads(done.stdout)
    assert told["summary"]["filesAnalyzed"] > 20, done.stdout + done.stderr
    return [f"{found['file']}:{found['range']['start']['line'] + 1}: {found['message']}" for found in told["generalDiagnostics"]]


def test_pyright_finds_nothing(tmp_path):
    assert pyright(tmp_path, PROGRAM) == []
    wrong = pyright(tmp_path, PROGRAM + "\npicture.save()\nstage.prim(5)\nhits.distances\n")
    assert len(wrong) == 3, wrong


def test_types_and_module_name_the_same_things():
    package = pathlib.Path(vela.__file__).parent
    assert (package / "py.typed").exists()
    text = (package / "_vela/__init__.pyi").read_text()
    for name in vela._vela.__all__:
        assert f"def {name}(" in text or f"class {name}(" in text or f"class {name}:" in text, name
