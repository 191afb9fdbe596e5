#include "vela/camera/Camera.h"

#include <ostream>

#include "tarn/Constants.h"
#include "vela/camera/LensProjection.h"

namespace vela {
namespace {

constexpr double kRadiansPerDegree = tarn::kRadiansPerDegree<double>;

// The inverse of what the film window does.
tarn::Mat4d inverseWindow(tarn::Vec2d translate, tarn::Vec2d scale, double rotateDegrees) {
  tarn::Mat4d m;
  m.rotateZ(rotateDegrees * kRadiansPerDegree);
  m.scale(1.0 / scale.x, 1.0 / scale.y, 1.0);
  m.translate(-translate.x, -translate.y, 0.0);
  return m;
}

}  // namespace

Axis::~Axis() = default;
void Axis::drawAxis() {}

Camera::~Camera() = default;
void Camera::drawCamera() {}
void Camera::_validateCamera() {}

tarn::Mat4d Camera::BuildNDCTransform(const Sample& sample, bool inverse) {
  const CameraSensorParameters& s = sample.sensor;
  if (inverse) return inverseWindow(s.apertureTranslate, s.apertureScale, s.apertureRotate);
  tarn::Mat4d m;
  m.translate(s.apertureTranslate.x, s.apertureTranslate.y, 0.0);
  m.scale(s.apertureScale.x, s.apertureScale.y, 1.0);
  m.rotateZ(-s.apertureRotate * kRadiansPerDegree);
  return m;
}

tarn::Mat4d Camera::BuildLinearProjection(const Sample& sample, bool withNdc, bool perspective) {
  const CameraSensorParameters& s = sample.sensor;
  tarn::Mat4d projection;
  projection.setToProjection(sample.optics.focalLength / s.apertureSize.x,
                             sample.lensAp.clipNearDistance, sample.lensAp.clipFarDistance,
                             perspective);
  if (!withNdc) return projection;
  return inverseWindow(s.apertureTranslate, s.apertureScale, s.apertureRotate) * projection;
}

tarn::Mat4d BuildProjectionMatrix(double lensMagnification, double nearDistance, double farDistance,
                                  tarn::Vec2d translate, tarn::Vec2d scale, double rotateDegrees,
                                  bool perspective) {
  tarn::Mat4d m = inverseWindow(translate, scale, rotateDegrees);
  tarn::Mat4d projection;
  projection.setToProjection(lensMagnification, nearDistance, farDistance, perspective);
  m *= projection;
  return m;
}

void Camera::Sample::updateDerivedValues(const LensProjectionFunction* projection) {
  xform.w2l = xform.l2w.inverse();

  // Lens.
  lensMagnification_ = static_cast<float>(sensor.apertureSize.x / optics.focalLength);
  lensPupilRadius_ = static_cast<float>(optics.focalLength / lensAp.fStop * 0.5);
  distortionEnabled_ = optics.opticalDistortionA != 0.0 || optics.opticalDistortionB != 0.0 ||
                       optics.opticalDistortionC != 0.0;

  // Film window.
  ndc = BuildNDCTransform(*this, false);
  ndcIsIdentity = ndc == tarn::Mat4d::getIdentity();

  // Projection.
  if (projection != nullptr) {
    proj = projection->projectionMatrix(*this);
  } else {
    // KEEP(null-lens-magnification): film width over focal length goes where its reverse is
    // expected, so that without a lens the matrix is right at a magnification of 1 only. Hosts
    // without a lens print and compare this matrix; who wants the right one passes a lens.
    proj = BuildProjectionMatrix(static_cast<double>(lensMagnification_), lensAp.clipNearDistance,
                                 lensAp.clipFarDistance, sensor.apertureTranslate,
                                 sensor.apertureScale, sensor.apertureRotate, true);
  }
  worldToNdc_ = proj * xform.w2l;
}

void Camera::Sample::printValues(std::ostream& os, const std::string& indent) const {
  os << indent << "{ time[" << time << "]" << std::endl;
  os << indent << "  " << xform << std::endl;
  os << indent << "  " << sensor << std::endl;
  os << indent << "  " << mount << std::endl;
  os << indent << "  " << lensAp << std::endl;
  os << indent << "  " << optics << std::endl;
  os << indent << "  derived{ ndc" << ndc << ", proj" << proj << ", lensMagnification["
     << lensMagnification_ << "], lensPupilRadius[" << lensPupilRadius_ << "], distortionEnabled["
     << (distortionEnabled_ ? 1 : 0) << "] }" << std::endl;
  os << indent << "}" << std::endl;
}

std::ostream& operator<<(std::ostream& os, const XformParameters& xform) {
  return os << "xform{ parent" << xform.parent << ", local" << xform.local << ", l2w" << xform.l2w
            << ", w2l" << xform.w2l << " }";
}

std::ostream& operator<<(std::ostream& os, const CameraSensorParameters& sensor) {
  return os << "sensor{ apertureSize[" << sensor.apertureSize << "], apertureTranslate["
            << sensor.apertureTranslate << "], apertureRotate[" << sensor.apertureRotate
            << "], apertureScale[" << sensor.apertureScale << "], sceneToCameraFactor["
            << sensor.sceneToCameraFactor << "], sensorISO[" << sensor.sensorISO
            << "], sensorExposureBias[" << sensor.sensorExposureBias << "] }";
}

std::ostream& operator<<(std::ostream& os, const CameraMountParameters& mount) {
  // KEEP(mount-comma): the one vector without brackets of its own and with a comma. The text is
  // parsed by its readers, by these characters.
  return os << "mount{ offset[" << mount.offset.x << ", " << mount.offset.y << "] }";
}

std::ostream& operator<<(std::ostream& os, const CameraLensApertureParameters& lensAp) {
  return os << "lensAp{ fStop[" << lensAp.fStop << "], clipNearDistance[" << lensAp.clipNearDistance
            << "], clipFarDistance[" << lensAp.clipFarDistance << "] }";
}

std::ostream& operator<<(std::ostream& os, const CameraOpticsParameters& optics) {
  return os << "optics{ focalLength[" << optics.focalLength << "], focusDistance["
            << optics.focusDistance << "], opticalAttenuation[" << optics.opticalAttenuation
            << "], opticalWidthSqueeze[" << optics.opticalWidthSqueeze << "], opticalDistortionA["
            << optics.opticalDistortionA << "], opticalDistortionB[" << optics.opticalDistortionB
            << "], opticalDistortionC[" << optics.opticalDistortionC << "] }";
}

std::ostream& operator<<(std::ostream& os, const Camera::Sample& sample) {
  sample.printValues(os, "");
  return os;
}

}  // namespace vela
