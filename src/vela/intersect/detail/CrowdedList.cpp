#include "vela/intersect/detail/CrowdedList.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <utility>

#include "tarn/Box3.h"
#include "tarn/Lanes.h"

#define TARN_LANES_KERNEL "vela/intersect/detail/CrowdedListLanes.h"
#include "tarn/ForEachInstructionSet.h"

// Why no accepted triangle is missed
//
// Notation. u = 2^-24, the rounding of a float. A triangle is a, e1, e2 as stored, taken as exact;
// N = e1 x e2, s = |N| / (|e1| |e2|), the sine of the angle at a. The ray is O + t D, cos the
// cosine between D and N. E is the longest of all e1 and e2. R is at least the distance from O to
// any vertex. Starred values are exact, the others those of the single-precision test.
//
// Rounding of the test:
//   |det - det*| <= 6u |D||e1||e2|      |U - U*| <= 7u |D||e2| R
//   |V - V*| <= 7u |D||e1| R            |T - T*| <= 7u |e1||e2| R
// What underflows is negligible beside |det| >= 1e-10, as numbers stay below 1e8. An accepted
// triangle has U, V and U + V in det [0, 1 + 4u].
//
// 1. |cos| >= kappa: boxes. With |det*| = |cos| |D| |N|, u* - U / det is
// (U* - U + (U / det) (det - det*)) / det*, and the same holds for v and t. So the exact crossing
// with the plane lies within u (14 R + 12 E) / (s |cos|) of the triangle. The point of the ray at
// the computed t lies u (7 R + 8 (R + g)) / (s |cos|) from the crossing, where g is the box's
// growth. The slab test rounds four times, each by u of at most R + g. In sum that is at most
// u (33 R + 12 g + 12 E) / (s |cos|). A growth of w eta / s covers it when
//   kappa = u (35 R + 13 G + 13 E) / (w eta),
// G being the largest growth, with room for what is left out above: products of roundings, and
// those of the growth itself.
// eta is a quarter of the median of s times the edge, so that ordinary boxes grow by a quarter of
// an edge. w >= 1 widens all boxes for rays from far away, which keeps kappa small.
//
// 2. |cos| < kappa: planes. Here U and V of an accepted triangle are small, as det is. With
// m = (O - a) x D / |D| that bounds |m.e1| and |m.e2| by 1.0001 |det*| / |D| and the rounding. The
// unit vector f in the plane and normal to D is x e1 + y e2 with |x| <= |e2| / |N| and
// |y| <= |e1| / |N|, and f.m is the distance from the plane of the line's point nearest to a but
// for a factor of sin. For a point P of the line, at w = P - a:
//   dist(P, plane) <= kappa |w.D| / |D| + 2.001 kappa E + u (14 R + 12 E) / s.
// The last term is below kappa w eta / s, which is at most kappa G. For the point that is nearest
// to the content's centre |w.D| / |D| is at most the content's radius rho:
//   dist(P, plane) <= kappa (rho + 2.002 E + G).
// In a tree of planes x_k = a x_i + b x_j + c the normal's component along k is at least 1 /
// sqrt(3) of its length, which gives the two conditions that are searched for:
//   |d_k - a d_i - b d_j| <= sqrt(3) kappa             (d = D / |D|)
//   |p_k - a p_i - b p_j - c| <= sqrt(3) kappa (rho + 2.002 E + G)
// and a few roundings of the float arithmetic, which the tolerances add.
//
// Triangles that would spoil E or G for all others stand in blocks that every ray tests. Where one
// of the premises fails every triangle is tested.

