#include "vela/camera/SceneCamera.h"

#include <cmath>

#include "ovo/Xform.h"

namespace vela {
namespace {

bool isLength(double v) { return v > 0.0 && std::isfinite(v); }

LensProjection lensOf(const ovo::CameraParameters& parameters) {
  return parameters.perspective ? LensProjection::perspective : LensProjection::orthographic;
}

bool fail(std::string* error, const char* reason) {
  if (error) *error = reason;
  return false;
}

// Position, viewing direction and up direction of a placement, as a rigid one. False when the two
// directions are parallel, or something is not finite.
bool makeRigid(const tarn::Mat4d& placement, tarn::Mat4d& rigid) {
  // Scaled to a largest element of 1 first: cameras below groups scaled by 1e-200 have axes whose
  // squares vanish.
  const auto axis = [&](std::size_t column) {
    const tarn::Vec3d v(placement[column], placement[column + 1], placement[column + 2]);
    const double largest = std::fmax(std::fabs(v.x), std::fmax(std::fabs(v.y), std::fabs(v.z)));
    return isLength(largest) ? (v / largest).normalized() : tarn::Vec3d();
  };
  const tarn::Vec3d back = axis(8), up = axis(4);
  const tarn::Vec3d right = cross(up, back);
  // The sine of the angle between the axes; below this nothing but rounding would say which way is
  // right. A mirrored placement has its x axis elsewhere, which does not matter: right is made from
  // the other two.
  if (!(right.length() > 1e-12)) return false;
  const tarn::Vec3d x = right.normalized(), y = cross(back, x);
  const double m[16] = {x.x,           x.y,           x.z,           0.0,    y.x,    y.y,
                        y.z,           0.0,           back.x,        back.y, back.z, 0.0,
                        placement[12], placement[13], placement[14], 1.0};
  for (double v : m)
    if (!std::isfinite(v)) return false;
  rigid = tarn::Mat4d(m);
  return true;
}

}  // namespace

LensProjection cameraPrimLens(const ovo::CameraPrim& prim, double time) {
  return lensOf(prim.getParameters(time));
}

bool sampleCamera(const ovo::CameraParameters& parameters, const tarn::Mat4d& parentToWorld,
                  const tarn::Mat4d& local, double time, Camera::Sample& sample,
                  LensProjection lens) {
  return sampleCamera(parameters, parentToWorld, local, time, sample, lens, nullptr);
}

bool sampleCamera(const ovo::CameraParameters& parameters, const tarn::Mat4d& parentToWorld,
                  const tarn::Mat4d& local, double time, Camera::Sample& sample,
                  LensProjection lens, std::string* error) {
  if (error) error->clear();
  if (lens == LensProjection::none) lens = lensOf(parameters);
  const bool orthographic = lens == LensProjection::orthographic;
  const double width = parameters.horizontalAperture;
  if (!isLength(width)) return fail(error, "the film's width is not positive and finite");
  if (!orthographic && !isLength(parameters.focalLength))
    return fail(error, "the focal length is not positive and finite");

  Camera::Sample s;
  s.time = time;

  // Placement.
  s.xform.parent = parentToWorld;
  s.xform.local = local;
  if (!makeRigid(parentToWorld * local, s.xform.l2w))
    return fail(error, "the placement has no inverse");

  // Film back and lens.
  s.sensor.apertureSize = {width, parameters.verticalAperture};
  s.sensor.apertureTranslate = {2.0 * parameters.horizontalApertureOffset / width,
                                2.0 * parameters.verticalApertureOffset / width};
  s.sensor.sceneToCameraFactor = 1.0;
  s.sensor.sensorExposureBias = parameters.exposure;
  s.optics.focalLength = orthographic ? 1.0 : parameters.focalLength;
  s.optics.focusDistance = parameters.focusDistance;
  s.lensAp.fStop = parameters.fStop;
  s.lensAp.clipNearDistance = parameters.clippingNear;
  s.lensAp.clipFarDistance = parameters.clippingFar;

  // Derived values. The round lenses have the perspective projection matrix.
  const LinearProjection linear(orthographic);
  s.updateDerivedValues(&linear);
  sample = s;
  return true;
}

bool sampleCameraPrim(const ovo::CameraPrim& prim, double time, Camera::Sample& sample,
                      LensProjection lens) {
  return sampleCameraPrim(prim, time, sample, lens, nullptr);
}

bool sampleCameraPrim(const ovo::CameraPrim& prim, double time, Camera::Sample& sample,
                      LensProjection lens, std::string* error) {
  if (!prim.isValid()) return fail(error, "the prim is not a camera");
  ovo::XformCache placements(time);
  const tarn::Mat4d parentToWorld =
      prim.resetsXformStack() ? tarn::Mat4d() : placements.getLocalToWorld(prim.parent());
  return sampleCamera(prim.getParameters(time), parentToWorld, prim.getLocalXform(time), time,
                      sample, lens, error);
}

}  // namespace vela
