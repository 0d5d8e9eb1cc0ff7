#include "support/process.hpp"

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
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

namespace test_support {
namespace {

using namespace std::chrono_literals;

std::string findProgram(std::string const& name) {
  if (name.find('/') != std::string::npos) {
    return name;
  }
  char const* path = std::getenv("PATH");
  std::istringstream dirs(path != nullptr ? path : "/usr/bin:/bin");
  for (std::string dir; std::getline(dirs, dir, ':');) {
    std::string const candidate = (dir.empty() ? "." : dir) + "/" + name;
    if (::access(candidate.c_str(), X_OK) == 0) {
      return candidate;
    }
  }
  throw std::runtime_error("program not found: " + name);
}

std::vector<std::string> environmentWith(std::vector<std::string> const& changes) {
  std::vector<std::string> environment;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    environment.emplace_back(*entry);
  }
  for (auto const& change : changes) {
    std::string const name = change.substr(0, change.find('=')) + "=";
    environment.erase(std::remove_if(environment.begin(), environment.end(),
                                     [&](std::string const& existing) {
                                       return existing.compare(0, name.size(), name) == 0;
                                     }),
                      environment.end());
    if (change.find('=') != std::string::npos) {
      environment.push_back(change);
    }
  }
  return environment;
}

std::vector<char*> pointersTo(std::vector<std::string> const& strings) {
  std::vector<char*> out;
  for (auto const& s : strings) {
    out.push_back(const_cast<char*>(s.c_str()));
  }
  out.push_back(nullptr);
  return out;
}

// Our end and the child's end of one standard descriptor.
struct Ends {
  int ours = -1;
  int child = -1;
};

Ends open(Stream const& stream, int which, std::string& capturePath) {
  Ends ends;
  switch (stream.kind) {
    case Stream::Kind::null:
      ends.child = ::open("/dev/null", O_RDWR | O_CLOEXEC);
      break;
    case Stream::Kind::pipe: {
      int fds[2];
      if (::pipe2(fds, O_CLOEXEC) != 0) {
        throw std::runtime_error("pipe failed");
      }
      ends = which == STDIN_FILENO ? Ends{fds[1], fds[0]} : Ends{fds[0], fds[1]};
      break;
    }
    case Stream::Kind::file: {
      int const flags = which == STDIN_FILENO    ? O_RDONLY
                        : which == STDOUT_FILENO ? O_WRONLY | O_CREAT | O_TRUNC
                                                 : O_WRONLY | O_CREAT | O_APPEND;
      ends.child = ::open(stream.path.c_str(), flags | O_CLOEXEC, 0644);
      break;
    }
    case Stream::Kind::output:
      break;  // the caller's
    case Stream::Kind::capture: {
      char pattern[] = "/tmp/test_process_stderr_XXXXXX";
      ends.child = ::mkostemp(pattern, O_CLOEXEC);
      capturePath = pattern;
      break;
    }
  }
  if (ends.child < 0 && stream.kind != Stream::Kind::output) {
    throw std::runtime_error("cannot open " + stream.path);
  }
  return ends;
}

void closeIfOpen(int& fd) {
  if (fd >= 0) {
    ::close(fd);
    fd = -1;
  }
}

}  // namespace

Process::Process(Launch launch) {
  // A child must not kill us with SIGPIPE when it stops reading.
  ::signal(SIGPIPE, SIG_IGN);
  std::string const program = findProgram(launch.argv.at(0));
  std::vector<std::string> const environment = environmentWith(launch.env);
  std::vector<char*> const args = pointersTo(launch.argv);
  std::vector<char*> const envp = pointersTo(environment);
  Ends ends[3];
  try {
    ends[0] = open(launch.in, STDIN_FILENO, errorPath_);
    ends[1] = open(launch.out, STDOUT_FILENO, errorPath_);
    if (launch.err.kind == Stream::Kind::output) {
      ends[2].child = ::fcntl(ends[1].child, F_DUPFD_CLOEXEC, 0);
    } else {
      ends[2] = open(launch.err, STDERR_FILENO, errorPath_);
    }
  } catch (...) {
    for (auto& end : ends) {
      closeIfOpen(end.ours);
      closeIfOpen(end.child);
    }
    throw;
  }
  auto const user = launch.user;
  pid_t const parent = ::getpid();
  pid_ = ::fork();
  if (pid_ == 0) {
    // Only async-signal-safe calls from here on: the test may run threads.
    ::setpgid(0, 0);
    if (user && (::setgroups(0, nullptr) != 0 ||
                 ::setresgid(user->second, user->second, user->second) != 0 ||
                 ::setresuid(user->first, user->first, user->first) != 0)) {
      _exit(126);
    }
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != parent) {
      _exit(127);
    }
    for (int fd = 0; fd < 3; ++fd) {
      if (::dup2(ends[fd].child, fd) < 0) {
        _exit(127);
      }
    }
    ::execve(program.c_str(), args.data(), envp.data());
    _exit(127);
  }
  if (pid_ > 0) {
    ::setpgid(pid_, pid_);  // before any signal to the group, whichever side runs first
  }
  for (auto& end : ends) {
    closeIfOpen(end.child);
  }
  input_ = ends[0].ours;
  output_.fd = ends[1].ours;
  error_.fd = ends[2].ours;
  if (pid_ < 0) {
    closeInput();
    closeIfOpen(output_.fd);
    closeIfOpen(error_.fd);
    throw std::runtime_error("fork failed");
  }
}

