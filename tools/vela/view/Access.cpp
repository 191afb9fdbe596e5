#include "view/Access.h"

#include <arpa/inet.h>
#include <sys/random.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "Messages.h"

namespace command::viewer {

namespace {

// In time that does not depend on how many characters are right.
bool isEqual(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  unsigned char differs = 0;
  for (std::size_t i = 0; i < a.size(); ++i)
    differs = static_cast<unsigned char>(differs | (a[i] ^ b[i]));
  return differs == 0;
}

bool isAddress(const std::string& text) {
  std::array<unsigned char, sizeof(in6_addr)> bytes{};
  return inet_pton(AF_INET, text.c_str(), bytes.data()) == 1 ||
         inet_pton(AF_INET6, text.c_str(), bytes.data()) == 1;
}

}  // namespace

std::string randomToken() {
  std::array<unsigned char, 16> bytes{};
  if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size()))
    throw failure(Message::cannotServe, {"the system's random source", std::strerror(errno),
                                         "see that /dev/urandom is there"});
  std::string text;
  for (const unsigned char byte : bytes) {
    text += "0123456789abcdef"[byte >> 4];
    text += "0123456789abcdef"[byte & 15];
  }
  return text;
}

bool isLoopback(std::string_view address) {
  return address == "::1" || address.substr(0, 4) == "127.";
}

bool Access::isOwnHost(std::string_view host) const {
  const std::string port = ":" + std::to_string(port_);
  if (host.size() <= port.size() || host.substr(host.size() - port.size()) != port) return false;
  std::string name(host.substr(0, host.size() - port.size()));
  if (name.size() > 2 && name.front() == '[' && name.back() == ']')
    name = name.substr(1, name.size() - 2);
  return name == "localhost" || (!machine_.empty() && name == machine_) || isAddress(name);
}

std::optional<HttpResponse> Access::check(const HttpRequest& request, std::string& rest) const {
  if (!isOwnHost(request.host)) return refuse(403, "this server has another name");
  if (!request.origin.empty() && request.origin != "http://" + request.host)
    return refuse(403, "another page may not ask");
  const std::string_view target = request.target;
  const std::size_t end = target.empty() ? 0 : target.find('/', 1);
  const std::string_view token = target.substr(0, end).substr(target.empty() ? 0 : 1);
  if (!isEqual(token, token_))
    return refuse(403, "the address lacks its token: take the one that vela view printed");
  rest = end == std::string_view::npos ? "" : std::string(target.substr(end));
  if (request.method == "GET" || request.method == "HEAD") return std::nullopt;
  if (request.method != "POST") return refuse(405, "GET and POST alone");
  if (request.contentType != "application/json") return refuse(415, "JSON alone");
  return std::nullopt;
}

}  // namespace command::viewer
