#include "host/web/http_session.hpp"

#include <boost/asio/dispatch.hpp>
#include <boost/asio/post.hpp>
#include <boost/beast/websocket.hpp>
#include <chrono>
#include <fstream>
#include <sstream>

#include "host/web/static_files.hpp"
#include "host/web/websocket_session.hpp"

namespace clipboard_host::web {

namespace beast = boost::beast;
namespace http = beast::http;

namespace {

// What a request may take: its header, no body (every request served is a GET).
constexpr std::uint32_t kHeaderLimit = 16 * 1024;
constexpr auto kRequestTimeout = std::chrono::seconds(30);

}  // namespace

HttpSession::HttpSession(boost::asio::ip::tcp::socket&& socket, Context context)
    : stream_(std::move(socket)), context_(context) {}

void HttpSession::start() {
  boost::asio::dispatch(stream_.get_executor(),
                        beast::bind_front_handler(&HttpSession::doRead, shared_from_this()));
}

void HttpSession::close() {
  boost::asio::post(stream_.get_executor(), [self = shared_from_this()] {
    beast::error_code ignored;
    self->stream_.socket().shutdown(boost::asio::ip::tcp::socket::shutdown_both, ignored);
    self->stream_.close();
  });
}

void HttpSession::doRead() {
  parser_.emplace();
  parser_->header_limit(kHeaderLimit);
  parser_->body_limit(0);
  stream_.expires_after(kRequestTimeout);
  http::async_read(stream_, buffer_, *parser_,
                   beast::bind_front_handler(&HttpSession::onRead, shared_from_this()));
}

void HttpSession::onRead(beast::error_code ec, std::size_t) {
  if (ec) {
    if (ec == http::error::header_limit || ec == http::error::body_limit) {
      refuse(http::status::payload_too_large, "request too large");
      return;
    }
    beast::error_code ignored;
    stream_.socket().shutdown(boost::asio::ip::tcp::socket::shutdown_send, ignored);
    return;
  }
  auto const& request = parser_->get();
  AccessPolicy const& policy = context_.policy;
  auto const host = request[http::field::host];
  if (!policy.hostAllowed({host.data(), host.size()})) {
    refuse(http::status::forbidden, "forbidden");
    return;
  }
  std::string_view const target(request.target().data(), request.target().size());
  std::string_view const path = targetPath(target);

  if (beast::websocket::is_upgrade(request)) {
    auto const origin = request[http::field::origin];
    if (path != "/ws" || !policy.originAllowed({origin.data(), origin.size()}) ||
        !policy.tokenAllowed(queryParameter(target, "token"))) {
      refuse(http::status::forbidden, "forbidden");
      return;
    }
    if (!context_.connections.reserve()) {
      refuse(http::status::service_unavailable, "too many connections");
      return;
    }
    stream_.expires_never();
    context_.connections.start(
        std::make_shared<WebSocketSession>(std::move(stream_), context_.webSocket),
        parser_->release());
    return;
  }

  if (request.method() != http::verb::get && request.method() != http::verb::head) {
    refuse(http::status::method_not_allowed, "method not allowed");
    return;
  }
  auto const file = resolveStaticFile(context_.webRoot, path);
  std::string body;
  if (file) {
    std::ifstream in(file->path, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    if (!in.bad()) {
      body = content.str();
    }
  }
  if (!file) {
    refuse(http::status::not_found, "not found");
    return;
  }
  Response response{http::status::ok, request.version()};
  response.set(http::field::content_type, file->contentType);
  std::size_t const size = body.size();
  if (request.method() == http::verb::get) {
    response.body() = std::move(body);
  }
  response.content_length(size);
  send(std::move(response), request.keep_alive());
}

void HttpSession::refuse(http::status status, char const* why) {
  Response response{status, 11};
  response.set(http::field::content_type, "text/plain; charset=utf-8");
  response.body() = std::string(why) + "\n";
  response.prepare_payload();
  send(std::move(response), false);
}

void HttpSession::send(Response response, bool keepAlive) {
  auto const host = parser_->get()[http::field::host];
  response.set(http::field::server, "clipboard-host");
  response.set(http::field::cache_control, "no-store");
  response.set("Content-Security-Policy",
               contentSecurityPolicy(context_.policy.hostAllowed({host.data(), host.size()})
                                         ? std::string_view(host.data(), host.size())
                                         : std::string_view("127.0.0.1")));
  response.set("X-Content-Type-Options", "nosniff");
  // The page's address carries the token: it must not leave in a Referer header.
  response.set("Referrer-Policy", "no-referrer");
  response.keep_alive(keepAlive);
  response_ = std::make_shared<Response>(std::move(response));
  http::async_write(stream_, *response_,
                    [self = shared_from_this(), keepAlive](beast::error_code ec, std::size_t) {
                      self->response_.reset();
                      if (!ec && keepAlive) {
                        self->doRead();
                        return;
                      }
                      beast::error_code ignored;
                      self->stream_.socket().shutdown(boost::asio::ip::tcp::socket::shutdown_send,
                                                      ignored);
                    });
}

}  // namespace clipboard_host::web
