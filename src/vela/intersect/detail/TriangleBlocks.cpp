#include "vela/intersect/detail/TriangleBlocks.h"

#include "vela/intersect/detail/Kernels.h"

#if (defined(__x86_64__) || defined(__i386__)) && defined(__GNUC__)
#define VELA_HAVE_AVX_BLOCKS 1
#include <immintrin.h>
#endif

namespace vela::detail {

// What both kernels rest on: a distance that counts lies strictly inside the range, which implies
// the wider range of the single test, so that one is left out.

bool testTriangleBlocksPlain(const TriangleBlock* first, const TriangleBlock* last,
                             const tarn::Ray<float>& ray, bool nearest, float& best,
                             BlockHit& hit) {
  bool found = false;
  const float dx = ray.direction.x, dy = ray.direction.y, dz = ray.direction.z;
  for (const TriangleBlock* block = first; block != last; ++block) {
    for (std::size_t i = 0; i < 8; ++i) {
      const float e1x = block->e1x[i], e1y = block->e1y[i], e1z = block->e1z[i];
      const float e2x = block->e2x[i], e2y = block->e2y[i], e2z = block->e2z[i];
      const float px = dy * e2z - dz * e2y, py = dz * e2x - dx * e2z, pz = dx * e2y - dy * e2x;
      const float det = e1x * px + e1y * py + e1z * pz;
      if (-1e-10f < det && det < 1e-10f) continue;
      const float inv = 1.0f / det;
      const float sx = ray.origin.x - block->ax[i], sy = ray.origin.y - block->ay[i],
                  sz = ray.origin.z - block->az[i];
      const float u = (sx * px + sy * py + sz * pz) * inv;
      if (u < 0.0f || u > 1.0f) continue;
      const float qx = sy * e1z - sz * e1y, qy = sz * e1x - sx * e1z, qz = sx * e1y - sy * e1x;
      const float v = (dx * qx + dy * qy + dz * qz) * inv;
      if (v < 0.0f || u + v > 1.0f) continue;
      const float t = (e2x * qx + e2y * qy + e2z * qz) * inv;
      if (!(best > t && t > ray.minDistance)) continue;
      found = true;
      best = t;
      hit = {block, i};
      if (!nearest) return true;
    }
  }
  return found;
}

#if defined(VELA_HAVE_AVX_BLOCKS)
namespace {

// By attribute, not by a flag for the file: inline functions of headers must keep running on every
// processor. FMA is not asked for: it would round differently.
__attribute__((target("avx"))) bool testTriangleBlocksAvx(const TriangleBlock* first,
                                                          const TriangleBlock* last,
                                                          const tarn::Ray<float>& ray, bool nearest,
                                                          float& best, BlockHit& hit) {
  const __m256 ox = _mm256_set1_ps(ray.origin.x), oy = _mm256_set1_ps(ray.origin.y),
               oz = _mm256_set1_ps(ray.origin.z);
  const __m256 dx = _mm256_set1_ps(ray.direction.x), dy = _mm256_set1_ps(ray.direction.y),
               dz = _mm256_set1_ps(ray.direction.z);
  const __m256 tMin = _mm256_set1_ps(ray.minDistance);
  const __m256 zero = _mm256_setzero_ps(), one = _mm256_set1_ps(1.0f),
               signBit = _mm256_set1_ps(-0.0f);
  const __m256 small = _mm256_set1_ps(1e-10f), minusSmall = _mm256_set1_ps(-1e-10f);
  const __m256 slightlyOver = _mm256_set1_ps(1.000002f), slightlyUnder = _mm256_set1_ps(-1e-30f);
  __m256 tBest = _mm256_set1_ps(best);
  bool found = false;

  for (const TriangleBlock* block = first; block != last; ++block) {
    const __m256 e1x = _mm256_load_ps(block->e1x), e1y = _mm256_load_ps(block->e1y),
                 e1z = _mm256_load_ps(block->e1z);
    const __m256 e2x = _mm256_load_ps(block->e2x), e2y = _mm256_load_ps(block->e2y),
                 e2z = _mm256_load_ps(block->e2z);
    const __m256 px = _mm256_sub_ps(_mm256_mul_ps(dy, e2z), _mm256_mul_ps(dz, e2y));
    const __m256 py = _mm256_sub_ps(_mm256_mul_ps(dz, e2x), _mm256_mul_ps(dx, e2z));
    const __m256 pz = _mm256_sub_ps(_mm256_mul_ps(dx, e2y), _mm256_mul_ps(dy, e2x));
    const __m256 det = _mm256_add_ps(_mm256_add_ps(_mm256_mul_ps(e1x, px), _mm256_mul_ps(e1y, py)),
                                     _mm256_mul_ps(e1z, pz));
    const __m256 sx = _mm256_sub_ps(ox, _mm256_load_ps(block->ax));
    const __m256 sy = _mm256_sub_ps(oy, _mm256_load_ps(block->ay));
    const __m256 sz = _mm256_sub_ps(oz, _mm256_load_ps(block->az));
    const __m256 uDet = _mm256_add_ps(_mm256_add_ps(_mm256_mul_ps(sx, px), _mm256_mul_ps(sy, py)),
                                      _mm256_mul_ps(sz, pz));
    const __m256 qx = _mm256_sub_ps(_mm256_mul_ps(sy, e1z), _mm256_mul_ps(sz, e1y));
    const __m256 qy = _mm256_sub_ps(_mm256_mul_ps(sz, e1x), _mm256_mul_ps(sx, e1z));
    const __m256 qz = _mm256_sub_ps(_mm256_mul_ps(sx, e1y), _mm256_mul_ps(sy, e1x));
    const __m256 vDet = _mm256_add_ps(_mm256_add_ps(_mm256_mul_ps(dx, qx), _mm256_mul_ps(dy, qy)),
                                      _mm256_mul_ps(dz, qz));

    // Lanes that fail for certain, before any division: u and v are these numerators over det but
    // for a few roundings (under 6e-7 together), so what is 2e-6 past an end stays past it. Ordered
    // comparisons: a NaN drops nothing, and v alone has no upper end, since the single test lets an
    // infinite v pass beside a u that is no number.
    const __m256 sign = _mm256_and_ps(det, signBit), absDet = _mm256_andnot_ps(signBit, det);
    const __m256 uAbs = _mm256_xor_ps(uDet, sign), vAbs = _mm256_xor_ps(vDet, sign);
    const __m256 over = _mm256_mul_ps(absDet, slightlyOver),
                 under = _mm256_mul_ps(absDet, slightlyUnder);
    __m256 reject = _mm256_and_ps(_mm256_cmp_ps(minusSmall, det, _CMP_LT_OQ),
                                  _mm256_cmp_ps(det, small, _CMP_LT_OQ));
    reject = _mm256_or_ps(reject, _mm256_or_ps(_mm256_cmp_ps(uAbs, under, _CMP_LT_OQ),
                                               _mm256_cmp_ps(vAbs, under, _CMP_LT_OQ)));
    reject = _mm256_or_ps(reject, _mm256_cmp_ps(_mm256_add_ps(uAbs, vAbs), over, _CMP_GT_OQ));
    reject = _mm256_or_ps(reject, _mm256_cmp_ps(uAbs, over, _CMP_GT_OQ));
    if (_mm256_movemask_ps(reject) == 0xFF) continue;

    // The test itself.
    const __m256 inv = _mm256_div_ps(one, det);
    const __m256 u = _mm256_mul_ps(uDet, inv), v = _mm256_mul_ps(vDet, inv);
    reject = _mm256_or_ps(reject, _mm256_or_ps(_mm256_cmp_ps(u, zero, _CMP_LT_OQ),
                                               _mm256_cmp_ps(u, one, _CMP_GT_OQ)));
    reject =
        _mm256_or_ps(reject, _mm256_or_ps(_mm256_cmp_ps(v, zero, _CMP_LT_OQ),
                                          _mm256_cmp_ps(_mm256_add_ps(u, v), one, _CMP_GT_OQ)));
    const __m256 t =
        _mm256_mul_ps(_mm256_add_ps(_mm256_add_ps(_mm256_mul_ps(e2x, qx), _mm256_mul_ps(e2y, qy)),
                                    _mm256_mul_ps(e2z, qz)),
                      inv);
    const __m256 inRange =
        _mm256_and_ps(_mm256_cmp_ps(tBest, t, _CMP_GT_OQ), _mm256_cmp_ps(t, tMin, _CMP_GT_OQ));
    unsigned accepted =
        static_cast<unsigned>(_mm256_movemask_ps(_mm256_andnot_ps(reject, inRange)));
    if (accepted == 0) continue;

    // The least distance, the first lane on ties; or the first lane.
    alignas(32) float distances[8];
    _mm256_store_ps(distances, t);
    found = true;
    bool isFirst = true;
    for (; accepted != 0; accepted &= accepted - 1) {
      const unsigned lane = static_cast<unsigned>(__builtin_ctz(accepted));
      if (!isFirst && !(distances[lane] < best)) continue;
      isFirst = false;
      best = distances[lane];
      hit = {block, lane};
      if (!nearest) return true;
    }
    tBest = _mm256_set1_ps(best);
  }
  return found;
}

}  // namespace
#endif

TestTriangleBlocks bestTriangleBlockTest() {
#if defined(VELA_HAVE_AVX_BLOCKS)
  if (__builtin_cpu_supports("avx")) return testTriangleBlocksAvx;
#endif
  return testTriangleBlocksPlain;
}

}  // namespace vela::detail
