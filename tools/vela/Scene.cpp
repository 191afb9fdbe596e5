#include "Scene.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <optional>
#include <set>

#include "Failure.h"
#include "Instances.h"
#include "Interrupt.h"
#include "Refine.h"
#include "ovo/Tokens.h"
#include "vela/log/Log.h"

namespace command {

namespace {

using tarn::Vec3;

// Types that have a shape of their own but no polygons that a ray could be held against.
bool hasShapeButNoFaces(const std::string& type) {
  static const std::set<std::string> types = {
      "Points", "BasisCurves", "NurbsCurves", "HermiteCurves", "NurbsPatch", "TetMesh", "Volume"};
  return types.count(type) > 0;
}

bool isFinite(const Vec3<float>& p) {
  return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z);
}

constexpr Vec3<float> kNeutral{0.5f, 0.5f, 0.5f};

}  // namespace

std::shared_ptr<ovo::Stage> openStage(const char* verb, const std::string& file) {
  std::string why;
  std::shared_ptr<ovo::Stage> stage = ovo::Stage::open(file, &why);
  throwIfInterrupted();
  if (!stage)
    throw Failure{kBadInput, "cannot open the scene", file, why,
                  "name a .usd, .usda, .usdc or .usdz file"};

  Halden::Log::write(Halden::Log::message, "opened " + file);

  // A scene that is partly missing is shown as far as it goes.
  constexpr std::size_t kMostLines = 20;
  const std::vector<std::string> problems = stage->problems();
  for (std::size_t i = 0; i < std::min(problems.size(), kMostLines); ++i)
    std::fprintf(stderr, "vela %s: warning: %s: %s\n", verb, file.c_str(), problems[i].c_str());
  if (problems.size() > kMostLines)
    std::fprintf(stderr, "vela %s: warning: %s: %zu more like these\n", verb, file.c_str(),
                 problems.size() - kMostLines);
  return stage;
}

Shape readShape(const ovo::MeshPrim& prim, double time) {
  Shape shape;
  shape.prim = prim;
  bool reverseWinding = false;
  prim.getPoints(shape.points, time);
  prim.getFaceTopology(shape.counts, shape.indices, reverseWinding, time);
  shape.leftHanded = prim.getOrientation() == ovo::tokens().leftHanded;
  return shape;
}

bool ShapeReader::isWantedType(const ovo::Prim& prim) const {
  const std::vector<std::string>& types = filter_.includedTypes;
  return types.empty() ||
         std::find(types.begin(), types.end(), prim.getTypeName().asString()) != types.end();
}

bool ShapeReader::isWantedPurpose(const ovo::Token& purpose) const {
  return std::find(filter_.purposes.begin(), filter_.purposes.end(), purpose.asString()) !=
         filter_.purposes.end();
}

bool ShapeReader::isExcluded(const ovo::Prim& prim) const {
  return std::any_of(
      filter_.excludedPaths.begin(), filter_.excludedPaths.end(),
      [&](const std::string& path) { return prim.getPath().hasPrefix(ovo::Path(path)); });
}

std::optional<std::uint32_t> ShapeReader::find(const ovo::Prim& prim) {
  if (const auto found = known_.find(prim); found != known_.end()) return found->second;
  std::optional<std::uint32_t> shape;
  if (const ovo::MeshPrim mesh(prim); mesh.isValid()) {
    shape = static_cast<std::uint32_t>(list_.shapes.size());
    list_.shapes.push_back(readShape(mesh, filter_.time));
  } else if (MadeMesh made; shapePrims_.make(prim, filter_.time, made)) {
    shape = static_cast<std::uint32_t>(list_.shapes.size());
    list_.shapes.push_back({mesh, made.points, made.counts, made.indices, made.normals});
  } else if (hasShapeButNoFaces(prim.getTypeName().asString())) {
    ++list_.notShown[prim.getTypeName().asString()];
  }
  known_.emplace(prim, shape);
  return shape;
}

