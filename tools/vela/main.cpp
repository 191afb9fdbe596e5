#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <new>
#include <string>
#include <vector>

#include "Arguments.h"
#include "BuildInfo.h"
#include "Failure.h"
#include "HelpTexts.h"
#include "Interrupt.h"
#include "Logging.h"
#include "Messages.h"
#include "Notices.h"
#include "Options.h"
#include "OutputFile.h"
#include "Resolve.h"
#include "Supervisor.h"
#include "vela/Version.h"
#include "vela/log/Log.h"

namespace {

using namespace command;

// One verb: its arguments, then its work.
template <class VerbOptions>
ExitCode run(int count, char** arguments, ExitCode (*verb)(const VerbOptions&)) {
  VerbOptions options;
  if (!readArguments(count, arguments, options)) return kDone;
  resolveFiles(options);
  return verb(options);
}

ExitCode dispatch(const std::string& verb, int count, char** arguments) {
  if (verb == "render") return run(count, arguments, render);
  if (verb == "submit") return run(count, arguments, submit);
  if (verb == "view") return run(count, arguments, command::view);
  if (verb == "pick") return run(count, arguments, pick);
  if (verb == "explain") return run(count, arguments, explain);
  if (verb == "info") return run(count, arguments, info);
  if (verb == "mesh") return run(count, arguments, mesh);
  if (verb == "make") return run(count, arguments, make);
  if (verb == "channels") return run(count, arguments, channels);
  if (verb == "select") return run(count, arguments, select);
  if (verb == "resolve") return run(count, arguments, resolve);
  if (verb == "selftest") return run(count, arguments, selftest);
  if (verb == "help") return run(count, arguments, help);
  // Options alone are no verb.
  if (verb[0] == '-') throw failure(Message::noVerb);
  throw unknownVerb(verb);
}

// A standard stream that the caller has closed leaves its number to the first file that is opened,
// and what is said would go into that. In its place comes one that nothing can be written to, or
// read from: to print is the error that it was.
void fillClosedStreams() {
  for (const int number : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
    if (fcntl(number, F_GETFD) < 0 && errno == EBADF) {
      const int handle = open("/dev/null", number == STDIN_FILENO ? O_WRONLY : O_RDONLY);
      if (handle >= 0 && handle != number) {
        dup2(handle, number);
        close(handle);
      }
    }
}

}  // namespace

int main(int argc, char** argv) {
  fillClosedStreams();
  std::vector<std::string> words(argv + 1, argv + argc);
  moveVerbToFront(words);
  const std::string verb = words.empty() ? "" : words.front();
  if (verb == "--help" || verb == "-h") {
    std::fputs(overallHelp().c_str(), stdout);
    return kDone;
  }
  if (verb == "--version") {
    std::printf("vela %s\n", vela::version());
    if (words.size() > 1 && words[1] == "--build-info") std::fputs(buildInfo().c_str(), stdout);
    return kDone;
  }
  if (verb.empty()) {
    std::fputs(overallHelp().c_str(), stderr);
    return kUsage;
  }

  const std::string head = findVerb(verb) ? "vela " + verb : "vela";
  const auto fail = [&](const Failure& why) {
    reportFailure(head, why);
    return static_cast<int>(why.code);
  };
  setNoticeHead(head);
  catchInterrupts();
  for (const std::string& word : words) {
    spareFile(word);
    spareFile(word.substr(word.find('=') + 1));
  }
  std::vector<char*> arguments;
  for (std::size_t i = 1; i < words.size(); ++i) arguments.push_back(words[i].data());
  int count = static_cast<int>(arguments.size());
  try {
    setUpLog(count, arguments.data());
  } catch (const Failure& why) {
    return fail(why);
  }
  return supervise(head, [&]() -> int {
    try {
      Halden::Log::write(Halden::Log::verbose, head + ": begins");
      const ExitCode code = dispatch(verb, count, arguments.data());
      Halden::Log::write(Halden::Log::verbose, head + ": done");
      // What did not fit may have been noticed while there was more to print.
      errno = 0;
      if (std::fflush(stdout) != 0 || std::ferror(stdout))
        throw failure(Message::cannotWrite,
                      {"standard output",
                       errno != 0 ? std::strerror(errno) : "not all of it could be written",
                       "see where it goes"});
      return code == kDone && isLessThanStrict() ? kLeftOut : code;
    } catch (const Failure& why) {
      return fail(why);
    } catch (const Interrupted&) {
      std::fprintf(stderr, "%s: interrupted; nothing was written\n", head.c_str());
      return kInterrupted;
    } catch (const std::bad_alloc&) {
      return fail(failure(Message::outOfMemory));
    } catch (const std::exception& error) {
      return fail(failure(Message::otherFailure, {error.what()}));
    }
  });
}
