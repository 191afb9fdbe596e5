/// \file
/// Vectors of two, three and four components over float, double and int.
///
/// Holds for the whole file: plain values, trivially copyable, zero by default, no virtual calls.
/// Sums and `dot` run from the left (x first), `length` is sqrt(dot) without rescaling, division is
/// by component (never by a reciprocal): these roundings are part of the contract. Nothing throws;
/// indices are not checked.
#pragma once

#include <cmath>
#include <cstddef>
#include <type_traits>

#include "tarn/Fwd.h"

namespace tarn {

/// Two components.
///
/// \code
///   const tarn::Vec2f uv = tarn::Vec2f(3, 4) / 5.0f;
///   assert(uv == tarn::Vec2f(0.6f, 0.8f) && uv[1] == uv.y);
/// \endcode
template <class T>
struct Vec2 {
  /// A component, 0 unless given. @{
  T x{}, y{};
  /// @}

  constexpr Vec2() = default;
  /// Both components are \p s.
  constexpr explicit Vec2(T s) : x(s), y(s) {}
  /// The components in their order.
  constexpr Vec2(T x_, T y_) : x(x_), y(y_) {}
  /// From another element type: each component is converted as static_cast does.
  template <class U>
  constexpr explicit Vec2(const Vec2<U>& v) : x(static_cast<T>(v.x)), y(static_cast<T>(v.y)) {}

  /// The component of index 0 or 1. @{
  constexpr T& operator[](std::size_t i) { return i == 0 ? x : y; }
  constexpr const T& operator[](std::size_t i) const { return i == 0 ? x : y; }
  /// @}

  /// x x + y y, in T: large components overflow.
  [[nodiscard]] constexpr T lengthSquared() const { return x * x + y * y; }
  /// The square root of lengthSquared(), converted to T.
  [[nodiscard]] T length() const { return static_cast<T>(std::sqrt(lengthSquared())); }
  /// This vector divided by its length; the zero vector comes back as it is.
  [[nodiscard]] Vec2 normalized() const {
    const T n = length();
    return n == T(0) ? *this : Vec2(x / n, y / n);
  }
  /// In place; returns the length it had.
  T normalize() {
    const T n = length();
    if (n != T(0)) *this = Vec2(x / n, y / n);
    return n;
  }
};

/// Three components: positions, directions, normals, colours.
///
/// \code
///   const tarn::Vec3d x(1, 0, 0), y(0, 1, 0);
///   assert(cross(x, y) == tarn::Vec3d(0, 0, 1) && dot(x, y) == 0);
///   tarn::Vec3d v = x + 2 * y;
///   assert(v.lengthSquared() == 5 && v.normalize() == std::sqrt(5.0));  // v has length 1 now
///   const tarn::Vec3f narrowed(v);  // between element types by name only
///   assert(std::abs(narrowed.length() - 1.0f) < 1e-6f && isFinite(narrowed));
/// \endcode
template <class T>
struct Vec3 {
  /// A component, 0 unless given. @{
  T x{}, y{}, z{};
  /// @}

  constexpr Vec3() = default;
  /// All three components are \p s.
  constexpr explicit Vec3(T s) : x(s), y(s), z(s) {}
  /// The components in their order.
  constexpr Vec3(T x_, T y_, T z_) : x(x_), y(y_), z(z_) {}
  /// From another element type: each component is converted as static_cast does.
  template <class U>
  constexpr explicit Vec3(const Vec3<U>& v)
      : x(static_cast<T>(v.x)), y(static_cast<T>(v.y)), z(static_cast<T>(v.z)) {}

  /// The component of index 0 to 2. @{
  constexpr T& operator[](std::size_t i) { return i == 0 ? x : i == 1 ? y : z; }
  constexpr const T& operator[](std::size_t i) const { return i == 0 ? x : i == 1 ? y : z; }
  /// @}

  /// x x + y y + z z, in T: large components overflow.
  [[nodiscard]] constexpr T lengthSquared() const { return x * x + y * y + z * z; }
  /// The square root of lengthSquared(), converted to T.
  [[nodiscard]] T length() const { return static_cast<T>(std::sqrt(lengthSquared())); }
  /// This vector divided by its length; the zero vector comes back as it is.
  [[nodiscard]] Vec3 normalized() const {
    const T n = length();
    return n == T(0) ? *this : Vec3(x / n, y / n, z / n);
  }
  /// In place; returns the length it had.
  T normalize() {
    const T n = length();
    if (n != T(0)) *this = Vec3(x / n, y / n, z / n);
    return n;
  }

