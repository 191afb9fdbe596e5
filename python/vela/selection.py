"""Selections of objects, faces and points, with a text form."""

from vela._vela.selection import *
