// clipboard-host --listen driven by a WebSocket client the way a hostile or broken peer would:
// oversized and malformed frames, a peer that never reads, a peer that leaves mid-reply, too
// many peers, and file requests that try to leave the web folder.
#include <dirent.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <boost/asio/connect.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;
using tcp = asio::ip::tcp;

// The host as a child process, serving on a free port; stopped with SIGTERM, which must end it
// cleanly.
class WebHost {
 public:
  explicit WebHost(std::vector<std::string> extra = {}) {
    std::vector<std::string> args = {CLIPBOARD_HOST_PATH, "--listen", "127.0.0.1:0", "--web-root",
                                     std::string(EDITOR_CLIPBOARD_SOURCE_DIR) + "/web"};
    args.insert(args.end(), extra.begin(), extra.end());
    std::vector<char*> argv;
    for (auto& a : args) {
      argv.push_back(a.data());
    }
    argv.push_back(nullptr);
    int fds[2];
    EXPECT_EQ(::pipe(fds), 0);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fds[1], 2);
    posix_spawn_file_actions_addclose(&actions, fds[0]);
    EXPECT_EQ(posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    ::close(fds[1]);
    err_ = ::fdopen(fds[0], "r");
    char line[512] = {};
    if (std::fgets(line, sizeof line, err_) == nullptr) {
      ADD_FAILURE() << "the host printed no address";
      return;
    }
    std::string const text = line;
    std::string const prefix = "listening on http://127.0.0.1:";
    EXPECT_EQ(text.rfind(prefix, 0), 0u) << text;
    port_ = static_cast<unsigned short>(std::stoi(text.substr(prefix.size())));
    token_ = text.substr(text.find("token=") + 6);
    while (!token_.empty() && (token_.back() == '\n' || token_.back() == '\r')) {
      token_.pop_back();
    }
  }

  ~WebHost() {
    ::kill(pid_, SIGTERM);
    int status = 0;
    ::waitpid(pid_, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "status " << status;
    std::fclose(err_);
  }

  unsigned short port() const { return port_; }
  std::string const& token() const { return token_; }
  std::string hostHeader() const { return "127.0.0.1:" + std::to_string(port_); }
  std::string origin() const { return "http://" + hostHeader(); }

  // The peak resident memory of the host, in MiB.
  long peakMiB() const {
    std::ifstream status("/proc/" + std::to_string(pid_) + "/status");
    for (std::string line; std::getline(status, line);) {
      if (line.rfind("VmHWM:", 0) == 0) {
        return std::stol(line.substr(6)) / 1024;
      }
    }
    return -1;
  }

  std::size_t openFiles() const {
    std::size_t n = 0;
    if (DIR* dir = ::opendir(("/proc/" + std::to_string(pid_) + "/fd").c_str())) {
      while (::readdir(dir) != nullptr) {
        ++n;
      }
      ::closedir(dir);
    }
    return n;
  }

  bool alive() const { return ::waitpid(pid_, nullptr, WNOHANG) == 0; }

 private:
  pid_t pid_ = -1;
  std::FILE* err_ = nullptr;
  unsigned short port_ = 0;
  std::string token_;
};

using Socket = websocket::stream<tcp::socket>;

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

std::string const kFlavors = R"({"kind":"flavors","request":{"requestid":"f","uid":"t"}})";

std::string setText(std::string const& text) {
  return R"({"kind":"set","mode":0,"request":{"requestid":"s","uid":"t","clipboardItems":[{"mimeType":"text/plain","data":")" +
         text + R"("}]}})";
}

std::string const kGetText =
    R"({"kind":"get","mode":0,"request":{"requestid":"g","uid":"t","flavors":["text/plain"]}})";

// Reads until the host closes; returns the close code it sent (0 when the socket just ended).
int closeCodeAfter(Socket& ws) {
  beast::flat_buffer buffer;
  beast::error_code ec;
  while (!ec) {
    ws.read(buffer, ec);
    buffer.consume(buffer.size());
  }
  return ec == websocket::error::closed ? static_cast<int>(ws.reason().code) : 0;
}

