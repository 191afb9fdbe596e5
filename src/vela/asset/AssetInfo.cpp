#include "vela/asset/AssetInfo.h"

#include <utility>

#include "vela/asset/detail/AssetState.h"
#include "vela/asset/detail/OpenAssetIOCalls.h"

namespace vela::asset {
namespace {

using detail::ManagerPtr;
using detail::TraitsDataPtr;

constexpr const char* kLocationFailure = "Failed to resolve asset location: ";
constexpr const char* kNoManager = "no asset manager is installed";
constexpr const char* kNoReference = "the asset manager knows no references of this kind";
constexpr const char* kNoLocation = "the asset manager has no location for it";

// The location as a file path. Throws for a location that is no text.
bool locationOf(const TraitsDataPtr& data, std::string& path, AssetMessage* error) {
  std::string text;
  const auto kind =
      data ? detail::openAssetIO().locationOf(*data, text) : detail::LocationKind::kNone;
  switch (kind) {
    case detail::LocationKind::kPath: path = std::move(text); return true;
    case detail::LocationKind::kBadUrl:
      detail::tellError(error, "Failed to resolve ", "invalid url: " + text);
      return false;
    case detail::LocationKind::kNone: break;
  }
  detail::tellQuietly(error, kNoLocation);
  return false;
}

// One text's part of a record's hash.
std::uint64_t hashText(std::uint64_t hash, const std::string& text) {
  for (const char c : text) {
    if (c == '\0') break;
    hash = hash * 65599u + static_cast<unsigned char>(c);
  }
  return hash;
}

}  // namespace

// ---- Functions

bool isAssetPath(std::string_view text) { return isAssetPath(text, nullptr); }

bool isAssetPath(std::string_view text, AssetMessage* error) {
  if (error) *error = {};
  const ManagerPtr manager = getManager();
  if (!manager) {
    detail::tellQuietly(error, kNoManager);
    return false;
  }
  return detail::guarded(error, "Failed to look at an asset reference: ", false, [&] {
    const bool isReference = detail::openAssetIO().isReference(*manager, std::string(text));
    if (!isReference) detail::tellQuietly(error, kNoReference);
    return isReference;
  });
}

std::shared_ptr<openassetio::trait::TraitsData> resolveAsset(
    const std::string& reference, const std::set<std::string>& traitSet) {
  return resolveAsset(reference, traitSet, nullptr);
}

std::shared_ptr<openassetio::trait::TraitsData> resolveAsset(const std::string& reference,
                                                             const std::set<std::string>& traitSet,
                                                             AssetMessage* error) {
  if (error) *error = {};
  const auto nothing = [&](const char* reason) -> TraitsDataPtr {
    detail::tellQuietly(error, reason);
    return nullptr;
  };
  const ManagerPtr manager = getManager();
  if (!manager) return nothing(kNoManager);
  if (traitSet.empty()) return nothing("no traits are asked for");

  const auto ask = [&]() -> TraitsDataPtr {
    const detail::OpenAssetIOCalls& calls = detail::openAssetIO();
    if (!calls.canResolve(*manager))
      return nothing("the asset manager does not resolve references");
    const auto entityReference = calls.makeReference(*manager, reference);
    if (!entityReference) return nothing(kNoReference);

    // KEEP(asset-cache-key): nothing stands between the parts. Trait ids begin with their package's
    // name, so questions that hosts really ask never run together.
    std::string key = reference;
    for (const std::string& trait : traitSet) key += trait;
    TraitsDataPtr data;
    if (!detail::findResolved(key, data)) {
      data = calls.resolve(*manager, entityReference.get(), traitSet, detail::contextForCalls());
      detail::storeResolved(key, data);
    }
    return data ? data : nothing("the asset manager has no data for it");
  };
  return detail::guarded(error, "Failed to resolve asset: ", TraitsDataPtr(), ask);
}

bool getAssetLocation(const std::shared_ptr<openassetio::trait::TraitsData>& traitsData,
                      std::string& path) {
  return getAssetLocation(traitsData, path, nullptr);
}

bool getAssetLocation(const std::shared_ptr<openassetio::trait::TraitsData>& traitsData,
                      std::string& path, AssetMessage* error) {
  if (error) *error = {};
  return detail::guarded(error, kLocationFailure, false,
                         [&] { return locationOf(traitsData, path, error); });
}

bool resolveAssetLocation(const std::string& url, std::string& path) {
  return resolveAssetLocation(url, path, nullptr);
}

bool resolveAssetLocation(const std::string& url, std::string& path, AssetMessage* error) {
  const TraitsDataPtr data = resolveAsset(url, {kLocatableContentTrait}, error);
  const bool isFound = data && getAssetLocation(data, path, error);
  if (!isFound && &path != &url) path = url;
  return isFound;
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
