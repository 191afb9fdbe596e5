#include "vela/mesh/MeshNormals.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "tarn/Convert.h"

namespace vela {

namespace {

using tarn::Vec2;
using tarn::Vec3;

// One pass without branches, so that the loops behind it need none: negative numbers become huge
// unsigned ones.
bool allNamePoints(const int* indices, std::size_t count, std::size_t nPoints) {
  std::uint32_t largest = 0;
  for (std::size_t i = 0; i < count; ++i)
    largest = std::max(largest, static_cast<std::uint32_t>(indices[i]));
  return largest < nPoints && largest <= 0x7FFFFFFFu;
}

const Vec3<float>& at(const Vec3<float>* points, int index) {
  return points[static_cast<std::size_t>(index)];
}

Vec3<float> triangleNormal(const Vec3<float>* points, const int* f) {
  const Vec3<float>& p0 = at(points, f[0]);
  return cross(at(points, f[1]) - p0, at(points, f[2]) - p0);
}

// The sum of normals and the number of faces of one point in one 16-byte record, so that a corner
// costs one vector load, addition and store, and one cache line.
struct alignas(16) Sum {
  float v[4] = {0, 0, 0, 0};
};

// What is done to all sums, in two forms: four lanes at a time, and plainly where the instructions
// for that are not part of every processor. Lanes round as scalars do, so that both give the same
// bits.
#if defined(__SSE2__)

using Term = __m128;  // a normal, and 1 for the counter

__m128 load(const Vec3<float>* points, int index) {
  const float* p = &points[static_cast<std::size_t>(index)].x;
  return _mm_movelh_ps(_mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))),
                       _mm_load_ss(p + 2));
}

// (b - a) x (d - c). The fourth lane is +0, into which the 1 is put by its bits.
Term termOf(const Vec3<float>* points, int a, int b, int c, int d) {
  const __m128 u = _mm_sub_ps(load(points, b), load(points, a)),
               v = _mm_sub_ps(load(points, d), load(points, c));
  const __m128 uyzx = _mm_shuffle_ps(u, u, _MM_SHUFFLE(3, 0, 2, 1)),
               uzxy = _mm_shuffle_ps(u, u, _MM_SHUFFLE(3, 1, 0, 2));
  const __m128 vyzx = _mm_shuffle_ps(v, v, _MM_SHUFFLE(3, 0, 2, 1)),
               vzxy = _mm_shuffle_ps(v, v, _MM_SHUFFLE(3, 1, 0, 2));
  return _mm_or_ps(_mm_sub_ps(_mm_mul_ps(uyzx, vzxy), _mm_mul_ps(uzxy, vyzx)),
                   _mm_set_ps(1.0f, 0.0f, 0.0f, 0.0f));
}

void add(const Term& term, Sum& sum) { _mm_store_ps(sum.v, _mm_add_ps(_mm_load_ps(sum.v), term)); }

// Four indices at once: none is negative or above the last point.
bool allFourNamePoints(const int* f, std::uint32_t last) {
  const __m128i indices = _mm_loadu_si128(reinterpret_cast<const __m128i*>(f));
  const __m128i bad = _mm_or_si128(_mm_cmpgt_epi32(indices, _mm_set1_epi32(static_cast<int>(last))),
                                   _mm_srai_epi32(indices, 31));
  return _mm_movemask_epi8(bad) == 0;
}

