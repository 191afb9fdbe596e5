"""Arrays cross the border as they are: in place where they can be, once converted where not, refused with reasons."""

import gc
import warnings

import numpy
import pytest

import vela

from conftest import SQUARE

COUNTS = numpy.array([4], numpy.int32)
INDICES = numpy.arange(4, dtype=numpy.int32)


def mesh_of(stage):
    mesh = vela.ovo.MeshPrim.define(stage, "/Square")
    mesh.set_points(SQUARE)
    mesh.set_faces(COUNTS, INDICES)
    return mesh


def address(array):
    return array.__array_interface__["data"][0]


def test_views_share_the_librarys_storage(memory_stage):
    mesh = mesh_of(memory_stage)
    sample = vela.MeshSample.read(mesh)
    shapes = vela.scene.list_meshes(memory_stage)
    for first, second in ((sample.points, sample.points), (shapes.shape(0).points, shapes.shape(0).points),
                          (sample.points, sample.__copy__().points)):
        assert address(first) == address(second)
        assert not first.flags.writeable
        with pytest.raises(ValueError):
            first[0, 0] = 7
    # Assigning replaces the array; views of the old one keep it.
    old = sample.points
    sample.points = old + 1
    assert old.tolist() == SQUARE.tolist() and sample.points.tolist() == (SQUARE + 1).tolist()


def test_views_outlive_what_they_were_taken_from():
    view = mesh_of(vela.Stage.create_in_memory()).points()
    gc.collect()
    assert view.tolist() == SQUARE.tolist()
    picture = vela.Picture({"depth": numpy.arange(6, dtype=numpy.float32).reshape(2, 3)})
    depth = picture["depth"]
    del picture
    gc.collect()
    assert depth.tolist() == [[0, 1, 2], [3, 4, 5]]


def test_two_views_of_a_picture_are_one_place():
    picture = vela.Picture({"rgba": numpy.zeros((2, 3, 4), numpy.float32)})
    assert address(picture["rgba"]) == address(picture["rgb"]) == address(picture["R"])
    assert picture["rgb"].strides == (48, 16, 4)
    assert not picture["rgb"].flags.writeable



def test_an_array_of_the_very_type_is_written_in_place():
    rng = vela.SamplingRng(3)
    out = numpy.zeros(5, numpy.int32)
    assert rng.values(out=out) is out
    assert out.tolist() == vela.SamplingRng(3).values(5).tolist()


def test_what_is_written_must_fit():
    rng = vela.SamplingRng()
    for wrong in (numpy.zeros(4, numpy.int64), numpy.zeros(8, numpy.int32)[::2], [0, 0]):
        with pytest.raises(TypeError, match="out: expected a writable C-contiguous array, int32 of shape"):
            rng.values(out=wrong)
    fixed = numpy.zeros(4, numpy.int32)
    fixed.flags.writeable = False
    with pytest.raises(TypeError, match="out: expected a writable"):
        rng.values(out=fixed)
    with pytest.raises(ValueError, match="out: expected 3 elements, found 4"):
        rng.values(3, out=numpy.zeros(4, numpy.int32))


def test_arrays_of_the_right_type_are_read_in_silence():
    tracer = vela.SceneTracer()
    fixed = SQUARE.copy()
    fixed.flags.writeable = False
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        for points in (SQUARE, fixed, SQUARE.tolist(), memoryview(SQUARE)):
            assert tracer.add_mesh(points, COUNTS, INDICES) == 0


