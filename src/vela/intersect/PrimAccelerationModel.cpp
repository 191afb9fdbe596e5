// What reads scene prims: the model of placed meshes, its accelerators, and a mesh prim's
// triangles.
#include <atomic>
#include <deque>
#include <map>
#include <mutex>
#include <utility>

#include "ovo/MeshPrim.h"
#include "ovo/Prim.h"
#include "ovo/Stage.h"
#include "ovo/Tokens.h"
#include "ovo/Xform.h"
#include "tarn/Mat4.h"
#include "tarn/Time.h"
#include "vela/intersect/AccelerationModel.h"
#include "vela/intersect/GridAcceleration.h"

namespace vela {

TriangleAccelerationModel::TriangleAccelerationModel(const ovo::MeshPrim& mesh, double time) {
  ovo::Array<int> counts, indices;
  mesh.getAttr(ovo::tokens().points).get(points_, time);
  mesh.getAttr(ovo::tokens().faceVertexCounts).get(counts, tarn::earliestTimeValue());
  mesh.getAttr(ovo::tokens().faceVertexIndices).get(indices, tarn::earliestTimeValue());
  initialize(counts, indices);
}

// ---- MeshAccelerator

struct MeshAccelerator::Block {
  explicit Block(TriangleAccelerationModel&& triangles)
      : model(std::move(triangles)), grid(model) {}
  TriangleAccelerationModel model;
  GridAcceleration grid;
};

MeshAccelerator::MeshAccelerator(const ovo::Array<tarn::Vec3f>& points,
                                 const ovo::Array<int>& faceVertexCounts,
                                 const ovo::Array<int>& faceVertexIndices, std::size_t id)
    : MeshAccelerator(std::make_shared<const Block>(
                          TriangleAccelerationModel(points, faceVertexCounts, faceVertexIndices)),
                      id) {}
MeshAccelerator::MeshAccelerator(const ovo::MeshPrim& mesh, std::size_t id, double time)
    : MeshAccelerator(std::make_shared<const Block>(TriangleAccelerationModel(mesh, time)), id) {}
MeshAccelerator::MeshAccelerator(std::shared_ptr<const Block> block, std::size_t id)
    : id_(id), block_(std::move(block)) {}
MeshAccelerator::~MeshAccelerator() = default;

bool MeshAccelerator::intersect(const IntersectionContext& ctx, const tarn::Ray3f& ray,
                                CollisionResult& result) const {
  if (!block_->grid.intersect(ctx, ray, result)) return false;
  result.primitiveIndex = static_cast<std::uint32_t>(id_);
  return true;
}

// ---- PrimAccelerationModel

class PrimAccelerationModelImpl : public AccelerationModel {
 public:
  explicit PrimAccelerationModelImpl(double time) : time_(time) {}

  void add(const ovo::Prim& prim, const tarn::Mat4d& worldFromLocal, double time) {
    Entry entry;
    entry.mesh = ovo::MeshPrim(prim);
    entry.worldFromLocal = tarn::Mat4f(worldFromLocal);
    entry.localFromWorld = entry.worldFromLocal.inverse();
    entry.box = entry.mesh.getBoundsBox(time, false).transformed(worldFromLocal);
    bounds_.extendBy(entry.box);
    entries_.push_back(entry);
  }

  [[nodiscard]] ovo::Prim prim(std::size_t i) const { return entries_[i].mesh; }
  [[nodiscard]] std::size_t size() const override { return entries_.size(); }
  [[nodiscard]] tarn::Box3f bounds(std::size_t i) const override { return entries_[i].box; }
  [[nodiscard]] tarn::Box3f bounds() const override { return bounds_; }

  // Why no ray can hit an entry; empty when one can.
  [[nodiscard]] std::string whyNeverHit(std::size_t i) const {
    const Entry& entry = entries_[i];
    const char* const why = !entry.mesh.isValid() ? "it is no mesh"
                            : entry.box.isEmpty() ? "it has no points"
                            : entry.localFromWorld == tarn::Mat4f(0.0f)
                                ? "its placement has no inverse"
                                : nullptr;
    return why ? entry.mesh.getPath().asString() + ": " + why : std::string();
  }

