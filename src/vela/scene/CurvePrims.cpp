#include "vela/scene/CurvePrims.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

#include "ovo/Primvar.h"
#include "ovo/PropertyLinks.h"
#include "ovo/Tokens.h"
#include "tarn/Box3.h"

namespace vela::scene {

namespace {

using tarn::Vec3d;
using tarn::Vec3f;
using Basis = Tubes::Basis;
using Wrap = Tubes::Wrap;
using Weights = std::array<double, 4>;

// How many segments a curve of so many points has; none where the number does not fit the basis.
std::size_t segmentsOf(Basis basis, Wrap wrap, std::size_t n) {
  switch (basis) {
    case Basis::linear: return n < 2 ? 0 : wrap == Wrap::periodic ? n : n - 1;
    case Basis::bezier:
      if (wrap == Wrap::periodic) return n < 3 || n % 3 != 0 ? 0 : n / 3;
      return n < 4 || (n - 4) % 3 != 0 ? 0 : (n - 4) / 3 + 1;
    default:
      if (wrap == Wrap::periodic) return n < 3 ? 0 : n;
      if (wrap == Wrap::pinned) return n < 2 ? 0 : n - 1;
      return n < 4 ? 0 : n - 3;
  }
}

// Values between points or segments: how many a curve has. Those of closed ones wrap round.
std::size_t varyingOf(Wrap wrap, std::size_t segments) {
  return segments == 0 ? 0 : wrap == Wrap::periodic ? segments : segments + 1;
}

Weights weightsAt(Basis basis, double t) {
  const double s = 1.0 - t;
  switch (basis) {
    case Basis::linear: return {s, t, 0.0, 0.0};
    case Basis::bezier: return {s * s * s, 3.0 * t * s * s, 3.0 * t * t * s, t * t * t};
    case Basis::bspline:
      return {s * s * s / 6.0, ((3.0 * t - 6.0) * t * t + 4.0) / 6.0,
              (((-3.0 * t + 3.0) * t + 3.0) * t + 1.0) / 6.0, t * t * t / 6.0};
    default:
      return {((-t + 2.0) * t - 1.0) * t * 0.5, ((3.0 * t - 5.0) * t * t + 2.0) * 0.5,
              ((-3.0 * t + 4.0) * t + 1.0) * t * 0.5, (t - 1.0) * t * t * 0.5};
  }
}

// The four control values of a segment; a pinned curve has one more at each end, which it makes.
template <class Value>
std::array<Value, 4> controlsOf(const Tubes& tubes, std::size_t n, std::size_t segment,
                                const Value* values) {
  const auto at = [&](std::size_t i) { return values[tubes.wrap == Wrap::periodic ? i % n : i]; };
  switch (tubes.basis) {
    case Basis::linear: return {at(segment), at(segment + 1), Value(), Value()};
    case Basis::bezier: {
      const std::size_t first = 3 * segment;
      return {at(first), at(first + 1), at(first + 2), at(first + 3)};
    }
    default: break;
  }
  if (tubes.wrap != Wrap::pinned)
    return {at(segment), at(segment + 1), at(segment + 2), at(segment + 3)};
  const Value before = segment == 0 ? values[0] * 2.0 - values[1] : values[segment - 1];
  const Value after = segment + 2 < n ? values[segment + 2] : values[n - 1] * 2.0 - values[n - 2];
  return {before, values[segment], values[segment + 1], after};
}

template <class Value>
Value mix(const std::array<Value, 4>& controls, const Weights& weights) {
  // What has no weight has no say, whatever it is: a point that is not finite spoils no other.
  Value sum{};
  for (std::size_t i = 0; i < 4; ++i)
    if (weights[i] != 0.0) sum = sum + controls[i] * weights[i];
  return sum;
}

// A segment of a usable curve, by where its values stand.
struct Segment {
  std::size_t curve, segment, numSegments;
  std::size_t count;         // points of the curve
  std::size_t firstPoint;    // of the curve
  std::size_t firstVarying;  // likewise
  std::size_t number;        // among the segments of all curves
};

// Visits the segments of all curves that have any. \return how many varying values there are
template <class Visit>
std::size_t forEachSegment(const Tubes& tubes, const Visit& visit) {
  std::size_t point = 0, varying = 0, number = 0;
  const auto counts = tubes.sceneCounts.view();
  for (std::size_t c = 0; c < counts.size(); ++c) {
    if (counts[c] <= 0) continue;
    const auto n = static_cast<std::size_t>(counts[c]);
    if (n > tubes.scenePoints.size() - point) break;
    const std::size_t segments = segmentsOf(tubes.basis, tubes.wrap, n);
    for (std::size_t s = 0; s < segments; ++s)
      visit(Segment{c, s, segments, n, point, varying, number++});
    point += n;
    varying += varyingOf(tubes.wrap, segments);
  }
  return varying;
}

// Visits the points of all tubes in order: the segment, its weights, the parameter within it.
template <class Visit>
std::size_t forEachJoint(const Tubes& tubes, const Visit& visit) {
  const auto pieces = tubes.pieces.view();
  return forEachSegment(tubes, [&](const Segment& segment) {
    const int n = pieces[segment.number];
    for (int k = 0; k < n; ++k) visit(segment, static_cast<double>(k) / n);
    if (segment.segment + 1 < segment.numSegments) return;
    // The end; of a closed curve the very first point, so that both have the same bits.
    if (tubes.wrap != Wrap::periodic) return visit(segment, 1.0);
    visit(Segment{segment.curve, 0, segment.numSegments, segment.count, segment.firstPoint,
                  segment.firstVarying, segment.number + 1 - segment.numSegments},
          0.0);
  });
}

// Values of the scene in double.
struct Value3 {
  Vec3d v;
  Value3 operator*(double f) const { return {v * f}; }
  Value3 operator+(const Value3& o) const { return {v + o.v}; }
  Value3 operator-(const Value3& o) const { return {v - o.v}; }
};

// The widths of a prim, in the way in which the scene spreads them.
struct Widths {
  enum class Spread { one, curve, point, varying } spread = Spread::one;
  std::vector<Value3> values;  // in x; a width that means nothing is NaN

