// The process that tries a scene for tryScene(): says what came of it, and may die of it.
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>
#include <string>

#include "ovo/SceneTrial.h"
#include "ovo/Stage.h"
#include "ovo/detail/TrialProtocol.h"

// Compilers say it in ways of their own.
#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define VELA_SANITIZED 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define VELA_SANITIZED 1
#endif

namespace {

// Without the buffers of a library that may lack memory for them.
void say(const char* text, std::size_t size) {
  while (size > 0) {
    const ssize_t written = write(STDOUT_FILENO, text, size);
    if (written <= 0) return;
    text += written;
    size -= static_cast<std::size_t>(written);
  }
}
void say(const char* text) { say(text, std::strlen(text)); }

// For exceptions that meet no one, as in threads of the scene library.
[[noreturn]] void onTerminate() {
  try {
    if (std::current_exception()) std::rethrow_exception(std::current_exception());
  } catch (const std::bad_alloc&) {
    say(ovo::detail::kTrialOutOfMemory);
    _exit(EXIT_FAILURE);
  } catch (...) {
  }
  std::abort();
}

// Sanitizers map so much memory for their own books that no limit fits.
void limitMemory(rlim_t most) {
#ifdef VELA_SANITIZED
  static_cast<void>(most);
#else
  struct rlimit limit = {};
  if (most == 0 || getrlimit(RLIMIT_DATA, &limit) != 0) return;
  limit.rlim_cur = std::min(limit.rlim_cur, std::min(most, limit.rlim_max));
  setrlimit(RLIMIT_DATA, &limit);
#endif
}

std::size_t number(const char* text) { return std::strtoull(text, nullptr, 10); }

}  // namespace

int main(int count, char** words) {
  if (count < 10 || (count - 10) % 3 != 0) {
    static constexpr char kWhat[] = "This program belongs to libvela, which starts it.\n";
    static_cast<void>(!write(STDERR_FILENO, kWhat, sizeof kWhat - 1));
    return EXIT_FAILURE;
  }
  // Who asked may end before the answer; and a death leaves no file behind.
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  const struct rlimit none = {0, 0};
  setrlimit(RLIMIT_CORE, &none);
  std::set_terminate(onTerminate);
  limitMemory(number(words[1]));

  try {
    ovo::OpenOptions options;
    options.prims = number(words[3]);
    options.layers = number(words[4]);
    options.arcs = number(words[5]);
    options.arcChain = number(words[6]);
    options.depth = number(words[7]);
    options.root = words[8];
    for (int i = 10; i < count; i += 3)
      options.variants.push_back(
          {ovo::Path(words[i]), ovo::Token(words[i + 1]), ovo::Token(words[i + 2])});
    std::string why;
    const auto stage = ovo::openScene(words[9], options, &why);
    if (!stage) {
      const std::string answer = ovo::detail::kTrialRefused + why;
      say(answer.data(), answer.size());
    } else {
      if (words[2][0] == '1') ovo::readEveryValue(*stage);
      say(ovo::detail::kTrialOpens);
    }
  } catch (const std::bad_alloc&) {
    say(ovo::detail::kTrialOutOfMemory);
  }
  // What is left to take down is nobody's concern.
  _exit(EXIT_SUCCESS);
}
