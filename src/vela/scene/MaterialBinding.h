/// \file
/// Which material a prim, or a part of a mesh, is bound to.
///
/// What counts: bindings to one prim and to the members of collections, for all purposes and for
/// one, on the prim and on those above it; the nearest wins, unless one above says that it is
/// `strongerThanDescendants`. On one prim a collection with the prim as its member goes before the
/// prim's own binding. A purpose never falls back to the other, only to bindings for all purposes.
/// A binding to what is no material wins all the same, and gives none.
/// Source: the rules of UsdShade's material binding; collections as UsdCollectionAPI has them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "ovo/Array.h"
#include "ovo/Path.h"
#include "ovo/Prim.h"
#include "ovo/Stage.h"
#include "tarn/Time.h"
#include "vela/Api.h"
#include "vela/scene/Problem.h"
#include "vela/scene/SceneMeshes.h"
#include "vela/scene/Work.h"

namespace vela::scene {

/// What the materials are for.
enum class MaterialPurpose {
  full,     ///< pictures that are meant to last
  preview,  ///< pictures at once
  all,      ///< bindings without a purpose alone
};

/// A binding that won.
struct MaterialBinding {
  ovo::Prim material;      ///< not valid: none, also where the binding leads to no material
  ovo::Path relationship;  ///< the binding's own, such as `/World.material:binding`; empty: none
};

namespace detail {
class BindingTable;
}

/// Finds the materials of prims. Reads what prims say about bindings once.
///
/// Threads: belongs to one thread. The stage must not change meanwhile.
///
/// \code
///   const std::shared_ptr<ovo::Stage> stage = ovo::Stage::openText(
///       "#usda 1.0\n"
///       "def Scope \"World\"\n{\n rel material:binding = </World/Red>\n"
///       " def Material \"Red\"\n {\n }\n def Mesh \"Ball\"\n {\n }\n}\n");
///   vela::scene::MaterialFinder finder(*stage);
///   const vela::scene::MaterialBinding found =
///       finder.find(stage->getPrimAtPath("/World/Ball"));
///   assert(found.material.getPath() == ovo::Path("/World/Red"));
///   assert(found.relationship == ovo::Path("/World.material:binding"));
/// \endcode
class VELA_API MaterialFinder {
 public:
  /// For a stage, which must outlive the finder.
  explicit MaterialFinder(const ovo::Stage& stage, MaterialPurpose purpose = MaterialPurpose::full);
  ~MaterialFinder();
  MaterialFinder(const MaterialFinder&) = delete;
  MaterialFinder& operator=(const MaterialFinder&) = delete;

  /// The binding of a prim: of a mesh, or of a subset, which inherits that of its mesh.
  [[nodiscard]] MaterialBinding find(const ovo::Prim& prim);

  /// Collections that could not be read whole, as notes: those given by an expression that cannot
  /// be evaluated, see ovo::PropertyLinks::pathExpression, those that name such by expression, and
  /// those that name others a hundred deep or thousands of times.
  [[nodiscard]] std::vector<Problem> problems() const;

 private:
  std::unique_ptr<detail::BindingTable> table_;
};

/// Some faces of a mesh that have a binding of their own.
struct MaterialSubset {
  ovo::Prim prim;         ///< the GeomSubset
  ovo::Array<int> faces;  ///< as the scene has them: any numbers
};

/// The subsets of a prim that materials are bound to: its child prims of type GeomSubset, of faces,
/// of the family `materialBind`. A later one goes before those before it where they overlap.
[[nodiscard]] VELA_API std::vector<MaterialSubset> materialSubsets(
    const ovo::Prim& prim, double time = tarn::defaultTimeValue());

/// The index of no material.
constexpr std::uint32_t kNoMaterial = 0xffffffffu;

/// The materials of one entry, by their index in SceneMaterials::materials.
struct EntryMaterials {
  std::uint32_t whole = kNoMaterial;  ///< of faces without one of their own
  /// Of each of the scene's faces; null where all have the one of the whole.
  std::shared_ptr<const std::vector<std::uint32_t>> faces;

  /// \param sceneFace see Shape::sceneFace; any number
  [[nodiscard]] std::uint32_t of(int sceneFace) const {
    const auto face = static_cast<std::size_t>(sceneFace);
    return faces && sceneFace >= 0 && face < faces->size() ? (*faces)[face] : whole;
  }
};

/// The materials of a list of meshes.
struct SceneMaterials {
  /// Each once, in the order in which entries need them. Materials that come from the same places
  /// of the same files, as those of instances do, count as one: here stands the first.
  std::vector<ovo::Prim> materials;
  std::vector<EntryMaterials> entries;  ///< index by index of MeshList::entries
  std::vector<Problem> problems;        ///< as MaterialFinder::problems
};

/// Finds the materials of all entries.
/// \return what was found until the work was stopped
///
/// \code
///   using namespace vela::scene;
///   const std::shared_ptr<ovo::Stage> stage = ovo::Stage::open("examples/demo/demo.usda");
///   const MeshList list = listMeshes(*stage, MeshFilter()).value();
///   const SceneMaterials found = findMaterials(*stage, list, MaterialPurpose::full);
///   assert(found.entries.size() == list.entries.size());
///   for (const ovo::Prim& material : found.materials) std::cout << material << '\n';
/// \endcode
[[nodiscard]] VELA_API SceneMaterials findMaterials(const ovo::Stage& stage, const MeshList& list,
                                                    MaterialPurpose purpose,
                                                    double time = tarn::defaultTimeValue(),
                                                    const Work& work = {});

}  // namespace vela::scene