// The normals of four points: lanes are points, three registers their coordinates, and then twelve
// floats in a row.
void finishFour(const Sum* sums, bool keepSign, Vec3<float>* normals) {
  __m128 x = _mm_load_ps(sums[0].v), y = _mm_load_ps(sums[1].v), z = _mm_load_ps(sums[2].v),
         count = _mm_load_ps(sums[3].v);
  _MM_TRANSPOSE4_PS(x, y, z, count);
  // Counters are 0, 1, 2 ...; a point of no face is divided by 1 and then cleared.
  const __m128 used = _mm_cmpgt_ps(count, _mm_setzero_ps());
  count = _mm_max_ps(count, _mm_set1_ps(1.0f));
  const __m128 sign = _mm_set1_ps(keepSign ? 0.0f : -0.0f);
  x = _mm_xor_ps(x, sign);
  y = _mm_xor_ps(y, sign);
  z = _mm_xor_ps(z, sign);
  // Most points of most meshes have 1, 2 or 4 faces. To divide by a power of two is to multiply by
  // its inverse, to the last bit.
  const __m128i bits = _mm_castps_si128(count);
  const __m128i fraction = _mm_and_si128(bits, _mm_set1_epi32(0x007FFFFF));
  if (_mm_movemask_epi8(_mm_cmpeq_epi32(fraction, _mm_setzero_si128())) == 0xFFFF) {
    const __m128 inverse = _mm_castsi128_ps(_mm_sub_epi32(_mm_set1_epi32(254 << 23), bits));
    x = _mm_mul_ps(x, inverse);
    y = _mm_mul_ps(y, inverse);
    z = _mm_mul_ps(z, inverse);
  } else {
    x = _mm_div_ps(x, count);
    y = _mm_div_ps(y, count);
    z = _mm_div_ps(z, count);
  }
  // A vector without length stays as it is: it is divided by 1.
  const __m128 length =
      _mm_sqrt_ps(_mm_add_ps(_mm_add_ps(_mm_mul_ps(x, x), _mm_mul_ps(y, y)), _mm_mul_ps(z, z)));
  const __m128 isZero = _mm_cmpeq_ps(length, _mm_setzero_ps());
  const __m128 divisor =
      _mm_or_ps(_mm_andnot_ps(isZero, length), _mm_and_ps(isZero, _mm_set1_ps(1.0f)));
  x = _mm_and_ps(_mm_div_ps(x, divisor), used);
  y = _mm_and_ps(_mm_div_ps(y, divisor), used);
  z = _mm_and_ps(_mm_div_ps(z, divisor), used);

  const __m128 xy01 = _mm_unpacklo_ps(x, y), xy23 = _mm_unpackhi_ps(x, y);
  const __m128 zx01 = _mm_shuffle_ps(z, x, _MM_SHUFFLE(1, 1, 0, 0)),
               yz1 = _mm_shuffle_ps(y, z, _MM_SHUFFLE(1, 1, 1, 1));
  const __m128 zx23 = _mm_shuffle_ps(z, x, _MM_SHUFFLE(3, 3, 2, 2)),
               yz3 = _mm_shuffle_ps(y, z, _MM_SHUFFLE(3, 3, 3, 3));
  float* out = &normals[0].x;
  _mm_storeu_ps(out, _mm_shuffle_ps(xy01, zx01, _MM_SHUFFLE(2, 0, 1, 0)));
  _mm_storeu_ps(out + 4, _mm_shuffle_ps(yz1, xy23, _MM_SHUFFLE(1, 0, 2, 0)));
  _mm_storeu_ps(out + 8, _mm_shuffle_ps(zx23, yz3, _MM_SHUFFLE(2, 0, 2, 0)));
}

constexpr std::size_t kAtOnce = 4;

#else

using Term = Sum;

Term termOf(const Vec3<float>* points, int a, int b, int c, int d) {
  const Vec3<float> normal = cross(at(points, b) - at(points, a), at(points, d) - at(points, c));
  return {{normal.x, normal.y, normal.z, 1.0f}};
}

void add(const Term& term, Sum& sum) {
  for (std::size_t i = 0; i < 4; ++i) sum.v[i] += term.v[i];
}

bool allFourNamePoints(const int* f, std::uint32_t last) {
  return allNamePoints(f, 4, std::size_t{last} + 1);
}

void finishFour(const Sum*, bool, Vec3<float>*) {}
constexpr std::size_t kAtOnce = 0;

#endif

// Adds the normal of the face whose indices are at `f` to its points; a face with an index that
// names none is passed over.
void addTriangle(const Vec3<float>* points, const int* f, std::uint32_t last, Sum* sums) {
  if (!allNamePoints(f, 3, std::size_t{last} + 1)) return;
  const Term term = termOf(points, f[0], f[1], f[0], f[2]);
  for (std::size_t k = 0; k < 3; ++k) add(term, sums[static_cast<std::size_t>(f[k])]);
}
void addQuad(const Vec3<float>* points, const int* f, std::uint32_t last, Sum* sums) {
  if (!allFourNamePoints(f, last)) return;
  const Term term = termOf(points, f[1], f[3], f[2], f[0]);
  for (std::size_t k = 0; k < 4; ++k) add(term, sums[static_cast<std::size_t>(f[k])]);
}
void addPolygon(const Vec3<float>* points, const int* f, std::size_t n, std::uint32_t last,
                Sum* sums) {
  if (!allNamePoints(f, n, std::size_t{last} + 1)) return;
  const Term term = termOf(points, f[1], f[n - 1], f[2], f[0]);
  for (std::size_t k = 0; k < n; ++k) add(term, sums[static_cast<std::size_t>(f[k])]);
}

