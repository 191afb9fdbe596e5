#include "vela/intersect/BvhAcceleration.h"

#include <algorithm>
#include <array>
#include <limits>
#include <utility>
#include <vector>

#include "vela/intersect/AccelerationModel.h"

namespace vela {
namespace {

constexpr std::uint32_t kLeafSize = 3;
constexpr std::size_t kBins = 12;
constexpr std::size_t kStackSize = 100;

/// Node indices that wait: the first 100 on the stack, the rest on the heap.
class NodeStack {
 public:
  void push(std::uint32_t node) {
    if (size_ < kStackSize)
      local_[size_++] = node;
    else
      spilled_.push_back(node);
  }
  bool pop(std::uint32_t& node) {
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
  std::uint32_t local_[kStackSize];
  std::size_t size_ = 0;
  std::vector<std::uint32_t> spilled_;
};

struct BuildNode {
  tarn::Box3<float> box;
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
  Builder(const AccelerationModel& model, bool useSah, std::vector<std::uint32_t>& order) : useSah_(useSah), order_(order) {
    const std::size_t n = order.size();
    boxes_.reserve(n);
    centers_.reserve(n);
    for (std::size_t i = 0; i < n; ++i) {
      boxes_.push_back(model.bounds(i));
      centers_.push_back(boxes_.back().center());
    }
  }

  /// Depth first with a list of its own: extreme scenes nest thousands deep.
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
      if (run.parent != BvhNode::noChild) (run.isRight ? nodes[run.parent].right : nodes[run.parent].left) = index;

      BuildNode node;
      node.start = run.start;
      node.count = run.count;
      for (std::uint32_t k = 0; k < run.count; ++k) node.box.extendBy(boxes_[order_[run.start + k]]);
      node.box.pad(tarn::Vec3<float>(1e-5f));

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
    tarn::Box3<float> centroids;
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
      const tarn::Box3<float> low = centroids.split(axis, centroids.center()[split.axis]).first;
      split.leftCount =
          partitionRun(start, count, [&](std::uint32_t primitive) { return !low.intersects(centers_[primitive]); });
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

  /// The best of the planes between 12 equal bins; false when nothing has an area to go by.
  bool findPlane(std::uint32_t start, std::uint32_t count, const tarn::Box3<float>& centroids, std::size_t axis,
                 float& position) const {
    struct Bin {
      tarn::Box3<float> box;
      std::uint32_t count = 0;
    };
    std::array<Bin, kBins> bins{};
    const float low = centroids.min[axis], extent = centroids.max[axis] - centroids.min[axis];
    tarn::Box3<float> total;
    for (std::uint32_t k = 0; k < count; ++k) {
      const std::uint32_t primitive = order_[start + k];
      const float place = (centers_[primitive][axis] - low) * 12.0f / extent;
      // A place that is no number belongs to bin 0.
      const std::size_t bin = place >= 12.0f ? kBins - 1 : place > 0.0f ? static_cast<std::size_t>(place) : 0;
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
                          right[k].box.surface() * static_cast<float>(right[k].count)) / totalArea;
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
  std::vector<tarn::Box3<float>> boxes_;
  std::vector<tarn::Vec3<float>> centers_;
};

/// The slab test with precomputed reciprocals. max and min keep the first operand when the second is no number (0 times
/// infinity, for an origin in a face that the ray runs along), so that such a ray enters.
bool enters(const BvhNode& node, const tarn::Vec3<float>& origin, const tarn::Vec3<float>& inv, const bool (&neg)[3],
            float tMin, float tMax) {
  const tarn::Box3<float>& box = node.box;
  const float nearX = ((neg[0] ? box.max.x : box.min.x) - origin.x) * inv.x;
  const float nearY = ((neg[1] ? box.max.y : box.min.y) - origin.y) * inv.y;
  const float nearZ = ((neg[2] ? box.max.z : box.min.z) - origin.z) * inv.z;
  const float farX = ((neg[0] ? box.min.x : box.max.x) - origin.x) * inv.x;
  const float farY = ((neg[1] ? box.min.y : box.max.y) - origin.y) * inv.y;
  const float farZ = ((neg[2] ? box.min.z : box.max.z) - origin.z) * inv.z;
  const float t0 = std::max(std::max(std::max(tMin, nearX), nearY), nearZ);
  const float t1 = std::min(std::min(std::min(tMax, farX), farY), farZ);
  return !(t0 > t1);
}

}  // namespace

struct BvhAcceleration::Tree {
  std::vector<BvhNode> nodes;
  std::vector<std::uint32_t> primIndices;
};

BvhAcceleration::BvhAcceleration(const AccelerationModel& model, bool useSah) : Acceleration(model) {
  auto tree = std::make_unique<Tree>();
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
      } else {
        flat.first = node.left & BvhNode::indexMask;
        flat.second = (node.right & BvhNode::indexMask) | (node.axis << 30);
      }
      tree->nodes.push_back(flat);
    }
  }
  tree_ = std::move(tree);
}

BvhAcceleration::~BvhAcceleration() = default;

bool BvhAcceleration::intersect(const IntersectionContext& ctx, const tarn::Ray<float>& ray, CollisionResult& result) const {
  if (tree_->nodes.empty()) return false;
  const BvhNode* const nodes = tree_->nodes.data();
  const tarn::Vec3<float> inv(1.0f / ray.direction.x, 1.0f / ray.direction.y, 1.0f / ray.direction.z);
  const bool neg[3] = {inv.x < 0.0f, inv.y < 0.0f, inv.z < 0.0f};
  tarn::Ray<float> shrinking = ray;

  bool found = false;
  NodeStack waiting;
  std::uint32_t current = 0;
  do {
    // Down to a leaf, the nearer child first.
    const BvhNode* node = nodes + current;
    while (enters(*node, shrinking.origin, inv, neg, shrinking.minDistance, shrinking.maxDistance)) {
      if (!node->isLeaf()) {
        const std::uint32_t left = node->first, right = node->second & BvhNode::indexMask;
        const bool rightFirst = neg[node->second >> 30];
        waiting.push(rightFirst ? left : right);
        node = nodes + (rightFirst ? right : left);
        continue;
      }
      const std::uint32_t start = node->first & ~BvhNode::leafBit;
      for (std::uint32_t j = 0; j < node->second; ++j) {
        const std::uint32_t primitive = tree_->primIndices[start + j];
        if (!model().intersect(ctx, shrinking, primitive, result)) continue;
        // KEEP(bvh-replaces): not compared with the hit before. A model that reaches past the range may put a farther hit
        // in the place of a nearer one; callers have pinned results on it.
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
  if (tree_->nodes.empty()) return;
  const tarn::Vec4<float> leafColour(1.0f, 0.8f, 0.0f, 0.5f), interiorColour(0.6f, 0.6f, 1.0f, 0.2f);
  NodeStack waiting;
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
