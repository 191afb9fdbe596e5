/// \file
/// The meshes of tests and benches: makers by rule, and the set that every mesh test runs over.
///
/// Results are pinned over these meshes, so a maker keeps its points to the bit, and the order of
/// its points and faces.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <map>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "ovo/Array.h"
#include "tarn/Vec.h"
#include "vela/mesh/MeshTopology.h"

namespace vela_test {

/// Points, the number of corners of each face, and point indices face after face. Closed meshes
/// wind outward.
struct SampleMesh {
  std::string name;
  ovo::Array<tarn::Vec3f> points;
  ovo::Array<int> counts, indices;
  bool closed = false;      ///< every edge has two faces that run along it in opposite directions
  bool convex = false;      ///< of closed ones: a normal at a point leads away from the centre
  bool degenerate = false;  ///< some face that can be used has no area, or a point twice
  bool broken = false;      ///< some count, index or point cannot be used
  int euler = 0;            ///< points - edges + faces, of closed ones

  void addFace(std::initializer_list<int> corners) {
    counts.push_back(static_cast<int>(corners.size()));
    for (const int corner : corners) indices.push_back(corner);
  }

  /// Whether a face has three corners or more, all within the indices and each a point.
  [[nodiscard]] bool usable(std::size_t face) const {
    std::size_t first = 0;
    for (std::size_t f = 0; f < face; ++f)
      if (counts[f] > 0) first += static_cast<std::size_t>(counts[f]);
    if (counts[face] < 3 || first + static_cast<std::size_t>(counts[face]) > indices.size())
      return false;
    for (std::size_t k = 0; k < static_cast<std::size_t>(counts[face]); ++k)
      if (indices[first + k] < 0 || static_cast<std::size_t>(indices[first + k]) >= points.size())
        return false;
    return true;
  }
};

inline vela::MeshTopology topologyOf(const SampleMesh& m) {
  vela::MeshTopology t;
  t.points = m.points;
  t.vertsPerFace = m.counts;
  t.faceVertPointIndices = m.indices;
  return t;
}

// ---- Closed meshes

inline SampleMesh asClosed(SampleMesh mesh, int euler, bool convex) {
  mesh.closed = true;
  mesh.euler = euler;
  mesh.convex = convex;
  return mesh;
}

/// A cube from 0 to 1: six quads, the corners of its floor and of its ceiling counterclockwise.
inline SampleMesh makeUnitCube() {
  return asClosed(
      {"cube",
       {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0, 0, 1}, {1, 0, 1}, {1, 1, 1}, {0, 1, 1}},
       {4, 4, 4, 4, 4, 4},
       {0, 3, 2, 1, 4, 5, 6, 7, 0, 1, 5, 4, 1, 2, 6, 5, 2, 3, 7, 6, 3, 0, 4, 7}},
      2, true);
}

/// A cube about the origin: six quads; bit i of a point's index tells its side along axis i.
inline SampleMesh makeCube(float halfSize = 1.0f) {
  SampleMesh mesh{"cube about the origin", {}, {}, {}};
  for (int i = 0; i < 8; ++i)
    mesh.points.emplace_back((i & 1) ? halfSize : -halfSize, (i & 2) ? halfSize : -halfSize,
                             (i & 4) ? halfSize : -halfSize);
  mesh.addFace({0, 2, 3, 1});
  mesh.addFace({4, 5, 7, 6});
  mesh.addFace({0, 1, 5, 4});
  mesh.addFace({2, 6, 7, 3});
  mesh.addFace({0, 4, 6, 2});
  mesh.addFace({1, 3, 7, 5});
  return asClosed(std::move(mesh), 2, true);
}

inline SampleMesh makeTetrahedron() {
  return asClosed({"tetrahedron",
                   {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}},
                   {3, 3, 3, 3},
                   {0, 2, 1, 0, 1, 3, 1, 2, 3, 2, 0, 3}},
                  2, true);
}

inline SampleMesh makeOctahedron() {
  return asClosed({"octahedron",
                   {{1, 0, 0}, {-1, 0, 0}, {0, 1, 0}, {0, -1, 0}, {0, 0, 1}, {0, 0, -1}},
                   {3, 3, 3, 3, 3, 3, 3, 3},
                   {0, 2, 4, 2, 1, 4, 1, 3, 4, 3, 0, 4, 2, 0, 5, 1, 2, 5, 3, 1, 5, 0, 3, 5}},
                  2, true);
}

