// Memory that ends: each allocation of each scenario fails in turn. What comes of it is
// std::bad_alloc, or the result as if nothing had happened; nothing is lost, and where a call
// promises that its arguments stay, they do.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <functional>
#include <memory>
#include <new>
#include <sstream>
#include <string>
#include <vector>

#include "ovo/Subdivide.h"
#include "support/SampleMeshes.h"
#include "vela/asset/AssetInfo.h"
#include "vela/camera/LensProjection.h"
#include "vela/channels/ChannelSet.h"
#include "vela/channels/DefaultChannelManager.h"
#include "vela/intersect/AccelerationModel.h"
#include "vela/intersect/BvhAcceleration.h"
#include "vela/intersect/GridAcceleration.h"
#include "vela/mesh/MeshNormals.h"
#include "vela/mesh/NearestPointQuery.h"
#include "vela/mesh/Triangulate.h"
#include "vela/sampling/SamplingRng.h"
#include "vela/scene/MeshDefects.h"
#include "vela/selection/GeoSelection.h"
#include "vela/trace/SceneTracer.h"

namespace {

// Of this thread: what is alive, and which allocation from now on fails; 0: none.
thread_local long tlsAlive = 0, tlsCount = 0, tlsFails = 0;

void* allocate(std::size_t size, std::size_t alignment) {
  if (tlsFails > 0 && ++tlsCount == tlsFails) return nullptr;
  void* const block =
      alignment == 0
          ? std::malloc(size > 0 ? size : 1)
          : std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment);
  if (block) ++tlsAlive;
  return block;
}
void release(void* block) {
  if (!block) return;
  --tlsAlive;
  std::free(block);
}
void* allocateOrThrow(std::size_t size, std::size_t alignment = 0) {
  void* const block = allocate(size, alignment);
  if (!block) throw std::bad_alloc();
  return block;
}

}  // namespace

