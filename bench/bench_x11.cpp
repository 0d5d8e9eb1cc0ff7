// The X11 backend against xclip on a private Xvfb: a 64 MiB read (INCR) and a 1 KiB round trip,
// each through the backend and through a whole `xclip -o` process.
#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "platform/x11/x11_clipboard.hpp"

extern char** environ;

namespace {

using pf::clipboard::PFClipboardMode;

// fork + exec with fds 0..3 given, in a process group of its own, killed if we die.
pid_t spawn(std::vector<std::string> const& argv, std::string const& display, int in, int out,
            int fd3 = -1) {
  std::vector<std::string> env;
  for (char** e = environ; *e; ++e) {
    if (std::strncmp(*e, "DISPLAY=", 8) != 0)
      env.emplace_back(*e);
  }
  if (!display.empty())
    env.push_back("DISPLAY=" + display);
  std::vector<char*> args, envp;
  for (auto const& a : argv)
    args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  for (auto const& e : env)
    envp.push_back(const_cast<char*>(e.c_str()));
  envp.push_back(nullptr);
  pid_t const pid = ::fork();
  if (pid == 0) {
    ::setpgid(0, 0);
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::dup2(in, 0);
    ::dup2(out, 1);
    ::dup2(out, 2);
    if (fd3 >= 0)
      ::dup2(fd3, 3);
    ::execvpe(args[0], args.data(), envp.data());
    _exit(127);
  }
  return pid;
}

int reap(pid_t pid) {
  int status = 0;
  ::waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void stop(pid_t pid) {
  ::kill(pid, SIGTERM);
  for (int i = 0; i < 200; ++i) {
    int status = 0;
    if (::waitpid(pid, &status, WNOHANG) == pid)
      return;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  ::kill(pid, SIGKILL);
  reap(pid);
}

// Xvfb plus one xclip owner per selection, for the life of the program.
class Stage {
 public:
  Stage() {
    devnull_ = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    int fds[2];
    if (::pipe(fds) != 0)
      throw std::runtime_error("pipe");
    xvfb_ = spawn(
        {"Xvfb", "-displayfd", "3", "-nolisten", "tcp", "-noreset", "-screen", "0", "640x480x24"},
        "", devnull_, devnull_, fds[1]);
    ::close(fds[1]);
    std::string number;
    pollfd pfd{fds[0], POLLIN, 0};
    while ((number.empty() || number.back() != '\n') && ::poll(&pfd, 1, 10000) > 0) {
      char c;
      if (::read(fds[0], &c, 1) != 1)
        break;
      number += c;
    }
    ::close(fds[0]);
    if (number.empty())
      throw std::runtime_error("Xvfb did not start");
    number.pop_back();
    display_ = ":" + number;

    big_ = std::string(64u << 20, 'x');
    for (std::size_t i = 0; i < big_.size(); i += 61)
      big_[i] = static_cast<char>('a' + i % 26);
    small_ = big_.substr(0, 1024);
    owners_.push_back(own("clipboard", big_, "big"));
    owners_.push_back(own("primary", small_, "small"));
  }
  ~Stage() {
    for (auto pid : owners_)
      stop(pid);
    stop(xvfb_);
    for (auto const& file : files_)
      std::remove(file.c_str());
    ::close(devnull_);
  }

  std::string const& display() const { return display_; }
  std::string const& big() const { return big_; }
  std::string const& small() const { return small_; }

  // A whole `xclip -o` process; the bytes it wrote are counted, not kept.
  std::size_t xclipOut(char const* selection) const {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0)
      throw std::runtime_error("pipe");
    pid_t const pid = spawn({"xclip", "-selection", selection, "-o"}, display_, devnull_, fds[1]);
    ::close(fds[1]);
    std::size_t total = 0;
    static char buffer[1 << 16];
    for (ssize_t got; (got = ::read(fds[0], buffer, sizeof buffer)) > 0;) {
      total += static_cast<std::size_t>(got);
    }
    ::close(fds[0]);
    reap(pid);
    return total;
  }

 private:
  pid_t own(char const* selection, std::string const& contents, std::string const& name) {
    std::string const path = "/tmp/bench_x11_" + std::to_string(::getpid()) + "_" + name;
    std::ofstream(path, std::ios::binary) << contents;
    files_.push_back(path);
    pid_t const pid = spawn({"xclip", "-selection", selection, "-i", "-quiet", path}, display_,
                            devnull_, devnull_);
    // Owned once a read gets the whole text back.
    for (int i = 0; i < 400 && xclipOut(selection) != contents.size(); ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return pid;
  }

  int devnull_ = -1;
  pid_t xvfb_ = -1;
  std::string display_;
  std::string big_, small_;
  std::vector<pid_t> owners_;
  std::vector<std::string> files_;
};

Stage& stage() {
  static Stage s;
  return s;
}

std::shared_ptr<pf::clipboard::PFX11Clipboard> backend() {
  static auto b = [] {
    pf::clipboard::PFX11ClipboardOptions o;
    o.display = stage().display();
    o.emitChangeEvents = false;
    return pf::clipboard::makeX11Clipboard(o);
  }();
  return b;
}

void BM_Read64MiB_Backend(benchmark::State& state) {
  auto b = backend();
  for (auto _ : state) {
    auto const content = b->read(u"text/plain", PFClipboardMode::clipboard);
    if (content.index() != 1 || std::get<1>(content).size() != stage().big().size()) {
      state.SkipWithError("short read");
      break;
    }
    benchmark::DoNotOptimize(content);
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(stage().big().size()));
}
BENCHMARK(BM_Read64MiB_Backend)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);

void BM_Read64MiB_XclipProcess(benchmark::State& state) {
  for (auto _ : state) {
    if (stage().xclipOut("clipboard") != stage().big().size()) {
      state.SkipWithError("short read");
      break;
    }
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(stage().big().size()));
}
BENCHMARK(BM_Read64MiB_XclipProcess)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);

void BM_RoundTrip1KiB_Backend(benchmark::State& state) {
  auto b = backend();
  for (auto _ : state) {
    auto const content = b->read(u"text/plain", PFClipboardMode::selection);
    if (content.index() != 1 || std::get<1>(content).size() != 1024) {
      state.SkipWithError("short read");
      break;
    }
    benchmark::DoNotOptimize(content);
  }
}
BENCHMARK(BM_RoundTrip1KiB_Backend)->Unit(benchmark::kMicrosecond)->UseRealTime();

void BM_RoundTrip1KiB_XclipProcess(benchmark::State& state) {
  for (auto _ : state) {
    if (stage().xclipOut("primary") != 1024) {
      state.SkipWithError("short read");
      break;
    }
  }
}
BENCHMARK(BM_RoundTrip1KiB_XclipProcess)->Unit(benchmark::kMicrosecond)->UseRealTime();

// The floor: one copy of the 64 MiB text.
void BM_Memcpy64MiB(benchmark::State& state) {
  std::string const& from = stage().big();
  std::string to(from.size(), '\0');
  for (auto _ : state) {
    std::memcpy(to.data(), from.data(), from.size());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(from.size()));
}
BENCHMARK(BM_Memcpy64MiB)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
