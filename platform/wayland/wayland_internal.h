// Internals of the Wayland clipboard backend, shared by its source files. Not installed (.h).
#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "platform/clipboard.hpp"
#include "platform/formats/clipboard_formats.hpp"
#include "platform/formats/desktop_glue.hpp"
#include "platform/formats/payload_formats.hpp"
#include "platform/wayland/wayland_clipboard.hpp"

struct wl_display;
struct wl_proxy;
struct wl_interface;
struct wl_callback;

namespace pf::clipboard::wayland {

using Clock = std::chrono::steady_clock;
using formats::ReadLimits;

// One data-control protocol. ext and wlr have the same requests and events in the same order,
// so one implementation drives either through its interface table.
struct Protocol {
  char const* global;
  wl_interface const* manager;
  wl_interface const* device;
  wl_interface const* source;
  wl_interface const* offer;
  std::uint32_t maxVersion;    // the highest version we speak
  std::uint32_t primarySince;  // the version that has the primary selection
};
Protocol const& extProtocol();
Protocol const& wlrProtocol();

// Opcodes, shared by both protocols (checked against the generated headers).
namespace op {
constexpr std::uint32_t managerCreateSource = 0, managerGetDevice = 1, managerDestroy = 2;
constexpr std::uint32_t deviceSetSelection = 0, deviceDestroy = 1, deviceSetPrimary = 2;
constexpr std::uint32_t sourceOffer = 0, sourceDestroy = 1;
constexpr std::uint32_t offerReceive = 0, offerDestroy = 1;
}  // namespace op

// What we own: the payload as written (reads from this process answer from it) and the bytes
// of every type it is offered under, converted up front.
struct OwnPayload {
  std::unique_ptr<PFClipboardData> data;
  std::vector<formats::OfferedType> types;
};

// A read under way: the pipe to read from, the type asked for, the offer it came from and the
// types that offer holds.
struct ReadStart {
  int fd = -1;
  std::string type;
  std::uint64_t generation = 0;
  std::vector<std::string> offered;
};

struct SessionConfig {
  std::string display;
  PFWaylandProtocol protocol = PFWaylandProtocol::automatic;
  Clock::duration sendTimeout;
  Clock::duration answerTimeout;  // how long a caller waits for the event thread
  // Runs on the event thread for every selection change after the first state; must not block.
  std::function<void(PFClipboardMode)> changed;
};

// The display connection and its event thread. Every request goes out from that thread:
// callers hand it tasks and wait for their answers.
class Session {
 public:
  // Connects and binds; throws std::runtime_error (PFWaylandUnavailable when the compositor
  // lacks a seat or a data-control global).
  explicit Session(SessionConfig config);
  ~Session();
  Session(Session const&) = delete;
  Session& operator=(Session const&) = delete;

  Protocol const& protocol() const noexcept { return *protocol_; }
  bool hasPrimary() const noexcept { return hasPrimary_; }

  // The types of the current offer of `mode`; empty when the clipboard is empty.
  std::vector<std::string> offeredTypes(PFClipboardMode mode);
  // Asks the owner for the type `choose` picks among the offered ones (nullopt: none fits).
  // nullopt when there is no offer or no type fits; the caller closes the fd.
  std::optional<ReadStart> startRead(
      PFClipboardMode mode,
      std::function<std::optional<std::string>(std::vector<std::string> const&)> choose);
  // After round trips to the compositor: whether the offer a read came from is still the
  // clipboard's. An owner that dies mid-transfer ends the pipe like a finished one; the
  // compositor's withdrawal of its offer tells the two apart. With `grace`, a current offer is
  // given that long more to be withdrawn (the compositor learns of a death only once the dying
  // process has closed its connection, which may come after its pipe).
  bool stillCurrent(PFClipboardMode mode, std::uint64_t generation, Clock::duration grace);
  // Offers `payload` as the selection of `mode`; returns once the compositor has taken it.
  void own(PFClipboardMode mode, std::shared_ptr<OwnPayload const> payload);
  // What we serve for `mode`, or null when another client owns it.
  std::shared_ptr<OwnPayload const> owned(PFClipboardMode mode) const;

 private:
  struct OfferRec;
  struct SourceRec;
  struct Outgoing;
  struct SyncRec;

  // Listener trampolines (the event thread only).
  static void onDataOffer(void* data, wl_proxy* device, wl_proxy* offer);
  static void onSelection(void* data, wl_proxy* device, wl_proxy* offer);
  static void onPrimarySelection(void* data, wl_proxy* device, wl_proxy* offer);
  static void onFinished(void* data, wl_proxy* device);
  static void onOffer(void* data, wl_proxy* offer, char const* mime);
  static void onSend(void* data, wl_proxy* source, char const* mime, std::int32_t fd);
  static void onCancelled(void* data, wl_proxy* source);
  static void onSyncDone(void* data, wl_callback* callback, std::uint32_t serial);

