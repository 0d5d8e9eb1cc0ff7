// The event loop: the display connection, tasks from other threads, and the transfers we serve
// to paste targets with non-blocking writes.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>
#include <wayland-client.h>

#include <algorithm>
#include <cerrno>

#include "platform/wayland/wayland_internal.h"

namespace pf::clipboard::wayland {

void Session::onSend(void* data, wl_proxy*, char const* mime, std::int32_t fd) {
  auto* rec = static_cast<SourceRec*>(data);
  auto* self = rec->session;
  auto const& types = rec->payload->types;
  auto const it = std::find_if(types.begin(), types.end(),
                               [mime](formats::OfferedType const& t) { return t.name == mime; });
  if (it == types.end()) {
    ::close(fd);
    return;
  }
  ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
  widenPipe(fd);
  self->outgoing_.push_back(Outgoing{fd, it->data, 0, Clock::now()});
}

// ---------------------------------------------------------------------------------------------
// The loop

bool Session::serve(Outgoing& out) {
  // A bounded amount per turn, so that one large paste does not hold up the display.
  constexpr std::size_t kPerTurn = std::size_t{8} << 20;
  std::size_t sent = 0;
  while (out.offset < out.data->size() && sent < kPerTurn) {
    auto const n = ::write(out.fd, out.data->data() + out.offset,
                           std::min(out.data->size() - out.offset, kPerTurn - sent));
    if (n > 0) {
      out.offset += static_cast<std::size_t>(n);
      sent += static_cast<std::size_t>(n);
      out.lastProgress = Clock::now();
      continue;
    }
    if (n < 0 && errno == EINTR)
      continue;
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
      return true;
    if (n < 0 && errno == EPIPE) {
      // The reader left. SIGPIPE is blocked on this thread; take the pending one off.
      sigset_t pipe;
      sigemptyset(&pipe);
      sigaddset(&pipe, SIGPIPE);
      timespec const zero{0, 0};
      ::sigtimedwait(&pipe, nullptr, &zero);
    }
    return false;
  }
  if (out.offset < out.data->size())
    return true;
  return false;
}

std::optional<Clock::time_point> Session::nextDeadline() const {
  std::optional<Clock::time_point> next;
  for (auto const& out : outgoing_) {
    auto const at = out.lastProgress + config_.sendTimeout;
    if (!next || at < *next)
      next = at;
  }
  return next;
}

void Session::run() {
  // A paste target that closes its pipe must cost an EPIPE, not the process.
  sigset_t pipe;
  sigemptyset(&pipe);
  sigaddset(&pipe, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &pipe, nullptr);

  std::vector<pollfd> fds;
  for (;;) {
    std::deque<std::function<void()>> tasks;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      if (stopping_ || dead_)
        break;
      tasks.swap(tasks_);
    }
    for (auto& task : tasks)
      task();

    while (wl_display_prepare_read(display_) != 0) {
      if (wl_display_dispatch_pending(display_) < 0)
        break;
    }
    if (wl_display_get_error(display_) != 0)
      break;
    bool const flushed = wl_display_flush(display_) >= 0 || errno != EAGAIN;

    fds.clear();
    fds.push_back({wl_display_get_fd(display_), short(POLLIN | (flushed ? 0 : POLLOUT)), 0});
    fds.push_back({wakeFd_, POLLIN, 0});
    for (auto const& out : outgoing_)
      fds.push_back({out.fd, POLLOUT, 0});
    int timeout = -1;
    if (auto const deadline = nextDeadline()) {
      auto const left =
          std::chrono::duration_cast<std::chrono::milliseconds>(*deadline - Clock::now()).count();
      timeout = static_cast<int>(std::clamp<long long>(left + 1, 0, 60000));
    }
    int const ready = ::poll(fds.data(), fds.size(), timeout);
    if (ready < 0 && errno != EINTR) {
      wl_display_cancel_read(display_);
      break;
    }
    if (ready > 0 && (fds[0].revents & (POLLIN | POLLERR | POLLHUP)) != 0) {
      if (wl_display_read_events(display_) < 0)
        break;
    } else {
      wl_display_cancel_read(display_);
    }
    if (wl_display_dispatch_pending(display_) < 0)
      break;
    if (ready > 0 && (fds[1].revents & POLLIN) != 0) {
      std::uint64_t count;
      [[maybe_unused]] auto const n = ::read(wakeFd_, &count, sizeof count);
    }
    // Transfers: serve the writable ones, drop the finished and the stalled. fds holds entries
    // only for the transfers that existed before this turn's events.
    auto const now = Clock::now();
    std::size_t const polled = fds.size() - 2;
    for (std::size_t i = outgoing_.size(); i-- > 0;) {
      auto& out = outgoing_[i];
      bool keep = true;
      if (i >= polled || (fds[i + 2].revents & (POLLOUT | POLLERR | POLLHUP)) != 0) {
        keep = serve(out);
      }
      if (keep && now - out.lastProgress > config_.sendTimeout)
        keep = false;
      if (!keep)
        closeOutgoing(i);
    }
  }

  std::deque<std::function<void()>> unanswered;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    dead_ = true;
    unanswered.swap(tasks_);
    owned_[0].reset();
    owned_[1].reset();
  }
  selectionSeen_.notify_all();
  // Their promises break: the callers learn that the connection is gone.
  unanswered.clear();
  for (auto& entry : syncs_)
    wl_callback_destroy(entry.first);
  syncs_.clear();
  for (auto& out : outgoing_)
    ::close(out.fd);
  outgoing_.clear();
}

void Session::closeOutgoing(std::size_t index) {
  ::close(outgoing_[index].fd);
  outgoing_.erase(outgoing_.begin() + static_cast<std::ptrdiff_t>(index));
}

}  // namespace pf::clipboard::wayland
