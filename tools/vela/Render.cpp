#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Failure.h"
#include "Interrupt.h"
#include "Json.h"
#include "Layers.h"
#include "Options.h"
#include "OutputFile.h"
#include "Picture.h"
#include "Scene.h"
#include "SelectionFile.h"
#include "Shading.h"
#include "Tiles.h"
#include "vela/Version.h"

namespace command {

namespace {

using tarn::Vec2;
using tarn::Vec3;

// A pixel's light, alpha and plain colour, each the mean of its samples.
struct Filtered {
  Vec3<float> colour, albedo;
  float alpha = 0.0f;
};

// Everything that a tile needs beside its own buffers. Read by all threads, but for the planes,
// whose pixels belong to one tile each.
struct Job {
  const RenderOptions& options;
  const LayerChoice& layers;
  const View& view;
  const RayCaster& caster;
  const MeshList& list;
  const Shader* shader;  ///< null when no layer needs light or colour
  const Shader* smooth;  ///< null when normals are the faces' own
  int grid, ambientGrid, frame;
  Picture& picture;
  std::vector<float>& flat;  ///< colour over the backdrop, for the PNG; empty when none is wanted
  std::atomic<std::uint64_t>& rays;
};

class TileRenderer {
 public:
  explicit TileRenderer(const Job& job)
      : job_(job), samples_(kTileSize, PixelSamples(job.grid, job.ambientGrid)) {}

  void render(const Tile& tile) {
    for (int y = tile.y0; y < tile.y1; ++y) renderRow(tile, y);
  }

 private:
  void renderRow(const Tile& tile, int y) {
    const int width = tile.x1 - tile.x0;
    std::uint64_t rays = 0;

    // Data: one ray through the centre of each pixel, so that no value is ever a mixture.
    places_.clear();
    for (int x = tile.x0; x < tile.x1; ++x) places_.push_back(job_.view.ndc(x + 0.5, y + 0.5));
    trace();
    rays += rays_.size();
    for (int i = 0; i < width; ++i) writeData(tile.x0 + i, y, rays_[at(i)], hits_[at(i)]);

    // Light: rays through each pixel's own places; with a single one those of the data serve.
    if (job_.shader) {
      places_.clear();
      for (int i = 0; i < width; ++i) {
        PixelSamples& samples = samples_[at(i)];
        samples.start(tile.x0 + i, y, job_.frame, job_.options.jittered);
        for (std::size_t s = 0; s < samples.count(); ++s)
          places_.push_back(
              job_.view.ndc(tile.x0 + i + 0.5 + static_cast<double>(samples.offset(s).x),
                            y + 0.5 + static_cast<double>(samples.offset(s).y)));
      }
      if (job_.grid > 1) {
        trace();
        rays += rays_.size();
      }
      rays += shade(width);
      for (int i = 0; i < width; ++i) writeLight(tile.x0 + i, y, filtered_[at(i)]);
    }
    job_.rays.fetch_add(rays, std::memory_order_relaxed);
  }

  static std::size_t at(int i) { return static_cast<std::size_t>(i); }

  void trace() {
    rays_.resize(places_.size());
    job_.view.makeRays(places_.data(), places_.size(), rays_.data());
    hits_.assign(rays_.size(), SurfaceHit());
    job_.caster.intersect(rays_.data(), rays_.size(), hits_.data());
  }

  // \return rays traced
  std::uint64_t shade(int width) {
    filtered_.assign(at(width), Filtered());
    batch_.clear();
    const std::size_t count = samples_[0].count();
    const float share = 1.0f / static_cast<float>(count);
    for (int i = 0; i < width; ++i) {
      const std::size_t first = at(i) * count;
      const auto isHit = [](const SurfaceHit& hit) { return hit.hit; };
      if (std::none_of(hits_.begin() + static_cast<std::ptrdiff_t>(first),
                       hits_.begin() + static_cast<std::ptrdiff_t>(first + count), isHit))
        continue;
      samples_[at(i)].drawLights();
      for (std::size_t s = 0; s < count; ++s) {
        if (!hits_[first + s].hit) continue;
        filtered_[at(i)].albedo += job_.shader->light(rays_[first + s], hits_[first + s],
                                                      samples_[at(i)], s, at(i), batch_) *
                                   share;
        filtered_[at(i)].alpha += share;
      }
    }
    if (answers_.size() < batch_.rays.size()) answers_ = Answers(batch_.rays.size());
    job_.caster.occluded(batch_.rays.data(), batch_.rays.size(), answers_.data());
    for (std::size_t i = 0; i < batch_.rays.size(); ++i)
      if (!answers_.data()[i])
        filtered_[batch_.lights[i].target].colour += batch_.lights[i].colour * share;
    return batch_.rays.size();
  }

