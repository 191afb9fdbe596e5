"""Rays against meshes of trimesh by Vela's tracer, with the interface of trimesh's own intersectors.

>>> import trimesh, vela.trimesh
>>> ball = trimesh.creation.icosphere(subdivisions=3)
>>> ball.ray = vela.trimesh.RayMeshIntersector(ball)
>>> locations, rays, triangles = ball.ray.intersects_location([[0, 0, 5]], [[0, 0, -1]])
>>> locations.round(6).tolist(), rays.tolist()
([[0.0, 0.0, 1.0], [0.0, 0.0, -1.0]], [0, 0])
"""

from __future__ import annotations

import importlib
import math
import typing

import numpy
import numpy.typing

from vela import _vela

_Double = numpy.typing.NDArray[numpy.float64]
_Index = numpy.typing.NDArray[numpy.int64]
_Bool = numpy.typing.NDArray[numpy.bool_]
_ArrayLike = numpy.typing.ArrayLike

# Without its types: the module has to be checked where trimesh is not.
_caching: typing.Any = importlib.import_module("trimesh.caching")
_ray_util: typing.Any = importlib.import_module("trimesh.ray.ray_util")

# The tracer keeps corners in single precision, so that a surface lies up to half a unit in the last place, 2^-24 of the mesh's
# half size, from where the mesh has it. A ray that starts on the surface finds it from eight times that distance.
_BEHIND = 2.0**-21
# The next hit of a ray is looked for that far behind the last one, as a part of the mesh's size: at an edge two triangles are
# met at distances that differ by roundings alone.
_STEP = 1e-6


