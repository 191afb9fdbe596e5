#include "Scene.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

#include "Failure.h"
#include "Interrupt.h"
#include "Messages.h"
#include "OutputFile.h"
#include "Suggest.h"
#include "Supervisor.h"
#include "vela/log/Log.h"
#include "vela/scene/ScenePrims.h"

namespace command {

namespace {

using vela::scene::MeshList;
using vela::scene::Problem;

// What a part of the library that gave up means for the user.
[[noreturn]] void fail(const Problem& problem, const ovo::Stage& stage) {
  const std::string& subject = problem.subject;
  switch (problem.kind) {
    case Problem::Kind::stopped: throw Interrupted{};
    case Problem::Kind::badOption: throw failure(Message::badOption, {subject, problem.reason});
    case Problem::Kind::tooManyInstances:
      throw failure(Message::tooManyInstances, {subject, problem.reason});
    case Problem::Kind::tooManyFaces:
      throw failure(
          Message::tooManyFaces,
          {subject, problem.reason,
           problem.levelThatFits > 0 ? "--subdivide " + std::to_string(problem.levelThatFits)
                                     : "--exclude " + subject});
    case Problem::Kind::noSuchCamera: {
      const auto cameras = vela::scene::listCameras(stage, interruptibleWork());
      throwIfInterrupted();
      std::vector<std::string> paths;
      for (const ovo::CameraPrim& camera : cameras) paths.push_back(camera.getPath().asString());
      std::string attempt = attemptAmong(subject, paths, "--camera ");
      if (attempt.empty())
        attempt = paths.empty() ? "the scene has none: leave --camera out and it is framed whole"
                                : "try --camera " + paths.front();
      throw failure(Message::noSuchCamera, {subject, attempt});
    }
    case Problem::Kind::unusableCamera:
      throw failure(Message::unusableCamera, {subject, problem.reason});
    default: throw failure(Message::cannotShow, {subject, problem.reason});
  }
}

// The reader says what it could not do and with which file, as the command does: once is enough.
std::string withoutHead(const std::string& why, const std::string& file) {
  std::string text = why;
  for (const std::string& head : {"cannot open scene '" + file + "': ", file + ": "})
    if (text.compare(0, head.size(), head) == 0) text.erase(0, head.size());
  // `FILE:19:13: Expected ...` of its parser.
  if (text.compare(0, file.size() + 1, file + ":") == 0)
    text = "line " + text.substr(file.size() + 1);
  // It names its own rules, which say nothing to others.
  const std::string rule = "parse error matching ";
  if (const std::size_t at = text.find(rule); at != std::string::npos) {
    const std::size_t end = std::min(text.find(' ', at + rule.size()), text.size());
    text.replace(at, end - at, "cannot be read");
  }
  if (const std::size_t at = text.find(" at '' in "); at != std::string::npos)
    text.replace(at, 10, ": it ends in ");
  return text;
}

bool hasSceneEnding(const std::filesystem::path& file) {
  const std::string ending = file.extension().string();
  return ending == ".usd" || ending == ".usda" || ending == ".usdc" || ending == ".usdz";
}

// What to try depends on what is there under the name.
Failure cannotOpen(const std::string& file, const std::string& why) {
  namespace fs = std::filesystem;
  std::error_code none;
  std::string attempt = "see what its reader complains of, or write it anew";
  if (!fs::exists(file, none)) {
    const fs::path folder =
        fs::path(file).has_parent_path() ? fs::path(file).parent_path() : fs::path(".");
    // The endings are as good as the same: what stands before them is compared.
    std::map<std::string, std::string> files;
    std::vector<std::string> stems;
    for (fs::directory_iterator at(folder, none), end; !none && at != end; at.increment(none))
      if (hasSceneEnding(at->path()) &&
          files.emplace(at->path().stem().string(), at->path().filename().string()).second)
        stems.push_back(at->path().stem().string());
    std::sort(stems.begin(), stems.end());
    const std::vector<std::string> near = nearest(fs::path(file).stem().string(), stems, 1);
    attempt = near.empty() ? "name a .usd, .usda, .usdc or .usdz file"
                           : "try " + (fs::path(file).parent_path() / files[near.front()]).string();
  } else if (!fs::is_regular_file(file, none)) {
    attempt = "name a .usd, .usda, .usdc or .usdz file";
  } else if (fs::is_empty(file, none)) {
    attempt = "write it anew";
  } else if (access(file.c_str(), R_OK) != 0) {
    attempt = "see who may read it";
  } else if (!hasSceneEnding(file)) {
    attempt = "name a .usd, .usda, .usdc or .usdz file";
  }
  return failure(Message::cannotOpen, {file, withoutHead(why, file), attempt});
}

// One line for neighbours of the same kind.
void reportKind(const char* verb, const std::string& file, const Problem* problems,
                std::size_t count) {
  const Problem& first = problems[0];
  switch (first.kind) {
    case Problem::Kind::badInstances:
      std::fprintf(
          stderr, "vela %s: note: %zu instance%s no prototype or no position and %s left out\n",
          verb, first.count, first.count == 1 ? " has" : "s have", first.count == 1 ? "is" : "are");
      break;
    case Problem::Kind::notRefined:
      std::fprintf(stderr, "vela %s: note: %zu subdivision surface%s shown unrefined%s %s\n", verb,
                   count, count == 1 ? " is" : "s are", count == 1 ? ":" : ", the first",
                   first.text().c_str());
      break;
    case Problem::Kind::notShown: {
      std::size_t total = 0;
      std::string types;
      for (std::size_t i = 0; i < count; ++i) {
        total += problems[i].count;
        types += (types.empty() ? "" : ", ") + std::to_string(problems[i].count) + " " +
                 problems[i].subject;
      }
      std::fprintf(stderr, "vela %s: note: %zu prim%s cannot be shown yet and %s left out: %s\n",
                   verb, total, total == 1 ? "" : "s", total == 1 ? "is" : "are", types.c_str());
      break;
    }
    case Problem::Kind::nothingShown:
      std::fprintf(stderr, "vela %s: warning: nothing to show: %s: %s\n", verb, file.c_str(),
                   first.reason.c_str());
      break;
    case Problem::Kind::unusableCamera:
      std::fprintf(stderr, "vela: warning: the camera cannot be used: %s\n", first.text().c_str());
      break;
    case Problem::Kind::notCast:
      std::fprintf(stderr, "vela: note: %s: %zu others are left out\n", first.reason.c_str(),
                   first.count);
      break;
    case Problem::Kind::notBound:
      std::fprintf(stderr, "vela %s: note: %zu collection%s materials cannot be read%s %s\n", verb,
                   count, count == 1 ? " of" : "s of", count == 1 ? ":" : ", the first",
                   first.text().c_str());
      break;
    default: std::fprintf(stderr, "vela %s: note: %s\n", verb, first.text().c_str()); break;
  }
}

// Notes and warnings, on standard error.
void report(const char* verb, const std::string& file, const std::vector<Problem>& problems) {
  for (std::size_t i = 0, end = 0; i < problems.size(); i = end) {
    while (end < problems.size() && problems[end].kind == problems[i].kind) ++end;
    reportKind(verb, file, &problems[i], end - i);
  }
}

}  // namespace

std::shared_ptr<ovo::Stage> openStage(const char* verb, const std::string& file) {
  noteInput(file);
  noteScene(file);
  std::string why;
  std::shared_ptr<ovo::Stage> stage;
  {
    // Nothing looks for signals while a scene is opened, which may take minutes.
    const EndAtOnce endsAtOnce(std::string("vela ") + verb);
    stage = ovo::Stage::open(file, &why);
  }
  throwIfInterrupted();
  if (!stage) throw cannotOpen(file, why);

  // Neither may an output replace what the scene is made of.
  for (const std::string& layer : stage->layerFiles()) noteInput(layer);

  Halden::Log::write(Halden::Log::message, "opened " + file);

  // A scene that is partly missing is shown as far as it goes.
  constexpr std::size_t kMostLines = 20;
  const std::vector<std::string> problems = stage->problems();
  for (std::size_t i = 0; i < std::min(problems.size(), kMostLines); ++i)
    std::fprintf(stderr, "vela %s: warning: %s: %s\n", verb, file.c_str(), problems[i].c_str());
  if (problems.size() > kMostLines)
    std::fprintf(stderr, "vela %s: warning: %s: %zu more like these\n", verb, file.c_str(),
                 problems.size() - kMostLines);
  return stage;
}

MeshList listMeshes(const char* verb, const ovo::Stage& stage, const SceneOptions& options) {
  Problem problem;
  std::optional<MeshList> list =
      vela::scene::listMeshes(stage, options.filter(), &problem, interruptibleWork());
  if (!list) fail(problem, stage);
  report(verb, options.file, list->problems());
  return *std::move(list);
}

vela::scene::Extent findExtent(const MeshList& list) {
  vela::scene::Extent extent = vela::scene::extentOf(list, interruptibleWork());
  throwIfInterrupted();
  return extent;
}

vela::scene::View makeView(const ovo::Stage& stage, const SceneOptions& options,
                           const vela::scene::Extent& extent) {
  Problem problem;
  std::optional<vela::scene::View> view =
      vela::scene::makeView(stage, options.view(), extent, &problem, interruptibleWork());
  if (!view) fail(problem, stage);
  report("", options.file, view->problems);
  return *std::move(view);
}

vela::scene::RayCaster makeCaster(const SceneOptions& options, const MeshList& list,
                                  const vela::scene::Extent& extent) {
  std::optional<vela::scene::RayCaster> caster = vela::scene::RayCaster::make(
      options.engine, list, extent, options.time, nullptr, interruptibleWork());
  throwIfInterrupted();
  report("", options.file, caster->problems());
  return *std::move(caster);
}

std::unique_ptr<vela::picture::PictureRenderer> openPicture(
    const char* verb, const std::shared_ptr<ovo::Stage>& stage, const std::string& file,
    const vela::picture::RenderOptions& options) {
  std::vector<Problem> problems;
  auto renderer =
      vela::picture::PictureRenderer::make(stage, options, &problems, interruptibleWork());
  Problem reason;
  if (!renderer) {
    reason = problems.back();
    problems.pop_back();
  }
  report(verb, file, problems);
  if (!renderer) fail(reason, *stage);
  return renderer;
}

}  // namespace command
