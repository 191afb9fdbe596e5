#include "PictureRecord.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <variant>

#include "Messages.h"
#include "Notices.h"
#include "OutputFile.h"
#include "Text.h"
#include "vela/Version.h"
#include "vela/picture/Cryptomatte.h"
#include "vela/picture/ExrFile.h"
#include "vela/picture/LayerTable.h"

namespace command {

namespace {

namespace fs = std::filesystem;

using vela::picture::Picture;

constexpr const char* kScene = "vela/scene";
constexpr const char* kOptions = "vela/options";
constexpr const char* kSelection = "vela/selection";

const char* const kLenses[] = {"perspective", "orthographic", "spherical", "cylindrical"};
const char* const kPurposes[] = {"default", "render", "proxy", "guide"};

std::vector<std::string> sorted(std::vector<std::string> words) {
  std::sort(words.begin(), words.end());
  words.erase(std::unique(words.begin(), words.end()), words.end());
  return words;
}

std::string commaList(const std::vector<std::string>& words) {
  std::string list;
  for (const std::string& word : words) list += (list.empty() ? "" : ",") + word;
  return list;
}

std::string purposesOf(const SceneOptions& options) {
  std::vector<std::string> names;
  for (std::size_t i = 0; i < 4; ++i)
    if (std::count(options.purposes.begin(), options.purposes.end(),
                   static_cast<vela::scene::Purpose>(i)) > 0)
      names.push_back(kPurposes[i]);
  return commaList(names);
}

// What took effect, not what was typed: two command lines for one picture are one text.
std::vector<std::string> wordsOf(const RenderOptions& options,
                                 const vela::picture::PictureRenderer& renderer,
                                 const vela::picture::Tile& region) {
  const SceneOptions& scene = options.scene;
  const vela::scene::View& view = renderer.view();
  std::vector<std::string> words;
  const auto add = [&](const char* name, const std::string& value) {
    words.insert(words.end(), {name, value});
  };
  if (!view.camera.isEmpty()) add("--camera", view.camera.asString());
  add("--lens", kLenses[view.lens]);
  add("--size", std::to_string(view.width) + "x" + std::to_string(view.height));
  // Both corners are included. All of the picture is no region.
  const vela::picture::Tile window = renderer.window();
  if (window.x0 < 0) add("--overscan", std::to_string(-window.x0));
  if (region.width() < window.width() || region.height() < window.height())
    add("--region", std::to_string(region.x0) + "," + std::to_string(region.y0) + "," +
                        std::to_string(region.x1 - 1) + "," + std::to_string(region.y1 - 1));
  if (!std::isnan(scene.time)) add("--time", toText(scene.time));
  for (const std::string& type : sorted(scene.includedTypes)) add("--include-type", type);
  for (const std::string& path : sorted(scene.excludedPaths)) add("--exclude", path);
  for (const std::string& path : sorted(scene.maskPaths)) add("--mask", path);
  std::vector<std::string> variants;
  for (const ovo::VariantChoice& choice : scene.variants)
    variants.push_back(choice.prim.asString() + ":" + choice.set.asString() + "=" +
                       choice.name.asString());
  for (const std::string& choice : sorted(variants)) add("--variant", choice);
  if (scene.turn) add("--turn", toText(*scene.turn));
  add("--purpose", purposesOf(scene));
  if (scene.withInvisible) words.emplace_back("--invisible");
  if (scene.subdivisionLevel > 0) add("--subdivide", std::to_string(scene.subdivisionLevel));
  if (scene.smooth) words.emplace_back("--smooth");
  if (scene.engine == vela::scene::CasterKind::hitDetector) add("--engine", "hit-detector");
  if (!options.materials)
    add("--material-purpose", "none");
  else if (scene.materialPurpose == vela::scene::MaterialPurpose::preview)
    add("--material-purpose", "preview");
  // Of a scene without lights the picture is the same whatever they say.
  if (!renderer.lights().lights.empty()) {
    using vela::picture::LightChoice;
    const bool isOwn = options.lights == LightChoice::own;
    if (options.lights != LightChoice::scene) add("--lights", isOwn ? "own" : "both");
    if (!isOwn && options.bounces != RenderOptions().bounces)
      add("--bounces", std::to_string(options.bounces));
  }
  if (options.textureMemory != RenderOptions().textureMemory)
    add("--texture-memory", std::to_string(options.textureMemory));
  const int grid = std::max(1, static_cast<int>(std::lround(std::sqrt(options.samples))));
  add("--samples", std::to_string(grid * grid));
  if (!view.clippingPlanes.empty()) words.emplace_back("--clip");
  // A single sample is of one moment, through the middle of the lens.
  if (grid > 1 && view.lensRadius > 0.0) words.emplace_back("--dof");
  if (grid > 1 && !renderer.moments().empty()) {
    words.emplace_back("--motion");
    if (options.motionSteps != RenderOptions().motionSteps)
      add("--motion-steps", std::to_string(options.motionSteps));
  }
  if (options.pattern == vela::picture::SamplePattern::regular) add("--pattern", "regular");
  if (options.files.halfColour) words.emplace_back("--half");
  add("--compression",
      vela::picture::compressionNames()[static_cast<std::size_t>(options.files.compression)]);
  return words;
}

// Empty for none.
std::string textOf(const std::optional<vela::Selection::GeoSelection>& selection) {
  std::ostringstream text;
  if (selection) selection->serialize(text);
  return text.str();
}

// The file of that name in the current folder, else in the picture's; the name alone when there is
// none.
std::string findScene(const std::string& name, const std::string& picture) {
  const fs::path beside = fs::path(picture).parent_path() / name;
  std::error_code none;
  if (!fs::exists(name, none) && fs::exists(beside, none)) return beside.string();
  return name;
}

}  // namespace

void recordPicture(const RenderOptions& options, const vela::picture::PictureRenderer& renderer,
                   const std::optional<vela::Selection::GeoSelection>& selection,
                   const vela::picture::Tile& region, Picture& picture) {
  picture.attributes.push_back({kScene, fs::path(options.scene.file).filename().string()});
  picture.attributes.push_back({kOptions, joinWords(wordsOf(options, renderer, region))});
  if (selection) picture.attributes.push_back({kSelection, textOf(selection)});
}

void recordLayers(const std::vector<std::string>& layers, Picture& picture) {
  for (vela::picture::Attribute& attribute : picture.attributes)
    if (attribute.name == kOptions)
      std::get<std::string>(attribute.value) += " " + joinWords({"--layers", commaList(layers)});
}

std::string whyNoPart(const RenderOptions& options, const vela::picture::PictureRenderer& renderer,
                      const std::optional<vela::Selection::GeoSelection>& selection,
                      const std::string& file) {
  std::string why;
  const auto text = vela::picture::readExrText(file, kOptions, &why);
  if (!text) return why;
  const auto software = vela::picture::readExrText(file, "software");
  const std::string self = std::string("vela ") + vela::version();
  if (software.value_or("") != self)
    return "it was made by " + software.value_or("another program") + ", and this is " + self;
  const auto essence = [](const std::vector<std::string>& words) {
    std::vector<std::string> kept;
    for (std::size_t i = 0; i < words.size(); ++i) {
      if (words[i] == "--half") continue;
      if (words[i] == "--region" || words[i] == "--compression" || words[i] == "--layers")
        ++i;
      else
        kept.push_back(words[i]);
    }
    return joinWords(kept);
  };
  const std::vector<std::string> words = splitWords(*text);
  const auto compression = std::find(words.begin(), words.end(), "--compression");
  const bool isLossy =
      compression != words.end() && compression + 1 != words.end() &&
      vela::picture::findCompression(compression[1]) >= vela::picture::Compression::pxr24;
  if (isLossy || std::find(words.begin(), words.end(), "--half") != words.end())
    return "its colours are rounded";
  const std::string mine = essence(wordsOf(options, renderer, renderer.window()));
  const std::string its = essence(words);
  if (its != mine) return "it was made with " + its + ", and this is " + mine;
  const std::string scene = fs::path(options.scene.file).filename().string();
  const std::string itsScene = vela::picture::readExrText(file, kScene).value_or("");
  if (itsScene != scene) return "it is of the scene " + itsScene + ", and this is " + scene;
  if (vela::picture::readExrText(file, kSelection).value_or("") != textOf(selection))
    return "another selection is tinted in it";
  return "";
}

PictureRecord readRecord(const std::string& picture) {
  noteInput(picture);
  std::string why;
  const auto options = vela::picture::readExrText(picture, kOptions, &why);
  const auto scene = vela::picture::readExrText(picture, kScene, &why);
  if (!options || !scene) throw failure(Message::noRecord, {picture, why});
  PictureRecord record;
  record.file = picture;
  record.scene = findScene(*scene, picture);
  record.selection = vela::picture::readExrText(picture, kSelection).value_or("");
  record.options = splitWords(*options);
  record.software = vela::picture::readExrText(picture, "software").value_or("");
  return record;
}

void completeLike(Arguments& arguments, RenderOptions& options) {
  const PictureRecord record = readRecord(arguments.text("--like"));
  std::vector<std::string> words = record.options;
  words.insert(words.end(), {"--", record.scene});
  std::vector<char*> pointers;
  pointers.reserve(words.size() + 1);
  for (std::string& word : words) pointers.push_back(word.data());
  Arguments like(*findVerb("render"));
  try {
    like.read(static_cast<int>(pointers.size()), pointers.data());
  } catch (const Failure& failed) {
    throw failure(Message::noRecord, {record.file, describe(failed)});
  }
  std::error_code none;
  if (!arguments.has("FILE") && !fs::exists(record.scene, none))
    throw failure(Message::noSceneOfRecord, {record.scene, record.file});
  // Frames take the place of the picture's own.
  if (arguments.has("--frames")) like.remove("--time");
  // A selection that is given takes the place of the picture's.
  if (!arguments.has("--selection")) options.likeSelection = record.selection;
  options.likeOptions = joinWords(record.options);
  const std::string self = std::string("vela ") + vela::version();
  if (record.software != self)
    say(Notice::note, record.file + " was made by " +
                          (record.software.empty() ? "something else" : record.software) + ": " +
                          self + " may make other bytes");
  arguments.addMissing(like);
}

bool hasChanged(const std::string& made, const std::string& like) {
  using vela::picture::readExrText;
  for (const char* name : {kScene, kOptions, kSelection, "software", "versions"})
    if (readExrText(made, name) != readExrText(like, name)) return false;
  for (const vela::picture::LayerGroup& group : vela::picture::layerGroups())
    for (const std::string& file : {made, like})
      if (readExrText(file, vela::picture::cryptomatteAttribute(group.name, "manif_file")))
        return false;
  std::ifstream one(made, std::ios::binary), other(like, std::ios::binary);
  using Bytes = std::istreambuf_iterator<char>;
  return !std::equal(Bytes(one), Bytes(), Bytes(other), Bytes());
}

std::string joinWords(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) {
    if (!text.empty()) text += ' ';
    const bool isPlain = !word.empty() && word.find_first_not_of(
                                              "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUV"
                                              "WXYZ0123456789-_./,:=+@%") == std::string::npos;
    if (isPlain) {
      text += word;
      continue;
    }
    // Nothing is special in single quotes but their end.
    text += '\'';
    for (const char c : word) text += c == '\'' ? std::string("'\\''") : std::string(1, c);
    text += '\'';
  }
  return text;
}

std::vector<std::string> splitWords(const std::string& text) {
  std::vector<std::string> words;
  bool isInWord = false, isQuoted = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (!isQuoted && c == ' ') {
      isInWord = false;
      continue;
    }
    if (!isInWord) words.emplace_back();
    isInWord = true;
    if (c == '\'')
      isQuoted = !isQuoted;
    else if (!isQuoted && c == '\\' && i + 1 < text.size())
      words.back() += text[++i];
    else
      words.back() += c;
  }
  return words;
}

}  // namespace command
