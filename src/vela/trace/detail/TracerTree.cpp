#include "vela/trace/detail/TracerTree.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "vela/mesh/Triangulate.h"

namespace vela::tracer {
namespace {

constexpr float kInfinity = std::numeric_limits<float>::infinity();

// Faces

tarn::Vec3<double> cross3(const tarn::Vec3<double>& a, const tarn::Vec3<double>& b) {
  return tarn::cross(a, b);
}

bool hasArea(const tarn::Vec3<float>& a, const tarn::Vec3<float>& b, const tarn::Vec3<float>& c) {
  const tarn::Vec3<double> da(a);
  return cross3(tarn::Vec3<double>(b) - da, tarn::Vec3<double>(c) - da) != tarn::Vec3<double>();
}

bool isFinite(const tarn::Vec3<float>& p) {
  return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z);
}

// Trees. A vector of four floats is one register everywhere; the fourth is not used.
typedef float Float4 __attribute__((vector_size(16)));

struct Bounds {
  Float4 low = {kInfinity, kInfinity, kInfinity, kInfinity};
  Float4 high = {-kInfinity, -kInfinity, -kInfinity, -kInfinity};

  void grow(const Float4& l, const Float4& h) {
    low = l < low ? l : low;
    high = h > high ? h : high;
  }
  void grow(const Bounds& b) { grow(b.low, b.high); }
  [[nodiscard]] float halfArea() const {
    const Float4 s = high - low;
    return s[0] * s[1] + s[1] * s[2] + s[2] * s[0];
  }
};

Float4 lowOf(const BuildBox& b) { return Float4{b.low[0], b.low[1], b.low[2], 0.0f}; }
Float4 highOf(const BuildBox& b) { return Float4{b.high[0], b.high[1], b.high[2], 0.0f}; }
// Twice the centre: halving changes no order. Halved first, since huge boxes would overflow.
Float4 centerOf(const BuildBox& b) { return lowOf(b) * 0.5f + highOf(b) * 0.5f; }

constexpr std::uint32_t kLeafSize = kWidth;
constexpr int kBins = 16;
/// From here on runs are halved by number, which ends within 32 more levels whatever the boxes look
/// like.
constexpr std::uint32_t kHalvingDepth = 60;
static_assert(kHalvingDepth + 32 <= kMaxDepth);

struct BinaryNode {
  Bounds bounds;
  std::uint32_t left = kNone, right = kNone;  ///< kNone: a leaf
  std::uint32_t first = 0, count = 0;
};

class TreeBuilder {
 public:
  TreeBuilder(std::vector<BuildBox>& boxes, LargeVector<Node>& nodes, std::vector<LeafRun>* leaves)
      : boxes_(boxes), nodes_(&nodes), leaves_(leaves) {}

  void run() {
    nodes_->clear();
    if (leaves_ != nullptr) leaves_->clear();
    if (boxes_.empty()) return;
    binary_.reserve(4 * boxes_.size() / kLeafSize + 1);
    split(0, static_cast<std::uint32_t>(boxes_.size()), 0);
    planWidening();
    if (leaves_ == nullptr && binary_[0].left == kNone)
      addSingles(binary_[0]);
    else
      widen(0);
  }

 private:
  /// Blocks that a run fills: testing one costs the same however full it is.
  [[nodiscard]] float blocks(std::uint32_t count) const {
    return static_cast<float>((count + kLeafSize - 1) / kLeafSize);
  }

  std::uint32_t split(std::uint32_t first, std::uint32_t count, std::uint32_t depth) {
    const auto at = static_cast<std::uint32_t>(binary_.size());
    binary_.emplace_back();

    // The boxes of the run and of its centres.
    Bounds bounds, centers;
    for (std::uint32_t i = first; i < first + count; ++i) {
      const BuildBox& b = boxes_[i];
      bounds.grow(lowOf(b), highOf(b));
      const Float4 c = centerOf(b);
      centers.grow(c, c);
    }
    binary_[at].bounds = bounds;
    binary_[at].first = first;
    binary_[at].count = count;
    if (count <= kLeafSize) return at;

    std::uint32_t leftCount = depth < kHalvingDepth ? splitBySurface(first, count, centers) : 0;
    if (leftCount == 0 || leftCount == count) leftCount = splitInHalf(first, count, centers);
    const std::uint32_t left = split(first, leftCount, depth + 1);
    const std::uint32_t right = split(first + leftCount, count - leftCount, depth + 1);
    binary_[at].left = left;
    binary_[at].right = right;
    return at;
  }