MeshList listMeshes(const ovo::Stage& stage, const MeshFilter& filter) {
  MeshList list;
  ovo::XformCache xforms(filter.time);
  ShapeReader shapes(list, filter);
  InstanceExpander instances(stage, list, filter, shapes);
  const ovo::Tokens& names = ovo::tokens();

  // Depth first with a stack of its own: scenes may be nested deeper than the process's stack.
  std::vector<ovo::Prim> open, children;
  const auto push = [&](const ovo::Prim& parent) {
    parent.getChildren(children, true, false, true);
    open.insert(open.end(), children.rbegin(), children.rend());
  };
  push(stage.getRootPrim());
  while (!open.empty()) {
    throwIfInterrupted();
    const ovo::Prim prim = open.back();
    open.pop_back();
    if (shapes.isExcluded(prim)) continue;

    const bool isSeen = filter.withInvisible || prim.isVisible(filter.time);
    // What lies below an instancer are its prototypes: drawn where they stand they would be strays.
    if (prim.getTypeName() == names.PointInstancer) {
      if (isSeen) instances.expand(prim, xforms.getLocalToWorld(prim), kNoInstance, prim.purpose());
      continue;
    }
    if (isSeen && shapes.isWantedType(prim) && shapes.isWantedPurpose(prim.purpose()))
      if (const std::optional<std::uint32_t> shape = shapes.find(prim))
        list.entries.push_back(
            {ovo::MeshPrim(prim), xforms.getLocalToWorld(prim), *shape, kNoInstance});
    push(prim);
  }
  refineShapes(list, filter.time, filter.subdivisionLevel);
  return list;
}

std::string nameOf(const MeshList& list, std::size_t entry) {
  const MeshEntry& from = list.entries[entry];
  const ovo::Path& path = from.prim.getPath();
  std::string places;
  for (std::uint32_t i = from.instance; i != kNoInstance; i = list.instances[i].parent) {
    const ovo::Path& instancer = list.instancers[list.instances[i].instancer].getPath();
    const std::string named = path.hasPrefix(instancer) ? "" : instancer.asString() + " ";
    places.insert(0, "[" + named + std::to_string(list.instances[i].index) + "]");
  }
  return path.asString() + places;
}

void reportNotShown(const char* verb, const MeshList& list) {
  if (list.badInstances > 0)
    std::fprintf(stderr,
                 "vela %s: note: %zu instance%s no prototype or no position and %s left out\n",
                 verb, list.badInstances, list.badInstances == 1 ? " has" : "s have",
                 list.badInstances == 1 ? "is" : "are");
  if (!list.notRefined.empty())
    std::fprintf(stderr, "vela %s: note: %zu subdivision surface%s shown unrefined%s %s\n", verb,
                 list.notRefined.size(), list.notRefined.size() == 1 ? " is" : "s are",
                 list.notRefined.size() == 1 ? ":" : ", the first", list.notRefined[0].c_str());
  if (list.notShown.empty()) return;
  std::size_t total = 0;
  std::string types;
  for (const auto& [type, count] : list.notShown) {
    total += count;
    types += (types.empty() ? "" : ", ") + std::to_string(count) + " " + type;
  }
  std::fprintf(stderr, "vela %s: note: %zu prim%s cannot be shown yet and %s left out: %s\n", verb,
               total, total == 1 ? "" : "s", total == 1 ? "is" : "are", types.c_str());
}

void forEachPrim(const ovo::Stage& stage, const std::function<bool(const ovo::Prim&)>& visit) {
  std::vector<ovo::Prim> open{stage.getRootPrim()}, children;
  while (!open.empty()) {
    throwIfInterrupted();
    const ovo::Prim prim = open.back();
    open.pop_back();
    if (!visit(prim)) continue;
    prim.getChildren(children, true, false, true);
    open.insert(open.end(), children.rbegin(), children.rend());
  }
}

std::vector<ovo::CameraPrim> listCameras(const ovo::Stage& stage) {
  std::vector<ovo::CameraPrim> cameras;
  forEachPrim(stage, [&](const ovo::Prim& prim) {
    const ovo::CameraPrim camera(prim);
    if (camera.isValid()) cameras.push_back(camera);
    return prim.getTypeName() != ovo::tokens().PointInstancer;
  });
  return cameras;
}

