#include "vela/scene/PixelFinder.h"

#include <cmath>

#include "tarn/Constants.h"

namespace vela::scene {

using tarn::Vec3d;

namespace {

// The longitude of a point about a round lens, as window x from -1 to 1: the left edge looks along
// +z, and so does the right one.
double windowX(const Vec3d& p) {
  constexpr double kPi = tarn::kPi<double>;
  const double phi = std::atan2(-p.x, p.z);
  return (phi < 0.0 ? phi + 2.0 * kPi : phi) / kPi - 1.0;
}

}  // namespace

PixelFinder::PixelFinder(const View& view)
    : view_(view),
      cameraFromWorld_(view.worldFromCamera.inverse()),
      ndcFromWindow_(Camera::BuildNDCTransform(view.sample, true)) {}

bool PixelFinder::find(const Vec3d& world, tarn::Vec2d& pixel) const {
  const Vec3d p = cameraFromWorld_.transformPoint(world);
  Vec3d ndc;
  switch (view_.lens) {
    case LensProjection::spherical: {
      const double length = p.length();
      if (!(length > 0.0)) return false;
      const double aspect = static_cast<double>(view_.height) / view_.width;
      const double theta = std::acos(-p.y / length);
      ndc = ndcFromWindow_.transformPoint(
          {windowX(p), (2.0 * theta / tarn::kPi<double> - 1.0) * aspect, 0.0});
      break;
    }
    case LensProjection::cylindrical: {
      const double radius = std::sqrt(p.x * p.x + p.z * p.z);
      if (!(radius > 0.0)) return false;
      const double half = 0.5 * static_cast<double>(view_.sample.lensMagnification());
      ndc = ndcFromWindow_.transformPoint({windowX(p), p.y / radius / half, 0.0});
      break;
    }
    default: {
      const tarn::Vec4d clip = view_.sample.projectionMatrix().transform({p.x, p.y, p.z, 1.0});
      if (!(clip.w > 0.0)) return false;
      const tarn::Vec4d unit = clip.wNormalized();
      ndc = {unit.x, unit.y, 0.0};
      break;
    }
  }
  pixel = {(ndc.x + 1.0) * 0.5 * view_.width, 0.5 * (view_.height - ndc.y * view_.width)};
  return isFinite(pixel);
}

}  // namespace vela::scene
