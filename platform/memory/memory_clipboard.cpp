#include "platform/memory/memory_clipboard.hpp"

#include <stdexcept>

namespace pf::clipboard {
namespace {

int slotOf(PFClipboardMode mode) {
  int const value = static_cast<int>(mode);
  if (value != 0 && value != 1) {
    throw std::invalid_argument("clipboard mode " + std::to_string(value) + " does not exist");
  }
  return value;
}

}  // namespace

PFMemoryClipboard::PFMemoryClipboard(Delivery delivery) : delivery_(delivery) {
  if (delivery_ == Delivery::ownThread) {
    thread_ = std::thread([this] { deliveryLoop(); });
  }
}

PFMemoryClipboard::~PFMemoryClipboard() {
  if (thread_.joinable()) {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      stopping_ = true;
    }
    wake_.notify_all();
    thread_.join();
  }
}

std::vector<std::u16string> PFMemoryClipboard::availableMimeTypes(PFClipboardMode mode) {
  int const slot = slotOf(mode);
  std::shared_ptr<PFClipboardData const> payload;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    payload = payloads_[slot];
  }
  std::vector<std::u16string> mimeTypes;
  if (payload) {
    mimeTypes.reserve(payload->entries().size());
    for (auto const& entry : payload->entries()) {
      mimeTypes.push_back(entry.first);
    }
  }
  return mimeTypes;
}

ClipboardContent PFMemoryClipboard::read(std::u16string const& mimeType, PFClipboardMode mode) {
  int const slot = slotOf(mode);
  std::shared_ptr<PFClipboardData const> payload;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    payload = payloads_[slot];
  }
  if (payload) {
    if (auto const* content = payload->find(mimeType)) {
      return *content;
    }
  }
  return ClipboardContent();
}

void PFMemoryClipboard::write(std::unique_ptr<PFClipboardData> data, PFClipboardMode mode) {
  if (!data) {
    throw std::invalid_argument("clipboard write without a payload");
  }
  replace(std::shared_ptr<PFClipboardData const>(std::move(data)), mode);
}

void PFMemoryClipboard::copyFromOtherProgram(PFClipboardData data, PFClipboardMode mode) {
  replace(std::make_shared<PFClipboardData const>(std::move(data)), mode);
}

PFClipboardAction PFMemoryClipboard::action(PFClipboardMode mode) const {
  int const slot = slotOf(mode);
  std::lock_guard<std::mutex> lock(mutex_);
  return payloads_[slot] ? payloads_[slot]->clipboardAction() : PFClipboardAction::copy;
}

std::uint64_t PFMemoryClipboard::changeCount() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return changes_;
}

void PFMemoryClipboard::replace(std::shared_ptr<PFClipboardData const> data, PFClipboardMode mode) {
  int const slot = slotOf(mode);
  std::shared_ptr<PFClipboardData const> previous;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    previous = std::move(payloads_[slot]);
    payloads_[slot] = std::move(data);
    ++changes_;
    if (slot == 0 && delivery_ == Delivery::ownThread) {
      ++pending_;
    }
  }
  // The old payload is released here, outside the lock; listeners run with no lock held.
  previous.reset();
  if (slot == 0) {
    if (delivery_ == Delivery::synchronous) {
      notifyClipboardChanged();
    } else {
      wake_.notify_one();
    }
  }
}

void PFMemoryClipboard::deliveryLoop() {
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    wake_.wait(lock, [this] { return stopping_ || pending_ > 0; });
    if (stopping_) {
      break;
    }
    --pending_;
    ++inFlight_;
    lock.unlock();
    notifyClipboardChanged();
    lock.lock();
    --inFlight_;
    delivered_.notify_all();
  }
  // Changes not emitted yet are dropped: nobody waits for them once the clipboard goes away.
  pending_ = 0;
  delivered_.notify_all();
}

void PFMemoryClipboard::waitUntilDelivered() {
  if (delivery_ != Delivery::ownThread) {
    return;
  }
  std::unique_lock<std::mutex> lock(mutex_);
  delivered_.wait(lock, [this] { return (pending_ == 0 && inFlight_ == 0) || stopping_; });
}

}  // namespace pf::clipboard
