# %% [markdown]
# # What a rig of cameras covers
#
# **Need:** before the cameras are mounted, know which surfaces how many of them see. Reconstruction takes two views of each point.

# %%
import numpy
import vela

stage = vela.open("examples/demo/demo.usda")
width, height = 480, 270


def add_camera(name, eye, target):
    """A camera prim at `eye` that looks at `target`."""
    eye, target = numpy.array(eye, float), numpy.array(target, float)
    back = (eye - target) / numpy.linalg.norm(eye - target)
    right = numpy.cross([0, 1, 0], back)
    right /= numpy.linalg.norm(right)
    world_from_camera = numpy.eye(4)
    world_from_camera[:3] = numpy.column_stack((right, numpy.cross(back, right), back, eye))
    camera = vela.ovo.CameraPrim.define(stage, f"/Rig/{name}")
    vela.ovo.XformablePrim(camera).set_local_xform(world_from_camera)
    camera.set_parameters(vela.ovo.CameraParameters(focal_length=20, horizontal_aperture=24, vertical_aperture=13.5))
    return vela.scene.make_view(stage, str(camera.path), width=width, height=height)


rig = [add_camera("Left", [-140, 70, 150], [-10, 20, 0]), add_camera("Middle", [0, 110, 130], [0, 10, 0]),
       add_camera("Right", [150, 60, 120], [0, 20, 0])]

# %% [markdown]
# For each point that the overview shows: does it project into a camera's frame, and is the way to that camera free? The way
# ends a little before the surface, which would hide itself otherwise.

# %%
overview = vela.scene.make_view(stage, "/Demo/Camera", width=width, height=height)
caster = vela.scene.RayCaster(vela.scene.list_meshes(stage))
hits = caster.intersect_rays(overview.rays(overview.pixel_centres()), threads=0)
seen_by = numpy.zeros(len(hits.hit), int)
for view in rig:
    pixels = view.find_pixels(hits.position, threads=0)
    inside = hits.hit & (pixels >= 0).all(axis=1) & (pixels < [width, height]).all(axis=1)
    eye = view.world_from_camera[:3, 3]
    way = (hits.position[inside] - eye).astype(numpy.float32)
    hidden = caster.occluded(numpy.tile(eye, (len(way), 1)), way, max_distance=0.999, threads=0)
    seen_by[numpy.flatnonzero(inside)[~hidden]] += 1
for count in range(len(rig) + 1):
    print(f"seen by {count} of {len(rig)}: {100 * numpy.mean(seen_by[hits.hit] == count):5.1f} % of the pixels")

# %%
clay = vela.render(stage, camera="/Demo/Camera", size=(width, height), layers=["N"], samples=1)["N"]
shade = 0.3 + 0.7 * numpy.clip(clay @ numpy.array([0.3, 0.6, 0.74], numpy.float32), 0, 1)
colours = numpy.array([[0.6, 0.05, 0.04], [0.75, 0.45, 0.05], [0.25, 0.55, 0.1], [0.05, 0.35, 0.6]], numpy.float32)
covered = vela.Picture({"rgb": colours[seen_by].reshape(height, width, 3) * shade[..., None]})
covered.save("rig_coverage.png", layer="rgb", view="clip")
covered
