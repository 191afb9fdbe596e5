/// \file
/// From prims to shapes: which ones are wanted, each read once.
#pragma once

#include <cstdint>
#include <optional>
#include <unordered_map>

#include "ovo/Prim.h"
#include "ovo/Token.h"
#include "vela/scene/SceneMeshes.h"
#include "vela/scene/ShapePrims.h"

namespace vela::scene::detail {

/// Reads the shapes of prims into a list. List and filter must outlive it.
class ShapeReader {
 public:
  ShapeReader(MeshList& list, const MeshFilter& filter) : list_(list), filter_(filter) {}

  [[nodiscard]] bool isWantedType(const ovo::Prim& prim) const;
  [[nodiscard]] bool isWantedPurpose(const ovo::Token& purpose) const;
  [[nodiscard]] bool isExcluded(const ovo::Prim& prim) const;
  /// Whether the mask, if there is one, lets the prim show.
  [[nodiscard]] bool isInMask(const ovo::Prim& prim) const;
  /// Whether the mask lets something below the prim show.
  [[nodiscard]] bool isAboveMask(const ovo::Prim& prim) const;

  /// The index of the prim's shape in the list; the shape is read when it is asked for first. None
  /// for prims without a shape, and for those whose shape cannot be shown, which are counted once.
  std::optional<std::uint32_t> find(const ovo::Prim& prim);

 private:
  MeshList& list_;
  const MeshFilter& filter_;
  ShapePrims shapePrims_;
  std::unordered_map<ovo::Prim, std::optional<std::uint32_t>> known_;
};

}  // namespace vela::scene::detail
