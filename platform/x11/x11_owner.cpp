// The owner side: the event thread that answers other programs while we own a selection.
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "platform/x11/x11_internal.h"

namespace pf::clipboard::x11 {
namespace {

constexpr std::uint8_t kBadWindow = 3;
// Room for the request header (and the BIG-REQUESTS length) when sizing properties.
constexpr std::size_t kRequestOverhead = 64;

}  // namespace

ServedTarget const* Payload::find(xcb_atom_t target) const noexcept {
  for (auto const& served : targets) {
    if (served.target == target)
      return &served;
  }
  return nullptr;
}

// A write waiting for the event thread to take the selection.
struct Owner::OwnRequest {
  PFClipboardMode mode;
  std::shared_ptr<Payload const> payload;
  bool done = false;
  bool owned = false;
};

// An INCR transfer to one requestor property. It holds its own reference to the data, so a
// write in the middle changes nothing already under way.
struct Owner::Outgoing {
  xcb_atom_t type;
  std::shared_ptr<std::string const> data;
  std::size_t offset = 0;
  Clock::time_point deadline;
};

Owner::Owner(OwnerConfig config, Atoms const& atoms, std::function<void(PFClipboardMode)> changed)
    : config_(std::move(config)),
      atoms_(atoms),
      changed_(std::move(changed)),
      conn_(config_.display, XCB_EVENT_MASK_PROPERTY_CHANGE) {
  auto* c = conn_.get();
  std::size_t const maxData = conn_.maxRequestBytes() - kRequestOverhead;
  threshold_ = config_.thresholdBytes == 0 ? maxData : std::min(config_.thresholdBytes, maxData);
  chunk_ = std::min(config_.chunkBytes == 0 ? std::size_t{1} << 20 : config_.chunkBytes, maxData);

  // XFixes must be asked for its version before any other of its requests.
  auto const* extension = xcb_get_extension_data(c, &xcb_xfixes_id);
  if (extension && extension->present) {
    Owned<xcb_xfixes_query_version_reply_t> version(xcb_xfixes_query_version_reply(
        c, xcb_xfixes_query_version(c, XCB_XFIXES_MAJOR_VERSION, XCB_XFIXES_MINOR_VERSION),
        nullptr));
    if (version) {
      xfixesEvent_ = extension->first_event;
      std::uint32_t const mask = XCB_XFIXES_SELECTION_EVENT_MASK_SET_SELECTION_OWNER |
                                 XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_WINDOW_DESTROY |
                                 XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_CLIENT_CLOSE;
      xcb_xfixes_select_selection_input(c, conn_.window(), atoms_.clipboard, mask);
      xcb_xfixes_select_selection_input(c, conn_.window(), atoms_.primary, mask);
    }
  }
  xcb_flush(c);

  wakeFd_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (wakeFd_ < 0)
    throw std::runtime_error("X11 clipboard: eventfd failed");
  thread_ = std::thread([this] { run(); });
}

Owner::~Owner() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
  }
  wake();
  if (thread_.joinable())
    thread_.join();
  ::close(wakeFd_);
}

void Owner::wake() const {
  std::uint64_t const one = 1;
  // A full counter already means a pending wake-up.
  [[maybe_unused]] auto const written = ::write(wakeFd_, &one, sizeof one);
}

bool Owner::own(PFClipboardMode mode, std::shared_ptr<Payload const> payload,
                Clock::duration timeout) {
  auto request = std::make_shared<OwnRequest>();
  request->mode = mode;
  request->payload = std::move(payload);
  std::unique_lock<std::mutex> lock(mutex_);
  if (!alive_ || stopping_)
    throw std::runtime_error("X11 clipboard: the display connection is gone");
  requests_.push_back(request);
  wake();
  if (!answered_.wait_for(lock, timeout, [&] { return request->done || !alive_; })) {
    throw std::runtime_error("X11 clipboard: taking the selection timed out");
  }
  if (!request->done)
    throw std::runtime_error("X11 clipboard: the display connection is gone");
  return request->owned;
}