@pytest.mark.parametrize(("points", "text"), [
    (SQUARE.astype(numpy.float64), "points: converted from float64 to float32"),
    (SQUARE.astype(numpy.float16), "points: converted from float16 to float32"),
    (SQUARE.astype(">f4"), "points: converted from >f4 to float32"),
    (SQUARE.astype(numpy.int64), "points: converted from int64 to float32"),
    (SQUARE[::-1][::-1][::1].copy()[::-1], "points: copied, since it is not C-contiguous"),
    (numpy.asfortranarray(SQUARE), "points: copied, since it is not C-contiguous"),
    (numpy.repeat(SQUARE, 2, axis=0)[::2], "points: copied, since it is not C-contiguous"),
], ids=["double", "half", "big-endian", "int", "negative stride", "Fortran", "every second"])
def test_other_arrays_are_converted_once_and_named(points, text):
    tracer = vela.SceneTracer()
    expected = vela.SceneTracer()
    with pytest.warns(vela.ConversionWarning, match="^" + text) as told:
        tracer.add_mesh(points, COUNTS, INDICES)
    assert len(told) == 1
    expected.add_mesh(numpy.ascontiguousarray(points, numpy.float32), COUNTS, INDICES)
    for one in (tracer, expected):
        one.add_placement(0)
        one.build()
    assert tracer.bounds == expected.bounds


@pytest.mark.parametrize(("points", "kind", "text"), [
    (numpy.zeros((4, 2), numpy.float32), ValueError, r"points: expected float32 of shape \(n, 3\), found shape \(4, 2\)"),
    (numpy.zeros(3, numpy.float32), ValueError, r"points: expected float32 of shape \(n, 3\), found shape \(3,\)"),
    (numpy.zeros((2, 2, 3)), ValueError, r"points: expected float32 of shape \(n, 3\), found shape \(2, 2, 3\)"),
    ([[1, 2]], ValueError, r"points: expected float32 of shape \(n, 3\), found shape \(1, 2\)"),
    (numpy.zeros((4, 3), numpy.complex64), TypeError, r"points: expected float32 of shape \(n, 3\), found complex64"),
    (numpy.zeros((4, 3), bool), TypeError, r"points: expected float32 of shape \(n, 3\), found bool"),
    (numpy.array([["a"] * 3]), TypeError, r"points: expected float32 of shape \(n, 3\), found <U1"),
    (numpy.array([[None] * 3]), TypeError, r"points: expected float32 of shape \(n, 3\), found object"),
    ("points", TypeError, r"points: expected float32 of shape \(n, 3\), found str"),
    (5.0, ValueError, r"points: expected float32 of shape \(n, 3\), found shape \(\)"),
    (numpy.float32(5), ValueError, r"points: expected float32"),
], ids=lambda value: str(value)[:20] if isinstance(value, str) else None)
def test_what_cannot_be_read_says_what_was_expected_and_found(points, kind, text):
    with pytest.raises(kind, match="^" + text):
        vela.SceneTracer().add_mesh(points, COUNTS, INDICES)


def test_indices_are_integers_that_fit():
    tracer = vela.SceneTracer()
    with pytest.raises(TypeError, match="indices: expected int32 .* found float64"):
        tracer.add_mesh(SQUARE, COUNTS, numpy.zeros(4))
    with pytest.raises(ValueError, match="indices: 4294967296 does not fit int32"):
        tracer.add_mesh(SQUARE, COUNTS, [0, 1, 2, 1 << 32])
    with pytest.raises(ValueError, match="indices: -2147483649 does not fit int32"):
        tracer.add_mesh(SQUARE, COUNTS, [0, 1, 2, -(1 << 31) - 1])
    with pytest.warns(vela.ConversionWarning, match="indices: converted from int64 to int32"):
        tracer.add_mesh(SQUARE, COUNTS, INDICES.astype(numpy.int64))


def test_empty_arrays_have_no_rows(square_tracer):
    for empty in ([], numpy.zeros((0, 3), numpy.float32)):
        hits = square_tracer.intersect(empty, empty)
        assert hits.hit.shape == (0,) and hits.position.shape == (0, 3)
    assert vela.MeshSample().points.shape == (0, 3)
    assert vela.LinearProjection().rays([]).directions.shape == (0, 3)
    assert vela.triangulate_polygon([]).shape == (0, 3)
    assert vela.point_normals([], [], []).shape == (0, 3)