inline SampleMesh makePyramid() {
  return asClosed({"pyramid",
                   {{-1, -1, 0}, {1, -1, 0}, {1, 1, 0}, {-1, 1, 0}, {0, 0, 1}},
                   {4, 3, 3, 3, 3},
                   {3, 2, 1, 0, 0, 1, 4, 1, 2, 4, 2, 3, 4, 3, 0, 4}},
                  2, true);
}

/// A prism from z = 0 to 2 over a regular hexagon: two hexagons, six quads.
inline SampleMesh makeHexagonalPrism() {
  SampleMesh mesh{"hexagonal prism", {}, {}, {}};
  for (int k = 0; k < 12; ++k) {
    const double a = M_PI / 3 * (k % 6);
    mesh.points.emplace_back(static_cast<float>(std::cos(a)), static_cast<float>(std::sin(a)),
                             k < 6 ? 0.0f : 2.0f);
  }
  mesh.addFace({5, 4, 3, 2, 1, 0});
  mesh.addFace({6, 7, 8, 9, 10, 11});
  for (int k = 0; k < 6; ++k) mesh.addFace({k, (k + 1) % 6, (k + 1) % 6 + 6, k + 6});
  return asClosed(std::move(mesh), 2, true);
}

/// Quads around a ring about the z axis.
inline SampleMesh makeTorus(int around, int across, float ring = 1.0f, float tube = 0.4f) {
  SampleMesh mesh{"torus", {}, {}, {}};
  const double turn = 6.283185307179586;
  for (int i = 0; i < around; ++i)
    for (int j = 0; j < across; ++j) {
      const double a = turn * i / around, b = turn * j / across;
      const double r = static_cast<double>(ring) + static_cast<double>(tube) * std::cos(b);
      mesh.points.emplace_back(static_cast<float>(r * std::cos(a)),
                               static_cast<float>(r * std::sin(a)),
                               static_cast<float>(static_cast<double>(tube) * std::sin(b)));
    }
  for (int i = 0; i < around; ++i)
    for (int j = 0; j < across; ++j) {
      const int i1 = (i + 1) % around, j1 = (j + 1) % across;
      mesh.addFace({i * across + j, i1 * across + j, i1 * across + j1, i * across + j1});
    }
  return asClosed(std::move(mesh), 0, false);
}

/// An icosahedron whose triangles are cut in four `levels` times: 20 * 4^levels triangles.
inline SampleMesh makeIcosphere(int levels, float radius = 1.0f) {
  SampleMesh mesh{"icosphere", {}, {}, {}};
  const float g = 1.6180340f;
  const float seed[12][3] = {{-1, g, 0}, {1, g, 0}, {-1, -g, 0}, {1, -g, 0},
                             {0, -1, g}, {0, 1, g}, {0, -1, -g}, {0, 1, -g},
                             {g, 0, -1}, {g, 0, 1}, {-g, 0, -1}, {-g, 0, 1}};
  std::vector<tarn::Vec3f> points;
  for (const auto& p : seed) points.push_back(tarn::Vec3f(p[0], p[1], p[2]).normalized() * radius);
  std::vector<int> indices = {0, 11, 5,  0, 5,  1, 0, 1, 7, 0, 7,  10, 0, 10, 11, 1, 5, 9, 5, 11,
                              4, 11, 10, 2, 10, 7, 6, 7, 1, 8, 3,  9,  4, 3,  4,  2, 3, 2, 6, 3,
                              6, 8,  3,  8, 9,  4, 9, 5, 2, 4, 11, 6,  2, 10, 8,  6, 7, 9, 8, 1};
  for (int level = 0; level < levels; ++level) {
    std::map<std::pair<int, int>, int> middle;
    const auto between = [&](int a, int b) {
      const auto [it, isNew] =
          middle.try_emplace({a < b ? a : b, a < b ? b : a}, static_cast<int>(points.size()));
      if (isNew)
        points.push_back((points[static_cast<std::size_t>(a)] + points[static_cast<std::size_t>(b)])
                             .normalized() *
                         radius);
      return it->second;
    };
    std::vector<int> finer;
    finer.reserve(indices.size() * 4);
    for (std::size_t t = 0; t < indices.size(); t += 3) {
      const int a = indices[t], b = indices[t + 1], c = indices[t + 2];
      const int ab = between(a, b), bc = between(b, c), ca = between(c, a);
      finer.insert(finer.end(), {a, ab, ca, ab, b, bc, ca, bc, c, ab, bc, ca});
    }
    indices = std::move(finer);
  }
  mesh.points = points;
  mesh.indices = indices;
  mesh.counts.assign(indices.size() / 3, 3);
  return asClosed(std::move(mesh), 2, true);
}

