/// \file
/// Mathematical constants, each rounded once to the type that is asked for.
#pragma once

namespace tarn {

/// Half a turn in radians.
template <class T>
inline constexpr T kPi = static_cast<T>(3.141592653589793238462643383279502884L);

/// One degree in radians: multiply an angle in degrees by it.
template <class T>
inline constexpr T kRadiansPerDegree = static_cast<T>(0.017453292519943295769236907684886127L);
/// One radian in degrees: multiply an angle in radians by it.
template <class T>
inline constexpr T kDegreesPerRadian = static_cast<T>(57.295779513082320876798154814105170L);

}  // namespace tarn
