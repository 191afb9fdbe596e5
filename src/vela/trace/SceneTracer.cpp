#include "vela/trace/SceneTracer.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

#include "ovo/Faces.h"
#include "ovo/MeshPrim.h"
#include "tarn/Area.h"
#include "tarn/Hash.h"
#include "vela/trace/detail/TracerKernel.h"
#include "vela/trace/detail/TracerMemory.h"
#include "vela/trace/detail/TracerRounds.h"
#include "vela/trace/detail/WideTree.h"

namespace vela {

using tracer::kNone;

namespace {

template <class T>
bool hasSameBits(const ovo::Array<T>& a, const ovo::Array<T>& b) {
  if (a.isIdentical(b)) return true;
  return a.size() == b.size() &&
         (a.empty() || std::memcmp(a.cdata(), b.cdata(), a.size() * sizeof(T)) == 0);
}

// The size of an array and a few of its values: enough to tell most meshes apart, at no cost that
// grows with them. Equal keys are followed by a whole comparison.
template <class T>
void appendSamples(tarn::Hash& hash, const ovo::Array<T>& array) {
  constexpr std::size_t kSamples = 32;
  hash.append(static_cast<std::uint32_t>(array.size()));
  const std::size_t step = array.size() / kSamples + 1;
  for (std::size_t i = 0; i < array.size(); i += step) hash.append(array.cdata() + i, sizeof(T));
}

// The normal of the whole face, for a triangle of it that has no area of its own.
tarn::Vec3d faceNormal(const tracer::Mesh& mesh, std::size_t triangle) {
  const ovo::Face face =
      ovo::Faces(mesh.counts, mesh.indices)[static_cast<std::size_t>(mesh.source(triangle).face)];
  return tarn::areaVector(face.size(), [&](std::size_t k) {
    const tarn::Vec3d p(mesh.points.view()[face[k]]);
    return tarn::Vec3d(std::ldexp(p.x, -mesh.frame.exponent), std::ldexp(p.y, -mesh.frame.exponent),
                       std::ldexp(p.z, -mesh.frame.exponent));
  });
}

}  // namespace

struct SceneTracer::Impl {
  struct MeshTable {
    std::vector<tracer::Mesh> meshes;
    std::unordered_multimap<std::uint64_t, std::uint32_t> meshOfSamples;
  };
  std::shared_ptr<MeshTable> table = std::make_shared<MeshTable>();  // of several tracers, perhaps
  tracer::LargeVector<tracer::Placement> placements;
  tracer::LargeVector<tracer::Node> nodes;
  std::vector<std::uint32_t> unboxed;
  std::uint32_t onlyPlacement = kNone;
  std::size_t numBuilt = 0;  ///< placements that were there at the last build
  tarn::Box3f bounds;
  tracer::KernelFunctions kernel = tracer::bestKernel();
  tracer::SceneView scene;  ///< what queries see, kept since reading it anew would delay each ray

  [[nodiscard]] const std::vector<tracer::Mesh>& meshes() const { return table->meshes; }
  // To be changed: other tracers keep the table as it was.
  MeshTable& ownTable() {
    if (table.use_count() > 1) {
      table = std::make_shared<MeshTable>(*table);
      renewView();
    }
    return *table;
  }

  // Called by whatever changes the tables that it points into.
  void renewView() {
    scene.meshes = meshes().data();
    scene.placements = placements.data();
    scene.nodes = nodes.empty() ? nullptr : nodes.data();
    scene.onlyPlacement = onlyPlacement;
    scene.unboxed = unboxed.data();
    scene.numUnboxed = unboxed.size();
  }

