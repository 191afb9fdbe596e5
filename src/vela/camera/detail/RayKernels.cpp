#include "vela/camera/detail/RayKernels.h"

#include <algorithm>
#include <cmath>
#include <cstring>

// Four rays at a time where the processor has SSE2 for sure, else one after the other. A test
// builds this file a second time with VELA_WITHOUT_SSE2 and holds both to the same bits.
#if defined(__SSE2__) && !defined(VELA_WITHOUT_SSE2)
#define VELA_FOUR_RAYS 1
#include <emmintrin.h>
#else
#define VELA_FOUR_RAYS 0
#endif

namespace vela::detail {
inline namespace VELA_RAY_LOOPS {
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
    return {static_cast<float>(wx * m[0] + wy * m[2] + m[4]),
            static_cast<float>(wx * m[1] + wy * m[3] + m[5])};
  }
};

/// NaN stays NaN.
double clampToUnit(float v) { return static_cast<double>(v < -1.0f ? -1.0f : v > 1.0f ? 1.0f : v); }

/// Directions of a round lens before they are brought to unit length: the ray's own, and what the
/// neighbours have in their places.
struct RoundDirections {
  float x, y, z;
  float xX, yX, zX;
  float xY, yY, zY;
};

/// \param p, q  in the film window
/// \param h     half the magnification
RoundDirections cylindricalDirections(tarn::Vec2<float> p, tarn::Vec2<float> q, float h) {
  const double phi = (clampToUnit(p.x) + 1.0) * kPi, phiX = (clampToUnit(q.x) + 1.0) * kPi;
  const float x = static_cast<float>(-std::sin(phi)), z = static_cast<float>(std::cos(phi));
  const float xX = static_cast<float>(-std::sin(phiX)), zX = static_cast<float>(std::cos(phiX));
  const float y = h * static_cast<float>(clampToUnit(p.y)),
              yY = h * static_cast<float>(clampToUnit(q.y));
  return {x, y, z, xX, y, zX, x, yY, z};
}

/// \param k  width over height of the image
RoundDirections sphericalDirections(tarn::Vec2<float> p, tarn::Vec2<float> q, double k) {
  const double phi = (clampToUnit(p.x) + 1.0) * kPi, phiX = (clampToUnit(q.x) + 1.0) * kPi;
  const double theta = ((clampToUnit(p.y) * k + 1.0) * 0.5) * kPi,
               thetaY = ((k * clampToUnit(q.y) + 1.0) * 0.5) * kPi;
  const double sinTheta = std::sin(theta), sinThetaY = std::sin(thetaY);
  const float x = static_cast<float>(-std::sin(phi) * sinTheta),
              z = static_cast<float>(std::cos(phi) * sinTheta);
  const float y = static_cast<float>(-std::cos(theta)), yY = static_cast<float>(-std::cos(thetaY));
  // KEEP(x-neighbour-latitude): the x-neighbour has the sine of the y-neighbour's latitude beside
  // the cosine of its own; the differentials of hosts' filters are tuned to it.
  const float xX = static_cast<float>(-std::sin(phiX) * sinThetaY),
              zX = static_cast<float>(std::cos(phiX) * sinThetaY);
  // KEEP(y-neighbour-latitude): and the y-neighbour has only the cosine of its own latitude.
  return {x, y, z, xX, y, zX, x, yY, z};
}

#if VELA_FOUR_RAYS

// ---- Four rays at a time
//
// Every operation has the width and the order of the plain formula, so a lane has the bits of a
// single ray; a batch's last rays go through the same code, the last one in all lanes that are
// left. The time goes into twelve divisions a ray, which four lanes share, and into the stores:
// records are written by a transposition in pieces of 16 bytes instead of 19 single words.

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
  return _mm_add_pd(_mm_add_pd(_mm_mul_pd(x, _mm_set1_pd(mx)), _mm_mul_pd(y, _mm_set1_pd(my))),
                    _mm_set1_pd(mt));
}

__m128 windowRow(__m128 x, __m128 y, double mx, double my, double mt) {
  const __m128d low = windowRow(_mm_cvtps_pd(x), _mm_cvtps_pd(y), mx, my, mt);
  const __m128d high =
      windowRow(_mm_cvtps_pd(_mm_movehl_ps(x, x)), _mm_cvtps_pd(_mm_movehl_ps(y, y)), mx, my, mt);
  return _mm_movelh_ps(_mm_cvtpd_ps(low), _mm_cvtpd_ps(high));
}