namespace vela::detail {

namespace {

using tarn::Vec3d;
using tarn::Vec3f;

constexpr double kRounding = 0x1p-24;
constexpr double kLargest = 1e8;  // of coordinates and of directions; 1 / kLargest of these
constexpr double kLargestKappa = 1.0 / 16.0;
constexpr double kWantedKappa = 0.003;  // boxes are widened where kappa would be larger
constexpr double kSqrt3 = 1.7320509;    // rounded up

// A triangle while the trees are built.
struct Item {
  Vec3d low, high, middle;  // of the box
  double growth = 0.0;      // eta / s
  std::uint32_t index = 0;  // in the list
};

// A plane while its tree is built.
struct Plane {
  Vec3d dual;  // (a, b, c)
  std::uint32_t block = 0, primitive = 0;
};

bool isInRange(const Vec3f& v) {
  // A NaN fails every comparison.
  return std::fabs(v.x) <= static_cast<float>(kLargest) &&
         std::fabs(v.y) <= static_cast<float>(kLargest) &&
         std::fabs(v.z) <= static_cast<float>(kLargest);
}

TriangleBlock emptyBlock() {
  TriangleBlock block{};
  std::fill(std::begin(block.primitive), std::end(block.primitive), kNoChild);
  return block;
}

// Splits a range into at most eight parts, by halving it three times across the axis along which
// `positionOf` reaches farthest. Parts are multiples of eight but for the last, so that the blocks
// at the bottom are full.
template <class T, class Position>
std::vector<std::pair<T*, T*>> splitInEight(T* begin, T* end, Position positionOf) {
  std::vector<std::pair<T*, T*>> parts = {{begin, end}};
  for (int round = 0; round < 3; ++round) {
    std::vector<std::pair<T*, T*>> halves;
    for (const auto& [first, last] : parts) {
      const std::ptrdiff_t count = last - first;
      if (count <= 8) {
        halves.emplace_back(first, last);
        continue;
      }
      Vec3d low(std::numeric_limits<double>::infinity()), high = -low;
      for (const T* at = first; at != last; ++at)
        for (std::size_t i = 0; i < 3; ++i) {
          low[i] = std::min(low[i], positionOf(*at)[i]);
          high[i] = std::max(high[i], positionOf(*at)[i]);
        }
      std::size_t axis = 0;
      for (std::size_t i = 1; i < 3; ++i)
        if (high[i] - low[i] > high[axis] - low[axis]) axis = i;
      T* const middle = first + std::min((count / 2 + 7) / 8 * 8, count - 1);
      std::nth_element(first, middle, last, [&](const T& a, const T& b) {
        return positionOf(a)[axis] < positionOf(b)[axis];
      });
      halves.emplace_back(first, middle);
      halves.emplace_back(middle, last);
    }
    parts = std::move(halves);
  }
  return parts;
}

// The tree of boxes over a range of items, and their blocks.
class BoxBuilder {
 public:
  BoxBuilder(tarn::Span<const ListedTriangle> triangles, std::vector<TriangleBlock>& blocks,
             std::vector<BoxNode>& nodes, std::vector<std::uint32_t>& blockOf)
      : triangles_(triangles), blocks_(blocks), nodes_(nodes), blockOf_(blockOf) {}

  std::uint32_t build(Item* begin, Item* end) {
    const auto index = static_cast<std::uint32_t>(nodes_.size());
    nodes_.emplace_back();
    BoxNode node{};
    std::fill(std::begin(node.child), std::end(node.child), kNoChild);
    std::size_t lane = 0;
    for (const auto& [first, last] :
         splitInEight(begin, end, [](const Item& item) -> const Vec3d& { return item.middle; })) {
      describe(first, last, node, lane);
      node.child[lane++] = last - first <= 8 ? addBlock(first, last) : build(first, last);
    }
    nodes_[index] = node;
    return index;
  }

  CrowdChild addBlock(Item* begin, Item* end) {
    // In increasing order of primitives, which is the order of the list.
    std::sort(begin, end, [](const Item& a, const Item& b) { return a.index < b.index; });
    TriangleBlock block = emptyBlock();
    const auto index = static_cast<std::uint32_t>(blocks_.size());
    for (std::size_t lane = 0; begin + lane != end; ++lane) {
      storeTriangle(triangles_[begin[lane].index], block, lane);
      blockOf_[begin[lane].index] = index;
    }
    blocks_.push_back(block);
    return index | kBlockBit;
  }

 private:
  void describe(const Item* begin, const Item* end, BoxNode& node, std::size_t lane) const {
    Vec3d low(std::numeric_limits<double>::infinity()), high = -low;
    double growth = 0.0;
    std::uint32_t firstIndex = kNoChild;
    for (const Item* item = begin; item != end; ++item) {
      for (std::size_t i = 0; i < 3; ++i) {
        low[i] = std::min(low[i], item->low[i]);
        high[i] = std::max(high[i], item->high[i]);
      }
      growth = std::max(growth, item->growth);
      firstIndex = std::min(firstIndex, item->index);
    }
    // Outwards, as far from the origin a rounding may be larger than the growth.
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    for (std::size_t i = 0; i < 3; ++i) {
      node.bounds[0][i][lane] = std::nextafter(static_cast<float>(low[i]), -kInfinity);
      node.bounds[1][i][lane] = std::nextafter(static_cast<float>(high[i]), kInfinity);
    }
    node.growth[lane] = static_cast<float>(growth);
    node.firstPrimitive[lane] = triangles_[firstIndex].primitive;
  }

