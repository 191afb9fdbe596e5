#include "SeenFiles.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <set>
#include <utility>

#include <nlohmann/json.hpp>

#include "Interrupt.h"
#include "Messages.h"
#include "vela/scene/SceneFiles.h"

namespace command {

namespace {

using Json = nlohmann::json;
namespace fs = std::filesystem;
using vela::scene::NamedFile;

std::vector<NamedFile> namedFilesOf(const ovo::Stage& stage) {
  std::optional<std::vector<NamedFile>> files = vela::scene::namedFiles(stage, interruptibleWork());
  if (!files) throw Interrupted{};
  return *std::move(files);
}

// JSON of a text: ASCII, with what is no UTF-8 replaced, so that equal names are equal texts.
std::string asJson(const Json& json) {
  return json.dump(-1, ' ', true, Json::error_handler_t::replace);
}

// A file by what names it. Where a layer is looked for begins with a folder of the machine's own:
// from the scene's folder on it is the same everywhere, and elsewhere its name has to do.
std::string keyOf(const NamedFile& file, const fs::path& sceneFolder) {
  std::string name = file.name;
  const bool isLayer = file.by.find('.') == std::string::npos;
  if (isLayer && fs::path(name).is_absolute()) {
    const fs::path relative = fs::path(name).lexically_relative(sceneFolder);
    const bool isBelow = !relative.empty() && *relative.begin() != "..";
    name = isBelow ? relative.generic_string() : fs::path(name).filename().string();
  }
  return asJson(file.by + " " + name);
}

fs::path folderOf(const std::string& file) {
  return fs::absolute(file).lexically_normal().parent_path();
}

// What another machine did not see, and the tiles that it saw.
struct SeenList {
  std::set<std::string> missing;
  std::map<std::string, std::vector<int>> tiles;
};

SeenList readList(const std::string& file) {
  SeenList list;
  std::ifstream in(file, std::ios::binary);
  const Json json = Json::parse(in, nullptr, false);
  try {
    for (const Json& key : json.at("missing")) list.missing.insert(asJson(key));
    for (const Json& set : json.at("tiles"))
      list.tiles.emplace(asJson(set.at("by")), set.at("seen").get<std::vector<int>>());
  } catch (const Json::exception&) {
    throw failure(Message::badForm, {"--seen", file, "a list that vela submit made",
                                     "the file of that name in the job"});
  }
  return list;
}

std::string tileName(std::string pattern, int tile) {
  const std::string mark = "<UDIM>";
  if (const std::size_t at = pattern.find(mark); at != std::string::npos)
    pattern.replace(at, mark.size(), std::to_string(tile));
  return pattern;
}

}  // namespace

std::string seenFiles(const ovo::Stage& stage, const std::string& file) {
  const fs::path folder = folderOf(file);
  Json list = {{"missing", Json::array()}, {"tiles", Json::array()}};
  for (const NamedFile& named : namedFilesOf(stage)) {
    const Json key = Json::parse(keyOf(named, folder));
    if (!named.isThere) list["missing"].push_back(key);
    if (!named.tiles.empty()) list["tiles"].push_back({{"by", key}, {"seen", named.tiles}});
  }
  // Lines, so that no two braces of JSON's own stand side by side: templates have names in those.
  const std::string text = list.dump(1, ' ', true, Json::error_handler_t::replace);
  std::string safe;
  bool isText = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '"') isText = !isText;
    if (isText && text[i] == '\\') {
      safe.append(text, i++, 2);
      continue;
    }
    if (isText && (text[i] == '{' || text[i] == '}'))
      safe += text[i] == '{' ? "\\u007b" : "\\u007d";
    else
      safe += text[i];
  }
  return safe + "\n";
}

std::vector<Lack> findLacks(const ovo::Stage& stage, const std::string& file,
                            const std::string& listFile) {
  const SeenList seen = listFile.empty() ? SeenList() : readList(listFile);
  const fs::path folder = folderOf(file);
  std::vector<Lack> lacks;
  for (const NamedFile& named : namedFilesOf(stage)) {
    const std::string key = keyOf(named, folder);
    if (!named.isThere && seen.missing.count(key) == 0) lacks.push_back({named.name, named.by});
    if (!named.isThere) continue;
    const auto tiles = seen.tiles.find(key);
    if (tiles == seen.tiles.end()) continue;
    for (const int tile : tiles->second)
      if (!std::binary_search(named.tiles.begin(), named.tiles.end(), tile))
        lacks.push_back({tileName(named.name, tile), named.by});
  }
  return lacks;
}

}  // namespace command