Lanes2 window(const Lanes2& v, const Optics& o) {
  return {windowRow(v.x, v.y, o.m[0], o.m[2], o.m[4]), windowRow(v.x, v.y, o.m[1], o.m[3], o.m[5])};
}

/// \param coords  four of them
void loadCoords(const ProjectCoord* coords, Block& b) {
  static_assert(offsetof(ProjectCoord, x) == 0 && offsetof(ProjectCoord, dy) == 12,
                "x, y, dx, dy are read as one");
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
  b.h = _mm_mul_ps(_mm_setr_ps(s0.lensMagnification(), s1.lensMagnification(),
                               s2.lensMagnification(), s3.lensMagnification()),
                   _mm_set1_ps(0.5f));
  b.nearDistance = narrowed(s0.lensAp.clipNearDistance, s1.lensAp.clipNearDistance,
                            s2.lensAp.clipNearDistance, s3.lensAp.clipNearDistance);
  b.farDistance = narrowed(s0.lensAp.clipFarDistance, s1.lensAp.clipFarDistance,
                           s2.lensAp.clipFarDistance, s3.lensAp.clipFarDistance);
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
  const __m128 squares =
      _mm_add_ps(_mm_add_ps(_mm_mul_ps(x, x), _mm_mul_ps(y, y)), _mm_set1_ps(1.0f));
  const __m128 n = _mm_sqrt_ps(squares);
  return {_mm_div_ps(x, n), _mm_div_ps(y, n), _mm_div_ps(minusOne, n)};
}

/// The vector divided by its length; the zero vector as it is.
Lanes3 unit(const Lanes3& v) {
  const __m128 squares =
      _mm_add_ps(_mm_add_ps(_mm_mul_ps(v.x, v.x), _mm_mul_ps(v.y, v.y)), _mm_mul_ps(v.z, v.z));
  const __m128 length = _mm_sqrt_ps(squares);
  const __m128 n =
      _mm_or_ps(length, _mm_and_ps(_mm_cmpeq_ps(length, _mm_setzero_ps()), _mm_set1_ps(1.0f)));
  return {_mm_div_ps(v.x, n), _mm_div_ps(v.y, n), _mm_div_ps(v.z, n)};
}

Lanes3 reciprocal(const Lanes3& v) {
  const __m128 one = _mm_set1_ps(1.0f);
  return {_mm_div_ps(one, v.x), _mm_div_ps(one, v.y), _mm_div_ps(one, v.z)};
}

struct RayLanes {
  Lanes3 origin, direction, xDirection, yDirection, inverse;
};

constexpr std::size_t kInverseOffset = 72;  // RayContext.cpp holds the layout to this
static_assert(sizeof(RayContext) == 88 && sizeof(RayContext::slopeBits) == 1);

/// The pieces of one ray's record: floats 0 to 3, 4 to 7, 8 to 11, 12 and 13, and the reciprocal
/// with its sign bits.
void storeRay(RayContext& ray, __m128 a, __m128 b, __m128 c, __m128 d, __m128 e) {
  char* record = reinterpret_cast<char*>(&ray);
  float* floats = reinterpret_cast<float*>(record);
  _mm_storeu_ps(floats, a);
  _mm_storeu_ps(floats + 4, b);
  _mm_storeu_ps(floats + 8, c);
  _mm_storel_epi64(reinterpret_cast<__m128i*>(floats + 12), _mm_castps_si128(d));
  // Not as one piece of 16: the bytes behind the sign bits belong to classes that derive from the
  // record.
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
  const __m128i slopes =
      _mm_or_si128(_mm_or_si128(bit(r.inverse.x, 1), bit(r.inverse.y, 2)), bit(r.inverse.z, 4));

  __m128 a0 = r.origin.x, a1 = r.origin.y, a2 = r.origin.z, a3 = r.direction.x;
  __m128 b0 = r.direction.y, b1 = r.direction.z, b2 = block.nearDistance, b3 = block.farDistance;
  __m128 c0 = r.xDirection.x, c1 = r.xDirection.y, c2 = r.xDirection.z, c3 = r.yDirection.x;
  __m128 e0 = r.inverse.x, e1 = r.inverse.y, e2 = r.inverse.z, e3 = _mm_castsi128_ps(slopes);
  _MM_TRANSPOSE4_PS(a0, a1, a2, a3);
  _MM_TRANSPOSE4_PS(b0, b1, b2, b3);
  _MM_TRANSPOSE4_PS(c0, c1, c2, c3);
  _MM_TRANSPOSE4_PS(e0, e1, e2, e3);
  const __m128 d01 = _mm_unpacklo_ps(r.yDirection.y, r.yDirection.z),
               d23 = _mm_unpackhi_ps(r.yDirection.y, r.yDirection.z);

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
  for (std::size_t lane = 0; lane < kLanes; ++lane)
    coords[lane] = batch.coords[std::min(i + lane, batch.count - 1)];
  loadCoords(coords, block);
  if (batch.stride == 0)
    applyOptics(one, block);
  else
    applyOptics(batch.samples + i, rest, block);
  storeRays(kernel(block), block, batch.rays + i, rest);
}

