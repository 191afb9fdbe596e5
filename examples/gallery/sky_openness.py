# %% [markdown]
# # How open each point is to its surroundings
#
# **Need:** ambient occlusion, as a layer for comp or as a baked mask. Layers give the points and their normals, the sampler
# gives directions, and one batch of rays answers them all.

# %%
import numpy
import vela

stage = vela.open("examples/demo/demo.usda")
width, height = 480, 270
caster = vela.scene.RayCaster(vela.scene.list_meshes(stage))
view = vela.scene.make_view(stage, width=width, height=height)
rays = view.rays(view.pixel_centres())
hits = caster.intersect_rays(rays, threads=0)
normal = numpy.where((hits.normal * rays.directions).sum(axis=1, keepdims=True) > 0, -hits.normal, hits.normal)

# %% [markdown]
# Each point gets its own turn of one well-spread pattern; more directions where the surface faces them more (cosine).

# %%
each, reach = 16, 60.0
rng = vela.SamplingRng(7)
pattern = rng.samples_2d(4, 4) + 0.5
turn = rng.samples_1d(width * height)
radius, angle = numpy.sqrt(pattern[:, 0]), 2 * numpy.pi * (pattern[:, 1] + turn[:, None])
local = numpy.stack([radius * numpy.cos(angle), radius * numpy.sin(angle), numpy.broadcast_to(numpy.sqrt(1 - radius**2), angle.shape)], axis=-1)
helper = numpy.where(numpy.abs(normal[:, :1]) < 0.9, [[1.0, 0, 0]], [[0, 1.0, 0]])
tangent = numpy.cross(helper, normal)
tangent /= numpy.maximum(numpy.linalg.norm(tangent, axis=1, keepdims=True), 1e-9)
frame = numpy.stack([tangent, numpy.cross(normal, tangent), normal], axis=1)
directions = numpy.einsum("nsk,nkc->nsc", local, frame).astype(numpy.float32).reshape(-1, 3)
origins = numpy.repeat(hits.position + 0.01 * normal, each, axis=0)
blocked = caster.occluded(origins, directions, max_distance=reach, threads=0).reshape(-1, each)
openness = numpy.where(hits.hit, 1 - blocked.mean(axis=1), 1.0)
print(f"{directions.shape[0]} rays; {100 * openness.mean():.1f} % of the hemisphere is open on average")

# %%
layer = openness.reshape(height, width).astype(numpy.float32)
shown = vela.Picture({"rgb": numpy.repeat(layer[..., None] * 0.8, 3, axis=2)})
shown.save("sky_openness.png", layer="rgb", view="clip")
shown
