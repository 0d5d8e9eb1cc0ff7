// A child process on real pipes, driven the way a front end drives clipboard-host: its input
// kept open, each line written when the test chooses, each output line awaited with a time limit.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace host_test {

class ChildProcess {
 public:
  // Starts argv[0] (a path, or a name looked up in $PATH) in this environment changed by
  // `extraEnvironment` ("NAME=value" sets, "NAME" removes). Standard error goes to a file, read by
  // errorText().
  explicit ChildProcess(std::vector<std::string> const& argv,
                        std::vector<std::string> const& extraEnvironment = {});
  // Closes the input, waits a little for the exit, then kills the child by its pid.
  ~ChildProcess();
  ChildProcess(ChildProcess const&) = delete;
  ChildProcess& operator=(ChildProcess const&) = delete;

  // Writes all of `bytes` to the child's input (no newline added).
  void write(std::string const& bytes);
  void writeLine(std::string const& line) { write(line + "\n"); }
  void closeInput();

  // The next output line (without "\n"; the last may lack it), or nothing when none came within
  // `limit` or the output ended.
  std::optional<std::string> readLine(std::chrono::milliseconds limit = std::chrono::seconds(10));

  // Waits for the exit; the exit status, or -1 when it did not exit in time (then it is killed)
  // or died by a signal.
  int wait(std::chrono::milliseconds limit = std::chrono::seconds(10));

  // SIGTERM, then wait() (which kills it after the limit).
  int terminate();

  std::string errorText() const;
  pid_t pid() const noexcept { return pid_; }

 private:
  pid_t pid_ = -1;
  int input_ = -1;
  int output_ = -1;
  std::string errorPath_;
  std::string pending_;
  bool outputEnded_ = false;
  std::optional<int> status_;
};

}  // namespace host_test
