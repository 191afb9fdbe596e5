/// \file
/// The search through the trees of a crowded list; CrowdedList.cpp includes this once for each
/// instruction set.

// No include guard: included once for each instruction set.

#include "vela/intersect/detail/TriangleBlocksLanes.h"

namespace vela::detail {
namespace {
namespace TARN_LANES_SET {

class CrowdSearch {
 public:
  CrowdSearch(const CrowdedList& list, const tarn::Ray3f& ray, bool nearest, float best)
      : list_(list), ray_(ray), nearest_(nearest), limit_(best) {}

  /// False when nothing counts; then nothing is written.
  bool answer(float& best, BlockHit& hit) const {
    if (!found_) return false;
    best = distance_;
    hit = hit_;
    return true;
  }

  void testAll() {
    for (const TriangleBlock& block : list_.blocks) test(block);
  }

  void testCandidates(const CrowdedRay& query) {
    for (std::size_t i = list_.blocks.size() - list_.alwaysTested; i < list_.blocks.size(); ++i)
      test(list_.blocks[i]);
    searchBoxes(query);
    for (const PlaneTree& tree : list_.planes)
      if (!tree.nodes.empty() && !searchPlanes(query, tree)) return testAll();
  }

 private:
  using Lanes = tarn::TARN_LANES_SET::FloatLanes<8>;
  // Both trees halve their items three times a level and are at most thirteen levels deep over 2^32
  // triangles. A level leaves at most seven entries behind, the last one eight.
  static constexpr std::size_t kStackSize = 100;
  static constexpr std::size_t kQueueSize = 1024;
  struct Entry {
    float distance;
    CrowdChild child;
  };

  [[nodiscard]] std::uint32_t primitive() const { return hit_.block->primitive[hit_.lane]; }

  // Towards the cache, while something else is looked at.
  template <class T>
  static void fetch(const T& what) {
    const char* const at = reinterpret_cast<const char*>(&what);
    for (std::size_t line = 0; line < sizeof(T); line += 64) __builtin_prefetch(at + line);
  }

  // True when nothing whose least primitive is `first` can take the place of what was found.
  [[nodiscard]] bool isTooLate(std::uint32_t first) const {
    return !nearest_ && found_ && first > primitive();
  }

  void test(const TriangleBlock& block) {
    BlockHit hit;
    // Equal distances pass once there is a hit: the lower primitive may come later. With any hit
    // the limit stays, since the least primitive wins however far it is.
    float distance = nearest_ && found_
                         ? std::nextafter(limit_, std::numeric_limits<float>::infinity())
                         : limit_;
    if (!testTriangleBlocks(&block, &block + 1, ray_, nearest_, distance, hit)) return;
    const bool isNearer = nearest_ && distance < limit_;
    if (found_ && !isNearer && primitive() <= hit.block->primitive[hit.lane]) return;
    if (nearest_) limit_ = distance;
    distance_ = distance;
    hit_ = hit;
    found_ = true;
  }

  void searchBoxes(const CrowdedRay& query) {
    const auto of = [](float f) { return Lanes::broadcast(f); };
    const float origin[3] = {ray_.origin.x, ray_.origin.y, ray_.origin.z};
    std::size_t nearSide[3];
    for (std::size_t i = 0; i < 3; ++i) nearSide[i] = query.inverse[i] < 0.0f ? 1 : 0;
    const Lanes tMin = of(ray_.minDistance);

    Entry stack[kStackSize];
    std::size_t top = 0;
    stack[top++] = {-std::numeric_limits<float>::infinity(), 0};
    while (top > 0) {
      const Entry entry = stack[--top];
      if (nearest_ && found_ && entry.distance > limit_) continue;
      if ((entry.child & kBlockBit) != 0) {
        test(list_.blocks[entry.child & ~kBlockBit]);
        continue;
      }
      const BoxNode& node = list_.boxes[entry.child];
      const Lanes growth = Lanes::loadAligned(node.growth) * of(query.growthFactor);
      Lanes enter = tMin, leave = of(limit_);
      for (std::size_t i = 0; i < 3; ++i) {
        const Lanes o = of(origin[i]), inverse = of(query.inverse[i]);
        const Lanes outwards = nearSide[i] == 0 ? growth : -growth;
        // From the origin first: that difference is exact where the coordinates are large.
        const Lanes nearEnd = Lanes::loadAligned(node.bounds[nearSide[i]][i]) - o;
        const Lanes farEnd = Lanes::loadAligned(node.bounds[1 - nearSide[i]][i]) - o;
        enter = max((nearEnd - outwards) * inverse, enter);
        leave = min((farEnd + outwards) * inverse, leave);
      }
      float distance[8];
      enter.store(distance);
      // The nearest on top of the stack.
      const std::size_t from = top;
      for (unsigned lanes = bits(enter <= leave); lanes != 0; lanes &= lanes - 1) {
        const auto lane = static_cast<std::size_t>(__builtin_ctz(lanes));
        if (node.child[lane] == kNoChild || isTooLate(node.firstPrimitive[lane])) continue;
        std::size_t at = top++;
        for (; at > from && stack[at - 1].distance < distance[lane]; --at)
          stack[at] = stack[at - 1];
        stack[at] = {distance[lane], node.child[lane]};
        if ((node.child[lane] & kBlockBit) != 0)
          fetch(list_.blocks[node.child[lane] & ~kBlockBit]);
        else
          fetch(list_.boxes[node.child[lane]]);
      }
    }
  }

