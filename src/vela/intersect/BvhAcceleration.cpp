#include "vela/intersect/BvhAcceleration.h"

#include <algorithm>
#include <array>
#include <limits>
#include <utility>
#include <vector>

#include "tarn/Lanes.h"
#include "vela/intersect/AccelerationModel.h"
#include "vela/intersect/detail/Kernels.h"

namespace vela {
namespace {

constexpr std::uint32_t kLeafSize = 3;
constexpr std::size_t kBins = 12;
constexpr std::size_t kStackSize = 100;

// What waits for its turn: the first 100 on the stack, the rest on the heap.
template <class T>
class WaitingStack {
 public:
  void push(const T& node) {
    if (size_ < kStackSize)
      local_[size_++] = node;
    else
      spilled_.push_back(node);
  }
  bool pop(T& node) {
    if (!spilled_.empty()) {
      node = spilled_.back();
      spilled_.pop_back();
      return true;
    }
    if (size_ == 0) return false;
    node = local_[--size_];
    return true;
  }

 private:
  T local_[kStackSize];
  std::size_t size_ = 0;
  std::vector<T> spilled_;
};

struct BuildNode {
  tarn::Box3f box;
  bool isLeaf = true;
  std::uint32_t left = BvhNode::noChild, right = BvhNode::noChild;
  std::uint32_t start = 0, count = 0;
  std::uint32_t axis = 0;
};

struct Split {
  std::uint32_t axis = 0;
  std::uint32_t leftCount = 0;
};

class Builder {
 public:
  Builder(const AccelerationModel& model, bool useSah, std::vector<std::uint32_t>& order)
      : useSah_(useSah), order_(order) {
    const std::size_t n = order.size();
    boxes_.reserve(n);
    centers_.reserve(n);
    for (std::size_t i = 0; i < n; ++i) {
      boxes_.push_back(model.bounds(i));
      centers_.push_back(boxes_.back().center());
    }
  }

  // Depth first with a list of its own: extreme scenes nest thousands deep.
  std::vector<BuildNode> build() {
    struct Run {
      std::uint32_t start, count, parent;
      bool isRight;
    };
    std::vector<BuildNode> nodes;
    nodes.reserve(2 * order_.size() - 1);
    std::vector<Run> runs{{0, static_cast<std::uint32_t>(order_.size()), BvhNode::noChild, false}};
    while (!runs.empty()) {
      const Run run = runs.back();
      runs.pop_back();
      const auto index = static_cast<std::uint32_t>(nodes.size());
      if (run.parent != BvhNode::noChild)
        (run.isRight ? nodes[run.parent].right : nodes[run.parent].left) = index;

      BuildNode node;
      node.start = run.start;
      node.count = run.count;
      for (std::uint32_t k = 0; k < run.count; ++k)
        node.box.extendBy(boxes_[order_[run.start + k]]);
      node.box.pad(tarn::Vec3f(1e-5f));

      if (run.count > kLeafSize) {
        const Split split = partition(run.start, run.count);
        if (split.leftCount > 0 && split.leftCount < run.count) {
          node.isLeaf = false;
          node.axis = split.axis;
          // The left run is taken first, with everything below it.
          runs.push_back({run.start + split.leftCount, run.count - split.leftCount, index, true});
          runs.push_back({run.start, split.leftCount, index, false});
        }
      }
      nodes.push_back(node);
    }
    return nodes;
  }

 private:
  Split partition(std::uint32_t start, std::uint32_t count) {
    tarn::Box3f centroids;
    for (std::uint32_t k = 0; k < count; ++k) centroids.extendBy(centers_[order_[start + k]]);
    const int axis = centroids.majorAxis();
    Split split;
    split.axis = static_cast<std::uint32_t>(axis);

    float position = 0.0f;
    if (useSah_ && findPlane(start, count, centroids, split.axis, position)) {
      split.leftCount = partitionRun(start, count, [&](std::uint32_t primitive) {
        return centers_[primitive][split.axis] > position;
      });
    } else {
      const tarn::Box3f low = centroids.split(axis, centroids.center()[split.axis]).first;
      split.leftCount = partitionRun(start, count, [&](std::uint32_t primitive) {
        return !low.intersects(centers_[primitive]);
      });
    }
    return split;
  }

  template <class IsRight>
  std::uint32_t partitionRun(std::uint32_t start, std::uint32_t count, IsRight isRight) {
    std::uint32_t i = start, end = start + count;
    while (i < end) {
      if (isRight(order_[i]))
        std::swap(order_[i], order_[--end]);
      else
        ++i;
    }
    return i - start;
  }

