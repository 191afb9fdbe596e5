/// \file
/// From prims to shapes: which ones are wanted, each read once, and the places that point
/// instancers give them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

#include "Scene.h"
#include "ShapePrims.h"
#include "ovo/Array.h"
#include "ovo/Prim.h"
#include "ovo/Stage.h"
#include "ovo/Token.h"
#include "tarn/Mat4.h"
#include "tarn/Vec.h"

namespace command {

/// Reads the shapes of prims into a list.
class ShapeReader {
 public:
  ShapeReader(MeshList& list, const MeshFilter& filter) : list_(list), filter_(filter) {}

  [[nodiscard]] bool isWantedType(const ovo::Prim& prim) const;
  [[nodiscard]] bool isWantedPurpose(const ovo::Token& purpose) const;
  [[nodiscard]] bool isExcluded(const ovo::Prim& prim) const;

  /// The place of the prim's shape in the list, read when it is asked for first. None for prims
  /// without a shape, and for those whose shape cannot be shown, which are counted once.
  std::optional<std::uint32_t> find(const ovo::Prim& prim);

 private:
  MeshList& list_;
  const MeshFilter& filter_;
  ShapePrims shapePrims_;
  std::unordered_map<ovo::Prim, std::optional<std::uint32_t>> known_;
};

/// Adds the entries of point instancers to a list.
///
/// An instance's prototype stands at worldFromInstancer * T * R * S * its own transform. Prototypes
/// may have many prims, other instancers among them; they may be `over`s and classes, which scenes
/// keep out of sight that way. What hides a prim or gives it a purpose counts from the prototype's
/// root down; above that it is the instancer's place in the scene that counts.
class InstanceExpander {
 public:
  InstanceExpander(const ovo::Stage& stage, MeshList& list, const MeshFilter& filter,
                   ShapeReader& shapes)
      : stage_(stage), list_(list), filter_(filter), shapes_(shapes) {}

  /// \param parent  the instance that the instancer is part of
  /// \param purpose the instancer's
  void expand(const ovo::Prim& instancer, const tarn::Mat4<double>& worldFromInstancer,
              std::uint32_t parent, const ovo::Token& purpose);

 private:
  // A prim of a prototype: a shape, or an instancer when there is none.
  struct Part {
    ovo::Prim prim;
    tarn::Mat4<double> instanceFromPart;
    std::optional<std::uint32_t> shape;
    ovo::Token purpose;
  };
  struct Instancer {
    std::uint32_t number = 0;  // in MeshList::instancers
    std::vector<std::optional<std::vector<Part>>> prototypes;
    ovo::Array<int> protoIndices;
    ovo::Array<tarn::Vec3<float>> positions, scales, colours;
    ovo::Array<tarn::Vec4<float>> orientations;
    std::vector<bool> mask;  // false for instances that are not there; empty when all are

    [[nodiscard]] tarn::Mat4<double> instancerFromInstance(std::size_t i) const;
  };

  const Instancer& read(const ovo::Prim& prim, const ovo::Token& purpose);
  std::vector<Part> partsOf(const ovo::Prim& root, const ovo::Token& purpose);

  const ovo::Stage& stage_;
  MeshList& list_;
  const MeshFilter& filter_;
  ShapeReader& shapes_;
  std::map<std::pair<ovo::Prim, ovo::Token>, Instancer> known_;
  std::vector<ovo::Prim> open_;  // instancers being expanded, the outermost first
  std::size_t visited_ = 0;
};

}  // namespace command
