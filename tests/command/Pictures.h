/// \file
/// Pictures that the command makes, read back.
#pragma once

#include <ImfChannelList.h>
#include <ImfFrameBuffer.h>
#include <ImfHeader.h>
#include <ImfInputFile.h>
#include <ImfStringAttribute.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "Options.h"

namespace command_test {

using command::RenderOptions;

struct Read {
  int width = 0, height = 0;
  std::map<std::string, std::vector<float>> floats;
  std::map<std::string, std::vector<std::uint32_t>> integers;
  nlohmann::json manifest;
};

inline Read readExr(const std::string& file) {
  Imf::InputFile input(file.c_str());
  const auto window = input.header().dataWindow();
  Read read;
  read.width = window.max.x + 1;
  read.height = window.max.y + 1;
  const std::size_t count =
      static_cast<std::size_t>(read.width) * static_cast<std::size_t>(read.height);
  Imf::FrameBuffer buffer;
  for (auto c = input.header().channels().begin(); c != input.header().channels().end(); ++c) {
    char* base = nullptr;
    // Ids are whole numbers, in whichever type the file has them.
    const std::string name = c.name();
    const bool isId = name.size() > 3 && name.compare(name.size() - 3, 3, ".id") == 0;
    const Imf::PixelType type = isId ? Imf::UINT : Imf::FLOAT;
    if (isId) {
      read.integers[c.name()].resize(count);
      base = reinterpret_cast<char*>(read.integers[c.name()].data());
    } else {
      read.floats[c.name()].resize(count);
      base = reinterpret_cast<char*>(read.floats[c.name()].data());
    }
    buffer.insert(c.name(), Imf::Slice(type, base, 4, 4 * static_cast<std::size_t>(read.width)));
  }
  input.setFrameBuffer(buffer);
  input.readPixels(window.min.y, window.max.y);
  if (const auto* text = input.header().findTypedAttribute<Imf::StringAttribute>("prim/manifest"))
    read.manifest = nlohmann::json::parse(text->value());
  return read;
}

// A folder of its own for each test.
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

  [[nodiscard]] Read render(RenderOptions options, const std::string& file) const {
    options.scene.file = file;
    const std::string exr = at("out.exr");
    options.outputs = {{exr, vela::picture::FileFormat::exr, false}};
    command::render(options);
    return readExr(exr);
  }

  std::filesystem::path folder_;
};

}  // namespace command_test
