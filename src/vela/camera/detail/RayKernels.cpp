#include "vela/camera/detail/RayKernels.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace vela::detail {
namespace {

constexpr double kPi = 3.141592653589793;

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

/// One ray after the other.
template <class Kernel>
void generate(const RayBatch& batch, Kernel&& kernel) {
  if (batch.stride == 0) {
    const Optics optics(*batch.samples);
    for (std::size_t i = 0; i < batch.count; ++i) kernel(batch.coords[i], optics, batch.rays[i]);
  } else {
    for (std::size_t i = 0; i < batch.count; ++i) kernel(batch.coords[i], Optics(batch.samples[i]), batch.rays[i]);
  }
}

#if defined(__SSE2__)

// ---- the linear lenses, four rays at a time
//
// Every operation has the width and the order of the plain formula, so a lane has the bits of a single ray; a batch's last rays
// go through the same code with empty lanes. The time goes into twelve divisions a ray, which four lanes share, and into
// the stores: records are written by a transposition in pieces of 16 bytes instead of 19 single words.

constexpr std::size_t kLanes = 4;

struct Lanes2 {
  __m128 x, y;
};
struct Lanes3 {
  __m128 x, y, z;
};

/// Four coordinates with their optics.
struct Block {
  Lanes2 p, q;  ///< the coordinate and its neighbour, in the film window
  __m128 h, nearDistance, farDistance;
};

/// Two rows of the film window's matrix for two lanes, in double.
__m128d windowRow(__m128d x, __m128d y, double mx, double my, double mt) {
  return _mm_add_pd(_mm_add_pd(_mm_mul_pd(x, _mm_set1_pd(mx)), _mm_mul_pd(y, _mm_set1_pd(my))), _mm_set1_pd(mt));
}

__m128 windowRow(__m128 x, __m128 y, double mx, double my, double mt) {
  const __m128d low = windowRow(_mm_cvtps_pd(x), _mm_cvtps_pd(y), mx, my, mt);
  const __m128d high = windowRow(_mm_cvtps_pd(_mm_movehl_ps(x, x)), _mm_cvtps_pd(_mm_movehl_ps(y, y)), mx, my, mt);
  return _mm_movelh_ps(_mm_cvtpd_ps(low), _mm_cvtpd_ps(high));
}

Lanes2 window(const Lanes2& v, const Optics& o) {
  return {windowRow(v.x, v.y, o.m[0], o.m[2], o.m[4]), windowRow(v.x, v.y, o.m[1], o.m[3], o.m[5])};
}

/// \param coords  four of them
void loadCoords(const ProjectCoord* coords, Block& b) {
  static_assert(offsetof(ProjectCoord, x) == 0 && offsetof(ProjectCoord, dy) == 12, "x, y, dx, dy are read as one");
  __m128 x = _mm_loadu_ps(&coords[0].x), y = _mm_loadu_ps(&coords[1].x);
  __m128 dx = _mm_loadu_ps(&coords[2].x), dy = _mm_loadu_ps(&coords[3].x);
  _MM_TRANSPOSE4_PS(x, y, dx, dy);
  b.p = {x, y};
  b.q = {_mm_add_ps(x, dx), _mm_add_ps(y, dy)};
}

/// One sample for the four.
void applyOptics(const Optics& o, Block& b) {
  b.h = _mm_set1_ps(o.h);
  b.nearDistance = _mm_set1_ps(o.nearDistance);
  b.farDistance = _mm_set1_ps(o.farDistance);
  if (!o.ndcIsIdentity) {
    b.p = window(b.p, o);
    b.q = window(b.q, o);
  }
}

__m128 narrowed(double a, double b, double c, double d) {
  return _mm_movelh_ps(_mm_cvtpd_ps(_mm_setr_pd(a, b)), _mm_cvtpd_ps(_mm_setr_pd(c, d)));
}

/// A sample for each.
///
/// \param count  1 to 4 lanes that have a sample; the others take the last one's
void applyOptics(const Camera::Sample* samples, std::size_t count, Block& b) {
  const Camera::Sample& s0 = samples[0];
  const Camera::Sample& s1 = samples[std::min<std::size_t>(1, count - 1)];
  const Camera::Sample& s2 = samples[std::min<std::size_t>(2, count - 1)];
  const Camera::Sample& s3 = samples[count - 1];
  b.h = _mm_mul_ps(_mm_setr_ps(s0.lensMagnification(), s1.lensMagnification(), s2.lensMagnification(), s3.lensMagnification()),
                   _mm_set1_ps(0.5f));
  b.nearDistance = narrowed(s0.lensAp.clipNearDistance, s1.lensAp.clipNearDistance, s2.lensAp.clipNearDistance,
                            s3.lensAp.clipNearDistance);
  b.farDistance =
      narrowed(s0.lensAp.clipFarDistance, s1.lensAp.clipFarDistance, s2.lensAp.clipFarDistance, s3.lensAp.clipFarDistance);
  if (s0.ndcIsIdentity && s1.ndcIsIdentity && s2.ndcIsIdentity && s3.ndcIsIdentity) return;

  // Each lane through its own window.
  const Camera::Sample* lanes[kLanes] = {&s0, &s1, &s2, &s3};
  alignas(16) float px[kLanes], py[kLanes], qx[kLanes], qy[kLanes];
  _mm_store_ps(px, b.p.x);
  _mm_store_ps(py, b.p.y);
  _mm_store_ps(qx, b.q.x);
  _mm_store_ps(qy, b.q.y);
  for (std::size_t i = 0; i < kLanes; ++i) {
    const Optics o(*lanes[i]);
    const tarn::Vec2<float> p = o.window(px[i], py[i]), q = o.window(qx[i], qy[i]);
    px[i] = p.x;
    py[i] = p.y;
    qx[i] = q.x;
    qy[i] = q.y;
  }
  b.p = {_mm_load_ps(px), _mm_load_ps(py)};
  b.q = {_mm_load_ps(qx), _mm_load_ps(qy)};
}

/// (x, y, -1) divided by its length, which is never 0.
Lanes3 unit(__m128 x, __m128 y) {
  const __m128 minusOne = _mm_set1_ps(-1.0f);
  const __m128 squares = _mm_add_ps(_mm_add_ps(_mm_mul_ps(x, x), _mm_mul_ps(y, y)), _mm_set1_ps(1.0f));
  const __m128 n = _mm_sqrt_ps(squares);
  return {_mm_div_ps(x, n), _mm_div_ps(y, n), _mm_div_ps(minusOne, n)};
}

struct RayLanes {
  Lanes3 origin, direction, xDirection, yDirection, inverse;
};

constexpr std::size_t kInverseOffset = 72;  // RayContext.cpp holds the layout to this
static_assert(sizeof(RayContext) == 88 && sizeof(RayContext::slopeBits) == 1);

/// The pieces of one ray's record: floats 0 to 3, 4 to 7, 8 to 11, 12 and 13, and the reciprocal with its sign bits.
void storeRay(RayContext& ray, __m128 a, __m128 b, __m128 c, __m128 d, __m128 e) {
  char* record = reinterpret_cast<char*>(&ray);
  float* floats = reinterpret_cast<float*>(record);
  _mm_storeu_ps(floats, a);
  _mm_storeu_ps(floats + 4, b);
  _mm_storeu_ps(floats + 8, c);
  _mm_storel_epi64(reinterpret_cast<__m128i*>(floats + 12), _mm_castps_si128(d));
  // Not as one piece of 16: the bytes behind the sign bits belong to classes that derive from the record.
  float* inverse = reinterpret_cast<float*>(record + kInverseOffset);
  _mm_storel_epi64(reinterpret_cast<__m128i*>(inverse), _mm_castps_si128(e));
  _mm_store_ss(inverse + 2, _mm_movehl_ps(e, e));
  ray.slopeBits = static_cast<std::uint8_t>(_mm_extract_epi16(_mm_castps_si128(e), 6));
}

/// \param count  1 to 4 lanes that are rays
void storeRays(const RayLanes& r, const Block& block, RayContext* rays, std::size_t count) {
  // Sign bits as integers, beside the reciprocal.
  const __m128 zero = _mm_setzero_ps();
  const auto bit = [&](__m128 v, int mask) {
    return _mm_and_si128(_mm_castps_si128(_mm_cmplt_ps(v, zero)), _mm_set1_epi32(mask));
  };
  const __m128i slopes = _mm_or_si128(_mm_or_si128(bit(r.inverse.x, 1), bit(r.inverse.y, 2)), bit(r.inverse.z, 4));

  __m128 a0 = r.origin.x, a1 = r.origin.y, a2 = r.origin.z, a3 = r.direction.x;
  __m128 b0 = r.direction.y, b1 = r.direction.z, b2 = block.nearDistance, b3 = block.farDistance;
  __m128 c0 = r.xDirection.x, c1 = r.xDirection.y, c2 = r.xDirection.z, c3 = r.yDirection.x;
  __m128 e0 = r.inverse.x, e1 = r.inverse.y, e2 = r.inverse.z, e3 = _mm_castsi128_ps(slopes);
  _MM_TRANSPOSE4_PS(a0, a1, a2, a3);
  _MM_TRANSPOSE4_PS(b0, b1, b2, b3);
  _MM_TRANSPOSE4_PS(c0, c1, c2, c3);
  _MM_TRANSPOSE4_PS(e0, e1, e2, e3);
  const __m128 d01 = _mm_unpacklo_ps(r.yDirection.y, r.yDirection.z), d23 = _mm_unpackhi_ps(r.yDirection.y, r.yDirection.z);

  storeRay(rays[0], a0, b0, c0, d01, e0);
  if (count > 1) storeRay(rays[1], a1, b1, c1, _mm_movehl_ps(d01, d01), e1);
  if (count > 2) storeRay(rays[2], a2, b2, c2, d23, e2);
  if (count > 3) storeRay(rays[3], a3, b3, c3, _mm_movehl_ps(d23, d23), e3);
}

/// Runs `kernel(block)` over the batch in fours.
template <class Kernel>
void generateInFours(const RayBatch& batch, Kernel&& kernel) {
  const Optics one(*batch.samples);
  Block block;
  std::size_t i = 0;
  for (; i + kLanes <= batch.count; i += kLanes) {
    loadCoords(batch.coords + i, block);
    if (batch.stride == 0)
      applyOptics(one, block);
    else
      applyOptics(batch.samples + i, kLanes, block);
    storeRays(kernel(block), block, batch.rays + i, kLanes);
  }
  if (i == batch.count) return;

  // The last one to three.
  const std::size_t rest = batch.count - i;
  ProjectCoord coords[kLanes];
  std::copy_n(batch.coords + i, rest, coords);
  loadCoords(coords, block);
  if (batch.stride == 0)
    applyOptics(one, block);
  else
    applyOptics(batch.samples + i, rest, block);
  storeRays(kernel(block), block, batch.rays + i, rest);
}

#endif

/// NaN stays NaN.
double clampToUnit(float v) { return static_cast<double>(v < -1.0f ? -1.0f : v > 1.0f ? 1.0f : v); }

/// Sine and cosine of the last angle asked for. Coordinates come in rows, and the angles of one row are the same.
class LastAngle {
 public:
  explicit LastAngle(double angle) { take(angle); }
  void at(double angle) {
    if (angle != angle_) take(angle);
  }
  [[nodiscard]] double sin() const { return sin_; }
  [[nodiscard]] double cos() const { return cos_; }