  [[nodiscard]] std::size_t pixel(int x, int y) const {
    return at(y) * at(job_.picture.width) + at(x);
  }

  void writeData(int x, int y, const WorldRay& ray, const SurfaceHit& hit) {
    const std::size_t p = pixel(x, y);
    const Vec3<double> world = hit.position();
    Vec3<float> normal;
    if (hit.hit) {
      normal = job_.list.shapeOf(hit.entry).leftHanded ? -hit.normal : hit.normal;
      if (job_.smooth) normal = job_.smooth->normal(hit);
    }
    for (std::size_t c = 0; c < job_.layers.channels.size(); ++c) {
      const LayerChannel& channel = job_.layers.channels[c];
      Plane& plane = job_.picture.planes[c];
      const auto k = static_cast<std::size_t>(channel.component);
      switch (channel.quantity) {
        case Quantity::depth:
          plane.floats[p] = hit.hit ? depthOf(job_.view, ray.direction, hit.distance)
                                    : std::numeric_limits<float>::infinity();
          break;
        case Quantity::position:
          plane.floats[p] = hit.hit ? static_cast<float>(world[k]) : 0.0f;
          break;
        case Quantity::normal: plane.floats[p] = normal[k]; break;
        case Quantity::prim: plane.integers[p] = hit.hit ? hit.entry + 1 : 0; break;
        case Quantity::face:
          plane.integers[p] =
              hit.hit ? static_cast<std::uint32_t>(job_.list.shapeOf(hit.entry).sceneFace(hit.face))
                      : 0;
          break;
        case Quantity::colour:
        case Quantity::alpha:
        case Quantity::albedo: break;
      }
    }
  }

  void writeLight(int x, int y, const Filtered& from) {
    const std::size_t p = pixel(x, y);
    for (std::size_t c = 0; c < job_.layers.channels.size(); ++c) {
      const LayerChannel& channel = job_.layers.channels[c];
      Plane& plane = job_.picture.planes[c];
      const auto k = static_cast<std::size_t>(channel.component);
      if (channel.quantity == Quantity::colour) plane.floats[p] = from.colour[k];
      if (channel.quantity == Quantity::albedo) plane.floats[p] = from.albedo[k];
      if (channel.quantity == Quantity::alpha) plane.floats[p] = from.alpha;
    }
    if (job_.flat.empty()) return;
    const float height =
        1.0f - (static_cast<float>(y) + 0.5f) / static_cast<float>(job_.picture.height);
    const Vec3<float> over = from.colour + backdrop(height) * (1.0f - std::min(from.alpha, 1.0f));
    for (std::size_t k = 0; k < 3; ++k) job_.flat[3 * p + k] = over[k];
  }

  // A plain array of bool: std::vector<bool> has no addresses.
  class Answers {
   public:
    explicit Answers(std::size_t count = 0)
        : size_(count), answers_(std::make_unique<bool[]>(count)) {}
    [[nodiscard]] std::size_t size() const { return size_; }
    bool* data() { return answers_.get(); }

   private:
    std::size_t size_;
    std::unique_ptr<bool[]> answers_;
  };

