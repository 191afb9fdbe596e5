// One number for the results of everything: equal on every machine, compiler and number of threads.
#include <cstdint>
#include <cstdio>
#include <initializer_list>
#include <locale>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "Interrupt.h"
#include "Messages.h"
#include "Options.h"
#include "ovo/MeshPrim.h"
#include "ovo/Stage.h"
#include "ovo/Subdivide.h"
#include "tarn/Hash.h"
#include "vela/camera/LensProjection.h"
#include "vela/channels/ChannelSet.h"
#include "vela/channels/DefaultChannelManager.h"
#include "vela/intersect/AccelerationModel.h"
#include "vela/intersect/BvhAcceleration.h"
#include "vela/intersect/GridAcceleration.h"
#include "vela/mesh/MeshBuilders.h"
#include "vela/mesh/MeshNormals.h"
#include "vela/mesh/MeshSample.h"
#include "vela/mesh/NearestPointQuery.h"
#include "vela/mesh/Triangulate.h"
#include "vela/picture/PictureRenderer.h"
#include "vela/sampling/SamplingRng.h"
#include "vela/selection/GeoSelection.h"
#include "vela/trace/SceneTracer.h"

namespace command {

namespace {

using tarn::Ray3f;
using tarn::Vec3f;
using vela::MeshSample;

// A hash over the bits of results, in the order in which they come.
class Results {
 public:
  template <class T>
  void add(const T& value) {
    static_assert(std::is_arithmetic_v<T>, "records have room between their fields");
    hash_.append(&value, sizeof value);
  }
  template <class T>
  void add(const tarn::Vec3<T>& v) {
    for (std::size_t i = 0; i < 3; ++i) add(v[i]);
  }
  void add(const tarn::Vec2f& v) {
    add(v.x);
    add(v.y);
  }
  void add(const std::string& text) { hash_.append(text.data(), text.size()); }
  template <class T>
  void add(const std::vector<T>& values) {
    for (const T& value : values) add(value);
  }
  template <class T>
  void add(const ovo::Array<T>& values) {
    for (const T& value : values.view()) add(value);
  }
  [[nodiscard]] std::uint64_t value() const { return hash_.value(); }

 private:
  tarn::Hash hash_;
};

// What is looked at: a ball, a box of many faces, and an outline that turns in on itself.
struct Shapes {
  MeshSample ball, box, star;
  Shapes() {
    vela::buildSphereMesh(ball, 24, 48, {1.0f, 1.25f, 0.75f});
    vela::buildCube(box, tarn::Box3d({-1, -1, -1}, {1, 1, 1}), 7, 5, true, true, true, true, true);
    constexpr int kCorners = 30;
    vela::SamplingRng random(11);
    for (int i = 0; i < kCorners; ++i) {
      const float radius = i % 2 == 0 ? 1.0f : 0.25f + 0.5f * random.newFloatValue();
      // Places on a square, so that no sine decides.
      const int side = 4 * i / kCorners;
      const float along = static_cast<float>(4 * i - side * kCorners) / kCorners * 2.0f - 1.0f;
      const float x = side == 0 ? along : side == 1 ? 1.0f : side == 2 ? -along : -1.0f;
      const float y = side == 0 ? -1.0f : side == 1 ? along : side == 2 ? 1.0f : -along;
      star.points.push_back({x * radius, y * radius, 0.1f * x * y});
    }
    ovo::MeshPrim prim = ovo::MeshPrim::define(stage_, ovo::Path("/Star"));
    ovo::Array<int> corners;
    for (int i = 0; i < kCorners; ++i) corners.push_back(i);
    prim.setPoints(star.points);
    prim.createFaceVertexCountsAttr().set(ovo::Array<int>{kCorners});
    prim.createFaceVertexIndicesAttr().set(corners);
    star = MeshSample(prim, tarn::defaultTimeValue());
  }

