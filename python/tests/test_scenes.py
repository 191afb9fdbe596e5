"""Stages, prims and values: read, written, closed."""

import copy
import pathlib
import pickle

import numpy
import pytest

import vela

from conftest import DEMO, ROOT, SQUARE


def test_files_open_by_every_kind_of_name(tmp_path):
    for name in (DEMO, str(DEMO), bytes(DEMO)):
        assert vela.open(name).default_prim.path == "/Demo"


@pytest.mark.parametrize(("make", "kind"), [
    (lambda path: path / "missing.usda", FileNotFoundError),
    (lambda path: path, IsADirectoryError),
], ids=["missing", "folder"])
def test_a_file_that_cannot_be_opened_is_an_oserror(make, kind, tmp_path):
    with pytest.raises(kind) as told:
        vela.open(make(tmp_path))
    assert told.value.filename == str(make(tmp_path)) and told.value.strerror


def test_a_file_that_is_no_scene_says_why(tmp_path):
    broken = tmp_path / "broken.usda"
    broken.write_text("#usda 1.0\ndef {")
    with pytest.raises(ValueError, match="broken.usda"):
        vela.open(broken)
    with pytest.raises(ValueError):
        vela.Stage.open_text("nonsense")


def test_names_that_are_none_are_refused():
    for wrong in (5, None, "a\0b", ["a"]):
        with pytest.raises(TypeError):
            vela.open(wrong)


@pytest.mark.parametrize(("kind", "value"), [
    ("bool", True), ("int", -5), ("int64", 1 << 40), ("float", 0.5), ("double", 1e300), ("string", "text"), ("token", "word"),
    ("asset", "a.png"), ("int2", [1, 2]), ("float3", [1, 2, 3]), ("color4f", [1, 2, 3, 4]), ("double3", [1, 2, 3]),
    ("quatf", [0, 0, 0, 1]), ("matrix4d", numpy.eye(4).tolist()), ("int[]", [1, 2, 3]), ("float[]", [0.5]),
    ("point3f[]", SQUARE.tolist()), ("texCoord2f[]", [[0, 1]]), ("string[]", ["a", "b"]), ("token[]", []),
    ("matrix4d[]", [numpy.eye(4).tolist()]), ("bool[]", [True, False]), ("int64[]", [1 << 40]), ("double[]", [1e300]),
])
def test_values_come_back_as_they_were_written(memory_stage, kind, value):
    attribute = memory_stage.define_prim("/Prim").create_attr("value", kind)
    assert attribute.type_name == kind and attribute.get() is None
    attribute.set(value)
    read = attribute.get()
    assert numpy.array_equal(read, value) and len(numpy.shape(read)) == len(numpy.shape(value))
    assert type(read) is type(value) or isinstance(read, (numpy.ndarray, list))


@pytest.mark.parametrize(("kind", "value", "error"), [
    ("int", "text", TypeError), ("int", 0.5, TypeError), ("float3", [1, 2], TypeError), ("string", 5, TypeError),
    ("point3f[]", [[1, 2]], ValueError), ("int[]", [0.5], TypeError), ("matrix4d", numpy.eye(3), TypeError),
    ("int", 1 << 40, TypeError), ("string[]", "text", TypeError),
])
def test_values_of_another_type_are_refused(memory_stage, kind, value, error):
    attribute = memory_stage.define_prim("/Prim").create_attr("value", kind)
    with pytest.raises(error, match="value"):
        attribute.set(value)
    assert attribute.get() is None


def test_time_samples(memory_stage):
    attribute = memory_stage.define_prim("/Prim").create_attr("value", "double")
    attribute.set(1.0, time=0)
    attribute.set(3.0, time=2)
    assert attribute.get(1) == 2.0 and attribute.get() == 1.0 and attribute.get_authored() is None
    assert attribute.time_samples() == [0.0, 2.0] and attribute.might_be_time_varying
    attribute.block(2)
    attribute.clear()
    assert attribute.get(1, default="nothing") == "nothing"