std::shared_ptr<Payload const> Owner::payload(PFClipboardMode mode) const {
  std::lock_guard<std::mutex> lock(mutex_);
  return payloads_[indexOf(mode)];
}

int Owner::modeIndex(xcb_atom_t selection) const noexcept {
  if (selection == atoms_.clipboard)
    return 0;
  if (selection == atoms_.primary)
    return 1;
  return -1;
}

void Owner::run() {
  while (step()) {
  }
  std::deque<std::shared_ptr<OwnRequest>> unanswered;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    alive_ = false;
    payloads_[0].reset();
    payloads_[1].reset();
    unanswered.swap(requests_);
  }
  answered_.notify_all();
}

bool Owner::step() {
  auto* c = conn_.get();
  handleOwnRequests();
  expireTransfers();
  bool stopping;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stopping = stopping_;
  }
  if (stopping && !handoverStarted_)
    beginHandover();
  // xcb reads events into its queue while it writes or waits for replies, so poll() on the
  // socket only tells the truth once a flush was followed by an empty poll_for_event.
  for (;;) {
    xcb_flush(c);
    Owned<xcb_generic_event_t> event{xcb_poll_for_event(c)};
    if (!event)
      break;
    handle(*event);
  }
  if (conn_.broken())
    return false;
  if (stopping && (!handoverDeadline_ || Clock::now() >= *handoverDeadline_))
    return false;

  int timeout = -1;
  if (auto const deadline = nextDeadline()) {
    auto const left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - Clock::now());
    timeout = static_cast<int>(std::clamp<long long>(left.count(), 0, 60'000));
  }
  pollfd fds[2] = {{conn_.fd(), POLLIN, 0}, {wakeFd_, POLLIN, 0}};
  if (::poll(fds, 2, timeout) < 0 && errno != EINTR)
    return false;
  if (fds[1].revents & POLLIN) {
    std::uint64_t count;
    [[maybe_unused]] auto const got = ::read(wakeFd_, &count, sizeof count);
  }
  return true;
}

void Owner::handleOwnRequests() {
  std::deque<std::shared_ptr<OwnRequest>> requests;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    requests.swap(requests_);
  }
  if (requests.empty())
    return;
  auto* c = conn_.get();
  for (auto& request : requests) {
    int const index = indexOf(request->mode);
    xcb_atom_t const selection = atoms_.selection(request->mode);
    xcb_timestamp_t const time = request->payload->time;
    if (time < ownedSince_[index]) {
      // A later write already went through; this one counts as overwritten by it.
      request->owned = true;
    } else {
      {
        std::lock_guard<std::mutex> lock(mutex_);
        payloads_[index] = request->payload;
      }
      ownedSince_[index] = time;
      xcb_set_selection_owner(c, conn_.window(), selection, time);
      Owned<xcb_get_selection_owner_reply_t> reply(
          xcb_get_selection_owner_reply(c, xcb_get_selection_owner(c, selection), nullptr));
      request->owned = reply && reply->owner == conn_.window();
      if (!request->owned) {
        std::lock_guard<std::mutex> lock(mutex_);
        if (payloads_[index] == request->payload)
          payloads_[index].reset();
      }
    }
    if (request->owned)
      changed_(request->mode);
  }
  {
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto& request : requests)
      request->done = true;
  }
  answered_.notify_all();
}

