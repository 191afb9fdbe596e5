/// \file
/// Transforms and cameras at one time, and the matrices that follow from them.
///
/// Holds for the whole file: matrices and 2-vectors are double; angles are degrees, converted with
/// 0.017453292519943295. A camera looks along its local -z with +y up and +x to the right. NDC x
/// runs from -1 to 1 over the width of the film window, NDC y has x's unit. Nothing throws; numbers
/// are taken as they come (an f-stop of 0 gives an infinite pupil). Records belong to their caller
/// and are copied freely; const calls are safe from several threads.
///
/// \code
///   vela::Camera::Sample sample;
///   sample.sensor.apertureSize = {36.0, 24.0};
///   sample.optics.focalLength = 50.0;
///   sample.lensAp.clipFarDistance = 1000.0;
///   sample.xform.l2w.translate({0.0, 1.0, 10.0});
///   const vela::LinearProjection perspective;
///   sample.updateDerivedValues(&perspective);
///   assert(sample.lensMagnification() == 0.72f);
///
///   // At a distance of 10 the film window is 10 * 36 / 50 = 7.2 wide: half of it is NDC 1.
///   const tarn::Vec4d onRightEdge(3.6, 1.0, 0.0, 1.0);
///   const tarn::Vec4d ndc = sample.worldToNdc().transform(onRightEdge).wNormalized();
///   assert(std::fabs(ndc.x - 1.0) < 1e-12 && std::fabs(ndc.y) < 1e-12);
///
///   // What a camera shares with everything that is placed in a scene.
///   const vela::Axis::Sample& placed = sample;
///   assert(placed.xform.w2l.transformPoint({0.0, 1.0, 10.0}) == tarn::Vec3d());
/// \endcode
#pragma once

#include <iosfwd>
#include <string>

#include "tarn/Mat4.h"
#include "tarn/Vec.h"
#include "vela/Api.h"

namespace vela {

class LensProjectionFunction;

/// Where something stands.
struct XformParameters {
  tarn::Mat4d parent;  ///< parent to world
  tarn::Mat4d local;   ///< local to parent
  tarn::Mat4d l2w;     ///< local to world
  tarn::Mat4d w2l;     ///< world to local; Camera::Sample::updateDerivedValues computes it from l2w
};

/// The film back. Lengths are in the unit of the focal length.
struct CameraSensorParameters {
  tarn::Vec2d apertureSize{1.0, 1.0};       ///< of the film window
  tarn::Vec2d apertureTranslate{0.0, 0.0};  ///< of the window, in NDC: 2 is a whole width
  double apertureRotate = 0.0;              ///< of the window, degrees
  tarn::Vec2d apertureScale{1.0, 1.0};      ///< of the window
  double sceneToCameraFactor = 0.001;  ///< camera units in a scene unit; carried along, not read
  double sensorISO = 100.0;            ///< of the film; carried along, not read
  double sensorExposureBias = 0.0;     ///< powers of two; carried along, not read
};

/// How the camera is mounted. Nothing moves the picture by it.
struct CameraMountParameters {
  tarn::Vec2d offset{0.0, 0.0};  ///< carried along, not read
};

/// The lens's opening, and the distances between which a camera sees.
struct CameraLensApertureParameters {
  double fStop = 0.0;               ///< 0: the pupil radius is infinite
  double clipNearDistance = 0.001;  ///< scene units
  // KEEP(far-plane-one): a far plane at 1 cuts most scenes off. Default samples are printed and
  // compared as text, and the text holds this number.
  double clipFarDistance = 1.0;  ///< scene units
};

/// Focal length, focus and distortion of a lens.
struct CameraOpticsParameters {
  double focalLength = 1.0;          ///< in the unit of the film window
  double focusDistance = 1.0;        ///< from the camera; no lens here reads it
  double opticalAttenuation = 0.0;   ///< carried along, not read
  double opticalWidthSqueeze = 1.0;  ///< carried along, not read
  /// A coefficient of the distortion. No lens here bends by it; distortionEnabled() tells of it. @{
  double opticalDistortionA = 0.0;
  double opticalDistortionB = 0.0;
  double opticalDistortionC = 0.0;
  /// @}
};

/// Something that stands somewhere.
class VELA_API Axis {
 public:
  /// A transform at one time.
  struct Sample {
    double time = 0.0;      ///< of the sample, in the caller's unit
    XformParameters xform;  ///< where it stands then
  };

