"""Meshes, scenes and pictures of other packages."""

import pathlib
import types

import meshio
import numpy
import pytest
import trimesh
import vela
import vela.interop

from conftest import DEMO, ROOT, SQUARE, run_python

QUADS = numpy.array([[0, 1, 2, 3]])


def picture():
    return vela.Picture({"rgba": numpy.arange(24, dtype=numpy.float32).reshape(2, 3, 4), "depth": numpy.ones((2, 3), numpy.float32),
                         "prim": numpy.ones((2, 3), numpy.uint32)}, {"camera": "/Camera"}, ["/World/Ball"])


def test_trimesh_gives_its_points_and_faces():
    ball = trimesh.creation.icosphere()
    arrays = vela.interop.mesh_arrays(ball)
    assert numpy.array_equal(arrays.points, ball.vertices.astype(numpy.float32))
    assert arrays.counts.tolist() == [3] * len(ball.faces) and numpy.array_equal(arrays.indices.reshape(-1, 3), ball.faces)
    assert [array.dtype for array in arrays] == [numpy.float32, numpy.int32, numpy.int32]


def test_no_warning_of_conversion_is_given(recwarn):
    tracer = vela.SceneTracer()
    vela.interop.place(tracer, trimesh.creation.box())
    assert not recwarn.list


def test_a_scene_of_trimesh_is_placed_node_by_node():
    scene = trimesh.Scene()
    box = trimesh.creation.box()
    scene.add_geometry(box, geom_name="box", node_name="left", transform=vela.tarn.translation([-5, 0, 0]))
    scene.graph.update("right", geometry="box", matrix=vela.tarn.translation([5, 0, 0]))
    scene.graph.update("above", frame_from="right", geometry="box", matrix=vela.tarn.translation([0, 5, 0]))
    tracer = vela.SceneTracer()
    tracer.add_placement(tracer.add_mesh(SQUARE, [4], [0, 1, 2, 3]))
    placements = vela.interop.place(tracer, scene, vela.tarn.translation([0, 0, 100]))
    tracer.build()
    assert placements == [1, 2, 3] and tracer.num_meshes == 2
    where = dict(zip(scene.graph.nodes_geometry, placements))
    hits = tracer.intersect([[-5, 0, 200], [5, 0, 200], [5, 5, 200]], [[0, 0, -1]] * 3)
    assert hits.placement.tolist() == [where["left"], where["right"], where["above"]]
    assert numpy.allclose(hits.distance, 99.5, rtol=1e-6)


def test_geometry_without_faces_is_left_out_of_a_scene():
    scene = trimesh.Scene([trimesh.PointCloud([[0, 0, 0], [1, 1, 1]]), trimesh.creation.box()])
    with pytest.warns(vela.VelaWarning, match="a PointCloud has no faces and was left out"):
        placements = vela.interop.place(vela.SceneTracer(), scene)
    assert sorted(placements) == [-1, 0]


def test_faces_of_meshio_come_block_after_block():
    points = numpy.array([[0, 0], [1, 0], [1, 1], [0, 1], [2, 2], [0.5, 0]], numpy.float32)
    mesh = meshio.Mesh(points, [("triangle", [[0, 1, 2]]), ("quad", QUADS), ("triangle6", [[0, 1, 2, 5, 5, 5]]),
                                ("polygon", [[0, 1, 2, 4, 3]])])
    arrays = vela.interop.mesh_arrays(mesh)
    assert arrays.counts.tolist() == [3, 4, 3, 5]
    assert arrays.indices.tolist() == [0, 1, 2, 0, 1, 2, 3, 0, 1, 2, 0, 1, 2, 4, 3]
    assert arrays.points.shape == (6, 3) and not arrays.points[:, 2].any()


def test_cells_of_meshio_that_are_no_faces_are_told():
    mesh = meshio.Mesh(SQUARE, [("line", [[0, 1]]), ("quad", QUADS), ("tetra", [[0, 1, 2, 3]] * 2)])
    with pytest.warns(vela.VelaWarning, match="cells that are no faces were left out: 1 of line, 2 of tetra"):
        assert vela.interop.mesh_arrays(mesh).counts.tolist() == [4]


def test_arrays_that_fit_are_shared():
    mesh = meshio.Mesh(SQUARE, [("quad", numpy.array([[0, 1, 2, 3]], numpy.int32))])
    assert numpy.shares_memory(vela.interop.mesh_arrays(mesh).points, SQUARE)
    rows = numpy.array([[0, 1, 2]], numpy.int32)
    arrays = vela.interop.mesh_arrays(types.SimpleNamespace(vertices=SQUARE, triangles=rows))
    assert numpy.shares_memory(arrays.points, SQUARE) and numpy.shares_memory(arrays.indices, rows)


class Tensor:
    """Like a tensor of open3d, which may lie on another device."""

    def __init__(self, values):
        self.values = values

    def cpu(self):
        return self

    def numpy(self):
        return self.values


def test_meshes_of_open3d_of_both_kinds():
    # The real package takes half a gigabyte; these have the attributes that are read.
    rows = numpy.array([[0, 1, 2], [0, 2, 3]])
    old = types.SimpleNamespace(vertices=SQUARE.astype(float), triangles=rows.astype(numpy.int32))
    vertex, triangle = types.SimpleNamespace(positions=Tensor(SQUARE)), {"indices": Tensor(rows)}
    new = types.SimpleNamespace(vertex=vertex, triangle=type("TensorMap", (dict,), {"__getattr__": dict.__getitem__})(triangle))
    for mesh in (old, new):
        tracer = vela.SceneTracer()
        assert vela.interop.place(tracer, mesh) == [0]
        tracer.build()
        assert tracer.intersect([[0.5, 0.2, 3]], [[0, 0, -1]]).distance.tolist() == [3]
    empty = types.SimpleNamespace(vertex=types.SimpleNamespace(), triangle={})
    assert [len(array) for array in vela.interop.mesh_arrays(empty)] == [0, 0, 0]