/// A sphere of rings, pushed in and out by waves: about `triangles` triangles, of very different
/// shapes near the poles.
inline SampleMesh makeBumpySphere(int triangles, float radius = 1.0f) {
  SampleMesh mesh{"bumpy sphere", {}, {}, {}};
  const int rings = std::max(
                3, static_cast<int>(std::lround(std::sqrt(static_cast<double>(triangles) / 4.0)))),
            spokes = 2 * rings;
  const double pi = 3.141592653589793;
  const auto push = [&](double theta, double phi) {
    const double r =
        static_cast<double>(radius) * (1.0 + 0.08 * std::sin(7.0 * theta) * std::cos(5.0 * phi) +
                                       0.02 * std::sin(41.0 * theta) * std::sin(37.0 * phi));
    mesh.points.emplace_back(static_cast<float>(r * std::sin(theta) * std::cos(phi)),
                             static_cast<float>(r * std::sin(theta) * std::sin(phi)),
                             static_cast<float>(r * std::cos(theta)));
  };
  push(0.0, 0.0);
  for (int i = 1; i < rings; ++i)
    for (int j = 0; j < spokes; ++j) push(pi * i / rings, 2.0 * pi * j / spokes);
  push(pi, 0.0);
  const int last = static_cast<int>(mesh.points.size()) - 1;
  const auto at = [&](int i, int j) { return 1 + (i - 1) * spokes + j % spokes; };
  for (int j = 0; j < spokes; ++j) mesh.addFace({0, at(1, j), at(1, j + 1)});
  for (int i = 1; i + 1 < rings; ++i)
    for (int j = 0; j < spokes; ++j) {
      mesh.addFace({at(i, j), at(i + 1, j), at(i + 1, j + 1)});
      mesh.addFace({at(i, j), at(i + 1, j + 1), at(i, j + 1)});
    }
  for (int j = 0; j < spokes; ++j) mesh.addFace({last, at(rings - 1, j + 1), at(rings - 1, j)});
  return asClosed(std::move(mesh), 2, false);
}

/// A sphere of radius 1 about the y axis, of quads with triangles at the poles; each point moves
/// along its radius by at most half of `roughness`.
inline SampleMesh makeRoughSphere(int rings, int segments, float roughness, unsigned seed = 1) {
  SampleMesh mesh{"sphere of " + std::to_string(rings) + " rings", {}, {}, {}};
  std::mt19937 random(seed);
  const auto point = [&](double theta, double phi) {
    const double radius = 1.0 + static_cast<double>(roughness) *
                                    (static_cast<double>(random() % 1000) / 1000.0 - 0.5);
    mesh.points.emplace_back(static_cast<float>(radius * std::sin(theta) * std::cos(phi)),
                             static_cast<float>(radius * std::cos(theta)),
                             static_cast<float>(radius * std::sin(theta) * std::sin(phi)));
  };
  point(0.0, 0.0);
  for (int r = 1; r < rings; ++r)
    for (int s = 0; s < segments; ++s)
      point(3.14159265358979 * r / rings, 6.28318530717959 * s / segments);
  point(3.14159265358979, 0.0);
  const int south = static_cast<int>(mesh.points.size()) - 1;
  const auto at = [&](int r, int s) { return 1 + (r - 1) * segments + s % segments; };
  for (int s = 0; s < segments; ++s) mesh.addFace({0, at(1, s + 1), at(1, s)});
  for (int r = 1; r + 1 < rings; ++r)
    for (int s = 0; s < segments; ++s)
      mesh.addFace({at(r, s), at(r, s + 1), at(r + 1, s + 1), at(r + 1, s)});
  for (int s = 0; s < segments; ++s) mesh.addFace({at(rings - 1, s), at(rings - 1, s + 1), south});
  return asClosed(std::move(mesh), 2, roughness == 0.0f);
}

