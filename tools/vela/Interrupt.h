/// \file
/// SIGINT, SIGTERM and SIGHUP, and the files to remove when the process ends before its time.
#pragma once

#include <string>

#include "vela/scene/Work.h"

namespace command {

/// Installs the handlers. The first signal only sets a flag, so that work stops at a clean place; a
/// second one removes the temporary files that are registered and ends the process at once with
/// code 130. What comes within a fifth of a second of the first is the same key: a terminal, a
/// shell and the process above may all pass it on. A signal that the caller has ignored, as nohup
/// does, stays ignored.
void catchInterrupts();

/// True after a signal. Safe from every thread.
[[nodiscard]] bool isInterrupted() noexcept;

/// Throws Interrupted after a signal.
void throwIfInterrupted();

/// Work that stops after a signal.
[[nodiscard]] inline vela::scene::Work interruptibleWork() { return {isInterrupted, {}}; }

/// While one lives the first signal ends the process at once, as a second one does. For work that
/// cannot look at the flag: a scene that is being opened.
class EndAtOnce {
 public:
  /// \param head what the line that is then printed begins with, such as "vela render"
  explicit EndAtOnce(const std::string& head);
  ~EndAtOnce();
  EndAtOnce(const EndAtOnce&) = delete;
  EndAtOnce& operator=(const EndAtOnce&) = delete;
};

/// Files to remove when the process ends before its time, at most eight at a time. Names must be
/// absolute. They are kept where the process that watches over this one sees them too.
void rememberTemporary(const std::string& file) noexcept;
void forgetTemporary(const std::string& file) noexcept;

/// Removes the registered files. Safe in signal handlers.
void removeTemporaries() noexcept;

}  // namespace command
