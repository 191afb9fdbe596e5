#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include "Failure.h"
#include "HelpTexts.h"
#include "Options.h"
#include "Text.h"

namespace command {

namespace {

// An option's value as text and what to do with it, so that every message has this command's form.
[[noreturn]] void wrong(const std::string& verb, const std::string& option,
                        const std::string& why) {
  throw Failure{kUsage, "wrong usage", option, why, "try vela " + verb + " --help"};
}

int readInteger(const std::string& verb, const std::string& option, const std::string& text,
                int low, int high) {
  int value = 0;
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || stop != text.data() + text.size() || value < low || value > high)
    wrong(verb, option,
          "'" + text + "' is no whole number from " + std::to_string(low) + " to " +
              std::to_string(high));
  return value;
}

// The position of a word in the list of those that an option takes.
std::size_t readWord(const std::string& verb, const std::string& option, const std::string& text,
                     const std::vector<std::string>& words) {
  const auto found = std::find(words.begin(), words.end(), text);
  if (found != words.end()) return static_cast<std::size_t>(found - words.begin());
  std::string list;
  for (const std::string& word : words) list += (list.empty() ? "" : ", ") + word;
  wrong(verb, option, "'" + text + "' is none of " + list);
}

// A verb's parser. Options are kept as text here and read by the verb's own code.
class Parser {
 public:
  Parser(const char* verb, const std::string& help, bool takesFile = true, bool needsFile = true)
      : verb_(verb), help_(help), app_(help, std::string("vela ") + verb) {
    app_.set_help_flag("-h,--help");
    if (takesFile) app_.add_option("FILE", file_)->required(needsFile);
  }

  void text(const std::string& names, std::string& value) { app_.add_option(names, value); }
  void list(const std::string& names, std::vector<std::string>& values) {
    app_.add_option(names, values)->expected(1)->take_all();
  }
  void words(const std::string& name, std::vector<std::string>& values) {
    app_.add_option(name, values)->required();
  }
  void flag(const std::string& names, bool& value) { app_.add_flag(names, value); }

  // \return false when help was asked for
  bool parse(int count, char** arguments) {
    try {
      // CLI11 takes arguments in reverse.
      std::vector<std::string> words(std::make_reverse_iterator(arguments + count),
                                     std::make_reverse_iterator(arguments));
      app_.parse(std::move(words));
    } catch (const CLI::CallForHelp&) {
      std::fputs(help_.c_str(), stdout);
      return false;
    } catch (const CLI::ParseError& error) {
      wrong(verb_, "", error.what());
    }
    return true;
  }

  [[nodiscard]] const std::string& file() const { return file_; }
  // How often an option was given.
  [[nodiscard]] std::size_t count(const std::string& name) const { return app_.count(name); }

 private:
  const char* verb_;
  std::string help_;
  CLI::App app_;
  std::string file_;
};

double readTime(const std::string& verb, const std::string& text) {
  std::vector<double> numbers;
  if (text.empty()) return tarn::defaultTimeValue();
  if (!readNumbers(text, 1, numbers)) wrong(verb, "--time", "'" + text + "' is no number");
  return numbers[0];
}

// The options that render and pick share.
struct SceneTexts {
  std::string size, time, purposes, level, engine;

  void declare(Parser& parser, SceneOptions& options) {
    parser.text("--camera", options.camera);
    parser.text("--lens", options.lens);
    parser.text("--size", size);
    parser.text("--time", time);
    parser.text("--purpose", purposes);
    parser.list("--include-type", options.includedTypes);
    parser.list("--exclude", options.excludedPaths);
    parser.flag("--invisible", options.withInvisible);
    parser.text("--subdivide", level);
    parser.flag("--smooth", options.smooth);
    parser.text("--engine", engine);
  }

  void read(const std::string& verb, const Parser& parser, SceneOptions& options) const {
    options.file = parser.file();
    options.time = readTime(verb, time);
    if (!size.empty()) {
      const std::size_t cross = size.find('x');
      if (cross == std::string::npos) wrong(verb, "--size", "'" + size + "' is no WIDTHxHEIGHT");
      options.width = readInteger(verb, "--size", size.substr(0, cross), 1, 16384);
      options.height = readInteger(verb, "--size", size.substr(cross + 1), 1, 16384);
    }
    if (!purposes.empty()) {
      options.purposes.clear();
      for (const std::string& purpose : splitList(purposes))
        options.purposes.push_back(static_cast<vela::scene::Purpose>(
            readWord(verb, "--purpose", purpose, {"default", "render", "proxy", "guide"})));
    }
    if (parser.count("--engine") > 0)
      options.engine = static_cast<vela::scene::CasterKind>(
          readWord(verb, "--engine", engine, {"tracer", "hit-detector"}));
    // A triangle refined that often is as much as a picture may have.
    constexpr int kDeepest = 11;
    if (!level.empty())
      options.subdivisionLevel = readInteger(verb, "--subdivide", level, 0, kDeepest);
    if (options.engine == vela::scene::CasterKind::hitDetector &&
        (options.subdivisionLevel > 0 || options.smooth))
      wrong(verb, options.smooth ? "--smooth" : "--subdivide",
            "does not go with --engine hit-detector, which takes meshes as the scene has them");
  }
};

}  // namespace

