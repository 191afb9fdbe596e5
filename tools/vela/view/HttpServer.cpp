#include "view/HttpServer.h"

#include <atomic>
#include <chrono>
#include <optional>
#include <utility>

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/thread_pool.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>

#include "Messages.h"

namespace command::viewer {

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;
using Tcp = asio::ip::tcp;
using Error = boost::system::error_code;
using Answer = std::function<HttpResponse(const HttpRequest&)>;

std::string text(beast::string_view view) { return {view.data(), view.size()}; }

// The page takes scripts and styles from its own address alone, and no other page may hold it in a
// frame. Nothing is kept: pictures change, and an address is good for one run.
void addHeaders(http::response<http::string_body>& to, const HttpResponse& from) {
  to.set(http::field::content_type, from.type);
  to.set(http::field::cache_control, "no-store");
  to.set("Content-Security-Policy",
         "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' blob: data:; "
         "connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'");
  to.set("X-Content-Type-Options", "nosniff");
  to.set("Referrer-Policy", "no-referrer");
  to.set("Cross-Origin-Resource-Policy", "same-origin");
  to.set("Cross-Origin-Opener-Policy", "same-origin");
  for (const auto& [name, value] : from.headers) to.set(name, value);
}

// What all connections share. One thread carries bytes, the pool's answer.
struct Shared {
  Shared(asio::io_context& context, const HttpLimits& given)
      : io(context), limits(given), pool(given.workers) {}
  asio::io_context& io;
  HttpLimits limits;
  asio::thread_pool pool;
  const Answer* answer = nullptr;
  // Shared: connections that wait for bytes go with io, after all that is here.
  std::shared_ptr<std::atomic<std::size_t>> connections =
      std::make_shared<std::atomic<std::size_t>>(0);
};

// One caller. It lives as long as something is under way for it.
class Connection : public std::enable_shared_from_this<Connection> {
 public:
  Connection(Tcp::socket socket, Shared& shared)
      : stream_(std::move(socket)), shared_(shared), connections_(shared.connections) {
    isTooMany_ = ++*connections_ > shared_.limits.connections;
  }
  ~Connection() { --*connections_; }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  void read() {
    if (isTooMany_) return write(refuse(503, "too many connections"), false);
    parser_.emplace();
    parser_->header_limit(static_cast<std::uint32_t>(shared_.limits.headerBytes));
    parser_->body_limit(shared_.limits.bodyBytes);
    stream_.expires_after(std::chrono::seconds(shared_.limits.seconds));
    http::async_read(
        stream_, buffer_, *parser_,
        [self = shared_from_this()](Error error, std::size_t) { self->onRead(error); });
  }

 private:
  void onRead(Error error) {
    if (error == http::error::body_limit) return write(refuse(413, "too large"), false);
    if (error == http::error::header_limit)
      return write(refuse(431, "the headers are too large"), false);
    // What HTTP does not allow is answered; who is gone or silent is left.
    if (error && error.category() == make_error_code(http::error::bad_target).category() &&
        error != http::error::end_of_stream && error != http::error::partial_message)
      return write(refuse(400, "no HTTP that is understood"), false);
    if (error) return;
    stream_.expires_never();
    const auto& from = parser_->get();
    auto request = std::make_shared<HttpRequest>();
    request->method = text(from.method_string());
    request->target = text(from.target());
    request->host = text(from[http::field::host]);
    request->origin = text(from[http::field::origin]);
    request->contentType = text(from[http::field::content_type]);
    request->body = from.body();
    const bool keepAlive = from.keep_alive();
    isHead_ = from.method() == http::verb::head;
    asio::post(shared_.pool, [self = shared_from_this(), request, keepAlive] {
      auto response = std::make_shared<HttpResponse>((*self->shared_.answer)(*request));
      asio::post(self->shared_.io,
                 [self, response, keepAlive] { self->write(*response, keepAlive); });
    });
  }

  void write(const HttpResponse& from, bool keepAlive) {
    response_.emplace(static_cast<http::status>(from.status), 11u);
    addHeaders(*response_, from);
    response_->keep_alive(keepAlive);
    response_->body() = from.body;
    response_->prepare_payload();
    if (isHead_) response_->body().clear();
    stream_.expires_after(std::chrono::seconds(shared_.limits.seconds));
    http::async_write(stream_, *response_,
                      [self = shared_from_this(), keepAlive](Error error, std::size_t) {
                        if (!error && keepAlive) return self->read();
                        Error none;
                        self->stream_.socket().shutdown(Tcp::socket::shutdown_send, none);
                      });
  }

  beast::tcp_stream stream_;
  Shared& shared_;
  std::shared_ptr<std::atomic<std::size_t>> connections_;
  beast::flat_buffer buffer_;
  std::optional<http::request_parser<http::string_body>> parser_;
  std::optional<http::response<http::string_body>> response_;
  bool isTooMany_ = false, isHead_ = false;
};

void accept(Tcp::acceptor& acceptor, Shared& shared) {
  acceptor.async_accept([&](Error error, Tcp::socket socket) {
    if (error == asio::error::operation_aborted) return;
    if (!error) {
      Error none;
      socket.set_option(Tcp::no_delay(true), none);
      std::make_shared<Connection>(std::move(socket), shared)->read();
    }
    accept(acceptor, shared);
  });
}

}  // namespace

struct HttpServer::State {
  explicit State(const HttpLimits& limits) : shared(io, limits), acceptor(io) {}
  asio::io_context io{1};
  Shared shared;
  Tcp::acceptor acceptor;
};

HttpServer::HttpServer(const std::string& address, unsigned short port, const HttpLimits& limits)
    : state_(std::make_unique<State>(limits)) {
  Error error;
  const auto fail = [&](const char* attempt) {
    throw failure(Message::cannotServe,
                  {address + " port " + std::to_string(port), error.message(), attempt});
  };
  const asio::ip::address at = asio::ip::make_address(address, error);
  if (error) fail("name an address in numbers, such as --bind 192.168.1.20");
  Tcp::acceptor& acceptor = state_->acceptor;
  const Tcp::endpoint endpoint(at, port);
  acceptor.open(endpoint.protocol(), error);
  if (!error) acceptor.set_option(Tcp::acceptor::reuse_address(true), error);
  if (!error) acceptor.bind(endpoint, error);
  if (error == asio::error::access_denied || error == asio::error::address_in_use)
    fail("try another --port, or none");
  if (error) fail("try an address that this machine has");
  acceptor.listen(asio::socket_base::max_listen_connections, error);
  if (error) fail("try another --port, or none");
}

HttpServer::~HttpServer() = default;

unsigned short HttpServer::port() const { return state_->acceptor.local_endpoint().port(); }

void HttpServer::run(const Answer& answer, const std::function<bool()>& isOver) {
  state_->shared.answer = &answer;
  accept(state_->acceptor, state_->shared);
  while (!isOver()) state_->io.run_for(std::chrono::milliseconds(20));
  Error none;
  state_->acceptor.close(none);
  state_->shared.pool.stop();
  state_->shared.pool.join();
}

}  // namespace command::viewer
