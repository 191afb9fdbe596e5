# %% [markdown]
# # A selection made on a picture
#
# **Need:** somebody has marked a region on a picture, by hand or by a threshold; a host wants the faces behind it. The layers
# `prim` and `face` lead back to the scene, and the selection is a file that every host of the library reads.

# %%
import numpy
import vela
from vela.selection import GeoSelection, PartType

stage = vela.open("examples/demo/demo.usda")
size = (480, 270)
own = vela.picture.LightChoice.OWN
picture = vela.render(stage, size=size, layers=["rgb", "prim", "face", "albedo"], samples=1, lights=own)

# %% [markdown]
# The mark: all that is teal or blue, whatever the light on it.

# %%
red, green, blue = numpy.moveaxis(picture["albedo"], -1, 0)
marked = (blue > 1.4 * red) & (blue > 0.08)
chosen = GeoSelection()
for value in numpy.unique(picture["prim"][marked]):
    if value:
        faces = picture["face"][marked & (picture["prim"] == value)]
        amounts = numpy.zeros(faces.max() + 1, numpy.float32)  # a number for each face, 1 is chosen
        amounts[faces] = 1
        chosen.set_part(picture.manifest[value - 1], PartType.FACES, amounts)
print(f"{marked.sum()} pixels, {len(chosen)} objects")
chosen.save("teal.sel")
assert GeoSelection.load("teal.sel") == chosen

# %% [markdown]
# The same selection from another side: faces that the first camera did not see are not selected.

# %%
front = vela.render(stage, size=(240, 270), selection=chosen, layers=["rgb"], samples=4, lights=own)["rgb"]
side = vela.render(stage, size=(240, 270), selection=chosen, layers=["rgb"], samples=4, lights=own, turn=35)["rgb"]
both = vela.Picture({"rgb": numpy.concatenate((front, side), axis=1)})
both.save("select_by_picture.png", layer="rgb")
both
