#include "vela/scene/RayCaster.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <utility>

#include "tarn/Box3.h"
#include "tarn/Ray.h"
#include "vela/intersect/HitDetect.h"
#include "vela/scene/detail/EntriesAlong.h"
#include "vela/trace/SceneTracer.h"

namespace vela::scene {

namespace {

using tarn::Box3d;
using tarn::Box3f;
using tarn::Mat4d;
using tarn::Ray3f;
using tarn::Vec3d;
using tarn::Vec3f;

constexpr std::size_t kBatch = 256;

}  // namespace

// Answers in local space: the world moved so that `base` is zero. This file is the only one that
// knows it.
class detail::LocalCaster {
 public:
  LocalCaster(const MeshList& meshes, const Vec3d& origin) : list(meshes), base(origin) {}
  virtual ~LocalCaster() = default;

  // Called once, before anything is asked. \return false when the work was stopped
  virtual bool build(const Work& work) = 0;
  virtual void intersect(const Ray3f* rays, std::size_t count, SurfaceHit* hits) const = 0;
  virtual void occluded(const Ray3f* rays, std::size_t count, bool* answers) const = 0;
  // The nearest hit on one entry, as if there were no other.
  virtual bool intersectEntry(std::size_t entry, const Ray3f& ray, SurfaceHit& hit) const = 0;
  // The box of each entry, up to rounding; empty for what is never hit.
  [[nodiscard]] virtual std::vector<Box3f> entryBoxes() const = 0;

  [[nodiscard]] Ray3f localRay(const WorldRay& ray) const {
    return {Vec3f(ray.offset + (ray.base - base)), ray.direction, ray.minDistance, ray.maxDistance};
  }
  void localRays(const WorldRay* rays, std::size_t count, Ray3f* local) const {
    for (std::size_t i = 0; i < count; ++i) local[i] = localRay(rays[i]);
  }

  const MeshList& list;
  Vec3d base;
  std::vector<Problem> problems;
};

namespace {

class TracerCaster final : public detail::LocalCaster {
 public:
  TracerCaster(const MeshList& meshes, const Vec3d& middle) : LocalCaster(meshes, middle) {}

  bool build(const Work& work) override {
    const Mat4d localFromWorld = makeLocalFromWorld();
    tracer_.reservePlacements(list.entries.size());
    std::vector<std::uint32_t> numbers;
    numbers.reserve(list.shapes.size());
    for (const Shape& shape : list.shapes) {
      if (work.isStopped()) return false;
      numbers.push_back(tracer_.addMesh(shape.points, shape.counts, shape.indices));
    }
    for (const MeshEntry& entry : list.entries)
      tracer_.addPlacement(numbers[entry.shape], localFromWorld * entry.worldFromObject);
    // The tracer asks once for each mesh that it is about to build, and once at the end.
    double asked = 0.0;
    return tracer_.build([&] {
      work.report(std::min(asked++ / static_cast<double>(tracer_.numMeshes() + 1), 1.0));
      return work.isStopped();
    });
  }

  void intersect(const Ray3f* rays, std::size_t count, SurfaceHit* hits) const override {
    std::array<TracerHit, kBatch> found;
    for (std::size_t first = 0; first < count; first += kBatch) {
      const std::size_t n = std::min(kBatch, count - first);
      tracer_.intersect(rays + first, n, found.data());
      for (std::size_t i = 0; i < n; ++i) hits[first + i] = surfaceHit(found[i]);
    }
  }

  void occluded(const Ray3f* rays, std::size_t count, bool* answers) const override {
    tracer_.occluded(rays, count, answers);
  }

  bool intersectEntry(std::size_t entry, const Ray3f& ray, SurfaceHit& hit) const override {
    TracerHit found;
    tracer_.intersectPlacement(static_cast<std::uint32_t>(entry), ray, found);
    hit = surfaceHit(found);
    return hit.hit;
  }

