#include "vela/picture/PngFile.h"

#include <png.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <memory>

#include "vela/picture/detail/Srgb.h"

namespace vela::picture {

namespace {

using tarn::Vec3f;

struct Closer {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

bool fail(std::string* error, const std::string& why) {
  if (error) *error = why;
  return false;
}

// An image as libpng wants it, and its pixels. The simplified interface keeps libpng's long jumps
// on its side.
struct Image {
  png_image head = {};
  std::vector<std::uint8_t> codes;
};

bool makeImage(int width, int height, tarn::Span<const float> rgb, Image& image,
               std::string* error) {
  if (width < 1 || height < 1) return fail(error, "the picture has no pixels");
  if (rgb.size() != static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 3)
    return fail(error, "there are " + std::to_string(rgb.size()) + " values, not " +
                           std::to_string(width) + " x " + std::to_string(height) + " x 3");
  image.head.version = PNG_IMAGE_VERSION;
  image.head.width = static_cast<png_uint_32>(width);
  image.head.height = static_cast<png_uint_32>(height);
  image.head.format = PNG_FORMAT_RGB;
  image.codes.resize(rgb.size());
  std::transform(rgb.begin(), rgb.end(), image.codes.begin(), encodeSrgb);
  return true;
}

bool makeImage(const DisplayImage& from, Image& image, std::string* error) {
  if (from.width < 1 || from.height < 1) return fail(error, "the picture has no pixels");
  const std::size_t codes = static_cast<std::size_t>(from.width) *
                            static_cast<std::size_t>(from.height) * (from.hasAlpha ? 4 : 3);
  if (from.codes.size() != codes)
    return fail(error, "there are " + std::to_string(from.codes.size()) + " codes, not " +
                           std::to_string(codes));
  image.head.version = PNG_IMAGE_VERSION;
  image.head.width = static_cast<png_uint_32>(from.width);
  image.head.height = static_cast<png_uint_32>(from.height);
  image.head.format = from.hasAlpha ? PNG_FORMAT_RGBA : PNG_FORMAT_RGB;
  image.codes = from.codes;
  return true;
}

bool write(Image& image, const std::string& file, std::string* error) {
  const std::unique_ptr<std::FILE, Closer> stream(std::fopen(file.c_str(), "wb"));
  if (!stream) return fail(error, std::strerror(errno));
  errno = 0;
  if (!png_image_write_to_stdio(&image.head, stream.get(), 0, image.codes.data(), 0, nullptr))
    // libpng says that writing failed, and not why.
    return fail(
        error, std::ferror(stream.get()) && errno != 0 ? std::strerror(errno) : image.head.message);
  if (std::fflush(stream.get()) != 0) return fail(error, std::strerror(errno));
  return true;
}

bool write(Image& image, std::vector<unsigned char>& bytes, std::string* error) {
  png_alloc_size_t size = PNG_IMAGE_PNG_SIZE_MAX(image.head);
  bytes.resize(size);
  if (!png_image_write_to_memory(&image.head, bytes.data(), &size, 0, image.codes.data(), 0,
                                 nullptr)) {
    bytes.clear();
    return fail(error, image.head.message);
  }
  bytes.resize(size);
  return true;
}

}  // namespace

Vec3f backdrop(float height) noexcept {
  const Vec3f below(0.30f, 0.29f, 0.28f), above(0.62f, 0.68f, 0.74f);
  const float t = std::clamp(height, 0.0f, 1.0f);
  const float share = t * t * (3.0f - 2.0f * t);
  return below * (1.0f - share) + above * share;
}

std::vector<float> overBackdrop(const Picture& picture) {
  const PixelView<float> rgba = picture.layer("rgba").floats;
  std::vector<float> flat(rgba ? picture.pixelCount() * 3 : 0);
  if (!rgba) return flat;
  float* out = flat.data();
  for (int y = 0; y < picture.height; ++y) {
    const float height = 1.0f - (static_cast<float>(y) + 0.5f) / static_cast<float>(picture.height);
    const Vec3f behind = backdrop(height);
    for (int x = 0; x < picture.width; ++x) {
      const float* pixel = &rgba(x, y);
      const Vec3f over =
          Vec3f(pixel[0], pixel[1], pixel[2]) + behind * (1.0f - std::min(pixel[3], 1.0f));
      for (std::size_t k = 0; k < 3; ++k) *out++ = over[k];
    }
  }
  return flat;
}

std::uint8_t encodeSrgb(float linear) noexcept {
  if (!(linear > 0.0f)) return 0;
  const float v = std::min(linear, 1.0f);
  return static_cast<std::uint8_t>(std::floor(detail::srgbFromLinear(v) * 255.0f + 0.5f));
}

bool writePng(int width, int height, tarn::Span<const float> rgb, const std::string& file,
              std::string* error) {
  Image image;
  return makeImage(width, height, rgb, image, error) && write(image, file, error);
}

bool writePng(int width, int height, tarn::Span<const float> rgb, std::vector<unsigned char>& bytes,
              std::string* error) {
  bytes.clear();
  Image image;
  return makeImage(width, height, rgb, image, error) && write(image, bytes, error);
}

bool writePng(const DisplayImage& from, const std::string& file, std::string* error) {
  Image image;
  return makeImage(from, image, error) && write(image, file, error);
}

bool writePng(const DisplayImage& from, std::vector<unsigned char>& bytes, std::string* error) {
  bytes.clear();
  Image image;
  return makeImage(from, image, error) && write(image, bytes, error);
}

}  // namespace vela::picture
