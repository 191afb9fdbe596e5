"""Mathematics: boxes, rays, frames, transforms, hashes. Vectors and matrices are NumPy arrays."""

from vela._vela.tarn import *
