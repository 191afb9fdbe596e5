/// \file
/// Shapes as meshes: boxes, patches, and the parts of a surface of revolution.
///
/// Each builder takes flags for the arrays to make, so that a caller rebuilds only what changed:
/// the points when a size changes, say, and not the faces. Faces are wound counter-clockwise seen
/// from outside.
///
/// Everything is single precision but where something else is said. Indices have 32 bits: a shape
/// of more than 2^31 - 1 points or face-vertices is a std::length_error, and changes nothing.
#pragma once

#include <functional>

#include "tarn/Box3.h"
#include "tarn/Vec.h"
#include "vela/Api.h"
#include "vela/mesh/MeshSample.h"

namespace vela {

/// A bilinear patch of rows x columns quadrilaterals. Row 0 runs from p0 to p1, the last row from
/// p3 to p2. Nothing happens when either count is 0.
///
/// Point i (columns + 1) + j lies at (j / columns, i / rows), blended as a (1 - t) + b t along the
/// row and then across. The ends are the corners themselves: parameters below 2^-23 and above
/// 0.9999999 are not interpolated.
/// \param buildFaces    replaces the faces and sets allQuads, clears allTriangles
/// \param buildPoints   replaces the points, (rows + 1)(columns + 1) of them
/// \param buildNormals  replaces the normals: one a face-vertex, all (p1 - p0) x (p3 - p0)
///                      normalised
/// \param buildUVs      replaces the uvs: one a point, (j / columns, i / rows)
VELA_API void buildRectQuadMesh(MeshSample& mesh, const tarn::Vec3f& p0, const tarn::Vec3f& p1,
                                const tarn::Vec3f& p2, const tarn::Vec3f& p3, unsigned int rows,
                                unsigned int columns, bool buildFaces, bool buildPoints,
                                bool buildNormals, bool buildUVs);

/// A box of quadrilaterals: front (z max), back, right (x max), left, top (y max), bottom, in this
/// order. Nothing happens when either count is 0.
///
/// Every face is a grid with columns running to its right and rows up, seen from outside with y up;
/// rows of the top run from z max to z min and so do those of the bottom, whose quadrilaterals are
/// wound in reverse. Steps are extent / divisions, and a coordinate is its start plus k steps.
/// \param sideDivisions divisions along y
/// \param capDivisions  divisions along x and z
/// \param buildFaces    replaces the faces and sets allQuads, clears allTriangles
/// \param buildPoints   replaces the points
/// \param buildNormals  appends to the normals one axis a face-vertex
/// \param buildUVs      appends to the uvs: one a face-vertex with shared points, one a point
///                      without; v of the bottom runs in reverse without
/// \param sharedPoints  faces share the points of edges and corners (8 for one division), else each
///                      has its own (24)
VELA_API void buildCube(MeshSample& mesh, const tarn::Box3d& box, unsigned int sideDivisions,
                        unsigned int capDivisions, bool buildFaces, bool buildPoints,
                        bool buildNormals, bool buildUVs, bool sharedPoints);

/// A sphere, or ellipsoid, about the origin with its poles on the y axis: `rows` bands of `columns`
/// faces, of which the first and the last are fans of triangles around the poles. Replaces points,
/// faces, uvs and normals; nothing happens for fewer than two rows.
///
/// \param scale the half lengths along the axes. Normals are those of buildSphereMeshNormals
///
/// \code
///   vela::MeshSample ball;
///   vela::buildSphereMesh(ball, 16, 32, tarn::Vec3f(2.5f));
///   assert(ball.nFaces() == 16 * 32 && ball.nPoints() == 2 + 15 * 32);
///   assert(ball.uvs.size() == ball.nVerts() && ball.normals.size() == ball.nVerts());
/// \endcode
VELA_API void buildSphereMesh(MeshSample& mesh, unsigned int rows, unsigned int columns,
                              const tarn::Vec3f& scale);

/// A cylinder about the y axis, its middle at the origin: `rows` bands of `columns` quadrilaterals
/// and, where asked for, a flat cap at either end. Replaces points, faces, uvs and normals; nothing
/// happens without rows.
///
/// \param scale         the half lengths along the axes
/// \param shareCapRings see buildRevolveMeshPoints
VELA_API void buildCylinderMesh(MeshSample& mesh, unsigned int rows, unsigned int columns,
                                const tarn::Vec3f& scale, bool topCap, bool bottomCap,
                                bool shareCapRings);

/// \name Surfaces of revolution about the y axis
/// `rows` bands of `columns` quadrilaterals between rows + 1 rings of `columns` points (no ring has
/// a point twice). The first point of a ring lies on +z, the next ones turn towards +x. A cap is a
/// fan of triangles around a pole; rings go up from the bottom. Faces, and all data per
/// face-vertex, come in this order: bottom cap, bands from the bottom, top cap.
///
/// The builders of points, UVs and normals write into arrays as long as the caller made them, from
/// the first element on; they do nothing to an empty one and stop at the end of one that is too
/// short.
/// @{

/// Writes the points: bottom pole and (unless shared) the bottom cap's own ring, rings 0 to rows,
/// the top cap's own ring (unless shared) and the top pole.
///
/// \param radius, height of a ring by its index. Also asked for -1 and rows + 1 if there are caps:
///                       a radius that is the same there means a flat cap, whose pole lies at the
///                       height of the last ring, any other a pointed one with its pole one row
///                       further
/// \param scale          of the whole shape, by axis
/// \param shareCapRings  caps use the first and the last ring instead of copies of their own
VELA_API void buildRevolveMeshPoints(MeshSample& mesh, unsigned int rows, unsigned int columns,
                                     std::function<float(int)> radius,
                                     std::function<float(int)> height, const tarn::Vec3f& scale,
                                     bool topCap, bool bottomCap, bool shareCapRings);

/// Writes one UV a face-vertex. A sweep of 360 by 180 degrees covers [0, 1] x [0, 1]; the texture
/// of a smaller one is cut off evenly around the middle.
///
/// \param topPole, bottomPole the cap has a band of v of its own, as on a sphere; else it has no
///         height in v
VELA_API void buildRevolveMeshUVs(MeshSample& mesh, unsigned int rows, unsigned int columns,
                                  float sweepU, float sweepV, bool topCap, bool bottomCap,
                                  bool topPole, bool bottomPole);

/// Writes normals from the points of a unit cylinder that was scaled: normalise(v / scale), v being
/// (x, 0, z) of the corner's point on the bands and straight down or up on the caps. Nothing
/// happens without points or face-vertices.
VELA_API void buildCylinderMeshNormals(MeshSample& mesh, unsigned int rows, unsigned int columns,
                                       const tarn::Vec3f& scale, bool topCap, bool bottomCap);

/// Writes normals from the points of a unit sphere that was scaled: normalise(p / scale) of the
/// corner's point. As on the cylinder they are those of the unit shape: exact where the scale is
/// the same along all axes. Elements beyond the last face-vertex are divided and normalised as they
/// are. Nothing happens without points or face-vertices.
VELA_API void buildSphereMeshNormals(MeshSample& mesh, unsigned int rows, unsigned int columns,
                                     const tarn::Vec3f& scale, bool topCap, bool bottomCap);

/// Replaces the faces by those that the others expect, for points laid out by
/// buildRevolveMeshPoints. allTriangles and allQuads start cleared and end as addTri and addQuad
/// leave them.
VELA_API void buildRevolveMeshFaces(MeshSample& mesh, unsigned int rows, unsigned int columns,
                                    bool topCap, bool bottomCap, bool shareCapRings);

/// What the builders above take for one shape, under the same names.
struct RevolveShape {
  /// `rows` bands of `columns` faces. @{
  unsigned int rows = 1, columns = 32;
  /// @}
  /// Of a ring by its index. Empty ones must not be left. @{
  std::function<float(int)> radius, height;
  /// @}
  tarn::Vec3f scale{1.0f};  ///< of the whole shape, by axis
  /// Degrees of texture around the axis, and along it. @{
  float sweepU = 360.0f, sweepV = 180.0f;
  /// @}
  /// Whether there is a cap at the end. @{
  bool topCap = true, bottomCap = true;
  /// @}
  /// Whether the cap has a band of v of its own. @{
  bool topPole = false, bottomPole = false;
  /// @}
  bool shareCapRings = true;  ///< caps use the first and the last ring
};

/// Replaces points, faces and uvs by those of the whole shape, and the normals by as many zeros as
/// there are face-vertices, for one of the builders of normals or the caller to fill.
VELA_API void buildRevolveMesh(MeshSample& mesh, const RevolveShape& shape);
/// @}

}  // namespace vela
