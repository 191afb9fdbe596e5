#include "vela/mesh/MeshNormals.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "ovo/Faces.h"
#include "tarn/Area.h"
#include "tarn/Convert.h"
#include "tarn/Lanes.h"
#include "tarn/Span.h"

namespace vela {

namespace {

using tarn::Vec2f;
using tarn::Vec3f;

// One pass without branches, so that the loops behind it need none: negative indices become huge
// unsigned ones.
bool allNamePoints(const int* indices, std::size_t count, std::size_t nPoints) {
  std::uint32_t largest = 0;
  for (std::size_t i = 0; i < count; ++i)
    largest = std::max(largest, static_cast<std::uint32_t>(indices[i]));
  return largest < nPoints && largest <= 0x7FFFFFFFu;
}

const Vec3f& at(const Vec3f* points, int index) { return points[static_cast<std::size_t>(index)]; }

Vec3f triangleNormal(const Vec3f* points, const int* f) {
  return tarn::areaVector(at(points, f[0]), at(points, f[1]), at(points, f[2]));
}

// The sum of normals and the number of faces of one point in one 16-byte record, so that a corner
// costs one vector load, addition and store, and one cache line.
struct alignas(16) Sum {
  float v[4] = {0, 0, 0, 0};
};

using tarn::baseline::FloatLanes;
using tarn::baseline::IntLanes;
using tarn::baseline::shuffle;

// A face's normal, and 1 for the counter.
using Term = FloatLanes<4>;

FloatLanes<4> load(const Vec3f* points, int index) {
  return tarn::baseline::loadThree(&points[static_cast<std::size_t>(index)].x);
}

// (b - a) x (d - c). The fourth lane is +0, into which the 1 is put by its bits.
Term termOf(const Vec3f* points, int a, int b, int c, int d) {
  const FloatLanes<4> u = load(points, b) - load(points, a), v = load(points, d) - load(points, c);
  const auto yzx = [](const FloatLanes<4>& w) { return shuffle<1, 2, 0, 3>(w, w); };
  const auto zxy = [](const FloatLanes<4>& w) { return shuffle<2, 0, 1, 3>(w, w); };
  const FloatLanes<4> normal = yzx(u) * zxy(v) - zxy(u) * yzx(v);
  return asFloats(asInts(normal) | asInts(tarn::baseline::quadOf(0.0f, 0.0f, 0.0f, 1.0f)));
}

void add(const Term& term, Sum& sum) { (FloatLanes<4>::loadAligned(sum.v) + term).store(sum.v); }

// Four indices at once: none is negative or above the last point.
bool allFourNamePoints(const int* f, std::uint32_t last) {
  const IntLanes<4> indices = IntLanes<4>::load(f);
  return signBits(indices | asInts(indices > IntLanes<4>::broadcast(static_cast<int>(last)))) == 0;
}

// The normals of four points, as twelve floats.
void finishFour(const Sum* sums, bool keepSign, float* normals) {
  const auto of = [](float f) { return FloatLanes<4>::broadcast(f); };
  FloatLanes<4> x = FloatLanes<4>::loadAligned(sums[0].v),
                y = FloatLanes<4>::loadAligned(sums[1].v),
                z = FloatLanes<4>::loadAligned(sums[2].v),
                count = FloatLanes<4>::loadAligned(sums[3].v);
  transpose(x, y, z, count);
  // Counters are 0, 1, 2 ...; a point of no face is divided by 1 and then cleared.
  const auto used = count > of(0.0f);
  count = max(count, of(1.0f));
  const FloatLanes<4> sign = of(keepSign ? 0.0f : -0.0f);
  x = flipSign(x, sign);
  y = flipSign(y, sign);
  z = flipSign(z, sign);
  // Most points of most meshes have 1, 2 or 4 faces. To divide by a power of two is to multiply by
  // its inverse, to the last bit.
  const IntLanes<4> bits = asInts(count);
  const IntLanes<4> fraction = bits & IntLanes<4>::broadcast(0x007FFFFF);
  if (all(fraction == IntLanes<4>::broadcast(0))) {
    const FloatLanes<4> inverse = asFloats(IntLanes<4>::broadcast(254 << 23) - bits);
    x = x * inverse;
    y = y * inverse;
    z = z * inverse;
  } else {
    x = x / count;
    y = y / count;
    z = z / count;
  }
  // A vector without length stays as it is: it is divided by 1.
  const FloatLanes<4> length = sqrt(x * x + y * y + z * z);
  const FloatLanes<4> divisor = select(length == of(0.0f), of(1.0f), length);
  storeThrees(keep(used, x / divisor), keep(used, y / divisor), keep(used, z / divisor), normals);
}

// Adds the normal of the face whose indices are at `f` to its points; a face with an index that
// names none is passed over.
inline void addTriangle(const Vec3f* points, const int* f, std::uint32_t last, Sum* sums) {
  if (!allNamePoints(f, 3, std::size_t{last} + 1)) return;
  const Term term = termOf(points, f[0], f[1], f[0], f[2]);
  for (std::size_t k = 0; k < 3; ++k) add(term, sums[static_cast<std::size_t>(f[k])]);
}
inline void addQuad(const Vec3f* points, const int* f, std::uint32_t last, Sum* sums) {
  if (!allFourNamePoints(f, last)) return;
  const Term term = termOf(points, f[1], f[3], f[2], f[0]);
  for (std::size_t k = 0; k < 4; ++k) add(term, sums[static_cast<std::size_t>(f[k])]);
}
void addPolygon(const Vec3f* points, const int* f, std::size_t n, std::uint32_t last, Sum* sums) {
  if (!allNamePoints(f, n, std::size_t{last} + 1)) return;
  const Term term = termOf(points, f[1], f[n - 1], f[2], f[0]);
  for (std::size_t k = 0; k < n; ++k) add(term, sums[static_cast<std::size_t>(f[k])]);
}

}  // namespace

bool calcPointNormals(std::size_t nPoints, const Vec3f* points, std::size_t nVerts,
                      const int* indices, std::size_t nFaces, const int* vertsPerFace,
                      bool allTriangles, bool allQuads, ovo::Array<Vec3f>& pointNormals,
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
    // The walk of ovo::Faces, but that it takes four quads at once.
    std::size_t cursor = 0;
    const IntLanes<4> four = IntLanes<4>::broadcast(4);
    for (std::size_t face = 0; face < nFaces && cursor < nVerts; ++face) {
      // Four quads in a row, as most meshes have them, are one question.
      while (nFaces - face > 4 && nVerts - cursor >= 16 &&
             all(IntLanes<4>::load(vertsPerFace + face) == four)) {
        for (std::size_t k = 0; k < 4; ++k) addQuad(points, indices + cursor + 4 * k, last, to);
        face += 4;
        cursor += 16;
      }
      if (cursor == nVerts) break;
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
  float* const out = &pointNormals.data()->x;
  std::size_t i = 0;
  for (; i + 4 <= nPoints; i += 4) finishFour(to + i, keepSign, out + 3 * i);
  if (i < nPoints) {
    Sum rest[4];
    float normals[12];
    std::copy(to + i, to + nPoints, rest);
    finishFour(rest, keepSign, normals);
    std::copy(normals, normals + 3 * (nPoints - i), out + 3 * i);
  }
  return true;
}

bool calcVertexNormals(std::size_t nPoints, const Vec3f* points, std::size_t nVerts,
                       const int* indices, std::size_t nFaces, const int* vertsPerFace,
                       float threshold, ovo::Array<Vec3f>& vertexNormals) {
  if (nPoints == 0 || nVerts == 0 || nFaces == 0 || points == nullptr || indices == nullptr ||
      vertsPerFace == nullptr)
    return false;
  vertexNormals.clear();
  vertexNormals.resize(nVerts);
  Vec3f* const out = vertexNormals.data();

  const bool checked = allNamePoints(indices, nVerts, nPoints);
  // KEEP(short-face-cursor): a face of fewer than three vertices leaves the cursor where it is, so
  // the faces after it read shifted indices. Normals that were computed of such meshes, and lie in
  // files beside their points, must come out the same. All other walks go through ovo::Faces.
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
  std::vector<Vec3f> entries(start.back());
  forEachFace([&](std::size_t first, std::size_t n) {
    const Vec3f normal = triangleNormal(points, indices + first);
    for (std::size_t k = 0; k < n; ++k)
      entries[start[static_cast<std::size_t>(indices[first + k]) + 1]++] = normal;
  });

  // Each corner sums those that pass. KEEP(weighted-threshold): the entries keep their length in
  // the test, so that a large neighbour passes more easily. Thresholds in use were chosen with that
  // in effect: normalising here would move every edge that they smooth.
  const float limit = 1.0f - std::clamp(std::fabs(threshold), 0.0f, 2.0f);
  forEachFace([&](std::size_t first, std::size_t n) {
    const Vec3f unit = triangleNormal(points, indices + first).normalized();
    for (std::size_t k = 0; k < n; ++k) {
      const auto point = static_cast<std::size_t>(indices[first + k]);
      Vec3f sum;
      for (std::size_t e = start[point]; e < start[point + 1]; ++e)
        if (dot(unit, entries[e]) >= limit) sum += entries[e];
      out[first + k] = sum != Vec3f() ? sum.normalized() : unit;
    }
  });
  return true;
}

Vec3f getPosFromImplicitUV(const MeshTopology& topology, int index, const Vec2f& uv) {
  const tarn::Span<const Vec3f> points = topology.points.view();
  const tarn::Span<const std::int32_t> indices = topology.faceVertPointIndices.view();
  if (index < 0 || static_cast<std::size_t>(index) >= topology.vertsPerFace.size()) return {};

  // Find the face, and see to it that all its corners are there.
  const ovo::Face face =
      ovo::Faces(topology.vertsPerFace, indices)[static_cast<std::size_t>(index)];
  const std::size_t n = face.size();
  if (n == 0 || !allNamePoints(face.data(), n, points.size())) return {};
  const auto corner = [&](std::size_t k) -> const Vec3f& { return points[face[k]]; };

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
  // behind the face, which is the next face's first. Positions that were stored by (face, u, v)
  // must come out where they were taken. Where there is no index, or it names no point, the border
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
  const auto first = static_cast<std::int64_t>(face.firstVertex());
  const auto readsAt = [&](std::int64_t c) {
    return c >= -first && c < static_cast<std::int64_t>(indices.size()) - first &&
           allNamePoints(&indices[first + c], 1, points.size());
  };
  const Vec3f a = readsAt(k) ? points[indices[first + k]] : corner(wrapped(k));
  const Vec3f b = corner(wrapped(k + 1));
  Vec3f mean;
  for (std::size_t i = 0; i < n; ++i) mean += corner(i);
  mean /= static_cast<float>(n);
  return ((1.0f - f) * a + f * b) * (1.0f - v) + mean * v;
}

}  // namespace vela
