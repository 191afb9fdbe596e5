"""The library's log; its lines arrive at the logger `vela` of Python's logging."""

from vela._vela.log import *
