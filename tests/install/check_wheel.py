#!/usr/bin/env python3
"""The wheel of scripts/build-wheel, installed into a fresh environment: it imports and renders, with the command and for C++ as well,
touches no OpenUSD of others, and lives in one process with others' OpenUSD, Embree, OpenImageIO and NumPy, whichever comes first.

Usage: check_wheel.py FOLDER_OF_THE_WHEEL PROJECT_ROOT [--with-torch]

With --with-torch torch is among them: 3 GB to fetch.
"""
import itertools
import pathlib
import re
import subprocess
import sys
import tempfile
import zipfile

LIMIT = 25 * 2**20

USE = """
import vela, numpy
picture = vela.render({scene!r}, size=(64, 36), layers=["rgba", "depth"], samples=1)
assert picture["depth"].shape == (36, 64) and numpy.isfinite(picture["rgba"]).all()
picture.save("a.exr"); picture.save("a.png"); picture.save("a.jpg")
assert vela.ovo.try_scene({scene!r}).outcome.name == "OPENS"
print(vela.version())
"""
# What others do in the process, by the module that they are imported as; each a statement or more.
BESIDE = {
    "vela": """
ours = vela.open({scene!r})
picture = vela.render(ours, size=(16, 16), layers=["rgba", "prim"], samples=1)
assert (picture["prim"] > 0).any() and len(ours.meshes()) > 0
""",
    "numpy": """
assert numpy.linalg.inv(numpy.eye(4)).trace() == 4
""",
    "pxr.Usd": """
theirs = pxr.Usd.Stage.Open({scene!r})
assert len(list(theirs.TraverseAll())) > 100
assert str(theirs.GetDefaultPrim().GetPath()) == "/Demo"
""",
    "embreex.rtcore_scene": """
from embreex.mesh_construction import TriangleMesh
square = numpy.array([[0, 0, 0], [1, 0, 0], [0, 1, 0]], numpy.float32)
scene = embreex.rtcore_scene.EmbreeScene()
TriangleMesh(scene, square, numpy.array([[0, 1, 2]], numpy.int32))
down = numpy.array([[0.2, 0.2, 1], [2, 2, 1]], numpy.float32), numpy.array([[0, 0, -1]] * 2, numpy.float32)
assert scene.run(*down).tolist() == [0, -1]
tracer = vela.SceneTracer()
tracer.add_placement(tracer.add_mesh(square, [3], [0, 1, 2]))
tracer.build()
assert tracer.intersect(*down).hit.tolist() == [True, False]
""",
    "OpenImageIO": """
picture.save("beside.exr")
read = OpenImageIO.ImageBuf("beside.exr")
assert (read.spec().width, read.spec().height) == (16, 16), read.geterror()
assert numpy.array_equal(read.get_pixels()[..., :4], picture["rgba"])
""",
    "torch": """
ndc = torch.rand(8, 2) * 2 - 1
rays = vela.LinearProjection().rays(ndc)
assert numpy.array_equal(vela.LinearProjection().rays(ndc.numpy()).directions, rays.directions)
assert torch.from_numpy(rays.directions).norm(dim=1).allclose(torch.ones(8))
""",
}
CONSUMER = """
#include <vela/vela.h>
#include <vela/picture/picture.h>
int main(int, char** arguments) {
  const auto stage = ovo::Stage::open(arguments[1]);
  vela::picture::RenderOptions options;
  options.view.width = options.view.height = 16;
  return stage && vela::picture::renderPicture(stage, options) ? 0 : 1;
}
"""
LISTS = """
cmake_minimum_required(VERSION 3.16)
project(consumer CXX)
find_package(Vela REQUIRED COMPONENTS Picture)
add_executable(consumer main.cpp)
target_link_libraries(consumer PRIVATE Vela::vela Vela::picture)
"""


def run(*command, timeout=900, **options):
    done = subprocess.run([str(part) for part in command], capture_output=True, text=True, timeout=timeout, **options)
    assert done.returncode == 0, f"{command}: exit code {done.returncode}\n{done.stdout}{done.stderr}"
    return done.stdout


