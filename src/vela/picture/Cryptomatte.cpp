#include "vela/picture/Cryptomatte.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <variant>

#include <nlohmann/json.hpp>

#include "vela/picture/LayerTable.h"

namespace vela::picture {

namespace {

std::uint32_t rotated(std::uint32_t x, int bits) { return (x << bits) | (x >> (32 - bits)); }

std::uint32_t scrambled(std::uint32_t block) {
  return rotated(block * 0xcc9e2d51u, 15) * 0x1b873593u;
}

std::string hexadecimal(std::uint32_t value) {
  char digits[9];
  std::snprintf(digits, sizeof digits, "%08x", value);
  return digits;
}

std::string textOf(const nlohmann::ordered_json& json) {
  return json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

// The text attribute of that name; null when there is none.
Attribute* findText(Picture& picture, const std::string& name) {
  const auto found = std::find_if(
      picture.attributes.begin(), picture.attributes.end(), [&](const Attribute& attribute) {
        return attribute.name == name && std::holds_alternative<std::string>(attribute.value);
      });
  return found == picture.attributes.end() ? nullptr : &*found;
}

}  // namespace

std::uint32_t murmurHash3(std::string_view bytes) noexcept {
  const auto byte = [&](std::size_t i) {
    return std::uint32_t{static_cast<unsigned char>(bytes[i])};
  };

  // Whole blocks of four bytes, the lowest byte first on every machine.
  std::uint32_t hash = 0;
  const std::size_t whole = bytes.size() / 4 * 4;
  for (std::size_t i = 0; i < whole; i += 4) {
    const std::uint32_t block = byte(i) | byte(i + 1) << 8 | byte(i + 2) << 16 | byte(i + 3) << 24;
    hash = rotated(hash ^ scrambled(block), 13) * 5 + 0xe6546b64u;
  }

  // The rest, then a mix in which each bit reaches all others.
  std::uint32_t rest = 0;
  for (std::size_t i = bytes.size(); i > whole; --i) rest = rest << 8 | byte(i - 1);
  hash ^= scrambled(rest);
  hash ^= static_cast<std::uint32_t>(bytes.size());
  hash = (hash ^ (hash >> 16)) * 0x85ebca6bu;
  hash = (hash ^ (hash >> 13)) * 0xc2b2ae35u;
  return hash ^ (hash >> 16);
}

std::uint32_t cryptomatteId(std::string_view name) noexcept {
  const std::uint32_t hash = murmurHash3(name);
  const std::uint32_t exponent = (hash >> 23) & 255u;
  return exponent == 0 || exponent == 255 ? hash ^ (1u << 23) : hash;
}

float cryptomatteValue(std::uint32_t id) noexcept {
  float value = 0.0f;
  std::memcpy(&value, &id, sizeof value);
  return value;
}

std::string cryptomatteAttribute(std::string_view matte, std::string_view field) {
  return "cryptomatte/" + hexadecimal(murmurHash3(matte)).substr(0, 7) + "/" + std::string(field);
}

std::vector<std::string> cryptomattesOf(const Picture& picture) {
  std::vector<std::string> mattes;
  for (const LayerGroup& group : layerGroups())
    if (std::any_of(group.layers.begin(), group.layers.end(),
                    [&](const std::string& layer) { return picture.hasLayer(layer); }))
      mattes.push_back(group.name);
  return mattes;
}

std::string cryptomatteManifest(const std::vector<std::pair<std::string, std::uint32_t>>& ids) {
  // By push: looking every name up for its place would take quadratic time in an ordered object.
  nlohmann::ordered_json json = nlohmann::ordered_json::object();
  auto& members = json.get_ref<nlohmann::ordered_json::object_t&>();
  for (const auto& [name, id] : ids) members.emplace_back(name, hexadecimal(id));
  return textOf(json);
}

std::string takeCryptomatteManifests(Picture& picture, const std::string& file) {
  std::vector<std::pair<std::string, std::uint32_t>> ids;
  for (const std::string& matte : cryptomattesOf(picture)) {
    Attribute* const manifest = findText(picture, cryptomatteAttribute(matte, "manifest"));
    if (!manifest) continue;
    const auto json = nlohmann::json::parse(std::get<std::string>(manifest->value), nullptr, false);
    for (const auto& [name, digits] : json.items())
      if (digits.is_string())
        ids.emplace_back(name, static_cast<std::uint32_t>(
                                   std::strtoul(digits.get<std::string>().c_str(), nullptr, 16)));
    *manifest = {cryptomatteAttribute(matte, "manif_file"), file};
  }
  if (ids.empty() && cryptomattesOf(picture).empty()) return {};
  std::sort(ids.begin(), ids.end());
  ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
  return cryptomatteManifest(ids);
}

}  // namespace vela::picture
