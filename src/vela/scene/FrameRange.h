/// \file
/// Lists of frames, and file names with a place for the frame.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "vela/Api.h"

namespace vela::scene {

/// Reads `1-10x2,24`: numbers and ranges apart by commas, both ends of a range included, with `x`
/// and a step above 0 where that is not 1. A range whose first is above its last goes down. Frames
/// may be negative and have fractions. Each comes once, where it is named first.
///
/// \param error why there is no list, one line; else untouched
/// \return nothing for any other text, and for more than a million frames
///
/// \code
///   const auto frames = vela::scene::parseFrames("1-10x4,24");
///   assert(frames && *frames == (std::vector<double>{1, 5, 9, 24}));
///   assert(!vela::scene::parseFrames("1-"));
/// \endcode
[[nodiscard]] VELA_API std::optional<std::vector<double>> parseFrames(const std::string& text,
                                                                      std::string* error = nullptr);

/// Whether a file name has a place for the frame: `####`, one # a digit, or `%d`, `%4d`, `%04d`.
[[nodiscard]] VELA_API bool hasFramePlace(const std::string& name);

/// The name with the frame in its places: at least as many digits as asked for, filled with zeros
/// (`%4d`: with blanks), a minus sign counted. A fraction follows behind a point.
///
/// \code
///   assert(vela::scene::nameOfFrame("a.####.exr", 7) == "a.0007.exr");
///   assert(vela::scene::nameOfFrame("a.%02d.exr", 1.5) == "a.01.5.exr");
/// \endcode
[[nodiscard]] VELA_API std::string nameOfFrame(const std::string& name, double frame);

}  // namespace vela::scene
