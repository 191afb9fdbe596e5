/// \file
/// Images as JPEG files.
#pragma once

#include <string>
#include <vector>

#include "vela/picture/Api.h"
#include "vela/picture/DisplayImage.h"

namespace vela::picture {

/// Writes an image with quality 95 and its colours in full resolution.
///
/// \param error why it failed, without the file's name; else untouched
/// \return false when the file cannot be written; when the image has no pixels, more than 65535 in
///         a row or column, alpha, or not as many codes as it should
///
/// \code
///   vela::picture::DisplayImage white;
///   white.width = white.height = 2;
///   white.codes.assign(2 * 2 * 3, 255);
///   std::vector<unsigned char> bytes;
///   assert(vela::picture::writeJpeg(white, bytes));
///   assert(bytes.size() > 4 && bytes[0] == 0xff && bytes[1] == 0xd8);
/// \endcode
[[nodiscard]] VELA_PICTURE_API bool writeJpeg(const DisplayImage& image, const std::string& file,
                                              std::string* error = nullptr);

/// The same bytes in memory. \param bytes refilled; empty on failure
[[nodiscard]] VELA_PICTURE_API bool writeJpeg(const DisplayImage& image,
                                              std::vector<unsigned char>& bytes,
                                              std::string* error = nullptr);

}  // namespace vela::picture
