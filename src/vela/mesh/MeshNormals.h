/// \file
/// Normals and positions computed from bare mesh arrays.
///
/// Holds for the whole file: `points` has `nPoints` positions, `faceVertPointIndices` has `nVerts`
/// point indices, faces one after another, `vertsPerFace` has `nFaces` counts. Normals follow the
/// stored winding (counter-clockwise seen from where they point). Everything is single precision.
/// The functions allocate their output and scratch only and hold no state. A face whose vertices
/// would pass the end of the indices, or one of whose indices names no point, adds nothing;
/// the faces after it keep theirs. A negative count is a face without vertices. Outputs must
/// not share storage with the inputs.
#pragma once

#include <cstddef>

#include "ovo/Array.h"
#include "tarn/Span.h"
#include "tarn/Vec.h"
#include "vela/Api.h"
#include "vela/mesh/MeshTopology.h"

namespace vela {

/// One smooth normal a point: the sum of the normals of the faces around it, which are not
/// normalised before, so that larger faces weigh more.
///
/// A triangle's normal is (P1 - P0) x (P2 - P0), a quadrilateral's (P3 - P1) x (P0 - P2), that of a
/// face of n > 4 vertices (P(n-1) - P1) x (P0 - P2). The sum is divided by the number of faces,
/// then normalised.
///
/// \param vertsPerFace  may be null where one of the flags applies
/// \param allTriangles  a hint, believed only when nVerts is exactly 3 nFaces; vertsPerFace is then
///                      not read
/// \param allQuads      the same for quadrilaterals and 4 nFaces, when the first does not apply
/// \param pointNormals  (nPoints): unit normals; zero for a point of no face of three vertices or
///                      more. Untouched when one of the counts is zero; all zero when neither flag
///                      applies and vertsPerFace is null
/// \param keepSign      false negates every normal (before the division)
/// \return false in these two cases
VELA_API bool calcPointNormals(std::size_t nPoints, const tarn::Vec3f* points, std::size_t nVerts,
                               const int* faceVertPointIndices, std::size_t nFaces,
                               const int* vertsPerFace, bool allTriangles, bool allQuads,
                               ovo::Array<tarn::Vec3f>& pointNormals, bool keepSign);
/// The same for arrays that know their sizes; the flags are hints as above.
inline bool calcPointNormals(tarn::Span<const tarn::Vec3f> points,
                             tarn::Span<const int> faceVertPointIndices,
                             tarn::Span<const int> vertsPerFace,
                             ovo::Array<tarn::Vec3f>& pointNormals, bool keepSign = true,
                             bool allTriangles = false, bool allQuads = false) {
  return calcPointNormals(points.size(), points.data(), faceVertPointIndices.size(),
                          faceVertPointIndices.data(), vertsPerFace.size(), vertsPerFace.data(),
                          allTriangles, allQuads, pointNormals, keepSign);
}

/// One normal a face-vertex, smooth across gentle edges only.
///
/// A face's normal is that of its first three vertices, (P1 - P0) x (P2 - P0). Each face-vertex
/// gets the normalised sum of the normals E around its point for which U . E >= 1 -
/// clamp(|threshold|, 0, 2), U being the face's own unit normal; where that sum is zero, U.
///
/// \param threshold      one minus the cosine of the widest angle smoothed over, were all E of unit
///                       length. They are not: E keeps its face's area, here and in the sum, so a
///                       large neighbour passes the test more easily. 0 keeps faces of area 1/2 or
///                       less flat; 2 and more takes in all around the point whose area stays below
///                       1/2
/// \param vertexNormals  (nVerts). Untouched on failure
/// \return false when one of the counts is zero or an array is null
///
/// Faces of fewer than three vertices are passed over without moving on in the indices: the faces
/// after one of them read theirs from as many indices further to the front, and their normals are
/// written there.
VELA_API bool calcVertexNormals(std::size_t nPoints, const tarn::Vec3f* points, std::size_t nVerts,
                                const int* faceVertPointIndices, std::size_t nFaces,
                                const int* vertsPerFace, float threshold,
                                ovo::Array<tarn::Vec3f>& vertexNormals);
/// The same for arrays that know their sizes.
inline bool calcVertexNormals(tarn::Span<const tarn::Vec3f> points,
                              tarn::Span<const int> faceVertPointIndices,
                              tarn::Span<const int> vertsPerFace, float threshold,
                              ovo::Array<tarn::Vec3f>& vertexNormals) {
  return calcVertexNormals(points.size(), points.data(), faceVertPointIndices.size(),
                           faceVertPointIndices.data(), vertsPerFace.size(), vertsPerFace.data(),
                           threshold, vertexNormals);
}

/// The position on a face for (u, v) in [0, 1] x [0, 1].
///
/// One vertex: that point. Two: from P0 to P1 along u. Three: P0 + u (P1 - P0) + v (P2 - P0), pairs
/// with u + v > 1 mirrored back into the triangle. Four: bilinear, P0 at (0, 0), P1 at (1, 0), P2
/// at (1, 1), P3 at (0, 1). More: u runs around the border, v from the border to the mean of the
/// vertices.
///
/// On a face of five vertices or more u = 1 reads the index behind the face's last (not its first
/// again), which is the next face's first; at the end of the array it is the face's first.
/// \return the zero vector for a face that does not exist, has no vertices or cannot be used. A
///         scan over the counts
[[nodiscard]] VELA_API tarn::Vec3f getPosFromImplicitUV(const MeshTopology& topology, int face,
                                                        const tarn::Vec2f& uv);

}  // namespace vela
