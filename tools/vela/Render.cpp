#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Interrupt.h"
#include "Messages.h"
#include "Notices.h"
#include "Options.h"
#include "OutputFile.h"
#include "Progress.h"
#include "Scene.h"
#include "SelectionFile.h"
#include "vela/picture/ExrFile.h"
#include "vela/picture/LayerChoice.h"
#include "vela/picture/PictureRenderer.h"
#include "vela/picture/PngFile.h"

namespace command {

namespace {

using vela::picture::LayerChoice;
using vela::picture::Picture;
using vela::picture::PictureRenderer;
using vela::picture::writePng;

LayerChoice chooseLayers(const std::vector<std::string>& names) {
  if (names.empty()) throw failure(Message::noLayers, {vela::picture::layersToTry()});
  std::string why;
  std::optional<LayerChoice> choice = vela::picture::chooseLayers(names, &why);
  if (!choice) throw failure(Message::badLayer, {why});
  return *std::move(choice);
}

vela::picture::RenderOptions pictureOptions(const RenderOptions& options) {
  const SceneOptions& scene = options.scene;
  vela::picture::RenderOptions picture;
  picture.time = scene.time;
  picture.meshes = scene.filter();
  picture.view = scene.view();
  picture.caster = scene.engine;
  picture.smooth = scene.smooth;
  picture.samples = options.samples;
  picture.pattern = options.pattern;
  picture.materialPurpose = scene.materialPurpose;
  picture.layers.clear();
  if (!options.exr.empty()) picture.layers = options.layers;
  if (!options.png.empty()) picture.layers.push_back("rgba");
  return picture;
}

Picture renderAll(const PictureRenderer& renderer, int threads) {
  ProgressLine line("render", [&] { return renderer.raysTraced(); });
  std::optional<Picture> picture = renderer.renderAll(threads, line.work());
  if (!picture) throw Interrupted{};
  return *std::move(picture);
}

void check(bool isWritten, const OutputFile& file, const std::string& why) {
  if (!isWritten)
    throw failure(Message::cannotWrite, {file.finalName(), why, "see whether the disk is full"});
  throwIfInterrupted();
}

// True when a layer says of each pixel that nothing is there. Not known without such a layer.
bool seesNothing(const Picture& picture) {
  for (const vela::picture::Layer& layer : picture.layers) {
    const auto all = [&](const std::vector<float>& values, std::size_t channel, auto isMiss) {
      for (std::size_t i = channel; i < values.size(); i += layer.channels.size())
        if (!isMiss(values[i])) return false;
      return !values.empty();
    };
    if (layer.name == "rgba") return all(layer.floats, 3, [](float a) { return a == 0.0f; });
    if (layer.name == "depth")
      return all(layer.floats, 0, [](float z) { return !std::isfinite(z); });
  }
  return false;
}

// Of a selection: prims that the scene does not have.
void sayAbsent(const ovo::Stage& stage, const vela::Selection::GeoSelection& selection,
               const std::string& file) {
  std::vector<std::string> absent;
  for (const auto& [path, object] : selection)
    if (!stage.getPrimAtPath(path).isValid())
      absent.push_back(file + " has " + path.asString() + ", which is not in the scene");
  std::sort(absent.begin(), absent.end());
  sayAlike(Notice::note, absent);
}

// On a terminal, one line about the picture that was made.
void reportPicture(const RenderOptions& options, const PictureRenderer& renderer, double seconds) {
  if (!isatty(STDERR_FILENO)) return;
  const bool both = !options.exr.empty() && !options.png.empty();
  std::fprintf(stderr, "vela render: %s%s%s: %d x %d, %zu meshes, %.1f million rays, %.1f s\n",
               options.exr.c_str(), both ? ", " : "", options.png.c_str(), renderer.width(),
               renderer.height(), renderer.meshes().entries.size(),
               static_cast<double>(renderer.raysTraced()) * 1e-6, seconds);
}

}  // namespace

ExitCode render(const RenderOptions& options) {
  const auto start = std::chrono::steady_clock::now();

  // Names and folders are checked before the long work.
  const LayerChoice layers = chooseLayers(options.layers);
  std::optional<OutputFile> exr, png;
  if (!options.exr.empty()) exr.emplace(options.exr);
  if (!options.png.empty()) png.emplace(options.png);
  std::optional<vela::Selection::GeoSelection> selection;
  if (!options.selection.empty()) selection = readSelection(options.selection);

  // The picture.
  const std::shared_ptr<ovo::Stage> stage = openStage("render", options.scene.file);
  if (selection) sayAbsent(*stage, *selection, options.selection);
  vela::picture::RenderOptions wanted = pictureOptions(options);
  wanted.selection = std::move(selection);
  const auto renderer = openPicture(stage, options.scene.file, wanted);
  Picture picture = renderAll(*renderer, options.threads);

  if (!renderer->extent().box.isEmpty() && seesNothing(picture))
    say(Notice::warning, renderer->view().camera.isEmpty()
                             ? "the view sees nothing"
                             : "the camera sees nothing: " + renderer->view().camera.asString());

  // Both files are whole before either gets its name.
  std::string why;
  const std::vector<float> flat = png ? overBackdrop(picture) : std::vector<float>();
  if (exr) {
    layers.reduce(picture);
    check(
        writeExr(picture, exr->temporaryName(), vela::picture::threadCount(options.threads), &why),
        *exr, why);
  }
  if (png)
    check(writePng(picture.width, picture.height, flat, png->temporaryName(), &why), *png, why);
  if (exr) exr->commit();
  if (png) png->commit();

  const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
  reportPicture(options, *renderer, taken.count());
  return kDone;
}

}  // namespace command
