#include "Scene.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <system_error>
#include <utility>
#include <vector>

#include "Failure.h"
#include "Interrupt.h"
#include "Limits.h"
#include "Messages.h"
#include "Notices.h"
#include "OutputFile.h"
#include "OutputPictures.h"
#include "SceneFiles.h"
#include "Suggest.h"
#include "Supervisor.h"
#include "vela/log/Log.h"
#include "vela/scene/LeftOut.h"
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
      paths.reserve(cameras.size());
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
  const auto removeHead = [&text](const std::string& head) {
    const bool isThere = text.compare(0, head.size(), head) == 0;
    if (isThere) text.erase(0, head.size());
    return isThere;
  };
  removeHead("cannot open scene '" + file + "': ");
  // The reader knows the whole path: `FILE: ...`, `<FILE> is not ...`, and of its parser
  // `FILE:19:13: Expected ...`.
  std::error_code none;
  const std::string whole = std::filesystem::absolute(file, none).lexically_normal().string();
  for (const std::string& name : {file, whole}) {
    if (name.empty() || removeHead(name + ": ")) continue;
    if (removeHead("<" + name + "> is "))
      text = "it is " + text;
    else if (removeHead(name + ":"))
      text = "line " + text;
  }
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

}  // namespace

// What to try depends on what is there under the name.
Failure cannotOpen(const std::string& file, const std::string& why) {
  namespace fs = std::filesystem;
  std::error_code none;
  std::string attempt = "see what its reader complains of, or write it anew";
  if (!fs::exists(file, none)) {
    const fs::path folder =
        fs::path(file).has_parent_path() ? fs::path(file).parent_path() : fs::path(".");
    if (fs::is_symlink(fs::symlink_status(file, none)))
      return failure(Message::cannotOpen,
                     {file, withoutHead(why, file), "see where the link leads"});
    // The endings are as good as the same: what stands before them is compared.
    std::map<std::string, std::string> files;
    std::vector<std::string> stems;
    for (fs::directory_iterator at(folder, none), end; !none && at != end; at.increment(none))
      if (hasSceneEnding(at->path()) && fs::exists(at->path(), none) &&
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

namespace {

// One line for neighbours of the same kind. What is not shown is told by sayLeftOut().
void reportKind(const std::string& file, const Problem* problems, std::size_t count) {
  const Problem& first = problems[0];
  const std::string number = std::to_string(first.count);
  switch (first.kind) {
    case Problem::Kind::notShown:
    case Problem::Kind::badInstances: break;
    case Problem::Kind::notRefined:
      say(Notice::note, std::to_string(count) + " subdivision surface" +
                            (count == 1 ? " is" : "s are") + " shown unrefined" +
                            (count == 1 ? ": " : ", the first ") + first.text());
      break;
    case Problem::Kind::nothingShown:
      say(Notice::warning, "nothing to show: " + file + ": " + first.reason);
      break;
    case Problem::Kind::unusableCamera:
      say(Notice::warning, "the camera cannot be used: " + first.text());
      break;
    case Problem::Kind::notCast:
      say(Notice::note, first.reason + ": " + number +
                            (first.count == 1 ? " other is" : " others are") + " left out");
      break;
    case Problem::Kind::noTexture:
      say(Notice::note, std::to_string(count) + " texture" + (count == 1 ? " is" : "s are") +
                            " missing or cannot be read" + (count == 1 ? ": " : ", the first ") +
                            first.text());
      break;
    case Problem::Kind::textureReduced:
      say(Notice::note, std::to_string(count) + " texture" + (count == 1 ? " is" : "s are") +
                            " reduced" + (count == 1 ? ": " : ", the first ") + first.text());
      break;
    case Problem::Kind::changedLight:
      say(Notice::note, std::to_string(count) + " setting" +
                            (count == 1 ? " of a light does" : "s of lights do") + " not count" +
                            (count == 1 ? ": " : ", the first ") + first.text());
      break;
    case Problem::Kind::noEffect:
      for (std::size_t i = 0; i < count; ++i)
        say(Notice::note, "without effect: " + problems[i].text());
      break;
    case Problem::Kind::notBound:
      say(Notice::note, std::to_string(count) + " collection" + (count == 1 ? " of" : "s of") +
                            " materials cannot be read" + (count == 1 ? ": " : ", the first ") +
                            first.text());
      break;
    default: say(Notice::note, first.text()); break;
  }
}

// Notes and warnings, on standard error.
void report(const std::string& file, const std::vector<Problem>& problems) {
  for (std::size_t i = 0, end = 0; i < problems.size(); i = end) {
    while (end < problems.size() && problems[end].kind == problems[i].kind) ++end;
    reportKind(file, &problems[i], end - i);
  }
}

// One line with all that is not shown, or not as the scene means it.
void sayLeftOut(const ovo::Stage& stage, const MeshList& list,
                const vela::scene::MeshFilter& filter, const vela::scene::View* view, bool withLook,
                const vela::scene::ShownOptions& shown = {}) {
  using vela::scene::LeftOut;
  using vela::scene::LeftOutConcern;
  std::vector<LeftOut> found =
      vela::scene::findLeftOut(stage, list, filter, view, shown, interruptibleWork());
  throwIfInterrupted();
  found.erase(std::remove_if(found.begin(), found.end(),
                             [&](const LeftOut& one) {
                               return !withLook && one.concern == LeftOutConcern::look;
                             }),
              found.end());
  if (!found.empty()) say(Notice::note, "left out: " + vela::scene::textOf(found));
}

// A choice of something that the scene does not have changes nothing.
void checkVariant(const ovo::Stage& stage, const ovo::VariantChoice& choice) {
  const std::string before = choice.prim.asString() + ":";
  const std::string whole = before + choice.set.asString() + "=" + choice.name.asString();
  const auto wordsOf = [](const std::vector<ovo::Token>& tokens) {
    std::vector<std::string> words;
    words.reserve(tokens.size());
    for (const ovo::Token& token : tokens) words.push_back(token.asString());
    return words;
  };
  const auto fail = [&](const std::string& why, const std::string& attempt) {
    throw failure(Message::noSuchVariant,
                  {whole, why, attempt.empty() ? "vela info lists the variants" : attempt});
  };
  const ovo::Prim prim = stage.getPrimAtPath(choice.prim);
  if (!prim.isValid() || !prim.isDefined()) {
    std::vector<std::string> paths;
    vela::scene::forEachPrim(
        stage,
        [&](const ovo::Prim& one) {
          if (!one.getVariantSets().empty()) paths.push_back(one.getPath().asString());
          return true;
        },
        interruptibleWork());
    throwIfInterrupted();
    fail("there is no such prim", attemptAmong(choice.prim.asString(), paths));
  }
  const std::vector<std::string> sets = wordsOf(prim.getVariantSets());
  if (std::find(sets.begin(), sets.end(), choice.set.asString()) == sets.end())
    fail("the prim has no such set of variants",
         attemptAmong(choice.set.asString(), sets, "--variant " + before));
  const std::vector<std::string> names = wordsOf(prim.getVariants(choice.set));
  if (!choice.name.isEmpty() &&
      std::find(names.begin(), names.end(), choice.name.asString()) == names.end())
    fail("the set has no such variant",
         attemptAmong(choice.name.asString(), names,
                      "--variant " + before + choice.set.asString() + "="));
}

// Paths and types that were named and are not there.
void sayUnusedNames(const ovo::Stage& stage, const vela::scene::MeshFilter& filter) {
  std::vector<std::string> paths;
  std::set<std::string> types;
  const auto readScene = [&] {
    if (!types.empty()) return;
    vela::scene::forEachPrim(
        stage,
        [&](const ovo::Prim& prim) {
          paths.push_back(prim.getPath().asString());
          types.insert(prim.getTypeName().asString());
          return true;
        },
        interruptibleWork());
    throwIfInterrupted();
  };
  const auto sayNone = [&](const std::string& option, const std::string& name,
                           const std::vector<std::string>& candidates) {
    const std::string attempt = attemptAmong(name, candidates, option + " ");
    say(Notice::note, option + " " + name + " names nothing in the scene" +
                          (attempt.empty() ? "" : "; " + attempt));
  };
  const auto sayAbsent = [&](const char* option, const std::vector<ovo::Path>& given) {
    for (const ovo::Path& path : given)
      if (!stage.getPrimAtPath(path).isValid()) {
        readScene();
        sayNone(option, path.asString(), paths);
      }
  };
  sayAbsent("--exclude", filter.excludedPaths);
  sayAbsent("--mask", filter.maskPaths);
  for (const std::string& type : filter.includedTypes) {
    readScene();
    if (types.count(type) == 0) sayNone("--include-type", type, {types.begin(), types.end()});
  }
}

}  // namespace

std::string cameraPath(const ovo::Stage& stage, const std::string& text) {
  if (text.empty()) return text;
  const auto cameras = vela::scene::findCameras(stage, text, interruptibleWork());
  throwIfInterrupted();
  if (cameras.empty()) return text;
  if (cameras.size() > 1) {
    constexpr std::size_t kMost = 4;
    std::string list;
    for (std::size_t i = 0; i < std::min(kMost, cameras.size()); ++i)
      list += (i == 0 ? "" : ", ") + cameras[i].getPath().asString();
    if (cameras.size() > kMost) list += " and " + std::to_string(cameras.size() - kMost) + " more";
    throw failure(Message::severalCameras, {text, list});
  }
  return cameras.front().getPath().asString();
}

std::shared_ptr<ovo::Stage> openStage(const char* verb, const std::string& file,
                                      const std::vector<ovo::VariantChoice>& variants) {
  noteInput(file);
  noteScene(file);
  std::string why;
  std::shared_ptr<ovo::Stage> stage;
  {
    // Nothing looks for signals while a scene is opened, which may take minutes.
    const EndAtOnce endsAtOnce(std::string("vela ") + verb);
    const TimeLimit timeLimit(limits().seconds);
    ovo::OpenOptions options = limits().open;
    options.variants = variants;
    stage = ovo::openScene(file, options, &why);
  }
  throwIfInterrupted();
  if (!stage) throw cannotOpen(file, why);

  // Neither may an output replace what the scene is made of.
  for (const std::string& layer : stage->layerFiles()) noteInput(layer);
  if (replacesFiles()) noteFilesOf(*stage);

  Halden::Log::write(Halden::Log::message, "opened " + file);

  for (const ovo::VariantChoice& choice : variants) checkVariant(*stage, choice);

  // A scene that is partly missing is shown as far as it goes.
  std::vector<std::string> problems = stage->problems();
  for (std::string& problem : problems) problem = file + ": " + withoutHead(problem, file);
  sayAlike(Notice::warning, problems);
  return stage;
}

MeshList listMeshes(const ovo::Stage& stage, const SceneOptions& options) {
  Problem problem;
  std::optional<MeshList> list =
      vela::scene::listMeshes(stage, options.filter(), &problem, interruptibleWork());
  if (!list) fail(problem, stage);
  report(options.file, list->problems());
  sayUnusedNames(stage, options.filter());
  sayLeftOut(stage, *list, options.filter(), nullptr, false);
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
  vela::scene::ViewOptions wanted = options.view();
  wanted.camera = ovo::Path(cameraPath(stage, options.camera));
  std::optional<vela::scene::View> view =
      vela::scene::makeView(stage, wanted, extent, &problem, interruptibleWork());
  if (!view) fail(problem, stage);
  report(options.file, view->problems);
  return *std::move(view);
}

vela::scene::RayCaster makeCaster(const SceneOptions& options, const MeshList& list,
                                  const vela::scene::Extent& extent) {
  std::optional<vela::scene::RayCaster> caster = vela::scene::RayCaster::make(
      options.engine, list, extent, options.time, nullptr, interruptibleWork());
  throwIfInterrupted();
  report(options.file, caster->problems());
  return *std::move(caster);
}

std::unique_ptr<vela::picture::PictureRenderer> openPicture(
    const std::shared_ptr<ovo::Stage>& stage, const std::string& file,
    const vela::picture::RenderOptions& options) {
  std::vector<Problem> problems;
  vela::picture::RenderOptions wanted = options;
  wanted.view.camera = ovo::Path(cameraPath(*stage, options.view.camera.asString()));
  auto renderer =
      vela::picture::PictureRenderer::make(stage, wanted, &problems, interruptibleWork());
  Problem reason;
  if (!renderer) {
    reason = problems.back();
    problems.pop_back();
  }
  report(file, problems);
  if (!renderer) fail(reason, *stage);
  const bool withLook = renderer->layers().has(vela::picture::Sampling::meanOfSamples);
  vela::scene::MeshFilter filter = options.meshes;
  filter.time = options.time;
  sayUnusedNames(*stage, filter);
  sayLeftOut(*stage, renderer->meshes(), filter, &renderer->view(), withLook,
             {options.view.depthOfField, options.view.clipping, options.motionSteps > 0,
              options.overscan > 0});
  return renderer;
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
  picture.materials = options.materials;
  picture.textureMemory = static_cast<std::size_t>(options.textureMemory) << 20;
  picture.lights = options.lights;
  picture.bounces = options.bounces;
  picture.view.depthOfField = options.depthOfField;
  picture.motionSteps = options.motion ? options.motionSteps : 0;
  picture.overscan = options.overscan;
  picture.layers = layersToRender(options);
  return picture;
}

}  // namespace command