Extent extentOf(const MeshList& list) {
  // 98 directions, all over a cube's surface. A box alone would leave much air around a round
  // object.
  constexpr std::size_t kDirections = 98;
  std::array<Vec3<double>, kDirections> directions, farthest;
  std::array<double, kDirections> reach;
  reach.fill(-std::numeric_limits<double>::infinity());
  std::size_t next = 0;
  for (int x = -2; x <= 2; ++x)
    for (int y = -2; y <= 2; ++y)
      for (int z = -2; z <= 2; ++z)
        if (std::max({std::abs(x), std::abs(y), std::abs(z)}) == 2)
          directions[next++] = Vec3<double>(x, y, z);

  Extent extent;
  const auto add = [&](const Vec3<double>& world) {
    if (!std::isfinite(world.x) || !std::isfinite(world.y) || !std::isfinite(world.z)) return;
    extent.box.extendBy(world);
    for (std::size_t d = 0; d < kDirections; ++d) {
      const double along = dot(world, directions[d]);
      if (along > reach[d]) {
        reach[d] = along;
        farthest[d] = world;
      }
    }
  };

  std::vector<std::optional<tarn::Box3<double>>> boxes(list.shapes.size());
  for (const MeshEntry& entry : list.entries) {
    throwIfInterrupted();
    const ovo::Array<Vec3<float>>& points = list.shapes[entry.shape].points;
    if (entry.instance == kNoInstance) {
      for (const Vec3<float>& p : points)
        if (isFinite(p)) add(entry.worldFromObject.transformPoint(Vec3<double>(p)));
      continue;
    }
    // Instances are too many for all their points.
    std::optional<tarn::Box3<double>>& box = boxes[entry.shape];
    if (!box) {
      box.emplace();
      for (const Vec3<float>& p : points)
        if (isFinite(p)) box->extendBy(Vec3<double>(p));
    }
    if (box->isEmpty()) continue;
    for (int i = 0; i < 8; ++i)
      add(entry.worldFromObject.transformPoint({i & 1 ? box->max.x : box->min.x,
                                                i & 2 ? box->max.y : box->min.y,
                                                i & 4 ? box->max.z : box->min.z}));
  }
  if (!extent.box.isEmpty()) extent.outermost.assign(farthest.begin(), farthest.end());
  return extent;
}

// ---- Surfaces

Surface::Surface(const Shape& shape, double time, bool smooth) : shape_(shape), time_(time) {
  const ovo::Tokens& names = ovo::tokens();

  // A face of a negative count takes no room: the tracer never reports it, and later faces keep
  // their places.
  starts_.reserve(shape_.counts.size());
  std::size_t start = 0;
  for (const int count : static_cast<const ovo::Array<int>&>(shape_.counts)) {
    starts_.push_back(start);
    if (count > 0) start += static_cast<std::size_t>(count);
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

std::size_t Surface::triangleCount() const {
  std::size_t triangles = 0;
  for (const int count : static_cast<const ovo::Array<int>&>(shape_.counts))
    if (count > 2) triangles += static_cast<std::size_t>(count) - 2;
  return triangles;
}

// Values whose number does not fit their interpolation are not used: which of them belongs where is
// not known.
Surface::Spread Surface::spreadOf(const ovo::Token& interpolation, std::size_t count) const {
  const ovo::Tokens& names = ovo::tokens();
  if (count == 0) return Spread::none;
  if (interpolation == names.constant) return Spread::constant;
  if (interpolation == names.uniform)
    return count >= shape_.counts.size() ? Spread::face : Spread::none;
  if (interpolation == names.vertex || interpolation == names.varying)
    return count >= shape_.points.size() ? Spread::point : Spread::none;
  if (interpolation == names.faceVarying)
    return count >= shape_.indices.size() ? Spread::corner : Spread::none;
  return Spread::none;
}

Vec3<float> Surface::at(const Values& values, int face, const Vec3<float>& objectPoint) const {
  const auto f = static_cast<std::size_t>(face);
  const Vec3<float>* data = values.values.cdata();
  if (values.spread == Spread::constant) return data[0];
  if (values.spread == Spread::face) return data[f];

  Weights weights;
  weigh(face, objectPoint, weights);
  const int* corners = shape_.indices.cdata() + starts_[f];
  Vec3<double> sum;
  for (std::size_t i = 0; i < weights.count; ++i)
    if (weights.data[i] != 0.0)
      sum +=
          Vec3<double>(values.spread == Spread::point ? data[static_cast<std::size_t>(corners[i])]
                                                      : data[starts_[f] + i]) *
          weights.data[i];
  return Vec3<float>(sum);
}

// Mean value coordinates, which add up to 1.
void Surface::weigh(int face, const Vec3<float>& objectPoint, Weights& weights) const {
  const auto f = static_cast<std::size_t>(face);
  const std::size_t count = static_cast<std::size_t>(shape_.counts[f]);
  const int* corners = shape_.indices.cdata() + starts_[f];
  weights.start(count);

  // Corners as seen from the point. On a corner, or on the edge between two, only those count.
  struct Corner {
    Vec3<double> direction;
    double length;
  };
  std::array<Corner, 16> few;
  std::vector<Corner> many;
  Corner* seen = few.data();
  if (count > few.size()) {
    many.resize(count);
    seen = many.data();
  }
  const Vec3<double> p(objectPoint);
  double size = 0.0;
  for (std::size_t i = 0; i < count; ++i) {
    seen[i].direction = Vec3<double>(shape_.points[static_cast<std::size_t>(corners[i])]) - p;
    seen[i].length = seen[i].direction.length();
    size = std::max(size, seen[i].length);
  }
  const auto only = [&](std::size_t i) {
    std::fill_n(weights.data, count, 0.0);
    weights.data[i] = 1.0;
  };
  if (!(size > 0.0) || !std::isfinite(size)) return only(0);
  for (std::size_t i = 0; i < count; ++i)
    if (seen[i].length <= 1e-7 * size) return only(i);

  // The weight of a corner is the sum of tan(half angle) to both neighbours, over its distance. The
  // sign of an angle comes from the polygon's own normal, so that concave corners count right.
  Vec3<double> normal;
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
    weights.data[i] = 1.0 - t;
    weights.data[j] = t;
  };
  if (onEdge) return edge(count - 1, 0);
  double sum = 0.0;
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t j = (i + 1) % count;
    const double after = halfTangent(i, j, onEdge);
    if (onEdge) return edge(i, j);
    weights.data[i] = (before + after) / seen[i].length;
    sum += weights.data[i];
    before = after;
  }
  if (sum == 0.0) return only(0);
  for (std::size_t i = 0; i < count; ++i) weights.data[i] /= sum;
}

