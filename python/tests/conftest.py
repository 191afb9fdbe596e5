"""What the tests share. They run in the project's folder, and the module is that of the build tree."""

import pathlib
import subprocess
import sys

import numpy
import pytest

import vela

ROOT = pathlib.Path(__file__).resolve().parents[2]
DEMO = ROOT / "examples/demo/demo.usda"

SQUARE = numpy.array([[-1, -1, 0], [1, -1, 0], [1, 1, 0], [-1, 1, 0]], numpy.float32)


@pytest.fixture
def stage():
    return vela.open(DEMO)


@pytest.fixture
def memory_stage():
    return vela.Stage.create_in_memory()


@pytest.fixture
def square_tracer():
    tracer = vela.SceneTracer()
    tracer.add_placement(tracer.add_mesh(SQUARE, numpy.array([4], numpy.int32), numpy.arange(4, dtype=numpy.int32)))
    tracer.build()
    return tracer


def run_python(code, timeout=120):
    """Runs a program of its own; its exit code, standard output and error."""
    done = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True, timeout=timeout, cwd=ROOT)
    return done