Process::~Process() {
  closeInput();
  stop();
  closeIfOpen(output_.fd);
  closeIfOpen(error_.fd);
  if (!errorPath_.empty()) {
    ::unlink(errorPath_.c_str());
  }
}

bool Process::write(std::string const& bytes) {
  std::size_t done = 0;
  while (done < bytes.size()) {
    ssize_t const wrote = ::write(input_, bytes.data() + done, bytes.size() - done);
    if (wrote < 0 && errno == EINTR) {
      continue;
    }
    if (wrote <= 0) {
      return false;
    }
    done += static_cast<std::size_t>(wrote);
  }
  return true;
}

void Process::closeInput() {
  closeIfOpen(input_);
}

std::optional<std::string> Process::readLine(std::chrono::milliseconds limit) {
  return readFrom(output_, limit);
}

std::optional<std::string> Process::readErrorLine(std::chrono::milliseconds limit) {
  return readFrom(error_, limit);
}

std::optional<std::string> Process::readFrom(LineSource& source, std::chrono::milliseconds limit) {
  auto const deadline = std::chrono::steady_clock::now() + limit;
  for (;;) {
    std::size_t const newline = source.pending.find('\n', source.scanned);
    if (newline != std::string::npos) {
      std::string line = source.pending.substr(0, newline);
      source.pending.erase(0, newline + 1);
      source.scanned = 0;
      return line;
    }
    source.scanned = source.pending.size();
    if (source.ended || source.fd < 0) {
      if (source.pending.empty()) {
        return std::nullopt;
      }
      std::string last;
      last.swap(source.pending);  // a last line without "\n"
      source.scanned = 0;
      return last;
    }
    auto const left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) {
      return std::nullopt;
    }
    pollfd ready{source.fd, POLLIN, 0};
    int const got = ::poll(&ready, 1, static_cast<int>(left.count()));
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got <= 0) {
      return std::nullopt;
    }
    char buffer[65536];
    ssize_t const n = ::read(source.fd, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) {
      continue;
    }
    if (n <= 0) {
      source.ended = true;
      continue;
    }
    source.pending.append(buffer, static_cast<std::size_t>(n));
  }
}

std::string Process::errorText() const {
  std::ifstream in(errorPath_, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

std::optional<int> Process::wait(std::chrono::milliseconds limit) {
  if (status_ || pid_ <= 0) {
    return status_;
  }
  auto const deadline = std::chrono::steady_clock::now() + limit;
  for (;;) {
    int raw = 0;
    pid_t const done = ::waitpid(pid_, &raw, WNOHANG);
    if (done == pid_ || (done < 0 && errno != EINTR)) {
      status_ = done == pid_ && WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
      return status_;
    }
    if (std::chrono::steady_clock::now() >= deadline) {
      return std::nullopt;
    }
    std::this_thread::sleep_for(2ms);
  }
}

int Process::finish(std::chrono::milliseconds limit) {
  if (auto const status = wait(limit)) {
    return *status;
  }
  signalGroup(SIGKILL);
  return wait(10s).value_or(-1);
}

void Process::signal(int sig) const {
  if (pid_ > 0 && !status_) {
    ::kill(pid_, sig);
  }
}

void Process::signalGroup(int sig) const {
  if (pid_ > 0) {
    ::kill(-pid_, sig);
  }
}

int Process::stop(std::chrono::milliseconds grace) {
  if (pid_ <= 0) {
    return -1;
  }
  if (!status_) {
    signalGroup(SIGCONT);  // a stopped child cannot act on SIGTERM
    signal(SIGTERM);
    if (!wait(grace)) {
      signalGroup(SIGKILL);
      wait(10s);
    }
  }
  signalGroup(SIGKILL);  // helpers the child left in its group
  return status_.value_or(-1);
}

void Process::stopGroup(std::chrono::milliseconds grace) {
  signalGroup(SIGCONT);
  signalGroup(SIGTERM);
  wait(grace);
  // Members the leader did not wait for (daemons a session started) get the same time.
  auto const end = std::chrono::steady_clock::now() + grace;
  while (::kill(-pid_, 0) == 0 && std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(10ms);
  }
  stop(0ms);
}

namespace {

// -displayfd picks a free display and writes its number; -noreset keeps the server up between
// clients (a reset when the last one leaves refuses the next one).
Launch xvfbLaunch(std::string const& screen) {
  Launch launch;
  launch.argv = {"Xvfb", "-displayfd", "1", "-nolisten", "tcp", "-noreset", "-screen", "0", screen};
  launch.env = {"DISPLAY"};
  launch.in = Stream::null();
  return launch;
}

}  // namespace

Xvfb::Xvfb(std::string const& screen) : server_(xvfbLaunch(screen)) {
  auto const number = server_.readLine(20s);
  if (!number || number->empty()) {
    throw std::runtime_error("Xvfb did not start: " + server_.errorText());
  }
  display_ = ":" + *number;
}

}  // namespace test_support
