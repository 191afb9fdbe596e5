/// \file
/// What of a scene one machine sees, so that others can be held against it.
///
/// A list has what the scene names and the machine does not see, since of most scenes that is
/// nothing, and the tiles of textures that it sees. Files stand by what names them in the scene,
/// never by where they lie, which differs from machine to machine.
#pragma once

#include <string>
#include <vector>

#include "ovo/Stage.h"

namespace command {

/// The list of this machine, as JSON in ASCII, without braces in its texts.
/// \param file the scene's own, as it was given
/// \throws Interrupted
[[nodiscard]] std::string seenFiles(const ovo::Stage& stage, const std::string& file);

/// A file that is not to be had here.
struct Lack {
  std::string name;  ///< as the scene has it
  std::string by;    ///< what names it
};

/// What the scene names and this machine does not see: all of it, where \p listFile is empty, else
/// what the machine saw that made the list in that file.
/// \throws Failure (usage) when it has no such list; Interrupted
[[nodiscard]] std::vector<Lack> findLacks(const ovo::Stage& stage, const std::string& file,
                                          const std::string& listFile);

}  // namespace command