  [[nodiscard]] double at(const Tubes& tubes, const Segment& segment, double t) const {
    switch (spread) {
      case Spread::one: return values[0].v.x;
      case Spread::curve: return values[segment.curve].v.x;
      case Spread::varying: {
        const std::size_t a = segment.segment,
                          b = tubes.wrap == Wrap::periodic ? (a + 1) % segment.numSegments : a + 1;
        const Value3* const from = values.data() + segment.firstVarying;
        return t == 0.0 ? from[a].v.x : from[a].v.x * (1.0 - t) + from[b].v.x * t;
      }
      default: {
        // Overshoots of the basis are no widths.
        const double width = mix(controlsOf(tubes, segment.count, segment.segment,
                                            values.data() + segment.firstPoint),
                                 weightsAt(tubes.basis, t))
                                 .v.x;
        return width < 0.0 ? 0.0 : width;
      }
    }
  }
};

// Of usable number, or nothing.
std::optional<Widths> readWidths(const ovo::Prim& prim, const Tubes& tubes, std::size_t numVarying,
                                 double time) {
  const ovo::Tokens& names = ovo::tokens();
  const ovo::Token name("widths");
  const ovo::Primvar primvar = prim.getPrimvar(name);
  ovo::Array<float> values;
  if (!primvar.isValid() || !primvar.computeFlattened(values, time) || values.empty())
    return std::nullopt;
  // Only as a primvar do widths without an interpolation count for all.
  ovo::Token interpolation = primvar.interpolation();
  if (primvar.name() == name &&
      ovo::PropertyLinks(prim).propertyWord(name, ovo::Token("interpolation")).isEmpty())
    interpolation = names.vertex;

  Widths widths;
  for (const float v : values.view())
    widths.values.push_back(
        {{v >= 0.0f && std::isfinite(v) ? static_cast<double>(v)
                                        : std::numeric_limits<double>::quiet_NaN(),
          0.0, 0.0}});
  const std::size_t count = values.size();
  if (count == 1 || interpolation == names.constant)
    widths.spread = Widths::Spread::one;
  else if (interpolation == names.uniform && count >= tubes.sceneCounts.size())
    widths.spread = Widths::Spread::curve;
  else if (interpolation == names.vertex && count >= tubes.scenePoints.size())
    widths.spread = Widths::Spread::point;
  else if (interpolation == names.varying && count >= numVarying)
    widths.spread = Widths::Spread::varying;
  else
    return std::nullopt;
  return widths;
}

// Without widths: thin beside what they are part of.
Widths makeUpWidths(const Tubes& tubes) {
  constexpr double kShare = 1e-3;
  tarn::Box3d box;
  for (const Vec3f& p : tubes.scenePoints.view())
    if (isFinite(p)) box.extendBy(Vec3d(p));
  const double diagonal = box.isEmpty() ? 0.0 : box.size().length();
  Widths widths;
  widths.values.push_back({{diagonal > 0.0 ? kShare * diagonal : kShare, 0.0, 0.0}});
  return widths;
}

// The size of the second derivative at both ends of a segment, between which it runs straight.
double curvatureOf(Basis basis, const std::array<Value3, 4>& p) {
  Value3 first{}, last{};
  switch (basis) {
    case Basis::linear: return 0.0;
    case Basis::bezier:
      first = (p[0] - p[1] * 2.0 + p[2]) * 6.0;
      last = (p[1] - p[2] * 2.0 + p[3]) * 6.0;
      break;
    case Basis::bspline:
      first = p[0] - p[1] * 2.0 + p[2];
      last = p[1] - p[2] * 2.0 + p[3];
      break;
    default:
      first = p[0] * 2.0 - p[1] * 5.0 + p[2] * 4.0 - p[3];
      last = p[1] * 4.0 - p[0] - p[2] * 5.0 + p[3] * 2.0;
      break;
  }
  return std::max(first.v.length(), last.v.length());
}

// A chord of 1/n of a segment lies within M / (8 n^2) of it, M the largest second derivative.
int piecesOf(Basis basis, const std::array<Value3, 4>& p) {
  constexpr int kMost = 32;
  constexpr double kShare = 1e-3;
  double size = (p[1] - p[0]).v.length() + (p[2] - p[1]).v.length() + (p[3] - p[2]).v.length();
  // The polygon of these spans three segments.
  if (basis != Basis::bezier) size /= 3.0;
  const double n = std::ceil(std::sqrt(curvatureOf(basis, p) / (8.0 * kShare * size)));
  // Also where it is NaN.
  return n > 1.0 ? (n < kMost ? static_cast<int>(n) : kMost) : 1;
}

bool isUsable(const Vec3f& point, float radius) { return isFinite(point) && radius >= 0.0f; }

void readTopology(const ovo::Prim& prim, double time, Tubes& tubes) {
  ovo::Token type("cubic"), basis("bezier"), wrap("nonperiodic");
  prim.getAttr(ovo::Token("type")).get(type, time);
  prim.getAttr(ovo::Token("basis")).get(basis, time);
  prim.getAttr(ovo::Token("wrap")).get(wrap, time);
  // Words that nobody knows count as the fallbacks.
  if (type == ovo::Token("linear"))
    tubes.basis = Basis::linear;
  else if (basis == ovo::Token("bspline"))
    tubes.basis = Basis::bspline;
  else if (basis == ovo::Token("catmullRom"))
    tubes.basis = Basis::catmullRom;
  else
    tubes.basis = Basis::bezier;
  if (wrap == ovo::Token("periodic"))
    tubes.wrap = Wrap::periodic;
  else if (wrap == ovo::Token("pinned"))
    tubes.wrap = Wrap::pinned;
  prim.getAttr(ovo::Token("curveVertexCounts")).get(tubes.sceneCounts, time);
}

// Points of tubes beyond this could not be numbered.
constexpr std::size_t kMostJoints = std::numeric_limits<std::int32_t>::max();

// Curves into tubes: cut, with a radius at each point.
void cutCurves(const ovo::Prim& prim, double time, Tubes& tubes, Shape& shape) {
  std::vector<Value3> points;
  points.reserve(tubes.scenePoints.size());
  for (const Vec3f& p : tubes.scenePoints.view()) points.push_back({Vec3d(p)});
  const auto controls = [&](const Segment& segment) {
    return controlsOf(tubes, segment.count, segment.segment, points.data() + segment.firstPoint);
  };

  std::vector<int> pieces;
  std::size_t joints = tubes.sceneCounts.size();
  const std::size_t numVarying = forEachSegment(tubes, [&](const Segment& segment) {
    const int own = tubes.basis == Basis::linear ? 1 : piecesOf(tubes.basis, controls(segment));
    const bool isRoom = joints + static_cast<std::size_t>(own) < kMostJoints;
    pieces.push_back(isRoom ? own : 0);
    joints += isRoom ? static_cast<std::size_t>(own) : 0;
  });
  tubes.pieces = ovo::Array<int>(pieces);
  const std::optional<Widths> read = readWidths(prim, tubes, numVarying, time);
  tubes.hasWidths = read.has_value();
  const Widths widths = read ? *read : makeUpWidths(tubes);

  std::vector<Vec3f> out;
  std::vector<float> radii;
  std::vector<int> counts(tubes.sceneCounts.size(), 0);
  std::vector<bool> isBroken(tubes.sceneCounts.size(), false);
  out.reserve(joints);
  radii.reserve(joints);
  forEachJoint(tubes, [&](const Segment& segment, double t) {
    out.push_back(Vec3f(mix(controls(segment), weightsAt(tubes.basis, t)).v));
    const double radius = 0.5 * widths.at(tubes, segment, t);
    // What is no width is negative from here on, so that equal shapes have equal bits.
    radii.push_back(radius >= 0.0 ? static_cast<float>(radius) : -1.0f);
    ++counts[segment.curve];
    if (!isUsable(out.back(), radii.back())) isBroken[segment.curve] = true;
  });
  for (std::size_t c = 0; c < counts.size(); ++c)
    if (counts[c] == 0 || isBroken[c]) ++tubes.broken;
  shape.points = ovo::Array<Vec3f>(out);
  shape.counts = ovo::Array<int>(counts);
  tubes.radii = ovo::Array<float>(radii);
}

void readBalls(const ovo::Prim& prim, double time, Tubes& tubes, Shape& shape) {
  tubes.arePoints = true;
  const std::size_t count = std::min(tubes.scenePoints.size(), kMostJoints);
  tubes.sceneCounts = ovo::Array<int>(count, 1);
  const std::optional<Widths> read = readWidths(prim, tubes, count, time);
  tubes.hasWidths = read.has_value();
  const Widths widths = read ? *read : makeUpWidths(tubes);
  shape.points = tubes.scenePoints;
  shape.counts = tubes.sceneCounts;
  tubes.radii.resize(count);
  float* const out = tubes.radii.data();
  for (std::size_t i = 0; i < count; ++i) {
    const double radius = 0.5 * widths.values[widths.spread == Widths::Spread::one ? 0 : i].v.x;
    out[i] = radius >= 0.0 ? static_cast<float>(radius) : -1.0f;
    if (!isUsable(tubes.scenePoints.view()[i], out[i])) ++tubes.broken;
  }
}

}  // namespace

bool isCurvesType(const ovo::Token& type) {
  return type == ovo::tokens().BasisCurves || type == ovo::tokens().Points;
}

std::optional<Shape> readCurves(const ovo::Prim& prim, double time) {
  if (!prim.isValid() || !isCurvesType(prim.getTypeName())) return std::nullopt;
  Shape shape;
  // No mesh, but the prim whose values the shape has.
  shape.prim = ovo::MeshPrim(prim);
  auto tubes = std::make_shared<Tubes>();
  prim.getAttr(ovo::tokens().points).get(tubes->scenePoints, time);
  if (prim.getTypeName() == ovo::tokens().Points) {
    readBalls(prim, time, *tubes, shape);
  } else {
    readTopology(prim, time, *tubes);
    cutCurves(prim, time, *tubes, shape);
  }
  shape.indices.resize(shape.points.size());
  int* const indices = shape.indices.data();
  for (std::size_t i = 0; i < shape.indices.size(); ++i) indices[i] = static_cast<int>(i);
  shape.tubes = std::move(tubes);
  return shape;
}

bool carryOverTubes(const Tubes& tubes, const ovo::Token& interpolation,
                    ovo::Array<Vec3f>& values) {
  const ovo::Tokens& names = ovo::tokens();
  const bool isVertex = interpolation == names.vertex, isVarying = interpolation == names.varying;
  if (!isVertex && !isVarying) return true;
  if (isVertex && values.size() < tubes.scenePoints.size()) return false;
  if (tubes.arePoints) return values.size() >= tubes.scenePoints.size();
  std::vector<Value3> from;
  from.reserve(values.size());
  for (const Vec3f& v : values.view()) from.push_back({Vec3d(v)});
  if (isVarying && from.size() < forEachSegment(tubes, [](const Segment&) {})) return false;
  std::vector<Vec3f> out;
  forEachJoint(tubes, [&](const Segment& segment, double t) {
    if (isVertex) {
      const auto controls =
          controlsOf(tubes, segment.count, segment.segment, from.data() + segment.firstPoint);
      out.push_back(Vec3f(mix(controls, weightsAt(tubes.basis, t)).v));
      return;
    }
    const std::size_t a = segment.segment,
                      b = tubes.wrap == Wrap::periodic ? (a + 1) % segment.numSegments : a + 1;
    const Value3* const own = from.data() + segment.firstVarying;
    out.push_back(Vec3f(t == 0.0 ? own[a].v : (own[a] * (1.0 - t) + own[b] * t).v));
  });
  values = ovo::Array<Vec3f>(out);
  return true;
}

}  // namespace vela::scene