  // The best of the planes between 12 equal bins; false when nothing has an area to go by.
  bool findPlane(std::uint32_t start, std::uint32_t count, const tarn::Box3f& centroids,
                 std::size_t axis, float& position) const {
    struct Bin {
      tarn::Box3f box;
      std::uint32_t count = 0;
    };
    std::array<Bin, kBins> bins{};
    const float low = centroids.min[axis], extent = centroids.max[axis] - centroids.min[axis];
    tarn::Box3f total;
    for (std::uint32_t k = 0; k < count; ++k) {
      const std::uint32_t primitive = order_[start + k];
      const float place = (centers_[primitive][axis] - low) * 12.0f / extent;
      // A NaN belongs to bin 0.
      const std::size_t bin = place >= 12.0f ? kBins - 1
                              : place > 0.0f ? static_cast<std::size_t>(place)
                                             : 0;
      bins[bin].box.extendBy(boxes_[primitive]);
      ++bins[bin].count;
      total.extendBy(boxes_[primitive]);
    }
    const float totalArea = total.surface();
    if (totalArea == 0.0f) return false;

    // The right unions from the back, then the planes from the front.
    std::array<Bin, kBins> right{};
    Bin sum;
    for (std::size_t k = kBins - 1; k > 0; --k) {
      sum.box.extendBy(bins[k].box);
      sum.count += bins[k].count;
      right[k] = sum;
    }
    Bin left;
    float best = std::numeric_limits<float>::infinity();
    std::size_t plane = 1;
    for (std::size_t k = 1; k < kBins; ++k) {
      left.box.extendBy(bins[k - 1].box);
      left.count += bins[k - 1].count;
      const float cost = (left.box.surface() * static_cast<float>(left.count) +
                          right[k].box.surface() * static_cast<float>(right[k].count)) /
                         totalArea;
      if (cost < best) {
        best = cost;
        plane = k;
      }
    }
    position = low + extent * static_cast<float>(plane) / 12.0f;
    return true;
  }

  bool useSah_;
  std::vector<std::uint32_t>& order_;
  std::vector<tarn::Box3f> boxes_;
  std::vector<tarn::Vec3f> centers_;
};

// An interior node as queries read it: both children's boxes in one cache line, so that a visit
// costs one miss instead of two.
struct alignas(64) Pair {
  float side[3][4];        ///< by axis: minimum of left and right, maximum of left and right
  std::uint32_t child[2];  ///< number of a pair; or leafBit and the start of a run
  std::uint32_t axis;
};
static_assert(sizeof(Pair) == 64);

// Marks the last of a run in the order of primitives, whose numbers stay below 2^28.
constexpr std::uint32_t kLastOfRun = 0x80000000u;

// One ray against boxes, by slabs with precomputed reciprocals. max and min keep the first operand
// when the second is NaN (0 times infinity, for an origin in a face that the ray runs
// along), so that such a ray enters.
struct SlabTest {
  tarn::Vec3f origin, inv;
  float tMin;
  bool neg[3];

  explicit SlabTest(const tarn::Ray3f& ray)
      : origin(ray.origin),
        inv(1.0f / ray.direction.x, 1.0f / ray.direction.y, 1.0f / ray.direction.z),
        tMin(ray.minDistance),
        neg{inv.x < 0.0f, inv.y < 0.0f, inv.z < 0.0f} {}

