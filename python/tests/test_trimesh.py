"""The intersector for trimesh, held against the two that trimesh has and against what follows from geometry."""

import copy
import pickle

import numpy
import pytest
import trimesh
import trimesh.ray.ray_pyembree
import vela.trimesh

Intersector = vela.trimesh.RayMeshIntersector
Peer = trimesh.ray.ray_pyembree.RayMeshIntersector


def random_rays(count, radius, seed=1):
    generator = numpy.random.default_rng(seed)
    origins = generator.normal(size=(count, 3))
    origins *= 3 * radius / numpy.linalg.norm(origins, axis=1, keepdims=True)
    return origins, generator.uniform(-radius, radius, (count, 3)) - origins


def rough_ball(scale=1.0, shift=0.0):
    """A ball whose points have been moved at random, so that rays meet it many times."""
    ball = trimesh.creation.icosphere(subdivisions=4)
    ball.vertices *= 1 + numpy.random.default_rng(2).uniform(-0.3, 0.3, (len(ball.vertices), 1))
    ball.apply_scale(scale)
    ball.apply_translation([shift, -shift, shift])
    return ball


@pytest.mark.parametrize(("scale", "shift"), [(1, 0), (0.01, 0), (1e6, 0), (1, 1000)])
def test_hits_are_those_of_trimesh(scale, shift):
    mesh = rough_ball(scale, shift)
    origins, directions = random_rays(3000, scale)
    origins += [shift, -shift, shift]
    ours, theirs = Intersector(mesh), Peer(mesh)
    assert numpy.mean(ours.intersects_first(origins, directions) == theirs.intersects_first(origins, directions)) > 0.999
    assert numpy.mean(ours.intersects_any(origins, directions) == theirs.intersects_any(origins, directions)) > 0.999
    found, peers = ours.intersects_location(origins, directions), theirs.intersects_location(origins, directions)
    counts = [numpy.bincount(rays, minlength=len(origins)) for _, rays, _ in (found, peers)]
    assert counts[0].max() >= 4 and numpy.mean(counts[0] == counts[1]) > 0.999
    assert [part.dtype for part in found] == [part.dtype for part in peers]
    # The nearest hits of all rays come first, then the second ones.
    assert numpy.array_equal(found[1][: (counts[0] > 0).sum()], numpy.flatnonzero(counts[0]))
    same = counts[0] == counts[1]
    rows = [numpy.lexsort((faces[same[rays]], rays[same[rays]])) for _, rays, faces in (found, peers)]
    a, b = (locations[same[rays]][row] for (locations, rays, _), row in zip((found, peers), rows))
    assert numpy.mean(numpy.linalg.norm(a - b, axis=1) < 1e-6 * scale) > 0.999


def test_hits_are_those_of_every_triangle():
    mesh = rough_ball()
    origins, directions = random_rays(40, 1)
    directions /= numpy.linalg.norm(directions, axis=1, keepdims=True)
    rays, faces = [], []
    for i in range(len(origins)):
        a, b, c = (mesh.triangles[:, k] for k in range(3))
        volume = numpy.einsum("ij,ij->i", numpy.cross(b - a, c - a), numpy.broadcast_to(directions[i], a.shape))
        sides = [numpy.cross(q - p, origins[i] - p) @ directions[i] for p, q in ((a, b), (b, c), (c, a))]
        inside = numpy.all([numpy.sign(side) == numpy.sign(volume) for side in sides], axis=0)
        ahead = numpy.einsum("ij,ij->i", numpy.cross(b - a, c - a), a - origins[i]) / volume > 0
        met = numpy.flatnonzero(inside & ahead)
        rays.extend([i] * len(met))
        faces.extend(met)
    index_tri, index_ray = Intersector(mesh).intersects_id(origins, directions)
    assert len(index_ray) > 60 and sorted(zip(index_ray, index_tri)) == sorted(zip(rays, faces))


def test_locations_lie_on_the_planes_of_the_mesh():
    box = trimesh.creation.box(extents=[0.2, 0.3, 0.1])
    box.apply_translation([1e4 + 1 / 3, 0.1, 0.7])
    locations, rays, faces = Intersector(box).intersects_location(box.centroid + [[0.01, 0.02, 5]], [[0, 0, -7.5]])
    assert rays.tolist() == [0, 0] and (locations.dtype, rays.dtype, faces.dtype) == (numpy.float64, numpy.int64, numpy.int64)
    assert numpy.allclose(locations[:, 2], [0.75, 0.65], rtol=0, atol=1e-14)
    assert numpy.allclose(locations[:, :2], (box.centroid + [[0.01, 0.02, 5]])[0, :2], rtol=0, atol=1e-12)


def test_edges_and_corners_count_once():
    box = trimesh.creation.box()
    for target in numpy.vstack((box.vertices, box.vertices[box.edges_unique].mean(axis=1))):
        # Not along an edge, where surfaces are met without end.
        start = numpy.array([0.11, -0.07, 0.03])
        assert len(Intersector(box).intersects_location([start], [target - start])[0]) == 1
        assert Intersector(box).intersects_any([start], [target - start]).all()


@pytest.mark.parametrize("scale", [1e-4, 0.1, 1.0, 1e4, 1e8])
@pytest.mark.parametrize("scale_to_box", [True, False])
def test_a_ray_that_starts_on_a_surface_meets_it(scale, scale_to_box):
    mesh = trimesh.creation.box().subdivide()
    mesh.apply_scale(scale)
    index_tri, _ = Intersector(mesh, scale_to_box).intersects_id([[0, 0, scale / 2]], [[0, 0, -1]])
    assert len(index_tri) == 2


