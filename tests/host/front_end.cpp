#include "host/front_end.hpp"

#include <gtest/gtest.h>
#include <signal.h>

#include <boost/asio/connect.hpp>
#include <boost/beast/core.hpp>
#include "support/temp_dir.hpp"

namespace host_test {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;
using tcp = asio::ip::tcp;
using test_support::Launch;
using test_support::Process;
using test_support::Stream;

std::unique_ptr<Process> startHost(std::vector<std::string> options, std::vector<std::string> env) {
  Launch launch;
  launch.argv = std::move(options);
  launch.argv.insert(launch.argv.begin(), CLIPBOARD_HOST_PATH);
  launch.env = std::move(env);
  return std::make_unique<Process>(std::move(launch));
}

WebHost::WebHost(std::vector<std::string> options, std::vector<std::string> env) {
  Launch launch;
  launch.argv = {CLIPBOARD_HOST_PATH, "--listen", "127.0.0.1:0", "--web-root",
                 std::string(EDITOR_CLIPBOARD_SOURCE_DIR) + "/web"};
  launch.argv.insert(launch.argv.end(), options.begin(), options.end());
  launch.env = std::move(env);
  launch.in = Stream::null();
  launch.out = Stream::null();
  launch.err = Stream::pipe();
  process_ = std::make_unique<Process>(std::move(launch));
  firstErrorLine_ = process_->readErrorLine(20s).value_or("");
  std::string const prefix = "listening on http://127.0.0.1:";
  if (firstErrorLine_.rfind(prefix, 0) != 0) {
    return;
  }
  port_ = static_cast<unsigned short>(std::stoi(firstErrorLine_.substr(prefix.size())));
  token_ = firstErrorLine_.substr(firstErrorLine_.find("token=") + 6);
  while (!token_.empty() && token_.back() == '\r') {
    token_.pop_back();
  }
}

WebHost::~WebHost() {
  if (!stopped_ && listening()) {
    EXPECT_EQ(stop(), 0) << "a host stopped with SIGTERM ends cleanly";
  }
}

int WebHost::stop() {
  stopped_ = true;
  process_->signal(SIGTERM);
  int const status = process_->finish(10s);
  while (auto line = process_->readErrorLine(1s)) {
    laterErrorText_ += *line + "\n";
  }
  return status;
}

std::unique_ptr<Socket> connectTo(asio::io_context& ioc, WebHost const& host,
                                  beast::error_code& ec) {
  auto ws = std::make_unique<Socket>(ioc);
  tcp::endpoint const endpoint(asio::ip::make_address("127.0.0.1"), host.port());
  beast::get_lowest_layer(*ws).connect(endpoint, ec);
  if (ec) {
    return ws;
  }
  ws->set_option(websocket::stream_base::decorator([&host](websocket::request_type& request) {
    request.set(http::field::origin, host.origin());
  }));
  ws->read_message_max(std::size_t{1} << 30);
  ws->handshake(host.hostHeader(), "/ws?token=" + host.token(), ec);
  ws->text(true);
  return ws;
}

std::unique_ptr<Socket> connectTo(asio::io_context& ioc, WebHost const& host) {
  beast::error_code ec;
  auto ws = connectTo(ioc, host, ec);
  EXPECT_FALSE(ec) << ec.message();
  return ws;
}

std::string roundTrip(Socket& ws, std::string const& message) {
  ws.text(true);
  ws.write(asio::buffer(message));
  beast::flat_buffer buffer;
  ws.read(buffer);
  return beast::buffers_to_string(buffer.data());
}

std::string nameOf(Transport transport) {
  return transport == Transport::pipe ? "pipe" : "websocket";
}

FrontEnd::FrontEnd(Transport transport, std::vector<std::string> options,
                   std::vector<std::string> env) {
  if (transport == Transport::pipe) {
    pipe_ = startHost(std::move(options), std::move(env));
    return;
  }
  web_ = std::make_unique<WebHost>(std::move(options), std::move(env));
  if (web_->listening()) {
    socket_ = connectTo(ioc_, *web_);
  }
}

FrontEnd::~FrontEnd() = default;

bool FrontEnd::started() const {
  return pipe_ ? true : web_->listening();
}

void FrontEnd::send(std::string const& line) {
  if (pipe_) {
    EXPECT_TRUE(pipe_->writeLine(line)) << "the host no longer reads";
  } else if (socket_) {
    beast::error_code ec;
    socket_->write(asio::buffer(line), ec);
    EXPECT_FALSE(ec) << ec.message();
  }
}

std::optional<std::string> FrontEnd::receive(std::chrono::milliseconds limit) {
  if (pipe_) {
    return pipe_->readLine(limit);
  }
  if (!socket_) {
    return std::nullopt;
  }
  beast::flat_buffer buffer;
  std::optional<beast::error_code> result;
  socket_->async_read(buffer, [&](beast::error_code ec, std::size_t) { result = ec; });
  ioc_.restart();
  ioc_.run_for(limit);
  if (!result) {
    // A read given up on leaves the stream unusable: this front end is done.
    beast::get_lowest_layer(*socket_).cancel();
    ioc_.restart();
    ioc_.run();
    socket_.reset();
    return std::nullopt;
  }
  if (*result) {
    socket_.reset();
    return std::nullopt;
  }
  return beast::buffers_to_string(buffer.data());
}

int FrontEnd::end(std::vector<std::string>& rest) {
  if (pipe_) {
    pipe_->closeInput();
    while (auto line = pipe_->readLine()) {
      rest.push_back(*line);
    }
    return pipe_->finish();
  }
  if (!web_->listening()) {
    return web_->process().finish();
  }
  // Nothing marks the end of a connection's output: what comes within a moment.
  while (auto line = receive(200ms)) {
    rest.push_back(*line);
  }
  return web_->stop();
}

std::string FrontEnd::errorText() const {
  if (pipe_) {
    return pipe_->errorText();
  }
  return web_->listening() ? web_->laterErrorText() : web_->firstErrorLine();
}

void PrintTo(Transport transport, std::ostream* os) {
  *os << nameOf(transport);
}

void PrintTo(Transcript const& transcript, std::ostream* os) {
  *os << transcript.name;
}

bool matches(std::string const& pattern, std::string const& text) {
  std::size_t const star = pattern.find('*');
  if (star == std::string::npos) {
    return pattern == text;
  }
  if (text.compare(0, star, pattern, 0, star) != 0) {
    return false;
  }
  std::string const after = pattern.substr(star + 1);
  for (std::size_t from = star; from <= text.size(); ++from) {
    if (matches(after, text.substr(from))) {
      return true;
    }
  }
  return false;
}

namespace {

std::string joined(std::vector<std::string> const& lines) {
  std::string out;
  for (auto const& line : lines) {
    out += "  " + line + "\n";
  }
  return out;
}

bool answered(std::string const& line) {
  return !line.empty() && line.find(R"("kind":"external")") == std::string::npos;
}

}  // namespace

void runTranscript(Transcript const& transcript, Transport transport) {
  SCOPED_TRACE(std::string(transcript.name) + " over the " + nameOf(transport));
  std::vector<std::string> options = transcript.options;
  test_support::TempDir dir;
  for (auto& option : options) {
    if (option == "{file}") {
      option = dir.file("file", transcript.file);
    }
  }
  FrontEnd front(transport, options);
  ASSERT_TRUE(front.started()) << front.errorText();
  std::vector<std::string> got;
  bool lost = false;
  for (auto const& line : transcript.in) {
    front.send(line);
    while (!lost && answered(line)) {
      auto const answer = front.receive();
      if (!answer) {
        ADD_FAILURE() << "no answer to " << line;
        lost = true;
        break;
      }
      got.push_back(*answer);
      if (answer->rfind(R"({"type":"notification")", 0) != 0) {
        break;
      }
    }
  }
  std::vector<std::string> rest;
  EXPECT_EQ(front.end(rest), 0) << front.errorText();
  got.insert(got.end(), rest.begin(), rest.end());
  bool same = got.size() == transcript.out.size();
  for (std::size_t i = 0; same && i < got.size(); ++i) {
    same = matches(transcript.out[i], got[i]);
  }
  EXPECT_TRUE(same) << "output:\n" << joined(got) << "expected:\n" << joined(transcript.out);
  if (transcript.errorSays != nullptr && *transcript.errorSays == '\0') {
    EXPECT_EQ(front.errorText(), "");
  } else if (transcript.errorSays != nullptr) {
    EXPECT_NE(front.errorText().find(transcript.errorSays), std::string::npos) << front.errorText();
  }
}

}  // namespace host_test