 private:
  void take(double angle) {
    angle_ = angle;
    sin_ = std::sin(angle);
    cos_ = std::cos(angle);
  }
  double angle_, sin_, cos_;
};

}  // namespace

#if defined(__SSE2__)

void perspectiveRays(const RayBatch& batch) {
  const __m128 zero = _mm_setzero_ps(), one = _mm_set1_ps(1.0f);
  generateInFours(batch, [&](const Block& b) {
    const __m128 px = _mm_mul_ps(b.h, b.p.x), py = _mm_mul_ps(b.h, b.p.y);
    const __m128 qx = _mm_mul_ps(b.h, b.q.x), qy = _mm_mul_ps(b.h, b.q.y);
    const Lanes3 direction = unit(px, py);
    return RayLanes{{zero, zero, zero},
                    direction,
                    unit(qx, py),
                    unit(px, qy),
                    {_mm_div_ps(one, direction.x), _mm_div_ps(one, direction.y), _mm_div_ps(one, direction.z)}};
  });
}

void orthographicRays(const RayBatch& batch) {
  const __m128 zero = _mm_setzero_ps();
  const Lanes3 ahead = {zero, zero, _mm_set1_ps(-1.0f)};
  const __m128 infinity = _mm_div_ps(_mm_set1_ps(1.0f), zero);
  generateInFours(batch, [&](const Block& b) {
    return RayLanes{{_mm_mul_ps(b.h, b.p.x), _mm_mul_ps(b.h, b.p.y), zero},
                    ahead,
                    ahead,
                    ahead,
                    {infinity, infinity, _mm_set1_ps(-1.0f)}};
  });
}

