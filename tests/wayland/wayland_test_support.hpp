// What the Wayland tests share: compositors started per test (headless sway as an unprivileged
// user, or the small test compositor), child processes that are always reaped, and backend
// options with short timeouts.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "platform/wayland/wayland_clipboard.hpp"
#include "support/process.hpp"
#include "support/temp_dir.hpp"

namespace wayland_test {

using namespace std::chrono_literals;

using test_support::readFile;
using test_support::TempDir;

// A child process in a process group of its own; the group is stopped (SIGCONT, SIGTERM, then
// SIGKILL) and the child reaped when destroyed. `env` entries are added to ours ("NAME=value").
class Process : public test_support::Process {
 public:
  struct Io {
    Io() = default;
    Io(std::string in, std::string out = "/dev/null", std::string err = "/dev/null",
       std::optional<std::pair<uid_t, gid_t>> as = std::nullopt)
        : stdinPath(std::move(in)),
          outputPath(std::move(out)),
          errorPath(std::move(err)),
          user(std::move(as)) {}
    std::string stdinPath = "/dev/null";
    std::string outputPath = "/dev/null";  // stdout
    std::string errorPath = "/dev/null";   // stderr
    // Run as this user and group (when we are root).
    std::optional<std::pair<uid_t, gid_t>> user;
  };
  Process(std::vector<std::string> const& argv, std::vector<std::string> const& env, Io const& io);
  ~Process();
  void stop() { test_support::Process::stop(3000ms); }
};

// A compositor for one test; destroyed, it ends by its PID.
class Compositor {
 public:
  virtual ~Compositor() = default;
  // The absolute path of its socket, usable as WAYLAND_DISPLAY and as the backend's display.
  std::string const& socket() const { return socket_; }
  std::string waylandDisplayEnv() const { return "WAYLAND_DISPLAY=" + socket_; }

 protected:
  std::string socket_;
};

class SwayUnavailable : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// sway 1.7 headless (pixman renderer, no input devices). sway refuses to run as root: a root
// test process starts it as the user nobody, in a runtime folder that user owns (mode 0700);
// root reaches its socket all the same.
class Sway final : public Compositor {
 public:
  // Throws SwayUnavailable when sway is not installed or ends without opening its socket.
  Sway();
  ~Sway() override;

 private:
  std::unique_ptr<TempDir> runtime_;
  std::unique_ptr<Process> process_;
};

// tests/wayland/test_compositor: a seat and the data-control objects, nothing else.
class TestCompositor final : public Compositor {
 public:
  // `args`: --ext, --wlr VERSION (none: a compositor without data-control).
  explicit TestCompositor(std::vector<std::string> const& args);
  ~TestCompositor() override;

 private:
  std::unique_ptr<TempDir> runtime_;
  std::unique_ptr<Process> process_;
};

// Backend options for tests: the given compositor and short timeouts.
pf::clipboard::PFWaylandClipboardOptions options(Compositor const& compositor);

// Runs a command to its end (at most `limit`) with WAYLAND_DISPLAY set; returns its stdout
// and exit status (-1 when killed or timed out).
struct RunResult {
  int status = -1;
  std::string output;
};
RunResult run(Compositor const& compositor, std::vector<std::string> const& argv,
              std::string const& stdinPath = "/dev/null", std::chrono::seconds limit = 30s);

// The children of a process (from /proc).
std::vector<pid_t> childrenOf(pid_t pid);

// Text of `size` UTF-8 bytes or so, with accents and emoji spread through it.
std::string sampleText(std::size_t size);

std::string peerProgram();

}  // namespace wayland_test