// Hanika, Hacking the Shadow Terminator, Ray Tracing Gems II, 2021.
bool Surface::findSmooth(int face, const Vec3<float>& objectPoint, bool seenFromBehind,
                         Vec3<float>& way) const {
  if (normals_.spread != Spread::point && normals_.spread != Spread::corner) return false;
  const auto f = static_cast<std::size_t>(face);
  Weights weights;
  weigh(face, objectPoint, weights);
  const int* corners = shape_.indices.cdata() + starts_[f];
  const Vec3<float>* normals = normals_.values.cdata();
  const auto place = [&](std::size_t i) {
    return Vec3<double>(shape_.points[static_cast<std::size_t>(corners[i])]);
  };
  Vec3<double> flat;
  for (std::size_t i = 1; i + 1 < weights.count; ++i)
    flat += cross(place(i) - place(0), place(i + 1) - place(0));
  if (shape_.leftHanded) flat = -flat;
  flat.normalize();
  Vec3<double> sum;
  for (std::size_t i = 0; i < weights.count; ++i) {
    const auto point = static_cast<std::size_t>(corners[i]);
    Vec3<double> normal =
        Vec3<double>(normals[normals_.spread == Spread::point ? point : starts_[f] + i])
            .normalized();
    if (!(dot(normal, flat) > 0.7)) return false;
    if (seenFromBehind) normal = -normal;
    const double above = dot(Vec3<double>(objectPoint) - place(i), normal);
    if (above < 0.0 && weights.data[i] > 0.0) sum -= normal * (above * weights.data[i]);
  }
  way = Vec3<float>(sum);
  return true;
}

Vec3<float> Surface::colour(int face, const Vec3<float>& objectPoint) const {
  return colours_.spread == Spread::none ? kNeutral : at(colours_, face, objectPoint);
}

Vec3<float> Surface::normal(int face, const Vec3<float>& objectPoint) const {
  return at(normals_, face, objectPoint);
}

void Surface::setSelection(bool whole, const std::vector<float>& faces,
                           const std::vector<float>& points) {
  isSelected_ = whole;
  selectedFaces_ = faces;
  if (points.empty()) return;
  const std::size_t count =
      shape_.refinement ? shape_.refinement->points.size() : shape_.points.size();
  selectedPoints_.values.assign(count, Vec3<float>());
  Vec3<float>* out = selectedPoints_.values.data();
  for (std::size_t i = 0; i < std::min(points.size(), count); ++i)
    out[i] = Vec3<float>(std::clamp(points[i], 0.0f, 1.0f));
  if (shape_.refinement)
    selectedPoints_.values = spreadOverRefinedPoints(shape_, time_, selectedPoints_.values);
  selectedPoints_.spread = Spread::point;
}

