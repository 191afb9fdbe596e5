#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "Messages.h"
#include "Options.h"
#include "OutputFile.h"
#include "OutputPictures.h"
#include "Scene.h"
#include "SceneFiles.h"
#include "vela/Version.h"
#include "vela/picture/LayerTable.h"

namespace command {

namespace {

using Json = nlohmann::ordered_json;
namespace fs = std::filesystem;

// The frames as the range expressions of Open Job Description have them: `1-9:2,24`.
std::string rangeOf(const std::vector<double>& frames) {
  std::vector<int> numbers;
  for (const double frame : frames) {
    if (frame != std::floor(frame) || std::fabs(frame) > 1e9)
      throw failure(
          Message::badOption,
          {"--frames", "tasks are numbered by whole numbers below 1e9, and one frame is " +
                           std::to_string(frame)});
    numbers.push_back(static_cast<int>(frame));
  }
  std::sort(numbers.begin(), numbers.end());
  std::string text;
  for (std::size_t first = 0; first < numbers.size();) {
    // As many as follow in equal steps; two alone are no range.
    std::size_t last = first;
    const int step = first + 1 < numbers.size() ? numbers[first + 1] - numbers[first] : 1;
    while (last + 1 < numbers.size() && numbers[last + 1] - numbers[last] == step) ++last;
    if (last == first + 1 && step != 1) last = first;
    text += (text.empty() ? "" : ",") + std::to_string(numbers[first]);
    if (last > first) text += "-" + std::to_string(numbers[last]);
    if (last > first && step != 1) text += ":" + std::to_string(step);
    first = last + 1;
  }
  return text;
}

// What stands for a parameter's value in the template.
std::string valueOf(const std::string& parameter) { return "{{Param." + parameter + "}}"; }

// A text that is to arrive as it is. Braces in pairs would be read as a parameter's name.
const std::string& literal(const char* option, const std::string& text) {
  if (text.find("{{") != std::string::npos || text.find("}}") != std::string::npos)
    throw failure(Message::badOption,
                  {option, "'" + text +
                               "' has {{ or }} in it, between which names of parameters "
                               "stand"});
  return text;
}

// As a POSIX shell takes it for one word.
std::string quoted(const std::string& word) {
  constexpr const char* kPlain =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-+=:,./@%";
  if (!word.empty() && word.find_first_not_of(kPlain) == std::string::npos) return word;
  std::string text = "'";
  for (const char c : word) text += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return text + "'";
}

// The job as it is put together: the parameters, what they are here, and the command of a task.
class Job {
 public:
  explicit Job(const SubmitOptions& options) : options_(options) {
    addPath("Scene", options.render.scene.file, "FILE", "IN", "The scene");
    command_ = {"render", valueOf("Scene")};
    for (const GivenOption& given : options.given) add(given);
    command_.push_back("--frames");
    command_.push_back("{{Task.Param.Frame}}");
    command_.push_back("--skip-existing");
  }

  [[nodiscard]] const std::vector<std::string>& folders() const { return folders_; }

  [[nodiscard]] Json json() const {
    const bool isChunked = options_.chunk > 1;
    Json job = {{"specificationVersion", "jobtemplate-2023-09"}};
    if (isChunked) job["extensions"] = {"TASK_CHUNKING"};
    job["name"] =
        literal("FILE", "vela render " + fs::path(options_.render.scene.file).filename().string());
    job["parameterDefinitions"] = parameters_;
    Json& parameters = job["parameterDefinitions"];
    parameters.push_back({{"name", "Frames"},
                          {"type", "STRING"},
                          {"description", "The frames, as 1-10:2,24"},
                          {"default", rangeOf(options_.render.frames)}});
    if (isChunked)
      parameters.push_back({{"name", "Chunk"},
                            {"type", "INT"},
                            {"description", "Frames a task"},
                            {"minValue", 1},
                            {"default", options_.chunk}});
    parameters.push_back({{"name", "Vela"},
                          {"type", "STRING"},
                          {"description", "The command on the workers"},
                          {"default", literal("--command", options_.command)}});

    Json check = {"submit", valueOf("Scene"), "--check", vela::version()};
    for (std::size_t i = 0; i < folders_.size(); ++i) {
      check.push_back("--folder");
      check.push_back(valueOf(folderName(i)));
    }
    const Json environment = {
        {"name", "Vela"},
        {"description", "Checks that the worker has this version and sees the files"},
        {"script", {{"actions", {{"onEnter", action(check)}}}}}};
    job["jobEnvironments"] = Json::array({environment});

    Json frame = {{"name", "Frame"},
                  {"type", isChunked ? "CHUNK[INT]" : "INT"},
                  {"range", valueOf("Frames")}};
    if (isChunked)
      frame["chunks"] = {{"defaultTaskCount", valueOf("Chunk")}, {"rangeConstraint", "CONTIGUOUS"}};
    if (options_.tiles <= 1) {
      job["steps"] = Json::array({step("Render", Json::array({frame}), command_)});
      return job;
    }
    const Json tile = {
        {"name", "Tile"}, {"type", "INT"}, {"range", "1-" + std::to_string(options_.tiles)}};
    std::vector<std::string> join = command_;
    join.insert(join.end(), {"--from-tiles", tileName("{tile}")});
    Json joined = step("Join", Json::array({frame}), join);
    joined["dependencies"] = Json::array({{{"dependsOn", "Render"}}});
    job["steps"] = Json::array({step("Render", Json::array({frame, tile}), tileCommand()), joined});
    return job;
  }