def test_what_is_no_mesh_is_refused():
    for wrong in (None, 5, SQUARE, "a.obj", vela.SceneTracer()):
        with pytest.raises(TypeError, match="expected a mesh of trimesh, meshio or open3d, found "):
            vela.interop.mesh_arrays(wrong)
    for vertices, faces in ((SQUARE[:, :1], QUADS), (SQUARE.ravel(), QUADS), (SQUARE, [0, 1, 2])):
        with pytest.raises(ValueError, match="expected shape"):
            vela.interop.mesh_arrays(types.SimpleNamespace(vertices=vertices, faces=faces))
    with pytest.raises(ValueError, match=r"world_from_local: expected shape \(4, 4\), found \(3, 3\)"):
        vela.interop.place(vela.SceneTracer(), trimesh.creation.box(), numpy.eye(3))


def test_indices_that_do_not_fit_are_of_no_point():
    faces = numpy.array([[0, 1, 2], [0, 1, 2**32 + 2], [0, -5, 2]])
    arrays = vela.interop.mesh_arrays(types.SimpleNamespace(vertices=SQUARE, faces=faces))
    assert arrays.indices.tolist() == [0, 1, 2, 0, 1, -1, 0, -1, 2]


def test_a_picture_as_a_dataset_shares_its_memory():
    shown = picture()
    data = vela.interop.to_xarray(shown)
    assert list(data) == ["rgba", "depth", "prim"] and data.sizes == {"y": 2, "x": 3, "rgba_channel": 4}
    assert data["rgba"].dims == ("y", "x", "rgba_channel") and data["depth"].dims == ("y", "x")
    for name in data:
        assert numpy.shares_memory(data[name].values, shown[name]) and not data[name].values.flags.writeable
    assert data["rgba"].sel(rgba_channel="G", x=1.5, y=0.5).item() == shown["rgba"][0, 1, 1]
    assert data.attrs["camera"] == "/Camera" and data.attrs["manifest"] == ["/World/Ball"]
    del shown
    assert data["rgba"].values[1, 2, 3] == 23


@pytest.fixture(scope="module")
def pxr():
    """OpenUSD's own Python, in another version than the module's: within the build tree nothing hides one of the same."""
    folder = ROOT / "build/peers/usd-core-24.11"
    if not folder.is_dir():
        pytest.skip(f"{folder.relative_to(ROOT)} is not there; scripts/setup work fetches it")
    return f"import sys\nsys.path.insert(0, {str(folder)!r})\nfrom pxr import Sdf, Usd, UsdGeom\nimport vela, vela.interop\n"


USD_PROGRAMS = {
    "changes that are not saved come along, and files are found": f"""
theirs = Usd.Stage.Open({str(DEMO)!r})
UsdGeom.Cube.Define(theirs, "/Demo/New")
ours = vela.interop.open_usd(theirs)
assert ours.problems() == [] and ours.prim("/Demo/New").type_name == "Cube"
assert len(ours.meshes()) == len(vela.open({str(DEMO)!r}).meshes()) > 100
assert ours.default_prim.path == "/Demo" and vela.open({str(DEMO)!r}).prim("/Demo/New").type_name == ""
ours.define_prim("/Ours")
assert not theirs.GetPrimAtPath("/Ours")
""",
    "the session layer comes when it is flattened": f"""
theirs = Usd.Stage.Open({str(DEMO)!r})
theirs.SetEditTarget(theirs.GetSessionLayer())
UsdGeom.Cube.Define(theirs, "/Demo/New")
assert vela.interop.open_usd(theirs).prim("/Demo/New").type_name == ""
flat = vela.interop.open_usd(theirs, flatten=True)
assert flat.prim("/Demo/New").type_name == "Cube" and len(flat.meshes()) == len(vela.open({str(DEMO)!r}).meshes())
""",
    "a stage in memory": """
theirs = Usd.Stage.CreateInMemory()
mesh = UsdGeom.Mesh.Define(theirs, "/A")
mesh.CreatePointsAttr([(0, 0, 0), (1, 0, 0), (0, 1, 0)])
mesh.CreateFaceVertexCountsAttr([3])
mesh.CreateFaceVertexIndicesAttr([0, 1, 2])
ours = vela.interop.open_usd(theirs)
assert ours.meshes()[0].points().tolist() == [[0, 0, 0], [1, 0, 0], [0, 1, 0]]
""",
    "what is no stage": """
for wrong in (None, "a.usda", vela.Stage.create_in_memory()):
    try:
        vela.interop.open_usd(wrong)
    except TypeError as reason:
        assert "expected a pxr.Usd.Stage, found " in str(reason)
    else:
        raise AssertionError(wrong)
""",
}


@pytest.mark.parametrize("code", USD_PROGRAMS.values(), ids=USD_PROGRAMS.keys())
def test_a_stage_of_openusd(pxr, code):
    done = run_python(pxr + code)
    assert done.returncode == 0, done.stdout + done.stderr


def test_nothing_is_imported_before_it_is_needed():
    done = run_python("import sys, vela, vela.interop\nprint([name for name in ('trimesh', 'meshio', 'xarray', 'pxr') if name in "
                      "sys.modules])")
    assert done.stdout.strip() == "[]", done.stdout + done.stderr
    assert pathlib.Path(vela.interop.__file__).name == "interop.py"