  [[nodiscard]] bool exclude(const IntersectionContext& ctx, std::size_t i) const override {
    // An empty set is not searched: the search would hash the prim's path all the same.
    const ovo::Prim& prim = entries_[i].mesh;
    if (!ctx.excludedPaths.empty() && ctx.excludedPaths.count(prim.getPath()) != 0) return true;
    if (ctx.includedTypeNames.empty()) return false;
    return ctx.includedTypeNames.count(prim.getTypeName()) == 0;
  }

  bool intersect(const IntersectionContext& ctx, const tarn::Ray3f& ray, std::size_t i,
                 CollisionResult& result) const override {
    if (exclude(ctx, i)) return false;
    const Entry& entry = entries_[i];

    // The direction is not normalised: a distance along the local ray is one along the given ray.
    const tarn::Ray3f local(entry.localFromWorld.transformPoint(ray.origin),
                            entry.localFromWorld.transformVector(ray.direction), ray.minDistance,
                            ray.maxDistance);

    // Whether the prim is still a mesh is checked last: few rays get there, and the answer lies
    // elsewhere in memory.
    const GridAcceleration* const triangles = grid(entry, i);
    CollisionResult found;
    if (triangles == nullptr || !triangles->intersect(ctx, local, found) || !entry.mesh.isValid())
      return false;

    result = found;
    result.primitiveIndex = entry.ready.builder;
    result.position = entry.worldFromLocal.transformPoint(found.position);
    result.normal = entry.localFromWorld.transposed().transformVector(found.normal).normalized();
    return true;
  }

 private:
  // What queries need of an accelerator. The id is written before the pointer is published, and
  // never again.
  struct Ready {
    std::atomic<const GridAcceleration*> grid{nullptr};
    std::uint32_t builder = 0;

    Ready() = default;
    // No query runs while meshes are added.
    Ready(const Ready& other) noexcept
        : grid(other.grid.load(std::memory_order_relaxed)), builder(other.builder) {}
    Ready& operator=(const Ready&) = delete;
  };
  // In the order of use: most queries end after the matrix and the grid's box.
  struct alignas(64) Entry {
    tarn::Mat4f localFromWorld;
    mutable Ready ready;
    ovo::MeshPrim mesh;  // made from any prim; whether it is a mesh is checked at each hit
    tarn::Box3f box;
    tarn::Mat4f worldFromLocal;
  };

  // The accelerator of a prim, built at its first use; null when the prim is no mesh.
  const GridAcceleration* grid(const Entry& entry, std::size_t i) const {
    // The hit path takes no lock: accelerators are never replaced or moved, so one that an entry
    // has seen stays good.
    if (const GridAcceleration* const ready = entry.ready.grid.load(std::memory_order_acquire))
      return ready;

    // Built inside the lock: of threads that reach the prim together one builds and the others wait
    // for it.
    if (!entry.mesh.isValid()) return nullptr;
    const std::lock_guard<std::mutex> lock(cacheMutex_);
    if (const GridAcceleration* const ready = entry.ready.grid.load(std::memory_order_relaxed))
      return ready;
    std::unique_ptr<MeshAccelerator>& slot = accelerators_[entry.mesh];
    if (!slot)
      slot.reset(new MeshAccelerator(blockOf(TriangleAccelerationModel(entry.mesh, time_)), i));
    entry.ready.builder = static_cast<std::uint32_t>(slot->id_);
    entry.ready.grid.store(&slot->block_->grid, std::memory_order_release);
    return &slot->block_->grid;
  }

  // The block of these triangles: scenes of many copies keep one, which also stays in the
  // processor's caches.
  std::shared_ptr<const MeshAccelerator::Block> blockOf(
      TriangleAccelerationModel&& triangles) const {
    const std::uint64_t key = triangles.roughHash();
    const auto [begin, end] = blocks_.equal_range(key);
    for (auto it = begin; it != end; ++it)
      if (it->second->model.hasSameTriangles(triangles)) return it->second;
    return blocks_
        .emplace(key, std::make_shared<const MeshAccelerator::Block>(std::move(triangles)))
        ->second;
  }

