#include <png.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>

#include "Failure.h"
#include "Picture.h"

namespace command {

namespace {

struct Closer {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

}  // namespace

std::uint8_t encodeSrgb(float linear) {
  if (!(linear > 0.0f)) return 0;
  const float v = std::min(linear, 1.0f);
  const float code = v <= 0.0031308f ? 12.92f * v : 1.055f * std::pow(v, 1.0f / 2.4f) - 0.055f;
  return static_cast<std::uint8_t>(code * 255.0f + 0.5f);
}

void writePng(int width, int height, const std::vector<float>& rgb, const std::string& file,
              const std::string& shownName) {
  const auto fail = [&](const std::string& why) {
    return Failure{kBadInput, "cannot write", shownName, why, "see whether the disk is full"};
  };

  std::vector<std::uint8_t> bytes(rgb.size());
  std::transform(rgb.begin(), rgb.end(), bytes.begin(), encodeSrgb);

  const std::unique_ptr<std::FILE, Closer> stream(std::fopen(file.c_str(), "wb"));
  if (!stream) throw fail(std::strerror(errno));

  // The simplified interface keeps libpng's long jumps on its side.
  png_image image = {};
  image.version = PNG_IMAGE_VERSION;
  image.width = static_cast<png_uint_32>(width);
  image.height = static_cast<png_uint_32>(height);
  image.format = PNG_FORMAT_RGB;
  if (!png_image_write_to_stdio(&image, stream.get(), 0, bytes.data(), 0, nullptr))
    throw fail(image.message);
  if (std::fflush(stream.get()) != 0) throw fail(std::strerror(errno));
}

}  // namespace command
