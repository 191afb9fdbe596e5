#include "vela/scene/Surface.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "ovo/Faces.h"
#include "ovo/Tokens.h"
#include "tarn/Area.h"
#include "tarn/Span.h"
#include "vela/scene/CurvePrims.h"
#include "vela/scene/Refinement.h"

namespace vela::scene {

namespace {

using tarn::Vec3d;
using tarn::Vec3f;

constexpr Vec3f kNeutral{0.5f, 0.5f, 0.5f};

}  // namespace

Surface::Surface(const Shape& shape, double time, bool smooth) : shape_(shape), time_(time) {
  const ovo::Tokens& names = ovo::tokens();

  starts_.reserve(shape_.counts.size());
  for (const ovo::Face corners : ovo::Faces(shape_.counts, shape_.indices))
    starts_.push_back(corners.firstVertex());

  if (shape.tubes) {
    readTubes();
    return;
  }

  // A refined mesh has colours of its own, and none of the normals that the scene has for the
  // unrefined one.
  if (shape.refinement) {
    colours_.values = shape.refinement->colours;
    colours_.spread = spreadOf(shape.refinement->colourInterpolation, colours_.values.size());
    smoothNormals();
    return;
  }

  const ovo::Primvar colour = shape.prim.findInheritedPrimvar(names.displayColor);
  if (colour.isValid() && colour.computeFlattened(colours_.values, time))
    colours_.spread = spreadOf(colour.interpolation(), colours_.values.size());

  // The faces of a made mesh are not known to the scene: its values cannot be meant for them one by
  // one.
  if (!shape.prim.isValid()) {
    colours_.spread = colours_.values.empty() ? Spread::none : Spread::constant;
    normals_.values = shape.normals;
    normals_.spread = spreadOf(names.faceVarying, normals_.values.size());
    return;
  }

  ovo::Token interpolation;
  if (shape.prim.getNormals(normals_.values, interpolation, time))
    normals_.spread = spreadOf(interpolation, normals_.values.size());
  if (normals_.spread == Spread::none &&
      (smooth || shape.prim.getSubdivisionScheme() != names.none))
    smoothNormals();
}

// The normals of tubes are the tracer's: they are round.
void Surface::readTubes() {
  const ovo::Primvar colour = shape_.prim.findInheritedPrimvar(ovo::tokens().displayColor);
  if (!colour.isValid() || !colour.computeFlattened(colours_.values, time_)) return;
  const ovo::Token interpolation = colour.interpolation();
  if (carryOverTubes(*shape_.tubes, interpolation, colours_.values))
    colours_.spread = spreadOf(interpolation, colours_.values.size());
}

std::size_t Surface::triangleCount() const {
  if (shape_.tubes) return 0;
  std::size_t triangles = 0;
  for (const int count : shape_.counts.view())
    if (count > 2) triangles += static_cast<std::size_t>(count) - 2;
  return triangles;
}

// Values whose number does not fit their interpolation are not used: which of them belongs where is
// not known.
Surface::Spread Surface::spreadOf(const ovo::Token& interpolation, std::size_t count) const {
  const ovo::Tokens& names = ovo::tokens();
  if (count == 0) return Spread::none;
  if (interpolation == names.constant) return Spread::constant;
  // To the scene a set of points is one element, each of them a vertex.
  if (shape_.tubes && shape_.tubes->arePoints && interpolation == names.uniform)
    return Spread::constant;
  if (shape_.tubes && interpolation == names.faceVarying) return Spread::none;
  if (interpolation == names.uniform)
    return count >= shape_.counts.size() ? Spread::face : Spread::none;
  if (interpolation == names.vertex || interpolation == names.varying)
    return count >= shape_.points.size() ? Spread::point : Spread::none;
  if (interpolation == names.faceVarying)
    return count >= shape_.indices.size() ? Spread::corner : Spread::none;
  return Spread::none;
}

Vec3f Surface::at(const Values& values, const SurfacePoint& point) const {
  const auto f = static_cast<std::size_t>(point.face());
  const Vec3f* data = values.values.cdata();
  if (values.spread == Spread::constant) return data[0];
  if (values.spread == Spread::face) return data[f];
  if (shape_.tubes) {
    findPiece(point);
    const auto from = static_cast<std::size_t>(point.from_),
               to = static_cast<std::size_t>(point.to_);
    const double along = static_cast<double>(point.along_);
    return Vec3f(Vec3d(data[from]) * (1.0 - along) + Vec3d(data[to]) * along);
  }

  weigh(point);
  const double* weights = point.weights();
  const int* corners = shape_.indices.cdata() + starts_[f];
  Vec3d sum;
  for (std::size_t i = 0; i < point.count_; ++i)
    if (weights[i] != 0.0)
      sum += Vec3d(values.spread == Spread::point ? data[static_cast<std::size_t>(corners[i])]
                                                  : data[starts_[f] + i]) *
             weights[i];
  return Vec3f(sum);
}

// The piece of a tube that a point belongs to, where the hit does not say it: the one whose surface
// is nearest, by the ball about the nearest point of its middle line.
void Surface::findPiece(const SurfacePoint& point) const {
  if (point.from_ >= 0) return;
  const auto f = static_cast<std::size_t>(point.face());
  const auto count = static_cast<std::size_t>(shape_.counts[f]);
  const auto points = shape_.points.view();
  const auto radii = shape_.tubes->radii.view();
  const Vec3d p(point.objectPoint());
  const auto first = static_cast<int>(starts_[f]);
  point.from_ = point.to_ = first;
  double nearest = std::numeric_limits<double>::infinity();
  for (std::size_t k = 0; k + 1 < count; ++k) {
    const std::size_t at = starts_[f] + k;
    const Vec3d a(points[at]), axis = Vec3d(points[at + 1]) - a;
    const double length = axis.lengthSquared();
    const double along = length > 0.0 ? std::clamp(dot(p - a, axis) / length, 0.0, 1.0) : 0.0;
    const double radius =
        static_cast<double>(radii[at]) * (1.0 - along) + static_cast<double>(radii[at + 1]) * along;
    const double distance = std::fabs((p - a - axis * along).length() - radius);
    if (!(distance < nearest)) continue;
    nearest = distance;
    point.from_ = static_cast<int>(at);
    point.to_ = point.from_ + 1;
    point.along_ = static_cast<float>(along);
  }
}

// Mean value coordinates, which add up to 1. The tracer's barycentrics would not do even for a
// triangle: they are floats, and the hit detector has none.
void Surface::weigh(const SurfacePoint& point) const {
  if (point.count_ > 0) return;
  const auto f = static_cast<std::size_t>(point.face());
  const std::size_t count = static_cast<std::size_t>(shape_.counts[f]);
  const int* corners = shape_.indices.cdata() + starts_[f];
  double* const weights = point.start(count);

  // Corners as seen from the point. On a corner, or on the edge between two, only those count.
  struct Corner {
    Vec3d direction;
    double length;
  };
  std::array<Corner, 16> few;
  std::vector<Corner> many;
  Corner* seen = few.data();
  if (count > few.size()) {
    many.resize(count);
    seen = many.data();
  }
  const Vec3d p(point.objectPoint());
  double size = 0.0;
  for (std::size_t i = 0; i < count; ++i) {
    seen[i].direction = Vec3d(shape_.points[static_cast<std::size_t>(corners[i])]) - p;
    seen[i].length = seen[i].direction.length();
    size = std::max(size, seen[i].length);
  }
  const auto only = [&](std::size_t i) {
    std::fill_n(weights, count, 0.0);
    weights[i] = 1.0;
  };
  if (!(size > 0.0) || !std::isfinite(size)) return only(0);
  for (std::size_t i = 0; i < count; ++i)
    if (seen[i].length <= 1e-7 * size) return only(i);

  // The weight of a corner is the sum of tan(half angle) to both neighbours, over its distance. The
  // sign of an angle comes from the polygon's own normal, so that concave corners count right.
  Vec3d normal;
  for (std::size_t i = 0; i < count; ++i)
    normal += cross(seen[i].direction, seen[(i + 1) % count].direction);
  const auto halfTangent = [&](std::size_t i, std::size_t j, bool& onEdge) {
    const double cosine = dot(seen[i].direction, seen[j].direction);
    const double sine = dot(cross(seen[i].direction, seen[j].direction), normal) < 0.0
                            ? -cross(seen[i].direction, seen[j].direction).length()
                            : cross(seen[i].direction, seen[j].direction).length();
    const double product = seen[i].length * seen[j].length;
    onEdge = product + cosine <= 1e-12 * product;
    return onEdge ? 0.0 : sine / (product + cosine);
  };
  bool onEdge = false;
  double before = halfTangent(count - 1, 0, onEdge);
  const auto edge = [&](std::size_t i, std::size_t j) {
    const double t = seen[i].length / (seen[i].length + seen[j].length);
    only(i);
    weights[i] = 1.0 - t;
    weights[j] = t;
  };
  if (onEdge) return edge(count - 1, 0);
  double sum = 0.0;
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t j = (i + 1) % count;
    const double after = halfTangent(i, j, onEdge);
    if (onEdge) return edge(i, j);
    weights[i] = (before + after) / seen[i].length;
    sum += weights[i];
    before = after;
  }
  if (sum == 0.0) return only(0);
  for (std::size_t i = 0; i < count; ++i) weights[i] /= sum;
}

