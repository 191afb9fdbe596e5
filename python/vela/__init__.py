"""Building blocks of image channels and of the 3D scene.

Names are those of the C++ library in snake case; `vela.ovo`, `vela.tarn`, `vela.scene`, `vela.picture`, `vela.selection`,
`vela.asset`, `vela.log` and `vela.look` are its namespaces; `vela.interop` takes what other packages have. The table is in docs/python.md.

>>> picture = vela.render("examples/demo/demo.usda", size=(64, 36), layers=["depth"], samples=1)
>>> picture["depth"].dtype
dtype('float32')
"""

import pathlib as _pathlib

from vela._vela import *
from vela import asset as asset
from vela import interop as interop
from vela import log as log
from vela import look as look
from vela import ovo as ovo
from vela import scene as scene
from vela import selection as selection
from vela import tarn as tarn
from vela import _render
from vela import picture as picture
from vela._render import render as render
from vela._results import Collisions as Collisions
from vela._results import Hits as Hits
from vela._results import Rays as Rays
from vela._results import SurfaceHits as SurfaceHits
from vela._results import WorldRays as WorldRays
from vela._vela import version as version
from vela._vela.ovo import Attribute as Attribute
from vela._vela.ovo import Prim as Prim
from vela._vela.ovo import Stage as Stage
from vela._vela.ovo import open as open
from vela._vela.picture import Picture as Picture
from vela._path import Path as Path
from vela._warnings import ConversionWarning as ConversionWarning
from vela._warnings import VelaWarning as VelaWarning

_render.adopt()


def cmake_dir() -> str:
    """The folder that `find_package(Vela)` of CMake finds the library by, in a wheel: `-DVela_DIR=$(python -c "import vela;
    print(vela.cmake_dir())")`. FileNotFoundError for a module that was built without.

    >>> try:
    ...     __import__("pathlib").Path(vela.cmake_dir()).joinpath("VelaConfig.cmake").exists()
    ... except FileNotFoundError:
    ...     True
    True
    """
    folder = _pathlib.Path(__file__).parent / "sdk/lib/cmake/Vela"
    if not folder.is_dir():
        raise FileNotFoundError(2, "the module was built without the files for CMake", str(folder))
    return str(folder)


__version__: str = version()