// ---- Sines and cosines, four at a time
//
// The lenses promise the bits of the platform's own sine and cosine, in double, narrowed to float.
// What follows is not as exact, but off by less than 2^-50 of the value; narrowing gives the same
// float unless the double lies so close to the middle between two floats that the difference could
// push it over. Lanes where that may be, about one in 100,000, or where the bound does not hold,
// are marked and computed again with the platform's functions.

struct Doubles4 {
  __m128d lo, hi;
};

template <class Function>
Doubles4 each(const Doubles4& v, Function&& function) {
  return {function(v.lo), function(v.hi)};
}

Doubles4 operator*(const Doubles4& a, const Doubles4& b) {
  return {_mm_mul_pd(a.lo, b.lo), _mm_mul_pd(a.hi, b.hi)};
}

Doubles4 negated(const Doubles4& v) {
  const __m128d sign = _mm_set1_pd(-0.0);
  return {_mm_xor_pd(v.lo, sign), _mm_xor_pd(v.hi, sign)};
}

Doubles4 widened(__m128 v) { return {_mm_cvtps_pd(v), _mm_cvtps_pd(_mm_movehl_ps(v, v))}; }

/// The low halves of four doubles' bits.
__m128i lowWords(__m128d lo, __m128d hi) {
  return _mm_castps_si128(
      _mm_shuffle_ps(_mm_castpd_ps(lo), _mm_castpd_ps(hi), _MM_SHUFFLE(2, 0, 2, 0)));
}

/// Four doubles as floats.
///
/// \param doubtful  bits are set in the lanes where a double off by 2^-42 of its value could round
///                  otherwise
__m128 narrowed(const Doubles4& v, __m128i& doubtful) {
  const __m128 narrow = _mm_movelh_ps(_mm_cvtpd_ps(v.lo), _mm_cvtpd_ps(v.hi));
  // A float keeps 24 of the 53 bits. The 29 that go are compared with the middle, which is 2^28.
  const __m128i rest = _mm_and_si128(lowWords(v.lo, v.hi), _mm_set1_epi32(0x1FFFFFFF));
  const __m128i fromMiddle = _mm_sub_epi32(rest, _mm_set1_epi32(0x10000000));
  const __m128i close = _mm_and_si128(_mm_cmpgt_epi32(fromMiddle, _mm_set1_epi32(-0x800)),
                                      _mm_cmplt_epi32(fromMiddle, _mm_set1_epi32(0x800)));
  // Near the subnormal floats fewer bits are kept.
  const __m128 magnitude = _mm_andnot_ps(_mm_set1_ps(-0.0f), narrow);
  const __m128 tiny = _mm_cmplt_ps(magnitude, _mm_set1_ps(1e-30f));
  doubtful = _mm_or_si128(doubtful, _mm_or_si128(close, _mm_castps_si128(tiny)));
  return narrow;
}