// Hanika, Hacking the Shadow Terminator, Ray Tracing Gems II, 2021.
bool Surface::findSmooth(const SurfacePoint& point, bool seenFromBehind, Vec3f& toSmooth) const {
  if (normals_.spread != Spread::point && normals_.spread != Spread::corner) return false;
  const auto f = static_cast<std::size_t>(point.face());
  weigh(point);
  const double* weights = point.weights();
  const int* corners = shape_.indices.cdata() + starts_[f];
  const Vec3f* normals = normals_.values.cdata();
  const auto cornerPoint = [&](std::size_t i) {
    return Vec3d(shape_.points[static_cast<std::size_t>(corners[i])]);
  };
  Vec3d flat = tarn::areaVector(point.count_, cornerPoint);
  if (shape_.leftHanded) flat = -flat;
  flat.normalize();
  Vec3d sum;
  for (std::size_t i = 0; i < point.count_; ++i) {
    const auto p = static_cast<std::size_t>(corners[i]);
    Vec3d normal =
        Vec3d(normals[normals_.spread == Spread::point ? p : starts_[f] + i]).normalized();
    if (!(dot(normal, flat) > 0.7)) return false;
    if (seenFromBehind) normal = -normal;
    const double above = dot(Vec3d(point.objectPoint()) - cornerPoint(i), normal);
    if (above < 0.0 && weights[i] > 0.0) sum -= normal * (above * weights[i]);
  }
  toSmooth = Vec3f(sum);
  return true;
}