@pytest.mark.parametrize("scale", [1e-60, 1e-36, 1e36, 1e60])
def test_scaling_to_a_box_reaches_any_size(scale):
    mesh = trimesh.Trimesh(trimesh.creation.box().vertices * scale, trimesh.creation.box().faces, process=False)
    origins, directions = [[0.1 * scale, 0.2 * scale, 4 * scale]], [[0, 0, -scale]]
    locations, _, _ = Intersector(mesh).intersects_location(origins, directions)
    assert numpy.allclose(locations[:, 2] / scale, [0.5, -0.5])
    # Without it corners are as single precision has them.
    is_in_range = 1e-38 < scale < 1e38
    assert Intersector(mesh, scale_to_box=False).intersects_any(origins, directions).tolist() == [is_in_range]


def test_rays_from_far_away_end():
    # Numbers near 1e16 are two apart, so the two sides of the box are one hit; it is not found again and again.
    index_tri, _ = Intersector(trimesh.creation.box()).intersects_id([[0.1, 0.2, 1e16]], [[0, 0, -1]])
    assert len(index_tri) == 1


def test_hits_stop_at_the_number_asked_for():
    mesh = rough_ball()
    origins, directions = random_rays(200, 1)
    both = Intersector(mesh).intersects_id(origins, directions, max_hits=2)
    assert numpy.bincount(both[1]).max() == 2
    assert len(Intersector(mesh).intersects_id(origins, directions, max_hits=0)[0]) == 0
    first, rays = Intersector(mesh).intersects_id(origins, directions, multiple_hits=False)
    assert len(rays) == len(numpy.unique(rays))
    assert numpy.array_equal(first, Intersector(mesh).intersects_first(origins, directions)[rays])


def test_points_are_inside_or_outside():
    mesh = trimesh.creation.icosphere(subdivisions=4)
    points = numpy.random.default_rng(3).uniform(-1.2, 1.2, (2000, 3))
    distance = numpy.linalg.norm(points, axis=1)
    clear = abs(distance - 1) > 0.01
    assert numpy.array_equal(Intersector(mesh).contains_points(points)[clear], (distance < 1)[clear])


def test_the_mesh_may_change():
    box = trimesh.creation.box()
    ray = Intersector(box)
    assert ray.intersects_any([[0, 0, 5]], [[0, 0, -1]]).all()
    box.apply_translation([9, 0, 0])
    assert ray.intersects_any([[0, 0, 5], [9, 0, 5]], [[0, 0, -1]] * 2).tolist() == [False, True]


def test_meshes_take_it_for_their_own():
    box = trimesh.creation.box()
    box.ray = Intersector(box)
    assert box.contains([[0, 0, 0]]).all()
    thickness = trimesh.proximity.thickness(box, [[0.1, 0.2, 0.5]], normals=[[0, 0, 1]], method="ray")
    assert numpy.allclose(thickness, 1)


def test_it_is_copied_and_pickled_with_its_mesh():
    ray = Intersector(trimesh.creation.box(), threads=2)
    for other in (copy.copy(ray), copy.deepcopy(ray), pickle.loads(pickle.dumps(ray))):
        assert other.threads == 2 and other.intersects_any([[0, 0, 5]], [[0, 0, -1]]).all()
        assert repr(other).startswith("<RayMeshIntersector of <trimesh.Trimesh")


def test_bad_input_has_a_result_or_a_reason():
    ray = Intersector(trimesh.creation.box())
    for origins, directions, reason in (([[0, 0, 0]], [[0, 0, 1]] * 2, "expected 1 rows"), ([0, 0, 0], [0, 0, 1], r"\(n, 3\)"),
                                        ([[0, 0]], [[0, 1]], r"\(n, 3\)"), ([["a"] * 3], [[1, 0, 0]], "could not convert")):
        for call in (ray.intersects_id, ray.intersects_first, ray.intersects_any, ray.intersects_location):
            with pytest.raises(ValueError, match=reason):
                call(origins, directions)
    strange = [[0, 0, 0], [numpy.nan, 0, 0], [numpy.inf, 0, 0], [1e300, 0, 0]]
    assert not ray.intersects_any([[0, 0, 5]] * 4, [[0, 0, 0], [0, numpy.nan, 0], [0, 0, -numpy.inf], [1, 0, 0]]).any()
    assert not ray.intersects_any(strange[1:], [[0, 0, -1]] * 3).any()
    assert ray.intersects_any([[0, 0, 5]] * 2, [[0, 0, -1e-200], [0, 0, -1e200]]).all()
    for empty in ([], numpy.zeros((0, 3))):
        assert [found.shape for found in ray.intersects_id(empty, empty, return_locations=True)] == [(0,), (0,), (0, 3)]
        assert ray.intersects_first(empty, empty).shape == (0,) and ray.intersects_any(empty, empty).shape == (0,)
    nothing = Intersector(trimesh.Trimesh())
    assert nothing.intersects_first([[0, 0, 5]], [[0, 0, -1]]).tolist() == [-1]
    assert [len(found) for found in nothing.intersects_location([[0, 0, 5]], [[0, 0, -1]])] == [0, 0, 0]
    broken = trimesh.Trimesh([[0, 0, 0], [numpy.nan, 0, 0], [0, 1, 0], [1, 1, 0]], [[0, 1, 2], [0, 3, 2]], process=False)
    assert Intersector(broken).intersects_first([[0.1, 0.5, 5]], [[0, 0, -1]]).tolist() == [1]
