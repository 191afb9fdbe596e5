#include "Text.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <sstream>

namespace command {

namespace {

template <class T>
std::string shortest(T value) {
  char text[64];
  return std::string(text, std::to_chars(text, text + sizeof text, value).ptr);
}

}  // namespace

std::vector<std::string> splitList(const std::string& list) {
  std::vector<std::string> parts;
  for (std::size_t first = 0; first <= list.size();) {
    const std::size_t end = std::min(list.find(',', first), list.size());
    const std::size_t from = list.find_first_not_of(" \t", first);
    if (from < end)
      parts.push_back(list.substr(from, list.find_last_not_of(" \t", end - 1) + 1 - from));
    first = end + 1;
  }
  return parts;
}

std::string wrapText(const std::string& text, std::size_t columns) {
  std::string wrapped, word;
  std::size_t used = 0;
  std::istringstream words(text);
  while (words >> word) {
    if (used > 0) {
      const bool fits = used + 1 + word.size() <= columns;
      wrapped += fits ? ' ' : '\n';
      used = fits ? used + 1 : 0;
    }
    wrapped += word;
    used += word.size();
  }
  return wrapped;
}

std::string printable(const std::string& text) {
  std::string out;
  for (const char c : text) {
    const auto code = static_cast<unsigned char>(c);
    if (code >= 0x20 && code != 0x7f) {
      out += c;
      continue;
    }
    char escape[8];
    std::snprintf(escape, sizeof escape, "\\x%02x", static_cast<unsigned>(code));
    out += c == '\n' ? "\\n" : c == '\t' ? "\\t" : escape;
  }
  return out;
}

bool readNumbers(const std::string& text, std::size_t count, std::vector<double>& numbers) {
  const std::vector<std::string> parts = splitList(text);
  numbers.clear();
  for (const std::string& part : parts) {
    // from_chars reads the same in every locale; it takes no plus sign, people do.
    const char* begin = part.c_str() + (part[0] == '+' ? 1 : 0);
    const char* end = part.c_str() + part.size();
    double value = 0.0;
    const auto [stop, error] = std::from_chars(begin, end, value);
    if (error != std::errc() || stop != end || !std::isfinite(value)) return false;
    numbers.push_back(value);
  }
  return numbers.size() == count;
}

std::string toText(float value) { return shortest(value); }
std::string toText(double value) { return shortest(value); }

}  // namespace command
