/// \file
/// Names as C strings, where null counts as the empty text.
#pragma once

#include <string>

namespace vela::detail {

inline bool isEmpty(const char* text) { return text == nullptr || *text == '\0'; }
inline std::string textOf(const char* text) { return isEmpty(text) ? std::string() : text; }

}  // namespace vela::detail
