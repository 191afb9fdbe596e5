/// \file
/// Includes the kernel `TARN_LANES_KERNEL` once for each instruction set; see tarn/Lanes.h.
///
/// In the kernel `TARN_LANES_SET` is the name of the set. `plain` is left out where every processor
/// of the platform runs sse2, unless `TARN_LANES_ALL_SETS` is defined, as tests do.
///
/// What a kernel includes must have been included before: standard headers that were first seen
/// here would be compiled for one set and used by all.

// No include guard: a .cpp may have several kernels.

#include "tarn/Lanes.h"

#if !TARN_LANES_HAVE_SSE2 || defined(TARN_LANES_ALL_SETS)
#define TARN_LANES_SET plain
#include TARN_LANES_KERNEL
#undef TARN_LANES_SET
#endif

#if TARN_LANES_HAVE_SSE2
#define TARN_LANES_SET sse2
#include TARN_LANES_KERNEL
#undef TARN_LANES_SET

TARN_LANES_BEGIN_AVX2
#define TARN_LANES_SET avx2
#include TARN_LANES_KERNEL
#undef TARN_LANES_SET
TARN_LANES_END_AVX2
#endif

#undef TARN_LANES_KERNEL
