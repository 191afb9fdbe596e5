#include "PictureJobs.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <functional>
#include <map>
#include <regex>

#include "Interrupt.h"
#include "Messages.h"
#include "Notices.h"
#include "Text.h"
#include "vela/scene/FrameRange.h"
#include "vela/scene/ScenePrims.h"

namespace command {

namespace {

constexpr const char* kCameraMark = "{camera}";

void forEachName(RenderOptions& options, const std::function<void(std::string&)>& visit) {
  for (PictureOutput& output : options.outputs) visit(output.file);
  if (!options.files.manifest.empty()) visit(options.files.manifest);
  if (!options.fromTiles.empty()) visit(options.fromTiles);
}

std::string nameFor(std::string name, const std::string& camera) {
  const std::string mark = kCameraMark;
  for (std::size_t at = 0; (at = name.find(mark, at)) != std::string::npos; at += camera.size())
    name.replace(at, mark.size(), camera);
  return name;
}

// What stands for each camera in names.
std::vector<std::string> cameraNames(const std::vector<ovo::CameraPrim>& cameras) {
  std::map<std::string, int> uses;
  for (const ovo::CameraPrim& camera : cameras) ++uses[camera.getName().asString()];
  std::vector<std::string> names;
  for (const ovo::CameraPrim& camera : cameras) {
    std::string name = camera.getName().asString();
    if (uses[name] > 1) {
      name = camera.getPath().asString().substr(1);
      std::replace(name.begin(), name.end(), '/', '_');
    }
    names.push_back(name);
  }
  return names;
}

// Places in a name that nothing fills: they stay in it as they are.
void sayUnfilled(const std::string& name, const RenderOptions& options) {
  const auto say = [&](const std::string& place, const std::string& why) {
    command::say(Notice::note, name + ": " + place + " stays as it is: " + why);
  };
  const bool isNumbered =
      !options.frames.empty() || options.turntable > 0 || !std::isnan(options.scene.time);
  // A single # is a letter like others.
  if (!isNumbered && (name.find("##") != std::string::npos ||
                      (name.find('#') == std::string::npos && vela::scene::hasFramePlace(name))))
    say("the frame's place", "there is no --frames, --turntable or --time");
  // One word in single braces.
  static const std::regex form("\\{[A-Za-z]+\\}");
  for (std::sregex_iterator found(name.begin(), name.end(), form), end; found != end; ++found) {
    const auto at = static_cast<std::size_t>(found->position());
    if (at > 0 && name[at - 1] == '{') continue;
    const std::string place = found->str();
    if (place == kCameraMark && options.scene.camera.empty())
      say(place, "there is no --camera");
    else if (place != kCameraMark && place != "{layer}")
      say(place, "names have {layer}, {camera}, and #### for the frame");
  }
}

}  // namespace

void checkJobNames(const RenderOptions& options) {
  RenderOptions names = options;
  const bool hasFrames = options.frames.size() > 1 || options.turntable > 1;
  forEachName(names, [&](const std::string& name) {
    if (hasFrames && !vela::scene::hasFramePlace(name))
      throw failure(Message::oneNameForMany, {name, "frames", "####"});
    if (options.allCameras && name.find(kCameraMark) == std::string::npos)
      throw failure(Message::oneNameForMany, {name, "cameras", kCameraMark});
    sayUnfilled(name, options);
  });
}

std::vector<PictureJob> listJobs(const ovo::Stage& stage, const RenderOptions& options) {
  // The cameras; an empty one is whatever a single picture takes.
  std::vector<std::string> cameras = {options.scene.camera}, names = {""};
  if (options.allCameras) {
    const auto found = vela::scene::listCameras(stage, interruptibleWork());
    throwIfInterrupted();
    if (found.empty())
      throw failure(Message::noSuchCamera,
                    {"all", "the scene has none: leave --camera out and it is framed whole"});
    cameras.clear();
    for (const ovo::CameraPrim& camera : found) cameras.push_back(camera.getPath().asString());
    names = cameraNames(found);
  } else if (!options.scene.camera.empty()) {
    const std::string& path = options.scene.camera;
    names = {path.substr(path.rfind('/') + 1)};
  }

  // What differs from frame to frame: the time, or the side.
  struct Step {
    double number = 0.0;
    bool isNumbered = false;
    std::string label;
  };
  std::vector<Step> steps;
  for (const double frame : options.frames)
    steps.push_back({frame, true, "frame " + toText(frame)});
  for (int i = 1; i <= options.turntable; ++i)
    steps.push_back({static_cast<double>(i), true, "step " + std::to_string(i)});
  if (steps.empty()) steps.push_back({});

  std::vector<PictureJob> jobs;
  for (std::size_t c = 0; c < cameras.size(); ++c)
    for (const Step& step : steps) {
      PictureJob job{options, step.label};
      job.options.scene.camera = cameras[c];
      if (options.allCameras)
        job.label += (job.label.empty() ? "camera " : ", camera ") + cameras[c];
      if (!options.frames.empty()) job.options.scene.time = step.number;
      if (options.turntable > 0)
        job.options.scene.turn =
            options.scene.turn.value_or(0.0) + 360.0 * (step.number - 1.0) / options.turntable;
      // A single picture at a frame has its name filled in too.
      const bool hasTime = !std::isnan(job.options.scene.time);
      const double number = step.isNumbered ? step.number : job.options.scene.time;
      forEachName(job.options, [&](std::string& name) {
        if (step.isNumbered || hasTime) name = vela::scene::nameOfFrame(name, number);
        if (!names[c].empty()) name = nameFor(name, names[c]);
      });
      jobs.push_back(std::move(job));
    }
  return jobs;
}

}  // namespace command
