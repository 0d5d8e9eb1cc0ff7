// clipboard-host --listen driven by a WebSocket client the way a hostile or broken peer would:
// oversized and malformed frames, a peer that never reads, a peer that leaves mid-reply, too
// many peers, and file requests that try to leave the web folder.
#include <dirent.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <boost/asio/connect.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "host/front_end.hpp"
#include "support/temp_dir.hpp"

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;
using tcp = asio::ip::tcp;
using host_test::connectTo;
using host_test::roundTrip;
using host_test::Socket;
using host_test::WebHost;

// The peak resident memory of a process, in MiB.
long peakMiB(pid_t pid) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind("VmHWM:", 0) == 0) {
      return std::stol(line.substr(6)) / 1024;
    }
  }
  return -1;
}

std::size_t openFiles(pid_t pid) {
  std::size_t n = 0;
  if (DIR* dir = ::opendir(("/proc/" + std::to_string(pid) + "/fd").c_str())) {
    while (::readdir(dir) != nullptr) {
      ++n;
    }
    ::closedir(dir);
  }
  return n;
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

TEST(WebSocketHost, APeerThatNeverReadsIsDroppedWithinTheQueueBound) {
  // Under AddressSanitizer freed blocks wait in a quarantine (256 MiB by default), which would
  // count as the host's memory here.
  char const* const asan = std::getenv("ASAN_OPTIONS");
  WebHost host(
      {}, {"ASAN_OPTIONS=" + std::string(asan != nullptr ? asan : "") + ":quarantine_size_mb=8"});
  pid_t const pid = host.process().pid();
  asio::io_context ioc;
  auto ws = connectTo(ioc, host);
  std::string const megabyte(std::size_t{1} << 20, 'm');
  roundTrip(*ws, setText(megabyte));
  [[maybe_unused]] long const before = peakMiB(pid);

  // 400 replies of 1 MiB each asked for and never read: 400 MiB if nothing bounded them.
  beast::error_code ec;
  for (int i = 0; i < 400 && !ec; ++i) {
    ws->write(asio::buffer(kGetText), ec);
  }
  auto other = connectTo(ioc, host);
  EXPECT_NE(roundTrip(*other, kFlavors).find(R"("success":true)"), std::string::npos);
  // The host drops the peer that does not read: its socket goes.
  std::size_t const open = openFiles(pid);
  for (int i = 0; i < 1500 && openFiles(pid) >= open; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  EXPECT_EQ(openFiles(pid), open - 1);
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
  long const peak = peakMiB(pid);
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
  EXPECT_TRUE(host.process().running());
}

// A GET (or a WebSocket upgrade from `origin`, the host's own when empty) with this Host header
// (the host's own when empty).
http::response<http::string_body> fetch(WebHost const& host, std::string const& target,
                                        std::string const& hostHeader = "", bool upgrade = false,
                                        std::string const& origin = "") {
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
    request.set(http::field::origin, origin.empty() ? host.origin() : origin);
  }
  http::write(stream, request);
  beast::flat_buffer buffer;
  http::response<http::string_body> response;
  beast::error_code ec;
  http::read(stream, buffer, response, ec);
  return response;
}

std::size_t mappings(pid_t pid) {
  std::ifstream maps("/proc/" + std::to_string(pid) + "/maps");
  std::size_t n = 0;
  for (std::string line; std::getline(maps, line);) {
    ++n;
  }
  return n;
}

// At most --max-connections are open at once: one more is refused. Every ended connection is
// forgotten: its place comes back, so more connections than the limit, one after another beside
// one kept open, are each admitted and served; and its worker thread is joined, so the host does
// not grow with each one (an unjoined thread keeps its stack mapped).
TEST(WebSocketHost, ConnectionsBeyondTheLimitAreRefusedAndEndedOnesForgotten) {
  WebHost host({"--max-connections", "2"});
  asio::io_context ioc;
  auto kept = connectTo(ioc, host);
  [[maybe_unused]] std::size_t before = 0;
  for (int i = 0; i < 22; ++i) {
    if (i == 2) {
      before = mappings(host.process().pid());
    }
    std::unique_ptr<Socket> ws;
    beast::error_code ec;
    // The place comes back once the closed connection's service object is gone.
    for (int tries = 0; tries < 100 && (!ws || ec); ++tries) {
      if (ws) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
      }
      ec = {};
      ws = connectTo(ioc, host, ec);
    }
    ASSERT_FALSE(ec) << "connection " << i + 1 << ": " << ec.message();
    if (i == 0) {
      connectTo(ioc, host, ec);
      EXPECT_TRUE(ec) << "a third connection";
      EXPECT_EQ(fetch(host, "/ws?token=" + host.token(), "", true).result(),
                http::status::service_unavailable);
    }
    EXPECT_NE(roundTrip(*ws, kFlavors).find(R"("success":true)"), std::string::npos);
    ws->close(websocket::close_code::normal);
  }
  EXPECT_NE(roundTrip(*kept, kFlavors).find(R"("success":true)"), std::string::npos);
#ifndef __SANITIZE_THREAD__  // ThreadSanitizer maps a trace per thread ever started; it reports
                             // an unjoined thread itself, and the host's exit status shows it
  EXPECT_LT(mappings(host.process().pid()), before + 10);
#endif
}

