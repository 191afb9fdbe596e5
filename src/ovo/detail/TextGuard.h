/// \file
/// What keeps scene texts away from a parser whose stack they would overflow, or whose writer they
/// would cut off.
#pragma once

#include <cstddef>
#include <string_view>

namespace ovo::detail {

/// How deep brackets may nest in a scene text: the parser takes some two kilobytes of stack a
/// level, so this keeps it within one megabyte, which every thread has. Scenes nest a few dozen
/// deep.
inline constexpr std::size_t kMaxTextNesting = 500;

/// How deep prims may nest, whatever kind of file they come from, and how many names a path in a
/// scene text may have. Composition takes about half a kilobyte of stack a name.
inline constexpr std::size_t kMaxPrimNesting = 1000;

/// Why no parser should see a scene text, or null.
///
/// Brackets count outside comments. They also count within each string, since strings may hold
/// expressions, and within each file name that is an expression.
///
/// A scene file with a zero byte is refused: OpenUSD reads it, but ends what it writes there, so
/// that a file name with one comes back as a file that no longer opens. Other texts than scene
/// files, which begin with #usda, may have them; for those the parser has its own message.
[[nodiscard]] const char* whyTextIsUnfit(std::string_view text) noexcept;

}  // namespace ovo::detail