  // The number of a mesh with these arrays, which is new or was there already.
  std::uint32_t add(tracer::Mesh&& mesh) {
    tarn::Hash hash;
    appendSamples(hash, mesh.points);
    appendSamples(hash, mesh.counts);
    appendSamples(hash, mesh.indices);
    appendSamples(hash, mesh.radii);
    const auto [begin, end] = table->meshOfSamples.equal_range(hash.value());
    for (auto it = begin; it != end; ++it) {
      const tracer::Mesh& known = meshes()[it->second];
      if (known.isRound == mesh.isRound && hasSameBits(known.points, mesh.points) &&
          hasSameBits(known.counts, mesh.counts) && hasSameBits(known.indices, mesh.indices) &&
          hasSameBits(known.radii, mesh.radii))
        return it->second;
    }

    const auto id = static_cast<std::uint32_t>(meshes().size());
    mesh.prepare();
    scene.hasTubes = scene.hasTubes || !mesh.pieces.empty();
    MeshTable& own = ownTable();
    own.meshes.push_back(std::move(mesh));
    own.meshOfSamples.emplace(hash.value(), id);
    renewView();
    return id;
  }

  // A normal of a mesh's own space in the world, of unit length.
  static tarn::Vec3f worldNormal(const tracer::Placement& placement, const tarn::Vec3d& local) {
    const auto& m = placement.localFromWorld.column;
    tarn::Vec3d world;
    for (std::size_t i = 0; i < 3; ++i)
      world[i] = m[i][0] * local.x + m[i][1] * local.y + m[i][2] * local.z;
    // Scaled to a largest component of 1, so that the squares neither overflow nor underflow.
    const double largest =
        std::max(std::fabs(world.x), std::max(std::fabs(world.y), std::fabs(world.z)));
    if (largest > 0.0) world = world / largest;
    return tarn::Vec3f(world.normalized());
  }

  // The rest of the record of a ray that has hit a tube.
  template <class T>
  void describePiece(const tarn::Ray<T>& ray, const tracer::Nearest& nearest,
                     TracerHit& hit) const {
    const tracer::Placement& placement = placements[nearest.placement];
    const tracer::Mesh& mesh = scene.meshes[placement.mesh];
    const tracer::Piece& piece = mesh.pieces[nearest.triangle];
    const tracer::Joint &a = mesh.joints[piece.a], &b = mesh.joints[piece.b];
    tracer::LocalRay local;
    // A ray that has met the piece is one.
    if (!tracer::makeLocalRay(placement.localFromWorld, mesh.frame, ray, local)) return;
    double at[3];
    for (std::size_t i = 0; i < 3; ++i)
      at[i] = local.exactOrigin[i] + nearest.crossing.a * local.exactDirection[i];
    const double along = tracer::alongPiece(a, b, at);
    const tarn::Vec3d from(static_cast<double>(a.x), static_cast<double>(a.y),
                           static_cast<double>(a.z));
    const tarn::Vec3d to(static_cast<double>(b.x), static_cast<double>(b.y),
                         static_cast<double>(b.z));
    const tarn::Vec3d centre = from + (to - from) * along;
    tarn::Vec3d normal = tarn::Vec3d(at[0], at[1], at[2]) - centre;
    // At a tip of radius 0 any direction would do.
    if (normal == tarn::Vec3d())
      for (std::size_t i = 0; i < 3; ++i) normal[i] = -local.exactDirection[i];
    hit.normal = worldNormal(placement, normal);
    hit.face = piece.tube;
    for (std::size_t c = 0; c < 3; ++c)
      hit.points[c] = hit.faceVertices[c] = static_cast<std::int32_t>(c == 0 ? piece.a : piece.b);
    hit.u = static_cast<float>(along);
  }

