#include "host/web/websocket_session.hpp"

#include <boost/asio/post.hpp>
#include <chrono>
#include <utility>

#include "host/host_session.hpp"

namespace clipboard_host::web {

namespace beast = boost::beast;
namespace websocket = beast::websocket;

WebSocketSession::WebSocketSession(beast::tcp_stream&& stream, SessionSettings const& settings)
    : ws_(std::move(stream)), settings_(settings) {}

WebSocketSession::~WebSocketSession() {
  join();
}

void WebSocketSession::join() {
  if (worker_.joinable()) {
    worker_.join();
  }
}

void WebSocketSession::start(Request request) {
  beast::get_lowest_layer(ws_).expires_never();
  websocket::stream_base::timeout timeout{};
  timeout.handshake_timeout = std::chrono::seconds(30);
  // A peer that stops answering pings is gone; so is one that stops reading for that long.
  timeout.idle_timeout = std::chrono::seconds(60);
  timeout.keep_alive_pings = true;
  ws_.set_option(timeout);
  ws_.set_option(websocket::stream_base::decorator([](websocket::response_type& response) {
    response.set(beast::http::field::server, "clipboard-host");
  }));
  ws_.read_message_max(settings_.limits.maxMessage);
  // One frame per message: large replies are not cut into thousands of small frames.
  ws_.auto_fragment(false);
  ws_.text(true);
  worker_ = std::thread([this] { work(); });
  ws_.async_accept(request,
                   beast::bind_front_handler(&WebSocketSession::onAccept, shared_from_this()));
}

void WebSocketSession::onAccept(beast::error_code ec) {
  if (ec) {
    abort();
    return;
  }
  doRead();
}

void WebSocketSession::doRead() {
  ws_.async_read(buffer_, beast::bind_front_handler(&WebSocketSession::onRead, shared_from_this()));
}

void WebSocketSession::onRead(beast::error_code ec, std::size_t) {
  if (ec) {
    // Too large (1009), invalid UTF-8 (1007) and the peer's close were answered by the stream.
    abort();
    return;
  }
  if (!ws_.got_text()) {
    buffer_.consume(buffer_.size());
    ws_.async_close(websocket::close_reason(websocket::close_code::unknown_data,
                                            "requests are JSON text frames"),
                    [self = shared_from_this()](beast::error_code) { self->abort(); });
    return;
  }
  std::string message = beast::buffers_to_string(buffer_.data());
  buffer_.consume(buffer_.size());
  std::lock_guard<std::mutex> lock(mutex_);
  if (closed_) {
    return;
  }
  inboundBytes_ += message.size();
  inbound_.push_back(std::move(message));
  wake_.notify_one();
  if (inboundBytes_ >= settings_.limits.maxQueue) {
    readPaused_ = true;  // the worker reads on once it has caught up
    return;
  }
  doRead();
}

void WebSocketSession::queueOutput(std::string const& message) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (closed_) {
    return;
  }
  // One message always fits, however large; beyond that the peer must be reading.
  if (!outbound_.empty() && outboundBytes_ + message.size() > settings_.limits.maxQueue) {
    closeLocked();
    return;
  }
  outbound_.push_back(message);
  outboundBytes_ += message.size();
  if (!writing_) {
    writing_ = true;
    boost::asio::post(ws_.get_executor(), [self = shared_from_this()] { self->doWrite(); });
  }
}

void WebSocketSession::doWrite() {
  std::string const* front = nullptr;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (closed_ || outbound_.empty()) {
      writing_ = false;
      return;
    }
    front = &outbound_.front();  // deque elements stay put while others are pushed
  }
  ws_.async_write(boost::asio::buffer(*front),
                  beast::bind_front_handler(&WebSocketSession::onWrite, shared_from_this()));
}

void WebSocketSession::onWrite(beast::error_code ec, std::size_t) {
  if (ec) {
    abort();
    return;
  }
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!outbound_.empty()) {
      outboundBytes_ -= outbound_.front().size();
      outbound_.pop_front();
    }
    if (closed_ || outbound_.empty()) {
      writing_ = false;
      return;
    }
  }
  doWrite();
}

void WebSocketSession::shutdown() {
  std::lock_guard<std::mutex> lock(mutex_);
  closeLocked();
}

void WebSocketSession::closeLocked() {
  if (!closed_) {
    closed_ = true;
    wake_.notify_one();
  }
  boost::asio::post(ws_.get_executor(), [self = shared_from_this()] {
    beast::error_code ignored;
    beast::get_lowest_layer(self->ws_).socket().close(ignored);
  });
}

// On the strand, after a failed or finished read or write.
void WebSocketSession::abort() {
  std::lock_guard<std::mutex> lock(mutex_);
  closeLocked();
}

void WebSocketSession::work() {
  {
    LineWriter writer([this](std::string const& message) { queueOutput(message); }, false);
    HostSession session(settings_.vocabulary, settings_.backend, writer, settings_.diagnostics);
    std::size_t number = 0;
    for (;;) {
      std::string message;
      {
        std::unique_lock<std::mutex> lock(mutex_);
        wake_.wait(lock, [this] { return closed_ || !inbound_.empty(); });
        if (closed_) {
          break;
        }
        message = std::move(inbound_.front());
        inbound_.pop_front();
        inboundBytes_ -= message.size();
        if (readPaused_ && inboundBytes_ < settings_.limits.maxQueue) {
          readPaused_ = false;
          boost::asio::post(ws_.get_executor(), [self = shared_from_this()] { self->doRead(); });
        }
      }
      session.handleLine(message, ++number);
    }
    // The session's destructor unregisters its listener and waits for a notification under way.
  }
  // The queues go with the connection object: a write under way may still point into them.
  ended_();
}

}  // namespace clipboard_host::web
