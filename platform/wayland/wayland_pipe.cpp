// Reading what an owner writes into a pipe, with a deadline on every wait.
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <stdexcept>

#include "platform/string_room.hpp"
#include "platform/wayland/wayland_internal.h"

namespace pf::clipboard::wayland {

void widenPipe(int fd) noexcept {
  // 1 MiB is the default limit for unprivileged processes (fs/pipe-max-size).
  ::fcntl(fd, F_SETPIPE_SZ, 1 << 20);
}

std::string Received::joined() const {
  std::string out;
  out.reserve(size);
  fl::strings::prefault(out.data(), size);
  for (auto const& piece : pieces)
    out.append(piece);
  return out;
}

Received readPipe(int fd, ReadLimits const& limits) {
  constexpr std::size_t kPiece = std::size_t{1} << 20;
  Received received;
  auto const start = Clock::now();
  auto const whole = start + limits.whole;
  bool first = true;
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
    // The last piece is filled up before another begins, so that an owner writing little at a
    // time leaves no trail of mostly empty pieces.
    if (received.pieces.empty() || received.pieces.back().size() == kPiece) {
      received.pieces.emplace_back().reserve(kPiece);
      fl::strings::prefault(received.pieces.back().data(), kPiece);
    }
    auto& piece = received.pieces.back();
    auto const used = piece.size();
    fl::strings::grow_uninitialized(piece, kPiece);
    ssize_t const n = ::read(fd, piece.data() + used, kPiece - used);
    piece.resize(used + static_cast<std::size_t>(std::max<ssize_t>(n, 0)));
    if (n < 0) {
      if (errno == EINTR || errno == EAGAIN)
        continue;
      throw std::runtime_error("Wayland clipboard: reading the transfer failed");
    }
    if (n == 0)
      return received;
    first = false;
    received.size += static_cast<std::size_t>(n);
    if (received.size > limits.maxBytes)
      throw std::runtime_error("Wayland clipboard: the transfer exceeds the size limit");
  }
}

}  // namespace pf::clipboard::wayland
