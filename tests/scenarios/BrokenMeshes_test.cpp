// Broken meshes by the hundred thousand, through every entry that takes meshes.
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "fuzz/MeshChecks.h"
#include "support/SampleMeshes.h"
#include "vela/intersect/BvhAcceleration.h"
#include "vela/intersect/GridAcceleration.h"
#include "vela/trace/SceneTracer.h"

namespace {

using vela_test::FuzzMesh;

// A sample mesh with some of its numbers changed, or bytes that never were one.
FuzzMesh makeBroken(std::mt19937& random) {
  const auto pick = [&random](std::size_t n) { return static_cast<std::size_t>(random() % n); };
  const auto& samples = vela_test::sampleMeshes();
  const vela_test::SampleMesh& from = samples[pick(samples.size())];
  if (from.indices.size() > 400 || pick(4) == 0) {
    std::vector<std::uint8_t> bytes(20 + pick(200));
    for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
    bytes[0] %= 16;
    bytes[1] %= 24;
    vela_test::Bytes taken(bytes.data(), bytes.size());
    return vela_test::takeMesh(taken);
  }
  FuzzMesh mesh{from.points, from.counts, from.indices};
  const int odd[] = {
      -1, 0, 1, 2, 1000000, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()};
  const float numbers[] = {0.0f,
                           -0.0f,
                           1e-38f,
                           1e38f,
                           std::numeric_limits<float>::infinity(),
                           std::numeric_limits<float>::quiet_NaN()};
  for (std::size_t changes = 1 + pick(4); changes > 0; --changes) {
    switch (pick(6)) {
      case 0:
        if (!mesh.counts.empty()) mesh.counts[pick(mesh.counts.size())] = odd[pick(7)];
        break;
      case 1:
        if (!mesh.indices.empty()) mesh.indices[pick(mesh.indices.size())] = odd[pick(7)];
        break;
      case 2:
        if (!mesh.points.empty()) mesh.points[pick(mesh.points.size())][pick(3)] = numbers[pick(6)];
        break;
      case 3: mesh.indices.resize(pick(mesh.indices.size() + 1)); break;
      case 4: mesh.points.resize(pick(mesh.points.size() + 1)); break;
      default: mesh.counts.resize(pick(mesh.counts.size() + 3)); break;
    }
  }
  return mesh;
}

int askRays(const FuzzMesh& mesh, std::mt19937& random) {
  int hits = 0;
  vela::SceneTracer tracer;
  tracer.addPlacement(tracer.addMesh(mesh.points, mesh.counts, mesh.indices), tarn::Mat4d());
  tracer.build();
  const vela::TriangleAccelerationModel model(mesh.points, mesh.counts, mesh.indices);
  const vela::NoAcceleration plain(model);
  const vela::GridAcceleration grid(model);
  const vela::BvhAcceleration median(model, false), sah(model, true);
  for (int i = 0; i < 4; ++i) {
    std::uint8_t bytes[7];
    for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
    vela_test::Bytes taken(bytes, sizeof bytes);
    const tarn::Ray3f ray = vela_test::takeRay(taken);
    vela::TracerHit hit, alone;
    tracer.intersect(ray, hit);
    tracer.intersectPlacement(0, ray, alone);
    vela_test::require(hit.hit == alone.hit && hit.face == alone.face, "one placement, one answer");
    hits += hit.hit ? 1 : 0;
    if (hit.hit)
      vela_test::require(static_cast<std::size_t>(hit.face) < mesh.counts.size(), "a hit's face");
    for (const vela::Acceleration* structure :
         std::initializer_list<const vela::Acceleration*>{&plain, &grid, &median, &sah}) {
      vela::CollisionResult result;
      if (structure->intersect({}, ray, result))
        vela_test::require(result.hit && result.primitiveIndex < model.size(), "a hit's triangle");
    }
  }
  return hits;
}

TEST(BrokenMeshes, EveryEntryTakesThem) {
  const unsigned seed = 2026;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  int hits = 0;
  for (int i = 0; i < 100000; ++i) {
    SCOPED_TRACE(i);
    const FuzzMesh mesh = makeBroken(random);
    try {
      vela_test::checkTopology(mesh);
      vela_test::checkNormals(mesh);
      hits += askRays(mesh, random);
      // These take longer.
      if (i % 8 == 0) vela_test::checkRefinement(mesh, static_cast<std::uint8_t>(i / 8));
      if (i % 32 == 0) vela_test::checkSample(mesh);
    } catch (const std::logic_error& why) {
      FAIL() << why.what();
    }
  }
  // Broken as they are, there is much left to hit.
  EXPECT_GT(hits, 1000);
}

}  // namespace