// The upgrade needs this start's token and a page of the host's own origin or one allowed.
TEST(WebSocketHost, UpgradesNeedTheTokenAndAnAllowedOrigin) {
  WebHost host({"--allow-origin", "http://localhost:8080"});
  std::string const port = std::to_string(host.port());
  struct Case {
    std::string target;
    std::string origin;
    http::status status;
  };
  for (auto const& c :
       {Case{"/ws?token=" + host.token(), "", http::status::switching_protocols},
        Case{"/ws?token=" + host.token(), "http://localhost:" + port,
             http::status::switching_protocols},
        Case{"/ws?token=" + host.token(), "http://localhost:8080",
             http::status::switching_protocols},
        Case{"/ws?token=" + host.token(), "http://evil.example", http::status::forbidden},
        Case{"/ws?token=" + host.token() + "x", "", http::status::forbidden},
        Case{"/ws", "", http::status::forbidden}}) {
    EXPECT_EQ(fetch(host, c.target, "", true, c.origin).result(), c.status)
        << c.target << " from " << c.origin;
  }
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
  test_support::TempDir dir;
  std::string const root = dir.path() + "/web";
  std::filesystem::create_directories(root + "/sub");
  std::string const outside = dir.file("outside.txt", "secret\n");
  std::ofstream(root + "/index.html") << "<p>page</p>\n";
  std::ofstream(root + "/.hidden.txt") << "hidden\n";
  std::filesystem::create_symlink(outside, root + "/leak.txt");
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
}

struct StartCase {
  char const* name;
  std::string tokenFileText;  // written to the token file; "-" for no file at all
  std::string extra;
  int status;             // on SIGTERM when it listens
  char const* firstLine;  // the start of standard error's first line
};

class WebSocketHostStart : public ::testing::TestWithParam<StartCase> {};

TEST_P(WebSocketHostStart, TokenFilesAndListenAddresses) {
  test_support::TempDir dir;
  std::vector<std::string> options = {"--token-file", dir.path() + "/token"};
  if (GetParam().tokenFileText != "-") {
    options.back() = dir.file("token", GetParam().tokenFileText);
  }
  std::istringstream extra(GetParam().extra);
  for (std::string word; extra >> word;) {
    options.push_back(word);
  }
  WebHost host(options);
  EXPECT_EQ(host.firstErrorLine().rfind(GetParam().firstLine, 0), 0u) << host.firstErrorLine();
  if (host.listening()) {
    EXPECT_NE(host.firstErrorLine().find("/?token=Abcdefghij0123456789._~-"), std::string::npos)
        << host.firstErrorLine();
    EXPECT_EQ(host.stop(), GetParam().status) << host.laterErrorText();
  } else {
    EXPECT_EQ(host.process().finish(), GetParam().status) << host.firstErrorLine();
  }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, WebSocketHostStart,
    ::testing::Values(
        StartCase{"GoodToken", "  Abcdefghij0123456789._~-\n", "--listen 127.0.0.1:0", 0,
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
