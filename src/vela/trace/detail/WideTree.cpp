#include "vela/trace/detail/WideTree.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include "tarn/Lanes.h"

namespace vela::tracer {
namespace {

constexpr float kInfinity = std::numeric_limits<float>::infinity();

using Lanes = tarn::baseline::FloatLanes<4>;

struct Bounds {
  Lanes low = Lanes::broadcast(kInfinity);
  Lanes high = Lanes::broadcast(-kInfinity);

  void grow(const Lanes& l, const Lanes& h) {
    low = min(l, low);
    high = max(h, high);
  }
  void grow(const Bounds& b) { grow(b.low, b.high); }
  [[nodiscard]] float halfArea() const {
    float s[4];
    (high - low).store(s);
    return s[0] * s[1] + s[1] * s[2] + s[2] * s[0];
  }
};

Lanes lowOf(const BuildBox& b) { return Lanes::load(b.low); }
Lanes highOf(const BuildBox& b) { return Lanes::load(b.high); }
// The sides are halved before they are added, since the sum of huge ones would overflow. The fourth
// lane holds the bits of the index and means nothing.
Lanes centerOf(const BuildBox& b) {
  const Lanes half = Lanes::broadcast(0.5f);
  return lowOf(b) * half + highOf(b) * half;
}

constexpr std::uint32_t kLeafSize = kWidth;
constexpr int kBins = 16;
constexpr std::uint32_t kSampledRun = 32768;
// From this depth on each run is split into two of the same size, which ends within 32 more levels
// whatever the boxes are.
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
    other_.resize(boxes_.size());
    split(boxes_, 0, static_cast<std::uint32_t>(boxes_.size()), 0);
    planWidening();
    if (leaves_ == nullptr && binary_[0].left == kNone)
      addSingles(binary_[0]);
    else
      widen(0);
  }

 private:
  // Blocks that a run fills. The cost of testing a block does not depend on how full it is.
  [[nodiscard]] float blocks(std::uint32_t count) const {
    const std::uint32_t whole = (count + kLeafSize - 1) / kLeafSize;
    return static_cast<float>(whole);
  }

  // Splits a run until leaves are left. The boxes of the run stand in \p from, those of a leaf go
  // to boxes_. Partitions are written to the other of the two arrays: without a branch, as the
  // side of a box is a coin toss. \return the index of the binary node
  std::uint32_t split(std::vector<BuildBox>& from, std::uint32_t first, std::uint32_t count,
                      std::uint32_t depth) {
    const auto at = static_cast<std::uint32_t>(binary_.size());
    binary_.emplace_back();

    // The boxes of the run and of its centers.
    Bounds bounds, centers;
    for (std::uint32_t i = first; i < first + count; ++i) {
      bounds.grow(lowOf(from[i]), highOf(from[i]));
      const Lanes c = centerOf(from[i]);
      centers.grow(c, c);
    }
    binary_[at].bounds = bounds;
    binary_[at].first = first;
    binary_[at].count = count;
    if (count <= kLeafSize) {
      if (&from != &boxes_)
        std::copy(from.begin() + first, from.begin() + first + count, boxes_.begin() + first);
      return at;
    }

    std::vector<BuildBox>* to = &from;
    std::uint32_t leftCount = 0;
    if (depth < kHalvingDepth) {
      const Plane plane = cheapestPlane(from, first, count, centers);
      if (plane.axis >= 0) {
        to = &from == &boxes_ ? &other_ : &boxes_;
        leftCount = partition(from, *to, first, count, centers, plane);
      }
    }
    if (leftCount == 0 || leftCount == count) leftCount = splitInHalf(*to, first, count, centers);
    const std::uint32_t left = split(*to, first, leftCount, depth + 1);
    const std::uint32_t right = split(*to, first + leftCount, count - leftCount, depth + 1);
    binary_[at].left = left;
    binary_[at].right = right;
    return at;
  }

  // Boxes whose center lies in a lower bin than `bin` go to the left.
  struct Plane {
    int axis = -1;  ///< -1: no plane divides the boxes
    int bin = 0;
    Lanes scale;  ///< bins for a unit along each axis
    float last;   ///< the number of the last bin
  };

  static Lanes binsOf(const BuildBox& box, const Bounds& centers, const Plane& plane) {
    // Below zero only by rounding, or where it is NaN: both become 0.
    const Lanes at = (centerOf(box) - centers.low) * plane.scale;
    return min(max(at, Lanes::broadcast(0.0f)), Lanes::broadcast(plane.last));
  }

