#include "vela/scene/RayCaster.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <utility>

#include "tarn/Box3.h"
#include "tarn/Ray.h"
#include "vela/intersect/HitDetect.h"
#include "vela/scene/CurvePrims.h"
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
  // How many moments there are at which anything stands elsewhere.
  [[nodiscard]] virtual std::size_t moments() const { return 0; }
  // The same questions at one of them.
  virtual void intersectAt(std::size_t, const Ray3f* rays, std::size_t count,
                           SurfaceHit* hits) const {
    intersect(rays, count, hits);
  }
  virtual void occludedAt(std::size_t, const Ray3f* rays, std::size_t count, bool* answers) const {
    occluded(rays, count, answers);
  }

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
  TracerCaster(const MeshList& meshes, const SceneMotion* motion, const Vec3d& middle)
      : LocalCaster(meshes, middle),
        motion_(motion && motion->anythingMoves() ? motion : nullptr),
        entries_(motion ? motion->entries : meshes.entries.size()) {}

  bool build(const Work& work) override {
    const Mat4d localFromWorld = makeLocalFromWorld();
    tracer_.reservePlacements(entries_);
    std::vector<std::uint32_t> numbers;
    numbers.reserve(list.shapes.size());
    for (const Shape& shape : list.shapes) {
      if (work.isStopped()) return false;
      numbers.push_back(shape.tubes
                            ? tracer_.addTubes(shape.points, shape.tubes->radii, shape.counts)
                            : tracer_.addMesh(shape.points, shape.counts, shape.indices));
    }
    const auto place = [&](SceneTracer& tracer, std::size_t i) {
      const MeshEntry& entry = list.entries[i];
      tracer.addPlacement(numbers[entry.shape], localFromWorld * entry.worldFromObject);
    };
    for (std::size_t i = 0; i < entries_; ++i) place(tracer_, i);
    // The tracer asks once for each mesh that it is about to build, and once at the end.
    double asked = 0.0;
    const auto isStopped = [&] {
      work.report(std::min(asked++ / static_cast<double>(tracer_.numMeshes() + 1), 1.0));
      return work.isStopped();
    };
    if (!tracer_.build(isStopped)) return false;
    if (!motion_) return true;

    // What stands still is there once, what moves once for each moment.
    const auto isStill = [&](std::uint32_t i) { return !motion_->moves[i]; };
    still_ = tracer_.withoutPlacements();
    for (std::uint32_t i = 0; i < entries_; ++i)
      if (isStill(i)) {
        stillEntries_.push_back(i);
        place(still_, i);
      } else {
        movingEntries_.push_back(i);
      }
    if (!still_.build(isStopped)) return false;
    for (const SceneMotion::Moment& moment : motion_->moments) {
      moments_.push_back(tracer_.withoutPlacements());
      for (std::uint32_t i = 0; i < moment.count; ++i) place(moments_.back(), moment.first + i);
      if (!moments_.back().build(isStopped)) return false;
    }
    return true;
  }

  void intersect(const Ray3f* rays, std::size_t count, SurfaceHit* hits) const override {
    std::array<TracerHit, kBatch> found;
    for (std::size_t first = 0; first < count; first += kBatch) {
      const std::size_t n = std::min(kBatch, count - first);
      tracer_.intersect(rays + first, n, found.data());
      for (std::size_t i = 0; i < n; ++i) hits[first + i] = surfaceHit(found[i]);
    }
  }

  std::size_t moments() const override { return moments_.size(); }

  void intersectAt(std::size_t moment, const Ray3f* rays, std::size_t count,
                   SurfaceHit* hits) const override {
    const SceneMotion::Moment& at = motion_->moments[moment];
    std::array<TracerHit, kBatch> still, moving;
    for (std::size_t first = 0; first < count; first += kBatch) {
      const std::size_t n = std::min(kBatch, count - first);
      still_.intersect(rays + first, n, still.data());
      moments_[moment].intersect(rays + first, n, moving.data());
      for (std::size_t i = 0; i < n; ++i) {
        const bool isMoving = moving[i].hit && (!still[i].hit || isFirst(moving[i], still[i]));
        hits[first + i] = surfaceHit(isMoving ? moving[i] : still[i]);
        hits[first + i].entry = !hits[first + i].hit ? 0
                                : isMoving           ? at.first + moving[i].placement
                                                     : stillEntries_[still[i].placement];
      }
    }
  }

  void occludedAt(std::size_t moment, const Ray3f* rays, std::size_t count,
                  bool* answers) const override {
    moments_[moment].occluded(rays, count, answers);
    std::array<bool, kBatch> still;
    for (std::size_t first = 0; first < count; first += kBatch) {
      const std::size_t n = std::min(kBatch, count - first);
      still_.occluded(rays + first, n, still.data());
      for (std::size_t i = 0; i < n; ++i) answers[first + i] = answers[first + i] || still[i];
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
    for (const Shape& shape : list.shapes) shapeBoxes.push_back(boxOf(shape));
    const Mat4d localFromWorld = makeLocalFromWorld();
    std::vector<Box3f> boxes;
    boxes.reserve(entries_);
    for (std::size_t i = 0; i < entries_; ++i) {
      const MeshEntry& entry = list.entries[i];
      boxes.emplace_back(
          shapeBoxes[entry.shape].transformed(localFromWorld * entry.worldFromObject));
    }
    return boxes;
  }

 private:
  // Of two hits at one distance that of the entry with the lower index is met, as in one tracer.
  [[nodiscard]] bool isFirst(const TracerHit& moving, const TracerHit& still) const {
    if (moving.distance != still.distance) return moving.distance < still.distance;
    return moving.placement < movingEntries_.size() &&
           movingEntries_[moving.placement] < stillEntries_[still.placement];
  }

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

  const SceneMotion* motion_;  // null where nothing moves
  std::size_t entries_;        // at the list's own time
  SceneTracer tracer_;         // of those
  // Of the moments, which share the meshes of the tracer: what stands still, and what moves.
  SceneTracer still_;
  std::vector<SceneTracer> moments_;
  std::vector<std::uint32_t> stillEntries_, movingEntries_;
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
                                               const SceneMotion* motion, const Extent& extent,
                                               double time) {
  if (kind == CasterKind::hitDetector) return std::make_unique<DetectorCaster>(list, time);
  return std::make_unique<TracerCaster>(list, motion, extent.center());
}

