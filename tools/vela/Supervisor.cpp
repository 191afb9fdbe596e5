#include "Supervisor.h"

#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fstream>
#include <new>

#include "Failure.h"
#include "Interrupt.h"
#include "Logging.h"
#include "Messages.h"
#include "Text.h"

// Compilers say it in ways of their own.
#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define VELA_SANITIZED 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define VELA_SANITIZED 1
#endif

namespace command {

namespace {

// What the watching process knows of the work, in memory that both share.
struct Notes {
  std::atomic<bool> hasScene, outOfMemory;
  std::atomic<double> seconds;  // that opening it may take
  char scene[1024];
};
Notes* notes() {
  static Notes* const shared = [] {
    void* const memory =
        mmap(nullptr, sizeof(Notes), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    return memory == MAP_FAILED ? nullptr : static_cast<Notes*>(memory);
  }();
  return shared;
}

std::atomic<pid_t> worker{0};
static_assert(std::atomic<pid_t>::is_always_lock_free);

extern "C" void passOn(int number) {
  const int before = errno;
  if (const pid_t process = worker.load(); process > 0) kill(process, number);
  errno = before;
}

constexpr int kPassedOn[] = {SIGINT, SIGTERM, SIGHUP};

// The memory that this process may have: of the machine, or less in a container.
[[maybe_unused]] rlim_t memoryOfMachine() {
  const long pages = sysconf(_SC_PHYS_PAGES), pageSize = sysconf(_SC_PAGESIZE);
  rlim_t most = RLIM_INFINITY;
  if (pages > 0 && pageSize > 0) most = static_cast<rlim_t>(pages) * static_cast<rlim_t>(pageSize);
  for (const char* file :
       {"/sys/fs/cgroup/memory.max", "/sys/fs/cgroup/memory/memory.limit_in_bytes"}) {
    std::ifstream in(file);
    unsigned long long limit = 0;
    if (in >> limit && limit > 0) most = std::min<rlim_t>(most, limit);
  }
  return most;
}

// Memory that can be written to counts, not what is only reserved or mapped from files. Sanitizers
// map so much of it for their own books that no limit fits: builds with them have none.
#ifdef VELA_SANITIZED
void setMemoryLimit(rlim_t) {}
#else
void setMemoryLimit(rlim_t most) {
  struct rlimit limit = {};
  if (getrlimit(RLIMIT_DATA, &limit) != 0) return;
  if (limit.rlim_cur != RLIM_INFINITY && limit.rlim_cur <= most) return;
  limit.rlim_cur = std::min(most, limit.rlim_max);
  setrlimit(RLIMIT_DATA, &limit);
}
#endif

// Where an exception meets no one, as in threads of the scene library.
[[noreturn]] void onTerminate() {
  try {
    if (std::current_exception()) std::rethrow_exception(std::current_exception());
  } catch (const std::bad_alloc&) {
    if (notes()) notes()->outOfMemory = true;
  } catch (...) {
  }
  std::abort();
}

Failure deathOf(int number) {
  const std::string how = std::string("(") + strsignal(number) + ")";
  if (notes() && notes()->outOfMemory) return failure(Message::outOfMemory);
  if (number == SIGALRM && notes() && notes()->hasScene)
    return failure(Message::readerTooSlow, {notes()->scene, toText(notes()->seconds)});
  if (number == SIGKILL) return failure(Message::killed);
  if (notes() && notes()->hasScene) return failure(Message::readerCrashed, {notes()->scene, how});
  return failure(Message::crashed, {how});
}

}  // namespace

void noteScene(const std::string& file) noexcept {
  Notes* const shared = notes();
  if (!shared) return;
  std::strncpy(shared->scene, file.c_str(), sizeof shared->scene - 1);
  shared->hasScene = true;
}

void limitMemory(std::size_t bytes) noexcept { setMemoryLimit(bytes); }

TimeLimit::TimeLimit(double seconds) {
  if (!(seconds > 0)) return;
  if (notes()) notes()->seconds = seconds;
  signal(SIGALRM, SIG_DFL);
  struct itimerval timer = {};
  timer.it_value.tv_sec = static_cast<time_t>(seconds);
  timer.it_value.tv_usec = static_cast<suseconds_t>((seconds - std::floor(seconds)) * 1e6);
  if (timer.it_value.tv_sec == 0) timer.it_value.tv_usec |= 1;  // none at all would be no limit
  setitimer(ITIMER_REAL, &timer, nullptr);
}

TimeLimit::~TimeLimit() {
  const struct itimerval none = {};
  setitimer(ITIMER_REAL, &none, nullptr);
}

int supervise(const std::string& head, const std::function<int()>& work) {
  // Signals wait until both processes are ready for them.
  sigset_t passed, before;
  sigemptyset(&passed);
  for (const int number : kPassedOn) sigaddset(&passed, number);
  sigprocmask(SIG_BLOCK, &passed, &before);
  const pid_t above = getpid();
  notes();
  std::fflush(nullptr);
  const pid_t process = fork();
  if (process <= 0) {
    // The work; in this very process where the system gives no other.
    if (process == 0) {
      prctl(PR_SET_PDEATHSIG, SIGTERM);
      if (getppid() != above) raise(SIGTERM);
      std::set_terminate(onTerminate);
    }
    setMemoryLimit(memoryOfMachine());
    sigprocmask(SIG_SETMASK, &before, nullptr);
    return work();
  }

  worker = process;
  struct sigaction action = {};
  action.sa_handler = passOn;
  sigemptyset(&action.sa_mask);
  for (const int number : kPassedOn) {
    struct sigaction old = {};
    if (sigaction(number, nullptr, &old) == 0 && old.sa_handler == SIG_IGN) continue;
    sigaction(number, &action, nullptr);
  }
  sigprocmask(SIG_SETMASK, &before, nullptr);
  int status = 0;
  while (waitpid(process, &status, 0) < 0 && errno == EINTR) continue;
  worker = 0;
  if (WIFEXITED(status)) _exit(WEXITSTATUS(status));

  removeTemporaries();
  const int number = WTERMSIG(status);
  if (number == SIGPIPE) {
    // Who reads our output has gone: to end by that signal is what shells expect.
    signal(SIGPIPE, SIG_DFL);
    raise(SIGPIPE);
  }
  reportFailure(head, deathOf(number));
  return kBadInput;
}

}  // namespace command
