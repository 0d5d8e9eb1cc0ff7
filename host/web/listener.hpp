// clipboard-host --listen: the page over HTTP and the service over WebSocket, on Boost.Beast.
//
// The listener accepts each TCP connection as an HttpSession; one that upgrades turns its socket
// into a WebSocketSession and places it in the listener's ConnectionRegistry. Nothing below the
// listener knows it: the HTTP sessions get what they share as an HttpSession::Context.
#pragma once

#include <atomic>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "host/web/access_policy.hpp"
#include "host/web/connection_registry.hpp"
#include "host/web/session_settings.hpp"
#include "host/web/settings.hpp"

namespace clipboard_host::web {

class HttpSession;

class Listener {
 public:
  // Binds the socket; throws on failure (address in use, no web folder, bad token file).
  Listener(Settings const& settings, SessionSettings webSocket);
  ~Listener();
  Listener(Listener const&) = delete;
  Listener& operator=(Listener const&) = delete;

  std::string pageUrl() const { return policy_->pageUrl(); }

  // Serves until SIGINT or SIGTERM, then closes every connection (their service objects go
  // first) and returns. `ready` runs once those signals are caught, so that a signal sent as
  // soon as the address is announced stops the host cleanly.
  void runUntilSignal(std::function<void()> const& ready);

 private:
  void doAccept();
  void track(std::shared_ptr<HttpSession> const& session);
  void stop();

  SessionSettings webSocket_;
  std::string webRoot_;
  std::unique_ptr<AccessPolicy> policy_;

  boost::asio::io_context ioc_;
  boost::asio::ip::tcp::acceptor acceptor_;
  std::vector<std::thread> ioThreads_;
  ConnectionRegistry connections_;

  std::mutex mutex_;  // guards httpSessions_
  std::vector<std::weak_ptr<HttpSession>> httpSessions_;
  std::atomic<bool> stopping_{false};
};

}  // namespace clipboard_host::web
