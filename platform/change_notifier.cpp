#include "platform/change_notifier.hpp"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <utility>

namespace pf::clipboard {

struct ChangeNotifier::State {
  std::mutex mutex;
  std::condition_variable wake;
  std::deque<PFClipboardMode> queue;
  bool stop = false;
  std::function<void(PFClipboardMode)> deliver;
};

ChangeNotifier::ChangeNotifier(std::function<void(PFClipboardMode)> deliver)
    : state_(std::make_shared<State>()) {
  state_->deliver = std::move(deliver);
  // The thread holds the state, not the notifier: a listener may destroy the backend.
  thread_ = std::thread([state = state_] {
    std::unique_lock<std::mutex> lock(state->mutex);
    for (;;) {
      state->wake.wait(lock, [&] { return state->stop || !state->queue.empty(); });
      if (state->stop)
        return;
      auto const mode = state->queue.front();
      state->queue.pop_front();
      lock.unlock();
      try {
        state->deliver(mode);
      } catch (...) {
        // A throwing listener must not end deliveries.
      }
      lock.lock();
    }
  });
}

ChangeNotifier::~ChangeNotifier() {
  stop();
}

void ChangeNotifier::stop() {
  {
    std::lock_guard<std::mutex> lock(state_->mutex);
    state_->stop = true;
  }
  state_->wake.notify_all();
  if (!thread_.joinable())
    return;
  if (thread_.get_id() == std::this_thread::get_id()) {
    thread_.detach();  // stopped from a listener: the thread ends once it returns
  } else {
    thread_.join();
  }
}

void ChangeNotifier::post(PFClipboardMode mode) {
  {
    std::lock_guard<std::mutex> lock(state_->mutex);
    if (state_->stop)
      return;
    state_->queue.push_back(mode);
  }
  state_->wake.notify_one();
}

std::shared_ptr<ChangeNotifier> makeBackendNotifier(
    bool emitChangeEvents, std::function<void(PFClipboardMode)> onSelectionChanged) {
  return std::make_shared<ChangeNotifier>(
      [emitChangeEvents, hook = std::move(onSelectionChanged)](PFClipboardMode mode) {
        if (emitChangeEvents && mode == PFClipboardMode::clipboard)
          notifyClipboardChanged();
        if (hook)
          hook(mode);
      });
}

}  // namespace pf::clipboard
