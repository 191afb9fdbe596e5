# %% [markdown]
# # Hours of sun on a floor
#
# **Need:** a study of daylight asks how long the sun reaches each place. A grid of points over the floor, a direction for each
# quarter of an hour, and any-hit rays between them.

# %%
import numpy
import vela

stage = vela.open("examples/demo/demo.usda")
caster = vela.scene.RayCaster(vela.scene.list_meshes(stage))
width, height = 480, 270
x, z = numpy.meshgrid(numpy.linspace(-100, 100, width), numpy.linspace(-45, 67, height))

# %% [markdown]
# The points are what rays from above meet first; the sun stands in the south-east in the morning and sinks in the west.

# %%
down = numpy.tile(numpy.float32([0, -1, 0]), (width * height, 1))
hits = caster.intersect(numpy.stack([x.ravel(), numpy.full(x.size, 300.0), z.ravel()], axis=1), down, threads=0)
points = hits.position + 0.01 * hits.normal
hours = numpy.zeros(len(points), numpy.float32)
for time in numpy.arange(7, 18, 0.25):
    east, rise = numpy.radians(15 * (time - 12.5)), numpy.radians(55) * numpy.sin(numpy.pi * (time - 6) / 13)
    sun = numpy.array([-numpy.sin(east) * numpy.cos(rise), numpy.sin(rise), numpy.cos(east) * numpy.cos(rise)], numpy.float32)
    facing = hits.normal @ sun > 0
    hidden = caster.occluded(points, numpy.broadcast_to(sun, points.shape).copy(), threads=0)
    hours += 0.25 * (hits.hit & facing & ~hidden)
print(f"between {hours[hits.hit].min():.2f} and {hours.max():.2f} hours of 11, {hours[hits.hit].mean():.2f} on average")

# %%
share = (hours / hours.max()).reshape(height, width, 1)
warm = numpy.clip(share * [1.3, 1.5, 1.6] + [0.0, -0.5, -1.0], 0, 1) ** 2
plan = vela.Picture({"rgb": warm.astype(numpy.float32)})
plan.save("sun_hours.png", layer="rgb", view="clip")
plan
