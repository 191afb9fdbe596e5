#include "vela/scene/SceneFiles.h"

#include <filesystem>
#include <set>
#include <system_error>

#include "ovo/Attribute.h"
#include "ovo/PropertyLinks.h"
#include "vela/scene/ScenePrims.h"

namespace vela::scene {

namespace {

using Visit = std::function<void(const std::string& file)>;

// What a name such as `wood.<UDIM>.png` stands for: tiles 1001 to 1100.
void forEachTexturePatch(const ovo::PropertyLinks& prim, const std::string& pattern,
                         const Visit& visit) {
  constexpr const char* kMark = "<UDIM>";
  const std::size_t at = pattern.find(kMark);
  if (at == std::string::npos) return;
  for (int tile = 1001; tile <= 1100; ++tile) {
    std::string name = pattern;
    name.replace(at, std::string(kMark).size(), std::to_string(tile));
    // Names that do not begin with a dot are found in the folder of the scene, as in pictures.
    const std::string there = prim.resolveFile(name);
    visit(there.empty() ? name : there);
  }
}

void visitFile(const ovo::PropertyLinks& prim, const ovo::Token& attribute, double time,
               const Visit& visit) {
  ovo::FileReference file;
  if (!prim.file(attribute, file, time)) return;
  // A file in a package is behind the package's own name, in brackets.
  if (!file.resolved.empty()) visit(file.resolved.substr(0, file.resolved.find('[')));
  forEachTexturePatch(prim, file.anchored, visit);
}

}  // namespace

bool forEachNamedFile(const ovo::Stage& stage, const Visit& visit, const Work& work) {
  forEachPrim(
      stage,
      [&](const ovo::Prim& prim) {
        const ovo::PropertyLinks links(prim);
        for (const ovo::Token& name : links.propertyNames()) {
          const ovo::Attribute attribute = prim.getAttr(name);
          if (!attribute.isValid() || attribute.typeName().asString() != "asset") continue;
          visitFile(links, name, tarn::defaultTimeValue(), visit);
          for (const double time : attribute.timeSamples()) visitFile(links, name, time, visit);
        }
        return true;
      },
      work);
  return !work.isStopped();
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
