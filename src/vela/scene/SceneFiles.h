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

/// A file that a scene names, and whether it is there.
struct NamedFile {
  std::string name;  ///< as it is written in the scene; of a layer where it is looked for
  std::string by;  ///< what names it: an attribute `/World/Map.inputs:file`, or the prim of an arc
  /// That it can be read. Of tiles of a texture: that one of them can be.
  bool isThere = false;
  /// Of a name with `<UDIM>` the tiles that can be read, from 1001 up.
  std::vector<int> tiles;
};

/// Every file that an attribute names, at any time, there or not, each once by the first attribute
/// that names it: in the order of the scene. In front of them the layers that cannot be read. What
/// names a file is the same on each machine that has the scene, wherever its files lie: so machines
/// can be compared.
/// \return nothing when the work was stopped
///
/// \code
///   const auto stage = ovo::Stage::openText(
///       "#usda 1.0\ndef Shader \"Map\"\n{\n  asset inputs:file = @./none.png@\n}\n");
///   const auto files = vela::scene::namedFiles(*stage);
///   assert(files->size() == 1 && files->at(0).name == "./none.png" && !files->at(0).isThere);
///   assert(files->at(0).by == "/Map.inputs:file");
/// \endcode
[[nodiscard]] VELA_API std::optional<std::vector<NamedFile>> namedFiles(const ovo::Stage& stage,
                                                                        const Work& work = {});

}  // namespace vela::scene
