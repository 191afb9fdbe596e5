/// \file
/// Uniform refinement of subdivision surfaces.
///
/// Layout of meshes: faces follow one another in the index array, the length of each is in the
/// count array; data per face-vertex has one element for each index.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "ovo/Api.h"
#include "ovo/Array.h"
#include "ovo/Fwd.h"
#include "ovo/Token.h"
#include "tarn/Time.h"
#include "tarn/Vec.h"

namespace ovo {

/// How a mesh is to be refined; the words and lists are those of scene files. Entries that name
/// nothing in the mesh (points, faces or edges that it does not have) and sharpnesses that are not
/// above 0 count for nothing. A word that is not known counts as the default.
///
/// \code
///   ovo::Array<tarn::Vec3f> points = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}};
///   ovo::Array<int> counts = {4}, indices = {0, 1, 2, 3};
///   ovo::MeshTessellateContext mesh;
///   mesh.vertsPerFace = &counts;
///   mesh.faceVertPointIndices = &indices;
///   mesh.points = &points;
///   ovo::ArgSet args;
///   args.scheme = "bilinear";
///   assert(ovo::subdivideUniform(args, 1, 4, 4, 0, 2, mesh));
///   assert(counts.size() == 16 && points.size() == 25);
///   std::string why;
///   args.scheme = "loop";
///   assert(!ovo::subdivideUniform(args, 16, 64, 25, 2, 3, mesh, &why) && !why.empty());
/// \endcode
struct OVO_API ArgSet {
  /// The defaults of the words, and no lists.
  ArgSet();
  /// All that the mesh says at the time.
  explicit ArgSet(const MeshPrim& prim, double time = tarn::defaultTimeValue());

  Token scheme;                          ///< `catmullClark` (the default), `loop` or `bilinear`
  Token interpolateBoundary;             ///< `none`, `edgeOnly` or `edgeAndCorner` (the default)
  Token faceVaryingLinearInterpolation;  ///< `none`, `cornersOnly`, `cornersPlus1` (the default),
                                         ///< `cornersPlus2`, `boundaries` or `all`
  Token triangleSubdivisionRule;         ///< `catmullClark` (the default) or `smooth`
  /// Faces that are refined, and shape their neighbours, but do not come out.
  Array<int> holeIndices;
  Array<int> creaseIndices;  ///< points along creases, one crease after another
  Array<int> creaseLengths;  ///< points of each crease
  /// One for each crease, or one for each of their edges; 10 is infinite.
  Array<float> creaseSharpnesses;
  Array<int> cornerIndices;        ///< sharp points
  Array<float> cornerSharpnesses;  ///< one for each of them
};

/// What is refined in place. Pointers are not owned; none of the first three is null.
struct MeshTessellateContext {
  Array<int>* vertsPerFace = nullptr;          ///< the length of each face
  Array<int>* faceVertPointIndices = nullptr;  ///< point indices, face by face
  Array<tarn::Vec3f>* points = nullptr;        ///< in any space
  /// Data per face-vertex to carry along, each refined as a surface of its own: corners of one
  /// point with equal values are joined there, different values make a seam. None null, each as
  /// long as there are face-vertices. @{
  std::vector<Array<float>*> floats;
  std::vector<Array<tarn::Vec2f>*> vec2s;
  std::vector<Array<tarn::Vec3f>*> vec3s;
  /// @}
  /// Data per point to carry along: refined as the points are (`vertex`), or linearly within faces
  /// (`varying`). None null, each as long as there are points. @{
  std::vector<Array<tarn::Vec3f>*> pointVec3s, linearPointVec3s;
  /// @}
  /// Set to the face that each refined face comes from. Null where nobody asks.
  Array<int>* sourceFaces = nullptr;
  /// Set to the index that each given point has among the refined points; -1 for a point that is
  /// not among them. Null where nobody asks.
  Array<int>* refinedPointOf = nullptr;
};

/// Refines a mesh `toLevel - fromLevel` times.
///
/// Points come out where that many refinements put them (not on the limit surface): those of the
/// mesh first and in their order, then by level those on edges and those in faces. Refined faces
/// keep the order of the faces they come from and their winding; every n-sided face becomes n
/// quadrilaterals, then four of each (loop: each triangle four triangles). Points that no refined
/// face uses do not come out. Faces that cannot be used (fewer than three different vertices,
/// indices that name no point, past the end of the indices) count for nothing and do not come out;
/// points repeated one after another in a face count once.
///
/// Single precision, in a fixed order: the same input gives the same bits. Needs, at its height,
/// less than three times the memory of the result.
///
/// \param faces, faceVerts, points how many of the context's elements make up the mesh
/// \param fromLevel the level that the mesh is at; nothing happens when `toLevel` is not above it
/// \return false, with nothing changed, when the scheme is none of the three, a face is no triangle
///         under loop, no face can be used, the arrays are shorter than said, a face or point has
///         more than 65,535 neighbours, or the result had more than 2^31 - 1 face-vertices or
///         points
OVO_API bool subdivideUniform(const ArgSet& args, std::size_t faces, std::size_t faceVerts,
                              std::size_t points, int fromLevel, int toLevel,
                              const MeshTessellateContext& context);
/// As above.
/// \param error when not null: set to why nothing was refined, to follow the mesh's name and a
///              colon; emptied on success
OVO_API bool subdivideUniform(const ArgSet& args, std::size_t faces, std::size_t faceVerts,
                              std::size_t points, int fromLevel, int toLevel,
                              const MeshTessellateContext& context, std::string* error);

}  // namespace ovo