// ---- Open meshes

/// A square of two units a side at height z, seen from above, as one quad.
inline SampleMesh makeSquare(float z = 0.0f) {
  return {"square", {{-1, -1, z}, {1, -1, z}, {1, 1, z}, {-1, 1, z}}, {4}, {0, 1, 2, 3}};
}

/// Quads over the unit squares of the xy plane, from the origin on; a point stands at z = 0,
/// `height` or twice that.
inline SampleMesh makeGrid(int rows, int columns, float height = 0.25f) {
  SampleMesh mesh{"grid", {}, {}, {}};
  for (int i = 0; i <= rows; ++i)
    for (int j = 0; j <= columns; ++j)
      mesh.points.emplace_back(static_cast<float>(j), static_cast<float>(i),
                               height * static_cast<float>((i * j) % 3));
  const int w = columns + 1;
  for (int i = 0; i < rows; ++i)
    for (int j = 0; j < columns; ++j)
      mesh.addFace({i * w + j, i * w + j + 1, (i + 1) * w + j + 1, (i + 1) * w + j});
  return mesh;
}

/// A flat square in z = 0 of n by n unit quads.
inline SampleMesh makePlane(int n) {
  SampleMesh mesh = makeGrid(n, n, 0.0f);
  mesh.name = "plane of " + std::to_string(n * n);
  return mesh;
}

/// Triangles of random position, size and shape.
inline SampleMesh makeSoup(int count, unsigned seed) {
  SampleMesh mesh{"soup of " + std::to_string(count), {}, {}, {}};
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> place(-1.0f, 1.0f);
  for (int i = 0; i < count; ++i) {
    const tarn::Vec3f centre(place(random), place(random), place(random));
    const float size = std::exp2(-8.0f * std::fabs(place(random)));
    for (int k = 0; k < 3; ++k)
      mesh.points.push_back(centre +
                            tarn::Vec3f(place(random), place(random), place(random)) * size);
    mesh.addFace({3 * i, 3 * i + 1, 3 * i + 2});
  }
  return mesh;
}

/// Polygons of five to nine corners around the z axis, stacked; every other corner is drawn in.
inline SampleMesh makePolygons() {
  SampleMesh mesh{"polygons", {}, {}, {}};
  for (int n = 5; n <= 9; ++n) {
    const int first = static_cast<int>(mesh.points.size());
    mesh.counts.push_back(n);
    for (int k = 0; k < n; ++k) {
      const double angle = 6.28318530717959 * k / n, radius = k % 2 ? 1.0 : 0.6;
      mesh.points.emplace_back(static_cast<float>(radius * std::cos(angle)),
                               static_cast<float>(radius * std::sin(angle)),
                               0.25f * static_cast<float>(n));
      mesh.indices.push_back(first + k);
    }
  }
  return mesh;
}

/// A small detailed ball in a wide flat floor: most faces share a few cells of a grid.
inline SampleMesh makeStadium(int rings) {
  const SampleMesh ball = makeRoughSphere(rings, 2 * rings, 0.2f);
  SampleMesh mesh{"stadium", ball.points, ball.counts, ball.indices};
  for (auto& p : mesh.points) p = p * 0.5f;
  const int first = static_cast<int>(mesh.points.size());
  for (const float x : {-40.0f, 40.0f})
    for (const float z : {-40.0f, 40.0f}) mesh.points.emplace_back(x, -0.5f, z);
  mesh.addFace({first, first + 1, first + 3, first + 2});
  return mesh;
}

// ---- Broken meshes