void Owner::handle(xcb_generic_event_t const& event) {
  auto const type = event.response_type & 0x7f;
  switch (type) {
    case 0:
      onError(reinterpret_cast<xcb_generic_error_t const&>(event));
      return;
    case XCB_SELECTION_REQUEST:
      onSelectionRequest(reinterpret_cast<xcb_selection_request_event_t const&>(event));
      return;
    case XCB_SELECTION_CLEAR:
      onSelectionClear(reinterpret_cast<xcb_selection_clear_event_t const&>(event));
      return;
    case XCB_SELECTION_NOTIFY:
      onSelectionNotify(reinterpret_cast<xcb_selection_notify_event_t const&>(event));
      return;
    case XCB_PROPERTY_NOTIFY:
      onPropertyNotify(reinterpret_cast<xcb_property_notify_event_t const&>(event));
      return;
    case XCB_DESTROY_NOTIFY:
      dropTransfers(reinterpret_cast<xcb_destroy_notify_event_t const&>(event).window, false);
      return;
    default:
      if (xfixesEvent_ != 0 && type == xfixesEvent_ + XCB_XFIXES_SELECTION_NOTIFY) {
        onXfixes(reinterpret_cast<xcb_xfixes_selection_notify_event_t const&>(event));
      }
      return;
  }
}

void Owner::onError(xcb_generic_error_t const& error) {
  // A requestor that went away mid-transfer; never fatal.
  if (error.error_code == kBadWindow)
    dropTransfers(error.resource_id, false);
}

void Owner::onSelectionRequest(xcb_selection_request_event_t const& request) {
  // Obsolete clients name no property: the target doubles as the property.
  xcb_atom_t const property = request.property == XCB_NONE ? request.target : request.property;
  int const index = modeIndex(request.selection);
  std::shared_ptr<Payload const> payload;
  if (index >= 0) {
    std::lock_guard<std::mutex> lock(mutex_);
    payload = payloads_[index];
  }
  bool served = false;
  if (payload && request.owner == conn_.window() &&
      (request.time == XCB_CURRENT_TIME || request.time >= payload->time) &&
      !(payload->secret && fromClipboardManager(request.requestor))) {
    if (request.target == atoms_.multiple) {
      served =
          request.property != XCB_NONE && convertMultiple(request.requestor, property, *payload);
    } else {
      served =
          convert(request.requestor, property, request.target, *payload, true) == Conversion::done;
    }
  }
  // xcb_send_event sends 32 bytes, more than the notify struct holds.
  char buffer[32] = {};
  auto* notify = reinterpret_cast<xcb_selection_notify_event_t*>(buffer);
  notify->response_type = XCB_SELECTION_NOTIFY;
  notify->time = request.time;
  notify->requestor = request.requestor;
  notify->selection = request.selection;
  notify->target = request.target;
  notify->property = served ? property : XCB_NONE;
  xcb_send_event(conn_.get(), 0, request.requestor, XCB_EVENT_MASK_NO_EVENT, buffer);
}

Owner::Conversion Owner::convert(xcb_window_t requestor, xcb_atom_t property, xcb_atom_t target,
                                 Payload const& payload, bool allowIncr) {
  auto* c = conn_.get();
  if (target == atoms_.targets) {
    std::vector<xcb_atom_t> list = {atoms_.targets, atoms_.timestamp, atoms_.multiple,
                                    atoms_.saveTargets};
    for (auto const& served : payload.targets)
      list.push_back(served.target);
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, requestor, property, XCB_ATOM_ATOM, 32,
                        static_cast<std::uint32_t>(list.size()), list.data());
    return Conversion::done;
  }
  if (target == atoms_.timestamp) {
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, requestor, property, XCB_ATOM_INTEGER, 32, 1,
                        &payload.time);
    return Conversion::done;
  }
  if (target == atoms_.saveTargets) {
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, requestor, property, atoms_.null, 32, 0, nullptr);
    return Conversion::done;
  }
  auto const* served = payload.find(target);
  if (!served)
    return Conversion::refused;
  auto const& data = *served->data;
  if (data.size() <= threshold_) {
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, requestor, property, served->type, 8,
                        static_cast<std::uint32_t>(data.size()), data.data());
    return Conversion::done;
  }
  if (!allowIncr)
    return Conversion::refused;
  // INCR: we need the requestor's property deletions, and its destruction ends the transfer.
  std::uint32_t const mask = XCB_EVENT_MASK_PROPERTY_CHANGE | XCB_EVENT_MASK_STRUCTURE_NOTIFY;
  xcb_change_window_attributes(c, requestor, XCB_CW_EVENT_MASK, &mask);
  std::uint32_t const size =
      static_cast<std::uint32_t>(std::min<std::size_t>(data.size(), 0xFFFFFFFFu));
  xcb_change_property(c, XCB_PROP_MODE_REPLACE, requestor, property, atoms_.incr, 32, 1, &size);
  outgoing_[{requestor, property}] =
      Outgoing{served->type, served->data, 0, Clock::now() + config_.chunkTimeout};
  return Conversion::done;
}

