#include "Limits.h"

#include <charconv>
#include <cmath>
#include <string>
#include <vector>

#include "Messages.h"
#include "Supervisor.h"
#include "Text.h"

namespace command {

namespace {

Limits& own() {
  static Limits limits;
  return limits;
}

// Leaves the value as it is when the option is not given, or none of the verb's.
void readCount(const Arguments& given, const char* option, std::size_t most, std::size_t& value) {
  if (!given.knows(option) || !given.has(option)) return;
  const std::string& text = given.text(option);
  std::size_t number = 0;
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || stop != text.data() + text.size() || number < 1 || number > most)
    throw failure(Message::badInteger, {option, text, "1", std::to_string(most), given.verb()});
  value = number;
}

}  // namespace

const Limits& limits() { return own(); }

void readLimits(const Arguments& given) {
  constexpr std::size_t kMost = 1'000'000'000;
  Limits& limits = own();
  limits.open.root = given.text("--root");
  // A script whose variable is empty must not get a scene that may read everything.
  if (given.has("--root") && limits.open.root.empty())
    throw failure(Message::badForm, {"--root", "", "a folder", "."});
  readCount(given, "--max-prims", kMost, limits.open.prims);
  readCount(given, "--max-layers", kMost, limits.open.layers);
  readCount(given, "--max-arcs", kMost, limits.open.arcs);
  readCount(given, "--max-arc-chain", kMost, limits.open.arcChain);
  readCount(given, "--max-depth", 1000, limits.open.depth);
  readCount(given, "--max-instances", kMost, limits.open.instances);
  readCount(given, "--max-faces", kMost, limits.open.faces);
  readCount(given, "--max-texture", std::size_t{1} << 30, limits.open.texturePixels);
  if (given.has("--max-time")) {
    std::vector<double> seconds;
    const std::string& text = given.text("--max-time");
    if (!readNumbers(text, 1, seconds) || !(seconds[0] >= 0) || seconds[0] > 1e9)
      throw failure(Message::badNumber, {"--max-time", text});
    limits.seconds = seconds[0];
  }
  std::size_t megabytes = 0;
  readCount(given, "--max-memory", kMost, megabytes);
  if (megabytes > 0) limitMemory(megabytes << 20);
}

}  // namespace command
