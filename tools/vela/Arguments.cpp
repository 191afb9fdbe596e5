#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include "Failure.h"
#include "Options.h"
#include "Text.h"
#include "vela/picture/LayerTable.h"

namespace command {

namespace {

constexpr const char* kOverallHelp =
    R"(vela: pictures and facts of 3D scenes (.usd .usda .usdc .usdz)

  vela render FILE -o OUT.exr [--png OUT.png]   a picture, with depth, positions, normals and ids
  vela pick FILE --pixel X,Y                    what is under a pixel, or along a ray
  vela info FILE                                what a scene holds
  vela mesh FILE [PRIM]                         its meshes in numbers, and their defects
  vela make SHAPE -o OUT.usda                   a cube, grid, cylinder or sphere
  vela channels                                 the names that image channels have
  vela select FILE --rect X0,Y0,X1,Y1 -o S.sel  what shows in a rectangle, as a selection
  vela resolve REF...                           the files that asset references stand for
  vela VERB --help                              the options of a verb, with examples
  vela --version

Every FILE to read may be an asset reference: OPENASSETIO_DEFAULT_CONFIG names the configuration of the asset manager.

Every verb takes --log-level quiet|error|warning|message|verbose and --log-file FILE; without a file, and without
HALDEN_LOG_FILE, the log goes to standard error.

Exit codes: 0 done, 1 bad input, 2 wrong usage, 130 interrupted.
)";

constexpr const char* kRenderHelp =
    R"(vela render FILE -o OUT.exr [--png OUT.png] [options]: renders a scene to a picture.

  -o, --output OUT.exr   linear colour and data, in layers
  --png OUT.png          the same colour as sRGB, over a plain backdrop
  --layers LIST          @LAYERS@
  --camera PATH          camera prim; else the first of the scene; else one that shows all of it
  --lens LENS            perspective, orthographic, spherical (all around, 2:1), cylindrical
  --size WxH             1280x720
  --time T               time code; else the scene's default values
  --samples N            rays a pixel, rounded to a square: 16. With 1, pixel centres
  --pattern P            places in the pixel: jittered, regular
  --threads N            0: as many as the machine has. The picture is the same for any number
  --include-type T       only prims of this type (may be repeated)
  --exclude PATH         not this prim nor what is below it (may be repeated)
  --purpose LIST         default,render; also proxy, guide
  --invisible            also what the scene hides
  --subdivide N          refine subdivision surfaces N times, by their scheme, boundaries, creases, corners and holes: 0
  --smooth               normals mixed between points, in N too; polygon meshes without normals get some. Edges of more
                         than 53 degrees stay sharp on them, on creased and bilinear surfaces and on unrefined cages
  --engine E             tracer; hit-detector: what applications see that pick with it
  --selection S.sel      tints what the selection has (vela select makes one)

@CHANNELS@
Instances of point instancers are named by prim and number, as /World/Many/Proto[17], outer instancers first; where the prim lies
elsewhere the instancer is named too: /Lib/Leaf[/World/Many 17].
Cubes, spheres, cylinders, cones, capsules and planes are meshes of up to 128 sides; their face.id is of that mesh.
A refined mesh keeps its numbers: face.id is the scene's face that the refined one comes from, here as in vela pick and select.
Its normals are computed. Without --subdivide such surfaces show as their control meshes; meshes of the scheme none always do.
Data layers are of the pixel's centre. Small scenes take seconds; Ctrl-C leaves nothing half written.

Examples
  vela render examples/demo/demo.usda -o demo.exr --png demo.png
  vela render examples/demo/demo.usda --png all.png --lens spherical --samples 4
  vela render examples/demo/demo.usda -o data.exr --layers depth,N,prim --size 640x360 --time 24
  vela render examples/demo/demo.usda -o fine.exr --subdivide 2 --smooth
)";

// With what the table of layers says in the places that are marked.
std::string renderHelp() {
  std::string layers, others, channels;
  for (const vela::picture::LayerInfo& info : vela::picture::layerTable()) {
    if (info.isDefault)
      layers += (layers.empty() ? "" : ",") + info.name;
    else
      others += ", " + info.name;
    if (info.isPart) continue;
    channels += channels.empty() ? "In the EXR:" : ",";
    for (const std::string& channel : info.channels) channels += " " + channel;
    channels += " " + info.help;
  }
  std::string help = kRenderHelp;
  const auto put = [&](const std::string& mark, const std::string& text) {
    help.replace(help.find(mark), mark.size(), text);
  };
  put("@LAYERS@", layers + " (the default)" + others);
  put("@CHANNELS@", wrapText(channels + ".", 100));
  return help;
}

constexpr const char* kPickHelp =
    R"(vela pick FILE --pixel X,Y | --ray OX,OY,OZ,DX,DY,DZ [options]: says what a ray meets.

  --pixel X,Y            pixel of the picture that vela render would make with the same options; 0,0 is top left
  --ray O...,D...        world origin and direction; the distance is in units of the direction's length
  --json                 as JSON
  --camera PATH, --lens LENS, --size WxH, --time T, --include-type T, --exclude PATH, --purpose LIST, --invisible,
  --subdivide N, --smooth, --engine E
                         as for vela render

Prints the prim's path (of an instance with its number, as vela render names it), its entry (render's prim.id less 1), face,
distance, world position and normal, the last as the layer N has it.

