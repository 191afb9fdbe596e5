"""Asset references, resolved through OpenAssetIO."""

from vela._vela.asset import *
