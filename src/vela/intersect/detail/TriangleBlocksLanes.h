/// \file
/// The test of triangle blocks, the eight triangles of a block at once; TriangleBlocks.cpp includes
/// this once for each instruction set.
///
/// A distance that counts lies strictly inside the range, which implies the wider range of the
/// single test, so that one is left out.

// No include guard: included once for each instruction set.

namespace vela::detail {
namespace {
namespace TARN_LANES_SET {

inline bool testTriangleBlocks(const TriangleBlock* first, const TriangleBlock* last,
                               const tarn::Ray3f& ray, bool nearest, float& best, BlockHit& hit) {
  using namespace tarn::TARN_LANES_SET;
  using Lanes = FloatLanes<8>;
  const auto of = [](float f) { return Lanes::broadcast(f); };
  const Lanes ox = of(ray.origin.x), oy = of(ray.origin.y), oz = of(ray.origin.z);
  const Lanes dx = of(ray.direction.x), dy = of(ray.direction.y), dz = of(ray.direction.z);
  const Lanes tMin = of(ray.minDistance), zero = of(0.0f), one = of(1.0f);
  Lanes tBest = of(best);
  bool found = false;

  for (const TriangleBlock* block = first; block != last; ++block) {
    const Lanes e1x = Lanes::loadAligned(block->e1x), e1y = Lanes::loadAligned(block->e1y),
                e1z = Lanes::loadAligned(block->e1z);
    const Lanes e2x = Lanes::loadAligned(block->e2x), e2y = Lanes::loadAligned(block->e2y),
                e2z = Lanes::loadAligned(block->e2z);
    const Lanes px = dy * e2z - dz * e2y, py = dz * e2x - dx * e2z, pz = dx * e2y - dy * e2x;
    const Lanes det = e1x * px + e1y * py + e1z * pz;
    const Lanes sx = ox - Lanes::loadAligned(block->ax), sy = oy - Lanes::loadAligned(block->ay),
                sz = oz - Lanes::loadAligned(block->az);
    const Lanes uDet = sx * px + sy * py + sz * pz;
    const Lanes qx = sy * e1z - sz * e1y, qy = sz * e1x - sx * e1z, qz = sx * e1y - sy * e1x;
    const Lanes vDet = dx * qx + dy * qy + dz * qz;

    // Lanes that fail for certain, before any division: u and v are these numerators over det but
    // for a few roundings (under 6e-7 together), so what is 2e-6 past an end stays past it. Ordered
    // comparisons: a NaN drops nothing, and v alone has no upper end, since the single test lets an
    // infinite v pass beside a u that is NaN.
    const Lanes absDet = abs(det), uAbs = flipSign(uDet, det), vAbs = flipSign(vDet, det);
    const Lanes over = absDet * of(1.000002f), under = absDet * of(-1e-30f);
    Mask<8> reject = (of(-1e-10f) < det) & (det < of(1e-10f));
    reject = reject | (uAbs < under) | (vAbs < under) | (uAbs + vAbs > over) | (uAbs > over);
    if (all(reject)) continue;

    // The test itself.
    const Lanes inverse = one / det;
    const Lanes u = uDet * inverse, v = vDet * inverse;
    reject = reject | (u < zero) | (u > one) | (v < zero) | (u + v > one);
    const Lanes t = (e2x * qx + e2y * qy + e2z * qz) * inverse;
    unsigned accepted = bits(andNot((tBest > t) & (t > tMin), reject));
    if (accepted == 0) continue;

    // The least distance, the first lane on ties; or the first lane.
    float distances[8];
    t.store(distances);
    found = true;
    bool isFirst = true;
    for (; accepted != 0; accepted &= accepted - 1) {
      const auto lane = static_cast<unsigned>(__builtin_ctz(accepted));
      if (!isFirst && !(distances[lane] < best)) continue;
      isFirst = false;
      best = distances[lane];
      hit = {block, lane};
      if (!nearest) return true;
    }
    tBest = of(best);
  }
  return found;
}

}  // namespace TARN_LANES_SET
}  // namespace
}  // namespace vela::detail
