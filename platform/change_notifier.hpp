// Delivers clipboard change events on a thread of its own, so that a listener may read the
// clipboard (which needs the backend's event thread) without blocking that thread. Shared by
// the backends that have an event thread of their own.
#pragma once

#include <functional>
#include <memory>
#include <thread>

#include "platform/clipboard.hpp"

namespace pf::clipboard {

class ChangeNotifier {
 public:
  explicit ChangeNotifier(std::function<void(PFClipboardMode)> deliver);
  ~ChangeNotifier();
  ChangeNotifier(ChangeNotifier const&) = delete;
  ChangeNotifier& operator=(ChangeNotifier const&) = delete;

  // Ignored once stopped.
  void post(PFClipboardMode mode);
  // Ends deliveries; returns once none is running (unless called from a delivery).
  void stop();

 private:
  struct State;
  std::shared_ptr<State> state_;
  std::thread thread_;
};

// The notifier of a backend: each change of the system clipboard emits the change event when
// `emitChangeEvents`, and every change of either mode goes to `onSelectionChanged` when set.
std::shared_ptr<ChangeNotifier> makeBackendNotifier(
    bool emitChangeEvents, std::function<void(PFClipboardMode)> onSelectionChanged);

}  // namespace pf::clipboard
