#include "vela/scene/SceneSummary.h"

#include <map>
#include <unordered_map>

#include "ovo/PropertyLinks.h"
#include "ovo/Tokens.h"
#include "vela/look/LightSource.h"
#include "vela/scene/LeftOut.h"
#include "vela/scene/SceneExtent.h"
#include "vela/scene/SceneMeshes.h"
#include "vela/scene/ScenePrims.h"

namespace vela::scene {

namespace {

int depthOfPath(const ovo::Path& path) {
  int depth = 0;
  for (const char c : path.asString()) depth += c == '/' ? 1 : 0;
  return depth;
}

// The prims that an entry stands in the tree by: its own, or its outermost instancer's.
ovo::Path placeOf(const MeshList& list, const MeshEntry& entry) {
  ovo::Path place = entry.prim.getPath();
  for (std::uint32_t i = entry.instance; i != kNoInstance; i = list.instances[i].parent)
    place = list.instancers[list.instances[i].instancer].getPath();
  return place;
}

// The box of each shape in its own space; points that are not finite do not count.
std::vector<tarn::Box3d> boxesOfShapes(const MeshList& list) {
  std::vector<tarn::Box3d> boxes;
  for (const Shape& shape : list.shapes) boxes.push_back(boxOf(shape));
  return boxes;
}

class Gatherer {
 public:
  Gatherer(const SummaryOptions& options, SceneSummary& summary)
      : options_(options), summary_(summary) {}

  bool visit(const ovo::Prim& prim) {
    const ovo::Path& path = prim.getPath();
    const int depth = path.asString() == "/" ? 0 : depthOfPath(path);
    if (depth == 0) return true;
    countAbove(path);
    if (depth <= options_.depth) {
      places_.emplace(path, summary_.tree.size());
      summary_.tree.push_back(
          {path, prim.getTypeName().asString(), depth, 0, prim.isInstance(), {}});
    }
    if (prim.isInstance()) ++summary_.instances;
    addVariants(prim);
    addLight(prim);
    addTexture(prim);
    return true;
  }

  // Grows the boxes of all listed prims that the path lies in.
  void addBox(ovo::Path path, const tarn::Box3d& box) {
    for (; !path.isEmpty() && path.asString() != "/"; path = path.parent())
      if (const auto found = places_.find(path); found != places_.end())
        summary_.tree[found->second].box.extendBy(box);
  }

 private:
  void countAbove(const ovo::Path& path) {
    for (ovo::Path at = path.parent(); !at.isEmpty() && at.asString() != "/"; at = at.parent())
      if (const auto found = places_.find(at); found != places_.end())
        ++summary_.tree[found->second].below;
  }

  void addVariants(const ovo::Prim& prim) {
    // What lies below an instance is the same in each of them.
    if (prim.isInstanceProxy()) return;
    for (const ovo::Token& set : prim.getVariantSets()) {
      SceneSummary::VariantSet facts{
          prim.getPath(), set.asString(), prim.getVariantSelection(set).asString(), {}};
      for (const ovo::Token& name : prim.getVariants(set))
        facts.variants.push_back(name.asString());
      summary_.variants.push_back(std::move(facts));
    }
  }

  void addLight(const ovo::Prim& prim) {
    if (isLight(prim))
      summary_.lights.push_back(
          {prim.getPath(), prim.getTypeName().asString(), prim.isVisible(options_.time)});
  }

  void addTexture(const ovo::Prim& prim) {
    ovo::FileReference file;
    if (prim.getTypeName() == ovo::Token("Shader"))
      ovo::PropertyLinks(prim).file(ovo::Token("inputs:file"), file, options_.time);
    else if (const auto light = look::readLight(prim, tarn::Mat4d(), options_.time))
      file = light->texture;
    if (file.written.empty()) return;
    // Two layers may write the same name and mean different files.
    const auto [place, isNew] = textures_.emplace(file.anchored, summary_.textures.size());
    if (isNew) summary_.textures.push_back({file.written, resolve(prim, file), prim.getPath(), 0});
    ++summary_.textures[place->second].uses;
  }

  // Of a set of tiles the first, or one a little further, says whether they are there.
  static std::string resolve(const ovo::Prim& prim, const ovo::FileReference& file) {
    const std::string mark = "<UDIM>";
    const std::size_t at = file.anchored.find(mark);
    if (!file.resolved.empty() || at == std::string::npos) return file.resolved;
    for (int tile = 1001; tile <= 1100; ++tile) {
      std::string name = file.anchored;
      name.replace(at, mark.size(), std::to_string(tile));
      if (!ovo::PropertyLinks(prim).resolveFile(name).empty()) return file.anchored;
    }
    return "";
  }

  const SummaryOptions& options_;
  SceneSummary& summary_;
  std::unordered_map<ovo::Path, std::size_t> places_;
  std::map<std::string, std::size_t> textures_;
};

}  // namespace

std::optional<SceneSummary> summarize(const ovo::Stage& stage, const SummaryOptions& options,
                                      const Work& work) {
  SceneSummary summary;
  Gatherer gatherer(options, summary);
  if (!forEachPrim(
          stage, [&](const ovo::Prim& prim) { return gatherer.visit(prim); }, work))
    return std::nullopt;

  MeshFilter filter;
  filter.time = options.time;
  const std::optional<MeshList> list = listMeshes(stage, filter, nullptr, work);
  if (!list) return std::nullopt;
  summary.box = extentOf(*list, work).box;
  const std::vector<tarn::Box3d> boxes = boxesOfShapes(*list);
  for (const MeshEntry& entry : list->entries) {
    if (work.isStopped()) return std::nullopt;
    const tarn::Box3d& own = boxes[entry.shape];
    if (!own.isEmpty())
      gatherer.addBox(placeOf(*list, entry), own.transformed(entry.worldFromObject));
  }
  std::vector<std::size_t> counts(list->instancers.size());
  for (const Instance& instance : list->instances)
    if (instance.parent == kNoInstance) ++counts[instance.instancer];
  for (std::size_t i = 0; i < counts.size(); ++i)
    if (counts[i] > 0) summary.instancers.push_back({list->instancers[i].getPath(), counts[i]});
  return summary;
}

}  // namespace vela::scene
