#!/usr/bin/env python3
"""Rays from Python against the same library from C++ and against embreex, and what a call costs.

All candidates run in one process, in turns; what counts are the medians of the processor's time on one thread and their ratios. embreex has no
threads of its own: what the wall clock says of all of them stands beside it, and is worth something on an idle machine alone.
`scripts/bench-python` builds what it needs and runs it.

Usage: python_rays.py PEER.so [--quick] [--json FILE]
"""

from __future__ import annotations

import argparse
import ctypes
import json
import statistics
import time

import numpy
import trimesh
from embreex.mesh_construction import TriangleMesh
from embreex.rtcore_scene import EmbreeScene

import vela

def bumpy_ball(subdivisions):
    """A ball whose points were moved at random."""
    ball = trimesh.creation.icosphere(subdivisions=subdivisions)
    points = ball.vertices * (1 + numpy.random.default_rng(1).uniform(-0.05, 0.05, (len(ball.vertices), 1)))
    return points.astype(numpy.float32), ball.faces.astype(numpy.int32)


def camera_rays(count):
    """Row by row over a square that the mesh fills."""
    side = int(count**0.5)
    y, x = numpy.mgrid[1 : -1 : side * 1j, -1 : 1 : side * 1j]
    directions = numpy.stack([0.42 * x, 0.42 * y, -numpy.ones_like(x)], axis=-1).reshape(-1, 3).astype(numpy.float32)
    return numpy.tile(numpy.array([[0, 0, 3]], numpy.float32), (len(directions), 1)), directions


def chords(count):
    """From around the mesh through it, one unlike the other."""
    generator = numpy.random.default_rng(2)
    origins = generator.normal(size=(count, 3))
    origins *= 3 / numpy.linalg.norm(origins, axis=1, keepdims=True)
    return origins.astype(numpy.float32), (generator.uniform(-1, 1, (count, 3)) - origins).astype(numpy.float32)


class Peer:
    """The library from C++."""

    def __init__(self, file, points, triangles):
        self.library = ctypes.CDLL(file)
        floats, ints = ctypes.POINTER(ctypes.c_float), ctypes.POINTER(ctypes.c_int)
        self.library.python_rays_make.restype = ctypes.c_void_p
        self.library.python_rays_make.argtypes = [floats, ctypes.c_size_t, ints, ctypes.c_size_t]
        self.library.python_rays_set.argtypes = [ctypes.c_void_p, floats, floats, ctypes.c_size_t]
        self.library.python_rays_trace.argtypes = [ctypes.c_void_p, ctypes.c_bool]
        self.library.python_rays_trace.restype = ctypes.c_double
        self.library.python_rays_hits.argtypes = [ctypes.c_void_p]
        self.library.python_rays_hits.restype = ctypes.c_size_t
        self.own = self.library.python_rays_make(points.ctypes.data_as(floats), len(points), triangles.ctypes.data_as(ints),
                                                 len(triangles))
        self.floats = floats

    def set(self, origins, directions):
        self.library.python_rays_set(self.own, origins.ctypes.data_as(self.floats), directions.ctypes.data_as(self.floats),
                                     len(origins))

    def trace(self, is_fresh):
        return self.library.python_rays_trace(self.own, is_fresh)


def milliseconds(call):
    start = time.process_time_ns()
    call()
    return (time.process_time_ns() - start) / 1e6


def wall(call):
    start = time.perf_counter()
    call()
    return (time.perf_counter() - start) * 1e3