  std::vector<Box3f> entryBoxes() const override {
    // Points that are not finite are never hit.
    std::vector<Box3d> shapeBoxes;
    shapeBoxes.reserve(list.shapes.size());
    for (const Shape& shape : list.shapes) {
      Box3d box;
      for (const Vec3f& p : shape.points)
        if (isFinite(p)) box.extendBy(Vec3d(p));
      shapeBoxes.push_back(box);
    }
    const Mat4d localFromWorld = makeLocalFromWorld();
    std::vector<Box3f> boxes;
    boxes.reserve(list.entries.size());
    for (const MeshEntry& entry : list.entries)
      boxes.emplace_back(
          shapeBoxes[entry.shape].transformed(localFromWorld * entry.worldFromObject));
    return boxes;
  }

 private:
  [[nodiscard]] Mat4d makeLocalFromWorld() const {
    Mat4d localFromWorld;
    localFromWorld.translate(-base.x, -base.y, -base.z);
    return localFromWorld;
  }

  [[nodiscard]] SurfaceHit surfaceHit(const TracerHit& from) const {
    SurfaceHit hit;
    hit.distance = from.distance;
    hit.base = base;
    hit.offset = from.position;
    hit.normal = from.normal;
    hit.entry = from.placement;
    hit.face = from.face;
    std::copy(std::begin(from.points), std::end(from.points), hit.points);
    std::copy(std::begin(from.faceVertices), std::end(from.faceVertices), hit.faceVertices);
    hit.u = from.u;
    hit.v = from.v;
    hit.hasCorners = hit.hit = from.hit;
    return hit;
  }

  SceneTracer tracer_;
};

// Its prims stand in the world, so the base is the world's zero point.
class DetectorCaster final : public detail::LocalCaster {
 public:
  // The detector builds what a ray needs when the first one needs it.
  bool build(const Work& work) override { return !work.isStopped(); }

  DetectorCaster(const MeshList& meshes, double time)
      : LocalCaster(meshes, {}),
        entries_(plainEntries(list)),
        model_(primsOf(list, entries_), time),
        detector_(model_) {
    anyHit_.nearestHit = false;
    if (const std::size_t others = list.entries.size() - entries_.size(); others > 0)
      problems.push_back({Problem::Kind::notCast, Problem::Severity::note, "",
                          "the hit detector takes plain meshes alone", others});
  }

  void intersect(const Ray3f* rays, std::size_t count, SurfaceHit* hits) const override {
    for (std::size_t i = 0; i < count; ++i) {
      CollisionResult found;
      const bool hit = detector_.intersect(nearest_, rays[i], found);
      hits[i] = surfaceHit(found, hit ? entries_[found.primitiveIndex] : 0, hit);
    }
  }

  void occluded(const Ray3f* rays, std::size_t count, bool* answers) const override {
    for (std::size_t i = 0; i < count; ++i) {
      CollisionResult found;
      answers[i] = detector_.intersect(anyHit_, rays[i], found);
    }
  }

  bool intersectEntry(std::size_t entry, const Ray3f& ray, SurfaceHit& hit) const override {
    const auto at = std::lower_bound(entries_.begin(), entries_.end(), entry);
    hit = SurfaceHit();
    if (at == entries_.end() || *at != entry) return false;
    CollisionResult found;
    if (!model_.model().intersect(nearest_, ray, static_cast<std::size_t>(at - entries_.begin()),
                                  found))
      return false;
    hit = surfaceHit(found, *at, true);
    return true;
  }

  std::vector<Box3f> entryBoxes() const override {
    std::vector<Box3f> boxes(list.entries.size());
    for (std::size_t i = 0; i < entries_.size(); ++i) boxes[entries_[i]] = model_.model().bounds(i);
    return boxes;
  }

 private:
  static SurfaceHit surfaceHit(const CollisionResult& found, std::uint32_t entry, bool isHit) {
    SurfaceHit hit;
    hit.distance = static_cast<double>(found.distance);
    hit.offset = found.position;
    hit.normal = found.normal;
    hit.entry = entry;
    hit.face = found.faceIndex;
    hit.hit = isHit;
    return hit;
  }