class RayMeshIntersector:
    """Answers for a `trimesh.Trimesh` what trimesh's intersectors answer: `mesh.ray = vela.trimesh.RayMeshIntersector(mesh)`.

    Arguments and results are theirs: origins and directions (n, 3), which need no unit length; ray and triangle indices int64;
    locations (m, 3) float64, on the planes of the mesh's own triangles. Rays are traced in double and miss nothing at edges and
    corners. Hits of one ray closer to one another than 1e-6 of the mesh's size count once. The mesh may change: the tracer is
    built again at the next question. `scale_to_box` brings the corners to unit size before they become single precision;
    without it a mesh far below 1e-30 units, or above 1e30, is not met. `threads` is as in SceneTracer.intersect.

    Threads: one thread at a time, as the mesh itself. Equality is identity.

    >>> import trimesh, vela.trimesh
    >>> ray = vela.trimesh.RayMeshIntersector(trimesh.creation.box())
    >>> ray.intersects_any([[0, 0, 5], [3, 0, 5]], [[0, 0, -1], [0, 0, -1]]).tolist()
    [True, False]
    """

    def __init__(self, geometry: typing.Any, scale_to_box: bool = True, *, threads: int = 1) -> None:
        self.mesh = geometry
        self.threads = threads
        self._scale_to_box = scale_to_box
        self._cache: typing.Any = _caching.Cache(id_function=self.mesh.__hash__)

    def _extent(self) -> tuple[_Double, float]:
        """The middle of the mesh, and its size along its longest side."""
        bounds = self.mesh.bounds
        if bounds is None or not numpy.isfinite(bounds).all():
            return numpy.zeros(3), 0.0
        low, high = numpy.asarray(bounds, numpy.float64)
        return low / 2 + high / 2, float(numpy.clip((high - low).max(), 0, 1e300))

    def _tracer(self) -> _vela.SceneTracer:
        """The tracer of the mesh as it is now."""
        self._cache.verify()
        if "tracer" not in self._cache:
            middle, size = self._extent()
            # A power of two, so that scaling rounds nothing.
            unit = 2.0 ** math.frexp(size)[1] if self._scale_to_box and size > 0 else 1.0
            with numpy.errstate(over="ignore", invalid="ignore"):
                points = ((numpy.asarray(self.mesh.vertices) - middle) / unit).astype(numpy.float32)
            faces = numpy.asarray(self.mesh.faces)
            tracer = _vela.SceneTracer()
            # Indices that do not fit are of no point either; such faces are never hit.
            corners = numpy.clip(faces, -1, 2**31 - 1).astype(numpy.int32).ravel()
            mesh = tracer.add_mesh(points, numpy.full(len(faces), 3, numpy.int32), corners)
            world = numpy.diag([unit, unit, unit, 1.0])
            world[:3, 3] = middle
            tracer.add_placement(mesh, world)
            tracer.build()
            self._cache["tracer"] = tracer
        return typing.cast(_vela.SceneTracer, self._cache["tracer"])

    def _rays(self, origins: _ArrayLike, directions: _ArrayLike) -> tuple[_Double, _Double]:
        """Origins and unit directions in double."""
        found: list[_Double] = []
        for name, values in (("ray_origins", origins), ("ray_directions", directions)):
            array = numpy.ascontiguousarray(values, numpy.float64)
            if array.size == 0 and array.ndim == 1:
                array = array.reshape(0, 3)
            if array.ndim != 2 or array.shape[1] != 3:
                raise ValueError(f"{name}: expected shape (n, 3), found {array.shape}")
            found.append(array)
        start, along = found
        if start.shape != along.shape:
            raise ValueError(f"ray_directions: expected {len(start)} rows as ray_origins, found {len(along)}")
        with numpy.errstate(all="ignore"):
            # By the largest part first, since squares leave the range of double.
            along = along / numpy.abs(along).max(axis=1, keepdims=True, initial=0.0)
            along /= numpy.linalg.norm(along, axis=1, keepdims=True)
        return start, along

    def _least(self) -> float:
        return -_BEHIND * self._extent()[1]

    def intersects_id(
        self,
        ray_origins: _ArrayLike,
        ray_directions: _ArrayLike,
        multiple_hits: bool = True,
        max_hits: int = 100,
        return_locations: bool = False,
    ) -> typing.Any:
        """The triangles that rays meet: (index_tri, index_ray), each (m,) int64, and with `return_locations` locations (m, 3).

        First come the nearest hits of all rays, then the second ones, up to `max_hits` of each; without `multiple_hits` the
        nearest alone.

        >>> import trimesh, vela.trimesh
        >>> ray = vela.trimesh.RayMeshIntersector(trimesh.creation.box())
        >>> [found.shape for found in ray.intersects_id([[0.1, 0.2, 5]], [[0, 0, -1]], return_locations=True)]
        [(2,), (2,), (2, 3)]
        """
        origins, directions = self._rays(ray_origins, ray_directions)
        tracer = self._tracer()
        _, size = self._extent()
        live = numpy.arange(len(origins))
        least = numpy.full(len(origins), self._least())
        triangles: list[_Index] = [numpy.zeros(0, numpy.int64)]
        rays: list[_Index] = [numpy.zeros(0, numpy.int64)]
        distances: list[_Double] = [numpy.zeros(0)]
        for _ in range(max_hits if multiple_hits else min(1, max_hits)):
            if not len(live):
                break
            hits = tracer.intersect(origins[live], directions[live], least, threads=self.threads)
            live, distance = live[hits.hit], hits.distance[hits.hit]
            triangles.append(hits.face[hits.hit].astype(numpy.int64))
            rays.append(live)
            distances.append(distance)
            # At distances that are far larger than the mesh the next number is farther than that.
            least = distance + numpy.maximum(_STEP * size, 4 * numpy.spacing(distance))
        index_tri, index_ray = numpy.concatenate(triangles), numpy.concatenate(rays)
        if not return_locations:
            return index_tri, index_ray
        locations = self._locations(origins[index_ray], directions[index_ray], index_tri, numpy.concatenate(distances))
        return index_tri, index_ray, locations

    def _locations(self, origins: _Double, directions: _Double, index_tri: _Index, distances: _Double) -> _Double:
        """Where rays meet the planes of triangles, in double; for rays along a plane where the tracer has met it."""
        if not len(index_tri):
            return numpy.zeros((0, 3))
        corners = numpy.asarray(self.mesh.triangles)[index_tri]
        normals = numpy.cross(corners[:, 1] - corners[:, 0], corners[:, 2] - corners[:, 0])
        with numpy.errstate(all="ignore"):
            along = ((corners[:, 0] - origins) * normals).sum(axis=1) / (directions * normals).sum(axis=1)
        # The two differ by roundings of the corners alone unless the ray runs along the plane.
        near = numpy.abs(along - distances) <= _STEP * self._extent()[1]
        exact = numpy.where(near, along, distances)
        return origins + directions * exact[:, None]

    def intersects_location(
        self, ray_origins: _ArrayLike, ray_directions: _ArrayLike, multiple_hits: bool = True
    ) -> tuple[_Double, _Index, _Index]:
        """Where rays meet the surface: locations (m, 3) float64, index_ray (m,), index_tri (m,); in the order of intersects_id.

        >>> import trimesh, vela.trimesh
        >>> ray = vela.trimesh.RayMeshIntersector(trimesh.creation.box())
        >>> ray.intersects_location([[0.1, 0.2, 5]], [[0, 0, -1]], multiple_hits=False)[0].tolist()
        [[0.1, 0.2, 0.5]]
        """
        index_tri, index_ray, locations = self.intersects_id(ray_origins, ray_directions, multiple_hits, return_locations=True)
        return locations, index_ray, index_tri

    def intersects_first(self, ray_origins: _ArrayLike, ray_directions: _ArrayLike) -> _Index:
        """The triangle that each ray meets first, (n,) int64; -1 for none.

        >>> import trimesh, vela.trimesh
        >>> ray = vela.trimesh.RayMeshIntersector(trimesh.creation.box())
        >>> ray.intersects_first([[3, 0, 5]], [[0, 0, -1]]).tolist()
        [-1]
        """
        origins, directions = self._rays(ray_origins, ray_directions)
        hits = self._tracer().intersect(origins, directions, self._least(), threads=self.threads)
        return numpy.where(hits.hit, hits.face, -1).astype(numpy.int64)

    def intersects_any(self, ray_origins: _ArrayLike, ray_directions: _ArrayLike) -> _Bool:
        """Whether each ray meets anything, (n,) bool.

        >>> import trimesh, vela.trimesh
        >>> vela.trimesh.RayMeshIntersector(trimesh.creation.box()).intersects_any([[0, 0, 0]], [[1, 0, 0]]).tolist()
        [True]
        """
        origins, directions = self._rays(ray_origins, ray_directions)
        return self._tracer().occluded(origins, directions, self._least(), threads=self.threads)

    def contains_points(self, points: _ArrayLike) -> _Bool:
        """Whether points (n, 3) lie inside a closed mesh, (n,) bool, by trimesh's own rule: rays from inside meet the surface an
        odd number of times. On the surface either may come.

        >>> import trimesh, vela.trimesh
        >>> vela.trimesh.RayMeshIntersector(trimesh.creation.box()).contains_points([[0, 0, 0], [1, 0, 0]]).tolist()
        [True, False]
        """
        return typing.cast(_Bool, _ray_util.contains_points(self, points))

    def __repr__(self) -> str:
        return f"<RayMeshIntersector of {self.mesh!r}>"

    def __getstate__(self) -> dict[str, typing.Any]:
        """The mesh; the tracer is built again."""
        return {name: value for name, value in self.__dict__.items() if name != "_cache"}

    def __setstate__(self, state: dict[str, typing.Any]) -> None:
        self.__dict__.update(state)
        self._cache = _caching.Cache(id_function=self.mesh.__hash__)

    def __copy__(self) -> RayMeshIntersector:
        return RayMeshIntersector(self.mesh, self._scale_to_box, threads=self.threads)

    def __deepcopy__(self, memo: dict[int, typing.Any]) -> RayMeshIntersector:
        return self.__copy__()
