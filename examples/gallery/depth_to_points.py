# %% [markdown]
# # A point cloud from a depth map
#
# **Need:** a scanner or a network speaks in depth maps; registration and meshing want points. A view knows which ray belongs to which pixel, so each depth
# becomes a point of the world, whatever the lens.

# %%
import numpy
import vela

stage = vela.open("examples/demo/demo.usda")
width, height = 480, 270
picture = vela.render(stage, size=(width, height), layers=["rgb", "depth", "P"], samples=1,
                      lights=vela.picture.LightChoice.OWN)
view = vela.scene.make_view(stage, width=width, height=height)

# %% [markdown]
# Depth is measured along the camera's axis, distances along rays: the two differ by the angle between them.

# %%
rays = view.rays(view.pixel_centres())
depth = picture["depth"].reshape(-1)
shown = numpy.isfinite(depth) & (depth > 0)
towards = -view.world_from_camera[:3, 2]
distance = depth[shown] / (rays.directions[shown] @ towards)
points = rays.origins[shown] + rays.directions[shown] * distance[:, None]

# The renderer's own layer of positions says how good that is.
error = numpy.linalg.norm(points - picture["P"].reshape(-1, 3)[shown], axis=1)
print(f"{len(points)} points, at most {error.max():.1e} units from where the surface is")

# %% [markdown]
# The cloud from straight above, each point with the colour of its pixel: what the camera did not see is black.

# %%
low, high = points.min(axis=0), points.max(axis=0)
colours = picture["rgb"].reshape(-1, 3)[shown]
x = ((points[:, 0] - low[0]) / (high[0] - low[0]) * (width - 1)).astype(int)
y = ((points[:, 2] - low[2]) / (high[2] - low[2]) * (height - 1)).astype(int)
above = numpy.zeros((height, width, 3), numpy.float32)
order = numpy.argsort(points[:, 1])  # what lies higher is drawn later
above[y[order], x[order]] = colours[order]
cloud = vela.Picture({"rgb": above})
cloud.save("depth_to_points.png", layer="rgb")
cloud
