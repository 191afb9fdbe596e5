/// \file
/// For tests: scenes in packages.
#pragma once

#include <cstddef>
#include <string>

namespace ovo_test {

/// A package of one file as OpenUSD wants it: stored as it is, its content at a multiple of 64.
/// Nobody looks at the check sums.
inline std::string package(const std::string& name, const std::string& content) {
  const auto number = [](std::size_t value, int bytes) {
    std::string text;
    for (int i = 0; i < bytes; ++i) text += static_cast<char>((value >> (8 * i)) & 0xff);
    return text;
  };
  const std::size_t extra = 64 - (30 + name.size() + 4) % 64;
  const std::string fields = number(10, 2) + number(0, 2) + number(0, 2) + number(0, 4) +
                             number(0, 4) + number(content.size(), 4) + number(content.size(), 4) +
                             number(name.size(), 2);
  const std::string file = "PK\3\4" + fields + number(extra + 4, 2) + name + number(0x1986, 2) +
                           number(extra, 2) + std::string(extra, '\0') + content;
  const std::string list = "PK\1\2" + number(10, 2) + fields + number(0, 2) + number(0, 2) +
                           number(0, 2) + number(0, 2) + number(0, 4) + number(0, 4) + name;
  return file + list + "PK\5\6" + number(0, 4) + number(1, 2) + number(1, 2) +
         number(list.size(), 4) + number(file.size(), 4) + number(0, 2);
}

}  // namespace ovo_test
