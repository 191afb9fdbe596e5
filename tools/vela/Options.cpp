#include "Options.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <initializer_list>
#include <system_error>
#include <utility>

#include "Arguments.h"
#include "Limits.h"
#include "Messages.h"
#include "Notices.h"
#include "OutputPictures.h"
#include "PictureJobs.h"
#include "PictureRecord.h"
#include "Suggest.h"
#include "Text.h"
#include "vela/scene/FrameRange.h"

namespace command {

namespace {

using Words = std::vector<std::string>;

int readInteger(const Arguments& given, const char* option, const std::string& text, int low,
                int high) {
  int value = 0;
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || stop != text.data() + text.size() || value < low || value > high)
    throw failure(Message::badInteger,
                  {option, text, std::to_string(low), std::to_string(high), given.verb()});
  return value;
}

// Leaves the value as it is when the option is not given.
void readInteger(const Arguments& given, const char* option, int low, int high, int& value) {
  if (given.has(option)) value = readInteger(given, option, given.text(option), low, high);
}

// The position of a word in the list of those that an option takes.
std::size_t readWord(const char* option, const std::string& text, const Words& words) {
  const auto found = std::find(words.begin(), words.end(), text);
  if (found != words.end()) return static_cast<std::size_t>(found - words.begin());
  std::string list;
  for (const std::string& word : words) list += (list.empty() ? "" : ", ") + word;
  const std::string before = option[0] == '-' ? std::string(option) + " " : "";
  std::string attempt = attemptAmong(text, words, before);
  if (attempt.empty()) attempt = "try " + before + words.front();
  throw failure(Message::badWord, {option, text, list, attempt});
}

// The same for an option of one word; as it is when the option is not given.
template <class Enum>
void readWord(const Arguments& given, const char* option, const Words& words, Enum& value) {
  if (given.has(option)) value = static_cast<Enum>(readWord(option, given.text(option), words));
}

std::vector<double> readNumberList(const char* option, const std::string& text, std::size_t count,
                                   const char* word, const char* example) {
  std::vector<double> numbers;
  if (!readNumbers(text, count, numbers))
    throw failure(Message::badNumbers, {option, text, word, example});
  return numbers;
}

double readTime(const Arguments& given) {
  if (!given.has("--time")) return tarn::defaultTimeValue();
  std::vector<double> numbers;
  if (!readNumbers(given.text("--time"), 1, numbers))
    throw failure(Message::badNumber, {"--time", given.text("--time")});
  return numbers[0];
}

// Two corners of a rectangle of pixels, in any order.
vela::scene::PixelRect readRect(const Arguments& given, const char* option) {
  const Words corners = splitList(given.text(option));
  if (corners.size() != 4)
    throw failure(Message::badForm, {option, given.text(option), "X0,Y0,X1,Y1", "0,0,640,360"});
  vela::scene::PixelRect rect;
  int* const values[4] = {&rect.x0, &rect.y0, &rect.x1, &rect.y1};
  for (std::size_t i = 0; i < 4; ++i)
    *values[i] = readInteger(given, option, corners[i], -1'000'000, 1'000'000);
  if (rect.x0 > rect.x1) std::swap(rect.x0, rect.x1);
  if (rect.y0 > rect.y1) std::swap(rect.y0, rect.y1);
  return rect;
}

// Says which of the options are given for nothing.
void sayUnused(const Arguments& given, std::initializer_list<const char*> options,
               const std::string& why) {
  for (const char* option : options)
    if (given.has(option)) say(Notice::note, std::string(option) + " has no effect: " + why);
}

void readVariants(const Arguments& given, std::vector<ovo::VariantChoice>& variants) {
  for (const std::string& text : given.all("--variant")) {
    ovo::VariantChoice choice;
    if (!ovo::readVariantChoice(text, choice) || text[0] != '/')
      throw failure(Message::badForm, {"--variant", text, "PRIM:SET=NAME", "/Chair:colour=red"});
    variants.push_back(choice);
  }
}

// The options that all verbs with a camera share.
void readScene(const Arguments& given, SceneOptions& options) {
  readLimits(given);
  options.file = given.text("FILE");
  options.camera = given.text("--camera");
  options.lens = given.text("--lens");
  options.time = readTime(given);
  if (given.has("--size")) {
    const std::string& size = given.text("--size");
    // The height follows from the camera's film where it is left out.
    const std::size_t cross = size.find('x');
    options.width = readInteger(given, "--size", size.substr(0, cross), 1, 16384);
    if (cross != std::string::npos)
      options.height = readInteger(given, "--size", size.substr(cross + 1), 1, 16384);
  }
  if (given.has("--purpose")) {
    options.purposes.clear();
    for (const std::string& purpose : splitList(given.text("--purpose")))
      options.purposes.push_back(static_cast<vela::scene::Purpose>(
          readWord("--purpose", purpose, {"default", "render", "proxy", "guide"})));
  }
  options.includedTypes = given.all("--include-type");
  options.excludedPaths = given.all("--exclude");
  options.maskPaths = given.all("--mask");
  readVariants(given, options.variants);
  if (given.has("--turn")) {
    std::vector<double> degrees;
    if (!readNumbers(given.text("--turn"), 1, degrees))
      throw failure(Message::badNumber, {"--turn", given.text("--turn")});
    options.turn = degrees[0];
  }
  options.withInvisible = given.has("--invisible");
  options.smooth = given.has("--smooth");
  options.clipping = given.has("--clip");
  readWord(given, "--engine", {"tracer", "hit-detector"}, options.engine);
  // A triangle refined that often is as much as a picture may have.
  constexpr int kDeepest = 11;
  readInteger(given, "--subdivide", 0, kDeepest, options.subdivisionLevel);
  if (options.engine == vela::scene::CasterKind::hitDetector &&
      (options.subdivisionLevel > 0 || options.smooth))
    throw failure(Message::notTogether,
                  {options.smooth ? "--smooth" : "--subdivide", "--engine hit-detector",
                   ", which takes meshes as the scene has them"});
}

}  // namespace

