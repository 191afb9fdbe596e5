/// \file
/// The arithmetic that decides the tracer's answers: mesh frames, rays in a placement's space and
/// the triangle test.
///
/// All of it is inline and scalar, so that the trees, the kernels and the plain loop of the tests
/// run the same operations. What the kernels add only skips triangles that crossTriangle would
/// refuse.
///
/// Scaled space: a mesh is multiplied by a power of two that brings its largest coordinate into
/// [0.5, 1). That is exact and keeps floats far from overflow and denormals. The matrix of each
/// placement carries the factor. A ray in scaled space is measured by s, the distance along the
/// axis in which its direction is largest; s grows along the ray. So no float depends on the length
/// of a direction.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>
#include <type_traits>

#include "tarn/Mat4.h"
#include "tarn/Ray.h"
#include "tarn/Vec.h"

namespace vela::tracer {

/// 2^-24 and 2^-53: the largest relative error of one operation in float and in double.
constexpr double kFloatRounding = 5.9604644775390625e-8;
constexpr double kDoubleRounding = 1.1102230246251565e-16;

/// The nearest float below, and above, a value: one step past it where it is a float itself.
inline float floatBelow(double v) {
  return std::nextafter(static_cast<float>(v), -std::numeric_limits<float>::infinity());
}
inline float floatAbove(double v) {
  return std::nextafter(static_cast<float>(v), std::numeric_limits<float>::infinity());
}

/// Where a mesh's triangles lie, in its scaled space.
struct MeshFrame {
  int exponent = 0;  ///< scaled = point * 2^-exponent
  tarn::Vec3d center;
  tarn::Vec3d halfSize;
  double radius = 0.0;  ///< of the sphere around `center` that holds everything

  /// How far the boxes in the mesh's tree are grown, so that no slab test misses a triangle that
  /// crossTriangle takes.
  ///
  /// In units of kFloatRounding times the radius. A ray starts at most 5 radius from what it hits
  /// (makeLocalRay), and all coordinates are taken from that origin. Rounding moves a corner by 5,
  /// its shear by 3 * 5, the sheared coordinate by 10 and the slab test by 3 * 5; s of the crossing
  /// is exact to double. Together 45. The growth leaves ample room and stays below a
  /// hundred-thousandth of the mesh.
  [[nodiscard]] double growth() const { return kGrowth * kFloatRounding * radius; }
  static constexpr double kGrowth = 128.0;
  static_assert(kGrowth >= 5 + 3 * 5 + 10 + 3 * 5 && kGrowth * kFloatRounding < 1e-5);
};

/// The frame of points whose largest absolute coordinate and box are known.
inline MeshFrame makeMeshFrame(const tarn::Vec3f& low, const tarn::Vec3f& high) {
  MeshFrame frame;
  float largest = 0.0f;
  for (std::size_t i = 0; i < 3; ++i)
    largest = std::fmax(largest, std::fmax(std::fabs(low[i]), std::fabs(high[i])));
  std::frexp(largest, &frame.exponent);
  for (std::size_t i = 0; i < 3; ++i) {
    const double a = std::ldexp(static_cast<double>(low[i]), -frame.exponent);
    const double b = std::ldexp(static_cast<double>(high[i]), -frame.exponent);
    frame.center[i] = 0.5 * a + 0.5 * b;
    frame.halfSize[i] = 0.5 * b - 0.5 * a;
  }
  // The length and the half sizes are off by a few roundings of a double each.
  constexpr double kSlack = 1.0000001;
  static_assert(kSlack - 1.0 > 16.0 * kDoubleRounding);
  frame.radius = frame.halfSize.length() * kSlack;
  return frame;
}

/// A coordinate in the mesh's scaled space.
inline float scaleCoordinate(float v, const MeshFrame& frame) {
  return std::ldexp(v, -frame.exponent);
}

/// An affine map: out = x column[0] + y column[1] + z column[2] + column[3]. By columns, since one
/// register then computes all three components.
struct Affine {
  double column[4][3] = {};

