// The Wayland backend against wl-paste on a private headless sway: a 64 MiB read and a 1 KiB
// round trip, each through the backend and through a whole `wl-paste` process. wl-copy owns
// both selections.
#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <pwd.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "platform/wayland/wayland_clipboard.hpp"

extern char** environ;

namespace {

using pf::clipboard::PFClipboardMode;

// fork + exec in a process group of its own, killed if we die; `extra` added to our environment.
pid_t spawn(std::vector<std::string> const& argv, std::vector<std::string> const& extra, int in,
            int out, int err) {
  std::vector<std::string> env;
  for (char** e = environ; *e; ++e) {
    if (std::strncmp(*e, "WAYLAND_DISPLAY=", 16) != 0)
      env.emplace_back(*e);
  }
  env.insert(env.end(), extra.begin(), extra.end());
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
    ::dup2(err, 2);
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
  ::kill(-pid, SIGCONT);
  ::kill(pid, SIGTERM);
  for (int i = 0; i < 400; ++i) {
    int status = 0;
    if (::waitpid(pid, &status, WNOHANG) == pid) {
      ::kill(-pid, SIGKILL);
      return;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  ::kill(-pid, SIGKILL);
  reap(pid);
}

// Headless sway (as nobody when we are root: sway refuses root) and a wl-copy owner per
// selection, for the life of the program.
class Stage {
 public:
  Stage() {
    devnull_ = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    std::string pattern =
        (std::filesystem::temp_directory_path() / "bench-wayland-XXXXXX").string();
    if (!::mkdtemp(pattern.data()))
      throw std::runtime_error("mkdtemp");
    dir_ = pattern;
    auto const runtime = dir_ + "/runtime";
    ::mkdir(runtime.c_str(), 0700);
    std::ofstream(dir_ + "/sway.conf") << "xwayland disable\n";
    std::vector<std::string> argv;
    if (::geteuid() == 0) {
      passwd const* nobody = ::getpwnam("nobody");
      if (nobody == nullptr || ::chown(runtime.c_str(), nobody->pw_uid, nobody->pw_gid) != 0)
        throw std::runtime_error("cannot run sway as nobody");
      ::chmod(dir_.c_str(), 0755);
      ::chmod((dir_ + "/sway.conf").c_str(), 0644);
      argv = {"setpriv", "--reuid=" + std::to_string(nobody->pw_uid),
              "--regid=" + std::to_string(nobody->pw_gid), "--clear-groups"};
    }
    argv.insert(argv.end(), {"sway", "-c", dir_ + "/sway.conf"});
    sway_ = spawn(argv,
                  {"XDG_RUNTIME_DIR=" + runtime, "HOME=" + runtime, "WLR_BACKENDS=headless",
                   "WLR_LIBINPUT_NO_DEVICES=1", "WLR_RENDERER=pixman"},
                  devnull_, devnull_, devnull_);
    for (int i = 0; i < 1000 && socket_.empty(); ++i) {
      std::error_code ec;
      for (auto const& entry : std::filesystem::directory_iterator(runtime, ec)) {
        auto const name = entry.path().filename().string();
        if (name.rfind("wayland-", 0) == 0 && name.find('.') == std::string::npos)
          socket_ = entry.path().string();
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    if (socket_.empty())
      throw std::runtime_error("sway did not start");

    big_ = std::string(64u << 20, 'x');
    for (std::size_t i = 0; i < big_.size(); i += 61)
      big_[i] = static_cast<char>('a' + i % 26);
    small_ = big_.substr(0, 1024);
    owners_.push_back(own({}, big_, "big"));
    owners_.push_back(own({"--primary"}, small_, "small"));
  }
  ~Stage() {
    for (auto pid : owners_)
      stop(pid);
    stop(sway_);
    std::error_code ignored;
    std::filesystem::remove_all(dir_, ignored);
    ::close(devnull_);
  }

  std::string const& socket() const { return socket_; }
  std::string const& big() const { return big_; }
  std::string const& small() const { return small_; }

  // A whole `wl-paste` process; the bytes it wrote are counted, not kept.
  std::size_t wlPaste(bool primary) const {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0)
      throw std::runtime_error("pipe");
    std::vector<std::string> argv = {"wl-paste", "--no-newline", "--type", "text/plain"};
    if (primary)
      argv.push_back("--primary");
    pid_t const pid = spawn(argv, {"WAYLAND_DISPLAY=" + socket_}, devnull_, fds[1], devnull_);
    ::close(fds[1]);
    std::size_t total = 0;
    static char buffer[1 << 16];
    for (ssize_t got; (got = ::read(fds[0], buffer, sizeof buffer)) > 0;)
      total += static_cast<std::size_t>(got);
    ::close(fds[0]);
    reap(pid);
    return total;
  }

 private:
  pid_t own(std::vector<std::string> args, std::string const& contents, std::string const& name) {
    std::string const path = dir_ + "/" + name;
    std::ofstream(path, std::ios::binary) << contents;
    int const in = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    args.insert(args.begin(), {"wl-copy", "--foreground", "--type", "text/plain"});
    pid_t const pid = spawn(args, {"WAYLAND_DISPLAY=" + socket_}, in, devnull_, devnull_);
    ::close(in);
    bool const primary = args.size() > 4;
    for (int i = 0; i < 400 && wlPaste(primary) != contents.size(); ++i)
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    return pid;
  }

  int devnull_ = -1;
  std::string dir_;
  pid_t sway_ = -1;
  std::string socket_;
  std::string big_, small_;
  std::vector<pid_t> owners_;
};

Stage& stage() {
  static Stage s;
  return s;
}

std::shared_ptr<pf::clipboard::PFWaylandClipboard> backend() {
  static auto b = [] {
    pf::clipboard::PFWaylandClipboardOptions o;
    o.display = stage().socket();
    o.emitChangeEvents = false;
    return pf::clipboard::makeWaylandClipboard(o);
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

void BM_Read64MiB_WlPasteProcess(benchmark::State& state) {
  for (auto _ : state) {
    if (stage().wlPaste(false) != stage().big().size()) {
      state.SkipWithError("short read");
      break;
    }
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(stage().big().size()));
}
BENCHMARK(BM_Read64MiB_WlPasteProcess)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);

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

void BM_RoundTrip1KiB_WlPasteProcess(benchmark::State& state) {
  for (auto _ : state) {
    if (stage().wlPaste(true) != 1024) {
      state.SkipWithError("short read");
      break;
    }
  }
}
BENCHMARK(BM_RoundTrip1KiB_WlPasteProcess)->Unit(benchmark::kMicrosecond)->UseRealTime();

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
