/// \file
/// Pictures as OpenEXR files.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "vela/picture/Api.h"
#include "vela/picture/Picture.h"
#include "vela/picture/Tiles.h"

namespace vela::picture {

/// OpenEXR's methods of compression, by its names. Those from `pxr24` on lose something, some of
/// them only of half floats.
enum class Compression {
  none,   ///< as the numbers are
  rle,    ///< runs of equal bytes
  zips,   ///< deflate, row by row
  zip,    ///< deflate, 16 rows at once
  piz,    ///< wavelets, 32 rows at once
  pxr24,  ///< floats cut to 24 bits
  b44,    ///< half floats in blocks of 4 x 4, at a fixed rate
  b44a,   ///< as `b44`, blocks of one value smaller
  dwaa,   ///< cosine transform, 32 rows at once
  dwab,   ///< cosine transform, 256 rows at once
};

/// The method of that name, `none` to `dwab`; nothing for others.
[[nodiscard]] VELA_PICTURE_API std::optional<Compression> findCompression(std::string_view name);
/// All names, in the order of the enumeration.
[[nodiscard]] VELA_PICTURE_API const std::vector<std::string>& compressionNames();

/// How a picture is written.
struct ExrOptions {
  Compression compression = Compression::zip;  ///< of all channels
  /// Layers of colour (`rgba`, `albedo`) as half floats, of half the size; what is beyond their
  /// range becomes its end, 65504. All other layers are too exact for that.
  bool halfColour = false;
  /// Of the picture's first pixel in the display window: not 0, 0 when the picture is a part of a
  /// larger one. @{
  int x = 0, y = 0;
  /// @}
  /// Of the display window; 0: as far as the picture reaches. @{
  int displayWidth = 0, displayHeight = 0;
  /// @}
  int threads = 1;  ///< compress rows at the same time; the bytes do not depend on their number
};

/// Why a picture with these layers cannot be written so; empty when it can. Only colour may be
/// compressed with loss: data would be wrong, and names of mattes lost.
[[nodiscard]] VELA_PICTURE_API std::string whyNotWritten(const std::vector<std::string>& layers,
                                                         const ExrOptions& options);

/// Writes all layers and attributes of a picture, in one part.
///
/// - Layers of integers are floats in the file when those are exact for all of their values, which
///   is up to 2^24: common tools take integers for shares of the largest one.
/// - With the layer `prim` go the names of what the picture shows, as OpenEXR's id manifest and as
///   the text attribute `prim/manifest`: one JSON object from name to value, in ascending order.
/// - The attributes that OpenEXR has for each file are written as those: `screenWindowCenter`,
///   `screenWindowWidth`, `pixelAspectRatio`; `framesPerSecond` becomes the rational number that is
///   meant.
///
/// \param file    is replaced as it is written: who wants it whole or not at all writes under
///                another name and renames
/// \param error   why it failed, without the file's name; else untouched
/// \return false when the file cannot be written, or when the picture is none that a file could
///         hold: without pixels or layers, with a layer whose values are too few, with the same
///         channel or attribute twice, with a compression that whyNotWritten() speaks against
///
/// \code
///   vela::picture::Picture picture;
///   picture.width = picture.height = 1;
///   picture.layers.push_back({"albedo", {"albedo.R"}, {}, {0.5f}, {}});
///   vela::picture::ExrOptions options;
///   options.compression = vela::picture::Compression::dwaa;
///   options.halfColour = true;
///   std::vector<unsigned char> bytes;
///   assert(vela::picture::writeExr(picture, bytes, options));
///
///   picture.layers.push_back({"depth", {"Z"}, {}, {2.5f}, {}});
///   assert(!vela::picture::writeExr(picture, bytes, options));
/// \endcode
[[nodiscard]] VELA_PICTURE_API bool writeExr(const Picture& picture, const std::string& file,
                                             const ExrOptions& options,
                                             std::string* error = nullptr);
/// The same bytes in memory. \param bytes refilled; empty on failure
[[nodiscard]] VELA_PICTURE_API bool writeExr(const Picture& picture,
                                             std::vector<unsigned char>& bytes,
                                             const ExrOptions& options,
                                             std::string* error = nullptr);

/// The text of the attribute of that name in a file; nothing when it is no OpenEXR file, or does
/// not have it.
/// \param error why, in one line without the file's name; else untouched
[[nodiscard]] VELA_PICTURE_API std::optional<std::string> readExrText(const std::string& file,
                                                                      const std::string& attribute,
                                                                      std::string* error = nullptr);

/// True when a file is an OpenEXR file with all of its pixels, as far as that can be seen without
/// reading all of them: the header, the table of its rows, and the first and last rows of each
/// part. A file that was cut off is not.
/// \param error why it is not, in one line without the file's name; else untouched
[[nodiscard]] VELA_PICTURE_API bool isWholeExr(const std::string& file,
                                               std::string* error = nullptr);

/// Reads the pixels of a file into a picture of the whole, where the file's data window lies in it.
/// Layers of the picture that the file has are filled; half floats become floats, whole numbers are
/// exact however the file has them. Attributes and manifests are not read.
///
/// \param picture one that could be written, with the layers, width and height of the whole: the
///                file's display window must be as large, and all channels must be in the file
/// \param part    set to what was filled
/// \param error   why it failed, in one line without the file's name; else untouched
/// \return false when it failed; some of the pixels may then be filled
///
/// \code
///   vela::picture::Picture picture;
///   picture.width = 1;
///   picture.height = 2;
///   picture.layers.push_back({"depth", {"Z"}, {}, {0.0f, 0.0f}, {}});
///   vela::picture::Tile part;
///   std::string why;
///   assert(!vela::picture::readExr("missing.exr", picture, part, &why) && !why.empty());
/// \endcode
[[nodiscard]] VELA_PICTURE_API bool readExr(const std::string& file, Picture& picture, Tile& part,
                                            std::string* error = nullptr);

/// The same for a picture whose pixel (0, 0) lies elsewhere, as one with overscan.
/// \param place x, y and the size of the display window say where, as they are written; the rest of
///              it does not count. \p part is in the coordinates of the display window
[[nodiscard]] VELA_PICTURE_API bool readExr(const std::string& file, Picture& picture,
                                            const ExrOptions& place, Tile& part,
                                            std::string* error = nullptr);

/// Writes a picture as ExrOptions has it unless told otherwise.
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

/// A manifest of all these names as `prim/manifest` has it, 1 for the first, on one line. What is
/// no UTF-8 in a name is replaced.
[[nodiscard]] VELA_PICTURE_API std::string manifestText(const std::vector<std::string>& manifest);

}  // namespace vela::picture
