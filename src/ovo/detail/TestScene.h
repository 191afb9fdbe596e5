/// \file
/// What the tests of this folder share: scenes from text and files in a folder of their own.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "ovo/Stage.h"

namespace ovo_test {

/// A scene text in which several statements and blocks may stand on one line.
inline std::string sceneText(std::string text) {
  for (std::size_t at = 0; (at = text.find(" }", at)) != std::string::npos; at += 2)
    text[at] = '\n';
  for (std::size_t at = 0; (at = text.find("} ", at)) != std::string::npos; at += 2)
    text[at + 1] = '\n';
  return text;
}

/// The scene of a text without its first line, which is given here.
inline std::shared_ptr<ovo::Stage> sceneOf(const std::string& text) {
  std::string error;
  auto stage = ovo::Stage::openText(sceneText("#usda 1.0\n" + text), &error);
  EXPECT_NE(stage, nullptr) << error;
  return stage ? stage : ovo::Stage::createInMemory();
}

/// A folder that is there while the test runs.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "ovo-test-XXXXXX").string();
    path_ = mkdtemp(name.data());
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  [[nodiscard]] std::string path(const std::string& name) const { return (path_ / name).string(); }
  std::string write(const std::string& name, const std::string& content) const {
    std::filesystem::create_directories((path_ / name).parent_path());
    std::ofstream(path(name), std::ios::binary) << content;
    return path(name);
  }
  std::string writeScene(const std::string& name, const std::string& text) const {
    return write(name, sceneText(text));
  }
  [[nodiscard]] std::string read(const std::string& name) const {
    std::ifstream in(path(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  }
  [[nodiscard]] std::size_t count() const {
    std::size_t files = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(path_))
      files += entry.is_regular_file();
    return files;
  }

 private:
  std::filesystem::path path_;
};

}  // namespace ovo_test
