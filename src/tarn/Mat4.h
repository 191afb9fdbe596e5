/// \file
/// 4x4 matrices for column vectors.
///
/// Holds for the whole file: 16 values; element (row r, column c) has storage index c * 4 + r, so
/// the translation sits at 12, 13, 14 and the storage is OpenUSD's (which multiplies row vectors:
/// its products are the other way round).
/// `(A * B) p == A (B p)`; local-to-world is `parentToWorld * local`. `translate`, `scale` and
/// `rotate*` multiply on the right: the last call acts on a point first. Sums run over the inner
/// index from 0 to 3.
#pragma once

#include <cmath>
#include <cstddef>
#include <ostream>
#include <type_traits>

#include "tarn/Fwd.h"
#include "tarn/Vec.h"

namespace tarn {

/// A transform of points, directions or homogeneous positions.
///
/// \code
///   tarn::Mat4d worldFromObject;
///   worldFromObject.translate(10, 0, 0).scale(2, 2, 2);  // scales first, then moves
///   assert(worldFromObject.transformPoint({1, 0, 0}) == tarn::Vec3d(12, 0, 0));
///   assert(worldFromObject.transformVector({1, 0, 0}) == tarn::Vec3d(2, 0, 0));
///   const tarn::Mat4d objectFromWorld = worldFromObject.inverse();
///   assert(objectFromWorld * worldFromObject == tarn::Mat4d::getIdentity());
///   assert(worldFromObject[12] == 10);
/// \endcode
template <class T>
class Mat4 {
 public:
  /// The identity.
  constexpr Mat4() : Mat4(T(1)) {}
  /// `diagonal` at (0,0), (1,1), (2,2) and (3,3), zero elsewhere.
  constexpr explicit Mat4(T diagonal) {
    for (std::size_t i = 0; i < 16; i += 5) m_[i] = diagonal;
  }
  /// Copies 16 values in storage order.
  constexpr explicit Mat4(const T (&storage)[16]) {
    for (std::size_t i = 0; i < 16; ++i) m_[i] = storage[i];
  }
  /// From the other element type: each value is converted as static_cast does.
  template <class U, class = std::enable_if_t<!std::is_same_v<T, U>>>
  constexpr explicit Mat4(const Mat4<U>& other) {
    for (std::size_t i = 0; i < 16; ++i) m_[i] = static_cast<T>(other[i]);
  }

  /// 1 on the diagonal, 0 elsewhere: what the default constructor makes.
  [[nodiscard]] static constexpr Mat4 getIdentity() { return Mat4(); }
  /// The rotation by a quaternion: x, y, z its imaginary part and w its real one. Of any length;
  /// one of length zero turns nothing.
  [[nodiscard]] static Mat4 fromQuaternion(const Vec4<T>& quaternion) {
    Mat4 out;
    const T size = quaternion.length();
    if (!(size > T(0))) return out;
    const Vec4<T> q = quaternion / size;
    out.m_[0] = T(1) - T(2) * (q.y * q.y + q.z * q.z);
    out.m_[1] = T(2) * (q.x * q.y + q.z * q.w);
    out.m_[2] = T(2) * (q.x * q.z - q.y * q.w);
    out.m_[4] = T(2) * (q.x * q.y - q.z * q.w);
    out.m_[5] = T(1) - T(2) * (q.x * q.x + q.z * q.z);
    out.m_[6] = T(2) * (q.y * q.z + q.x * q.w);
    out.m_[8] = T(2) * (q.x * q.z + q.y * q.w);
    out.m_[9] = T(2) * (q.y * q.z - q.x * q.w);
    out.m_[10] = T(1) - T(2) * (q.x * q.x + q.y * q.y);
    return out;
  }

  /// By storage index 0 to 15, unchecked. @{
  constexpr T& operator[](std::size_t i) { return m_[i]; }
  constexpr const T& operator[](std::size_t i) const { return m_[i]; }
  /// @}
  /// The 16 values in storage order. @{
  constexpr T* data() { return m_; }
  constexpr const T* data() const { return m_; }
  /// @}

  /// By value: 0 equals -0, and a NaN equals nothing. @{
  friend constexpr bool operator==(const Mat4& a, const Mat4& b) {
    for (std::size_t i = 0; i < 16; ++i)
      if (!(a.m_[i] == b.m_[i])) return false;
    return true;
  }
  friend constexpr bool operator!=(const Mat4& a, const Mat4& b) { return !(a == b); }
  /// @}

