#include "vela/picture/PictureRenderer.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <utility>

#include "tarn/Mat4.h"
#include "vela/Version.h"
#include "vela/picture/Cryptomatte.h"
#include "vela/picture/ExrFile.h"
#include "vela/picture/detail/LayerRows.h"
#include "vela/picture/detail/Mattes.h"
#include "vela/picture/detail/RenderJob.h"
#include "vela/picture/detail/Shader.h"
#include "vela/picture/detail/TileRenderer.h"
#include "vela/scene/SceneMotion.h"

namespace vela::picture {

namespace detail {

// Counts of all threads.
struct Counter {
  std::atomic<std::uint64_t> cameraRays{0}, lightRays{0};
  std::atomic<std::int64_t> traceTime{0}, shadeTime{0};

  void add(const TileCounts& counts) {
    cameraRays.fetch_add(counts.cameraRays, std::memory_order_relaxed);
    lightRays.fetch_add(counts.lightRays, std::memory_order_relaxed);
    traceTime.fetch_add(counts.traceTime, std::memory_order_relaxed);
    shadeTime.fetch_add(counts.shadeTime, std::memory_order_relaxed);
  }
};

// What a renderer finds in the scene and builds of it: the same for all views. Later members refer
// to earlier ones, so that it never moves.
struct OpenScene {
  scene::MeshList meshes;
  std::vector<double> moments;               // none: all is of the picture's time
  std::optional<scene::MeshList> moving;     // the meshes with those that move at each moment
  std::optional<scene::SceneMotion> motion;  // of that list
  // What rays meet.
  [[nodiscard]] const scene::MeshList& traced() const { return moving ? *moving : meshes; }
  std::optional<scene::SceneMaterials> materials;
  scene::SceneLights lights;
  scene::Extent extent;
  std::optional<scene::RayCaster> caster;
  double time = tarn::defaultTimeValue();
  double framesPerSecond = 24.0;
  SamplePattern pattern = SamplePattern::jittered;
  bool smooth = false;
  int overscan = 0;
};

// What a renderer holds. Later members refer to earlier ones, so that it never moves.
struct OpenPicture {
  std::shared_ptr<OpenScene> scene = std::make_shared<OpenScene>();
  LayerChoice layers;
  std::vector<std::optional<scene::View>> momentViews;
  std::vector<const scene::View*> viewsOfMoments;
  scene::View view;
  Tile window;
  std::optional<Shader> shader;
  std::optional<Mattes> mattes;
  std::optional<RenderJob> job;
  float exposure = 0.0f;
  Counter counter;
};

}  // namespace detail

namespace {

using detail::OpenPicture;
using scene::Problem;
using tarn::Vec2d;
using tarn::Vec2f;

constexpr int kMostSamples = 4096;
constexpr int kWidest = 65536;
constexpr int kMostBounces = 8;
constexpr int kMostMoments = 1024;
constexpr int kMostOverscan = 16384;

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
  if (isOutside(options.bounces, 0, kMostBounces))
    return bad("bounces", outside(options.bounces, 0, kMostBounces));
  if (isOutside(options.motionSteps, 0, kMostMoments))
    return bad("motion steps", outside(options.motionSteps, 0, kMostMoments));
  if (isOutside(options.overscan, 0, kMostOverscan))
    return bad("overscan", outside(options.overscan, 0, kMostOverscan));
  if (isOutside(options.view.width, 0, kWidest))
    return bad("width", outside(options.view.width, 0, kWidest));
  if (isOutside(options.view.height, 0, kWidest))
    return bad("height", outside(options.view.height, 0, kWidest));
  if (options.meshes.subdivisionLevel < 0) return bad("subdivision level", "it is less than 0");
  if (options.caster == scene::CasterKind::hitDetector &&
      (options.meshes.subdivisionLevel > 0 || options.smooth))
    return bad(options.smooth ? "smooth" : "subdivision level",
               "does not go with the hit detector, which takes meshes as the scene has them");
  if (options.caster == scene::CasterKind::hitDetector && options.motionSteps > 0)
    return bad("motion steps",
               "do not go with the hit detector, which takes meshes at one time alone");
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

// How the samples of a pixel are spread, by their number.
struct Grids {
  explicit Grids(int perPixel)
      : samples(std::max(1, static_cast<int>(std::lround(std::sqrt(perPixel))))),
        ambient(std::max(1, static_cast<int>(std::lround(6.0 / samples)))) {}
  int samples, ambient;
};

// What all tiles share.
void makeJob(const Grids& grids, OpenPicture& open) {
  const detail::OpenScene& scene = *open.scene;
  const bool needsLight = open.layers.has(Sampling::meanOfSamples);
  const bool needsNormals = scene.smooth && needsSurfaceNormals(open.layers);
  open.job.emplace(detail::RenderJob{
      scene.traced(), open.view, *scene.caster, open.layers,
      scene.materials ? &*scene.materials : nullptr, needsLight ? &*open.shader : nullptr,
      needsNormals ? &*open.shader : nullptr, grids.samples, grids.ambient,
      scene.pattern == SamplePattern::jittered, frameOf(scene.time),
      open.mattes ? &*open.mattes : nullptr, open.viewsOfMoments});
}

// The same, with the surfaces where light or normals need them.
void makeJob(const std::shared_ptr<ovo::Stage>& stage, const RenderOptions& options,
             std::vector<Problem>& problems, const scene::Work& work, OpenPicture& open) {
  const Grids grids(options.samples);
  const int ambientGrid = grids.ambient;
  const bool needsLight = open.layers.has(Sampling::meanOfSamples);
  const bool needsNormals = options.smooth && needsSurfaceNormals(open.layers);
  if (needsLight || needsNormals) {
    const tarn::Box3d& box = open.scene->extent.box;
    const double radius = box.isEmpty() ? 1.0 : 0.5 * box.size().length();
    open.shader.emplace(open.scene->traced(), open.scene->motion ? &*open.scene->motion : nullptr,
                        *open.scene->caster, options.time, open.view, radius, ambientGrid,
                        options.smooth);
    // Images of lights come first, and leave half of the memory to the materials'.
    std::size_t memory = options.textureMemory;
    if (needsLight && options.lights != LightChoice::own && !open.scene->lights.lights.empty()) {
      open.shader->useLights(open.scene->lights, options.lights == LightChoice::both,
                             options.bounces, memory / 2, problems, work);
      memory -= std::min(open.shader->lights()->textureBytes(), memory);
    }
    if (needsLight && options.materials)
      open.shader->useMaterials(*open.scene->materials, options.time, memory, problems, work);
    if (options.selection) {
      Selection::GeoSelection selection = *options.selection;
      open.shader->tint(selection, stage);
    }
  }
  makeJob(grids, open);
}

// How bright the camera shows the scene, in powers of two: its exposure, and the time, sensitivity
// and aperture that go with it. 0 when they make no measure.
float exposureOf(const ovo::Prim& camera, double time) {
  const auto read = [&](const char* name, float fallback) {
    float value = fallback;
    camera.getAttr(ovo::Token(name)).get(value, time);
    return static_cast<double>(value);
  };
  const double fStop = read("exposure:fStop", 1.0f);
  const double scale = read("exposure:time", 1.0f) * (read("exposure:iso", 100.0f) / 100.0) *
                       read("exposure:responsivity", 1.0f) / (fStop * fStop);
  const auto exposure = static_cast<float>(read("exposure", 0.0f) + std::log2(scale));
  return std::isfinite(exposure) ? exposure : 0.0f;
}

Problem withoutEffect(const char* option, const std::string& why) {
  Problem problem = problemOf(Problem::Kind::noEffect, option, why);
  problem.severity = Problem::Severity::note;
  return problem;
}

bool isSameView(const scene::View& a, const scene::View& b) {
  return a.worldFromCamera == b.worldFromCamera && a.lensRadius == b.lensRadius &&
         a.focusDistance == b.focusDistance && a.clippingPlanes == b.clippingPlanes &&
         a.sample.lensAp.clipNearDistance == b.sample.lensAp.clipNearDistance &&
         a.sample.lensAp.clipFarDistance == b.sample.lensAp.clipFarDistance &&
         a.sample.optics.focalLength == b.sample.optics.focalLength &&
         a.sample.sensor.apertureSize == b.sample.sensor.apertureSize &&
         a.sample.sensor.apertureTranslate == b.sample.sensor.apertureTranslate;
}

// The view at each moment, all of the size and the camera that the picture has. Where the camera
// stands still, or cannot be used at some moment, it is the picture's own.
bool makeMomentViews(const ovo::Stage& stage, const scene::ViewOptions& options,
                     OpenPicture& open) {
  scene::ViewOptions wanted = options;
  wanted.camera = open.view.camera;
  wanted.width = open.view.width;
  wanted.height = open.view.height;
  bool moves = false;
  for (const double time : open.scene->moments) {
    wanted.time = time;
    open.momentViews.push_back(scene::makeView(stage, wanted, open.scene->extent));
    std::optional<scene::View>& view = open.momentViews.back();
    if (view && isSameView(*view, open.view)) view.reset();
    moves = moves || view;
    open.viewsOfMoments.push_back(view ? &*view : nullptr);
  }
  for (std::size_t i = 0; i < open.momentViews.size(); ++i)
    open.viewsOfMoments[i] = open.momentViews[i] ? &*open.momentViews[i] : &open.view;
  return moves;
}

// \return false with the reason in \p problem
bool openWindow(int overscan, OpenPicture& open, Problem& problem) {
  if (overscan > 0 && !open.view.projection->canBeExtendedHorizontally()) {
    problem = problemOf(Problem::Kind::badOption, "overscan",
                        "the lens shows nothing more beyond the picture's edges");
    return false;
  }
  open.window = {-overscan, -overscan, open.view.width + overscan, open.view.height + overscan};
  return true;
}

// Finds what moves while the shutter is open.
// \return false with the reason in \p problem
bool openShutter(const ovo::Stage& stage, const RenderOptions& options,
                 const scene::MeshFilter& filter, const scene::ViewOptions& viewOptions,
                 std::vector<Problem>& problems, Problem& problem, const scene::Work& work,
                 OpenPicture& open) {
  const auto sayNone = [&](const std::string& why) {
    problems.push_back(withoutEffect("motion", why));
    open.scene->moments.clear();
    open.scene->moving.reset();
    open.scene->motion.reset();
    open.momentViews.clear();
    open.viewsOfMoments.clear();
    return true;
  };
  if (!std::isfinite(options.time)) return sayNone("the picture is of no time");
  if (open.view.camera.isEmpty()) return sayNone("there is no camera, and so no shutter");
  const ovo::CameraPrim camera(stage.getPrimAtPath(open.view.camera));
  open.scene->moments =
      scene::shutterTimes(camera.getParameters(options.time), options.time, options.motionSteps);
  if (open.scene->moments.empty())
    return sayNone("the shutter of " + open.view.camera.asString() + " does not open");
  const bool cameraMoves = makeMomentViews(stage, viewOptions, open);
  open.scene->moving = open.scene->meshes;
  open.scene->motion =
      scene::addMotion(stage, filter, open.scene->moments, *open.scene->moving, &problem, work);
  if (!open.scene->motion) return false;
  if (!cameraMoves && !open.scene->motion->anythingMoves())
    return sayNone("nothing moves while the shutter is open");
  return true;
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
  open.scene->meshes = std::move(*meshes);
  add(open.scene->meshes.problems());
  open.scene->extent = scene::extentOf(open.scene->meshes, work.part(0.5, 0.6));
  if (work.isStopped()) return fail(problemOf(Problem::Kind::stopped, "", "stopped"));
  if (open.scene->extent.box.isEmpty()) {
    Problem nothing = problemOf(Problem::Kind::nothingShown, "",
                                "no mesh is visible, of the purposes asked for and not left out");
    nothing.severity = Problem::Severity::warning;
    problems.push_back(nothing);
  }

  // The camera, and what moves while its shutter is open. Why there is none is said where its turn
  // is: after what the meshes and lights have to say.
  scene::ViewOptions viewOptions = options.view;
  viewOptions.time = options.time;
  std::optional<scene::View> view =
      scene::makeView(*stage, viewOptions, open.scene->extent, &problem, work.part(0.6, 0.6));
  const Problem noView = problem;
  if (view) {
    open.view = std::move(*view);
    if (!openWindow(options.overscan, open, problem)) return fail(problem);
    if (options.motionSteps > 0 && !openShutter(*stage, options, filter, viewOptions, problems,
                                                problem, work.part(0.6, 0.6), open))
      return fail(problem);
  }

  // What the meshes are made of, where that is asked for.
  const bool showsMaterials = options.materials && open.layers.has(Sampling::meanOfSamples);
  if (showsMaterials || open.layers.has("material") ||
      hasMatte(open.layers, detail::MatteKind::material)) {
    open.scene->materials = scene::findMaterials(*stage, open.scene->traced(),
                                                 options.materialPurpose, options.time, work);
    if (work.isStopped()) return fail(problemOf(Problem::Kind::stopped, "", "stopped"));
    add(open.scene->materials->problems);
  }

  // What shines on them.
  if (open.layers.has(Sampling::meanOfSamples)) {
    open.scene->lights =
        scene::listLights(*stage, open.scene->traced(), filter, work.part(0.6, 0.6));
    if (work.isStopped()) return fail(problemOf(Problem::Kind::stopped, "", "stopped"));
    if (options.lights != LightChoice::own) add(open.scene->lights.problems);
  }

  // What answers the camera's rays.
  if (!view) return fail(noView);
  add(open.view.problems);
  open.scene->caster =
      open.scene->motion
          ? scene::RayCaster::make(options.caster, *open.scene->moving, *open.scene->motion,
                                   open.scene->extent, options.time, &problem, work.part(0.6, 1.0))
          : scene::RayCaster::make(options.caster, open.scene->meshes, open.scene->extent,
                                   options.time, &problem, work.part(0.6, 1.0));
  if (!open.scene->caster) return fail(problem);
  add(open.scene->caster->problems());
  if (work.isStopped()) return fail(problemOf(Problem::Kind::stopped, "", "stopped"));

  if (open.layers.has(Sampling::coverageOfSamples))
    open.mattes.emplace(open.scene->traced(),
                        open.scene->materials ? &*open.scene->materials : nullptr, open.layers,
                        problems);
  open.scene->time = options.time;
  open.scene->pattern = options.pattern;
  open.scene->smooth = options.smooth;
  open.scene->overscan = options.overscan;
  open.scene->framesPerSecond = stage->getFramesPerSecond();
  if (!open.view.camera.isEmpty())
    open.exposure = exposureOf(stage->getPrimAtPath(open.view.camera), options.time);
  makeJob(stage, options, problems, work, open);
  if (work.isStopped()) return fail(problemOf(Problem::Kind::stopped, "", "stopped"));
  return true;
}

// Another view of the scene that is found and built already.
// \return false with the reason in \p problem
bool setUpView(const OpenPicture& from, scene::View view, int samples,
               const std::vector<std::string>& layers, float exposure, OpenPicture& open,
               Problem& problem) {
  const auto fail = [&](const char* option, const std::string& reason) {
    problem = problemOf(Problem::Kind::badOption, option, reason);
    return false;
  };
  const bool isDraft = samples == 0;
  if (samples < 0 || samples > kMostSamples)
    return fail("samples", outside(samples, 0, kMostSamples));
  for (const auto& [option, size] : {std::pair("width", view.width), {"height", view.height}})
    if (size < 1 || size > kWidest) return fail(option, outside(size, 1, kWidest));
  if (!view.projection) return fail("view", "it has no lens");
  std::string reason;
  std::optional<LayerChoice> choice = chooseLayers(layers, &reason);
  if (!choice) return fail("layers", reason);
  for (const ChosenLayer& layer : choice->layers)
    if (!from.layers.has(layer.info->name))
      return fail("layers", "the picture that is set up has no " + layer.info->name);

  open.scene = from.scene;
  open.layers = std::move(*choice);
  open.view = std::move(view);
  open.exposure = exposure;
  if (!openWindow(open.scene->overscan, open, problem)) return false;
  open.viewsOfMoments.assign(open.scene->moments.size(), &open.view);
  Grids grids(samples);
  if (isDraft) grids.ambient = 1;
  if (from.shader) open.shader.emplace(*from.shader, open.view, grids.ambient, !isDraft);
  std::vector<Problem> known;  // the picture that is set up has said so
  if (open.layers.has(Sampling::coverageOfSamples))
    open.mattes.emplace(open.scene->traced(),
                        open.scene->materials ? &*open.scene->materials : nullptr, open.layers,
                        known);
  makeJob(grids, open);
  return true;
}

// Of what a build says of one of its parts the number, which stands in front of where it lies.
std::string numberOf(const std::string& built) { return built.substr(0, built.find(',')); }

// Where the picture was taken from, as compositors read it.
void describeView(const scene::View& view, Picture& picture) {
  const tarn::Mat4d cameraFromWorld = view.worldFromCamera.inverse();
  picture.attributes = {{"software", std::string("vela ") + vela::version()},
                        {"versions", "OpenUSD " + numberOf(VELA_BUILD_OPENUSD) + ", OpenSubdiv " +
                                         numberOf(VELA_BUILD_OPENSUBDIV)},
                        {"worldToCamera", tarn::Mat4f(cameraFromWorld)}};
  if (!view.camera.isEmpty()) picture.attributes.push_back({"camera", view.camera.asString()});
  if (!view.projection->isLinear()) return;

  // The film in units of its distance; of an orthographic camera the window itself.
  const Vec2d& film = view.sample.sensor.apertureSize;
  const bool isPerspective = view.lens == LensProjection::perspective;
  const double width = isPerspective ? film.x / view.sample.optics.focalLength : film.x;
  // Half the film's width is the unit of its offset, as of NDC.
  const Vec2d centre = view.sample.sensor.apertureTranslate * (0.5 * width);
  if (isPerspective) {
    picture.attributes.push_back({"screenWindowCenter", Vec2f(centre)});
    picture.attributes.push_back({"screenWindowWidth", static_cast<float>(width)});
  }

  // From the window to 0, 0 at the upper left corner and 1, 1 at the lower right one. A third value
  // that keeps the matrix invertible: the distance's reciprocal in perspective, else the depth.
  const double height = width * view.height / view.width;
  tarn::Mat4d ndcFromCamera(0.0);
  ndcFromCamera[0] = 1.0 / width;
  ndcFromCamera[5] = -1.0 / height;
  const Vec2d shift(0.5 - centre.x / width, 0.5 + centre.y / height);
  if (isPerspective) {
    // w is the distance along the axis, -z.
    ndcFromCamera[8] = -shift.x;
    ndcFromCamera[9] = -shift.y;
    ndcFromCamera[11] = -1.0;
    ndcFromCamera[14] = 1.0;
  } else {
    ndcFromCamera[10] = 1.0;
    ndcFromCamera[12] = shift.x;
    ndcFromCamera[13] = shift.y;
    ndcFromCamera[15] = 1.0;
  }
  picture.attributes.push_back({"worldToNDC", tarn::Mat4f(ndcFromCamera * cameraFromWorld)});
}

// The ids in a matte's layers, sorted, each once.
std::vector<std::uint32_t> idsShown(const Picture& picture, const std::string& matte) {
  std::vector<std::uint32_t> ids;
  for (const Layer& layer : picture.layers) {
    if (layer.name.compare(0, matte.size(), matte) != 0) continue;
    std::uint32_t last = 0;
    for (std::size_t i = 0; i + 1 < layer.floats.size(); i += 2) {
      std::uint32_t id = 0;
      std::memcpy(&id, &layer.floats[i], sizeof id);
      // Neighbours mostly show the same.
      if (id != 0 && id != last) ids.push_back(id);
      last = id;
    }
  }
  std::sort(ids.begin(), ids.end());
  ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
  return ids;
}

Tile clip(const Tile& tile, const Tile& window) {
  const Tile clipped{std::max(tile.x0, window.x0), std::max(tile.y0, window.y0),
                     std::min(tile.x1, window.x1), std::min(tile.y1, window.y1)};
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
                  const scene::Work& work, detail::Counter& counter) {
  detail::TileRenderer renderer(*open.job);
  for (int y = tile.y0; y < tile.y1; y += kTileSize)
    for (int x = tile.x0; x < tile.x1; x += kTileSize) {
      const Tile piece{x, y, std::min(x + kTileSize, tile.x1), std::min(y + kTileSize, tile.y1)};
      detail::TileCounts counts;
      const bool done = renderer.render(piece, x0, y0, picture, work, counts);
      counter.add(counts);
      if (!done) return false;
    }
  return true;
}

// A picture of all pixels or of a part of them, without values. Its attributes are of the whole.
Picture makeEmpty(const OpenPicture& open, int width, int height) {
  Picture picture = open.layers.makePicture(width, height);
  describeView(open.view, picture);
  if (std::isfinite(open.scene->time))
    picture.attributes.push_back({"frame", static_cast<float>(open.scene->time)});
  if (open.exposure != 0.0f) picture.attributes.push_back({"exposure", open.exposure});
  picture.attributes.push_back(
      {"framesPerSecond", static_cast<float>(open.scene->framesPerSecond)});
  for (const std::string& matte : cryptomattesOf(picture)) {
    picture.attributes.push_back({cryptomatteAttribute(matte, "name"), matte});
    picture.attributes.push_back(
        {cryptomatteAttribute(matte, "hash"), std::string("MurmurHash3_32")});
    picture.attributes.push_back(
        {cryptomatteAttribute(matte, "conversion"), std::string("uint32_to_float32")});
  }
  if (open.layers.has("prim")) {
    const std::size_t count = open.scene->meshes.entries.size();
    picture.manifest.reserve(count);
    for (std::size_t i = 0; i < count; ++i)
      picture.manifest.push_back(nameOf(open.scene->meshes, i));
  }
  if (open.layers.has("material")) {
    std::vector<std::string> names;
    for (const ovo::Prim& material : open.scene->materials->materials)
      names.push_back(material.getPath().asString());
    picture.attributes.push_back({"material/manifest", manifestText(names)});
  }
  return picture;
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

std::unique_ptr<PictureRenderer> PictureRenderer::withView(const ovo::Stage& stage,
                                                           scene::View view, int samples,
                                                           const std::vector<std::string>& layers,
                                                           scene::Problem* problem) const {
  auto opened = std::make_unique<OpenPicture>();
  const float exposure = view.camera.isEmpty()
                             ? open_->exposure
                             : exposureOf(stage.getPrimAtPath(view.camera), open_->scene->time);
  Problem reason;
  if (!setUpView(*open_, std::move(view), samples, layers, exposure, *opened, reason)) {
    if (problem) *problem = reason;
    return nullptr;
  }
  return std::unique_ptr<PictureRenderer>(new PictureRenderer(std::move(opened)));
}

int PictureRenderer::width() const noexcept { return open_->view.width; }
int PictureRenderer::height() const noexcept { return open_->view.height; }
Tile PictureRenderer::window() const noexcept { return open_->window; }
const std::vector<double>& PictureRenderer::moments() const noexcept {
  return open_->scene->moments;
}
const LayerChoice& PictureRenderer::layers() const noexcept { return open_->layers; }
const scene::MeshList& PictureRenderer::meshes() const noexcept { return open_->scene->meshes; }
const scene::Extent& PictureRenderer::extent() const noexcept { return open_->scene->extent; }
const scene::View& PictureRenderer::view() const noexcept { return open_->view; }
const scene::RayCaster& PictureRenderer::caster() const noexcept { return *open_->scene->caster; }
const scene::SceneLights& PictureRenderer::lights() const noexcept { return open_->scene->lights; }
std::uint64_t PictureRenderer::raysTraced() const noexcept {
  return open_->counter.cameraRays.load(std::memory_order_relaxed) +
         open_->counter.lightRays.load(std::memory_order_relaxed);
}
RenderStats PictureRenderer::stats() const noexcept {
  const detail::Counter& from = open_->counter;
  return {from.cameraRays.load(std::memory_order_relaxed),
          from.lightRays.load(std::memory_order_relaxed),
          static_cast<double>(from.traceTime.load(std::memory_order_relaxed)) * 1e-9,
          static_cast<double>(from.shadeTime.load(std::memory_order_relaxed)) * 1e-9};
}

Picture PictureRenderer::makePicture() const {
  return makeEmpty(*open_, open_->window.width(), open_->window.height());
}

void PictureRenderer::addManifests(Picture& picture) const {
  if (!open_->mattes) return;
  for (const detail::MatteKind kind : detail::kAllMattes) {
    if (!open_->mattes->has(kind)) continue;
    const std::string matte = detail::matteName(kind);
    const std::string name = cryptomatteAttribute(matte, "manifest");
    picture.attributes.erase(
        std::remove_if(picture.attributes.begin(), picture.attributes.end(),
                       [&](const Attribute& attribute) { return attribute.name == name; }),
        picture.attributes.end());
    picture.attributes.push_back(
        {name, cryptomatteManifest(open_->mattes->namesOf(kind, idsShown(picture, matte)))});
  }
}

std::optional<Picture> PictureRenderer::render(const Tile& tile, const scene::Work& work) const {
  const Tile clipped = clip(tile, window());
  Picture picture = open_->layers.makePicture(clipped.width(), clipped.height());
  if (!renderPieces(*open_, clipped, clipped.x0, clipped.y0, picture, work, open_->counter))
    return std::nullopt;
  return picture;
}

bool PictureRenderer::render(const Tile& tile, Picture& picture, const scene::Work& work) const {
  const Tile whole = window();
  if (!hasLayersOf(picture, open_->layers.makePicture(0, 0)) || picture.width != whole.width() ||
      picture.height != whole.height())
    return false;
  return renderPieces(*open_, clip(tile, whole), whole.x0, whole.y0, picture, work, open_->counter);
}

std::optional<Picture> PictureRenderer::renderAll(int threads, const scene::Work& work) const {
  return renderRegion(window(), threads, work);
}

std::optional<Picture> PictureRenderer::renderRegion(const Tile& region, int threads,
                                                     const scene::Work& work) const {
  const Tile part = clip(region, window());
  Picture picture = makeEmpty(*open_, part.width(), part.height());
  std::vector<std::unique_ptr<detail::TileRenderer>> renderers(
      static_cast<std::size_t>(threadCount(threads)));
  const auto renderTile = [&](const Tile& tile, int thread, const scene::Work& inTile) {
    auto& renderer = renderers[static_cast<std::size_t>(thread)];
    if (!renderer) renderer = std::make_unique<detail::TileRenderer>(*open_->job);
    // Rays are those of the pixel's place in the whole picture.
    const Tile inWhole{part.x0 + tile.x0, part.y0 + tile.y0, part.x0 + tile.x1, part.y0 + tile.y1};
    detail::TileCounts counts;
    renderer->render(inWhole, part.x0, part.y0, picture, inTile, counts);
    open_->counter.add(counts);
  };
  if (!forEachTile(part.width(), part.height(), threads, work, renderTile)) return std::nullopt;
  addManifests(picture);
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
