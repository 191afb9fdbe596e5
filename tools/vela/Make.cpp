#include <memory>
#include <string>

#include "Interrupt.h"
#include "Messages.h"
#include "Options.h"
#include "ovo/MeshPrim.h"
#include "ovo/Stage.h"
#include "ovo/Tokens.h"
#include "vela/mesh/MeshBuilders.h"

namespace command {

namespace {

using tarn::Vec3d;
using tarn::Vec3f;
using vela::MeshSample;

Vec3f narrowed(const double (&v)[3]) {
  return {static_cast<float>(v[0]), static_cast<float>(v[1]), static_cast<float>(v[2])};
}

void makeCube(const MakeOptions& options, MeshSample& mesh) {
  const Vec3d half(options.size[0] / 2, options.size[1] / 2, options.size[2] / 2);
  vela::buildCube(mesh, tarn::Box3d(-half, half), options.rows, options.columns, true, true, true,
                  true, !options.separatePoints);
}

// In the x-z plane, seen from above; x runs along the columns.
void makeGrid(const MakeOptions& options, MeshSample& mesh) {
  const float x = static_cast<float>(options.size[0] / 2),
              z = static_cast<float>(options.size[2] / 2);
  vela::buildRectQuadMesh(mesh, {-x, 0, z}, {x, 0, z}, {x, 0, -z}, {-x, 0, -z}, options.rows,
                          options.columns, true, true, true, true);
}

void makeCylinder(const MakeOptions& options, MeshSample& mesh) {
  vela::buildCylinderMesh(mesh, options.rows, options.columns, narrowed(options.size) * 0.5f,
                          !options.withoutCaps, !options.withoutCaps, !options.separatePoints);
}

void makeSphere(const MakeOptions& options, MeshSample& mesh) {
  vela::buildSphereMesh(mesh, options.rows, options.columns, narrowed(options.size) * 0.5f);
}

}  // namespace

ExitCode make(const MakeOptions& options) {
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
    throw failure(Message::cannotWriteScene, {options.output, why});
  return kDone;
}

}  // namespace command
