// The program that Log_test.cpp runs: does what its arguments say, in order, against the log of a
// fresh process:
//   level=N  level=N,env         sets the level
//   app=NAME                     sets the application's name
//   enable=ID:TEXT  replace=ID:TEXT  channel=TEXT
//   print-level  print-path  open
//   write=LEVEL:ID:TEXT          a line in one piece
//   line=LEVEL:ID:TEXT           a line through header
//   threads=COUNT,LINES          so many threads, each with so many lines of level 1
#include <cstdio>
#include <cstdlib>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "vela/log/Log.h"

namespace Log = Halden::Log;

namespace {

unsigned number(const std::string& text) {
  return static_cast<unsigned>(std::strtoul(text.c_str(), nullptr, 10));
}

// The text before the first `mark`, which is taken off together with it.
std::string takeUpTo(char mark, std::string& text) {
  const std::size_t at = text.find(mark);
  const std::string head = text.substr(0, at);
  text = at == std::string::npos ? std::string() : text.substr(at + 1);
  return head;
}

void writeFromThreads(unsigned count, unsigned lines) {
  std::vector<std::thread> threads;
  for (unsigned t = 0; t < count; ++t) {
    threads.emplace_back([t, lines] {
      for (unsigned i = 0; i < lines; ++i) {
        const std::string text =
            "thread " + std::to_string(t) + " line " + std::to_string(i) + " end";
        if (i % 2 == 0) {
          Log::write(Log::error, text);
        } else if (auto line = Log::header(Log::error)) {
          // In many small pieces, so that lines would mix if nothing held them together.
          for (const char c : text) Log::stream() << c;
          Log::stream() << '\n';
        }
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    std::string rest = argv[i];
    const std::string verb = takeUpTo('=', rest);
    if (verb == "level") {
      const unsigned level = number(takeUpTo(',', rest));
      Log::setLevel(level, rest == "env");
    } else if (verb == "app") {
      Log::setApplicationName(rest);
    } else if (verb == "enable") {
      const unsigned identifier = number(takeUpTo(':', rest));
      Log::enableIdentifier(identifier, rest);
    } else if (verb == "replace") {
      const unsigned identifier = number(takeUpTo(':', rest));
      Log::replaceHeader(identifier, rest);
    } else if (verb == "channel") {
      std::printf("%u\n", Log::channel(rest));
    } else if (verb == "print-level") {
      std::printf("%u\n", Log::level());
    } else if (verb == "print-path") {
      std::printf("%s\n", Log::path().c_str());
    } else if (verb == "open") {
      (void)Log::stream();
    } else if (verb == "write") {
      const unsigned level = number(takeUpTo(':', rest)), identifier = number(takeUpTo(':', rest));
      Log::write(level, rest, identifier);
    } else if (verb == "line") {
      const unsigned level = number(takeUpTo(':', rest)), identifier = number(takeUpTo(':', rest));
      const auto line = Log::header(level, identifier);
      std::printf("%d\n", line ? 1 : 0);
      if (line) Log::stream() << rest << '\n';
    } else if (verb == "threads") {
      const unsigned count = number(takeUpTo(',', rest));
      writeFromThreads(count, number(rest));
    } else {
      std::fprintf(stderr, "unknown: %s\n", argv[i]);
      return 2;
    }
  }
  return 0;
}
