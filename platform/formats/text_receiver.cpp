#include "platform/formats/text_receiver.hpp"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>

namespace pf::clipboard::formats {

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

}  // namespace pf::clipboard::formats
