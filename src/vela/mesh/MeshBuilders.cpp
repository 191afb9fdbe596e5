#include "vela/mesh/MeshBuilders.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>

#include "tarn/Area.h"
#include "tarn/Constants.h"

namespace vela {

namespace {

using tarn::Vec2f;
using tarn::Vec3d;
using tarn::Vec3f;

// Counts come as unsigned ints, and products of three of them pass 64 bits: factors are taken in
// one by one and refused as soon as the product passes what an index can name.
constexpr std::size_t kMaxCount =
    static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max());

std::size_t countOf(std::size_t a, std::size_t b) {
  if (a != 0 && b > kMaxCount / a)
    throw std::length_error("vela: a mesh of more than 2^31 - 1 points or face-vertices");
  return a * b;
}

float ratio(std::size_t part, std::size_t whole) {
  return static_cast<float>(part) / static_cast<float>(whole);
}

// From a to b; the ends themselves where t is all but there. Weighed as a blend of two transforms
// weighs (RayContext), so that patches and moving rays round alike.
Vec3f lerpSnapped(const Vec3f& a, const Vec3f& b, float t) {
  if (t < std::numeric_limits<float>::epsilon()) return a;
  if (t > 0.9999999f) return b;
  return a * (1.0f - t) + b * t;
}

}  // namespace

void buildRectQuadMesh(MeshSample& mesh, const Vec3f& p0, const Vec3f& p1, const Vec3f& p2,
                       const Vec3f& p3, unsigned int rows, unsigned int columns, bool buildFaces,
                       bool buildPoints, bool buildNormals, bool buildUVs) {
  if (rows == 0 || columns == 0) return;
  const std::size_t nRows = rows, nColumns = columns;
  const std::size_t width = nColumns + 1;
  const std::size_t nFaces = countOf(nRows, nColumns), nVerts = countOf(nFaces, 4),
                    nPoints = countOf(nRows + 1, width);

  if (buildFaces) {
    mesh.clearFaces();
    mesh.reserveFaceVertSpace(nFaces, nVerts);
    mesh.allTriangles = false;
    mesh.allQuads = true;
    for (std::size_t i = 0; i < nRows; ++i)
      for (std::size_t j = 0; j < nColumns; ++j) {
        const int p = static_cast<int>(i * width + j), w = static_cast<int>(width);
        mesh.addQuad(p, p + 1, p + w + 1, p + w);
      }
  }

  if (buildPoints) {
    mesh.points.resize(nPoints);
    Vec3f* out = mesh.points.data();
    for (std::size_t i = 0; i <= nRows; ++i) {
      const float t = ratio(i, nRows);
      for (std::size_t j = 0; j <= nColumns; ++j) {
        const float s = ratio(j, nColumns);
        *out++ = lerpSnapped(lerpSnapped(p0, p1, s), lerpSnapped(p3, p2, s), t);
      }
    }
  }

  if (buildUVs) {
    mesh.uvs.resize(nPoints);
    Vec2f* out = mesh.uvs.data();
    for (std::size_t i = 0; i <= nRows; ++i)
      for (std::size_t j = 0; j <= nColumns; ++j)
        *out++ = Vec2f(ratio(j, nColumns), ratio(i, nRows));
  }

  if (buildNormals) mesh.normals.assign(nVerts, areaVector(p0, p1, p3).normalized());
}