vela::scene::ViewOptions SceneOptions::view() const {
  vela::scene::ViewOptions options{ovo::Path(camera), vela::LensProjection::none, width, height,
                                   time};
  if (lens.empty()) return options;
  const std::vector<std::string> words = {"perspective", "orthographic", "spherical",
                                          "cylindrical"};
  const auto found = std::find(words.begin(), words.end(), lens);
  if (found == words.end())
    throw Failure{kUsage, "no such lens", lens, "",
                  "try perspective, orthographic, spherical or cylindrical"};
  options.lens = static_cast<vela::LensProjection>(found - words.begin());
  return options;
}

bool readArguments(int count, char** arguments, RenderOptions& options) {
  const std::string verb = "render";
  Parser parser("render", renderHelp());
  SceneTexts texts;
  std::string samples, threads, pattern, layers;
  texts.declare(parser, options.scene);
  parser.text("-o,--output", options.exr);
  parser.text("--png", options.png);
  parser.text("--samples", samples);
  parser.text("--pattern", pattern);
  parser.text("--threads", threads);
  parser.text("--layers", layers);
  parser.text("--selection", options.selection);
  if (!parser.parse(count, arguments)) return false;

  texts.read(verb, parser, options.scene);
  if (options.exr.empty() && options.png.empty())
    wrong(verb, "", "neither -o OUT.exr nor --png OUT.png is given");
  if (options.exr.size() > 4 && options.exr.substr(options.exr.size() - 4) == ".png")
    wrong(verb, "-o", "writes OpenEXR, '" + options.exr + "' looks like a PNG: that is --png");
  if (!options.exr.empty() && options.exr == options.png)
    wrong(verb, "--png", "is the same file as -o");
  if (!samples.empty()) options.samples = readInteger(verb, "--samples", samples, 1, 4096);
  if (!threads.empty()) options.threads = readInteger(verb, "--threads", threads, 0, 1024);
  if (!pattern.empty())
    options.pattern = static_cast<vela::picture::SamplePattern>(
        readWord(verb, "--pattern", pattern, {"jittered", "regular"}));
  if (parser.count("--layers") > 0) options.layers = splitList(layers);
  return true;
}

bool readArguments(int count, char** arguments, PickOptions& options) {
  const std::string verb = "pick";
  Parser parser("pick", pickHelp());
  SceneTexts texts;
  std::string pixel, ray;
  texts.declare(parser, options.scene);
  parser.text("--pixel", pixel);
  parser.text("--ray", ray);
  parser.flag("--json", options.json);
  if (!parser.parse(count, arguments)) return false;

  texts.read(verb, parser, options.scene);
  if (pixel.empty() == ray.empty()) wrong(verb, "", "one of --pixel and --ray is needed");
  options.byRay = !ray.empty();
  std::vector<double> numbers;
  if (options.byRay) {
    if (!readNumbers(ray, 6, numbers))
      wrong(verb, "--ray", "'" + ray + "' is not six numbers separated by commas");
    if (numbers[3] == 0.0 && numbers[4] == 0.0 && numbers[5] == 0.0)
      wrong(verb, "--ray", "the direction has no length");
    std::copy(numbers.begin(), numbers.end(), options.ray);
  } else {
    const std::vector<std::string> parts = splitList(pixel);
    if (parts.size() != 2) wrong(verb, "--pixel", "'" + pixel + "' is not X,Y");
    options.pixelX = readInteger(verb, "--pixel", parts[0], 0, 16383);
    options.pixelY = readInteger(verb, "--pixel", parts[1], 0, 16383);
  }
  return true;
}

bool readArguments(int count, char** arguments, SelectOptions& options) {
  const std::string verb = "select";
  Parser parser("select", selectHelp(), true, false);
  SceneTexts texts;
  std::string rect, parts;
  texts.declare(parser, options.scene);
  parser.text("--rect", rect);
  parser.text("--parts", parts);
  parser.flag("--through", options.through);
  parser.text("-o,--output", options.output);
  parser.text("--add", options.add);
  parser.text("--show", options.show);
  parser.flag("--json", options.json);
  if (!parser.parse(count, arguments)) return false;

  texts.read(verb, parser, options.scene);
  if (!options.show.empty()) {
    if (!parser.file().empty() || !rect.empty() || !options.output.empty() || !options.add.empty())
      wrong(verb, "--show", "prints a selection, and takes nothing else but --json");
    return true;
  }
  if (parser.file().empty()) wrong(verb, "", "FILE is missing");
  if (rect.empty()) wrong(verb, "", "--rect is missing");
  if (options.output.empty()) wrong(verb, "", "-o S.sel is missing");
  if (options.json) wrong(verb, "--json", "goes with --show");
  if (parser.count("--parts") > 0)
    options.parts = static_cast<vela::scene::PickedPart>(
        readWord(verb, "--parts", parts, {"objects", "faces", "vertices"}));
  const std::vector<std::string> corners = splitList(rect);
  if (corners.size() != 4) wrong(verb, "--rect", "'" + rect + "' is not X0,Y0,X1,Y1");
  int* const values[4] = {&options.rect.x0, &options.rect.y0, &options.rect.x1, &options.rect.y1};
  for (std::size_t i = 0; i < 4; ++i)
    *values[i] = readInteger(verb, "--rect", corners[i], 0, 16383);
  if (options.rect.x0 > options.rect.x1) std::swap(options.rect.x0, options.rect.x1);
  if (options.rect.y0 > options.rect.y1) std::swap(options.rect.y0, options.rect.y1);
  return true;
}