bool Owner::convertMultiple(xcb_window_t requestor, xcb_atom_t property, Payload const& payload) {
  auto* c = conn_.get();
  Owned<xcb_get_property_reply_t> reply(xcb_get_property_reply(
      c, xcb_get_property(c, 0, requestor, property, XCB_GET_PROPERTY_TYPE_ANY, 0, 0x10000),
      nullptr));
  if (!reply || reply->format != 32)
    return false;
  auto const count = static_cast<std::size_t>(xcb_get_property_value_length(reply.get())) / 4;
  // Real requestors ask for a handful of targets at once; a list of thousands is refused whole
  // rather than answered with thousands of property writes.
  constexpr std::size_t kMaxPairs = 1024;
  if (count > 2 * kMaxPairs)
    return false;
  std::vector<xcb_atom_t> pairs(count);
  std::memcpy(pairs.data(), xcb_get_property_value(reply.get()), count * 4);
  bool refusedAny = false;
  for (std::size_t i = 0; i + 1 < count; i += 2) {
    // INCR inside MULTIPLE is not done: the pairs would need transfers of their own.
    bool const ok = pairs[i + 1] != XCB_NONE && pairs[i] != atoms_.multiple &&
                    convert(requestor, pairs[i + 1], pairs[i], payload, false) == Conversion::done;
    if (!ok) {
      pairs[i + 1] = XCB_NONE;
      refusedAny = true;
    }
  }
  if (refusedAny) {
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, requestor, property, atoms_.atomPair, 32,
                        static_cast<std::uint32_t>(count), pairs.data());
  }
  return true;
}

void Owner::onPropertyNotify(xcb_property_notify_event_t const& notify) {
  if (notify.state != XCB_PROPERTY_DELETE)
    return;
  auto const it = outgoing_.find({notify.window, notify.atom});
  if (it != outgoing_.end())
    sendNextChunk(it);
}

void Owner::sendNextChunk(std::map<std::pair<xcb_window_t, xcb_atom_t>, Outgoing>::iterator it) {
  auto const [requestor, property] = it->first;
  auto& transfer = it->second;
  auto const& data = *transfer.data;
  std::size_t const length = std::min(chunk_, data.size() - transfer.offset);
  xcb_change_property(conn_.get(), XCB_PROP_MODE_REPLACE, requestor, property, transfer.type, 8,
                      static_cast<std::uint32_t>(length), data.data() + transfer.offset);
  transfer.offset += length;
  transfer.deadline = Clock::now() + config_.chunkTimeout;
  if (length == 0) {
    // The empty chunk ends the transfer; the requestor deletes it on its own time.
    outgoing_.erase(it);
    releaseWindow(requestor);
  }
}

void Owner::releaseWindow(xcb_window_t requestor) {
  auto const inUse = std::any_of(outgoing_.begin(), outgoing_.end(),
                                 [&](auto const& entry) { return entry.first.first == requestor; });
  if (inUse)
    return;
  std::uint32_t const none = 0;
  xcb_change_window_attributes(conn_.get(), requestor, XCB_CW_EVENT_MASK, &none);
}

void Owner::dropTransfers(xcb_window_t requestor, bool deselect) {
  bool dropped = false;
  for (auto it = outgoing_.begin(); it != outgoing_.end();) {
    if (it->first.first == requestor) {
      it = outgoing_.erase(it);
      dropped = true;
    } else {
      ++it;
    }
  }
  if (dropped && deselect)
    releaseWindow(requestor);
}

