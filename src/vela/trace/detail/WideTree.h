/// \file
/// Trees of boxes whose nodes have eight children, so that one vector instruction tests a node.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "vela/trace/detail/TracerMemory.h"

namespace vela::tracer {

/// Children of a node, and triangles of a leaf block.
constexpr std::size_t kWidth = 8;
/// The index of nothing: no child, no triangle, no placement.
constexpr std::uint32_t kNone = 0xFFFFFFFFu;
/// The top bit of a child value marks a leaf; the other bits are the leaf's index.
constexpr std::uint32_t kLeaf = 0x80000000u;
/// No path from a root to a leaf is longer than this many nodes, whatever the boxes are.
constexpr std::size_t kMaxDepth = 96;
/// Each node on a path leaves at most seven siblings on a walk's stack.
constexpr std::size_t kStackSize = (kWidth - 1) * kMaxDepth + 1;

/// The boxes of eight children, by side and axis. A missing child has kNone and an inside-out box,
/// which every ray misses.
struct alignas(32) Node {
  float side[2][3][kWidth];  ///< [0] low, [1] high
  std::uint32_t child[kWidth];
};
static_assert(sizeof(Node) == 224);

/// A box to be put into a tree, with its index; each side fills one register of four floats.
struct BuildBox {
  float low[3];
  std::uint32_t index;
  float high[3];
  std::uint32_t unused;
};
static_assert(sizeof(BuildBox) == 32);

/// The boxes of one leaf: a run within the array that the construction has reordered.
struct LeafRun {
  std::uint32_t first, count;
};

/// Builds a tree by the binned surface-area rule, over leaves of up to eight boxes.
///
/// \param boxes  reordered so that each leaf owns one run
/// \param nodes  replaced; node 0 is the root; no nodes when there are no boxes. A leaf's child
///               value is kLeaf + its position in \p leaves
/// \param leaves replaced
///
/// Source: Wald, On fast Construction of SAH-based Bounding Volume Hierarchies, RT 2007.
void buildTree(std::vector<BuildBox>& boxes, LargeVector<Node>& nodes,
               std::vector<LeafRun>& leaves);
/// The same down to single boxes: a leaf's child value is kLeaf + the box's index.
void buildTreeOfSingles(std::vector<BuildBox>& boxes, LargeVector<Node>& nodes);

/// What a walk must know of a tree beforehand.
struct TreeLimits {
  float box[2][4] = {};           ///< low and high corner of everything; the fourth is not used
  std::uint32_t mostWaiting = 0;  ///< the most children that can wait on a walk's stack
};
TreeLimits limitsOf(const LargeVector<Node>& nodes);

}  // namespace vela::tracer