Vec3f Surface::colour(const SurfacePoint& point) const {
  if (colours_.spread == Spread::none) return kNeutral;
  const Vec3f colour = at(colours_, point);
  // A NaN would stay in the pixel whatever else is added.
  const bool isColour =
      std::isfinite(colour.x) && std::isfinite(colour.y) && std::isfinite(colour.z);
  return isColour ? colour : kNeutral;
}

namespace {

// The values of a primvar of so many numbers, parted after the third; false when there is none.
bool readParted(const ovo::Primvar& primvar, int components, double time, ovo::Array<Vec3f>& head,
                ovo::Array<Vec3f>& tail) {
  if (!primvar.isValid() || primvar.elementSize() != 1) return false;
  const auto put = [&](const auto& values, const auto& headOf) {
    head.resize(values.size());
    Vec3f* out = head.data();
    for (const auto& value : values.view()) *out++ = headOf(value);
    return true;
  };
  ovo::Array<float> ones;
  ovo::Array<int> wholes;
  ovo::Array<tarn::Vec2f> twos;
  ovo::Array<tarn::Vec4f> fours;
  switch (components) {
    case 1:
      if (primvar.computeFlattened(ones, time))
        return put(ones, [](float v) { return Vec3f(v, 0.0f, 0.0f); });
      return primvar.computeFlattened(wholes, time) &&
             put(wholes, [](int v) { return Vec3f(static_cast<float>(v), 0.0f, 0.0f); });
    case 2:
      return primvar.computeFlattened(twos, time) &&
             put(twos, [](const tarn::Vec2f& v) { return Vec3f(v.x, v.y, 0.0f); });
    case 3: return primvar.computeFlattened(head, time);
    case 4: {
      if (!primvar.computeFlattened(fours, time)) return false;
      tail.resize(fours.size());
      Vec3f* out = tail.data();
      for (const tarn::Vec4f& v : fours.view()) *out++ = Vec3f(v.w, 0.0f, 0.0f);
      return put(fours, [](const tarn::Vec4f& v) { return Vec3f(v.x, v.y, v.z); });
    }
    default: return false;
  }
}

}  // namespace

