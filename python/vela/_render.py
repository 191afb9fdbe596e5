"""From a scene to a picture in one call, and pictures into files and notebooks."""

from __future__ import annotations

import contextlib
import importlib
import os
import typing
import warnings

from vela import _files
from vela._vela import LensProjection
from vela._vela.ovo import Stage
from vela._vela.picture import LightChoice, Picture, PictureRenderer, RenderOptions, SamplePattern, ViewOptions, file_format
from vela._vela.scene import CasterKind, MaterialPurpose, MeshFilter, Severity
from vela._vela.selection import GeoSelection
from vela._warnings import VelaWarning

Progress = typing.Union[bool, typing.Callable[[float], object]]


@contextlib.contextmanager
def _bar(progress: Progress) -> typing.Iterator[typing.Callable[[float], object] | None]:
    """The callable that hears of progress: the caller's own, or a bar where tqdm is there."""
    if callable(progress):
        yield progress
        return
    if not progress:
        yield None
        return
    try:
        tqdm: typing.Any = importlib.import_module("tqdm.auto").tqdm
    except ImportError:
        yield None
        return
    with tqdm(total=100, unit="%", desc="vela", leave=False) as bar:

        def advance(share: float) -> None:
            bar.update(int(100 * share) - bar.n)

        yield advance


class RenderChoices(typing.TypedDict, total=False):
    """What a picture is to show, as `vela.render` takes it."""

    size: tuple[int, int] | None
    layers: typing.Sequence[str] | str | None
    camera: str
    lens: LensProjection
    turn: float | None
    samples: int
    pattern: SamplePattern
    smooth: bool
    meshes: MeshFilter | None
    subdivision_level: int | None
    selection: GeoSelection | None
    materials: bool
    material_purpose: MaterialPurpose
    caster: CasterKind
    texture_memory: int | None
    lights: LightChoice
    bounces: int
    depth_of_field: bool
    clipping: bool
    motion_steps: int
    overscan: int


def options_of(
    size: tuple[int, int] | None = None,
    layers: typing.Sequence[str] | str | None = None,
    camera: str = "",
    lens: LensProjection = LensProjection.NONE,
    time: float | None = None,
    turn: float | None = None,
    samples: int = 16,
    pattern: SamplePattern = SamplePattern.JITTERED,
    smooth: bool = False,
    meshes: MeshFilter | None = None,
    subdivision_level: int | None = None,
    selection: GeoSelection | None = None,
    materials: bool = True,
    material_purpose: MaterialPurpose = MaterialPurpose.FULL,
    caster: CasterKind = CasterKind.TRACER,
    texture_memory: int | None = None,
    lights: LightChoice = LightChoice.SCENE,
    bounces: int = 1,
    depth_of_field: bool = False,
    clipping: bool = False,
    motion_steps: int = 0,
    overscan: int = 0,
) -> RenderOptions:
    """The record of these choices."""
    options = RenderOptions()
    view = ViewOptions()
    if size is not None:
        view.width, view.height = size
    view.camera = camera
    view.lens = lens
    view.turn = turn
    view.depth_of_field = depth_of_field
    view.clipping = clipping
    options.view = view
    options.time = time
    if layers is not None:
        options.layers = [layers] if isinstance(layers, str) else list(layers)
    options.samples = samples
    options.pattern = pattern
    options.smooth = smooth
    if meshes is not None:
        options.meshes = meshes
    if subdivision_level is not None:
        options.meshes.subdivision_level = subdivision_level
    options.selection = selection
    options.materials = materials
    options.material_purpose = material_purpose
    options.caster = caster
    if texture_memory is not None:
        options.texture_memory = texture_memory
    options.lights = lights
    options.bounces = bounces
    options.motion_steps = motion_steps
    options.overscan = overscan
    return options