  [[nodiscard]] double at(int r, int c) const { return column[c][r]; }
};

/// The inverse of an affine map; false, with \p out untouched, when it has none or is not finite.
inline bool invert(const Affine& a, Affine& out) {
  const auto& m = a.column;
  const double c00 = m[1][1] * m[2][2] - m[2][1] * m[1][2];
  const double c01 = m[2][1] * m[0][2] - m[0][1] * m[2][2];
  const double c02 = m[0][1] * m[1][2] - m[1][1] * m[0][2];
  const double det = m[0][0] * c00 + m[1][0] * c01 + m[2][0] * c02;
  if (det == 0.0 || !std::isfinite(det)) return false;
  Affine r;
  auto& n = r.column;
  n[0][0] = c00 / det;
  n[0][1] = c01 / det;
  n[0][2] = c02 / det;
  n[1][0] = (m[2][0] * m[1][2] - m[1][0] * m[2][2]) / det;
  n[1][1] = (m[0][0] * m[2][2] - m[2][0] * m[0][2]) / det;
  n[1][2] = (m[1][0] * m[0][2] - m[0][0] * m[1][2]) / det;
  n[2][0] = (m[1][0] * m[2][1] - m[2][0] * m[1][1]) / det;
  n[2][1] = (m[2][0] * m[0][1] - m[0][0] * m[2][1]) / det;
  n[2][2] = (m[0][0] * m[1][1] - m[1][0] * m[0][1]) / det;
  for (int i = 0; i < 3; ++i)
    n[3][i] = -(n[0][i] * m[3][0] + n[1][i] * m[3][1] + n[2][i] * m[3][2]);
  for (const auto& column : n)
    for (const double v : column)
      if (!std::isfinite(v)) return false;
  out = r;
  return true;
}

/// From world space to the mesh's scaled space; false where nothing can be hit through the matrix.
inline bool makeLocalFromWorld(const tarn::Mat4d& worldFromLocal, const MeshFrame& frame,
                               Affine& out) {
  Affine world;
  for (std::size_t r = 0; r < 3; ++r)
    for (std::size_t c = 0; c < 4; ++c) {
      world.column[c][r] = worldFromLocal[c * 4 + r];
      if (!std::isfinite(world.column[c][r])) return false;
    }
  Affine local;
  if (!invert(world, local)) return false;
  for (auto& column : local.column)
    for (double& v : column) v = std::ldexp(v, -frame.exponent);
  out = local;
  return true;
}

/// The axis that follows each: x, y, z, x.
constexpr int kNextAxis[3] = {1, 2, 0};

/// A ray in a mesh's scaled space.
struct LocalRay {
  float origin[3];  ///< moved along the ray to just before the mesh, if the caller's is far away
  float shearX, shearY;
  float zSign;          ///< of the direction along `z`
  int x, y, z;          ///< axes; z is the one in which the direction is largest
  float inverse[3];     ///< by axis: |direction z| / direction, at most kLargestInverse in size
  double start;         ///< s of `origin`, counted from the caller's origin
  double distancePerS;  ///< distance = (start + s) * distancePerS
  double sPerDistance;
  /// The same before rounding: the origin, and the direction with a largest component of 1.
  double exactOrigin[3], exactDirection[3];
};

/// 2^100. Within a mesh s spans some 16, so an axis with this inverse moves the ray by 2^-96 there,
/// far less than the growth of the boxes; and its product with any coordinate is a finite float.
constexpr double kLargestInverse = 1.2676506002282294e30;

/// length / v, for slab tests, of at most kLargestInverse in size. So a v of 0 needs no care for
/// 0 times infinity.
inline float boundedInverse(double length, double v) {
  const double inverse = length / v;
  return static_cast<float>(std::copysign(
      std::fabs(inverse) < kLargestInverse ? std::fabs(inverse) : kLargestInverse, v));
}

/// False when nothing can be hit: the direction has no length, or the ray passes far from the mesh.
template <class T>
inline bool makeLocalRay(const Affine& localFromWorld, const MeshFrame& frame,
                         const tarn::Ray<T>& ray, LocalRay& out) {
  // Into local space, in double: world coordinates may be large where local ones are small.
  const double wo[3] = {static_cast<double>(ray.origin.x), static_cast<double>(ray.origin.y),
                        static_cast<double>(ray.origin.z)};
  const double wd[3] = {static_cast<double>(ray.direction.x), static_cast<double>(ray.direction.y),
                        static_cast<double>(ray.direction.z)};
  double o[3], d[3];
  for (int i = 0; i < 3; ++i) {
    const auto& m = localFromWorld.column;
    d[i] = m[0][i] * wd[0] + m[1][i] * wd[1] + m[2][i] * wd[2];
    o[i] = m[0][i] * wo[0] + m[1][i] * wo[1] + m[2][i] * wo[2] + m[3][i];
  }

  // The largest axis of the direction; the first on ties.
  const double d0 = std::fabs(d[0]), d1 = std::fabs(d[1]), d2 = std::fabs(d[2]);
  const double d01 = d1 > d0 ? d1 : d0, length = d2 > d01 ? d2 : d01;
  const int z = d2 > d01 ? 2 : static_cast<int>(d1 > d0);
  out.z = z;
  out.x = kNextAxis[z];
  out.y = kNextAxis[out.x];
  const double scale = 1.0 / length;
  if (!(scale <= std::numeric_limits<double>::max()) ||
      !(length <= std::numeric_limits<double>::max()))
    return false;
  const double raw[3] = {d[0], d[1], d[2]};
  for (double& v : d) v *= scale;
  out.distancePerS = scale;
  out.sPerDistance = length;

  // An origin more than 4 radius from the centre moves along the ray to just before the mesh:
  // rounded to float there, it is as exact as the mesh's own points. The scaled direction is
  // between 1 and sqrt(3) long, so the new origin lies 2 to 3.5 radius before the point of the ray
  // that is nearest to the centre.
  out.start = 0.0;
  const double q[3] = {frame.center.x - o[0], frame.center.y - o[1], frame.center.z - o[2]};
  const double qq = q[0] * q[0] + q[1] * q[1] + q[2] * q[2], rr = frame.radius * frame.radius;
  if (qq > 16.0 * rr) {
    const double dd = d[0] * d[0] + d[1] * d[1] + d[2] * d[2];
    const double qd = q[0] * d[0] + q[1] * d[1] + q[2] * d[2];
    // A ray that passes the sphere around the mesh by more than any rounding misses. |q x d| is the
    // ray's distance from the centre times |d|. Roundings of q, of the products and of their
    // differences move it by less than 6 kDoubleRounding |q| |d|, which is below 1e-15 |q| |d|.
    // (r |d| + e)^2 is at most (1 + 1e-4) r^2 d^2 + (1 + 1e4) e^2. The first factor also covers the
    // rounding of the moved origin, some 5 kFloatRounding r.
    static_assert(6.0 * kDoubleRounding < 1e-15 && 10.0 * kFloatRounding < 1e-4 / 2);
    const double cx = q[1] * d[2] - q[2] * d[1], cy = q[2] * d[0] - q[0] * d[2],
                 cz = q[0] * d[1] - q[1] * d[0];
    if (cx * cx + cy * cy + cz * cz > 1.0001 * rr * dd + 1e-26 * qq * dd) return false;
    out.start = qd / dd - 2.0 * frame.radius;
    for (int i = 0; i < 3; ++i) o[i] += out.start * d[i];
  }
  // The ray now starts within 5 radius of the centre. The scaled mesh lies within a cube from -1 to
  // 1, so its radius is at most 1.74 and no coordinate of the origin is larger than 10.
  for (int i = 0; i < 3; ++i) {
    if (!(std::fabs(o[i]) <= 16.0)) return false;
    out.origin[i] = static_cast<float>(o[i]);
    out.exactOrigin[i] = o[i];
    out.exactDirection[i] = d[i];
  }

  out.zSign = d[z] < 0.0 ? -1.0f : 1.0f;
  out.shearX = static_cast<float>(d[out.x]);
  out.shearY = static_cast<float>(d[out.y]);
  for (int i = 0; i < 3; ++i) out.inverse[i] = boundedInverse(length, raw[i]);
  return true;
}

/// Where a ray crosses a triangle: the weights of the corners times their sum, exact in sign, and
/// the distance.
struct Crossing {
  double a, b, c, sum;
  double distance;
};

/// The watertight test. Corners are taken relative to the origin and sheared so that the ray is the
/// z axis, in float. A sheared corner depends on corner and ray alone, so neighbours agree on it.
/// Then the signs of three areas decide. A product of two floats is exact in double, and the
/// difference of two of those has the exact sign; so no ray passes between two triangles, and the
/// crossing is as exact as the corners.
///
/// \param a, b, c in the mesh's scaled space
/// \return true on a crossing, edges and corners included, at any distance before or behind the
///         origin
inline bool crossTriangle(const LocalRay& ray, const float (&a)[3], const float (&b)[3],
                          const float (&c)[3], Crossing& out) {
  // Shear.
  const float az = (a[ray.z] - ray.origin[ray.z]) * ray.zSign;
  const float bz = (b[ray.z] - ray.origin[ray.z]) * ray.zSign;
  const float cz = (c[ray.z] - ray.origin[ray.z]) * ray.zSign;
  const float ax = (a[ray.x] - ray.origin[ray.x]) - ray.shearX * az,
              ay = (a[ray.y] - ray.origin[ray.y]) - ray.shearY * az;
  const float bx = (b[ray.x] - ray.origin[ray.x]) - ray.shearX * bz,
              by = (b[ray.y] - ray.origin[ray.y]) - ray.shearY * bz;
  const float cx = (c[ray.x] - ray.origin[ray.x]) - ray.shearX * cz,
              cy = (c[ray.y] - ray.origin[ray.y]) - ray.shearY * cz;

  // Signed areas opposite each corner. Float decides when no sign is in doubt: rounding is
  // monotone, so a difference of rounded products has the right sign or is zero.
  const float fu = cx * by - cy * bx, fv = ax * cy - ay * cx, fw = bx * ay - by * ax;
  if ((fu < 0.0f || fv < 0.0f || fw < 0.0f) && (fu > 0.0f || fv > 0.0f || fw > 0.0f)) return false;
  const double dax = static_cast<double>(ax), day = static_cast<double>(ay);
  const double dbx = static_cast<double>(bx), dby = static_cast<double>(by);
  const double dcx = static_cast<double>(cx), dcy = static_cast<double>(cy);
  const double u = dcx * dby - dcy * dbx, v = dax * dcy - day * dcx, w = dbx * day - dby * dax;
  if (!((u >= 0.0 && v >= 0.0 && w >= 0.0) || (u <= 0.0 && v <= 0.0 && w <= 0.0))) return false;
  const double sum = u + v + w;
  if (sum == 0.0) return false;

  const double s =
      (u * static_cast<double>(az) + v * static_cast<double>(bz) + w * static_cast<double>(cz)) /
      sum;
  out.a = u;
  out.b = v;
  out.c = w;
  out.sum = sum;
  out.distance = (ray.start + s) * ray.distancePerS;
  return true;
}

/// A distance rounded to float; infinite where it is beyond the range of float.
inline float roundDistance(double distance) {
  constexpr double most = static_cast<double>(std::numeric_limits<float>::max());
  if (!(std::fabs(distance) > most)) return static_cast<float>(distance);
  return distance > 0.0 ? std::numeric_limits<float>::infinity()
                        : -std::numeric_limits<float>::infinity();
}

/// How far rounding to float may move a distance: by kFloatRounding of itself, or by 2^-150 where
/// the float is a denormal.
constexpr double kRangeSlack = 1.2e-7, kAbsoluteRangeSlack = 1e-44;
static_assert(kRangeSlack > 2.0 * kFloatRounding && kAbsoluteRangeSlack > 7.1e-46);

/// The range of distances of a ray, closed at both ends. Distances are compared in the ray's own
/// type: those of a Ray3f are rounded to float first, so that a ray whose range ends at
/// float(hit.distance) finds the hit again.
template <class T>
struct DistanceRange {
  T min, max;
  /// No distance that counts as within [min, max] lies outside these.
  double low, high;

