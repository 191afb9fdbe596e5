#include "Engine.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <vector>

#include "Failure.h"
#include "vela/intersect/HitDetect.h"
#include "vela/trace/SceneTracer.h"

namespace command {

namespace {

using tarn::Ray;
using tarn::Vec3;

constexpr std::size_t kBatch = 256;

class TracerEngine final : public Engine {
 public:
  TracerEngine(const MeshList& list, const Vec3<double>& origin) : list_(list), origin_(origin) {
    const tarn::Mat4<double> engineFromWorld = makeEngineFromWorld();
    tracer_.reservePlacements(list.entries.size());
    std::vector<std::uint32_t> meshes;
    meshes.reserve(list.shapes.size());
    for (const Shape& shape : list.shapes)
      meshes.push_back(tracer_.addMesh(shape.points, shape.counts, shape.indices));
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
      for (std::size_t i = 0; i < n; ++i) hits[first + i] = surfaceHit(found[i]);
    }
  }

  void occluded(const Ray<float>* rays, std::size_t count, bool* answers) const override {
    tracer_.occluded(rays, count, answers);
  }

  bool intersectEntry(std::size_t entry, const Ray<float>& ray, SurfaceHit& hit) const override {
    vela::TracerHit found;
    tracer_.intersectPlacement(static_cast<std::uint32_t>(entry), ray, found);
    hit = surfaceHit(found);
    return hit.hit;
  }

  std::vector<tarn::Box3<float>> entryBoxes() const override {
    // Points that are not finite are never hit.
    std::vector<tarn::Box3<double>> shapeBoxes;
    shapeBoxes.reserve(list_.shapes.size());
    for (const Shape& shape : list_.shapes) {
      tarn::Box3<double> box;
      for (const Vec3<float>& p : shape.points)
        if (std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z))
          box.extendBy(Vec3<double>(p));
      shapeBoxes.push_back(box);
    }
    const tarn::Mat4<double> engineFromWorld = makeEngineFromWorld();
    std::vector<tarn::Box3<float>> boxes;
    boxes.reserve(list_.entries.size());
    for (const MeshEntry& entry : list_.entries)
      boxes.emplace_back(
          shapeBoxes[entry.shape].transformed(engineFromWorld * entry.worldFromObject));
    return boxes;
  }

 private:
  [[nodiscard]] tarn::Mat4<double> makeEngineFromWorld() const {
    tarn::Mat4<double> engineFromWorld;
    engineFromWorld.translate(-origin_.x, -origin_.y, -origin_.z);
    return engineFromWorld;
  }

  static SurfaceHit surfaceHit(const vela::TracerHit& from) {
    return {from.distance, from.position, from.normal, from.placement, from.face, from.hit};
  }

  const MeshList& list_;
  Vec3<double> origin_;
  vela::SceneTracer tracer_;
};

class DetectorEngine final : public Engine {
 public:
  DetectorEngine(const MeshList& list, double time)
      : numEntries_(list.entries.size()),
        entries_(plainEntries(list)),
        model_(primsOf(list, entries_), time),
        detector_(model_) {
    anyHit_.nearestHit = false;
    if (const std::size_t others = list.entries.size() - entries_.size(); others > 0)
      std::fprintf(
          stderr,
          "vela: note: the hit detector takes plain meshes alone: %zu others are left out\n",
          others);
  }

  Vec3<double> origin() const override { return {}; }

  void intersect(const Ray<float>* rays, std::size_t count, SurfaceHit* hits) const override {
    for (std::size_t i = 0; i < count; ++i) {
      vela::CollisionResult found;
      const bool hit = detector_.intersect(nearest_, rays[i], found);
      hits[i] = surfaceHit(found, hit ? entries_[found.primitiveIndex] : 0, hit);
    }
  }

  void occluded(const Ray<float>* rays, std::size_t count, bool* answers) const override {
    for (std::size_t i = 0; i < count; ++i) {
      vela::CollisionResult found;
      answers[i] = detector_.intersect(anyHit_, rays[i], found);
    }
  }

  bool intersectEntry(std::size_t entry, const Ray<float>& ray, SurfaceHit& hit) const override {
    const auto at = std::lower_bound(entries_.begin(), entries_.end(), entry);
    hit = SurfaceHit();
    if (at == entries_.end() || *at != entry) return false;
    vela::CollisionResult found;
    if (!model_.model().intersect(nearest_, ray, static_cast<std::size_t>(at - entries_.begin()),
                                  found))
      return false;
    hit = surfaceHit(found, *at, true);
    return true;
  }

  std::vector<tarn::Box3<float>> entryBoxes() const override {
    std::vector<tarn::Box3<float>> boxes(numEntries_);
    for (std::size_t i = 0; i < entries_.size(); ++i) boxes[entries_[i]] = model_.model().bounds(i);
    return boxes;
  }

 private:
  static SurfaceHit surfaceHit(const vela::CollisionResult& found, std::uint32_t entry, bool hit) {
    return {static_cast<double>(found.distance),
            found.position,
            found.normal,
            entry,
            found.faceIndex,
            hit};
  }

  // The detector knows prims, each in its one place.
  static std::vector<std::uint32_t> plainEntries(const MeshList& list) {
    std::vector<std::uint32_t> entries;
    for (std::size_t i = 0; i < list.entries.size(); ++i)
      if (list.entries[i].instance == kNoInstance && list.entries[i].prim.isValid())
        entries.push_back(static_cast<std::uint32_t>(i));
    return entries;
  }

  static std::vector<ovo::MeshPrim> primsOf(const MeshList& list,
                                            const std::vector<std::uint32_t>& entries) {
    std::vector<ovo::MeshPrim> prims;
    prims.reserve(entries.size());
    for (const std::uint32_t entry : entries) prims.push_back(list.entries[entry].prim);
    return prims;
  }

  std::size_t numEntries_;
  std::vector<std::uint32_t> entries_;  // of the detector's prims, ascending
  vela::HitDetectModel model_;
  vela::HitDetector detector_;
  vela::IntersectionContext nearest_, anyHit_;
};

}  // namespace

std::unique_ptr<Engine> makeEngine(const std::string& name, const MeshList& list, double time,
                                   const Vec3<double>& origin) {
  if (name == "tracer") return std::make_unique<TracerEngine>(list, origin);
  if (name == "hit-detector") return std::make_unique<DetectorEngine>(list, time);
  throw Failure{kUsage, "no such engine", name, "", "try tracer or hit-detector"};
}

}  // namespace command
