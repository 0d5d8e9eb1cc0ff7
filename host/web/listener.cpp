#include "host/web/listener.hpp"

#include <algorithm>
#include <boost/asio/post.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/strand.hpp>
#include <stdexcept>

#include "host/web/http_session.hpp"
#include "host/web/static_files.hpp"

namespace clipboard_host::web {

namespace asio = boost::asio;
using tcp = asio::ip::tcp;

namespace {

// Sockets still reading a request (the page's files, upgrades under way); more wait in the
// kernel's backlog.
constexpr std::size_t kMaxHttpSessions = 64;

}  // namespace

Listener::Listener(Settings const& settings, SessionSettings webSocket)
    : webSocket_(std::move(webSocket)),
      acceptor_(asio::make_strand(ioc_)),
      connections_(ioc_, settings.maxConnections) {
  webRoot_ = findWebRoot(settings.webRoot);
  if (webRoot_.empty()) {
    throw std::runtime_error(settings.webRoot.empty()
                                 ? "no web folder found (give one with --web-root)"
                                 : "no such folder: " + settings.webRoot);
  }
  std::string token = settings.tokenFile.empty() ? makeToken() : readTokenFile(settings.tokenFile);

  auto const address = asio::ip::make_address(settings.address);
  tcp::endpoint const endpoint(address, settings.port);
  acceptor_.open(endpoint.protocol());
  acceptor_.set_option(asio::socket_base::reuse_address(true));
  acceptor_.bind(endpoint);
  acceptor_.listen(asio::socket_base::max_listen_connections);
  unsigned short const port = acceptor_.local_endpoint().port();
  std::string const hostName =
      address.is_v6() ? "[" + address.to_string() + "]" : address.to_string();
  policy_ = std::make_unique<AccessPolicy>(hostName, port, std::move(token), settings.allowOrigins,
                                           address.is_loopback());
}

Listener::~Listener() {
  stop();
}

void Listener::track(std::shared_ptr<HttpSession> const& session) {
  std::lock_guard<std::mutex> lock(mutex_);
  httpSessions_.erase(std::remove_if(httpSessions_.begin(), httpSessions_.end(),
                                     [](auto const& w) { return w.expired(); }),
                      httpSessions_.end());
  httpSessions_.push_back(session);
}

void Listener::doAccept() {
  acceptor_.async_accept(asio::make_strand(ioc_), [this](boost::system::error_code ec,
                                                         tcp::socket socket) {
    if (ec == asio::error::operation_aborted || stopping_) {
      return;
    }
    if (!ec) {
      bool room = false;
      {
        std::lock_guard<std::mutex> lock(mutex_);
        room = std::count_if(httpSessions_.begin(), httpSessions_.end(), [](auto const& w) {
                 return !w.expired();
               }) < static_cast<std::ptrdiff_t>(kMaxHttpSessions);
      }
      if (room) {
        auto session = std::make_shared<HttpSession>(
            std::move(socket), HttpSession::Context{*policy_, webRoot_, webSocket_, connections_});
        track(session);
        session->start();
      }
    }
    doAccept();
  });
}

void Listener::runUntilSignal(std::function<void()> const& ready) {
  asio::signal_set signals(ioc_, SIGINT, SIGTERM);
  signals.async_wait([this](boost::system::error_code, int) {
    stopping_ = true;
    // The acceptor belongs to its strand: the accept loop may be starting its next wait.
    asio::post(acceptor_.get_executor(), [this] { acceptor_.close(); });
    std::vector<std::shared_ptr<HttpSession>> sessions;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      for (auto const& weak : httpSessions_) {
        if (auto session = weak.lock()) {
          sessions.push_back(std::move(session));
        }
      }
    }
    connections_.shutdownAll();
    for (auto const& session : sessions) {
      session->close();
    }
  });
  ready();
  asio::post(acceptor_.get_executor(), [this] { doAccept(); });
  unsigned const count = 2;
  for (unsigned i = 0; i + 1 < count; ++i) {
    ioThreads_.emplace_back([this] { ioc_.run(); });
  }
  ioc_.run();
  stop();
}

void Listener::stop() {
  stopping_ = true;
  for (auto& thread : ioThreads_) {
    thread.join();
  }
  ioThreads_.clear();
  // Every handler has run: the workers saw their connections close.
  connections_.closeAll();
  // What the workers posted last (closes, writes that find the connection closed).
  ioc_.restart();
  ioc_.poll();
}

}  // namespace clipboard_host::web
