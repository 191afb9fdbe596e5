// Bytes as a mesh. Everything that takes meshes takes it: walks over faces and edges, normals,
// refinement, samples written and read back, defects.
#include "fuzz/MeshChecks.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  vela_test::Bytes bytes(data, size);
  const auto choice = bytes.take<std::uint8_t>();
  const vela_test::FuzzMesh mesh = vela_test::takeMesh(bytes);
  vela_test::checkTopology(mesh);
  vela_test::checkNormals(mesh);
  vela_test::checkRefinement(mesh, choice);
  vela_test::checkSample(mesh);
  return 0;
}
