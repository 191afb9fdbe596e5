#include "vela/trace/detail/TracerMesh.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include "ovo/Faces.h"
#include "tarn/Area.h"
#include "tarn/Box3.h"
#include "tarn/Lanes.h"
#include "vela/mesh/Triangulate.h"

namespace vela::tracer {
namespace {

using Lanes = tarn::baseline::FloatLanes<4>;

// Whether the corners span a triangle, by the cross product in double.
bool hasArea(const tarn::Vec3f& a, const tarn::Vec3f& b, const tarn::Vec3f& c) {
  return tarn::areaVector(tarn::Vec3d(a), tarn::Vec3d(b), tarn::Vec3d(c)) != tarn::Vec3d();
}

// True only where hasArea is: far from all rounding, in float. Each component of the cross product
// is off by less than 8 roundings of the product of the edges.
bool surelyHasArea(const tarn::Vec3f& a, const tarn::Vec3f& b, const tarn::Vec3f& c) {
  const tarn::Vec3f e = b - a, f = c - a, n = tarn::cross(e, f);
  const auto size = [](const tarn::Vec3f& v) {
    const float xy = std::fabs(v.x) > std::fabs(v.y) ? std::fabs(v.x) : std::fabs(v.y);
    return xy > std::fabs(v.z) ? xy : std::fabs(v.z);
  };
  constexpr float kFar = 1e-5f;
  static_assert(static_cast<double>(kFar) > 16.0 * kFloatRounding);
  const float product = size(e) * size(f);
  return product > 1e-25f && product < 1e25f && size(n) > kFar * product;
}

}  // namespace

void Mesh::prepare() {
  if (isRound) return prepareTubes();
  if (!prepareTriangles()) prepareFaces();
}

// Where each face is one usable triangle. \return false, with nothing kept, where one is not
bool Mesh::prepareTriangles() {
  const std::size_t count = counts.size();
  if (count > indices.size() / 3 || indices.size() > std::numeric_limits<std::int32_t>::max())
    return false;
  const tarn::Vec3f* const point = points.cdata();
  const int* const index = indices.cdata();
  const int* const corners = counts.cdata();
  tarn::Box3f box;
  for (std::size_t face = 0; face < count; ++face) {
    if (corners[face] != 3) return false;
    const auto a = static_cast<std::size_t>(index[3 * face]),
               b = static_cast<std::size_t>(index[3 * face + 1]),
               c = static_cast<std::size_t>(index[3 * face + 2]);
    // A negative index is a huge one here.
    if (a >= points.size() || b >= points.size() || c >= points.size()) return false;
    const tarn::Vec3f &pa = point[a], &pb = point[b], &pc = point[c];
    if (!surelyHasArea(pa, pb, pc) && (!isFinite(pa) || !isFinite(pb) || !isFinite(pc) ||
                                       !hasArea(pa, pb, pc) || pa == pb || pb == pc || pa == pc))
      return false;
    box.extendBy(pa);
    box.extendBy(pb);
    box.extendBy(pc);
  }
  numTriangles = count;
  frame = count == 0 ? MeshFrame() : makeMeshFrame(box.min, box.max);
  return true;
}

void Mesh::prepareFaces() {
  const tarn::Vec3f* const point = points.cdata();
  const std::size_t numIndices =
      std::min<std::size_t>(indices.size(), std::numeric_limits<std::int32_t>::max());
  const std::size_t numFaces =
      std::min<std::size_t>(counts.size(), std::numeric_limits<std::int32_t>::max());

  tarn::Box3f box;
  std::vector<int> cut;
  sources.reserve(std::min(numFaces, numIndices / 3));
  const ovo::Faces faces(counts.view().first(numFaces), indices.view().first(numIndices));
  for (const ovo::Face corners : faces) {
    const auto isSound = [point](int p) { return isFinite(point[p]); };
    if (!corners.isUsable(points.size()) || !std::all_of(corners.begin(), corners.end(), isSound))
      continue;

    // Cut.
    if (corners.size() == 3)
      cut.assign({0, 1, 2});
    else
      triangulatePolygon(point, corners.data(), static_cast<int>(corners.size()), cut);

    // A triangle without area can close the gap beside a corner that lies on a neighbour's edge,
    // so it stays when its face has area. One with two equal corners closes nothing.
    bool faceHasArea = false;
    const auto at = [&](std::size_t k) { return point[corners[static_cast<std::size_t>(cut[k])]]; };
    for (std::size_t k = 0; k + 2 < cut.size() && !faceHasArea; k += 3)
      faceHasArea = hasArea(at(k), at(k + 1), at(k + 2));
    if (!faceHasArea) continue;
    for (std::size_t k = 0; k + 2 < cut.size(); k += 3) {
      if (at(k) == at(k + 1) || at(k + 1) == at(k + 2) || at(k) == at(k + 2)) continue;
      TriangleSource t;
      t.face = static_cast<std::int32_t>(corners.index());
      for (std::size_t c = 0; c < 3; ++c) {
        t.faceVertex[c] = static_cast<std::int32_t>(corners.firstVertex()) + cut[k + c];
        box.extendBy(at(k + c));
      }
      sources.push_back(t);
    }
  }
  sources.shrink_to_fit();
  numTriangles = sources.size();
  frame = sources.empty() ? MeshFrame() : makeMeshFrame(box.min, box.max);
}

void Mesh::build() {
  isBuilt = true;
  if (isRound) return buildTubes();
  if (numTriangles == 0) return;

  // Each point into scaled space once, most belong to several triangles. The product with a power
  // of two is exact in double, so narrowing rounds once, as ldexp does.
  const double scale = std::ldexp(1.0, -frame.exponent);
  struct alignas(16) Point {
    float xyzw[4];
  };
  std::vector<Point> scaled(points.size());
  for (std::size_t p = 0; p < points.size(); ++p) {
    const tarn::Vec3f& from = points.view()[p];
    scaled[p] = {{static_cast<float>(static_cast<double>(from.x) * scale),
                  static_cast<float>(static_cast<double>(from.y) * scale),
                  static_cast<float>(static_cast<double>(from.z) * scale), 0.0f}};
  }
  const auto cornersOf = [&](std::size_t t, const Point*(&corner)[3]) {
    const TriangleSource from = source(t);
    for (std::size_t c = 0; c < 3; ++c)
      corner[c] = &scaled[static_cast<std::size_t>(indices.view()[from.faceVertex[c]])];
  };

  // The boxes, grown; then rounded outward. A subtraction of floats and the one that follows are
  // off by kFloatRounding of their result each.
  constexpr float kOutward = 2.4e-7f, kTiny = 1e-37f;
  static_assert(static_cast<double>(kOutward) > 3.0 * kFloatRounding);
  const Lanes growth = Lanes::broadcast(floatAbove(frame.growth()));
  std::vector<BuildBox> boxes(numTriangles);
  for (std::size_t t = 0; t < numTriangles; ++t) {
    const Point* corner[3];
    cornersOf(t, corner);
    const Lanes a = Lanes::load(corner[0]->xyzw), b = Lanes::load(corner[1]->xyzw),
                c = Lanes::load(corner[2]->xyzw);
    const Lanes low = min(a, min(b, c)) - growth, high = max(a, max(b, c)) + growth;
    const auto outward = [&](const Lanes& v) {
      return abs(v) * Lanes::broadcast(kOutward) + Lanes::broadcast(kTiny);
    };
    (low - outward(low)).store(boxes[t].low);
    (high + outward(high)).store(boxes[t].high);
    boxes[t].index = static_cast<std::uint32_t>(t);
    boxes[t].unused = 0;
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
      block.triangle[lane] = isUsed ? boxes[leaves[l].first + lane].index : kNone;
      if (isUsed) {
        const Point* corner[3];
        cornersOf(block.triangle[lane], corner);
        for (std::size_t c = 0; c < 3; ++c)
          for (std::size_t i = 0; i < 3; ++i) block.corner[c][i][lane] = corner[c]->xyzw[i];
      } else {
        for (auto& corner : block.corner)
          for (auto& axis : corner) axis[lane] = std::numeric_limits<float>::quiet_NaN();
      }
    }
  }
}

