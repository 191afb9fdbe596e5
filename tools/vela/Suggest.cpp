#include "Suggest.h"

#include <algorithm>
#include <cctype>
#include <utility>

namespace command {

namespace {

char lower(char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); }

std::string lastPart(const std::string& path) { return path.substr(path.rfind('/') + 1); }

bool startsWith(const std::string& text, const std::string& head) {
  return text.compare(0, head.size(), head) == 0;
}

}  // namespace

// Optimal string alignment: rows of the table of distances between beginnings of both words.
std::size_t editDistance(const std::string& a, const std::string& b) {
  constexpr std::size_t kEdit = 2, kCase = 1;
  std::vector<std::size_t> older(b.size() + 1), old(b.size() + 1), now(b.size() + 1);
  for (std::size_t j = 0; j <= b.size(); ++j) old[j] = j * kEdit;
  for (std::size_t i = 1; i <= a.size(); ++i) {
    now[0] = i * kEdit;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const char x = a[i - 1], y = b[j - 1];
      const std::size_t change = x == y ? 0 : lower(x) == lower(y) ? kCase : kEdit;
      now[j] = std::min({old[j] + kEdit, now[j - 1] + kEdit, old[j - 1] + change});
      if (i > 1 && j > 1 && x == b[j - 2] && a[i - 2] == y)
        now[j] = std::min(now[j], older[j - 2] + kEdit);
    }
    std::swap(older, old);
    std::swap(old, now);
  }
  return old[b.size()];
}

std::vector<std::string> nearest(const std::string& word,
                                 const std::vector<std::string>& candidates, std::size_t most) {
  // A third of the letters may be wrong. Very long words are not slips, and would take long.
  constexpr std::size_t kLongest = 512;
  std::vector<std::pair<std::size_t, std::size_t>> found;
  for (std::size_t i = 0; i < candidates.size() && word.size() <= kLongest; ++i) {
    const std::string& candidate = candidates[i];
    if (word.empty() || candidate.size() > kLongest) continue;
    const std::size_t allowed = 2 * std::max<std::size_t>(1, (word.size() + 1) / 3);
    std::size_t distance = editDistance(word, candidate);
    if (std::equal(word.begin(), word.end(), candidate.begin(), candidate.end(),
                   [](char x, char y) { return lower(x) == lower(y); }))
      distance = std::min<std::size_t>(distance, 1);
    if (word.size() > 3 && startsWith(candidate, word))
      distance = std::min<std::size_t>(distance, 2);
    // A path is as near as its last part where the rest of it was left out or is wrong.
    if (candidate[0] == '/') {
      const std::string given = lastPart(word), own = lastPart(candidate);
      const std::size_t few = 2 * std::max<std::size_t>(1, (given.size() + 1) / 3);
      const std::size_t last = given.empty() ? few + 1 : editDistance(given, own);
      if (last <= few) distance = std::min(distance, std::min(last + 1, allowed));
    }
    if (distance <= allowed) found.emplace_back(distance, i);
  }
  std::stable_sort(found.begin(), found.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  std::vector<std::string> words;
  for (std::size_t i = 0; i < std::min(most, found.size()); ++i)
    words.push_back(candidates[found[i].second]);
  return words;
}

std::string attemptAmong(const std::string& word, const std::vector<std::string>& candidates,
                         const std::string& prefix) {
  const std::vector<std::string> words = nearest(word, candidates);
  std::string text;
  for (std::size_t i = 0; i < words.size(); ++i)
    text += (i == 0 ? "try " : i + 1 == words.size() ? " or " : ", ") + prefix + words[i];
  return text;
}

}  // namespace command
