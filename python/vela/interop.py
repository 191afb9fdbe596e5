"""Meshes, scenes and pictures of other packages: trimesh, meshio, open3d, OpenUSD's own Python, xarray.

None of these packages is needed but the one whose objects are given. Arrays are read where they are when their types fit: float32
points, int32 indices. What has other types, such as the doubles of trimesh, is converted once.

>>> import trimesh
>>> tracer = vela.SceneTracer()
>>> vela.interop.place(tracer, trimesh.creation.box())
[0]
"""

from __future__ import annotations

import importlib
import os
import typing
import warnings

import numpy
import numpy.typing

from vela._vela import SceneTracer
from vela._vela.ovo import Stage
from vela._vela.picture import Picture
from vela._warnings import VelaWarning

# Corners that lie on the border of a face, by meshio's name of its kind: those of curved faces come first.
_MESHIO_CORNERS = {
    "triangle": 3, "triangle6": 3, "triangle7": 3, "triangle10": 3, "triangle15": 3, "triangle21": 3, "triangle28": 3,
    "triangle36": 3, "triangle45": 3, "triangle55": 3, "triangle66": 3, "VTK_LAGRANGE_TRIANGLE": 3,
    "quad": 4, "quad8": 4, "quad9": 4, "quad16": 4, "quad25": 4, "quad36": 4, "quad49": 4, "quad64": 4, "quad81": 4,
    "quad100": 4, "quad121": 4, "VTK_LAGRANGE_QUADRILATERAL": 4,
}  # fmt: skip


_Ints = numpy.typing.NDArray[numpy.int32]


class MeshArrays(typing.NamedTuple):
    """A mesh as SceneTracer.add_mesh and MeshPrim.set_points and set_faces take it.

    >>> import numpy
    >>> vela.interop.MeshArrays(numpy.zeros((0, 3), numpy.float32), *[numpy.zeros(0, numpy.int32)] * 2).counts.size
    0
    """

    points: numpy.typing.NDArray[numpy.float32]  #: (n, 3)
    counts: _Ints  #: (faces,), corners of each face
    indices: _Ints  #: (face-vertices,), point indices


def _points(values: typing.Any) -> numpy.typing.NDArray[numpy.float32]:
    """Points (n, 3) float32; flat ones, (n, 2), lie at z = 0."""
    array = numpy.asarray(values)
    if array.ndim == 2 and array.shape[1] == 2:
        array = numpy.column_stack((array, numpy.zeros(len(array), array.dtype)))
    if array.ndim != 2 or array.shape[1] != 3:
        raise ValueError(f"points: expected shape (n, 3), found {array.shape}")
    with numpy.errstate(over="ignore"):
        return numpy.ascontiguousarray(array, numpy.float32)


def _indices(values: typing.Any) -> _Ints:
    """Point indices, flat. One that does not fit is of no point: -1, whose face is never hit."""
    array = numpy.asarray(values)
    if array.dtype == numpy.int32:
        return numpy.ascontiguousarray(array).reshape(-1)
    limit = 2**31 - 1
    return numpy.where((array < 0) | (array > limit), -1, array).astype(numpy.int32).reshape(-1)


def _of_equal_faces(points: typing.Any, faces: typing.Any) -> MeshArrays:
    """A mesh whose faces have one number of corners."""
    rows = numpy.asarray(faces)
    if rows.size == 0:
        rows = rows.reshape(0, 3)
    if rows.ndim != 2:
        raise ValueError(f"faces: expected shape (n, corners), found {rows.shape}")
    return MeshArrays(_points(points), numpy.full(len(rows), rows.shape[1], numpy.int32), _indices(rows))