/// Every way that arrays contradict each other, around one good triangle (face 6) and one good quad
/// (face 10).
inline SampleMesh makeBroken() {
  constexpr float nan = std::numeric_limits<float>::quiet_NaN();
  SampleMesh mesh{"broken in every way", {}, {}, {}};
  mesh.broken = mesh.degenerate = true;
  mesh.points = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}, {nan, 0, 0}, {0, nan, 0}};
  mesh.addFace({0, 1});       // two corners
  mesh.counts.push_back(-5);  // takes no indices
  mesh.addFace({0, 1, 99});   // no such point
  mesh.addFace({0, -1, 2});   // nor this
  mesh.addFace({0, 1, 4});    // NaN
  mesh.counts.push_back(0);
  mesh.addFace({0, 1, 2});
  mesh.addFace({1, 1, 1});         // no area
  mesh.addFace({0, 1, 2, 3, -7});  // polygon with a bad corner
  mesh.addFace({0, 1, 5, 3, 2});   // polygon with a NaN corner
  mesh.addFace({0, 1, 3, 2});
  mesh.counts.push_back(2147483647);  // beyond the indices, and everything after it
  mesh.addFace({0, 1, 2});
  return mesh;
}

// ---- The set

namespace samples {

inline SampleMesh renamed(SampleMesh mesh, const char* name) {
  mesh.name = name;
  return mesh;
}
inline SampleMesh moved(SampleMesh mesh, const tarn::Vec3f& by, const char* name) {
  for (auto& p : mesh.points) p += by;
  return renamed(std::move(mesh), name);
}
inline SampleMesh scaled(SampleMesh mesh, float by, const char* name) {
  for (auto& p : mesh.points) p *= by;
  return renamed(std::move(mesh), name);
}

inline std::vector<SampleMesh> closedMeshes() {
  return {makeUnitCube(),
          makeTetrahedron(),
          makeOctahedron(),
          makeHexagonalPrism(),
          makePyramid(),
          makeTorus(9, 7, 2.0f, 1.0f),
          scaled(makeTorus(5, 4, 2.0f, 1.0f), 1e-12f, "tiny torus"),
          makeCube(),
          makeIcosphere(2),
          makeBumpySphere(300),
          makeRoughSphere(6, 8, 0.0f),
          makeRoughSphere(24, 40, 0.3f),
          moved(makeRoughSphere(12, 20, 0.3f), {30000.0f, -20000.0f, 10000.0f}, "sphere far away"),
          scaled(makeRoughSphere(12, 20, 0.3f), 1e6f, "large sphere")};
}

inline std::vector<SampleMesh> openMeshes() {
  return {
      {"triangle", {{0, 0, 0}, {2, 0, 0}, {0, 1, 0}}, {3}, {0, 1, 2}},
      {"quad", {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}}, {4}, {0, 1, 2, 3}},
      {"saddle", {{0, 0, 0}, {1, 0, 1}, {1, 1, 0}, {0, 1, 1}}, {4}, {0, 1, 2, 3}},
      {"pentagon", {{0, 0, 0}, {2, 0, 0}, {3, 2, 0}, {1, 3, 0}, {-1, 2, 0}}, {5}, {0, 1, 2, 3, 4}},
      {"arrow", {{0, 0, 0}, {2, -1, 0}, {1, 0, 0}, {2, 1, 0}}, {4}, {0, 1, 2, 3}},
      {"mixed strip",
       {{0, 0, 0}, {1, 0, 0}, {2, 0, 0}, {3, 1, 0}, {2, 2, 0}, {1, 1, 0}, {0, 1, 0}},
       {4, 5, 3},
       {0, 1, 5, 6, 1, 2, 3, 4, 5, 0, 6, 5}},
      makeSquare(),
      makeGrid(4, 6),
      moved(makeGrid(3, 3), {1e6f, -1e6f, 3e5f}, "grid far away"),
      makePlane(1),
      makePlane(13),
      makeSoup(400, 11),
      makeSoup(1, 3),
      makePolygons(),
      makeStadium(12),
      {"three faces on an edge",
       {{0, 0, 0}, {0, 0, 1}, {1, 0, 0}, {0, 1, 0}, {-1, 0, 0}},
       {3, 3, 3},
       {0, 1, 2, 0, 1, 3, 0, 1, 4}},
      {"two fans on a point",
       {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {-1, 0, 0}, {-1, -1, 0}},
       {3, 3},
       {0, 1, 2, 0, 3, 4}},
      {"opposite windings",
       {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}},
       {3, 3},
       {0, 1, 2, 1, 2, 3}},
      {"the same face twice", {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}, {3, 3}, {0, 1, 2, 0, 1, 2}},
      {"unused points", {{9, 9, 9}, {0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {7, 7, 7}}, {3}, {1, 2, 3}}};
}