#else

void perspectiveRays(const RayBatch& batch) {
  generate(batch, [](const ProjectCoord& c, const Optics& o, RayContext& ray) {
    const tarn::Vec2<float> p = o.window(c.x, c.y), q = o.window(c.x + c.dx, c.y + c.dy);
    const float px = o.h * p.x, py = o.h * p.y, qx = o.h * q.x, qy = o.h * q.y;
    writeRay(ray, {}, tarn::Vec3<float>(px, py, -1.0f).normalized(), tarn::Vec3<float>(qx, py, -1.0f).normalized(),
             tarn::Vec3<float>(px, qy, -1.0f).normalized(), o);
  });
}

void orthographicRays(const RayBatch& batch) {
  generate(batch, [](const ProjectCoord& c, const Optics& o, RayContext& ray) {
    const tarn::Vec2<float> p = o.window(c.x, c.y);
    const tarn::Vec3<float> ahead(0.0f, 0.0f, -1.0f);
    writeRay(ray, {o.h * p.x, o.h * p.y, 0.0f}, ahead, ahead, ahead, o);
  });
}

#endif

void cylindricalRays(const RayBatch& batch) {
  generate(batch, [](const ProjectCoord& c, const Optics& o, RayContext& ray) {
    const tarn::Vec2<float> p = o.window(c.x, c.y), q = o.window(c.x + c.dx, c.y + c.dy);
    const double phi = (clampToUnit(p.x) + 1.0) * kPi, phiX = (clampToUnit(q.x) + 1.0) * kPi;
    const float x = static_cast<float>(-std::sin(phi)), z = static_cast<float>(std::cos(phi));
    const float xX = static_cast<float>(-std::sin(phiX)), zX = static_cast<float>(std::cos(phiX));
    const float y = o.h * static_cast<float>(clampToUnit(p.y)), yY = o.h * static_cast<float>(clampToUnit(q.y));
    writeRay(ray, {}, tarn::Vec3<float>(x, y, z).normalized(), tarn::Vec3<float>(xX, y, zX).normalized(),
             tarn::Vec3<float>(x, yY, z).normalized(), o);
  });
}

