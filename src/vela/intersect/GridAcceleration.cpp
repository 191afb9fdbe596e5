#include "vela/intersect/GridAcceleration.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <typeinfo>
#include <utility>
#include <vector>

#include "tarn/Convert.h"
#include "tarn/Lanes.h"
#include "vela/intersect/AccelerationModel.h"
#include "vela/intersect/detail/CrowdedList.h"
#include "vela/intersect/detail/Kernels.h"
#include "vela/intersect/detail/TriangleBlocks.h"

namespace vela {
namespace {

constexpr std::uint32_t kMaxResolution = 64;
// A list of more triangles than this is searched by its own trees. Below, going through the blocks
// is as fast.
constexpr std::size_t kCrowd = 600;

// Cells that a primitive touches, both ends included.
struct CellRange {
  std::uint8_t low[3], high[3];

  [[nodiscard]] bool isEmpty() const {
    return low[0] > high[0] || low[1] > high[1] || low[2] > high[2];
  }
  [[nodiscard]] std::size_t size() const {
    if (isEmpty()) return 0;
    return (std::size_t{high[0]} - low[0] + 1) * (std::size_t{high[1]} - low[1] + 1) *
           (std::size_t{high[2]} - low[2] + 1);
  }
  [[nodiscard]] bool contains(std::uint32_t x, std::uint32_t y, std::uint32_t z) const {
    return x >= low[0] && x <= high[0] && y >= low[1] && y <= high[1] && z >= low[2] &&
           z <= high[2];
  }
};

struct WidePrimitive {
  std::uint32_t primitive;
  CellRange range;
};

// Adds up neighbouring bits, pairs and nibbles; the compiler's own would be a call where the
// instruction may be missing.
unsigned countBits(std::uint64_t bits) {
  bits -= (bits >> 1) & 0x5555555555555555u;
  bits = (bits & 0x3333333333333333u) + ((bits >> 2) & 0x3333333333333333u);
  bits = (bits + (bits >> 4)) & 0x0F0F0F0F0F0F0F0Fu;
  return static_cast<unsigned>((bits * 0x0101010101010101u) >> 56);
}

// The cell along one axis, clamped on both sides: a point a rounding error below the box belongs
// to cell 0. NaN gives 0. Truncation is floor here: what is below 0 is 0 anyway.
std::uint32_t cellAlong(float distanceFromMin, float cellSize, std::uint32_t resolution) {
  const std::uint32_t last = resolution - 1;
  const float cell = distanceFromMin / cellSize;
  if (!(cell > 0.0f)) return 0;
  return cell < static_cast<float>(last) ? static_cast<std::uint32_t>(cell) : last;
}

}  // namespace

// The lists. Cells are numbered with a border of one cell on every side, so that "leaves the grid"
// and "has a list" are one bit to look at in each step of a walk; an occupied cell's list is found
// by its rank among the occupied ones.
struct GridAcceleration::Cells {
  struct Rank {
    std::uint64_t occupied = 0;
    std::uint32_t before = 0;  ///< occupied cells in the words before this one
  };
  // The list of a crowded cell: its own trees, or blocks where it cannot be searched.
  struct Crowd {
    Crowd(std::size_t cellRank, const std::vector<detail::ListedTriangle>& list)
        : rank(cellRank), trees(detail::CrowdedList::make(list)) {
      if (trees) return;
      blocks.resize((list.size() + 7) / 8);
      for (std::size_t t = 0; t < list.size(); ++t)
        detail::storeTriangle(list[t], blocks[t / 8], t % 8);
    }
    std::size_t rank;
    std::unique_ptr<detail::CrowdedList> trees;
    std::vector<detail::TriangleBlock> blocks;
  };
  std::size_t strideY = 0, strideZ = 0;
  std::vector<std::uint64_t> stops;  ///< a bit a cell: occupied or border
  std::vector<Rank> ranks;           ///< one for each 64 cells
  // List of rank r: primitives[start[r] .. start[r + 1]), in increasing order; of blocks instead
  // of primitives when the model is a list of triangles.
  std::vector<std::uint32_t> start;
  std::vector<std::uint32_t> primitives;
  std::vector<detail::TriangleBlock> blocks;
  detail::TestTriangleBlocks testBlocks = nullptr;
  // Lists of very many triangles, in increasing order of ranks; they have no blocks above.
  std::vector<Crowd> crowds;
  // Primitives over so many cells that lists would outgrow memory are kept once, with their cells.
  std::vector<WidePrimitive> wide;
  bool hasTrianglesAlone = false;

