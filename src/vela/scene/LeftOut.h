/// \file
/// What of a scene its pictures do not show, or not as the scene means it.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "ovo/Stage.h"
#include "vela/Api.h"
#include "vela/scene/SceneMeshes.h"
#include "vela/scene/View.h"
#include "vela/scene/Work.h"

namespace vela::scene {

/// Whom something that is left out concerns.
enum class LeftOutConcern {
  shape,   ///< rays: what is missing, or stands there in another form
  look,    ///< colours alone
  camera,  ///< what the picture's own camera is set to
};

/// A kind of thing that is left out; a row of the table in LeftOut.cpp. Who makes pictures show one
/// deletes its row.
struct LeftOutKind {
  /// The words for one of it and for many: `light`, `lights`. @{
  const char *one, *many;
  /// @}
  LeftOutConcern concern = LeftOutConcern::shape;  ///< whom it concerns
};

/// Things of one kind that are left out.
struct LeftOut {
  std::string what;       ///< of the kind, by the count; of shapes without faces their type's name
  std::size_t count = 0;  ///< how many
  std::string first;      ///< path of the first in the scene's order
  LeftOutConcern concern = LeftOutConcern::shape;  ///< whom it concerns
};

/// The kinds, in the order in which findLeftOut() tells them.
[[nodiscard]] VELA_API std::vector<LeftOutKind> leftOutKinds();

/// Counts what is left out of a picture. Invisible and excluded prims do not count, materials once
/// however often they are used, and only where they have no preview surface; lights only where no
/// picture shows them, see isShownLight().
///
/// Surfaces that a refined list could not refine are not told here but in MeshList::notRefined.
///
/// \param list   of the stage, by the same filter
/// \param view   of the picture; null when there is none, and then no camera concerns
/// \return a record a kind that there is something of; when the work was stopped: incomplete
///
/// \code
///   using namespace vela::scene;
///   const std::shared_ptr<ovo::Stage> stage = ovo::Stage::createInMemory();
///   stage->definePrim(ovo::Path("/Way"), ovo::Token("PortalLight"));
///   const MeshFilter filter;
///   const MeshList list = listMeshes(*stage, filter).value();
///   const std::vector<LeftOut> leftOut = findLeftOut(*stage, list, filter, nullptr);
///   assert(leftOut.size() == 1 && leftOut[0].what == "light" && leftOut[0].first == "/Way");
///   assert(textOf(leftOut) == "1 light");
/// \endcode
[[nodiscard]] VELA_API std::vector<LeftOut> findLeftOut(const ovo::Stage& stage,
                                                        const MeshList& list,
                                                        const MeshFilter& filter, const View* view,
                                                        const Work& work = {});

/// What of a picture's camera and frame is shown because it is asked for.
struct ShownOptions {
  /// Whether it is asked for. @{
  bool depthOfField = false, clipping = false, motion = false, overscan = false;
  /// @}
};

/// The same for a picture with options: what they show is not left out.
[[nodiscard]] VELA_API std::vector<LeftOut> findLeftOut(const ovo::Stage& stage,
                                                        const MeshList& list,
                                                        const MeshFilter& filter, const View* view,
                                                        const ShownOptions& shown,
                                                        const Work& work = {});

/// True for a prim of a type of light.
[[nodiscard]] VELA_API bool isLight(const ovo::Prim& prim);

/// `3 lights, 1 material`.
[[nodiscard]] VELA_API std::string textOf(const std::vector<LeftOut>& leftOut);

}  // namespace vela::scene