void buildCube(MeshSample& mesh, const tarn::Box3d& box, unsigned int sideDivisions,
               unsigned int capDivisions, bool buildFaces, bool buildPoints, bool buildNormals,
               bool buildUVs, bool sharedPoints) {
  if (sideDivisions == 0 || capDivisions == 0) return;
  const std::size_t side = sideDivisions, cap = capDivisions;
  const std::size_t s = sharedPoints ? 1 : 0;
  const std::size_t nFaces = countOf(2 * (2 * side + cap), cap), nVerts = countOf(nFaces, 4);
  // First points of the six grids. With shared points the grids of the right and left lose their
  // first and last column to the front and back, those of the caps all of their rim.
  const std::size_t frontSize = countOf(side + 1, cap + 1);
  const std::size_t rightSize = countOf(side + 1, cap + 1 - 2 * s);
  const std::size_t capSize = countOf(cap + 1 - 2 * s, cap + 1 - 2 * s);
  const std::size_t back = frontSize, right = back + frontSize, left = right + rightSize,
                    top = left + rightSize, bottom = top + capSize;
  const std::size_t nPoints = countOf(bottom + capSize, 1);

  if (buildPoints) {
    mesh.points.resize(nPoints);
    Vec3f* out = mesh.points.data();
    const Vec3f min(box.min), max(box.max);
    const Vec3d extent = box.max - box.min;
    const float dx = static_cast<float>(extent.x) / static_cast<float>(cap);
    const float dy = static_cast<float>(extent.y) / static_cast<float>(side);
    const float dz = static_cast<float>(extent.z) / static_cast<float>(cap);
    const auto up = [](float start, std::size_t k, float step) {
      return start + static_cast<float>(k) * step;
    };
    const auto down = [](float start, std::size_t k, float step) {
      return start - static_cast<float>(k) * step;
    };
    for (std::size_t i = 0; i <= side; ++i)  // front
      for (std::size_t j = 0; j <= cap; ++j)
        *out++ = Vec3f(up(min.x, j, dx), up(min.y, i, dy), max.z);
    for (std::size_t i = 0; i <= side; ++i)  // back
      for (std::size_t j = 0; j <= cap; ++j)
        *out++ = Vec3f(down(max.x, j, dx), up(min.y, i, dy), min.z);
    for (std::size_t i = 0; i <= side; ++i)  // right
      for (std::size_t j = s; j <= cap - s; ++j)
        *out++ = Vec3f(max.x, up(min.y, i, dy), down(max.z, j, dz));
    for (std::size_t i = 0; i <= side; ++i)  // left
      for (std::size_t j = s; j <= cap - s; ++j)
        *out++ = Vec3f(min.x, up(min.y, i, dy), up(min.z, j, dz));
    for (const float y : {max.y, min.y})  // top, bottom
      for (std::size_t k = s; k <= cap - s; ++k)
        for (std::size_t j = s; j <= cap - s; ++j)
          *out++ = Vec3f(up(min.x, j, dx), y, down(max.z, k, dz));
  }

  if (buildFaces) {
    mesh.clearFaces();
    mesh.reserveFaceVertSpace(nFaces, nVerts);
    mesh.allTriangles = false;
    mesh.allQuads = true;
    const std::size_t width = cap + 1 - 2 * s;  // of the grids that may have lost their rim
    const auto frontAt = [&](std::size_t i, std::size_t j) { return i * (cap + 1) + j; };
    const auto backAt = [&](std::size_t i, std::size_t j) { return back + i * (cap + 1) + j; };
    const auto rightAt = [&](std::size_t i, std::size_t j) {
      if (sharedPoints && j == 0) return frontAt(i, cap);
      if (sharedPoints && j == cap) return backAt(i, 0);
      return right + i * width + (j - s);
    };
    const auto leftAt = [&](std::size_t i, std::size_t j) {
      if (sharedPoints && j == 0) return backAt(i, cap);
      if (sharedPoints && j == cap) return frontAt(i, 0);
      return left + i * width + (j - s);
    };
    // Row k of a cap lies k steps from z max. `i` is the row of the side faces that is its rim.
    const auto capAt = [&](std::size_t base, std::size_t i, std::size_t k, std::size_t j) {
      if (sharedPoints && k == 0) return frontAt(i, j);
      if (sharedPoints && k == cap) return backAt(i, cap - j);
      if (sharedPoints && j == 0) return leftAt(i, cap - k);
      if (sharedPoints && j == cap) return rightAt(i, k);
      return base + (k - s) * width + (j - s);
    };
    const auto addGrid = [&](std::size_t nRows, bool turned, auto&& pointAt) {
      for (std::size_t i = 0; i < nRows; ++i)
        for (std::size_t j = 0; j < cap; ++j) {
          const int a = static_cast<int>(pointAt(i, j)), b = static_cast<int>(pointAt(i, j + 1)),
                    c = static_cast<int>(pointAt(i + 1, j + 1)),
                    d = static_cast<int>(pointAt(i + 1, j));
          if (turned)
            mesh.addQuad(d, c, b, a);
          else
            mesh.addQuad(a, b, c, d);
        }
    };
    addGrid(side, false, frontAt);
    addGrid(side, false, backAt);
    addGrid(side, false, rightAt);
    addGrid(side, false, leftAt);
    addGrid(cap, false, [&](std::size_t k, std::size_t j) { return capAt(top, side, k, j); });
    addGrid(cap, true, [&](std::size_t k, std::size_t j) { return capAt(bottom, 0, k, j); });
  }

  // KEEP(cube-appends): UVs and normals are appended to what is there, so that a shape can be put
  // together from several.
  if (buildUVs) {
    const float du = 1.0f / static_cast<float>(cap), dv = 1.0f / static_cast<float>(side);
    const auto at = [](std::size_t k, float step) { return static_cast<float>(k) * step; };
    if (sharedPoints) {
      mesh.uvs.reserve(mesh.uvs.size() + nVerts);
      const auto addQuads = [&](std::size_t nRows, float step) {
        for (std::size_t r = 0; r < nRows; ++r)
          for (std::size_t c = 0; c < cap; ++c) {
            const float u = at(c, du), v = at(r, step);
            mesh.uvs.push_back(Vec2f(u, v));
            mesh.uvs.push_back(Vec2f(u + du, v));
            mesh.uvs.push_back(Vec2f(u + du, v + step));
            mesh.uvs.push_back(Vec2f(u, v + step));
          }
      };
      for (int face = 0; face < 4; ++face) addQuads(side, dv);
      for (int face = 0; face < 2; ++face) addQuads(cap, du);
    } else {
      mesh.uvs.reserve(mesh.uvs.size() + nPoints);
      for (int face = 0; face < 4; ++face)
        for (std::size_t r = 0; r <= side; ++r)
          for (std::size_t c = 0; c <= cap; ++c) mesh.uvs.push_back(Vec2f(at(c, du), at(r, dv)));
      for (std::size_t r = 0; r <= cap; ++r)
        for (std::size_t c = 0; c <= cap; ++c) mesh.uvs.push_back(Vec2f(at(c, du), at(r, du)));
      for (std::size_t r = 0; r <= cap; ++r)
        for (std::size_t c = 0; c <= cap; ++c)
          mesh.uvs.push_back(Vec2f(at(c, du), 1.0f - at(r, du)));
    }
  }

  if (buildNormals) {
    const std::size_t before = mesh.normals.size(), sideVerts = side * cap * 4,
                      capVerts = cap * cap * 4;
    mesh.normals.reserve(before + nVerts);
    const auto append = [&](std::size_t count, const Vec3f& normal) {
      mesh.normals.resize(mesh.normals.size() + count, normal);
    };
    append(sideVerts, Vec3f(0, 0, 1));
    append(sideVerts, Vec3f(0, 0, -1));
    append(sideVerts, Vec3f(1, 0, 0));
    append(sideVerts, Vec3f(-1, 0, 0));
    append(capVerts, Vec3f(0, 1, 0));
    append(capVerts, Vec3f(0, -1, 0));
  }
}

