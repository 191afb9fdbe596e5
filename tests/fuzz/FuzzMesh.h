/// \file
/// Meshes and rays out of the bytes that a fuzz target is given.
#pragma once

#include <cmath>

#include "fuzz/Require.h"
#include "ovo/Array.h"
#include "tarn/Ray.h"
#include "tarn/Vec.h"

namespace vela_test {

struct FuzzMesh {
  ovo::Array<tarn::Vec3f> points;
  ovo::Array<int> counts, indices;
};

/// Points of few values, so that many coincide, and counts and indices that may contradict them and
/// each other. Twelve bytes are left for a ray.
inline FuzzMesh takeMesh(Bytes& bytes) {
  FuzzMesh mesh;
  std::size_t numPoints = bytes.take<std::uint8_t>(), numFaces = bytes.take<std::uint8_t>();
  for (; numPoints > 0 && !bytes.empty(); --numPoints) {
    const float x = bytes.coordinate(), y = bytes.coordinate(), z = bytes.coordinate();
    mesh.points.push_back({x, y, z});
  }
  for (; numFaces > 0 && !bytes.empty(); --numFaces) {
    const auto count = bytes.take<std::int8_t>();
    mesh.counts.push_back(count == 127 ? std::numeric_limits<int>::max() : count);
  }
  while (bytes.left() > 12) {
    const auto index = bytes.take<std::int8_t>();
    mesh.indices.push_back(index == -128 ? std::numeric_limits<int>::min() : index);
  }
  return mesh;
}

/// Triangles, each of three points of its own, until \p keep bytes are left: small ones, large ones
/// and some without area, that can all be used.
inline FuzzMesh takeTriangles(Bytes& bytes, std::size_t keep) {
  FuzzMesh mesh;
  // Lists of more than 600 triangles are kept another way than shorter ones.
  const int copies = bytes.take<std::uint8_t>() % 8 == 7 ? 700 : 1;
  while (bytes.left() > keep) {
    const int first = static_cast<int>(mesh.points.size());
    for (int corner = 0; corner < 3; ++corner) {
      const float x = bytes.coordinate(), y = bytes.coordinate(), z = bytes.coordinate();
      mesh.points.push_back({x, y, z});
    }
    for (int copy = 0; copy < (first == 0 ? copies : 1); ++copy) {
      mesh.counts.push_back(3);
      for (int corner = 0; corner < 3; ++corner) mesh.indices.push_back(first + corner);
    }
  }
  return mesh;
}

/// Any ray: of length zero, along an axis, with a range that is empty or endless.
inline tarn::Ray3f takeRay(Bytes& bytes) {
  tarn::Ray3f ray;
  for (std::size_t axis = 0; axis < 3; ++axis) ray.origin[axis] = bytes.coordinate();
  for (std::size_t axis = 0; axis < 3; ++axis) ray.direction[axis] = bytes.coordinate();
  switch (bytes.take<std::uint8_t>() % 8) {
    case 0: ray.minDistance = bytes.coordinate(); break;
    case 1: ray.maxDistance = bytes.coordinate(); break;
    case 2: ray.maxDistance = std::numeric_limits<float>::infinity(); break;
    default: break;
  }
  return ray;
}

inline bool isFinite(const tarn::Vec3f& v) {
  return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
}

}  // namespace vela_test