std::optional<std::size_t> Surface::addPrimvar(const ovo::Token& name, int components) {
  const ovo::Primvar from = shape_.prim.findInheritedPrimvar(name);
  Primvar4 read;
  if (name.isEmpty() || !readParted(from, components, time_, read.head.values, read.tail.values))
    return std::nullopt;
  const ovo::Token interpolation = from.interpolation();
  // The faces of a made mesh are not known to the scene.
  if (!shape_.tubes && !shape_.prim.isValid() && interpolation != ovo::tokens().constant)
    return std::nullopt;
  for (Values* values : {&read.head, &read.tail}) {
    if (values->values.empty()) continue;
    if (shape_.tubes && !carryOverTubes(*shape_.tubes, interpolation, values->values))
      return std::nullopt;
    if (shape_.refinement && !carryOverRefined(shape_, time_, interpolation, values->values))
      return std::nullopt;
    values->spread = spreadOf(interpolation, values->values.size());
    if (values->spread == Spread::none) return std::nullopt;
  }
  if (read.head.spread == Spread::none) return std::nullopt;
  primvars_.push_back(std::move(read));
  return primvars_.size() - 1;
}

tarn::Vec4f Surface::primvar(std::size_t number, const SurfacePoint& point) const {
  const Primvar4& from = primvars_[number];
  const Vec3f head = at(from.head, point);
  const float last = from.tail.spread == Spread::none ? 0.0f : at(from.tail, point).x;
  return {head.x, head.y, head.z, last};
}

tarn::Vec4f Surface::primvarAt(std::size_t number, int face, int point, int faceVertex) const {
  const auto one = [&](const Values& values) {
    switch (values.spread) {
      case Spread::none: return Vec3f();
      case Spread::constant: return values.values.view()[0];
      case Spread::face: return values.values.view()[face];
      case Spread::point: return values.values.view()[point];
      default: return values.values.view()[faceVertex];
    }
  };
  const Vec3f head = one(primvars_[number].head);
  return {head.x, head.y, head.z, one(primvars_[number].tail).x};
}

Vec3f Surface::normal(const SurfacePoint& point) const { return at(normals_, point); }

void Surface::setSelection(bool whole, const std::vector<float>& faces,
                           const std::vector<float>& points) {
  isSelected_ = whole;
  selectedFaces_ = faces;
  if (points.empty()) return;
  const std::size_t count = shape_.tubes        ? shape_.tubes->scenePoints.size()
                            : shape_.refinement ? shape_.refinement->points.size()
                                                : shape_.points.size();
  selectedPoints_.values.assign(count, Vec3f());
  Vec3f* out = selectedPoints_.values.data();
  for (std::size_t i = 0; i < std::min(points.size(), count); ++i)
    out[i] = Vec3f(std::clamp(points[i], 0.0f, 1.0f));
  if (shape_.refinement)
    selectedPoints_.values = spreadOverRefinedPoints(shape_, time_, selectedPoints_.values);
  if (shape_.tubes && !carryOverTubes(*shape_.tubes, ovo::tokens().vertex, selectedPoints_.values))
    return;
  selectedPoints_.spread = Spread::point;
}

