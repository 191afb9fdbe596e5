#include "Logging.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ostream>
#include <string_view>

#include "vela/log/Log.h"

namespace command {

void setUpLog(int& count, char** arguments) {
  std::string level, file, lonely;
  int kept = 0;
  for (int i = 0; i < count; ++i) {
    std::string* value = std::strcmp(arguments[i], "--log-level") == 0  ? &level
                         : std::strcmp(arguments[i], "--log-file") == 0 ? &file
                                                                        : nullptr;
    if (!value)
      arguments[kept++] = arguments[i];
    else if (i + 1 < count)
      *value = arguments[++i];
    else
      lonely = arguments[i];
  }
  count = kept;

  // The place first: a complaint about the level is logged as well.
  if (!file.empty()) {
    setenv("HALDEN_LOG_FILE", file.c_str(), 1);
  } else if (!std::getenv("HALDEN_LOG_FILE")) {
    // TEMP names a folder; joined with a backslash it would become a strange file name here.
    const char* folder = std::getenv("TEMP");
    setenv("HALDEN_LOG_FILE", folder ? (std::string(folder) + "/halden.log").c_str() : "", 1);
  }
  Halden::Log::setApplicationName("vela");

  if (!lonely.empty())
    throw Failure{kUsage, "wrong usage", lonely, "its value is missing", "try vela --help"};
  if (level.empty()) return;
  std::transform(level.begin(), level.end(), level.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  const unsigned parsed = Halden::Log::parseLevel(level);
  if (parsed == Halden::Log::unset)
    throw Failure{kUsage, "wrong usage", "--log-level",
                  "'" + level + "' is none of quiet, error, warning, message, verbose",
                  "try vela --help"};
  Halden::Log::setLevel(parsed);
}

void reportFailure(const std::string& head, const Failure& failure) {
  const std::string text = describe(failure);
  std::fprintf(stderr, "%s: error: %s\n", head.c_str(), text.c_str());
  if (!Halden::Log::path().empty()) Halden::Log::write(Halden::Log::error, head + ": " + text);
}

namespace {

bool begins(std::string_view text, std::string_view with) {
  return text.substr(0, with.size()) == with;
}

// A logged line as the reason in one of ours: without its header, what it says of resolving, and a
// traceback.
std::string reasonOf(std::string_view line) {
  if (const std::size_t stamped = line.find("] "); stamped != std::string_view::npos)
    line.remove_prefix(stamped + 2);
  for (const std::string_view part :
       {"Failed to create the default OpenAssetIO Manager (Unexpected): ",
        "Failed to resolve asset location: ", "Failed to resolve asset: ", "Failed to resolve "}) {
    if (!begins(line, part)) continue;
    line.remove_prefix(part.size());
    break;
  }
  std::string reason(line.substr(0, line.find("\n\nAt:")));
  while (!reason.empty() && (reason.back() == '\n' || reason.back() == '.')) reason.pop_back();
  std::replace(reason.begin(), reason.end(), '\n', ' ');
  return reason;
}

}  // namespace

LogListener::LogListener() {
  // The level as the first message would find it.
  if (Halden::Log::level() == Halden::Log::unset) Halden::Log::setLevel(Halden::Log::error, true);
  level_ = Halden::Log::level();
  if (level_ < Halden::Log::warning) Halden::Log::setLevel(Halden::Log::warning);
  below_ = Halden::Log::stream().rdbuf(this);
}

LogListener::~LogListener() {
  Halden::Log::stream().rdbuf(below_);
  Halden::Log::setLevel(level_);
}

std::streamsize LogListener::xsputn(const char* text, std::streamsize count) {
  // The log writes a whole line, which may have several of text, at once.
  const std::string_view line(text, static_cast<std::size_t>(count));
  bool passes = true;
  if (begins(line, "[vela/Asset System Error]")) {
    if (error_.empty()) error_ = reasonOf(line);
    passes = level_ >= Halden::Log::error && !Halden::Log::path().empty();
  } else if (begins(line, "[vela/Asset System Warning]")) {
    if (warning_.empty()) warning_ = reasonOf(line);
    passes = level_ >= Halden::Log::warning;
  }
  return passes ? below_->sputn(text, count) : count;
}

int LogListener::overflow(int character) {
  return traits_type::eq_int_type(character, traits_type::eof())
             ? 0
             : below_->sputc(traits_type::to_char_type(character));
}

int LogListener::sync() { return below_->pubsync(); }

}  // namespace command
