/// \file
/// The files that a scene is made of.
#pragma once

#include <string>
#include <vector>

#include "ovo/Stage.h"

namespace command {

/// Notes every file that an attribute of the scene names, at any time, such as textures, tiles of
/// textures included: no output may replace one. Walks over all prims, and is to be called when an
/// output would replace a file at all (`replacesFiles()`).
/// \throws Failure when an output that is open already is such a file; Interrupted
void noteFilesOf(const ovo::Stage& stage);

/// Every file that is there of a scene, absolute, in order of their names: its layers, and what
/// attributes name at any time, such as textures. Of what lies in a package the package.
/// \throws Interrupted
[[nodiscard]] std::vector<std::string> filesOf(const ovo::Stage& stage);

}  // namespace command
