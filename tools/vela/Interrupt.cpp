#include "Interrupt.h"

#include <limits.h>
#include <signal.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstring>

#include "Failure.h"

namespace command {

namespace {

// Lock-free atomics are the only shared state that a signal handler may touch.
std::atomic<int> signalsSeen{0};
std::atomic<std::int64_t> firstSignal{0};  // nanoseconds
std::atomic<bool> endsAtOnce{false};
char lastWords[128] = "";
static_assert(std::atomic<int>::is_always_lock_free &&
              std::atomic<std::int64_t>::is_always_lock_free);

struct Temporary {
  enum State { none, beingWritten, there };
  std::atomic<int> state;
  char name[PATH_MAX];
};
// Of one picture: a file for each layer, of which there are some twenty, and each format.
constexpr std::size_t kTemporaries = 256;

// In memory that a process shares with those that it forks, so that the one that watches sees what
// the one that works has registered. Made before main(): no call has to.
Temporary* temporaries() {
  static Temporary* const table = [] {
    void* const shared = mmap(nullptr, sizeof(Temporary) * kTemporaries, PROT_READ | PROT_WRITE,
                              MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    return shared == MAP_FAILED ? nullptr : static_cast<Temporary*>(shared);
  }();
  return table;
}
Temporary* const madeEarly = temporaries();

std::int64_t now() {
  struct timespec time = {};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

extern "C" void onSignal(int) {
  if (signalsSeen.fetch_add(1) == 0) {
    firstSignal = now();
    if (!endsAtOnce) return;
    if (write(STDERR_FILENO, lastWords, std::strlen(lastWords)) < 0) _exit(kInterrupted);
  } else if (now() - firstSignal < 200'000'000) {
    return;
  }
  removeTemporaries();
  _exit(kInterrupted);
}

}  // namespace

void catchInterrupts() {
  struct sigaction action = {};
  action.sa_handler = onSignal;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction before = {};
    if (sigaction(number, nullptr, &before) == 0 && before.sa_handler == SIG_IGN) continue;
    sigaction(number, &action, nullptr);
  }
}

bool isInterrupted() noexcept { return signalsSeen.load(std::memory_order_relaxed) > 0; }

void throwIfInterrupted() {
  if (isInterrupted()) throw Interrupted{};
}

EndAtOnce::EndAtOnce(const std::string& head) {
  throwIfInterrupted();
  const std::string words = head + ": interrupted; nothing was written\n";
  std::strncpy(lastWords, words.c_str(), sizeof lastWords - 1);
  endsAtOnce = true;
}

EndAtOnce::~EndAtOnce() { endsAtOnce = false; }

void rememberTemporary(const std::string& file) noexcept {
  if (!madeEarly || file.size() >= sizeof madeEarly->name) return;
  for (std::size_t i = 0; i < kTemporaries; ++i) {
    Temporary& slot = madeEarly[i];
    int none = Temporary::none;
    if (!slot.state.compare_exchange_strong(none, Temporary::beingWritten)) continue;
    std::memcpy(slot.name, file.c_str(), file.size() + 1);
    slot.state = Temporary::there;
    return;
  }
}

void forgetTemporary(const std::string& file) noexcept {
  for (std::size_t i = 0; madeEarly && i < kTemporaries; ++i)
    if (madeEarly[i].state == Temporary::there && file == madeEarly[i].name)
      madeEarly[i].state = Temporary::none;
}

void removeTemporaries() noexcept {
  for (std::size_t i = 0; madeEarly && i < kTemporaries; ++i)
    if (madeEarly[i].state == Temporary::there) unlink(madeEarly[i].name);
}

}  // namespace command
