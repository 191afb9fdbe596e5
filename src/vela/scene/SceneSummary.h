/// \file
/// What a scene holds, as data: its tree with boxes, variants, lights, textures, instances.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "ovo/Path.h"
#include "ovo/Stage.h"
#include "tarn/Box3.h"
#include "tarn/Time.h"
#include "vela/Api.h"
#include "vela/scene/Work.h"

namespace vela::scene {

/// What of a scene is wanted.
struct SummaryOptions {
  double time = tarn::defaultTimeValue();  ///< at which the scene is looked at
  int depth = 3;                           ///< of the tree: 1 is the top prims alone
};

/// What a scene holds. Boxes are in world space and scene units, of what a picture shows with the
/// purposes default and render; they are empty without a point.
///
/// \code
///   const auto stage = ovo::Stage::open("examples/demo/demo.usda");
///   const std::optional<vela::scene::SceneSummary> summary = vela::scene::summarize(*stage, {});
///   assert(summary && !summary->box.isEmpty());
///   assert(summary->tree[0].path == ovo::Path("/Demo") && summary->tree[0].depth == 1);
/// \endcode
struct VELA_API SceneSummary {
  /// A prim of the tree.
  struct Node {
    ovo::Path path;           ///< the prim's
    std::string type;         ///< empty for a prim without one
    int depth = 1;            ///< 1 for a top prim
    std::size_t below = 0;    ///< how many prims are below it, listed or not
    bool isInstance = false;  ///< its prims come from an instance's arcs
    tarn::Box3d box;          ///< of its meshes and those below
  };
  /// A choice that a prim offers.
  struct VariantSet {
    ovo::Path prim;  ///< the prim that offers it
    /// The name of the set, and of the variant that is chosen; empty: none is. @{
    std::string set, selected;
    /// @}
    std::vector<std::string> variants;  ///< all there are, by name
  };
  /// A light, whether it shines or not.
  struct Light {
    ovo::Path path;       ///< the prim's
    std::string type;     ///< of the prim
    bool visible = true;  ///< false: it does not shine
  };
  /// An image that materials or lights read.
  struct Texture {
    std::string file;      ///< as it is written in the scene
    std::string resolved;  ///< empty: it is missing
    ovo::Path shader;      ///< the first shader or light that names it
    std::size_t uses = 0;  ///< shaders and lights that name it
  };
  /// A prim that places others many times.
  struct Instancer {
    ovo::Path path;             ///< the prim's
    std::size_t instances = 0;  ///< how many it places
  };

  tarn::Box3d box;                    ///< of all that shows
  std::vector<Node> tree;             ///< in the scene's order, parents first
  std::vector<VariantSet> variants;   ///< in the scene's order
  std::vector<Light> lights;          ///< in the scene's order
  std::vector<Texture> textures;      ///< each file once
  std::size_t instances = 0;          ///< prims that are instances
  std::vector<Instancer> instancers;  ///< point instancers outside of prototypes
};

/// \return nothing when the work was stopped, or when there are more instances than memory is
///         likely to hold
[[nodiscard]] VELA_API std::optional<SceneSummary> summarize(const ovo::Stage& stage,
                                                             const SummaryOptions& options,
                                                             const Work& work = {});

}  // namespace vela::scene
