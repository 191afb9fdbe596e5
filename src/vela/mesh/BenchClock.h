/// \file
/// A clock for benches that compare two loops in turns.
#pragma once

#include <ctime>

namespace vela_bench {

/// Milliseconds that this process has had the processor: on a busy machine longer runs lose it more
/// often than short ones, which a wall clock would charge to the longer of two candidates.
inline double processorTime() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) * 1e-6;
}

}  // namespace vela_bench
