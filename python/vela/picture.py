"""Pictures: rendered, read as arrays, shown, written."""

from vela._render import render as render
from vela._vela.picture import *
