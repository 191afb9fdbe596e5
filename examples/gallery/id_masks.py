# %% [markdown]
# # Masks of objects from ids
#
# **Need:** training data and comp work want one mask an object, named. The layer `prim` has a number in each pixel, and the
# picture's manifest says which prim that is.

# %%
import numpy
import vela

picture = vela.render("examples/demo/demo.usda", size=(480, 270), layers=["rgb", "prim"], samples=1, lights=vela.picture.LightChoice.OWN)
ids = picture["prim"]
names = picture.manifest  # value n is names[n - 1], 0 is nothing

# %% [markdown]
# Objects here are the prims below `/Demo/Things`: parts of one, such as a fruit and its stalk, share a mask.

# %%
owner = [name.split("/")[3] if name.startswith("/Demo/Things/") else "" for name in names]
masks = {}
for value in numpy.unique(ids[ids > 0]):
    thing = owner[value - 1]
    if thing:
        masks[thing] = masks.get(thing, False) | (ids == value)
for thing, mask in sorted(masks.items(), key=lambda item: -item[1].sum()):
    rows, columns = numpy.nonzero(mask)
    print(f"{thing:12} {mask.sum():6} pixels, x {columns.min()}..{columns.max()}, y {rows.min()}..{rows.max()}")

# %% [markdown]
# All of them over a dimmed picture, a hue each.

# %%
shown = 0.15 * picture["rgb"]
for i, thing in enumerate(sorted(masks)):
    hue = 2 * numpy.pi * i * 0.618
    colour = 0.4 + 0.4 * numpy.cos(hue + numpy.array([0, 2.1, 4.2]))
    shown[masks[thing]] = colour * (0.4 + 0.6 * picture["rgb"][masks[thing]].mean(axis=1, keepdims=True) / 0.5)
overlay = vela.Picture({"rgb": shown.astype(numpy.float32)})
overlay.save("id_masks.png", layer="rgb", view="clip")
overlay
