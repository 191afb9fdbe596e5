#include "Progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <utility>

#include "Interrupt.h"
#include "TerminalPicture.h"

namespace command {

namespace {

constexpr std::chrono::milliseconds kInterval(250);

// A line that is wider than the terminal goes on in the next one, where nothing wipes it.
int lineWidth() { return std::clamp(terminalSize(stderr).columns - 1, 1, 78); }

}  // namespace

ProgressLine::ProgressLine(const char* verb, std::function<std::uint64_t()> rays)
    : verb_(verb),
      rays_(std::move(rays)),
      isTerminal_(isatty(STDERR_FILENO) != 0),
      start_(Clock::now()),
      next_(start_ + kInterval) {}

ProgressLine::~ProgressLine() {
  if (!isTerminal_) return;
  std::fprintf(stderr, "\r%*s\r", lineWidth(), "");
  std::fflush(stderr);
}

vela::scene::Work ProgressLine::work() {
  vela::scene::Work work = interruptibleWork();
  if (isTerminal_) work.progress = [this](double share) { show(share); };
  return work;
}

// The spaces wipe what a longer line left.
void ProgressLine::show(double share) {
  const Clock::time_point now = Clock::now();
  if (now < next_) return;
  next_ = now + kInterval;
  const double seconds = std::chrono::duration<double>(now - start_).count();
  const double left = share > 0.0 ? seconds * (1.0 - share) / share : 0.0;
  const int leftSeconds = static_cast<int>(std::min(left + 0.5, 359999.0));
  char line[160];
  std::snprintf(line, sizeof line, "vela %s: %3.0f %%  %.1f million rays/s  %d:%02d left   ",
                verb_.c_str(), 100.0 * share, static_cast<double>(rays_()) / seconds * 1e-6,
                leftSeconds / 60, leftSeconds % 60);
  std::fprintf(stderr, "\r%.*s", lineWidth(), line);
  std::fflush(stderr);
}

}  // namespace command
