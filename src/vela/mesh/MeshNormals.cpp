#include "vela/mesh/MeshNormals.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "tarn/Convert.h"

namespace vela {

namespace {

using tarn::Vec2;
using tarn::Vec3;

// One pass without branches, so that the loops behind it need none: negative numbers become huge unsigned ones.
bool allNamePoints(const int* indices, std::size_t count, std::size_t nPoints) {
  std::uint32_t largest = 0;
  for (std::size_t i = 0; i < count; ++i) largest = std::max(largest, static_cast<std::uint32_t>(indices[i]));
  return largest < nPoints && largest <= 0x7FFFFFFFu;
}

const Vec3<float>& at(const Vec3<float>* points, int index) { return points[static_cast<std::size_t>(index)]; }

// The three rules for the face whose indices are at `f`.
Vec3<float> triangleNormal(const Vec3<float>* points, const int* f) {
  const Vec3<float>& p0 = at(points, f[0]);
  return cross(at(points, f[1]) - p0, at(points, f[2]) - p0);
}
Vec3<float> diagonalNormal(const Vec3<float>* points, const int* f, std::size_t n) {
  return cross(at(points, f[n - 1]) - at(points, f[1]), at(points, f[0]) - at(points, f[2]));
}

// The sum of normals and the number of faces of one point in one 16-byte record, so that a corner costs one vector load,
// addition and store, and one cache line.
struct alignas(16) Sum {
  float v[4] = {0, 0, 0, 0};
};

void addToCorners(const Vec3<float>& normal, const int* f, std::size_t n, Sum* sums) {
  const Sum term{{normal.x, normal.y, normal.z, 1.0f}};
  for (std::size_t k = 0; k < n; ++k) {
    Sum& sum = sums[static_cast<std::size_t>(f[k])];
    for (std::size_t i = 0; i < 4; ++i) sum.v[i] += term.v[i];
  }
}

void addFace(const Vec3<float>* points, const int* f, std::size_t n, Sum* sums) {
  addToCorners(n == 3 ? triangleNormal(points, f) : diagonalNormal(points, f, n), f, n, sums);
}

template <std::size_t N>
void addFacesOf(const Vec3<float>* points, std::size_t nPoints, const int* indices, std::size_t nFaces, bool checked,
                Sum* sums) {
  if (checked) {
    for (std::size_t face = 0; face < nFaces; ++face) addFace(points, indices + face * N, N, sums);
    return;
  }
  for (std::size_t face = 0; face < nFaces; ++face)
    if (allNamePoints(indices + face * N, N, nPoints)) addFace(points, indices + face * N, N, sums);
}

}  // namespace

bool calcPointNormals(std::size_t nPoints, const Vec3<float>* points, std::size_t nVerts, const int* indices,
                      std::size_t nFaces, const int* vertsPerFace, bool allTriangles, bool allQuads,
                      ovo::Array<Vec3<float>>& pointNormals, bool keepSign) {
  if (nPoints == 0 || nVerts == 0 || nFaces == 0 || points == nullptr || indices == nullptr) return false;
  pointNormals.clear();
  pointNormals.resize(nPoints);

  // Sum the faces' normals. Indices are checked once; only where one of them is bad does each face look again.
  const bool triangles = allTriangles && nVerts % 3 == 0 && nVerts / 3 == nFaces;
  const bool quads = !triangles && allQuads && nVerts % 4 == 0 && nVerts / 4 == nFaces;
  if (!triangles && !quads && vertsPerFace == nullptr) return false;
  const bool checked = allNamePoints(indices, nVerts, nPoints);
  std::vector<Sum> sums(nPoints);
  if (triangles) {
    addFacesOf<3>(points, nPoints, indices, nFaces, checked, sums.data());
  } else if (quads) {
    addFacesOf<4>(points, nPoints, indices, nFaces, checked, sums.data());
  } else {
    std::size_t cursor = 0;
    for (std::size_t face = 0; face < nFaces && cursor < nVerts; ++face) {
      if (vertsPerFace[face] <= 0) continue;
      const auto n = static_cast<std::size_t>(vertsPerFace[face]);
      if (n > nVerts - cursor) break;  // cut off, and so is every later face with vertices
      if (n >= 3 && (checked || allNamePoints(indices + cursor, n, nPoints)))
        addFace(points, indices + cursor, n, sums.data());
      cursor += n;
    }
  }

  // Average and normalise.
  Vec3<float>* const out = pointNormals.data();
  for (std::size_t i = 0; i < nPoints; ++i) {
    const float count = sums[i].v[3];
    if (!(count > 0)) continue;
    Vec3<float> sum(sums[i].v[0], sums[i].v[1], sums[i].v[2]);
    if (!keepSign) sum = -sum;
    out[i] = (sum / count).normalized();
  }
  return true;
}

bool calcVertexNormals(std::size_t nPoints, const Vec3<float>* points, std::size_t nVerts, const int* indices,
                       std::size_t nFaces, const int* vertsPerFace, float threshold,
                       ovo::Array<Vec3<float>>& vertexNormals) {
  if (nPoints == 0 || nVerts == 0 || nFaces == 0 || points == nullptr || indices == nullptr || vertsPerFace == nullptr)
    return false;
  vertexNormals.clear();
  vertexNormals.resize(nVerts);
  Vec3<float>* const out = vertexNormals.data();

  const bool checked = allNamePoints(indices, nVerts, nPoints);
  // KEEP(short-face-cursor): a face of fewer than three vertices leaves the cursor where it is, so the faces after it read
  // shifted indices; callers rely on this function's answer for such meshes.
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

  // The normals around each point, one entry for each time a face visits it, in the order of the faces: point p's are
  // entries[start[p]] up to entries[start[p + 1]].
  std::vector<std::size_t> start(nPoints + 2, 0);
  forEachFace([&](std::size_t first, std::size_t n) {
    for (std::size_t k = 0; k < n; ++k) ++start[static_cast<std::size_t>(indices[first + k]) + 2];
  });
  for (std::size_t p = 2; p < start.size(); ++p) start[p] += start[p - 1];
  std::vector<Vec3<float>> entries(start.back());
  forEachFace([&](std::size_t first, std::size_t n) {
    const Vec3<float> normal = triangleNormal(points, indices + first);
    for (std::size_t k = 0; k < n; ++k) entries[start[static_cast<std::size_t>(indices[first + k]) + 1]++] = normal;
  });

  // Each corner sums those that pass. KEEP(weighted-threshold): the entries keep their length in the test, so that a large
  // neighbour passes more easily.
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
    case 1:
      return corner(0);
    case 2:
      return (1.0f - u) * corner(0) + u * corner(1);
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
    default:
      break;
  }

