/// \file
/// A tree of boxes over the primitives of any model.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <type_traits>

#include "tarn/Box3.h"
#include "vela/Api.h"
#include "vela/intersect/Acceleration.h"

namespace vela {

/// One node of the flattened tree; 32 bytes. Node 0 is the root, a parent stands before its
/// children, the whole left subtree before the right one.
struct BvhNode {
  static constexpr std::uint32_t leafBit = 0x80000000u;    ///< set in `first` of a leaf
  static constexpr std::uint32_t indexMask = 0x1FFFFFFFu;  ///< the low 29 bits of `second`
  static constexpr std::uint32_t noChild = 0xFFFFFFFFu;    ///< neither child nor leaf

  /// Of everything below, padded by 1e-5.
  tarn::Box3f box;
  /// Leaf: start of its run of primitive numbers, with leafBit set. Interior: index of the left
  /// child, or noChild.
  std::uint32_t first = 0;
  /// Leaf: number of primitives. Interior: index of the right child in the low 29 bits, the split
  /// axis in the top two; or noChild.
  std::uint32_t second = 0;

  /// noChild has the leaf bit too, but a node is written either as a leaf or with both children.
  [[nodiscard]] bool isLeaf() const { return (first & leafBit) != 0; }
};
static_assert(std::is_trivially_copyable_v<BvhNode> && sizeof(BvhNode) == 32);

/// A bounding volume hierarchy, made at once and walked front to back by the sign of the direction.
///
/// What it answers: with nearestHit the range shrinks to every hit found, and a later hit that the
/// model reports replaces the earlier one without being compared with it. A model whose test
/// reaches a little past the range (triangles: 1e-5) may so replace a hit by one up to that much
/// farther. With nearestHit false: the first primitive in the order of the walk that the model
/// reports. `exclude` is never asked; models that filter do so in their own `intersect`.
///
/// Primitives with an empty box make no node larger and are reached only with their neighbours. At
/// most 2^28 primitives.
///
/// Queries allocate nothing while no more than 100 siblings wait; in a tree deeper than that the
/// rest goes to the heap.
///
/// \code
///   const ovo::Array<tarn::Vec3f> points = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0},
///                                                 {0, 0, 2}, {1, 0, 2}, {0, 1, 2}};
///   const vela::TriangleAccelerationModel model(points, {3, 3}, {0, 1, 2, 3, 4, 5});
///   const vela::BvhAcceleration tree(model, true);
///
///   vela::CollisionResult result;
///   const tarn::Ray3f down({0.25f, 0.25f, 5.0f}, {0, 0, -1});
///   const bool isHit = tree.intersect({}, down, result);
///   assert(isHit && result.primitiveIndex == 1 && result.distance == 3.0f);
///
///   // For shadows any hit will do.
///   vela::IntersectionContext anyHit;
///   anyHit.nearestHit = false;
///   assert(tree.intersect(anyHit, down, result));
/// \endcode
class VELA_API BvhAcceleration : public Acceleration {
 public:
  /// \param useSah false: split at the middle of the centres' longest axis (fast to build). True:
  ///               at the best of 11 planes by surface area (better trees; the middle where nothing
  ///               has an area)
  ///
  /// Runs of up to three primitives are leaves, and so are longer ones that no plane parts.
  /// Source: MacDonald and Booth, Heuristics for Ray Tracing Using Space Subdivision, 1990; Wald,
  /// On Fast Construction of SAH-based Bounding Volume Hierarchies, 2007 (bins).
  BvhAcceleration(const AccelerationModel& model, bool useSah);
  BvhAcceleration(const BvhAcceleration&) = delete;
  BvhAcceleration& operator=(const BvhAcceleration&) = delete;
  ~BvhAcceleration() override;

  bool intersect(const IntersectionContext& ctx, const tarn::Ray3f& ray,
                 CollisionResult& result) const override;

  /// Every node's box, depth first, the right subtree before the left: leaves in (1.0, 0.8, 0.0,
  /// 0.5), interior nodes in (0.6, 0.6, 1.0, 0.2).
  void draw(DrawBoxFunc drawBox) const override;

 private:
  struct Tree;
  std::unique_ptr<const Tree> tree_;
};

}  // namespace vela
