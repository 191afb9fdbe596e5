/// \file
/// What a scene may make this process do.
#pragma once

#include <cstddef>

#include "Arguments.h"
#include "ovo/OpenOptions.h"

namespace command {

struct Limits {
  ovo::OpenOptions open;
  double seconds = 600.0;  ///< to open a scene; 0: as long as it takes
};

/// Those of this run.
[[nodiscard]] const Limits& limits();

/// Takes those that are given, and limits the memory of this process when asked to.
/// \throws Failure (usage)
void readLimits(const Arguments& given);

}  // namespace command
