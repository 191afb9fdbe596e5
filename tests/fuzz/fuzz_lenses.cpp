// Any bytes as a camera and as image coordinates: a batch of rays has the bits of single ones, and
// what a lens can project lands where its ray came from.
#include <cmath>
#include <cstring>
#include <memory>
#include <sstream>
#include <vector>

#include "fuzz/Require.h"
#include "vela/camera/LensProjection.h"
#include "vela/camera/MultiProjectionCamera.h"
#include "vela/camera/SceneCamera.h"

namespace {

using vela::Camera;
using vela::LensProjection;
using vela::ProjectCoord;
using vela::RayContext;
using vela_test::Bytes;
using vela_test::require;

// Any double, or a number as cameras have them.
double takeNumber(Bytes& bytes) {
  const auto kind = bytes.take<std::uint8_t>();
  return kind < 32 ? bytes.take<double>() : static_cast<double>(kind) / 32.0;
}

// The bits, but for those of a NaN, which depend on the order in which an instruction is given its
// operands.
bool isSame(float a, float b) {
  return (std::isnan(a) && std::isnan(b)) || std::memcmp(&a, &b, sizeof a) == 0;
}
bool isSame(const tarn::Vec3f& a, const tarn::Vec3f& b) {
  return isSame(a.x, b.x) && isSame(a.y, b.y) && isSame(a.z, b.z);
}
bool isSame(const RayContext& a, const RayContext& b) {
  return isSame(a.origin, b.origin) && isSame(a.direction, b.direction) &&
         isSame(a.xDirection, b.xDirection) && isSame(a.yDirection, b.yDirection) &&
         isSame(a.minDistance, b.minDistance) && isSame(a.maxDistance, b.maxDistance) &&
         a.slopeBits == b.slopeBits;
}

Camera::Sample takeSample(Bytes& bytes) {
  Camera::Sample sample;
  sample.sensor.apertureSize = {takeNumber(bytes), takeNumber(bytes)};
  sample.sensor.apertureTranslate = {takeNumber(bytes), takeNumber(bytes)};
  sample.sensor.apertureRotate = takeNumber(bytes);
  sample.sensor.apertureScale = {takeNumber(bytes), takeNumber(bytes)};
  sample.lensAp.fStop = takeNumber(bytes);
  sample.lensAp.clipNearDistance = takeNumber(bytes);
  sample.lensAp.clipFarDistance = takeNumber(bytes);
  sample.optics.focalLength = takeNumber(bytes);
  sample.optics.opticalDistortionA = takeNumber(bytes);
  for (const int entry : {0, 5, 10, 12})
    sample.xform.l2w[static_cast<std::size_t>(entry)] = takeNumber(bytes);
  return sample;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Bytes bytes(data, size);
  const Camera::Sample given = takeSample(bytes);
  const vela::ProjectionImageContext image{static_cast<float>(takeNumber(bytes)), 0, 0};
  std::vector<ProjectCoord> coords;
  while (bytes.left() > 8 && coords.size() < 40) {
    ProjectCoord coord;
    coord.x = static_cast<float>(takeNumber(bytes));
    coord.y = static_cast<float>(takeNumber(bytes));
    coord.dx = bytes.coordinate();
    coord.dy = bytes.coordinate();
    coords.push_back(coord);
  }
  const auto count = static_cast<unsigned>(coords.size());

  for (const LensProjection mode : {LensProjection::perspective, LensProjection::orthographic,
                                    LensProjection::spherical, LensProjection::cylindrical}) {
    const std::unique_ptr<vela::LensProjectionFunction> lens(vela::CreateProjectionFunc(mode));
    Camera::Sample sample = given;
    sample.updateDerivedValues(lens.get());
    std::vector<RayContext> batch(count), copies(count);
    const std::vector<Camera::Sample> samples(count, sample);
    vela::generateCameraRays(*lens, count, coords.data(), sample, image, batch.data());
    lens->generateRayGeometry(count, coords.data(), samples.data(), image, copies.data());
    for (unsigned i = 0; i < count; ++i) {
      RayContext single;
      lens->generateRayGeometry(1, &coords[i], &sample, image, &single);
      require(isSame(batch[i], copies[i]), "one camera or many copies of it, the same bits");
      require(isSame(batch[i], single), "a batch or single rays, the same bits");
      static_cast<void>(lens->distanceToLinearZ(sample, {coords[i].x, coords[i].y}, 1.0f));
      ProjectCoord back = coords[i];
      back.px = single.origin.x + single.direction.x;
      back.py = single.origin.y + single.direction.y;
      back.pz = single.origin.z + single.direction.z;
      lens->project(sample, image, 1, &back);
      require(back.dx == coords[i].dx || std::isnan(back.dx), "offsets stay");
    }
    std::ostringstream out;
    sample.printValues(out, " ");
    require(!out.str().empty(), "a camera prints");

    ovo::CameraParameters parameters;
    parameters.focalLength = given.optics.focalLength;
    parameters.horizontalAperture = given.sensor.apertureSize.x;
    parameters.verticalAperture = given.sensor.apertureSize.y;
    Camera::Sample placed;
    std::string why;
    const bool isUsable =
        vela::sampleCamera(parameters, given.xform.l2w, tarn::Mat4d(), 1.0, placed, mode, &why);
    require(isUsable == why.empty(), "there is a reason exactly when a camera is of no use");
    if (isUsable) require(placed.optics.focalLength > 0, "a camera of use has a focal length");
  }

  vela::MultiProjectionCamera camera;
  camera.setHorizontalAperture(given.sensor.apertureSize.x);
  camera.setHorizontalFov(given.sensor.apertureRotate);
  camera.validateCamera();
  static_cast<void>(camera.isDistorted());
  return 0;
}
