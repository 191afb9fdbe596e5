#include "Engine.h"

#include <algorithm>
#include <array>
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
  TracerEngine(const MeshList& list, double time, const Vec3<double>& origin) : origin_(origin) {
    tarn::Mat4<double> engineFromWorld;
    engineFromWorld.translate(-origin.x, -origin.y, -origin.z);
    tracer_.reservePlacements(list.entries.size());
    for (const MeshEntry& entry : list.entries)
      tracer_.addPlacement(tracer_.addMesh(entry.prim, time), engineFromWorld * entry.worldFromObject);
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
  DetectorEngine(const MeshList& list, double time) : model_(primsOf(list), time), detector_(model_) {
    anyHit_.nearestHit = false;
  }

  Vec3<double> origin() const override { return {}; }

  void intersect(const Ray<float>* rays, std::size_t count, SurfaceHit* hits) const override {
    for (std::size_t i = 0; i < count; ++i) {
      vela::CollisionResult found;
      const bool hit = detector_.intersect(nearest_, rays[i], found);
      hits[i] = {static_cast<double>(found.distance), found.position, found.normal, found.primitiveIndex, found.faceIndex, hit};
    }
  }

  void occluded(const Ray<float>* rays, std::size_t count, bool* answers) const override {
    for (std::size_t i = 0; i < count; ++i) {
      vela::CollisionResult found;
      answers[i] = detector_.intersect(anyHit_, rays[i], found);
    }
  }

 private:
  static std::vector<ovo::MeshPrim> primsOf(const MeshList& list) {
    std::vector<ovo::MeshPrim> prims;
    prims.reserve(list.entries.size());
    for (const MeshEntry& entry : list.entries) prims.push_back(entry.prim);
    return prims;
  }

  vela::HitDetectModel model_;
  vela::HitDetector detector_;
  vela::IntersectionContext nearest_, anyHit_;
};

}  // namespace

std::unique_ptr<Engine> makeEngine(const std::string& name, const MeshList& list, double time, const Vec3<double>& origin) {
  if (name == "tracer") return std::make_unique<TracerEngine>(list, time, origin);
  if (name == "hit-detector") return std::make_unique<DetectorEngine>(list, time);
  throw Failure{kUsage, "no such engine", name, "", "try tracer or hit-detector"};
}

}  // namespace command
