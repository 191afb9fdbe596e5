#include "vela/trace/detail/TracerKernel.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

#include "tarn/Lanes.h"
#include "vela/trace/detail/LaneMoves.h"
#include "vela/trace/detail/RayBounds.h"
#include "vela/trace/detail/TracerRounds.h"

#define TARN_LANES_KERNEL "vela/trace/detail/TracerSpan.h"
#include "tarn/ForEachInstructionSet.h"

namespace vela::tracer {

#if TARN_LANES_HAVE_SSE2
namespace baseline = sse2;
#else
namespace baseline = plain;
#endif

KernelFunctions plainKernel() { return baseline::kernelFunctions(); }

KernelFunctions bestKernel() { return TARN_LANES_WIDEST(kernelFunctions)(); }

}  // namespace vela::tracer
