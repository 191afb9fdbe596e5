#include "vela/scene/Refinement.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <string>
#include <utility>

#include "ovo/Faces.h"
#include "ovo/OpenOptions.h"
#include "ovo/Stage.h"
#include "ovo/Subdivide.h"
#include "ovo/Tokens.h"

namespace vela::scene {

namespace {

using tarn::Vec3f;

// How many faces the scene may have when it is refined.
double mostFaces(const MeshList& list) {
  for (const Shape& shape : list.shapes)
    if (const std::shared_ptr<ovo::Stage> stage = shape.prim.getStage())
      return static_cast<double>(ovo::openOptionsOf(*stage).faces);
  return static_cast<double>(ovo::OpenOptions().faces);
}

bool asksToBeRefined(const Shape& shape) {
  return shape.prim.isValid() && shape.prim.getSubdivisionScheme() != ovo::tokens().none;
}

// Faces after that many refinements, at the most: those with bad indices make none. A count that
// there are no indices for ends the mesh, and must not speak for faces that are not there.
double facesAt(const Shape& shape, int level) {
  double first = 0;
  const bool triangles = shape.prim.getSubdivisionScheme() == ovo::tokens().loop;
  for (const ovo::Face face : ovo::Faces(shape.counts, shape.indices))
    if (face.size() >= 3) first += triangles ? 4.0 : static_cast<double>(face.size());
  return std::ldexp(first, 2 * (level - 1));
}

double facesAt(const MeshList& list, int level) {
  double faces = 0;
  for (const Shape& shape : list.shapes)
    if (asksToBeRefined(shape)) faces += facesAt(shape, level);
  return faces;
}

Problem tooManyFaces(const MeshList& list, int level) {
  const auto largest = std::max_element(list.shapes.begin(), list.shapes.end(),
                                        [level](const Shape& a, const Shape& b) {
                                          return (asksToBeRefined(a) ? facesAt(a, level) : 0) <
                                                 (asksToBeRefined(b) ? facesAt(b, level) : 0);
                                        });
  Problem problem{Problem::Kind::tooManyFaces, Problem::Severity::error,
                  largest->prim.getPath().asString(),
                  "level " + std::to_string(level) + " makes " +
                      std::to_string(std::llround(facesAt(*largest, level))) + " of it and " +
                      std::to_string(std::llround(facesAt(list, level))) +
                      " of the scene, more than " + std::to_string(std::llround(mostFaces(list)))};
  problem.levelThatFits = level - 1;
  while (problem.levelThatFits > 0 && facesAt(list, problem.levelThatFits) > mostFaces(list))
    --problem.levelThatFits;
  return problem;
}

// Colours by their interpolation, ready to be carried. Empty when there are fewer of them than the
// interpolation needs.
struct Colours {
  ovo::Array<Vec3f> values;
  ovo::Token interpolation;
};

Colours coloursOf(const Shape& shape, double time) {
  const ovo::Tokens& names = ovo::tokens();
  Colours colours;
  const ovo::Primvar primvar = shape.prim.findInheritedPrimvar(names.displayColor);
  if (!primvar.isValid() || !primvar.computeFlattened(colours.values, time)) return {};
  colours.interpolation = primvar.interpolation();
  const std::size_t needed =
      colours.interpolation == names.constant      ? 1
      : colours.interpolation == names.uniform     ? shape.counts.size()
      : colours.interpolation == names.faceVarying ? shape.indices.size()
      : colours.interpolation == names.vertex || colours.interpolation == names.varying
          ? shape.points.size()
          : 0;
  if (needed == 0 || colours.values.size() < needed) return {};
  return colours;
}

bool refine(Shape& shape, double time, int level, std::string& why) {
  const ovo::Tokens& names = ovo::tokens();
  auto made = std::make_shared<Refinement>();
  made->level = level;
  made->counts = shape.counts;
  made->indices = shape.indices;
  made->points = shape.points;

  ovo::MeshTessellateContext context;
  context.vertsPerFace = &shape.counts;
  context.faceVertPointIndices = &shape.indices;
  context.points = &shape.points;
  context.sourceFaces = &made->sourceFaces;
  context.refinedPointOf = &made->refinedPointOf;
  Colours colours = coloursOf(shape, time);
  if (colours.interpolation == names.vertex) context.pointVec3s.push_back(&colours.values);
  if (colours.interpolation == names.varying) context.linearPointVec3s.push_back(&colours.values);
  if (colours.interpolation == names.faceVarying) context.vec3s.push_back(&colours.values);
  if (!ovo::subdivideUniform(ovo::ArgSet(shape.prim, time), shape.counts.size(),
                             shape.indices.size(), shape.points.size(), 0, level, context, &why))
    return false;

  if (colours.interpolation == names.uniform) {
    ovo::Array<Vec3f> spread(made->sourceFaces.size());
    Vec3f* out = spread.data();
    for (const int face : made->sourceFaces.view()) *out++ = colours.values.view()[face];
    colours.values = spread;
  }
  made->colours = std::move(colours.values);
  made->colourInterpolation = colours.interpolation;
  shape.refinement = std::move(made);
  return true;
}

}  // namespace

bool refineShapes(MeshList& list, double time, int level, Problem* problem, const Work& work) {
  if (level < 1) return true;
  if (facesAt(list, level) > mostFaces(list)) {
    if (problem) *problem = tooManyFaces(list, level);
    return false;
  }
  for (std::size_t i = 0; i < list.shapes.size(); ++i) {
    if (work.isStopped()) {
      if (problem) *problem = {Problem::Kind::stopped, Problem::Severity::error, "", "stopped"};
      return false;
    }
    work.report(static_cast<double>(i) / static_cast<double>(list.shapes.size()));
    Shape& shape = list.shapes[i];
    // What has no faces at the time has nothing to show either way.
    if (!asksToBeRefined(shape) || shape.points.empty() || shape.indices.empty()) continue;
    std::string why;
    if (!refine(shape, time, level, why))
      list.notRefined.push_back({Problem::Kind::notRefined, Problem::Severity::note,
                                 shape.prim.getPath().asString(), why});
  }
  work.report(1.0);
  return true;
}

bool carryOverRefined(const Shape& shape, double time, const ovo::Token& interpolation,
                      ovo::Array<Vec3f>& values) {
  const ovo::Tokens& names = ovo::tokens();
  const Refinement& from = *shape.refinement;
  if (interpolation == names.constant) return !values.empty();
  if (interpolation == names.uniform) {
    if (values.size() < from.counts.size()) return false;
    ovo::Array<Vec3f> spread(from.sourceFaces.size());
    Vec3f* out = spread.data();
    for (const int face : from.sourceFaces.view()) *out++ = values.view()[face];
    values = spread;
    return true;
  }
  const bool isOfCorners = interpolation == names.faceVarying;
  if (!isOfCorners && interpolation != names.vertex && interpolation != names.varying) return false;
  if (values.size() < (isOfCorners ? from.indices.size() : from.points.size())) return false;

  ovo::Array<int> counts = from.counts, indices = from.indices;
  ovo::Array<Vec3f> points = from.points, carried = values;
  ovo::MeshTessellateContext context;
  context.vertsPerFace = &counts;
  context.faceVertPointIndices = &indices;
  context.points = &points;
  (isOfCorners                      ? context.vec3s
   : interpolation == names.varying ? context.linearPointVec3s
                                    : context.pointVec3s)
      .push_back(&carried);
  if (!ovo::subdivideUniform(ovo::ArgSet(shape.prim, time), counts.size(), indices.size(),
                             points.size(), 0, from.level, context))
    return false;
  values = carried;
  return true;
}

ovo::Array<Vec3f> spreadOverRefinedPoints(const Shape& shape, double time,
                                          const ovo::Array<Vec3f>& values) {
  const Refinement& from = *shape.refinement;
  ovo::Array<int> counts = from.counts, indices = from.indices;
  ovo::Array<Vec3f> points = from.points, spread = values;
  spread.resize(points.size());
  ovo::MeshTessellateContext context;
  context.vertsPerFace = &counts;
  context.faceVertPointIndices = &indices;
  context.points = &points;
  context.linearPointVec3s.push_back(&spread);
  ovo::subdivideUniform(ovo::ArgSet(shape.prim, time), counts.size(), indices.size(), points.size(),
                        0, from.level, context);
  return spread;
}

}  // namespace vela::scene