  std::vector<Entry> entries_;
  double time_;
  tarn::Box3f bounds_;
  mutable std::mutex cacheMutex_;
  mutable std::map<ovo::Prim, std::unique_ptr<MeshAccelerator>> accelerators_;
  mutable std::unordered_multimap<std::uint64_t, std::shared_ptr<const MeshAccelerator::Block>>
      blocks_;  // never iterated over: its order does not matter
};

PrimAccelerationModel::PrimAccelerationModel(double time)
    : impl_(std::make_unique<PrimAccelerationModelImpl>(time)) {}
PrimAccelerationModel::~PrimAccelerationModel() = default;

ovo::Prim PrimAccelerationModel::operator[](int i) const {
  return i >= 0 && static_cast<std::size_t>(i) < impl_->size()
             ? impl_->prim(static_cast<std::size_t>(i))
             : ovo::Prim();
}

void PrimAccelerationModel::addMeshPrims(const std::shared_ptr<ovo::Stage>& stage, double time) {
  if (stage) addMeshPrims(stage->getRootPrim(), time);
}

void PrimAccelerationModel::addMeshPrims(const std::vector<ovo::MeshPrim>& meshes, double time) {
  ovo::XformCache cache(time);
  for (const ovo::MeshPrim& mesh : meshes) impl_->add(mesh, cache.getLocalToWorld(mesh), time);
}

void PrimAccelerationModel::addMeshPrims(const ovo::Prim& prim, double time) {
  std::deque<std::pair<ovo::Prim, tarn::Mat4d>> queue;
  // KEEP(walk-starts-at-identity): a start prim without a transform ignores what is above it. Hosts
  // hand such prims in as roots of their own.
  tarn::Mat4d start;
  if (ovo::XformablePrim(prim).isValid()) start = ovo::XformCache(time).getLocalToWorld(prim);
  queue.emplace_back(prim, start);

  std::vector<ovo::Prim> children;
  while (!queue.empty()) {
    const auto [taken, worldFromLocal] = std::move(queue.front());
    queue.pop_front();
    taken.getChildren(children, true, false, true);
    for (const ovo::Prim& child : children) {
      const ovo::XformablePrim xformable(child);
      queue.emplace_back(child, xformable.isValid() ? worldFromLocal * xformable.getLocalXform(time)
                                                    : worldFromLocal);
    }
    if (ovo::MeshPrim(taken).isValid()) impl_->add(taken, worldFromLocal, time);
  }
}

namespace {

// Of the entries from `first` on, the first that cannot be hit; where there are none, `whyNone`.
std::size_t tellEntries(const PrimAccelerationModelImpl& impl, std::size_t first,
                        const std::string& whyNone, std::string* error) {
  const std::size_t count = impl.size() - first;
  if (error) {
    *error = count == 0 ? whyNone : std::string();
    for (std::size_t i = first; i < impl.size() && error->empty(); ++i)
      *error = impl.whyNeverHit(i);
  }
  return count;
}

}  // namespace

std::size_t PrimAccelerationModel::addMeshPrims(const std::shared_ptr<ovo::Stage>& stage,
                                                double time, std::string* error) {
  const std::size_t first = size();
  addMeshPrims(stage, time);
  return tellEntries(*impl_, first, stage ? "the stage has no meshes" : "there is no stage", error);
}

std::size_t PrimAccelerationModel::addMeshPrims(const std::vector<ovo::MeshPrim>& meshes,
                                                double time, std::string* error) {
  const std::size_t first = size();
  addMeshPrims(meshes, time);
  return tellEntries(*impl_, first, "no meshes were given", error);
}

std::size_t PrimAccelerationModel::addMeshPrims(const ovo::Prim& prim, double time,
                                                std::string* error) {
  const std::size_t first = size();
  addMeshPrims(prim, time);
  const std::string whyNone = prim.isValid() ? prim.getPath().asString() + ": no meshes are there"
                                             : "the prim is not valid";
  return tellEntries(*impl_, first, whyNone, error);
}

std::size_t PrimAccelerationModel::size() const { return impl_->size(); }
tarn::Box3f PrimAccelerationModel::bounds(std::size_t i) const { return impl_->bounds(i); }
tarn::Box3f PrimAccelerationModel::bounds() const { return impl_->bounds(); }
bool PrimAccelerationModel::intersect(const IntersectionContext& ctx, const tarn::Ray3f& ray,
                                      std::size_t i, CollisionResult& result) const {
  return impl_->intersect(ctx, ray, i, result);
}
bool PrimAccelerationModel::exclude(const IntersectionContext& ctx, std::size_t i) const {
  return impl_->exclude(ctx, i);
}

}  // namespace vela
