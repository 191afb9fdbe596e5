#include "vela/picture/PictureRenderer.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstddef>
#include <utility>

#include "tarn/Mat4.h"
#include "vela/Version.h"
#include "vela/picture/ExrFile.h"
#include "vela/picture/detail/LayerRows.h"
#include "vela/picture/detail/RenderJob.h"
#include "vela/picture/detail/Shader.h"
#include "vela/picture/detail/TileRenderer.h"

namespace vela::picture {

namespace detail {

// What a renderer holds. Later members refer to earlier ones, so that it never moves.
struct OpenPicture {
  LayerChoice layers;
  scene::MeshList meshes;
  std::optional<scene::SceneMaterials> materials;
  scene::Extent extent;
  scene::View view;
  std::optional<scene::RayCaster> caster;
  std::optional<Shader> shader;
  std::optional<RenderJob> job;
  std::atomic<std::uint64_t> rays{0};
};

}  // namespace detail

namespace {

using detail::OpenPicture;
using scene::Problem;

constexpr int kMostSamples = 4096;
constexpr int kWidest = 65536;

Problem problemOf(Problem::Kind kind, const std::string& subject, const std::string& reason) {
  Problem problem;
  problem.kind = kind;
  problem.subject = subject;
  problem.reason = reason;
  return problem;
}

std::string outside(int value, int low, int high) {
  return std::to_string(value) + " is not from " + std::to_string(low) + " to " +
         std::to_string(high);
}

// The first option that no picture can be made with; Kind::none when all are usable.
Problem findBadOption(const RenderOptions& options) {
  const auto isOutside = [](int value, int low, int high) { return value < low || value > high; };
  const auto bad = [](const char* option, const std::string& reason) {
    return problemOf(Problem::Kind::badOption, option, reason);
  };
  if (isOutside(options.samples, 1, kMostSamples))
    return bad("samples", outside(options.samples, 1, kMostSamples));
  if (isOutside(options.view.width, 0, kWidest))
    return bad("width", outside(options.view.width, 0, kWidest));
  if (isOutside(options.view.height, 0, kWidest))
    return bad("height", outside(options.view.height, 0, kWidest));
  if (options.meshes.subdivisionLevel < 0) return bad("subdivision level", "it is less than 0");
  if (options.caster == scene::CasterKind::hitDetector &&
      (options.meshes.subdivisionLevel > 0 || options.smooth))
    return bad(options.smooth ? "smooth" : "subdivision level",
               "does not go with the hit detector, which takes meshes as the scene has them");
  return {};
}

// Frame numbers seed the samples. Times beyond a thousand million count as that, the default time
// as 0.
int frameOf(double time) {
  if (!std::isfinite(time)) return 0;
  return static_cast<int>(std::lround(std::clamp(time, -1e9, 1e9)));
}

bool needsSurfaceNormals(const LayerChoice& layers) {
  return std::any_of(layers.layers.begin(), layers.layers.end(), [](const ChosenLayer& layer) {
    return detail::rowOf(*layer.info).usesNormals;
  });
}

// What all tiles share, and the surfaces where light or normals need them.
void makeJob(const std::shared_ptr<ovo::Stage>& stage, const RenderOptions& options,
             OpenPicture& open) {
  const int grid = std::max(1, static_cast<int>(std::lround(std::sqrt(options.samples))));
  const int ambientGrid = std::max(1, static_cast<int>(std::lround(6.0 / grid)));
  const bool needsLight = open.layers.has(Sampling::meanOfSamples);
  const bool needsNormals = options.smooth && needsSurfaceNormals(open.layers);
  if (needsLight || needsNormals) {
    const tarn::Box3d& box = open.extent.box;
    const double radius = box.isEmpty() ? 1.0 : 0.5 * box.size().length();
    open.shader.emplace(open.meshes, *open.caster, options.time, open.view, radius, ambientGrid,
                        options.smooth);
    if (options.selection) {
      Selection::GeoSelection selection = *options.selection;
      open.shader->tint(selection, stage);
    }
  }
  open.job.emplace(detail::RenderJob{
      open.meshes, open.view, *open.caster, open.layers,
      open.materials ? &*open.materials : nullptr, needsLight ? &*open.shader : nullptr,
      needsNormals ? &*open.shader : nullptr, grid, ambientGrid,
      options.pattern == SamplePattern::jittered, frameOf(options.time)});
}

// \return false with the reason last in \p problems
bool setUp(const std::shared_ptr<ovo::Stage>& stage, const RenderOptions& options,
           std::vector<Problem>& problems, const scene::Work& work, OpenPicture& open) {
  const auto fail = [&](const Problem& problem) {
    problems.push_back(problem);
    return false;
  };
  const auto add = [&](const std::vector<Problem>& more) {
    problems.insert(problems.end(), more.begin(), more.end());
  };

  // What is wrong whatever the scene holds.
  if (!stage) return fail(problemOf(Problem::Kind::badOption, "stage", "there is none"));
  if (const Problem bad = findBadOption(options); bad.kind != Problem::Kind::none) return fail(bad);
  std::string reason;
  std::optional<LayerChoice> layers = chooseLayers(options.layers, &reason);
  if (!layers) return fail(problemOf(Problem::Kind::badOption, "layers", reason));
  open.layers = std::move(*layers);

  // The scene as it is at the time.
  Problem problem;
  scene::MeshFilter filter = options.meshes;
  filter.time = options.time;
  std::optional<scene::MeshList> meshes =
      scene::listMeshes(*stage, filter, &problem, work.part(0.0, 0.5));
  if (!meshes) return fail(problem);
  open.meshes = std::move(*meshes);
  add(open.meshes.problems());
  open.extent = scene::extentOf(open.meshes, work.part(0.5, 0.6));
  if (work.isStopped()) return fail(problemOf(Problem::Kind::stopped, "", "stopped"));
  if (open.extent.box.isEmpty()) {
    Problem nothing = problemOf(Problem::Kind::nothingShown, "",
                                "no mesh is visible, of the purposes asked for and not left out");
    nothing.severity = Problem::Severity::warning;
    problems.push_back(nothing);
  }

  // What the meshes are made of, where that is asked for.
  if (open.layers.has("material")) {
    open.materials =
        scene::findMaterials(*stage, open.meshes, options.materialPurpose, options.time, work);
    if (work.isStopped()) return fail(problemOf(Problem::Kind::stopped, "", "stopped"));
    add(open.materials->problems);
  }

  // The camera, and what answers its rays.
  scene::ViewOptions viewOptions = options.view;
  viewOptions.time = options.time;
  std::optional<scene::View> view =
      scene::makeView(*stage, viewOptions, open.extent, &problem, work.part(0.6, 0.6));
  if (!view) return fail(problem);
  open.view = std::move(*view);
  add(open.view.problems);
  open.caster = scene::RayCaster::make(options.caster, open.meshes, open.extent, options.time,
                                       &problem, work.part(0.6, 1.0));
  if (!open.caster) return fail(problem);
  add(open.caster->problems());
  if (work.isStopped()) return fail(problemOf(Problem::Kind::stopped, "", "stopped"));

  makeJob(stage, options, open);
  return true;
}

Tile clip(const Tile& tile, int width, int height) {
  const Tile clipped{std::max(tile.x0, 0), std::max(tile.y0, 0), std::min(tile.x1, width),
                     std::min(tile.y1, height)};
  return clipped.x0 < clipped.x1 && clipped.y0 < clipped.y1 ? clipped : Tile{};
}

// True when a picture has the channels of another one, and values for all of its pixels.
bool hasLayersOf(const Picture& picture, const Picture& model) {
  return std::equal(picture.layers.begin(), picture.layers.end(), model.layers.begin(),
                    model.layers.end(), [&](const Layer& layer, const Layer& wanted) {
                      const std::size_t values = layer.type == ValueType::float32
                                                     ? layer.floats.size()
                                                     : layer.integers.size();
                      return layer.type == wanted.type && layer.channels == wanted.channels &&
                             values == picture.pixelCount() * layer.channels.size();
                    });
}

// A rectangle of any size, in pieces that a tile renderer takes.
bool renderPieces(const OpenPicture& open, const Tile& tile, int x0, int y0, Picture& picture,
                  const scene::Work& work, std::atomic<std::uint64_t>& counter) {
  detail::TileRenderer renderer(*open.job);
  for (int y = tile.y0; y < tile.y1; y += kTileSize)
    for (int x = tile.x0; x < tile.x1; x += kTileSize) {
      const Tile piece{x, y, std::min(x + kTileSize, tile.x1), std::min(y + kTileSize, tile.y1)};
      std::uint64_t rays = 0;
      const bool done = renderer.render(piece, x0, y0, picture, work, rays);
      counter.fetch_add(rays, std::memory_order_relaxed);
      if (!done) return false;
    }
  return true;
}

}  // namespace

PictureRenderer::PictureRenderer(std::unique_ptr<detail::OpenPicture> open)
    : open_(std::move(open)) {}

PictureRenderer::~PictureRenderer() = default;

std::unique_ptr<PictureRenderer> PictureRenderer::make(const std::shared_ptr<ovo::Stage>& stage,
                                                       const RenderOptions& options,
                                                       std::vector<scene::Problem>* problems,
                                                       const scene::Work& work) {
  std::vector<Problem> found;
  auto opened = std::make_unique<OpenPicture>();
  const bool done = setUp(stage, options, found, work, *opened);
  if (problems) problems->insert(problems->end(), found.begin(), found.end());
  if (!done) return nullptr;
  return std::unique_ptr<PictureRenderer>(new PictureRenderer(std::move(opened)));
}

int PictureRenderer::width() const noexcept { return open_->view.width; }
int PictureRenderer::height() const noexcept { return open_->view.height; }
const LayerChoice& PictureRenderer::layers() const noexcept { return open_->layers; }
const scene::MeshList& PictureRenderer::meshes() const noexcept { return open_->meshes; }
const scene::Extent& PictureRenderer::extent() const noexcept { return open_->extent; }
const scene::View& PictureRenderer::view() const noexcept { return open_->view; }
const scene::RayCaster& PictureRenderer::caster() const noexcept { return *open_->caster; }
std::uint64_t PictureRenderer::raysTraced() const noexcept {
  return open_->rays.load(std::memory_order_relaxed);
}

Picture PictureRenderer::makePicture() const {
  Picture picture = open_->layers.makePicture(width(), height());
  picture.attributes = {{"software", std::string("vela ") + vela::version()},
                        {"worldToCamera", tarn::Mat4f(open_->view.worldFromCamera.inverse())}};
  if (open_->layers.has("prim")) {
    const std::size_t count = open_->meshes.entries.size();
    picture.manifest.reserve(count);
    for (std::size_t i = 0; i < count; ++i) picture.manifest.push_back(nameOf(open_->meshes, i));
  }
  if (open_->layers.has("material")) {
    std::vector<std::string> names;
    for (const ovo::Prim& material : open_->materials->materials)
      names.push_back(material.getPath().asString());
    picture.attributes.push_back({"material/manifest", manifestText(names)});
  }
  return picture;
}

std::optional<Picture> PictureRenderer::render(const Tile& tile, const scene::Work& work) const {
  const Tile clipped = clip(tile, width(), height());
  Picture picture = open_->layers.makePicture(clipped.width(), clipped.height());
  if (!renderPieces(*open_, clipped, clipped.x0, clipped.y0, picture, work, open_->rays))
    return std::nullopt;
  return picture;
}

bool PictureRenderer::render(const Tile& tile, Picture& picture, const scene::Work& work) const {
  if (!hasLayersOf(picture, open_->layers.makePicture(0, 0)) || picture.width != width() ||
      picture.height != height())
    return false;
  return renderPieces(*open_, clip(tile, width(), height()), 0, 0, picture, work, open_->rays);
}

std::optional<Picture> PictureRenderer::renderAll(int threads, const scene::Work& work) const {
  Picture picture = makePicture();
  std::vector<std::unique_ptr<detail::TileRenderer>> renderers(
      static_cast<std::size_t>(threadCount(threads)));
  const bool done = forEachTile(width(), height(), threads, work,
                                [&](const Tile& tile, int thread, const scene::Work& inTile) {
                                  auto& renderer = renderers[static_cast<std::size_t>(thread)];
                                  if (!renderer)
                                    renderer = std::make_unique<detail::TileRenderer>(*open_->job);
                                  std::uint64_t rays = 0;
                                  renderer->render(tile, 0, 0, picture, inTile, rays);
                                  open_->rays.fetch_add(rays, std::memory_order_relaxed);
                                });
  if (!done) return std::nullopt;
  return picture;
}

std::optional<Picture> renderPicture(const std::shared_ptr<ovo::Stage>& stage,
                                     const RenderOptions& options, int threads,
                                     const scene::Work& work, std::string* error) {
  std::vector<Problem> problems;
  std::optional<Picture> picture;
  if (const auto renderer = PictureRenderer::make(stage, options, &problems, work)) {
    picture = renderer->renderAll(threads, work);
    if (!picture && error) *error = "stopped";
  } else if (error) {
    *error = problems.back().text();
  }
  return picture;
}

}  // namespace vela::picture
