// What python_rays.py holds the Python module against: the same library called from C++, in the
// same process, by its plain interface.
#include <cstddef>
#include <vector>

#include "bench/Measure.h"
#include "ovo/Array.h"
#include "tarn/Ray.h"
#include "vela/trace/SceneTracer.h"

namespace {
struct Candidate {
  vela::SceneTracer tracer;
  std::vector<tarn::Ray3f> rays;
  std::vector<vela::TracerHit> hits;
};
}  // namespace

extern "C" {

/// A tracer of one mesh of triangles; never let go of.
__attribute__((visibility("default"))) void* python_rays_make(const float* points,
                                                              std::size_t numPoints,
                                                              const int* indices,
                                                              std::size_t numTriangles) {
  auto* const made = new Candidate;
  const auto* const first = reinterpret_cast<const tarn::Vec3f*>(points);
  const std::vector<int> counts(numTriangles, 3);
  const std::uint32_t mesh =
      made->tracer.addMesh(ovo::Array<tarn::Vec3f>(tarn::Span<const tarn::Vec3f>(first, numPoints)),
                           ovo::Array<int>(tarn::Span<const int>(counts.data(), counts.size())),
                           ovo::Array<int>(tarn::Span<const int>(indices, 3 * numTriangles)));
  made->tracer.addPlacement(mesh, tarn::Mat4d());
  made->tracer.build();
  return made;
}

/// The rays of the calls to come, as C++ has them, and room for their hits.
__attribute__((visibility("default"))) void python_rays_set(void* candidate, const float* origins,
                                                            const float* directions,
                                                            std::size_t count) {
  auto& c = *static_cast<Candidate*>(candidate);
  c.rays.clear();
  for (std::size_t i = 0; i < 3 * count; i += 3)
    c.rays.push_back({{origins[i], origins[i + 1], origins[i + 2]},
                      {directions[i], directions[i + 1], directions[i + 2]}});
  c.hits.assign(count, {});
}

/// Milliseconds of the processor that all rays take, into room that is there (\p isFresh: into new
/// room, as a call from Python has it).
__attribute__((visibility("default"))) double python_rays_trace(void* candidate, bool isFresh) {
  auto& c = *static_cast<Candidate*>(candidate);
  const double start = vela_bench::processorTime();
  if (isFresh) {
    std::vector<vela::TracerHit>().swap(c.hits);
    c.hits.resize(c.rays.size());
  }
  c.tracer.intersect(c.rays, c.hits);
  return vela_bench::processorTime() - start;
}

/// How many rays hit, for the check that both do the same.
__attribute__((visibility("default"))) std::size_t python_rays_hits(void* candidate) {
  std::size_t count = 0;
  for (const vela::TracerHit& hit : static_cast<Candidate*>(candidate)->hits) count += hit.hit;
  return count;
}
}
