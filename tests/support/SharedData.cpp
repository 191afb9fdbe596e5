#include "support/SharedData.h"

#include <cstdlib>
#include <filesystem>

namespace vela_test {

std::string sourcePath(const std::string& relative) {
  return std::string(VELA_SOURCE_DIR) + "/" + relative;
}

std::string sharedDataPath(const std::string& relative) {
  const char* fromEnvironment = std::getenv("VELA_SHARED_DATA");
  return std::string(fromEnvironment ? fromEnvironment : VELA_SHARED_DATA_DEFAULT) + "/" + relative;
}

bool haveSharedData(const std::string& relative) {
  std::error_code ignored;
  return std::filesystem::exists(sharedDataPath(relative), ignored);
}

}  // namespace vela_test
