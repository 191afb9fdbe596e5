#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
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

#include "Estimate.h"
#include "Logging.h"
#include "Messages.h"
#include "Notices.h"
#include "Options.h"
#include "OutputFile.h"
#include "OutputPictures.h"
#include "PictureRecord.h"
#include "Scene.h"
#include "SceneFiles.h"
#include "SeenFiles.h"
#include "vela/Version.h"

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

// The control characters of Unicode, U+0080 to U+009F among them, which are two bytes each.
// Arguments of commands may have the ends of lines, and no others.
bool hasControlCharacter(const std::string& text) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    const auto next = static_cast<unsigned char>(i + 1 < text.size() ? text[i + 1] : 0);
    if ((c < 0x20 && c != '\n' && c != '\r') || c == 0x7f ||
        (c == 0xc2 && next >= 0x80 && next < 0xa0))
      return true;
  }
  return false;
}

// A text that is to arrive as it is. Braces in pairs would be read as a parameter's name.
const std::string& literal(const char* option, const std::string& text) {
  if (hasControlCharacter(text))
    throw failure(Message::badOption,
                  {option, "it has a control character in it, which no job template may have"});
  if (text.find("{{") != std::string::npos || text.find("}}") != std::string::npos)
    throw failure(Message::badOption,
                  {option, "'" + text +
                               "' has {{ or }} in it, between which names of parameters "
                               "stand"});
  return text;
}

// The default of a parameter, which engines take up to a length, counted in characters.
const std::string& defaultText(const char* option, const std::string& text, const char* attempt) {
  constexpr std::ptrdiff_t kMostCharacters = 1024;
  const auto count = std::count_if(text.begin(), text.end(), [](char c) {
    return (static_cast<unsigned char>(c) & 0xc0) != 0x80;  // no inner byte of UTF-8
  });
  if (count > kMostCharacters)
    throw failure(Message::badOption,
                  {option, "it makes a text of " + std::to_string(count) +
                               " characters, and a job template has room for " +
                               std::to_string(kMostCharacters) + ": " + attempt});
  return literal(option, text);
}

// The job as it is put together: the parameters, what they are here, and the command of a task.
class Job {
 public:
  explicit Job(const SubmitOptions& options) : options_(options) {
    addPath("Scene", options.render.scene.file, "FILE", "IN", "The scene");
    frame_ = {"render", valueOf("Scene")};
    bool hasSize = false;
    for (const GivenOption& given : options.given) {
      add(given);
      hasSize = hasSize || given.name == "--size";
    }
    // As vela render has it, so that the farm can ask for another one.
    if (!hasSize) add({"--size", "1280", false});
    frame_.insert(frame_.end(), {"--frames", "{{Task.Param.Frame}}", "--skip-existing"});
  }

  [[nodiscard]] const std::vector<std::string>& folders() const { return folders_; }

  /// \param seen what this machine sees of the scene, for those that run the job
  [[nodiscard]] Json json(const std::string& seen) const {
    const bool isChunked = options_.chunk > 1;
    Json job = {{"specificationVersion", "jobtemplate-2023-09"}};
    if (isChunked) job["extensions"] = {"TASK_CHUNKING"};
    // Names of jobs have at most 128 characters, none of them one that controls.
    const std::string scene = fs::path(options_.render.scene.file).filename().string();
    const bool isName =
        scene.size() <= 100 && std::none_of(scene.begin(), scene.end(), [](char c) {
          return static_cast<unsigned char>(c) < 0x20 || c == 0x7f || c == '{' || c == '}';
        });
    job["name"] = isName ? "vela render " + scene : "vela render";
    job["parameterDefinitions"] = parameters_;
    Json& parameters = job["parameterDefinitions"];
    parameters.push_back({{"name", "Frames"},
                          {"type", "STRING"},
                          {"description", "The frames, as 1-10:2,24"},
                          {"default", defaultText("--frames", rangeOf(options_.render.frames),
                                                  "make several jobs of it")}});
    if (isChunked)
      parameters.push_back({{"name", "Chunk"},
                            {"type", "INT"},
                            {"description", "Frames a task"},
                            {"minValue", 1},
                            {"default", options_.chunk}});
    parameters.push_back(
        {{"name", "Vela"},
         {"type", "STRING"},
         {"description", "The command on the workers"},
         {"default", defaultText("--command", options_.command, "take a shorter one")}});

    Json check = {"submit", valueOf("Scene"), "--check", vela::version()};
    check.push_back("--seen");
    check.push_back("{{Env.File.Seen}}");
    for (const std::string& word : opening_) check.push_back(word);
    for (std::size_t i = 0; i < folders_.size(); ++i) {
      check.push_back("--folder");
      check.push_back(valueOf(folderName(i)));
    }
    const Json environment = {
        {"name", "Vela"},
        {"description", "Checks that the worker has this version and sees the files"},
        {"script",
         {{"embeddedFiles", Json::array({{{"name", "Seen"}, {"type", "TEXT"}, {"data", seen}}})},
          {"actions", {{"onEnter", action(check)}}}}}};
    job["jobEnvironments"] = Json::array({environment});

    Json frame = {{"name", "Frame"},
                  {"type", isChunked ? "CHUNK[INT]" : "INT"},
                  {"range", valueOf("Frames")}};
    if (isChunked)
      frame["chunks"] = {{"defaultTaskCount", valueOf("Chunk")}, {"rangeConstraint", "CONTIGUOUS"}};
    if (options_.tiles <= 1) {
      job["steps"] = Json::array({step("Render", Json::array({frame}), wholeCommand())});
      return job;
    }
    const Json tile = {
        {"name", "Tile"}, {"type", "INT"}, {"range", "1-" + std::to_string(options_.tiles)}};
    std::vector<std::string> join = wholeCommand();
    join.insert(join.end(), {"--from-tiles", tileName("{tile}")});
    Json joined = step("Join", Json::array({frame}), join);
    joined["dependencies"] = Json::array({{{"dependsOn", "Render"}}});
    job["steps"] = Json::array({step("Render", Json::array({frame, tile}), tileCommand()), joined});
    return job;
  }

