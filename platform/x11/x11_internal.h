// Internals of the X11 clipboard backend, shared by its source files. Not installed (.h).
#pragma once

#include <xcb/xcb.h>
#include <xcb/xfixes.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/clipboard.hpp"
#include "platform/formats/clipboard_formats.hpp"
#include "platform/formats/desktop_glue.hpp"

namespace pf::clipboard::x11 {

// The conversions every backend that talks to other programs shares.
using namespace pf::clipboard::formats;

using Clock = std::chrono::steady_clock;

struct FreeDeleter {
  void operator()(void* p) const noexcept { std::free(p); }
};
// Replies and events that xcb hands over with malloc.
template <class T>
using Owned = std::unique_ptr<T, FreeDeleter>;

// Atoms are the server's, so one set serves every connection of the backend.
struct Atoms {
  xcb_atom_t clipboard = 0, primary = 0, targets = 0, multiple = 0, timestamp = 0, incr = 0;
  xcb_atom_t utf8String = 0, string = 0, text = 0, compoundText = 0, textPlain = 0,
             textPlainUtf8 = 0;
  xcb_atom_t atom = 0, atomPair = 0, integer = 0, null = 0, saveTargets = 0, clipboardManager = 0;
  xcb_atom_t uriList = 0, gnomeCopiedFiles = 0, kdeCutSelection = 0, png = 0, svg = 0;
  xcb_atom_t transfer = 0;  // the property our conversions land in
  xcb_atom_t stamp = 0;     // appended to, to learn the server time

  // One round of InternAtom requests; throws std::runtime_error when the server refuses.
  static Atoms intern(xcb_connection_t* c);

  xcb_atom_t selection(PFClipboardMode mode) const {
    return mode == PFClipboardMode::selection ? primary : clipboard;
  }
};

// Atoms beyond the fixed set, both ways, kept for the life of the backend.
class AtomCache {
 public:
  std::vector<xcb_atom_t> intern(xcb_connection_t* c, std::vector<std::string> const& names);
  std::vector<std::string> names(xcb_connection_t* c, std::vector<xcb_atom_t> const& atoms);
  std::string name(xcb_connection_t* c, xcb_atom_t atom);

 private:
  std::mutex mutex_;  // never held across a request
  std::unordered_map<std::string, xcb_atom_t> byName_;
  std::unordered_map<xcb_atom_t, std::string> byAtom_;
};

// An xcb connection with one unmapped 1x1 InputOnly window of its own.
class Connection {
 public:
  // Throws std::runtime_error when the display cannot be opened.
  Connection(std::string const& display, std::uint32_t eventMask);
  ~Connection();
  Connection(Connection const&) = delete;
  Connection& operator=(Connection const&) = delete;

  xcb_connection_t* get() const noexcept { return c_; }
  xcb_window_t window() const noexcept { return window_; }
  int fd() const noexcept { return xcb_get_file_descriptor(c_); }
  bool broken() const noexcept { return xcb_connection_has_error(c_) != 0; }
  // The largest request the server takes, in bytes (BIG-REQUESTS included).
  std::size_t maxRequestBytes() const noexcept;

 private:
  xcb_connection_t* c_ = nullptr;
  xcb_window_t window_ = 0;
};

// What an owner converted a target into, as the property replies that carried it: large
// transfers are assembled once, at their final size, instead of grown chunk by chunk.
struct Transfer {
  xcb_atom_t type = XCB_NONE;
  std::uint8_t format = 8;
  std::size_t size = 0;
  std::vector<Owned<xcb_get_property_reply_t>> pieces;

  static std::string_view valueOf(xcb_get_property_reply_t const& piece) {
    return {static_cast<char const*>(xcb_get_property_value(&piece)),
            static_cast<std::size_t>(xcb_get_property_value_length(&piece))};
  }
  template <class F>
  void forEachPiece(F&& f) const {
    for (auto const& piece : pieces)
      f(valueOf(*piece));
  }
  std::string joined() const;
  std::vector<std::byte> bytes() const;
};

// A connection for synchronous reads; one thread at a time uses it. After an exception it may
// hold stale events or a half-done transfer, so the pool drops it.
class ReaderConnection {
 public:
  ReaderConnection(std::string const& display, Atoms const& atoms);

  xcb_connection_t* get() const noexcept { return conn_.get(); }
  xcb_window_t selectionOwner(xcb_atom_t selection);
  // The target converted by the owner; nullopt when the owner refuses. Throws
  // std::runtime_error on a timeout, when the owner goes away, or above limits.maxBytes.
  std::optional<Transfer> convert(xcb_atom_t selection, xcb_window_t owner, xcb_atom_t target,
                                  ReadLimits const& limits);
  // A current server timestamp.
  xcb_timestamp_t serverTime(Clock::duration timeout);

 private:
  struct Watch;
  Owned<xcb_generic_event_t> waitFor(Clock::time_point deadline, char const* what,
                                     Watch const* watch,
                                     std::function<bool(xcb_generic_event_t const&)> const& match);
  void drainEvents();
  Owned<xcb_get_property_reply_t> takeProperty(xcb_atom_t property, std::size_t maxBytes);

  Connection conn_;
  Atoms const& atoms_;
};

// Reader connections for any number of threads; idle ones are kept for the next read.
class ReaderPool {
 public:
  ReaderPool(std::string display, Atoms const& atoms);

