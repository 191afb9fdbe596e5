/// \file
/// How a verb ends other than well.
#pragma once

#include <string>

namespace command {

/// What the process gives back to its caller.
enum ExitCode {
  kDone = 0,
  kBadInput = 1,
  kUsage = 2,
  kLeftOut = 3,   ///< something was left out, under --strict
  kPartly = 4,    ///< some of several files or frames failed
  kNotFound = 5,  ///< there is nothing where it was looked for
  kInterrupted = 130
};

/// Thrown by a verb that cannot go on; main() prints it as
/// `vela VERB: error: what: where: why; what to try` (parts that are empty are left out) and exits
/// with the code.
struct Failure {
  ExitCode code = kBadInput;
  std::string what;     ///< what could not be done
  std::string where;    ///< the file, option or prim
  std::string why;      ///< the reason
  std::string attempt;  ///< what to try
};

/// Thrown where work was broken off by SIGINT or SIGTERM.
struct Interrupted {};

/// The line that main() prints, without `vela VERB: error: `.
[[nodiscard]] inline std::string describe(const Failure& failure) {
  std::string text = failure.what;
  if (!failure.where.empty()) text += ": " + failure.where;
  if (!failure.why.empty()) text += ": " + failure.why;
  if (!failure.attempt.empty()) text += "; " + failure.attempt;
  return text;
}

}  // namespace command
