#include "vela/selection/GeoSelection.h"

#include <algorithm>

#include "ovo/Prim.h"
#include "ovo/Stage.h"

namespace vela::Selection {
namespace {

// Adds `other` to the first `length` values, which grow only where there is something to add.
void addValues(std::vector<float>& values, const std::vector<float>& other, std::size_t length) {
  const std::size_t count = std::min(length, other.size());
  if (values.size() < count) values.resize(count, 0.0f);
  for (std::size_t i = 0; i < count; ++i) values[i] += other[i];
  // A missing value is added too, as 0: -0 + 0 is 0, and the text shows the sign.
  const std::size_t rest = std::min(length, values.size());
  for (std::size_t i = count; i < rest; ++i) values[i] += 0.0f;
}

}  // namespace

// ---- WeightedPartSelection

void WeightedPartSelection::resize(std::size_t n) {
  selections.resize(n, 0.0f);
  weights.resize(n, 0.0f);
}

void WeightedPartSelection::clear() {
  selections.clear();
  weights.clear();
}

void WeightedPartSelection::clearSelections() {
  std::fill(selections.begin(), selections.end(), 0.0f);
}

void WeightedPartSelection::clearWeights() { std::fill(weights.begin(), weights.end(), 0.0f); }

void WeightedPartSelection::add(const WeightedPartSelection& other) {
  if (size() < other.size()) resize(other.size());
  const std::size_t length = size();
  addValues(selections, other.selections, length);
  addValues(weights, other.weights, length);
}

// ---- GeoSelection: entries

bool GeoSelection::isPathPresent(const ovo::Path& path) const {
  return entries_.find(path) != entries_.end();
}

bool GeoSelection::isObjectSelected(const ovo::Path& path) const {
  const auto entry = entries_.find(path);
  return entry != entries_.end() && entry->second.objectSelected;
}

void GeoSelection::setObjectSelected(const ovo::Path& path, bool selected) {
  // A new entry starts unselected, so one rule serves both cases: only a change of the flag matters
  // to the status.
  GeoObjectSelection& object = entries_[path];
  if (object.objectSelected != selected) setPrimSelectionStatusDirty();
  object.objectSelected = selected;
}

WeightedPartSelection& GeoSelection::getWritablePartSelection(const ovo::Path& path,
                                                              PartType type) {
  return entries_[path].getPartSelection(type);
}

void GeoSelection::addSelection(const GeoSelection& other) {
  for (const auto& [path, added] : other.entries_) {
    const auto entry = entries_.find(path);
    if (entry == entries_.end()) {
      setObjectSelected(path, added.objectSelected);
      entries_[path].parts = added.parts;
      continue;
    }
    GeoObjectSelection& object = entry->second;
    setObjectSelected(path, object.objectSelected || added.objectSelected);
    for (const PartType type : {vertices, faces})
      object.getPartSelection(type).add(added.getPartSelection(type));
  }
}

void GeoSelection::deselect(PartType type) {
  for (auto& [path, object] : entries_) object.getPartSelection(type).clear();
}

void GeoSelection::deleteEmpty() {
  for (auto entry = entries_.begin(); entry != entries_.end();)
    entry = entry->second.isEmpty() ? entries_.erase(entry) : std::next(entry);
}

void GeoSelection::clearValuesOnly() {
  for (auto& [path, object] : entries_) {
    object.objectSelected = false;
    for (WeightedPartSelection& part : object.parts) part.clear();
  }
  primSelectionStatus_.clear();
  primSelectionStatusDirty_ = false;
}

void GeoSelection::clear() {
  entries_.clear();
  primSelectionStatus_.clear();
  primSelectionStatusDirty_ = false;
}

// ---- GeoSelection: status

void GeoSelection::setPrimSelectionStatusDirty() {
  primSelectionStatusDirty_ = true;
  primSelectionStatus_.clear();
}

void GeoSelection::updatePrimSelectionStatus(const std::shared_ptr<ovo::Stage>& stage) {
  if (!stage || !primSelectionStatusDirty_) return;
  primSelectionStatus_.clear();

  // The selected objects themselves, whether the stage has them or not.
  std::vector<ovo::Path> paths;
  for (const auto& [path, object] : entries_) {
    if (!object.objectSelected) continue;
    paths.push_back(path);
    primSelectionStatus_[path] = selected;
  }

  // What lies below them. emplace leaves those that are selected themselves.
  std::vector<ovo::Prim> below;
  stage->findDescendentPrims(paths, below);
  for (const ovo::Prim& prim : below) primSelectionStatus_.emplace(prim.getPath(), descendant);

  primSelectionStatusDirty_ = false;
}

PrimSelectionStatus GeoSelection::getPrimSelectionStatus(const ovo::Path& path) const {
  if (primSelectionStatusDirty_) return notSelected;
  const auto status = primSelectionStatus_.find(path);
  return status == primSelectionStatus_.end() ? notSelected : status->second;
}

// ---- GlobalGeoSelection

GlobalGeoSelection& GlobalGeoSelection::GetInstance() {
  static GlobalGeoSelection instance;
  return instance;
}

}  // namespace vela::Selection