float Surface::selection(int face, const Vec3<float>& objectPoint) const {
  if (isSelected_) return 1.0f;
  const auto f = static_cast<std::size_t>(shape_.sceneFace(face));
  const float ofFace = f < selectedFaces_.size() ? std::clamp(selectedFaces_[f], 0.0f, 1.0f) : 0.0f;
  const float ofPoints =
      selectedPoints_.spread == Spread::none ? 0.0f : at(selectedPoints_, face, objectPoint).x;
  return std::max(ofFace, ofPoints);
}

// Sums of the faces' normals, weighted by area (Newell's sum), at each point. Where edges may be
// sharp each corner has its own sum, of the faces around its point that are turned little from its
// own.
void Surface::smoothNormals() {
  const ovo::Array<Vec3<float>>& points = shape_.points;
  const std::size_t faces = shape_.counts.size();
  const auto cornersOf = [&](std::size_t f) {
    const int count = shape_.counts.cdata()[f];
    if (count < 3 || starts_[f] + static_cast<std::size_t>(count) > shape_.indices.size())
      return std::size_t{0};
    const int* corners = shape_.indices.cdata() + starts_[f];
    const auto isUsable = [&](int i) {
      return i >= 0 && static_cast<std::size_t>(i) < points.size();
    };
    return std::all_of(corners, corners + count, isUsable) ? static_cast<std::size_t>(count)
                                                           : std::size_t{0};
  };
  const auto areaOf = [&](std::size_t f, std::size_t count) {
    const int* corners = shape_.indices.cdata() + starts_[f];
    const auto place = [&](std::size_t i) {
      return Vec3<double>(points[static_cast<std::size_t>(corners[i])]);
    };
    Vec3<double> area;
    for (std::size_t i = 1; i + 1 < count; ++i)
      area += cross(place(i) - place(0), place(i + 1) - place(0));
    return shape_.leftHanded ? -area : area;
  };

  if (!mayHaveSharpEdges()) {
    std::vector<Vec3<double>> sums(points.size());
    for (std::size_t f = 0; f < faces; ++f) {
      const std::size_t count = cornersOf(f);
      const Vec3<double> area = areaOf(f, count);
      for (std::size_t i = 0; i < count; ++i)
        sums[static_cast<std::size_t>(shape_.indices.cdata()[starts_[f] + i])] += area;
    }
    normals_.values.resize(sums.size());
    Vec3<float>* out = normals_.values.data();
    for (std::size_t i = 0; i < sums.size(); ++i) out[i] = Vec3<float>(sums[i].normalized());
    normals_.spread = Spread::point;
    return;
  }

  // The faces around each point: those of point p are facesAt[first[p]] up to facesAt[first[p +
  // 1]].
  std::vector<Vec3<double>> areas(faces);
  std::vector<std::size_t> first(points.size() + 2, 0);
  for (std::size_t f = 0; f < faces; ++f) {
    const std::size_t count = cornersOf(f);
    areas[f] = areaOf(f, count);
    for (std::size_t i = 0; i < count; ++i)
      ++first[static_cast<std::size_t>(shape_.indices.cdata()[starts_[f] + i]) + 2];
  }
  for (std::size_t p = 2; p < first.size(); ++p) first[p] += first[p - 1];
  std::vector<std::uint32_t> facesAt(first.back());
  for (std::size_t f = 0; f < faces; ++f)
    for (std::size_t i = 0, count = cornersOf(f); i < count; ++i)
      facesAt[first[static_cast<std::size_t>(shape_.indices.cdata()[starts_[f] + i]) + 1]++] =
          static_cast<std::uint32_t>(f);

  constexpr double kSharp = 0.6;  // the cosine of 53 degrees
  normals_.values.resize(shape_.indices.size());
  Vec3<float>* out = normals_.values.data();
  for (std::size_t f = 0; f < faces; ++f) {
    const double length = areas[f].length();
    for (std::size_t i = 0, count = cornersOf(f); i < count; ++i) {
      const auto p = static_cast<std::size_t>(shape_.indices.cdata()[starts_[f] + i]);
      Vec3<double> sum;
      for (std::size_t k = first[p]; k < first[p + 1]; ++k)
        if (dot(areas[facesAt[k]], areas[f]) >= kSharp * length * areas[facesAt[k]].length())
          sum += areas[facesAt[k]];
      out[starts_[f] + i] = Vec3<float>(sum.normalized());
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

}  // namespace command
