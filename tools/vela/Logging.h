/// \file
/// Where the command logs.
#pragma once

#include <string>

namespace command {

/// Takes `--log-level LEVEL` and `--log-file FILE` out of the arguments, wherever they stand, and sets the log up. Without a file
/// in the environment or the options lines go to standard error: the library's own default path is another system's.
///
/// To be called before anything is logged.
/// \throws Failure (usage) for a level that is none, or an option without its value
void setUpLog(int& count, char** arguments);

/// Logs how a verb ended; not on standard error, where main() says it already.
void logFailure(const std::string& text);

}  // namespace command
