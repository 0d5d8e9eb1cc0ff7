// clipboard-host as its front ends meet it: started on the process kit, spoken to over a pipe
// or over a WebSocket, and host behaviour written once as a transcript that runs on both.
#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>
#include <chrono>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "support/process.hpp"

namespace host_test {

using namespace std::chrono_literals;

// clipboard-host with these options on a pipe, its standard error captured.
std::unique_ptr<test_support::Process> startHost(std::vector<std::string> options,
                                                 std::vector<std::string> env = {});

// clipboard-host --listen on a free loopback port, serving the source tree's page. Stopped
// with SIGTERM, which must end it with status 0.
class WebHost {
 public:
  explicit WebHost(std::vector<std::string> options = {}, std::vector<std::string> env = {});
  ~WebHost();
  WebHost(WebHost const&) = delete;
  WebHost& operator=(WebHost const&) = delete;

  // False when the host ended instead of listening (bad options, say): firstErrorLine() says why.
  bool listening() const { return port_ != 0; }
  std::string const& firstErrorLine() const { return firstErrorLine_; }
  unsigned short port() const { return port_; }
  std::string const& token() const { return token_; }
  std::string hostHeader() const { return "127.0.0.1:" + std::to_string(port_); }
  std::string origin() const { return "http://" + hostHeader(); }
  test_support::Process& process() { return *process_; }
  // SIGTERM, then the exit status and what standard error said after the address.
  int stop();
  std::string const& laterErrorText() const { return laterErrorText_; }

 private:
  std::unique_ptr<test_support::Process> process_;
  std::string firstErrorLine_;
  std::string laterErrorText_;
  unsigned short port_ = 0;
  std::string token_;
  bool stopped_ = false;
};

using Socket = boost::beast::websocket::stream<boost::asio::ip::tcp::socket>;

// A WebSocket to the host's /ws with its token, Origin and Host; `ec` says why it failed.
std::unique_ptr<Socket> connectTo(boost::asio::io_context& ioc, WebHost const& host,
                                  boost::beast::error_code& ec);
std::unique_ptr<Socket> connectTo(boost::asio::io_context& ioc, WebHost const& host);
// One text frame out, the next frame back.
std::string roundTrip(Socket& ws, std::string const& message);

enum class Transport { pipe, websocket };
std::string nameOf(Transport transport);
void PrintTo(Transport transport, std::ostream* os);

// One front end of one host: lines out, lines back with a deadline, on either transport.
class FrontEnd {
 public:
  FrontEnd(Transport transport, std::vector<std::string> options,
           std::vector<std::string> env = {});
  ~FrontEnd();
  // False when the host ended at its start; end() then gives the status.
  bool started() const;
  void send(std::string const& line);
  std::optional<std::string> receive(std::chrono::milliseconds limit = 10s);
  // Ends the conversation as the front end would (end of input, or the socket closed and the
  // host stopped): the lines still to come, then the exit status.
  int end(std::vector<std::string>& rest);
  // Standard error, once ended (on the WebSocket, without the address line).
  std::string errorText() const;

 private:
  std::unique_ptr<test_support::Process> pipe_;
  std::unique_ptr<WebHost> web_;
  boost::asio::io_context ioc_;
  std::unique_ptr<Socket> socket_;
};

// Lines in and lines out, as a front end sees them. Expected lines match exactly, but for `*`,
// which stands for any text.
struct Transcript {
  char const* name;
  std::vector<std::string> options;
  std::vector<std::string> in;
  std::vector<std::string> out;
  // Written to a file that "{file}" in the options names.
  std::string file = "";
  // Standard error holds this (after the address line on the WebSocket); nullptr: not checked.
  char const* errorSays = nullptr;
  bool pipeOnly = false;
};

// Each line written once the answer to the one before has arrived (a reply or an error line,
// notifications read on the way; an "external" line has none), then the output compared with
// the transcript's, and the host must end with status 0.
void runTranscript(Transcript const& transcript, Transport transport);
void PrintTo(Transcript const& transcript, std::ostream* os);

bool matches(std::string const& pattern, std::string const& text);

}  // namespace host_test
