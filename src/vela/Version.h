/// \file
/// The version of the library that is loaded, and how it was built.
#pragma once

#include <string>
#include <vector>

#include "vela/Api.h"

namespace vela {

/// "major.minor.patch" of the loaded library, which may differ from the headers a caller was
/// compiled with. Static storage.
[[nodiscard]] VELA_API const char* version();

/// One line of what is known of the loaded library.
struct BuildFact {
  std::string name;   ///< what it is about, such as "compiler" or "OpenUSD"
  std::string value;  ///< for people to read; its form may change with any version
};

/// How the loaded library was built, what it is made of and where that comes from: for reports of
/// faults. Loads OpenAssetIO to say which it is, and nothing else. Any thread.
[[nodiscard]] VELA_API std::vector<BuildFact> buildInfo();

}  // namespace vela