void buildRevolveMeshPoints(MeshSample& mesh, unsigned int rows, unsigned int columns,
                            std::function<float(int)> radius, std::function<float(int)> height,
                            const Vec3f& scale, bool topCap, bool bottomCap, bool shareCapRings) {
  if (mesh.points.empty() || !radius || !height) return;
  Vec3f* const points = mesh.points.data();
  const std::size_t size = mesh.points.size();
  std::size_t written = 0;
  const auto write = [&](const Vec3f& p) {
    if (written < size) points[written++] = p;
  };

  const auto step = static_cast<float>(2 * tarn::kPi<double> / static_cast<double>(columns));
  const auto writeRing = [&](int row) {
    if (written == size || columns == 0) return;
    const float r = radius(row), y = height(row) * scale.y;
    const std::size_t n = std::min<std::size_t>(columns, size - written);
    for (std::size_t k = 0; k < n; ++k) {
      const float a = static_cast<float>(k) * step;
      points[written++] = Vec3f(std::sin(a) * r * scale.x, y, std::cos(a) * r * scale.z);
    }
  };
  const auto writePole = [&](int end, int beyond) {
    if (written == size) return;
    const int row = radius(end) == radius(beyond) ? end : beyond;
    write(Vec3f(0, height(row) * scale.y, 0));
  };

  const int last = static_cast<int>(std::min<std::size_t>(rows, kMaxCount - 1));
  if (bottomCap) {
    writePole(0, -1);
    if (!shareCapRings) writeRing(0);
  }
  for (int row = 0; row <= last && written < size && columns > 0; ++row) writeRing(row);
  if (topCap) {
    if (!shareCapRings) writeRing(last);
    writePole(last, last + 1);
  }
}

