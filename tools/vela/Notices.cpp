#include "Notices.h"

#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <set>
#include <utility>

#include "Text.h"
#include "vela/log/Log.h"

namespace command {

namespace {

struct State {
  std::string head = "vela";
  unsigned level = Halden::Log::unset;
  bool isStrict = false, hasSaid = false;
  std::set<std::string> lines;
};
State& state() {
  static State instance;
  return instance;
}

// A text without what differs between texts of a kind.
std::string kindOf(const std::string& text) {
  std::string kind;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    const char* const pairs = "\'\'\"\"@@<>()[]";
    const char* const open = std::strchr(pairs, c);
    const bool isOpening = open && c != '\0' && (open - pairs) % 2 == 0;
    const std::size_t close = isOpening ? text.find(open[1], i + 1) : std::string::npos;
    if (close != std::string::npos) {
      kind += c;
      kind += '*';
      i = close;
    } else if (c == '/') {
      // A path, to the next blank or colon.
      while (i + 1 < text.size() && !std::strchr(" ,;:", text[i + 1])) ++i;
      kind += '/';
    } else if (std::isdigit(static_cast<unsigned char>(c))) {
      if (kind.empty() || kind.back() != '0') kind += '0';
    } else {
      kind += c;
    }
  }
  return kind;
}

}  // namespace

void setNoticeHead(const std::string& head) { state().head = head; }
void setNoticeLevel(unsigned level) { state().level = level; }
void setStrict() { state().isStrict = true; }
bool isLessThanStrict() { return state().isStrict && state().hasSaid; }

void say(Notice notice, const std::string& text) {
  State& now = state();
  now.hasSaid = true;
  const unsigned level = notice == Notice::warning ? Halden::Log::warning : Halden::Log::message;
  if (now.level != Halden::Log::unset && level > now.level) return;
  const std::string word = notice == Notice::warning ? "warning:" : "note:";
  if (!now.lines.insert(word + text).second) return;
  std::fprintf(stderr, "%s: %s %s\n", now.head.c_str(), coloured(word).c_str(),
               printable(text).c_str());
}

void sayAlike(Notice notice, const std::vector<std::string>& texts) {
  // In the order of the first of each kind.
  std::vector<std::pair<std::string, std::size_t>> lines;
  std::map<std::string, std::size_t> places;
  for (const std::string& text : texts) {
    const auto [place, isNew] = places.emplace(kindOf(text), lines.size());
    if (isNew)
      lines.emplace_back(text, 1);
    else
      ++lines[place->second].second;
  }
  for (const auto& [text, count] : lines)
    say(notice, count == 1 ? text : text + " (and " + std::to_string(count - 1) + " more like it)");
}

std::string coloured(const std::string& word) {
  const char* const forbidden = std::getenv("NO_COLOR");
  const char* const terminal = std::getenv("TERM");
  const bool isPlain = (forbidden && *forbidden) || !terminal || !*terminal ||
                       std::strcmp(terminal, "dumb") == 0 || !isatty(STDERR_FILENO);
  if (isPlain) return word;
  const char* const colour = word == "error:" ? "31" : word == "warning:" ? "33" : "36";
  return std::string("\033[1;") + colour + "m" + word + "\033[0m";
}

}  // namespace command
