#include "vela/picture/detail/Mattes.h"

#include <algorithm>
#include <unordered_map>
#include <unordered_set>

#include "ovo/Path.h"
#include "vela/picture/Cryptomatte.h"
#include "vela/picture/LayerTable.h"

namespace vela::picture::detail {

namespace {

bool isModel(const ovo::Prim& prim) {
  const std::string kind = prim.kind().asString();
  return kind == "component" || kind == "group" || kind == "assembly";
}

// The name of the nearest model at or above a prim, else that of the scene's top prim above it.
std::string assetOf(ovo::Prim prim) {
  for (;;) {
    const ovo::Prim above = prim.parent();
    const bool isTop = !above.isValid() || above.getPath().asString() == "/";
    if (isTop || isModel(prim)) return prim.getName().asString();
    prim = above;
  }
}

}  // namespace

const char* matteName(MatteKind kind) {
  switch (kind) {
    case MatteKind::object: return "crypto_object";
    case MatteKind::asset: return "crypto_asset";
    case MatteKind::material: return "crypto_material";
  }
  return "";
}

const char* matteHelp(MatteKind kind) {
  switch (kind) {
    case MatteKind::object:
      return "(Cryptomatte by path, instances with their numbers: ids and shares of the pixel)";
    case MatteKind::asset: return "(Cryptomatte by the model above, else the top prim)";
    case MatteKind::material: return "(Cryptomatte by the material's path)";
  }
  return "";
}

bool hasMatte(const LayerChoice& layers, MatteKind kind) {
  for (const LayerGroup& group : layerGroups())
    if (group.name == matteName(kind))
      return std::any_of(group.layers.begin(), group.layers.end(),
                         [&](const std::string& layer) { return layers.has(layer); });
  return false;
}

Mattes::Mattes(const scene::MeshList& meshes, const scene::SceneMaterials* materials,
               const LayerChoice& layers, std::vector<scene::Problem>& problems)
    : meshes_(meshes), materials_(materials) {
  for (const MatteKind kind : kAllMattes)
    if (hasMatte(layers, kind)) makeIds(kind, problems);
}

std::uint32_t Mattes::idOf(MatteKind kind, const scene::SurfaceHit& hit) const {
  if (kind != MatteKind::material) return ids_[at(kind)][hit.entry];
  const std::uint32_t material =
      materials_->entries[hit.entry].of(meshes_.shapeOf(hit.entry).sceneFace(hit.face));
  return material == scene::kNoMaterial ? 0 : ids_[at(kind)][material];
}

std::size_t Mattes::countOf(MatteKind kind) const {
  return kind == MatteKind::material ? materials_->materials.size() : meshes_.entries.size();
}

std::string Mattes::nameOf(MatteKind kind, std::size_t index) const {
  switch (kind) {
    case MatteKind::object: return scene::nameOf(meshes_, index);
    case MatteKind::asset: return assetOf(meshes_.entries[index].prim);
    case MatteKind::material: return materials_->materials[index].getPath().asString();
  }
  return {};
}

void Mattes::makeIds(MatteKind kind, std::vector<scene::Problem>& problems) {
  has_[at(kind)] = true;
  std::vector<std::uint32_t>& ids = ids_[at(kind)];
  std::unordered_map<std::uint32_t, std::size_t> firstOf;  // index by id
  std::unordered_map<ovo::Path, std::uint32_t> idOfPrim;  // of assets: instances share their prim's
  ids.reserve(countOf(kind));
  scene::Problem shared;
  shared.kind = scene::Problem::Kind::sharedId;
  shared.severity = scene::Problem::Severity::note;
  shared.count = 0;
  for (std::size_t i = 0; i < countOf(kind); ++i) {
    if (kind == MatteKind::asset) {
      const auto known = idOfPrim.find(meshes_.entries[i].prim.getPath());
      if (known != idOfPrim.end()) {
        ids.push_back(known->second);
        continue;
      }
    }
    const std::string name = nameOf(kind, i);
    ids.push_back(cryptomatteId(name));
    if (kind == MatteKind::asset) idOfPrim.emplace(meshes_.entries[i].prim.getPath(), ids.back());
    const auto [first, isNew] = firstOf.emplace(ids.back(), i);
    if (isNew) continue;
    const std::string other = nameOf(kind, first->second);
    if (other == name) continue;
    if (shared.count++ > 0) continue;
    shared.subject = matteName(kind);
    shared.reason = name + " has the id of " + other + ": mattes cannot tell them apart";
  }
  if (shared.count > 0) problems.push_back(shared);
}

std::vector<std::pair<std::string, std::uint32_t>> Mattes::namesOf(
    MatteKind kind, const std::vector<std::uint32_t>& shown) const {
  std::vector<std::pair<std::string, std::uint32_t>> names;
  std::unordered_set<std::string> seen;
  std::unordered_set<ovo::Path> seenPrims;
  for (std::size_t i = 0; i < ids_[at(kind)].size(); ++i) {
    const std::uint32_t id = ids_[at(kind)][i];
    if (!std::binary_search(shown.begin(), shown.end(), id)) continue;
    if (kind == MatteKind::asset && !seenPrims.insert(meshes_.entries[i].prim.getPath()).second)
      continue;
    std::string name = nameOf(kind, i);
    if (seen.insert(name).second) names.emplace_back(std::move(name), id);
  }
  return names;
}

void PixelCoverage::count(const Mattes& mattes, const scene::SurfaceHit* hits,
                          std::size_t samples) {
  for (const MatteKind kind : kAllMattes)
    if (mattes.has(kind)) countMatte(kind, mattes, hits, samples);
}

void PixelCoverage::countMatte(MatteKind kind, const Mattes& mattes, const scene::SurfaceHit* hits,
                               std::size_t samples) {
  ids_.clear();
  for (std::size_t s = 0; s < samples; ++s)
    if (hits[s].hit)
      if (const std::uint32_t id = mattes.idOf(kind, hits[s]); id != 0) ids_.push_back(id);
  std::sort(ids_.begin(), ids_.end());
  coverers_.clear();
  for (const std::uint32_t id : ids_) {
    if (coverers_.empty() || coverers_.back().second != id) coverers_.emplace_back(0, id);
    ++coverers_.back().first;
  }
  // Ids ascend already, and stay so among equal shares.
  std::stable_sort(coverers_.begin(), coverers_.end(),
                   [](const auto& a, const auto& b) { return a.first > b.first; });

  auto& ranks = ranks_[static_cast<std::size_t>(kind)];
  ranks = {};
  for (std::size_t i = 0; i < std::min(coverers_.size(), ranks.size()); ++i)
    ranks[i] = {coverers_[i].second,
                static_cast<float>(coverers_[i].first) / static_cast<float>(samples)};
}

}  // namespace vela::picture::detail
