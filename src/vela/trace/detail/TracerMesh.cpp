#include "vela/trace/detail/TracerMesh.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "vela/mesh/Triangulate.h"

namespace vela::tracer {
namespace {

constexpr float kInfinity = std::numeric_limits<float>::infinity();

// Whether the corners span a triangle, by the cross product in double.
bool hasArea(const tarn::Vec3<float>& a, const tarn::Vec3<float>& b, const tarn::Vec3<float>& c) {
  const tarn::Vec3<double> da(a);
  return tarn::cross(tarn::Vec3<double>(b) - da, tarn::Vec3<double>(c) - da) !=
         tarn::Vec3<double>();
}

bool isFinite(const tarn::Vec3<float>& p) {
  return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z);
}

}  // namespace

tarn::Vec3<float> Mesh::corner(std::size_t triangle, std::size_t corner) const {
  const std::int32_t at = triangles[triangle].faceVertex[corner];
  return points.cdata()[indices.cdata()[at]];
}

void Mesh::prepare() {
  const tarn::Vec3<float>* const point = points.cdata();
  const int* const index = indices.cdata();
  const std::size_t numIndices =
      std::min<std::size_t>(indices.size(), std::numeric_limits<std::int32_t>::max());
  const std::size_t numFaces =
      std::min<std::size_t>(counts.size(), std::numeric_limits<std::int32_t>::max());

  tarn::Vec3<float> low(kInfinity), high(-kInfinity);
  std::vector<int> cut;
  std::size_t offset = 0;
  triangles.reserve(std::min(numFaces, numIndices / 3));
  for (std::size_t face = 0; face < numFaces && offset < numIndices; ++face) {
    // A face that cannot be used keeps its number. A positive count takes its indices with it.
    const int count = counts.cdata()[face];
    if (count <= 0) continue;
    const std::size_t begin = offset;
    offset += static_cast<std::size_t>(count);
    if (count < 3) continue;
    if (offset > numIndices) break;
    bool isSound = true;
    for (std::size_t k = begin; k < offset && isSound; ++k)
      isSound = index[k] >= 0 && static_cast<std::size_t>(index[k]) < points.size() &&
                isFinite(point[index[k]]);
    if (!isSound) continue;

    // Cut.
    if (count == 3)
      cut.assign({0, 1, 2});
    else
      triangulatePolygon(point, index + begin, count, cut);

    // A triangle without area can close the gap beside a corner that lies on a neighbour's edge,
    // so it stays when its face has area. One with two equal corners closes nothing.
    bool faceHasArea = false;
    const auto at = [&](std::size_t k) {
      return point[index[begin + static_cast<std::size_t>(cut[k])]];
    };
    for (std::size_t k = 0; k + 2 < cut.size() && !faceHasArea; k += 3)
      faceHasArea = hasArea(at(k), at(k + 1), at(k + 2));
    if (!faceHasArea) continue;
    for (std::size_t k = 0; k + 2 < cut.size(); k += 3) {
      if (at(k) == at(k + 1) || at(k + 1) == at(k + 2) || at(k) == at(k + 2)) continue;
      TriangleSource t;
      t.face = static_cast<std::int32_t>(face);
      for (std::size_t c = 0; c < 3; ++c) {
        t.faceVertex[c] = static_cast<std::int32_t>(begin) + cut[k + c];
        const tarn::Vec3<float> p = at(k + c);
        for (std::size_t i = 0; i < 3; ++i) {
          low[i] = std::fmin(low[i], p[i]);
          high[i] = std::fmax(high[i], p[i]);
        }
      }
      triangles.push_back(t);
    }
  }
  triangles.shrink_to_fit();
  frame = triangles.empty() ? MeshFrame() : makeMeshFrame(low, high);
}

void Mesh::build() {
  isBuilt = true;
  const std::size_t count = triangles.size();
  std::vector<BuildBox> boxes(count);
  const double growth = frame.growth();
  for (std::size_t t = 0; t < count; ++t) {
    BuildBox& box = boxes[t];
    box.index = static_cast<std::uint32_t>(t);
    box.unused = 0;
    for (std::size_t i = 0; i < 3; ++i) {
      const float a = scaleCoordinate(corner(t, 0)[i], frame),
                  b = scaleCoordinate(corner(t, 1)[i], frame);
      const float c = scaleCoordinate(corner(t, 2)[i], frame);
      box.low[i] = floatBelow(static_cast<double>(std::fmin(a, std::fmin(b, c))) - growth);
      box.high[i] = floatAbove(static_cast<double>(std::fmax(a, std::fmax(b, c))) + growth);
    }
  }
  std::vector<LeafRun> leaves;
  buildTree(boxes, nodes, leaves);
  nodes.shrink_to_fit();
  limits = limitsOf(nodes);

  // Fill the blocks.
  blocks.assign(leaves.size(), Block());
  for (std::size_t l = 0; l < leaves.size(); ++l) {
    Block& block = blocks[l];
    for (std::size_t lane = 0; lane < kWidth; ++lane) {
      const bool isUsed = lane < leaves[l].count;
      const std::size_t t = isUsed ? boxes[leaves[l].first + lane].index : 0;
      block.triangle[lane] = isUsed ? static_cast<std::uint32_t>(t) : kNone;
      for (std::size_t c = 0; c < 3; ++c)
        for (std::size_t i = 0; i < 3; ++i)
          block.corner[c][i][lane] = isUsed ? scaleCoordinate(corner(t, c)[i], frame)
                                            : std::numeric_limits<float>::quiet_NaN();
    }
  }
}

}  // namespace vela::tracer
