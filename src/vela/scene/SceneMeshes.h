/// \file
/// The meshes that a picture of a scene shows.
///
/// A scene becomes a list of entries. Each entry is one shape standing in one place; shapes are
/// read once however often they are placed, by instances of the scene or by point instancers. The
/// index of an entry is what pictures, picks and selections know it by.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "ovo/MeshPrim.h"
#include "ovo/Path.h"
#include "ovo/Stage.h"
#include "tarn/Mat4.h"
#include "tarn/Time.h"
#include "tarn/Vec.h"
#include "vela/Api.h"
#include "vela/scene/Problem.h"
#include "vela/scene/Shape.h"
#include "vela/scene/Work.h"

namespace vela::scene {

/// What a prim is for, as the scene says.
enum class Purpose {
  default_,  ///< for every use: the scene does not say
  render,    ///< for pictures that are meant to last
  proxy,     ///< light geometry that stands for heavier one
  guide,     ///< for those who work on the scene
};

/// Which meshes to take.
struct MeshFilter {
  double time = tarn::defaultTimeValue();  ///< at which the scene is looked at
  std::vector<Purpose> purposes = {Purpose::default_, Purpose::render};  ///< those that are taken
  bool withInvisible = false;              ///< takes prims that are not visible too
  std::vector<std::string> includedTypes;  ///< type names; empty: every type
  std::vector<ovo::Path> excludedPaths;    ///< these prims and all below them are left out
  int subdivisionLevel = 0;                ///< how often to refine subdivision surfaces
  /// When not empty: nothing but these prims and all below them. A point instancer that is among
  /// them, or above one of them, shows whole.
  std::vector<ovo::Path> maskPaths = {};
};

/// The index of no instance.
constexpr std::uint32_t kNoInstance = 0xffffffffu;

/// One instance of a point instancer.
struct Instance {
  /// Index in MeshList::instances of the one that the instancer itself is part of.
  std::uint32_t parent = kNoInstance;
  std::uint32_t instancer = 0;  ///< index in MeshList::instancers
  int index = 0;                ///< index in the instancer's own list of instances
  bool hasColour = false;       ///< whether `colour` counts
  tarn::Vec3f colour;           ///< for prototypes that have none of their own
};

/// A shape and where it stands.
struct MeshEntry {
  ovo::MeshPrim prim;                    ///< whose shape it is
  tarn::Mat4d worldFromObject;           ///< object to world
  std::uint32_t shape = 0;               ///< index in MeshList::shapes
  std::uint32_t instance = kNoInstance;  ///< index in MeshList::instances
};

/// The meshes of a scene, and what of it could not be taken.
///
/// \code
///   using namespace vela::scene;
///   const std::shared_ptr<ovo::Stage> stage = ovo::Stage::open("examples/demo/demo.usda");
///   MeshFilter filter;
///   filter.excludedPaths = {ovo::Path("/Demo/Room")};
///   Problem problem;
///   const std::optional<MeshList> list = listMeshes(*stage, filter, &problem);
///   if (!list) std::cerr << problem.text() << '\n';
///   assert(list && !list->entries.empty());
///   for (std::size_t i = 0; i < list->entries.size(); ++i)
///     assert(nameOf(*list, i).rfind("/Demo/Room", 0) != 0);
///   for (const Problem& leftOut : list->problems()) std::cerr << leftOut.text() << '\n';
/// \endcode
struct VELA_API MeshList {
  std::vector<Shape> shapes;          ///< each once
  std::vector<MeshEntry> entries;     ///< in the order of the scene, parents first
  std::vector<Instance> instances;    ///< of all point instancers
  std::vector<ovo::Prim> instancers;  ///< the point instancers

  /// Prims that have a shape but no faces to trace, by type name.
  std::map<std::string, std::size_t> notShown;
  std::size_t badInstances = 0;     ///< instances of no prototype, or without a position
  std::vector<Problem> notRefined;  ///< subdivision surfaces that could not be refined

  /// The shape of an entry; not checked.
  [[nodiscard]] const Shape& shapeOf(std::size_t entry) const {
    return shapes[entries[entry].shape];
  }
  /// What was left out, as notes: the bad instances, the surfaces that are not refined, then the
  /// prims that cannot be shown, a record for each type.
  [[nodiscard]] std::vector<Problem> problems() const;
};

/// What an entry is called: its prim's path. That of an instance has the instance's index behind
/// it: `/World/Many/Proto[17]`, for instancers in prototypes of others the outermost first:
/// `/World/Many/Proto/Few/Leaf[17][3]`. The instancer stands in the brackets when the prim does not
/// lie below it: `/Library/Leaf[/World/Many 17]`.
[[nodiscard]] VELA_API std::string nameOf(const MeshList& list, std::size_t entry);

/// The meshes that a picture at the filter's time shows: those of prims that are active, defined,
/// visible and of the right purpose. What lies below a point instancer is a prototype: it stands
/// where the instancer puts it, and nowhere else.
///
/// \param problem on failure: stopped, tooManyInstances or tooManyFaces; else untouched
/// \return nothing when the work was stopped, or when there would be more instances, or refined
///         faces, than memory is likely to hold
[[nodiscard]] VELA_API std::optional<MeshList> listMeshes(const ovo::Stage& stage,
                                                          const MeshFilter& filter,
                                                          Problem* problem = nullptr,
                                                          const Work& work = {});

}  // namespace vela::scene