  [[nodiscard]] std::size_t number(std::uint32_t x, std::uint32_t y, std::uint32_t z) const {
    return (z + 1) * strideZ + (y + 1) * strideY + (x + 1);
  }
  [[nodiscard]] bool isStop(std::size_t cell) const {
    return (stops[cell >> 6] >> (cell & 63) & 1u) != 0;
  }
  [[nodiscard]] bool isOccupied(std::size_t cell) const {
    return (ranks[cell >> 6].occupied >> (cell & 63) & 1u) != 0;
  }
  [[nodiscard]] std::size_t rankOf(std::size_t cell) const {
    const Rank& rank = ranks[cell >> 6];
    return rank.before + countBits(rank.occupied & ((std::uint64_t{1} << (cell & 63)) - 1));
  }

  // Tests the triangles of an occupied cell, as detail::TestTriangleBlocks does.
  bool intersectTriangles(std::size_t cell, const tarn::Ray3f& ray, bool nearest, float& best,
                          detail::BlockHit& hit) const {
    const std::size_t rank = rankOf(cell);
    if (start[rank] == start[rank + 1]) return intersectCrowd(rank, ray, nearest, best, hit);
    return testBlocks(blocks.data() + start[rank], blocks.data() + start[rank + 1], ray, nearest,
                      best, hit);
  }

  bool intersectCrowd(std::size_t rank, const tarn::Ray3f& ray, bool nearest, float& best,
                      detail::BlockHit& hit) const {
    const Crowd& crowd =
        *std::lower_bound(crowds.begin(), crowds.end(), rank,
                          [](const Crowd& c, std::size_t r) { return c.rank < r; });
    if (crowd.trees) return crowd.trees->intersect(ray, nearest, best, hit);
    return testBlocks(crowd.blocks.data(), crowd.blocks.data() + crowd.blocks.size(), ray, nearest,
                      best, hit);
  }

