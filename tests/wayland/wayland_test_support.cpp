#include "wayland_test_support.hpp"

#include <fcntl.h>
#include <pwd.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <thread>

namespace wayland_test {

namespace {

std::string findProgram(std::string const& name) {
  if (name.find('/') != std::string::npos)
    return name;
  char const* path = std::getenv("PATH");
  std::string const dirs = path ? path : "/usr/bin:/bin";
  std::stringstream list(dirs);
  std::string dir;
  while (std::getline(list, dir, ':')) {
    auto const candidate = (dir.empty() ? "." : dir) + "/" + name;
    if (::access(candidate.c_str(), X_OK) == 0)
      return candidate;
  }
  return {};
}

// Our environment without the display variables, plus `extra`.
std::vector<std::string> childEnvironment(std::vector<std::string> const& extra) {
  std::vector<std::string> env = {"WAYLAND_DISPLAY", "DISPLAY"};
  env.insert(env.end(), extra.begin(), extra.end());
  return env;
}

// Whether a server listens on the socket yet: the file appears at bind(), before listen().
bool listening(std::string const& path) {
  int const fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0)
    return false;
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  bool const ok = ::connect(fd, reinterpret_cast<sockaddr const*>(&address), sizeof address) == 0;
  ::close(fd);
  return ok;
}

// Waits for a socket named wayland-N (not its lock file) in `dir` while `process` runs.
std::string waitForSocket(std::string const& dir, Process& process,
                          std::chrono::milliseconds timeout) {
  auto const end = std::chrono::steady_clock::now() + timeout;
  while (std::chrono::steady_clock::now() < end) {
    std::error_code ec;
    for (auto const& entry : std::filesystem::directory_iterator(dir, ec)) {
      auto const name = entry.path().filename().string();
      if (name.rfind("wayland-", 0) == 0 && name.find('.') == std::string::npos &&
          entry.is_socket(ec) && listening(entry.path().string()))
        return entry.path().string();
    }
    if (process.wait(0ms))
      return {};
    std::this_thread::sleep_for(10ms);
  }
  return {};
}

}  // namespace

Process::Process(std::vector<std::string> const& argv, std::vector<std::string> const& env,
                 Io const& io)
    : test_support::Process({argv, childEnvironment(env), test_support::Stream::file(io.stdinPath),
                             test_support::Stream::file(io.outputPath),
                             test_support::Stream::file(io.errorPath), io.user}) {}

Process::~Process() {
  stop();
}

Sway::Sway() {
  if (findProgram("sway").empty())
    throw SwayUnavailable("sway is not installed");
  runtime_ = std::make_unique<TempDir>();
  auto const config = runtime_->file("sway.conf", "xwayland disable\n");
  auto const log = runtime_->path() + "/sway.log";
  // Its runtime folder is a subfolder, so that the user it runs as owns it alone.
  auto const dir = runtime_->path() + "/runtime";
  ::mkdir(dir.c_str(), 0700);
  std::optional<std::pair<uid_t, gid_t>> user;
  if (::geteuid() == 0) {
    passwd const* nobody = ::getpwnam("nobody");
    if (nobody == nullptr)
      throw SwayUnavailable("no user nobody to run sway as");
    if (::chown(dir.c_str(), nobody->pw_uid, nobody->pw_gid) != 0)
      throw std::runtime_error("cannot give the runtime folder to nobody");
    ::chmod(runtime_->path().c_str(), 0755);
    ::chmod(config.c_str(), 0644);
    user = std::make_pair(nobody->pw_uid, nobody->pw_gid);
  }
  process_ = std::make_unique<Process>(
      std::vector<std::string>{"sway", "-c", config},
      std::vector<std::string>{"XDG_RUNTIME_DIR=" + dir, "HOME=" + dir, "WLR_BACKENDS=headless",
                               "WLR_LIBINPUT_NO_DEVICES=1", "WLR_RENDERER=pixman"},
      Process::Io{"/dev/null", "/dev/null", log, user});
  socket_ = waitForSocket(dir, *process_, 15000ms);
  if (socket_.empty()) {
    process_.reset();
    auto text = readFile(log);
    if (text.size() > 2000)
      text = text.substr(text.size() - 2000);
    throw SwayUnavailable("sway did not open its socket: " + text);
  }
}

Sway::~Sway() {
  process_.reset();
  runtime_.reset();
}

TestCompositor::TestCompositor(std::vector<std::string> const& args) {
  runtime_ = std::make_unique<TempDir>();
  std::vector<std::string> argv = {TEST_COMPOSITOR_PROGRAM, "wayland-test"};
  argv.insert(argv.end(), args.begin(), args.end());
  auto const log = runtime_->path() + "/compositor.log";
  process_ = std::make_unique<Process>(
      argv, std::vector<std::string>{"XDG_RUNTIME_DIR=" + runtime_->path()},
      Process::Io{"/dev/null", "/dev/null", log});
  socket_ = waitForSocket(runtime_->path(), *process_, 10000ms);
  if (socket_.empty())
    throw std::runtime_error("the test compositor did not start: " + readFile(log));
}

TestCompositor::~TestCompositor() {
  process_.reset();
  runtime_.reset();
}

pf::clipboard::PFWaylandClipboardOptions options(Compositor const& compositor) {
  pf::clipboard::PFWaylandClipboardOptions o;
  o.display = compositor.socket();
  o.firstDataTimeout = 2000ms;
  o.chunkTimeout = 2000ms;
  o.readTimeout = 30000ms;
  o.sendTimeout = 2000ms;
  return o;
}

RunResult run(Compositor const& compositor, std::vector<std::string> const& argv,
              std::string const& stdinPath, std::chrono::seconds limit) {
  TempDir dir;
  std::vector<std::string> command = {"timeout", "-k", "1", std::to_string(limit.count())};
  command.insert(command.end(), argv.begin(), argv.end());
  auto const outputPath = dir.path() + "/stdout";
  RunResult result;
  {
    Process process(command, {compositor.waylandDisplayEnv()}, {stdinPath, outputPath});
    auto const status = process.wait(limit + 5s);
    result.status = status ? *status : -1;
    if (result.status == 124 || result.status == 137)
      result.status = -1;
  }
  result.output = readFile(outputPath);
  return result;
}

std::vector<pid_t> childrenOf(pid_t pid) {
  std::vector<pid_t> out;
  std::ifstream in("/proc/" + std::to_string(pid) + "/task/" + std::to_string(pid) + "/children");
  pid_t child = 0;
  while (in >> child)
    out.push_back(child);
  return out;
}

std::string sampleText(std::size_t size) {
  static char const* const pieces[] = {"plain words ", "caf\xc3\xa9 ", "\xe4\xb8\xad\xe6\x96\x87 ",
                                       "\xf0\x9f\x98\x80 ", "line\n"};
  std::string text;
  text.reserve(size + 16);
  for (std::size_t i = 0; text.size() < size; ++i)
    text += pieces[(i * 7) % 5];
  return text;
}

std::string peerProgram() {
  return WAYLAND_PEER_PROGRAM;
}

}  // namespace wayland_test