void* operator new(std::size_t size) { return allocateOrThrow(size); }
void* operator new[](std::size_t size) { return allocateOrThrow(size); }
void* operator new(std::size_t size, std::align_val_t at) {
  return allocateOrThrow(size, static_cast<std::size_t>(at));
}
void* operator new[](std::size_t size, std::align_val_t at) {
  return allocateOrThrow(size, static_cast<std::size_t>(at));
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return allocate(size, 0); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return allocate(size, 0); }
void operator delete(void* block) noexcept { release(block); }
void operator delete[](void* block) noexcept { release(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { release(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { release(block); }
void operator delete(void* block, std::size_t) noexcept { release(block); }
void operator delete[](void* block, std::size_t) noexcept { release(block); }
void operator delete(void* block, std::align_val_t) noexcept { release(block); }
void operator delete[](void* block, std::align_val_t) noexcept { release(block); }
void operator delete(void* block, std::size_t, std::align_val_t) noexcept { release(block); }
void operator delete[](void* block, std::size_t, std::align_val_t) noexcept { release(block); }

namespace {

using vela_test::SampleMesh;
using vela_test::sampleMeshes;

// What is done, and afterwards what must hold when it failed. A new one is made for each failure.
struct Scenario {
  std::function<void()> run;
  std::function<bool()> isAsBefore = [] { return true; };
};
using Maker = std::function<Scenario()>;

int scenarios = 0, failures = 0;

// Fails the first allocation, then the second, and so on until there is none left; of scenarios
// with hundreds of them not each one.
// \param mayLose  what OpenSubdiv has begun to make is then lost by its own functions
void failEach(const std::string& name, const Maker& make, bool mayLose = false) {
  SCOPED_TRACE(name);
  ++scenarios;
  // What is made once in a process is made before anything is counted.
  make().run();
  for (long fails = 1;; fails += 1 + fails / 24) {
    const long before = tlsAlive;
    bool isOver = false;
    {
      Scenario scenario = make();
      bool hasFailed = false;
      tlsCount = 0;
      tlsFails = fails;
      try {
        scenario.run();
      } catch (const std::bad_alloc&) {
        hasFailed = true;
        ++failures;
      }
      isOver = tlsCount < fails;
      tlsFails = 0;
      if (hasFailed) {
        ASSERT_FALSE(isOver) << "std::bad_alloc without one";
        ASSERT_TRUE(scenario.isAsBefore()) << "after allocation " << fails;
        // And memory that is there again is enough.
        ASSERT_NO_THROW(scenario.run());
      }
    }
    if (!mayLose) {
      ASSERT_EQ(tlsAlive, before) << "lost by the failure of allocation " << fails;
    }
    if (isOver) return;
  }
}

// A maker of scenarios over a state of its own each.
template <class State>
Maker over(
    const std::function<State()>& state, const std::function<void(State&)>& run,
    const std::function<bool(const State&)>& isAsBefore = [](const State&) { return true; }) {
  return [=] {
    const auto own = std::make_shared<State>(state());
    return Scenario{[own, run] { run(*own); }, [own, isAsBefore] { return isAsBefore(*own); }};
  };
}
// One without a state.
Maker plain(const std::function<void()>& run) {
  return [run] { return Scenario{run}; };
}

void failOverMesh(const SampleMesh& m) {
  const auto test = [&m](const char* what, const Maker& maker, bool mayLose = false) {
    failEach(m.name + ": " + what, maker, mayLose);
  };
  const std::vector<tarn::Ray3f> rays(40, {{0.1f, 0.2f, 5.0f}, {0.01f, 0.02f, -1.0f}});
  using Model = vela::TriangleAccelerationModel;

  test("edges", plain([&m] { static_cast<void>(vela_test::topologyOf(m).edges()); }));
  test("report",
       plain([&m] { static_cast<void>(vela::scene::inspectMesh(vela_test::topologyOf(m))); }));
  test("model", plain([&m] { Model(m.points, m.counts, m.indices); }));
  test("grid", plain([&m, &rays] {
         const Model model(m.points, m.counts, m.indices);
         const vela::GridAcceleration grid(model);
         vela::CollisionResult hit;
         grid.intersect({}, rays[0], hit);
       }));
  for (const bool sah : {false, true})
    test(sah ? "tree by area" : "tree by middle", plain([&m, &rays, sah] {
           const Model model(m.points, m.counts, m.indices);
           const vela::BvhAcceleration tree(model, sah);
           vela::CollisionResult hit;
           tree.intersect({}, rays[0], hit);
         }));
  test("accelerator", plain([&m] { vela::MeshAccelerator(m.points, m.counts, m.indices, 1); }));
  test("tracer", plain([&m, &rays] {
         vela::SceneTracer tracer;
         const std::uint32_t mesh = tracer.addMesh(m.points, m.counts, m.indices);
         tracer.addPlacement(mesh, tarn::Mat4d());
         tracer.addPlacement(mesh, tarn::Mat4d(2.0));
         tracer.build();
         std::vector<vela::TracerHit> hits(rays.size());
         tracer.intersect(rays, hits);
       }));
  test("point normals", plain([&m] {
         ovo::Array<tarn::Vec3f> normals;
         vela::calcPointNormals(m.points.size(), m.points.cdata(), m.indices.size(),
                                m.indices.cdata(), m.counts.size(), m.counts.cdata(), false, false,
                                normals, true);
       }));
  test("corner normals", plain([&m] {
         ovo::Array<tarn::Vec3f> normals;
         vela::calcVertexNormals(m.points.size(), m.points.cdata(), m.indices.size(),
                                 m.indices.cdata(), m.counts.size(), m.counts.cdata(), 0.5f,
                                 normals);
       }));
  test("nearest points", plain([&m] {
         vela::NearestPointQuery query(tarn::Box3f({-2, -2, -2}, {2, 2, 2}), 0.5f);
         query.addPoints({m.points.cdata(), m.points.size()});
         std::vector<unsigned int> ids;
         query.getNeighbours({0, 0, 0}, ids);
       }));
  // What is refined in place is refined whole or not at all.
  test("refinement",
       over<SampleMesh>([&m] { return m; },
                        [](SampleMesh& mesh) {
                          ovo::MeshTessellateContext context;
                          context.vertsPerFace = &mesh.counts;
                          context.faceVertPointIndices = &mesh.indices;
                          context.points = &mesh.points;
                          ovo::subdivideUniform(ovo::ArgSet(), mesh.counts.size(),
                                                mesh.indices.size(), mesh.points.size(), 0, 1,
                                                context);
                        },
                        [&m](const SampleMesh& mesh) {
                          return mesh.counts == m.counts && mesh.indices == m.indices &&
                                 mesh.points.size() == m.points.size();
                        }),
       true);
}

TEST(AllocationFailure, MeshesGoThroughEverythingThatTakesThem) {
  for (const SampleMesh& mesh : sampleMeshes())
    // Thousands of faces only take longer.
    if (mesh.counts.size() < 700) failOverMesh(mesh);
  EXPECT_GE(scenarios, 200);
  EXPECT_GE(failures, 2000);
}

TEST(AllocationFailure, ChannelsStayAsTheyWere) {
  using vela::Channel;
  using vela::ChannelSet;
  const auto sets = [](const char* what, const std::function<void(ChannelSet&)>& change) {
    for (const int highest : {40, 70, 500}) {
      const ChannelSet before = [highest] {
        ChannelSet set(0x15u);
        set += Channel(highest);
        return set;
      }();
      failEach(std::string(what) + " to " + std::to_string(highest),
               over<ChannelSet>([before] { return before; }, change,
                                [before](const ChannelSet& set) { return set == before; }));
    }
  };
  ChannelSet large(Channel(900)), all(0xFFFFFFFFu);
  all -= Channel(700);
  sets("insert", [](ChannelSet& set) { set += Channel(2000); });
  sets("union", [&large](ChannelSet& set) { set += large; });
  sets("union with all", [&all](ChannelSet& set) { set += all; });
  sets("difference", [&all](ChannelSet& set) { set -= all; });
  sets("intersection", [&all](ChannelSet& set) { set &= all; });
  sets("assignment", [&large](ChannelSet& set) { set = large; });
  sets("list", [](ChannelSet& set) {
    const Channel list[] = {3, 1000, 60};
    set.insert(list, 3);
  });

  using Registry = vela::BraeGlobalChannelManager;
  const auto registry = [](const char* what, const std::function<void(Registry&)>& change) {
    failEach(what, over<std::unique_ptr<Registry>>(
                       [] { return std::make_unique<Registry>(); },
                       [change](std::unique_ptr<Registry>& r) { change(*r); },
                       [](const std::unique_ptr<Registry>& r) {
                         // Whatever was begun: the lists fit together.
                         for (const auto* alias : r->allChannels())
                           if (!alias || r->channel(alias->channel()) != alias) return false;
                         for (const auto* layer : r->allLayers())
                           if (!layer) return false;
                         return true;
                       }));
  };
  registry("new channel", [](Registry& r) { r.createChannel("a layer of a long name.red"); });
  registry("new layer", [](Registry& r) { r.createLayer("a layer of a long name"); });
  registry("colour layer",
           [](Registry& r) { r.createColorLayer("a layer of a long name", "r", "g", "b", "a"); });
  registry("vector layer",
           [](Registry& r) { r.createVec4Layer("a layer of a long name", "xyzw"); });
  registry("many channels", [](Registry& r) {
    for (int i = 0; i < 40; ++i) r.createChannel(("many." + std::to_string(i)).c_str());
  });
  registry("copy", [](Registry& r) { const Registry copy(r); });
  registry("clear", [](Registry& r) { r.clearUserChannels(); });
  registry("name", [](Registry& r) {
    static_cast<void>(r.remapChannelName("a name that is longer than what fits into a string"));
  });
}

TEST(AllocationFailure, SelectionsAndTextsStayAsTheyWere) {
  using vela::Selection::GeoSelection;
  const auto filled = [] {
    GeoSelection selection;
    selection.setObjectSelected(ovo::Path("/World/One/Of/Many/Long/Names"), true);
    selection.getWritablePartSelection(ovo::Path("/World/Two"), vela::Selection::faces).resize(50);
    return selection;
  };
  std::ostringstream written;
  filled().serialize(written);
  const std::string text = written.str();
  const auto test = [&filled](const char* what, const std::function<void(GeoSelection&)>& change) {
    failEach(what, over<GeoSelection>(filled, change));
  };
  test("select", [](GeoSelection& s) {
    s.setObjectSelected(ovo::Path("/World/Another/Long/Name/Of/A/Prim"), true);
  });
  test("weights", [](GeoSelection& s) {
    s.getWritablePartSelection(ovo::Path("/World/Two"), vela::Selection::vertices).resize(1000);
  });
  test("join", [&filled](GeoSelection& s) { s.addSelection(filled()); });
  test("copy", [](GeoSelection& s) { const GeoSelection copy(s); });
  // Streams keep what is thrown in them, and say so by their state.
  test("write", [](GeoSelection& s) {
    std::ostringstream out;
    s.serialize(out);
  });
  test("read", [&text](GeoSelection& s) {
    std::istringstream in(text);
    std::string error;
    s.deserialize(in, &error);
  });
}

TEST(AllocationFailure, CamerasSamplesOutlinesAndAssets) {
  for (const auto mode : {vela::LensProjection::perspective, vela::LensProjection::orthographic,
                          vela::LensProjection::spherical, vela::LensProjection::cylindrical})
    failEach("lens", plain([mode] {
               const std::unique_ptr<vela::LensProjectionFunction> lens(
                   vela::CreateProjectionFunc(mode));
               vela::Camera::Sample sample;
               sample.updateDerivedValues(lens.get());
               const std::vector<vela::ProjectCoord> coords(100);
               std::vector<vela::RayContext> rays(100);
               vela::generateCameraRays(*lens, 100, coords.data(), sample, {}, rays.data());
             }));
  failEach("samples", plain([] {
             vela::SamplingRng random(1);
             std::vector<float> line;
             std::vector<tarn::Vec2f> square;
             random.generate1dSamples(100, line);
             random.generate2dSamples(10, 10, square);
             random.generate2dUniformSamples(10, 10, square);
             vela::SamplingRngSet(20).resize(50);
           }));
  SampleMesh star;
  for (int i = 0; i < 200; ++i) {
    const float along = static_cast<float>(i < 100 ? i : 199 - i);
    star.points.push_back({along, (i < 100 ? 0.0f : 5.0f) + static_cast<float>(i % 2), 0.0f});
    star.indices.push_back(i);
  }
  failEach("outline", plain([&star] {
             std::vector<int> triangles;
             vela::triangulatePolygon({star.points.cdata(), star.points.size()},
                                      {star.indices.cdata(), star.indices.size()}, triangles);
             vela::Triangulate(star.points.cdata(), star.indices.cdata(),
                               static_cast<int>(star.indices.size()), triangles);
           }));
  failEach("asset", plain([] {
             vela::asset::AssetInfo info("a path that is longer than what fits into a string",
                                         {"a trait that is longer than what fits", "b"});
             std::string file;
             info.resolveLocation("another path that is longer than what fits", file);
           }));
}

}  // namespace
