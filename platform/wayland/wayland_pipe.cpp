// Reading what an owner writes into a pipe, with a deadline on every wait.
#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <stdexcept>
#include <system_error>

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

// Faults in the room of a large text ahead of its decoder, from a thread of its own; the decoder
// never waits for it (a page it reaches first simply faults in then).
class TextReceiver::Faulter {
 public:
  Faulter(char16_t* room, std::size_t capacity, std::size_t from)
      : room_(room), capacity_(capacity), decoded_(from), thread_([this, from] { run(from); }) {}
  ~Faulter() {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      stop_ = true;
    }
    wake_.notify_one();
    thread_.join();
  }
  Faulter(Faulter const&) = delete;
  Faulter& operator=(Faulter const&) = delete;

  void decodedUpTo(std::size_t units) {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      decoded_ = units;
    }
    wake_.notify_one();
  }

 private:
  // How far ahead of the decoder the room is faulted in, and how much at a time (units).
  static constexpr std::size_t kAhead = std::size_t{4} << 20;
  static constexpr std::size_t kStep = std::size_t{1} << 20;

  void run(std::size_t faulted) {
    auto const page = static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE));
    std::unique_lock<std::mutex> lock(mutex_);
    while (!stop_) {
      faulted = std::max(faulted, decoded_);
      if (faulted >= std::min(capacity_, decoded_ + kAhead)) {
        wake_.wait(lock);
        continue;
      }
      auto const upTo = std::min(capacity_, faulted + kStep);
      lock.unlock();
      auto const from = reinterpret_cast<std::uintptr_t>(room_ + faulted) & ~(page - 1);
      auto const to = reinterpret_cast<std::uintptr_t>(room_ + upTo) & ~(page - 1);
      // Only an optimization: where the kernel says no, the pages fault in as they are written.
      if (to > from)
        ::madvise(reinterpret_cast<void*>(from), to - from, MADV_POPULATE_WRITE);
      lock.lock();
      faulted = upTo;
    }
  }

  char16_t* const room_;
  std::size_t const capacity_;
  std::mutex mutex_;
  std::condition_variable wake_;
  std::size_t decoded_;
  bool stop_ = false;
  std::thread thread_;
};

TextReceiver::TextReceiver(std::size_t maxBytes)
    // Beyond 1 GiB the room grows the usual way, by copying.
    : maxUnits_(std::min(maxBytes, std::size_t{1} << 30) + 2) {}

TextReceiver::~TextReceiver() = default;

void TextReceiver::take(std::string_view piece) {
  received_ += piece.size();
  // At most one unit per byte, plus a pair for a sequence begun in an earlier piece.
  makeRoom(text_.size() + piece.size() + 2);
  decoder_.feed(piece, text_);
  if (faulter_)
    faulter_->decodedUpTo(text_.size());
}

void TextReceiver::makeRoom(std::size_t units) {
  if (units <= text_.capacity())
    return;
  // Up to here a transfer is small, and grows its room the usual way.
  constexpr std::size_t kLarge = std::size_t{256} << 10;
  faulter_.reset();  // the room is about to move
  if (received_ < kLarge) {
    text_.reserve(std::max(units, 2 * text_.capacity()));
    return;
  }
  try {
    // Address space only: pages are faulted in as the text reaches them.
    text_.reserve(std::max({units, maxUnits_, 2 * text_.capacity()}));
  } catch (std::bad_alloc const&) {
    // Strict overcommit may refuse a room this size: grow the usual way instead.
    text_.reserve(std::max(units, 2 * text_.capacity()));
    return;
  }
  auto const page = static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE));
  auto const begin = (reinterpret_cast<std::uintptr_t>(text_.data()) + page - 1) & ~(page - 1);
  auto const end = reinterpret_cast<std::uintptr_t>(text_.data() + text_.capacity()) & ~(page - 1);
  if (end > begin)
    ::madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
  try {
    faulter_ = std::make_unique<Faulter>(text_.data(), text_.capacity(), text_.size());
  } catch (std::system_error const&) {
    // No thread to spare: the pages fault in as the decoder writes them.
  }
}

std::u16string TextReceiver::finish() {
  faulter_.reset();
  decoder_.finish(text_);
  if (!text_.empty() && text_.back() == u'\0')
    text_.pop_back();
  return std::move(text_);
}

}  // namespace pf::clipboard::wayland