  Plane cheapestPlane(const std::vector<BuildBox>& from, std::uint32_t first, std::uint32_t count,
                      const Bounds& centers) const {
    // Large runs are sampled: every fifth box says as much of where to divide.
    const std::uint32_t step = count >= kSampledRun ? 5 : 1;
    const int bins = count < 4 * kBins ? kBins / 2 : kBins;
    struct Bin {
      Bounds bounds;
      std::uint32_t count = 0;
    };
    std::array<std::array<Bin, kBins>, 3> bin;

    Plane plane;
    plane.last = static_cast<float>(bins - 1);
    float scale[4];
    (centers.high - centers.low).store(scale);
    for (float& s : scale) {
      s = static_cast<float>(bins) / s;
      if (!(s <= std::numeric_limits<float>::max())) s = 0.0f;
    }
    scale[3] = 0.0f;
    plane.scale = Lanes::load(scale);
    for (std::uint32_t i = first; i < first + count; i += step) {
      float at[4];
      binsOf(from[i], centers, plane).store(at);
      const Lanes low = lowOf(from[i]), high = highOf(from[i]);
      for (std::size_t axis = 0; axis < 3; ++axis) {
        Bin& b = bin[axis][static_cast<std::size_t>(static_cast<int>(at[axis]))];
        b.bounds.grow(low, high);
        ++b.count;
      }
    }

    // The cheapest plane; the first on ties.
    float best = std::numeric_limits<float>::max();
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
        rightCost[b] = n == 0 ? kInfinity : sweep.halfArea() * blocks(n * step);
      }
      sweep = Bounds();
      n = 0;
      for (int k = 1; k < bins; ++k) {
        const auto b = static_cast<std::size_t>(k);
        sweep.grow(row[b - 1].bounds);
        n += row[b - 1].count;
        if (n == 0) continue;
        const float cost = sweep.halfArea() * blocks(n * step) + rightCost[b];
        if (cost < best) {
          best = cost;
          plane.axis = axis;
          plane.bin = k;
        }
      }
    }
    return plane;
  }

  // Those on the left from the front on, the others from the back on. \return how many are left
  static std::uint32_t partition(const std::vector<BuildBox>& from, std::vector<BuildBox>& to,
                                 std::uint32_t first, std::uint32_t count, const Bounds& centers,
                                 const Plane& plane) {
    const auto axis = static_cast<std::size_t>(plane.axis);
    const auto bin = static_cast<float>(plane.bin);
    std::uint32_t left = first, right = first + count - 1;
    for (std::uint32_t i = first; i < first + count; ++i) {
      float at[4];
      binsOf(from[i], centers, plane).store(at);
      const std::uint32_t isLeft = at[axis] < bin ? 1 : 0;
      to[left] = from[i];
      to[right] = from[i];
      left += isLeft;
      right -= 1 - isLeft;
    }
    return left - first;
  }

  static std::uint32_t splitInHalf(std::vector<BuildBox>& boxes, std::uint32_t first,
                                   std::uint32_t count, const Bounds& centers) {
    float extent[4];
    (centers.high - centers.low).store(extent);
    std::size_t axis = 0;
    if (extent[1] > extent[0]) axis = 1;
    if (extent[2] > extent[axis]) axis = 2;
    const auto begin = boxes.begin() + first;
    std::nth_element(begin, begin + count / 2, begin + count,
                     [axis](const BuildBox& a, const BuildBox& b) {
                       const float ca = a.low[axis] * 0.5f + a.high[axis] * 0.5f;
                       const float cb = b.low[axis] * 0.5f + b.high[axis] * 0.5f;
                       return ca != cb ? ca < cb : a.index < b.index;
                     });
    return count / 2;
  }

  // Plans how binary subtrees become children of wide nodes: for every number of child slots that
  // a subtree may get in the wide node above it, the division of slots between its two sides for
  // which the areas of all wide nodes below sum to the least. From the leaves up: a child's index
  // is greater than its parent's. Source: Ylitie, Karras and Laine, Efficient Incoherent Ray
  // Traversal on GPUs Through Compressed Wide BVHs, HPG 2017.
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
      // Divides the slots between the two sides, at least one a side.
      const auto share = [&](std::size_t slots, std::uint8_t& toLeft) {
        float best = kInfinity;
        toLeft = 1;
        for (std::size_t k = 1; k < slots; ++k) {
          const float cost =
              left.cost[std::min(k, kWidth - 1)] + right.cost[std::min(slots - k, kWidth - 1)];
          if (cost < best) {
            best = cost;
            toLeft = static_cast<std::uint8_t>(k);
          }
        }
        return best;
      };
      // With one slot the subtree is a wide node of its own. With more it is opened, if that is
      // cheaper.
      plan.toLeft.fill(0);
      plan.cost[1] = node.bounds.halfArea() + share(kWidth, plan.toLeft[0]);
      for (std::size_t slots = 2; slots < kWidth; ++slots) {
        const float cost = share(slots, plan.toLeft[slots]);
        plan.cost[slots] = cost;
        if (!(cost < plan.cost[slots - 1])) {
          plan.cost[slots] = plan.cost[slots - 1];
          plan.toLeft[slots] = 0;
        }
      }
    }
  }

  // Appends the binary nodes that fill the slots of a subtree.
  void gather(std::uint32_t n, std::size_t slots, std::array<std::uint32_t, kWidth>& part,
              std::size_t& count) const {
    // Where opening does not pay with so many slots, the plan for fewer holds.
    while (slots > 1 && plan_[n].toLeft[slots] == 0 && binary_[n].left != kNone) --slots;
    if (slots == 1 || binary_[n].left == kNone) {
      part[count++] = n;
      return;
    }
    const std::size_t toLeft = plan_[n].toLeft[slots];
    gather(binary_[n].left, toLeft, part, count);
    gather(binary_[n].right, slots - toLeft, part, count);
  }

  // Makes a wide node of a binary one, and all below it. \return its index
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
    float low[4], high[4];
    bounds.low.store(low);
    bounds.high.store(high);
    for (std::size_t axis = 0; axis < 3; ++axis) {
      (*nodes_)[node].side[0][axis][child] = low[axis];
      (*nodes_)[node].side[1][axis][child] = high[axis];
    }
  }

  std::uint32_t addLeaf(const BinaryNode& leaf) {
    leaves_->push_back({leaf.first, leaf.count});
    return kLeaf | static_cast<std::uint32_t>(leaves_->size() - 1);
  }

  // A leaf's boxes as the children of a node.
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
  std::vector<BuildBox> other_;
  std::vector<BinaryNode> binary_;
  // By number of slots, 1 to 7. toLeft[0] is how many of its eight slots a wide node of its own
  // gives to the left side; toLeft[i] is 0 where opening does not pay.
  struct Plan {
    std::array<float, kWidth> cost{};
    std::array<std::uint8_t, kWidth> toLeft{};
  };
  std::vector<Plan> plan_;
  LargeVector<Node>* nodes_;
  std::vector<LeafRun>* leaves_;
};

}  // namespace

