/// \file
/// The four lenses, several rays at a time; RayKernels.cpp includes this once for each instruction
/// set.
///
/// Every operation has the width and the order of the lens's formula for one ray, so a lane has the
/// bits of a single ray. A batch's last rays go through the same code, the last one in all lanes
/// that are left. The time goes into twelve divisions a ray, which the lanes share, and into the
/// stores: records are written by a transposition in pieces of 16 bytes instead of 19 single words.

// No include guard: included once for each instruction set.

namespace vela::detail {
namespace {
namespace TARN_LANES_SET {

using namespace tarn::TARN_LANES_SET;

inline constexpr std::size_t kLanes = kFloatsAtOnce, kQuads = kLanes / 4;
using Floats = FloatLanes<kLanes>;
using Doubles = DoubleLanes<kLanes>;
using Ints = IntLanes<kLanes>;
using Quad = FloatLanes<4>;

struct Floats2 {
  Floats x, y;
};
struct Floats3 {
  Floats x, y, z;
};

/// Coordinates with their optics.
struct Block {
  Floats2 p, q;  ///< the coordinate and its neighbour, in the film window
  Floats h, nearDistance, farDistance;
};

inline Doubles constant(double d) { return Doubles::broadcast(d); }
inline Floats constant(float f) { return Floats::broadcast(f); }

// ---- Reading

/// A row of the film window's matrix, in double.
inline Floats windowRow(const Floats& x, const Floats& y, double mx, double my, double mt) {
  return narrow(widen(x) * constant(mx) + widen(y) * constant(my) + constant(mt));
}
inline Floats2 window(const Floats2& v, const Optics& o) {
  return {windowRow(v.x, v.y, o.m[0], o.m[2], o.m[4]), windowRow(v.x, v.y, o.m[1], o.m[3], o.m[5])};
}

/// \param coords  a block of them
inline void loadCoords(const ProjectCoord* coords, Block& b) {
  static_assert(offsetof(ProjectCoord, x) == 0 && offsetof(ProjectCoord, dy) == 12,
                "x, y, dx, dy are read as one");
  Quad x[kQuads], y[kQuads], dx[kQuads], dy[kQuads];
  for (std::size_t i = 0; i < kQuads; ++i, coords += 4) {
    x[i] = Quad::load(&coords[0].x);
    y[i] = Quad::load(&coords[1].x);
    dx[i] = Quad::load(&coords[2].x);
    dy[i] = Quad::load(&coords[3].x);
    transpose(x[i], y[i], dx[i], dy[i]);
  }
  b.p = {fromQuads<kLanes>(x), fromQuads<kLanes>(y)};
  b.q = {b.p.x + fromQuads<kLanes>(dx), b.p.y + fromQuads<kLanes>(dy)};
}

/// One sample for the whole block.
inline void applyOptics(const Optics& o, Block& b) {
  b.h = constant(o.h);
  b.nearDistance = constant(o.nearDistance);
  b.farDistance = constant(o.farDistance);
  if (!o.ndcIsIdentity) {
    b.p = window(b.p, o);
    b.q = window(b.q, o);
  }
}

/// A sample for each.
///
/// \param count  1 to kLanes lanes that have a sample; the others take the last one's
inline void applyOptics(const Camera::Sample* samples, std::size_t count, Block& block) {
  // Not by way of arrays: a vector read right behind single writes waits for all of them.
  Quad h[kQuads], nearDistance[kQuads], farDistance[kQuads];
  bool allIdentity = true;
  for (std::size_t i = 0; i < kQuads; ++i) {
    const auto at = [&](std::size_t lane) -> const Camera::Sample& {
      return samples[std::min(4 * i + lane, count - 1)];
    };
    const Camera::Sample &a = at(0), &b = at(1), &c = at(2), &d = at(3);
    h[i] = quadOf(a.lensMagnification(), b.lensMagnification(), c.lensMagnification(),
                  d.lensMagnification());
    const auto narrowDistances = [&](double CameraLensApertureParameters::*distance) {
      return quadOf(static_cast<float>(a.lensAp.*distance), static_cast<float>(b.lensAp.*distance),
                    static_cast<float>(c.lensAp.*distance), static_cast<float>(d.lensAp.*distance));
    };
    nearDistance[i] = narrowDistances(&CameraLensApertureParameters::clipNearDistance);
    farDistance[i] = narrowDistances(&CameraLensApertureParameters::clipFarDistance);
    allIdentity =
        allIdentity && a.ndcIsIdentity && b.ndcIsIdentity && c.ndcIsIdentity && d.ndcIsIdentity;
  }
  block.h = fromQuads<kLanes>(h) * constant(0.5f);
  block.nearDistance = fromQuads<kLanes>(nearDistance);
  block.farDistance = fromQuads<kLanes>(farDistance);
  if (allIdentity) return;

  // Each lane through its own window.
  float px[kLanes], py[kLanes], qx[kLanes], qy[kLanes];
  block.p.x.store(px);
  block.p.y.store(py);
  block.q.x.store(qx);
  block.q.y.store(qy);
  for (std::size_t lane = 0; lane < kLanes; ++lane) {
    const Optics o(samples[std::min(lane, count - 1)]);
    const tarn::Vec2f p = o.window(px[lane], py[lane]), q = o.window(qx[lane], qy[lane]);
    px[lane] = p.x;
    py[lane] = p.y;
    qx[lane] = q.x;
    qy[lane] = q.y;
  }
  block.p = {Floats::load(px), Floats::load(py)};
  block.q = {Floats::load(qx), Floats::load(qy)};
}

// ---- Directions

/// (x, y, -1) divided by its length, which is never 0.
inline Floats3 unit(const Floats& x, const Floats& y) {
  const Floats length = sqrt(x * x + y * y + constant(1.0f));
  return {x / length, y / length, constant(-1.0f) / length};
}

/// The vector divided by its length; the zero vector as it is.
inline Floats3 unit(const Floats3& v) {
  const Floats length = sqrt(v.x * v.x + v.y * v.y + v.z * v.z);
  const Floats divisor = select(length == constant(0.0f), constant(1.0f), length);
  return {v.x / divisor, v.y / divisor, v.z / divisor};
}

inline Floats3 reciprocal(const Floats3& v) {
  const Floats one = constant(1.0f);
  return {one / v.x, one / v.y, one / v.z};
}

struct RayLanes {
  Floats3 origin, direction, xDirection, yDirection, inverse;
};

// ---- Writing

inline constexpr std::size_t kInverseOffset = 72;  // RayContext.cpp holds the layout to this
static_assert(sizeof(RayContext) == 88 && sizeof(RayContext::slopeBits) == 1);

/// Floats 0 to 3, 4 to 7, 8 to 11, 12 and 13, and the reciprocal with its sign bits.
inline void storeRay(RayContext& ray, const Quad& a, const Quad& b, const Quad& c, const Quad& d,
                     const Quad& e) {
  char* record = reinterpret_cast<char*>(&ray);
  float* floats = reinterpret_cast<float*>(record);
  a.store(floats);
  b.store(floats + 4);
  c.store(floats + 8);
  storeTwo(d, floats + 12);
  // Not as one piece of 16: the bytes behind the sign bits belong to classes that derive from the
  // record.
  float* inverse = reinterpret_cast<float*>(record + kInverseOffset);
  storeTwo(e, inverse);
  float tail[4];
  e.store(tail);
  inverse[2] = tail[2];
  std::uint8_t slopeBits;
  std::memcpy(&slopeBits, &tail[3], 1);  // their low byte
  ray.slopeBits = slopeBits;
}

/// \param count  1 to 4 lanes of this quad that are rays
template <std::size_t index>
inline void storeQuad(const RayLanes& r, const Block& block, RayContext* rays, std::size_t count) {
  const auto of = [](const Floats& v) { return quad<index>(v); };
  Quad a0 = of(r.origin.x), a1 = of(r.origin.y), a2 = of(r.origin.z), a3 = of(r.direction.x);
  Quad b0 = of(r.direction.y), b1 = of(r.direction.z), b2 = of(block.nearDistance),
       b3 = of(block.farDistance);
  Quad c0 = of(r.xDirection.x), c1 = of(r.xDirection.y), c2 = of(r.xDirection.z),
       c3 = of(r.yDirection.x);
  const Quad y = of(r.yDirection.y), z = of(r.yDirection.z);
  Quad e0 = of(r.inverse.x), e1 = of(r.inverse.y), e2 = of(r.inverse.z);

  // The sign bits as integers beside the reciprocal.
  const Quad zero = Quad::broadcast(0.0f);
  const auto bit = [&](const Quad& v, std::int32_t value) {
    return keep(v < zero, IntLanes<4>::broadcast(value));
  };
  Quad e3 = asFloats(bit(e0, 1) | bit(e1, 2) | bit(e2, 4));

  transpose(a0, a1, a2, a3);
  transpose(b0, b1, b2, b3);
  transpose(c0, c1, c2, c3);
  transpose(e0, e1, e2, e3);
  const Quad d01 = interleaveLower(y, z), d23 = interleaveUpper(y, z);
  storeRay(rays[0], a0, b0, c0, d01, e0);
  if (count > 1) storeRay(rays[1], a1, b1, c1, shuffle<2, 3, 2, 3>(d01, d01), e1);
  if (count > 2) storeRay(rays[2], a2, b2, c2, d23, e2);
  if (count > 3) storeRay(rays[3], a3, b3, c3, shuffle<2, 3, 2, 3>(d23, d23), e3);
}

/// \param count  1 to kLanes lanes that are rays
inline void storeRays(const RayLanes& r, const Block& block, RayContext* rays, std::size_t count) {
  static_assert(kQuads <= 2);
  storeQuad<0>(r, block, rays, count);
  if (count > 4) storeQuad<kQuads - 1>(r, block, rays + 4, count - 4);
}

/// Runs `kernel(block)` over the batch.
template <class Kernel>
inline void generate(const RayBatch& batch, Kernel&& kernel) {
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

  // The last ones, fewer than a block.
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

// ---- Sines and cosines
//
// The lenses promise the bits of the platform's own sine and cosine, in double, narrowed to float.
// What follows is not as exact, but off by less than 2^-40 of the value; narrowing gives the same
// float unless the double lies so close to the middle between two floats that the difference could
// push it over. Lanes where that may be, about one spherical ray in 1,400, or where the bound does
// not hold, are marked and computed again with the platform's functions.

/// Doubles as floats.
///
/// \param doubtful  set in the lanes where a double off by 2^-38 of its value could round
///                  otherwise: a product of two that are off by 2^-40 each
inline Floats narrowed(const Doubles& v, Mask<kLanes>& doubtful) {
  const Floats narrowest = narrow(v);
  // A float keeps 24 of the 53 bits. The 29 that go are compared with the middle, which is 2^28.
  const Ints rest = lowWords(v) & Ints::broadcast(0x1FFFFFFF);
  const Ints fromMiddle = rest - Ints::broadcast(0x10000000);
  // Near the denormal floats fewer bits are kept.
  const Mask<kLanes> tiny = abs(narrowest) < constant(1e-30f);
  doubtful = doubtful | tiny |
             ((fromMiddle > Ints::broadcast(-0x8000)) & (fromMiddle < Ints::broadcast(0x8000)));
  return narrowest;
}

struct SinCos {
  Doubles sin, cos;
};

/// \param doubtful  set in the lanes where the results may be off by more than their bound
inline SinCos sinCos(const Doubles& angle, Mask<kLanes>& doubtful) {
  // angle = k pi/2 + r with |r| up to pi/4. Pi/2 in two parts: k times the first, of 33 bits, is
  // exact, and so is the first difference.
  const Ints k = roundToInts(angle * constant(0.6366197723675814));
  const Doubles wideK = widen(k);
  const Doubles most = angle - wideK * constant(0x1.921fb544p+0);
  const Doubles r = most - wideK * constant(0x1.0b4611a626331p-34);

  // Both series, up to r^13 / 13! and r^12 / 12!. What is left out is less than the next term: for
  // |r| up to pi/4 at most 3e-14 (2^-45) of the sine and 6e-13 (2^-40.6) of the cosine. The
  // roundings add less than 2^-49.
  const Doubles z = r * r;
  const auto horner = [&](const Doubles& sum, double next) { return sum * z + constant(next); };
  Doubles s = constant(1.0 / 6227020800.0);
  s = horner(s, -1.0 / 39916800.0);
  s = horner(s, 1.0 / 362880.0);
  s = horner(s, -1.0 / 5040.0);
  s = horner(s, 1.0 / 120.0);
  s = horner(s, -1.0 / 6.0);
  s = r + r * z * s;
  Doubles c = constant(1.0 / 479001600.0);
  c = horner(c, -1.0 / 3628800.0);
  c = horner(c, 1.0 / 40320.0);
  c = horner(c, -1.0 / 720.0);
  c = horner(c, 1.0 / 24.0);
  c = horner(c, -0.5);
  c = horner(c, 1.0);

  // Odd k swaps the two; bit 1 of k, and of k + 1, turns their signs.
  const Ints one = Ints::broadcast(1), two = Ints::broadcast(2);
  const DoubleMask<kLanes> swap = widen((k & one) == one);
  const auto signOf = [&](const Ints& v) { return widen(asFloats(shiftLeft<30>(v & two))); };
  const SinCos out = {flipSign(select(swap, c, s), signOf(k)),
                      flipSign(select(swap, s, c), signOf(k + one))};

  // Close to a multiple of pi/2 the difference has lost its bits; far out k pi/2 is no longer
  // exact. NaN fails both.
  const DoubleMask<kLanes> good = (abs(angle) < constant(100.0)) & (abs(r) > constant(1e-6));
  doubtful = doubtful | ~narrow(good);
  return out;
}

/// NaN stays NaN: both operations give their second operand then.
inline Floats clampToUnit(const Floats& v) { return min(constant(1.0f), max(constant(-1.0f), v)); }

/// (v + 1) pi
inline Doubles longitude(const Floats& v) {
  return (widen(clampToUnit(v)) + constant(1.0)) * constant(kPi);
}

/// ((v k + 1) 0.5) pi
inline Doubles latitude(const Floats& v, double k) {
  return (widen(clampToUnit(v)) * constant(k) + constant(1.0)) * constant(0.5) * constant(kPi);
}

struct RoundLanes {
  Floats3 direction, xDirection, yDirection;
};

/// Computes the doubtful lanes again, by `exact(p, q, h)` of one coordinate.
template <class Exact>
inline void settle(const Mask<kLanes>& doubtful, const Block& b, RoundLanes& lanes, Exact&& exact) {
  const unsigned mask = bits(doubtful);
  if (mask == 0) return;
  float px[kLanes], py[kLanes], qx[kLanes], qy[kLanes], h[kLanes], out[9][kLanes];
  b.p.x.store(px);
  b.p.y.store(py);
  b.q.x.store(qx);
  b.q.y.store(qy);
  b.h.store(h);
  Floats* const outputs[9] = {&lanes.direction.x,  &lanes.direction.y,  &lanes.direction.z,
                              &lanes.xDirection.x, &lanes.xDirection.y, &lanes.xDirection.z,
                              &lanes.yDirection.x, &lanes.yDirection.y, &lanes.yDirection.z};
  for (std::size_t i = 0; i < 9; ++i) outputs[i]->store(out[i]);
  for (std::size_t lane = 0; lane < kLanes; ++lane) {
    if ((mask >> lane & 1u) == 0) continue;
    const RoundDirections d = exact({px[lane], py[lane]}, {qx[lane], qy[lane]}, h[lane]);
    const float values[9] = {d.x, d.y, d.z, d.xX, d.yX, d.zX, d.xY, d.yY, d.zY};
    for (std::size_t i = 0; i < 9; ++i) out[i][lane] = values[i];
  }
  for (std::size_t i = 0; i < 9; ++i) *outputs[i] = Floats::load(out[i]);
}

inline RayLanes roundRays(const RoundLanes& lanes) {
  const Floats zero = constant(0.0f);
  const Floats3 direction = unit(lanes.direction);
  return {{zero, zero, zero},
          direction,
          unit(lanes.xDirection),
          unit(lanes.yDirection),
          reciprocal(direction)};
}

// ---- The lenses

inline void perspectiveRays(const RayBatch& batch) {
  const Floats zero = constant(0.0f);
  generate(batch, [&](const Block& b) {
    const Floats px = b.h * b.p.x, py = b.h * b.p.y, qx = b.h * b.q.x, qy = b.h * b.q.y;
    const Floats3 direction = unit(px, py);
    return RayLanes{
        {zero, zero, zero}, direction, unit(qx, py), unit(px, qy), reciprocal(direction)};
  });
}

inline void orthographicRays(const RayBatch& batch) {
  const Floats zero = constant(0.0f);
  const Floats3 ahead = {zero, zero, constant(-1.0f)};
  const Floats infinity = constant(std::numeric_limits<float>::infinity());
  generate(batch, [&](const Block& b) {
    return RayLanes{{b.h * b.p.x, b.h * b.p.y, zero},
                    ahead,
                    ahead,
                    ahead,
                    {infinity, infinity, constant(-1.0f)}};
  });
}

inline void cylindricalRays(const RayBatch& batch) {
  generate(batch, [](const Block& b) {
    Mask<kLanes> doubtful = constant(0.0f) < constant(0.0f);
    const SinCos phi = sinCos(longitude(b.p.x), doubtful),
                 phiX = sinCos(longitude(b.q.x), doubtful);
    const Floats x = narrowed(-phi.sin, doubtful), z = narrowed(phi.cos, doubtful);
    const Floats xX = narrowed(-phiX.sin, doubtful), zX = narrowed(phiX.cos, doubtful);
    const Floats y = b.h * clampToUnit(b.p.y), yY = b.h * clampToUnit(b.q.y);
    RoundLanes lanes = {{x, y, z}, {xX, y, zX}, {x, yY, z}};
    settle(doubtful, b, lanes, cylindricalDirections);
    return roundRays(lanes);
  });
}

inline void sphericalRays(const RayBatch& batch, float aspect) {
  const double k = 1.0 / static_cast<double>(aspect);
  generate(batch, [k](const Block& b) {
    Mask<kLanes> doubtful = constant(0.0f) < constant(0.0f);
    const SinCos phi = sinCos(longitude(b.p.x), doubtful),
                 phiX = sinCos(longitude(b.q.x), doubtful);
    const SinCos theta = sinCos(latitude(b.p.y, k), doubtful),
                 thetaY = sinCos(latitude(b.q.y, k), doubtful);
    const Floats x = narrowed(-phi.sin * theta.sin, doubtful),
                 z = narrowed(phi.cos * theta.sin, doubtful);
    const Floats xX = narrowed(-phiX.sin * thetaY.sin, doubtful),
                 zX = narrowed(phiX.cos * thetaY.sin, doubtful);
    const Floats y = narrowed(-theta.cos, doubtful), yY = narrowed(-thetaY.cos, doubtful);
    // The neighbours mix latitudes as in sphericalDirections in RayFormulas.h.
    RoundLanes lanes = {{x, y, z}, {xX, y, zX}, {x, yY, z}};
    settle(doubtful, b, lanes,
           [k](tarn::Vec2f p, tarn::Vec2f q, float) { return sphericalDirections(p, q, k); });
    return roundRays(lanes);
  });
}

}  // namespace TARN_LANES_SET
}  // namespace
}  // namespace vela::detail
