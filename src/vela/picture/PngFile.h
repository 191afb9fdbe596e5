/// \file
/// Pictures as PNG files: 8 bits a channel, encoded as sRGB.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tarn/Span.h"
#include "tarn/Vec.h"
#include "vela/picture/Api.h"
#include "vela/picture/DisplayImage.h"
#include "vela/picture/Picture.h"

namespace vela::picture {

/// What is seen where no surface is, linear, for pictures without transparency.
/// \param height from 0 at the bottom of the picture to 1 at its top; clamped
[[nodiscard]] VELA_PICTURE_API tarn::Vec3f backdrop(float height) noexcept;

/// The colour of a picture over the backdrop, linear: width * height * 3 values, row by row. Empty
/// when the picture does not have the layer `rgba`.
[[nodiscard]] VELA_PICTURE_API std::vector<float> overBackdrop(const Picture& picture);

/// The sRGB code of a linear value: 0 to 255, rounded; NaN gives 0.
[[nodiscard]] VELA_PICTURE_API std::uint8_t encodeSrgb(float linear) noexcept;

/// Writes an opaque picture from linear colour.
///
/// \param rgb   width * height * 3 values, row by row from the top
/// \param error why it failed, without the file's name; else untouched
/// \return false when the file cannot be written, when there is no pixel or when `rgb` does not
///         have that size
///
/// \code
///   const std::vector<float> white(2 * 2 * 3, 1.0f);
///   std::vector<unsigned char> bytes;
///   std::string error;
///   assert(vela::picture::writePng(2, 2, white, bytes, &error));
///   assert(bytes.size() > 8 && bytes[1] == 'P');
/// \endcode
[[nodiscard]] VELA_PICTURE_API bool writePng(int width, int height, tarn::Span<const float> rgb,
                                             const std::string& file, std::string* error = nullptr);

/// The same bytes in memory. \param bytes refilled; empty on failure
[[nodiscard]] VELA_PICTURE_API bool writePng(int width, int height, tarn::Span<const float> rgb,
                                             std::vector<unsigned char>& bytes,
                                             std::string* error = nullptr);

/// Writes an image, with its alpha where it has one.
/// \return false when the file cannot be written, when there is no pixel or not as many codes as
///         there should be
[[nodiscard]] VELA_PICTURE_API bool writePng(const DisplayImage& image, const std::string& file,
                                             std::string* error = nullptr);

/// The same bytes in memory. \param bytes refilled; empty on failure
[[nodiscard]] VELA_PICTURE_API bool writePng(const DisplayImage& image,
                                             std::vector<unsigned char>& bytes,
                                             std::string* error = nullptr);

}  // namespace vela::picture
