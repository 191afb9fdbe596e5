#include "vela/camera/detail/RayKernels.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "tarn/Lanes.h"
#include "vela/camera/detail/RayFormulas.h"

#define TARN_LANES_KERNEL "vela/camera/detail/RayKernelsLanes.h"
#include "tarn/ForEachInstructionSet.h"

namespace vela::detail {

void perspectiveRays(const RayBatch& batch) { TARN_LANES_WIDEST(perspectiveRays)(batch); }
void orthographicRays(const RayBatch& batch) { TARN_LANES_WIDEST(orthographicRays)(batch); }
void cylindricalRays(const RayBatch& batch) { TARN_LANES_WIDEST(cylindricalRays)(batch); }
void sphericalRays(const RayBatch& batch, float aspect) {
  TARN_LANES_WIDEST(sphericalRays)(batch, aspect);
}

}  // namespace vela::detail
