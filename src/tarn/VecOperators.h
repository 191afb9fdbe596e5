/// \file
/// What vectors do with each other: arithmetic by component, products, comparison, text.
///
/// Included by tarn/Vec.h, whose rules on rounding hold here too.
#pragma once

#include <cmath>
#include <ostream>

#include "tarn/Vec.h"

namespace tarn {

#define TARN_VEC_OPERATORS(V, EACH, ALL)                             \
  template <class T>                                                 \
  constexpr bool operator==(const V<T>& a, const V<T>& b) {          \
    return ALL(==, &&);                                              \
  }                                                                  \
  template <class T>                                                 \
  constexpr bool operator!=(const V<T>& a, const V<T>& b) {          \
    return !(a == b);                                                \
  }                                                                  \
  template <class T>                                                 \
  constexpr V<T> operator+(const V<T>& a, const V<T>& b) {           \
    return V<T>(EACH(a, +, b));                                      \
  }                                                                  \
  template <class T>                                                 \
  constexpr V<T> operator-(const V<T>& a, const V<T>& b) {           \
    return V<T>(EACH(a, -, b));                                      \
  }                                                                  \
  template <class T>                                                 \
  constexpr V<T> operator*(const V<T>& a, const V<T>& b) {           \
    return V<T>(EACH(a, *, b));                                      \
  }                                                                  \
  template <class T>                                                 \
  constexpr V<T> operator/(const V<T>& a, const V<T>& b) {           \
    return V<T>(EACH(a, /, b));                                      \
  }                                                                  \
  template <class T>                                                 \
  constexpr V<T> operator*(const V<T>& a, std::common_type_t<T> s) { \
    return a * V<T>(s);                                              \
  }                                                                  \
  template <class T>                                                 \
  constexpr V<T> operator*(std::common_type_t<T> s, const V<T>& a) { \
    return V<T>(s) * a;                                              \
  }                                                                  \
  template <class T>                                                 \
  constexpr V<T> operator/(const V<T>& a, std::common_type_t<T> s) { \
    return a / V<T>(s);                                              \
  }                                                                  \
  template <class T>                                                 \
  constexpr V<T> operator+(const V<T>& a, std::common_type_t<T> s) { \
    return a + V<T>(s);                                              \
  }                                                                  \
  template <class T>                                                 \
  constexpr V<T> operator-(const V<T>& a, std::common_type_t<T> s) { \
    return a - V<T>(s);                                              \
  }                                                                  \
  template <class T>                                                 \
  constexpr V<T> operator+(std::common_type_t<T> s, const V<T>& a) { \
    return V<T>(s) + a;                                              \
  }                                                                  \
  template <class T>                                                 \
  constexpr V<T> operator-(std::common_type_t<T> s, const V<T>& a) { \
    return V<T>(s) - a;                                              \
  }                                                                  \
  template <class T>                                                 \
  constexpr V<T> operator/(std::common_type_t<T> s, const V<T>& a) { \
    return V<T>(s) / a;                                              \
  }                                                                  \
  template <class T>                                                 \
  constexpr V<T>& operator+=(V<T>& a, const V<T>& b) {               \
    return a = a + b;                                                \
  }                                                                  \
  template <class T>                                                 \
  constexpr V<T>& operator-=(V<T>& a, const V<T>& b) {               \
    return a = a - b;                                                \
  }                                                                  \
  template <class T>                                                 \
  constexpr V<T>& operator+=(V<T>& a, std::common_type_t<T> s) {     \
    return a = a + s;                                                \
  }                                                                  \
  template <class T>                                                 \
  constexpr V<T>& operator-=(V<T>& a, std::common_type_t<T> s) {     \
    return a = a - s;                                                \
  }                                                                  \
  template <class T>                                                 \
  constexpr V<T>& operator*=(V<T>& a, const V<T>& b) {               \
    return a = a * b;                                                \
  }                                                                  \
  template <class T>                                                 \
  constexpr V<T>& operator*=(V<T>& a, std::common_type_t<T> s) {     \
    return a = a * s;                                                \
  }                                                                  \
  template <class T>                                                 \
  constexpr V<T>& operator/=(V<T>& a, const V<T>& b) {               \
    return a = a / b;                                                \
  }                                                                  \
  template <class T>                                                 \
  constexpr V<T>& operator/=(V<T>& a, std::common_type_t<T> s) {     \
    return a = a / s;                                                \
  }                                                                  \
  template <class T>                                                 \
  [[nodiscard]] T length(const V<T>& v) {                            \
    return v.length();                                               \
  }

#define TARN_EACH2(a, op, b) a.x op b.x, a.y op b.y
#define TARN_EACH3(a, op, b) a.x op b.x, a.y op b.y, a.z op b.z
#define TARN_EACH4(a, op, b) a.x op b.x, a.y op b.y, a.z op b.z, a.w op b.w
#define TARN_ALL2(op, join) a.x op b.x join a.y op b.y
#define TARN_ALL3(op, join) a.x op b.x join a.y op b.y join a.z op b.z
#define TARN_ALL4(op, join) a.x op b.x join a.y op b.y join a.z op b.z join a.w op b.w
/// By component, each result rounded once to T. A scalar stands for a vector that has it in every
/// component. Two vectors are equal when all components are, so a NaN equals nothing. length(v) is
/// v.length(). @{
TARN_VEC_OPERATORS(Vec2, TARN_EACH2, TARN_ALL2)
TARN_VEC_OPERATORS(Vec3, TARN_EACH3, TARN_ALL3)
TARN_VEC_OPERATORS(Vec4, TARN_EACH4, TARN_ALL4)
/// @}
#undef TARN_EACH2
#undef TARN_EACH3
#undef TARN_EACH4
#undef TARN_ALL2
#undef TARN_ALL3
#undef TARN_ALL4
#undef TARN_VEC_OPERATORS

/// Each component negated: of 0 that is -0 in floating point. @{
template <class T>
constexpr Vec2<T> operator-(const Vec2<T>& v) {
  return Vec2<T>(-v.x, -v.y);
}
template <class T>
constexpr Vec3<T> operator-(const Vec3<T>& v) {
  return Vec3<T>(-v.x, -v.y, -v.z);
}
template <class T>
constexpr Vec4<T> operator-(const Vec4<T>& v) {
  return Vec4<T>(-v.x, -v.y, -v.z, -v.w);
}
/// @}

/// The sum of the products of the components, from x on. @{
template <class T>
[[nodiscard]] constexpr T dot(const Vec2<T>& a, const Vec2<T>& b) {
  return a.x * b.x + a.y * b.y;
}
template <class T>
[[nodiscard]] constexpr T dot(const Vec3<T>& a, const Vec3<T>& b) {
  return a.x * b.x + a.y * b.y + a.z * b.z;
}
template <class T>
[[nodiscard]] constexpr T dot(const Vec4<T>& a, const Vec4<T>& b) {
  return a.x * b.x + a.y * b.y + a.z * b.z + a.w * b.w;
}
/// @}

/// Right-handed: cross(x, y) is z. Each component is one product minus the other.
template <class T>
[[nodiscard]] constexpr Vec3<T> cross(const Vec3<T>& a, const Vec3<T>& b) {
  return Vec3<T>(a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x);
}

/// True when no component is infinite or NaN. @{
template <class T>
[[nodiscard]] bool isFinite(const Vec2<T>& v) {
  return std::isfinite(v.x) && std::isfinite(v.y);
}
template <class T>
[[nodiscard]] bool isFinite(const Vec3<T>& v) {
  return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
}
template <class T>
[[nodiscard]] bool isFinite(const Vec4<T>& v) {
  return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z) && std::isfinite(v.w);
}
/// @}

/// Prints as [x y], [x y z], [x y z w] with the stream's own number format. @{
template <class T>
std::ostream& operator<<(std::ostream& os, const Vec2<T>& v) {
  return os << '[' << v.x << ' ' << v.y << ']';
}
template <class T>
std::ostream& operator<<(std::ostream& os, const Vec3<T>& v) {
  return os << '[' << v.x << ' ' << v.y << ' ' << v.z << ']';
}
template <class T>
std::ostream& operator<<(std::ostream& os, const Vec4<T>& v) {
  return os << '[' << v.x << ' ' << v.y << ' ' << v.z << ' ' << v.w << ']';
}
/// @}

}  // namespace tarn