  // The planes that hold the line up to the tolerances. Of a box of planes the two conditions alone
  // would let pass what meets one slab here and the other there. Those sums of the two in which a
  // or b cancels are the sides of the dual line along the axes of the box, which settles it:
  //   slope:                d_k - a d_i - b d_j
  //   d_i plane - p_i slope: (d_i p_k - p_i d_k) - b (d_i p_j - p_i d_j) - c d_i
  //   d_j plane - p_j slope: (d_j p_k - p_j d_k) - a (d_j p_i - p_j d_i) - c d_j
  class Line {
   public:
    Line(const CrowdedRay& query, std::size_t k) {
      const std::size_t i = (k + 1) % 3, j = (k + 2) % 3;
      const float* const d = query.along;
      const float* const p = query.nearest;
      const auto of = [](float f) { return Lanes::broadcast(f); };
      di_ = of(d[i]), dj_ = of(d[j]), dk_ = of(d[k]);
      pi_ = of(p[i]), pj_ = of(p[j]), pk_ = of(p[k]);
      slope_ = of(query.slopeTolerance);
      plane_ = of(query.planeTolerance);
      across_ = di_ * pj_ - pi_ * dj_;
      restI_ = di_ * pk_ - pi_ * dk_;
      restJ_ = dj_ * pk_ - pj_ * dk_;
      absDi_ = abs(di_), absDj_ = abs(dj_), absAcross_ = abs(across_);
      const Lanes rounding = of(query.rounding);
      toleranceI_ = absDi_ * plane_ + abs(pi_) * slope_ + rounding;
      toleranceJ_ = absDj_ * plane_ + abs(pj_) * slope_ + rounding;
    }

    [[nodiscard]] unsigned meets(const PlaneNode& node) const {
      const Lanes a = Lanes::loadAligned(node.centre[0]), b = Lanes::loadAligned(node.centre[1]),
                  c = Lanes::loadAligned(node.centre[2]);
      const Lanes ha = Lanes::loadAligned(node.half[0]), hb = Lanes::loadAligned(node.half[1]),
                  hc = Lanes::loadAligned(node.half[2]);
      const Lanes offSlope = abs(dk_ - a * di_ - b * dj_);
      const Lanes offI = abs(restI_ - b * across_ - c * di_);
      const Lanes offJ = abs(restJ_ + a * across_ - c * dj_);
      return bits((offSlope <= slope_ + ha * absDi_ + hb * absDj_) &
                  (offI <= toleranceI_ + hb * absAcross_ + hc * absDi_) &
                  (offJ <= toleranceJ_ + ha * absAcross_ + hc * absDj_));
    }
    [[nodiscard]] unsigned meets(const PlaneLeaf& leaf) const {
      const Lanes a = Lanes::loadAligned(leaf.plane[0]), b = Lanes::loadAligned(leaf.plane[1]),
                  c = Lanes::loadAligned(leaf.plane[2]);
      return bits((abs(dk_ - a * di_ - b * dj_) <= slope_) &
                  (abs(pk_ - a * pi_ - b * pj_ - c) <= plane_));
    }

   private:
    Lanes di_, dj_, dk_, pi_, pj_, pk_, across_, restI_, restJ_;
    Lanes absDi_, absDj_, absAcross_, slope_, plane_, toleranceI_, toleranceJ_;
  };

  // Level by level, so that what is fetched when it is found has arrived when it is looked at.
  // \return false when more wait than there is room for
  [[nodiscard]] bool searchPlanes(const CrowdedRay& query, const PlaneTree& tree) {
    const Line line(query, tree.axis);
    CrowdChild queue[kQueueSize];
    std::size_t head = 0, tail = 0;
    queue[tail++] = 0;
    while (head != tail) {
      const CrowdChild child = queue[head++];
      if ((child & kBlockBit) != 0) {
        const PlaneLeaf& leaf = tree.leaves[child & ~kBlockBit];
        for (unsigned lanes = line.meets(leaf); lanes != 0; lanes &= lanes - 1)
          test(list_.blocks[leaf.block[__builtin_ctz(lanes)]]);
        continue;
      }
      const PlaneNode& node = tree.nodes[child];
      unsigned lanes = line.meets(node);
      if (tail + 8 > kQueueSize) {
        std::copy(queue + head, queue + tail, queue);
        tail -= head;
        head = 0;
        if (tail + 8 > kQueueSize) return false;
      }
      for (; lanes != 0; lanes &= lanes - 1) {
        const auto lane = static_cast<std::size_t>(__builtin_ctz(lanes));
        if (isTooLate(node.firstPrimitive[lane])) continue;
        const CrowdChild next = node.child[lane];
        queue[tail++] = next;
        if ((next & kBlockBit) != 0)
          fetch(tree.leaves[next & ~kBlockBit]);
        else
          fetch(tree.nodes[next]);
      }
    }
    return true;
  }

  const CrowdedList& list_;
  const tarn::Ray3f& ray_;
  const bool nearest_;
  float limit_;  // only less counts; the distance found, when the nearest is asked for
  float distance_ = 0.0f;
  BlockHit hit_;
  bool found_ = false;
};

inline bool searchCrowd(const CrowdedList& list, const tarn::Ray3f& ray, const CrowdedRay* query,
                        bool nearest, float& best, BlockHit& hit) {
  CrowdSearch search(list, ray, nearest, best);
  if (query != nullptr)
    search.testCandidates(*query);
  else
    search.testAll();
  return search.answer(best, hit);
}

}  // namespace TARN_LANES_SET
}  // namespace
}  // namespace vela::detail
