"""Results of calls that give more than one array."""

from __future__ import annotations

import typing

import numpy
import numpy.typing

FloatArray = numpy.typing.NDArray[numpy.float32]
DoubleArray = numpy.typing.NDArray[numpy.float64]
IntArray = numpy.typing.NDArray[numpy.int32]
UIntArray = numpy.typing.NDArray[numpy.uint32]
BoolArray = numpy.typing.NDArray[numpy.bool_]


class Hits(typing.NamedTuple):
    """What a batch of n rays met, an array a fact. Where `hit` is False the others have their defaults.

    `distance` is in units of each ray's direction, `position` and `normal` are in world space; the normal has unit
    length and follows the stored winding. A value that varies over the triangle is (1 - u - v) a + u b + v c.
    """

    distance: DoubleArray  #: (n,); the largest finite number on a miss
    position: FloatArray  #: (n, 3)
    normal: FloatArray  #: (n, 3)
    placement: UIntArray  #: (n,), as add_placement numbered it
    face: IntArray  #: (n,), index into the mesh's face counts
    points: IntArray  #: (n, 3), point indices of the triangle's corners
    face_vertices: IntArray  #: (n, 3), their places in the array of face vertex indices
    u: FloatArray  #: (n,)
    v: FloatArray  #: (n,)
    hit: BoolArray  #: (n,)


class SurfaceHits(typing.NamedTuple):
    """What a batch of n rays of the world met; see Hits. The position is base + offset, and in double."""

    distance: DoubleArray  #: (n,)
    position: DoubleArray  #: (n, 3), in the world
    normal: FloatArray  #: (n, 3)
    entry: UIntArray  #: (n,), index in MeshList.entries
    face: IntArray  #: (n,), of the entry's shape
    points: IntArray  #: (n, 3)
    face_vertices: IntArray  #: (n, 3)
    u: FloatArray  #: (n,)
    v: FloatArray  #: (n,)
    has_corners: BoolArray  #: (n,)
    hit: BoolArray  #: (n,)


class Collisions(typing.NamedTuple):
    """What a batch of n rays met in a structure: the records of CollisionResult side by side."""

    distance: FloatArray  #: (n,); the largest finite float on a miss
    position: FloatArray  #: (n, 3)
    normal: FloatArray  #: (n, 3)
    primitive_index: UIntArray  #: (n,)
    face_index: IntArray  #: (n,)
    hit: BoolArray  #: (n,)


class Rays(typing.NamedTuple):
    """The rays of a lens: origins and directions (n, 3), the range of distances (n,), the directions of the neighbouring
    rays in x and y (n, 3)."""

    origins: FloatArray
    directions: FloatArray
    min_distance: FloatArray
    max_distance: FloatArray
    x_directions: FloatArray
    y_directions: FloatArray


class WorldRays(typing.NamedTuple):
    """Rays in the world: bases and offsets (n, 3), whose sum is where each starts, and directions (n, 3)."""

    bases: DoubleArray
    offsets: DoubleArray
    directions: FloatArray
    min_distance: FloatArray
    max_distance: FloatArray

    @property
    def origins(self) -> DoubleArray:
        """Where the rays start, (n, 3)."""
        return self.bases + self.offsets


class Subdivided(typing.NamedTuple):
    """A refined mesh: what each refined face comes from, and where the given points are among the refined ones (-1:
    nowhere)."""

    points: FloatArray  #: (n, 3)
    counts: IntArray  #: (faces,)
    indices: IntArray  #: (face-vertices,)
    source_faces: IntArray  #: (faces,)
    refined_point_of: IntArray  #: (given points,)
    data: dict[str, numpy.typing.NDArray[numpy.float32]]  #: what was carried along, by name
