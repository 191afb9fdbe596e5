/// \file
/// Selections as files.
#pragma once

#include <string>

#include "vela/selection/GeoSelection.h"

namespace command {

/// \throws Failure when the file cannot be read or is no selection
[[nodiscard]] vela::Selection::GeoSelection readSelection(const std::string& file);

/// The file appears whole or not at all. \throws Failure when it cannot be written
void writeSelection(const vela::Selection::GeoSelection& selection, const std::string& file);

}  // namespace command
