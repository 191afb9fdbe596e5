#include "SeveralFiles.h"

#include <cstddef>
#include <cstdio>

#include "Logging.h"
#include "Resolve.h"

namespace command {

ExitCode forEachFile(const std::string& verb, const std::vector<std::string>& arguments,
                     const std::function<void(const std::string& file)>& work) {
  if (arguments.size() == 1) {
    work(fileOf(arguments.front()));
    return kDone;
  }
  std::size_t failed = 0;
  for (const std::string& argument : arguments) {
    std::string file = argument;
    try {
      // Resolved when its turn comes, so that a bad one leaves the others.
      file = fileOf(argument);
      work(file);
    } catch (const Failure& why) {
      if (why.code == kUsage) throw;
      const std::string text = describe(why);
      const bool isNamed =
          text.find(file) != std::string::npos || text.find(argument) != std::string::npos;
      reportFailure("vela " + verb + (isNamed ? "" : ": " + file), why);
      ++failed;
    }
  }
  return failed == 0 ? kDone : failed < arguments.size() ? kPartly : kBadInput;
}

void Separator::print() {
  if (!isFirst_) std::puts("");
  isFirst_ = false;
}

}  // namespace command