void buildRevolveMeshUVs(MeshSample& mesh, unsigned int rows, unsigned int columns, float sweepU,
                         float sweepV, bool topCap, bool bottomCap, bool topPole, bool bottomPole) {
  if (mesh.uvs.empty()) return;
  Vec2f* out = mesh.uvs.data();
  Vec2f* const end = out + mesh.uvs.size();
  const auto write = [&](float u, float v) {
    if (out != end) *out++ = Vec2f(u, v);
  };

  const float spanU = 360.0f / sweepU, spanV = 180.0f / sweepV;
  const float uStart = 0.5f - spanU * 0.5f;
  float v = 0.5f - spanV * 0.5f;
  const float bands =
      static_cast<float>(static_cast<std::size_t>(rows) + (topCap && topPole ? 1u : 0u) +
                         (bottomCap && bottomPole ? 1u : 0u));
  const float du = spanU / static_cast<float>(columns), dv = spanV / bands;
  const auto forEachColumn = [&](auto&& writeFace) {
    float u = uStart;
    for (unsigned int column = 0; column < columns && out != end; ++column, u += du) writeFace(u);
  };

  if (bottomCap) {
    const float above = bottomPole ? v + dv : v;
    forEachColumn([&](float u) {
      write(u, v);
      write(u + du, above);
      write(u, above);
    });
    v = above;
  }
  for (unsigned int row = 0; row < rows && columns > 0 && out != end; ++row) {
    forEachColumn([&](float u) {
      write(u, v);
      write(u + du, v);
      write(u + du, v + dv);
      write(u, v + dv);
    });
    v += dv;
  }
  if (topCap) {
    const float o = topPole ? du : 0.0f, e = topPole ? dv : 0.0f;
    forEachColumn([&](float u) {
      write(u, v);
      write(u + du, v);
      write(u + o, v + e);
    });
  }
}

namespace {

// Calls use(i, part) for the face-vertices i of a revolved mesh in face order, as far as there are
// any; part is -1 on the bottom cap, 0 on the bands, 1 on the top cap.
template <class Use>
void forEachRevolveVertex(const MeshSample& mesh, unsigned int rows, unsigned int columns,
                          bool topCap, bool bottomCap, Use&& use) {
  const std::size_t count = std::min(mesh.nVerts(), mesh.normals.size());
  std::size_t i = 0;
  const auto run = [&](std::size_t n, int part) {
    for (const std::size_t end = i + std::min(n, count - i); i < end; ++i) use(i, part);
  };
  const std::size_t nColumns = columns, band = nColumns * 4;
  if (bottomCap) run(nColumns * 3, -1);
  // rows x band may pass 64 bits: no more is asked for than there is.
  run(band == 0 ? 0 : rows > count / band ? count : rows * band, 0);
  if (topCap) run(nColumns * 3, 1);
}

}  // namespace

// KEEP(scaled-once): the points carry the scale already, so dividing by it once leads back to the
// normals of the unit shape; those of the stretched surface would need a second division. Shapes
// made so far are shaded by them, and stay as they look.
void buildCylinderMeshNormals(MeshSample& mesh, unsigned int rows, unsigned int columns,
                              const Vec3f& scale, bool topCap, bool bottomCap) {
  if (mesh.nVerts() == 0 || mesh.points.empty() || mesh.normals.empty()) return;
  Vec3f* const normals = mesh.normals.data();
  const Vec3f* const points = mesh.pointLocations();
  const std::int32_t* const indices = mesh.faceVertPointIndices();
  const auto nPoints = static_cast<std::int64_t>(mesh.nPoints());
  const Vec3f down = (Vec3f(0, -1, 0) / scale).normalized();
  const Vec3f up = (Vec3f(0, 1, 0) / scale).normalized();
  forEachRevolveVertex(mesh, rows, columns, topCap, bottomCap, [&](std::size_t i, int part) {
    if (part != 0) {
      normals[i] = part < 0 ? down : up;
    } else if (indices[i] >= 0 && indices[i] < nPoints) {
      const Vec3f& p = points[indices[i]];
      normals[i] = (Vec3f(p.x, 0, p.z) / scale).normalized();
    }
  });
}

void buildSphereMeshNormals(MeshSample& mesh, unsigned int rows, unsigned int columns,
                            const Vec3f& scale, bool topCap, bool bottomCap) {
  if (mesh.nVerts() == 0 || mesh.points.empty() || mesh.normals.empty()) return;
  Vec3f* const normals = mesh.normals.data();
  const Vec3f* const points = mesh.pointLocations();
  const std::int32_t* const indices = mesh.faceVertPointIndices();
  const auto nPoints = static_cast<std::int64_t>(mesh.nPoints());
  forEachRevolveVertex(mesh, rows, columns, topCap, bottomCap, [&](std::size_t i, int) {
    if (indices[i] >= 0 && indices[i] < nPoints) normals[i] = points[indices[i]];
  });
  for (std::size_t i = 0; i < mesh.normals.size(); ++i)
    normals[i] = (normals[i] / scale).normalized();
}

