/// \file
/// The two special times. Times are doubles, in time codes.
#pragma once

#include <limits>

namespace tarn {

/// "No particular time": a quiet NaN. Compare with isDefaultTime, never with ==.
[[nodiscard]] constexpr double defaultTimeValue() {
  return std::numeric_limits<double>::quiet_NaN();
}
/// Before every sample: the lowest double.
[[nodiscard]] constexpr double earliestTimeValue() { return std::numeric_limits<double>::lowest(); }
/// True for every NaN, whatever its bits: each means "no particular time".
[[nodiscard]] constexpr bool isDefaultTime(double t) { return !(t == t); }

}  // namespace tarn
