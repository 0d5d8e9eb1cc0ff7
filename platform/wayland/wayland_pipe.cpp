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

namespace {

constexpr std::size_t kPiece = std::size_t{1} << 20;

// The 1 MiB a read lands in, kept for the next read: fresh pages cost a fault and a zeroing
// each, and a buffer read again and again stays in the cache while its piece is decoded.
class ReceiveBuffer {
 public:
  ReceiveBuffer() {
    std::lock_guard<std::mutex> lock(mutex());
    auto& spare = spares();
    if (!spare.empty()) {
      bytes_ = std::move(spare.back());
      spare.pop_back();
    }
    if (!bytes_)
      bytes_.reset(new char[kPiece]);
  }
  ~ReceiveBuffer() {
    std::lock_guard<std::mutex> lock(mutex());
    if (spares().size() < 2)
      spares().push_back(std::move(bytes_));
  }
  ReceiveBuffer(ReceiveBuffer const&) = delete;
  ReceiveBuffer& operator=(ReceiveBuffer const&) = delete;
  char* data() const { return bytes_.get(); }

 private:
  static std::mutex& mutex() {
    static std::mutex m;
    return m;
  }
  static std::vector<std::unique_ptr<char[]>>& spares() {
    static std::vector<std::unique_ptr<char[]>> s;
    return s;
  }
  std::unique_ptr<char[]> bytes_;
};

// Waits until `fd` is readable or `deadline` passes; false on the deadline.
bool waitReadable(int fd, Clock::time_point deadline) {
  pollfd pfd{fd, POLLIN, 0};
  for (;;) {
    auto const left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    if (left.count() <= 0)
      return false;
    int const ready = ::poll(&pfd, 1, static_cast<int>(std::min<long long>(left.count(), 60000)));
    if (ready > 0)
      return true;
    if (ready < 0 && errno != EINTR)
      throw std::runtime_error("Wayland clipboard: waiting for the transfer failed");
  }
}

}  // namespace

void widenPipe(int fd) noexcept {
  // 1 MiB is the default limit for unprivileged processes (fs/pipe-max-size).
  ::fcntl(fd, F_SETPIPE_SZ, 1 << 20);
}

PipeEnd readPipe(int fd, ReadLimits const& limits,
                 std::function<void(std::string_view)> const& take) {
  ReceiveBuffer buffer;
  PipeEnd end;
  auto const start = Clock::now();
  auto const whole = start + limits.whole;
  auto lastData = start;
  bool first = true;
  for (;;) {
    auto const deadline = std::min(whole, Clock::now() + (first ? limits.first : limits.chunk));
    if (!waitReadable(fd, deadline)) {
      throw std::runtime_error(Clock::now() >= whole ? "Wayland clipboard: the read took too long"
                               : first ? "Wayland clipboard: the owner sent nothing in time"
                                       : "Wayland clipboard: the owner stalled mid-transfer");
    }
    ssize_t const n = ::read(fd, buffer.data(), kPiece);
    if (n < 0) {
      if (errno == EINTR || errno == EAGAIN)
        continue;
      throw std::runtime_error("Wayland clipboard: reading the transfer failed");
    }
    if (n == 0) {
      end.quiet = Clock::now() - lastData;
      return end;
    }
    first = false;
    end.size += static_cast<std::size_t>(n);
    if (end.size > limits.maxBytes)
      throw std::runtime_error("Wayland clipboard: the transfer exceeds the size limit");
    take(std::string_view(buffer.data(), static_cast<std::size_t>(n)));
    lastData = Clock::now();
  }
}

std::string Received::joined() const {
  std::string out;
  out.reserve(end.size);
  fl::strings::prefault(out.data(), end.size);
  for (auto const& piece : pieces)
    out.append(piece);
  return out;
}

std::vector<std::byte> Received::bytes() const {
  std::vector<std::byte> out;
  out.reserve(end.size);
  fl::strings::prefault(out.data(), end.size);
  for (auto const& piece : pieces) {
    auto const* p = reinterpret_cast<std::byte const*>(piece.data());
    out.insert(out.end(), p, p + piece.size());
  }
  return out;
}

Received readAll(int fd, ReadLimits const& limits) {
  Received received;
  received.end = readPipe(fd, limits, [&received](std::string_view piece) {
    while (!piece.empty()) {
      // The last piece is filled up before another begins, so that an owner writing little at
      // a time leaves no trail of mostly empty pieces.
      if (received.pieces.empty() || received.pieces.back().size() == kPiece) {
        received.pieces.emplace_back().reserve(kPiece);
        fl::strings::prefault(received.pieces.back().data(), kPiece);
      }
      auto& last = received.pieces.back();
      auto const part = std::min(piece.size(), kPiece - last.size());
      last.append(piece.data(), part);
      piece.remove_prefix(part);
    }
  });
  return received;
}

}  // namespace pf::clipboard::wayland
