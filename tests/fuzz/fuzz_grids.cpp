// Grids over any meshes and rays answer like the plain rule, bit by bit.
#include "fuzz/FuzzMesh.h"
#include "vela/intersect/GridAcceleration.h"
#include "vela/intersect/TestOracles.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using vela_test::require;
  vela_test::Bytes bytes(data, size);
  const bool isOrdered = bytes.take<std::uint8_t>() % 2 == 0;
  const vela_test::FuzzMesh mesh =
      isOrdered ? vela_test::takeTriangles(bytes, 40) : vela_test::takeMesh(bytes);
  const vela::TriangleAccelerationModel model(mesh.points, mesh.counts, mesh.indices);
  const vela::GridAcceleration grid(model);
  const vela_test::PlainGrid plain(model);
  const vela::MeshAccelerator accelerator(mesh.points, mesh.counts, mesh.indices, 7);
  for (int i = 0; i < 3; ++i) {
    const tarn::Ray3f ray = vela_test::takeRay(bytes);
    for (const bool nearest : {true, false}) {
      vela::IntersectionContext context;
      context.nearestHit = nearest;
      vela::CollisionResult got = vela_test::marked(), expected = vela_test::marked(),
                            ofMesh = vela_test::marked();
      const bool isHit = grid.intersect(context, ray, got);
      require(isHit == plain.intersect(context, ray, expected), "the same verdict");
      require(vela_test::sameRecord(got, expected), "the same record");
      require(accelerator.intersect(context, ray, ofMesh) == isHit, "the same of the mesh");
      if (isHit) require(ofMesh.primitiveIndex == 7, "with its number");
    }
  }
  return 0;
}