  /// \return the boxes on the left; 0 when no plane divides them
  std::uint32_t splitBySurface(std::uint32_t first, std::uint32_t count, const Bounds& centers) {
    // Bins along all three axes at once.
    struct Bin {
      Bounds bounds;
      std::uint32_t count = 0;
    };
    const int bins = count < 4 * kBins ? kBins / 2 : kBins;
    std::array<std::array<Bin, kBins>, 3> bin;
    const Float4 extent = centers.high - centers.low;
    Float4 scale = {0.0f, 0.0f, 0.0f, 0.0f};
    for (int axis = 0; axis < 3; ++axis) {
      const float s = static_cast<float>(bins) / extent[axis];
      scale[axis] = s <= std::numeric_limits<float>::max() ? s : 0.0f;
    }
    for (std::uint32_t i = first; i < first + count; ++i) {
      const Float4 low = lowOf(boxes_[i]), high = highOf(boxes_[i]);
      const Float4 place = ((low * 0.5f + high * 0.5f) - centers.low) * scale;
      for (int axis = 0; axis < 3; ++axis) {
        Bin& b = bin[static_cast<std::size_t>(axis)][binOf(place[axis], bins)];
        b.bounds.grow(low, high);
        ++b.count;
      }
    }

    // The cheapest plane; the first on ties.
    float best = std::numeric_limits<float>::max();
    int bestAxis = -1, bestPlane = 0;
    for (int axis = 0; axis < 3; ++axis) {
      if (scale[axis] == 0.0f) continue;
      const auto& row = bin[static_cast<std::size_t>(axis)];
      std::array<float, kBins> rightCost{};
      Bounds sweep;
      std::uint32_t n = 0;
      for (int k = bins - 1; k > 0; --k) {
        const auto b = static_cast<std::size_t>(k);
        sweep.grow(row[b].bounds);
        n += row[b].count;
        rightCost[b] = n == 0 ? kInfinity : sweep.halfArea() * blocks(n);
      }
      sweep = Bounds();
      n = 0;
      for (int k = 1; k < bins; ++k) {
        const auto b = static_cast<std::size_t>(k);
        sweep.grow(row[b - 1].bounds);
        n += row[b - 1].count;
        if (n == 0) continue;
        const float cost = sweep.halfArea() * blocks(n) + rightCost[b];
        if (cost < best) {
          best = cost;
          bestAxis = axis;
          bestPlane = k;
        }
      }
    }
    if (bestAxis < 0) return 0;

    const auto begin = boxes_.begin() + first;
    const auto middle = std::partition(begin, begin + count, [&](const BuildBox& b) {
      const Float4 place = (centerOf(b) - centers.low) * scale;
      return binOf(place[bestAxis], bins) < static_cast<std::size_t>(bestPlane);
    });
    return static_cast<std::uint32_t>(middle - begin);
  }

  static std::size_t binOf(float place, int bins) {
    const int k =
        place > 0.0f ? (place < static_cast<float>(bins) ? static_cast<int>(place) : bins - 1) : 0;
    return static_cast<std::size_t>(k);
  }

  std::uint32_t splitInHalf(std::uint32_t first, std::uint32_t count, const Bounds& centers) {
    const Float4 extent = centers.high - centers.low;
    int axis = 0;
    if (extent[1] > extent[0]) axis = 1;
    if (extent[2] > extent[axis]) axis = 2;
    const auto begin = boxes_.begin() + first;
    std::nth_element(begin, begin + count / 2, begin + count,
                     [axis](const BuildBox& a, const BuildBox& b) {
                       const float ca = centerOf(a)[axis], cb = centerOf(b)[axis];
                       return ca != cb ? ca < cb : a.index < b.index;
                     });
    return count / 2;
  }