Examples
  vela pick examples/demo/demo.usda --pixel 640,360
  vela pick examples/demo/demo.usda --ray 0,200,0,0,-1,0 --json
)";

constexpr const char* kSelectHelp =
    R"(vela select FILE --rect X0,Y0,X1,Y1 -o S.sel [options]: selects what shows in a rectangle of the picture.
vela select --show S.sel [--json]: says what a selection holds.

  --rect X0,Y0,X1,Y1     pixels of the picture that vela render would make with the same options, both corners included
  --parts P              objects (the default), faces, vertices: those of the faces met that lie in the rectangle
  --through              also what is hidden behind something
  -o, --output S.sel     the selection, as text
  --add S.sel            begin with this selection instead of an empty one; may be the output's own
  --show S.sel           print a selection instead
  --json                 print it as JSON
  --camera PATH, --lens LENS, --size WxH, --time T, --include-type T, --exclude PATH, --purpose LIST, --invisible,
  --subdivide N, --smooth, --engine E
                         as for vela render

Rays go through the centres of the pixels. What is picked gets the value 1. Of refined meshes the scene's own faces are
picked, and its own vertices where they have come to lie.

Examples
  vela select examples/demo/demo.usda --rect 500,480,860,660 -o bowl.sel
  vela select examples/demo/demo.usda --rect 300,240,500,600 --parts faces --add bowl.sel -o both.sel
  vela select --show both.sel
  vela render examples/demo/demo.usda --png both.png --selection both.sel --samples 4
)";

constexpr const char* kInfoHelp =
    R"(vela info FILE [options]: says what a scene holds.

  --json                 as JSON, complete
  --time T               time code at which counts and cameras are read

Prints axes, units and times, prims by type, meshes with their counts, cameras in plain units.

Examples
  vela info examples/demo/demo.usda
  vela info examples/demo/demo.usda --json
)";

constexpr const char* kChannelsHelp =
    R"(vela channels [options]: the registry of image channels and layers, as plug-ins find it.

  --name NAME            what this name is: a channel, a layer, or what a new channel of that name would be
  --json                 as JSON

Examples
  vela channels
  vela channels --name depth.Z
  vela channels --json
)";

constexpr const char* kResolveHelp =
    R"(vela resolve REF... [options]: the files that asset references stand for.

  --json                 as JSON, with the reason for each that does not resolve

Prints a path a line, in order; for a reference that does not resolve a line on standard error instead, and the exit code is 1.
The asset manager is that of the OpenAssetIO configuration that OPENASSETIO_DEFAULT_CONFIG names; it may be native or written in
Python. Every FILE that a verb reads may be such a reference; what exists as a path is that path.

Examples (with OPENASSETIO_DEFAULT_CONFIG=examples/assets/openassetio.toml)
  vela resolve bal:///demo/still-life
  vela resolve bal:///demo/still-life?v=1 --json
  vela info bal:///demo/still-life
)";

constexpr const char* kMeshHelp =
    R"(vela mesh FILE [PRIM] [options]: says what meshes are made of, and what is wrong with them.

  --json                 as JSON
  --time T               time code at which meshes are read

Prints counts, edges, bounds, scheme and primvars of one mesh or of all. Defects are counts that do not add up, faces of fewer
than three vertices, indices out of range, points that are no numbers or not used, faces without area, folded or
naming a point twice, neighbours of opposite windings, and primvars that do not fit. With any the exit code is 1.

Examples
  vela mesh examples/demo/demo.usda
  vela mesh examples/demo/demo.usda --json
)";

constexpr const char* kMakeHelp =
    R"(vela make SHAPE -o OUT.usda [options]: writes a mesh with points, faces, UVs and normals.

  SHAPE                  cube, grid (lying, seen from above), cylinder, sphere
  -o, --output FILE      .usda, .usdc or .usd
  --size X,Y,Z           2,2,2: outer measures, around the origin
  --rows N               divisions along y (grid: along z): 1; cylinder 1; sphere 16 (at least 2)
  --columns N            divisions along x (cube: also z; cylinder, sphere: around): 1; cylinder and sphere 32 (at least 3)
  --scheme S             none, catmullClark, loop, bilinear. Refined surfaces have no normals of their own
  --separate-points      cube: every face its own points; cylinder: every cap its own ring
  --no-caps              cylinder: open

Examples
  vela make sphere -o sphere.usda --rows 24 --columns 48
  vela make cube -o cube.usdc --size 1,2,1 --rows 4 --columns 2 --scheme catmullClark
)";

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

  /// \return false when help was asked for
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
  /// How often an option was given.
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

const char* overallHelp() { return kOverallHelp; }

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
  Parser parser("pick", kPickHelp);
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
  Parser parser("select", kSelectHelp, true, false);
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
  Parser parser("info", kInfoHelp);
  std::string time;
  parser.text("--time", time);
  parser.flag("--json", options.json);
  if (!parser.parse(count, arguments)) return false;
  options.file = parser.file();
  options.time = readTime("info", time);
  return true;
}

bool readArguments(int count, char** arguments, ChannelsOptions& options) {
  Parser parser("channels", kChannelsHelp, false);
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
  Parser parser("resolve", kResolveHelp, false);
  parser.words("REF", options.references);
  parser.flag("--json", options.json);
  return parser.parse(count, arguments);
}

bool readArguments(int count, char** arguments, MeshOptions& options) {
  Parser parser("mesh", kMeshHelp);
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
  Parser parser("make", kMakeHelp);
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
