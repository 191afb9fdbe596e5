#include "vela/mesh/MeshSample.h"

#include <algorithm>
#include <initializer_list>
#include <string>
#include <utility>

#include "ovo/Primvar.h"
#include "ovo/Subdivide.h"
#include "ovo/Tokens.h"
#include "ovo/Xform.h"
#include "vela/mesh/MeshNormals.h"

namespace vela {

namespace {

using tarn::Vec3f;

// The first of the names that the prim itself has a primvar for; else the first that it inherits.
ovo::Primvar findPrimvar(const ovo::MeshPrim& prim, std::initializer_list<ovo::Token> names) {
  for (const ovo::Token& name : names) {
    ovo::Primvar own = prim.getPrimvar(name);
    if (own.isValid()) return own;
  }
  for (const ovo::Token& name : names) {
    ovo::Primvar inherited = prim.findInheritedPrimvar(name);
    if (inherited.isValid()) return inherited;
  }
  return {};
}

// The counts that tell how a list of values lies over a mesh.
struct Extents {
  std::size_t points;
  const ovo::Array<std::int32_t>& counts;
  const ovo::Array<std::int32_t>& indices;
  bool reverseWinding;
};

// Calls use(first, n) for each face, in order, as far as the face-vertices go.
// KEEP(cut-off-run): a face that reaches past the end of the indices takes what is left of them,
// where ovo::Faces would make it empty. The values of a sample go with the indices as they are
// stored, one for each, whatever the counts say.
template <class Use>
void forEachRun(const Extents& mesh, Use&& use) {
  std::size_t first = 0;
  for (const std::int32_t count : mesh.counts) {
    const std::size_t left = mesh.indices.size() - first;
    const std::size_t n = count > 0 ? std::min(static_cast<std::size_t>(count), left) : 0;
    use(first, n);
    first += n;
  }
}

// Reads a primvar as one value a face-vertex.
template <class T>
void readPrimvar(const ovo::Primvar& primvar, double time, const Extents& mesh,
                 ovo::Array<T>& out) {
  if (!primvar.isValid()) return;
  ovo::Array<T> read;
  if (!primvar.computeFlattened(read, time) || read.empty()) {
    out.clear();
    return;
  }
  const ovo::Tokens& t = ovo::tokens();
  const ovo::Token interpolation = primvar.interpolation();
  const std::size_t nVerts = mesh.indices.size();

  // Per face-vertex: as it is, or reversed with the faces.
  if (interpolation == t.faceVarying) {
    out = std::move(read);
    if (out.size() == nVerts && mesh.reverseWinding && nVerts > 1) {
      T* const values = out.data();
      forEachRun(mesh, [values](std::size_t first, std::size_t n) {
        std::reverse(values + first, values + first + n);
      });
    }
    return;
  }

  const ovo::Array<T>& values = read;
  // Per point. An index that names no point gets a zero.
  if ((interpolation == t.vertex || interpolation == t.varying) && values.size() == mesh.points) {
    out.clear();
    out.resize(nVerts);
    T* to = out.data();
    for (const std::int32_t index : mesh.indices) {
      if (index >= 0 && static_cast<std::size_t>(index) < mesh.points)
        *to = values[static_cast<std::size_t>(index)];
      ++to;
    }
    return;
  }
  // Per face.
  if (interpolation == t.uniform && values.size() == mesh.counts.size()) {
    out.clear();
    out.resize(nVerts);
    T* const to = out.data();
    const T* from = values.cdata();
    forEachRun(mesh, [to, &from](std::size_t first, std::size_t n) {
      std::fill_n(to + first, n, *from++);
    });
    return;
  }
  // Anything else: the first value everywhere.
  out.assign(nVerts, values.front());
}

// The interpolation under which a list of that many values reads back the same.
ovo::Token interpolationFor(std::size_t count, const MeshSample& mesh) {
  const ovo::Tokens& t = ovo::tokens();
  if (count == mesh.nVerts()) return t.faceVarying;
  if (count == mesh.nPoints()) return t.vertex;
  if (count == mesh.nFaces()) return t.uniform;
  return count == 1 ? t.constant : t.faceVarying;
}

// What was indexed, or had several values an element, is so no longer: the values are written flat.
template <class T>
bool writePrimvar(const ovo::MeshPrim& prim, const ovo::Token& name, const char* type,
                  const ovo::Array<T>& values, const ovo::Token& interpolation, double time) {
  const ovo::Primvar primvar = prim.createPrimvar(name, type, interpolation);
  if (!primvar.isValid()) return false;
  if (primvar.isIndexed()) prim.getAttr(ovo::Token(primvar.name().asString() + ":indices")).block();
  if (primvar.elementSize() != 1) primvar.setElementSize(1);
  return primvar.setInterpolation(interpolation) && primvar.set(values, time);
}

}  // namespace

MeshSample::MeshSample(const ovo::MeshPrim& prim, const double& sampleTime)
    : MeshSample(prim, sampleTime, 0, 0, true, true, true, true, false, false, ovo::Token()) {}

MeshSample::MeshSample(const ovo::MeshPrim& prim, const double& sampleTime, int sampleTag,
                       int level, bool readUVs, bool readNormals, bool readScalars,
                       bool readVectors, bool readPointVectors, bool readPointData,
                       const ovo::Token& uvPrimvarName) {
  sampleMeshPrim(prim, sampleTime, sampleTag, level, readUVs, readNormals, readScalars, readVectors,
                 readPointVectors, readPointData, uvPrimvarName);
}

bool MeshSample::sampleMeshPrim(const ovo::MeshPrim& prim, const double& sampleTime, int sampleTag,
                                int level, bool readUVs, bool readNormals, bool readScalars,
                                bool readVectors, bool readPointVectors, bool readPointData,
                                const ovo::Token& uvPrimvarName) {
  const ovo::Tokens& t = ovo::tokens();
  // `sampleTime` may be this sample's own `time`, which the next lines change.
  const double at = sampleTime;

  // Forget the last sampling. KEEP(points-outlive-reset): points, faces and pointData go only when
  // new ones are read, so that an early return leaves the earlier mesh.
  time = tarn::defaultTimeValue();
  tag = sampleTag;
  bounds = tarn::Box3f();
  xform = inverseXform = tarn::Mat4d();
  xformIsIdentity = true;
  allTriangles = allQuads = reverseWinding = false;
  uvs.clear();
  uvExtra.clear();
  normals.clear();
  vectors.clear();
  scalars.clear();
  pointVectors.clear();
  subdivisionScheme = ovo::Token();
  subdivisionLevel = 0;
  holeIndices.clear();
  creaseIndices.clear();
  creaseLengths.clear();
  creaseSharpnesses.clear();
  cornerIndices.clear();
  cornerSharpnesses.clear();
  if (!prim.isValid()) return false;

  subdivisionScheme = prim.getSubdivisionScheme();
  const bool toSubdivide = isSubdMesh() && level >= 1;

  // Where it stands.
  time = at;
  xform = ovo::XformCache(at).getLocalToWorld(prim);
  xformIsIdentity = xform == tarn::Mat4d::getIdentity();
  if (!xformIsIdentity) inverseXform = xform.inverse();

  // Points and what goes with them.
  if (!prim.getPoints(points, at)) points.clear();
  if (points.empty()) return false;
  if (readPointVectors && !prim.getAttr(t.velocities).get(pointVectors, at)) pointVectors.clear();
  if (readPointData && !prim.getAttr(t.accelerations).get(pointData, at)) pointData.clear();

  // Faces.
  if (!prim.getFaceTopology(vertsPerFace_, faceVertPointIndices_, reverseWinding, at) ||
      nVerts() == 0)
    return false;
  const Extents mesh{nPoints(), vertsPerFace_, faceVertPointIndices_, reverseWinding};

  // Primvars.
  if (readUVs) {
    // KEEP(primars-st1): the misspelt name is looked for as it stands, since there are files that
    // have it.
    const ovo::Primvar uv =
        uvPrimvarName.isEmpty()
            ? findPrimvar(prim, {t.st, t.uv, t.map1, t.UVMap, ovo::Token("primvars:st0"),
                                 ovo::Token("primars:st1"), t.uv0})
            : findPrimvar(prim, {uvPrimvarName});
    readPrimvar(uv, at, mesh, uvs);
    readPrimvar(findPrimvar(prim, {t.st_w, t.uv_w, t.map1_w, t.UVMap_w}), at, mesh, uvExtra);
  }
  bool recomputeNormals = false;
  if (readNormals) {
    readPrimvar(prim.getNormalsPrimvar(), at, mesh, normals);
    recomputeNormals = !toSubdivide && normals.size() != nVerts();
  }
  if (readVectors) readPrimvar(findPrimvar(prim, {t.displayColor, t.Cd}), at, mesh, vectors);
  if (readScalars) {
    // KEEP(scalars-stay-empty): only what is not there is read, so that scalars stay empty, unlike
    // normals and vectors; callers that sample over a mesh of their own count on it.
    const ovo::Primvar opacity = findPrimvar(prim, {t.displayOpacity});
    if (!opacity.isValid()) readPrimvar(opacity, at, mesh, scalars);
  }

  // Refinement. KEEP(level-stays-zero): subdivisionLevel is the level that the mesh starts from,
  // before and after.
  const bool subdivided = toSubdivide && subdivide(prim, level);
  if (toSubdivide && !subdivided) recomputeNormals = readNormals && normals.size() != nVerts();
  if (!readNormals || !(subdivided || recomputeNormals)) return true;

  // Normals. Those of a left-handed mesh are turned: its faces run clockwise seen from outside.
  const bool keepSign = prim.getOrientation() != t.leftHanded;
  ovo::Array<Vec3f> pointNormals;
  if (!calcPointNormals(nPoints(), pointLocations(), nVerts(), faceVertPointIndices(), nFaces(),
                        vertsPerFace(), allTriangles, allQuads, pointNormals, keepSign))
    return true;
  normals.clear();
  normals.resize(nVerts());
  Vec3f* out = normals.data();
  const Vec3f* const computed = pointNormals.cdata();
  for (const std::int32_t index : std::as_const(faceVertPointIndices_)) {
    if (index >= 0 && static_cast<std::size_t>(index) < nPoints()) *out = computed[index];
    ++out;
  }
  return true;
}

bool MeshSample::subdivide(const ovo::MeshPrim& prim, int level) {
  ovo::ArgSet args(prim, time);
  args.scheme = subdivisionScheme;
  holeIndices = args.holeIndices;
  creaseIndices = args.creaseIndices;
  creaseLengths = args.creaseLengths;
  creaseSharpnesses = args.creaseSharpnesses;
  cornerIndices = args.cornerIndices;
  cornerSharpnesses = args.cornerSharpnesses;

  ovo::MeshTessellateContext context;
  context.vertsPerFace = &vertsPerFace_;
  context.faceVertPointIndices = &faceVertPointIndices_;
  context.points = &points;
  // What is per face-vertex comes along, by its count. Normals need not: they are computed anew.
  // KEEP(uvextra-not-refined): uvExtra stays that of the unrefined faces; callers that want it
  // spread it themselves.
  const auto carry = [this](auto& array, auto& list) {
    if (array.size() == nVerts()) list.push_back(&array);
  };
  carry(uvs, context.vec2s);
  carry(vectors, context.vec3s);
  carry(scalars, context.floats);
  carry(pointVectors, context.vec3s);
  return ovo::subdivideUniform(args, nFaces(), nVerts(), nPoints(), subdivisionLevel, level,
                               context);
}

bool MeshSample::sampleMeshPrimFaceTopology(const ovo::MeshPrim& prim, const double& sampleTime) {
  if (!prim.isValid()) return false;
  time = sampleTime;
  return prim.getFaceTopology(vertsPerFace_, faceVertPointIndices_, reverseWinding, time) &&
         nVerts() > 0;
}

bool MeshSample::setMeshPrimFaceTopology(ovo::MeshPrim& prim) const {
  int written = 0;
  if (!vertsPerFace_.empty()) {
    const ovo::Attribute counts = prim.createFaceVertexCountsAttr();
    if (counts.isValid() && counts.set(vertsPerFace_, time)) ++written;
  }
  if (!faceVertPointIndices_.empty()) {
    const ovo::Attribute indices = prim.createFaceVertexIndicesAttr();
    if (indices.isValid() && indices.set(faceVertPointIndices_, time)) ++written;
  }
  return written > 0;
}

bool MeshSample::setMeshPrimPointsAndBounds(ovo::MeshPrim& prim, bool writeBounds) const {
  if (points.empty()) return false;
  const bool pointsWritten = prim.setPoints(points, time);
  // KEEP(points-without-bounds): false although the points are written; callers take it for "no
  // bounds were written".
  if (!writeBounds) return false;
  return pointsWritten && prim.writeExtent(time);
}

bool MeshSample::setMeshPrimProperties(ovo::MeshPrim& prim, bool writeUVs, bool writeNormals,
                                       bool writeVectors, bool writeScalars, bool writePointVectors,
                                       bool writePointData) const {
  if (!prim.isValid()) return false;
  const ovo::Tokens& t = ovo::tokens();
  int written = 0;
  const auto primvar = [&](const ovo::Token& name, const char* type, const auto& values,
                           const ovo::Token& interpolation) {
    if (!values.empty() && writePrimvar(prim, name, type, values, interpolation, time)) ++written;
  };
  const auto attribute = [&](const ovo::Token& name, const char* type, const auto& values) {
    if (values.empty()) return;
    const ovo::Attribute attr = prim.createAttr(name, type);
    if (attr.isValid() && attr.set(values, time)) ++written;
  };

  if (writeUVs) {
    primvar(t.st, "texCoord2f[]", uvs, interpolationFor(uvs.size(), *this));
    primvar(t.st_w, "float[]", uvExtra, t.faceVarying);
  }
  if (writeNormals && !normals.empty()) {
    // Where both stand the primvar is the one that is read.
    const ovo::Token interpolation = interpolationFor(normals.size(), *this);
    if (prim.getAttr(t.primvarsNormals).isValid())
      primvar(t.normals, "normal3f[]", normals, interpolation);
    else if (prim.setNormals(normals, interpolation, time))
      ++written;
  }
  if (writeVectors)
    primvar(t.displayColor, "color3f[]", vectors, interpolationFor(vectors.size(), *this));
  if (writeScalars)
    primvar(t.displayOpacity, "float[]", scalars, interpolationFor(scalars.size(), *this));
  if (writePointVectors) attribute(t.velocities, "vector3f[]", pointVectors);
  if (writePointData) attribute(t.accelerations, "vector3f[]", pointData);
  return written > 0;
}

bool MeshSample::isSubdMesh() const {
  return !subdivisionScheme.isEmpty() && subdivisionScheme != ovo::tokens().none;
}

// KEEP(flags-from-each-other): each flag is the negation of the other and neither is cleared here;
// whoever believes them holds them against the counts.
void MeshSample::addTri(int a, int b, int c) {
  vertsPerFace_.push_back(3);
  allTriangles = !allQuads;
  faceVertPointIndices_.push_back(a);
  faceVertPointIndices_.push_back(b);
  faceVertPointIndices_.push_back(c);
}

void MeshSample::addQuad(int a, int b, int c, int d) {
  vertsPerFace_.push_back(4);
  allQuads = !allTriangles;
  faceVertPointIndices_.push_back(a);
  faceVertPointIndices_.push_back(b);
  faceVertPointIndices_.push_back(c);
  faceVertPointIndices_.push_back(d);
}

void MeshSample::clearFaces() {
  vertsPerFace_.clear();
  faceVertPointIndices_.clear();
}

void MeshSample::reserveFaceVertSpace(std::size_t nFaces, std::size_t nVerts) {
  vertsPerFace_.reserve(nFaces);
  faceVertPointIndices_.reserve(nVerts);
}

}  // namespace vela