vela::scene::ViewOptions SceneOptions::view() const {
  vela::scene::ViewOptions options{
      ovo::Path(camera), vela::LensProjection::none, width, height, time, turn};
  options.clipping = clipping;
  if (lens.empty()) return options;
  const Words words = {"perspective", "orthographic", "spherical", "cylindrical"};
  const auto found = std::find(words.begin(), words.end(), lens);
  if (found == words.end()) {
    const std::string attempt = attemptAmong(lens, words);
    throw failure(Message::badLens,
                  {lens, attempt.empty() ? "try perspective, orthographic, spherical or cylindrical"
                                         : attempt});
  }
  options.lens = static_cast<vela::LensProjection>(found - words.begin());
  return options;
}

namespace {

// What makes several pictures of one command line.
void readSeries(const Arguments& given, RenderOptions& options) {
  options.allCameras = options.scene.camera == "all";
  options.skipExisting = given.has("--skip-existing");
  if (given.has("--frames")) {
    if (given.has("--time"))
      throw failure(Message::notTogether, {"--frames", "--time", ", which is one of them"});
    if (given.has("--turntable"))
      throw failure(Message::notTogether,
                    {"--frames", "--turntable", ": a turntable is of one time"});
    std::string why;
    const auto frames = vela::scene::parseFrames(given.text("--frames"), &why);
    if (!frames) throw failure(Message::badFrames, {given.text("--frames"), why});
    options.frames = *frames;
  }
  readInteger(given, "--turntable", 1, 100000, options.turntable);
  checkJobNames(options);
}

}  // namespace

namespace {

void readTile(const Arguments& given, RenderOptions& options) {
  for (const char* other : {"--region", "--from-tiles"})
    if (given.has("--tile") && given.has(other))
      throw failure(Message::notTogether, {"--tile", other, ""});
  if (given.has("--region") && given.has("--from-tiles"))
    throw failure(Message::notTogether, {"--region", "--from-tiles", ""});
  if (given.has("--tile")) {
    const std::string& text = given.text("--tile");
    const std::size_t slash = text.find('/');
    if (slash == std::string::npos) throw failure(Message::badForm, {"--tile", text, "K/N", "1/4"});
    options.tiles = readInteger(given, "--tile", text.substr(slash + 1), 1, 16384);
    options.tile = readInteger(given, "--tile", text.substr(0, slash), 1, options.tiles);
  }
  options.fromTiles = given.text("--from-tiles");
  if (given.has("--from-tiles") && options.fromTiles.find(kTilePlace) == std::string::npos)
    throw failure(Message::badForm,
                  {"--from-tiles", options.fromTiles, "a name with {tile} in it", "a.{tile}.exr"});
}

}  // namespace