def test_prims_that_are_not_there_answer_with_nothing(memory_stage):
    prim = memory_stage.prim("/Nowhere")
    assert not prim and not prim.is_valid and prim.type_name == "" and prim.children() == []
    assert not prim.attr("points") and prim.attr("points").get() is None
    with pytest.raises(ValueError):
        prim.create_attr("a", "float")
    with pytest.raises(ValueError):
        prim.is_active = False
    with pytest.raises(ValueError):
        memory_stage.define_prim("no path")
    empty = vela.Prim()
    assert not empty and empty.stage is None and empty.path == ""
    assert not vela.ovo.MeshPrim(empty).points().size


def test_prims_are_equal_by_place(stage):
    a, b = stage.prim("/Demo"), stage.default_prim
    assert a == b and hash(a) == hash(b) and len({a, b}) == 1 and a < a.children()[0]
    assert a != vela.open(DEMO).default_prim
    assert a != "/Demo" and a.attr("x") != 5


def test_paths_are_texts():
    path = vela.Path("/A/B")
    assert path == "/A/B" and {path: 1}["/A/B"] == 1 and isinstance(path, str) and str(path) == "/A/B"
    for text in ("", "/", "A", "A/", "/A", "//", "/A//B"):
        one = vela.Path(text)
        assert one.child("") == one
    assert [vela.Path(t).parent for t in ("/", "A", "/A", "/A/B", "")] == ["", "", "/", "/A", ""]
    assert vela.Path("").child("A") == "A" and vela.Path("/").child("A") == "/A" and vela.Path("/A/").child("B") == "/A//B"
    assert not vela.Path("").has_prefix("/") and not vela.Path("/A").has_prefix("") and vela.Path("/A").has_prefix("/")
    assert pickle.loads(pickle.dumps(path)) == path and type(pickle.loads(pickle.dumps(path))) is vela.Path


def test_a_scene_is_written_and_read_again(memory_stage, tmp_path):
    mesh = vela.ovo.MeshPrim.define(memory_stage, "/Square")
    mesh.set_points(SQUARE)
    mesh.set_faces([4], [0, 1, 2, 3])
    memory_stage.up_axis = "Z"
    memory_stage.time_code_range = (1, 10)
    file = tmp_path / "out.usdc"
    memory_stage.export_to(file)
    again = vela.open(file)
    assert again.up_axis == "Z" and again.time_code_range == (1.0, 10.0)
    assert vela.ovo.MeshPrim(again.prim("/Square")).points().tolist() == SQUARE.tolist()
    with pytest.raises(ValueError, match="up_axis"):
        memory_stage.up_axis = "X"
    with pytest.raises(OSError, match="."):
        memory_stage.export_to(tmp_path / "nowhere" / "out.usda")


def test_variants_are_texts_or_choices():
    with pytest.raises(ValueError, match="variants: 'nonsense' has not the form"):
        vela.open(DEMO, variants=["nonsense"])
    with pytest.raises(TypeError, match="variants: expected a list of texts, found one text"):
        vela.open(DEMO, variants="/Demo:a=b")
    with pytest.raises(TypeError, match="variants: expected texts, found int"):
        vela.open(DEMO, variants=[5])


def test_limits_bound_a_scene():
    stage = vela.open(DEMO, limits=vela.ovo.StageLimits(prims=3))
    assert any("3" in problem for problem in stage.problems())


CLOSED_USES = {
    "root": lambda stage, prim, attr: stage.root_prim,
    "prim": lambda stage, prim, attr: stage.prim("/Demo"),
    "name": lambda stage, prim, attr: prim.name,
    "children": lambda stage, prim, attr: prim.children(),
    "attribute": lambda stage, prim, attr: prim.attr("x"),
    "get": lambda stage, prim, attr: attr.get(),
    "set": lambda stage, prim, attr: attr.set(5),
    "meshes": lambda stage, prim, attr: stage.meshes(),
    "render": lambda stage, prim, attr: vela.render(stage, size=(8, 8)),
    "list": lambda stage, prim, attr: vela.scene.list_meshes(stage),
    "view": lambda stage, prim, attr: vela.scene.make_view(stage),
    "export": lambda stage, prim, attr: stage.export_to("never.usda"),
    "define": lambda stage, prim, attr: stage.define_prim("/New"),
    "problems": lambda stage, prim, attr: stage.problems(),
    "detector": lambda stage, prim, attr: vela.HitDetector(stage),
    "tracer": lambda stage, prim, attr: vela.SceneTracer().add_mesh(vela.ovo.MeshPrim(prim)),
    "sample": lambda stage, prim, attr: vela.MeshSample.read(vela.ovo.MeshPrim(prim)),
    "xform": lambda stage, prim, attr: vela.ovo.XformCache().local_to_world(prim),
    "enter": lambda stage, prim, attr: stage.__enter__(),
    "summary": lambda stage, prim, attr: vela.scene.summarize(stage),
    "explain": lambda stage, prim, attr: vela.scene.explain_ray(stage, [0, 0, 0], [0, 0, 1]),
    "cameras": lambda stage, prim, attr: vela.scene.list_cameras(stage),
    "material": lambda stage, prim, attr: vela.scene.find_material(prim),
    "selection": lambda stage, prim, attr: vela.selection.GeoSelection().update_prim_selection_status(stage),
}


