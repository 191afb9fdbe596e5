/// \file
/// The tracer's trees: nodes of eight children, leaf blocks of eight triangles, and their
/// construction.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "ovo/Array.h"
#include "tarn/Vec.h"
#include "vela/trace/detail/TracerMath.h"
#include "vela/trace/detail/TracerMemory.h"

namespace vela::tracer {

constexpr std::size_t kWidth = 8;
/// Marks a child that is a leaf; the rest is the number of its block (meshes) or of its placement
/// (scene).
constexpr std::uint32_t kLeaf = 0x80000000u;
/// More than any stack needs: no path is longer than kMaxDepth nodes, and each leaves at most seven
/// siblings behind.
constexpr std::size_t kMaxDepth = 96;
constexpr std::size_t kStackSize = (kWidth - 1) * kMaxDepth + 1;

/// Boxes of eight children, by side and axis. Missing children have kNone and a box that every ray
/// misses.
struct alignas(32) Node {
  float side[2][3][kWidth];  ///< [0] low, [1] high
  std::uint32_t child[kWidth];
};
static_assert(sizeof(Node) == 224);

/// Up to eight triangles, by corner and axis. Unused lanes hold NaN, which no ray crosses, and
/// kNone.
struct alignas(32) Block {
  float corner[3][3][kWidth];
  std::uint32_t triangle[kWidth];
};
static_assert(sizeof(Block) == 320);

/// What a hit needs to know of a triangle beside its corners.
struct TriangleSource {
  std::int32_t face;
  std::int32_t faceVertex[3];
};

/// A box to be put into a tree, with its number; sixteen bytes a side for the vector unit.
struct BuildBox {
  float low[3];
  std::uint32_t index;
  float high[3];
  std::uint32_t unused;
};
static_assert(sizeof(BuildBox) == 32);

/// A leaf's run within the boxes, which the construction reorders.
struct LeafRun {
  std::uint32_t first, count;
};

/// Builds a tree by the binned surface-area rule, over leaves of up to eight boxes.
///
/// \param boxes  reordered so that each leaf owns one run
/// \param nodes  replaced; node 0 is the root; none when there are no boxes. A leaf's child value
///               is kLeaf + its position in
///               \p leaves
/// \param leaves replaced
void buildTree(std::vector<BuildBox>& boxes, LargeVector<Node>& nodes,
               std::vector<LeafRun>& leaves);
/// The same down to single boxes: a leaf's child value is kLeaf + the box's index.
void buildTreeOfSingles(std::vector<BuildBox>& boxes, LargeVector<Node>& nodes);

/// A mesh as queries see it.
struct Mesh {
  ovo::Array<tarn::Vec3<float>> points;
  ovo::Array<int> counts, indices;
  MeshFrame frame;
  LargeVector<TriangleSource> triangles;  ///< by face, then in the order of the cut
  LargeVector<Node> nodes;
  LargeVector<Block> blocks;
  bool isBuilt = false;

  /// Checks the faces and cuts them; no tree yet.
  void prepare();
  void build();
  [[nodiscard]] tarn::Vec3<float> corner(std::size_t triangle, std::size_t corner) const;
};

/// One placed mesh. Small: scenes have millions.
struct Placement {
  Affine localFromWorld;
  std::uint32_t mesh;
  std::uint32_t isUsable;
};
static_assert(sizeof(Placement) == 104);

/// The world box of a placement, safe for every ray that makeLocalRay and crossTriangle let hit;
/// false when no useful one can be given: then the placement is asked by every ray.
bool placementBox(const Affine& localFromWorld, const MeshFrame& frame, BuildBox& out);

/// The nearest crossing so far.
struct Nearest {
  double distance = std::numeric_limits<double>::infinity();
  std::uint32_t placement = kNone;
  std::uint32_t triangle = kNone;
  Crossing crossing{};
  const Block* block = nullptr;
  std::uint32_t lane = 0;

  [[nodiscard]] bool isBeatenBy(double d, std::uint32_t p, std::uint32_t t) const {
    if (d != distance) return d < distance;
    return p != placement ? p < placement : t < triangle;
  }
};

/// What a kernel sees.
struct SceneView {
  const Mesh* meshes;
  const Placement* placements;
  const Node* nodes;            ///< null without boxed placements
  std::uint32_t onlyPlacement;  ///< the one placement that has a box; kNone when there are more
  const std::uint32_t* unboxed;
  std::size_t numUnboxed;
};

using NearestFunction = void (*)(const SceneView&, const tarn::Ray<float>&, Nearest&);
using OccludedFunction = bool (*)(const SceneView&, const tarn::Ray<float>&);
struct KernelFunctions {
  NearestFunction nearest;
  OccludedFunction occluded;
};
/// Runs anywhere.
KernelFunctions plainKernel();
/// The best that this processor runs; the plain one where there is no better.
KernelFunctions bestKernel();

}  // namespace vela::tracer