def test_nan_comes_out_as_the_library_answers_it(square_tracer):
    nan = float("nan")
    hits = square_tracer.intersect([[nan, 0, 5], [0, 0, 5], [0, 0, 5]], [[0, 0, -1], [0, 0, nan], [0, 0, -1]])
    assert hits.hit.tolist() == [False, False, True]
    rays = vela.SphericalProjection().rays([[nan, 0.0]])
    assert numpy.isnan(rays.directions).any()
    mesh = vela.MeshSample(points=[[nan, 0, 0]])
    assert numpy.isnan(mesh.points[0, 0])


def test_small_values_are_read_only_arrays():
    box = vela.tarn.Box3f([0, 0, 0], [1, 2, 3])
    with pytest.raises(ValueError):
        box.min[0] = 5
    assert box.size.dtype == numpy.float32 and box.size.shape == (3,)
    box.min = numpy.array([-1.0, 0, 0])
    assert box.min.tolist() == [-1, 0, 0]
    for wrong in ([1, 2], [1, 2, 3, 4], "abc", None, {"a": 1}, [1, 2, "c"], [[1], [2], [3]]):
        with pytest.raises(TypeError):
            box.min = wrong


def test_matrices_act_on_columns():
    matrix = vela.tarn.translation([1, 2, 3])
    assert matrix.shape == (4, 4)
    assert (matrix @ [0, 0, 0, 1]).tolist() == [1, 2, 3, 1]
    sample = vela.XformParameters(l2w=matrix)
    assert numpy.array_equal(sample.l2w, matrix)
    turned = vela.tarn.rotation("z", 0.5)
    assert numpy.array_equal(vela.XformParameters(l2w=turned).l2w, turned)
    assert numpy.allclose(vela.tarn.transform_points(matrix @ turned, [[1, 0, 0]])[0],
                          (matrix @ turned @ [1, 0, 0, 1])[:3], rtol=0, atol=1e-15)
    for wrong in (numpy.eye(3), numpy.zeros(16), "abcd", [["a"] * 4] * 4):
        with pytest.raises(TypeError):
            vela.tarn.inverse(wrong)


class Tensor:
    """An array of another library: it speaks DLPack and nothing else."""

    def __init__(self, array):
        self.array = array

    def __dlpack__(self, **options):
        return self.array.__dlpack__(**options)

    def __dlpack_device__(self):
        return self.array.__dlpack_device__()


def test_arrays_of_other_libraries_come_by_dlpack(square_tracer):
    origins = Tensor(numpy.array([[0, 0, 5]], numpy.float32))
    directions = Tensor(numpy.array([[0, 0, -1]], numpy.float32))
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        assert square_tracer.intersect(origins, directions).distance.tolist() == [5.0]


def test_an_array_cannot_change_its_size_while_it_is_read():
    # The buffer is held during a call alone: afterwards the array is its owner's again.
    points = SQUARE.copy()
    vela.SceneTracer().add_mesh(points, COUNTS, INDICES)
    points.resize((8, 3), refcheck=False)
    assert points.shape == (8, 3)


def test_arrays_that_begin_at_any_byte_are_copied(square_tracer):
    memory = numpy.zeros(4 + 1000 * 12, numpy.uint8)
    rays = numpy.tile(numpy.array([0.25, 0.25, 5, 0, 0, -1], numpy.float32), (5, 1))
    for start in range(4):
        origins = memory[start:start + 60].view(numpy.float32).reshape(5, 3)
        origins[:] = rays[:, :3]
        with warnings.catch_warnings(record=True) as said:
            warnings.simplefilter("always")
            hits = square_tracer.intersect(origins, numpy.ascontiguousarray(rays[:, 3:]))
        assert hits.hit.all()
        assert [str(warning.message) for warning in said] == ([] if origins.flags.aligned else [
            "origins: copied, since it is not aligned; pass a C-contiguous float32 array to have it read in place"])
