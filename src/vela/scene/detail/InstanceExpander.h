/// \file
/// The entries of point instancers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "ovo/Array.h"
#include "ovo/OpenOptions.h"
#include "ovo/Prim.h"
#include "ovo/Stage.h"
#include "ovo/Token.h"
#include "tarn/Mat4.h"
#include "tarn/Vec.h"
#include "vela/scene/Problem.h"
#include "vela/scene/SceneMeshes.h"
#include "vela/scene/Work.h"
#include "vela/scene/detail/ShapeReader.h"

namespace vela::scene::detail {

/// Adds the entries of point instancers to a list.
///
/// An instance's prototype stands at worldFromInstancer * T * R * S * its own transform. Prototypes
/// may have many prims, other instancers among them; they may be `over`s and classes, which scenes
/// keep out of sight that way. What hides a prim or gives it a purpose counts from the prototype's
/// root down; above that it is the instancer's own place in the scene that counts.
class InstanceExpander {
 public:
  /// All must outlive the expander.
  InstanceExpander(const ovo::Stage& stage, MeshList& list, const MeshFilter& filter,
                   ShapeReader& shapes, const Work& work)
      : stage_(stage),
        list_(list),
        filter_(filter),
        shapes_(shapes),
        work_(work),
        mostInstances_(ovo::openOptionsOf(stage).instances) {}

  /// \param parent  the instance that the instancer is part of
  /// \param purpose the instancer's
  /// \return false when the work was stopped or there are too many instances, see problem()
  [[nodiscard]] bool expand(const ovo::Prim& instancer, const tarn::Mat4d& worldFromInstancer,
                            std::uint32_t parent, const ovo::Token& purpose);
  [[nodiscard]] const Problem& problem() const { return problem_; }

 private:
  // A prim of a prototype: a shape, or an instancer when there is none.
  struct Part {
    ovo::Prim prim;
    tarn::Mat4d instanceFromPart;
    std::optional<std::uint32_t> shape;
    ovo::Token purpose;
  };
  struct Instancer {
    std::uint32_t number = 0;  // in MeshList::instancers
    std::vector<std::optional<std::vector<Part>>> prototypes;
    ovo::Array<int> protoIndices;
    ovo::Array<tarn::Vec3f> positions, scales, colours;
    ovo::Array<tarn::Vec4f> orientations;
    std::vector<bool> mask;  // false for instances that are not there; empty when all are

    [[nodiscard]] tarn::Mat4d instancerFromInstance(std::size_t i) const;
  };

  const Instancer& read(const ovo::Prim& prim, const ovo::Token& purpose);
  std::vector<Part> partsOf(const ovo::Prim& root, const ovo::Token& purpose);
  bool refuse(const ovo::Prim& instancer, const char* what);

  const ovo::Stage& stage_;
  MeshList& list_;
  const MeshFilter& filter_;
  ShapeReader& shapes_;
  const Work& work_;
  // Instancers within instancers multiply: a small file may ask for more than any memory holds.
  const std::size_t mostInstances_;
  std::map<std::pair<ovo::Prim, ovo::Token>, Instancer> known_;
  std::vector<ovo::Prim> open_;  // instancers being expanded, the outermost first
  std::size_t visited_ = 0;
  Problem problem_;
};

}  // namespace vela::scene::detail
