// The display connection and its event thread: binding, offers, our sources and the transfers
// they serve.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <unistd.h>
#include <wayland-client.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "ext-data-control-v1-client-protocol.h"
#include "platform/wayland/wayland_internal.h"
#include "wlr-data-control-unstable-v1-client-protocol.h"

namespace pf::clipboard::wayland {

namespace {

// Listener tables in event order; the argument types match both protocols' signatures.
struct DeviceListener {
  void (*dataOffer)(void*, wl_proxy*, wl_proxy*);
  void (*selection)(void*, wl_proxy*, wl_proxy*);
  void (*finished)(void*, wl_proxy*);
  void (*primarySelection)(void*, wl_proxy*, wl_proxy*);
};
struct OfferListener {
  void (*offer)(void*, wl_proxy*, char const*);
};
struct SourceListener {
  void (*send)(void*, wl_proxy*, char const*, std::int32_t);
  void (*cancelled)(void*, wl_proxy*);
};

int indexOf(PFClipboardMode mode) {
  return mode == PFClipboardMode::selection ? 1 : 0;
}

[[noreturn]] void lost() {
  throw std::runtime_error("Wayland clipboard: the connection to the compositor is gone");
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Setup and teardown

Session::Session(SessionConfig config) : config_(std::move(config)) {
  char const* name = config_.display.empty() ? nullptr : config_.display.c_str();
  display_ = wl_display_connect(name);
  if (display_ == nullptr) {
    throw std::runtime_error("Wayland clipboard: cannot connect to the display " +
                             std::string(name ? name : "of $WAYLAND_DISPLAY") + ": " +
                             std::strerror(errno));
  }
  try {
    bind();
    wakeFd_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wakeFd_ < 0)
      throw std::runtime_error("Wayland clipboard: eventfd failed");
  } catch (...) {
    shutDown();
    throw;
  }
  thread_ = std::thread([this] { run(); });
}

Session::~Session() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
  }
  std::uint64_t one = 1;
  [[maybe_unused]] auto const n = ::write(wakeFd_, &one, sizeof one);
  if (thread_.joinable())
    thread_.join();
  shutDown();
}

void Session::bind() {
  static wl_registry_listener const registryListener = {
      [](void* data, wl_registry*, std::uint32_t name, char const* interface,
         std::uint32_t version) {
        auto* self = static_cast<Session*>(data);
        std::string_view const iface(interface);
        if (iface == extProtocol().global && self->extName_ == 0) {
          self->extName_ = name;
        } else if (iface == wlrProtocol().global && self->wlrName_ == 0) {
          self->wlrName_ = name;
          self->wlrVersion_ = version;
        } else if (iface == "wl_seat" && self->seatName_ == 0) {
          self->seatName_ = name;
        }
      },
      [](void*, wl_registry*, std::uint32_t) {}};
  registry_ = reinterpret_cast<wl_proxy*>(wl_display_get_registry(display_));
  wl_registry_add_listener(reinterpret_cast<wl_registry*>(registry_), &registryListener, this);
  if (wl_display_roundtrip(display_) < 0)
    throw std::runtime_error("Wayland clipboard: the compositor closed the connection");

  std::uint32_t global = 0;
  bool const wantExt = config_.protocol != PFWaylandProtocol::wlr;
  bool const wantWlr = config_.protocol != PFWaylandProtocol::ext;
  if (wantExt && extName_ != 0) {
    protocol_ = &extProtocol();
    global = extName_;
    version_ = 1;
  } else if (wantWlr && wlrName_ != 0) {
    protocol_ = &wlrProtocol();
    global = wlrName_;
    version_ = std::min(wlrVersion_, wlrProtocol().maxVersion);
  } else {
    throw PFWaylandUnavailable("Wayland clipboard: the compositor offers no data-control protocol");
  }
  if (seatName_ == 0)
    throw PFWaylandUnavailable("Wayland clipboard: the compositor offers no seat");
  hasPrimary_ = version_ >= protocol_->primarySince;

  auto* registry = reinterpret_cast<wl_registry*>(registry_);
  seat_ = static_cast<wl_proxy*>(wl_registry_bind(registry, seatName_, &wl_seat_interface, 1));
  manager_ =
      static_cast<wl_proxy*>(wl_registry_bind(registry, global, protocol_->manager, version_));
  device_ = wl_proxy_marshal_flags(manager_, op::managerGetDevice, protocol_->device, version_, 0,
                                   nullptr, seat_);
  static DeviceListener const deviceListener = {onDataOffer, onSelection, onFinished,
                                                onPrimarySelection};
  listen(device_, &deviceListener, this);
  // The device's first events describe the clipboard as it is: no change to report.
  if (wl_display_roundtrip(display_) < 0 || device_ == nullptr)
    throw std::runtime_error("Wayland clipboard: the compositor refused the data device");
  initialized_ = true;
}

