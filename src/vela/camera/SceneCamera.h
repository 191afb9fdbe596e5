/// \file
/// Cameras of a scene as camera samples.
///
/// \code
///   const std::shared_ptr<ovo::Stage> stage = ovo::Stage::createInMemory();
///   const ovo::CameraPrim prim = ovo::CameraPrim::define(stage, ovo::Path("/Camera"));
///   ovo::CameraParameters parameters;
///   parameters.focalLength = 3.5;
///   parameters.horizontalAperture = 3.6;
///   prim.setParameters(parameters);
///
///   vela::Camera::Sample sample;
///   assert(vela::sampleCameraPrim(prim, tarn::defaultTimeValue(), sample));
///   assert(sample.optics.focalLength == 3.5 && sample.sensor.apertureSize.x == 3.6);
///
///   // A camera that no picture can be made with says why.
///   parameters.horizontalAperture = 0.0;
///   prim.setParameters(parameters);
///   std::string error;
///   const vela::LensProjection own = vela::LensProjection::none;
///   assert(!vela::sampleCameraPrim(prim, tarn::defaultTimeValue(), sample, own, &error));
///   assert(error == "the film's width is not positive and finite");
/// \endcode
#pragma once

#include <string>

#include "ovo/CameraPrim.h"
#include "tarn/Mat4.h"
#include "tarn/Time.h"
#include "vela/Api.h"
#include "vela/camera/Camera.h"
#include "vela/camera/LensProjection.h"

namespace vela {

/// What a camera prim asks for: LensProjection::perspective or LensProjection::orthographic.
[[nodiscard]] VELA_API LensProjection cameraPrimLens(const ovo::CameraPrim& prim,
                                                     double time = tarn::defaultTimeValue());

/// Turns a camera prim into a camera sample at a time, derived values included, ready for the lens
/// that CreateProjectionFunc makes.
///
/// \param lens    the lens that the picture is made with; LensProjection::none takes the prim's
///                own. The round lenses take the film back of a perspective camera
/// \param sample  replaced as a whole
/// \return false, with `sample` untouched, when the prim is no valid camera, when its film has no
///         width or (but for an orthographic lens) no focal length, positive and finite both, or
///         when its placement has no inverse
///
/// All lengths of the sample are scene units.
///
/// - Perspective: film window and focal length of the prim. Orthographic: a focal length of 1 and
///   the prim's film window, so that rays start on a window of that size. Only the window's width
///   counts; the height of the picture follows from the image's aspect.
/// - Offsets of the film become `apertureTranslate` = 2 offset / width on both axes, NDC y having
///   x's unit. An offset to the right shows what is farther right.
/// - Clipping and focus distances, f-stop and exposure (as `sensorExposureBias`, powers of two) are
///   taken over. An f-stop of 0 means that everything is in focus: the derived pupil radius is
///   infinite then and not to be used.
/// - `xform.parent` and `xform.local` are the prim's matrices as they are. `xform.l2w` is their
///   product without scale, shear and mirroring: its position, its viewing direction, and its up
///   direction turned square to that. So rays moved by RayContext::transform(l2w) keep unit length,
///   distances and clipping are scene units, and a camera below a scaled or mirrored group shows
///   what it would show standing there by itself. Take the product where the full matrix is wanted.
///
/// Reads only; see ovo::Prim for threads. A default time gives the authored default, else the first
/// time sample.
[[nodiscard]] VELA_API bool sampleCameraPrim(const ovo::CameraPrim& prim, double time,
                                             Camera::Sample& sample,
                                             LensProjection lens = LensProjection::none);
/// The same, saying why not.
/// \param error  when not null: the first of the reasons above that holds, in one line without a
///               full stop; emptied on success
[[nodiscard]] VELA_API bool sampleCameraPrim(const ovo::CameraPrim& prim, double time,
                                             Camera::Sample& sample, LensProjection lens,
                                             std::string* error);

/// The same from parameters and placement, for cameras that are in no file.
[[nodiscard]] VELA_API bool sampleCamera(const ovo::CameraParameters& parameters,
                                         const tarn::Mat4d& parentToWorld, const tarn::Mat4d& local,
                                         double time, Camera::Sample& sample,
                                         LensProjection lens = LensProjection::none);
/// The same, saying why not; see sampleCameraPrim.
[[nodiscard]] VELA_API bool sampleCamera(const ovo::CameraParameters& parameters,
                                         const tarn::Mat4d& parentToWorld, const tarn::Mat4d& local,
                                         double time, Camera::Sample& sample, LensProjection lens,
                                         std::string* error);

}  // namespace vela
