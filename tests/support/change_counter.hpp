// Counts process-wide clipboard-change events while alive.
#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>

#include "platform/event.hpp"

namespace test_support {

class ChangeCounter {
 public:
  ChangeCounter() : state_(std::make_shared<State>()) {
    // The state outlives us: a delivery already under way when we unregister may still run.
    state_->registration = std::make_unique<pf::event::PFEventRegistration>(
        pf::event::PFSignalLocator::Instance()
            .containerOf(pf::event::PFServiceType::clipboard)
            .connect(pf::event::kClipboardChanged, [state = state_] {
              std::lock_guard<std::mutex> lock(state->mutex);
              ++state->count;
              state->changed.notify_all();
            }));
  }
  ~ChangeCounter() { state_->registration->unregister(); }
  ChangeCounter(ChangeCounter const&) = delete;
  ChangeCounter& operator=(ChangeCounter const&) = delete;

  bool waitFor(int atLeast, std::chrono::milliseconds timeout = std::chrono::seconds(5)) {
    std::unique_lock<std::mutex> lock(state_->mutex);
    return state_->changed.wait_for(lock, timeout, [&] { return state_->count >= atLeast; });
  }
  int count() {
    std::lock_guard<std::mutex> lock(state_->mutex);
    return state_->count;
  }

 private:
  struct State {
    std::mutex mutex;
    std::condition_variable changed;
    int count = 0;
    std::unique_ptr<pf::event::PFEventRegistration> registration;
  };
  std::shared_ptr<State> state_;
};

}  // namespace test_support
