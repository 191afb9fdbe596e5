#include "ovo/Subdivide.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string>
#include <utility>

#include "ovo/MeshPrim.h"
#include "ovo/Tokens.h"
#include "ovo/detail/SubdivideInput.h"
#include "ovo/detail/SubdivideLevels.h"
#include "ovo/detail/SubdivideParts.h"

namespace ovo {

namespace {

using namespace detail::subdivision;

bool schemeOf(const Token& name, Sdc::SchemeType& scheme) {
  const Tokens& t = tokens();
  if (name == t.catmullClark)
    scheme = Sdc::SCHEME_CATMARK;
  else if (name == t.loop)
    scheme = Sdc::SCHEME_LOOP;
  else if (name == t.bilinear)
    scheme = Sdc::SCHEME_BILINEAR;
  else
    return false;
  return true;
}

// True when every array is there and as long as the mesh asks.
bool hasAllArrays(std::size_t faces, std::size_t faceVerts, std::size_t points,
                  const MeshTessellateContext& context) {
  if (!context.vertsPerFace || !context.faceVertPointIndices || !context.points) return false;
  if (context.vertsPerFace->size() < faces || context.faceVertPointIndices->size() < faceVerts ||
      context.points->size() < points)
    return false;
  const auto fit = [](const auto& arrays, std::size_t count) {
    return std::all_of(arrays.begin(), arrays.end(),
                       [count](const auto* a) { return a && a->size() >= count; });
  };
  return fit(context.floats, faceVerts) && fit(context.vec2s, faceVerts) &&
         fit(context.vec3s, faceVerts) && fit(context.pointVec3s, points) &&
         fit(context.linearPointVec3s, points);
}

// Takes, refines and hands out; `why` is empty on success.
void subdivide(const Request& request, std::string& why) {
  const char* const kRefused = "the subdivision library refuses it";
  Input input;
  if (!takeInput(request, input, why)) return;
  Level& level = input.level;

  // All levels but the last. Boundaries that make holes of the faces along them do so once: the
  // holes are then known, and a second time would take the next row of faces.
  Sdc::Options options = optionsOf(request.args);
  if (request.levels > 1) {
    if (!refineWhole(request.levels - 1, request.scheme, options, level, input.perPoint,
                     input.perCorner)) {
      why = kRefused;
      return;
    }
    if (options.GetVtxBoundaryInterpolation() == Sdc::Options::VTX_BOUNDARY_NONE)
      options.SetVtxBoundaryInterpolation(Sdc::Options::VTX_BOUNDARY_EDGE_ONLY);
  }

  // The last.
  const LastLevel last(level, request.scheme == Sdc::SCHEME_LOOP);
  if (last.pointCount > kMaxIndex || last.faceCount * last.faceSize > kMaxIndex) {
    why = "the refined mesh would be too large to count";
    return;
  }
  FaceWriter out(last, input.perPoint, input.perCorner);
  if (!refineParts(request.scheme, options, last, input.perPoint, input.perCorner, out)) {
    why = kRefused;
    return;
  }

  // The points of the mesh come first, and stay in their order.
  const MeshTessellateContext& context = request.context;
  Array<int> refinedPointOf;
  if (context.refinedPointOf) {
    refinedPointOf.assign(input.pointOf.begin(), input.pointOf.end());
    if (!out.kept.empty())
      for (int& p : refinedPointOf)
        if (p >= 0) p = out.kept[at(p)];
  }

  // Nothing fails from here on.
  for (auto& data : input.perCorner) data->commit();
  *context.vertsPerFace = std::move(out.counts);
  *context.faceVertPointIndices = std::move(out.indices);
  for (PointData& data : input.perPoint) *data.target = std::move(data.result);
  if (context.sourceFaces) *context.sourceFaces = std::move(out.sourceFaces);
  if (context.refinedPointOf) *context.refinedPointOf = std::move(refinedPointOf);
}

}  // namespace

ArgSet::ArgSet()
    : scheme(tokens().catmullClark),
      interpolateBoundary("edgeAndCorner"),
      faceVaryingLinearInterpolation("cornersPlus1"),
      triangleSubdivisionRule(tokens().catmullClark) {}

ArgSet::ArgSet(const MeshPrim& prim, double time) : ArgSet() {
  if (!prim.isValid()) return;
  const Tokens& t = tokens();
  scheme = prim.getSubdivisionScheme();
  prim.getAttr(t.interpolateBoundary).get(interpolateBoundary, time);
  prim.getAttr(t.faceVaryingLinearInterpolation).get(faceVaryingLinearInterpolation, time);
  prim.getAttr(t.triangleSubdivisionRule).get(triangleSubdivisionRule, time);
  prim.getAttr(t.holeIndices).get(holeIndices, time);
  prim.getAttr(t.creaseIndices).get(creaseIndices, time);
  prim.getAttr(t.creaseLengths).get(creaseLengths, time);
  prim.getAttr(t.creaseSharpnesses).get(creaseSharpnesses, time);
  prim.getAttr(t.cornerIndices).get(cornerIndices, time);
  prim.getAttr(t.cornerSharpnesses).get(cornerSharpnesses, time);
}

bool subdivideUniform(const ArgSet& args, std::size_t faces, std::size_t faceVerts,
                      std::size_t points, int fromLevel, int toLevel,
                      const MeshTessellateContext& context) {
  return subdivideUniform(args, faces, faceVerts, points, fromLevel, toLevel, context, nullptr);
}

bool subdivideUniform(const ArgSet& args, std::size_t faces, std::size_t faceVerts,
                      std::size_t points, int fromLevel, int toLevel,
                      const MeshTessellateContext& context, std::string* error) {
  std::string why;
  Sdc::SchemeType scheme = Sdc::SCHEME_CATMARK;
  if (!hasAllArrays(faces, faceVerts, points, context)) {
    why = "an array is missing or too short";
  } else if (toLevel > fromLevel) {
    // More levels than an int holds are too many in any case.
    const auto levels = std::min<std::int64_t>(static_cast<std::int64_t>(toLevel) - fromLevel,
                                               std::numeric_limits<int>::max());
    if (schemeOf(args.scheme, scheme))
      subdivide({args, faces, faceVerts, points, context, scheme, static_cast<int>(levels)}, why);
    else
      why = "its scheme '" + args.scheme.asString() + "' is none of catmullClark, loop, bilinear";
  }
  const bool isRefined = why.empty();
  if (error) *error = std::move(why);
  return isRefined;
}

}  // namespace ovo
