// One front end on a WebSocket: its own service object, its own worker thread, and bounded
// queues both ways.
//
// The socket's I/O runs on a strand of the listener's I/O threads; the requests run one after
// another on the connection's worker thread, so a request blocked on a stalled clipboard owner
// holds up its own connection only. Replies and notifications (which come from the backend's
// thread) go through one outgoing queue; a peer that lets it grow past the bound is dropped.
#pragma once

#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "host/web/session_settings.hpp"

namespace clipboard_host::web {

class WebSocketSession : public std::enable_shared_from_this<WebSocketSession> {
 public:
  using Request = boost::beast::http::request<boost::beast::http::empty_body>;

  WebSocketSession(boost::beast::tcp_stream&& stream, SessionSettings const& settings);
  ~WebSocketSession();
  WebSocketSession(WebSocketSession const&) = delete;
  WebSocketSession& operator=(WebSocketSession const&) = delete;

  // Completes the upgrade that `request` asked for and starts serving.
  void start(Request request);
  // Drops the connection; callable from any thread.
  void shutdown();
  // `ended` runs on the worker thread once the connection's service object is gone.
  void setEnded(std::function<void()> ended) { ended_ = std::move(ended); }
  // Waits for the worker thread (after `ended` ran, this returns at once).
  void join();

 private:
  void onAccept(boost::beast::error_code ec);
  void doRead();
  void onRead(boost::beast::error_code ec, std::size_t bytes);
  void queueOutput(std::string const& message);
  void doWrite();
  void onWrite(boost::beast::error_code ec, std::size_t bytes);
  void abort();
  void closeLocked();
  void work();

  boost::beast::websocket::stream<boost::beast::tcp_stream> ws_;
  boost::beast::flat_buffer buffer_;
  SessionSettings const settings_;
  std::function<void()> ended_;

  std::mutex mutex_;
  std::condition_variable wake_;
  bool closed_ = false;
  std::deque<std::string> inbound_;
  std::size_t inboundBytes_ = 0;
  bool readPaused_ = false;
  std::deque<std::string> outbound_;  // the front one is being written while writing_
  std::size_t outboundBytes_ = 0;
  bool writing_ = false;

  std::thread worker_;
};

}  // namespace clipboard_host::web
