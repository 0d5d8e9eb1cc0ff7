// Reading what an owner writes into a pipe, with a deadline on every wait.
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <stdexcept>

#include "platform/wayland/wayland_internal.h"

namespace pf::clipboard::wayland {

void widenPipe(int fd) noexcept {
  // 1 MiB is the default limit for unprivileged processes (fs/pipe-max-size).
  ::fcntl(fd, F_SETPIPE_SZ, 1 << 20);
}

void readPipe(int fd, ReadLimits const& limits, std::function<void(std::string_view)> const& sink) {
  constexpr std::size_t kBuffer = std::size_t{1} << 20;
  auto const buffer = std::make_unique<char[]>(kBuffer);
  auto const start = Clock::now();
  auto const whole = start + limits.whole;
  bool first = true;
  std::size_t total = 0;
  for (;;) {
    auto const deadline = std::min(whole, Clock::now() + (first ? limits.firstData : limits.chunk));
    pollfd pfd{fd, POLLIN, 0};
    int ready = 0;
    for (;;) {
      auto const left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
      if (left.count() <= 0) {
        ready = 0;
        break;
      }
      ready = ::poll(&pfd, 1, static_cast<int>(std::min<long long>(left.count(), 60000)));
      if (ready > 0 || (ready < 0 && errno != EINTR))
        break;
    }
    if (ready < 0)
      throw std::runtime_error("Wayland clipboard: waiting for the transfer failed");
    if (ready == 0) {
      throw std::runtime_error(Clock::now() >= whole ? "Wayland clipboard: the read took too long"
                               : first ? "Wayland clipboard: the owner sent nothing in time"
                                       : "Wayland clipboard: the owner stalled mid-transfer");
    }
    ssize_t const n = ::read(fd, buffer.get(), kBuffer);
    if (n < 0) {
      if (errno == EINTR || errno == EAGAIN)
        continue;
      throw std::runtime_error("Wayland clipboard: reading the transfer failed");
    }
    if (n == 0)
      return;
    first = false;
    total += static_cast<std::size_t>(n);
    if (total > limits.maxBytes)
      throw std::runtime_error("Wayland clipboard: the transfer exceeds the size limit");
    sink(std::string_view(buffer.get(), static_cast<std::size_t>(n)));
  }
}

}  // namespace pf::clipboard::wayland
