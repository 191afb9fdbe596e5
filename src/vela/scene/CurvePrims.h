/// \file
/// Curves and points as tubes: chains of round cones, and balls.
#pragma once

#include <cstddef>
#include <optional>

#include "ovo/Array.h"
#include "ovo/Prim.h"
#include "ovo/Token.h"
#include "tarn/Vec.h"
#include "vela/Api.h"
#include "vela/scene/Shape.h"

namespace vela::scene {

/// What only the shape of curves or points has. A face of such a shape is a curve, or a point; its
/// number is the scene's. Shape::points are the points of the tubes, face after face, and
/// Shape::counts how many each has: none for what cannot be used.
///
/// Each segment of a cubic curve is cut into 1 to 32 pieces of equal parameter: the least number
/// that keeps the chord within a thousandth of the length of its control polygon, or of a third of
/// that where the polygon spans three segments (bspline, catmullRom). A curve that is closed ends
/// in a copy of its first point.
struct Tubes {
  /// How a curve goes by its control points, as scenes name it.
  enum class Basis {
    linear,      ///< straight from point to point
    bezier,      ///< cubic; of each segment the first and the last point lie on it
    bspline,     ///< cubic; goes by its points without meeting them
    catmullRom,  ///< cubic; meets all points that it has tangents for
  };
  /// How a curve begins and ends, as scenes name it.
  enum class Wrap {
    nonperiodic,  ///< open; cubic ones may begin and end between points
    periodic,     ///< closed
    pinned,       ///< open; begins at the first point and ends at the last
  };

  ovo::Array<float> radii;              ///< one a point of the shape, in the object's space
  bool arePoints = false;               ///< each face is one ball
  Basis basis = Basis::linear;          ///< of the curves
  Wrap wrap = Wrap::nonperiodic;        ///< of the curves
  ovo::Array<tarn::Vec3f> scenePoints;  ///< control points, as the scene has them
  ovo::Array<int> sceneCounts;          ///< curveVertexCounts; of points 1 each
  ovo::Array<int> pieces;               ///< into how many each segment is cut, curve after curve

  bool hasWidths = false;  ///< false: the scene gives none that fit, and thin ones were made up
  std::size_t broken = 0;  ///< curves, or points, that cannot be shown as a whole
};

/// True for the types that readCurves() takes: BasisCurves and Points.
[[nodiscard]] VELA_API bool isCurvesType(const ovo::Token& type);

/// The shape of a prim of curves or points at a time; nothing for prims of other types.
///
/// Widths are diameters: `primvars:widths`, else `widths`; per curve, per point, varying or one for
/// all, and one value counts for all in any case. Without widths that fit, tubes are as wide as a
/// thousandth of the diagonal of the control points' box. Normals are not used: all curves are
/// round.
///
/// Of a curve whose count does not fit its basis, or that reaches past the points, nothing shows,
/// and the curves after it keep their points. A piece with a point that is not finite, or with a
/// width that is negative or not finite, is left out.
///
/// \code
///   const std::shared_ptr<ovo::Stage> stage = ovo::Stage::createInMemory();
///   const ovo::Prim dust = stage->definePrim(ovo::Path("/Dust"), ovo::Token("Points"));
///   dust.createAttr(ovo::Token("points"), ovo::Token("point3f[]"))
///       .set(ovo::Array<tarn::Vec3f>{{0, 0, 0}, {1, 0, 0}});
///   dust.createAttr(ovo::Token("widths"), ovo::Token("float[]")).set(ovo::Array<float>{0.5f});
///   const vela::scene::Shape shape =
///       vela::scene::readCurves(dust, tarn::defaultTimeValue()).value();
///   assert(shape.counts.size() == 2 && shape.tubes->radii[1] == 0.25f);
/// \endcode
[[nodiscard]] VELA_API std::optional<Shape> readCurves(const ovo::Prim& prim, double time);

/// Values of the scene carried over to the shape's points: vertex ones by the curves' basis,
/// varying ones in a straight line within each segment.
///
/// \param values replaced; values with any other interpolation stay as they are
/// \return false, with \p values untouched, where their number does not fit
[[nodiscard]] VELA_API bool carryOverTubes(const Tubes& tubes, const ovo::Token& interpolation,
                                           ovo::Array<tarn::Vec3f>& values);

}  // namespace vela::scene