  virtual ~Axis();
  /// For hosts that draw; does nothing here.
  virtual void drawAxis();
};

/// A camera in a scene: what Sample has at one time.
class VELA_API Camera : public Axis {
 public:
  /// A camera at one time: what was set, and what follows from it once updateDerivedValues has run.
  struct VELA_API Sample : Axis::Sample {
    CameraSensorParameters sensor;        ///< the film back
    CameraMountParameters mount;          ///< how the camera is mounted
    CameraLensApertureParameters lensAp;  ///< opening and clipping
    CameraOpticsParameters optics;        ///< focal length, focus and distortion

   private:
    float lensMagnification_ = 1.0f;
    float lensPupilRadius_ = 0.0f;
    bool distortionEnabled_ = false;

   public:
    tarn::Mat4d ndc;  ///< what the film window does to NDC coordinates, see BuildNDCTransform
    bool ndcIsIdentity = true;  ///< of `ndc`; lenses then leave it out
    tarn::Mat4d proj;           ///< camera space to NDC

   private:
    tarn::Mat4d worldToNdc_;

   public:
    /// Width of the film window over focal length: twice the tangent of half the horizontal field
    /// of view.
    [[nodiscard]] float lensMagnification() const { return lensMagnification_; }
    /// Half of focal length over f-stop; infinite at f-stop 0.
    [[nodiscard]] float lensPupilRadius() const { return lensPupilRadius_; }
    /// True when one of the three distortion coefficients is not 0.
    [[nodiscard]] bool distortionEnabled() const { return distortionEnabled_; }
    /// `ndc` as a call.
    [[nodiscard]] const tarn::Mat4d& ndcTransform() const { return ndc; }
    /// `ndcIsIdentity` as a call.
    [[nodiscard]] bool ndcTransformIsIdentity() const { return ndcIsIdentity; }
    /// `proj` as a call.
    [[nodiscard]] const tarn::Mat4d& projectionMatrix() const { return proj; }
    /// World space to NDC: `proj` times `xform.w2l`.
    [[nodiscard]] const tarn::Mat4d& worldToNdc() const { return worldToNdc_; }

    /// Computes `xform.w2l` and the derived values from everything else.
    ///
    /// \param projection  the lens whose projection matrix `proj` becomes. Null takes the
    ///                    BuildProjectionMatrix of the magnification as it is, which is the lens's
    ///                    own only where film width and focal length are equal
    ///
    /// A singular l2w gives a zero w2l.
    void updateDerivedValues(const LensProjectionFunction* projection);

    /// Eight lines of labelled values, each after `indent` and flushed.
    void printValues(std::ostream& os, const std::string& indent) const;
  };

  ~Camera() override;
  /// For hosts that draw; does nothing here.
  virtual void drawCamera();
  /// Runs the class's own validation; Camera has none.
  void validateCamera() { _validateCamera(); }

  /// What the film window does to NDC coordinates: rotate by -apertureRotate, scale, translate (a
  /// point sees them in this order); or its inverse.
  [[nodiscard]] static tarn::Mat4d BuildNDCTransform(const Sample& sample, bool inverse);

  /// Camera space to NDC by focal length over film width and the two clipping distances.
  ///
  /// \param withNdc  also takes the film window into account (the inverse NDC transform comes last)
  [[nodiscard]] static tarn::Mat4d BuildLinearProjection(const Sample& sample, bool withNdc,
                                                         bool perspective);

 protected:
  /// The class's own validation, which validateCamera() runs; empty here.
  virtual void _validateCamera();
};

/// Camera space to NDC from numbers instead of a sample.
///
/// \param lensMagnification  goes to Mat4::setToProjection as it is, which takes focal length over
///         film width: the reverse of Camera::Sample::lensMagnification
/// \param translate, scale, rotateDegrees  of the film window; a zero scale gives infinities
[[nodiscard]] VELA_API tarn::Mat4d BuildProjectionMatrix(double lensMagnification,
                                                         double nearDistance, double farDistance,
                                                         tarn::Vec2d translate, tarn::Vec2d scale,
                                                         double rotateDegrees, bool perspective);

/// Labelled values in brackets, on one line; a sample takes eight lines. Numbers have the stream's
/// own format. @{
VELA_API std::ostream& operator<<(std::ostream& os, const XformParameters& xform);
VELA_API std::ostream& operator<<(std::ostream& os, const CameraSensorParameters& sensor);
VELA_API std::ostream& operator<<(std::ostream& os, const CameraMountParameters& mount);
VELA_API std::ostream& operator<<(std::ostream& os, const CameraLensApertureParameters& lensAp);
VELA_API std::ostream& operator<<(std::ostream& os, const CameraOpticsParameters& optics);
VELA_API std::ostream& operator<<(std::ostream& os, const Camera::Sample& sample);
/// @}

}  // namespace vela