  // What runs the job here. Paths have no defaults: a template names none of one machine.
  [[nodiscard]] std::string line(const std::string& job) const {
    std::string text = "openjd run " + quoted(job) +
                       (options_.tiles > 1 ? " --step Join --run-dependencies" : " --step Render");
    if (options_.chunk > 1) text += " --extensions TASK_CHUNKING";
    for (const auto& [name, path] : paths_) text += " -p " + quoted(name + "=" + path);
    return text;
  }

 private:
  static std::string folderName(std::size_t i) {
    return i == 0 ? "Folder" : "Folder" + std::to_string(i + 1);
  }

  [[nodiscard]] Json action(const Json& arguments) const {
    Json action = {{"command", valueOf("Vela")}, {"args", arguments}};
    if (options_.taskSeconds > 0) action["timeout"] = options_.taskSeconds;
    return action;
  }

  [[nodiscard]] Json step(const char* name, const Json& parameters,
                          const std::vector<std::string>& command) const {
    return {{"name", name},
            {"parameterSpace", {{"taskParameterDefinitions", parameters}}},
            {"script", {{"actions", {{"onRun", action(Json(command))}}}}}};
  }

  // The file of a band, beside the first output.
  [[nodiscard]] std::string tileName(const std::string& number) const {
    return valueOf(folderName(0)) + "/" + fs::path(firstName_).stem().string() + ".tile" + number +
           ".exr";
  }

  // A band is an EXR of every layer that an output shows, exact. What says how outputs are written
  // is left to the task that joins.
  [[nodiscard]] std::vector<std::string> tileCommand() const {
    static const std::set<std::string> ofOutputs = {
        "--output",   "--png",        "--format",   "--layers", "--compression", "--half",
        "--manifest", "--background", "--exposure", "--view",   "--display"};
    std::vector<std::string> command = {command_[0], command_[1]};
    for (std::size_t i = 2; i < command_.size(); ++i) {
      if (ofOutputs.count(command_[i]) == 0)
        command.push_back(command_[i]);
      else if (command_[i] != "--half")
        ++i;
    }
    std::string layers;
    for (const std::string& layer : layersToRender(options_.render))
      layers += (layers.empty() ? "" : ",") + layer;
    command.insert(command.end(),
                   {"--output", tileName("{{Task.Param.Tile}}"), "--layers", layers, "--tile",
                    "{{Task.Param.Tile}}/" + std::to_string(options_.tiles)});
    return command;
  }

  void addPath(const std::string& name, const std::string& path, const char* kind, const char* flow,
               const char* description) {
    parameters_.push_back({{"name", name},
                           {"type", "PATH"},
                           {"objectType", kind},
                           {"dataFlow", flow},
                           {"description", description}});
    paths_.emplace_back(name, fs::absolute(path).lexically_normal().string());
  }

  void addText(const std::string& name, const GivenOption& given, const char* description) {
    parameters_.push_back({{"name", name},
                           {"type", "STRING"},
                           {"description", description},
                           {"default", literal(given.name.c_str(), given.value)}});
    command_.push_back(given.name);
    command_.push_back(valueOf(name));
  }

