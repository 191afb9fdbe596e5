# %% [markdown]
# # A light probe by the spherical lens
#
# **Need:** light a foreground object with what surrounds it. The spherical lens shows all directions in one picture; nine numbers
# a colour, its spherical harmonics, are enough to light what is matt (Ramamoorthi and Hanrahan, 2001).

# %%
import numpy
import vela

stage = vela.open("examples/demo/demo.usda")
probe = vela.ovo.CameraPrim.define(stage, "/Probe")
vela.ovo.XformablePrim(probe).set_local_xform(vela.tarn.translation([0, 60, 40]))
width, height = 320, 160
spherical = vela.LensProjection.SPHERICAL
around = vela.render(stage, camera="/Probe", lens=spherical, size=(width, height), layers=["rgb"], samples=16)["rgb"]

# %% [markdown]
# Each pixel counts by the solid angle that it covers: less towards the poles, where the rows are short.


# %%
def harmonics(n):
    """The nine functions of lowest order at unit directions (..., 3)."""
    x, y, z = numpy.moveaxis(n, -1, 0)
    one = numpy.ones_like(x)
    return numpy.stack([0.282095 * one, 0.488603 * y, 0.488603 * z, 0.488603 * x, 1.092548 * x * y, 1.092548 * y * z,
                        0.315392 * (3 * z * z - 1), 1.092548 * x * z, 0.546274 * (x * x - y * y)], axis=-1)


view = vela.scene.make_view(stage, "/Probe", lens=spherical, width=width, height=height)
directions = view.rays(view.pixel_centres()).directions.astype(float).reshape(height, width, 3)
latitude = numpy.pi * ((numpy.arange(height) + 0.5) / height - 0.5)
angle = numpy.cos(latitude)[:, None] * (numpy.pi / height) * (2 * numpy.pi / width)
light = numpy.einsum("yxk,yxc,yx->kc", harmonics(directions), around.astype(float), numpy.broadcast_to(angle, (height, width)))
print(f"solid angles sum to {(angle * width).sum() / numpy.pi:.4f} pi; mean light {light[0] * 0.282095}")

# %% [markdown]
# A matt ball under that light, beside the picture of the surroundings.

# %%
y, x = numpy.mgrid[1 : -1 : height * 1j, -1 : 1 : height * 1j]
z = numpy.sqrt(numpy.clip(1 - x * x - y * y, 0, 1))
spread = numpy.array([1, 2 / 3, 2 / 3, 2 / 3, 0.25, 0.25, 0.25, 0.25, 0.25])  # what a matt surface makes of each
ball = harmonics(numpy.stack([x, y, z], axis=-1)) * spread @ light * 0.8
ball[x * x + y * y > 1] = 0.02
shown = vela.Picture({"rgb": numpy.concatenate((around, ball), axis=1).astype(numpy.float32)})
shown.save("light_probe.png", layer="rgb")
shown