void Session::shutDown() {
  for (auto& out : outgoing_)
    ::close(out.fd);
  outgoing_.clear();
  for (auto& entry : offers_)
    destroyProxy(entry.first, op::offerDestroy);
  offers_.clear();
  for (auto& entry : sources_)
    destroyProxy(entry.first, op::sourceDestroy);
  sources_.clear();
  for (auto& entry : syncs_)
    wl_callback_destroy(entry.first);
  syncs_.clear();
  destroyProxy(device_, op::deviceDestroy);
  destroyProxy(manager_, op::managerDestroy);
  device_ = manager_ = nullptr;
  if (seat_ != nullptr)
    wl_proxy_destroy(seat_);
  if (registry_ != nullptr)
    wl_proxy_destroy(registry_);
  seat_ = registry_ = nullptr;
  if (display_ != nullptr) {
    wl_display_flush(display_);
    wl_display_disconnect(display_);
    display_ = nullptr;
  }
  if (wakeFd_ >= 0)
    ::close(wakeFd_);
  wakeFd_ = -1;
}

// ---------------------------------------------------------------------------------------------
// Calls from other threads

void Session::post(std::function<void()> task) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (dead_ || stopping_)
      lost();
    tasks_.push_back(std::move(task));
  }
  std::uint64_t one = 1;
  [[maybe_unused]] auto const n = ::write(wakeFd_, &one, sizeof one);
}

template <class T>
T Session::call(std::function<void(std::shared_ptr<std::promise<T>> const&)> task) {
  auto promise = std::make_shared<std::promise<T>>();
  auto future = promise->get_future();
  post([task = std::move(task), promise] {
    try {
      task(promise);
    } catch (...) {
      try {
        promise->set_exception(std::current_exception());
      } catch (std::future_error const&) {
        // already answered
      }
    }
  });
  if (future.wait_for(config_.answerTimeout) != std::future_status::ready) {
    throw std::runtime_error("Wayland clipboard: the compositor did not answer in time");
  }
  try {
    return future.get();
  } catch (std::future_error const&) {
    lost();  // the event thread ended with the task unanswered
  }
}

void Session::afterRoundTrip(std::function<void()> done) {
  static wl_callback_listener const listener = {onSyncDone};
  auto* callback = wl_display_sync(display_);
  auto rec = std::make_unique<SyncRec>(SyncRec{this, std::move(done)});
  wl_callback_add_listener(callback, &listener, rec.get());
  syncs_.emplace(callback, std::move(rec));
}

void Session::checkSupported(PFClipboardMode mode) const {
  if (mode == PFClipboardMode::selection && !hasPrimary_) {
    throw std::runtime_error(
        std::string("Wayland clipboard: the compositor has no primary selection (") +
        protocol_->global + " version " + std::to_string(version_) + ")");
  }
}

std::vector<std::string> Session::offeredTypes(PFClipboardMode mode) {
  checkSupported(mode);
  int const index = indexOf(mode);
  return call<std::vector<std::string>>([this, index](auto const& promise) {
    auto const it = offers_.find(current_[index]);
    promise->set_value(it == offers_.end() ? std::vector<std::string>{} : it->second->types);
  });
}

