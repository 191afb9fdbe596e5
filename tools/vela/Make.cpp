#include <sys/stat.h>

#include <filesystem>
#include <memory>
#include <string>

#include "Interrupt.h"
#include "Messages.h"
#include "Options.h"
#include "OutputFile.h"
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

// The file to write. Whatever is wrong with it is said of a scene.
std::unique_ptr<OutputFile> openOutput(const std::string& name) {
  const std::string extension = std::filesystem::path(name).extension().string();
  struct stat status = {};
  const bool isThere = stat(name.c_str(), &status) == 0;
  // What has no ending is a text.
  const bool goesThrough =
      name == "-" ||
      (isThere && extension.empty() && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) ||
      name.compare(0, 5, "/dev/") == 0 || name.compare(0, 6, "/proc/") == 0;
  if (!goesThrough && extension != ".usd" && extension != ".usda" && extension != ".usdc")
    throw failure(Message::cannotWriteScene,
                  {name, "its name ends in none of .usd, .usda and .usdc"});
  try {
    return std::make_unique<OutputFile>(name, OutputKind::scene, ".usda");
  } catch (const Failure& why) {
    throw failure(Message::cannotWriteScene, {name, why.why});
  }
}

// The writer names the file that it writes to, which is a temporary one.
std::string withoutHead(const std::string& why, const OutputFile& output) {
  const std::string head = "cannot write scene '" + output.temporaryName() + "': ";
  return why.compare(0, head.size(), head) == 0 ? why.substr(head.size()) : why;
}

}  // namespace

ExitCode make(const MakeOptions& options) {
  const std::unique_ptr<OutputFile> output = openOutput(options.output);
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
      !stage->exportTo(output->temporaryName(), &why))
    throw failure(Message::cannotWriteScene, {options.output, withoutHead(why, *output)});
  output->commit();
  return kDone;
}

}  // namespace command
