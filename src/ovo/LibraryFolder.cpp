#include "ovo/detail/LibraryFolder.h"

#include <dlfcn.h>

#include <system_error>

namespace ovo::detail {

std::filesystem::path libraryFolder() {
  Dl_info info{};
  if (dladdr(reinterpret_cast<const void*>(&libraryFolder), &info) == 0 || !info.dli_fname)
    return {};
  std::error_code failed;
  const std::filesystem::path file = std::filesystem::canonical(info.dli_fname, failed);
  return failed ? std::filesystem::path() : file.parent_path();
}

}  // namespace ovo::detail
