#include "vela/intersect/detail/TriangleBlocks.h"

#include "tarn/Lanes.h"

#define TARN_LANES_KERNEL "vela/intersect/detail/TriangleBlocksLanes.h"
#include "tarn/ForEachInstructionSet.h"

namespace vela::detail {

TestTriangleBlocks bestTriangleBlockTest() { return TARN_LANES_WIDEST(testTriangleBlocks); }

}  // namespace vela::detail
