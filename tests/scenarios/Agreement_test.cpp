// Rays by the ten million: brute force, the grid and the trees agree, but for what each says of
// itself.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <thread>
#include <vector>

#include "support/SampleMeshes.h"
#include "vela/intersect/AccelerationModel.h"
#include "vela/intersect/BvhAcceleration.h"
#include "vela/intersect/GridAcceleration.h"
#include "vela/intersect/TestOracles.h"

namespace {

using namespace vela_test;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kRays = 200000;  // each takes thirty times as long there
#else
constexpr int kRays = 10000000;
#endif

struct Tally {
  long hits = 0, farther = 0, atAnEnd = 0, beside = 0;
  std::string wrong;  // the first ray whose answer no rule explains
};

// Whether a record is the primitive's own answer to the ray without an end.
bool isAnswerOfItsPrimitive(const vela::AccelerationModel& model, Ray3f ray,
                            const vela::CollisionResult& got) {
  vela::CollisionResult own = marked();
  ray.maxDistance = kInf;
  if (!model.intersect(vela::IntersectionContext(), ray, got.primitiveIndex, own)) return false;
  own.primitiveIndex = got.primitiveIndex;
  return sameRecord(own, got);
}

// Some of the rays at one mesh. Every other one is hostile: it runs in a triangle's plane, through
// a vertex, along a face of a cell, has a NaN.
Tally ask(const SampleMesh& mesh, int rays, unsigned seed) {
  const vela::TriangleAccelerationModel model(mesh.points, mesh.counts, mesh.indices);
  const vela::GridAcceleration grid(model);
  const PlainGrid plainGrid(model);
  const vela::BvhAcceleration median(model, false), sah(model, true);
  const vela::IntersectionContext ctx;
  RayMaker maker(mesh, seed);
  Tally tally;
  for (int i = 0; i < rays && tally.wrong.empty(); ++i) {
    const bool isHostile = i % 2 != 0;
    const Ray3f ray = isHostile ? maker.hostile() : maker.ordinary();
    vela::CollisionResult nearest = marked();
    const bool any = plainNearest(model, ray, nearest);
    tally.hits += any ? 1 : 0;
    const auto fail = [&](const char* what, const vela::CollisionResult& got) {
      tally.wrong = std::string(what) + ": " + show(ray) + show(got) + show(nearest);
    };

    // The grid: its rule said plainly, in every bit. Its hit is the nearest one, or one that is
    // listed in an earlier cell.
    vela::CollisionResult walked = marked(), expected = marked();
    const bool isWalked = grid.intersect(ctx, ray, walked);
    if (isWalked != plainGrid.intersect(ctx, ray, expected) || !sameRecord(walked, expected))
      fail("the grid and its rule", walked);
    if (isWalked && (!any || walked.distance < nearest.distance))
      fail("the grid hits what brute force does not", walked);
    if (!isHostile && any && !isWalked) fail("the grid misses", walked);
    if (any && isWalked && walked.distance > nearest.distance) ++tally.farther;

    // The trees: the nearest hit, or one within the 1e-5 by which the triangle test reaches beyond
    // either end of the range. The test gives points beside the triangle to rays in its plane;
    // boxes keep some of those away, so there the answer may be a farther one.
    for (const vela::BvhAcceleration* const tree : {&median, &sah}) {
      vela::CollisionResult got = marked();
      const bool hit = tree->intersect(ctx, ray, got);
      if (hit && !isAnswerOfItsPrimitive(model, ray, got)) fail("no primitive says so", got);
      if (hit == any && (!hit || bitsOf(got.distance) == bitsOf(nearest.distance))) continue;
      const bool isAtAnEnd =
          hit && ((got.distance <= ray.minDistance && got.distance >= ray.minDistance - 1e-5f) ||
                  (got.distance >= ray.maxDistance && got.distance <= ray.maxDistance + 1e-5f));
      const double to = static_cast<double>(nearest.distance);
      if (isAtAnEnd ||
          (hit && any &&
           std::fabs(static_cast<double>(got.distance) - to) <= 2e-5 + 1e-7 * std::fabs(to)))
        ++tally.atAnEnd;
      else if (isHostile && any && (!hit || got.distance > nearest.distance))
        ++tally.beside;
      else
        fail("the tree and brute force", got);
    }
  }
  return tally;
}

TEST(Agreement, TenMillionRaysOfBruteForceGridAndTreesDifferByTheirRulesAlone) {
  const unsigned seed = 7000;
  SCOPED_TRACE(seed);
  const std::vector<SampleMesh> meshes = {makeCube(), makeIcosphere(1), makeRoughSphere(6, 8, 0.2f),
                                          makeSoup(40, 5)};
  const unsigned threads = std::max(1u, std::thread::hardware_concurrency());
  for (std::size_t m = 0; m < meshes.size(); ++m) {
    const int share = kRays / static_cast<int>(meshes.size() * threads) + 1;
    std::vector<Tally> tallies(threads);
    std::vector<std::thread> workers;
    for (unsigned t = 0; t < threads; ++t)
      workers.emplace_back([&, t] {
        tallies[t] = ask(meshes[m], share, seed + 100 * static_cast<unsigned>(m) + t);
      });
    for (std::thread& worker : workers) worker.join();
    Tally all;
    for (const Tally& tally : tallies) {
      EXPECT_EQ(tally.wrong, "") << meshes[m].name;
      all.hits += tally.hits;
      all.farther += tally.farther;
      all.atAnEnd += tally.atAnEnd;
      all.beside += tally.beside;
    }
    // The rules are the exception, not the answer.
    EXPECT_GT(all.hits, kRays / 100) << meshes[m].name;
    EXPECT_LT(all.farther + all.beside, all.hits / 10) << meshes[m].name;
    RecordProperty(meshes[m].name + ": farther, at an end, beside",
                   std::to_string(all.farther) + ", " + std::to_string(all.atAnEnd) + ", " +
                       std::to_string(all.beside) + " of " + std::to_string(all.hits));
  }
}

}  // namespace