void Owner::expireTransfers() {
  auto const now = Clock::now();
  std::vector<xcb_window_t> stalled;
  for (auto it = outgoing_.begin(); it != outgoing_.end();) {
    if (it->second.deadline <= now) {
      stalled.push_back(it->first.first);
      it = outgoing_.erase(it);
    } else {
      ++it;
    }
  }
  for (auto window : stalled)
    releaseWindow(window);
}

std::optional<Clock::time_point> Owner::nextDeadline() const {
  std::optional<Clock::time_point> next = handoverDeadline_;
  for (auto const& entry : outgoing_) {
    if (!next || entry.second.deadline < *next)
      next = entry.second.deadline;
  }
  return next;
}

void Owner::onSelectionClear(xcb_selection_clear_event_t const& clear) {
  int const index = modeIndex(clear.selection);
  if (index < 0 || clear.time < ownedSince_[index])
    return;  // about an older ownership
  std::lock_guard<std::mutex> lock(mutex_);
  payloads_[index].reset();
}

void Owner::onSelectionNotify(xcb_selection_notify_event_t const& notify) {
  if (notify.selection == atoms_.clipboardManager && notify.requestor == conn_.window()) {
    handoverDeadline_ = Clock::now();  // the manager has taken over (or refused): done
  }
}

void Owner::onXfixes(xcb_xfixes_selection_notify_event_t const& notify) {
  int const index = modeIndex(notify.selection);
  if (index < 0)
    return;
  // Our own ownership was announced when it was taken.
  if (notify.owner == conn_.window())
    return;
  XfixesKey const key{notify.subtype, notify.owner, notify.selection_timestamp};
  auto& last = lastXfixes_[index];
  if (last && last->subtype == key.subtype && last->owner == key.owner &&
      last->selectionTime == key.selectionTime) {
    return;
  }
  last = key;
  changed_(index == 1 ? PFClipboardMode::selection : PFClipboardMode::clipboard);
}

void Owner::beginHandover() {
  handoverStarted_ = true;
  std::shared_ptr<Payload const> clipboard;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    clipboard = payloads_[0];
  }
  if (!clipboard || clipboard->secret || config_.handoverTimeout <= Clock::duration::zero())
    return;
  auto* c = conn_.get();
  auto const ownerOf = [c](xcb_atom_t selection) {
    Owned<xcb_get_selection_owner_reply_t> reply(
        xcb_get_selection_owner_reply(c, xcb_get_selection_owner(c, selection), nullptr));
    return reply ? reply->owner : XCB_NONE;
  };
  if (ownerOf(atoms_.clipboard) != conn_.window() || ownerOf(atoms_.clipboardManager) == XCB_NONE) {
    return;
  }
  // Keep serving until the manager answers: it converts our targets first.
  xcb_convert_selection(c, conn_.window(), atoms_.clipboardManager, atoms_.saveTargets,
                        atoms_.transfer, clipboard->time);
  xcb_flush(c);
  handoverDeadline_ = Clock::now() + config_.handoverTimeout;
}

// Clipboard managers copy whatever a new owner offers as soon as it takes the selection, and
// restore it once the owner is gone; refusing their client is what keeps a secret out of them.
// A client's windows share the bits above the server's resource-id mask.
bool Owner::fromClipboardManager(xcb_window_t requestor) {
  auto* c = conn_.get();
  Owned<xcb_get_selection_owner_reply_t> reply(xcb_get_selection_owner_reply(
      c, xcb_get_selection_owner(c, atoms_.clipboardManager), nullptr));
  if (!reply || reply->owner == XCB_NONE)
    return false;
  std::uint32_t const clientBits = ~xcb_get_setup(c)->resource_id_mask;
  return (reply->owner & clientBits) == (requestor & clientBits);
}

}  // namespace pf::clipboard::x11