  // Calls `test` for every primitive of a cell in increasing order, until it returns true.
  template <class Test>
  void forEachPrimitive(std::size_t cell, Test test) const {
    const std::size_t rank = rankOf(cell);
    const std::uint32_t *at = primitives.data() + start[rank], *const end = primitives.data() +
                                                                            start[rank + 1];
    if (!wide.empty()) {
      const auto x = static_cast<std::uint32_t>(cell % strideY - 1),
                 y = static_cast<std::uint32_t>(cell % strideZ / strideY - 1),
                 z = static_cast<std::uint32_t>(cell / strideZ - 1);
      for (const WidePrimitive& other : wide) {
        if (!other.range.contains(x, y, z)) continue;
        for (; at != end && *at < other.primitive; ++at)
          if (test(*at)) return;
        if (test(other.primitive)) return;
      }
    }
    for (; at != end; ++at)
      if (test(*at)) return;
  }
};

GridAcceleration::GridAcceleration(const AccelerationModel& model)
    : Acceleration(model), box_(model.bounds()) {
  const std::size_t count = model.size();
  const tarn::Vec3f extent = box_.max - box_.min;
  if (std::isnan(extent.x) || std::isnan(extent.y) || std::isnan(extent.z)) return;

  // A box without volume makes k infinite and the counts 0; an enormous count keeps its low 32 bits
  // only.
  const float k = std::cbrt(0.33333334f) /
                  std::cbrt(extent.x * extent.y * extent.z / static_cast<float>(count));
  std::array<std::uint32_t, 3> resolution{};
  for (std::size_t i = 0; i < 3; ++i)
    resolution[i] = std::min(tarn::truncToUint32(std::floor(extent[i] * k) + 1.0f), kMaxResolution);
  if (std::size_t{resolution[0]} * resolution[1] * resolution[2] == 0) return;
  resolution_ = resolution;
  for (std::size_t i = 0; i < 3; ++i) cellSize_[i] = extent[i] / static_cast<float>(resolution[i]);
  fill(model);
}

GridAcceleration::~GridAcceleration() = default;

namespace {

using CrowdedLists = std::map<std::size_t, std::vector<detail::ListedTriangle>>;  // by rank

// Kept out of the loop that calls it, which needs its registers for the triangles of other cells.
__attribute__((noinline, cold)) void gather(CrowdedLists& lists, std::size_t rank,
                                            const detail::ListedTriangle& triangle) {
  lists[rank].push_back(triangle);
}

}  // namespace

// The lists as blocks of triangles, those of crowded cells as trees.
//
// \param begin       how long the list of rank r is, at [r + 1]
// \param forEachCell calls back with each cell that a triangle is listed in
template <class ForEachCell>
void GridAcceleration::fillTriangles(const TriangleAccelerationModel& triangles,
                                     const std::vector<std::uint32_t>& begin,
                                     const ForEachCell& forEachCell, Cells& cells) {
  const std::size_t occupied = begin.size() - 1;
  const tarn::Vec3f* const at = triangles.points_.cdata();
  const auto listed = [&](std::size_t p) {
    const auto& corners = triangles.triangles_[p];
    const tarn::Vec3f a = at[corners.a];
    return detail::ListedTriangle{a, at[corners.b] - a, at[corners.c] - a,
                                  static_cast<std::uint32_t>(p), corners.face};
  };

  // The lists of crowded cells, gathered while those of the others become blocks.
  CrowdedLists crowded;
  for (std::size_t r = 0; r < occupied; ++r)
    if (begin[r + 1] > kCrowd) crowded[r].reserve(begin[r + 1]);

  cells.testBlocks = detail::bestTriangleBlockTest();
  cells.start.assign(begin.size(), 0);
  for (std::size_t r = 0; r < occupied; ++r)
    cells.start[r + 1] = cells.start[r] + (begin[r + 1] > kCrowd ? 0 : (begin[r + 1] + 7) / 8);
  cells.blocks.assign(cells.start[occupied], detail::TriangleBlock{});
  // The lanes taken of each cell so far; a crowded cell takes none. Read through pointers of
  // this function's own, which stay in registers through the stores.
  constexpr std::uint32_t kCrowded = ~std::uint32_t{0};
  std::vector<std::uint32_t> taken(occupied, 0);
  for (const auto& crowd : crowded) taken[crowd.first] = kCrowded;
  std::uint32_t* const takenOf = taken.data();
  const std::uint32_t* const startOf = cells.start.data();
  detail::TriangleBlock* const blocks = cells.blocks.data();
  const std::size_t count = triangles.size();
  for (std::size_t p = 0; p < count; ++p) {
    const detail::ListedTriangle triangle = listed(p);
    forEachCell(p, [&, triangle](std::size_t cell) {
      const std::size_t r = cells.rankOf(cell);
      const std::uint32_t lane = takenOf[r];
      if (__builtin_expect(lane == kCrowded, 0)) return gather(crowded, r, triangle);
      ++takenOf[r];
      detail::storeTriangle(triangle, blocks[startOf[r] + lane / 8], lane % 8);
    });
  }

  for (const auto& [rank, list] : crowded) cells.crowds.emplace_back(rank, list);
}

void GridAcceleration::fill(const AccelerationModel& model) {
  const std::size_t count = model.size();
  auto cells = std::make_unique<Cells>();
  cells->strideY = std::size_t{resolution_[0]} + 2;
  cells->strideZ = cells->strideY * (resolution_[1] + 2);
  const std::size_t padded = cells->strideZ * (resolution_[2] + 2), words = padded / 64 + 1;

  // Each primitive's cells.
  std::vector<CellRange> ranges(count);
  std::size_t references = 0;
  std::array<std::size_t, 20>
      referencesBySize{};  // by the logarithm of the range's size, at most 2^18
  for (std::size_t p = 0; p < count; ++p) {
    const tarn::Box3f b = model.bounds(p);
    for (std::size_t i = 0; i < 3; ++i) {
      ranges[p].low[i] = static_cast<std::uint8_t>(
          cellAlong(b.min[i] - box_.min[i], cellSize_[i], resolution_[i]));
      ranges[p].high[i] = static_cast<std::uint8_t>(
          cellAlong(b.max[i] - box_.min[i], cellSize_[i], resolution_[i]));
    }
    const std::size_t size = ranges[p].size();
    references += size;
    std::size_t log = 0;
    while (size >> (log + 1) != 0) ++log;
    referencesBySize[log] += size;
  }

  // Lists that would take more than about 128 MB: the widest primitives are kept aside.
  std::size_t widest = referencesBySize.size() - 1;
  for (const std::size_t limit = std::size_t{32} * 1000 * 1000 + 16 * count;
       references > limit && widest > 0; --widest)
    references -= referencesBySize[widest];
  const auto isWide = [&](const CellRange& range) { return range.size() >> (widest + 1) != 0; };
  for (std::size_t p = 0; p < count; ++p)
    if (isWide(ranges[p])) cells->wide.push_back({static_cast<std::uint32_t>(p), ranges[p]});

  const auto forEachCell = [&](std::size_t p, auto visit) {
    const CellRange& range = ranges[p];
    if (range.isEmpty() || (!cells->wide.empty() && isWide(range))) return;
    for (std::uint32_t z = range.low[2]; z <= range.high[2]; ++z)
      for (std::uint32_t y = range.low[1]; y <= range.high[1]; ++y)
        for (std::uint32_t x = range.low[0]; x <= range.high[0]; ++x) visit(cells->number(x, y, z));
  };

  // Occupied cells and their ranks; with wide primitives about, every cell.
  cells->stops.assign(words, 0);
  cells->ranks.assign(words, {});
  const auto occupy = [&](std::size_t cell) {
    cells->ranks[cell >> 6].occupied |= std::uint64_t{1} << (cell & 63);
  };
  for (std::size_t p = 0; p < count; ++p) forEachCell(p, occupy);
  for (std::uint32_t z = 0; z < resolution_[2] + 2; ++z)
    for (std::uint32_t y = 0; y < resolution_[1] + 2; ++y)
      for (std::uint32_t x = 0; x < resolution_[0] + 2; ++x) {
        const std::size_t cell = z * cells->strideZ + y * cells->strideY + x;
        const bool isBorder = x == 0 || y == 0 || z == 0 || x == resolution_[0] + 1 ||
                              y == resolution_[1] + 1 || z == resolution_[2] + 1;
        if (!isBorder && !cells->wide.empty()) occupy(cell);
        if (isBorder || cells->isOccupied(cell))
          cells->stops[cell >> 6] |= std::uint64_t{1} << (cell & 63);
      }
  std::uint32_t occupied = 0;
  for (Cells::Rank& rank : cells->ranks) {
    rank.before = occupied;
    occupied += countBits(rank.occupied);
  }

  // The lists: count, then fill in primitive order.
  std::vector<std::uint32_t> begin(std::size_t{occupied} + 1, 0);
  for (std::size_t p = 0; p < count; ++p)
    forEachCell(p, [&](std::size_t cell) { ++begin[cells->rankOf(cell) + 1]; });

  // Triangles are laid out in blocks, whose cost is bounded where triangles repeat over many cells.
  // Only the very class: one derived from it may answer differently.
  cells->hasTrianglesAlone = detail::hasTrianglesAlone(model);
  const bool isTriangles = typeid(model) == typeid(TriangleAccelerationModel) &&
                           cells->wide.empty() && references <= 8 * count + 1000 * 1000;
  if (isTriangles) {
    fillTriangles(static_cast<const TriangleAccelerationModel&>(model), begin, forEachCell, *cells);
  } else {
    for (std::size_t r = 0; r < occupied; ++r) begin[r + 1] += begin[r];
    cells->start = begin;
    cells->primitives.resize(begin[occupied]);
    for (std::size_t p = 0; p < count; ++p)
      forEachCell(p, [&](std::size_t cell) {
        cells->primitives[begin[cells->rankOf(cell)]++] = static_cast<std::uint32_t>(p);
      });
  }
  cells_ = std::move(cells);
}

bool GridAcceleration::intersect(const IntersectionContext& ctx, const tarn::Ray3f& ray,
                                 CollisionResult& result) const {
  float tEnter = 0.0f, tLeave = 0.0f;
  if (!cells_ || !detail::hitBox(ray, box_, tEnter, tLeave)) return false;
  const Cells& cells = *cells_;
  if (cells.hasTrianglesAlone && detail::missesAllTriangles(ray)) return false;

  // Entry cell, and per axis the distance of the next boundary and from boundary to boundary.
  const tarn::Vec3f entry = ray.origin + ray.direction * tEnter - box_.min;
  std::array<std::uint32_t, 3> entryCell{};
  std::array<float, 3> tNext{}, tDelta{};
  std::array<std::ptrdiff_t, 3> step{1, static_cast<std::ptrdiff_t>(cells.strideY),
                                     static_cast<std::ptrdiff_t>(cells.strideZ)};
  for (std::size_t i = 0; i < 3; ++i) {
    // KEEP(grid-minus-zero): -0 becomes +0. Divided by -0 the next boundary would lie at minus
    // infinity, and the walk would run out of the grid along an axis that the ray does not move on.
    const float d = ray.direction[i] + 0.0f, size = cellSize_[i], r = entry[i];
    const std::uint32_t cell = cellAlong(r, size, resolution_[i]);
    entryCell[i] = cell;
    if (d < 0.0f) {
      tDelta[i] = -size / d;
      tNext[i] = (static_cast<float>(cell) * size - r) / d;
      step[i] = -step[i];
    } else {
      tDelta[i] = size / d;
      tNext[i] = (static_cast<float>(cell + 1) * size - r) / d;
    }
  }
  std::size_t cell = cells.number(entryCell[0], entryCell[1], entryCell[2]);

  // KEEP(grid-first-cell): the first cell with a hit ends the query, though the hit may lie beyond
  // it and a nearer one be listed further on. Recorded picks hold such hits.
  const auto answers = [&]() {
    float best = ray.maxDistance;
    if (cells.testBlocks != nullptr) {
      detail::BlockHit hit;
      if (!cells.intersectTriangles(cell, ray, ctx.nearestHit, best, hit)) return false;
      // The record has the bits of the single test's: the block holds what that one works from, and
      // is at hand.
      const detail::TriangleBlock& block = *hit.block;
      const std::size_t lane = hit.lane;
      result.distance = best;
      result.position = ray.origin + ray.direction * best;
      result.normal = tarn::cross(tarn::Vec3f(block.e1x[lane], block.e1y[lane], block.e1z[lane]),
                                  tarn::Vec3f(block.e2x[lane], block.e2y[lane], block.e2z[lane]));
      result.primitiveIndex = block.primitive[lane];
      result.faceIndex = block.face[lane];
      result.hit = true;
      return true;
    }
    cells.forEachPrimitive(cell, [&](std::uint32_t primitive) {
      CollisionResult scratch;
      if (!model().intersect(ctx, ray, primitive, scratch)) return false;
      if (!(best > scratch.distance && scratch.distance > ray.minDistance)) return false;
      result = scratch;
      result.primitiveIndex = primitive;
      result.hit = true;
      best = scratch.distance;
      return !ctx.nearestHit;
    });
    return best < ray.maxDistance;
  };

  // From cell to cell through the boundary that comes first; on ties z before y before x, and never
  // x or y past a NaN.
  // Without branches on the axis, which no processor can guess: the masks of the three comparisons
  // choose the boundary, the step and what is added.
  using Float = tarn::baseline::FloatLanes<tarn::baseline::kSingle>;
  using Int = tarn::baseline::IntLanes<tarn::baseline::kSingle>;
  Float tx = Float::broadcast(tNext[0]), ty = Float::broadcast(tNext[1]),
        tz = Float::broadcast(tNext[2]);
  const Float dx = Float::broadcast(tDelta[0]), dy = Float::broadcast(tDelta[1]),
              dz = Float::broadcast(tDelta[2]);
  const Int sx = Int::broadcast(static_cast<std::int32_t>(step[0])),
            sy = Int::broadcast(static_cast<std::int32_t>(step[1])),
            sz = Int::broadcast(static_cast<std::int32_t>(step[2]));
  while (true) {
    if (cells.isStop(cell)) {
      if (!cells.isOccupied(cell)) return false;
      if (answers()) return true;
    }
    const auto xBeforeY = tx < ty;
    const auto isX = xBeforeY & (tx < tz), isY = andNot(ty < tz, xBeforeY), isZ = ~(isX | isY);
    if (first(select(isX, tx, select(isY, ty, tz))) > ray.maxDistance) return false;
    tx = tx + keep(isX, dx);
    ty = ty + keep(isY, dy);
    tz = tz + keep(isZ, dz);
    const std::int32_t move = first(keep(isX, sx) | keep(isY, sy) | keep(isZ, sz));
    cell += static_cast<std::size_t>(static_cast<std::ptrdiff_t>(move));
  }
}

void GridAcceleration::draw(DrawBoxFunc drawBox) const {
  if (!cells_ || drawBox == nullptr) return;
  const tarn::Vec4f colour(0.4f, 0.9f, 0.5f, 0.2f);
  for (std::uint32_t z = 0; z < resolution_[2]; ++z)
    for (std::uint32_t y = 0; y < resolution_[1]; ++y)
      for (std::uint32_t x = 0; x < resolution_[0]; ++x) {
        const std::size_t cell = cells_->number(x, y, z);
        if (!cells_->isOccupied(cell)) continue;
        bool hasPrimitive = cells_->testBlocks != nullptr;
        if (!hasPrimitive)
          cells_->forEachPrimitive(cell, [&](std::uint32_t) { return hasPrimitive = true; });
        if (!hasPrimitive) continue;
        const tarn::Vec3f low(static_cast<float>(x), static_cast<float>(y), static_cast<float>(z));
        drawBox(tarn::Box3f(box_.min + cellSize_ * low,
                            box_.min + cellSize_ * (low + tarn::Vec3f(1.0f))),
                colour);
      }
}

}  // namespace vela