  // Where the ray comes in and goes out again; the range's end is left to whoever asks, since it
  // shrinks.
  void run(const tarn::Box3f& box, float& in, float& out) const {
    in = tMin;
    out = std::numeric_limits<float>::infinity();
    for (std::size_t i = 0; i < 3; ++i) {
      in = std::max(in, ((neg[i] ? box.max[i] : box.min[i]) - origin[i]) * inv[i]);
      out = std::min(out, ((neg[i] ? box.min[i] : box.max[i]) - origin[i]) * inv[i]);
    }
  }
  // The same for the two boxes of a pair.
  void run(const Pair& pair, float (&in)[2], float (&out)[2]) const {
    using Lanes = tarn::baseline::FloatLanes<4>;
    Lanes ins = Lanes::broadcast(tMin),
          outs = Lanes::broadcast(std::numeric_limits<float>::infinity());
    for (std::size_t i = 0; i < 3; ++i) {
      // Near sides in the lower lanes, far sides in the upper ones. Operands stand so that a NaN
      // gives what was there.
      const float* const side = pair.side[i];
      const Lanes sides =
          tarn::baseline::loadTwos(side + (neg[i] ? 2 : 0), side + (neg[i] ? 0 : 2));
      const Lanes t = (sides - Lanes::broadcast(origin[i])) * Lanes::broadcast(inv[i]);
      ins = max(t, ins);
      outs = min(t, outs);
    }
    storeTwo(ins, in);
    storeUpperTwo(outs, out);
  }
};

// A ray enters where it comes in no later than it goes out and than its range ends; an end that is
// NaN ends nothing.
bool enters(float in, float out, float tMax) { return !(in > std::min(tMax, out)); }

}  // namespace

struct BvhAcceleration::Tree {
  std::vector<BvhNode> nodes;
  std::vector<std::uint32_t> primIndices;  ///< with kLastOfRun at the end of each leaf's run
  std::vector<Pair> pairs;                 ///< the interior nodes, in the order of `nodes`
  bool hasTrianglesAlone = false;
};

BvhAcceleration::BvhAcceleration(const AccelerationModel& model, bool useSah)
    : Acceleration(model) {
  auto tree = std::make_unique<Tree>();
  tree->hasTrianglesAlone = detail::hasTrianglesAlone(model);
  const auto n = static_cast<std::uint32_t>(model.size());
  if (n > 0) {
    tree->primIndices.resize(n);
    for (std::uint32_t i = 0; i < n; ++i) tree->primIndices[i] = i;
    const std::vector<BuildNode> built = Builder(model, useSah, tree->primIndices).build();

    // Flatten: same order, two words a node.
    tree->nodes.reserve(built.size());
    for (const BuildNode& node : built) {
      BvhNode flat;
      flat.box = node.box;
      if (node.isLeaf) {
        flat.first = node.start | BvhNode::leafBit;
        flat.second = node.count;
        tree->primIndices[node.start + node.count - 1] |= kLastOfRun;
      } else {
        flat.first = node.left & BvhNode::indexMask;
        flat.second = (node.right & BvhNode::indexMask) | (node.axis << 30);
      }
      tree->nodes.push_back(flat);
    }

    // The pairs. What a child is called: its run, or its number among the interior nodes.
    std::vector<std::uint32_t> nameOf(built.size());
    std::uint32_t numPairs = 0;
    for (std::size_t k = 0; k < built.size(); ++k)
      nameOf[k] = built[k].isLeaf ? tree->nodes[k].first : numPairs++;
    tree->pairs.reserve(numPairs);
    for (const BuildNode& node : built) {
      if (node.isLeaf) continue;
      const std::uint32_t children[2] = {node.left, node.right};
      Pair pair{};
      pair.axis = node.axis;
      for (std::size_t c = 0; c < 2; ++c) {
        const tarn::Box3f& box = built[children[c]].box;
        pair.child[c] = nameOf[children[c]];
        for (std::size_t i = 0; i < 3; ++i) {
          pair.side[i][c] = box.min[i];
          pair.side[i][2 + c] = box.max[i];
        }
      }
      tree->pairs.push_back(pair);
    }
  }
  tree_ = std::move(tree);
}

BvhAcceleration::~BvhAcceleration() = default;

bool BvhAcceleration::intersect(const IntersectionContext& ctx, const tarn::Ray3f& ray,
                                CollisionResult& result) const {
  if (tree_->nodes.empty()) return false;
  if (tree_->hasTrianglesAlone && detail::missesAllTriangles(ray)) return false;
  const SlabTest slabs(ray);
  tarn::Ray3f shrinking = ray;

  // What was not entered yet, and where the ray would. Asked again when its turn comes, as the
  // range's end may have moved.
  struct Waiting {
    float in, out;
    std::uint32_t child;
  };
  WaitingStack<Waiting> waiting;
  Waiting current{0.0f, 0.0f, tree_->nodes[0].isLeaf() ? tree_->nodes[0].first : 0};
  slabs.run(tree_->nodes[0].box, current.in, current.out);

  bool found = false;
  do {
    // Down to a leaf, the nearer child first.
    while (enters(current.in, current.out, shrinking.maxDistance)) {
      if ((current.child & BvhNode::leafBit) == 0) {
        const Pair& pair = tree_->pairs[current.child];
        float in[2], out[2];
        slabs.run(pair, in, out);
        const std::size_t near = slabs.neg[pair.axis] ? 1 : 0, far = 1 - near;
        waiting.push({in[far], out[far], pair.child[far]});
        current = {in[near], out[near], pair.child[near]};
        continue;
      }
      const std::uint32_t* run = tree_->primIndices.data() + (current.child & ~BvhNode::leafBit);
      for (bool isLast = false; !isLast; ++run) {
        const std::uint32_t primitive = *run & ~kLastOfRun;
        isLast = (*run & kLastOfRun) != 0;
        if (!model().intersect(ctx, shrinking, primitive, result)) continue;
        // KEEP(bvh-replaces): not compared with the hit before. A model that reaches past the range
        // may put a farther hit in the place of a nearer one; callers have pinned results on it.
        found = true;
        result.primitiveIndex = primitive;
        shrinking.maxDistance = result.distance;
        if (!ctx.nearestHit) return true;
      }
      break;
    }
  } while (waiting.pop(current));
  return found;
}

void BvhAcceleration::draw(DrawBoxFunc drawBox) const {
  if (tree_->nodes.empty() || drawBox == nullptr) return;
  const tarn::Vec4f leafColour(1.0f, 0.8f, 0.0f, 0.5f), interiorColour(0.6f, 0.6f, 1.0f, 0.2f);
  WaitingStack<std::uint32_t> waiting;
  std::uint32_t current = 0;
  do {
    const BvhNode& node = tree_->nodes[current];
    drawBox(node.box, node.isLeaf() ? leafColour : interiorColour);
    if (node.isLeaf()) continue;
    // Left, then right: the right subtree comes out first.
    waiting.push(node.first);
    waiting.push(node.second & BvhNode::indexMask);
  } while (waiting.pop(current));
}

}  // namespace vela
