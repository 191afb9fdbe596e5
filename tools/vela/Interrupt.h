/// \file
/// SIGINT and SIGTERM.
#pragma once

#include <string>

#include "vela/scene/Work.h"

namespace command {

/// Installs the handlers. The first signal only sets a flag, so that work stops at a clean place; a
/// second one removes the temporary files that are registered and ends the process at once with
/// code 130.
void catchInterrupts();

/// True after a signal. Safe from every thread.
[[nodiscard]] bool isInterrupted() noexcept;

/// Throws Interrupted after a signal.
void throwIfInterrupted();

/// Work that stops after a signal.
[[nodiscard]] inline vela::scene::Work interruptibleWork() { return {isInterrupted, {}}; }

/// Files to remove when a second signal ends the process, at most four at a time. The text must
/// live until it is forgotten again.
void rememberTemporary(const std::string& file) noexcept;
void forgetTemporary(const std::string& file) noexcept;

}  // namespace command