  // An output goes into its folder, which each worker has where it has it.
  void addOutput(const GivenOption& given) {
    const fs::path whole = fs::absolute(given.value).lexically_normal();
    const std::string folder = whole.parent_path().string();
    auto found = std::find(folders_.begin(), folders_.end(), folder);
    if (found == folders_.end()) {
      addPath(folderName(folders_.size()), folder, "DIRECTORY", "OUT", "Where the pictures go");
      folders_.push_back(folder);
      found = folders_.end() - 1;
    }
    if (firstName_.empty()) firstName_ = whole.filename().string();
    command_.push_back(given.name);
    command_.push_back(valueOf(folderName(static_cast<std::size_t>(found - folders_.begin()))) +
                       "/" + literal(given.name.c_str(), whole.filename().string()));
  }

  void add(const GivenOption& given) {
    if (given.name == "--output" || given.name == "--png" || given.name == "--manifest")
      return addOutput(given);
    if (given.name == "--size") return addText("Size", given, "WxH, or W alone");
    // Bands have the layers of all outputs, which then cannot be others.
    if (given.name == "--layers" && options_.tiles <= 1)
      return addText("Layers", given, "The layers, apart by commas");
    command_.push_back(given.name);
    if (given.name == "--selection") {
      addPath("Selection", options_.render.selection, "FILE", "IN", "What is tinted");
      command_.push_back(valueOf("Selection"));
    } else if (given.name == "--root") {
      addPath("Root", given.value, "DIRECTORY", "IN", "Where all files of the scene lie");
      command_.push_back(valueOf("Root"));
    } else if (!given.isFlag) {
      command_.push_back(literal(given.name.c_str(), given.value));
    }
  }

  const SubmitOptions& options_;
  Json parameters_ = Json::array();
  std::vector<std::string> command_;
  std::vector<std::pair<std::string, std::string>> paths_;  // what the PATH parameters are here
  std::vector<std::string> folders_;
  std::string firstName_;  // of the outputs, without its folder
};

void write(OutputFile& file, const Json& json) {
  std::ofstream out(file.temporaryName(), std::ios::binary);
  out << json.dump(2, ' ', false, Json::error_handler_t::replace) << "\n";
  out.close();
  if (!out)
    throw failure(Message::cannotWrite,
                  {file.finalName(), std::strerror(errno), "see that there is room on the disk"});
}

// What tasks would be refused for, known without a picture.
void checkLayers(const std::vector<std::string>& layers) {
  if (layers.empty()) throw failure(Message::noLayers, {vela::picture::layersToTry()});
  std::string why;
  if (!vela::picture::chooseLayers(layers, &why)) throw failure(Message::badLayer, {why});
}

// What the first action of a session is: a worker that cannot do the job says so before it renders.
ExitCode check(const SubmitOptions& options) {
  if (options.version != vela::version())
    throw failure(Message::otherVersion, {options.version, vela::version()});
  [[maybe_unused]] const auto stage = openStage("submit", options.render.scene.file);
  for (const std::string& folder : options.folders) {
    std::error_code none;
    if (!fs::is_directory(folder, none))
      throw failure(Message::cannotWrite, {folder, "there is no such folder on this machine",
                                           "mount it here, or map its path"});
    if (access(folder.c_str(), W_OK) != 0)
      throw failure(Message::cannotWrite,
                    {folder, std::strerror(errno), "let this machine's user write there"});
  }
  return kDone;
}

}  // namespace

ExitCode submit(const SubmitOptions& options) {
  if (!options.version.empty()) return check(options);
  checkLayers(options.render.layers);
  const std::shared_ptr<ovo::Stage> stage =
      openStage("submit", options.render.scene.file, options.render.scene.variants);
  const Job job(options);

  Json attachments = {{"version", 1}, {"inputs", filesOf(*stage)}};
  if (!options.render.selection.empty())
    attachments["inputs"].push_back(fs::absolute(options.render.selection).lexically_normal());
  attachments["outputs"] = job.folders();

  fs::path beside = options.job;
  beside.replace_extension(".attachments.json");
  OutputFile jobFile(options.job, OutputKind::manifest);
  OutputFile listFile(beside.string(), OutputKind::manifest);
  write(jobFile, job.json());
  write(listFile, attachments);
  jobFile.commit();
  listFile.commit();
  std::puts(job.line(options.job).c_str());
  return kDone;
}

}  // namespace command
