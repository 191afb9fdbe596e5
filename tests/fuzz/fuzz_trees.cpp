// Trees over any meshes and rays: the tracer's answers are those of a plain loop, bit by bit; the
// trees over models differ from one by the tolerance of the triangle test alone.
#include <cmath>
#include <vector>

#include "fuzz/FuzzMesh.h"
#include "vela/intersect/BvhAcceleration.h"
#include "vela/intersect/TestOracles.h"
#include "vela/trace/SceneTracer.h"

namespace {

using tarn::Mat4d;
using tarn::Ray3d;
using tarn::Ray3f;
using vela::TracerHit;
using vela_test::Bytes;
using vela_test::FuzzMesh;
using vela_test::require;

bool isSame(const TracerHit& a, const TracerHit& b) {
  return a.hit == b.hit && a.distance == b.distance && a.placement == b.placement &&
         a.face == b.face && vela_test::sameBits(a.position, b.position) &&
         vela_test::sameBits(a.normal, b.normal) && a.u == b.u && a.v == b.v;
}

Mat4d takeMatrix(Bytes& bytes) {
  Mat4d matrix;
  matrix.translate(static_cast<double>(bytes.coordinate()), 0.0,
                   static_cast<double>(bytes.coordinate()));
  switch (bytes.take<std::uint8_t>() % 4) {
    case 0: matrix.rotateY(0.7); break;
    case 1: matrix.scale(1.0, 1.0, static_cast<double>(bytes.coordinate())); break;
    case 2: matrix[bytes.take<std::uint8_t>() % 12u] = static_cast<double>(bytes.coordinate());
    default: break;
  }
  return matrix;
}

void checkTracer(const FuzzMesh& first, const FuzzMesh& second, Bytes& bytes) {
  vela::SceneTracer tracer;
  const std::uint32_t meshes[] = {tracer.addMesh(first.points, first.counts, first.indices),
                                  tracer.addMesh(second.points, second.counts, second.indices)};
  const unsigned placements = 1 + bytes.take<std::uint8_t>() % 8u;
  for (unsigned i = 0; i < placements; ++i)
    tracer.addPlacement(meshes[i % 2], i < 2 ? Mat4d() : takeMatrix(bytes));
  tracer.build();

  std::vector<Ray3f> rays;
  for (int i = 0; i < 5; ++i) rays.push_back(vela_test::takeRay(bytes));
  rays.resize(40, rays.front());
  std::vector<TracerHit> hits(rays.size());
  tracer.intersect(rays, hits);
  for (std::size_t i = 0; i < 5; ++i) {
    const Ray3f& ray = rays[i];
    // The nearest of all placements, each asked alone; the first of equal ones.
    TracerHit expected, one, single;
    for (std::uint32_t p = 0; p < placements; ++p)
      if (tracer.intersectPlacement(p, ray, one) &&
          (!expected.hit || one.distance < expected.distance))
        expected = one;
    require(isSame(hits[i], expected), "the trees change nothing");
    tracer.intersect(ray, single);
    require(isSame(single, expected), "one ray at a time neither");
    require(tracer.occluded(ray) == expected.hit, "what is hit is in the way");
    if (!expected.hit) continue;
    require(std::isfinite(expected.distance), "a hit has a distance");
    const FuzzMesh& mesh = expected.placement % 2 == 0 ? first : second;
    require(static_cast<std::size_t>(expected.face) < mesh.counts.size(), "a hit has a face");
    for (const std::int32_t p : expected.points)
      require(p >= 0 && static_cast<std::size_t>(p) < mesh.points.size(), "of points that exist");
  }
}

void checkModels(const FuzzMesh& mesh, const Ray3f& ray) {
  const vela::TriangleAccelerationModel model(mesh.points, mesh.counts, mesh.indices);
  const vela::NoAcceleration plain(model);
  const vela::BvhAcceleration median(model, false), sah(model, true);
  for (const vela::Acceleration* tree : {static_cast<const vela::Acceleration*>(&median),
                                         static_cast<const vela::Acceleration*>(&sah)}) {
    vela::CollisionResult got = vela_test::marked(), again = vela_test::marked();
    if (!tree->intersect({}, ray, got)) {
      require(vela_test::sameRecord(got, vela_test::marked()), "a miss writes nothing");
      continue;
    }
    require(got.primitiveIndex < model.size() && got.hit, "a hit names its triangle");
    require(model.intersect({}, ray, got.primitiveIndex, again), "which the ray meets");
    again.primitiveIndex = got.primitiveIndex;
    require(vela_test::sameBits(got.normal, again.normal), "and has its normal");
    vela::IntersectionContext any;
    any.nearestHit = false;
    require(tree->intersect(any, ray, again), "some hit is found where the nearest one is");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Bytes bytes(data, size);
  const bool isOrdered = bytes.take<std::uint8_t>() % 2 == 0;
  Bytes half(data + size / 2, size - size / 2);
  const FuzzMesh first =
      isOrdered ? vela_test::takeTriangles(bytes, 100) : vela_test::takeMesh(half);
  const FuzzMesh second = vela_test::takeMesh(half);
  checkTracer(first, second, bytes);
  const Ray3f ray = vela_test::takeRay(bytes);
  checkModels(first, ray);
  checkModels(second, ray);
  return 0;
}