def batches(peer_file, rounds, count):
    """Times of a million rays, in milliseconds, by scene, rays and candidate."""
    results = []
    for subdivisions in (5, 7):
        points, triangles = bumpy_ball(subdivisions)
        tracer = vela.SceneTracer()
        tracer.add_placement(tracer.add_mesh(points, numpy.full(len(triangles), 3, numpy.int32), triangles.reshape(-1)))
        tracer.build()
        peer = Peer(peer_file, points, triangles)
        scene = EmbreeScene()
        TriangleMesh(scene, points, triangles)
        for kind, make in (("camera", camera_rays), ("chords", chords)):
            origins, directions = make(count)
            peer.set(origins, directions)
            kept = tracer.intersect(origins, directions)
            ids = scene.run(origins, directions)
            peer.trace(False)
            assert peer.library.python_rays_hits(peer.own) == kept.hit.sum()
            assert numpy.mean((ids >= 0) == kept.hit) > 0.999
            candidates = {
                "vela from C++": lambda: peer.trace(False),
                "vela from C++, new room": lambda: peer.trace(True),
                "vela": lambda: milliseconds(lambda: tracer.intersect(origins, directions)),
                "vela, out=": lambda: milliseconds(lambda: tracer.intersect(origins, directions, out=kept)),
                "embreex, ids": lambda: milliseconds(lambda: scene.run(origins, directions)),
                "embreex, hits": lambda: milliseconds(lambda: scene.run(origins, directions, output=True)),
                "vela, all threads, wall": lambda: wall(lambda: tracer.intersect(origins, directions, threads=0)),
                "embreex, hits, wall": lambda: wall(lambda: scene.run(origins, directions, output=True)),
            }
            times = {name: [] for name in candidates}
            for _ in range(rounds):
                for name, run in candidates.items():
                    times[name].append(run())
            medians = {name: statistics.median(found) for name, found in times.items()}
            results.append({"triangles": len(triangles), "rays": kind, "count": len(origins), "milliseconds": medians})
    return results


def calls(rounds):
    """Nanoseconds of calls that do next to nothing."""
    points = numpy.array([[-1, -1, 0], [1, -1, 0], [1, 1, 0], [-1, 1, 0]], numpy.float32)
    tracer = vela.SceneTracer()
    tracer.add_placement(tracer.add_mesh(points, [4], [0, 1, 2, 3]))
    tracer.build()
    origin, direction = numpy.array([0.0, 0, 5]), numpy.array([0.0, 0, -1])
    origins, directions = numpy.array([[0, 0, 5]], numpy.float32), numpy.array([[0, 0, -1]], numpy.float32)
    nothing = numpy.zeros((0, 3), numpy.float32)
    kept, none = tracer.intersect(origins, directions), tracer.intersect(nothing, nothing)
    rng, path = vela.SamplingRng(), "/A"
    stage = vela.Stage.create_in_memory()
    candidates = {
        "tracer.num_meshes": lambda: tracer.num_meshes,
        "rng.value()": rng.value,
        "stage.prim(path)": lambda: stage.prim(path),
        "tracer.intersect_ray(origin, direction)": lambda: tracer.intersect_ray(origin, direction),
        "tracer.occluded, 1 ray": lambda: tracer.occluded(origins, directions),
        "tracer.intersect, 0 rays, out=": lambda: tracer.intersect(nothing, nothing, out=none),
        "tracer.intersect, 1 ray, out=": lambda: tracer.intersect(origins, directions, out=kept),
        "tracer.intersect, 1 ray": lambda: tracer.intersect(origins, directions),
    }
    found = {}
    for name, call in candidates.items():
        times = []
        for _ in range(rounds):
            start = time.process_time_ns()
            for _ in range(2000):
                call()
            times.append((time.process_time_ns() - start) / 2000)
        found[name] = statistics.median(times)
    return found


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("peer")
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--json")
    given = parser.parse_args()
    rounds = 3 if given.quick else 15
    results = batches(given.peer, rounds, 1_000_000)
    print("milliseconds of a million rays")
    for found in results:
        print(f"\n{found['triangles']} triangles, {found['rays']}")
        ms = found["milliseconds"]
        for name, time_of in ms.items():
            print(f"  {name:28}{time_of:8.1f}")
        found["ratios"] = {"vela / C++ (goal: at most 1.03)": ms["vela"] / ms["vela from C++"],
                           "vela / C++ with new room": ms["vela"] / ms["vela from C++, new room"],
                           "vela, out= / C++ (goal: at most 1.03)": ms["vela, out="] / ms["vela from C++"],
                           "embreex, ids / vela (goal: at least 1.5)": ms["embreex, ids"] / ms["vela"],
                           "embreex, hits / vela (goal: at least 1.5)": ms["embreex, hits"] / ms["vela"],
                           "the same, wall, all threads": ms["embreex, hits, wall"] / ms["vela, all threads, wall"]}
        for name, ratio in found["ratios"].items():
            print(f"  {name:45}{ratio:6.2f}")
    print("\nnanoseconds of a call (goal: at most 1000)")
    overhead = calls(rounds)
    for name, time_of in overhead.items():
        print(f"{name:45}{time_of:8.0f} ns")
    if given.json:
        with open(given.json, "w") as file:
            json.dump({"batches": results, "calls in ns": overhead}, file, indent=1)
            file.write("\n")


if __name__ == "__main__":
    main()
