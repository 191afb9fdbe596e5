// Polygons as text, "x y z, x y z, ...": cuts have the number of triangles that they promise, of
// corners that there are, and every corner is used.
#include <cmath>
#include <cstdlib>
#include <numeric>
#include <string>
#include <vector>

#include "fuzz/Require.h"
#include "vela/mesh/Triangulate.h"

namespace {

using vela_test::require;

std::vector<tarn::Vec3<float>> parse(const std::string& text) {
  std::vector<tarn::Vec3<float>> points;
  const char* at = text.c_str();
  while (*at != '\0' && points.size() < 300) {
    tarn::Vec3<float> point;
    for (std::size_t axis = 0; axis < 3; ++axis) {
      char* end = nullptr;
      point[axis] = std::strtof(at, &end);
      if (end == at) return points;
      at = end;
    }
    points.push_back(point);
    while (*at == ',' || *at == ' ') ++at;
  }
  return points;
}

void requireCorners(const std::vector<int>& triangles, int count) {
  require(triangles.size() % 3 == 0, "whole triangles");
  for (const int corner : triangles) require(corner >= 0 && corner < count, "corners that exist");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const std::vector<tarn::Vec3<float>> points = parse(text);
  const int count = static_cast<int>(points.size());
  const auto expected = static_cast<std::size_t>(count < 3 ? 0 : 3 * (count - 2));
  std::vector<int> indices(points.size()), triangles;
  std::iota(indices.begin(), indices.end(), 0);

  vela::Triangulate(points.data(), indices.data(), count, triangles);
  requireCorners(triangles, count);
  require(triangles.size() <= expected, "no more triangles than corners allow");

  vela::triangulatePolygon(points.data(), indices.data(), count, triangles);
  requireCorners(triangles, count);
  require(triangles.size() == expected, "as many triangles as corners make");
  std::vector<bool> used(points.size(), count < 3);
  for (const int corner : triangles) used[static_cast<std::size_t>(corner)] = true;
  for (const bool is : used) require(is, "every corner is used");

  // A power of two changes no decision, while nothing overflows or turns denormal.
  std::vector<tarn::Vec3<float>> larger = points;
  for (tarn::Vec3<float>& point : larger)
    for (std::size_t axis = 0; axis < 3; ++axis) {
      const float magnitude = std::fabs(point[axis]);
      if (magnitude != 0 && !(magnitude > 1e-15f && magnitude < 1e15f)) return 0;
      point[axis] *= 16.0f;
    }
  std::vector<int> same;
  vela::triangulatePolygon(larger.data(), indices.data(), count, same);
  require(same == triangles, "the same cut at any size");
  return 0;
}