  // Fills the record of a ray that has hit.
  template <class T>
  void describe(const tarn::Ray<T>& ray, const tracer::Nearest& nearest, TracerHit& hit) const {
    const tracer::Placement& placement = placements[nearest.placement];
    const tracer::Mesh& mesh = scene.meshes[placement.mesh];
    hit.hit = true;
    hit.distance = nearest.distance;
    for (std::size_t i = 0; i < 3; ++i)
      hit.position[i] =
          static_cast<float>(static_cast<double>(ray.origin[i]) +
                             nearest.distance * static_cast<double>(ray.direction[i]));
    hit.placement = nearest.placement;
    if (mesh.isRound) return describePiece(ray, nearest, hit);

    // The normal, in double: corners of a small far triangle differ in their last bits only.
    const auto corner = [&](std::size_t c) {
      const auto& from = nearest.block->corner[c];
      return tarn::Vec3d(static_cast<double>(from[0][nearest.lane]),
                         static_cast<double>(from[1][nearest.lane]),
                         static_cast<double>(from[2][nearest.lane]));
    };
    const tarn::Vec3d a = corner(0);
    tarn::Vec3d local = tarn::cross(corner(1) - a, corner(2) - a);
    if (local == tarn::Vec3d()) local = faceNormal(mesh, nearest.triangle);
    hit.normal = worldNormal(placement, local);

    const tracer::TriangleSource source = mesh.source(nearest.triangle);
    hit.face = source.face;
    for (std::size_t c = 0; c < 3; ++c) {
      hit.faceVertices[c] = source.faceVertex[c];
      hit.points[c] = mesh.indices.view()[source.faceVertex[c]];
    }
    hit.u = static_cast<float>(nearest.crossing.b / nearest.crossing.sum);
    hit.v = static_cast<float>(nearest.crossing.c / nearest.crossing.sum);
  }

  template <class T>
  bool intersect(const tracer::SceneView& view, const tarn::Ray<T>& ray, TracerHit& hit) const {
    hit = TracerHit();
    tracer::Nearest nearest;
    kernel.of<T>().nearest(view, ray, nearest);
    if (nearest.placement == kNone) return false;
    describe(ray, nearest, hit);
    return true;
  }

  template <class T>
  bool intersectPlacement(std::uint32_t placement, const tarn::Ray<T>& ray, TracerHit& hit) const {
    hit = TracerHit();
    if (placement >= numBuilt || !placements[placement].isUsable) return false;
    // A scene without a tree, in which this placement is the only one to be asked.
    tracer::SceneView alone = scene;
    alone.nodes = nullptr;
    alone.unboxed = &placement;
    alone.numUnboxed = 1;
    return intersect(alone, ray, hit);
  }

  template <class T>
  void intersectSpan(const tarn::Ray<T>* rays, std::size_t count, TracerHit* hits) const {
    struct Call {
      const Impl& self;
      const tarn::Ray<T>* rays;
      TracerHit* hits;
      static void take(const void* call, std::size_t ray, const tracer::Nearest& nearest) {
        const Call& c = *static_cast<const Call*>(call);
        c.hits[ray] = TracerHit();
        if (nearest.placement != kNone) c.self.describe(c.rays[ray], nearest, c.hits[ray]);
      }
    };
    const Call call{*this, rays, hits};
    if (kernel.of<T>().nearestOfSpan(scene, rays, count, {Call::take, &call})) return;
    for (std::size_t i = 0; i < count; ++i) intersect(scene, rays[i], hits[i]);
  }

