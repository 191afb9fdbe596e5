#include "vela/log/Log.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <locale>
#include <map>
#include <memory>
#include <stdexcept>

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/system/error_code.hpp>
#include <boost/system/system_error.hpp>
#include <boost/thread/lock_types.hpp>
#include <boost/thread/recursive_mutex.hpp>

namespace Halden::Log {
namespace {

constexpr const char* kHeaderTexts[] = {"Quiet", "Error", "Warning", "Message", "Verbose"};
constexpr unsigned kLevelCount = static_cast<unsigned>(std::size(kHeaderTexts));

// Numbers that channel() gives begin here, above those that callers choose themselves.
constexpr unsigned kFirstChannel = 0x10000;

// Longest path, with its closing zero, that the Windows API opens.
constexpr std::size_t kLongestPath = 260;

std::atomic<unsigned> theLevel{unset};

// What the mutex guards. Never destroyed: other static objects may log while the process ends.
struct State {
  // Recursive: a message whose text is computed by code that logs itself must not lock its own
  // thread out.
  boost::recursive_mutex mutex;
  std::string applicationName;
  std::map<unsigned, std::string> enabled;
  std::map<unsigned, std::string> replaced;
};

State& state() {
  static State& instance = *new State;
  return instance;
}

using Lock = boost::unique_lock<boost::recursive_mutex>;

// A lock, or none where the system refuses one: the line is then lost rather than torn, and
// nothing is thrown.
Lock lockState() {
  try {
    return Lock(state().mutex);
  } catch (const boost::system::system_error&) {
    return Lock();
  }
}

std::string computePath() {
  if (const char* file = std::getenv("HALDEN_LOG_FILE")) return file;
  const char* folder = std::getenv("TEMP");
  // KEEP(log-default-path): the same path on every desktop, backslashes included; callers that want
  // another set a variable.
  return std::string(folder ? folder : "\\WINDOWS\\Temp") + "\\" + "halden.log";
}

std::ostream& openStream() {
  const std::string& name = path();
  if (name.empty()) return std::cerr;

  // The file is never closed, like State: every line is flushed when it ends.
  auto file = std::make_unique<std::ofstream>(name, std::ios::out | std::ios::app);
  if (file->is_open()) return *file.release();
  file.reset();

  std::cerr << "Halden::Log Error cannot open " + name + " for writing \n";
  if (name.size() >= kLongestPath)
    std::cerr << "Possibly failing because log name is too long. In the Windows API maximum length "
                 "for a path is 260 "
                 "characters (including null terminating char).\n";
  std::cerr.flush();
  return std::cerr;
}

// The level that the environment names; `otherwise` when it names none.
unsigned levelFromEnvironment(unsigned otherwise) {
  const char* value = std::getenv("HALDEN_LOG_LEVEL");
  if (!value) return otherwise;

  // The log's stream has the global locale, as every stream that was not given another.
  std::string text = value;
  const std::locale locale;
  const auto& characters = std::use_facet<std::ctype<char>>(locale);
  characters.tolower(text.data(), text.data() + text.size());

  const unsigned parsed = parseLevel(text);
  return parsed == unset ? otherwise : parsed;
}

// The level to filter by. The first use decides it, and a setLevel that comes in between wins.
unsigned levelInUse() {
  unsigned current = theLevel.load();
  if (current != unset) return current;
  const unsigned first = levelFromEnvironment(error);
  return theLevel.compare_exchange_strong(current, first) ? first : current;
}

// "2026/03/03:09:05:00", local time; zeros when the system has no local time.
std::string timeStamp() {
  int year = 0, month = 0, day = 0;
  long hour = 0, minute = 0, second = 0;
  try {
    const boost::posix_time::ptime now = boost::posix_time::second_clock::local_time();
    const auto date = now.date().year_month_day();
    const auto time = now.time_of_day();
    year = date.year;
    month = date.month;
    day = date.day;
    hour = static_cast<long>(time.hours());
    minute = static_cast<long>(time.minutes());
    second = static_cast<long>(time.seconds());
  } catch (const std::exception&) {
  }
  char text[96];
  std::snprintf(text, sizeof text, "%d/%02d/%02d:%02ld:%02ld:%02ld", year, month, day, hour, minute,
                second);
  return text;
}

// The header of a line that is let through. The mutex must be held.
std::string headerText(unsigned level, unsigned identifier) {
  const State& s = state();
  if (identifier != 0) {
    const auto replacement = s.replaced.find(identifier);
    if (replacement != s.replaced.end()) return "[" + replacement->second + "] ";
  }

  std::string text = "[" + s.applicationName;
  if (identifier != 0) {
    if (!s.applicationName.empty()) text += '/';
    text += s.enabled.at(identifier) + ' ';
  } else if (!s.applicationName.empty()) {
    text += ' ';
  }
  text += kHeaderTexts[level];
  text += "][" + timeStamp() + "] ";
  return text;
}

bool levelPasses(unsigned level) { return level < kLevelCount && level <= levelInUse(); }

// The mutex must be held.
bool identifierPasses(unsigned identifier) {
  return identifier == 0 || state().enabled.count(identifier) != 0;
}

// Written in one piece and unformatted: the stream's flags and width belong to callers that write
// to it themselves.
// A stream that was told to throw keeps its exception: a lost line is no reason to end the
// process.
void put(const std::string& text) {
  std::ostream& out = stream();
  try {
    if (!out) out.clear();  // a disk that was full for a while must not end the log
    out.write(text.data(), static_cast<std::streamsize>(text.size()));
  } catch (const std::ios_base::failure&) {
  }
}

void flush() {
  try {
    stream().flush();
  } catch (const std::ios_base::failure&) {
  }
}

}  // namespace

void setLevel(unsigned level, bool readEnvironment) {
  theLevel.store(readEnvironment ? levelFromEnvironment(level) : level);
}

unsigned level() { return theLevel.load(); }

unsigned parseLevel(std::string_view text) {
  if (text == "quiet") return quiet;
  if (text == "error") return error;
  if (text == "warning") return warning;
  if (text == "message") return message;
  if (text == "verbose" || text == "all") return verbose;
  return unset;
}

void setApplicationName(std::string name) {
  const Lock lock = lockState();
  state().applicationName = std::move(name);
}

void enableIdentifier(unsigned identifier, std::string text) {
  if (identifier == 0) return;
  const Lock lock = lockState();
  state().enabled[identifier] = std::move(text);
}

void replaceHeader(unsigned identifier, std::string text) {
  if (identifier == 0) return;
  const Lock lock = lockState();
  state().replaced[identifier] = std::move(text);
}

unsigned channel(std::string_view name) {
  const Lock lock = lockState();
  auto& enabled = state().enabled;
  for (const auto& [identifier, text] : enabled)
    if (text == name) return identifier;

  unsigned identifier = kFirstChannel;
  while (enabled.count(identifier) != 0) ++identifier;
  enabled.emplace(identifier, name);
  return identifier;
}

const std::string& path() {
  static const std::string& instance = *new std::string(computePath());
  return instance;
}

std::ostream& stream() {
  static std::ostream& instance = openStream();
  return instance;
}

Line::~Line() {
  if (!held_) return;
  flush();
  state().mutex.unlock();
}

Line header(unsigned level, unsigned identifier) {
  if (!levelPasses(level)) return Line(false);
  Lock lock = lockState();
  if (!lock.owns_lock() || !identifierPasses(identifier)) return Line(false);

  put(headerText(level, identifier));
  lock.release();  // the Line unlocks
  return Line(true);
}

void write(unsigned level, std::string_view text, unsigned identifier) {
  if (!levelPasses(level)) return;
  const Lock lock = lockState();
  if (!lock.owns_lock() || !identifierPasses(identifier)) return;

  std::string line = headerText(level, identifier);
  line += text;
  line += '\n';
  put(line);
  flush();
}

}  // namespace Halden::Log
