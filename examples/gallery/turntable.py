# %% [markdown]
# # A sheet of an asset from all sides
#
# **Need:** a catalogue of assets wants a look at each from all around, in one picture, without cameras or lights of its own. A
# turned view shows all that there is; the variants of the asset come one row each.

# %%
import numpy
import vela

asset = "examples/demo/assets/book.usda"
stage = vela.open(asset)
prim = stage.default_prim
name = prim.variant_sets()[0]
choices = prim.variants(name)
print(f"{prim.path}: {name} is one of {', '.join(choices)}")

# %%
angles = range(0, 360, 90)
rows = []
for choice in choices[:2]:
    shown = vela.open(asset, variants=[f"{prim.path}:{name}={choice}"])
    rows.append([vela.render(shown, size=(120, 135), turn=angle, layers=["rgb"], samples=8)["rgb"] for angle in angles])

# %%
sheet = vela.Picture({"rgb": numpy.concatenate([numpy.concatenate(row, axis=1) for row in rows], axis=0)})
sheet.save("turntable.png", layer="rgb")
sheet
