#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <new>
#include <string>

#include "Failure.h"
#include "HelpTexts.h"
#include "Interrupt.h"
#include "Logging.h"
#include "Options.h"
#include "Resolve.h"
#include "Supervisor.h"
#include "vela/Version.h"
#include "vela/log/Log.h"

namespace {

using namespace command;

// One verb: its arguments, then its work.
template <class VerbOptions>
void run(int count, char** arguments, void (*verb)(const VerbOptions&)) {
  VerbOptions options;
  if (!readArguments(count, arguments, options)) return;
  resolveFiles(options);
  verb(options);
}

void dispatch(const std::string& verb, int count, char** arguments) {
  if (verb == "render") return run(count, arguments, render);
  if (verb == "pick") return run(count, arguments, pick);
  if (verb == "info") return run(count, arguments, info);
  if (verb == "mesh") return run(count, arguments, mesh);
  if (verb == "make") return run(count, arguments, make);
  if (verb == "channels") return run(count, arguments, channels);
  if (verb == "select") return run(count, arguments, select);
  if (verb == "resolve") return run(count, arguments, resolve);
  throw Failure{kUsage, "no such verb", verb, "", "try vela --help"};
}

}  // namespace

int main(int argc, char** argv) {
  const std::string verb = argc > 1 ? argv[1] : "";
  if (verb == "--help" || verb == "-h" || verb == "help") {
    std::fputs(overallHelp(), stdout);
    return kDone;
  }
  if (verb == "--version") {
    std::printf("vela %s\n", vela::version());
    return kDone;
  }
  if (verb.empty()) {
    std::fputs(overallHelp(), stderr);
    return kUsage;
  }

  const std::string head = verb[0] == '-' ? "vela" : "vela " + verb;
  const auto fail = [&](const Failure& failure) {
    reportFailure(head, failure);
    return static_cast<int>(failure.code);
  };
  catchInterrupts();
  int count = argc - 2;
  try {
    setUpLog(count, argv + 2);
  } catch (const Failure& failure) {
    return fail(failure);
  }
  return supervise(head, [&]() -> int {
    try {
      Halden::Log::write(Halden::Log::verbose, head + ": begins");
      dispatch(verb, count, argv + 2);
      Halden::Log::write(Halden::Log::verbose, head + ": done");
      // What did not fit may have been noticed while there was more to print.
      errno = 0;
      if (std::fflush(stdout) != 0 || std::ferror(stdout))
        throw Failure{kBadInput, "cannot write", "standard output",
                      errno != 0 ? std::strerror(errno) : "not all of it could be written", ""};
      return kDone;
    } catch (const Failure& failure) {
      return fail(failure);
    } catch (const Interrupted&) {
      std::fprintf(stderr, "%s: interrupted; nothing was written\n", head.c_str());
      return kInterrupted;
    } catch (const std::bad_alloc&) {
      return fail({kBadInput, "out of memory", "", "", "try a smaller --size or fewer --threads"});
    } catch (const std::exception& error) {
      return fail({kBadInput, "failed", "", error.what(), ""});
    }
  });
}
