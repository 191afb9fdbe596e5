#include "Interrupt.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>

#include "Failure.h"

namespace command {

namespace {

// Lock-free atomics are the only shared state that a signal handler may touch.
std::atomic<int> signalsSeen{0};
std::atomic<const char*> temporaries[4] = {};
static_assert(std::atomic<int>::is_always_lock_free &&
              std::atomic<const char*>::is_always_lock_free);

extern "C" void onSignal(int) {
  if (signalsSeen.fetch_add(1) == 0) return;
  for (const auto& file : temporaries)
    if (const char* name = file.load()) unlink(name);
  _exit(kInterrupted);
}

}  // namespace

void catchInterrupts() {
  struct sigaction action = {};
  action.sa_handler = onSignal;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  for (const int number : {SIGINT, SIGTERM}) sigaction(number, &action, nullptr);
}

bool isInterrupted() noexcept { return signalsSeen.load(std::memory_order_relaxed) > 0; }

void throwIfInterrupted() {
  if (isInterrupted()) throw Interrupted{};
}

void rememberTemporary(const std::string& file) noexcept {
  for (auto& slot : temporaries) {
    const char* none = nullptr;
    if (slot.compare_exchange_strong(none, file.c_str())) return;
  }
}

void forgetTemporary(const std::string& file) noexcept {
  for (auto& slot : temporaries) {
    const char* held = file.c_str();
    slot.compare_exchange_strong(held, nullptr);
  }
}

}  // namespace command
