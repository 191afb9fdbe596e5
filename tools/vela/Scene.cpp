#include "Scene.h"

#include <algorithm>
#include <cstdio>
#include <optional>
#include <utility>
#include <vector>

#include "Failure.h"
#include "Interrupt.h"
#include "vela/log/Log.h"
#include "vela/scene/ScenePrims.h"

namespace command {

namespace {

using vela::scene::MeshList;
using vela::scene::Problem;

// What a scene's part that gave up means for the user.
[[noreturn]] void fail(const Problem& problem) {
  const std::string& subject = problem.subject;
  switch (problem.kind) {
    case Problem::Kind::stopped: throw Interrupted{};
    case Problem::Kind::tooManyInstances:
      throw Failure{kBadInput, "too many instances", subject, problem.reason,
                    "try --exclude " + subject};
    case Problem::Kind::tooManyFaces:
      throw Failure{kBadInput, "too many faces", subject, problem.reason,
                    problem.levelThatFits > 0
                        ? "try --subdivide " + std::to_string(problem.levelThatFits)
                        : "try --exclude " + subject};
    case Problem::Kind::unusableCamera:
      throw Failure{kBadInput, "the camera cannot be used", subject, problem.reason,
                    "try another --camera, or none"};
    default: throw Failure{kBadInput, "the scene cannot be shown", subject, problem.reason, ""};
  }
}

void reportNotShown(const char* verb, const MeshList& list) {
  if (list.badInstances > 0)
    std::fprintf(stderr,
                 "vela %s: note: %zu instance%s no prototype or no position and %s left out\n",
                 verb, list.badInstances, list.badInstances == 1 ? " has" : "s have",
                 list.badInstances == 1 ? "is" : "are");
  if (!list.notRefined.empty())
    std::fprintf(stderr, "vela %s: note: %zu subdivision surface%s shown unrefined%s %s\n", verb,
                 list.notRefined.size(), list.notRefined.size() == 1 ? " is" : "s are",
                 list.notRefined.size() == 1 ? ":" : ", the first",
                 list.notRefined[0].text().c_str());
  if (list.notShown.empty()) return;
  std::size_t total = 0;
  std::string types;
  for (const auto& [type, count] : list.notShown) {
    total += count;
    types += (types.empty() ? "" : ", ") + std::to_string(count) + " " + type;
  }
  std::fprintf(stderr, "vela %s: note: %zu prim%s cannot be shown yet and %s left out: %s\n", verb,
               total, total == 1 ? "" : "s", total == 1 ? "is" : "are", types.c_str());
}

}  // namespace

std::shared_ptr<ovo::Stage> openStage(const char* verb, const std::string& file) {
  std::string why;
  std::shared_ptr<ovo::Stage> stage = ovo::Stage::open(file, &why);
  throwIfInterrupted();
  if (!stage)
    throw Failure{kBadInput, "cannot open the scene", file, why,
                  "name a .usd, .usda, .usdc or .usdz file"};

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
  if (!list) fail(problem);
  reportNotShown(verb, *list);
  return std::move(*list);
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
  if (!view && problem.kind == Problem::Kind::noSuchCamera) {
    const std::vector<ovo::CameraPrim> cameras =
        vela::scene::listCameras(stage, interruptibleWork());
    throwIfInterrupted();
    throw Failure{kBadInput, "no such camera", problem.subject, "",
                  cameras.empty() ? "the scene has none: leave --camera out and it is framed whole"
                                  : "try --camera " + cameras.front().getPath().asString()};
  }
  if (!view) fail(problem);
  for (const Problem& passedOver : view->problems)
    std::fprintf(stderr, "vela: warning: the camera cannot be used: %s\n",
                 passedOver.text().c_str());
  return std::move(*view);
}

vela::scene::RayCaster makeCaster(const SceneOptions& options, const MeshList& list,
                                  const vela::scene::Extent& extent) {
  vela::scene::RayCaster caster(options.engine, list, extent, options.time);
  for (const Problem& problem : caster.problems())
    std::fprintf(stderr, "vela: note: %s: %zu others are left out\n", problem.reason.c_str(),
                 problem.count);
  return caster;
}

}  // namespace command