def main():
    folder, root = pathlib.Path(sys.argv[1]).resolve(), pathlib.Path(sys.argv[2]).resolve()
    wheel, = folder.glob("vela-*.whl")
    scene = str(root / "examples/demo/demo.usda")
    assert re.search(r"-manylinux_\d+_\d+_x86_64\.whl$", wheel.name), wheel.name
    assert wheel.stat().st_size < LIMIT, f"{wheel.stat().st_size} bytes"
    names = zipfile.ZipFile(wheel).namelist()
    assert not [name for name in names if name.startswith("pxr")], "the wheel has a package of others"
    for part in ("vela/py.typed", "vela/_vela/__init__.pyi", "vela/sdk/bin/vela", "vela/sdk/include/vela/vela.h",
                 "vela/sdk/lib/cmake/Vela/VelaConfig.cmake"):
        assert part in names, f"{part} is missing"
    licences = [name for name in names if name.startswith("vela/sdk/share/doc/vela/third-party/")]
    carried = {re.match(r"vela\.libs/lib([a-zA-Z]+)", name)[1].lower() for name in names if name.startswith("vela.libs/lib")}
    # OpenEXR's and yaml's own parts have its licence, the others one by their names.
    missing = [name for name in carried - {"iex", "ilmthread", "yaml"} if not any(name in licence.lower() for licence in licences)]
    assert carried and len(licences) > 15 and not missing, missing
    with tempfile.TemporaryDirectory() as scratch:
        scratch = pathlib.Path(scratch)
        run(sys.executable, "-m", "venv", scratch / "env")
        python = scratch / "env/bin/python"
        run(python, "-m", "pip", "--disable-pip-version-check", "-q", "install", wheel)
        version = run(python, "-c", USE.format(scene=scene), cwd=scratch).strip()
        assert wheel.name.startswith(f"vela-{version}-")
        assert (scratch / "a.exr").stat().st_size > 0
        # The command.
        assert run(scratch / "env/bin/vela", "--version", cwd=scratch).split()[-1] == version
        run(scratch / "env/bin/vela", "render", scene, "-o", "b.exr", "--size", "16x16", cwd=scratch)
        # C++ from the wheel alone.
        (scratch / "main.cpp").write_text(CONSUMER)
        (scratch / "CMakeLists.txt").write_text(LISTS)
        vela_dir = run(python, "-c", "import vela; print(vela.cmake_dir())").strip()
        run("cmake", "-S", scratch, "-B", scratch / "build", f"-DVela_DIR={vela_dir}")
        run("cmake", "--build", scratch / "build")
        run(scratch / "build/consumer", scene)
        # In one process with others, in any order: each order a process.
        pins = {line.split("==")[0]: line.split()[0] for name in ("consumers", "python") for line in
                (root / f"scripts/requirements-{name}.txt").read_text().splitlines() if "==" in line}
        others = [pins["usd-core"], pins["embreex"], "OpenImageIO==3.2.2.0"] + (["torch==2.15.0"] if "--with-torch" in sys.argv else [])
        run(python, "-m", "pip", "--disable-pip-version-check", "-q", "install", *others, timeout=3600)
        modules = [name for name in BESIDE if name != "torch" or "--with-torch" in sys.argv]
        uses = "".join(BESIDE[name] for name in modules).replace("{scene!r}", repr(scene))
        orders = list(itertools.permutations(name for name in modules if name != "numpy"))
        # torch takes seconds to import: with it each package comes once at every place.
        if "torch" in modules:
            orders = [order[i:] + order[:i] for order in (orders[0], orders[-1]) for i in range(len(order))]
        for i, order in enumerate(orders):
            # The others bring NumPy along, unless it is there already.
            names = ["numpy", *order] if i % 2 else [*order, "numpy"]
            run(python, "-c", "".join(f"import {name}\n" for name in names) + uses, cwd=scratch)
        print(f"{len(orders)} orders of {', '.join(modules)} in one process")
        # It goes without a trace.
        run(python, "-m", "pip", "-q", "uninstall", "-y", "vela")
        left = list((scratch / "env").rglob("*vela*"))
        assert not left, left
    print(f"{wheel.name}: {wheel.stat().st_size / 2**20:.1f} MB, installed, used by Python, by the command and by C++, beside others")


if __name__ == "__main__":
    sys.exit(main())