namespace {

// What both a picture and a page that shows it take.
void readQuality(const Arguments& given, RenderOptions& options) {
  readInteger(given, "--samples", 1, 4096, options.samples);
  readInteger(given, "--threads", 0, 1024, options.threads);
  int purpose = 0;
  readWord(given, "--material-purpose", {"full", "preview", "none"}, purpose);
  options.materials = purpose != 2;
  if (purpose == 1) options.scene.materialPurpose = vela::scene::MaterialPurpose::preview;
  readInteger(given, "--texture-memory", 1, 1 << 20, options.textureMemory);
  readWord(given, "--lights", {"scene", "own", "both"}, options.lights);
  readInteger(given, "--bounces", 0, 8, options.bounces);
  options.depthOfField = given.has("--dof");
  readWord(given, "--pattern", {"jittered", "regular"}, options.pattern);
}

}  // namespace

bool readArguments(int count, char** arguments, ViewVerbOptions& options) {
  Arguments given(*findVerb("view"));
  if (!given.read(count, arguments)) return false;
  readScene(given, options.render.scene);
  readQuality(given, options.render);
  readDisplay(given, options.render);
  if (options.render.samples == 1)
    sayUnused(given, {"--pattern", "--dof"}, "a single sample is the pixel's centre");
  int port = 0;
  readInteger(given, "--port", 0, 65535, port);
  options.port = static_cast<unsigned short>(port);
  if (given.has("--bind")) options.address = given.text("--bind");
  options.opensBrowser = given.has("--open");
  return true;
}

bool readArguments(int count, char** arguments, RenderOptions& options) {
  Arguments given(*findVerb("render"));
  if (!given.read(count, arguments)) return false;
  const Arguments typed = given;
  options.like = given.text("--like");
  if (!options.like.empty()) completeLike(given, options);
  if (!given.has("FILE")) throw failure(Message::missingArgument, {"FILE", "render"});
  readScene(given, options.scene);
  readOutputs(given, options);
  readSeries(given, options);
  if (given.has("--region")) options.region = readRect(given, "--region");
  readTile(given, options);
  options.selection = given.text("--selection");
  options.statistics = given.has("--stats");
  readQuality(given, options);
  if (options.lights == vela::picture::LightChoice::own)
    sayUnused(typed, {"--bounces"}, "light of Vela's own lights is not scattered on");
  options.motion = given.has("--motion");
  readInteger(given, "--motion-steps", 1, 1024, options.motionSteps);
  readInteger(given, "--overscan", 0, 16384, options.overscan);
  if (!options.motion) sayUnused(typed, {"--motion-steps"}, "it goes with --motion");
  if (options.motion && options.scene.engine == vela::scene::CasterKind::hitDetector)
    throw failure(Message::notTogether,
                  {"--motion", "--engine hit-detector", ", which takes meshes at one time alone"});
  if (options.samples == 1)
    sayUnused(given, {"--pattern", "--dof", "--motion"}, "a single sample is the pixel's centre");
  const auto has = [&](auto isThat) {
    return std::any_of(options.outputs.begin(), options.outputs.end(), isThat);
  };
  const auto isExr = [](const PictureOutput& output) {
    return output.format == vela::picture::FileFormat::exr;
  };
  if (!has([](const PictureOutput& output) { return !output.isColour; }))
    sayUnused(typed, {"--layers"}, "there is no -o that takes layers");
  if (!has(isExr))
    sayUnused(typed, {"--compression", "--half", "--manifest"}, "no output is an EXR");
  if (options.show.empty() && !has([&](const PictureOutput& output) { return !isExr(output); }))
    sayUnused(typed, {"--background", "--exposure", "--view", "--display"},
              "no output is an image");
  if (options.outputs.empty()) sayUnused(typed, {"--skip-existing"}, "no file is written");
  return true;
}

