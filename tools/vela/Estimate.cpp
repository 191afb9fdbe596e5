#include "Estimate.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "Failure.h"
#include "Interrupt.h"
#include "Messages.h"
#include "OutputPictures.h"
#include "PictureJobs.h"
#include "Progress.h"
#include "Scene.h"
#include "SceneFiles.h"
#include "SelectionFile.h"
#include "Text.h"
#include "vela/picture/FarmCost.h"
#include "vela/picture/PictureRenderer.h"
#include "vela/picture/Tiles.h"

namespace command {

namespace {

namespace fs = std::filesystem;
using vela::picture::FarmCost;
using vela::picture::FarmMeasure;
using vela::picture::FarmPlan;
using vela::picture::Picture;
using vela::picture::PictureRenderer;
using vela::picture::Tile;
using Clock = std::chrono::steady_clock;

// Of openjd-cli, which starts a Python a session. docs/decisions/0009-farm-cost.md has what was
// measured.
constexpr double kSessionSeconds = 0.6, kTaskSeconds = 0.01;
// How long a frame is looked at, and by how many rows at a time: enough for all threads.
constexpr double kFrameSeconds = 3.0;
constexpr int kStripRows = 16;

double since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

// What a process of this command takes before its work and after it: the middle of three.
double startSeconds() {
  std::vector<double> times;
  for (int i = 0; i < 3; ++i) {
    const auto start = Clock::now();
    std::string self = "/proc/self/exe", version = "--version";
    char* arguments[] = {self.data(), version.data(), nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t child = 0;
    if (posix_spawn(&child, self.c_str(), &actions, nullptr, arguments, environ) == 0) {
      int status = 0;
      while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
      }
      times.push_back(since(start));
    }
    posix_spawn_file_actions_destroy(&actions);
  }
  if (times.empty()) return 0.0;
  std::sort(times.begin(), times.end());
  return times[times.size() / 2];
}

// A folder that ends with what is in it.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::error_code none;
    std::string pattern = (fs::temp_directory_path(none) / "vela-estimate-XXXXXX").string();
    if (!mkdtemp(pattern.data()))
      throw failure(Message::cannotWrite,
                    {pattern, "no folder can be made there", "see that there is room on the disk"});
    path_ = pattern;
  }
  ~TemporaryFolder() {
    std::error_code none;
    fs::remove_all(path_, none);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  [[nodiscard]] const fs::path& path() const { return path_; }
  [[nodiscard]] double bytes() const {
    double bytes = 0.0;
    for (const fs::directory_entry& entry : fs::directory_iterator(path_))
      bytes += static_cast<double>(entry.file_size());
    return bytes;
  }

 private:
  fs::path path_;
};

// Strips of a picture in an order in which the first few are spread over all of it: each pass
// halves the distance between those that were taken.
std::vector<int> spreadOrder(int count) {
  std::vector<int> order;
  std::vector<bool> isTaken(static_cast<std::size_t>(count), false);
  for (int parts = 1; static_cast<int>(order.size()) < count; parts *= 2)
    for (int i = 0; i < parts; ++i) {
      const auto strip =
          static_cast<std::size_t>((2 * static_cast<std::int64_t>(i) + 1) * count / (2 * parts));
      if (isTaken[strip]) continue;
      isTaken[strip] = true;
      order.push_back(static_cast<int>(strip));
    }
  return order;
}

// Copies rows of a layer, from one picture into the place of others.
template <class T>
void copyRows(const std::vector<T>& from, int fromRow, std::vector<T>& to, int toRow,
              std::size_t rowValues, int rows) {
  if (from.empty() || to.empty()) return;
  std::copy_n(from.begin() + std::ptrdiff_t(rowValues * static_cast<std::size_t>(fromRow)),
              rowValues * static_cast<std::size_t>(rows),
              to.begin() + std::ptrdiff_t(rowValues * static_cast<std::size_t>(toRow)));
}

void copyRows(const Picture& from, int fromRow, Picture& to, int toRow, int rows) {
  for (std::size_t i = 0; i < to.layers.size(); ++i) {
    const std::size_t values = to.layers[i].channels.size() * static_cast<std::size_t>(to.width);
    copyRows(from.layers[i].floats, fromRow, to.layers[i].floats, toRow, values, rows);
    copyRows(from.layers[i].integers, fromRow, to.layers[i].integers, toRow, values, rows);
  }
}

// Renders strips of a frame until all of it is done or time is up. Rows that were left out are
// filled with those of the strip above them, so that the picture takes as many bytes as the true
// one.
struct Sample {
  Picture picture;
  double seconds = 0.0;  // what all of the picture takes
};
Sample renderSample(const PictureRenderer& renderer, const RenderOptions& options) {
  const Tile window = renderer.window();
  const int height = window.height();
  const int count = (height + kStripRows - 1) / kStripRows;
  Sample sample;
  sample.picture = renderer.makePicture();
  std::vector<bool> isDone(static_cast<std::size_t>(count), false);
  int rows = 0;
  for (const int strip : spreadOrder(count)) {
    const int first = strip * kStripRows, last = std::min(first + kStripRows, height);
    const auto start = Clock::now();
    const std::optional<Picture> part =
        renderer.renderRegion({window.x0, window.y0 + first, window.x1, window.y0 + last},
                              options.threads, interruptibleWork());
    if (!part) throw Interrupted{};
    sample.seconds += since(start);
    copyRows(*part, 0, sample.picture, first, last - first);
    isDone[static_cast<std::size_t>(strip)] = true;
    rows += last - first;
    if (sample.seconds > kFrameSeconds) break;
  }
  sample.seconds *= static_cast<double>(height) / rows;
  // Those above the first strip that is there take that one. No strip is its own source, so rows
  // are never copied onto themselves.
  const auto firstDone = std::find(isDone.begin(), isDone.end(), true);
  int near = static_cast<int>(firstDone - isDone.begin());
  for (int strip = 0; strip < count; ++strip) {
    if (isDone[static_cast<std::size_t>(strip)]) {
      near = strip;
      continue;
    }
    const auto rowsOf = [&](int of) { return std::min(kStripRows, height - of * kStripRows); };
    copyRows(sample.picture, near * kStripRows, sample.picture, strip * kStripRows,
             std::min(rowsOf(near), rowsOf(strip)));
  }
  renderer.addManifests(sample.picture);
  return sample;
}

// The files of a frame, written into a folder of their own.
void writeSample(const RenderOptions& options, const PictureRenderer& renderer,
                 const Picture& picture, FarmMeasure& measure) {
  const TemporaryFolder folder;
  RenderOptions there = options;
  std::size_t number = 0;
  const auto rename = [&](std::string& name) {
    const fs::path file = name;
    name = (folder.path() / (std::to_string(number++) + "-" + file.filename().string())).string();
  };
  for (PictureOutput& output : there.outputs) rename(output.file);
  if (!there.files.manifest.empty()) rename(there.files.manifest);
  const auto start = Clock::now();
  OutputPictures files(there);
  const Tile window = renderer.window();
  files.write(picture, {window.x0, window.y0, renderer.width(), renderer.height()});
  files.commit();
  measure.write += since(start);
  measure.frameBytes += folder.bytes();
}

// One frame: adds what it takes.
void measureFrame(const RenderOptions& options, const std::shared_ptr<ovo::Stage>& stage,
                  const std::optional<vela::Selection::GeoSelection>& selection,
                  FarmMeasure& measure) {
  auto start = Clock::now();
  vela::picture::RenderOptions wanted = pictureOptions(options);
  wanted.selection = selection;
  const std::unique_ptr<PictureRenderer> renderer = openPicture(stage, options.scene.file, wanted);
  measure.build += since(start);
  const Sample sample = renderSample(*renderer, options);
  const vela::picture::RenderStats stats = renderer->stats();
  const double spent = stats.traceSeconds + stats.shadeSeconds;
  const double trace = spent > 0.0 ? sample.seconds * stats.traceSeconds / spent : sample.seconds;
  measure.trace += trace;
  measure.shade += sample.seconds - trace;
  writeSample(options, *renderer, sample.picture, measure);
}

std::string timeText(double seconds) {
  char text[64];
  if (seconds < 60.0)
    std::snprintf(text, sizeof text, "%.1f s", seconds);
  else if (seconds < 86400.0)
    std::snprintf(text, sizeof text, "%d:%02d:%02d", static_cast<int>(seconds / 3600.0),
                  static_cast<int>(seconds / 60.0) % 60, static_cast<int>(seconds) % 60);
  else
    std::snprintf(text, sizeof text, "%.1f days", seconds / 86400.0);
  return text;
}

void printRow(const FarmMeasure& measure, const FarmPlan& plan, bool hasPrice) {
  const FarmCost cost = vela::picture::farmCost(measure, plan);
  std::printf("%8d  %8d  %12s  %14.2f h", plan.machines, cost.machines,
              timeText(cost.seconds).c_str(), cost.machineHours);
  if (hasPrice) std::printf("  %10.2f", cost.price);
  std::printf("\n");
}

}  // namespace

