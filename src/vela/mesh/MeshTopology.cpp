#include "vela/mesh/MeshTopology.h"

#include <algorithm>

#include "ovo/Tokens.h"

namespace vela {

MeshTopology::MeshTopology(const ovo::MeshPrim& prim, const double& time) {
  if (!prim.isValid()) return;
  if (!prim.getPoints(points, time) || points.empty()) return;
  if (!prim.getAttr(ovo::tokens().faceVertexCounts).get(vertsPerFace, time) || vertsPerFace.empty())
    return;
  prim.getAttr(ovo::tokens().faceVertexIndices).get(faceVertPointIndices, time);
}

MeshTopology::Faces MeshTopology::faces() const {
  return Faces(vertsPerFace, faceVertPointIndices);
}

MeshTopology::Edges MeshTopology::edges() const {
  const ovo::Faces all(vertsPerFace, faceVertPointIndices);
  const auto pointCount = static_cast<std::int64_t>(points.size());
  const auto isEdge = [pointCount](std::int32_t a, std::int32_t b) {
    return a != b && a >= 0 && b >= 0 && a < pointCount && b < pointCount;
  };
  const auto forEachSide = [&](auto&& use) {
    for (const ovo::Face face : all) {
      const std::size_t sides = face.size() == 2 ? 1 : face.size() == 1 ? 0 : face.size();
      for (std::size_t k = 0; k < sides; ++k) {
        const std::int32_t a = face[k], b = face[k + 1 == face.size() ? 0 : k + 1];
        if (isEdge(a, b)) use(std::min(a, b), std::max(a, b));
      }
    }
  };

  // Bucket the sides by their smaller point, so that only the few around one point are ever sorted.
  std::vector<std::size_t> start(points.size() + 1, 0);
  forEachSide([&](std::int32_t a, std::int32_t) { ++start[static_cast<std::size_t>(a)]; });
  std::size_t end = 0;
  for (std::size_t& entry : start) entry = end += entry;
  std::vector<std::int32_t> larger(end);
  forEachSide(
      [&](std::int32_t a, std::int32_t b) { larger[--start[static_cast<std::size_t>(a)]] = b; });

  Edges out;
  for (std::size_t a = 0; a < points.size(); ++a) {
    const auto first = larger.begin() + static_cast<std::ptrdiff_t>(start[a]);
    const auto last = larger.begin() + static_cast<std::ptrdiff_t>(start[a + 1]);
    std::sort(first, last);
    for (auto b = first; b != last;) {
      const auto next = std::upper_bound(b, last, *b);
      out.edges_.push_back({static_cast<std::int32_t>(a), *b, static_cast<std::int32_t>(next - b)});
      b = next;
    }
  }
  return out;
}

}  // namespace vela
