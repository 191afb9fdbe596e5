#include "Scene.h"

#include <algorithm>
#include <cstdio>
#include <optional>
#include <utility>
#include <vector>

#include "Failure.h"
#include "Interrupt.h"
#include "OutputFile.h"
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
    case Problem::Kind::badOption:
      throw Failure{kUsage, "wrong usage", subject, problem.reason, ""};
    case Problem::Kind::tooManyInstances:
      throw Failure{kBadInput, "too many instances", subject, problem.reason,
                    "try --exclude " + subject};
    case Problem::Kind::tooManyFaces:
      throw Failure{kBadInput, "too many faces", subject, problem.reason,
                    problem.levelThatFits > 0
                        ? "try --subdivide " + std::to_string(problem.levelThatFits)
                        : "try --exclude " + subject};
    case Problem::Kind::noSuchCamera: {
      const auto cameras = vela::scene::listCameras(stage, interruptibleWork());
      throwIfInterrupted();
      throw Failure{kBadInput, "no such camera", subject, "",
                    cameras.empty()
                        ? "the scene has none: leave --camera out and it is framed whole"
                        : "try --camera " + cameras.front().getPath().asString()};
    }
    case Problem::Kind::unusableCamera:
      throw Failure{kBadInput, "the camera cannot be used", subject, problem.reason,
                    "try another --camera, or none"};
    default: throw Failure{kBadInput, "the scene cannot be shown", subject, problem.reason, ""};
  }
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
  if (!stage)
    throw Failure{kBadInput, "cannot open the scene", file, why,
                  "name a .usd, .usda, .usdc or .usdz file"};

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