  template <class T>
  void occludedSpan(const tarn::Ray<T>* rays, std::size_t count, bool* occluded) const {
    const auto take = [](const void* answers, std::size_t ray, const tracer::Nearest& nearest) {
      (*static_cast<bool* const*>(answers))[ray] = nearest.placement != kNone;
    };
    if (kernel.of<T>().occludedOfSpan(scene, rays, count, {take, &occluded})) return;
    for (std::size_t i = 0; i < count; ++i) occluded[i] = kernel.of<T>().occluded(scene, rays[i]);
  }
};

SceneTracer::SceneTracer() : impl_(std::make_unique<Impl>()) {}
SceneTracer::~SceneTracer() = default;
SceneTracer::SceneTracer(SceneTracer&&) noexcept = default;
SceneTracer& SceneTracer::operator=(SceneTracer&&) noexcept = default;

std::uint32_t SceneTracer::addMesh(const ovo::Array<tarn::Vec3f>& points,
                                   const ovo::Array<int>& faceVertexCounts,
                                   const ovo::Array<int>& faceVertexIndices) {
  tracer::Mesh mesh;
  mesh.points = points;
  mesh.counts = faceVertexCounts;
  mesh.indices = faceVertexIndices;
  return impl_->add(std::move(mesh));
}

std::uint32_t SceneTracer::addTubes(const ovo::Array<tarn::Vec3f>& points,
                                    const ovo::Array<float>& radii, const ovo::Array<int>& counts) {
  tracer::Mesh mesh;
  mesh.isRound = true;
  mesh.points = points;
  mesh.radii = radii;
  mesh.counts = counts;
  return impl_->add(std::move(mesh));
}

std::uint32_t SceneTracer::addMesh(const ovo::MeshPrim& prim, double time) {
  ovo::Array<tarn::Vec3f> points;
  ovo::Array<int> counts, indices;
  bool reverseWinding = false;
  prim.getPoints(points, time);
  prim.getFaceTopology(counts, indices, reverseWinding, time);
  return addMesh(points, counts, indices);
}

std::uint32_t SceneTracer::addPlacement(std::uint32_t mesh, const tarn::Mat4d& worldFromLocal) {
  tracer::Placement placement;
  placement.mesh = mesh;
  placement.isUsable = mesh < impl_->meshes().size() && !impl_->meshes()[mesh].isEmpty() &&
                       tracer::makeLocalFromWorld(worldFromLocal, impl_->meshes()[mesh].frame,
                                                  placement.localFromWorld);
  impl_->placements.push_back(placement);
  impl_->renewView();
  return static_cast<std::uint32_t>(impl_->placements.size() - 1);
}

SceneTracer SceneTracer::withoutPlacements() const {
  SceneTracer other;
  other.impl_->table = impl_->table;
  other.impl_->scene.hasTubes = impl_->scene.hasTubes;
  other.impl_->kernel = impl_->kernel;
  other.impl_->renewView();
  return other;
}

void SceneTracer::reservePlacements(std::size_t count) {
  impl_->placements.reserve(count);
  impl_->renewView();
}

void SceneTracer::build() { build({}); }

bool SceneTracer::build(const std::function<bool()>& isStopped) {
  for (std::size_t i = 0; i < impl_->meshes().size(); ++i) {
    if (impl_->meshes()[i].isBuilt) continue;
    if (isStopped && isStopped()) return false;
    impl_->ownTable().meshes[i].build();
  }
  if (isStopped && isStopped()) return false;

  // A tree over the placements that have a box; the others are asked every time.
  std::vector<tracer::BuildBox> boxes;
  boxes.reserve(impl_->placements.size());
  impl_->unboxed.clear();
  impl_->bounds = tarn::Box3f();
  for (std::size_t i = 0; i < impl_->placements.size(); ++i) {
    const tracer::Placement& placement = impl_->placements[i];
    if (!placement.isUsable) continue;
    tracer::BuildBox box{};
    box.index = static_cast<std::uint32_t>(i);
    if (tracer::placementBox(placement.localFromWorld, impl_->meshes()[placement.mesh].frame,
                             box)) {
      boxes.push_back(box);
      impl_->bounds.extendBy(tarn::Box3f({box.low[0], box.low[1], box.low[2]},
                                         {box.high[0], box.high[1], box.high[2]}));
    } else {
      impl_->unboxed.push_back(box.index);
    }
  }
  impl_->numBuilt = impl_->placements.size();
  impl_->onlyPlacement = boxes.size() == 1 ? boxes[0].index : kNone;
  tracer::buildTreeOfSingles(boxes, impl_->nodes);
  impl_->nodes.shrink_to_fit();
  impl_->scene.limits = tracer::limitsOf(impl_->nodes);
  std::uint32_t mostInMesh = 0;
  for (const tracer::Mesh& mesh : impl_->meshes())
    mostInMesh = std::max(mostInMesh, mesh.limits.mostWaiting);
  impl_->scene.limits.mostWaiting += mostInMesh;
  impl_->renewView();
  return true;
}

// Queries: each public form calls the one body for its type of ray.

bool SceneTracer::intersect(const tarn::Ray3f& ray, TracerHit& hit) const {
  return impl_->intersect(impl_->scene, ray, hit);
}
void SceneTracer::intersect(const tarn::Ray3f* rays, std::size_t count, TracerHit* hits) const {
  impl_->intersectSpan(rays, count, hits);
}
bool SceneTracer::intersectPlacement(std::uint32_t placement, const tarn::Ray3f& ray,
                                     TracerHit& hit) const {
  return impl_->intersectPlacement(placement, ray, hit);
}
bool SceneTracer::occluded(const tarn::Ray3f& ray) const {
  return impl_->kernel.ofFloat.occluded(impl_->scene, ray);
}
void SceneTracer::occluded(const tarn::Ray3f* rays, std::size_t count, bool* occluded) const {
  impl_->occludedSpan(rays, count, occluded);
}

template <class T, class>
bool SceneTracer::intersect(const tarn::Ray<T>& ray, TracerHit& hit) const {
  return impl_->intersect(impl_->scene, ray, hit);
}
template <class T, class>
void SceneTracer::intersect(const tarn::Ray<T>* rays, std::size_t count, TracerHit* hits) const {
  impl_->intersectSpan(rays, count, hits);
}
template <class T, class>
bool SceneTracer::intersectPlacement(std::uint32_t placement, const tarn::Ray<T>& ray,
                                     TracerHit& hit) const {
  return impl_->intersectPlacement(placement, ray, hit);
}
template <class T, class>
bool SceneTracer::occluded(const tarn::Ray<T>& ray) const {
  return impl_->kernel.ofDouble.occluded(impl_->scene, ray);
}
template <class T, class>
void SceneTracer::occluded(const tarn::Ray<T>* rays, std::size_t count, bool* occluded) const {
  impl_->occludedSpan(rays, count, occluded);
}
template VELA_API bool SceneTracer::intersect(const tarn::Ray3d&, TracerHit&) const;
template VELA_API void SceneTracer::intersect(const tarn::Ray3d*, std::size_t, TracerHit*) const;
template VELA_API bool SceneTracer::intersectPlacement(std::uint32_t, const tarn::Ray3d&,
                                                       TracerHit&) const;
template VELA_API bool SceneTracer::occluded(const tarn::Ray3d&) const;
template VELA_API void SceneTracer::occluded(const tarn::Ray3d*, std::size_t, bool*) const;

std::size_t SceneTracer::numMeshes() const { return impl_->meshes().size(); }
std::size_t SceneTracer::numPlacements() const { return impl_->placements.size(); }
std::size_t SceneTracer::numTriangles(std::uint32_t mesh) const {
  return mesh < impl_->meshes().size() ? impl_->meshes()[mesh].numTriangles : 0;
}
std::size_t SceneTracer::numPieces(std::uint32_t mesh) const {
  return mesh < impl_->meshes().size() ? impl_->meshes()[mesh].pieces.size() : 0;
}
std::uint32_t SceneTracer::placementMesh(std::uint32_t placement) const {
  return placement < impl_->placements.size() ? impl_->placements[placement].mesh : kNone;
}
tarn::Box3f SceneTracer::bounds() const { return impl_->bounds; }

std::size_t SceneTracer::memoryUsage() const {
  std::size_t bytes = impl_->placements.capacity() * sizeof(tracer::Placement) +
                      impl_->nodes.capacity() * sizeof(tracer::Node) +
                      impl_->unboxed.capacity() * sizeof(std::uint32_t) +
                      impl_->meshes().capacity() * sizeof(tracer::Mesh);
  for (const tracer::Mesh& mesh : impl_->meshes())
    bytes += mesh.sources.capacity() * sizeof(tracer::TriangleSource) +
             mesh.nodes.capacity() * sizeof(tracer::Node) +
             mesh.blocks.capacity() * sizeof(tracer::Block) +
             mesh.pieces.capacity() * sizeof(tracer::Piece) +
             mesh.joints.capacity() * sizeof(tracer::Joint);
  return bytes;
}

void SceneTracer::setKernel(Kernel kernel) {
  impl_->kernel = kernel == Kernel::plain ? tracer::plainKernel() : tracer::bestKernel();
}

}  // namespace vela