 private:
  std::shared_ptr<ovo::Stage> stage_ = ovo::Stage::createInMemory();
};

ovo::Array<int> countsOf(const MeshSample& mesh) {
  return {mesh.vertsPerFace(), mesh.vertsPerFace() + mesh.nFaces()};
}
ovo::Array<int> indicesOf(const MeshSample& mesh) {
  return {mesh.faceVertPointIndices(), mesh.faceVertPointIndices() + mesh.nVerts()};
}

// Rays of all lenses through a grid over the picture, with a film window that is turned and moved.
std::uint64_t hashRays() {
  Results results;
  vela::Camera::Sample sample;
  sample.sensor.apertureSize = {36.0, 24.0};
  sample.sensor.apertureTranslate = {0.125, -0.0625};
  sample.sensor.apertureRotate = 12.0;
  sample.sensor.apertureScale = {1.25, 0.875};
  sample.optics.focalLength = 35.0;
  sample.lensAp.clipFarDistance = 1000.0;
  const auto image = vela::ProjectionImageContext::forSize(64, 48);
  std::vector<vela::ProjectCoord> coords;
  for (int y = 0; y < 48; ++y)
    for (int x = 0; x < 64; ++x) {
      vela::ProjectCoord coord;
      coord.x = (static_cast<float>(x) + 0.5f) / 32.0f - 1.0f;
      coord.y = image.aspect - (static_cast<float>(y) + 0.5f) / 32.0f;
      coord.dx = coord.dy = 1.0f / 32.0f;
      coords.push_back(coord);
    }
  std::vector<vela::RayContext> rays(coords.size());
  for (const auto mode : {vela::LensProjection::perspective, vela::LensProjection::orthographic,
                          vela::LensProjection::spherical, vela::LensProjection::cylindrical}) {
    const std::unique_ptr<vela::LensProjectionFunction> lens(vela::CreateProjectionFunc(mode));
    sample.updateDerivedValues(lens.get());
    vela::generateCameraRays(*lens, static_cast<unsigned>(coords.size()), coords.data(), sample,
                             image, rays.data());
    for (const vela::RayContext& ray : rays) {
      results.add(ray.origin);
      results.add(ray.direction);
      results.add(ray.xDirection);
      results.add(ray.yDirection);
    }
  }
  return results.value();
}

std::vector<Ray3f> randomRays(int count, int seed) {
  vela::SamplingRng random(seed);
  const auto place = [&random] { return 6.0f * random.newFloatValue() - 3.0f; };
  std::vector<Ray3f> rays;
  for (int i = 0; i < count; ++i) {
    // In braces: what is in parentheses each compiler calls in an order of its own.
    const Vec3f from{place(), place(), place()}, to{place(), place(), place()};
    rays.emplace_back(from, (to - from) * 0.5f);
  }
  return rays;
}

// What rays meet, by every structure that there is.
std::uint64_t hashHits(const Shapes& shapes) {
  Results results;
  const std::vector<Ray3f> rays = randomRays(20000, 3);
  vela::SceneTracer tracer;
  vela::SamplingRng random(5);
  for (const MeshSample* mesh : {&shapes.ball, &shapes.box, &shapes.star}) {
    const std::uint32_t number = tracer.addMesh(mesh->points, countsOf(*mesh), indicesOf(*mesh));
    for (int i = 0; i < 6; ++i) {
      tarn::Mat4d placed;
      placed.translate({random.newDoubleValue(), random.newDoubleValue(), 0.25 * i});
      placed.scale({0.5, 0.25 + 0.125 * i, -0.5});
      tracer.addPlacement(number, placed);
    }
  }
  tracer.build();
  std::vector<vela::TracerHit> hits(rays.size());
  tracer.intersect(rays, hits);
  for (const vela::TracerHit& hit : hits) {
    results.add(hit.hit);
    results.add(hit.distance);
    results.add(hit.position);
    results.add(hit.normal);
    results.add(hit.placement);
    results.add(hit.face);
    results.add(hit.u);
    results.add(hit.v);
  }

  for (const MeshSample* mesh : {&shapes.ball, &shapes.box, &shapes.star}) {
    const vela::TriangleAccelerationModel model(mesh->points, countsOf(*mesh), indicesOf(*mesh));
    const vela::NoAcceleration plain(model);
    const vela::GridAcceleration grid(model);
    const vela::BvhAcceleration median(model, false), sah(model, true);
    for (const vela::Acceleration* structure :
         std::initializer_list<const vela::Acceleration*>{&plain, &grid, &median, &sah})
      for (std::size_t i = 0; i < 2000; ++i) {
        vela::CollisionResult hit;
        results.add(structure->intersect({}, rays[i], hit));
        results.add(hit.distance);
        results.add(hit.position);
        results.add(hit.normal);
        results.add(hit.primitiveIndex);
      }
  }
  return results.value();
}

std::uint64_t hashNormals(const Shapes& shapes) {
  Results results;
  for (const MeshSample* mesh : {&shapes.ball, &shapes.box, &shapes.star}) {
    ovo::Array<Vec3f> perPoint, perVertex;
    const bool hasPoints = vela::calcPointNormals(
        mesh->nPoints(), mesh->pointLocations(), mesh->nVerts(), mesh->faceVertPointIndices(),
        mesh->nFaces(), mesh->vertsPerFace(), mesh->allTriangles, mesh->allQuads, perPoint, true);
    const bool hasVertices = vela::calcVertexNormals(
        mesh->nPoints(), mesh->pointLocations(), mesh->nVerts(), mesh->faceVertPointIndices(),
        mesh->nFaces(), mesh->vertsPerFace(), 0.5f, perVertex);
    results.add(hasPoints);
    results.add(hasVertices);
    results.add(perPoint);
    results.add(perVertex);
  }
  return results.value();
}

// Builders, refinement, triangles, nearest points.
std::uint64_t hashMeshes(const Shapes& shapes) {
  Results results;
  for (const MeshSample* mesh : {&shapes.ball, &shapes.box, &shapes.star}) {
    results.add(mesh->points);
    results.add(mesh->uvs);
    results.add(mesh->normals);
    for (const char* scheme : {"catmullClark", "bilinear"}) {
      ovo::Array<int> counts = countsOf(*mesh), indices = indicesOf(*mesh), sources;
      ovo::Array<Vec3f> points = mesh->points;
      ovo::ArgSet args;
      args.scheme = scheme;
      args.creaseIndices = {0, 1, 2};
      args.creaseLengths = {3};
      args.creaseSharpnesses = {1.5f};
      ovo::MeshTessellateContext context;
      context.vertsPerFace = &counts;
      context.faceVertPointIndices = &indices;
      context.points = &points;
      context.sourceFaces = &sources;
      results.add(
          ovo::subdivideUniform(args, counts.size(), indices.size(), points.size(), 0, 2, context));
      results.add(points);
      results.add(indices);
      results.add(sources);
    }
  }

  std::vector<int> triangles;
  const ovo::Array<int> outline = indicesOf(shapes.star);
  vela::triangulatePolygon({shapes.star.points.cdata(), shapes.star.nPoints()},
                           {outline.cdata(), outline.size()}, triangles);
  results.add(triangles);
  vela::Triangulate(shapes.star.pointLocations(), outline.cdata(), static_cast<int>(outline.size()),
                    triangles);
  results.add(triangles);

  vela::NearestPointQuery nearest(tarn::Box3f({-2, -2, -2}, {2, 2, 2}), 0.25f);
  nearest.addPoints({shapes.ball.pointLocations(), shapes.ball.nPoints()});
  std::vector<unsigned int> ids;
  for (const Ray3f& ray : randomRays(500, 8)) {
    nearest.getNeighbours(ray.origin, ids);
    results.add(ids);
  }
  return results.value();
}

std::uint64_t hashSamples() {
  Results results;
  vela::SamplingRng random(1);
  for (int i = 0; i < 5000; ++i) {
    results.add(random.newValue());
    results.add(random.newFloatValue());
    results.add(random.newDoubleValue());
  }
  std::vector<float> line;
  std::vector<tarn::Vec2f> square;
  random.generate1dSamples(33, line);
  results.add(line);
  random.generate2dSamples(8, 5, square);
  results.add(square);
  random.generate2dUniformSamples(5, 8, square);
  results.add(square);
  for (int i = 0; i < 1000; ++i) results.add(vela::SamplingRng::BuildHashedSeed(i, 2 * i, 3 * i));
  return results.value();
}

// What is printed and saved.
std::uint64_t hashText(const Shapes& shapes) {
  std::ostringstream out;
  out.imbue(std::locale::classic());
  vela::Selection::GeoSelection selection;
  selection.setObjectSelected(ovo::Path("/World/Ball"), true);
  auto& faces = selection.getWritablePartSelection(ovo::Path("/World/Box"), vela::Selection::faces);
  vela::SamplingRng random(9);
  faces.resize(100);
  for (std::size_t i = 0; i < faces.size(); ++i) {
    faces.selections[i] = i % 7 < 3 ? 1.0f : random.newFloatValue();
    faces.weights[i] = random.newFloatValue() * 1e-3f;
  }
  selection.serialize(out);

  const vela::BraeGlobalChannelManager registry;
  for (const vela::LayerAlias* layer : registry.allLayers()) out << *layer << '\n';
  out << vela::ChannelSet(0xFu) << vela::ChannelSet(0x80000012u) << '\n';
  for (std::size_t i = 0; i < shapes.ball.nPoints(); i += 7) out << shapes.ball.points[i] << '\n';
  vela::Camera::Sample sample;
  sample.xform.l2w.translate({1.0, 2.0, 1.0 / 3.0});
  sample.updateDerivedValues(nullptr);
  sample.printValues(out, "");
  Results results;
  results.add(out.str());
  return results.value();
}

void define(const std::shared_ptr<ovo::Stage>& stage, const char* path, const MeshSample& mesh,
            const Vec3f& colour, const tarn::Vec3d& at, const char* scheme) {
  ovo::MeshPrim prim = ovo::MeshPrim::define(stage, ovo::Path(path));
  mesh.setMeshPrimFaceTopology(prim);
  mesh.setMeshPrimPointsAndBounds(prim, true);
  prim.setSubdivisionScheme(scheme);
  prim.createPrimvar("displayColor", "color3f[]").set(ovo::Array<Vec3f>{colour});
  tarn::Mat4d local;
  local.translate(at);
  prim.setLocalXform(local);
}

// A picture of all shapes, with every kind of value, on that many threads.
std::uint64_t hashPixels(const Shapes& shapes, int threads) {
  const std::shared_ptr<ovo::Stage> stage = ovo::Stage::createInMemory();
  define(stage, "/World/Ball", shapes.ball, {0.8f, 0.2f, 0.1f}, {0, 0, 0}, "none");
  define(stage, "/World/Box", shapes.box, {0.1f, 0.6f, 0.3f}, {2.5, 0.25, -1}, "catmullClark");
  define(stage, "/World/Star", shapes.star, {0.2f, 0.3f, 0.9f}, {-2, 0.5, 0.5}, "none");
  vela::picture::RenderOptions options;
  options.view.width = 160;
  options.view.height = 90;
  options.meshes.subdivisionLevel = 1;
  options.smooth = true;
  options.samples = 4;
  options.layers = {"rgba", "depth", "N", "P", "albedo", "prim", "face", "crypto_object"};
  Results results;
  const auto renderer =
      vela::picture::PictureRenderer::make(stage, options, nullptr, interruptibleWork());
  const std::optional<vela::picture::Picture> picture =
      renderer ? renderer->renderAll(threads, interruptibleWork()) : std::nullopt;
  throwIfInterrupted();
  if (!picture) throw failure(Message::otherFailure, {"the picture of the self-test"});
  for (const vela::picture::Layer& layer : picture->layers) {
    results.add(layer.name);
    results.add(layer.floats);
    results.add(layer.integers);
  }
  results.add(picture->manifest);
  return results.value();
}

}  // namespace

ExitCode selftest(const SelftestOptions& options) {
  const Shapes shapes;
  Results all;
  const auto add = [&all](const char* name, std::uint64_t hash) {
    throwIfInterrupted();
    std::printf("%-8s %016llx\n", name, static_cast<unsigned long long>(hash));
    all.add(hash);
  };
  add("rays", hashRays());
  add("hits", hashHits(shapes));
  add("normals", hashNormals(shapes));
  add("meshes", hashMeshes(shapes));
  add("samples", hashSamples());
  add("text", hashText(shapes));
  add("pixels", hashPixels(shapes, options.threads));
  std::printf("%-8s %016llx\n", "all", static_cast<unsigned long long>(all.value()));
  return kDone;
}

}  // namespace command