  /// The cheapest way to make a subtree the children of wide nodes above it, for every number of
  /// places it may get: the sum of the wide nodes' areas counts, so the nodes come out full. From
  /// the leaves up, by number: children are made after parents. Source: Ylitie, Karras and Laine,
  /// Efficient Incoherent Ray Traversal on GPUs Through Compressed Wide BVHs, HPG 2017.
  void planWidening() {
    plan_.resize(binary_.size());
    for (std::size_t n = binary_.size(); n-- > 0;) {
      const BinaryNode& node = binary_[n];
      Plan& plan = plan_[n];
      if (node.left == kNone) {
        plan.cost.fill(0.0f);
        plan.toLeft.fill(0);
        continue;
      }
      const Plan &left = plan_[node.left], &right = plan_[node.right];
      // Shared out among `places` places, at least one a side.
      const auto share = [&](std::size_t places, std::uint8_t& toLeft) {
        float best = kInfinity;
        toLeft = 1;
        for (std::size_t k = 1; k < places; ++k) {
          const float cost =
              left.cost[std::min(k, kWidth - 1)] + right.cost[std::min(places - k, kWidth - 1)];
          if (cost < best) {
            best = cost;
            toLeft = static_cast<std::uint8_t>(k);
          }
        }
        return best;
      };
      // One place: a wide node of its own. More: opened, if that is cheaper.
      plan.toLeft.fill(0);
      plan.cost[1] = node.bounds.halfArea() + share(kWidth, plan.toLeft[0]);
      for (std::size_t places = 2; places < kWidth; ++places) {
        const float cost = share(places, plan.toLeft[places]);
        plan.cost[places] = cost;
        if (!(cost < plan.cost[places - 1])) {
          plan.cost[places] = plan.cost[places - 1];
          plan.toLeft[places] = 0;
        }
      }
    }
  }

  /// The binary nodes that take the places given to a subtree.
  void gather(std::uint32_t n, std::size_t places, std::array<std::uint32_t, kWidth>& part,
              std::size_t& count) const {
    // No division planned here, so fewer places serve as well.
    while (places > 1 && plan_[n].toLeft[places] == 0 && binary_[n].left != kNone) --places;
    if (places == 1 || binary_[n].left == kNone) {
      part[count++] = n;
      return;
    }
    const std::size_t toLeft = plan_[n].toLeft[places];
    gather(binary_[n].left, toLeft, part, count);
    gather(binary_[n].right, places - toLeft, part, count);
  }

  /// Makes one wide node of a binary one, and all below it.
  std::uint32_t widen(std::uint32_t root) {
    std::array<std::uint32_t, kWidth> part{};
    std::size_t count = 0;
    if (binary_[root].left == kNone) {
      part[count++] = root;
    } else {
      const std::size_t toLeft = plan_[root].toLeft[0];
      gather(binary_[root].left, std::min(toLeft, kWidth - 1), part, count);
      gather(binary_[root].right, std::min(kWidth - toLeft, kWidth - 1), part, count);
    }

    const std::uint32_t at = addNode();
    for (std::size_t i = 0; i < count; ++i) setBox(at, i, binary_[part[i]].bounds);
    for (std::size_t i = 0; i < count; ++i) {
      const BinaryNode& n = binary_[part[i]];
      const std::uint32_t child = n.left != kNone      ? widen(part[i])
                                  : leaves_ != nullptr ? addLeaf(n)
                                                       : addSingles(n);
      (*nodes_)[at].child[i] = child;
    }
    return at;
  }

  std::uint32_t addNode() {
    Node node;
    for (std::size_t i = 0; i < kWidth; ++i) {
      for (std::size_t axis = 0; axis < 3; ++axis) {
        node.side[0][axis][i] = kInfinity;
        node.side[1][axis][i] = -kInfinity;
      }
      node.child[i] = kNone;
    }
    nodes_->push_back(node);
    return static_cast<std::uint32_t>(nodes_->size() - 1);
  }

  void setBox(std::uint32_t node, std::size_t child, const Bounds& bounds) {
    for (std::size_t axis = 0; axis < 3; ++axis) {
      (*nodes_)[node].side[0][axis][child] = bounds.low[axis];
      (*nodes_)[node].side[1][axis][child] = bounds.high[axis];
    }
  }

  std::uint32_t addLeaf(const BinaryNode& leaf) {
    leaves_->push_back({leaf.first, leaf.count});
    return kLeaf | static_cast<std::uint32_t>(leaves_->size() - 1);
  }

