/// \file
/// Where this library is, and what belongs to it.
#pragma once

#include <filesystem>

namespace ovo::detail {

/// The folder of the library that this code is in; empty when that cannot be told.
[[nodiscard]] std::filesystem::path libraryFolder();

}  // namespace ovo::detail