/// \param good  all bits set where both results hold their bound
void sinCos(__m128d angle, __m128d& sine, __m128d& cosine, __m128d& good) {
  // angle = k pi/2 + r with |r| up to pi/4. Pi/2 in two parts: k times the first, of 33 bits, is
  // exact, and so is the first difference.
  const __m128i k = _mm_cvtpd_epi32(_mm_mul_pd(angle, _mm_set1_pd(0.6366197723675814)));
  const __m128d wideK = _mm_cvtepi32_pd(k);
  const __m128d most = _mm_sub_pd(angle, _mm_mul_pd(wideK, _mm_set1_pd(0x1.921fb544p+0)));
  const __m128d r = _mm_sub_pd(most, _mm_mul_pd(wideK, _mm_set1_pd(0x1.0b4611a626331p-34)));

  // Both series, from 1/17! and 1/16! down.
  const __m128d z = _mm_mul_pd(r, r);
  const auto horner = [&](__m128d sum, double next) {
    return _mm_add_pd(_mm_mul_pd(sum, z), _mm_set1_pd(next));
  };
  __m128d s = _mm_set1_pd(1.0 / 355687428096000.0);
  s = horner(s, -1.0 / 1307674368000.0);
  s = horner(s, 1.0 / 6227020800.0);
  s = horner(s, -1.0 / 39916800.0);
  s = horner(s, 1.0 / 362880.0);
  s = horner(s, -1.0 / 5040.0);
  s = horner(s, 1.0 / 120.0);
  s = horner(s, -1.0 / 6.0);
  s = _mm_add_pd(r, _mm_mul_pd(_mm_mul_pd(r, z), s));
  __m128d c = _mm_set1_pd(1.0 / 20922789888000.0);
  c = horner(c, -1.0 / 87178291200.0);
  c = horner(c, 1.0 / 479001600.0);
  c = horner(c, -1.0 / 3628800.0);
  c = horner(c, 1.0 / 40320.0);
  c = horner(c, -1.0 / 720.0);
  c = horner(c, 1.0 / 24.0);
  c = horner(c, -0.5);
  c = horner(c, 1.0);

  // Odd k swaps the two; bit 1 of k, and of k + 1, turns their signs.
  const __m128i k2 = _mm_shuffle_epi32(k, _MM_SHUFFLE(1, 1, 0, 0));
  const __m128i one = _mm_set1_epi32(1), two = _mm_set1_epi32(2);
  const __m128d swap = _mm_castsi128_pd(_mm_cmpeq_epi32(_mm_and_si128(k2, one), one));
  const auto signOf = [&](__m128i v) {
    return _mm_and_pd(_mm_castsi128_pd(_mm_slli_epi32(_mm_and_si128(v, two), 30)),
                      _mm_set1_pd(-0.0));
  };
  const auto pick = [&](__m128d a, __m128d b) {
    return _mm_or_pd(_mm_and_pd(swap, b), _mm_andnot_pd(swap, a));
  };
  sine = _mm_xor_pd(pick(s, c), signOf(k2));
  cosine = _mm_xor_pd(pick(c, s), signOf(_mm_add_epi32(k2, one)));

  // Close to a multiple of pi/2 the difference has lost its bits; far out k pi/2 is no longer
  // exact. NaN fails both.
  const __m128d absolute = _mm_set1_pd(-0.0);
  good = _mm_and_pd(_mm_cmplt_pd(_mm_andnot_pd(absolute, angle), _mm_set1_pd(100.0)),
                    _mm_cmpgt_pd(_mm_andnot_pd(absolute, r), _mm_set1_pd(1e-6)));
}

struct SinCos4 {
  Doubles4 sin, cos;
};

/// \param doubtful  bits are set in the lanes where the results may be off by more than their bound
SinCos4 sinCos(const Doubles4& angle, __m128i& doubtful) {
  SinCos4 out;
  Doubles4 good;
  sinCos(angle.lo, out.sin.lo, out.cos.lo, good.lo);
  sinCos(angle.hi, out.sin.hi, out.cos.hi, good.hi);
  doubtful =
      _mm_or_si128(doubtful, _mm_andnot_si128(lowWords(good.lo, good.hi), _mm_set1_epi32(-1)));
  return out;
}

/// NaN stays NaN: both operations give their second operand then.
__m128 clampToUnit(__m128 v) {
  return _mm_min_ps(_mm_set1_ps(1.0f), _mm_max_ps(_mm_set1_ps(-1.0f), v));
}

