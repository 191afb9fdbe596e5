/// \file
/// What Token and Path share: one immutable text with its hash.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "ovo/Token.h"

namespace ovo::detail {

struct SharedText {
  explicit SharedText(std::string_view from);
  std::string text;
  std::size_t hash;
};

/// Null for the empty text.
[[nodiscard]] SharedTextPtr makeSharedText(std::string_view text);
[[nodiscard]] const std::string& textOf(const SharedTextPtr& text) noexcept;
[[nodiscard]] std::size_t hashOf(const SharedTextPtr& text) noexcept;
[[nodiscard]] bool sameText(const SharedTextPtr& a, const SharedTextPtr& b) noexcept;

}  // namespace ovo::detail
