#include "vela/camera/LensProjection.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <typeinfo>

namespace vela {
namespace {

constexpr double kPi = 3.141592653589793;

/// NaN stays NaN.
float clampToUnit(float v) { return v < -1.0f ? -1.0f : v > 1.0f ? 1.0f : v; }

/// What the rays of one coordinate need of its sample.
struct Optics {
  double m[6];  ///< the 2-D part of `ndc`: x' = x m0 + y m2 + m4, y' = x m1 + y m3 + m5
  float h;      ///< half the magnification
  float nearDistance, farDistance;
  bool ndcIsIdentity;

  explicit Optics(const Camera::Sample& s)
      : m{s.ndc[0], s.ndc[1], s.ndc[4], s.ndc[5], s.ndc[12], s.ndc[13]},
        h(s.lensMagnification() * 0.5f),
        nearDistance(static_cast<float>(s.lensAp.clipNearDistance)),
        farDistance(static_cast<float>(s.lensAp.clipFarDistance)),
        ndcIsIdentity(s.ndcIsIdentity) {}

  [[nodiscard]] tarn::Vec2<float> window(float x, float y) const {
    if (ndcIsIdentity) return {x, y};
    const double wx = static_cast<double>(x), wy = static_cast<double>(y);
    return {static_cast<float>(wx * m[0] + wy * m[2] + m[4]), static_cast<float>(wx * m[1] + wy * m[3] + m[5])};
  }
};

void writeRay(RayContext& ray, const tarn::Vec3<float>& origin, const tarn::Vec3<float>& direction,
              const tarn::Vec3<float>& xDirection, const tarn::Vec3<float>& yDirection, const Optics& o) {
  ray.origin = origin;
  ray.direction = direction;
  ray.updateSlopes();
  ray.xDirection = xDirection;
  ray.yDirection = yDirection;
  ray.minDistance = o.nearDistance;
  ray.maxDistance = o.farDistance;
}

struct PerspectiveKernel {
  void operator()(const ProjectCoord& c, const Optics& o, RayContext& ray) const {
    const tarn::Vec2<float> p = o.window(c.x, c.y), q = o.window(c.x + c.dx, c.y + c.dy);
    const float px = o.h * p.x, py = o.h * p.y, qx = o.h * q.x, qy = o.h * q.y;
    writeRay(ray, {}, tarn::Vec3<float>(px, py, -1.0f).normalized(), tarn::Vec3<float>(qx, py, -1.0f).normalized(),
             tarn::Vec3<float>(px, qy, -1.0f).normalized(), o);
  }
};

struct OrthographicKernel {
  void operator()(const ProjectCoord& c, const Optics& o, RayContext& ray) const {
    const tarn::Vec2<float> p = o.window(c.x, c.y);
    const tarn::Vec3<float> ahead(0.0f, 0.0f, -1.0f);
    writeRay(ray, {o.h * p.x, o.h * p.y, 0.0f}, ahead, ahead, ahead, o);
  }
};

struct CylindricalKernel {
  void operator()(const ProjectCoord& c, const Optics& o, RayContext& ray) const {
    const tarn::Vec2<float> p = o.window(c.x, c.y), q = o.window(c.x + c.dx, c.y + c.dy);
    const double phi = (static_cast<double>(clampToUnit(p.x)) + 1.0) * kPi;
    const double phiX = (static_cast<double>(clampToUnit(q.x)) + 1.0) * kPi;
    const float x = static_cast<float>(-std::sin(phi)), z = static_cast<float>(std::cos(phi));
    const float xX = static_cast<float>(-std::sin(phiX)), zX = static_cast<float>(std::cos(phiX));
    const float y = o.h * clampToUnit(p.y), yY = o.h * clampToUnit(q.y);
    writeRay(ray, {}, tarn::Vec3<float>(x, y, z).normalized(), tarn::Vec3<float>(xX, y, zX).normalized(),
             tarn::Vec3<float>(x, yY, z).normalized(), o);
  }
};

struct SphericalKernel {
  double k;  ///< one over the image's aspect