  explicit DistanceRange(const tarn::Ray<T>& ray)
      : min(ray.minDistance),
        max(ray.maxDistance),
        low(static_cast<double>(min) - slack(min)),
        high(static_cast<double>(max) + slack(max)) {}

  /// False for a distance that is not finite.
  [[nodiscard]] bool contains(double distance) const {
    if (!(std::fabs(distance) <= std::numeric_limits<double>::max())) return false;
    if constexpr (std::is_same_v<T, double>) return distance >= min && distance <= max;
    const float rounded = roundDistance(distance);
    return static_cast<T>(rounded) >= min && static_cast<T>(rounded) <= max;
  }

 private:
  static double slack(float end) {
    return std::fabs(static_cast<double>(end)) * kRangeSlack + kAbsoluteRangeSlack;
  }
  static double slack(double) { return 0.0; }
};

/// Doubles beyond these are no coordinates: their products with a matrix could overflow, or become
/// denormals that have lost the direction.
constexpr double kLargestDouble = 1e150, kSmallestDirection = 1e-150;

/// True when the ray can hit anything at all.
template <class T>
inline bool isUsable(const tarn::Ray<T>& ray) {
  constexpr bool isDouble = std::is_same_v<T, double>;
  constexpr T most = isDouble ? T(kLargestDouble) : std::numeric_limits<T>::max();
  const tarn::Vec3<T>&o = ray.origin, &d = ray.direction;
  return std::fabs(o.x) <= most && std::fabs(o.y) <= most && std::fabs(o.z) <= most &&
         std::fabs(d.x) <= most && std::fabs(d.y) <= most && std::fabs(d.z) <= most &&
         (isDouble ? std::fabs(d.x) >= T(kSmallestDirection) ||
                         std::fabs(d.y) >= T(kSmallestDirection) ||
                         std::fabs(d.z) >= T(kSmallestDirection)
                   : d.x != T(0) || d.y != T(0) || d.z != T(0)) &&
         ray.minDistance <= ray.maxDistance;
}

}  // namespace vela::tracer
