#include "vela/scene/detail/ShapeReader.h"

#include <algorithm>
#include <set>
#include <string>

#include "ovo/Tokens.h"
#include "vela/scene/CurvePrims.h"

namespace vela::scene::detail {

namespace {

// Types that have a shape of their own but no polygons that a ray could be held against.
bool hasShapeButNoFaces(const std::string& type) {
  static const std::set<std::string> types = {"NurbsCurves", "HermiteCurves", "NurbsPatch",
                                              "TetMesh", "Volume"};
  return types.count(type) > 0;
}

const ovo::Token& tokenOf(Purpose purpose) {
  const ovo::Tokens& names = ovo::tokens();
  switch (purpose) {
    case Purpose::render: return names.render;
    case Purpose::proxy: return names.proxy;
    case Purpose::guide: return names.guide;
    default: return names.default_;
  }
}

}  // namespace

bool ShapeReader::isWantedType(const ovo::Prim& prim) const {
  const std::vector<std::string>& types = filter_.includedTypes;
  return types.empty() ||
         std::find(types.begin(), types.end(), prim.getTypeName().asString()) != types.end();
}

bool ShapeReader::isWantedPurpose(const ovo::Token& purpose) const {
  return std::any_of(filter_.purposes.begin(), filter_.purposes.end(),
                     [&](Purpose wanted) { return tokenOf(wanted) == purpose; });
}

bool ShapeReader::isExcluded(const ovo::Prim& prim) const {
  return std::any_of(filter_.excludedPaths.begin(), filter_.excludedPaths.end(),
                     [&](const ovo::Path& path) { return prim.getPath().hasPrefix(path); });
}

bool ShapeReader::isInMask(const ovo::Prim& prim) const {
  const std::vector<ovo::Path>& mask = filter_.maskPaths;
  return mask.empty() || std::any_of(mask.begin(), mask.end(), [&](const ovo::Path& path) {
           return prim.getPath().hasPrefix(path);
         });
}

bool ShapeReader::isAboveMask(const ovo::Prim& prim) const {
  return std::any_of(filter_.maskPaths.begin(), filter_.maskPaths.end(),
                     [&](const ovo::Path& path) { return path.hasPrefix(prim.getPath()); });
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
  } else if (std::optional<Shape> curves = readCurves(prim, filter_.time)) {
    shape = static_cast<std::uint32_t>(list_.shapes.size());
    list_.shapes.push_back(*std::move(curves));
  } else if (hasShapeButNoFaces(prim.getTypeName().asString())) {
    ++list_.notShown[prim.getTypeName().asString()];
  }
  known_.emplace(prim, shape);
  return shape;
}

}  // namespace vela::scene::detail
