/// \file
/// The version of the library that is loaded.
#pragma once

#include "vela/Api.h"

namespace vela {

/// "major.minor.patch" of the loaded library, which may differ from the headers a caller was
/// compiled with. Static storage.
[[nodiscard]] VELA_API const char* version();

}  // namespace vela
