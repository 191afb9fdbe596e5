/// \file
/// How a caller stops long work and hears how far it is.
#pragma once

#include <functional>

namespace vela::scene {

/// Both callbacks may be empty. They are called often, on the thread that does the work, and must
/// be cheap and not throw.
///
/// \code
///   bool isCancelled = false;  // atomic, when another thread sets it
///   vela::scene::Work work;
///   work.stop = [&isCancelled] { return isCancelled; };
///   assert(!work.isStopped());
/// \endcode
struct Work {
  std::function<bool()> stop;            ///< true: the work ends at the next clean place
  std::function<void(double)> progress;  ///< share that is done, from 0 to 1, never falling

  /// Asks `stop`; false without one.
  [[nodiscard]] bool isStopped() const { return stop && stop(); }
  /// Calls `progress`; nothing without one. \p share is from 0 to 1.
  void report(double share) const {
    if (progress) progress(share);
  }

  /// For one of several steps: what it reports as 0 to 1 arrives here as \p from to \p to. Valid as
  /// long as this Work is.
  [[nodiscard]] Work part(double from, double to) const {
    if (!progress) return {stop, {}};
    return {stop, [this, from, to](double share) { report(from + (to - from) * share); }};
  }
};

}  // namespace vela::scene
