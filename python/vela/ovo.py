"""Scenes: stages, prims, attributes, primvars, transforms, subdivision."""

from vela._path import Path as Path
from vela._results import Subdivided as Subdivided
from vela._vela.ovo import *
