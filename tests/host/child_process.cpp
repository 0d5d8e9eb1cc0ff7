#include "host/child_process.hpp"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

extern char** environ;

namespace host_test {
namespace {

void check(int result, char const* what) {
  if (result != 0) {
    throw std::runtime_error(std::string(what) + ": " + std::strerror(result));
  }
}

}  // namespace

ChildProcess::ChildProcess(std::vector<std::string> const& argv,
                           std::vector<std::string> const& extraEnvironment) {
  // A child must not kill the test with SIGPIPE when it stops reading.
  ::signal(SIGPIPE, SIG_IGN);
  int toChild[2];
  int fromChild[2];
  if (::pipe2(toChild, O_CLOEXEC) != 0 || ::pipe2(fromChild, O_CLOEXEC) != 0) {
    throw std::runtime_error("pipe failed");
  }
  char pattern[] = "/tmp/host_test_stderr_XXXXXX";
  int const errorFd = ::mkstemp(pattern);
  if (errorFd < 0) {
    throw std::runtime_error("mkstemp failed");
  }
  errorPath_ = pattern;

  posix_spawn_file_actions_t actions;
  check(posix_spawn_file_actions_init(&actions), "posix_spawn_file_actions_init");
  posix_spawn_file_actions_adddup2(&actions, toChild[0], STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, fromChild[1], STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, errorFd, STDERR_FILENO);

  std::vector<std::string> environment;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    environment.emplace_back(*entry);
  }
  for (auto const& extra : extraEnvironment) {
    // "NAME=value" replaces NAME; a bare "NAME" removes it.
    std::string const name = extra.substr(0, extra.find('=')) + "=";
    environment.erase(std::remove_if(environment.begin(), environment.end(),
                                     [&](std::string const& existing) {
                                       return existing.compare(0, name.size(), name) == 0;
                                     }),
                      environment.end());
    if (extra.find('=') != std::string::npos) {
      environment.push_back(extra);
    }
  }
  std::vector<char*> args;
  for (auto const& arg : argv) {
    args.push_back(const_cast<char*>(arg.c_str()));
  }
  args.push_back(nullptr);
  std::vector<char*> env;
  for (auto const& entry : environment) {
    env.push_back(const_cast<char*>(entry.c_str()));
  }
  env.push_back(nullptr);

  int const spawned = posix_spawnp(&pid_, args[0], &actions, nullptr, args.data(), env.data());
  posix_spawn_file_actions_destroy(&actions);
  ::close(toChild[0]);
  ::close(fromChild[1]);
  ::close(errorFd);
  input_ = toChild[1];
  output_ = fromChild[0];
  if (spawned != 0) {
    pid_ = -1;
    check(spawned, ("posix_spawn " + argv[0]).c_str());
  }
}

ChildProcess::~ChildProcess() {
  closeInput();
  if (pid_ > 0 && !status_) {
    wait(std::chrono::seconds(5));
  }
  if (output_ >= 0) {
    ::close(output_);
  }
  if (!errorPath_.empty()) {
    ::unlink(errorPath_.c_str());
  }
}

void ChildProcess::write(std::string const& bytes) {
  std::size_t done = 0;
  while (done < bytes.size()) {
    ssize_t const wrote = ::write(input_, bytes.data() + done, bytes.size() - done);
    if (wrote < 0 && errno == EINTR) {
      continue;
    }
    if (wrote <= 0) {
      throw std::runtime_error("writing to the child failed");
    }
    done += static_cast<std::size_t>(wrote);
  }
}

void ChildProcess::closeInput() {
  if (input_ >= 0) {
    ::close(input_);
    input_ = -1;
  }
}

std::optional<std::string> ChildProcess::readLine(std::chrono::milliseconds limit) {
  auto const deadline = std::chrono::steady_clock::now() + limit;
  for (;;) {
    std::size_t const newline = pending_.find('\n');
    if (newline != std::string::npos) {
      std::string line = pending_.substr(0, newline);
      pending_.erase(0, newline + 1);
      return line;
    }
    if (outputEnded_) {
      if (pending_.empty()) {
        return std::nullopt;
      }
      std::string last;
      last.swap(pending_);  // a last line without "\n"
      return last;
    }
    auto const left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) {
      return std::nullopt;
    }
    pollfd wait{output_, POLLIN, 0};
    int const ready = ::poll(&wait, 1, static_cast<int>(left.count()));
    if (ready < 0 && errno == EINTR) {
      continue;
    }
    if (ready <= 0) {
      return std::nullopt;
    }
    char buffer[65536];
    ssize_t const got = ::read(output_, buffer, sizeof buffer);
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got <= 0) {
      outputEnded_ = true;
      continue;
    }
    pending_.append(buffer, static_cast<std::size_t>(got));
  }
}

int ChildProcess::wait(std::chrono::milliseconds limit) {
  if (status_) {
    return *status_;
  }
  if (pid_ <= 0) {
    return -1;
  }
  auto const deadline = std::chrono::steady_clock::now() + limit;
  int raw = 0;
  for (;;) {
    pid_t const done = ::waitpid(pid_, &raw, WNOHANG);
    if (done == pid_) {
      break;
    }
    if (std::chrono::steady_clock::now() >= deadline) {
      ::kill(pid_, SIGKILL);
      ::waitpid(pid_, &raw, 0);
      status_ = -1;
      return -1;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  status_ = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  return *status_;
}

int ChildProcess::terminate() {
  if (pid_ > 0 && !status_) {
    ::kill(pid_, SIGCONT);  // a stopped child cannot act on SIGTERM
    ::kill(pid_, SIGTERM);
  }
  return wait(std::chrono::seconds(5));
}

std::string ChildProcess::errorText() const {
  std::ifstream in(errorPath_, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

}  // namespace host_test