void Mesh::prepareTubes() {
  constexpr std::size_t kMost = std::numeric_limits<std::int32_t>::max();
  // Positions reach up to where their box is still of floats.
  constexpr double kFarthest = 3e38;
  const std::size_t numPoints = std::min({points.size(), radii.size(), kMost});
  const tarn::Vec3f* const point = points.cdata();
  const float* const radius = radii.cdata();
  const auto isSound = [&](std::size_t p) {
    const double r = static_cast<double>(radius[p]);
    bool isIn = r >= 0.0;
    for (std::size_t i = 0; i < 3; ++i)
      isIn = isIn && std::fabs(static_cast<double>(point[p][i])) + r <= kFarthest;
    return isIn;
  };
  tarn::Box3f box;
  const auto reach = [&](std::size_t p) {
    const double r = static_cast<double>(radius[p]);
    for (std::size_t i = 0; i < 3; ++i) {
      const double at = static_cast<double>(point[p][i]);
      box.min[i] = std::min(box.min[i], floatBelow(at - r));
      box.max[i] = std::max(box.max[i], floatAbove(at + r));
    }
  };
  const auto add = [&](std::size_t a, std::size_t b, std::size_t tube) {
    if (!isSound(a) || !isSound(b) || !(radius[a] > 0.0f || radius[b] > 0.0f)) return;
    const auto number = static_cast<std::uint32_t>(pieces.size());
    Piece piece = {static_cast<std::uint32_t>(a), static_cast<std::uint32_t>(b), kNone, kNone,
                   static_cast<std::int32_t>(tube)};
    if (!pieces.empty() && pieces.back().tube == piece.tube && pieces.back().b == piece.a) {
      piece.previous = number - 1;
      pieces.back().next = number;
    }
    pieces.push_back(piece);
    reach(a);
    reach(b);
  };

  pieces.reserve(numPoints);
  std::size_t begin = 0;
  for (std::size_t tube = 0; tube < std::min(counts.size(), kMost); ++tube) {
    if (counts.view()[tube] <= 0) continue;
    const auto count = static_cast<std::size_t>(counts.view()[tube]);
    if (count > numPoints - begin) break;
    const std::size_t end = begin + count - 1, firstPiece = pieces.size();
    if (count == 1) add(begin, begin, tube);
    for (std::size_t p = begin; p < end; ++p) add(p, p + 1, tube);
    // Closed where the last point is the first again: its ends are neighbours then.
    const bool isClosed = count > 3 && pieces.size() > firstPiece + 1 &&
                          pieces[firstPiece].a == begin && pieces.back().b == end &&
                          point[begin] == point[end] && radius[begin] == radius[end];
    if (isClosed) {
      pieces[firstPiece].previous = static_cast<std::uint32_t>(pieces.size() - 1);
      pieces.back().next = static_cast<std::uint32_t>(firstPiece);
    }
    begin += count;
  }
  frame = pieces.empty() ? MeshFrame() : makeMeshFrame(box.min, box.max);
}

