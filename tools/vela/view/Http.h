/// \file
/// What comes in over HTTP and what goes out, without the library that carries it.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace command::viewer {

struct HttpRequest {
  std::string method;       ///< `GET`, `POST` ...
  std::string target;       ///< as it was sent: path and query
  std::string host;         ///< the header; empty when there is none
  std::string origin;       ///< the header; empty when there is none
  std::string contentType;  ///< the header; empty when there is none
  std::string body;
};

struct HttpResponse {
  int status = 200;
  std::string type = "text/plain; charset=utf-8";
  std::string body;
  std::vector<std::pair<std::string, std::string>> headers = {};  ///< further ones
};

/// A line of plain text.
[[nodiscard]] inline HttpResponse refuse(int status, std::string_view why) {
  HttpResponse response;
  response.status = status;
  response.body = std::string(why) + "\n";
  return response;
}

}  // namespace command::viewer
