/// \file
/// The clock and the mean that all benches measure with.
#pragma once

#include <algorithm>
#include <cstddef>
#include <ctime>
#include <vector>

namespace vela_bench {

/// Milliseconds that this process has had the processor: on a busy machine longer runs lose it more
/// often than short ones, which a wall clock would charge to the longer of two candidates.
inline double processorTime() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) * 1e-6;
}

/// Of an even number of values, the mean of the two in the middle.
///
/// \param values  at least one
inline double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const std::size_t n = values.size();
  return n % 2 == 1 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

}  // namespace vela_bench
