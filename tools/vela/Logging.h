/// \file
/// Where the command logs.
#pragma once

#include "Failure.h"

namespace command {

/// Takes `--log-level LEVEL` and `--log-file FILE` out of the arguments, wherever they stand, and
/// sets the log up. Without a file in the environment or the options lines go to standard error:
/// the library's own default path is another system's.
///
/// To be called before anything is logged.
/// \throws Failure (usage) for an unknown level, an option without its value, or a file that is
/// also read or written, is named like a scene, or is a pipe that nobody reads
void setUpLog(int& count, char** arguments);

/// Says on standard error how a verb failed, and logs it; not on standard error, where it then
/// stands already.
/// \param head  what the line begins with, such as "vela render"
void reportFailure(const std::string& head, const Failure& failure);

}  // namespace command
