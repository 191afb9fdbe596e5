#!/usr/bin/env python3
"""What it takes to shade a picture, against what its rays take in the tracer alone.

A chess set with constant materials and one light: a picture of its colours, against the layer `depth` of as many camera rays and as many shadow rays as the picture sent,
asked of the same structure in one call. `depth` has one ray a pixel whatever the samples are, so its picture has that many more pixels. All in one process, in turns, on one
thread; what counts is the median of the processor's time, and the ratio, whose goal is 1.3. `scripts/bench-shading` builds what it needs and runs it.

Usage: shading.py [--quick] [--scene FILE] [--json FILE]
"""

from __future__ import annotations

import argparse
import json
import pathlib
import statistics
import sys
import tempfile
import time

import numpy
import vela

GOAL = 1.3
SCENE = """#usda 1.0
(
    subLayers = [@{file}@]
)
over "{root}" (
    prepend apiSchemas = ["MaterialBindingAPI"]
)
{{
    rel material:binding = </Constant> (
        bindMaterialAs = "strongerThanDescendants"
    )
}}
def Material "Constant"
{{
    token outputs:surface.connect = </Constant/Surface.outputs:surface>
    def Shader "Surface"
    {{
        uniform token info:id = "UsdPreviewSurface"
        color3f inputs:diffuseColor = (0.5, 0.4, 0.3)
        float inputs:roughness = 0.4
        token outputs:surface
    }}
}}
def DistantLight "Sun"
{{
    float inputs:intensity = 50000
    float3 xformOp:rotateXYZ = (-50, 30, 0)
    uniform token[] xformOpOrder = ["xformOp:rotateXYZ"]
}}
"""
# Where the light comes from: +Z turned about x, y and z.
TO_LIGHT = numpy.array([numpy.cos(numpy.radians(50)) * numpy.sin(numpy.radians(30)), numpy.sin(numpy.radians(50)),
                        numpy.cos(numpy.radians(50)) * numpy.cos(numpy.radians(30))], numpy.float32)


def renderer_of(stage, size, samples, layers):
    options = vela.picture.RenderOptions()
    options.view.width, options.view.height = size
    options.samples, options.layers, options.bounces = samples, layers, 0
    return vela.picture.PictureRenderer(stage, options)


def shadow_rays(stage, renderer, samples, count):
    """As many as the picture sent, pixel by pixel from what its camera sees towards the light."""
    caster = vela.scene.RayCaster(vela.scene.list_meshes(stage))
    view = renderer.view
    rays = view.rays(view.pixel_centres())
    hits = caster.intersect(rays.origins, rays.directions)
    normals = numpy.where((numpy.sum(hits.normal * rays.directions, axis=1) > 0)[:, None], -hits.normal, hits.normal)
    lit = hits.hit & (normals @ TO_LIGHT > 0)
    starts = hits.position[lit] + 1e-4 * hits.distance[lit, None] * normals[lit]
    starts = numpy.repeat(starts, samples, axis=0)
    starts = numpy.resize(starts, (count, 3))  # the samples at edges differ from the centres by some
    return caster, starts, numpy.tile(TO_LIGHT, (count, 1))


def main():
    root = pathlib.Path(__file__).resolve().parents[1]
    parser = argparse.ArgumentParser()
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--scene", type=pathlib.Path, default=root.parent / "shared/data/usd/OpenChessSet/chess_set.usda")
    parser.add_argument("--json")
    given = parser.parse_args()
    if not given.scene.is_file():
        sys.exit(f"shading.py: error: there is no {given.scene}: name one with --scene")
    size, side, rounds = ((320, 180), 2, 3) if given.quick else ((1280, 720), 2, 9)
    samples = side * side

    stage = vela.open(given.scene)
    with tempfile.NamedTemporaryFile("w", suffix=".usda") as file:
        file.write(SCENE.format(file=given.scene.resolve(), root=stage.default_prim_name))
        file.flush()
        stage = vela.open(file.name)
    colour = renderer_of(stage, size, samples, ["rgba"])
    depth = renderer_of(stage, (side * size[0], side * size[1]), 1, ["depth"])
    colour.render_all(1)
    depth.render_all(1)
    sent = colour.stats.light_rays
    if colour.stats.camera_rays != depth.stats.camera_rays or not sent:
        sys.exit("shading.py: error: the pictures do not have the same camera rays, or no light reaches this scene")
    caster, starts, directions = shadow_rays(stage, colour, samples, sent)

    def shade():
        colour.render_all(1)

    def trace():
        depth.render_all(1)

    def shadow():
        caster.occluded(starts, directions, 0.0, 3e38)

    works = {"colours": shade, "depth": trace, "shadow rays": shadow}
    times = {name: [] for name in works}
    for _ in range(rounds):
        for name, work in works.items():
            begin = time.process_time()
            work()
            times[name].append(time.process_time() - begin)
    medians = {name: statistics.median(all_) for name, all_ in times.items()}
    ratio = medians["colours"] / (medians["depth"] + medians["shadow rays"])
    print(f"{given.scene.stem}, {size[0]} x {size[1]}, {samples} samples a pixel, {sent} shadow rays, {rounds} rounds")
    for name, seconds in medians.items():
        print(f"  {name:12} {1000 * seconds:8.1f} ms")
    print(f"  ratio        {ratio:8.2f}, goal at most {GOAL}")
    if given.json:
        pathlib.Path(given.json).write_text(json.dumps({"scene": given.scene.stem, "size": size, "samples": samples, "shadowRays": sent,
                                                        "medians": medians, "ratio": ratio, "goal": GOAL}, indent=1) + "\n")


if __name__ == "__main__":
    main()
