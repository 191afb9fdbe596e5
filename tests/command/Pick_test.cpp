// What the command says about single pixels, against its pictures.
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#include <nlohmann/json.hpp>

#include "Options.h"
#include "Pictures.h"
#include "support/SharedData.h"

namespace {

using command::RenderOptions;
using command_test::Pictures;
using command_test::Read;

std::string runCommand(const std::string& arguments) {
  std::string out;
  std::FILE* pipe = popen((std::string("'") + VELA_COMMAND + "' " + arguments).c_str(), "r");
  if (!pipe) return out;
  char part[4096];
  for (std::size_t n; (n = fread(part, 1, sizeof part, pipe)) > 0;) out.append(part, n);
  pclose(pipe);
  return out;
}

TEST_F(Pictures, PickSaysOfAPixelWhatThePictureHas) {
  const std::string scene = vela_test::sourcePath("examples/demo/demo.usda");
  for (const char* lens : {"perspective", "spherical"}) {
    RenderOptions options;
    options.samples = 4;
    options.scene.lens = lens;
    options.scene.width = 80;
    options.scene.height = 40;
    const Read picture = render(options, scene);
    int seen = 0;
    for (const auto& [x, y] :
         {std::array{0, 0}, {40, 20}, {20, 25}, {55, 22}, {79, 39}, {33, 30}}) {
      const auto found = nlohmann::json::parse(
          runCommand("pick '" + scene + "' --json --size 80x40 --lens " + lens + " --pixel " +
                     std::to_string(x) + "," + std::to_string(y)));
      const auto p = static_cast<std::size_t>(y * 80 + x);
      const std::uint32_t id = picture.integers.at("prim.id")[p];
      ASSERT_EQ(found.at("hit").get<bool>(), id != 0);
      if (id == 0) continue;
      ++seen;
      EXPECT_EQ(found.at("entry").get<std::uint32_t>() + 1, id);
      EXPECT_EQ(picture.manifest.at(found.at("prim").get<std::string>()).get<std::uint32_t>(), id);
      EXPECT_EQ(found.at("face").get<std::uint32_t>(), picture.integers.at("face.id")[p]);
      for (std::size_t k = 0; k < 3; ++k) {
        EXPECT_EQ(found.at("position")[k].get<float>(),
                  picture.floats.at(std::string("P.") + "xyz"[k])[p]);
        EXPECT_EQ(found.at("normal")[k].get<float>(),
                  picture.floats.at(std::string("N.") + "xyz"[k])[p]);
      }
    }
    EXPECT_GE(seen, 1);
  }
}

}  // namespace