std::optional<ReadStart> Session::startRead(
    PFClipboardMode mode,
    std::function<std::optional<std::string>(std::vector<std::string> const&)> choose) {
  checkSupported(mode);
  int const index = indexOf(mode);
  // A caller that stops waiting is gone before the pipe is made, or takes it along unread: the
  // one who comes second closes it.
  struct Handoff {
    std::mutex mutex;
    bool gaveUp = false;
    int fd = -1;
  };
  auto handoff = std::make_shared<Handoff>();
  try {
    auto start =
        call<std::optional<ReadStart>>([this, index, choose, handoff](auto const& promise) {
          auto const it = offers_.find(current_[index]);
          if (it == offers_.end()) {
            promise->set_value(std::nullopt);
            return;
          }
          auto type = choose(it->second->types);
          if (!type) {
            promise->set_value(std::nullopt);
            return;
          }
          int fds[2];
          if (::pipe2(fds, O_CLOEXEC) != 0)
            throw std::runtime_error("Wayland clipboard: pipe failed");
          widenPipe(fds[0]);
          // libwayland sends a duplicate of the write end; ours closes now, so that the read end
          // sees the end of the data once the owner closes its copy.
          wl_proxy_marshal_flags(it->first, op::offerReceive, nullptr, version_, 0, type->c_str(),
                                 fds[1]);
          ::close(fds[1]);
          std::lock_guard<std::mutex> lock(handoff->mutex);
          if (handoff->gaveUp) {
            ::close(fds[0]);
            return;
          }
          handoff->fd = fds[0];
          promise->set_value(
              ReadStart{fds[0], std::move(*type), generation_[index], it->second->types});
        });
    std::lock_guard<std::mutex> lock(handoff->mutex);
    handoff->fd = -1;  // ours now
    return start;
  } catch (...) {
    std::lock_guard<std::mutex> lock(handoff->mutex);
    handoff->gaveUp = true;
    if (handoff->fd >= 0)
      ::close(handoff->fd);  // answered just after the wait ended
    handoff->fd = -1;
    throw;
  }
}

bool Session::stillCurrent(PFClipboardMode mode, std::uint64_t generation, Clock::duration grace) {
  int const index = indexOf(mode);
  bool const current = call<bool>([this, index, generation](auto const& promise) {
    // Two round trips: a dying owner's pipe and connection close in the same exit, but not in a
    // fixed order, so the compositor may learn of the death just after answering the first.
    afterRoundTrip([this, index, generation, promise] {
      afterRoundTrip([this, index, generation, promise] {
        promise->set_value(generation_[index] == generation);
      });
    });
  });
  if (!current || grace <= Clock::duration::zero())
    return current;
  // The wait ends at the first selection event, or with the connection.
  std::unique_lock<std::mutex> lock(mutex_);
  selectionSeen_.wait_for(lock, grace,
                          [&] { return dead_ || seenGeneration_[index] != generation; });
  return !dead_ && seenGeneration_[index] == generation;
}

void Session::own(PFClipboardMode mode, std::shared_ptr<OwnPayload const> payload) {
  checkSupported(mode);
  int const index = indexOf(mode);
  call<bool>([this, index, payload](auto const& promise) {
    static SourceListener const listener = {onSend, onCancelled};
    auto* proxy = wl_proxy_marshal_flags(manager_, op::managerCreateSource, protocol_->source,
                                         version_, 0, nullptr);
    auto rec = std::make_unique<SourceRec>(SourceRec{this, proxy, index, payload});
    listen(proxy, &listener, rec.get());
    for (auto const& type : payload->types) {
      wl_proxy_marshal_flags(proxy, op::sourceOffer, nullptr, version_, 0, type.name.c_str());
    }
    wl_proxy_marshal_flags(device_, index == 1 ? op::deviceSetPrimary : op::deviceSetSelection,
                           nullptr, version_, 0, proxy);
    ownedSource_[index] = rec.get();
    sources_.emplace(proxy, std::move(rec));
    {
      std::lock_guard<std::mutex> lock(mutex_);
      owned_[index] = payload;
    }
    // Answered once the compositor has made it the selection, so that a program started after
    // the write sees it.
    afterRoundTrip([promise] { promise->set_value(true); });
  });
}