float Surface::selection(const SurfacePoint& point) const {
  if (isSelected_) return 1.0f;
  const auto f = static_cast<std::size_t>(shape_.sceneFace(point.face()));
  const float ofFace = f < selectedFaces_.size() ? std::clamp(selectedFaces_[f], 0.0f, 1.0f) : 0.0f;
  const float ofPoints =
      selectedPoints_.spread == Spread::none ? 0.0f : at(selectedPoints_, point).x;
  return std::max(ofFace, ofPoints);
}

// Sums of the faces' normals, weighted by area (Newell's sum), at each point. Where edges may be
// sharp each corner has its own sum, of the faces around its point that are turned little from its
// own.
void Surface::smoothNormals() {
  const tarn::Span<const Vec3f> points = shape_.points.view();
  const ovo::Faces faces(shape_.counts, shape_.indices);
  const auto areaOf = [&](const ovo::Face& face) {
    const Vec3d area =
        tarn::areaVector(face.size(), [&](std::size_t k) { return Vec3d(points[face[k]]); });
    return shape_.leftHanded ? -area : area;
  };

  if (!mayHaveSharpEdges()) {
    std::vector<Vec3d> sums(points.size());
    for (const ovo::Face face : faces) {
      if (!face.isUsable(points.size())) continue;
      const Vec3d area = areaOf(face);
      for (const int p : face) sums[static_cast<std::size_t>(p)] += area;
    }
    normals_.values.resize(sums.size());
    Vec3f* out = normals_.values.data();
    for (std::size_t i = 0; i < sums.size(); ++i) out[i] = Vec3f(sums[i].normalized());
    normals_.spread = Spread::point;
    return;
  }

  // The faces around each point: those of point p are facesAt[first[p]] up to facesAt[first[p +
  // 1]].
  std::vector<Vec3d> areas(faces.size());
  std::vector<std::size_t> first(points.size() + 2, 0);
  for (const ovo::Face face : faces) {
    if (!face.isUsable(points.size())) continue;
    areas[face.index()] = areaOf(face);
    for (const int p : face) ++first[static_cast<std::size_t>(p) + 2];
  }
  for (std::size_t p = 2; p < first.size(); ++p) first[p] += first[p - 1];
  std::vector<std::uint32_t> facesAt(first.back());
  for (const ovo::Face face : faces) {
    if (!face.isUsable(points.size())) continue;
    for (const int p : face)
      facesAt[first[static_cast<std::size_t>(p) + 1]++] = static_cast<std::uint32_t>(face.index());
  }

  constexpr double kSharp = 0.6;  // the cosine of 53 degrees
  normals_.values.resize(shape_.indices.size());
  Vec3f* out = normals_.values.data();
  for (const ovo::Face face : faces) {
    if (!face.isUsable(points.size())) continue;
    const Vec3d& own = areas[face.index()];
    const double length = own.length();
    for (std::size_t k = 0; k < face.size(); ++k) {
      const auto p = static_cast<std::size_t>(face[k]);
      Vec3d sum;
      for (std::size_t i = first[p]; i < first[p + 1]; ++i) {
        const Vec3d& other = areas[facesAt[i]];
        if (dot(other, own) >= kSharp * length * other.length()) sum += other;
      }
      out[face.firstVertex() + k] = Vec3f(sum.normalized());
    }
  }
  normals_.spread = Spread::corner;
}

// A surface that refinement makes smooth everywhere has none.
bool Surface::mayHaveSharpEdges() const {
  if (!shape_.refinement || shape_.prim.getSubdivisionScheme() == ovo::tokens().bilinear)
    return true;
  ovo::Array<float> creases, corners;
  const ovo::Tokens& names = ovo::tokens();
  shape_.prim.getAttr(names.creaseSharpnesses).get(creases, time_);
  shape_.prim.getAttr(names.cornerSharpnesses).get(corners, time_);
  return !creases.empty() || !corners.empty();
}

}  // namespace vela::scene
