#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "HelpTexts.h"
#include "Messages.h"
#include "Options.h"
#include "Suggest.h"

namespace command {

ExitCode help(const HelpOptions& options) {
  const VerbRow* verb = nullptr;
  if (!options.verb.empty()) {
    verb = findVerb(options.verb);
    if (!verb) throw unknownVerb(options.verb);
  }
  if (!options.share.empty()) {
    const std::string failed = writeShare(options.share);
    if (!failed.empty())
      throw failure(Message::cannotWrite,
                    {failed, std::strerror(errno), "name a folder that may be written to"});
    return kDone;
  }
  std::string text;
  if (!options.shell.empty())
    text = completion(options.shell);
  else if (options.messages)
    text = messageList();
  else if (options.man)
    text = manPage(verb);
  else
    text = verb ? helpOf(*verb) : overallHelp();
  std::fputs(text.c_str(), stdout);
  return kDone;
}

}  // namespace command
