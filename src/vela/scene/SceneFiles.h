/// \file
/// The files that a scene is made of.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "ovo/Stage.h"
#include "vela/Api.h"
#include "vela/scene/Work.h"

namespace vela::scene {

/// Visits every file that an attribute of the scene names, at any time, such as textures. Layers
/// are not among them. A file may come more than once. A name with `<UDIM>` comes as its 100 tiles,
/// those that are not there too; what lies in a package comes as the package.
/// \return false when the work was stopped
VELA_API bool forEachNamedFile(const ovo::Stage& stage,
                               const std::function<void(const std::string& file)>& visit,
                               const Work& work = {});

/// Every file that is there of a scene, absolute, in order of their names, each once: its layers,
/// and what attributes name.
/// \return nothing when the work was stopped
///
/// \code
///   const auto stage = ovo::Stage::open("examples/demo/demo.usda");
///   const auto files = vela::scene::sceneFiles(*stage);
///   assert(files && files->size() > 1);
/// \endcode
[[nodiscard]] VELA_API std::optional<std::vector<std::string>> sceneFiles(const ovo::Stage& stage,
                                                                          const Work& work = {});

}  // namespace vela::scene
