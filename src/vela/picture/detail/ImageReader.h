/// \file
/// Pictures in memory, read row by row: JPEG, PNG and OpenEXR.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace vela::picture::detail {

/// How the numbers of an image are stored. Integers stand for 0 to 1.
enum class SampleType { uint8, uint16, half, float32 };

[[nodiscard]] constexpr std::size_t bytesOf(SampleType type) noexcept {
  return type == SampleType::uint8 ? 1 : type == SampleType::float32 ? 4 : 2;
}

/// What an image says of its numbers.
enum class Transfer {
  unknown,
  srgb,    ///< colours are encoded for sRGB displays
  linear,  ///< numbers are proportional to light, or no light at all
};

struct ImageInfo {
  int width = 0, height = 0;  ///< each from 1 up; kMostPixels together at the most
  int channels = 0;           ///< 1: grey, 2: grey and alpha, 3: colour, 4: colour and alpha
  SampleType type = SampleType::uint8;
  Transfer transfer = Transfer::unknown;

  [[nodiscard]] std::size_t bytesOfRow() const {
    return static_cast<std::size_t>(width) * static_cast<std::size_t>(channels) * bytesOf(type);
  }
};

/// No image of more is read: a small file may claim any size.
inline constexpr std::size_t kMostPixels = std::size_t{1} << 30;

/// Reads an image, each row once, from the top.
///
/// What kind it is its first bytes say, not its name. Colours of the four inks of print come as
/// red, green and blue. Grey, palette and packed images of PNG come with 8 bits or 16 a number;
/// OpenEXR gives the channels R, G, B and A, else Y and A, else its first one. Threads: a reader
/// belongs to one thread. Nothing throws but for lack of memory.
class ImageReader {
 public:
  /// \param bytes     must outlive the reader
  /// \param mostBytes how much memory reading may take beside rows; images that can only be
  ///                  decoded whole are refused where they would take more
  /// \param error     why nothing came back; else untouched
  [[nodiscard]] static std::unique_ptr<ImageReader> open(std::string_view bytes,
                                                         std::size_t mostBytes, std::string* error);
  virtual ~ImageReader() = default;
  ImageReader(const ImageReader&) = delete;
  ImageReader& operator=(const ImageReader&) = delete;

  [[nodiscard]] const ImageInfo& info() const noexcept { return info_; }
  /// Reads the next row, the channels of a pixel side by side, in the machine's byte order.
  /// \param row   has room for info().bytesOfRow() bytes
  /// \param error why it failed; else untouched
  /// \return false when the image is damaged there, or all rows have been read
  virtual bool readRow(void* row, std::string* error) = 0;

 protected:
  ImageReader() = default;
  ImageInfo info_;
};

// One for each kind. Null, with the reason, when the image is damaged or too large.
[[nodiscard]] std::unique_ptr<ImageReader> openJpeg(std::string_view bytes, std::size_t mostBytes,
                                                    std::string* error);
[[nodiscard]] std::unique_ptr<ImageReader> openPng(std::string_view bytes, std::size_t mostBytes,
                                                   std::string* error);
[[nodiscard]] std::unique_ptr<ImageReader> openExr(std::string_view bytes, std::size_t mostBytes,
                                                   std::string* error);

/// \return false, with the reason, for sizes that no image may have
[[nodiscard]] bool checkImageSize(std::int64_t width, std::int64_t height, std::string* error);

}  // namespace vela::picture::detail
