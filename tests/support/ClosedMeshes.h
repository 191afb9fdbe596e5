/// \file
/// Closed meshes made by rule, for tests and benches of ray queries.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <map>
#include <utility>
#include <vector>

#include "tarn/Vec.h"

namespace vela_test {

/// Points, corners of each face, point indices face after face; outward winding.
struct ClosedMesh {
  std::vector<tarn::Vec3<float>> points;
  std::vector<int> counts, indices;
};

inline ClosedMesh makeCube(float halfSize = 1.0f) {
  ClosedMesh m;
  for (int i = 0; i < 8; ++i)
    m.points.emplace_back((i & 1) ? halfSize : -halfSize, (i & 2) ? halfSize : -halfSize,
                          (i & 4) ? halfSize : -halfSize);
  m.counts.assign(6, 4);
  m.indices = {0, 2, 3, 1, 4, 5, 7, 6, 0, 1, 5, 4, 2, 6, 7, 3, 0, 4, 6, 2, 1, 3, 7, 5};
  return m;
}

/// An icosahedron whose triangles are cut in four `levels` times: 20 * 4^levels triangles.
inline ClosedMesh makeIcosphere(int levels, float radius = 1.0f) {
  ClosedMesh m;
  const float g = 1.6180340f;
  const float seed[12][3] = {{-1, g, 0}, {1, g, 0}, {-1, -g, 0}, {1, -g, 0},
                             {0, -1, g}, {0, 1, g}, {0, -1, -g}, {0, 1, -g},
                             {g, 0, -1}, {g, 0, 1}, {-g, 0, -1}, {-g, 0, 1}};
  for (const auto& p : seed)
    m.points.push_back(tarn::Vec3<float>(p[0], p[1], p[2]).normalized() * radius);
  m.indices = {0, 11, 5,  0, 5,  1, 0, 1, 7, 0, 7,  10, 0, 10, 11, 1, 5, 9, 5, 11,
               4, 11, 10, 2, 10, 7, 6, 7, 1, 8, 3,  9,  4, 3,  4,  2, 3, 2, 6, 3,
               6, 8,  3,  8, 9,  4, 9, 5, 2, 4, 11, 6,  2, 10, 8,  6, 7, 9, 8, 1};
  for (int level = 0; level < levels; ++level) {
    std::map<std::pair<int, int>, int> middle;
    const auto between = [&](int a, int b) {
      const auto [it, isNew] =
          middle.try_emplace({a < b ? a : b, a < b ? b : a}, static_cast<int>(m.points.size()));
      if (isNew)
        m.points.push_back(
            (m.points[static_cast<std::size_t>(a)] + m.points[static_cast<std::size_t>(b)])
                .normalized() *
            radius);
      return it->second;
    };
    std::vector<int> finer;
    finer.reserve(m.indices.size() * 4);
    for (std::size_t t = 0; t < m.indices.size(); t += 3) {
      const int a = m.indices[t], b = m.indices[t + 1], c = m.indices[t + 2];
      const int ab = between(a, b), bc = between(b, c), ca = between(c, a);
      finer.insert(finer.end(), {a, ab, ca, ab, b, bc, ca, bc, c, ab, bc, ca});
    }
    m.indices = std::move(finer);
  }
  m.counts.assign(m.indices.size() / 3, 3);
  return m;
}

/// Quads around a ring.
inline ClosedMesh makeTorus(int around, int across, float ring = 1.0f, float tube = 0.4f) {
  ClosedMesh m;
  const double turn = 6.283185307179586;
  for (int i = 0; i < around; ++i)
    for (int j = 0; j < across; ++j) {
      const double a = turn * i / around, b = turn * j / across;
      const double r = static_cast<double>(ring) + static_cast<double>(tube) * std::cos(b);
      m.points.emplace_back(static_cast<float>(r * std::cos(a)),
                            static_cast<float>(r * std::sin(a)),
                            static_cast<float>(static_cast<double>(tube) * std::sin(b)));
    }
  for (int i = 0; i < around; ++i)
    for (int j = 0; j < across; ++j) {
      const int i1 = (i + 1) % around, j1 = (j + 1) % across;
      m.counts.push_back(4);
      m.indices.insert(m.indices.end(),
                       {i * across + j, i1 * across + j, i1 * across + j1, i * across + j1});
    }
  return m;
}

/// A globe of rings, pushed in and out by waves: about `triangles` triangles, of very different
/// shapes near the poles.
inline ClosedMesh makeBumpySphere(int triangles, float radius = 1.0f) {
  ClosedMesh m;
  const int rings = std::max(
                3, static_cast<int>(std::lround(std::sqrt(static_cast<double>(triangles) / 4.0)))),
            spokes = 2 * rings;
  const double pi = 3.141592653589793;
  const auto push = [&](double theta, double phi) {
    const double r =
        static_cast<double>(radius) * (1.0 + 0.08 * std::sin(7.0 * theta) * std::cos(5.0 * phi) +
                                       0.02 * std::sin(41.0 * theta) * std::sin(37.0 * phi));
    m.points.emplace_back(static_cast<float>(r * std::sin(theta) * std::cos(phi)),
                          static_cast<float>(r * std::sin(theta) * std::sin(phi)),
                          static_cast<float>(r * std::cos(theta)));
  };
  push(0.0, 0.0);
  for (int i = 1; i < rings; ++i)
    for (int j = 0; j < spokes; ++j) push(pi * i / rings, 2.0 * pi * j / spokes);
  push(pi, 0.0);
  const int last = static_cast<int>(m.points.size()) - 1;
  const auto at = [&](int i, int j) { return 1 + (i - 1) * spokes + j % spokes; };
  for (int j = 0; j < spokes; ++j) m.indices.insert(m.indices.end(), {0, at(1, j), at(1, j + 1)});
  for (int i = 1; i + 1 < rings; ++i)
    for (int j = 0; j < spokes; ++j)
      m.indices.insert(m.indices.end(), {at(i, j), at(i + 1, j), at(i + 1, j + 1), at(i, j),
                                         at(i + 1, j + 1), at(i, j + 1)});
  for (int j = 0; j < spokes; ++j)
    m.indices.insert(m.indices.end(), {last, at(rings - 1, j + 1), at(rings - 1, j)});
  m.counts.assign(m.indices.size() / 3, 3);
  return m;
}

}  // namespace vela_test