/// (v + 1) pi
Doubles4 longitude(__m128 v) {
  return each(widened(clampToUnit(v)), [](__m128d c) {
    return _mm_mul_pd(_mm_add_pd(c, _mm_set1_pd(1.0)), _mm_set1_pd(kPi));
  });
}

/// ((v k + 1) 0.5) pi
Doubles4 latitude(__m128 v, double k) {
  return each(widened(clampToUnit(v)), [k](__m128d c) {
    const __m128d sum = _mm_add_pd(_mm_mul_pd(c, _mm_set1_pd(k)), _mm_set1_pd(1.0));
    return _mm_mul_pd(_mm_mul_pd(sum, _mm_set1_pd(0.5)), _mm_set1_pd(kPi));
  });
}

struct RoundLanes {
  Lanes3 direction, xDirection, yDirection;
};

/// Computes the doubtful lanes again, by `exact(p, q, h)` of one coordinate.
template <class Exact>
void settle(__m128i doubtful, const Block& b, RoundLanes& lanes, Exact&& exact) {
  const int mask = _mm_movemask_ps(_mm_castsi128_ps(doubtful));
  if (mask == 0) return;
  alignas(16) float in[5][kLanes], out[9][kLanes];
  const __m128 inputs[5] = {b.p.x, b.p.y, b.q.x, b.q.y, b.h};
  for (std::size_t i = 0; i < 5; ++i) _mm_store_ps(in[i], inputs[i]);
  __m128* const outputs[9] = {&lanes.direction.x,  &lanes.direction.y,  &lanes.direction.z,
                              &lanes.xDirection.x, &lanes.xDirection.y, &lanes.xDirection.z,
                              &lanes.yDirection.x, &lanes.yDirection.y, &lanes.yDirection.z};
  for (std::size_t i = 0; i < 9; ++i) _mm_store_ps(out[i], *outputs[i]);
  for (std::size_t lane = 0; lane < kLanes; ++lane) {
    if ((mask >> lane & 1) == 0) continue;
    const RoundDirections d =
        exact({in[0][lane], in[1][lane]}, {in[2][lane], in[3][lane]}, in[4][lane]);
    const float values[9] = {d.x, d.y, d.z, d.xX, d.yX, d.zX, d.xY, d.yY, d.zY};
    for (std::size_t i = 0; i < 9; ++i) out[i][lane] = values[i];
  }
  for (std::size_t i = 0; i < 9; ++i) *outputs[i] = _mm_load_ps(out[i]);
}

RayLanes roundRays(const RoundLanes& lanes) {
  const __m128 zero = _mm_setzero_ps();
  const Lanes3 direction = unit(lanes.direction);
  return {{zero, zero, zero},
          direction,
          unit(lanes.xDirection),
          unit(lanes.yDirection),
          reciprocal(direction)};
}

#else

void writeRay(RayContext& ray, const tarn::Vec3<float>& origin, const tarn::Vec3<float>& direction,
              const tarn::Vec3<float>& xDirection, const tarn::Vec3<float>& yDirection,
              const Optics& o) {
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
  for (std::size_t i = 0; i < batch.count; ++i) {
    const Optics optics(batch.samples[i * batch.stride]);
    const ProjectCoord& c = batch.coords[i];
    kernel(optics.window(c.x, c.y), optics.window(c.x + c.dx, c.y + c.dy), optics, batch.rays[i]);
  }
}

void writeRoundRay(RayContext& ray, const RoundDirections& d, const Optics& o) {
  writeRay(ray, {}, tarn::Vec3<float>(d.x, d.y, d.z).normalized(),
           tarn::Vec3<float>(d.xX, d.yX, d.zX).normalized(),
           tarn::Vec3<float>(d.xY, d.yY, d.zY).normalized(), o);
}

#endif

}  // namespace

#if VELA_FOUR_RAYS

