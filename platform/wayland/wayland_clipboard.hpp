// pf::clipboard::PFWaylandClipboard: the clipboard of a Wayland compositor, through the
// data-control protocols (ext-data-control-v1, else wlr-data-control-unstable-v1), which let a
// program without a window read, write and watch the clipboard.
//
// Mode 0 is the selection, mode 1 the primary selection. One event thread with a display
// connection of its own answers paste requests and follows the compositor's offers; reads run on
// the caller's thread, on a pipe the owner writes into.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/clipboard.hpp"

namespace pf::clipboard {

enum class PFWaylandProtocol {
  automatic,  // ext when the compositor offers it, else wlr
  ext,        // ext_data_control_manager_v1 only
  wlr,        // zwlr_data_control_manager_v1 only
};

struct PFWaylandClipboardOptions {
  // The display: a socket name under $XDG_RUNTIME_DIR or an absolute socket path; empty means
  // $WAYLAND_DISPLAY (then "wayland-0").
  std::string display;
  PFWaylandProtocol protocol = PFWaylandProtocol::automatic;

  // Reads: the owner's first bytes, each later piece, and the whole transfer.
  std::chrono::milliseconds firstDataTimeout{3000};
  std::chrono::milliseconds chunkTimeout{5000};
  std::chrono::milliseconds readTimeout{60000};
  // Largest transfer accepted in either direction.
  std::size_t maxTransferBytes = std::size_t{256} << 20;

  // Serving: how long a paste target may go without taking any bytes before it is dropped.
  std::chrono::milliseconds sendTimeout{10000};

  // Whether changes of the selection emit the process-wide change event
  // (notifyClipboardChanged). A second backend kept for other purposes turns it off.
  bool emitChangeEvents = true;
  // Called for every change of either selection, on the notification thread.
  std::function<void(PFClipboardMode)> onSelectionChanged;
};

class PFWaylandClipboard final : public PFClipboardBackend {
 public:
  // Connects and binds a data-control manager; throws std::runtime_error when there is no
  // display, no seat or no data-control global (PFWaylandUnavailable for the last two).
  explicit PFWaylandClipboard(PFWaylandClipboardOptions options = {});
  ~PFWaylandClipboard() override;

  PFWaylandClipboard(PFWaylandClipboard const&) = delete;
  PFWaylandClipboard& operator=(PFWaylandClipboard const&) = delete;

  // Throw std::invalid_argument for an unknown mode; std::runtime_error for mode 1 when the
  // compositor has no primary selection, when the owner does not answer in time, goes away
  // mid-transfer or sends more than maxTransferBytes, and when the connection is lost.
  std::vector<std::u16string> availableMimeTypes(PFClipboardMode mode) override;
  ClipboardContent read(std::u16string const& mimeType, PFClipboardMode mode) override;
  void write(std::unique_ptr<PFClipboardData> data, PFClipboardMode mode) override;

  // The global in use: "ext_data_control_manager_v1" or "zwlr_data_control_manager_v1".
  std::string const& protocolName() const noexcept;
  bool hasPrimarySelection() const noexcept;
  // Whether this process owns the selection of `mode` right now.
  bool ownsSelection(PFClipboardMode mode) const;

  struct Impl;

 private:
  std::unique_ptr<Impl> impl_;
};

// The compositor is there but offers no data-control protocol (GNOME, Weston) or no seat.
class PFWaylandUnavailable : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// What a display offers, without keeping a connection: for choosing a backend.
struct PFWaylandProbe {
  bool connected = false;
  std::string dataControlGlobal;  // empty when none is offered
  std::string error;              // why the connection failed
};
PFWaylandProbe probeWaylandDisplay(std::string const& display = {});

// The backend for a host to install with installClipboardBackend.
std::shared_ptr<PFWaylandClipboard> makeWaylandClipboard(PFWaylandClipboardOptions options = {});

}  // namespace pf::clipboard
