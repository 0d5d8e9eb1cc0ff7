// clipboard-host on Wayland: which backend --backend auto takes in each situation, and a session
// through a kept-open pipe against headless sway with wl-copy and wl-paste.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <thread>

#include "wayland_test_support.hpp"

namespace {

using namespace wayland_test;

// An Xvfb on a free display, found by -displayfd.
class Xvfb {
 public:
  Xvfb() {
    auto const out = dir_.path() + "/display";
    process_ = std::make_unique<Process>(
        std::vector<std::string>{"Xvfb", "-displayfd", "1", "-nolisten", "tcp", "-noreset",
                                 "-screen", "0", "320x200x24"},
        std::vector<std::string>{}, Process::Io{"/dev/null", out});
    auto const end = std::chrono::steady_clock::now() + 10s;
    while (std::chrono::steady_clock::now() < end) {
      auto const text = readFile(out);
      if (!text.empty() && text.back() == '\n') {
        display_ = ":" + text.substr(0, text.size() - 1);
        return;
      }
      std::this_thread::sleep_for(10ms);
    }
    throw std::runtime_error("Xvfb did not start");
  }
  std::string const& display() const { return display_; }

 private:
  TempDir dir_;
  std::unique_ptr<Process> process_;
  std::string display_;
};

struct HostRun {
  int status = -1;
  std::string out;
  std::string err;
};

HostRun runHost(std::vector<std::string> const& env, std::string const& input) {
  TempDir dir;
  auto const in = dir.file("in", input);
  HostRun run;
  {
    Process host({CLIPBOARD_HOST_PATH, "--backend", "auto"}, env,
                 {in, dir.path() + "/out", dir.path() + "/err"});
    auto const status = host.wait(30s);
    run.status = status ? *status : -1;
  }
  run.out = readFile(dir.path() + "/out");
  run.err = readFile(dir.path() + "/err");
  return run;
}

std::string const kSetAndGet =
    R"({"kind":"set","mode":0,"request":{"requestid":"s","uid":"u","clipboardItems":[{"mimeType":"text/plain","data":"chosen"}]}})"
    "\n"
    R"({"kind":"get","mode":0,"request":{"requestid":"g","uid":"u","flavors":["text/plain"]}})"
    "\n";

struct Situation {
  char const* name;
  int wayland;  // 0: no WAYLAND_DISPLAY, 1: with data-control, 2: without
  bool x11;
  char const* chosen;
  char const* because;
};

void PrintTo(Situation const& c, std::ostream* os) {
  *os << c.name;
}

class HostAuto : public ::testing::TestWithParam<Situation> {};

TEST_P(HostAuto, TakesTheRightBackendAndSaysWhy) {
  auto const& s = GetParam();
  std::unique_ptr<TestCompositor> compositor;
  std::unique_ptr<Xvfb> xvfb;
  std::vector<std::string> env;
  if (s.wayland != 0) {
    compositor = std::make_unique<TestCompositor>(
        s.wayland == 1 ? std::vector<std::string>{"--wlr", "2"} : std::vector<std::string>{});
    env.push_back(compositor->waylandDisplayEnv());
  }
  if (s.x11) {
    xvfb = std::make_unique<Xvfb>();
    env.push_back("DISPLAY=" + xvfb->display());
  }
  auto const run = runHost(env, kSetAndGet);
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_NE(run.err.find(std::string("backend ") + s.chosen + ": "), std::string::npos) << run.err;
  EXPECT_NE(run.err.find(s.because), std::string::npos) << run.err;
  EXPECT_NE(run.out.find(R"("text/plain":"chosen")"), std::string::npos) << run.out;
}

INSTANTIATE_TEST_SUITE_P(
    Situations, HostAuto,
    ::testing::Values(Situation{"WaylandWithDataControl", 1, true, "wayland",
                                "offers zwlr_data_control_manager_v1"},
                      Situation{"WaylandWithoutDataControl", 2, true, "x11",
                                "offers no data-control protocol"},
                      Situation{"X11Only", 0, true, "x11", "WAYLAND_DISPLAY is not set; DISPLAY="},
                      Situation{"Nothing", 0, false, "memory", "DISPLAY is not set"}),
    [](auto const& info) { return std::string(info.param.name); });

// The host with pipes kept open, as a front end drives it: each reply awaited.
class HostPipe {
 public:
  HostPipe(std::vector<std::string> const& args, std::string const& waylandDisplay) {
    int in[2], out[2];
    if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0)
      throw std::runtime_error("pipe failed");
    pid_ = ::fork();
    if (pid_ == 0) {
      ::prctl(PR_SET_PDEATHSIG, SIGKILL);
      ::dup2(in[0], 0);
      ::dup2(out[1], 1);
      ::setenv("WAYLAND_DISPLAY", waylandDisplay.c_str(), 1);
      ::unsetenv("DISPLAY");
      std::vector<char*> argv;
      argv.push_back(const_cast<char*>(CLIPBOARD_HOST_PATH));
      for (auto const& a : args)
        argv.push_back(const_cast<char*>(a.c_str()));
      argv.push_back(nullptr);
      ::execv(CLIPBOARD_HOST_PATH, argv.data());
      _exit(127);
    }
    ::close(in[0]);
    ::close(out[1]);
    toHost_ = in[1];
    fromHost_ = out[0];
  }
  ~HostPipe() {
    if (toHost_ >= 0)
      ::close(toHost_);
    int status = 0;
    for (int i = 0; i < 500 && ::waitpid(pid_, &status, WNOHANG) == 0; ++i)
      std::this_thread::sleep_for(10ms);
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, &status, 0);
    ::close(fromHost_);
  }
  // Sends one line and returns the next output line that contains `marker`.
  std::string send(std::string const& line, std::string const& marker) {
    std::string const data = line + "\n";
    if (::write(toHost_, data.data(), data.size()) != static_cast<ssize_t>(data.size()))
      return {};
    auto const end = std::chrono::steady_clock::now() + 20s;
    for (;;) {
      auto const newline = buffer_.find('\n');
      if (newline != std::string::npos) {
        auto out = buffer_.substr(0, newline);
        buffer_.erase(0, newline + 1);
        if (out.find(marker) != std::string::npos)
          return out;
        continue;
      }
      pollfd pfd{fromHost_, POLLIN, 0};
      if (std::chrono::steady_clock::now() > end || ::poll(&pfd, 1, 1000) < 0)
        return {};
      if ((pfd.revents & (POLLIN | POLLHUP)) != 0) {
        char chunk[65536];
        auto const n = ::read(fromHost_, chunk, sizeof chunk);
        if (n <= 0)
          return {};
        buffer_.append(chunk, static_cast<std::size_t>(n));
      }
    }
  }

 private:
  pid_t pid_ = -1;
  int toHost_ = -1;
  int fromHost_ = -1;
  std::string buffer_;
};

