/// \file
/// A polygon mesh at one time: read from a scene, built by hand or by the builders, and written
/// back.
///
/// Layout: faces follow one another in the index array, the length of each is in the count array;
/// data "per face-vertex" has one element for each index. Points are in the prim's own space;
/// `xform` takes them to world space.
#pragma once

#include <cstddef>
#include <cstdint>

#include "ovo/Array.h"
#include "ovo/MeshPrim.h"
#include "ovo/Token.h"
#include "tarn/Box3.h"
#include "tarn/Mat4.h"
#include "tarn/Time.h"
#include "tarn/Vec.h"
#include "vela/Api.h"

namespace vela {

/// Arrays stay as they are read: counts and indices may contradict each other or the points.
/// Whatever works on a sample passes over the faces that cannot be used.
///
/// Which attributes of the scene are meant:
/// - uvs: the first of the primvars `st`, `uv`, `map1`, `UVMap`, `primvars:st0`, `primars:st1`,
/// `uv0`;
/// - uvExtra, a third texture coordinate: the first of the float primvars `st_w`, `uv_w`, `map1_w`,
/// `UVMap_w`;
/// - normals: `primvars:normals`, else `normals`;
/// - vectors (colours): the primvar `displayColor`, else `Cd`; scalars (opacities): the primvar
/// `displayOpacity`;
/// - pointVectors: the attribute `velocities`; pointData: the attribute `accelerations`.
/// Primvars are looked for on the prim first; where it has none of the names, constant ones of the
/// prims above apply.
///
/// Threads: as any value; reading one sample from several threads is safe.
///
/// \code
///   vela::MeshSample mesh;
///   mesh.points = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}};
///   mesh.addQuad(0, 1, 2, 3);
///   const std::shared_ptr<ovo::Stage> stage = ovo::Stage::createInMemory();
///   ovo::MeshPrim prim = ovo::MeshPrim::define(stage, "/Square");
///   assert(mesh.setMeshPrimFaceTopology(prim) && mesh.setMeshPrimPointsAndBounds(prim, true));
///   const vela::MeshSample read(prim, tarn::defaultTimeValue());
///   assert(read.points == mesh.points && read.nFaces() == 1 && read.nVerts() == 4);
///   assert(read.normals.view()[0] == tarn::Vec3f(0, 0, 1));  // computed: the prim has none
/// \endcode
class VELA_API MeshSample {
 public:
  /// All empty; the transforms are the identity, the time is the default time.
  MeshSample() = default;
  /// Samples the points, the faces and all primvars, without pointVectors and pointData, tag 0, not
  /// subdivided.
  MeshSample(const ovo::MeshPrim& prim, const double& time);
  /// As sampleMeshPrim, whose result is not kept.
  MeshSample(const ovo::MeshPrim& prim, const double& time, int tag, int subdivisionLevel,
             bool readUVs, bool readNormals, bool readScalars, bool readVectors,
             bool readPointVectors, bool readPointData, const ovo::Token& uvPrimvarName);

  // Reading

  /// Reads a mesh of a scene, and refines it when it asks for that.
  ///
  /// Primvars of every interpolation come out per face-vertex: those per point (`vertex` and
  /// `varying`) and per face are spread, a list that fits no count gives its first value
  /// everywhere, and only one that says to be per face-vertex is kept whatever its count. Normals
  /// whose count is not that of the face-vertices, and those of a refined mesh, are replaced by
  /// smooth ones (calcPointNormals), which point outward for left-handed meshes too. A failed
  /// computation leaves those that were read.
  ///
  /// \param tag               kept in `tag`
  /// \param subdivisionLevel  how often to refine a mesh whose scheme is not `none`; refined are
  ///         points, faces, normals, uvs, vectors, scalars and pointVectors, as far as they are per
  ///         face-vertex. uvExtra is not: it keeps one value a face-vertex of the unrefined mesh. A
  ///         mesh that cannot be refined stays as it is
  /// \param readScalars       scalars stay empty all the same, see the body
  /// \param readPointData     without it, pointData keeps what it had
  /// \param uvPrimvarName     when not empty, the one primvar to take for uvs
  /// \return false for an invalid prim, a mesh without points, and one without faces or
  ///         face-vertices. The sample then holds what was read up to there: of points, counts,
  ///         indices and pointData the earlier content where they were not reached
  bool sampleMeshPrim(const ovo::MeshPrim& prim, const double& time, int tag, int subdivisionLevel,
                      bool readUVs, bool readNormals, bool readScalars, bool readVectors,
                      bool readPointVectors, bool readPointData, const ovo::Token& uvPrimvarName);

  /// Reads counts, indices and reverseWinding only, and stores the time; everything else stays.
  /// \return false for an invalid prim (nothing changes), one without counts or indices, and when
  ///         there is no index
  bool sampleMeshPrimFaceTopology(const ovo::MeshPrim& prim, const double& time);

  // Writing, at `time`. What is written reads back the same.

