/// \file
/// The lights of a scene that its pictures show, and what each of them falls on.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "ovo/Prim.h"
#include "ovo/Stage.h"
#include "vela/Api.h"
#include "vela/look/LightSource.h"
#include "vela/scene/Problem.h"
#include "vela/scene/SceneMeshes.h"
#include "vela/scene/Work.h"

namespace vela::scene {

/// A light of a scene.
struct SceneLight {
  ovo::Prim prim;            ///< whose light it is
  look::LightSource source;  ///< what it emits
  /// Of each entry of the list whether the light falls on it, and whether it throws a shadow; null
  /// where all do. @{
  std::shared_ptr<const std::vector<bool>> lit, casting;
  /// @}

  /// As `lit` and `casting` have it. \p entry is one of the list. @{
  [[nodiscard]] bool fallsOn(std::size_t entry) const { return !lit || (*lit)[entry]; }
  [[nodiscard]] bool isStoppedBy(std::size_t entry) const { return !casting || (*casting)[entry]; }
  /// @}
};

/// The lights of a scene.
struct SceneLights {
  std::vector<SceneLight> lights;  ///< in the order of the scene
  /// Lights that count otherwise than the scene has them, as notes.
  std::vector<Problem> problems;
};

/// True for the lights that pictures show: of the kinds that look::readLight reads, and outside of
/// the prototypes of point instancers.
[[nodiscard]] VELA_API bool isShownLight(const ovo::Prim& prim);

/// Reads the lights of a scene that shine at the filter's time: those that are visible, or all with
/// MeshFilter::withInvisible, and not left out by their paths. Instances have lights of their own.
/// Masks, types and purposes are about meshes: they put out no light.
///
/// A light falls on the prims of its collection `lightLink`, and those of `shadowLink` throw its
/// shadows: all where the scene does not say. Instances of point instancers go by the prototype's
/// prim where that lies below the instancer, else by the instancer.
///
/// \param list of the stage, by the same filter
/// \return what was found until the work was stopped
///
/// \code
///   using namespace vela::scene;
///   const std::shared_ptr<ovo::Stage> stage = ovo::Stage::createInMemory();
///   stage->definePrim(ovo::Path("/Sun"), ovo::Token("DistantLight"));
///   const MeshFilter filter;
///   const SceneLights found = listLights(*stage, listMeshes(*stage, filter).value(), filter);
///   assert(found.lights.size() == 1 && found.lights[0].source.radiance.x == 50000.0f);
///   assert(!found.lights[0].lit && found.problems.empty());
/// \endcode
[[nodiscard]] VELA_API SceneLights listLights(const ovo::Stage& stage, const MeshList& list,
                                              const MeshFilter& filter, const Work& work = {});

}  // namespace vela::scene
