# %% [markdown]
# # How thick a wall is
#
# **Need:** a part is to be printed or cast, and thin walls break. trimesh measures along rays; with Vela's tracer as the
# mesh's caster these take a moment, and edges let nothing through.

# %%
import numpy
import trimesh
import vela
import vela.trimesh

stage = vela.open("examples/demo/demo.usda")
prim = vela.ovo.MeshPrim(next(mesh for mesh in stage.meshes() if "CupNear" in mesh.path))
shape = vela.scene.read_shape(prim)
faces, at = [], 0
for count in shape.counts:
    corners = shape.indices[at : at + count]
    faces.extend(corners[vela.triangulate(shape.points[corners])])
    at += count
mesh = trimesh.Trimesh(shape.points, faces)
mesh.ray = vela.trimesh.RayMeshIntersector(mesh)
print(f"{prim.path}: {len(mesh.faces)} triangles, watertight: {mesh.is_watertight}")

# %% [markdown]
# From each triangle's middle straight through the wall to the other side.

# %%
centres = mesh.triangles_center
inward = -mesh.face_normals
locations, rays, _ = mesh.ray.intersects_location(centres + inward * 1e-4, inward, multiple_hits=False)
thickness = numpy.full(len(centres), numpy.inf)
thickness[rays] = numpy.linalg.norm(locations - centres[rays], axis=1)
print(f"thinnest {thickness.min():.2f}, median {numpy.median(thickness[rays]):.2f} units")

# %% [markdown]
# The part by itself: a tracer, a camera that looks at it, and colours from thin (red) to thick (blue).

# %%
width, height = 480, 270
middle, size = mesh.bounds.mean(axis=0), mesh.extents.max()
y, x = numpy.mgrid[1 : -1 : height * 1j, -1 : 1 : width * 1j]
eye = middle + size * numpy.array([0.0, 1.1, 1.6])
back = (eye - middle) / numpy.linalg.norm(eye - middle)
right = numpy.array([1.0, 0.0, 0.0])
directions = -back + 0.35 * ((width / height) * x[..., None] * right + y[..., None] * numpy.cross(back, right))
faces = mesh.ray.intersects_first(numpy.broadcast_to(eye, (width * height, 3)), directions.reshape(-1, 3))
share = numpy.clip((thickness - numpy.percentile(thickness, 2)) / (numpy.percentile(thickness, 90) - numpy.percentile(thickness, 2)), 0, 1)
colours = numpy.stack([1 - share, 0.35 * numpy.sin(numpy.pi * share) + 0.05, share], axis=1)
shade = 0.25 + 0.75 * numpy.abs(mesh.face_normals @ numpy.array([0.4, 0.7, 0.59]))
image = numpy.where(faces[:, None] >= 0, (colours * shade[:, None])[faces], 0.02).reshape(height, width, 3)
shown = vela.Picture({"rgb": image.astype(numpy.float32)})
shown.save("wall_thickness.png", layer="rgb", view="clip")
shown
