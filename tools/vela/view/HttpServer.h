/// \file
/// Carries requests to a function and its answers back.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "view/Http.h"

namespace command::viewer {

/// What one caller, or all of them, may ask of the server.
struct HttpLimits {
  std::size_t headerBytes = 16 * 1024;
  std::size_t bodyBytes = 1024 * 1024;
  std::size_t connections = 64;  ///< at the same time
  int seconds = 30;              ///< for a request to arrive, and for an idle connection
  std::size_t workers = 6;       ///< requests that are answered at the same time
};

/// Listens at an address. Requests that are no HTTP, too large or too many are answered here: 400,
/// 413, 431, 503.
class HttpServer {
 public:
  /// \param address in numbers, such as 127.0.0.1
  /// \param port    0: any that is free
  /// \throws Failure when it cannot listen there
  HttpServer(const std::string& address, unsigned short port, const HttpLimits& limits = {});
  ~HttpServer();
  HttpServer(const HttpServer&) = delete;
  HttpServer& operator=(const HttpServer&) = delete;

  [[nodiscard]] unsigned short port() const;

  /// Answers until told to stop.
  ///
  /// \param answer  is called on several threads at once, and must not throw
  /// \param isOver  is asked about every 20 ms on the caller's thread. When it is true, \p answer
  ///                should come to an end soon: this returns when all calls have
  void run(const std::function<HttpResponse(const HttpRequest&)>& answer,
           const std::function<bool()>& isOver);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace command::viewer
