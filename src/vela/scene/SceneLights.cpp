#include "vela/scene/SceneLights.h"

#include <algorithm>

#include "ovo/PropertyLinks.h"
#include "ovo/Tokens.h"
#include "ovo/Xform.h"
#include "vela/scene/ScenePrims.h"
#include "vela/scene/detail/BindingTable.h"

namespace vela::scene {

namespace {

// What collections know an entry by.
ovo::Path pathOf(const MeshList& list, const MeshEntry& entry) {
  ovo::Path path = entry.prim.getPath();
  for (std::uint32_t i = entry.instance; i != kNoInstance; i = list.instances[i].parent) {
    const ovo::Path& instancer = list.instancers[list.instances[i].instancer].getPath();
    if (!path.hasPrefix(instancer)) path = instancer;
  }
  return path;
}

// Reads the collections of lights.
class Linker {
 public:
  Linker(const ovo::Stage& stage, const MeshList& list)
      : list_(list), table_(stage, MaterialPurpose::all) {}

  // The entries that a collection of the light has; null for all.
  std::shared_ptr<const std::vector<bool>> members(const ovo::Prim& light, const char* name) {
    const std::string prefix = std::string("collection:") + name + ":";
    if (ovo::PropertyLinks(light).propertyNames(prefix).empty()) return nullptr;
    const auto collection =
        table_.collectionAt(ovo::Path(light.getPath().asString() + ".collection:" + name));
    if (paths_.empty())
      for (const MeshEntry& entry : list_.entries) paths_.push_back(pathOf(list_, entry));
    auto found = std::make_shared<std::vector<bool>>();
    found->reserve(paths_.size());
    for (const ovo::Path& path : paths_) found->push_back(collection->has(path));
    const bool isAll = std::all_of(found->begin(), found->end(), [](bool has) { return has; });
    return isAll ? nullptr : found;
  }

  [[nodiscard]] const std::vector<std::string>& unreadable() const { return table_.unreadable(); }

 private:
  const MeshList& list_;
  detail::BindingTable table_;
  std::vector<ovo::Path> paths_;  // of each entry; read when the first light asks
};

}  // namespace

bool isShownLight(const ovo::Prim& prim) {
  if (!look::lightKindOf(prim)) return false;
  for (ovo::Prim at = prim.parent(); at.isValid(); at = at.parent())
    if (at.getTypeName() == ovo::tokens().PointInstancer) return false;
  return true;
}

SceneLights listLights(const ovo::Stage& stage, const MeshList& list, const MeshFilter& filter,
                       const Work& work) {
  SceneLights out;
  ovo::XformCache xforms(filter.time);
  Linker linker(stage, list);
  const auto add = [&](const std::string& subject, const std::string& reason) {
    out.problems.push_back({Problem::Kind::changedLight, Problem::Severity::note, subject, reason});
  };
  forEachPrim(
      stage,
      [&](const ovo::Prim& prim) {
        const auto& excluded = filter.excludedPaths;
        if (std::any_of(excluded.begin(), excluded.end(),
                        [&](const ovo::Path& path) { return prim.getPath().hasPrefix(path); }))
          return false;
        // What lies below an instancer are its prototypes.
        if (prim.getTypeName() == ovo::tokens().PointInstancer) return false;
        if (!look::lightKindOf(prim) || (!filter.withInvisible && !prim.isVisible(filter.time)))
          return true;
        SceneLight light;
        light.prim = prim;
        light.source = look::readLight(prim, xforms.getLocalToWorld(prim), filter.time).value();
        light.lit = linker.members(prim, "lightLink");
        light.casting = linker.members(prim, "shadowLink");
        for (const std::string& defect : light.source.defects)
          add(prim.getPath().asString(), defect);
        out.lights.push_back(std::move(light));
        return true;
      },
      work);
  for (const std::string& collection : linker.unreadable())
    add(collection, "its expression, or a collection that it names, cannot be read");
  return out;
}

}  // namespace vela::scene