def render(
    stage: Stage | str | os.PathLike[str],
    *,
    size: tuple[int, int] | None = None,
    layers: typing.Sequence[str] | str | None = None,
    camera: str = "",
    lens: LensProjection = LensProjection.NONE,
    time: float | None = None,
    turn: float | None = None,
    samples: int = 16,
    pattern: SamplePattern = SamplePattern.JITTERED,
    smooth: bool = False,
    meshes: MeshFilter | None = None,
    subdivision_level: int | None = None,
    selection: GeoSelection | None = None,
    materials: bool = True,
    material_purpose: MaterialPurpose = MaterialPurpose.FULL,
    caster: CasterKind = CasterKind.TRACER,
    texture_memory: int | None = None,
    lights: LightChoice = LightChoice.SCENE,
    bounces: int = 1,
    depth_of_field: bool = False,
    clipping: bool = False,
    motion_steps: int = 0,
    overscan: int = 0,
    region: tuple[int, int, int, int] | None = None,
    threads: int = 0,
    progress: Progress = False,
) -> Picture:
    """Renders a stage, or a scene file, to a picture.

    `size` is (width, height) in pixels; one of them 0 follows from the camera's film. `layers` are names, see
    `vela.picture.layer_names()`; without them colour and what else is there by default. `camera` is the path of a camera prim;
    without one the scene's first, or a view of all of it. `region` renders pixels (x0, y0) up to but without (x1, y1) alone.
    `lights` are the scene's, or Vela's own where it has none; light of the scene's is scattered `bounces` times, 0 to 8.
    `depth_of_field` and `clipping` are by the camera; `motion_steps` are the moments of its open shutter that samples are spread over,
    as 32, and 0 is the time alone. With `overscan` arrays have so many pixels more at each edge, and `region` may reach into them.
    `threads` of 0 are as many as the machine has; the picture does not depend on them. `progress` is a callable that gets a
    number from 0 to 1, or True for a bar where tqdm is there. Ctrl-C ends it with KeyboardInterrupt.

    What of the scene cannot be shown is told by VelaWarning. ValueError or LookupError with the reason when no picture can be
    made, MemoryError for scenes of more than memory is likely to hold.

    >>> picture = vela.render("examples/demo/demo.usda", size=(64, 36), layers=["rgba", "depth"], samples=1)
    >>> picture["rgba"].shape, picture["depth"].shape
    ((36, 64, 4), (36, 64))
    """
    if not isinstance(stage, Stage):
        stage = Stage.open(stage)
    options = options_of(size, layers, camera, lens, time, turn, samples, pattern, smooth, meshes, subdivision_level, selection,
                         materials, material_purpose, caster, texture_memory, lights, bounces, depth_of_field, clipping,
                         motion_steps, overscan)
    with _bar(progress) as tell:
        # Setting up reads the scene; most of the time goes into rays.
        share = None if tell is None else lambda done: tell(0.2 * done)
        renderer = PictureRenderer(stage, options, share)
        rest = None if tell is None else lambda done: tell(0.2 + 0.8 * done)
        picture = renderer.render_all(threads, rest) if region is None else renderer.render_region(region, threads, rest)
    for problem in renderer.problems:
        if problem.severity != Severity.NOTE:
            warnings.warn(str(problem), VelaWarning, stacklevel=2)
    return picture


def encode(
    self: Picture,
    format: str,
    *,
    layer: str = "rgba",
    compression: str = "zip",
    half_colour: bool = False,
    view: str = "",
    config: str = "",
    display: str = "",
    exposure: float = 0.0,
    behind: typing.Any = "backdrop",
    origin: tuple[int, int] = (0, 0),
    display_size: tuple[int, int] = (0, 0),
    threads: int = 1,
) -> bytes:
    """The bytes of a picture file: `exr` with all layers and attributes, `png` or `jpg` of one `layer` as it is looked at.

    Of EXR files `compression` is one of vela.picture.compression_names(), `half_colour` halves colour, and `origin` and
    `display_size` say where a part of a larger picture lies. Of the others see `display`. ValueError with the reason.

    >>> import numpy
    >>> vela.Picture({"depth": numpy.zeros((1, 1), numpy.float32)}).to_bytes("exr")[:4].hex()
    '762f3101'
    """
    native: typing.Any = self
    return typing.cast(bytes, native._encode(format, layer, compression, half_colour, view, config, display, exposure, behind,
                                           origin, display_size, threads))


def save(self: Picture, file: _files.Target, *, format: str | None = None, **options: typing.Any) -> None:
    """Writes the picture into a file, whole or not at all, or to a file-like object opened for bytes.

    The format is that of the file's extension, .exr, .png or .jpg, unless `format` says it; options are those of `to_bytes`.
    OSError when the file cannot be written, ValueError with the reason when no such file can hold the picture.

    >>> import io, numpy
    >>> file = io.BytesIO()
    >>> vela.Picture({"depth": numpy.zeros((1, 1), numpy.float32)}).save(file, format="exr")
    >>> len(file.getvalue()) > 100
    True
    """
    if format is None:
        name = os.fsdecode(file) if isinstance(file, (str, bytes, os.PathLike)) else getattr(file, "name", "")
        format = file_format(str(name))
        if format is None:
            raise ValueError(f"{name or 'the file'}: expected a name that ends with .exr, .png or .jpg, or a format")
    _files.write(file, encode(self, format, **options))


def _repr_png_(self: Picture) -> bytes | None:
    """What notebooks show: colour where there is some, else the first layer."""
    if not self.width or not self.height or not len(self):
        return None
    names = self.keys()
    return encode(self, "png", layer="rgba" if "rgba" in names else names[0])


def adopt() -> None:
    """Gives the native class the methods above."""
    for name, method in (("to_bytes", encode), ("save", save), ("_repr_png_", _repr_png_)):
        setattr(Picture, name, method)
