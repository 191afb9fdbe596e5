#include "vela/picture/detail/ImageReader.h"

namespace vela::picture::detail {

std::unique_ptr<ImageReader> ImageReader::open(std::string_view bytes, std::size_t mostBytes,
                                               std::string* error) {
  const auto startsWith = [bytes](std::string_view head) {
    return bytes.substr(0, head.size()) == head;
  };
  if (startsWith("\xff\xd8\xff")) return openJpeg(bytes, mostBytes, error);
  if (startsWith("\x89PNG\r\n\x1a\n")) return openPng(bytes, mostBytes, error);
  if (startsWith("\x76\x2f\x31\x01")) return openExr(bytes, mostBytes, error);
  if (error) *error = "it is no JPEG, PNG or OpenEXR image";
  return nullptr;
}

bool checkImageSize(std::int64_t width, std::int64_t height, std::string* error) {
  constexpr auto kMost = static_cast<std::int64_t>(kMostPixels);
  if (width >= 1 && height >= 1 && width <= kMost && height <= kMost / width) return true;
  if (error)
    *error = "an image of " + std::to_string(width) + " x " + std::to_string(height) +
             " pixels is not read";
  return false;
}

}  // namespace vela::picture::detail
