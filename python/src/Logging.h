/// \file
/// The library's log as records of Python's logging.
#pragma once

namespace vela::python {

/// Sends the log's lines to the logger `vela` from now on, in place of the standard error stream; a
/// log file gets them as well. Called before whatever may log; the second call does nothing.
void followLog();
/// Hands over the lines that wait. With the interpreter's lock held.
void deliverLog();

}  // namespace vela::python
