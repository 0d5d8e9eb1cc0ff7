// Connections, atoms and the requestor side of selection transfers.
#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "platform/x11/x11_internal.h"

namespace pf::clipboard::x11 {
namespace {

constexpr std::uint8_t kBadWindow = 3;

std::runtime_error failure(std::string const& what) {
  return std::runtime_error("X11 clipboard: " + what);
}

long long millisecondsOf(Clock::duration d) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(d).count();
}

// GetProperty lengths are counted in 32-bit units.
std::uint32_t wordsFor(std::size_t bytes) {
  auto const words = bytes / 4 + 1;
  return words > 0xFFFFFFFFu ? 0xFFFFFFFFu : static_cast<std::uint32_t>(words);
}

}  // namespace

Atoms Atoms::intern(xcb_connection_t* c) {
  Atoms a;
  std::pair<char const*, xcb_atom_t*> const wanted[] = {
      {"CLIPBOARD", &a.clipboard},
      {"TARGETS", &a.targets},
      {"MULTIPLE", &a.multiple},
      {"TIMESTAMP", &a.timestamp},
      {"INCR", &a.incr},
      {"UTF8_STRING", &a.utf8String},
      {"TEXT", &a.text},
      {"COMPOUND_TEXT", &a.compoundText},
      {"text/plain", &a.textPlain},
      {"text/plain;charset=utf-8", &a.textPlainUtf8},
      {"ATOM_PAIR", &a.atomPair},
      {"NULL", &a.null},
      {"SAVE_TARGETS", &a.saveTargets},
      {"CLIPBOARD_MANAGER", &a.clipboardManager},
      {"text/uri-list", &a.uriList},
      {"x-special/gnome-copied-files", &a.gnomeCopiedFiles},
      {"application/x-kde-cutselection", &a.kdeCutSelection},
      {"image/png", &a.png},
      {"image/svg+xml", &a.svg},
      {"_PF_CLIPBOARD_TRANSFER", &a.transfer},
      {"_PF_CLIPBOARD_STAMP", &a.stamp},
  };
  std::vector<xcb_intern_atom_cookie_t> cookies;
  for (auto const& [name, slot] : wanted) {
    cookies.push_back(xcb_intern_atom(c, 0, static_cast<std::uint16_t>(std::strlen(name)), name));
  }
  for (std::size_t i = 0; i < cookies.size(); ++i) {
    Owned<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(c, cookies[i], nullptr));
    if (!reply)
      throw failure(std::string("cannot intern ") + wanted[i].first);
    *wanted[i].second = reply->atom;
  }
  a.primary = XCB_ATOM_PRIMARY;
  a.string = XCB_ATOM_STRING;
  a.atom = XCB_ATOM_ATOM;
  a.integer = XCB_ATOM_INTEGER;
  return a;
}

std::vector<xcb_atom_t> AtomCache::intern(xcb_connection_t* c,
                                          std::vector<std::string> const& names) {
  std::vector<xcb_atom_t> out(names.size(), XCB_NONE);
  std::vector<std::pair<std::size_t, xcb_intern_atom_cookie_t>> pending;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    for (std::size_t i = 0; i < names.size(); ++i) {
      auto const it = byName_.find(names[i]);
      if (it != byName_.end())
        out[i] = it->second;
    }
  }
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (out[i] == XCB_NONE && names[i].size() <= 0xFFFF) {
      pending.emplace_back(
          i, xcb_intern_atom(c, 0, static_cast<std::uint16_t>(names[i].size()), names[i].data()));
    }
  }
  for (auto const& [i, cookie] : pending) {
    Owned<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(c, cookie, nullptr));
    if (!reply)
      throw failure("cannot intern " + names[i]);
    out[i] = reply->atom;
    std::lock_guard<std::mutex> lock(mutex_);
    byName_.emplace(names[i], reply->atom);
    byAtom_.emplace(reply->atom, names[i]);
  }
  return out;
}