  /// Takes this vector, in place, from a frame whose z is (0, 0, 1) to one whose z is `normal`.
  ///
  /// \param normal         need not have unit length; a zero normal leaves the vector as it is
  /// \param keepHemisphere true: a plain rotation, nothing is flipped, so (0, 0, -1) becomes
  ///                       -normal. False: z counts by its magnitude, so the result lies on the
  ///                       normal's side
  ///
  /// The frame's x and y vary continuously with the normal but at (0, 0, -1), where no frame
  /// without a seam exists. Source: Frisvad, Building an Orthonormal Basis from a 3D Unit Vector
  /// Without Normalization, JGT 16(3), 2012; 1 + z is taken from x and y where z is negative, since
  /// the sum would cancel there.
  void orientAroundNormal(const Vec3& normal, bool keepHemisphere) {
    const Vec3 n = normal.normalized();
    if (n.x == T(0) && n.y == T(0) && n.z == T(0)) return;
    const T onePlusZ = n.z < T(0) ? (n.x * n.x + n.y * n.y) / (T(1) - n.z) : T(1) + n.z;
    Vec3 s(T(0), T(-1), T(0)), t(T(-1), T(0), T(0));
    if (onePlusZ > T(0)) {
      const T b = -n.x * n.y / onePlusZ;
      s = Vec3(T(1) - n.x * n.x / onePlusZ, b, -n.x);
      t = Vec3(b, T(1) - n.y * n.y / onePlusZ, -n.y);
    }
    const T side = (!keepHemisphere && z < T(0)) ? -z : z;
    *this = Vec3(s.x * x + t.x * y + n.x * side, s.y * x + t.y * y + n.y * side,
                 s.z * x + t.z * y + n.z * side);
  }
};

/// Four components: homogeneous positions, quaternions (w real), colours with alpha.
///
/// \code
///   const tarn::Vec4d clip(2, 4, 6, 2);
///   assert(clip.wNormalized() == tarn::Vec4d(1, 2, 3, 1));
/// \endcode
template <class T>
struct Vec4 {
  /// A component, 0 unless given. That of a real part or of alpha is w. @{
  T x{}, y{}, z{}, w{};
  /// @}

  constexpr Vec4() = default;
  /// All four components are \p s.
  constexpr explicit Vec4(T s) : x(s), y(s), z(s), w(s) {}
  /// The components in their order.
  constexpr Vec4(T x_, T y_, T z_, T w_) : x(x_), y(y_), z(z_), w(w_) {}
  /// From another element type: each component is converted as static_cast does.
  template <class U>
  constexpr explicit Vec4(const Vec4<U>& v)
      : x(static_cast<T>(v.x)),
        y(static_cast<T>(v.y)),
        z(static_cast<T>(v.z)),
        w(static_cast<T>(v.w)) {}

  /// The component of index 0 to 3. @{
  constexpr T& operator[](std::size_t i) { return i == 0 ? x : i == 1 ? y : i == 2 ? z : w; }
  constexpr const T& operator[](std::size_t i) const {
    return i == 0 ? x : i == 1 ? y : i == 2 ? z : w;
  }
  /// @}

  /// x x + y y + z z + w w, in T: large components overflow.
  [[nodiscard]] constexpr T lengthSquared() const { return x * x + y * y + z * z + w * w; }
  /// The square root of lengthSquared(), converted to T.
  [[nodiscard]] T length() const { return static_cast<T>(std::sqrt(lengthSquared())); }
  /// This vector divided by its length; the zero vector comes back as it is.
  [[nodiscard]] Vec4 normalized() const {
    const T n = length();
    return n == T(0) ? *this : Vec4(x / n, y / n, z / n, w / n);
  }
  /// In place; returns the length it had.
  T normalize() {
    const T n = length();
    if (n != T(0)) *this = Vec4(x / n, y / n, z / n, w / n);
    return n;
  }
  /// All four components divided by w; w = 0 gives infinities and NaN, as division does.
  [[nodiscard]] constexpr Vec4 wNormalized() const { return Vec4(x / w, y / w, z / w, w / w); }
};

static_assert(std::is_trivially_copyable_v<Vec3<float>> && sizeof(Vec3<float>) == 12);
static_assert(std::is_trivially_copyable_v<Vec4<double>> && sizeof(Vec4<double>) == 32);

}  // namespace tarn

#include "tarn/VecOperators.h"  // + - * / == dot cross isFinite and text