bool readArguments(int count, char** arguments, SubmitOptions& options) {
  const VerbRow& verb = *findVerb("submit");
  Arguments given(verb);
  if (!given.read(count, arguments)) return false;
  options.version = given.text("--check");
  options.folders = given.all("--folder");
  options.inputs = given.all("--input");
  options.seen = given.text("--seen");
  if (given.has("--check")) {
    readLimits(given);
    readVariants(given, options.render.scene.variants);
    options.render.scene.file = given.text("FILE");
    return true;
  }
  for (const char* ofWorkers : {"--folder", "--input", "--seen"})
    if (given.has(ofWorkers)) throw failure(Message::onlyWith, {ofWorkers, "--check", "submit"});
  options.estimates = given.has("--estimate");
  if (options.estimates && given.has("--job"))
    throw failure(Message::notTogether,
                  {"--estimate", "--job", ": what a job takes is told before it is written"});
  for (const char* needed : {"--machines", "--price", "--bandwidth"})
    if (given.has(needed) && !options.estimates)
      throw failure(Message::onlyWith, {needed, "--estimate", "submit"});
  for (const char* needed : {"--job", "--frames"})
    if (!given.has(needed) && !(options.estimates && needed == std::string("--job")))
      throw failure(Message::missingOption,
                    {needed == std::string("--job") ? "--job JOB.json" : needed, "submit"});
  options.job = given.text("--job");
  const std::string ending = ".json";
  if (!options.estimates &&
      (options.job.size() <= ending.size() ||
       options.job.compare(options.job.size() - ending.size(), ending.size(), ending) != 0))
    throw failure(Message::badForm,
                  {"--job", options.job, "a name that ends in .json", "job.json"});
  if (given.has("--command")) options.command = given.text("--command");
  readInteger(given, "--chunk", 1, 1'000'000, options.chunk);
  readInteger(given, "--tiles", 1, 16384, options.tiles);
  readInteger(given, "--timeout", 1, 1'000'000'000, options.taskSeconds);
  if (given.has("--machines")) {
    options.machines.clear();
    for (const std::string& number : splitList(given.text("--machines")))
      options.machines.push_back(readInteger(given, "--machines", number, 1, 1'000'000));
  }
  const auto readAmount = [&](const char* option, double& value) {
    if (!given.has(option)) return;
    std::vector<double> numbers;
    if (!readNumbers(given.text(option), 1, numbers) || !(numbers[0] > 0.0))
      throw failure(Message::badForm, {option, given.text(option), "a number above 0", "0.35"});
    value = numbers[0];
  };
  readAmount("--price", options.price);
  readAmount("--bandwidth", options.bandwidth);

  // The rest is checked as vela render checks it, and handed on as it was given.
  const VerbRow& render = *findVerb("render");
  Words words = {given.text("FILE"), "--frames", given.text("--frames")};
  for (const OptionGroup& group : render.groups)
    for (const OptionRow& row : group.rows) {
      const std::string key = row.key();
      if (!verb.find(key) || key == "--frames") continue;
      for (const std::string& value : given.all(key.c_str())) {
        words.push_back(key);
        if (!row.isFlag()) words.push_back(value);
        options.given.push_back({key, row.isFlag() ? "" : value, row.isFlag()});
      }
    }
  std::vector<char*> pointers;
  for (std::string& word : words) pointers.push_back(word.data());
  readArguments(static_cast<int>(pointers.size()), pointers.data(), options.render);
  if (options.tiles > 1 && options.chunk > 1)
    throw failure(Message::notTogether, {"--tiles", "--chunk", ": a task is a part of a frame"});
  if (options.tiles > 1 && options.render.region)
    throw failure(Message::notTogether, {"--tiles", "--region", ""});
  for (const PictureOutput& output : options.render.outputs)
    if (output.file == "-")
      throw failure(Message::badOption, {"-o", "a worker has no standard output to write to"});
  return true;
}

namespace {

// Of the verbs that ask about one ray.
void readRay(const Arguments& given, PickOptions& options) {
  readScene(given, options.scene);
  options.json = given.has("--json");
  if (given.has("--pixel") == given.has("--ray"))
    throw failure(Message::oneOfTwo, {"--pixel", "--ray", given.verb()});
  options.byRay = given.has("--ray");
  if (options.byRay) {
    const std::vector<double> numbers =
        readNumberList("--ray", given.text("--ray"), 6, "six", "0,0,9,0,0,-1");
    if (numbers[3] == 0.0 && numbers[4] == 0.0 && numbers[5] == 0.0)
      throw failure(Message::noDirection);
    std::copy(numbers.begin(), numbers.end(), options.ray);
    sayUnused(given, {"--camera", "--lens", "--size", "--turn", "--clip"},
              "--ray is a ray of the world");
  } else {
    const Words parts = splitList(given.text("--pixel"));
    if (parts.size() != 2)
      throw failure(Message::badForm, {"--pixel", given.text("--pixel"), "X,Y", "640,360"});
    options.pixelX = readInteger(given, "--pixel", parts[0], 0, 16383);
    options.pixelY = readInteger(given, "--pixel", parts[1], 0, 16383);
  }
}

}  // namespace

bool readArguments(int count, char** arguments, PickOptions& options) {
  Arguments given(*findVerb("pick"));
  if (!given.read(count, arguments)) return false;
  readRay(given, options);
  readWord(given, "--material-purpose", {"full", "preview"}, options.scene.materialPurpose);
  return true;
}

bool readArguments(int count, char** arguments, ExplainOptions& options) {
  Arguments given(*findVerb("explain"));
  if (!given.read(count, arguments)) return false;
  readRay(given, options.pick);
  options.withCulled = given.has("--all");
  return true;
}

bool readArguments(int count, char** arguments, SelectOptions& options) {
  Arguments given(*findVerb("select"));
  if (!given.read(count, arguments)) return false;
  readScene(given, options.scene);
  options.through = given.has("--through");
  options.output = given.text("--output");
  options.add = given.text("--add");
  options.json = given.has("--json");
  if (given.has("--show")) {
    // What `--show *.sel` becomes: its value and arguments behind it.
    options.shown = given.all("--show");
    const Words& more = given.all("FILE");
    options.shown.insert(options.shown.end(), more.begin(), more.end());
    for (const char* other : {"--rect", "--output", "--add"})
      if (given.has(other))
        throw failure(Message::notTogether,
                      {"--show", other == std::string("--output") ? "-o" : other,
                       ": it prints selections, and takes nothing else but --json"});
    sayUnused(given,
              {"--parts", "--through", "--camera", "--lens", "--size", "--time", "--include-type",
               "--exclude", "--mask", "--variant", "--turn", "--purpose", "--invisible",
               "--subdivide", "--smooth", "--engine"},
              "--show prints selections and opens no scene");
    return true;
  }
  if (!given.has("FILE")) throw failure(Message::missingArgument, {"FILE", "select"});
  if (given.all("FILE").size() > 1)
    throw failure(Message::furtherArgument, {given.all("FILE")[1], "select"});
  options.scene.file = given.all("FILE").front();
  for (const char* needed : {"--rect", "--output"})
    if (!given.has(needed))
      throw failure(Message::missingOption,
                    {needed == std::string("--output") ? "-o S.sel" : needed, "select"});
  if (options.json) throw failure(Message::onlyWith, {"--json", "--show", "select"});
  readWord(given, "--parts", {"objects", "faces", "vertices"}, options.parts);
  options.rect = readRect(given, "--rect");
  return true;
}

bool readArguments(int count, char** arguments, InfoOptions& options) {
  Arguments given(*findVerb("info"));
  if (!given.read(count, arguments)) return false;
  readLimits(given);
  options.files = given.all("FILE");
  readInteger(given, "--depth", 0, 1000, options.depth);
  options.json = given.has("--json");
  options.time = readTime(given);
  options.filesAlone = given.has("--files");
  if (options.filesAlone)
    sayUnused(given, {"--time", "--depth"}, "--files lists the files of all times");
  return true;
}

bool readArguments(int count, char** arguments, ChannelsOptions& options) {
  Arguments given(*findVerb("channels"));
  if (!given.read(count, arguments)) return false;
  // Also an empty name is one that can be asked for.
  options.byName = given.has("--name");
  options.name = given.text("--name");
  options.json = given.has("--json");
  return true;
}

bool readArguments(int count, char** arguments, ResolveOptions& options) {
  Arguments given(*findVerb("resolve"));
  if (!given.read(count, arguments)) return false;
  options.references = given.all("REF");
  options.json = given.has("--json");
  return true;
}

bool readArguments(int count, char** arguments, SelftestOptions& options) {
  Arguments given(*findVerb("selftest"));
  if (!given.read(count, arguments)) return false;
  readInteger(given, "--threads", 0, 1024, options.threads);
  return true;
}

bool readArguments(int count, char** arguments, HelpOptions& options) {
  Arguments given(*findVerb("help"));
  if (!given.read(count, arguments)) return false;
  options.verb = given.text("VERB");
  options.man = given.has("--man");
  options.share = given.text("--share");
  options.messages = given.has("--messages");
  if (given.has("--completion")) {
    options.shell = given.text("--completion");
    readWord("--completion", options.shell, {"bash", "zsh", "fish"});
  }
  return true;
}

namespace {

// Of the last argument of `vela mesh`, which is a file or a prim. Paths of prims have neither a dot
// nor a colon in them.
bool namesFile(const std::string& argument) {
  std::error_code none;
  const std::string extension = std::filesystem::path(argument).extension().string();
  return std::filesystem::exists(argument, none) || extension.rfind(".usd", 0) == 0 ||
         argument.find(':') != std::string::npos;
}

}  // namespace

bool readArguments(int count, char** arguments, MeshOptions& options) {
  Arguments given(*findVerb("mesh"));
  if (!given.read(count, arguments)) return false;
  readLimits(given);
  options.files = given.all("FILE");
  for (std::size_t i = 1; i + 1 < options.files.size(); ++i)
    if (options.files[i][0] == '/' && !namesFile(options.files[i]))
      throw failure(Message::furtherArgument, {options.files[i + 1], "mesh"});
  if (options.files.size() > 1 && !namesFile(options.files.back())) {
    options.prim = options.files.back();
    options.files.pop_back();
  }
  options.json = given.has("--json");
  options.time = readTime(given);
  return true;
}

bool readArguments(int count, char** arguments, MakeOptions& options) {
  Arguments given(*findVerb("make"));
  if (!given.read(count, arguments)) return false;
  options.output = given.text("--output");
  options.separatePoints = given.has("--separate-points");
  options.withoutCaps = given.has("--no-caps");
  options.shape = given.text("SHAPE");
  readWord("SHAPE", options.shape, {"cube", "grid", "cylinder", "sphere"});
  const bool sphere = options.shape == "sphere", round = sphere || options.shape == "cylinder";
  if (options.output.empty()) throw failure(Message::missingOption, {"-o OUT.usda", "make"});
  std::vector<double> numbers = {2, 2, 2};
  const std::string& size = given.text("--size");
  if (given.has("--size")) numbers = readNumberList("--size", size, 3, "three", "2,2,2");
  for (const double number : numbers)
    if (!(number > 0 && number <= 1e30)) throw failure(Message::notAbove, {"--size", size, "1e30"});
  std::copy(numbers.begin(), numbers.end(), options.size);
  constexpr int kMost = 1000000;
  // About 250 bytes each while they are made and written.
  constexpr double kMostMadeFaces = 20'000'000;
  int rows = sphere ? 16 : 1, columns = round ? 32 : 1;
  readInteger(given, "--rows", sphere ? 2 : 1, kMost, rows);
  readInteger(given, "--columns", round ? 3 : 1, kMost, columns);
  if (options.shape != "cube" && options.shape != "cylinder")
    sayUnused(given, {"--separate-points"}, "a " + options.shape + " shares its points");
  if (options.shape != "cylinder")
    sayUnused(given, {"--no-caps"}, "a " + options.shape + " has no caps");
  options.rows = static_cast<unsigned>(rows);
  options.columns = static_cast<unsigned>(columns);
  const double faces = options.shape == "cube"
                           ? 2.0 * (2.0 * options.rows + options.columns) * options.columns
                           : static_cast<double>(options.rows) * options.columns;
  if (faces > kMostMadeFaces)
    throw failure(Message::tooManyMade, {"--rows, --columns", std::to_string(std::llround(faces)),
                                         std::to_string(std::llround(kMostMadeFaces))});
  if (given.has("--scheme")) options.scheme = given.text("--scheme");
  readWord("--scheme", options.scheme, {"none", "catmullClark", "loop", "bilinear"});
  return true;
}

}  // namespace command
