/// \file
/// What a path-like text stands for: whether it is an asset reference, what it resolves to, and
/// which file that is.
///
/// A reference that cannot be resolved serves as a plain file path: the functions that give a path
/// always give one. Nothing throws but allocation; failures are in the log, as errors of the
/// sub-system "Asset System", unless the caller asks for them (AssetMessage).
///
/// Threads: as AssetManager.h. Two threads that are first to resolve a reference may both ask the
/// manager. Records are values: different ones may be used from different threads at once.
///
/// \code
///   // While no manager is installed nothing is a reference, and a path stays a path.
///   const std::set<std::string> traits{vela::asset::kLocatableContentTrait};
///   vela::asset::AssetInfo scene(traits);
///   std::string file;
///   const bool isAsset = scene.resolveLocation("examples/demo/demo.usda", file);
///   assert(!isAsset && file == "examples/demo/demo.usda");
///
///   const vela::asset::AssetData data = scene.getResolvedData();
///   assert(!data.isValid());
/// \endcode
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <string_view>

#include "vela/Api.h"
#include "vela/asset/AssetManager.h"

namespace vela::asset {

/// The trait whose `location` says where an asset's file is.
inline constexpr const char* kLocatableContentTrait =
    "openassetio-mediacreation:content.LocatableContent";

// ---- Functions

/// Whether the installed manager takes a text for one of its references; false without a manager.
[[nodiscard]] VELA_API bool isAssetPath(std::string_view text);
/// The same, saying why not; see AssetMessage.
[[nodiscard]] VELA_API bool isAssetPath(std::string_view text, AssetMessage* error);

/// What the manager knows of an asset.
/// \param traitSet  the trait ids that are asked for
/// \return null without a manager, with an empty set, for a manager that does not resolve and for a
///         text that is no reference (all silently), and when the manager fails. Every answer is
///         kept until clearCache()
[[nodiscard]] VELA_API std::shared_ptr<openassetio::v1::trait::TraitsData> resolveAsset(
    const std::string& reference, const std::set<std::string>& traitSet);
/// The same, saying why there is nothing; see AssetMessage.
[[nodiscard]] VELA_API std::shared_ptr<openassetio::v1::trait::TraitsData> resolveAsset(
    const std::string& reference, const std::set<std::string>& traitSet, AssetMessage* error);

/// The file path of resolved data.
/// \param path  untouched when false is returned
/// \return false without a location, and when it is no text or no URL of a local file
VELA_API bool getAssetLocation(
    const std::shared_ptr<openassetio::v1::trait::TraitsData>& traitsData, std::string& path);
/// The same, saying why there is none; see AssetMessage.
VELA_API bool getAssetLocation(
    const std::shared_ptr<openassetio::v1::trait::TraitsData>& traitsData, std::string& path,
    AssetMessage* error);

/// From a reference straight to a file path.
/// \param path  on failure: `url` as it is. May be the same string as `url`
VELA_API bool resolveAssetLocation(const std::string& url, std::string& path);
/// The same, saying why there is no file; see AssetMessage.
VELA_API bool resolveAssetLocation(const std::string& url, std::string& path, AssetMessage* error);

// ---- Records

/// Resolved traits of an asset.
class VELA_API AssetData {
 public:
  /// Holds the data; null makes a record that is not valid.
  explicit AssetData(std::shared_ptr<openassetio::v1::trait::TraitsData> data);
  AssetData(const AssetData&) = default;
  AssetData(AssetData&&) = default;
  AssetData& operator=(const AssetData&) = default;
  AssetData& operator=(AssetData&&) = default;
  virtual ~AssetData();

  /// True when there is data.
  [[nodiscard]] bool isValid() const { return data_ != nullptr; }
  /// Shared, not copied; null when not valid.
  [[nodiscard]] std::shared_ptr<openassetio::v1::trait::TraitsData> traitsData() const {
    return data_;
  }

 private:
  std::shared_ptr<openassetio::v1::trait::TraitsData> data_;
};

/// A reference, or plain file path, with the traits to resolve it with. Records are equal when
/// their hashes are.
class VELA_API AssetInfo {
 public:
  /// Hashes a record for unordered containers.
  struct HashFunction {
    /// As AssetInfo::hash().
    std::size_t operator()(const AssetInfo& info) const {
      return static_cast<std::size_t>(info.hash());
    }
  };

  AssetInfo() = default;
  /// A record without a path.
  explicit AssetInfo(const std::set<std::string>& traits);
  /// A reference, or a plain path; nothing is resolved yet.
  AssetInfo(const std::string& path, const std::set<std::string>& traits);
  AssetInfo(const AssetInfo&) = default;
  AssetInfo(AssetInfo&&) = default;
  AssetInfo& operator=(const AssetInfo&) = default;
  AssetInfo& operator=(AssetInfo&&) = default;
  virtual ~AssetInfo();

  /// As it was given last, to the constructor or to resolveLocation(); may be empty.
  [[nodiscard]] std::string path() const { return path_; }
  /// The ids of the traits that are asked for.
  [[nodiscard]] const std::set<std::string>& traits() const { return traits_; }

  /// Over the bytes of the path and then of each trait in ascending order, each text up to its
  /// first zero byte: h = h * 65599 + byte, from 0, in 64 bits. The same on every platform.
  [[nodiscard]] std::uint64_t hash() const { return hash_; }

  /// What the last resolveLocation found; false before it.
  [[nodiscard]] bool isAsset() const { return isAsset_; }
  /// As isAssetPath.
  [[nodiscard]] static bool isAsset(std::string_view text);

  /// Takes a new path and finds its file.
  /// \param out  the file path of the asset; for a plain path, and when the manager gives no data,
  ///             the new path itself; untouched when there is data but no usable location in it
  /// \return true when the path is a reference with a location
  bool resolveLocation(std::string newPath, std::string& out);

  /// Resolves the path with the record's traits; not valid when that fails.
  [[nodiscard]] AssetData getResolvedData() const;

  /// By hash(). @{
  friend bool operator==(const AssetInfo& a, const AssetInfo& b) { return a.hash_ == b.hash_; }
  friend bool operator!=(const AssetInfo& a, const AssetInfo& b) { return !(a == b); }
  /// @}

 private:
  void updateHash();

  std::string path_;
  std::set<std::string> traits_;
  std::uint64_t hash_ = 0;
  bool isAsset_ = false;
};

}  // namespace vela::asset