  // The detector knows prims, each where the scene has it.
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

  std::vector<std::uint32_t> entries_;  // of the detector's prims, ascending
  HitDetectModel model_;
  HitDetector detector_;
  IntersectionContext nearest_, anyHit_;
};

}  // namespace

namespace {

std::unique_ptr<detail::LocalCaster> makeLocal(CasterKind kind, const MeshList& list,
                                               const Extent& extent, double time) {
  if (kind == CasterKind::hitDetector) return std::make_unique<DetectorCaster>(list, time);
  return std::make_unique<TracerCaster>(list, extent.center());
}

}  // namespace

RayCaster::RayCaster(std::unique_ptr<detail::LocalCaster> local) : local_(std::move(local)) {}

RayCaster::RayCaster(CasterKind kind, const MeshList& list, const Extent& extent, double time)
    : RayCaster(makeLocal(kind, list, extent, time)) {
  local_->build({});
}

std::optional<RayCaster> RayCaster::make(CasterKind kind, const MeshList& list,
                                         const Extent& extent, double time, Problem* problem,
                                         const Work& work) {
  RayCaster caster(makeLocal(kind, list, extent, time));
  if (!caster.local_->build(work)) {
    if (problem) *problem = {Problem::Kind::stopped, Problem::Severity::error, "", "stopped"};
    return std::nullopt;
  }
  work.report(1.0);
  return caster;
}

RayCaster::~RayCaster() = default;
RayCaster::RayCaster(RayCaster&&) noexcept = default;
RayCaster& RayCaster::operator=(RayCaster&&) noexcept = default;

void RayCaster::intersect(const WorldRay* rays, std::size_t count, SurfaceHit* hits) const {
  std::array<Ray3f, kBatch> local;
  for (std::size_t first = 0; first < count; first += kBatch) {
    const std::size_t n = std::min(kBatch, count - first);
    local_->localRays(rays + first, n, local.data());
    local_->intersect(local.data(), n, hits + first);
  }
}

void RayCaster::occluded(const WorldRay* rays, std::size_t count, bool* answers) const {
  std::array<Ray3f, kBatch> local;
  for (std::size_t first = 0; first < count; first += kBatch) {
    const std::size_t n = std::min(kBatch, count - first);
    local_->localRays(rays + first, n, local.data());
    local_->occluded(local.data(), n, answers + first);
  }
}

bool RayCaster::intersectAll(const WorldRay* rays, std::size_t count,
                             const std::function<void(std::size_t, const SurfaceHit&)>& visit,
                             const Work& work) const {
  std::vector<Ray3f> local(count);
  local_->localRays(rays, count, local.data());
  const detail::EntriesAlong entries(local_->entryBoxes(), local);
  std::vector<std::size_t> near;
  for (std::size_t i = 0; i < count; ++i) {
    if (work.isStopped()) return false;
    work.report(static_cast<double>(i) / static_cast<double>(count));
    entries.find(local[i], near);
    for (const std::size_t entry : near) {
      Ray3f ray = local[i];
      SurfaceHit hit;
      while (local_->intersectEntry(entry, ray, hit)) {
        visit(i, hit);
        // The next float past this hit, and past where the ray began: every round gets further.
        ray.minDistance =
            std::nextafter(std::max(static_cast<float>(hit.distance), ray.minDistance),
                           std::numeric_limits<float>::infinity());
        if (!(ray.minDistance < ray.maxDistance)) break;
      }
    }
  }
  work.report(1.0);
  return true;
}

ObjectSpace RayCaster::objectSpace(std::size_t entry) const {
  return {local_->list.entries[entry].worldFromObject, local_->base};
}

const std::vector<Problem>& RayCaster::problems() const { return local_->problems; }

}  // namespace vela::scene