  template <class T>
  T call(std::function<void(std::shared_ptr<std::promise<T>> const&)> task);
  void post(std::function<void()> task);
  void afterRoundTrip(std::function<void()> done);
  void checkSupported(PFClipboardMode mode) const;

  void bind();
  void run();
  void selectionChanged(int index, wl_proxy* offer);
  void destroyOffer(wl_proxy* offer);
  bool serve(Outgoing& out);  // false: finished or dropped
  void closeOutgoing(std::size_t index);
  std::optional<Clock::time_point> nextDeadline() const;
  void shutDown();

  SessionConfig config_;
  wl_display* display_ = nullptr;
  Protocol const* protocol_ = nullptr;
  bool hasPrimary_ = false;
  std::uint32_t version_ = 1;
  wl_proxy* registry_ = nullptr;
  wl_proxy* seat_ = nullptr;
  wl_proxy* manager_ = nullptr;
  wl_proxy* device_ = nullptr;
  int wakeFd_ = -1;

  mutable std::mutex mutex_;
  std::deque<std::function<void()>> tasks_;
  std::shared_ptr<OwnPayload const> owned_[2];
  bool stopping_ = false;
  bool dead_ = false;
  // The selections' generations as the event thread last saw them, for callers that wait.
  std::uint64_t seenGeneration_[2] = {0, 0};
  std::condition_variable selectionSeen_;

  // Event thread only.
  std::map<wl_proxy*, std::unique_ptr<OfferRec>> offers_;
  std::map<wl_proxy*, std::unique_ptr<SourceRec>> sources_;
  std::map<wl_callback*, std::unique_ptr<SyncRec>> syncs_;
  std::vector<Outgoing> outgoing_;
  wl_proxy* current_[2] = {nullptr, nullptr};
  SourceRec* ownedSource_[2] = {nullptr, nullptr};
  std::uint64_t generation_[2] = {0, 0};
  bool initialized_ = false;
  // Globals seen while binding.
  std::uint32_t extName_ = 0, wlrName_ = 0, seatName_ = 0, wlrVersion_ = 0;

  std::thread thread_;
};

struct Session::OfferRec {
  Session* session;
  std::vector<std::string> types;
};

struct Session::SourceRec {
  Session* session;
  wl_proxy* proxy;
  int index;
  std::shared_ptr<OwnPayload const> payload;
};

// A paste we serve: the bytes of its type and how far the target has taken them.
struct Session::Outgoing {
  int fd;
  std::shared_ptr<std::string const> data;
  std::size_t offset;
  Clock::time_point lastProgress;
};

struct Session::SyncRec {
  Session* session;
  std::function<void()> done;
};

// Listens on a raw proxy with a table of the protocol's events, in their order.
void addListener(wl_proxy* proxy, void const* table, void* data);
template <class L>
void listen(wl_proxy* proxy, L const* listener, void* data) {
  addListener(proxy, listener, data);
}
// Sends the destructor request `opcode` and frees the proxy; null is ignored.
void destroyProxy(wl_proxy* proxy, std::uint32_t opcode);

// How a pipe's transfer ended: its size, and how long the pipe stayed quiet (no data, no end)
// before its end. An owner that finishes closes its pipe right after its last write; a long
// quiet before the end is the mark of an owner that stalled and then died.
struct PipeEnd {
  std::size_t size = 0;
  Clock::duration quiet{};
};

// Reads `fd` to its end within the limits, handing each piece to `take` as it arrives (the
// piece is valid during the call), so that the caller works while the owner goes on writing.
// Throws std::runtime_error on a timeout or above the size limit. Does not close `fd`.
PipeEnd readPipe(int fd, ReadLimits const& limits,
                 std::function<void(std::string_view)> const& take);

// Everything that came through a pipe, in pieces of 1 MiB: nothing is regrown while the data
// arrives, and the result is built once its size is known.
struct Received {
  std::vector<std::string> pieces;
  PipeEnd end;
  std::string joined() const;
  std::vector<std::byte> bytes() const;
};
Received readAll(int fd, ReadLimits const& limits);

// Pipes for bulk transfers: as large as an unprivileged process may make them, for fewer
// wake-ups on each side. Only an optimization.
void widenPipe(int fd) noexcept;

}  // namespace pf::clipboard::wayland
