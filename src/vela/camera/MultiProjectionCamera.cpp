#include "vela/camera/MultiProjectionCamera.h"

#include <cmath>
#include <limits>

#include "tarn/Constants.h"

namespace vela {

MultiProjectionCamera::MultiProjectionCamera() {
  sample_.sensor.apertureSize = {24.576, 18.672};
  sample_.sensor.sceneToCameraFactor = 1.0;
  sample_.lensAp.fStop = 16.0;
  sample_.lensAp.clipNearDistance = std::numeric_limits<double>::epsilon();
  sample_.lensAp.clipFarDistance = std::numeric_limits<double>::infinity();
  sample_.optics.focalLength = 50.0;
  sample_.optics.focusDistance = 2.0;
}

MultiProjectionCamera::~MultiProjectionCamera() = default;

void MultiProjectionCamera::_validateCamera() {
  if (projection_ != nullptr) projection_->validateProjection();
  sample_.updateDerivedValues(projection_);
}

LensProjection MultiProjectionCamera::projectionMode() const {
  return projection_ != nullptr ? projection_->lensProjectionMode() : LensProjection::none;
}

const char* MultiProjectionCamera::projectionIdentifier() const {
  return projection_ != nullptr ? projection_->identifier() : "";
}

bool MultiProjectionCamera::isBaseProjectionLinear() const {
  return projection_ != nullptr && projection_->isLinear();
}

bool MultiProjectionCamera::isDistorted() const {
  const CameraOpticsParameters& o = sample_.optics;
  return o.opticalDistortionA != 0.0 || o.opticalDistortionB != 0.0 || o.opticalDistortionC != 0.0;
}

void MultiProjectionCamera::setHorizontalFov(double degrees) {
  sample_.sensor.apertureSize.x =
      2.0 * sample_.optics.focalLength * std::tan(degrees * 0.5 * tarn::kRadiansPerDegree<double>);
}

}  // namespace vela