  /// Writes counts and indices, each only when there are any. \return true when at least one was
  /// written
  bool setMeshPrimFaceTopology(ovo::MeshPrim& prim) const;

  /// Writes the points and, when asked, the extent.
  /// \return what writing the extent gave. False without points, when nothing is written, and also
  ///         when `writeBounds` is false, although the points are written then
  bool setMeshPrimPointsAndBounds(ovo::MeshPrim& prim, bool writeBounds) const;

  /// Writes the data whose flag is set and which is not empty; uvExtra goes with the uvs. Mind the
  /// order: vectors before scalars here, scalars before vectors when sampling.
  ///
  /// uvs are written as `st`, normals as `normals` (or `primvars:normals` where the prim has that
  /// one), the others under the first of the names above; uvs, normals, vectors and scalars with
  /// the interpolation that their count fits: per face-vertex, else per point, per face, constant.
  /// \return true when at least one was written
  bool setMeshPrimProperties(ovo::MeshPrim& prim, bool writeUVs, bool writeNormals,
                             bool writeVectors, bool writeScalars, bool writePointVectors,
                             bool writePointData) const;

  // Building

  /// Appends a face. `addTri` sets allTriangles to the negation of allQuads, `addQuad` allQuads to
  /// that of allTriangles. Neither is ever cleared, so that after both kinds the first to come
  /// stays set. calcPointNormals believes them only where the counts bear them out. @{
  void addTri(int a, int b, int c);
  void addQuad(int a, int b, int c, int d);
  /// @}
  /// Removes all faces, keeping their storage.
  void clearFaces();
  /// Room for that many faces and face-vertices in all; std::length_error beyond what an array can
  /// hold.
  void reserveFaceVertSpace(std::size_t nFaces, std::size_t nVerts);

  // Queries

  [[nodiscard]] std::size_t nPoints() const { return points.size(); }        ///< points in all
  [[nodiscard]] std::size_t nFaces() const { return vertsPerFace_.size(); }  ///< faces in all
  /// Face-vertices in all.
  [[nodiscard]] std::size_t nVerts() const { return faceVertPointIndices_.size(); }

  /// The first element of each array; null when nothing was ever stored. Valid until the sample
  /// changes. @{
  [[nodiscard]] const tarn::Vec3f* pointLocations() const { return points.cdata(); }
  [[nodiscard]] const std::int32_t* vertsPerFace() const { return vertsPerFace_.cdata(); }
  [[nodiscard]] const std::int32_t* faceVertPointIndices() const {
    return faceVertPointIndices_.cdata();
  }
  /// @}

  /// False when there is no scheme or it is `none`.
  [[nodiscard]] bool isSubdMesh() const;

  // Data

  ovo::Array<tarn::Vec3f> points;  ///< positions in the prim's own space

 private:
  ovo::Array<std::int32_t> vertsPerFace_;
  ovo::Array<std::int32_t> faceVertPointIndices_;

 public:
  double time = tarn::defaultTimeValue();  ///< when the sample was taken; where writes go
  std::int32_t tag = 0;                    ///< the caller's own
  tarn::Box3f bounds;                      ///< for the caller to fill: sampling sets it to empty
  tarn::Mat4d xform;                       ///< local to world
  tarn::Mat4d inverseXform;                ///< computed only when xform is not the identity
  bool xformIsIdentity = true;             ///< of `xform`; `inverseXform` is then left
  bool allTriangles = false;               ///< hint: every face is a triangle
  bool allQuads = false;                   ///< hint: every face is a quadrilateral
  bool reverseWinding =
      false;  ///< data per face-vertex was reversed within each face as it was read

  ovo::Array<tarn::Vec2f> uvs;           ///< per face-vertex
  ovo::Array<float> uvExtra;             ///< per face-vertex, of the unrefined mesh
  ovo::Array<tarn::Vec3f> normals;       ///< per face-vertex
  ovo::Array<tarn::Vec3f> vectors;       ///< per face-vertex
  ovo::Array<float> scalars;             ///< per face-vertex
  ovo::Array<tarn::Vec3f> pointVectors;  ///< as stored
  ovo::Array<tarn::Vec3f> pointData;     ///< as stored

  ovo::Token subdivisionScheme;       ///< as the prim says; empty in a mesh made by hand
  std::int32_t subdivisionLevel = 0;  ///< of the arrays before sampling refined them: 0

  /// \name What the prim says about the unrefined mesh
  /// Read where sampling refines it, as scene files have them; empty otherwise.
  /// @{
  ovo::Array<std::int32_t> holeIndices;    ///< faces that do not come out
  ovo::Array<std::int32_t> creaseIndices;  ///< points along creases
  ovo::Array<std::int32_t> creaseLengths;  ///< points of each crease
  ovo::Array<float> creaseSharpnesses;     ///< by crease or by edge
  ovo::Array<std::int32_t> cornerIndices;  ///< sharp points
  ovo::Array<float> cornerSharpnesses;     ///< one for each of them
                                           /// @}

 private:
  bool subdivide(const ovo::MeshPrim& prim, int level);
};

}  // namespace vela
