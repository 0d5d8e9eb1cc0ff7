// A flavors request from a front end's side of the pipe: the line written to clipboard-host
// (memory backend), its reply line read back, 10,000 times on one pipe kept open; beside the same
// request handed to a HostSession in-process (line parsing, service, reply line) and to the
// service's message form alone. Each round trip is timed on its own: p50 and p99 are counters
// (microseconds), beside Google Benchmark's mean.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include "clipboard/clipboard_impl.hpp"
#include "host/host_session.hpp"
#include "platform/i18n.hpp"
#include "platform/memory/memory_clipboard.hpp"
#include "support/process.hpp"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kRequests = 10000;
char const kFlavorsLine[] = R"({"kind":"flavors","request":{"requestid":"f1","uid":"ui"}})";
char const kPutText[] =
    R"({"kind":"external","items":[{"mimeType":"text/plain","text":"on the clipboard"}]})";

// Microseconds at the given fraction of the sorted samples.
double percentile(std::vector<double>& samples, double fraction) {
  std::sort(samples.begin(), samples.end());
  auto const index = static_cast<std::size_t>(fraction * static_cast<double>(samples.size() - 1));
  return samples[index];
}

void report(benchmark::State& state, std::vector<double>& samples) {
  state.counters["p50_us"] = percentile(samples, 0.50);
  state.counters["p99_us"] = percentile(samples, 0.99);
}

// clipboard-host on two pipes, on the tests' process kit.
class Host {
 public:
  Host() : process_(launch()) {}

  void writeLine(std::string const& line) {
    if (!process_.writeLine(line)) {
      throw std::runtime_error("write to clipboard-host failed");
    }
  }

  // One line of output; throws when none comes within 10 s.
  std::string readLine() {
    auto line = process_.readLine(std::chrono::seconds(10));
    if (!line) {
      throw std::runtime_error("no reply from clipboard-host");
    }
    return *line;
  }

 private:
  static test_support::Launch launch() {
    test_support::Launch launch;
    launch.argv = {CLIPBOARD_HOST_PATH};
    return launch;
  }

  test_support::Process process_;
};

void BM_FlavorsOverPipe(benchmark::State& state) {
  Host host;
  host.writeLine(kPutText);  // answered by nothing: no subscription
  std::vector<double> samples;
  samples.reserve(kRequests);
  std::string reply;
  for (auto _ : state) {
    auto const start = Clock::now();
    host.writeLine(kFlavorsLine);
    reply = host.readLine();
    samples.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
  }
  if (reply.find(R"("flavors":["text/plain"])") == std::string::npos) {
    state.SkipWithError(("unexpected reply: " + reply).c_str());
    return;
  }
  report(state, samples);
}
BENCHMARK(BM_FlavorsOverPipe)->Iterations(kRequests)->UseRealTime();

struct InProcess {
  InProcess()
      : clipboard(std::make_shared<pf::clipboard::PFMemoryClipboard>()),
        installation(clipboard),
        writer([this](std::string const& line) { last = line; }, false),
        session(EditorServices::defaultClipboardVocabulary(), clipboard, writer) {
    pf::clipboard::PFClipboardData data;
    data.addData(u"text/plain", std::u16string(u"on the clipboard"));
    clipboard->copyFromOtherProgram(std::move(data), pf::clipboard::PFClipboardMode::clipboard);
  }
  std::shared_ptr<pf::clipboard::PFMemoryClipboard> clipboard;
  clipboard_host::BackendInstallation installation;
  std::string last;
  clipboard_host::LineWriter writer;
  clipboard_host::HostSession session;
};

void BM_FlavorsHostSessionInProcess(benchmark::State& state) {
  InProcess f;
  std::string const line = kFlavorsLine;
  std::vector<double> samples;
  samples.reserve(kRequests);
  for (auto _ : state) {
    auto const start = Clock::now();
    f.session.handleLine(line, 1);
    benchmark::DoNotOptimize(f.last.data());
    samples.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
  }
  report(state, samples);
}
BENCHMARK(BM_FlavorsHostSessionInProcess)->Iterations(kRequests)->UseRealTime();

void BM_FlavorsMessageFormInProcess(benchmark::State& state) {
  InProcess f;
  EditorServices::ClipboardImpl service;
  connector::message_service::JsonMessage const message(R"({"requestid":"f1","uid":"ui"})");
  std::vector<double> samples;
  samples.reserve(kRequests);
  std::string reply;
  for (auto _ : state) {
    auto const start = Clock::now();
    service.handleRequestForAvailableDataFlavors(
        message, [&](std::string text, std::string) { reply = std::move(text); });
    samples.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
  }
  benchmark::DoNotOptimize(reply.data());
  report(state, samples);
}
BENCHMARK(BM_FlavorsMessageFormInProcess)->Iterations(kRequests)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
