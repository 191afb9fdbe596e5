/// \file
/// Selections as files.
#pragma once

#include <string>

#include "vela/selection/GeoSelection.h"

namespace command {

class OutputFile;

/// Pipes are read too. No output may replace the file, unless \p mayBeReplaced.
/// \throws Failure when the file cannot be read or is no selection; Interrupted
[[nodiscard]] vela::Selection::GeoSelection readSelection(const std::string& file,
                                                          bool mayBeReplaced = false);

/// The file appears whole or not at all. \throws Failure when it cannot be written
void writeSelection(const vela::Selection::GeoSelection& selection, OutputFile& output);

}  // namespace command
