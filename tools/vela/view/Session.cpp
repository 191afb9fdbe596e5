#include "view/Session.h"

#include <cmath>
#include <system_error>
#include <utility>

#include "Interrupt.h"
#include "Limits.h"
#include "Messages.h"
#include "Scene.h"
#include "Text.h"
#include "ovo/SceneTrial.h"
#include "vela/picture/LayerTable.h"

namespace command::viewer {

namespace {

using vela::picture::PictureRenderer;
using vela::scene::View;

// Two frames side by side, and the one that comes next.
constexpr std::size_t kMostBuilt = 3;

// Equal where the same meshes, materials and lights show.
std::string keyOf(const SceneOptions& scene) {
  std::string key = std::isnan(scene.time) ? "default" : toText(scene.time);
  for (const vela::scene::Purpose purpose : scene.purposes)
    key += " " + std::to_string(static_cast<int>(purpose));
  key += scene.withInvisible ? " invisible" : "";
  key += scene.smooth ? " smooth" : "";
  key += " " + std::to_string(scene.subdivisionLevel);
  // Paths may hold anything but this.
  for (const std::string& path : scene.excludedPaths) key += std::string("\0-", 2) + path;
  for (const std::string& path : scene.maskPaths) key += std::string("\0+", 2) + path;
  return key;
}

}  // namespace

std::vector<std::string> Session::layers() {
  std::vector<std::string> names;
  for (const vela::picture::LayerInfo& info : vela::picture::layerTable())
    if (vela::picture::findLayerInfo(info.name) &&
        info.sampling != vela::picture::Sampling::coverageOfSamples)
      names.push_back(info.name);
  return names;
}

Session::Session(const RenderOptions& options) : options_(options) {
  open();
  generation_ = 1;
  (void)build({options, std::nullopt, 1.0, ""});
}

Session::Stamp Session::stampOf(const std::string& file) {
  std::error_code none;
  const auto time = std::filesystem::last_write_time(file, none);
  if (none) return {};
  return {time, std::filesystem::file_size(file, none)};
}

void Session::open() {
  std::shared_ptr<ovo::Stage> stage =
      openStage("view", options_.scene.file, options_.scene.variants);
  std::vector<std::pair<std::string, Stamp>> files;
  for (const std::string& file : stage->layerFiles()) files.emplace_back(file, stampOf(file));
  stage_ = std::move(stage);
  files_ = std::move(files);
}

std::shared_ptr<ovo::Stage> Session::stageUnlocked() const {
  if (!stage_) throw cannotOpen(options_.scene.file, "it could not be opened again");
  return stage_;
}

std::shared_ptr<ovo::Stage> Session::stage() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return stageUnlocked();
}

bool Session::hasChanged() {
  const std::lock_guard<std::mutex> lock(mutex_);
  for (const auto& [file, stamp] : files_)
    if (stampOf(file) != stamp) return true;
  return false;
}

void Session::reload(const std::function<void()>& forget) {
  ovo::TrialOptions trial;
  trial.open = limits().open;
  trial.seconds = limits().seconds;
  const ovo::Trial tried = ovo::tryScene(options_.scene.file, trial);
  if (tried.outcome != ovo::Trial::Outcome::opens)
    throw cannotOpen(options_.scene.file, tried.reason);
  ++generation_;
  const std::unique_lock<std::shared_mutex> alone(inUse_);
  forget();
  const std::lock_guard<std::mutex> lock(mutex_);
  built_.clear();
  stage_.reset();
  open();
}

std::shared_ptr<const Built> Session::build(const ViewAsk& ask) {
  const std::lock_guard<std::mutex> lock(mutex_);
  return buildUnlocked(ask);
}

std::shared_ptr<const Built> Session::buildUnlocked(const ViewAsk& ask) {
  const std::string key = keyOf(ask.options.scene);
  for (auto at = built_.begin(); at != built_.end(); ++at)
    if ((*at)->key == key) {
      built_.splice(built_.begin(), built_, at);
      return built_.front();
    }
  // Its own view does not count, and must not fail for a camera that another time has not.
  vela::picture::RenderOptions wanted = pictureOptions(ask.options);
  wanted.layers = layers();
  auto built = std::make_shared<Built>();
  built->key = key;
  built->stage = stageUnlocked();
  built->renderer = openPicture(built->stage, options_.scene.file, wanted);
  // Memory of what is not used any more is free before the next is built.
  built_.push_front(std::move(built));
  if (built_.size() > kMostBuilt) built_.pop_back();
  return built_.front();
}

View Session::view(const ViewAsk& ask, const Built& built) {
  const std::lock_guard<std::mutex> lock(mutex_);
  return viewUnlocked(ask, built);
}

View Session::viewUnlocked(const ViewAsk& ask, const Built& built) {
  vela::scene::ViewOptions wanted = pictureOptions(ask.options).view;
  wanted.time = ask.options.scene.time;
  wanted.camera = ovo::Path(cameraPath(*built.stage, ask.options.scene.camera));
  std::optional<View> view = vela::scene::makeView(*built.stage, wanted, built.renderer->extent(),
                                                   nullptr, interruptibleWork());
  // The same once more, for the reason in the command's own words.
  if (!view) view = makeView(*built.stage, ask.options.scene, built.renderer->extent());
  if (ask.pose) {
    view->camera = ovo::Path();
    view->worldFromCamera = view->sample.xform.l2w = *ask.pose;
    if (view->projection->isLinear()) {
      auto& film = view->sample.sensor.apertureSize;
      film = film * ask.zoom;
    }
    view->sample.updateDerivedValues(view->projection.get());
  }
  return *std::move(view);
}

Seen Session::see(const ViewAsk& ask, int samples, const std::vector<std::string>& layers) {
  // Choosing layers changes the registry of channels, which takes no lock of its own.
  const std::lock_guard<std::mutex> lock(mutex_);
  Seen seen;
  seen.built = buildUnlocked(ask);
  vela::scene::Problem problem;
  const PictureRenderer* from = seen.built->renderer.get();
  // A camera that was moved keeps the exposure of the one that it was before.
  std::unique_ptr<const PictureRenderer> before;
  if (ask.pose) {
    ViewAsk still = ask;
    still.pose.reset();
    before =
        from->withView(*seen.built->stage, viewUnlocked(still, *seen.built), 1, layers, &problem);
    if (!before) throw BadAsk(problem.subject + ": " + problem.reason);
    from = before.get();
  }
  seen.renderer =
      from->withView(*seen.built->stage, viewUnlocked(ask, *seen.built), samples, layers, &problem);
  if (!seen.renderer) throw BadAsk(problem.subject + ": " + problem.reason);
  return seen;
}

}  // namespace command::viewer
