/// \file
/// The process that watches over the one that works.
#pragma once

#include <functional>
#include <string>

namespace command {

/// Does the work in a process of its own, so that a death of that, as damaged scene files can cause
/// in their reader, is one clear line: files registered by rememberTemporary() are removed, the
/// line is printed, and the code is kBadInput.
///
/// Signals that the caller catches are passed on. The work ends when this process is killed. Memory
/// of the work is limited to that of the machine, or of the container: more is an error instead of
/// a machine that stands still. To be called while there is one thread.
///
/// \param head what the line begins with, such as "vela render"
/// \param work gives the exit code
/// \return the exit code; in the working process too, which returns from here and ends as usual
int supervise(const std::string& head, const std::function<int()>& work);

/// Tells the watching process which scene is being read from now on, for its line.
void noteScene(const std::string& file) noexcept;

}  // namespace command
