#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <string>

#include "Interrupt.h"
#include "Messages.h"
#include "Notices.h"
#include "Options.h"
#include "view/Access.h"
#include "view/Answers.h"
#include "view/Browser.h"
#include "view/HttpServer.h"
#include "view/Pictures.h"
#include "view/Session.h"

namespace command {

namespace {

using namespace viewer;

std::string machineName() {
  std::array<char, 256> name{};
  return gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

// The address as a browser takes it. One that stands for all of this machine's is named by the
// machine.
std::string urlOf(const std::string& address, unsigned short port, const std::string& token) {
  std::string host = address;
  if (address == "0.0.0.0" || address == "::") host = machineName();
  if (host.find(':') != std::string::npos) host = "[" + host + "]";
  return "http://" + host + ":" + std::to_string(port) + "/" + token + "/";
}

}  // namespace

ExitCode view(const ViewVerbOptions& options) {
  // Whether it can listen is known before the long work.
  HttpServer server(options.address, options.port);
  const std::string token = randomToken();
  if (!isLoopback(options.address))
    say(Notice::warning,
        "with --bind whoever on the network knows the address sees the scene, its prims' names and "
        "its pictures, and reads along what is sent: it is not encrypted. The token in the address "
        "is all that keeps others out");

  Session session(options.render);
  Pictures pictures(session);
  const Access access(token, machineName(), server.port());
  const Answers answers(session, pictures, access);
  throwIfInterrupted();

  const std::string url = urlOf(options.address, server.port(), token);
  std::printf("%s\n", url.c_str());
  std::fflush(stdout);
  if (isatty(STDERR_FILENO)) std::fprintf(stderr, "vela view: Ctrl-C ends it\n");
  const Browser browser(options.opensBrowser ? url : "");
  server.run([&](const HttpRequest& request) { return answers.answer(request); }, isInterrupted);
  return kDone;
}

}  // namespace command
