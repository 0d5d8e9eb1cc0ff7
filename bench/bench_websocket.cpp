// clipboard-host --listen beside the same host on a pipe (memory backend), each seen from a
// front end's side: a small get request's round trip, a 16 MiB get, and how long a change made
// on one WebSocket takes to reach another connection as a notification. Each round trip is
// timed on its own: p50 and p99 are counters (microseconds); the 16 MiB rows use the mean.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/websocket.hpp>
#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/process.hpp"

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace websocket = beast::websocket;
using Clock = std::chrono::steady_clock;

std::string const kSmallGet =
    R"({"kind":"get","mode":0,"request":{"requestid":"g1","uid":"ui","flavors":["text/plain"]}})";

std::string setText(std::string const& text) {
  return R"({"kind":"set","mode":0,"request":{"requestid":"s1","uid":"ui","clipboardItems":[{"mimeType":"text/plain","data":")" +
         text + R"("}]}})";
}

double percentile(std::vector<double> samples, double fraction) {
  std::sort(samples.begin(), samples.end());
  return samples[static_cast<std::size_t>(fraction * static_cast<double>(samples.size() - 1))];
}

void report(benchmark::State& state, std::vector<double> const& samples) {
  state.counters["p50_us"] = percentile(samples, 0.50);
  state.counters["p99_us"] = percentile(samples, 0.99);
}

// clipboard-host as a child on the tests' process kit, its standard error on a pipe to read the
// address from.
class Child {
 public:
  Child(std::vector<std::string> args, bool) : process_(launch(std::move(args))) {}

  void writeLine(std::string const& line) {
    if (!process_.writeLine(line)) {
      throw std::runtime_error("write to clipboard-host failed");
    }
  }
  std::string readLine() { return orThrow(process_.readLine()); }
  std::string readErrorLine() { return orThrow(process_.readErrorLine()); }

 private:
  static test_support::Launch launch(std::vector<std::string> args) {
    test_support::Launch launch;
    launch.argv = std::move(args);
    launch.argv.insert(launch.argv.begin(), CLIPBOARD_HOST_PATH);
    launch.err = test_support::Stream::pipe();
    return launch;
  }
  static std::string orThrow(std::optional<std::string> line) {
    if (!line) {
      throw std::runtime_error("no output from clipboard-host");
    }
    return *line;
  }

  test_support::Process process_;
};

class WebHost {
 public:
  WebHost()
      : child_({"--listen", "127.0.0.1:0", "--web-root", EDITOR_CLIPBOARD_SOURCE_DIR "/web"},
               false) {
    std::string const line = child_.readErrorLine();
    std::string const prefix = "listening on http://";
    std::string const rest = line.substr(prefix.size());
    host_ = rest.substr(0, rest.find('/'));
    port_ = static_cast<unsigned short>(std::stoi(host_.substr(host_.find(':') + 1)));
    token_ = line.substr(line.find("token=") + 6);
  }

  std::unique_ptr<websocket::stream<asio::ip::tcp::socket>> connect(asio::io_context& ioc) {
    auto ws = std::make_unique<websocket::stream<asio::ip::tcp::socket>>(ioc);
    ws->next_layer().connect({asio::ip::make_address("127.0.0.1"), port_});
    ws->next_layer().set_option(asio::ip::tcp::no_delay(true));
    std::string const origin = "http://" + host_;
    ws->set_option(websocket::stream_base::decorator(
        [origin](websocket::request_type& request) { request.set("Origin", origin); }));
    ws->read_message_max(std::size_t{1} << 30);
    ws->handshake(host_, "/ws?token=" + token_);
    ws->text(true);
    return ws;
  }

 private:
  Child child_;
  std::string host_;
  unsigned short port_ = 0;
  std::string token_;
};

using Socket = websocket::stream<asio::ip::tcp::socket>;

std::string exchange(Socket& ws, std::string const& request, beast::flat_buffer& buffer) {
  ws.write(asio::buffer(request));
  buffer.consume(buffer.size());
  ws.read(buffer);
  return {};
}

void putText(Socket& ws, std::string const& text) {
  beast::flat_buffer buffer;
  exchange(ws, setText(text), buffer);
}

template <typename RoundTrip>
void timeRoundTrips(benchmark::State& state, RoundTrip roundTrip) {
  std::vector<double> samples;
  for (auto _ : state) {
    auto const start = Clock::now();
    roundTrip();
    double const seconds = std::chrono::duration<double>(Clock::now() - start).count();
    state.SetIterationTime(seconds);
    samples.push_back(seconds * 1e6);
  }
  report(state, samples);
}

void BM_SmallGet_WebSocket(benchmark::State& state) {
  WebHost host;
  asio::io_context ioc;
  auto ws = host.connect(ioc);
  putText(*ws, "on the clipboard");
  beast::flat_buffer buffer;
  timeRoundTrips(state, [&] { exchange(*ws, kSmallGet, buffer); });
}

void BM_SmallGet_Pipe(benchmark::State& state) {
  Child host({}, true);
  host.writeLine(setText("on the clipboard"));
  host.readLine();
  timeRoundTrips(state, [&] {
    host.writeLine(kSmallGet);
    benchmark::DoNotOptimize(host.readLine());
  });
}

std::string const& bigText() {
  static std::string const text(std::size_t{16} << 20, 'x');
  return text;
}

void BM_Get16MiB_WebSocket(benchmark::State& state) {
  WebHost host;
  asio::io_context ioc;
  auto ws = host.connect(ioc);
  putText(*ws, bigText());
  beast::flat_buffer buffer;
  timeRoundTrips(state, [&] { exchange(*ws, kSmallGet, buffer); });
}

void BM_Get16MiB_Pipe(benchmark::State& state) {
  Child host({}, true);
  host.writeLine(setText(bigText()));
  host.readLine();
  timeRoundTrips(state, [&] {
    host.writeLine(kSmallGet);
    benchmark::DoNotOptimize(host.readLine());
  });
}

// A set on one connection until the notification arrives on another.
void BM_Notification_WebSocket(benchmark::State& state) {
  WebHost host;
  asio::io_context ioc;
  auto writer = host.connect(ioc);
  auto listener = host.connect(ioc);
  beast::flat_buffer buffer;
  exchange(*listener, R"({"kind":"subscribe","request":{"requestid":"s","uid":"ui"}})", buffer);
  std::string const sets[] = {setText("one"), setText("two")};
  beast::flat_buffer writerBuffer;
  std::size_t i = 0;
  timeRoundTrips(state, [&] {
    writer->write(asio::buffer(sets[++i % 2]));
    buffer.consume(buffer.size());
    listener->read(buffer);
  });
  // The writer's own replies, read after the timing.
  for (std::size_t n = 0; n < i; ++n) {
    writerBuffer.consume(writerBuffer.size());
    writer->read(writerBuffer);
  }
}

BENCHMARK(BM_SmallGet_WebSocket)->UseManualTime()->Iterations(5000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_SmallGet_Pipe)->UseManualTime()->Iterations(5000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Notification_WebSocket)
    ->UseManualTime()
    ->Iterations(2000)
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Get16MiB_WebSocket)->UseManualTime()->Iterations(30)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Get16MiB_Pipe)->UseManualTime()->Iterations(30)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
