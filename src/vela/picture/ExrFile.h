/// \file
/// Pictures as OpenEXR files.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "vela/picture/Api.h"
#include "vela/picture/Picture.h"

namespace vela::picture {

/// Writes all layers and attributes of a picture, ZIP-compressed, with both windows at 0, 0. With
/// the layer `prim` the manifest goes along, as the text attribute `prim/manifest`: one JSON object
/// from name to value, 1 for the first.
///
/// \param file    is replaced as it is written: who wants it whole or not at all writes under
///                another name and renames
/// \param threads compress rows at the same time; the bytes do not depend on their number
/// \param error   why it failed, without the file's name; else untouched
/// \return false when the file cannot be written, or when no file can hold the picture: one without
///         pixels or layers, with a layer whose values are too few, with the same channel or
///         attribute twice
///
/// \code
///   vela::picture::Picture picture;
///   picture.width = picture.height = 1;
///   picture.layers.push_back({"depth", {"Z"}, vela::picture::ValueType::float32, {2.5f}, {}});
///   picture.attributes.push_back({"comment", std::string("one pixel")});
///   std::vector<unsigned char> bytes;
///   std::string error;
///   assert(vela::picture::writeExr(picture, bytes, 1, &error));
///   assert(bytes.size() > 4 && bytes[0] == 0x76);
/// \endcode
[[nodiscard]] VELA_PICTURE_API bool writeExr(const Picture& picture, const std::string& file,
                                             int threads = 1, std::string* error = nullptr);

/// The same bytes in memory. \param bytes refilled; empty on failure
[[nodiscard]] VELA_PICTURE_API bool writeExr(const Picture& picture,
                                             std::vector<unsigned char>& bytes, int threads = 1,
                                             std::string* error = nullptr);

/// The text of the attribute `prim/manifest`, on one line. What is no UTF-8 in a name is replaced.
[[nodiscard]] VELA_PICTURE_API std::string manifestText(const std::vector<std::string>& manifest);

}  // namespace vela::picture
