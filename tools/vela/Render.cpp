#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

#include "Interrupt.h"
#include "Logging.h"
#include "Messages.h"
#include "Notices.h"
#include "Options.h"
#include "OutputPictures.h"
#include "PictureJobs.h"
#include "PictureRecord.h"
#include "Progress.h"
#include "Scene.h"
#include "SceneFiles.h"
#include "SelectionFile.h"
#include "vela/picture/PictureRenderer.h"

namespace command {

namespace {

using vela::picture::Picture;
using vela::picture::PictureRenderer;
using vela::picture::Tile;
using Clock = std::chrono::steady_clock;

// What is rendered of the picture.
Tile regionOf(const RenderOptions& options, const PictureRenderer& renderer) {
  const int width = renderer.width();
  const Tile window = renderer.window();
  const int height = window.height();
  if (options.tiles > 0) {
    if (options.tiles > height)
      throw failure(Message::badOption, {"--tile", "the picture has " + std::to_string(height) +
                                                       " rows, and there are " +
                                                       std::to_string(options.tiles) + " bands"});
    // Whole numbers of rows, as equal as they can be.
    const auto rowOf = [&](int band) {
      return static_cast<int>(static_cast<std::int64_t>(height) * band / options.tiles);
    };
    return {window.x0, window.y0 + rowOf(options.tile - 1), window.x1,
            window.y0 + rowOf(options.tile)};
  }
  if (!options.region) return window;
  const vela::scene::PixelRect& asked = *options.region;
  const auto clipped = [&](const Tile& to) {
    return Tile{std::max(asked.x0, to.x0), std::max(asked.y0, to.y0), std::min(asked.x1 + 1, to.x1),
                std::min(asked.y1 + 1, to.y1)};
  };
  const auto isEmpty = [](const Tile& tile) { return tile.x0 >= tile.x1 || tile.y0 >= tile.y1; };
  // Images have nothing of what is beyond the picture's edges.
  const bool hasImages =
      !options.show.empty() ||
      std::any_of(options.outputs.begin(), options.outputs.end(), [](const PictureOutput& output) {
        return output.format != vela::picture::FileFormat::exr;
      });
  const Tile region = clipped(window);
  if (isEmpty(region) || (hasImages && isEmpty(clipped({0, 0, width, renderer.height()}))))
    throw failure(Message::regionOutside,
                  {"--region", std::to_string(width), std::to_string(renderer.height()),
                   std::to_string(width - 1), std::to_string(renderer.height() - 1)});
  return region;
}

Picture renderPart(const PictureRenderer& renderer, const Tile& region, int threads) {
  ProgressLine line("render", [&] { return renderer.raysTraced(); });
  std::optional<Picture> picture = renderer.renderRegion(region, threads, line.work());
  if (!picture) throw Interrupted{};
  return *std::move(picture);
}

std::string tileName(const std::string& names, int tile) {
  std::string name = names;
  const std::string place = kTilePlace;
  for (std::size_t at = 0; (at = name.find(place, at)) != std::string::npos;)
    name.replace(at, place.size(), std::to_string(tile));
  return name;
}

// The picture out of its bands, which are there from the first row to the last, each row once.
Picture joinTiles(const RenderOptions& options, const PictureRenderer& renderer,
                  const std::optional<vela::Selection::GeoSelection>& selection) {
  Picture picture = renderer.makePicture();
  const Tile window = renderer.window();
  vela::picture::ExrOptions place;
  place.x = window.x0;
  place.y = window.y0;
  place.displayWidth = renderer.width();
  place.displayHeight = renderer.height();
  int next = window.y0;
  for (int tile = 1; next < window.y1; ++tile) {
    const std::string file = tileName(options.fromTiles, tile);
    const auto fail = [&](const std::string& why, const char* attempt) {
      throw failure(Message::noTile, {file, why, attempt});
    };
    std::error_code none;
    if (!std::filesystem::is_regular_file(file, none))
      fail("it is not there, and the picture ends at row " + std::to_string(next) + " of " +
               std::to_string(window.y1),
           "render the band with --tile K/N");
    noteInput(file);
    throwIfInterrupted();
    const std::string strange = whyNoPart(options, renderer, selection, file);
    if (!strange.empty()) fail(strange, "render it anew with the same options");
    Tile part;
    std::string why;
    if (!vela::picture::readExr(file, picture, place, part, &why))
      fail(why, "render the band anew");
    if (part.x0 != window.x0 || part.x1 != window.x1 || part.y0 != next)
      fail("its rows do not begin at row " + std::to_string(next),
           "take the bands of one number N of them");
    next = part.y1;
  }
  renderer.addManifests(picture);
  return picture;
}

// What is tinted: of a file, else as the picture was that this one is to be like.
std::optional<vela::Selection::GeoSelection> selectionOf(const RenderOptions& options) {
  if (!options.selection.empty()) return readSelection(options.selection);
  if (options.likeSelection.empty()) return std::nullopt;
  vela::Selection::GeoSelection selection;
  std::istringstream text(options.likeSelection);
  std::string why;
  if (!selection.deserialize(text, &why))
    throw failure(Message::noRecord, {options.like, "its selection is damaged: " + why});
  return selection;
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
void reportPicture(const std::string& files, const PictureRenderer& renderer, const Tile& region,
                   double seconds) {
  if (!isatty(STDERR_FILENO)) return;
  std::fprintf(stderr, "vela render: %s%d x %d, %zu meshes, %.1f million rays, %.1f s\n",
               (files.empty() ? "" : files + ": ").c_str(), region.width(), region.height(),
               renderer.meshes().entries.size(), static_cast<double>(renderer.raysTraced()) * 1e-6,
               seconds);
}

// The times of a picture's steps.
struct Steps {
  double open = 0.0, build = 0.0, render = 0.0, write = 0.0;
};

bool allExist(const std::vector<std::string>& files) {
  return std::all_of(files.begin(), files.end(), [](const std::string& file) {
    std::error_code none;
    return std::filesystem::is_regular_file(file, none);
  });
}

bool anyExists(const std::vector<std::string>& files) {
  return std::any_of(files.begin(), files.end(), [](const std::string& file) {
    std::error_code none;
    return std::filesystem::exists(file, none);
  });
}

// Runs one step. \return the seconds that it took
template <class Step>
double timed(const Step& step) {
  const auto start = Clock::now();
  step();
  return std::chrono::duration<double>(Clock::now() - start).count();
}

// What `--stats` asks for. Work and light are shares of the time of rendering, by what all threads
// together spent on them.
void printStatistics(const Steps& steps, const PictureRenderer& renderer) {
  const vela::picture::RenderStats stats = renderer.stats();
  const double spent = stats.traceSeconds + stats.shadeSeconds;
  const double trace = spent > 0.0 ? steps.render * stats.traceSeconds / spent : steps.render;
  struct rusage usage = {};
  getrusage(RUSAGE_SELF, &usage);
  std::fprintf(stderr,
               "vela render: stats: open    %9.3f s\n"
               "vela render: stats: build   %9.3f s\n"
               "vela render: stats: trace   %9.3f s\n"
               "vela render: stats: shade   %9.3f s\n"
               "vela render: stats: write   %9.3f s\n"
               "vela render: stats: memory  %9.1f MB\n"
               "vela render: stats: rays    %" PRIu64 " from the camera, %" PRIu64 " to lights\n",
               steps.open, steps.build, trace, steps.render - trace, steps.write,
               static_cast<double>(usage.ru_maxrss) / 1024.0, stats.cameraRays, stats.lightRays);
}

// One picture of a scene that is open.
// \param label which of several it is; empty for a single one
void renderJob(const RenderOptions& options, const std::string& label,
               const std::shared_ptr<ovo::Stage>& stage,
               const std::optional<vela::Selection::GeoSelection>& selection, Steps steps) {
  const auto start = Clock::now();
  // Names and folders are checked before the long work.
  OutputPictures files(options);
  std::unique_ptr<PictureRenderer> renderer;
  steps.build = timed([&] {
    vela::picture::RenderOptions wanted = pictureOptions(options);
    wanted.selection = selection;
    renderer = openPicture(stage, options.scene.file, wanted);
  });
  const Tile region = regionOf(options, *renderer);
  Picture picture;
  steps.render = timed([&] {
    picture = options.fromTiles.empty() ? renderPart(*renderer, region, options.threads)
                                        : joinTiles(options, *renderer, selection);
  });
  // Nothing shows in many a band of a good picture.
  if (options.tiles == 0 && !renderer->extent().box.isEmpty() && seesNothing(picture))
    say(Notice::warning, options.region ? "nothing shows in the region"
                         : renderer->view().camera.isEmpty()
                             ? "the view sees nothing"
                             : "the camera sees nothing: " + renderer->view().camera.asString());

  // All files are whole before one of them gets its name.
  steps.write = timed([&] {
    recordPicture(options, *renderer, selection, region, picture);
    const PictureWindow window{region.x0, region.y0, renderer->width(), renderer->height()};
    files.write(picture, window);
    if (const std::string changed = files.findChanged(); !changed.empty())
      say(Notice::note, changed + " differs from " + options.like +
                            ", though its options are the same: the scene, or a file that it "
                            "reads, has changed");
    files.commit();
    files.show(picture, window, label);
  });
  if (options.statistics) printStatistics(steps, *renderer);
  reportPicture(files.names(), *renderer, region,
                std::chrono::duration<double>(Clock::now() - start).count() + steps.open);
}

// All pictures of a command line.
ExitCode renderJobs(const RenderOptions& options) {
  const std::optional<vela::Selection::GeoSelection> selection = selectionOf(options);
  // Whatever is wrong with a single picture's files is said before the scene is opened, which may
  // take long.
  const bool isSingle = options.frames.empty() && options.turntable == 0 && !options.allCameras;
  if (isSingle && std::isnan(options.scene.time) && !options.skipExisting)
    OutputPictures checked(options);

  Steps steps;
  std::shared_ptr<ovo::Stage> stage;
  steps.open =
      timed([&] { stage = openStage("render", options.scene.file, options.scene.variants); });
  if (selection)
    sayAbsent(*stage, *selection, options.selection.empty() ? options.like : options.selection);
  RenderOptions resolved = options;
  if (!options.allCameras) resolved.scene.camera = cameraPath(*stage, options.scene.camera);
  const std::vector<PictureJob> jobs = listJobs(*stage, resolved);
  // Nor may a picture replace a texture. The files get their names after the scene is opened, so
  // that it is asked here, once for all pictures.
  if (std::any_of(jobs.begin(), jobs.end(), [](const PictureJob& job) {
        return anyExists(OutputPictures::namesOf(job.options));
      }))
    noteFilesOf(*stage);

  // A bad picture does not keep the others from being made. What is wrong with the command line is
  // wrong with all of them.
  std::size_t done = 0;
  std::vector<std::string> failed, damaged;
  try {
    for (const PictureJob& job : jobs) {
      if (options.skipExisting && !job.options.outputs.empty() &&
          allExist(OutputPictures::namesOf(job.options))) {
        ++done;
        const std::string why = OutputPictures::whyNotWhole(job.options);
        if (!why.empty())
          damaged.push_back("skipped as it is there, though it is no whole picture: " + why +
                            "; remove it, and it is made");
        continue;
      }
      try {
        renderJob(job.options, jobs.size() > 1 ? job.label : "", stage, selection, steps);
        ++done;
        steps.open = 0.0;
      } catch (const Failure& why) {
        if (jobs.size() == 1 || why.code == kUsage) throw;
        reportFailure("vela render: " + job.label, why);
        failed.push_back(job.label);
      }
    }
  } catch (const Interrupted&) {
    if (jobs.size() == 1 || done == 0) throw;
    say(Notice::warning, "interrupted; " + std::to_string(done) + " of " +
                             std::to_string(jobs.size()) + " pictures are written");
    return kInterrupted;
  }
  sayAlike(Notice::warning, damaged);
  if (failed.empty()) return kDone;
  std::string list;
  for (const std::string& label : failed) list += (list.empty() ? "" : "; ") + label;
  Failure all = failure(Message::picturesFailed,
                        {list, std::to_string(failed.size()), std::to_string(jobs.size())});
  if (done == 0) all.code = kBadInput;
  throw all;
}

}  // namespace

ExitCode render(const RenderOptions& options) {
  try {
    return renderJobs(options);
  } catch (const Failure& why) {
    // What is gone from the scene was not typed where it comes out of a picture's header.
    if (!options.like.empty() && !why.where.empty() &&
        options.likeOptions.find(why.where) != std::string::npos)
      say(Notice::note, options.like + " was made with " + options.likeOptions);
    throw;
  }
}

}  // namespace command
