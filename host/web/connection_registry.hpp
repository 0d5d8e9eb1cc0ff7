// The WebSocket sessions of one listener: the slots that --max-connections allows, and the
// sessions open, so that a stop reaches them all and each finished one's worker is joined.
//
// The listener owns it; its HTTP sessions take a slot and hand over the session they upgraded.
#pragma once

#include <atomic>
#include <boost/asio/io_context.hpp>
#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

#include "host/web/websocket_session.hpp"

namespace clipboard_host::web {

class ConnectionRegistry {
 public:
  // Finished sessions are joined and dropped on `ioc`'s threads.
  ConnectionRegistry(boost::asio::io_context& ioc, std::size_t maxConnections);
  ConnectionRegistry(ConnectionRegistry const&) = delete;
  ConnectionRegistry& operator=(ConnectionRegistry const&) = delete;

  // Takes a slot; false when every slot is taken or the listener is stopping.
  bool reserve();
  // Serves `session` in the slot that reserve() took, from the upgrade `request` on; the slot
  // comes free when the session's worker ends.
  void start(std::shared_ptr<WebSocketSession> session, WebSocketSession::Request request);
  // Closes every session open, and any started from now on; callable from any thread.
  void shutdownAll();
  // Once no I/O thread runs: closes every session and waits for its worker.
  void closeAll();

 private:
  void reap();

  boost::asio::io_context& ioc_;
  std::size_t const maxConnections_;

  std::mutex mutex_;
  std::size_t taken_ = 0;  // slots taken, released when a session's worker ends
  std::vector<std::shared_ptr<WebSocketSession>> sessions_;
  std::vector<WebSocketSession*> ended_;  // workers done, to be joined and dropped
  std::atomic<bool> stopping_{false};
};

}  // namespace clipboard_host::web
