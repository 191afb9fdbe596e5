#include <cmath>
#include <functional>
#include <memory>
#include <string>

#include "Failure.h"
#include "Interrupt.h"
#include "Options.h"
#include "ovo/MeshPrim.h"
#include "ovo/Stage.h"
#include "ovo/Tokens.h"
#include "vela/mesh/MeshBuilders.h"

namespace command {

namespace {

using tarn::Vec3;
using vela::MeshSample;

Vec3<float> narrowed(const double (&v)[3]) {
  return {static_cast<float>(v[0]), static_cast<float>(v[1]), static_cast<float>(v[2])};
}

void makeCube(const MakeOptions& options, MeshSample& mesh) {
  const Vec3<double> half(options.size[0] / 2, options.size[1] / 2, options.size[2] / 2);
  vela::buildCube(mesh, tarn::Box3<double>(-half, half), options.rows, options.columns, true, true,
                  true, true, !options.separatePoints);
}

// In the x-z plane, seen from above; x runs along the columns.
void makeGrid(const MakeOptions& options, MeshSample& mesh) {
  const float x = static_cast<float>(options.size[0] / 2),
              z = static_cast<float>(options.size[2] / 2);
  vela::buildRectQuadMesh(mesh, {-x, 0, z}, {x, 0, z}, {x, 0, -z}, {-x, 0, -z}, options.rows,
                          options.columns, true, true, true, true);
}

struct Profile {
  std::function<float(int)> radius, height;
};

// Points, faces and UVs around the y axis; `scale` takes the profile's units to the shape's.
void makeRevolved(const MakeOptions& options, const Profile& profile, unsigned rows, bool caps,
                  bool poles, bool shared, const Vec3<float>& scale, MeshSample& mesh) {
  vela::buildRevolveMeshFaces(mesh, rows, options.columns, caps, caps, shared);
  const std::size_t ring = options.columns, capPoints = caps ? 2 * (1 + (shared ? 0 : ring)) : 0;
  mesh.points.resize((rows + std::size_t{1}) * ring + capPoints);
  vela::buildRevolveMeshPoints(mesh, rows, options.columns, profile.radius, profile.height, scale,
                               caps, caps, shared);
  mesh.uvs.resize(mesh.nVerts());
  vela::buildRevolveMeshUVs(mesh, rows, options.columns, 360, 180, caps, caps, poles, poles);
  mesh.normals.resize(mesh.nVerts());
}

void makeCylinder(const MakeOptions& options, MeshSample& mesh) {
  const unsigned rows = options.rows;
  const Profile profile{
      [](int) { return 1.0f; },
      [rows](int row) { return 2.0f * static_cast<float>(row) / static_cast<float>(rows) - 1.0f; }};
  const Vec3<float> scale = narrowed(options.size) * 0.5f;
  makeRevolved(options, profile, rows, !options.withoutCaps, false, !options.separatePoints, scale,
               mesh);
  vela::buildCylinderMeshNormals(mesh, rows, options.columns, scale, !options.withoutCaps,
                                 !options.withoutCaps);
}

// The caps are the first and the last band: rings lie between the poles, which are one row beyond
// either end.
void makeSphere(const MakeOptions& options, MeshSample& mesh) {
  const unsigned rows = options.rows - 2;
  const auto angle = [rows](int row) {
    return 3.141592653589793 * (row + 1) / (static_cast<double>(rows) + 2.0);
  };
  const Profile profile{[angle](int row) { return static_cast<float>(std::sin(angle(row))); },
                        [angle](int row) { return static_cast<float>(-std::cos(angle(row))); }};
  const Vec3<float> scale = narrowed(options.size) * 0.5f;
  makeRevolved(options, profile, rows, true, true, true, scale, mesh);
  vela::buildSphereMeshNormals(mesh, rows, options.columns, scale, true, true);
}

}  // namespace

void make(const MakeOptions& options) {
  MeshSample mesh;
  std::string name;
  if (options.shape == "cube") {
    makeCube(options, mesh);
    name = "Cube";
  } else if (options.shape == "grid") {
    makeGrid(options, mesh);
    name = "Grid";
  } else if (options.shape == "cylinder") {
    makeCylinder(options, mesh);
    name = "Cylinder";
  } else {
    makeSphere(options, mesh);
    name = "Sphere";
  }
  throwIfInterrupted();

  const std::shared_ptr<ovo::Stage> stage = ovo::Stage::createInMemory();
  stage->setUpAxis(ovo::tokens().Y);
  ovo::MeshPrim prim = ovo::MeshPrim::define(stage, ovo::Path("/" + name));
  stage->setDefaultPrim(ovo::Token(name));
  prim.setSubdivisionScheme(ovo::Token(options.scheme));
  std::string why;
  if (!mesh.setMeshPrimFaceTopology(prim) || !mesh.setMeshPrimPointsAndBounds(prim, true) ||
      !mesh.setMeshPrimProperties(prim, true, options.scheme == "none", false, false, false,
                                  false) ||
      !stage->exportTo(options.output, &why))
    throw Failure{kBadInput, "cannot write the scene", options.output, why,
                  "name a .usda, .usdc or .usd file"};
}

}  // namespace command
