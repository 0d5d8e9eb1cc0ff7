// One TCP connection before (or instead of) the WebSocket upgrade: static files for the page,
// and the checks every upgrade request must pass.
#pragma once

#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <memory>
#include <optional>
#include <string>

#include "host/web/access_policy.hpp"
#include "host/web/connection_registry.hpp"
#include "host/web/session_settings.hpp"

namespace clipboard_host::web {

class HttpSession : public std::enable_shared_from_this<HttpSession> {
 public:
  // What the HTTP sessions of one listener share; the listener owns it and outlives them.
  struct Context {
    AccessPolicy const& policy;
    std::string const& webRoot;
    SessionSettings const& webSocket;  // what an upgraded connection serves with
    ConnectionRegistry& connections;   // where it takes its slot
  };

  HttpSession(boost::asio::ip::tcp::socket&& socket, Context context);
  void start();
  void close();  // from any thread

 private:
  using Response = boost::beast::http::response<boost::beast::http::string_body>;

  void doRead();
  void onRead(boost::beast::error_code ec, std::size_t bytes);
  void send(Response response, bool keepAlive);
  void refuse(boost::beast::http::status status, char const* why);

  boost::beast::tcp_stream stream_;
  boost::beast::flat_buffer buffer_;
  std::optional<boost::beast::http::request_parser<boost::beast::http::empty_body>> parser_;
  std::shared_ptr<Response> response_;
  Context const context_;
};

}  // namespace clipboard_host::web