std::vector<std::string> AtomCache::names(xcb_connection_t* c,
                                          std::vector<xcb_atom_t> const& atoms) {
  std::vector<std::string> out(atoms.size());
  std::vector<bool> known(atoms.size(), false);
  {
    std::lock_guard<std::mutex> lock(mutex_);
    for (std::size_t i = 0; i < atoms.size(); ++i) {
      auto const it = byAtom_.find(atoms[i]);
      if (it != byAtom_.end()) {
        out[i] = it->second;
        known[i] = true;
      }
    }
  }
  std::vector<std::pair<std::size_t, xcb_get_atom_name_cookie_t>> pending;
  for (std::size_t i = 0; i < atoms.size(); ++i) {
    if (!known[i] && atoms[i] != XCB_NONE)
      pending.emplace_back(i, xcb_get_atom_name(c, atoms[i]));
  }
  for (auto const& [i, cookie] : pending) {
    xcb_generic_error_t* error = nullptr;
    Owned<xcb_get_atom_name_reply_t> reply(xcb_get_atom_name_reply(c, cookie, &error));
    std::free(error);
    if (!reply)
      continue;  // a bogus atom in someone's TARGETS: no name
    std::string name(xcb_get_atom_name_name(reply.get()),
                     static_cast<std::size_t>(xcb_get_atom_name_name_length(reply.get())));
    out[i] = name;
    std::lock_guard<std::mutex> lock(mutex_);
    byAtom_.emplace(atoms[i], name);
    byName_.emplace(std::move(name), atoms[i]);
  }
  return out;
}

std::string AtomCache::name(xcb_connection_t* c, xcb_atom_t atom) {
  return names(c, {atom}).front();
}

Connection::Connection(std::string const& display, std::uint32_t eventMask) {
  int screenNumber = 0;
  {
    // xcb_connect reads the auth file name into a static buffer of libXau: one at a time.
    static std::mutex connecting;
    std::lock_guard<std::mutex> lock(connecting);
    c_ = xcb_connect(display.empty() ? nullptr : display.c_str(), &screenNumber);
  }
  if (xcb_connection_has_error(c_)) {
    xcb_disconnect(c_);
    // Name the display that was tried: an empty name means $DISPLAY, which may be unset.
    char const* fromEnvironment = display.empty() ? std::getenv("DISPLAY") : nullptr;
    throw failure(!display.empty() ? "cannot open display \"" + display + "\""
                  : fromEnvironment != nullptr && *fromEnvironment != '\0'
                      ? "cannot open display \"" + std::string(fromEnvironment) +
                            "\" (from $DISPLAY)"
                      : std::string("cannot open a display: DISPLAY is not set"));
  }
  auto it = xcb_setup_roots_iterator(xcb_get_setup(c_));
  for (int i = 0; i < screenNumber && it.rem > 0; ++i)
    xcb_screen_next(&it);
  if (it.rem == 0) {
    xcb_disconnect(c_);
    throw failure("display \"" + display + "\" has no such screen");
  }
  window_ = xcb_generate_id(c_);
  auto const cookie = xcb_create_window_checked(c_, 0, window_, it.data->root, 0, 0, 1, 1, 0,
                                                XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT,
                                                XCB_CW_EVENT_MASK, &eventMask);
  if (auto* error = xcb_request_check(c_, cookie)) {
    std::free(error);
    xcb_disconnect(c_);
    throw failure("cannot create a window on \"" + display + "\"");
  }
  // Asks for BIG-REQUESTS now, so that large properties need no extra round trip later.
  xcb_prefetch_maximum_request_length(c_);
}

Connection::~Connection() {
  xcb_disconnect(c_);
}

std::size_t Connection::maxRequestBytes() const noexcept {
  return static_cast<std::size_t>(xcb_get_maximum_request_length(c_)) * 4;
}

// The owner window a read keeps an eye on, and the first request of that read: a BadWindow
// for that window raised by an older request means nothing.
struct ReaderConnection::Watch {
  xcb_window_t window;
  unsigned int firstSequence;
};

ReaderConnection::ReaderConnection(std::string const& display, Atoms const& atoms)
    : conn_(display, XCB_EVENT_MASK_PROPERTY_CHANGE), atoms_(atoms) {}

xcb_window_t ReaderConnection::selectionOwner(xcb_atom_t selection) {
  Owned<xcb_get_selection_owner_reply_t> reply(
      xcb_get_selection_owner_reply(get(), xcb_get_selection_owner(get(), selection), nullptr));
  if (!reply)
    throw failure("lost the connection to the display");
  return reply->owner;
}

