"""What a picture of a scene shows: meshes, views, rays and what they meet, surfaces, picking."""

from vela._results import SurfaceHits as SurfaceHits
from vela._results import WorldRays as WorldRays
from vela._vela.scene import *
