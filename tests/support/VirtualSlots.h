/// \file
/// Where virtual functions stand in their class's table: hosts that were built against an earlier
/// library call them by place.
#pragma once

#if defined(__GNUC__) && defined(__x86_64__)
#include <cstddef>
#include <cstring>

namespace vela_test {

/// Slot of a virtual function: under the Itanium ABI a pointer to one is its byte offset in the
/// table, plus one.
template <class Pointer>
std::size_t slotOf(Pointer pointer) {
  std::ptrdiff_t words[2];
  static_assert(sizeof pointer == sizeof words);
  std::memcpy(words, &pointer, sizeof words);
  return static_cast<std::size_t>(words[0] - 1) / sizeof(void*);
}

}  // namespace vela_test
#endif