  // KEEP(unwrapped-corner): the corner at floor(n u) is not wrapped, so u = 1 reads the index behind the face; callers
  // rely on it. Where there is no index, or it names no point, the border closes instead.
  const float x = static_cast<float>(n) * u;
  const float floored = std::floor(x);
  const float f = x - floored;
  const auto faceSize = static_cast<std::int64_t>(n);
  const std::int64_t k = std::clamp<std::int64_t>(tarn::truncToInt64(floored), -0x7FFFFFFFFFFFFFFF, 0x7FFFFFFFFFFFFFF0);
  const auto wrapped = [&](std::int64_t c) {
    return static_cast<std::size_t>((c % faceSize + faceSize) % faceSize);
  };
  const auto readsAt = [&](std::int64_t c) {
    const auto size = static_cast<std::int64_t>(indices.size()), start = static_cast<std::int64_t>(first);
    return c >= -start && c < size - start && allNamePoints(indices.cdata() + (start + c), 1, nPoints);
  };
  const Vec3<float> a = readsAt(k) ? at(topology.points.cdata(), indices.cdata()[static_cast<std::int64_t>(first) + k])
                                   : corner(wrapped(k));
  const Vec3<float> b = corner(wrapped(k + 1));
  Vec3<float> mean;
  for (std::size_t i = 0; i < n; ++i) mean += corner(i);
  mean /= static_cast<float>(n);
  return ((1.0f - f) * a + f * b) * (1.0f - v) + mean * v;
}

}  // namespace vela