std::shared_ptr<OwnPayload const> Session::owned(PFClipboardMode mode) const {
  std::lock_guard<std::mutex> lock(mutex_);
  return owned_[indexOf(mode)];
}

// ---------------------------------------------------------------------------------------------
// Events (event thread)

void Session::onDataOffer(void* data, wl_proxy*, wl_proxy* offer) {
  auto* self = static_cast<Session*>(data);
  static OfferListener const listener = {onOffer};
  auto rec = std::make_unique<OfferRec>(OfferRec{self, {}});
  listen(offer, &listener, rec.get());
  self->offers_[offer] = std::move(rec);
}

void Session::onOffer(void* data, wl_proxy*, char const* mime) {
  auto* rec = static_cast<OfferRec*>(data);
  // A hostile owner could announce types without end; what a reader can use is far smaller.
  constexpr std::size_t kMaxTypes = 1024;
  if (rec->types.size() < kMaxTypes)
    rec->types.emplace_back(mime);
}

void Session::onSelection(void* data, wl_proxy*, wl_proxy* offer) {
  static_cast<Session*>(data)->selectionChanged(0, offer);
}

void Session::onPrimarySelection(void* data, wl_proxy*, wl_proxy* offer) {
  static_cast<Session*>(data)->selectionChanged(1, offer);
}

void Session::selectionChanged(int index, wl_proxy* offer) {
  wl_proxy* const old = current_[index];
  current_[index] = offer;
  ++generation_[index];
  {
    std::lock_guard<std::mutex> lock(mutex_);
    seenGeneration_[index] = generation_[index];
  }
  selectionSeen_.notify_all();
  if (old != nullptr && old != offer && old != current_[1 - index])
    destroyOffer(old);
  // Offers announced but never made a selection are of no use any more.
  for (auto it = offers_.begin(); it != offers_.end();) {
    if (it->first != current_[0] && it->first != current_[1] && it->first != offer) {
      destroyProxy(it->first, op::offerDestroy);
      it = offers_.erase(it);
    } else {
      ++it;
    }
  }
  if (initialized_ && config_.changed)
    config_.changed(index == 1 ? PFClipboardMode::selection : PFClipboardMode::clipboard);
}

void Session::destroyOffer(wl_proxy* offer) {
  if (offers_.erase(offer) != 0)
    destroyProxy(offer, op::offerDestroy);
}

void Session::onFinished(void* data, wl_proxy*) {
  // The compositor has withdrawn the device (its seat went away): the clipboard is out of reach.
  auto* self = static_cast<Session*>(data);
  std::lock_guard<std::mutex> lock(self->mutex_);
  self->dead_ = true;
}

void Session::onCancelled(void* data, wl_proxy* source) {
  auto* rec = static_cast<SourceRec*>(data);
  auto* self = rec->session;
  if (self->ownedSource_[rec->index] == rec) {
    self->ownedSource_[rec->index] = nullptr;
    std::lock_guard<std::mutex> lock(self->mutex_);
    self->owned_[rec->index].reset();
  }
  // Transfers under way keep their bytes: they hold them, not the source.
  destroyProxy(source, op::sourceDestroy);
  self->sources_.erase(source);
}

void Session::onSyncDone(void* data, wl_callback* callback, std::uint32_t) {
  auto* rec = static_cast<SyncRec*>(data);
  auto* self = rec->session;
  auto done = std::move(rec->done);
  wl_callback_destroy(callback);
  self->syncs_.erase(callback);
  done();
}

}  // namespace pf::clipboard::wayland
