#include "vela/asset/AssetInfo.h"

#include <stdexcept>
#include <utility>
#include <variant>

#include "vela/asset/detail/AssetState.h"
#include "vela/asset/detail/OpenAssetIO.h"

namespace vela::asset {
namespace {

using openassetio::hostApi::Manager;
using openassetio::trait::TraitsDataPtr;

constexpr const char* kLocationFailure = "Failed to resolve asset location: ";

/// The location as a file path. Throws for a location that is no text.
bool locationOf(const TraitsDataPtr& data, std::string& path) {
  // Never destroyed, for callers that resolve while the process ends.
  static const auto& converter = *new openassetio::utils::FileUrlPathConverter;

  openassetio::trait::property::Value value;
  if (!data || !data->getTraitProperty(&value, kLocatableContentTrait, "location")) return false;
  const std::string* const url = std::get_if<std::string>(&value);
  if (!url) throw std::runtime_error("Invalid stored value type: should be 'openassetio::Str'.");
  try {
    path = converter.pathFromUrl(*url);
    return true;
  } catch (const openassetio::errors::InputValidationException&) {
    detail::logError("Failed to resolve invalid url: " + *url);
    return false;
  }
}

/// One text's part of a record's hash.
std::uint64_t hashText(std::uint64_t hash, const std::string& text) {
  for (const char c : text) {
    if (c == '\0') break;
    hash = hash * 65599u + static_cast<unsigned char>(c);
  }
  return hash;
}

}  // namespace

// ---- Functions

bool isAssetPath(std::string_view text) {
  const std::shared_ptr<Manager> manager = getManager();
  if (!manager) return false;
  return detail::guarded("Failed to look at an asset reference: ", false,
                         [&] { return manager->isEntityReferenceString(std::string(text)); });
}

std::shared_ptr<openassetio::trait::TraitsData> resolveAsset(
    const std::string& reference, const std::set<std::string>& traitSet) {
  const std::shared_ptr<Manager> manager = getManager();
  if (!manager || traitSet.empty()) return nullptr;

  return detail::guarded("Failed to resolve asset: ", TraitsDataPtr(), [&]() -> TraitsDataPtr {
    if (!manager->hasCapability(Manager::Capability::kResolution)) return nullptr;
    const auto entityReference = manager->createEntityReferenceIfValid(reference);
    if (!entityReference) return nullptr;

    // KEEP(asset-cache-key): nothing stands between the parts. Trait ids begin with their package's
    // name, so questions that hosts really ask never run together.
    std::string key = reference;
    for (const std::string& trait : traitSet) key += trait;
    TraitsDataPtr data;
    if (detail::findResolved(key, data)) return data;

    data = manager->resolve(*entityReference, traitSet, openassetio::access::ResolveAccess::kRead,
                            detail::contextForCalls());
    detail::storeResolved(key, data);
    return data;
  });
}

bool getAssetLocation(const std::shared_ptr<openassetio::trait::TraitsData>& traitsData,
                      std::string& path) {
  return detail::guarded(kLocationFailure, false, [&] { return locationOf(traitsData, path); });
}

bool resolveAssetLocation(const std::string& url, std::string& path) {
  const bool found = detail::guarded(kLocationFailure, false, [&] {
    return locationOf(resolveAsset(url, {kLocatableContentTrait}), path);
  });
  if (!found && &path != &url) path = url;
  return found;
}

// ---- Records

AssetData::AssetData(std::shared_ptr<openassetio::trait::TraitsData> data)
    : data_(std::move(data)) {}

AssetData::~AssetData() = default;

AssetInfo::AssetInfo(const std::set<std::string>& traits) : traits_(traits) { updateHash(); }

AssetInfo::AssetInfo(const std::string& path, const std::set<std::string>& traits)
    : path_(path), traits_(traits) {
  updateHash();
}

AssetInfo::~AssetInfo() = default;

bool AssetInfo::isAsset(std::string_view text) { return isAssetPath(text); }

bool AssetInfo::resolveLocation(std::string newPath, std::string& out) {
  path_ = std::move(newPath);
  updateHash();

  isAsset_ = isAssetPath(path_);
  if (isAsset_) {
    if (const TraitsDataPtr data = resolveAsset(path_, traits_)) return getAssetLocation(data, out);
  }
  out = path_;
  return false;
}

AssetData AssetInfo::getResolvedData() const { return AssetData(resolveAsset(path_, traits_)); }

void AssetInfo::updateHash() {
  hash_ = hashText(0, path_);
  for (const std::string& trait : traits_) hash_ = hashText(hash_, trait);
}

}  // namespace vela::asset
