#include "Logging.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "Messages.h"
#include "Notices.h"
#include "Suggest.h"
#include "Text.h"
#include "VerbTable.h"
#include "vela/log/Log.h"

namespace command {

namespace {

bool isSameFile(const std::string& a, const std::string& b) {
  struct stat one = {}, other = {};
  if (stat(a.c_str(), &one) == 0 && stat(b.c_str(), &other) == 0)
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
  std::error_code failed;
  const auto whole = [&failed](const std::string& file) {
    return std::filesystem::weakly_canonical(std::filesystem::absolute(file, failed), failed);
  };
  return whole(a) == whole(b);
}

// A log would damage what it is appended to: which textures and packages a scene reads is known
// only once it is open, and by then lines are written. None of those is a text.
bool holdsNoText(const std::string& file) {
  std::ifstream in(file, std::ios::binary);
  std::string head(4096, '\n');
  in.read(head.data(), static_cast<std::streamsize>(head.size()));
  return head.find('\0') != std::string::npos;
}

// Lines are appended to the log's file. That must be none that the command reads or writes: those
// are named in the arguments, or are scenes. Nor may it be a pipe that nobody reads, which would
// keep the log waiting.
void checkLogFile(int count, char** arguments) {
  // Not asked of the log, which would then keep the name.
  const char* const name = std::getenv("HALDEN_LOG_FILE");
  const std::string file = name ? name : "";
  if (file.empty()) return;
  const auto fail = [&file](const std::string& why) {
    // The complaint itself must not go there.
    setenv("HALDEN_LOG_FILE", "", 1);
    return failure(Message::badLogFile, {file, why});
  };
  const std::string extension = std::filesystem::path(file).extension().string();
  if (extension == ".usd" || extension == ".usda" || extension == ".usdc" || extension == ".usdz")
    throw fail("it is named like a scene");
  struct stat status = {};
  const bool isThere = stat(file.c_str(), &status) == 0;
  // What is written to a device or a pipe replaces nothing.
  if (isThere && !S_ISREG(status.st_mode)) {
    if (!S_ISFIFO(status.st_mode)) return;
    const int handle = open(file.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (handle < 0) throw fail("it is a pipe that nobody reads");
    close(handle);
    return;
  }
  if (isThere && holdsNoText(file)) throw fail("it is there, and holds something else than text");
  for (const char* const other : {"OCIO", "OPENASSETIO_DEFAULT_CONFIG"})
    if (const char* const input = std::getenv(other); input && *input && isSameFile(file, input))
      throw fail(std::string("it is the file that ") + other + " names");
  for (int i = 0; i < count; ++i) {
    const std::string argument = arguments[i];
    const std::size_t value = argument[0] == '-' ? argument.find('=') : std::string::npos;
    for (const std::string& path :
         {argument, value == std::string::npos ? argument : argument.substr(value + 1)})
      if (!path.empty() && isSameFile(file, path))
        throw fail("it is a file that the command reads or writes");
  }
}

Failure badLevel(const std::string& level) {
  const std::vector<std::string>& words = commonOptions().rows.front().words;
  std::string list;
  for (const std::string& word : words) list += (list.empty() ? "" : ", ") + word;
  const std::string attempt = attemptAmong(level, words, "--log-level ");
  return failure(Message::badWord, {"--log-level", level, list,
                                    attempt.empty() ? "try --log-level warning" : attempt});
}

}  // namespace

void setUpLog(int& count, char** arguments) {
  std::string level, file, lonely;
  int kept = 0;
  for (int i = 0; i < count; ++i) {
    const std::string argument = arguments[i];
    const std::string name = argument.substr(0, argument.find('='));
    std::string* value = name == "--log-level" ? &level : name == "--log-file" ? &file : nullptr;
    if (!value)
      arguments[kept++] = arguments[i];
    else if (name.size() < argument.size())
      *value = argument.substr(name.size() + 1);
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
  checkLogFile(count, arguments);

  if (!lonely.empty())
    throw failure(Message::missingValue, {lonely, lonely == "--log-file" ? "FILE" : "LEVEL"});
  if (level.empty()) {
    const char* const fromEnvironment = std::getenv("HALDEN_LOG_LEVEL");
    if (fromEnvironment) setNoticeLevel(Halden::Log::parseLevel(fromEnvironment));
    return;
  }
  std::transform(level.begin(), level.end(), level.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  const unsigned parsed = Halden::Log::parseLevel(level);
  if (parsed == Halden::Log::unset) throw badLevel(level);
  Halden::Log::setLevel(parsed);
  setNoticeLevel(parsed);
}

void reportFailure(const std::string& head, const Failure& failure) {
  // The head may hold a file's name as well.
  const std::string text = printable(describe(failure)), whole = printable(head);
  std::fprintf(stderr, "%s: %s %s\n", whole.c_str(), coloured("error:").c_str(), text.c_str());
  if (!Halden::Log::path().empty()) Halden::Log::write(Halden::Log::error, whole + ": " + text);
}

}  // namespace command
