"""Preview materials and how they answer light."""

from vela._vela.look import *
