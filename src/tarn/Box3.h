/// \file
/// Axis-aligned boxes.
///
/// Holds for the whole file: a box is closed (its faces belong to it) and empty when its minimum
/// passes its maximum on any axis. An empty box stays empty whatever is done to it but being
/// extended.
#pragma once

#include <cstddef>
#include <limits>
#include <ostream>
#include <type_traits>
#include <utility>

#include "tarn/Fwd.h"
#include "tarn/Mat4.h"
#include "tarn/Vec.h"

namespace tarn {

/// Two opposite corners.
///
/// \code
///   tarn::Box3f box;
///   assert(box.isEmpty());
///   for (const tarn::Vec3f& p : {tarn::Vec3f(1, 0, 0), tarn::Vec3f(-1, 4, 2)}) box.extendBy(p);
///   assert(box.center() == tarn::Vec3f(0, 2, 1) && box.majorAxis() == 1);
///   assert(box.intersects({1, 4, 2}) && !box.intersects({1.5f, 4, 2}));
/// \endcode
template <class T>
struct Box3 {
  /// Empty by default: the largest finite minimum and the lowest finite maximum, so that extending
  /// needs no special case.
  Vec3<T> min{std::numeric_limits<T>::max()};
  /// The corner of the greatest coordinates.
  Vec3<T> max{std::numeric_limits<T>::lowest()};

  constexpr Box3() = default;
  /// From two corners, which are taken as they are: a minimum past the maximum makes an empty box.
  constexpr Box3(const Vec3<T>& min_, const Vec3<T>& max_) : min(min_), max(max_) {}
  /// An empty box of any type becomes the default empty box: its limits do not fit a narrower type.
  template <class U, class = std::enable_if_t<!std::is_same_v<T, U>>>
  constexpr explicit Box3(const Box3<U>& other) {
    if (other.isEmpty()) return;
    min = Vec3<T>(other.min);
    max = Vec3<T>(other.max);
  }

  /// By corners: two empty boxes with different corners are not equal, nor are boxes with a NaN. @{
  friend constexpr bool operator==(const Box3& a, const Box3& b) {
    return a.min == b.min && a.max == b.max;
  }
  friend constexpr bool operator!=(const Box3& a, const Box3& b) { return !(a == b); }
  /// @}

  /// True when the minimum passes the maximum on any axis. A box of one point is not empty.
  [[nodiscard]] constexpr bool isEmpty() const {
    return min.x > max.x || min.y > max.y || min.z > max.z;
  }

  /// NaN components are passed over.
  constexpr void extendBy(const Vec3<T>& p) {
    for (std::size_t i = 0; i < 3; ++i) {
      if (p[i] < min[i]) min[i] = p[i];
      if (p[i] > max[i]) max[i] = p[i];
    }
  }
  /// An empty box adds nothing.
  constexpr void extendBy(const Box3& b) {
    if (b.isEmpty()) return;
    extendBy(b.min);
    extendBy(b.max);
  }
  /// Moves every face outward by `v`, in T.
  constexpr void pad(const Vec3<T>& v) {
    if (isEmpty()) return;
    min = min - v;
    max = max + v;
  }

  /// (min + max) * 0.5 in T; zero when empty.
  [[nodiscard]] constexpr Vec3<T> center() const {
    return isEmpty() ? Vec3<T>() : (min + max) * T(0.5);
  }
  /// max - min; zero when empty.
  [[nodiscard]] constexpr Vec3<T> size() const { return isEmpty() ? Vec3<T>() : max - min; }
  /// 0, 1 or 2: the axis of the largest size; the first on ties.
  [[nodiscard]] constexpr int majorAxis() const {
    const Vec3<T> s = size();
    int axis = 0;
    if (s.y > s.x) axis = 1;
    if (s.z > s[static_cast<std::size_t>(axis)]) axis = 2;
    return axis;
  }
  /// The low and the high box on either side of the plane `axis` = `at`; the plane belongs to both.
  [[nodiscard]] constexpr std::pair<Box3, Box3> split(int axis, T at) const {
    std::pair<Box3, Box3> halves(*this, *this);
    halves.first.max[static_cast<std::size_t>(axis)] = at;
    halves.second.min[static_cast<std::size_t>(axis)] = at;
    return halves;
  }
  /// True for points inside or on the box.
  [[nodiscard]] constexpr bool intersects(const Vec3<T>& p) const {
    return p.x >= min.x && p.x <= max.x && p.y >= min.y && p.y <= max.y && p.z >= min.z &&
           p.z <= max.z;
  }
  /// 2 (xy + yz + zx); zero when empty.
  [[nodiscard]] constexpr T surface() const {
    const Vec3<T> s = size();
    return T(2) * (s.x * s.y + s.y * s.z + s.z * s.x);
  }
  /// The box of the eight transformed corners, computed in the matrix's type and then narrowed.
  template <class U>
  [[nodiscard]] constexpr Box3 transformed(const Mat4<U>& m) const {
    if (isEmpty()) return Box3();
    Box3<U> out;
    for (unsigned corner = 0; corner < 8; ++corner)
      out.extendBy(m.transformPoint(Vec3<U>(static_cast<U>((corner & 1u) ? max.x : min.x),
                                            static_cast<U>((corner & 2u) ? max.y : min.y),
                                            static_cast<U>((corner & 4u) ? max.z : min.z))));
    if constexpr (std::is_same_v<T, U>)
      return out;
    else
      return Box3(out);
  }
};

/// Prints as [[minx miny minz] [maxx maxy maxz]].
template <class T>
std::ostream& operator<<(std::ostream& os, const Box3<T>& b) {
  return os << '[' << b.min << ' ' << b.max << ']';
}

static_assert(std::is_trivially_copyable_v<Box3<float>> && sizeof(Box3<float>) == 24);

}  // namespace tarn
