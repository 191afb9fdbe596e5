/// \file
/// What `vela --version --build-info` prints.
#pragma once

#include <string>

namespace command {

/// Lines of names and values: how the library and the command were built, which interpreter Python
/// managers would get, and which files of libraries this process has loaded.
[[nodiscard]] std::string buildInfo();

}  // namespace command
