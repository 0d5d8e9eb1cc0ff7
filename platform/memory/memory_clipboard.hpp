// The in-memory clipboard: a real clipboard kept in the process, the default backend.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>

#include "platform/clipboard.hpp"

namespace pf::clipboard {

// One payload per mode (0 and 1); its mime types listed in the order they were added; each read
// returns the content stored under that mime type, as the same ClipboardContent alternative.
// Thread-safe. Every change of mode 0, by the service or "by another program", emits the
// clipboard-change event after the clipboard's own lock is released.
class PFMemoryClipboard final : public PFClipboardBackend {
 public:
  enum class Delivery {
    synchronous,  // emitted on the writing thread, before write() returns (deterministic)
    ownThread,    // emitted on a thread of the clipboard's own, as a desktop clipboard does
  };

  explicit PFMemoryClipboard(Delivery delivery = Delivery::synchronous);
  ~PFMemoryClipboard() override;

  std::vector<std::u16string> availableMimeTypes(PFClipboardMode mode) override;
  ClipboardContent read(std::u16string const& mimeType, PFClipboardMode mode) override;
  void write(std::unique_ptr<PFClipboardData> data, PFClipboardMode mode) override;

  // Puts `data` on the clipboard as if another program had copied it.
  void copyFromOtherProgram(PFClipboardData data, PFClipboardMode mode);

  // The action of the payload that `mode` holds.
  PFClipboardAction action(PFClipboardMode mode) const;

  // Number of writes so far (both modes), for hosts that poll.
  std::uint64_t changeCount() const;

  // With Delivery::ownThread: returns once every change made so far has been emitted.
  void waitUntilDelivered();

 private:
  void replace(std::shared_ptr<PFClipboardData const> data, PFClipboardMode mode);
  void deliveryLoop();

  Delivery delivery_;
  mutable std::mutex mutex_;
  std::shared_ptr<PFClipboardData const> payloads_[2];
  std::uint64_t changes_ = 0;

  // Delivery thread state (ownThread only).
  std::condition_variable wake_;
  std::condition_variable delivered_;
  std::uint64_t pending_ = 0;   // mode-0 changes not yet emitted
  std::uint64_t inFlight_ = 0;  // taken by the thread, being emitted
  bool stopping_ = false;
  std::thread thread_;
};

}  // namespace pf::clipboard
