# %% [markdown]
# # Ray statistics of a scene
#
# **Need:** a renderer is slow, or a scan of the scene would be: how many surfaces lie behind one another, where, and how far
# do rays go? Asking again from behind each hit counts them.

# %%
import numpy
import vela

stage = vela.open("examples/demo/demo.usda")
width, height = 480, 270
caster = vela.scene.RayCaster(vela.scene.list_meshes(stage))
view = vela.scene.make_view(stage, width=width, height=height)
rays = view.rays(view.pixel_centres())

# %%
surfaces = numpy.zeros(width * height, int)
live = numpy.arange(width * height)
least = rays.min_distance
first = None
while len(live):
    hits = caster.intersect(rays.bases[live], rays.directions[live], least, rays.max_distance[live], rays.offsets[live],
                            threads=0)
    first = hits if first is None else first
    surfaces[live[hits.hit]] += 1
    live, least = live[hits.hit], (hits.distance[hits.hit] * (1 + 1e-6)).astype(numpy.float32)

# %%
print(f"{100 * first.hit.mean():.1f} % of rays hit; distances {numpy.percentile(first.distance[first.hit], [0, 50, 100]).round(1)}")
for count in range(0, surfaces.max() + 1, 4):
    share = numpy.mean((surfaces >= count) & (surfaces < count + 4))
    print(f"{count:3} to {count + 3:2} surfaces {'#' * int(60 * share):60} {100 * share:.1f} %")

# %% [markdown]
# Brighter is deeper.

# %%
depth = (surfaces / surfaces.max()).reshape(height, width, 1)
heat = numpy.clip(depth * [1.2, 2.2, 3.5] + [0, -0.5, -1.9], 0, 1)
heat[..., 2] += 0.6 * numpy.clip(1 - 3 * depth[..., 0], 0, 1) * (depth[..., 0] > 0)
shown = vela.Picture({"rgb": (heat**2).astype(numpy.float32)})
shown.save("ray_statistics.png", layer="rgb", view="clip")
shown
