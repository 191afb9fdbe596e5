/// \file
/// Rays against one mesh and against a thousand placed copies: the given structures, the tracer and
/// Embree in one process.
///
/// Candidates take turns, so that a machine that slows down slows all of them; the median of the
/// rounds counts. Rates are in million rays per second of processor time, ratios against Embree's
/// single-ray call in robust mode where it is there.
///
/// Usage: bench_rays [--json FILE] [--quick] [--tracer] [--scene NAME]...
///   --tracer  the tracer and Embree's robust mode alone
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <iostream>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#if defined(VELA_WITH_EMBREE)
#include <embree3/rtcore.h>
#endif

#include "bench/Measure.h"
#include "ovo/MeshPrim.h"
#include "ovo/Stage.h"
#include "support/SampleMeshes.h"
#include "tarn/Mat4.h"
#include "tarn/Ray.h"
#include "vela/intersect/Acceleration.h"
#include "vela/intersect/AccelerationModel.h"
#include "vela/intersect/BvhAcceleration.h"
#include "vela/intersect/GridAcceleration.h"
#include "vela/intersect/HitDetect.h"
#include "vela/trace/SceneTracer.h"

namespace {

using tarn::Mat4d;
using tarn::Ray3f;
using tarn::Vec3f;
using vela_bench::median;
using vela_test::SampleMesh;
/// Processor time, not time on the wall: other programs may run meanwhile.
double processorSeconds() { return vela_bench::processorTime() * 1e-3; }
double secondsSince(double start) { return processorSeconds() - start; }

struct Scene {
  std::string name;
  SampleMesh mesh;
  std::vector<Mat4d> placements;
  float radius = 1.15f;
  bool isSmall = false;  ///< few enough triangles, or a point in testing them all
};

/// The bumpy sphere inside one cell of the grid, since a floor two thousand times its size lies
/// under it.
SampleMesh makeCrowd(int triangles) {
  SampleMesh mesh = vela_test::makeBumpySphere(triangles);
  const float low = -1969.0f, high = 2031.0f, y = -1.5f;
  const auto first = static_cast<int>(mesh.points.size());
  for (const Vec3f& p :
       {Vec3f(low, y, low), Vec3f(low, y, high), Vec3f(high, y, high), Vec3f(high, y, low)})
    mesh.points.push_back(p);
  for (const int corner : {0, 1, 2, 0, 2, 3}) mesh.indices.push_back(first + corner);
  mesh.counts.push_back(3);
  mesh.counts.push_back(3);
  return mesh;
}

/// One way to answer. Both calls return a sum that depends on every answer, so none is optimised
/// away.
struct Candidate {
  std::string name;
  std::function<double(const std::vector<Ray3f>&)> closest, any;
  double buildSeconds = 0.0;
  double bytesPerTriangle = 0.0;  ///< 0: not known
};

std::size_t numTriangles(const Scene& scene) { return scene.mesh.counts.size(); }

// Tracer

void addTracer(const Scene& scene, std::vector<Candidate>& out) {
  const auto tracer = std::make_shared<vela::SceneTracer>();
  const auto start = processorSeconds();
  const std::uint32_t mesh =
      tracer->addMesh(scene.mesh.points, scene.mesh.counts, scene.mesh.indices);
  for (const Mat4d& m : scene.placements) tracer->addPlacement(mesh, m);
  tracer->build();
  Candidate one;
  one.name = "tracer";
  one.buildSeconds = secondsSince(start);
  one.bytesPerTriangle =
      static_cast<double>(tracer->memoryUsage()) / static_cast<double>(numTriangles(scene));
  one.closest = [tracer](const std::vector<Ray3f>& rays) {
    double sum = 0.0;
    for (const Ray3f& ray : rays) {
      vela::TracerHit hit;
      if (tracer->intersect(ray, hit)) sum += hit.distance;
    }
    return sum;
  };
  one.any = [tracer](const std::vector<Ray3f>& rays) {
    double sum = 0.0;
    for (const Ray3f& ray : rays) sum += tracer->occluded(ray) ? 1.0 : 0.0;
    return sum;
  };
  Candidate span = one;
  span.name = "tracer span";
  span.closest = [tracer, hits = std::make_shared<std::vector<vela::TracerHit>>()](
                     const std::vector<Ray3f>& rays) {
    constexpr std::size_t chunk = 4096;
    hits->resize(chunk);
    double sum = 0.0;
    for (std::size_t i = 0; i < rays.size(); i += chunk) {
      const std::size_t n = std::min(chunk, rays.size() - i);
      tracer->intersect(rays.data() + i, n, hits->data());
      for (std::size_t k = 0; k < n; ++k)
        if ((*hits)[k].hit) sum += (*hits)[k].distance;
    }
    return sum;
  };
  span.any = [tracer](const std::vector<Ray3f>& rays) {
    constexpr std::size_t chunk = 4096;
    static bool answers[chunk];
    double sum = 0.0;
    for (std::size_t i = 0; i < rays.size(); i += chunk) {
      const std::size_t n = std::min(chunk, rays.size() - i);
      tracer->occluded(rays.data() + i, n, answers);
      for (std::size_t k = 0; k < n; ++k) sum += answers[k] ? 1.0 : 0.0;
    }
    return sum;
  };
  out.push_back(one);
  out.push_back(span);
}

// Given structures

/// One structure over one mesh's triangles.
template <class Structure>
void addGiven(const char* name, const Scene& scene, std::vector<Candidate>& out,
              std::unique_ptr<Structure> (*make)(const vela::AccelerationModel&)) {
  const auto start = processorSeconds();
  const std::shared_ptr<vela::TriangleAccelerationModel> model =
      std::make_shared<vela::TriangleAccelerationModel>(scene.mesh.points, scene.mesh.counts,
                                                        scene.mesh.indices);
  const std::shared_ptr<Structure> structure = make(*model);
  Candidate candidate;
  candidate.name = name;
  candidate.buildSeconds = secondsSince(start);
  const auto ask = [model, structure](const std::vector<Ray3f>& rays, bool isNearest) {
    vela::IntersectionContext context;
    context.nearestHit = isNearest;
    double sum = 0.0;
    for (const Ray3f& ray : rays) {
      vela::CollisionResult result;
      if (structure->intersect(context, ray, result))
        sum += isNearest ? std::fabs(static_cast<double>(result.distance)) : 1.0;
    }
    return sum;
  };
  candidate.closest = [ask](const std::vector<Ray3f>& rays) { return ask(rays, true); };
  candidate.any = [ask](const std::vector<Ray3f>& rays) { return ask(rays, false); };
  out.push_back(candidate);
}

/// Placed copies as prims of a scene, through the detector. Its grids are built by the first rays,
/// so a few are sent ahead.
void addHitDetector(const Scene& scene, const std::vector<Ray3f>& firstRays,
                    std::vector<Candidate>& out) {
  const auto stage = ovo::Stage::createInMemory();
  for (std::size_t i = 0; i < scene.placements.size(); ++i) {
    const ovo::MeshPrim prim = ovo::MeshPrim::define(stage, ovo::Path("/copy" + std::to_string(i)));
    prim.setPoints(scene.mesh.points);
    prim.createFaceVertexCountsAttr().set(scene.mesh.counts);
    prim.createFaceVertexIndicesAttr().set(scene.mesh.indices);
    prim.setLocalXform(scene.placements[i]);
  }
  const auto start = processorSeconds();
  const auto model = std::make_shared<vela::HitDetectModel>(stage, tarn::defaultTimeValue());
  const auto detector = std::make_shared<vela::HitDetector>(*model);
  Candidate candidate;
  candidate.name = "hit detector";
  const auto ask = [model, detector](const std::vector<Ray3f>& rays, bool isNearest) {
    vela::IntersectionContext context;
    context.nearestHit = isNearest;
    double sum = 0.0;
    for (const Ray3f& ray : rays) {
      vela::CollisionResult result;
      if (detector->intersect(context, ray, result))
        sum += isNearest ? std::fabs(static_cast<double>(result.distance)) : 1.0;
    }
    return sum;
  };
  ask(firstRays, true);
  candidate.buildSeconds = secondsSince(start);
  candidate.closest = [ask](const std::vector<Ray3f>& rays) { return ask(rays, true); };
  candidate.any = [ask](const std::vector<Ray3f>& rays) { return ask(rays, false); };
  out.push_back(candidate);
}

// Embree

#if defined(VELA_WITH_EMBREE)
struct EmbreeScene {
  RTCDevice device = rtcNewDevice("threads=1,set_affinity=0");
  RTCScene mesh = nullptr, scene = nullptr;
  long long bytes = 0;