void finishOne(const Sum& from, bool keepSign, Vec3<float>& normal) {
  const float count = from.v[3];
  normal = Vec3<float>();
  if (!(count > 0)) return;
  Vec3<float> sum(from.v[0], from.v[1], from.v[2]);
  if (!keepSign) sum = -sum;
  normal = (sum / count).normalized();
}

}  // namespace

bool calcPointNormals(std::size_t nPoints, const Vec3<float>* points, std::size_t nVerts,
                      const int* indices, std::size_t nFaces, const int* vertsPerFace,
                      bool allTriangles, bool allQuads, ovo::Array<Vec3<float>>& pointNormals,
                      bool keepSign) {
  if (nPoints == 0 || nVerts == 0 || nFaces == 0 || points == nullptr || indices == nullptr)
    return false;
  // Every normal is written below, so that room which is there already need not be cleared first.
  const bool triangles = allTriangles && nVerts % 3 == 0 && nVerts / 3 == nFaces;
  const bool quads = !triangles && allQuads && nVerts % 4 == 0 && nVerts / 4 == nFaces;
  const bool canSum = triangles || quads || vertsPerFace != nullptr;
  if (pointNormals.size() < nPoints || !canSum) pointNormals.clear();
  pointNormals.resize(nPoints);
  if (!canSum) return false;

  // Sum the faces' normals. Every face's indices are looked at as it is read: a pass of its own
  // would read them all twice.
  const auto last = static_cast<std::uint32_t>(std::min<std::size_t>(nPoints - 1, 0x7FFFFFFF));
  std::vector<Sum> sums(nPoints);
  Sum* const to = sums.data();
  if (triangles) {
    for (std::size_t face = 0; face < nFaces; ++face)
      addTriangle(points, indices + 3 * face, last, to);
  } else if (quads) {
    for (std::size_t face = 0; face < nFaces; ++face) addQuad(points, indices + 4 * face, last, to);
  } else {
    std::size_t cursor = 0;
    for (std::size_t face = 0; face < nFaces && cursor < nVerts; ++face) {
      if (vertsPerFace[face] <= 0) continue;
      const auto n = static_cast<std::size_t>(vertsPerFace[face]);
      if (n > nVerts - cursor) break;  // cut off, and so is every later face with vertices
      const int* f = indices + cursor;
      if (n == 4)
        addQuad(points, f, last, to);
      else if (n == 3)
        addTriangle(points, f, last, to);
      else if (n > 4)
        addPolygon(points, f, n, last, to);
      cursor += n;
    }
  }

  // Average and normalise.
  Vec3<float>* const out = pointNormals.data();
  std::size_t i = 0;
  if constexpr (kAtOnce > 0)
    for (; i + kAtOnce <= nPoints; i += kAtOnce) finishFour(to + i, keepSign, out + i);
  for (; i < nPoints; ++i) finishOne(to[i], keepSign, out[i]);
  return true;
}

bool calcVertexNormals(std::size_t nPoints, const Vec3<float>* points, std::size_t nVerts,
                       const int* indices, std::size_t nFaces, const int* vertsPerFace,
                       float threshold, ovo::Array<Vec3<float>>& vertexNormals) {
  if (nPoints == 0 || nVerts == 0 || nFaces == 0 || points == nullptr || indices == nullptr ||
      vertsPerFace == nullptr)
    return false;
  vertexNormals.clear();
  vertexNormals.resize(nVerts);
  Vec3<float>* const out = vertexNormals.data();

  const bool checked = allNamePoints(indices, nVerts, nPoints);
  // KEEP(short-face-cursor): a face of fewer than three vertices leaves the cursor where it is, so
  // the faces after it read shifted indices; callers rely on this function's answer for such
  // meshes.
  const auto forEachFace = [&](auto&& use) {
    std::size_t cursor = 0;
    for (std::size_t face = 0; face < nFaces && cursor < nVerts; ++face) {
      if (vertsPerFace[face] < 3) continue;
      const auto n = static_cast<std::size_t>(vertsPerFace[face]);
      if (n > nVerts - cursor) break;
      if (checked || allNamePoints(indices + cursor, n, nPoints)) use(cursor, n);
      cursor += n;
    }
  };

  // The normals around each point, one entry for each time a face visits it, in the order of the
  // faces: point p's are entries[start[p]] up to entries[start[p + 1]].
  std::vector<std::size_t> start(nPoints + 2, 0);
  forEachFace([&](std::size_t first, std::size_t n) {
    for (std::size_t k = 0; k < n; ++k) ++start[static_cast<std::size_t>(indices[first + k]) + 2];
  });
  for (std::size_t p = 2; p < start.size(); ++p) start[p] += start[p - 1];
  std::vector<Vec3<float>> entries(start.back());
  forEachFace([&](std::size_t first, std::size_t n) {
    const Vec3<float> normal = triangleNormal(points, indices + first);
    for (std::size_t k = 0; k < n; ++k)
      entries[start[static_cast<std::size_t>(indices[first + k]) + 1]++] = normal;
  });

  // Each corner sums those that pass. KEEP(weighted-threshold): the entries keep their length in
  // the test, so that a large neighbour passes more easily.
  const float limit = 1.0f - std::clamp(std::fabs(threshold), 0.0f, 2.0f);
  forEachFace([&](std::size_t first, std::size_t n) {
    const Vec3<float> unit = triangleNormal(points, indices + first).normalized();
    for (std::size_t k = 0; k < n; ++k) {
      const auto point = static_cast<std::size_t>(indices[first + k]);
      Vec3<float> sum;
      for (std::size_t e = start[point]; e < start[point + 1]; ++e)
        if (dot(unit, entries[e]) >= limit) sum += entries[e];
      out[first + k] = sum != Vec3<float>() ? sum.normalized() : unit;
    }
  });
  return true;
}

