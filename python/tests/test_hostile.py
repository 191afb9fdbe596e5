"""Bad input and odd hosts: the stated result or a Python exception, never a crash. What could end the process runs in one of its
own."""

import sys
import threading

import numpy
import pytest
from hypothesis import HealthCheck, given, settings
from hypothesis import strategies as st

import vela

from conftest import DEMO, SQUARE, run_python

# What programs may be doing around the module.
PROGRAMS = {
    "objects live when the interpreter ends": f"""
import vela
stage = vela.open({str(DEMO)!r})
prims, meshes = stage.meshes(), vela.scene.list_meshes(stage)
caster = vela.scene.RayCaster(meshes)
view = vela.scene.make_view(stage, width=8, height=8)
points, picture = prims[0].points(), vela.render(stage, size=(8, 8), samples=1)
depth = picture["rgba"]
import atexit
atexit.register(lambda: print(len(stage.meshes()), depth.shape, caster.intersect([[0, 9, 0]], [[0, -1, 0]]).hit.shape))
""",
    "a child after fork": f"""
import os, vela
stage = vela.open({str(DEMO)!r})
vela.render(stage, size=(16, 16), samples=1)
child = os.fork()
if child == 0:
    picture = vela.render(stage, size=(16, 16), samples=1, threads=2)
    again = vela.open({str(DEMO)!r})
    os._exit(0 if len(again.meshes()) and picture["rgba"].shape == (16, 16, 4) else 1)
_, status = os.waitpid(child, 0)
assert status == 0, status
""",
    "a child by multiprocessing": f"""
import multiprocessing, pickle, vela
def work(seed):
    return vela.SamplingRng(seed).values(4).tolist(), vela.open({str(DEMO)!r}).default_prim.path
if __name__ == "__main__":
    with multiprocessing.get_context("fork").Pool(2) as pool:
        assert pool.map(work, [1, 2])[1] == (vela.SamplingRng(2).values(4).tolist(), "/Demo")
""",
    "threads that end after the main one": f"""
import threading, vela
stage = vela.open({str(DEMO)!r})
for _ in range(3):
    threading.Thread(target=lambda: [vela.render(stage, size=(16, 16), samples=1) for _ in range(5)]).start()
""",
    "a daemon thread that renders when the interpreter ends": f"""
import threading, vela
stage = vela.open({str(DEMO)!r})
started = threading.Event()
def work():
    while True:
        vela.render(stage, size=(64, 64), samples=4, threads=1, progress=lambda share: started.set())
threading.Thread(target=work, daemon=True).start()
started.wait()
""",
    "an exit within a callback": f"""
import vela
try:
    vela.render({str(DEMO)!r}, size=(64, 64), progress=lambda share: exit(3))
except SystemExit as end:
    assert end.code == 3
""",
    "a module that is imported again": """
import sys, vela
first = vela.SceneTracer
for name in [name for name in sys.modules if name.split(".")[0] == "vela" and name != "vela._vela" and not name.startswith("vela._vela.")]:
    del sys.modules[name]
import vela
assert vela.SceneTracer is first
""",
    "no standard streams": f"""
import os
for number in (0, 1, 2):
    os.close(number)
import vela
vela.render({str(DEMO)!r}, size=(8, 8), samples=1)
vela.log.write(vela.log.Level.ERROR, "nobody hears")
""",
}


@pytest.mark.parametrize("code", PROGRAMS.values(), ids=PROGRAMS.keys())
def test_a_program_ends_well(code):
    done = run_python(code)
    assert done.returncode == 0, f"exit code {done.returncode}\n{done.stdout}{done.stderr}"
    assert "Fatal" not in done.stderr and "nanobind" not in done.stderr, done.stderr


@pytest.mark.parametrize("first", ["vela", "numpy"])
def test_imports_come_in_any_order(first):
    other = {"vela": "numpy", "numpy": "vela"}[first]
    done = run_python(f"import {first}, {other}\nimport vela\nvela.render({str(DEMO)!r}, size=(8, 8), samples=1)")
    assert done.returncode == 0, done.stderr


def test_many_threads_share_one_scene_and_one_tracer(stage, square_tracer):
    origins = numpy.tile(numpy.array([[0, 0, 5]], numpy.float32), (5000, 1))
    directions = numpy.tile(numpy.array([[0, 0, -1]], numpy.float32), (5000, 1))
    faults = []

    def work():
        try:
            for _ in range(10):
                assert square_tracer.intersect(origins, directions, threads=2).hit.all()
                assert len(stage.meshes()) == len([prim for prim in stage.find_descendent_prims() if prim.type_name == "Mesh"])
                caster = vela.scene.RayCaster(vela.scene.list_meshes(stage))
                assert caster.intersect([[0, 1000, 0]], [[0, -1, 0]]).hit.all()
        except BaseException as fault:
            faults.append(fault)

    workers = [threading.Thread(target=work) for _ in range(4)]
    for worker in workers:
        worker.start()
    for worker in workers:
        worker.join()
    assert not faults, faults


def test_a_tracer_is_changed_or_asked_never_both(square_tracer):
    origins = numpy.tile(numpy.array([[0, 0, 5]], numpy.float32), (200000, 1))
    stop, told, faults = threading.Event(), [], []

    def ask():
        while not stop.is_set():
            try:
                square_tracer.intersect(origins, -origins)
            except RuntimeError as reason:
                told.append(str(reason))
            except BaseException as fault:
                faults.append(fault)

    asker = threading.Thread(target=ask)
    asker.start()
    for _ in range(200):
        try:
            square_tracer.add_placement(0)
            square_tracer.build()
        except RuntimeError as reason:
            told.append(str(reason))
    stop.set()
    asker.join()
    assert not faults and set(told) <= {"the tracer is in use by another call", "the tracer is being changed by another call"}


