/// \file
/// The arithmetic that decides the answers for tubes: rays against round cones.
///
/// A tube is a chain of pieces. A piece is the convex hull of the balls about its two ends: a cone
/// with round ends. Neighbours share a ball with the same bits, so no ray passes between them.
///
/// What can be hit is where a ray enters or leaves a piece, unless that point lies inside the piece
/// before or after it: the ends that neighbours hide in each other are no surface.
///
/// All of it is inline, scalar and in double, so that the trees and the plain loop of the tests run
/// the same operations.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>

#include "vela/trace/detail/TracerKernel.h"
#include "vela/trace/detail/TracerMath.h"
#include "vela/trace/detail/TracerMesh.h"

namespace vela::tracer {

/// A ray in a mesh's scaled space, in double. The triangle test rounds its origin to float; tubes
/// can be so thin that this would show.
struct RoundRay {
  double origin[3], direction[3];
  double squaredLength;        ///< of the direction, between 1 and 3
  double start, distancePerS;  ///< as in LocalRay

  RoundRay(const double* from, const double* along, double start_, double distancePerS_)
      : origin{from[0], from[1], from[2]},
        direction{along[0], along[1], along[2]},
        squaredLength(along[0] * along[0] + along[1] * along[1] + along[2] * along[2]),
        start(start_),
        distancePerS(distancePerS_) {}
  explicit RoundRay(const LocalRay& ray)
      : RoundRay(ray.exactOrigin, ray.exactDirection, ray.start, ray.distancePerS) {}
};

/// Where a ray is inside a piece, in s as LocalRay has it.
struct Passage {
  double in, out;
};

/// A piece whose larger ball holds the smaller one, up to this share of its squared length, has no
/// side worth a test: what the smaller ball adds is inside the larger one or below 1e-9 of the
/// piece's length. Above it the test for the side's two ends keeps seven digits.
constexpr double kFlattestSide = 1e-9;

inline double dotOf(const double (&a)[3], const double (&b)[3]) {
  return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

/// The ray's passage through the hull of two balls.
///
/// The hull is convex, and where the ray crosses its surface it crosses one of the balls or the
/// side of the cone that touches both, between the circles on which it touches them. So the passage
/// reaches from the least to the greatest of those.
///
/// All is taken from the point of the ray that is nearest to the piece's middle. A far origin then
/// costs one rounding of its own size, not the square root of it.
///
/// \param out replaced on a crossing
inline bool crossPiece(const RoundRay& ray, const Joint& a, const Joint& b, Passage& out) {
  const double ra = static_cast<double>(a.radius), rb = static_cast<double>(b.radius);
  const double pa[3] = {static_cast<double>(a.x), static_cast<double>(a.y),
                        static_cast<double>(a.z)};
  const double pb[3] = {static_cast<double>(b.x), static_cast<double>(b.y),
                        static_cast<double>(b.z)};
  const auto& d = ray.direction;
  const double dd = ray.squaredLength;
  double axis[3], middle[3], fromA[3], fromB[3];
  for (int i = 0; i < 3; ++i) {
    axis[i] = pb[i] - pa[i];
    middle[i] = 0.5 * (pa[i] + pb[i]) - ray.origin[i];
  }
  const double nearest = dotOf(middle, d) / dd;
  for (int i = 0; i < 3; ++i) {
    const double at = ray.origin[i] + nearest * d[i];
    fromA[i] = at - pa[i];
    fromB[i] = at - pb[i];
  }

  double in = std::numeric_limits<double>::infinity(), last = -in;
  const auto meet = [&](double s) {
    in = s < in ? s : in;
    last = s > last ? s : last;
  };

  // The balls, by the part of their centre's offset that is across the ray.
  const auto meetBall = [&](const double(&from)[3], double radius) {
    const double along = dotOf(from, d) / dd;
    const double across[3] = {from[0] - along * d[0], from[1] - along * d[1],
                              from[2] - along * d[2]};
    const double rest = radius * radius - dotOf(across, across);
    if (!(rest >= 0.0)) return;
    const double half = std::sqrt(rest / dd);
    meet(-along - half);
    meet(-along + half);
  };
  meetBall(fromA, ra);
  meetBall(fromB, rb);

  // The side. At a point x from ball A, with the axis l long: |axis x x| is l times the distance
  // from the axis, and the cone is where that times sqrt(l^2 - narrowing^2) equals
  // radius l^2 - narrowing (axis . x). Cross products keep what the difference of two squares would
  // lose on long thin pieces.
  const double ll = dotOf(axis, axis), narrowing = ra - rb, dl = ll - narrowing * narrowing;
  if (dl > kFlattestSide * ll) {
    const double e[3] = {axis[1] * fromA[2] - axis[2] * fromA[1],
                         axis[2] * fromA[0] - axis[0] * fromA[2],
                         axis[0] * fromA[1] - axis[1] * fromA[0]};
    const double f[3] = {axis[1] * d[2] - axis[2] * d[1], axis[2] * d[0] - axis[0] * d[2],
                         axis[0] * d[1] - axis[1] * d[0]};
    const double x0 = dotOf(axis, fromA), x1 = dotOf(axis, d);
    const double w0 = ra * ll - narrowing * x0, w1 = -(narrowing * x1);
    const double k2 = dl * dotOf(f, f) - w1 * w1, k1 = dl * dotOf(e, f) - w0 * w1,
                 k0 = dl * dotOf(e, e) - w0 * w0;
    const double rest = k1 * k1 - k0 * k2;
    if (rest >= 0.0) {
      // Both roots without cancellation. Where k2 or q is zero, one of them is infinite or NaN, and
      // is not between the ends.
      const double root = std::sqrt(rest), q = k1 > 0.0 ? -k1 - root : -k1 + root;
      const double y0 = x0 - ra * narrowing;
      for (const double s : {q / k2, k0 / q}) {
        const double y = y0 + s * x1;
        if (y >= 0.0 && y <= dl) meet(s);
      }
    }
  }
  if (!(in <= last)) return false;
  out.in = nearest + in;
  out.out = nearest + last;
  return true;
}

/// Where along a piece its surface belongs to, from 0 at ball A to 1 at ball B: the centre of the
/// ball between the two that touches the surface there.
inline double alongPiece(const Joint& a, const Joint& b, const double (&p)[3]) {
  const double ra = static_cast<double>(a.radius), rb = static_cast<double>(b.radius);
  const double pa[3] = {static_cast<double>(a.x), static_cast<double>(a.y),
                        static_cast<double>(a.z)};
  const double axis[3] = {static_cast<double>(b.x) - pa[0], static_cast<double>(b.y) - pa[1],
                          static_cast<double>(b.z) - pa[2]};
  const double from[3] = {p[0] - pa[0], p[1] - pa[1], p[2] - pa[2]};
  const double ll = dotOf(axis, axis), narrowing = ra - rb, dl = ll - narrowing * narrowing;
  if (!(dl > kFlattestSide * ll)) return ra >= rb ? 0.0 : 1.0;
  const double y = dotOf(axis, from) - ra * narrowing;
  return y <= 0.0 ? 0.0 : y >= dl ? 1.0 : y / dl;
}

/// Holds a ray against one piece of a mesh of tubes, and keeps what is nearer than the nearest.
///
/// Comparing passages, not points, is what keeps chains whole: of pieces that hide each other's
/// ends the one that the ray enters first lies inside no other, and so does the one it leaves last.
///
/// \return whether anything was kept
template <class T>
inline bool tracePiece(const Mesh& mesh, const RoundRay& ray, const DistanceRange<T>& range,
                       std::uint32_t placement, std::uint32_t index, Nearest& nearest) {
  const Piece& piece = mesh.pieces[index];
  const auto cross = [&](const Piece& of, Passage& passage) {
    return crossPiece(ray, mesh.joints[of.a], mesh.joints[of.b], passage);
  };
  const auto isInside = [&](std::uint32_t neighbour, double s) {
    Passage other;
    return neighbour != kNone && cross(mesh.pieces[neighbour], other) && other.in < s &&
           s < other.out;
  };
  Passage passage;
  if (!cross(piece, passage)) return false;
  for (const double s : {passage.in, passage.out}) {
    const double distance = (ray.start + s) * ray.distancePerS;
    if (!range.contains(distance)) continue;
    if (!nearest.isBeatenBy(distance, placement, index)) return false;
    if (isInside(piece.previous, s) || isInside(piece.next, s)) continue;
    nearest.takePiece(s, distance, placement, index);
    return true;
  }
  return false;
}

}  // namespace vela::tracer
