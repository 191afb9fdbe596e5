/// \file
/// How far long work is, on a terminal.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

#include "vela/scene/Work.h"

namespace command {

/// One line on standard error that overwrites itself, four times a second, while that is a
/// terminal: the share done, rays a second and the time left. It is gone when the object is.
class ProgressLine {
 public:
  /// \param rays how many have been traced until now
  ProgressLine(const char* verb, std::function<std::uint64_t()> rays);
  ~ProgressLine();
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;

  /// Work that stops after a signal and shows its progress here. The line must outlive it.
  [[nodiscard]] vela::scene::Work work();

 private:
  using Clock = std::chrono::steady_clock;
  void show(double share);

  std::string verb_;
  std::function<std::uint64_t()> rays_;
  bool isTerminal_;
  Clock::time_point start_, next_;
};

}  // namespace command