// Calls `ask` with each moment, the numbers of its rays and the rays themselves, in batches as full
// as they can be: many rays are faster than few.
template <class Ask>
void forEachMoment(const detail::LocalCaster& local, const WorldRay* rays, std::size_t count,
                   const Ask& ask) {
  // The rays in the order of their moments; those of none come last.
  const std::size_t moments = local.moments();
  const auto momentOf = [&](std::size_t i) {
    return std::min<std::size_t>(rays[i].moment, moments);
  };
  std::vector<std::size_t> starts(moments + 2, 0), order(count);
  for (std::size_t i = 0; i < count; ++i) ++starts[momentOf(i) + 1];
  for (std::size_t m = 1; m < starts.size(); ++m) starts[m] += starts[m - 1];
  std::vector<std::size_t> next(starts.begin(), starts.end() - 1);
  for (std::size_t i = 0; i < count; ++i) order[next[momentOf(i)]++] = i;

  std::array<Ray3f, kBatch> batch;
  for (std::size_t m = 0; m <= moments; ++m)
    for (std::size_t first = starts[m]; first < starts[m + 1]; first += kBatch) {
      const std::size_t n = std::min(kBatch, starts[m + 1] - first);
      for (std::size_t i = 0; i < n; ++i) batch[i] = local.localRay(rays[order[first + i]]);
      ask(m, &order[first], batch.data(), n);
    }
}

}  // namespace

RayCaster::RayCaster(std::unique_ptr<detail::LocalCaster> local) : local_(std::move(local)) {}

RayCaster::RayCaster(CasterKind kind, const MeshList& list, const Extent& extent, double time)
    : RayCaster(makeLocal(kind, list, nullptr, extent, time)) {
  local_->build({});
}

std::optional<RayCaster> RayCaster::built(RayCaster caster, Problem* problem, const Work& work) {
  if (!caster.local_->build(work)) {
    if (problem) *problem = {Problem::Kind::stopped, Problem::Severity::error, "", "stopped"};
    return std::nullopt;
  }
  work.report(1.0);
  return caster;
}

std::optional<RayCaster> RayCaster::make(CasterKind kind, const MeshList& list,
                                         const Extent& extent, double time, Problem* problem,
                                         const Work& work) {
  return built(RayCaster(makeLocal(kind, list, nullptr, extent, time)), problem, work);
}

std::optional<RayCaster> RayCaster::make(CasterKind kind, const MeshList& list,
                                         const SceneMotion& motion, const Extent& extent,
                                         double time, Problem* problem, const Work& work) {
  return built(RayCaster(makeLocal(kind, list, &motion, extent, time)), problem, work);
}

RayCaster::~RayCaster() = default;
RayCaster::RayCaster(RayCaster&&) noexcept = default;
RayCaster& RayCaster::operator=(RayCaster&&) noexcept = default;

void RayCaster::intersect(const WorldRay* rays, std::size_t count, SurfaceHit* hits) const {
  if (local_->moments() > 0) {
    std::array<SurfaceHit, kBatch> found;
    forEachMoment(
        *local_, rays, count,
        [&](std::size_t moment, const std::size_t* numbers, const Ray3f* batch, std::size_t n) {
          if (moment < local_->moments())
            local_->intersectAt(moment, batch, n, found.data());
          else
            local_->intersect(batch, n, found.data());
          for (std::size_t i = 0; i < n; ++i) hits[numbers[i]] = found[i];
        });
    return;
  }
  std::array<Ray3f, kBatch> local;
  for (std::size_t first = 0; first < count; first += kBatch) {
    const std::size_t n = std::min(kBatch, count - first);
    local_->localRays(rays + first, n, local.data());
    local_->intersect(local.data(), n, hits + first);
  }
}

void RayCaster::occluded(const WorldRay* rays, std::size_t count, bool* answers) const {
  if (local_->moments() > 0) {
    std::array<bool, kBatch> found;
    forEachMoment(
        *local_, rays, count,
        [&](std::size_t moment, const std::size_t* numbers, const Ray3f* batch, std::size_t n) {
          if (moment < local_->moments())
            local_->occludedAt(moment, batch, n, found.data());
          else
            local_->occluded(batch, n, found.data());
          for (std::size_t i = 0; i < n; ++i) answers[numbers[i]] = found[i];
        });
    return;
  }
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