  explicit EmbreeScene(const Scene& source, bool isRobust) {
    rtcSetDeviceMemoryMonitorFunction(
        device,
        [](void* self, ssize_t change, bool) {
          static_cast<EmbreeScene*>(self)->bytes += change;
          return true;
        },
        this);
    const RTCSceneFlags flags = isRobust ? RTC_SCENE_FLAG_ROBUST : RTC_SCENE_FLAG_NONE;
    mesh = rtcNewScene(device);
    rtcSetSceneFlags(mesh, flags);
    RTCGeometry geometry = rtcNewGeometry(device, RTC_GEOMETRY_TYPE_TRIANGLE);
    auto* points = static_cast<float*>(rtcSetNewGeometryBuffer(geometry, RTC_BUFFER_TYPE_VERTEX, 0,
                                                               RTC_FORMAT_FLOAT3, sizeof(Vec3f),
                                                               source.mesh.points.size()));
    std::memcpy(points, source.mesh.points.data(), source.mesh.points.size() * sizeof(Vec3f));
    auto* indices = static_cast<unsigned*>(
        rtcSetNewGeometryBuffer(geometry, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3,
                                3 * sizeof(unsigned), source.mesh.indices.size() / 3));
    std::memcpy(indices, source.mesh.indices.data(), source.mesh.indices.size() * sizeof(unsigned));
    rtcCommitGeometry(geometry);
    rtcAttachGeometry(mesh, geometry);
    rtcReleaseGeometry(geometry);
    rtcCommitScene(mesh);
    if (source.placements.size() == 1) return;
    scene = rtcNewScene(device);
    rtcSetSceneFlags(scene, flags);
    for (const Mat4d& m : source.placements) {
      RTCGeometry instance = rtcNewGeometry(device, RTC_GEOMETRY_TYPE_INSTANCE);
      rtcSetGeometryInstancedScene(instance, mesh);
      float columns[12];
      for (std::size_t c = 0; c < 4; ++c)
        for (std::size_t r = 0; r < 3; ++r) columns[c * 3 + r] = static_cast<float>(m[c * 4 + r]);
      rtcSetGeometryTransform(instance, 0, RTC_FORMAT_FLOAT3X4_COLUMN_MAJOR, columns);
      rtcCommitGeometry(instance);
      rtcAttachGeometry(scene, instance);
      rtcReleaseGeometry(instance);
    }
    rtcCommitScene(scene);
  }
  ~EmbreeScene() {
    if (scene) rtcReleaseScene(scene);
    rtcReleaseScene(mesh);
    rtcReleaseDevice(device);
  }
  EmbreeScene(const EmbreeScene&) = delete;
  EmbreeScene& operator=(const EmbreeScene&) = delete;
  [[nodiscard]] RTCScene top() const { return scene ? scene : mesh; }
};

void setRay(const Ray3f& ray, RTCRay& out) {
  out.org_x = ray.origin.x;
  out.org_y = ray.origin.y;
  out.org_z = ray.origin.z;
  out.dir_x = ray.direction.x;
  out.dir_y = ray.direction.y;
  out.dir_z = ray.direction.z;
  out.tnear = ray.minDistance;
  out.tfar = ray.maxDistance;
  out.time = 0.0f;
  out.mask = ~0u;
  out.id = 0;
  out.flags = 0;
}

void addEmbree(const Scene& scene, bool isRobust, std::vector<Candidate>& out) {
  const auto start = processorSeconds();
  const auto embree = std::make_shared<EmbreeScene>(scene, isRobust);
  Candidate candidate;
  candidate.name = isRobust ? "embree robust" : "embree";
  candidate.buildSeconds = secondsSince(start);
  candidate.bytesPerTriangle =
      static_cast<double>(embree->bytes) / static_cast<double>(numTriangles(scene));
  candidate.closest = [embree](const std::vector<Ray3f>& rays) {
    RTCIntersectContext context;
    rtcInitIntersectContext(&context);
    double sum = 0.0;
    for (const Ray3f& ray : rays) {
      RTCRayHit hit;
      setRay(ray, hit.ray);
      hit.hit.geomID = RTC_INVALID_GEOMETRY_ID;
      hit.hit.instID[0] = RTC_INVALID_GEOMETRY_ID;
      rtcIntersect1(embree->top(), &context, &hit);
      if (hit.hit.geomID != RTC_INVALID_GEOMETRY_ID) sum += static_cast<double>(hit.ray.tfar);
    }
    return sum;
  };
  candidate.any = [embree](const std::vector<Ray3f>& rays) {
    RTCIntersectContext context;
    rtcInitIntersectContext(&context);
    double sum = 0.0;
    for (const Ray3f& ray : rays) {
      RTCRay r;
      setRay(ray, r);
      rtcOccluded1(embree->top(), &context, &r);
      if (r.tfar < 0.0f) sum += 1.0;
    }
    return sum;
  };
  out.push_back(candidate);
}
#endif

// Rays

using Random = std::mt19937_64;

Vec3f onSphere(Random& random, float radius) {
  std::normal_distribution<float> normal;
  const float x = normal(random), y = normal(random), z = normal(random);
  return Vec3f(x, y, z).normalized() * radius;
}

/// A pinhole picture in tiles of 16 by 16.
std::vector<Ray3f> cameraRays(const Scene& scene, int size) {
  std::vector<Ray3f> rays;
  const float distance = scene.radius * 2.6f, spread = scene.placements.size() == 1 ? 0.98f : 1.1f;
  for (int ty = 0; ty < size; ty += 16)
    for (int tx = 0; tx < size; tx += 16)
      for (int y = ty; y < ty + 16; ++y)
        for (int x = tx; x < tx + 16; ++x) {
          const float u = (static_cast<float>(x) + 0.5f) / static_cast<float>(size) * 2 - 1;
          const float v = (static_cast<float>(y) + 0.5f) / static_cast<float>(size) * 2 - 1;
          rays.emplace_back(Vec3f(0.1f, -0.2f, distance),
                            Vec3f(u * spread * scene.radius, v * spread * scene.radius, -distance));
        }
  return rays;
}

std::vector<Ray3f> chordRays(const Scene& scene, std::size_t count) {
  Random random(1);
  std::vector<Ray3f> rays;
  for (std::size_t i = 0; i < count; ++i) {
    const Vec3f a = onSphere(random, scene.radius), b = onSphere(random, scene.radius);
    rays.emplace_back(a, b - a);
  }
  return rays;
}

/// Rays towards the border of the bounding box that hit nothing.
std::vector<Ray3f> missRays(const Scene& scene, std::size_t count, const Candidate& oracle) {
  Random random(2);
  std::uniform_real_distribution<float> uniform(-1.1f, 1.1f);
  std::vector<Ray3f> rays;
  while (rays.size() < count) {
    const Vec3f a = onSphere(random, scene.radius * 3);
    const float x = uniform(random), y = uniform(random), z = uniform(random);
    Vec3f b = Vec3f(x, y, z) * scene.radius;
    b[random() % 3] = scene.radius * (random() % 2 == 0 ? 1.0f : -1.0f);
    std::vector<Ray3f> one{Ray3f(a, b - a)};
    if (oracle.any(one) == 0.0) rays.push_back(one[0]);
  }
  return rays;
}

/// What the tracer is to reach against Embree's single-ray call in robust mode: closest hit, by
/// single calls and by spans.
struct Goal {
  const char *scene, *rays;
  double single, span;
};
constexpr Goal kGoals[] = {
    {"1k", "camera", 1.05, 1.3},      {"1k", "chords", 1.15, 1.45},
    {"1k", "misses", 1.1, 1.45},      {"10k", "camera", 1.1, 1.45},
    {"10k", "chords", 1.1, 1.5},      {"10k", "misses", 1.05, 1.35},
    {"100k", "camera", 1.15, 1.6},    {"100k", "chords", 1.05, 1.7},
    {"100k", "misses", 1.05, 1.3},    {"1M", "camera", 1.1, 1.7},
    {"1M", "chords", 1.0, 1.8},       {"1M", "misses", 1.05, 1.3},
    {"4M", "camera", 1.1, 1.7},       {"4M", "chords", 1.0, 1.8},
    {"4M", "misses", 1.05, 1.3},      {"copies", "camera", 1.0, 1.25},
    {"copies", "chords", 1.05, 1.25}, {"copies", "misses", 1.1, 1.2},
};
/// The goal of a candidate; 0 where it has none. Any hit by spans: 1.4 at least, 1.9 from 1M on.
double goalOf(const std::string& scene, const std::string& rays, const std::string& candidate,
              bool isNearest) {
  const bool isSpan = candidate == "tracer span";
  if (!isSpan && candidate != "tracer") return 0.0;
  if (!isNearest) return !isSpan ? 0.0 : scene == "1M" || scene == "4M" ? 1.9 : 1.4;
  for (const Goal& goal : kGoals)
    if (scene == goal.scene && rays == goal.rays) return isSpan ? goal.span : goal.single;
  return 0.0;
}

/// The processor's name, where the system tells it.
std::string machineName() {
  std::ifstream file("/proc/cpuinfo");
  for (std::string line; std::getline(file, line);)
    if (line.rfind("model name", 0) == 0) return line.substr(line.find(':') + 2);
  return "unknown";
}

std::string number(double v) {
  std::ostringstream text;
  text.precision(4);
  text << v;
  return text.str();
}

}  // namespace