def test_batches_say_what_was_thrown(square_tracer):
    for threads in (10**9, 1 << 40):
        try:
            square_tracer.intersect(numpy.zeros((10, 3), numpy.float32), numpy.ones((10, 3), numpy.float32), threads=threads)
        except (TypeError, ValueError):
            pass


ANYTHING = st.recursive(
    st.none() | st.booleans() | st.integers() | st.floats() | st.text(max_size=5) | st.binary(max_size=5)
    | st.sampled_from([numpy.zeros((0, 3)), SQUARE, SQUARE[::-1], SQUARE.astype(">f8"), numpy.float32(1), numpy.array(5),
                       numpy.full((2, 3), numpy.nan), numpy.array(["a"]), numpy.array([None]), numpy.zeros((2, 2, 2)),
                       numpy.array([1 << 62]), object(), int, DEMO]),
    lambda inner: st.lists(inner, max_size=4) | st.tuples(inner, inner) | st.dictionaries(st.text(max_size=3), inner, max_size=2),
    max_leaves=5)


def makers():
    """Objects whose methods are called with whatever there is; fresh for each call."""
    stage = vela.Stage.create_in_memory()
    mesh = vela.ovo.MeshPrim.define(stage, "/Square")
    mesh.set_points(SQUARE)
    mesh.set_faces([4], [0, 1, 2, 3])
    tracer = vela.SceneTracer()
    tracer.add_placement(tracer.add_mesh(mesh))
    tracer.build()
    sample = vela.MeshSample.read(mesh)
    model = vela.TriangleAccelerationModel(SQUARE, [4], [0, 1, 2, 3])
    meshes = vela.scene.list_meshes(stage)
    return [
        stage, stage.root_prim, mesh, mesh.attr("points"), mesh.create_primvar("st", "texCoord2f[]"), vela.ovo.XformCache(),
        vela.ovo.PropertyLinks(mesh), tracer, sample, vela.MeshTopology.read(mesh), model, vela.BvhAcceleration(model),
        vela.GridAcceleration(model), vela.HitDetector(stage), vela.SamplingRng(), vela.SamplingRngSet(2), vela.ChannelSet([1]),
        vela.ChannelPack([1]), vela.GlobalChannelManager(), vela.GlobalChannelManager().channel_by_number(1),
        vela.GlobalChannelManager().layer("rgba"), vela.LinearProjection(), vela.SphericalProjection(), vela.Camera.Sample(),
        vela.MultiProjectionCamera(), vela.RayContext(), vela.tarn.Box3f(), vela.tarn.Ray3d(), vela.tarn.Hash(), meshes,
        vela.scene.RayCaster(meshes), vela.scene.make_view(stage, width=4, height=4), vela.scene.Surface(meshes.shape(0)),
        meshes.shape(0), vela.selection.GeoSelection(), vela.selection.WeightedPartSelection(),
        vela.Picture({"depth": numpy.zeros((2, 2), numpy.float32)}), vela.NearestPointQuery(vela.tarn.Box3f([0] * 3, [1] * 3), 0.5),
        vela.picture.ViewTransform(), vela.asset.AssetInfo("x"), vela, vela.tarn, vela.ovo, vela.scene, vela.look, vela.picture,
    ]


# What reads or writes places of the machine, sets up the process, or takes long by its meaning.
LEFT_ALONE = {"open", "render", "save", "load", "export_to", "setup_manager", "build_revolve_mesh_points", "read_file_bytes", "resize",
              "build_rect_quad_mesh", "build_cube", "build_sphere_mesh", "build_cylinder_mesh", "build_revolve_mesh",
              "build_revolve_mesh_faces", "build_revolve_mesh_uvs", "uniform_samples_2d", "samples_1d", "samples_2d", "float_values",
              "double_values", "values", "reserve_placements", "reserve_face_vert_space", "PictureRenderer", "SamplingRngSet",
              "subdivide_uniform", "close", "summarize", "explain_ray", "make_view", "default_channel_manager", "NearestPointQuery"}
CALLS = [(number, name) for number, thing in enumerate(makers()) for name in dir(thing)
         if not name.startswith("_") and name not in LEFT_ALONE and callable(getattr(type(thing) if not hasattr(thing, "__file__")
                                                                                     and not isinstance(thing, type(sys)) else thing, name, None))]


def test_calls_were_found():
    assert len(CALLS) > 300


@settings(max_examples=1500, deadline=None, derandomize=True, database=None,
          suppress_health_check=[HealthCheck.too_slow, HealthCheck.data_too_large, HealthCheck.filter_too_much])
@given(call=st.sampled_from(CALLS), arguments=st.lists(ANYTHING, max_size=5))
@pytest.mark.filterwarnings("ignore")
def test_any_call_with_anything_answers_or_raises(call, arguments):
    number, name = call
    try:
        getattr(makers()[number], name)(*arguments)
    except Exception as fault:
        assert not isinstance(fault, (SystemError, RecursionError)), fault


ATTRIBUTES = [(number, name) for number, thing in enumerate(makers()) for name in dir(type(thing))
              if not name.startswith("_") and isinstance(getattr(type(thing), name, None), property)]


@settings(max_examples=600, deadline=None, derandomize=True, database=None)
@given(attribute=st.sampled_from(ATTRIBUTES), value=ANYTHING)
@pytest.mark.filterwarnings("ignore")
def test_any_attribute_takes_what_fits_and_raises_else(attribute, value):
    number, name = attribute
    thing = makers()[number]
    try:
        setattr(thing, name, value)
        getattr(thing, name)
        repr(thing)
    except Exception as fault:
        assert not isinstance(fault, (SystemError, RecursionError)), fault