  /// The transform that applies the right factor first. Sums run over the inner index from 0 to 3.
  /// @{
  friend constexpr Mat4 operator*(const Mat4& a, const Mat4& b) {
    Mat4 out(T(0));
    for (std::size_t c = 0; c < 16; c += 4)
      for (std::size_t r = 0; r < 4; ++r)
        out.m_[c + r] = a.m_[r] * b.m_[c] + a.m_[4 + r] * b.m_[c + 1] + a.m_[8 + r] * b.m_[c + 2] +
                        a.m_[12 + r] * b.m_[c + 3];
    return out;
  }
  constexpr Mat4& operator*=(const Mat4& b) { return *this = *this * b; }
  /// @}

  /// Rows and columns exchanged.
  [[nodiscard]] constexpr Mat4 transposed() const {
    Mat4 out(T(0));
    for (std::size_t c = 0; c < 4; ++c)
      for (std::size_t r = 0; r < 4; ++r) out.m_[c * 4 + r] = m_[r * 4 + c];
    return out;
  }

  /// The inverse; the zero matrix when this one is singular or its determinant is not finite, so
  /// that nothing is ever hit through a flattened transform. By cofactors in double, narrowed once:
  /// a float determinant would underflow for objects of 1e-13 units and take them for singular.
  [[nodiscard]] constexpr Mat4 inverse() const {
    double a[16] = {};
    for (std::size_t i = 0; i < 16; ++i) a[i] = static_cast<double>(m_[i]);

    // 2x2 minors of the first two and of the last two columns of the storage.
    const double s0 = a[0] * a[5] - a[4] * a[1], s1 = a[0] * a[6] - a[4] * a[2],
                 s2 = a[0] * a[7] - a[4] * a[3];
    const double s3 = a[1] * a[6] - a[5] * a[2], s4 = a[1] * a[7] - a[5] * a[3],
                 s5 = a[2] * a[7] - a[6] * a[3];
    const double c0 = a[8] * a[13] - a[12] * a[9], c1 = a[8] * a[14] - a[12] * a[10],
                 c2 = a[8] * a[15] - a[12] * a[11];
    const double c3 = a[9] * a[14] - a[13] * a[10], c4 = a[9] * a[15] - a[13] * a[11];
    const double c5 = a[10] * a[15] - a[14] * a[11];

    const double det = s0 * c5 - s1 * c4 + s2 * c3 + s3 * c2 - s4 * c1 + s5 * c0;
    // det - det is 0 for a finite determinant and NaN for any other; unlike std::isfinite it is
    // constexpr.
    if (det == 0.0 || !(det - det == 0.0)) return Mat4(T(0));

    const double adjugate[16] = {
        a[5] * c5 - a[6] * c4 + a[7] * c3,     -a[1] * c5 + a[2] * c4 - a[3] * c3,
        a[13] * s5 - a[14] * s4 + a[15] * s3,  -a[9] * s5 + a[10] * s4 - a[11] * s3,
        -a[4] * c5 + a[6] * c2 - a[7] * c1,    a[0] * c5 - a[2] * c2 + a[3] * c1,
        -a[12] * s5 + a[14] * s2 - a[15] * s1, a[8] * s5 - a[10] * s2 + a[11] * s1,
        a[4] * c4 - a[5] * c2 + a[7] * c0,     -a[0] * c4 + a[1] * c2 - a[3] * c0,
        a[12] * s4 - a[13] * s2 + a[15] * s0,  -a[8] * s4 + a[9] * s2 - a[11] * s0,
        -a[4] * c3 + a[5] * c1 - a[6] * c0,    a[0] * c3 - a[1] * c1 + a[2] * c0,
        -a[12] * s3 + a[13] * s1 - a[14] * s0, a[8] * s3 - a[9] * s1 + a[10] * s0};
    Mat4 out(T(0));
    for (std::size_t i = 0; i < 16; ++i) out.m_[i] = static_cast<T>(adjugate[i] / det);
    return out;
  }

  /// Multiplies by a translation on the right: it acts before what the matrix did so far. @{
  constexpr Mat4& translate(T x, T y, T z) {
    Mat4 t;
    t.m_[12] = x;
    t.m_[13] = y;
    t.m_[14] = z;
    return *this *= t;
  }
  constexpr Mat4& translate(const Vec3<T>& v) { return translate(v.x, v.y, v.z); }
  /// @}
  /// Multiplies by a scale along the axes on the right: it acts before what the matrix did so far.
  /// @{
  constexpr Mat4& scale(T x, T y, T z) {
    Mat4 s;
    s.m_[0] = x;
    s.m_[5] = y;
    s.m_[10] = z;
    return *this *= s;
  }
  constexpr Mat4& scale(const Vec3<T>& v) { return scale(v.x, v.y, v.z); }
  /// @}
  /// Right-handed rotations about one axis, in radians. @{
  Mat4& rotateX(T radians) { return rotate(5, 6, radians); }
  Mat4& rotateY(T radians) { return rotate(10, 8, radians); }
  Mat4& rotateZ(T radians) { return rotate(0, 1, radians); }
  /// @}

