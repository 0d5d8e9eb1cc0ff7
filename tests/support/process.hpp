// The one way tests and benchmarks start other programs: a child with its environment, its user
// and its descriptors; lines over its pipes with a deadline on every wait; and an end that
// always comes (SIGTERM, SIGKILL after a grace) with the child reaped.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace test_support {

// Where one of the child's standard descriptors goes.
struct Stream {
  enum class Kind { null, pipe, file, capture, output };
  Kind kind = Kind::null;
  std::string path;

  static Stream null() { return {}; }
  // A pipe to us: write() for standard input, readLine() and readErrorLine() for the outputs.
  static Stream pipe() { return {Kind::pipe, {}}; }
  // A file: read as input, written from its start as standard output, appended to as error.
  static Stream file(std::string path) { return {Kind::file, std::move(path)}; }
  // Standard error only: a scratch file that errorText() reads back.
  static Stream capture() { return {Kind::capture, {}}; }
  // Standard error only: wherever standard output goes.
  static Stream output() { return {Kind::output, {}}; }
};

// What to start and how.
struct Launch {
  // argv[0] is a path, or a name looked up in $PATH.
  std::vector<std::string> argv;
  // Changes to our environment: "NAME=value" sets NAME, a bare "NAME" removes it.
  std::vector<std::string> env;
  Stream in = Stream::pipe();
  Stream out = Stream::pipe();
  Stream err = Stream::capture();
  // Run as this user and group (when we are root), dropped before the parent-death signal is
  // armed, because a change of credentials clears it.
  std::optional<std::pair<uid_t, gid_t>> user;
};

class Process {
 public:
  // Starts the child in a process group of its own, killed if this process dies first. Throws
  // std::runtime_error when it cannot be started (the program missing, say).
  explicit Process(Launch launch);
  // Closes the input and stop()s the child.
  ~Process();
  Process(Process const&) = delete;
  Process& operator=(Process const&) = delete;

  pid_t pid() const noexcept { return pid_; }

  // Writes all of `bytes` to the child's input (no newline added); false when the child no
  // longer reads it.
  bool write(std::string const& bytes);
  bool writeLine(std::string const& line) { return write(line + "\n"); }
  void closeInput();

  // The next line of standard output (or error), without "\n" (the last may lack it); nothing
  // when none came within `limit` or the stream ended.
  std::optional<std::string> readLine(std::chrono::milliseconds limit = std::chrono::seconds(10));
  std::optional<std::string> readErrorLine(
      std::chrono::milliseconds limit = std::chrono::seconds(10));
  // What a captured standard error holds so far.
  std::string errorText() const;

  // The exit status once the child has ended (-1 when a signal ended it), or nothing when it
  // still runs after `limit`.
  std::optional<int> wait(std::chrono::milliseconds limit);
  bool running() { return !wait(std::chrono::milliseconds(0)); }
  // Waits up to `limit` for the exit and kills the child after it: the status, or -1.
  int finish(std::chrono::milliseconds limit = std::chrono::seconds(10));

  void signal(int sig) const;
  void signalGroup(int sig) const;
  // Ends the child: SIGCONT and SIGTERM, SIGKILL to its group after `grace`, reaped; what it
  // left in its group is killed too. Returns the status as wait() does.
  int stop(std::chrono::milliseconds grace = std::chrono::seconds(1));
  // Ends the whole group: every member gets SIGTERM and `grace` to go.
  void stopGroup(std::chrono::milliseconds grace = std::chrono::seconds(1));

 private:
  struct LineSource {
    int fd = -1;
    std::string pending;
    std::size_t scanned = 0;  // of `pending`, known to hold no newline
    bool ended = false;
  };
  std::optional<std::string> readFrom(LineSource& source, std::chrono::milliseconds limit);

  pid_t pid_ = -1;
  int input_ = -1;
  LineSource output_;
  LineSource error_;
  std::string errorPath_;
  std::optional<int> status_;
};

// A private X server (Xvfb -displayfd): its display name, stopped when destroyed.
class Xvfb {
 public:
  // Throws std::runtime_error when Xvfb is missing or does not come up.
  explicit Xvfb(std::string const& screen = "640x480x24");
  std::string const& display() const { return display_; }
  std::string displayVariable() const { return "DISPLAY=" + display_; }
  void kill() { server_.stop(); }

 private:
  Process server_;
  std::string display_;
};

}  // namespace test_support
