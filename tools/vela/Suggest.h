/// \file
/// What was probably meant by a word that is none of those there are.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace command {

/// How many letters must be put in, taken out, replaced or swapped with their neighbour to make one
/// word of the other. Capitals differ from small letters by half as much: the result is in halves.
[[nodiscard]] std::size_t editDistance(const std::string& a, const std::string& b);

/// The words that are near enough to be meant, the nearest first; at most \p most. Equally near
/// ones stay in order. A word that begins with what was given is near. So is a path whose last part
/// is what was given.
[[nodiscard]] std::vector<std::string> nearest(const std::string& word,
                                               const std::vector<std::string>& candidates,
                                               std::size_t most = 3);

/// `try a, b or c` of the nearest, each behind \p prefix; empty when nothing is near.
[[nodiscard]] std::string attemptAmong(const std::string& word,
                                       const std::vector<std::string>& candidates,
                                       const std::string& prefix = "");

}  // namespace command