@pytest.mark.parametrize("use", CLOSED_USES.values(), ids=CLOSED_USES.keys())
def test_a_closed_stage_says_so(use):
    with vela.open(DEMO) as stage:
        prim = stage.meshes()[0]
        attr = prim.attr("points")
    with pytest.raises(ValueError, match="the stage is closed"):
        use(stage, prim, attr)


def test_closing_twice_is_no_fault_and_ends_one_stage_alone():
    first, second = vela.open(DEMO), vela.open(DEMO)
    first.close()
    first.close()
    assert first.is_closed and not second.is_closed and second.default_prim
    assert repr(first) == "<Stage closed>"
    # A new stage may well lie where an old one was.
    for _ in range(50):
        stage = vela.Stage.create_in_memory()
        stage.close()
        del stage
        assert vela.Stage.create_in_memory().root_prim


def test_what_was_read_outlives_a_closed_stage():
    with vela.open(DEMO) as stage:
        points = stage.meshes()[0].points()
        meshes = vela.scene.list_meshes(stage)
    assert numpy.isfinite(points).all()
    assert len(meshes) > 0


@pytest.mark.parametrize("make", [
    lambda: vela.Stage.create_in_memory(),
    lambda: vela.Stage.create_in_memory().root_prim,
    lambda: vela.Stage.create_in_memory().define_prim("/A").create_attr("a", "int"),
    lambda: vela.SceneTracer(),
    lambda: vela.scene.list_meshes(vela.Stage.create_in_memory()),
    lambda: vela.default_channel_manager().channel_by_number(1),
])
def test_what_cannot_be_pickled_says_why(make):
    thing = make()
    with pytest.raises(TypeError, match=f"{type(thing).__name__} cannot be pickled: "):
        pickle.dumps(thing)
    with pytest.raises(TypeError, match="cannot be pickled"):
        copy.copy(thing)


def test_mesh_samples_carry_a_mesh_through(memory_stage):
    mesh = vela.MeshSample(points=SQUARE)
    mesh.set_faces([4], [0, 1, 2, 3])
    mesh.uvs = [[0, 0], [1, 0], [1, 1], [0, 1]]
    prim = vela.ovo.MeshPrim.define(memory_stage, "/Square")
    assert mesh.set_face_topology(prim) and mesh.set_points_and_bounds(prim, True)
    assert mesh.set_properties(prim)
    read = vela.MeshSample.read(prim)
    assert read.points.tolist() == SQUARE.tolist() and read.uvs.tolist() == mesh.uvs.tolist()
    assert read.verts_per_face.tolist() == [4]
    fine = vela.ovo.subdivide_uniform(SQUARE, [4], [0, 1, 2, 3], 1, face_varying={"st": mesh.uvs})
    assert fine.counts.tolist() == [4] * 4 and fine.data["st"].shape == (16, 2)
    with pytest.raises(ValueError, match="st: expected 4 rows, found 1"):
        vela.ovo.subdivide_uniform(SQUARE, [4], [0, 1, 2, 3], 1, face_varying={"st": [[0, 0]]})
    with pytest.raises(ValueError):
        vela.ovo.subdivide_uniform(SQUARE, [4], [0, 1, 2, 3], 1, vela.ovo.ArgSet(scheme="loop"))