void printEstimate(const SubmitOptions& options, const std::shared_ptr<ovo::Stage>& stage,
                   double openSeconds) {
  std::optional<vela::Selection::GeoSelection> selection;
  if (!options.render.selection.empty()) selection = readSelection(options.render.selection);
  const std::vector<double>& frames = options.render.frames;
  std::vector<double> looked = {frames.front()};
  if (frames.size() > 2) looked.push_back(frames[frames.size() / 2]);
  if (frames.size() > 1) looked.push_back(frames.back());

  FarmMeasure measure;
  measure.start = startSeconds();
  measure.open = openSeconds;
  RenderOptions some = options.render;
  some.frames = looked;
  some.scene.camera = cameraPath(*stage, some.scene.camera);
  for (const PictureJob& job : listJobs(*stage, some))
    measureFrame(job.options, stage, selection, measure);
  const double count = static_cast<double>(looked.size());
  for (double* part :
       {&measure.build, &measure.trace, &measure.shade, &measure.write, &measure.frameBytes})
    *part /= count;
  for (const std::string& file : filesOf(*stage)) {
    std::error_code none;
    const auto size = fs::file_size(file, none);
    if (!none) measure.sceneBytes += static_cast<double>(size);
  }

  std::string names;
  for (const double frame : looked) names += (names.empty() ? "" : ", ") + toText(frame);
  std::printf(
      "measured here on frame%s %s, with %d thread%s:\n"
      "  a task:  start %.3f s, open %.3f s\n"
      "  a frame: build %.3f s, trace %.3f s, shade %.3f s, write %.3f s, %.2f MB\n"
      "  a machine before it begins: %.2f MB\n",
      looked.size() == 1 ? "" : "s", names.c_str(),
      vela::picture::threadCount(options.render.threads),
      vela::picture::threadCount(options.render.threads) == 1 ? "" : "s", measure.start,
      measure.open, measure.build, measure.trace, measure.shade, measure.write,
      measure.frameBytes / 1e6, measure.sceneBytes / 1e6);

  FarmPlan plan;
  plan.frames = static_cast<int>(frames.size());
  plan.sessionSeconds = kSessionSeconds;
  plan.taskSeconds = kTaskSeconds;
  plan.bytesPerSecond = options.bandwidth * 1e6;
  plan.hourPrice = options.price;
  for (const bool isCut : {false, true}) {
    plan.chunk = isCut ? 1 : options.chunk;
    plan.tiles = !isCut ? 1 : std::max(options.tiles, 2);
    const std::string number = std::to_string(isCut ? plan.tiles : plan.chunk);
    std::printf("\n%s:\nmachines      busy          time    machine time%s\n",
                isCut ? ("in " + number + " bands a frame").c_str()
                      : (number + " frame" + (plan.chunk == 1 ? "" : "s") + " a task").c_str(),
                options.price > 0.0 ? "        cost" : "");
    for (const int machines : options.machines) {
      plan.machines = machines;
      printRow(measure, plan, options.price > 0.0);
    }
  }
}

}  // namespace command
