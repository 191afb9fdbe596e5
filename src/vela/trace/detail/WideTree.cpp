#include "vela/trace/detail/WideTree.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace vela::tracer {
namespace {

constexpr float kInfinity = std::numeric_limits<float>::infinity();

// Four floats in one register, on every processor. The fourth is not used.
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
// The sides are halved before they are added, since the sum of huge ones would overflow.
Float4 centerOf(const BuildBox& b) { return lowOf(b) * 0.5f + highOf(b) * 0.5f; }

constexpr std::uint32_t kLeafSize = kWidth;
constexpr int kBins = 16;
/// From this depth on each run is split into two of the same size, which ends within 32 more levels
/// whatever the boxes are.
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
  /// Blocks that a run fills. The cost of testing a block does not depend on how full it is.
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

  /// Plans how binary subtrees become children of wide nodes: for every number of child slots that
  /// a subtree may get in the wide node above it, the division of slots between its two sides for
  /// which the areas of all wide nodes below sum to the least. From the leaves up: a child's index
  /// is greater than its parent's. Source: Ylitie, Karras and Laine, Efficient Incoherent Ray
  /// Traversal on GPUs Through Compressed Wide BVHs, HPG 2017.
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

  /// Appends the binary nodes that fill the slots of a subtree.
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

  /// Makes a wide node of a binary one, and all below it. \return its index
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
  /// By number of slots, 1 to 7. toLeft[0] is how many of its eight slots a wide node of its own
  /// gives to the left side; toLeft[i] is 0 where opening does not pay.
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
