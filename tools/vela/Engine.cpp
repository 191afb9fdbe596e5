#include "Engine.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <vector>

#include "Failure.h"
#include "vela/intersect/HitDetect.h"
#include "vela/intersect/SceneTracer.h"

namespace command {

namespace {

using tarn::Ray;
using tarn::Vec3;

constexpr std::size_t kBatch = 256;

class TracerEngine final : public Engine {
 public:
  TracerEngine(const MeshList& list, const Vec3<double>& origin) : origin_(origin) {
    tarn::Mat4<double> engineFromWorld;
    engineFromWorld.translate(-origin.x, -origin.y, -origin.z);
    tracer_.reservePlacements(list.entries.size());
    std::vector<std::uint32_t> meshes;
    meshes.reserve(list.shapes.size());
    for (const Shape& shape : list.shapes) meshes.push_back(tracer_.addMesh(shape.points, shape.counts, shape.indices));
    for (const MeshEntry& entry : list.entries)
      tracer_.addPlacement(meshes[entry.shape], engineFromWorld * entry.worldFromObject);
    tracer_.build();
  }

  Vec3<double> origin() const override { return origin_; }

  void intersect(const Ray<float>* rays, std::size_t count, SurfaceHit* hits) const override {
    std::array<vela::TracerHit, kBatch> found;
    for (std::size_t first = 0; first < count; first += kBatch) {
      const std::size_t n = std::min(kBatch, count - first);
      tracer_.intersect(rays + first, n, found.data());
      for (std::size_t i = 0; i < n; ++i) {
        const vela::TracerHit& from = found[i];
        hits[first + i] = {from.distance, from.position, from.normal, from.placement, from.face, from.hit};
      }
    }
  }

  void occluded(const Ray<float>* rays, std::size_t count, bool* answers) const override {
    tracer_.occluded(rays, count, answers);
  }

 private:
  Vec3<double> origin_;
  vela::SceneTracer tracer_;
};

class DetectorEngine final : public Engine {
 public:
  DetectorEngine(const MeshList& list, double time)
      : entries_(plainEntries(list)), model_(primsOf(list, entries_), time), detector_(model_) {
    anyHit_.nearestHit = false;
    if (const std::size_t others = list.entries.size() - entries_.size(); others > 0)
      std::fprintf(stderr, "vela: note: the hit detector takes plain meshes alone: %zu others are left out\n", others);
  }

  Vec3<double> origin() const override { return {}; }

  void intersect(const Ray<float>* rays, std::size_t count, SurfaceHit* hits) const override {
    for (std::size_t i = 0; i < count; ++i) {
      vela::CollisionResult found;
      const bool hit = detector_.intersect(nearest_, rays[i], found);
      hits[i] = {static_cast<double>(found.distance), found.position, found.normal, hit ? entries_[found.primitiveIndex] : 0,
                 found.faceIndex, hit};
    }
  }

  void occluded(const Ray<float>* rays, std::size_t count, bool* answers) const override {
    for (std::size_t i = 0; i < count; ++i) {
      vela::CollisionResult found;
      answers[i] = detector_.intersect(anyHit_, rays[i], found);
    }
  }

 private:
  // The detector knows prims, each in its one place.
  static std::vector<std::uint32_t> plainEntries(const MeshList& list) {
    std::vector<std::uint32_t> entries;
    for (std::size_t i = 0; i < list.entries.size(); ++i)
      if (list.entries[i].instance == kNoInstance && list.entries[i].prim.isValid())
        entries.push_back(static_cast<std::uint32_t>(i));
    return entries;
  }

  static std::vector<ovo::MeshPrim> primsOf(const MeshList& list, const std::vector<std::uint32_t>& entries) {
    std::vector<ovo::MeshPrim> prims;
    prims.reserve(entries.size());
    for (const std::uint32_t entry : entries) prims.push_back(list.entries[entry].prim);
    return prims;
  }

  std::vector<std::uint32_t> entries_;  // of the detector's prims
  vela::HitDetectModel model_;
  vela::HitDetector detector_;
  vela::IntersectionContext nearest_, anyHit_;
};

}  // namespace

std::unique_ptr<Engine> makeEngine(const std::string& name, const MeshList& list, double time, const Vec3<double>& origin) {
  if (name == "tracer") return std::make_unique<TracerEngine>(list, origin);
  if (name == "hit-detector") return std::make_unique<DetectorEngine>(list, time);
  throw Failure{kUsage, "no such engine", name, "", "try tracer or hit-detector"};
}

}  // namespace command