void buildTree(std::vector<BuildBox>& boxes, LargeVector<Node>& nodes,
               std::vector<LeafRun>& leaves) {
  TreeBuilder(boxes, nodes, &leaves).run();
}

void buildTreeOfSingles(std::vector<BuildBox>& boxes, LargeVector<Node>& nodes) {
  TreeBuilder(boxes, nodes, nullptr).run();
}

TreeLimits limitsOf(const LargeVector<Node>& nodes) {
  TreeLimits limits;
  if (nodes.empty()) return limits;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    limits.box[0][axis] = kInfinity;
    limits.box[1][axis] = -kInfinity;
    for (std::size_t i = 0; i < kWidth; ++i) {
      limits.box[0][axis] = std::min(limits.box[0][axis], nodes[0].side[0][axis][i]);
      limits.box[1][axis] = std::max(limits.box[1][axis], nodes[0].side[1][axis][i]);
    }
  }
  // Whichever child a walk enters, the others may wait. Children have greater indices.
  std::vector<std::uint32_t> waiting(nodes.size());
  for (std::size_t n = nodes.size(); n-- > 0;) {
    std::uint32_t count = 0, below = 0;
    for (const std::uint32_t child : nodes[n].child) {
      if (child == kNone) continue;
      ++count;
      if ((child & kLeaf) == 0) below = std::max(below, waiting[child]);
    }
    waiting[n] = count - 1 + below;
  }
  limits.mostWaiting = waiting[0];
  return limits;
}

}  // namespace vela::tracer