  // What runs the job here. Paths have no defaults: a template names none of one machine.
  [[nodiscard]] std::string line(const std::string& job) const {
    std::vector<std::string> words = {"openjd", "run", job, "--step"};
    if (options_.tiles > 1)
      words.insert(words.end(), {"Join", "--run-dependencies"});
    else
      words.emplace_back("Render");
    if (options_.chunk > 1) words.insert(words.end(), {"--extensions", "TASK_CHUNKING"});
    for (const auto& [name, path] : paths_) words.insert(words.end(), {"-p", name + "=" + path});
    return joinWords(words);
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

  // The whole frame, into all outputs.
  [[nodiscard]] std::vector<std::string> wholeCommand() const {
    std::vector<std::string> command = frame_;
    command.insert(command.end(), outputs_.begin(), outputs_.end());
    return command;
  }

  // The file of a band, beside the first output. It has all layers.
  [[nodiscard]] std::string tileName(const std::string& number) const {
    std::string stem = fs::path(firstName_).stem().string();
    const std::string place = "{layer}";
    for (std::size_t at = 0; (at = stem.find(place, at)) != std::string::npos;)
      stem.replace(at, place.size(), "layers");
    return valueOf(folderName(0)) + "/" + stem + ".tile" + number + ".exr";
  }

  // A band is an EXR of every layer that an output shows, exact. What says how outputs are written
  // is left to the task that joins.
  [[nodiscard]] std::vector<std::string> tileCommand() const {
    std::vector<std::string> command = frame_;
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

  // The options that say what is written, not what is rendered.
  std::vector<std::string>& commandOf(const GivenOption& given) {
    static const std::set<std::string> ofOutputs = {
        "--output",   "--png",        "--format",   "--layers", "--compression", "--half",
        "--manifest", "--background", "--exposure", "--view",   "--display"};
    return ofOutputs.count(given.name) > 0 ? outputs_ : frame_;
  }

  void addText(const std::string& name, const GivenOption& given, const char* description) {
    parameters_.push_back(
        {{"name", name},
         {"type", "STRING"},
         {"description", description},
         {"default", defaultText(given.name.c_str(), given.value, "name each layer once")}});
    std::vector<std::string>& command = commandOf(given);
    command.push_back(given.name);
    command.push_back(valueOf(name));
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
    outputs_.push_back(given.name);
    outputs_.push_back(valueOf(folderName(static_cast<std::size_t>(found - folders_.begin()))) +
                       "/" + literal(given.name.c_str(), whole.filename().string()));
  }

  void add(const GivenOption& given) {
    if (given.name == "--output" || given.name == "--png" || given.name == "--manifest")
      return addOutput(given);
    if (given.name == "--size") return addText("Size", given, "WxH, or W alone");
    // Bands have the layers of all outputs, which then cannot be others.
    if (given.name == "--layers" && options_.tiles <= 1)
      return addText("Layers", given, "The layers, apart by commas");
    std::vector<std::string>& command = commandOf(given);
    command.push_back(given.name);
    const std::size_t first = command.size() - 1;
    if (given.name == "--selection") {
      addPath("Selection", options_.render.selection, "FILE", "IN", "What is tinted");
      command.push_back(valueOf("Selection"));
      opening_.insert(opening_.end(), {"--input", valueOf("Selection")});
    } else if (given.name == "--root") {
      addPath("Root", given.value, "DIRECTORY", "IN", "Where all files of the scene lie");
      command.push_back(valueOf("Root"));
    } else if (!given.isFlag) {
      command.push_back(literal(given.name.c_str(), given.value));
    }
    // What a scene is composed of depends on these: the check reads it as the tasks do.
    const bool isLimit = given.name.rfind("--max-", 0) == 0;
    if (isLimit || given.name == "--root" || given.name == "--variant")
      opening_.insert(opening_.end(), command.begin() + static_cast<std::ptrdiff_t>(first),
                      command.end());
  }

  const SubmitOptions& options_;
  Json parameters_ = Json::array();
  std::vector<std::string> frame_;    // what renders a frame, but for its outputs
  std::vector<std::string> outputs_;  // the options of those
  std::vector<std::string> opening_;  // of the check: how the scene is opened, and other inputs
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

// A line for each file that the job needs and that is not here. What was missing where the job was
// made is none: pictures then have what stands for it, everywhere the same.
void checkFiles(const SubmitOptions& options, const ovo::Stage& stage) {
  std::vector<Failure> lacks;
  for (const std::string& input : options.inputs)
    if (access(input.c_str(), R_OK) != 0)
      lacks.push_back(failure(Message::notHere, {input, "the job reads it"}));
  const std::string& file = options.render.scene.file;
  for (const Lack& lack : findLacks(stage, file, options.seen)) {
    const std::string by = lack.by == "/" ? "it is a sublayer" : lack.by + " names it";
    if (!options.seen.empty())
      lacks.push_back(
          failure(Message::notHere, {lack.name, by + ", and where the job was made it is there"}));
    else if (lack.by.find('.') != std::string::npos)  // layers were told when it was opened
      say(Notice::warning, file + ": " + lack.by + " names " + lack.name + ", which is not here");
  }
  if (lacks.empty()) return;
  for (std::size_t i = 0; i + 1 < lacks.size(); ++i) reportFailure("vela submit", lacks[i]);
  throw lacks.back();
}

// What the first action of a session is: a worker that cannot do the job says so before it renders.
ExitCode check(const SubmitOptions& options) {
  if (options.version != vela::version())
    throw failure(Message::otherVersion, {options.version, vela::version()});
  const auto stage = openStage("submit", options.render.scene.file, options.render.scene.variants);
  for (const std::string& folder : options.folders) {
    std::error_code none;
    if (!fs::is_directory(folder, none))
      throw failure(Message::cannotWrite, {folder, "there is no such folder on this machine",
                                           "mount it here, or map its path"});
    if (access(folder.c_str(), W_OK) != 0)
      throw failure(Message::cannotWrite,
                    {folder, std::strerror(errno), "let this machine's user write there"});
  }
  checkFiles(options, *stage);
  return kDone;
}

}  // namespace

ExitCode submit(const SubmitOptions& options) {
  if (!options.version.empty()) return check(options);
  checkLayers(options.render.layers);  // what each task would be refused for
  const auto start = std::chrono::steady_clock::now();
  const std::shared_ptr<ovo::Stage> stage =
      openStage("submit", options.render.scene.file, options.render.scene.variants);
  if (options.estimates) {
    const std::chrono::duration<double> open = std::chrono::steady_clock::now() - start;
    printEstimate(options, stage, open.count());
    return kDone;
  }
  const Job job(options);

  Json attachments = {{"version", 1}, {"inputs", filesOf(*stage)}};
  if (!options.render.selection.empty())
    attachments["inputs"].push_back(fs::absolute(options.render.selection).lexically_normal());
  attachments["outputs"] = job.folders();

  fs::path beside = options.job;
  beside.replace_extension(".attachments.json");
  OutputFile jobFile(options.job, OutputKind::manifest);
  OutputFile listFile(beside.string(), OutputKind::manifest);
  write(jobFile, job.json(seenFiles(*stage, options.render.scene.file)));
  write(listFile, attachments);
  jobFile.commit();
  listFile.commit();
  std::puts(job.line(options.job).c_str());
  return kDone;
}

}  // namespace command
