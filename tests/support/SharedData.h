/// \file
/// Where tests find files: the project's own, and real scenes that are not part of it. Tests read
/// those where they lie and pass over themselves where they do not.
#pragma once

#include <gtest/gtest.h>

#include <string>

namespace vela_test {

/// Full path of a file of the project.
std::string sourcePath(const std::string& relative);

/// Full path of a file below the shared data folder (`VELA_SHARED_DATA`, else the folder beside the
/// checkout).
std::string sharedDataPath(const std::string& relative);

/// True when that file or folder is there.
bool haveSharedData(const std::string& relative);

}  // namespace vela_test

/// First statement of a test that needs a real scene: passes over the test, and says so, when the
/// scene is absent.
#define requireSharedData(relative)                                                    \
  do {                                                                                 \
    if (!::vela_test::haveSharedData(relative))                                        \
      GTEST_SKIP() << "shared data absent: " << ::vela_test::sharedDataPath(relative); \
  } while (false)