  class Lease {
   public:
    Lease(ReaderPool& pool, std::unique_ptr<ReaderConnection> conn)
        : pool_(pool), conn_(std::move(conn)) {}
    ~Lease() { pool_.giveBack(std::move(conn_), healthy_); }
    Lease(Lease const&) = delete;
    Lease& operator=(Lease const&) = delete;
    ReaderConnection* operator->() const noexcept { return conn_.get(); }
    ReaderConnection& operator*() const noexcept { return *conn_; }
    // Called once the connection is known to be in a clean state again.
    void keep() noexcept { healthy_ = true; }

   private:
    ReaderPool& pool_;
    std::unique_ptr<ReaderConnection> conn_;
    bool healthy_ = false;
  };

  Lease acquire();

 private:
  void giveBack(std::unique_ptr<ReaderConnection> conn, bool healthy);

  std::string display_;
  Atoms const& atoms_;
  std::mutex mutex_;
  std::vector<std::unique_ptr<ReaderConnection>> idle_;
};

// One target that we serve while we own a selection.
struct ServedTarget {
  xcb_atom_t target = XCB_NONE;
  xcb_atom_t type = XCB_NONE;
  std::string name;
  std::shared_ptr<std::string const> data;
};

// What we own: the payload as written (reads from this process answer from it) and every target
// converted up front. Shared read-only between the event thread, transfers and readers.
struct Payload {
  std::unique_ptr<PFClipboardData> data;
  std::vector<ServedTarget> targets;
  xcb_timestamp_t time = 0;
  // Marked by a password manager: never served to the clipboard manager, never handed over.
  bool secret = false;

  ServedTarget const* find(xcb_atom_t target) const noexcept;
};

struct OwnerConfig {
  std::string display;
  Clock::duration chunkTimeout;
  Clock::duration handoverTimeout;
  std::size_t chunkBytes = 0;      // 0: from the server
  std::size_t thresholdBytes = 0;  // 0: from the server
};

// The event thread and its connection: owns selections, answers SelectionRequests (INCR
// included) and turns XFixes events into change callbacks.
class Owner {
 public:
  // `changed` runs on the event thread (other owners) or on the writing thread (our own
  // ownership); it must not block.
  Owner(OwnerConfig config, Atoms const& atoms, std::function<void(PFClipboardMode)> changed);
  ~Owner();
  Owner(Owner const&) = delete;
  Owner& operator=(Owner const&) = delete;

  // Takes the selection for `payload` (its time set). False when the server gave it to another
  // client; throws std::runtime_error when the event thread does not answer within `timeout`.
  bool own(PFClipboardMode mode, std::shared_ptr<Payload const> payload, Clock::duration timeout);

  // What we serve for `mode`, or null when we do not own it.
  std::shared_ptr<Payload const> payload(PFClipboardMode mode) const;

  xcb_window_t window() const noexcept { return conn_.window(); }
  std::size_t threshold() const noexcept { return threshold_; }

 private:
  struct OwnRequest;
  struct Outgoing;
  enum class Conversion { refused, done };

  void run();
  bool step();  // false once the loop must end
  void handleOwnRequests();
  void handle(xcb_generic_event_t const& event);
  void onSelectionRequest(xcb_selection_request_event_t const& request);
  void onSelectionClear(xcb_selection_clear_event_t const& clear);
  void onSelectionNotify(xcb_selection_notify_event_t const& notify);
  void onPropertyNotify(xcb_property_notify_event_t const& notify);
  void onXfixes(xcb_xfixes_selection_notify_event_t const& notify);
  void onError(xcb_generic_error_t const& error);
  Conversion convert(xcb_window_t requestor, xcb_atom_t property, xcb_atom_t target,
                     Payload const& payload, bool allowIncr);
  bool convertMultiple(xcb_window_t requestor, xcb_atom_t property, Payload const& payload);
  void sendNextChunk(std::map<std::pair<xcb_window_t, xcb_atom_t>, Outgoing>::iterator it);
  void dropTransfers(xcb_window_t requestor, bool deselect);
  void releaseWindow(xcb_window_t requestor);
  void expireTransfers();
  void beginHandover();
  bool fromClipboardManager(xcb_window_t requestor);
  std::optional<Clock::time_point> nextDeadline() const;
  void wake() const;
  int modeIndex(xcb_atom_t selection) const noexcept;

  OwnerConfig config_;
  Atoms const& atoms_;
  std::function<void(PFClipboardMode)> changed_;
  Connection conn_;
  std::size_t threshold_ = 0;
  std::size_t chunk_ = 0;
  std::uint8_t xfixesEvent_ = 0;  // 0: no XFixes
  int wakeFd_ = -1;

  mutable std::mutex mutex_;
  std::condition_variable answered_;
  std::shared_ptr<Payload const> payloads_[2];
  std::deque<std::shared_ptr<OwnRequest>> requests_;
  bool stopping_ = false;
  bool alive_ = true;

  // Event thread only.
  xcb_timestamp_t ownedSince_[2] = {0, 0};
  std::map<std::pair<xcb_window_t, xcb_atom_t>, Outgoing> outgoing_;
  std::optional<Clock::time_point> handoverDeadline_;
  bool handoverStarted_ = false;
  struct XfixesKey {
    std::uint8_t subtype;
    xcb_window_t owner;
    xcb_timestamp_t selectionTime;
  };
  std::optional<XfixesKey> lastXfixes_[2];

  std::thread thread_;
};

// The mode of a selection request or event, as an index into per-mode arrays.
inline int indexOf(PFClipboardMode mode) {
  return mode == PFClipboardMode::selection ? 1 : 0;
}

}  // namespace pf::clipboard::x11
