#include "vela/camera/LensProjection.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <typeinfo>

#include "vela/camera/detail/RayKernels.h"

namespace vela {
namespace {

// The arguments of generateRayGeometry as a batch; without rays when an array is missing.
detail::RayBatch batchOf(unsigned count, const ProjectCoord* coords, const Camera::Sample* samples,
                         RayContext* rays) {
  const bool complete = coords != nullptr && samples != nullptr && rays != nullptr;
  return {complete ? count : 0u, coords, samples, 1, rays};
}

}  // namespace

// ---- The base

void LensProjectionFunction::_validateProjection() {}
LensProjectionFunction::~LensProjectionFunction() = default;
LensProjectionFunction* LensProjectionFunction::asLensProjectionFunction() const { return nullptr; }
LensProjection LensProjectionFunction::lensProjectionMode() const { return LensProjection::none; }

float LensProjectionFunction::distanceToLinearZ(const Camera::Sample&, const tarn::Vec2f&,
                                                float distance) const {
  return distance;
}

double LensProjectionFunction::lensMagnification(const Camera::Sample&) const { return 1.0; }

tarn::Mat4d LensProjectionFunction::projectionMatrix(const Camera::Sample& sample) const {
  return Camera::BuildNDCTransform(sample, true) *
         Camera::BuildLinearProjection(sample, false, true);
}

tarn::Mat4d LensProjectionFunction::ndcTransformMatrix(const Camera::Sample& sample) const {
  return Camera::BuildNDCTransform(sample, false);
}

bool LensProjectionFunction::canBeExtendedHorizontally() const { return false; }
bool LensProjectionFunction::canBeExtendedVertically() const { return false; }
void LensProjectionFunction::generateRayGeometry(unsigned, const ProjectCoord*,
                                                 const Camera::Sample*,
                                                 const ProjectionImageContext&, RayContext*) const {
}

// ---- Linear

const char* LinearProjection::identifier() const {
  return orthographic_ ? "Orthographic" : "Perspective";
}
LensProjection LinearProjection::lensProjectionMode() const {
  return orthographic_ ? LensProjection::orthographic : LensProjection::perspective;
}
bool LinearProjection::isLinear() const { return true; }

float LinearProjection::distanceToLinearZ(const Camera::Sample& sample, const tarn::Vec2f& ndc,
                                          float distance) const {
  if (orthographic_) return distance;
  return std::cos(std::atan(ndc.length() * sample.lensMagnification() * 0.5f)) * distance;
}

tarn::Mat4d LinearProjection::projectionMatrix(const Camera::Sample& sample) const {
  return Camera::BuildNDCTransform(sample, true) *
         Camera::BuildLinearProjection(sample, false, !orthographic_);
}

bool LinearProjection::canBeExtendedHorizontally() const { return true; }
bool LinearProjection::canBeExtendedVertically() const { return true; }

void LinearProjection::generateRayGeometry(unsigned count, const ProjectCoord* coords,
                                           const Camera::Sample* samples,
                                           const ProjectionImageContext&, RayContext* rays) const {
  const detail::RayBatch batch = batchOf(count, coords, samples, rays);
  if (batch.count == 0) return;
  if (orthographic_)
    detail::orthographicRays(batch);
  else
    detail::perspectiveRays(batch);
}

void LinearProjection::project(const Camera::Sample& sample, const ProjectionImageContext&,
                               unsigned count, ProjectCoord* coords) const {
  if (coords == nullptr || count == 0 || sample.distortionEnabled() || orthographic_) return;
  for (std::size_t i = 0; i < count; ++i) {
    ProjectCoord& c = coords[i];
    const tarn::Vec4d point(tarn::Vec4f(c.px, c.py, c.pz, c.pw));
    const tarn::Vec4d r = sample.worldToNdc().transform(point).wNormalized();
    c.x = static_cast<float>(r.x);
    c.y = static_cast<float>(r.y);
    c.depth = static_cast<float>(r.z);
  }
}

// ---- Warped

const char* WarpedLinearProjection::identifier() const { return "WarpedLinear"; }
bool WarpedLinearProjection::isLinear() const { return false; }
// KEEP(warped-silent): neither rays nor projections; a host that knows the warp fills them in, and
// sees by the untouched records that it has to.
void WarpedLinearProjection::generateRayGeometry(unsigned, const ProjectCoord*,
                                                 const Camera::Sample*,
                                                 const ProjectionImageContext&, RayContext*) const {
}
void WarpedLinearProjection::project(const Camera::Sample&, const ProjectionImageContext&, unsigned,
                                     ProjectCoord*) const {}

// ---- Spherical

const char* SphericalProjection::identifier() const { return "Spherical"; }
LensProjection SphericalProjection::lensProjectionMode() const { return LensProjection::spherical; }
bool SphericalProjection::isLinear() const { return false; }
void SphericalProjection::generateRayGeometry(unsigned count, const ProjectCoord* coords,
                                              const Camera::Sample* samples,
                                              const ProjectionImageContext& image,
                                              RayContext* rays) const {
  const detail::RayBatch batch = batchOf(count, coords, samples, rays);
  if (batch.count > 0) detail::sphericalRays(batch, image.aspect);
}
void SphericalProjection::project(const Camera::Sample&, const ProjectionImageContext&, unsigned,
                                  ProjectCoord*) const {}

// ---- Cylindrical

const char* CylindricalProjection::identifier() const { return "Cylindrical"; }
LensProjection CylindricalProjection::lensProjectionMode() const {
  return LensProjection::cylindrical;
}
bool CylindricalProjection::isLinear() const { return false; }
void CylindricalProjection::generateRayGeometry(unsigned count, const ProjectCoord* coords,
                                                const Camera::Sample* samples,
                                                const ProjectionImageContext&,
                                                RayContext* rays) const {
  const detail::RayBatch batch = batchOf(count, coords, samples, rays);
  if (batch.count > 0) detail::cylindricalRays(batch);
}
void CylindricalProjection::project(const Camera::Sample&, const ProjectionImageContext&, unsigned,
                                    ProjectCoord*) const {}

// ---- By enumeration

const std::vector<std::string>& LensProjectionClassNameList() {
  static const std::vector<std::string> names = {"Perspective", "Orthographic", "Spherical",
                                                 "Cylindrical"};
  return names;
}

const std::string& LensProjectionClassName(LensProjection projection) {
  static const std::string empty;
  const std::vector<std::string>& names = LensProjectionClassNameList();
  const std::size_t i = static_cast<std::size_t>(
      static_cast<int>(projection));  // a negative value becomes larger than any index
  return i < names.size() ? names[i] : empty;
}

LensProjectionFunction* CreateProjectionFunc(LensProjection projection) {
  switch (static_cast<int>(projection)) {
    case 0: return new LinearProjection(false);
    case 1: return new LinearProjection(true);
    case 2: return new SphericalProjection;
    case 3: return new CylindricalProjection;
    default: return nullptr;
  }
}

// ---- One camera, many rays

void generateCameraRays(const LensProjectionFunction& lens, unsigned count,
                        const ProjectCoord* coords, const Camera::Sample& sample,
                        const ProjectionImageContext& image, RayContext* rays) {
  if (count == 0 || coords == nullptr || rays == nullptr) return;

  // The lenses of this file, by their exact type: a class derived from one may have its own rays.
  const detail::RayBatch batch = {count, coords, &sample, 0, rays};
  const std::type_info& type = typeid(lens);
  if (type == typeid(LinearProjection)) {
    const bool orthographic = lens.lensProjectionMode() == LensProjection::orthographic;
    return orthographic ? detail::orthographicRays(batch) : detail::perspectiveRays(batch);
  }
  if (type == typeid(SphericalProjection)) return detail::sphericalRays(batch, image.aspect);
  if (type == typeid(CylindricalProjection)) return detail::cylindricalRays(batch);

  // Any other lens: a few copies that stay in cache, used again and again.
  std::array<Camera::Sample, 16> copies;
  copies.fill(sample);
  for (unsigned done = 0; done < count;) {
    const unsigned some = std::min(count - done, static_cast<unsigned>(copies.size()));
    lens.generateRayGeometry(some, coords + done, copies.data(), image, rays + done);
    done += some;
  }
}

}  // namespace vela