void buildRevolveMeshFaces(MeshSample& mesh, unsigned int rows, unsigned int columns, bool topCap,
                           bool bottomCap, bool shareCapRings) {
  const std::size_t caps = (topCap ? 1u : 0u) + (bottomCap ? 1u : 0u);
  const std::size_t bands = countOf(rows, columns), fans = countOf(caps, columns);
  const std::size_t nVerts = countOf(bands * 4 + fans * 3, 1);
  countOf(static_cast<std::size_t>(rows) + 1 + caps,
          static_cast<std::size_t>(columns) + 1);  // points

  mesh.clearFaces();
  mesh.reserveFaceVertSpace(bands + fans, nVerts);
  mesh.allTriangles = mesh.allQuads = false;
  const int n = static_cast<int>(columns);
  const auto next = [n](int k) { return k + 1 == n ? 0 : k + 1; };
  int ring = 0;  // first point of the current ring
  if (bottomCap) {
    ring = 1;
    for (int k = 0; k < n; ++k) mesh.addTri(0, ring + next(k), ring + k);
    if (!shareCapRings) ring += n;
  }
  for (unsigned int row = 0; row < rows && n > 0; ++row, ring += n)
    for (int k = 0; k < n; ++k)
      mesh.addQuad(ring + k, ring + next(k), ring + n + next(k), ring + n + k);
  if (topCap) {
    if (!shareCapRings) ring += n;
    for (int k = 0; k < n; ++k) mesh.addTri(ring + k, ring + next(k), ring + n);
  }
}

void buildRevolveMesh(MeshSample& mesh, const RevolveShape& shape) {
  const std::size_t capRing = shape.shareCapRings ? 0 : shape.columns;
  const std::size_t caps = (shape.topCap ? 1u : 0u) + (shape.bottomCap ? 1u : 0u);
  const std::size_t nPoints =
      countOf(std::size_t{shape.rows} + 1, shape.columns) + caps * (1 + capRing);
  buildRevolveMeshFaces(mesh, shape.rows, shape.columns, shape.topCap, shape.bottomCap,
                        shape.shareCapRings);
  mesh.points.resize(nPoints);
  buildRevolveMeshPoints(mesh, shape.rows, shape.columns, shape.radius, shape.height, shape.scale,
                         shape.topCap, shape.bottomCap, shape.shareCapRings);
  mesh.uvs.resize(mesh.nVerts());
  buildRevolveMeshUVs(mesh, shape.rows, shape.columns, shape.sweepU, shape.sweepV, shape.topCap,
                      shape.bottomCap, shape.topPole, shape.bottomPole);
  mesh.normals.assign(mesh.nVerts(), Vec3f());
}

void buildCylinderMesh(MeshSample& mesh, unsigned int rows, unsigned int columns,
                       const Vec3f& scale, bool topCap, bool bottomCap, bool shareCapRings) {
  if (rows == 0) return;
  RevolveShape shape;
  shape.rows = rows;
  shape.columns = columns;
  shape.radius = [](int) { return 1.0f; };
  shape.height = [rows](int row) {
    return 2.0f * static_cast<float>(row) / static_cast<float>(rows) - 1.0f;
  };
  shape.scale = scale;
  shape.topCap = topCap;
  shape.bottomCap = bottomCap;
  shape.shareCapRings = shareCapRings;
  buildRevolveMesh(mesh, shape);
  buildCylinderMeshNormals(mesh, rows, columns, scale, topCap, bottomCap);
}

void buildSphereMesh(MeshSample& mesh, unsigned int rows, unsigned int columns,
                     const Vec3f& scale) {
  if (rows < 2) return;
  // The caps are the first and the last band: rings lie between the poles, which are one row
  // beyond either end.
  const unsigned int bands = rows - 2;
  const auto angle = [bands](int ring) {
    return tarn::kPi<double> * (ring + 1) / (static_cast<double>(bands) + 2.0);
  };
  RevolveShape shape;
  shape.rows = bands;
  shape.columns = columns;
  shape.radius = [angle](int ring) { return static_cast<float>(std::sin(angle(ring))); };
  shape.height = [angle](int ring) { return static_cast<float>(-std::cos(angle(ring))); };
  shape.scale = scale;
  shape.topPole = shape.bottomPole = true;
  buildRevolveMesh(mesh, shape);
  buildSphereMeshNormals(mesh, bands, columns, scale, true, true);
}

}  // namespace vela