def _of_meshio(mesh: typing.Any) -> MeshArrays:
    """The faces of a meshio.Mesh, block after block."""
    counts: list[_Ints] = []
    indices: list[_Ints] = []
    left_out: list[str] = []
    for block in mesh.cells:
        kind = str(block.type)
        if kind == "polygon":
            polygons = [_indices(row) for row in block.data]
            counts.append(numpy.array([len(polygon) for polygon in polygons], numpy.int32))
            indices.extend(polygons)
        elif kind in _MESHIO_CORNERS:
            corners = _MESHIO_CORNERS[kind]
            rows = numpy.asarray(block.data)[:, :corners]
            counts.append(numpy.full(len(rows), corners, numpy.int32))
            indices.append(_indices(rows))
        elif len(block.data):
            left_out.append(f"{len(block.data)} of {kind}")
    if left_out:
        warnings.warn(f"cells that are no faces were left out: {', '.join(left_out)}", VelaWarning, stacklevel=4)
    none = [numpy.zeros(0, numpy.int32)]
    return MeshArrays(_points(mesh.points), numpy.concatenate(counts or none), numpy.concatenate(indices or none))


def _of_open3d_tensors(mesh: typing.Any) -> MeshArrays:
    """An open3d.t.geometry.TriangleMesh, whose arrays may lie on another device."""
    if "indices" not in mesh.triangle:
        return _of_equal_faces(numpy.zeros((0, 3), numpy.float32), numpy.zeros((0, 3), numpy.int32))
    return _of_equal_faces(mesh.vertex.positions.cpu().numpy(), mesh.triangle.indices.cpu().numpy())


def _is_scene(geometry: typing.Any) -> bool:
    return hasattr(geometry, "graph") and hasattr(geometry, "geometry")


def mesh_arrays(geometry: typing.Any) -> MeshArrays:
    """The points and faces of a trimesh.Trimesh, meshio.Mesh, open3d.geometry.TriangleMesh or open3d.t.geometry.TriangleMesh.

    Arrays whose types fit share the mesh's memory. Faces keep their order; of meshio those of all blocks come one after
    another. Faces of higher order give their corners, points (n, 2) lie at z = 0. Cells that are no faces, lines and volumes,
    are left out with a VelaWarning. TypeError for what is no mesh, ValueError for arrays of the wrong shape.

    >>> import trimesh
    >>> points, counts, indices = vela.interop.mesh_arrays(trimesh.creation.box())
    >>> points.shape, counts.shape, indices.dtype
    ((8, 3), (12,), dtype('int32'))
    """
    if hasattr(geometry, "cells") and hasattr(geometry, "points"):
        return _of_meshio(geometry)
    if hasattr(geometry, "vertices") and hasattr(geometry, "faces"):
        return _of_equal_faces(geometry.vertices, geometry.faces)
    if hasattr(geometry, "vertices") and hasattr(geometry, "triangles"):
        return _of_equal_faces(geometry.vertices, geometry.triangles)
    if hasattr(geometry, "vertex") and hasattr(geometry, "triangle"):
        return _of_open3d_tensors(geometry)
    raise TypeError(f"expected a mesh of trimesh, meshio or open3d, found {type(geometry).__name__}")


def place(tracer: SceneTracer, geometry: typing.Any, world_from_local: numpy.typing.ArrayLike | None = None) -> list[int]:
    """Adds meshes to a tracer and places them: those of `mesh_arrays`, and a trimesh.Scene.

    `world_from_local` is a matrix (4, 4). Returns the numbers of the placements: one for a mesh; for a scene one for each name
    in `scene.graph.nodes_geometry`, in that order, each mesh added once. Geometry of a scene that has no faces, such as a
    point cloud, is left out with a VelaWarning and has -1.

    >>> import trimesh
    >>> scene = trimesh.Scene()
    >>> box = trimesh.creation.box()
    >>> names = [scene.add_geometry(box, geom_name="box"), scene.graph.update("right", geometry="box")]
    >>> tracer = vela.SceneTracer()
    >>> vela.interop.place(tracer, scene), tracer.num_meshes
    ([0, 1], 1)
    """
    world = numpy.eye(4) if world_from_local is None else numpy.asarray(world_from_local, numpy.float64)
    if world.shape != (4, 4):
        raise ValueError(f"world_from_local: expected shape (4, 4), found {world.shape}")
    if not _is_scene(geometry):
        return [tracer.add_placement(tracer.add_mesh(*mesh_arrays(geometry)), world)]
    placements: list[int] = []
    meshes: dict[str, int] = {}
    for node in geometry.graph.nodes_geometry:
        matrix, name = geometry.graph[node]
        if name not in meshes:
            part = geometry.geometry[name]
            if not hasattr(part, "faces"):
                warnings.warn(f"{name}: a {type(part).__name__} has no faces and was left out", VelaWarning, stacklevel=2)
                meshes[name] = -1
            else:
                meshes[name] = tracer.add_mesh(*mesh_arrays(part))
        placements.append(-1 if meshes[name] < 0 else tracer.add_placement(meshes[name], world @ matrix))
    return placements


