/// \file
/// The files of the page, which the build writes into the program.
#pragma once

#include <cstddef>
#include <vector>

namespace command::viewer {

struct PageFile {
  const char* path;  ///< `/index.html`
  const char* type;  ///< `text/html; charset=utf-8`
  const char* bytes;
  std::size_t size;
};

[[nodiscard]] const std::vector<PageFile>& pageFiles();

}  // namespace command::viewer
