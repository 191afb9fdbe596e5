#include "ovo/MeshPrim.h"

#include <utility>

#include "ovo/Stage.h"
#include "ovo/Tokens.h"

namespace ovo {

using Points = Array<tarn::Vec3f>;

MeshPrim::MeshPrim() noexcept = default;
MeshPrim::MeshPrim(const Prim& prim) : XformablePrim(prim) {}

MeshPrim MeshPrim::define(const std::shared_ptr<Stage>& stage, const Path& path) {
  return stage ? MeshPrim(stage->definePrim(path, tokens().Mesh)) : MeshPrim();
}

bool MeshPrim::isValid() const noexcept {
  return Prim::isValid() && getTypeName() == tokens().Mesh;
}

bool MeshPrim::getPoints(Points& points, double time) const {
  return isValid() && getAttr(tokens().points).get(points, time);
}

bool MeshPrim::setPoints(const Points& points, double time) const {
  return isValid() && createPointsAttr().set(points, time);
}

bool MeshPrim::getFaceTopology(Array<int>& counts, Array<int>& indices, bool& reverseWinding,
                               double time) const {
  reverseWinding = false;
  if (!isValid()) return false;
  Array<int> readCounts, readIndices;
  if (!getAttr(tokens().faceVertexCounts).get(readCounts, time) ||
      !getAttr(tokens().faceVertexIndices).get(readIndices, time))
    return false;
  counts = std::move(readCounts);
  indices = std::move(readIndices);
  return true;
}

Attribute MeshPrim::createPointsAttr() const {
  return isValid() ? createAttr(tokens().points, "point3f[]") : Attribute();
}
Attribute MeshPrim::createFaceVertexCountsAttr() const {
  return isValid() ? createAttr(tokens().faceVertexCounts, "int[]") : Attribute();
}
Attribute MeshPrim::createFaceVertexIndicesAttr() const {
  return isValid() ? createAttr(tokens().faceVertexIndices, "int[]") : Attribute();
}

tarn::Box3f MeshPrim::getBoundsBox(double time, bool useExtent) const {
  tarn::Box3f box;
  if (!isValid()) return box;
  if (useExtent) {
    Points extent;
    if (getAttr(tokens().extent).get(extent, time) && extent.size() == 2) {
      const Points& corners = extent;
      return tarn::Box3f(corners[0], corners[1]);
    }
  }
  Points points;
  getPoints(points, time);
  for (const tarn::Vec3f& point : std::as_const(points)) box.extendBy(point);
  return box;
}

bool MeshPrim::writeExtent(double time) const {
  const tarn::Box3f box = getBoundsBox(time, false);
  if (box.isEmpty()) return false;
  return createAttr(tokens().extent, "float3[]").set(Points{box.min, box.max}, time);
}

Token MeshPrim::getSubdivisionScheme() const {
  Token scheme;
  if (isValid()) getAttr(tokens().subdivisionScheme).get(scheme);
  return scheme;
}

bool MeshPrim::setSubdivisionScheme(const Token& scheme) const {
  return isValid() && createAttr(tokens().subdivisionScheme, "token").set(scheme);
}

Token MeshPrim::getOrientation() const {
  Token orientation;
  if (isValid()) getAttr(tokens().orientation).get(orientation);
  return orientation;
}

bool MeshPrim::setOrientation(const Token& orientation) const {
  return isValid() && createAttr(tokens().orientation, "token").set(orientation);
}

bool MeshPrim::isDoubleSided() const {
  bool doubleSided = false;
  if (isValid()) getAttr(tokens().doubleSided).get(doubleSided);
  return doubleSided;
}

Primvar MeshPrim::getNormalsPrimvar() const {
  return isValid() ? getPrimvar(tokens().normals) : Primvar();
}

bool MeshPrim::getNormals(Points& normals, Token& interpolation, double time) const {
  const Primvar primvar = getNormalsPrimvar();
  if (!primvar.isValid() || !primvar.computeFlattened(normals, time)) return false;
  interpolation = primvar.interpolation();
  return true;
}

bool MeshPrim::setNormals(const Points& normals, const Token& interpolation, double time) const {
  if (!isValid()) return false;
  const Primvar primvar{createAttr(tokens().normals, "normal3f[]")};
  return primvar.isValid() && primvar.setInterpolation(interpolation) && primvar.set(normals, time);
}

}  // namespace ovo