def open_usd(stage: typing.Any, *, flatten: bool = False) -> Stage:
    """A `pxr.Usd.Stage` as a stage of Vela, by its root layer with the changes that are not saved yet.

    Files that the layer names are opened from where they lie, so changes to other layers that are not saved, and the session
    layer, are not seen. With `flatten` the composed scene comes, all of these included, and variants are no choice any more.
    The two stages have nothing in common afterwards. ValueError with the reason when the text cannot be read.

    >>> try:
    ...     from pxr import Usd
    ... except ImportError:
    ...     Usd = None
    >>> if Usd is not None:
    ...     theirs = Usd.Stage.CreateInMemory()
    ...     ours = vela.interop.open_usd(theirs)
    """
    if not hasattr(stage, "GetRootLayer") or not hasattr(stage, "Flatten"):
        raise TypeError(f"expected a pxr.Usd.Stage, found {type(stage).__name__}")
    if flatten:
        return Stage.open_text(str(stage.Flatten().ExportToString()))
    sdf: typing.Any = importlib.import_module("pxr.Sdf")
    utilities: typing.Any = importlib.import_module("pxr.UsdUtils")
    root = stage.GetRootLayer()
    copy = sdf.Layer.CreateAnonymous(".usda")
    copy.TransferContent(root)

    def absolute(name: str) -> str:
        # Only what is told from the layer's own place: searched names and addresses stay as they are.
        is_own = name.startswith(("./", "../")) or (not os.path.isabs(name) and "://" not in name)
        found = str(root.ComputeAbsolutePath(name)) if name and is_own and not root.anonymous else name
        return found if found else name

    utilities.ModifyAssetPaths(copy, absolute)
    return Stage.open_text(str(copy.ExportToString()))


def to_xarray(picture: Picture) -> typing.Any:
    """A picture as an xarray.Dataset: a variable for each layer, which shares the picture's memory and is read-only.

    Dimensions are `y` and `x`, pixel centres from the top left corner; a layer of several channels has another one,
    `LAYER_channel`, with the channels' names. Attributes are those of the picture, and `manifest` where there is a layer of ids.

    >>> import numpy
    >>> picture = vela.Picture({"depth": numpy.full((2, 3), 1.5, numpy.float32)})
    >>> vela.interop.to_xarray(picture)["depth"].sel(x=0.5).values.tolist()
    [1.5, 1.5]
    """
    xarray: typing.Any = importlib.import_module("xarray")
    variables: dict[str, typing.Any] = {}
    coordinates: dict[str, typing.Any] = {"y": numpy.arange(picture.height) + 0.5, "x": numpy.arange(picture.width) + 0.5}
    for name in picture.keys():
        values = picture[name]
        dimensions = ["y", "x"]
        if values.ndim == 3:
            dimensions.append(f"{name}_channel")
            coordinates[dimensions[-1]] = picture.layer_channels(name)
        variables[name] = (dimensions, values)
    attributes: dict[str, typing.Any] = dict(picture.attributes)
    if picture.manifest:
        attributes["manifest"] = picture.manifest
    return xarray.Dataset(variables, coordinates, attributes)