void Mesh::buildTubes() {
  if (pieces.empty()) return;
  joints.resize(std::min(points.size(), radii.size()));
  for (const Piece& piece : pieces)
    for (const std::uint32_t p : {piece.a, piece.b}) {
      const tarn::Vec3f& from = points.view()[p];
      joints[p] = {scaleCoordinate(from.x, frame), scaleCoordinate(from.y, frame),
                   scaleCoordinate(from.z, frame), scaleCoordinate(radii.view()[p], frame)};
    }

  // How far boxes are grown, so that no slab test misses what crossPiece finds. In units of
  // kFloatRounding: the slab test takes differences of up to 6 radius with three roundings, 18
  // radius; and crossPiece, whose doubles find squares to some 1e-14, finds grazing rays to the
  // square root of it, 1e-7 or two radius. crossPiece has the exact origin where the slab test has
  // the rounded one, whose coordinates are at most 5 radius from the centre: half a unit of those.
  constexpr double kGrowth = 64.0;
  static_assert(kGrowth > 2.0 * (18.0 + 2.0));
  std::vector<BuildBox> boxes(pieces.size());
  for (std::size_t n = 0; n < pieces.size(); ++n) {
    const Joint &a = joints[pieces[n].a], &b = joints[pieces[n].b];
    const float from[2][3] = {{a.x, a.y, a.z}, {b.x, b.y, b.z}};
    const double ra = static_cast<double>(a.radius), rb = static_cast<double>(b.radius);
    for (std::size_t i = 0; i < 3; ++i) {
      const double pa = static_cast<double>(from[0][i]), pb = static_cast<double>(from[1][i]);
      const double growth =
          kFloatRounding * (kGrowth * frame.radius + std::fabs(frame.center[i]) + 5 * frame.radius);
      boxes[n].low[i] = floatBelow(std::min(pa - ra, pb - rb) - growth);
      boxes[n].high[i] = floatAbove(std::max(pa + ra, pb + rb) + growth);
    }
    boxes[n].index = static_cast<std::uint32_t>(n);
    boxes[n].unused = 0;
  }
  buildTreeOfSingles(boxes, nodes);
  nodes.shrink_to_fit();
  limits = limitsOf(nodes);
}

}  // namespace vela::tracer
