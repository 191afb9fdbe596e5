#include "ovo/SceneTrial.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <utility>
#include <vector>

#include "ovo/detail/LibraryFolder.h"
#include "ovo/detail/TrialProtocol.h"

extern char** environ;

namespace ovo {

namespace {

using Clock = std::chrono::steady_clock;

// A descriptor that is closed at the end.
struct Descriptor {
  int number = -1;
  Descriptor() = default;
  ~Descriptor() {
    if (number >= 0) close(number);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
};

std::vector<std::string> wordsFor(const std::string& program, const std::string& file,
                                  const TrialOptions& options) {
  const OpenOptions& open = options.open;
  std::vector<std::string> words = {program,
                                    std::to_string(options.memory),
                                    options.readValues ? "1" : "0",
                                    std::to_string(open.prims),
                                    std::to_string(open.layers),
                                    std::to_string(open.arcs),
                                    std::to_string(open.arcChain),
                                    std::to_string(open.depth),
                                    open.root,
                                    file};
  for (const VariantChoice& choice : open.variants)
    words.insert(words.end(),
                 {choice.prim.asString(), choice.set.asString(), choice.name.asString()});
  return words;
}

// Starts the program with the answer's pipe as the descriptor that it writes to.
pid_t start(const std::vector<std::string>& words, int answer, int* error) {
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawnattr_t attributes;
  posix_spawn_file_actions_init(&actions);
  posix_spawnattr_init(&attributes);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, answer, STDOUT_FILENO);
  // What the host does with signals is not for this process: one that ignores SIGSEGV would never
  // see the end of it.
  sigset_t all, none;
  sigfillset(&all);
  sigemptyset(&none);
  posix_spawnattr_setsigdefault(&attributes, &all);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
  pid_t process = -1;
  *error = posix_spawn(&process, arguments[0], &actions, &attributes, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  return *error == 0 ? process : -1;
}

// Reads to the pipe's end. \return false when the time is over before that
bool readAnswer(int pipe, double seconds, std::string& answer) {
  // More than any reason is long; what is behind is not kept.
  constexpr std::size_t kLongest = 1 << 16;
  const Clock::time_point begin = Clock::now();
  for (;;) {
    int wait = -1;
    if (seconds > 0) {
      const double left = seconds - std::chrono::duration<double>(Clock::now() - begin).count();
      if (!(left > 0)) return false;
      // An hour at a time: longer ones do not fit.
      wait = static_cast<int>(std::ceil(std::fmin(left, 3600.0) * 1000.0));
    }
    struct pollfd waiting = {pipe, POLLIN, 0};
    const int ready = poll(&waiting, 1, wait);
    if (ready < 0 && errno != EINTR) return true;
    if (ready <= 0) continue;
    char part[4096];
    const ssize_t size = read(pipe, part, sizeof part);
    if (size < 0 && errno == EINTR) continue;
    if (size <= 0) return true;
    if (answer.size() < kLongest) answer.append(part, static_cast<std::size_t>(size));
  }
}

std::string shortest(double number) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", number);
  return text;
}

Trial notTried(const std::string& why) { return {Trial::Outcome::notTried, why}; }

Trial read(std::string_view answer, int status, bool isStatusKnown) {
  const auto is = [&answer](const char* word) {
    return answer.substr(0, std::strlen(word)) == word;
  };
  if (is(detail::kTrialRefused))
    return {Trial::Outcome::refused,
            std::string(answer.substr(std::strlen(detail::kTrialRefused)))};
  if (is(detail::kTrialOutOfMemory)) return {Trial::Outcome::outOfMemory, "out of memory"};
  // It may have died on its way out, too.
  if (isStatusKnown && WIFSIGNALED(status))
    return {Trial::Outcome::crashed, std::string("the scene's reader crashed (") +
                                         strsignal(WTERMSIG(status)) + "): it is damaged"};
  if (is(detail::kTrialOpens)) return {Trial::Outcome::opens, {}};
  return {Trial::Outcome::crashed, "the scene's reader ended without an answer"};
}

}  // namespace

Trial tryScene(const std::string& file, const TrialOptions& options) {
  const std::string program = (detail::libraryFolder() / "vela" / "scene-trial").string();
  if (access(program.c_str(), X_OK) != 0)
    return notTried("the installation is incomplete: " + program + " is missing");
  // A zero would cut off what follows it.
  const std::vector<std::string> words = wordsFor(program, file, options);
  for (const std::string& word : words)
    if (word.find('\0') != std::string::npos)
      return {Trial::Outcome::refused, "no file's name has a zero byte"};

  Descriptor ours, theirs;
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0)
    return notTried(std::string("no process can be started: ") + std::strerror(errno));
  ours.number = ends[0];
  theirs.number = ends[1];
  int error = 0;
  const pid_t process = start(words, theirs.number, &error);
  if (process < 0)
    return notTried(std::string("no process can be started: ") + std::strerror(error));
  close(std::exchange(theirs.number, -1));

  std::string answer;
  const bool isInTime = readAnswer(ours.number, options.seconds, answer);
  if (!isInTime) kill(process, SIGKILL);
  // A host that ignores the ends of its children, or waits for any of them, may have this status.
  int status = 0;
  pid_t ended = 0;
  while ((ended = waitpid(process, &status, 0)) < 0 && errno == EINTR) continue;
  if (!isInTime)
    return {Trial::Outcome::tooSlow,
            "it takes longer than " + shortest(options.seconds) + " seconds"};
  return read(answer, status, ended == process);
}

}  // namespace ovo