  /// A leaf's boxes as the children of a node.
  std::uint32_t addSingles(const BinaryNode& leaf) {
    const std::uint32_t at = addNode();
    for (std::uint32_t i = 0; i < leaf.count; ++i) {
      const BuildBox& box = boxes_[leaf.first + i];
      Bounds bounds;
      bounds.grow(lowOf(box), highOf(box));
      setBox(at, i, bounds);
      (*nodes_)[at].child[i] = kLeaf | box.index;
    }
    return at;
  }

  std::vector<BuildBox>& boxes_;
  std::vector<BinaryNode> binary_;
  /// By number of places, 1 to 7; toLeft[0] is how a wide node of its own shares its eight,
  /// toLeft[i] is 0 where opening does not pay.
  struct Plan {
    std::array<float, kWidth> cost{};
    std::array<std::uint8_t, kWidth> toLeft{};
  };
  std::vector<Plan> plan_;
  LargeVector<Node>* nodes_;
  std::vector<LeafRun>* leaves_;
};

float roundDown(double v) { return std::nextafter(static_cast<float>(v), -kInfinity); }
float roundUp(double v) { return std::nextafter(static_cast<float>(v), kInfinity); }

}  // namespace

void buildTree(std::vector<BuildBox>& boxes, LargeVector<Node>& nodes,
               std::vector<LeafRun>& leaves) {
  TreeBuilder(boxes, nodes, &leaves).run();
}

void buildTreeOfSingles(std::vector<BuildBox>& boxes, LargeVector<Node>& nodes) {
  TreeBuilder(boxes, nodes, nullptr).run();
}

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
    // A face that cannot be used keeps its number and, with a count that makes sense, its indices.
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

    // A triangle without area closes the gap beside a corner that lies on a neighbour's edge, so
    // within a face that has area it stays; one with two equal corners closes nothing.
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
      box.low[i] = roundDown(static_cast<double>(std::fmin(a, std::fmin(b, c))) - growth);
      box.high[i] = roundUp(static_cast<double>(std::fmax(a, std::fmax(b, c))) + growth);
    }
  }
  std::vector<LeafRun> leaves;
  buildTree(boxes, nodes, leaves);
  nodes.shrink_to_fit();

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

bool placementBox(const Affine& localFromWorld, const MeshFrame& frame, BuildBox& out) {
  // What can be hit is what the ray's matrix says, so the box comes from its inverse and not from
  // the caller's matrix.
  Affine world;
  if (!invert(localFromWorld, world)) return false;

  // How much the two matrices multiply rounding errors. Rotations and scales of one factor stay
  // below 3; beyond 4096 the doubles of the ray itself are worth little and no box is safe.
  double condition = 0.0;
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) {
      double sum = 0.0;
      for (int k = 0; k < 3; ++k)
        sum += std::fabs(world.m[i][k]) * std::fabs(localFromWorld.m[k][j]);
      condition = std::fmax(condition, sum);
    }
  if (!(condition <= 4096.0)) return false;

  // The grown local box in world space; rounding the ray's origin to float moves it by at most a
  // unit of its coordinates.
  double center[3], half[3], reach = 0.0;
  for (int i = 0; i < 3; ++i) {
    center[i] = world.m[i][3];
    half[i] = 0.0;
    for (int j = 0; j < 3; ++j) {
      const auto axis = static_cast<std::size_t>(j);
      const double rounding =
          2.0 * kFloatRounding * (std::fabs(frame.center[axis]) + 5.0 * frame.radius);
      center[i] += world.m[i][j] * frame.center[axis];
      half[i] += std::fabs(world.m[i][j]) * (frame.halfSize[axis] + frame.growth() + rounding);
    }
    reach = std::fmax(reach, std::fabs(center[i]) + half[i]);
  }
  // 2^-44: some hundred roundings of a double.
  const double pad = reach * condition * condition * 5.684341886080802e-14;
  for (int i = 0; i < 3; ++i) {
    const double low = center[i] - half[i] - pad, high = center[i] + half[i] + pad;
    if (!(std::fabs(low) <= 1e30 && std::fabs(high) <= 1e30)) return false;
    out.low[i] = roundDown(low);
    out.high[i] = roundUp(high);
  }
  return true;
}

}  // namespace vela::tracer