void ReaderConnection::drainEvents() {
  while (Owned<xcb_generic_event_t> event{xcb_poll_for_event(get())}) {
  }
}

Owned<xcb_generic_event_t> ReaderConnection::waitFor(
    Clock::time_point deadline, char const* what, Watch const* watch,
    std::function<bool(xcb_generic_event_t const&)> const& match) {
  for (;;) {
    while (Owned<xcb_generic_event_t> event{xcb_poll_for_event(get())}) {
      auto const type = event->response_type & 0x7f;
      if (type == 0 && watch) {
        auto const& error = reinterpret_cast<xcb_generic_error_t const&>(*event);
        if (error.error_code == kBadWindow && error.resource_id == watch->window &&
            static_cast<int>(error.full_sequence - watch->firstSequence) >= 0) {
          throw failure("the owner went away before the transfer ended");
        }
        continue;
      }
      if (type == XCB_DESTROY_NOTIFY && watch &&
          reinterpret_cast<xcb_destroy_notify_event_t const&>(*event).window == watch->window) {
        throw failure("the owner went away before the transfer ended");
      }
      if (match(*event))
        return event;
    }
    if (conn_.broken())
      throw failure("lost the connection to the display");
    auto const now = Clock::now();
    if (now >= deadline)
      throw failure(what);
    auto const left = std::chrono::ceil<std::chrono::milliseconds>(deadline - now).count();
    pollfd pfd{conn_.fd(), POLLIN, 0};
    int const ready = ::poll(&pfd, 1, static_cast<int>(std::min<long long>(left, 60'000)));
    if (ready < 0 && errno != EINTR)
      throw failure("poll failed");
  }
}

Owned<xcb_get_property_reply_t> ReaderConnection::takeProperty(xcb_atom_t property,
                                                               std::size_t maxBytes) {
  auto const cookie = xcb_get_property(get(), 1, conn_.window(), property,
                                       XCB_GET_PROPERTY_TYPE_ANY, 0, wordsFor(maxBytes));
  Owned<xcb_get_property_reply_t> reply(xcb_get_property_reply(get(), cookie, nullptr));
  if (!reply)
    throw failure("lost the connection to the display");
  if (reply->bytes_after > 0 ||
      static_cast<std::size_t>(xcb_get_property_value_length(reply.get())) > maxBytes) {
    throw failure("the transfer exceeds the size limit");
  }
  return reply;
}

std::string Transfer::joined() const {
  std::string out;
  out.reserve(size);
  forEachPiece([&out](std::string_view piece) { out.append(piece); });
  return out;
}

std::vector<std::byte> Transfer::bytes() const {
  std::vector<std::byte> out;
  out.reserve(size);
  forEachPiece([&out](std::string_view piece) {
    auto const* p = reinterpret_cast<std::byte const*>(piece.data());
    out.insert(out.end(), p, p + piece.size());
  });
  return out;
}

std::optional<Transfer> ReaderConnection::convert(xcb_atom_t selection, xcb_window_t owner,
                                                  xcb_atom_t target, ReadLimits const& limits) {
  drainEvents();
  auto const start = Clock::now();
  auto const end = start + limits.whole;
  // Watching the owner's window makes its death end the wait at once instead of at a timeout.
  std::uint32_t const structure = XCB_EVENT_MASK_STRUCTURE_NOTIFY;
  auto const select = xcb_change_window_attributes(get(), owner, XCB_CW_EVENT_MASK, &structure);
  Watch const watch{owner, select.sequence};
  xcb_convert_selection(get(), conn_.window(), selection, target, atoms_.transfer,
                        XCB_CURRENT_TIME);
  xcb_flush(get());

  auto const firstMessage =
      "the owner did not answer within " + std::to_string(millisecondsOf(limits.first)) + " ms";
  auto const notifyEvent =
      waitFor(std::min(end, start + limits.first), firstMessage.c_str(), &watch,
              [&](xcb_generic_event_t const& event) {
                if ((event.response_type & 0x7f) != XCB_SELECTION_NOTIFY)
                  return false;
                auto const& notify = reinterpret_cast<xcb_selection_notify_event_t const&>(event);
                // We ask at CurrentTime: an answer stamped otherwise belongs to no request of ours.
                return notify.requestor == conn_.window() && notify.selection == selection &&
                       notify.target == target && notify.time == XCB_CURRENT_TIME;
              });
  auto property = reinterpret_cast<xcb_selection_notify_event_t const&>(*notifyEvent).property;
  // Data put anywhere but where we asked is not read: it counts as a refusal.
  if (property != atoms_.transfer)
    property = XCB_NONE;
  auto const forgetOwner = [&] {
    std::uint32_t const none = 0;
    xcb_change_window_attributes(get(), owner, XCB_CW_EVENT_MASK, &none);
    xcb_flush(get());
  };
  if (property == XCB_NONE) {
    forgetOwner();
    return std::nullopt;
  }

  Transfer transfer;
  // Deleting on read also starts an INCR transfer.
  auto first = takeProperty(property, limits.maxBytes);
  if (first->type != atoms_.incr) {
    transfer.type = first->type;
    transfer.format = first->format;
    transfer.size = Transfer::valueOf(*first).size();
    transfer.pieces.push_back(std::move(first));
  } else {
    // The size an INCR owner announces is only a hint (xclip sends none), so it is not used.
    auto const chunkMessage =
        "the owner stopped sending for " + std::to_string(millisecondsOf(limits.chunk)) + " ms";
    for (;;) {
      auto const now = Clock::now();
      if (now >= end)
        throw failure("the transfer took longer than the read timeout");
      waitFor(std::min(end, now + limits.chunk), chunkMessage.c_str(), &watch,
              [&](xcb_generic_event_t const& event) {
                if ((event.response_type & 0x7f) != XCB_PROPERTY_NOTIFY)
                  return false;
                auto const& notify = reinterpret_cast<xcb_property_notify_event_t const&>(event);
                return notify.window == conn_.window() && notify.atom == property &&
                       notify.state == XCB_PROPERTY_NEW_VALUE;
              });
      auto chunk = takeProperty(property, limits.maxBytes - transfer.size);
      auto const size = Transfer::valueOf(*chunk).size();
      if (size == 0)
        break;
      if (transfer.pieces.empty()) {
        transfer.type = chunk->type;
        transfer.format = chunk->format;
      }
      transfer.size += size;
      transfer.pieces.push_back(std::move(chunk));
    }
  }
  forgetOwner();
  return transfer;
}

xcb_timestamp_t ReaderConnection::serverTime(Clock::duration timeout) {
  drainEvents();
  xcb_change_property(get(), XCB_PROP_MODE_APPEND, conn_.window(), atoms_.stamp, XCB_ATOM_INTEGER,
                      8, 0, nullptr);
  xcb_flush(get());
  auto const event = waitFor(Clock::now() + timeout, "the server did not send a timestamp", nullptr,
                             [&](xcb_generic_event_t const& e) {
                               if ((e.response_type & 0x7f) != XCB_PROPERTY_NOTIFY)
                                 return false;
                               auto const& p =
                                   reinterpret_cast<xcb_property_notify_event_t const&>(e);
                               return p.window == conn_.window() && p.atom == atoms_.stamp;
                             });
  return reinterpret_cast<xcb_property_notify_event_t const&>(*event).time;
}

ReaderPool::ReaderPool(std::string display, Atoms const& atoms)
    : display_(std::move(display)), atoms_(atoms) {
  idle_.push_back(std::make_unique<ReaderConnection>(display_, atoms_));
}

ReaderPool::Lease ReaderPool::acquire() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!idle_.empty()) {
      auto conn = std::move(idle_.back());
      idle_.pop_back();
      return Lease(*this, std::move(conn));
    }
  }
  return Lease(*this, std::make_unique<ReaderConnection>(display_, atoms_));
}

void ReaderPool::giveBack(std::unique_ptr<ReaderConnection> conn, bool healthy) {
  constexpr std::size_t kMaxIdle = 4;
  if (!conn || !healthy || xcb_connection_has_error(conn->get()))
    return;
  std::lock_guard<std::mutex> lock(mutex_);
  if (idle_.size() < kMaxIdle)
    idle_.push_back(std::move(conn));
}

}  // namespace pf::clipboard::x11
