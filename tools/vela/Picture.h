/// \file
/// A rendered picture in memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace command {

/// One channel: width * height values, row by row from the top. Numbers that name things are
/// integers, all else floats.
struct Plane {
  std::string name;  ///< as the file has it: `R`, `Z`, `N.x` ...
  bool isInteger = false;
  std::vector<float> floats;
  std::vector<std::uint32_t> integers;
};

struct Picture {
  int width = 0, height = 0;
  std::vector<Plane> planes;
  float worldToCamera[16] = {};                            ///< storage order of tarn::Mat4
  std::vector<std::pair<std::string, std::string>> texts;  ///< further attributes: name, text

  [[nodiscard]] std::size_t pixelCount() const {
    return static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
  }
};

/// Writes an OpenEXR file, ZIP-compressed, with the display window at 0, 0.
/// \param threads compress the rows; the bytes do not depend on their number
/// \throws Failure, naming \p shownName, when the file cannot be written
void writeExr(const Picture& picture, const std::string& file, const std::string& shownName,
              int threads);

/// Writes an 8-bit PNG from linear colour, width * height * 3 floats, encoded as sRGB.
/// \throws Failure, naming \p shownName, when the file cannot be written
void writePng(int width, int height, const std::vector<float>& rgb, const std::string& file,
              const std::string& shownName);

/// The sRGB code of a linear value: 0 to 255, rounded; NaN gives 0.
[[nodiscard]] std::uint8_t encodeSrgb(float linear);

}  // namespace command
