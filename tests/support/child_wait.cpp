#include "support/child_wait.hpp"

#include <sys/wait.h>

#include <thread>

namespace test_support {

std::optional<int> waitForExit(pid_t pid, std::chrono::milliseconds timeout) {
  auto const end = std::chrono::steady_clock::now() + timeout;
  for (;;) {
    int status = 0;
    pid_t const got = ::waitpid(pid, &status, WNOHANG);
    if (got == pid)
      return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    if (got < 0)
      return -1;
    if (std::chrono::steady_clock::now() >= end)
      return std::nullopt;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
}

}  // namespace test_support