  /// Replaces this matrix by a projection from camera space (looking down -z) to NDC.
  ///
  /// \param m           focal length over film width: NDC x is 2 m x / -z (perspective) or 2 m x, y
  ///                    likewise
  /// \param nearPlane   distance that gets NDC z = -1
  /// \param farPlane    distance that gets NDC z = 1; infinity takes the limit
  constexpr Mat4& setToProjection(T m, T nearPlane, T farPlane, bool perspective) {
    *this = Mat4(T(0));
    m_[0] = T(2) * m;
    m_[5] = T(2) * m;
    // Infinity minus itself is NaN. Unlike std::isinf this is constexpr.
    const bool farIsInfinite = !(farPlane - farPlane == T(0));
    if (perspective) {
      m_[10] = farIsInfinite ? T(-1) : -(farPlane + nearPlane) / (farPlane - nearPlane);
      m_[14] = farIsInfinite ? T(-2) * nearPlane
                             : -(T(2) * farPlane * nearPlane) / (farPlane - nearPlane);
      m_[11] = T(-1);
    } else {
      m_[10] = farIsInfinite ? T(0) : T(-2) / (farPlane - nearPlane);
      m_[14] = farIsInfinite ? T(-1) : -(farPlane + nearPlane) / (farPlane - nearPlane);
      m_[15] = T(1);
    }
    return *this;
  }

  /// x m0 + y m4 + z m8 + m12 and so on; no division by w.
  [[nodiscard]] constexpr Vec3<T> transformPoint(const Vec3<T>& p) const {
    return Vec3<T>(p.x * m_[0] + p.y * m_[4] + p.z * m_[8] + m_[12],
                   p.x * m_[1] + p.y * m_[5] + p.z * m_[9] + m_[13],
                   p.x * m_[2] + p.y * m_[6] + p.z * m_[10] + m_[14]);
  }
  /// As transformPoint, without the translation.
  [[nodiscard]] constexpr Vec3<T> transformVector(const Vec3<T>& v) const {
    return Vec3<T>(v.x * m_[0] + v.y * m_[4] + v.z * m_[8], v.x * m_[1] + v.y * m_[5] + v.z * m_[9],
                   v.x * m_[2] + v.y * m_[6] + v.z * m_[10]);
  }
  /// The whole product, with w: a projection's position still has to be divided by it.
  [[nodiscard]] constexpr Vec4<T> transform(const Vec4<T>& v) const {
    return Vec4<T>(v.x * m_[0] + v.y * m_[4] + v.z * m_[8] + v.w * m_[12],
                   v.x * m_[1] + v.y * m_[5] + v.z * m_[9] + v.w * m_[13],
                   v.x * m_[2] + v.y * m_[6] + v.z * m_[10] + v.w * m_[14],
                   v.x * m_[3] + v.y * m_[7] + v.z * m_[11] + v.w * m_[15]);
  }

 private:
  // `cosAt` is the storage index of the axis' first cosine, `sinAt` of its positive sine; the
  // others follow by symmetry.
  Mat4& rotate(std::size_t cosAt, std::size_t sinAt, T radians) {
    const T c = std::cos(radians), s = std::sin(radians);
    const std::size_t column = cosAt / 4, row = sinAt % 4;
    Mat4 r;
    r.m_[column * 4 + column] = c;
    r.m_[row * 4 + row] = c;
    r.m_[column * 4 + row] = s;
    r.m_[row * 4 + column] = -s;
    return *this *= r;
  }

  T m_[16] = {};
};

/// Prints as [[m0 m4 m8 m12][m1 m5 m9 m13][..][..]] with the stream's own number format.
template <class T>
std::ostream& operator<<(std::ostream& os, const Mat4<T>& m) {
  os << "[[";
  for (std::size_t r = 0; r < 4; ++r) {
    if (r > 0) os << "][";
    os << m[r] << ' ' << m[r + 4] << ' ' << m[r + 8] << ' ' << m[r + 12];
  }
  return os << "]]";
}

static_assert(std::is_trivially_copyable_v<Mat4<double>> && sizeof(Mat4<double>) == 128);

}  // namespace tarn