Vec3<float> getPosFromImplicitUV(const MeshTopology& topology, int face, const Vec2<float>& uv) {
  const ovo::Array<std::int32_t>& counts = topology.vertsPerFace;
  const ovo::Array<std::int32_t>& indices = topology.faceVertPointIndices;
  if (face < 0 || static_cast<std::size_t>(face) >= counts.size()) return {};

  // Find the face, and see to it that all its corners are there.
  std::size_t first = 0;
  for (std::size_t f = 0; f < static_cast<std::size_t>(face); ++f)
    if (counts[f] > 0) first += static_cast<std::size_t>(counts[f]);
  if (counts[static_cast<std::size_t>(face)] <= 0) return {};
  const auto n = static_cast<std::size_t>(counts[static_cast<std::size_t>(face)]);
  if (first > indices.size() || n > indices.size() - first) return {};
  const std::size_t nPoints = topology.points.size();
  if (!allNamePoints(indices.cdata() + first, n, nPoints)) return {};
  const auto corner = [&](std::size_t k) -> const Vec3<float>& {
    return at(topology.points.cdata(), indices[first + k]);
  };

  float u = uv.x, v = uv.y;
  switch (n) {
    case 1: return corner(0);
    case 2: return (1.0f - u) * corner(0) + u * corner(1);
    case 3: {
      if (u + v > 1.0f) {
        u = 1.0f - u;
        v = 1.0f - v;
      }
      const float w = 1.0f - u - v;
      return w * corner(0) + u * corner(1) + v * corner(2);
    }
    case 4:
      return (1.0f - u) * (1.0f - v) * corner(0) + u * (1.0f - v) * corner(1) + u * v * corner(2) +
             (1.0f - u) * v * corner(3);
    default: break;
  }

  // KEEP(unwrapped-corner): the corner at floor(n u) is not wrapped, so u = 1 reads the index
  // behind the face; callers rely on it. Where there is no index, or it names no point, the border
  // closes instead.
  const float x = static_cast<float>(n) * u;
  const float floored = std::floor(x);
  const float f = x - floored;
  const auto faceSize = static_cast<std::int64_t>(n);
  const std::int64_t k = std::clamp<std::int64_t>(tarn::truncToInt64(floored), -0x7FFFFFFFFFFFFFFF,
                                                  0x7FFFFFFFFFFFFFF0);
  const auto wrapped = [&](std::int64_t c) {
    return static_cast<std::size_t>((c % faceSize + faceSize) % faceSize);
  };
  const auto readsAt = [&](std::int64_t c) {
    const auto size = static_cast<std::int64_t>(indices.size()),
               start = static_cast<std::int64_t>(first);
    return c >= -start && c < size - start &&
           allNamePoints(indices.cdata() + (start + c), 1, nPoints);
  };
  const Vec3<float> a = readsAt(k) ? at(topology.points.cdata(),
                                        indices.cdata()[static_cast<std::int64_t>(first) + k])
                                   : corner(wrapped(k));
  const Vec3<float> b = corner(wrapped(k + 1));
  Vec3<float> mean;
  for (std::size_t i = 0; i < n; ++i) mean += corner(i);
  mean /= static_cast<float>(n);
  return ((1.0f - f) * a + f * b) * (1.0f - v) + mean * v;
}

}  // namespace vela
