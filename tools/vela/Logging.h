/// \file
/// Where the command logs.
#pragma once

#include <streambuf>
#include <string>

#include "Failure.h"

namespace command {

/// Takes `--log-level LEVEL` and `--log-file FILE` out of the arguments, wherever they stand, and
/// sets the log up. Without a file in the environment or the options lines go to standard error:
/// the library's own default path is another system's.
///
/// To be called before anything is logged.
/// \throws Failure (usage) for a level that is none, or an option without its value
void setUpLog(int& count, char** arguments);

/// Says on standard error how a verb failed, and logs it; not on standard error, where it then
/// stands already.
/// \param head  what the line begins with, such as "vela render"
void reportFailure(const std::string& head, const Failure& failure);

/// Listens to what the asset layer logs while it lives, for messages of the command's own. One at a
/// time.
///
/// Errors then show once: they go into the log's file, and not to standard error, where the command
/// says them in its own form. All else passes as ever.
class LogListener final : private std::streambuf {
 public:
  LogListener();
  ~LogListener() override;
  LogListener(const LogListener&) = delete;
  LogListener& operator=(const LogListener&) = delete;

  /// The first error, in one line; empty without one.
  [[nodiscard]] const std::string& error() const { return error_; }
  /// The first warning.
  [[nodiscard]] const std::string& warning() const { return warning_; }

 private:
  std::streamsize xsputn(const char* text, std::streamsize count) override;
  int overflow(int character) override;
  int sync() override;

  unsigned level_;
  std::streambuf* below_;
  std::string error_, warning_;
};

}  // namespace command