int main(int argc, char** argv) {
  std::string jsonFile;
  std::vector<std::string> only;
  bool isQuick = false, isTracerAlone = false;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--quick") {
      isQuick = true;
    } else if (arg == "--tracer") {
      isTracerAlone = true;
    } else if (arg == "--json" && i + 1 < argc) {
      jsonFile = argv[++i];
    } else if (arg == "--scene" && i + 1 < argc) {
      only.emplace_back(argv[++i]);
    } else {
      std::cerr << "usage: bench_rays [--json FILE] [--quick] [--tracer] "
                   "[--scene 1k|10k|100k|1M|4M|crowd|copies]...\n";
      return 2;
    }
  }

  // Scenes.
  std::vector<Scene> scenes;
  const std::pair<const char*, int> sizes[] = {
      {"1k", 1000}, {"10k", 10000}, {"100k", 100000}, {"1M", 1000000}, {"4M", 4000000}};
  for (const auto& [name, triangles] : sizes) {
    // The largest takes minutes and says the same as 1M: on demand only.
    const bool isAsked = std::find(only.begin(), only.end(), name) != only.end();
    if (only.empty() ? triangles > 1000000 : !isAsked) continue;
    scenes.push_back(
        {name, vela_test::makeBumpySphere(triangles), {Mat4d()}, 1.15f, triangles <= 1000});
  }
  if (only.empty() || std::find(only.begin(), only.end(), "crowd") != only.end())
    scenes.push_back({"crowd", makeCrowd(100000), {Mat4d()}, 1.15f, true});
  if (only.empty() || std::find(only.begin(), only.end(), "copies") != only.end()) {
    Scene copies{"copies", vela_test::makeBumpySphere(2000), {}, 12.0f, false};
    Random random(3);
    std::uniform_real_distribution<double> place(-8.0, 8.0), turn(0.0, 6.28), size(0.3, 0.7);
    for (int i = 0; i < 1000; ++i) {
      Mat4d m;
      const double x = place(random), y = place(random), z = place(random), s = size(random);
      m.translate(x, y, z);
      m.rotateX(turn(random));
      m.rotateY(turn(random));
      m.scale(s, s, s);
      copies.placements.push_back(m);
    }
    scenes.push_back(std::move(copies));
  }

  std::ostringstream json;
  json << "{\n  \"unit\": \"million rays per second of processor time\",\n  \"machine\": \""
       << machineName() << "\",\n  \"compiler\": \"" << __VERSION__ << "\",\n  \"scenes\": [";
  bool isFirstScene = true;
  for (const Scene& scene : scenes) {
    std::vector<Candidate> candidates;
    addTracer(scene, candidates);
    if (isTracerAlone) {
    } else if (scene.placements.size() == 1) {
      using Model = vela::AccelerationModel;
      if (scene.isSmall)
        addGiven<vela::NoAcceleration>("none", scene, candidates, [](const Model& m) {
          return std::make_unique<vela::NoAcceleration>(m);
        });
      addGiven<vela::GridAcceleration>("grid", scene, candidates, [](const Model& m) {
        return std::make_unique<vela::GridAcceleration>(m);
      });
      addGiven<vela::BvhAcceleration>("bvh median", scene, candidates, [](const Model& m) {
        return std::make_unique<vela::BvhAcceleration>(m, false);
      });
      addGiven<vela::BvhAcceleration>("bvh sah", scene, candidates, [](const Model& m) {
        return std::make_unique<vela::BvhAcceleration>(m, true);
      });
    } else {
      addHitDetector(scene, chordRays(scene, 20000), candidates);
    }
#if defined(VELA_WITH_EMBREE)
    if (!isTracerAlone) addEmbree(scene, false, candidates);
    addEmbree(scene, true, candidates);
#endif
    const std::size_t reference = candidates.size() - 1;

    const int side = isQuick ? 256 : 512;
    const auto count = static_cast<std::size_t>(side) * static_cast<std::size_t>(side);
    const std::pair<const char*, std::vector<Ray3f>> sets[] = {
        {"camera", cameraRays(scene, side)},
        {"chords", chordRays(scene, count)},
        {"misses", missRays(scene, count / 2, candidates[0])}};

    json << (isFirstScene ? "\n" : ",\n") << "    {\"name\": \"" << scene.name
         << "\", \"triangles\": " << numTriangles(scene)
         << ", \"placements\": " << scene.placements.size() << ",\n     \"candidates\": [";
    isFirstScene = false;
    std::printf("%s: %zu triangles, %zu placed\n", scene.name.c_str(), numTriangles(scene),
                scene.placements.size());
    for (std::size_t c = 0; c < candidates.size(); ++c) {
      json << (c ? ", " : "") << "{\"name\": \"" << candidates[c].name
           << "\", \"buildSeconds\": " << number(candidates[c].buildSeconds)
           << ", \"bytesPerTriangle\": " << number(candidates[c].bytesPerTriangle) << "}";
      std::printf("  %-14s build %8.2f ms  %6.1f bytes a triangle\n", candidates[c].name.c_str(),
                  candidates[c].buildSeconds * 1e3, candidates[c].bytesPerTriangle);
    }
    json << "],\n     \"rates\": [";
    bool isFirstRate = true;
    for (const auto& [setName, rays] : sets) {
      for (const bool isNearest : {true, false}) {
        // A slow candidate gets fewer rays, and as many rounds.
        std::vector<std::vector<double>> rates(candidates.size());
        std::vector<double> share(candidates.size(), 1.0);
        double hits = 0.0;
        for (std::size_t i = 0; i < rays.size(); i += 64) hits += candidates[0].any({rays[i]});
        const int rounds = isQuick ? 15 : 31;
        for (int round = 0; round <= rounds; ++round)
          for (std::size_t c = 0; c < candidates.size(); ++c) {
            const auto n = std::max<std::size_t>(
                64, static_cast<std::size_t>(static_cast<double>(rays.size()) *
                                             (round == 0 ? 0.02 : share[c])));
            const std::size_t from = round == 0 ? rays.size() / 2 : 0;
            const std::vector<Ray3f> part(
                rays.begin() + static_cast<std::ptrdiff_t>(from),
                rays.begin() + static_cast<std::ptrdiff_t>(std::min(rays.size(), from + n)));
            const auto start = processorSeconds();
            const double sum = isNearest ? candidates[c].closest(part) : candidates[c].any(part);
            const double seconds = secondsSince(start);
            if (sum < 0.0) std::abort();
            const double rate = static_cast<double>(part.size()) / seconds * 1e-6;
            if (round == 0)
              share[c] = std::min(1.0, rate * 1e6 * 0.06 / static_cast<double>(rays.size()));
            else
              rates[c].push_back(rate);
          }
        const double base = median(rates[reference]);
        std::printf("  %s %s (%.0f %% hit):", setName, isNearest ? "closest" : "any",
                    100.0 * hits / (static_cast<double>(rays.size()) / 64));
        json << (isFirstRate ? "\n" : ",\n") << "       {\"rays\": \"" << setName
             << "\", \"query\": \"" << (isNearest ? "closest" : "any") << "\"";
        isFirstRate = false;
        for (std::size_t c = 0; c < candidates.size(); ++c) {
          const double rate = median(rates[c]);
          std::printf("  %s %.3g (%.2f", candidates[c].name.c_str(), rate, rate / base);
          const double goal = goalOf(scene.name, setName, candidates[c].name, isNearest);
          if (goal != 0.0) std::printf(", goal %.2f", goal);
          std::printf(")");
          json << ", \"" << candidates[c].name << "\": {\"rate\": " << number(rate)
               << ", \"ratio\": " << number(rate / base);
          if (goal != 0.0) json << ", \"goal\": " << number(goal);
          json << "}";
        }
        std::printf("\n");
        std::fflush(stdout);
        json << "}";
      }
    }
    json << "]}";
  }
  json << "\n  ]\n}\n";
  if (!jsonFile.empty()) {
    std::ofstream file(jsonFile);
    file << json.str();
    if (!file) {
      std::cerr << "bench_rays: error: " << jsonFile
                << ": could not be written; check the folder\n";
      return 1;
    }
  }
  return 0;
}
