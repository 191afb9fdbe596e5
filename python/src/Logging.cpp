// The library's log, followed by Python's logging.
#include "Logging.h"

#include <Python.h>
#include <nanobind/nanobind.h>

#include <atomic>
#include <cstdlib>
#include <deque>
#include <iostream>
#include <mutex>
#include <streambuf>
#include <string>

#include "Calls.h"
#include "Module.h"
#include "Values.h"
#include "vela/log/Log.h"

namespace vela::python {

namespace {

namespace Log = Halden::Log;

// Lines that were logged and that Python has not seen. The log's own mutex is held while a line is
// written, so nothing here may wait for the interpreter: lines queue up, and the interpreter's main
// thread fetches them.
class LineQueue {
 public:
  void push(std::string line) {
    const std::lock_guard<std::mutex> lock(mutex_);
    // Nobody reads what a program that ends has logged; a bound keeps a stuck one from filling up.
    if (lines_.size() < 100000) lines_.push_back(std::move(line));
  }
  bool pop(std::string& line) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (lines_.empty()) return false;
    line = std::move(lines_.front());
    lines_.pop_front();
    return true;
  }

 private:
  std::mutex mutex_;
  std::deque<std::string> lines_;
};
LineQueue& queue() {
  static auto* const made = new LineQueue;
  return *made;
}
std::atomic<bool> isCallPending{false};

int deliverPending(void*) {
  isCallPending = false;
  deliverLog();
  return 0;
}

// What the log's stream writes to. Used by one thread at a time: who holds the log's mutex.
class Follower : public std::streambuf {
 public:
  explicit Follower(std::streambuf* file) : file_(file) {}

 protected:
  int_type overflow(int_type c) override {
    if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
    const char letter = traits_type::to_char_type(c);
    return xsputn(&letter, 1) == 1 ? c : traits_type::eof();
  }
  std::streamsize xsputn(const char* text, std::streamsize size) override {
    line_.append(text, static_cast<std::size_t>(size));
    return file_ ? file_->sputn(text, size) : size;
  }
  int sync() override {
    std::size_t from = 0;
    for (std::size_t end = line_.find('\n'); end != std::string::npos;
         end = line_.find('\n', from)) {
      queue().push(line_.substr(from, end - from));
      from = end + 1;
    }
    line_.erase(0, from);
    if (from != 0 && !isCallPending.exchange(true) &&
        Py_AddPendingCall(&deliverPending, nullptr) != 0)
      isCallPending = false;
    return file_ ? file_->pubsync() : 0;
  }

 private:
  std::streambuf* file_;
  std::string line_;
};

std::streambuf* formerBuffer = nullptr;

// Takes a line apart: `[app/Asset System Error][2026/03/03:09:05:00] text`.
void send(const std::string& line) {
  int level = 20;
  std::string text = line;
  if (!line.empty() && line[0] == '[') {
    const std::size_t end = line.find(']');
    if (end != std::string::npos) {
      std::string header = line.substr(1, end - 1);
      std::size_t from = end + 1;
      static const std::pair<const char*, int> kLevels[] = {
          {"Error", 40}, {"Warning", 30}, {"Message", 20}, {"Verbose", 10}, {"Quiet", 20}};
      for (const auto& [word, number] : kLevels) {
        const std::string tail = word;
        if (header.size() < tail.size() ||
            header.compare(header.size() - tail.size(), tail.size(), tail) != 0)
          continue;
        level = number;
        header.erase(header.size() - tail.size());
        while (!header.empty() && header.back() == ' ') header.pop_back();
        break;
      }
      if (from < line.size() && line[from] == '[') {
        const std::size_t close = line.find(']', from);
        if (close != std::string::npos) from = close + 1;
      }
      if (from < line.size() && line[from] == ' ') ++from;
      text = (header.empty() ? "" : header + ": ") + line.substr(from);
    }
  }
  static nb::object* const logger =
      new nb::object(nb::module_::import_("logging").attr("getLogger")("vela"));
  // The text is no format.
  logger->attr("log")(level, "%s", textOut(text));
}

}  // namespace

