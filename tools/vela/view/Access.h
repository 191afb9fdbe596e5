/// \file
/// Who may ask: the rules that a request passes before anything looks at what it wants.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "view/Http.h"

namespace command::viewer {

/// 32 hexadecimal digits from the system's random source.
/// \throws Failure when it gives none
[[nodiscard]] std::string randomToken();

/// True when an address names this machine alone: 127.0.0.0/8 and ::1.
[[nodiscard]] bool isLoopback(std::string_view address);

/// The rules of one server.
///
/// - Only who knows the token gets anything: it is the first part of every path.
/// - `Host` must be an address in numbers, `localhost` or the name of this machine, with the port:
///   a page elsewhere whose name is made to lead here has a name of its own in it.
/// - `Origin`, where there is one, must be the page's own.
/// - What asks for work is a POST of JSON: no form or picture of another page makes one.
///
/// Source: OWASP cheat sheets on DNS rebinding and cross-site request forgery.
class Access {
 public:
  Access(std::string token, std::string machine, unsigned short port)
      : token_(std::move(token)), machine_(std::move(machine)), port_(port) {}

  /// \param rest the path behind the token, from its slash; set when the request may go on
  /// \return what to answer instead; nothing when it may go on
  [[nodiscard]] std::optional<HttpResponse> check(const HttpRequest& request,
                                                  std::string& rest) const;

  /// True for a `Host` that is this server's.
  [[nodiscard]] bool isOwnHost(std::string_view host) const;

 private:
  std::string token_, machine_;
  unsigned short port_;
};

}  // namespace command::viewer
