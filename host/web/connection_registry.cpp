#include "host/web/connection_registry.hpp"

#include <algorithm>
#include <boost/asio/post.hpp>

namespace clipboard_host::web {

ConnectionRegistry::ConnectionRegistry(boost::asio::io_context& ioc, std::size_t maxConnections)
    : ioc_(ioc), maxConnections_(maxConnections) {}

bool ConnectionRegistry::reserve() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (stopping_ || taken_ >= maxConnections_) {
    return false;
  }
  ++taken_;
  return true;
}

void ConnectionRegistry::start(std::shared_ptr<WebSocketSession> session,
                               WebSocketSession::Request request) {
  WebSocketSession* const raw = session.get();
  // Runs on the session's worker thread, its service object already gone.
  session->setEnded([this, raw] {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      --taken_;
      ended_.push_back(raw);
    }
    boost::asio::post(ioc_, [this] { reap(); });
  });
  {
    std::lock_guard<std::mutex> lock(mutex_);
    sessions_.push_back(session);
  }
  session->start(std::move(request));
  if (stopping_) {
    session->shutdown();
  }
}

void ConnectionRegistry::reap() {
  std::vector<std::shared_ptr<WebSocketSession>> done;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    for (WebSocketSession* raw : ended_) {
      auto const it = std::find_if(sessions_.begin(), sessions_.end(),
                                   [raw](auto const& s) { return s.get() == raw; });
      if (it != sessions_.end()) {
        done.push_back(std::move(*it));
        sessions_.erase(it);
      }
    }
    ended_.clear();
  }
  for (auto& session : done) {
    session->join();
  }
}

void ConnectionRegistry::shutdownAll() {
  std::vector<std::shared_ptr<WebSocketSession>> open;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
    open = sessions_;
  }
  for (auto const& session : open) {
    session->shutdown();
  }
}

void ConnectionRegistry::closeAll() {
  std::vector<std::shared_ptr<WebSocketSession>> open;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
    open.swap(sessions_);
  }
  for (auto& session : open) {
    session->shutdown();
    session->join();
  }
}

}  // namespace clipboard_host::web
