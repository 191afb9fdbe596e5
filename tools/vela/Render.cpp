#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Interrupt.h"
#include "Messages.h"
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
  vela::picture::RenderOptions wanted = pictureOptions(options);
  wanted.selection = std::move(selection);
  const auto renderer = openPicture("render", stage, options.scene.file, wanted);
  Picture picture = renderAll(*renderer, options.threads);

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