void followLog() {
  if (formerBuffer) return;
  // Without a file that the environment names the log would make one somewhere; Python has its own
  // places for what is logged.
  const bool isNamed = std::getenv("HALDEN_LOG_FILE") != nullptr;
  if (!isNamed) ::setenv("HALDEN_LOG_FILE", "", 1);
  std::ostream& stream = Log::stream();
  if (!isNamed) ::unsetenv("HALDEN_LOG_FILE");
  formerBuffer = stream.rdbuf();
  const bool isFile = formerBuffer != std::cerr.rdbuf();
  stream.rdbuf(new Follower(isFile ? formerBuffer : nullptr));
  // Lines that come when the interpreter is gone go where they went before.
  nb::module_::import_("atexit").attr("register")(nb::cpp_function([] {
    deliverLog();
    Log::stream().rdbuf(formerBuffer);
  }));
}

void deliverLog() {
  std::string line;
  while (queue().pop(line)) {
    try {
      send(line);
    } catch (nb::python_error& error) {
      error.discard_as_unraisable("vela.log");
    }
  }
}

void bindLog(nb::module_& m) {
  nb::enum_<Log::Level>(m, "Level", nb::is_arithmetic(),
                        "A message is written when its level is not above the log's.\n\n"
                        ">>> vela.log.Level.ERROR.value\n1")
      .value("QUIET", Log::quiet)
      .value("ERROR", Log::error)
      .value("WARNING", Log::warning)
      .value("MESSAGE", Log::message)
      .value("VERBOSE", Log::verbose)
      .value("UNSET", Log::unset, "The log's own level before its first use.");
  m.def(
      "set_level",
      [](unsigned level, bool environment) {
        followLog();
        Log::setLevel(level, environment);
      },
      nb::arg("level"), nb::arg("read_environment") = false,
      "Sets the level below which the library logs; `HALDEN_LOG_LEVEL` replaces it where asked "
      "for. "
      "Python's logging filters on top of that.\n\n"
      ">>> vela.log.set_level(vela.log.Level.WARNING)");
  m.def(
      "level", [] { return static_cast<Log::Level>(Log::level()); },
      "The level as it stands.\n\n>>> vela.log.level() in vela.log.Level\nTrue");
  m.def(
      "parse_level",
      [](const std::string& text) {
        followLog();
        return static_cast<Log::Level>(Log::parseLevel(text));
      },
      nb::arg("text"),
      "`quiet`, `error`, `warning`, `message`, `verbose` or `all`; UNSET for others.\n\n"
      ">>> vela.log.parse_level('warning').name\n'WARNING'");
  m.def(
      "set_application_name",
      [](const std::string& name) {
        followLog();
        Log::setApplicationName(name);
      },
      nb::arg("name"), "The name in every following header; empty leaves it out.");
  m.def(
      "enable_identifier",
      [](unsigned identifier, const std::string& text) {
        followLog();
        Log::enableIdentifier(identifier, text);
      },
      nb::arg("identifier"), nb::arg("text"), "Lets messages of a sub-system through.");
  m.def(
      "replace_header",
      [](unsigned identifier, const std::string& text) {
        followLog();
        Log::replaceHeader(identifier, text);
      },
      nb::arg("identifier"), nb::arg("text"), "Shortens the headers of a sub-system.");
  m.def(
      "channel",
      [](const std::string& name) {
        followLog();
        return Log::channel(name);
      },
      nb::arg("name"),
      "The identifier of a sub-system of that name, enabled.\n\n"
      ">>> vela.log.channel('Textures') == vela.log.channel('Textures')\nTrue");
  m.def(
      "path",
      [] {
        followLog();
        return textOut(Log::path());
      },
      nb::sig("def path() -> str"), "The log file's path; it need not be one that can be opened.");
  m.def(
      "write",
      [](unsigned level, const std::string& text, unsigned identifier) {
        followLog();
        {
          // The log's mutex may be held by a thread that waits for nothing of Python.
          const Unlocked unlocked;
          Log::write(level, text, identifier);
        }
        deliverLog();
      },
      nb::arg("level"), nb::arg("text"), nb::arg("identifier") = 0,
      "Writes a whole line: it arrives at the logger `vela` of Python's logging, and in the log "
      "file "
      "where `HALDEN_LOG_FILE` names one.\n\n"
      ">>> vela.log.write(vela.log.Level.VERBOSE, 'filtered by the level')");
}

}  // namespace vela::python
