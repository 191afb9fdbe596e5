#include "vela/camera/RayContext.h"

#include <cmath>
#include <cstddef>

#include "tarn/Constants.h"

namespace vela {
namespace {

tarn::Vec3f imageOfPoint(const tarn::Mat4d& m, const tarn::Vec3f& p) {
  return tarn::Vec3f(m.transformPoint(tarn::Vec3d(p)));
}

tarn::Vec3f imageOfVector(const tarn::Mat4d& m, const tarn::Vec3f& v) {
  return tarn::Vec3f(m.transformVector(tarn::Vec3d(v)));
}

// The magnitude of an angle; 0 for angles that are too small to count, and for NaN.
float turnAngle(float angle) {
  float a = std::fabs(angle);
  if (!(a > 1.1920929e-7f)) return 0.0f;
  if (static_cast<double>(a) > tarn::kPi<double>) a = tarn::kPi<float>;
  return a;
}

}  // namespace

// The layout is what hosts' compiled code relies on. One private field makes the record
// non-standard-layout, for which offsetof is supported by the compilers that build this, with a
// warning.
#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
#endif
static_assert(offsetof(RayContext, origin) == 0 && offsetof(RayContext, direction) == 12);
static_assert(offsetof(RayContext, minDistance) == 24 && offsetof(RayContext, maxDistance) == 28);
static_assert(offsetof(RayContext, xDirection) == 32 && offsetof(RayContext, yDirection) == 44);
static_assert(offsetof(RayContext, time) == 56 && offsetof(RayContext, type) == 64);
static_assert(offsetof(RayContext, assigned) == 66 && offsetof(RayContext, originType) == 68);
static_assert(offsetof(RayContext, slopeBits) == 84);
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

void RayContext::set(const tarn::Vec3f& origin_, const tarn::Vec3f& direction_,
                     unsigned short type_, double time_, short originType_, float minDistance_,
                     float maxDistance_) {
  origin = origin_;
  direction = direction_;
  minDistance = minDistance_;
  maxDistance = maxDistance_;
  xDirection = tarn::Vec3f();
  yDirection = tarn::Vec3f();
  time = time_;
  type = type_;
  assigned = 1;
  originType = originType_;
  updateSlopes();
}

void RayContext::setGeom(const tarn::Vec3f& origin_, const tarn::Vec3f& direction_,
                         float minDistance_, float maxDistance_) {
  origin = origin_;
  direction = direction_;
  minDistance = minDistance_;
  maxDistance = maxDistance_;
  updateSlopes();
}

void RayContext::setOriginAndDirection(const tarn::Vec3f& origin_, const tarn::Vec3f& direction_) {
  origin = origin_;
  direction = direction_;
  updateSlopes();
}

void RayContext::setDirection(const tarn::Vec3f& direction_) {
  direction = direction_;
  updateSlopes();
}

void RayContext::setDirAndDistance(const tarn::Vec3f& direction_, float minDistance_,
                                   float maxDistance_) {
  direction = direction_;
  minDistance = minDistance_;
  maxDistance = maxDistance_;
  updateSlopes();
}

void RayContext::invert() {
  direction = -direction;
  updateSlopes();
}

void RayContext::setXYDirsFromAngle(float ax, float ay) {
  const float a = turnAngle(ax);
  xDirection = direction;
  if (a > 0.0f) {
    xDirection = tarn::Vec3f(std::sin(a), 0.0f, std::cos(a));
    xDirection.orientAroundNormal(direction, true);
  }
  const float b = turnAngle(ay);
  yDirection = direction;
  if (b > 0.0f) {
    yDirection = tarn::Vec3f(0.0f, std::sin(b), std::cos(b));
    yDirection.orientAroundNormal(direction, true);
  }
}

void RayContext::transform(const tarn::Mat4d& m) {
  origin = imageOfPoint(m, origin);
  direction = imageOfVector(m, direction);
  updateSlopes();
}

void RayContext::transform(const tarn::Mat4d& m0, const tarn::Mat4d& m1, float t) {
  const tarn::Vec3f origin0 = imageOfPoint(m0, origin), direction0 = imageOfVector(m0, direction);
  const tarn::Vec3f origin1 = imageOfPoint(m1, origin), direction1 = imageOfVector(m1, direction);
  if (t < 1.1920929e-7f) {
    origin = origin0;
    direction = direction0;
  } else if (t > 0.9999999f) {
    origin = origin1;
    direction = direction1;
  } else {
    origin = origin0 * (1.0f - t) + origin1 * t;
    direction = direction0 * (1.0f - t) + direction1 * t;
  }
  updateSlopes();
}

}  // namespace vela
