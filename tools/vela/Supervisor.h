/// \file
/// The process that watches over the one that works.
#pragma once

#include <cstddef>
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

/// Lets this process have that much memory and no more than it had.
void limitMemory(std::size_t bytes) noexcept;

/// While one lives, this process ends when the time is over, and the watching one says so. For work
/// that cannot be stopped: a scene that is being opened.
class TimeLimit {
 public:
  /// \param seconds 0: none
  explicit TimeLimit(double seconds);
  ~TimeLimit();
  TimeLimit(const TimeLimit&) = delete;
  TimeLimit& operator=(const TimeLimit&) = delete;
};

}  // namespace command
