/// \file
/// Scenes tried in a process of their own, before a host opens them in its own.
///
/// The reader of binary scene files does not withstand every damage: some files end the process
/// that reads them, or fill its memory. Here that process is one that nobody misses.
///
/// Threads: all calls are safe from several threads. The process is started by posix_spawn, so a
/// host with threads loses nothing; it has no standard input, its messages go nowhere, and it
/// inherits the descriptors that the host has not marked to be closed on exec.
#pragma once

#include <cstddef>
#include <string>

#include "ovo/Api.h"
#include "ovo/OpenOptions.h"

namespace ovo {

/// How a scene is tried.
struct TrialOptions {
  OpenOptions open;  ///< what the scene is opened with
  /// Also reads every value of every layer, as binary files are only unpacked where they are read.
  /// Without it the trial says that the scene can be composed, no more.
  bool readValues = true;
  /// How long it may take before it is ended; 0: as long as it takes.
  double seconds = 60.0;
  /// Bytes of memory that it may take; 0: as many as this process may.
  std::size_t memory = 0;
};

/// What came of it.
struct Trial {
  /// How a trial ends.
  enum class Outcome {
    opens,        ///< the scene can be opened
    refused,      ///< openScene() gives null: for the reason that it would give
    crashed,      ///< its reader died: the file, or one that it leads to, is damaged
    outOfMemory,  ///< it takes more memory than it may
    tooSlow,      ///< it takes longer than it may
    notTried,     ///< the process could not be started, as where the installation is incomplete
  };
  Outcome outcome = Outcome::notTried;  ///< how it ended
  std::string reason;                   ///< one line; empty when the scene opens
};

/// Tries a scene in a process of its own.
///
/// What a trial finds holds for the files as they are then. Costs some 50 milliseconds and the
/// time that opening takes.
///
/// \code
///   assert(ovo::tryScene("examples/demo/demo.usda").outcome == ovo::Trial::Outcome::opens);
///   ovo::TrialOptions options;
///   options.seconds = 10.0;
///   options.memory = std::size_t{4} << 30;
///   const ovo::Trial missing = ovo::tryScene("missing.usda", options);
///   assert(missing.outcome == ovo::Trial::Outcome::refused && !missing.reason.empty());
/// \endcode
[[nodiscard]] OVO_API Trial tryScene(const std::string& file, const TrialOptions& options = {});

/// Reads every value of every layer that a stage is composed of, those of variants that are not
/// chosen too, and keeps none.
OVO_API void readEveryValue(const Stage& stage);

}  // namespace ovo
