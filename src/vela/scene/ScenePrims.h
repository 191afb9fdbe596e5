/// \file
/// Walks over the prims of a scene.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "ovo/CameraPrim.h"
#include "ovo/Stage.h"
#include "vela/Api.h"
#include "vela/scene/Work.h"

namespace vela::scene {

/// Visits the prims of a scene, those below instances too: the root first, parents before their
/// children. No recursion: scenes may be nested deeper than a process's stack.
///
/// \param visit says whether to go on below its prim
/// \return false when the work was stopped
///
/// \code
///   const std::shared_ptr<ovo::Stage> stage = ovo::Stage::open("examples/demo/demo.usda");
///   std::size_t meshes = 0;
///   vela::scene::forEachPrim(*stage, [&meshes](const ovo::Prim& prim) {
///     if (ovo::MeshPrim(prim).isValid()) ++meshes;
///     return true;
///   });
///   assert(meshes > 0);
/// \endcode
VELA_API bool forEachPrim(const ovo::Stage& stage,
                          const std::function<bool(const ovo::Prim&)>& visit,
                          const Work& work = {});

/// All cameras in the scene's order, but for those below a point instancer: they are prototypes.
/// When the work is stopped: those that were found until then.
[[nodiscard]] VELA_API std::vector<ovo::CameraPrim> listCameras(const ovo::Stage& stage,
                                                                const Work& work = {});

/// The cameras that a text stands for: the one at that path; else those of that name; else those
/// whose path has the text in it. More than one when it is not unique.
///
/// \code
///   const std::shared_ptr<ovo::Stage> stage = ovo::Stage::open("examples/demo/demo.usda");
///   const auto cameras = vela::scene::findCameras(*stage, "Camera");
///   assert(cameras.size() == 1 && cameras[0].getPath() == ovo::Path("/Demo/Camera"));
/// \endcode
[[nodiscard]] VELA_API std::vector<ovo::CameraPrim> findCameras(const ovo::Stage& stage,
                                                                const std::string& text,
                                                                const Work& work = {});

}  // namespace vela::scene