void sphericalRays(const RayBatch& batch, float aspect) {
  const double k = 1.0 / static_cast<double>(aspect);
  LastAngle theta(0.0), thetaY(0.0);
  generate(batch, [&](const ProjectCoord& c, const Optics& o, RayContext& ray) {
    const tarn::Vec2<float> p = o.window(c.x, c.y), q = o.window(c.x + c.dx, c.y + c.dy);
    const double phi = (clampToUnit(p.x) + 1.0) * kPi, phiX = (clampToUnit(q.x) + 1.0) * kPi;
    theta.at(((clampToUnit(p.y) * k + 1.0) * 0.5) * kPi);
    thetaY.at(((k * clampToUnit(q.y) + 1.0) * 0.5) * kPi);
    const double sinPhi = std::sin(phi), cosPhi = std::cos(phi), sinPhiX = std::sin(phiX), cosPhiX = std::cos(phiX);

    const tarn::Vec3<float> direction(static_cast<float>(-sinPhi * theta.sin()), static_cast<float>(-theta.cos()),
                                      static_cast<float>(cosPhi * theta.sin()));
    // KEEP(x-neighbour-latitude): the x-neighbour has the sine of the y-neighbour's latitude beside the cosine of its own; the
    // differentials of hosts' filters are tuned to it.
    const tarn::Vec3<float> xDirection(static_cast<float>(-sinPhiX * thetaY.sin()), static_cast<float>(-theta.cos()),
                                       static_cast<float>(cosPhiX * thetaY.sin()));
    // KEEP(y-neighbour-latitude): and the y-neighbour has only the cosine of its own latitude.
    const tarn::Vec3<float> yDirection(static_cast<float>(-sinPhi * theta.sin()), static_cast<float>(-thetaY.cos()),
                                       static_cast<float>(cosPhi * theta.sin()));
    writeRay(ray, {}, direction.normalized(), xDirection.normalized(), yDirection.normalized(), o);
  });
}

}  // namespace vela::detail