  const Job& job_;
  std::vector<PixelSamples> samples_;
  std::vector<Vec2<float>> places_;
  std::vector<WorldRay> rays_;
  std::vector<SurfaceHit> hits_;
  Shader::Batch batch_;
  Answers answers_;
  std::vector<Filtered> filtered_;
};

Picture makePicture(const LayerChoice& layers, const View& view, const MeshList& list) {
  Picture picture;
  picture.width = view.width;
  picture.height = view.height;
  for (const LayerChannel& channel : layers.channels) {
    Plane plane;
    plane.name = channel.exrName;
    plane.isInteger = channel.isInteger();
    (plane.isInteger ? plane.integers.resize(picture.pixelCount())
                     : plane.floats.resize(picture.pixelCount()));
    picture.planes.push_back(std::move(plane));
  }
  const tarn::Mat4<double> cameraFromWorld = view.worldFromCamera.inverse();
  for (std::size_t i = 0; i < 16; ++i)
    picture.worldToCamera[i] = static_cast<float>(cameraFromWorld[i]);

  picture.texts.emplace_back("software", std::string("vela ") + vela::version());
  if (layers.has(Quantity::prim)) {
    std::vector<std::string> paths;
    paths.reserve(list.entries.size());
    for (std::size_t i = 0; i < list.entries.size(); ++i) paths.push_back(nameOf(list, i));
    picture.texts.emplace_back("prim/manifest", manifestOf(paths));
  }
  return picture;
}

// Frame numbers seed the samples; a time that is none, or beyond all numbering, counts as its
// nearest.
int frameOf(double time) {
  if (!std::isfinite(time)) return 0;
  return static_cast<int>(std::lround(std::clamp(time, -1e9, 1e9)));
}

}  // namespace

void render(const RenderOptions& options) {
  const auto start = std::chrono::steady_clock::now();

  // Names and places are checked before the long work.
  const LayerChoice layers = chooseLayers(options.layers);
  std::optional<OutputFile> exr, png;
  if (!options.exr.empty()) exr.emplace(options.exr);
  if (!options.png.empty()) png.emplace(options.png);

  std::optional<vela::Selection::GeoSelection> selection;
  if (!options.selection.empty()) selection = readSelection(options.selection);

  // The scene as it is at the time.
  const std::shared_ptr<ovo::Stage> stage = openStage("render", options.scene.file);
  const MeshList list = listMeshes("render", *stage, options.scene);
  const vela::scene::Extent extent = findExtent(list);
  const tarn::Box3<double>& bounds = extent.box;
  if (bounds.isEmpty())
    std::fprintf(stderr,
                 "vela render: warning: nothing to show: %s: no mesh is visible, of the purposes "
                 "asked for and not left out\n",
                 options.scene.file.c_str());
  const View view = makeView(*stage, options.scene, extent);

  const RayCaster caster = makeCaster(options.scene, list, extent);
  throwIfInterrupted();

  const bool needsColour = png || layers.has(Quantity::colour) || layers.has(Quantity::alpha) ||
                           layers.has(Quantity::albedo);
  const int grid = std::max(1, static_cast<int>(std::lround(std::sqrt(options.samples))));
  const int ambientGrid = std::max(1, static_cast<int>(std::lround(6.0 / grid)));
  const bool needsNormals = options.scene.smooth && layers.has(Quantity::normal);
  std::optional<Shader> shader;
  if (needsColour || needsNormals)
    shader.emplace(list, caster, options.scene.time, view,
                   bounds.isEmpty() ? 1.0 : 0.5 * bounds.size().length(), ambientGrid,
                   options.scene.smooth);
  if (shader && selection) shader->tint(*selection, stage, list);

  // Tile by tile.
  Picture picture = makePicture(layers, view, list);
  std::vector<float> flat(png ? picture.pixelCount() * 3 : 0);
  std::atomic<std::uint64_t> rays{0};
  const Job job{options,
                layers,
                view,
                caster,
                list,
                needsColour ? &*shader : nullptr,
                needsNormals ? &*shader : nullptr,
                grid,
                ambientGrid,
                frameOf(options.scene.time),
                picture,
                flat,
                rays};
  std::vector<std::unique_ptr<TileRenderer>> renderers(
      static_cast<std::size_t>(threadCount(options.threads)));
  forEachTile("render", view.width, view.height, options.threads, rays,
              [&](const Tile& tile, int thread) {
                auto& renderer = renderers[static_cast<std::size_t>(thread)];
                if (!renderer) renderer = std::make_unique<TileRenderer>(job);
                renderer->render(tile);
              });

  // Both files are whole before either gets its name.
  if (exr) writeExr(picture, exr->temporaryName(), exr->finalName(), threadCount(options.threads));
  throwIfInterrupted();
  if (png) writePng(view.width, view.height, flat, png->temporaryName(), png->finalName());
  throwIfInterrupted();
  if (exr) exr->commit();
  if (png) png->commit();

  if (isatty(STDERR_FILENO)) {
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::fprintf(stderr, "vela render: %s%s%s: %d x %d, %zu meshes, %.1f million rays, %.1f s\n",
                 options.exr.c_str(), exr && png ? ", " : "", options.png.c_str(), view.width,
                 view.height, list.entries.size(), static_cast<double>(rays) * 1e-6, seconds);
  }
}

}  // namespace command
