/// \file
/// The interpreter that asset managers written in Python run in.
#pragma once

#include <string>

namespace command {

/// Starts the interpreter of the environment that the command was built with, and lets go of its
/// lock; at most once.
///
/// It leaves signals alone and is never ended: managers live as long as the process. PYTHONPATH
/// counts, PYTHONHOME does not: it would be another interpreter's.
/// \return why it cannot be started; empty when it runs
[[nodiscard]] std::string startPython();

}  // namespace command