  void operator()(const ProjectCoord& c, const Optics& o, RayContext& ray) const {
    const tarn::Vec2<float> p = o.window(c.x, c.y), q = o.window(c.x + c.dx, c.y + c.dy);
    const double phi = (static_cast<double>(clampToUnit(p.x)) + 1.0) * kPi;
    const double phiX = (static_cast<double>(clampToUnit(q.x)) + 1.0) * kPi;
    const double theta = ((static_cast<double>(clampToUnit(p.y)) * k + 1.0) * 0.5) * kPi;
    const double thetaY = ((k * static_cast<double>(clampToUnit(q.y)) + 1.0) * 0.5) * kPi;
    const double sinPhi = std::sin(phi), cosPhi = std::cos(phi), sinTheta = std::sin(theta), cosTheta = std::cos(theta);
    const double sinPhiX = std::sin(phiX), cosPhiX = std::cos(phiX);
    const double sinThetaY = std::sin(thetaY), cosThetaY = std::cos(thetaY);

    const tarn::Vec3<float> direction(static_cast<float>(-sinPhi * sinTheta), static_cast<float>(-cosTheta),
                                      static_cast<float>(cosPhi * sinTheta));
    // KEEP(x-neighbour-latitude): the x-neighbour has the sine of the y-neighbour's latitude beside the cosine of its own; the
    // differentials of hosts' filters are tuned to it.
    const tarn::Vec3<float> xDirection(static_cast<float>(-sinPhiX * sinThetaY), static_cast<float>(-cosTheta),
                                       static_cast<float>(cosPhiX * sinThetaY));
    // KEEP(y-neighbour-latitude): and the y-neighbour has only the cosine of its own latitude.
    const tarn::Vec3<float> yDirection(static_cast<float>(-sinPhi * sinTheta), static_cast<float>(-cosThetaY),
                                       static_cast<float>(cosPhi * sinTheta));
    writeRay(ray, {}, direction.normalized(), xDirection.normalized(), yDirection.normalized(), o);
  }
};

template <class Kernel>
void generate(const Kernel& kernel, unsigned count, const ProjectCoord* coords, const Camera::Sample* samples,
              RayContext* rays) {
  if (count == 0 || coords == nullptr || samples == nullptr || rays == nullptr) return;
  for (std::size_t i = 0; i < count; ++i) kernel(coords[i], Optics(samples[i]), rays[i]);
}

template <class Kernel>
void generateFromOne(const Kernel& kernel, unsigned count, const ProjectCoord* coords, const Camera::Sample& sample,
                     RayContext* rays) {
  const Optics optics(sample);
  for (std::size_t i = 0; i < count; ++i) kernel(coords[i], optics, rays[i]);
}

SphericalKernel sphericalKernel(const ProjectionImageContext& image) { return {1.0 / static_cast<double>(image.aspect)}; }

}  // namespace

// ---- the base

void LensProjectionFunction::_validateProjection() {}
LensProjectionFunction::~LensProjectionFunction() = default;
LensProjectionFunction* LensProjectionFunction::asLensProjectionFunction() const { return nullptr; }
LensProjection LensProjectionFunction::lensProjectionMode() const { return LensProjection::none; }

float LensProjectionFunction::distanceToLinearZ(const Camera::Sample&, const tarn::Vec2<float>&, float distance) const {
  return distance;
}

double LensProjectionFunction::lensMagnification(const Camera::Sample&) const { return 1.0; }

tarn::Mat4<double> LensProjectionFunction::projectionMatrix(const Camera::Sample& sample) const {
  return Camera::BuildNDCTransform(sample, true) * Camera::BuildLinearProjection(sample, false, true);
}

tarn::Mat4<double> LensProjectionFunction::ndcTransformMatrix(const Camera::Sample& sample) const {
  return Camera::BuildNDCTransform(sample, false);
}

bool LensProjectionFunction::canBeExtendedHorizontally() const { return false; }
bool LensProjectionFunction::canBeExtendedVertically() const { return false; }
void LensProjectionFunction::generateRayGeometry(unsigned, const ProjectCoord*, const Camera::Sample*,
                                                 const ProjectionImageContext&, RayContext*) const {}

// ---- linear

const char* LinearProjection::identifier() const { return orthographic_ ? "Orthographic" : "Perspective"; }
LensProjection LinearProjection::lensProjectionMode() const {
  return orthographic_ ? LensProjection::orthographic : LensProjection::perspective;
}
bool LinearProjection::isLinear() const { return true; }

float LinearProjection::distanceToLinearZ(const Camera::Sample& sample, const tarn::Vec2<float>& ndc, float distance) const {
  if (orthographic_) return distance;
  return std::cos(std::atan(ndc.length() * sample.lensMagnification() * 0.5f)) * distance;
}

tarn::Mat4<double> LinearProjection::projectionMatrix(const Camera::Sample& sample) const {
  return Camera::BuildNDCTransform(sample, true) * Camera::BuildLinearProjection(sample, false, !orthographic_);
}

bool LinearProjection::canBeExtendedHorizontally() const { return true; }
bool LinearProjection::canBeExtendedVertically() const { return true; }

void LinearProjection::generateRayGeometry(unsigned count, const ProjectCoord* coords, const Camera::Sample* samples,
                                           const ProjectionImageContext&, RayContext* rays) const {
  if (orthographic_)
    generate(OrthographicKernel{}, count, coords, samples, rays);
  else
    generate(PerspectiveKernel{}, count, coords, samples, rays);
}

void LinearProjection::project(const Camera::Sample& sample, const ProjectionImageContext&, unsigned count,
                               ProjectCoord* coords) const {
  if (coords == nullptr || count == 0 || sample.distortionEnabled() || orthographic_) return;
  for (std::size_t i = 0; i < count; ++i) {
    ProjectCoord& c = coords[i];
    const tarn::Vec4<double> point(tarn::Vec4<float>(c.px, c.py, c.pz, c.pw));
    const tarn::Vec4<double> r = sample.worldToNdc().transform(point).wNormalized();
    c.x = static_cast<float>(r.x);
    c.y = static_cast<float>(r.y);
    c.depth = static_cast<float>(r.z);
  }
}

// ---- warped

const char* WarpedLinearProjection::identifier() const { return "WarpedLinear"; }
bool WarpedLinearProjection::isLinear() const { return false; }
// KEEP(warped-silent): neither rays nor projections; a host that knows the warp fills them in, and sees by the untouched records
// that it has to.
void WarpedLinearProjection::generateRayGeometry(unsigned, const ProjectCoord*, const Camera::Sample*,
                                                 const ProjectionImageContext&, RayContext*) const {}
void WarpedLinearProjection::project(const Camera::Sample&, const ProjectionImageContext&, unsigned, ProjectCoord*) const {}

// ---- spherical

const char* SphericalProjection::identifier() const { return "Spherical"; }
LensProjection SphericalProjection::lensProjectionMode() const { return LensProjection::spherical; }
bool SphericalProjection::isLinear() const { return false; }
void SphericalProjection::generateRayGeometry(unsigned count, const ProjectCoord* coords, const Camera::Sample* samples,
                                              const ProjectionImageContext& image, RayContext* rays) const {
  generate(sphericalKernel(image), count, coords, samples, rays);
}
void SphericalProjection::project(const Camera::Sample&, const ProjectionImageContext&, unsigned, ProjectCoord*) const {}

// ---- cylindrical

const char* CylindricalProjection::identifier() const { return "Cylindrical"; }
LensProjection CylindricalProjection::lensProjectionMode() const { return LensProjection::cylindrical; }
bool CylindricalProjection::isLinear() const { return false; }
void CylindricalProjection::generateRayGeometry(unsigned count, const ProjectCoord* coords, const Camera::Sample* samples,
                                                const ProjectionImageContext&, RayContext* rays) const {
  generate(CylindricalKernel{}, count, coords, samples, rays);
}
void CylindricalProjection::project(const Camera::Sample&, const ProjectionImageContext&, unsigned, ProjectCoord*) const {}

// ---- by enumeration

const std::vector<std::string>& LensProjectionClassNameList() {
  static const std::vector<std::string> names = {"Perspective", "Orthographic", "Spherical", "Cylindrical"};
  return names;
}

const std::string& LensProjectionClassName(LensProjection projection) {
  static const std::string empty;
  const std::vector<std::string>& names = LensProjectionClassNameList();
  const std::size_t i = static_cast<std::size_t>(static_cast<int>(projection));  // negative values land far out
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

// ---- one camera, many rays

void generateCameraRays(const LensProjectionFunction& lens, unsigned count, const ProjectCoord* coords,
                        const Camera::Sample& sample, const ProjectionImageContext& image, RayContext* rays) {
  if (count == 0 || coords == nullptr || rays == nullptr) return;

  // The lenses of this file, by their exact type: a class derived from one may have its own rays.
  const std::type_info& type = typeid(lens);
  if (type == typeid(LinearProjection)) {
    if (lens.lensProjectionMode() == LensProjection::orthographic)
      return generateFromOne(OrthographicKernel{}, count, coords, sample, rays);
    return generateFromOne(PerspectiveKernel{}, count, coords, sample, rays);
  }
  if (type == typeid(SphericalProjection)) return generateFromOne(sphericalKernel(image), count, coords, sample, rays);
  if (type == typeid(CylindricalProjection)) return generateFromOne(CylindricalKernel{}, count, coords, sample, rays);

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
