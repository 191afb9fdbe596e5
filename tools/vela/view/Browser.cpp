#include "view/Browser.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "Interrupt.h"
#include "Notices.h"

namespace command::viewer {

Browser::Browser(const std::string& url) {
  if (url.empty()) return;
  if (const std::string why = start(url); !why.empty())
    say(Notice::warning, "no browser is opened: " + why + "; open the address above in one");
}

std::string Browser::start(const std::string& url) {
  const char* const temporary = std::getenv("TMPDIR");
  std::string name =
      std::string(temporary && *temporary ? temporary : "/tmp") + "/vela-view-XXXXXX";
  if (!mkdtemp(name.data())) return std::strerror(errno);
  folder_ = name;
  file_ = folder_ + "/vela.html";
  rememberTemporary(file_);
  const std::string text =
      "<!doctype html><meta charset=\"utf-8\"><meta http-equiv=\"refresh\" "
      "content=\"0; url=" +
      url + "\"><a href=\"" + url + "\">Vela</a>\n";
  const int handle = open(file_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  const bool isWritten =
      handle >= 0 && write(handle, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  const int error = errno;
  if (handle >= 0) close(handle);
  if (!isWritten) return std::strerror(error);

  // In a process that is nobody's child, so that nothing has to wait for the browser.
  const pid_t between = fork();
  if (between == 0) {
    setsid();
    const char* const named = std::getenv("BROWSER");
    const char* const program = named && *named ? named : "xdg-open";
    char* arguments[] = {const_cast<char*>(program), file_.data(), nullptr};
    pid_t process = 0;
    const int why = posix_spawnp(&process, program, nullptr, nullptr, arguments, environ);
    _exit(why);
  }
  int status = 0;
  if (between < 0) return std::strerror(errno);
  while (waitpid(between, &status, 0) < 0 && errno == EINTR) continue;
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return "";
  return std::string("xdg-open, or what BROWSER names, does not start: ") +
         std::strerror(WIFEXITED(status) ? WEXITSTATUS(status) : ECHILD);
}

Browser::~Browser() {
  if (file_.empty()) return;
  unlink(file_.c_str());
  rmdir(folder_.c_str());
  forgetTemporary(file_);
}

}  // namespace command::viewer
