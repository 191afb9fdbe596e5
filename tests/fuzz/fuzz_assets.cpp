// Any texts as asset references and traits, while no manager is installed: paths stay paths, and
// records have the hash that is written down.
#include <set>
#include <string>

#include "fuzz/Require.h"
#include "vela/asset/AssetInfo.h"

namespace {

void append(std::uint64_t& hash, const std::string& text) {
  for (const char c : text) {
    if (c == '\0') break;
    hash = hash * 65599u + static_cast<std::uint64_t>(static_cast<unsigned char>(c));
  }
}

}  // namespace

extern "C" __attribute__((no_sanitize("integer"))) int LLVMFuzzerTestOneInput(
    const std::uint8_t* data, std::size_t size) {
  using namespace vela::asset;
  using vela_test::require;
  // Lines: the path, then the traits.
  const std::string text(reinterpret_cast<const char*>(data), size);
  std::set<std::string> traits;
  const std::size_t end = text.find('\n');
  const std::string path = text.substr(0, end);
  for (std::size_t at = end; at != std::string::npos;) {
    const std::size_t next = text.find('\n', at + 1);
    traits.insert(text.substr(at + 1, next == std::string::npos ? next : next - at - 1));
    at = next;
  }

  const AssetInfo info(path, traits);
  std::uint64_t expected = 0;
  append(expected, path);
  for (const std::string& trait : traits) append(expected, trait);
  require(info.hash() == expected, "the hash is the one that is written down");
  require(info.path() == path && info.traits() == traits, "a record keeps what it was given");
  require(info == AssetInfo(path, traits), "equal records are equal");

  require(!isAssetPath(path) && !AssetInfo::isAsset(path), "without a manager nothing is an asset");
  AssetMessage why;
  require(resolveAsset(path, traits, &why) == nullptr, "nor resolved");
  std::string file = "before";
  require(!resolveAssetLocation(path, file) && file == path, "a path stays that path");
  AssetInfo moved(traits);
  require(!moved.resolveLocation(path, file) && file == path, "in records too");
  require(!moved.isAsset() && moved.hash() == info.hash(), "which have the path then");
  require(!moved.getResolvedData().isValid(), "and no data");
  file = "untouched";
  require(!getAssetLocation(nullptr, file) && file == "untouched", "without data no location");
  return 0;
}
