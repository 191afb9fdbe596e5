/// \file
/// The interpreter that asset managers written in Python run in.
#pragma once

#include <string>

namespace command {

/// Starts an interpreter and lets go of its lock; at most once. It is the one that `VELA_PYTHON`
/// names, such as that of a virtual environment, else that of the environment that the command was
/// built with; in a package, the one on the PATH of the version that the package was made for.
///
/// It leaves signals alone and is never ended: managers live as long as the process. PYTHONPATH
/// counts, PYTHONHOME does not: it would be another interpreter's.
/// \return why it cannot be started; empty when it runs
[[nodiscard]] std::string startPython();

/// Which interpreter startPython would start, or why none: for people to read. Starts nothing.
[[nodiscard]] std::string pythonInfo();

}  // namespace command
