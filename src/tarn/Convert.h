/// \file
/// Float to integer with a defined answer for every input: the language leaves NaN, infinities and
/// values that do not fit undefined, and processors differ.
#pragma once

#include <cstdint>
#include <limits>

namespace tarn {

/// Truncates toward zero; NaN, infinities and values outside the type give its lowest value.
template <class F>
[[nodiscard]] constexpr std::int64_t truncToInt64(F v) {
  return v >= static_cast<F>(-9223372036854775808.0) && v < static_cast<F>(9223372036854775808.0)
             ? static_cast<std::int64_t>(v)
             : std::numeric_limits<std::int64_t>::lowest();
}

/// The low 32 bits of truncToInt64: 0 for NaN, infinities and values past 64 bits; negative values
/// wrap.
template <class F>
[[nodiscard]] constexpr std::uint32_t truncToUint32(F v) {
  return static_cast<std::uint32_t>(static_cast<std::uint64_t>(truncToInt64(v)));
}

/// Truncates toward zero; NaN, infinities and values outside the type give its lowest value.
template <class F>
[[nodiscard]] constexpr std::int32_t truncToInt32(F v) {
  const std::int64_t wide = truncToInt64(v);
  return wide >= std::numeric_limits<std::int32_t>::lowest() &&
                 wide <= std::numeric_limits<std::int32_t>::max()
             ? static_cast<std::int32_t>(wide)
             : std::numeric_limits<std::int32_t>::lowest();
}

}  // namespace tarn
