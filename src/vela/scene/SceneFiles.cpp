#include "vela/scene/SceneFiles.h"

#include <unistd.h>

#include <filesystem>
#include <set>
#include <system_error>
#include <utility>

#include "ovo/Attribute.h"
#include "ovo/LayerUses.h"
#include "ovo/PropertyLinks.h"
#include "vela/scene/ScenePrims.h"

namespace vela::scene {

namespace {

using Visit = std::function<void(const std::string& file)>;

constexpr const char* kTileMark = "<UDIM>";

// What a name such as `wood.<UDIM>.png` stands for: tiles 1001 to 1100.
template <class VisitTile>
void forEachTile(const std::string& pattern, const VisitTile& visit) {
  const std::size_t at = pattern.find(kTileMark);
  if (at == std::string::npos) return;
  for (int tile = 1001; tile <= 1100; ++tile) {
    std::string name = pattern;
    name.replace(at, std::string(kTileMark).size(), std::to_string(tile));
    visit(tile, name);
  }
}

// A file in a package is behind the package's own name, in brackets.
std::string plainFile(const std::string& resolved) {
  return resolved.substr(0, resolved.find('['));
}

bool isReadable(const std::string& resolved) {
  return !resolved.empty() && access(plainFile(resolved).c_str(), R_OK) == 0;
}

// Calls visit(links, attribute, file) for each file that an attribute has at any time.
template <class VisitReference>
bool forEachReference(const ovo::Stage& stage, const VisitReference& visit, const Work& work) {
  forEachPrim(
      stage,
      [&](const ovo::Prim& prim) {
        const ovo::PropertyLinks links(prim);
        for (const ovo::Token& name : links.propertyNames()) {
          const ovo::Attribute attribute = prim.getAttr(name);
          if (!attribute.isValid() || attribute.typeName().asString() != "asset") continue;
          ovo::FileReference file;
          if (links.file(name, file)) visit(links, name, file);
          for (const double time : attribute.timeSamples())
            if (links.file(name, file, time)) visit(links, name, file);
        }
        return true;
      },
      work);
  return !work.isStopped();
}

}  // namespace

bool forEachNamedFile(const ovo::Stage& stage, const Visit& visit, const Work& work) {
  return forEachReference(
      stage,
      [&](const ovo::PropertyLinks& prim, const ovo::Token&, const ovo::FileReference& file) {
        if (!file.resolved.empty()) visit(plainFile(file.resolved));
        forEachTile(file.anchored, [&](int, const std::string& name) {
          // Names that do not begin with a dot are found in the folder of the scene, as in
          // pictures.
          const std::string there = prim.resolveFile(name);
          visit(there.empty() ? name : there);
        });
      },
      work);
}

std::optional<std::vector<NamedFile>> namedFiles(const ovo::Stage& stage, const Work& work) {
  std::vector<NamedFile> files;
  for (const ovo::MissingLayer& layer : ovo::missingLayers(stage))
    files.push_back({layer.file, layer.prim.asString(), false, {}});
  // The name alone says nothing: two layers may write the same one and mean different files.
  std::set<std::pair<std::string, std::string>> known;
  const bool isWhole = forEachReference(
      stage,
      [&](const ovo::PropertyLinks& prim, const ovo::Token& attribute,
          const ovo::FileReference& file) {
        if (file.written.empty() || !known.emplace(file.layer, file.anchored).second) return;
        NamedFile named{file.written,
                        prim.getPath().asString() + "." + attribute.asString(),
                        isReadable(file.resolved),
                        {}};
        forEachTile(file.anchored, [&](int tile, const std::string& name) {
          if (isReadable(prim.resolveFile(name))) named.tiles.push_back(tile);
        });
        named.isThere = named.isThere || !named.tiles.empty();
        files.push_back(std::move(named));
      },
      work);
  if (!isWhole) return std::nullopt;
  return files;
}

std::optional<std::vector<std::string>> sceneFiles(const ovo::Stage& stage, const Work& work) {
  std::set<std::string> files;
  const Visit add = [&](const std::string& file) {
    std::error_code none;
    const auto whole = std::filesystem::absolute(file, none).lexically_normal();
    if (std::filesystem::is_regular_file(whole, none)) files.insert(whole.string());
  };
  for (const std::string& layer : stage.layerFiles()) add(layer);
  if (!forEachNamedFile(stage, add, work)) return std::nullopt;
  return std::vector<std::string>(files.begin(), files.end());
}

}  // namespace vela::scene