inline std::vector<SampleMesh> degenerateMeshes() {
  std::vector<SampleMesh> meshes = {
      {"zero area", {{0, 0, 0}, {1, 1, 1}, {2, 2, 2}}, {3}, {0, 1, 2}},
      {"all points equal", {{1, 2, 3}, {1, 2, 3}, {1, 2, 3}, {1, 2, 3}}, {4}, {0, 1, 2, 3}},
      {"a point twice in a face",
       {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}},
       {4, 3},
       {0, 1, 1, 2, 0, 0, 2}}};
  for (SampleMesh& mesh : meshes) mesh.degenerate = true;
  return meshes;
}

inline std::vector<SampleMesh> brokenMeshes() {
  const float nan = std::numeric_limits<float>::quiet_NaN(),
              inf = std::numeric_limits<float>::infinity();
  const int lowest = std::numeric_limits<int>::min(), largest = std::numeric_limits<int>::max();
  const ovo::Array<tarn::Vec3f> box = makeUnitCube().points;
  std::vector<SampleMesh> meshes = {
      {"empty", {}, {}, {}},
      {"points only", {{0, 0, 0}, {1, 2, 3}}, {}, {}},
      {"faces without points", {}, {3}, {0, 1, 2}},
      {"counts without indices", box, {3, 4}, {}},
      {"indices without counts", box, {}, {0, 1, 2}},
      {"short faces between", box, {4, 2, 3, 1, 0, 4}, {0, 1, 2, 3, 4, 5, 5, 6, 7, 0, 4, 5, 6, 7}},
      {"negative count", box, {4, -3, 4}, {0, 1, 2, 3, 4, 5, 6, 7}},
      {"index too large", box, {4, 3, 4}, {0, 1, 2, 3, 4, 8, 5, 4, 5, 6, 7}},
      {"index negative", box, {3, 4}, {0, -1, 2, 4, 5, 6, 7}},
      {"extreme indices", box, {3, 3, 3}, {0, largest, 2, 1, lowest, 3, 4, 5, 6}},
      {"counts past the indices", box, {4, 4, 4}, {0, 1, 2, 3, 4, 5}},
      {"huge count", box, {4, largest, 3}, {0, 1, 2, 3, 4, 5, 6}},
      {"lowest count", box, {lowest, 4}, {0, 1, 2, 3}},
      {"indices left over", box, {4}, {0, 1, 2, 3, 4, 5, 6}},
      {"NaN",
       {{0, 0, 0}, {1, nan, 0}, {1, 1, 0}, {0, 1, 0}, {2, 0, 0}},
       {3, 3},
       {0, 2, 3, 0, 1, 4}},
      {"infinite", {{0, 0, 0}, {inf, 0, 0}, {1, 1, -inf}, {0, 1, 0}}, {4}, {0, 1, 2, 3}},
      {"largest floats",
       {{3e38f, 3e38f, 0}, {-3e38f, 3e38f, 0}, {-3e38f, -3e38f, 0}},
       {3},
       {0, 1, 2}},
      {"wider than the largest float",
       {{-3e38f, 0, 0}, {3e38f, 0, 0}, {0, 3e38f, 1}},
       {3},
       {0, 1, 2}},
      makeBroken()};
  for (SampleMesh& mesh : meshes) mesh.broken = true;
  return meshes;
}

}  // namespace samples

/// The set: closed, open, degenerate and broken meshes. The first is makeUnitCube(); no two have
/// the same name.
inline const std::vector<SampleMesh>& sampleMeshes() {
  static const std::vector<SampleMesh> all = [] {
    std::vector<SampleMesh> out;
    for (const std::vector<SampleMesh>& part :
         {samples::closedMeshes(), samples::openMeshes(), samples::degenerateMeshes(),
          samples::brokenMeshes()})
      out.insert(out.end(), part.begin(), part.end());
    return out;
  }();
  return all;
}

/// \throws std::out_of_range  when the set has no mesh of that name
inline const SampleMesh& sampleMesh(const std::string& name) {
  for (const SampleMesh& mesh : sampleMeshes())
    if (mesh.name == name) return mesh;
  throw std::out_of_range("no sample mesh has the name " + name);
}

}  // namespace vela_test