TEST(HostOnSway, ServesWlPasteAndReadsWlCopy) {
  std::unique_ptr<Sway> sway;
  try {
    sway = std::make_unique<Sway>();
  } catch (SwayUnavailable const& e) {
    GTEST_SKIP() << e.what();
  }
  HostPipe host({"--backend", "wayland"}, sway->socket());
  auto const set = host.send(
      R"({"kind":"set","mode":0,"request":{"requestid":"s","uid":"u","clipboardItems":[{"mimeType":"text/plain","data":"from the host \u00e9"}]}})",
      R"("requestid":"s")");
  EXPECT_NE(set.find(R"("success":true)"), std::string::npos) << set;
  auto const pasted = run(*sway, {"wl-paste", "--no-newline"});
  EXPECT_EQ(pasted.output, "from the host \xc3\xa9");

  TempDir dir;
  Process copier({"wl-copy", "--foreground"}, {sway->waylandDisplayEnv()},
                 {dir.file("text", "from wl-copy")});
  std::string got;
  for (int i = 0; i < 200 && got.find("from wl-copy") == std::string::npos; ++i) {
    std::this_thread::sleep_for(20ms);
    got = host.send(
        R"({"kind":"get","mode":0,"request":{"requestid":"g","uid":"u","flavors":["text/plain"]}})",
        R"("requestid":"g")");
  }
  EXPECT_NE(got.find(R"("text/plain":"from wl-copy")"), std::string::npos) << got;
}

}  // namespace