bool readArguments(int count, char** arguments, InfoOptions& options) {
  Parser parser("info", infoHelp());
  std::string time;
  parser.text("--time", time);
  parser.flag("--json", options.json);
  if (!parser.parse(count, arguments)) return false;
  options.file = parser.file();
  options.time = readTime("info", time);
  return true;
}

bool readArguments(int count, char** arguments, ChannelsOptions& options) {
  Parser parser("channels", channelsHelp(), false);
  // Also an empty name is one that can be asked for.
  std::vector<std::string> names;
  parser.list("--name", names);
  parser.flag("--json", options.json);
  if (!parser.parse(count, arguments)) return false;
  if (names.size() > 1) wrong("channels", "--name", "is given more than once");
  options.byName = !names.empty();
  if (options.byName) options.name = names[0];
  return true;
}

bool readArguments(int count, char** arguments, ResolveOptions& options) {
  Parser parser("resolve", resolveHelp(), false);
  parser.words("REF", options.references);
  parser.flag("--json", options.json);
  return parser.parse(count, arguments);
}

bool readArguments(int count, char** arguments, MeshOptions& options) {
  Parser parser("mesh", meshHelp());
  std::string time;
  parser.text("PRIM", options.prim);
  parser.text("--time", time);
  parser.flag("--json", options.json);
  if (!parser.parse(count, arguments)) return false;
  options.file = parser.file();
  options.time = readTime("mesh", time);
  return true;
}

bool readArguments(int count, char** arguments, MakeOptions& options) {
  const std::string verb = "make";
  Parser parser("make", makeHelp());
  std::string size, rows, columns;
  parser.text("-o,--output", options.output);
  parser.text("--size", size);
  parser.text("--rows", rows);
  parser.text("--columns", columns);
  parser.text("--scheme", options.scheme);
  parser.flag("--separate-points", options.separatePoints);
  parser.flag("--no-caps", options.withoutCaps);
  if (!parser.parse(count, arguments)) return false;

  options.shape = parser.file();
  const bool sphere = options.shape == "sphere", round = sphere || options.shape == "cylinder";
  if (!round && options.shape != "cube" && options.shape != "grid")
    wrong(verb, "SHAPE", "'" + options.shape + "' is none of cube, grid, cylinder, sphere");
  if (options.output.empty()) wrong(verb, "", "-o OUT.usda is not given");
  std::vector<double> numbers = {2, 2, 2};
  if (!size.empty() && !readNumbers(size, 3, numbers))
    wrong(verb, "--size", "'" + size + "' is not three numbers separated by commas");
  for (const double number : numbers)
    if (!(number > 0 && number <= 1e30))
      wrong(verb, "--size", "'" + size + "' is not above 0 and at most 1e30 throughout");
  std::copy(numbers.begin(), numbers.end(), options.size);
  constexpr int kMost = 1000000;
  // About 250 bytes each while they are made and written.
  constexpr double kMostMadeFaces = 20'000'000;
  options.rows = sphere ? 16u : 1u;
  options.columns = round ? 32u : 1u;
  if (!rows.empty())
    options.rows = static_cast<unsigned>(readInteger(verb, "--rows", rows, sphere ? 2 : 1, kMost));
  if (!columns.empty())
    options.columns =
        static_cast<unsigned>(readInteger(verb, "--columns", columns, round ? 3 : 1, kMost));
  const double faces = options.shape == "cube"
                           ? 2.0 * (2.0 * options.rows + options.columns) * options.columns
                           : static_cast<double>(options.rows) * options.columns;
  if (faces > kMostMadeFaces)
    wrong(verb, "--rows, --columns",
          "these make " + std::to_string(std::llround(faces)) + " faces, more than " +
              std::to_string(std::llround(kMostMadeFaces)));
  const std::string& scheme = options.scheme;
  if (scheme != "none" && scheme != "catmullClark" && scheme != "loop" && scheme != "bilinear")
    wrong(verb, "--scheme", "'" + scheme + "' is none of none, catmullClark, loop, bilinear");
  return true;
}

}  // namespace command
