/// \file
/// The loops behind the lenses.
///
/// Each writes the geometry of `count` rays. Sample i belongs to coordinate i where `stride` is 1;
/// where it is 0 the one sample serves all, with the same bits. Arrays are not null.
#pragma once

#include <cstddef>

#include "vela/camera/LensProjection.h"

namespace vela::detail {

struct RayBatch {
  std::size_t count;
  const ProjectCoord* coords;
  const Camera::Sample* samples;
  std::size_t stride;
  RayContext* rays;
};

void perspectiveRays(const RayBatch& batch);
void orthographicRays(const RayBatch& batch);
void cylindricalRays(const RayBatch& batch);
/// \param aspect  of the image, height over width
void sphericalRays(const RayBatch& batch, float aspect);

}  // namespace vela::detail
