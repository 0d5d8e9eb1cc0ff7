// A flavors request from a front end's side of the pipe: the line written to clipboard-host
// (memory backend), its reply line read back, 10,000 times on one pipe kept open; beside the same
// request handed to a HostSession in-process (line parsing, service, reply line) and to the
// service's message form alone. Each round trip is timed on its own: p50 and p99 are counters
// (microseconds), beside Google Benchmark's mean.
#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

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

extern char** environ;

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

// clipboard-host on two pipes; stopped by closing its input, waited for by pid.
class Host {
 public:
  Host() {
    ::signal(SIGPIPE, SIG_IGN);
    int in[2];
    int out[2];
    if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0) {
      throw std::runtime_error("pipe");
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    char path[] = CLIPBOARD_HOST_PATH;
    char* argv[] = {path, nullptr};
    int const failed = posix_spawn(&pid_, path, &actions, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(in[0]);
    ::close(out[1]);
    input_ = in[1];
    output_ = out[0];
    if (failed != 0) {
      throw std::runtime_error("cannot start " + std::string(path));
    }
  }
  ~Host() {
    ::close(input_);
    int status = 0;
    ::waitpid(pid_, &status, 0);
    ::close(output_);
  }

  void writeLine(std::string const& line) {
    std::string const bytes = line + "\n";
    std::size_t done = 0;
    while (done < bytes.size()) {
      ssize_t const n = ::write(input_, bytes.data() + done, bytes.size() - done);
      if (n <= 0) {
        throw std::runtime_error("write to clipboard-host failed");
      }
      done += static_cast<std::size_t>(n);
    }
  }

  // One line of output; throws when none comes within 10 s.
  std::string readLine() {
    for (;;) {
      std::size_t const newline = pending_.find('\n', scanned_);
      if (newline != std::string::npos) {
        std::string line = pending_.substr(0, newline);
        pending_.erase(0, newline + 1);
        scanned_ = 0;
        return line;
      }
      scanned_ = pending_.size();
      pollfd wait{output_, POLLIN, 0};
      if (::poll(&wait, 1, 10000) <= 0) {
        throw std::runtime_error("no reply from clipboard-host");
      }
      char buffer[4096];
      ssize_t const n = ::read(output_, buffer, sizeof buffer);
      if (n <= 0) {
        throw std::runtime_error("clipboard-host closed its output");
      }
      pending_.append(buffer, static_cast<std::size_t>(n));
    }
  }

 private:
  pid_t pid_ = -1;
  int input_ = -1;
  int output_ = -1;
  std::string pending_;
  std::size_t scanned_ = 0;
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