void perspectiveRays(const RayBatch& batch) {
  const __m128 zero = _mm_setzero_ps();
  generateInFours(batch, [&](const Block& b) {
    const __m128 px = _mm_mul_ps(b.h, b.p.x), py = _mm_mul_ps(b.h, b.p.y);
    const __m128 qx = _mm_mul_ps(b.h, b.q.x), qy = _mm_mul_ps(b.h, b.q.y);
    const Lanes3 direction = unit(px, py);
    return RayLanes{
        {zero, zero, zero}, direction, unit(qx, py), unit(px, qy), reciprocal(direction)};
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

void cylindricalRays(const RayBatch& batch) {
  generateInFours(batch, [](const Block& b) {
    __m128i doubtful = _mm_setzero_si128();
    const SinCos4 phi = sinCos(longitude(b.p.x), doubtful),
                  phiX = sinCos(longitude(b.q.x), doubtful);
    const __m128 x = narrowed(negated(phi.sin), doubtful), z = narrowed(phi.cos, doubtful);
    const __m128 xX = narrowed(negated(phiX.sin), doubtful), zX = narrowed(phiX.cos, doubtful);
    const __m128 y = _mm_mul_ps(b.h, clampToUnit(b.p.y)), yY = _mm_mul_ps(b.h, clampToUnit(b.q.y));
    RoundLanes lanes = {{x, y, z}, {xX, y, zX}, {x, yY, z}};
    settle(doubtful, b, lanes, cylindricalDirections);
    return roundRays(lanes);
  });
}

void sphericalRays(const RayBatch& batch, float aspect) {
  const double k = 1.0 / static_cast<double>(aspect);
  generateInFours(batch, [k](const Block& b) {
    __m128i doubtful = _mm_setzero_si128();
    const SinCos4 phi = sinCos(longitude(b.p.x), doubtful),
                  phiX = sinCos(longitude(b.q.x), doubtful);
    const SinCos4 theta = sinCos(latitude(b.p.y, k), doubtful),
                  thetaY = sinCos(latitude(b.q.y, k), doubtful);
    const __m128 x = narrowed(negated(phi.sin) * theta.sin, doubtful),
                 z = narrowed(phi.cos * theta.sin, doubtful);
    const __m128 xX = narrowed(negated(phiX.sin) * thetaY.sin, doubtful),
                 zX = narrowed(phiX.cos * thetaY.sin, doubtful);
    const __m128 y = narrowed(negated(theta.cos), doubtful),
                 yY = narrowed(negated(thetaY.cos), doubtful);
    // The neighbours mix latitudes as in sphericalDirections.
    RoundLanes lanes = {{x, y, z}, {xX, y, zX}, {x, yY, z}};
    settle(doubtful, b, lanes, [k](tarn::Vec2<float> p, tarn::Vec2<float> q, float) {
      return sphericalDirections(p, q, k);
    });
    return roundRays(lanes);
  });
}

#else

void perspectiveRays(const RayBatch& batch) {
  generate(batch, [](tarn::Vec2<float> p, tarn::Vec2<float> q, const Optics& o, RayContext& ray) {
    const float px = o.h * p.x, py = o.h * p.y, qx = o.h * q.x, qy = o.h * q.y;
    writeRay(ray, {}, tarn::Vec3<float>(px, py, -1.0f).normalized(),
             tarn::Vec3<float>(qx, py, -1.0f).normalized(),
             tarn::Vec3<float>(px, qy, -1.0f).normalized(), o);
  });
}

void orthographicRays(const RayBatch& batch) {
  generate(batch, [](tarn::Vec2<float> p, tarn::Vec2<float>, const Optics& o, RayContext& ray) {
    const tarn::Vec3<float> ahead(0.0f, 0.0f, -1.0f);
    writeRay(ray, {o.h * p.x, o.h * p.y, 0.0f}, ahead, ahead, ahead, o);
  });
}

void cylindricalRays(const RayBatch& batch) {
  generate(batch, [](tarn::Vec2<float> p, tarn::Vec2<float> q, const Optics& o, RayContext& ray) {
    writeRoundRay(ray, cylindricalDirections(p, q, o.h), o);
  });
}

void sphericalRays(const RayBatch& batch, float aspect) {
  const double k = 1.0 / static_cast<double>(aspect);
  generate(batch, [k](tarn::Vec2<float> p, tarn::Vec2<float> q, const Optics& o, RayContext& ray) {
    writeRoundRay(ray, sphericalDirections(p, q, k), o);
  });
}

#endif

}  // namespace VELA_RAY_LOOPS
}  // namespace vela::detail