TEST(WebSocketHost, RepliesComeBackInOrderOnTheConnectionThatAsked) {
  WebHost host;
  asio::io_context ioc;
  auto ws = connectTo(ioc, host);
  ws->write(asio::buffer(setText("first")));
  ws->write(asio::buffer(kGetText));
  ws->write(asio::buffer(std::string("not json")));
  std::vector<std::string> replies(3);
  for (auto& reply : replies) {
    beast::flat_buffer buffer;
    ws->read(buffer);
    reply = beast::buffers_to_string(buffer.data());
  }
  EXPECT_NE(replies[0].find(R"("kind":"set")"), std::string::npos) << replies[0];
  EXPECT_NE(replies[1].find(R"("text/plain":"first")"), std::string::npos) << replies[1];
  EXPECT_NE(replies[2].find(R"("type":"error","line":3)"), std::string::npos) << replies[2];
}

struct BadFrame {
  char const* name;
  std::string payload;
  bool text;
  int closeCode;
};

class WebSocketHostBadFrames : public ::testing::TestWithParam<BadFrame> {};

TEST_P(WebSocketHostBadFrames, CloseTheConnectionWithTheirCodeAndSpareTheOthers) {
  WebHost host({"--max-line", "1000"});
  asio::io_context ioc;
  auto bystander = connectTo(ioc, host);
  auto ws = connectTo(ioc, host);
  ws->text(GetParam().text);
  beast::error_code ec;
  ws->write(asio::buffer(GetParam().payload), ec);
  EXPECT_EQ(closeCodeAfter(*ws), GetParam().closeCode);
  EXPECT_NE(roundTrip(*bystander, kFlavors).find(R"("success":true)"), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(
    Frames, WebSocketHostBadFrames,
    ::testing::Values(BadFrame{"LargerThanMaxLine", std::string(1001, 'x'), true, 1009},
                      BadFrame{"InvalidUtf8", "{\"kind\":\"flavors\xff\xfe\"}", true, 1007},
                      BadFrame{"LoneSurrogateInUtf8", "\xed\xa0\x80", true, 1007},
                      BadFrame{"Binary", kFlavors, false, 1003}),
    [](auto const& info) { return std::string(info.param.name); });

TEST(WebSocketHost, ExactlyMaxLineIsStillServed) {
  WebHost host({"--max-line", "1000"});
  asio::io_context ioc;
  auto ws = connectTo(ioc, host);
  std::string request = kFlavors;
  request.insert(request.size() - 1, std::string(1000 - request.size(), ' '));
  ASSERT_EQ(request.size(), 1000u);
  EXPECT_NE(roundTrip(*ws, request).find(R"("success":true)"), std::string::npos);
}

TEST(WebSocketHost, APeerThatNeverReadsIsDroppedWithinTheQueueBound) {
  // Under AddressSanitizer freed blocks wait in a quarantine (256 MiB by default), which would
  // count as the host's memory here.
  char const* const asan = std::getenv("ASAN_OPTIONS");
  std::string const saved = asan != nullptr ? asan : "";
  ::setenv("ASAN_OPTIONS", (saved + ":quarantine_size_mb=8").c_str(), 1);
  WebHost host;
  ::setenv("ASAN_OPTIONS", saved.c_str(), 1);
  asio::io_context ioc;
  auto ws = connectTo(ioc, host);
  std::string const megabyte(std::size_t{1} << 20, 'm');
  roundTrip(*ws, setText(megabyte));
  [[maybe_unused]] long const before = host.peakMiB();

  // 400 replies of 1 MiB each asked for and never read: 400 MiB if nothing bounded them.
  beast::error_code ec;
  for (int i = 0; i < 400 && !ec; ++i) {
    ws->write(asio::buffer(kGetText), ec);
  }
  auto other = connectTo(ioc, host);
  EXPECT_NE(roundTrip(*other, kFlavors).find(R"("success":true)"), std::string::npos);
  // The host drops the peer that does not read: its socket goes.
  std::size_t const open = host.openFiles();
  for (int i = 0; i < 1500 && host.openFiles() >= open; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  EXPECT_EQ(host.openFiles(), open - 1);
  // Reading now ends well before all the replies.
  int replies = 0;
  beast::flat_buffer buffer;
  ec = {};
  while (!ec && replies < 401) {
    ws->read(buffer, ec);
    buffer.consume(buffer.size());
    replies += ec ? 0 : 1;
  }
  EXPECT_LT(replies, 300);
#ifndef __SANITIZE_THREAD__  // ThreadSanitizer's shadow of the heap counts as resident memory
  long const peak = host.peakMiB();
  EXPECT_LT(peak - before, 200) << "peak " << peak << " MiB, " << before << " MiB before";
#endif
  EXPECT_NE(roundTrip(*other, kGetText).find(megabyte), std::string::npos);
}

TEST(WebSocketHost, APeerLeavingInTheMiddleOfA16MiBReplyLeavesTheHostServing) {
  WebHost host;
  asio::io_context ioc;
  auto writer = connectTo(ioc, host);
  std::string const big(std::size_t{16} << 20, 'b');
  roundTrip(*writer, setText(big));
  for (int round = 0; round < 3; ++round) {
    auto ws = connectTo(ioc, host);
    ws->write(asio::buffer(kGetText));
    char head[4096];
    beast::get_lowest_layer(*ws).read_some(asio::buffer(head));
    beast::get_lowest_layer(*ws).close();
  }
  auto ws = connectTo(ioc, host);
  std::string const reply = roundTrip(*ws, kGetText);
  EXPECT_GT(reply.size(), big.size());
  EXPECT_TRUE(host.alive());
}

http::response<http::string_body> fetch(WebHost const& host, std::string const& target,
                                        std::string const& hostHeader = "", bool upgrade = false);

TEST(WebSocketHost, ConnectionsBeyondTheLimitAreRefusedUntilOneCloses) {
  WebHost host({"--max-connections", "2"});
  asio::io_context ioc;
  auto first = connectTo(ioc, host);
  auto second = connectTo(ioc, host);
  beast::error_code ec;
  auto third = connectTo(ioc, host, ec);
  EXPECT_TRUE(ec);
  EXPECT_EQ(fetch(host, "/ws?token=" + host.token(), "", true).result(),
            http::status::service_unavailable);

  first->close(websocket::close_code::normal);
  // The slot comes back once the closed connection's service object is gone.
  bool admitted = false;
  for (int i = 0; i < 100 && !admitted; ++i) {
    ec = {};
    third = connectTo(ioc, host, ec);
    admitted = !ec;
    if (!admitted) {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
  }
  ASSERT_TRUE(admitted);
  EXPECT_NE(roundTrip(*third, kFlavors).find(R"("success":true)"), std::string::npos);
  EXPECT_NE(roundTrip(*second, kFlavors).find(R"("success":true)"), std::string::npos);
}

http::response<http::string_body> fetch(WebHost const& host, std::string const& target,
                                        std::string const& hostHeader, bool upgrade) {
  asio::io_context ioc;
  beast::tcp_stream stream(ioc);
  stream.connect(tcp::endpoint(asio::ip::make_address("127.0.0.1"), host.port()));
  http::request<http::empty_body> request{http::verb::get, target, 11};
  request.set(http::field::host, hostHeader.empty() ? host.hostHeader() : hostHeader);
  if (upgrade) {
    request.set(http::field::connection, "Upgrade");
    request.set(http::field::upgrade, "websocket");
    request.set(http::field::sec_websocket_version, "13");
    request.set(http::field::sec_websocket_key, "dGhlIHNhbXBsZSBub25jZQ==");
    request.set(http::field::origin, host.origin());
  }
  http::write(stream, request);
  beast::flat_buffer buffer;
  http::response<http::string_body> response;
  beast::error_code ec;
  http::read(stream, buffer, response, ec);
  return response;
}

TEST(WebSocketHostFiles, ThePageAndItsFilesAreServedWithTheirTypesAndPolicy) {
  WebHost host;
  struct Case {
    char const* target;
    char const* type;
  };
  for (auto const& c :
       {Case{"/", "text/html; charset=utf-8"}, Case{"/?token=abc", "text/html; charset=utf-8"},
        Case{"/app.js", "text/javascript; charset=utf-8"},
        Case{"/style.css", "text/css; charset=utf-8"}, Case{"/icon.svg", "image/svg+xml"}}) {
    auto const response = fetch(host, c.target, "", false);
    EXPECT_EQ(response.result(), http::status::ok) << c.target;
    EXPECT_EQ(response[http::field::content_type], c.type) << c.target;
    EXPECT_EQ(response[http::field::cache_control], "no-store") << c.target;
    std::string const policy(response["Content-Security-Policy"]);
    EXPECT_NE(policy.find("script-src 'self'"), std::string::npos) << policy;
    EXPECT_NE(policy.find("connect-src ws://" + host.hostHeader() + ";"), std::string::npos)
        << policy;
    EXPECT_NE(policy.find("default-src 'none'"), std::string::npos) << policy;
  }
}

TEST(WebSocketHostFiles, NothingOutsideTheWebFolderIsServed) {
  // A web folder with a link that leads out of it.
  std::string const root = ::testing::TempDir() + "web_root_" + std::to_string(::getpid());
  std::string const outside =
      ::testing::TempDir() + "outside_" + std::to_string(::getpid()) + ".txt";
  ASSERT_EQ(std::system(("mkdir -p " + root + "/sub && echo '<p>page</p>' > " + root +
                         "/index.html && echo secret > " + outside + " && echo hidden > " + root +
                         "/.hidden.txt && ln -sf " + outside + " " + root + "/leak.txt")
                            .c_str()),
            0);
  WebHost host({"--web-root", root});
  EXPECT_EQ(fetch(host, "/", "", false).result(), http::status::ok);
  for (char const* target :
       {"/../CMakeLists.txt", "/%2e%2e/CMakeLists.txt", "/..%2fCMakeLists.txt", "/%2E%2E%2F",
        "/sub/../index.html", "/./index.html", "//etc/passwd", "/.hidden.txt", "/leak.txt",
        "/index.html%00.txt", "/index.html/", "/sub", "/sub/", "\\..\\index.html", "/index.HTML",
        "/nothing.js", "/index.exe", "index.html", "http://127.0.0.1/index.html"}) {
    auto const response = fetch(host, target, "", false);
    EXPECT_EQ(response.result(), http::status::not_found) << target;
    EXPECT_EQ(response.body().find("secret"), std::string::npos) << target;
  }
  // Another Host header gets nothing at all, not even the page.
  EXPECT_EQ(fetch(host, "/", "evil.example:" + std::to_string(host.port()), false).result(),
            http::status::forbidden);
  std::system(("rm -rf " + root + " " + outside).c_str());
}

}  // namespace

namespace {

struct StartCase {
  char const* name;
  std::string tokenFileText;  // written to the token file; "-" for no file at all
  std::string extra;
  int status;
  char const* firstLine;  // the start of standard error's first line
};

class WebSocketHostStart : public ::testing::TestWithParam<StartCase> {};

TEST_P(WebSocketHostStart, TokenFilesAndListenAddresses) {
  std::string const dir = ::testing::TempDir();
  std::string const stem = dir + "host_start_" + std::to_string(::getpid()) + GetParam().name;
  if (GetParam().tokenFileText != "-") {
    std::ofstream(stem + ".token") << GetParam().tokenFileText;
  }
  // A host that starts is stopped with SIGTERM after 2 s.
  std::string const command = "timeout -s TERM 2 " + std::string(CLIPBOARD_HOST_PATH) +
                              " --web-root " + EDITOR_CLIPBOARD_SOURCE_DIR + "/web --token-file " +
                              stem + ".token " + GetParam().extra + " 2> " + stem + ".err";
  int const raw = std::system(command.c_str());
  std::ifstream err(stem + ".err");
  std::string first;
  std::getline(err, first);
  EXPECT_EQ(first.rfind(GetParam().firstLine, 0), 0u) << first;
  int const status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  // timeout(1) exits 124 when it had to stop the host.
  EXPECT_EQ(status, GetParam().status) << first;
  if (status == 124) {
    EXPECT_NE(first.find("/?token=Abcdefghij0123456789._~-"), std::string::npos) << first;
  }
  std::remove((stem + ".token").c_str());
  std::remove((stem + ".err").c_str());
}

INSTANTIATE_TEST_SUITE_P(
    Cases, WebSocketHostStart,
    ::testing::Values(
        StartCase{"GoodToken", "  Abcdefghij0123456789._~-\n", "--listen 127.0.0.1:0", 124,
                  "listening on http://127.0.0.1:"},
        StartCase{"ShortToken", "abc\n", "--listen 0", 1, "clipboard-host: the token in"},
        StartCase{"TokenWithSpace", "abcdefgh ijklmnopq\n", "--listen 0", 1,
                  "clipboard-host: the token in"},
        StartCase{"TokenWithPercent", "abcdefghijklmnop%41\n", "--listen 0", 1,
                  "clipboard-host: the token in"},
        StartCase{"NoTokenFile", "-", "--listen 0", 1, "clipboard-host: cannot read the token"},
        StartCase{"NotAnAddress", "abcdefghijklmnopq", "--listen example.com:0", 2,
                  "clipboard-host: --listen: not an IP address"},
        StartCase{"PortOutOfRange", "abcdefghijklmnopq", "--listen 127.0.0.1:65536", 2,
                  "clipboard-host: --listen wants"},
        StartCase{"NoWebFolder", "abcdefghijklmnopq", "--listen 0 --web-root /nonexistent", 1,
                  "clipboard-host: no such folder"}),
    [](auto const& info) { return std::string(info.param.name); });

}  // namespace
