/// \file
/// Pictures for tests: scenes as files in a folder of each test's own, values by channel.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "ovo/Stage.h"
#include "vela/picture/PictureRenderer.h"

namespace picture_test {

/// A picture's values row by row, each channel by its name in files.
struct Values {
  int width = 0, height = 0;
  std::map<std::string, std::vector<float>> floats;
  std::map<std::string, std::vector<std::uint32_t>> integers;
  std::vector<std::string> manifest;
};

inline Values valuesOf(const vela::picture::Picture& picture) {
  Values values;
  values.width = picture.width;
  values.height = picture.height;
  values.manifest = picture.manifest;
  const auto collect = [&](const auto& view, auto& out) {
    for (int y = 0; y < view.height; ++y)
      for (int x = 0; x < view.width; ++x) out.push_back(view(x, y));
  };
  for (const vela::picture::Layer& layer : picture.layers)
    for (const std::string& channel : layer.channels) {
      const vela::picture::LayerView view = picture.channel(channel);
      if (view.type == vela::picture::ValueType::float32)
        collect(view.floats, values.floats[channel]);
      else
        collect(view.integers, values.integers[channel]);
    }
  return values;
}

/// A folder of its own for each test.
class Pictures : public testing::Test {
 protected:
  void SetUp() override {
    folder_ =
        std::filesystem::path(testing::TempDir()) /
        (std::string("vela_") + testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::create_directories(folder_);
  }
  void TearDown() override { std::filesystem::remove_all(folder_); }
  [[nodiscard]] std::string at(const std::string& name) const { return (folder_ / name).string(); }

  /// A layer that shows a file through a camera that it adds, /TestCamera.
  [[nodiscard]] std::string withCamera(const std::string& file, const std::string& camera,
                                       const std::string& up = "Y") const {
    std::ofstream(at("shot.usda"))
        << "#usda 1.0\n( upAxis = \"" << up << "\"\n  subLayers = [@" << file << "@] )\n"
        << "def Camera \"TestCamera\"\n{\n"
        << camera << "\n}\n";
    return at("shot.usda");
  }

  [[nodiscard]] static Values render(const vela::picture::RenderOptions& options,
                                     const std::string& file) {
    std::string error;
    const auto stage = ovo::Stage::open(file, &error);
    EXPECT_TRUE(stage) << error;
    const auto picture = vela::picture::renderPicture(stage, options, 0, {}, &error);
    EXPECT_TRUE(picture) << error;
    return picture ? valuesOf(*picture) : Values();
  }

  std::filesystem::path folder_;
};

}  // namespace picture_test
