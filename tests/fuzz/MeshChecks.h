/// \file
/// What must hold of any mesh, whatever its arrays say: for the fuzz target and the unit tests.
#pragma once

#include <cstdint>
#include <limits>
#include <string>

#include "fuzz/FuzzMesh.h"
#include "ovo/MeshPrim.h"
#include "ovo/Stage.h"
#include "ovo/Subdivide.h"
#include "vela/intersect/AccelerationModel.h"
#include "vela/mesh/MeshNormals.h"
#include "vela/mesh/MeshSample.h"
#include "vela/mesh/MeshTopology.h"
#include "vela/scene/MeshDefects.h"

namespace vela_test {

inline void checkTopology(const FuzzMesh& given) {
  vela::MeshTopology mesh;
  mesh.points = given.points;
  mesh.vertsPerFace = given.counts;
  mesh.faceVertPointIndices = given.indices;
  std::size_t faces = 0;
  for (const auto face : mesh.faces()) faces += face.index() == faces;
  require(faces == mesh.vertsPerFace.size(), "a face for each count");
  std::int32_t before = -1;
  for (const auto& edge : mesh.edges()) {
    require(edge.a >= before && edge.a < edge.b && edge.faceCount > 0, "edges are in order");
    require(static_cast<std::size_t>(edge.b) < mesh.points.size(), "edges join points");
    before = edge.a;
  }
  for (const int face : {-1, 0, 1, 1000})
    static_cast<void>(vela::getPosFromImplicitUV(mesh, face, {0.25f, 0.5f}));

  const vela::TriangleAccelerationModel model(given.points, given.counts, given.indices);
  for (std::size_t i = 0; i < model.size(); ++i) {
    const auto face = static_cast<std::size_t>(model.faceIndex(i));
    require(face < given.counts.size() && given.counts[face] >= 3, "triangles come from faces");
  }
}

inline void checkNormals(const FuzzMesh& given) {
  ovo::Array<tarn::Vec3f> perPoint, perVertex;
  const bool triangles = given.indices.size() % 2 == 0;
  const auto& [points, counts, indices] = given;
  if (vela::calcPointNormals(points.size(), points.cdata(), indices.size(), indices.cdata(),
                             counts.size(), counts.cdata(), triangles, !triangles, perPoint, true))
    require(perPoint.size() == points.size(), "a normal for each point");
  if (vela::calcVertexNormals(points.size(), points.cdata(), indices.size(), indices.cdata(),
                              counts.size(), counts.cdata(), 0.5f, perVertex))
    require(perVertex.size() == indices.size(), "a normal for each face-vertex");
}

inline void checkRefinement(const FuzzMesh& given, std::uint8_t choice) {
  FuzzMesh mesh = given;
  ovo::ArgSet args;
  const char* const schemes[] = {"catmullClark", "loop", "bilinear", "none"};
  args.scheme = schemes[choice % 4];
  args.holeIndices = given.indices;
  args.creaseIndices = given.indices;
  args.creaseLengths = given.counts;
  args.creaseSharpnesses.assign(given.counts.size(), static_cast<float>(choice) - 100.0f);
  args.cornerIndices = given.indices;
  args.cornerSharpnesses.assign(given.indices.size() / 2, 3.5f);
  ovo::MeshTessellateContext context;
  context.vertsPerFace = &mesh.counts;
  context.faceVertPointIndices = &mesh.indices;
  context.points = &mesh.points;
  ovo::Array<int> sources, pointOf;
  context.sourceFaces = &sources;
  context.refinedPointOf = &pointOf;
  ovo::Array<float> perCorner(mesh.indices.size(), 1.0f);
  context.floats = {&perCorner};
  std::string why;
  const bool isRefined =
      ovo::subdivideUniform(args, mesh.counts.size(), mesh.indices.size(), mesh.points.size(), 0,
                            1 + choice % 2, context, &why);
  require(isRefined == why.empty(), "there is a reason exactly when nothing was refined");
  if (!isRefined) {
    require(mesh.counts == given.counts && mesh.indices == given.indices, "nothing changed");
    return;
  }
  require(sources.size() == mesh.counts.size(), "each face comes from one");
  require(perCorner.size() == mesh.indices.size(), "data goes with its corners");
  std::size_t corners = 0;
  for (const int count : mesh.counts.view()) corners += static_cast<std::size_t>(count);
  require(corners == mesh.indices.size(), "counts add up");
  for (const int index : mesh.indices.view())
    require(index >= 0 && static_cast<std::size_t>(index) < mesh.points.size(), "corners exist");
}

inline void checkSample(const FuzzMesh& given) {
  const auto stage = ovo::Stage::createInMemory();
  ovo::MeshPrim prim = ovo::MeshPrim::define(stage, ovo::Path("/M"));
  prim.setPoints(given.points);
  prim.createFaceVertexCountsAttr().set(given.counts);
  prim.createFaceVertexIndicesAttr().set(given.indices);
  const vela::MeshSample sample(prim, tarn::defaultTimeValue(), 0, 1, true, true, true, true, true,
                                true, ovo::Token());
  if (sample.nVerts() > 0 && sample.nFaces() > 0 && !sample.normals.empty())
    require(sample.normals.size() == sample.nVerts(), "a normal for each face-vertex");
  static_cast<void>(prim.getBoundsBox(tarn::defaultTimeValue(), false));
  require(vela::scene::inspectMesh(prim, tarn::defaultTimeValue()).has_value(), "a report");
}

}  // namespace vela_test
