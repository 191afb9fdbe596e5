/// \file
/// The meshes that every mesh test runs over: simple closed shapes with known measures, open ones,
/// and broken ones.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "tarn/Vec.h"
#include "vela/mesh/MeshTopology.h"

namespace vela_test {

struct SampleMesh {
  std::string name;
  std::vector<tarn::Vec3<float>> points;
  std::vector<std::int32_t> counts, indices;
  bool closed = false;  ///< every edge has two faces that run along it in opposite directions
  bool broken = false;  ///< counts, indices or points that cannot be used are among them
  int euler = 0;        ///< points - edges + faces, of closed ones

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

inline SampleMesh sampleTorus(int m, int n) {
  SampleMesh mesh{"torus", {}, {}, {}, true, false, 0};
  for (int i = 0; i < m; ++i)
    for (int j = 0; j < n; ++j) {
      const double a = 2 * M_PI * i / m, b = 2 * M_PI * j / n;
      mesh.points.emplace_back(static_cast<float>((2 + std::cos(b)) * std::cos(a)),
                               static_cast<float>((2 + std::cos(b)) * std::sin(a)),
                               static_cast<float>(std::sin(b)));
      const int i1 = (i + 1) % m, j1 = (j + 1) % n;
      mesh.counts.push_back(4);
      for (const int p : {i * n + j, i1 * n + j, i1 * n + j1, i * n + j1})
        mesh.indices.push_back(p);
    }
  return mesh;
}

inline SampleMesh sampleGrid(int rows, int columns) {
  SampleMesh mesh{"grid", {}, {}, {}, false, false, 0};
  for (int i = 0; i <= rows; ++i)
    for (int j = 0; j <= columns; ++j)
      mesh.points.emplace_back(static_cast<float>(j), static_cast<float>(i),
                               0.25f * static_cast<float>((i * j) % 3));
  const int w = columns + 1;
  for (int i = 0; i < rows; ++i)
    for (int j = 0; j < columns; ++j) {
      mesh.counts.push_back(4);
      for (const int p : {i * w + j, i * w + j + 1, (i + 1) * w + j + 1, (i + 1) * w + j})
        mesh.indices.push_back(p);
    }
  return mesh;
}

inline const std::vector<SampleMesh>& sampleMeshes() {
  static const std::vector<SampleMesh> all = [] {
    const float nan = std::numeric_limits<float>::quiet_NaN(),
                inf = std::numeric_limits<float>::infinity();
    const std::vector<tarn::Vec3<float>> box = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0},
                                                {0, 0, 1}, {1, 0, 1}, {1, 1, 1}, {0, 1, 1}};
    const std::vector<std::int32_t> boxFaces = {0, 3, 2, 1, 4, 5, 6, 7, 0, 1, 5, 4,
                                                1, 2, 6, 5, 2, 3, 7, 6, 3, 0, 4, 7};
    std::vector<SampleMesh> out;
    // Closed.
    out.push_back({"cube", box, {4, 4, 4, 4, 4, 4}, boxFaces, true, false, 2});
    out.push_back({"tetrahedron",
                   {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}},
                   {3, 3, 3, 3},
                   {0, 2, 1, 0, 1, 3, 1, 2, 3, 2, 0, 3},
                   true,
                   false,
                   2});
    out.push_back({"octahedron",
                   {{1, 0, 0}, {-1, 0, 0}, {0, 1, 0}, {0, -1, 0}, {0, 0, 1}, {0, 0, -1}},
                   {3, 3, 3, 3, 3, 3, 3, 3},
                   {0, 2, 4, 2, 1, 4, 1, 3, 4, 3, 0, 4, 2, 0, 5, 1, 2, 5, 3, 1, 5, 0, 3, 5},
                   true,
                   false,
                   2});
    SampleMesh prism{"hexagonal prism", {}, {6, 6, 4, 4, 4, 4, 4, 4}, {}, true, false, 2};
    for (int k = 0; k < 12; ++k) {
      const double a = M_PI / 3 * (k % 6);
      prism.points.emplace_back(static_cast<float>(std::cos(a)), static_cast<float>(std::sin(a)),
                                k < 6 ? 0.0f : 2.0f);
    }
    prism.indices = {5, 4, 3, 2, 1, 0, 6, 7, 8, 9, 10, 11};
    for (int k = 0; k < 6; ++k)
      for (const int p : {k, (k + 1) % 6, (k + 1) % 6 + 6, k + 6}) prism.indices.push_back(p);
    out.push_back(prism);
    out.push_back({"pyramid",
                   {{-1, -1, 0}, {1, -1, 0}, {1, 1, 0}, {-1, 1, 0}, {0, 0, 1}},
                   {4, 3, 3, 3, 3},
                   {3, 2, 1, 0, 0, 1, 4, 1, 2, 4, 2, 3, 4, 3, 0, 4},
                   true,
                   false,
                   2});
    out.push_back(sampleTorus(9, 7));
    // Open.
    out.push_back({"triangle", {{0, 0, 0}, {2, 0, 0}, {0, 1, 0}}, {3}, {0, 1, 2}});
    out.push_back({"quad", {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}}, {4}, {0, 1, 2, 3}});
    out.push_back({"saddle", {{0, 0, 0}, {1, 0, 1}, {1, 1, 0}, {0, 1, 1}}, {4}, {0, 1, 2, 3}});
    out.push_back({"pentagon",
                   {{0, 0, 0}, {2, 0, 0}, {3, 2, 0}, {1, 3, 0}, {-1, 2, 0}},
                   {5},
                   {0, 1, 2, 3, 4}});
    out.push_back({"arrow", {{0, 0, 0}, {2, -1, 0}, {1, 0, 0}, {2, 1, 0}}, {4}, {0, 1, 2, 3}});
    out.push_back({"mixed strip",
                   {{0, 0, 0}, {1, 0, 0}, {2, 0, 0}, {3, 1, 0}, {2, 2, 0}, {1, 1, 0}, {0, 1, 0}},
                   {4, 5, 3},
                   {0, 1, 5, 6, 1, 2, 3, 4, 5, 0, 6, 5}});
    out.push_back(sampleGrid(4, 6));
    SampleMesh farAway = sampleGrid(3, 3);
    farAway.name = "grid far away";
    for (auto& p : farAway.points) p += tarn::Vec3<float>(1e6f, -1e6f, 3e5f);
    out.push_back(farAway);
    SampleMesh tiny = sampleTorus(5, 4);
    tiny.name = "tiny torus";
    for (auto& p : tiny.points) p *= 1e-12f;
    out.push_back(tiny);
    // Odd, but usable.
    out.push_back({"three faces on an edge",
                   {{0, 0, 0}, {0, 0, 1}, {1, 0, 0}, {0, 1, 0}, {-1, 0, 0}},
                   {3, 3, 3},
                   {0, 1, 2, 0, 1, 3, 0, 1, 4}});
    out.push_back({"two fans on a point",
                   {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {-1, 0, 0}, {-1, -1, 0}},
                   {3, 3},
                   {0, 1, 2, 0, 3, 4}});
    out.push_back({"opposite windings",
                   {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}},
                   {3, 3},
                   {0, 1, 2, 1, 2, 3}});
    out.push_back(
        {"the same face twice", {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}, {3, 3}, {0, 1, 2, 0, 1, 2}});
    out.push_back({"zero area", {{0, 0, 0}, {1, 1, 1}, {2, 2, 2}}, {3}, {0, 1, 2}});
    out.push_back(
        {"all points equal", {{1, 2, 3}, {1, 2, 3}, {1, 2, 3}, {1, 2, 3}}, {4}, {0, 1, 2, 3}});
    out.push_back({"a point twice in a face",
                   {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}},
                   {4, 3},
                   {0, 1, 1, 2, 0, 0, 2}});
    out.push_back(
        {"unused points", {{9, 9, 9}, {0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {7, 7, 7}}, {3}, {1, 2, 3}});
    // Broken.
    out.push_back({"empty", {}, {}, {}, false, true, 0});
    out.push_back({"points only", {{1, 2, 3}}, {}, {}, false, true, 0});
    out.push_back({"faces without points", {}, {3}, {0, 1, 2}, false, true, 0});
    out.push_back({"counts without indices", box, {3, 4}, {}, false, true, 0});
    out.push_back({"indices without counts", box, {}, {0, 1, 2}, false, true, 0});
    out.push_back({"short faces between",
                   box,
                   {4, 2, 3, 1, 0, 4},
                   {0, 1, 2, 3, 4, 5, 5, 6, 7, 0, 4, 5, 6, 7},
                   false,
                   true,
                   0});
    out.push_back({"negative count", box, {4, -3, 4}, {0, 1, 2, 3, 4, 5, 6, 7}, false, true, 0});
    out.push_back(
        {"index too large", box, {4, 3, 4}, {0, 1, 2, 3, 4, 8, 5, 4, 5, 6, 7}, false, true, 0});
    out.push_back({"index negative", box, {3, 4}, {0, -1, 2, 4, 5, 6, 7}, false, true, 0});
    out.push_back(
        {"extreme indices",
         box,
         {3, 3, 3},
         {0, std::numeric_limits<int>::max(), 2, 1, std::numeric_limits<int>::min(), 3, 4, 5, 6},
         false,
         true,
         0});
    out.push_back({"counts past the indices", box, {4, 4, 4}, {0, 1, 2, 3, 4, 5}, false, true, 0});
    out.push_back({"huge count",
                   box,
                   {4, std::numeric_limits<int>::max(), 3},
                   {0, 1, 2, 3, 4, 5, 6},
                   false,
                   true,
                   0});
    out.push_back(
        {"lowest count", box, {std::numeric_limits<int>::min(), 4}, {0, 1, 2, 3}, false, true, 0});
    out.push_back({"indices left over", box, {4}, {0, 1, 2, 3, 4, 5, 6}, false, true, 0});
    out.push_back({"not a number",
                   {{0, 0, 0}, {1, nan, 0}, {1, 1, 0}, {0, 1, 0}, {2, 0, 0}},
                   {3, 3},
                   {0, 2, 3, 0, 1, 4},
                   false,
                   true,
                   0});
    out.push_back({"infinite",
                   {{0, 0, 0}, {inf, 0, 0}, {1, 1, -inf}, {0, 1, 0}},
                   {4},
                   {0, 1, 2, 3},
                   false,
                   true,
                   0});
    out.push_back({"largest floats",
                   {{3e38f, 3e38f, 0}, {-3e38f, 3e38f, 0}, {-3e38f, -3e38f, 0}},
                   {3},
                   {0, 1, 2},
                   false,
                   true,
                   0});
    return out;
  }();
  return all;
}

}  // namespace vela_test
