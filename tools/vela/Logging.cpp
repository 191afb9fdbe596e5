#include "Logging.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

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

}  // namespace command
