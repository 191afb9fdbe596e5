/// \file
/// The formats of picture files, by the names of files.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "vela/picture/Api.h"

namespace vela::picture {

/// What pictures are written as.
enum class FileFormat {
  exr,  ///< all layers, as they are
  png,  ///< one layer, to be looked at
  jpg,  ///< the same, smaller and not exact
};

/// The format that a file's extension stands for, in letters of either case: `.exr`, `.png`, `.jpg`
/// or `.jpeg`. Nothing for others, and for a name without one.
///
/// \code
///   using vela::picture::FileFormat;
///   assert(vela::picture::fileFormat("shots/a.EXR") == FileFormat::exr);
///   assert(!vela::picture::fileFormat("a.tif") && !vela::picture::fileFormat("shots.exr/a"));
/// \endcode
[[nodiscard]] VELA_PICTURE_API std::optional<FileFormat> fileFormat(std::string_view name);

/// What stands behind the last dot of a file's name, with that dot; empty when there is none, or
/// when the dot is the name's first letter.
[[nodiscard]] VELA_PICTURE_API std::string_view fileExtension(std::string_view name);

}  // namespace vela::picture