  tarn::Span<const ListedTriangle> triangles_;
  std::vector<TriangleBlock>& blocks_;
  std::vector<BoxNode>& nodes_;
  std::vector<std::uint32_t>& blockOf_;
};

// The tree of planes of one dominant axis.
std::uint32_t buildPlanes(Plane* begin, Plane* end, PlaneTree& tree) {
  const auto index = static_cast<std::uint32_t>(tree.nodes.size());
  tree.nodes.emplace_back();
  PlaneNode node{};
  constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
  for (auto& row : node.centre) std::fill(std::begin(row), std::end(row), kNan);
  std::fill(std::begin(node.child), std::end(node.child), kNoChild);
  std::size_t lane = 0;
  for (const auto& [first, last] :
       splitInEight(begin, end, [](const Plane& plane) -> const Vec3d& { return plane.dual; })) {
    for (std::size_t i = 0; i < 3; ++i) {
      double low = first->dual[i], high = low;
      for (const Plane* plane = first; plane != last; ++plane) {
        low = std::min(low, plane->dual[i]);
        high = std::max(high, plane->dual[i]);
      }
      // From the centre as stored, and up.
      const float centre = static_cast<float>(0.5 * (low + high));
      const double half =
          std::max(high - static_cast<double>(centre), static_cast<double>(centre) - low);
      node.centre[i][lane] = centre;
      node.half[i][lane] =
          std::nextafter(static_cast<float>(half), std::numeric_limits<float>::infinity());
    }
    std::uint32_t firstPrimitive = kNoChild;
    for (const Plane* plane = first; plane != last; ++plane)
      firstPrimitive = std::min(firstPrimitive, plane->primitive);
    node.firstPrimitive[lane] = firstPrimitive;
    if (last - first <= 8) {
      PlaneLeaf leaf{};
      for (auto& row : leaf.plane) std::fill(std::begin(row), std::end(row), kNan);
      for (const Plane* plane = first; plane != last; ++plane) {
        for (std::size_t i = 0; i < 3; ++i)
          leaf.plane[i][plane - first] = static_cast<float>(plane->dual[i]);
        leaf.block[plane - first] = plane->block;
      }
      node.child[lane] = static_cast<std::uint32_t>(tree.leaves.size()) | kBlockBit;
      tree.leaves.push_back(leaf);
    } else {
      node.child[lane] = buildPlanes(first, last, tree);
    }
    ++lane;
  }
  tree.nodes[index] = node;
  return index;
}

double medianOf(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

}  // namespace

std::unique_ptr<CrowdedList> CrowdedList::make(tarn::Span<const ListedTriangle> triangles) {
  auto list = std::make_unique<CrowdedList>();
  const std::size_t count = triangles.size();

  // Sizes and shapes. A triangle with an edge of length 0 has a determinant of exactly 0 and is
  // never accepted.
  std::vector<Item> items;
  items.reserve(count);
  std::vector<double> edges, scales;
  std::vector<double> sines(count, 0.0), longest(count, 0.0);
  for (std::size_t t = 0; t < count; ++t) {
    const ListedTriangle& from = triangles[t];
    if (!isInRange(from.a) || !isInRange(from.e1) || !isInRange(from.e2)) return nullptr;
    const Vec3d a(from.a), e1(from.e1), e2(from.e2);
    const double l1 = e1.length(), l2 = e2.length();
    if (!(l1 > 0.0 && l2 > 0.0)) continue;
    sines[t] = cross(e1, e2).length() / (l1 * l2);
    longest[t] = std::max(l1, l2);
    edges.push_back(longest[t]);
    scales.push_back(sines[t] * longest[t]);
    Item item;
    item.index = static_cast<std::uint32_t>(t);
    const Vec3d b = a + e1, c = a + e2;
    for (std::size_t i = 0; i < 3; ++i) {
      item.low[i] = std::min({a[i], b[i], c[i]});
      item.high[i] = std::max({a[i], b[i], c[i]});
    }
    item.middle = (item.low + item.high) * 0.5;
    items.push_back(item);
  }
  if (items.empty()) return nullptr;
  const double eta = 0.25 * medianOf(scales), medianEdge = medianOf(edges);
  for (Item& item : items) item.growth = eta / sines[item.index];
  if (!(eta > 0.0)) return nullptr;

  // Slivers and the largest triangles, which every ray tests. The content is what is left.
  const std::size_t mostLarge = 32 + count / 256;
  std::vector<Item> always;
  std::size_t large = 0, searched = 0;
  Vec3d low(std::numeric_limits<double>::infinity()), high = -low;
  for (const Item& item : items) {
    const bool isLarge = longest[item.index] > 8.0 * medianEdge && large < mostLarge;
    if (isLarge) ++large;
    if (isLarge || !(item.growth <= 16.0 * medianEdge)) {
      always.push_back(item);
      continue;
    }
    for (std::size_t i = 0; i < 3; ++i) {
      low[i] = std::min(low[i], item.low[i]);
      high[i] = std::max(high[i], item.high[i]);
    }
    list->longestEdge_ = std::max(list->longestEdge_, longest[item.index]);
    list->largestGrowth_ = std::max(list->largestGrowth_, item.growth);
    items[searched++] = item;
  }
  items.resize(searched);
  if (items.empty() || always.size() > count / 8) return nullptr;
  list->growthUnit_ = eta;
  list->centre_ = (low + high) * 0.5;
  list->radius_ = 0.5 * (high - low).length() * 1.0001;
  // The trees.
  std::vector<std::uint32_t> blockOf(count, 0);
  BoxBuilder builder(triangles, list->blocks, list->boxes, blockOf);
  builder.build(items.data(), items.data() + items.size());
  std::array<std::vector<Plane>, 3> planes;
  for (const Item& item : items) {
    const ListedTriangle& from = triangles[item.index];
    const Vec3d normal = cross(Vec3d(from.e1), Vec3d(from.e2));
    const Vec3d a = Vec3d(from.a) - list->centre_;
    std::size_t k = 0;
    for (std::size_t i = 1; i < 3; ++i)
      if (std::fabs(normal[i]) > std::fabs(normal[k])) k = i;
    const std::size_t i = (k + 1) % 3, j = (k + 2) % 3;
    const double slopeI = -normal[i] / normal[k], slopeJ = -normal[j] / normal[k];
    planes[k].push_back({{slopeI, slopeJ, a[k] - slopeI * a[i] - slopeJ * a[j]},
                         blockOf[item.index],
                         from.primitive});
  }
  for (std::size_t k = 0; k < 3; ++k) {
    list->planes[k].axis = k;
    if (!planes[k].empty())
      buildPlanes(planes[k].data(), planes[k].data() + planes[k].size(), list->planes[k]);
  }

  // The blocks that every ray tests come last.
  const std::size_t before = list->blocks.size();
  for (std::size_t first = 0; first < always.size(); first += 8)
    builder.addBlock(always.data() + first, always.data() + std::min(first + 8, always.size()));
  list->alwaysTested = list->blocks.size() - before;
  return list;
}

// \return false when nothing is proved of the ray
bool CrowdedList::prepare(const tarn::Ray3f& ray, CrowdedRay& out) const {
  const Vec3d origin = Vec3d(ray.origin) - centre_, direction(ray.direction);
  const double length = direction.length();
  if (!isInRange(ray.origin) || !(length >= 1.0 / kLargest && length <= kLargest)) return false;
  const Vec3d along = direction / length;

  // The widening that keeps kappa at what is wanted.
  const double reach = (origin.length() + radius_) * 1.0001;
  const double unit = kRounding / growthUnit_;
  const double unwidened = unit * (35.0 * reach + 13.0 * longestEdge_);
  const double factor =
      std::max(1.0, std::min(std::sqrt(unwidened / kWantedKappa), reach / largestGrowth_));
  const double kappa = unwidened / factor + unit * 13.0 * largestGrowth_;
  if (!(kappa <= kLargestKappa)) return false;

  const Vec3d nearest = origin - along * dot(origin, along);
  const double size = std::fabs(nearest.x) + std::fabs(nearest.y) + std::fabs(nearest.z);
  out.growthFactor = static_cast<float>(factor * (1.0 + 1e-6));
  out.rounding = static_cast<float>(64.0 * kRounding * (size + 3.0 * radius_));
  out.slopeTolerance = static_cast<float>(kSqrt3 * kappa + 64.0 * kRounding);
  out.planeTolerance = static_cast<float>(
      kSqrt3 * kappa * (radius_ + 2.002 * longestEdge_ + factor * largestGrowth_) +
      64.0 * kRounding * (size + 3.0 * radius_));
  for (std::size_t i = 0; i < 3; ++i) {
    // So small a component moves no point of the content by as much as a rounding when it is
    // replaced, and its inverse stays finite.
    const double least = 1e-12 * length;
    const double component =
        std::fabs(direction[i]) < least ? std::copysign(least, direction[i]) : direction[i];
    out.inverse[i] = static_cast<float>(1.0 / component);
    out.along[i] = static_cast<float>(along[i]);
    out.nearest[i] = static_cast<float>(nearest[i]);
  }
  return true;
}

bool CrowdedList::intersect(const tarn::Ray3f& ray, bool nearest, float& best,
                            BlockHit& hit) const {
  CrowdedRay query;
  const bool isProved = prepare(ray, query);
  return TARN_LANES_WIDEST(searchCrowd)(*this, ray, isProved ? &query : nullptr, nearest, best,
                                        hit);
}

bool CrowdedList::isSearchedFor(const tarn::Ray3f& ray) const {
  CrowdedRay query;
  return prepare(ray, query);
}

std::size_t CrowdedList::memoryUsage() const {
  std::size_t bytes =
      blocks.capacity() * sizeof(TriangleBlock) + boxes.capacity() * sizeof(BoxNode);
  for (const PlaneTree& tree : planes)
    bytes += tree.nodes.capacity() * sizeof(PlaneNode) + tree.leaves.capacity() * sizeof(PlaneLeaf);
  return bytes;
}

}  // namespace vela::detail
