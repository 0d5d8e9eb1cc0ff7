// pf::clipboard::PFX11Clipboard: the clipboard of an X11 display, through xcb and XFixes.
//
// Mode 0 is the CLIPBOARD selection, mode 1 PRIMARY. Reads go out on connections of their own, so
// that they never wait on the thread that answers other programs while we own a selection.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/clipboard.hpp"

namespace pf::clipboard {

struct PFX11ClipboardOptions {
  // The display to connect to; empty means $DISPLAY.
  std::string display;

  // Reads: the owner's first answer, each INCR chunk after that, and the whole transfer.
  std::chrono::milliseconds firstReplyTimeout{3000};
  std::chrono::milliseconds chunkTimeout{5000};
  std::chrono::milliseconds readTimeout{60000};
  // Largest transfer accepted in either direction.
  std::size_t maxTransferBytes = std::size_t{256} << 20;

  // Serving: how long a requestor may take to take each INCR chunk before it is dropped.
  std::chrono::milliseconds ownerChunkTimeout{10000};
  // INCR chunk size, and the size above which INCR is used (0: from the server's maximum request
  // size). Both are capped by what the server accepts in one request.
  std::size_t incrChunkBytes = std::size_t{1} << 20;
  std::size_t incrThresholdBytes = 0;

  // On destruction, how long a clipboard manager gets to take over what we own.
  std::chrono::milliseconds managerHandoverTimeout{3000};

  // Whether changes of CLIPBOARD emit the process-wide change event (notifyClipboardChanged).
  // A second backend on the same display, kept for other purposes, turns it off.
  bool emitChangeEvents = true;
  // Called for every owner change of either selection, on the notification thread.
  std::function<void(PFClipboardMode)> onSelectionChanged;
};

class PFX11Clipboard final : public PFClipboardBackend {
 public:
  // Connects to the display; throws std::runtime_error when that fails.
  explicit PFX11Clipboard(PFX11ClipboardOptions options = {});
  ~PFX11Clipboard() override;

  PFX11Clipboard(PFX11Clipboard const&) = delete;
  PFX11Clipboard& operator=(PFX11Clipboard const&) = delete;

  // Throw std::invalid_argument for an unknown mode, std::runtime_error when the owner does not
  // answer in time, goes away mid-transfer, or sends more than maxTransferBytes, and when an
  // image read as image/png from another format does not decode. Types the owner does not offer
  // but that can be made from what it offers (derived_formats.hpp) are listed and read too.
  std::vector<std::u16string> availableMimeTypes(PFClipboardMode mode) override;
  ClipboardContent read(std::u16string const& mimeType, PFClipboardMode mode) override;
  // Throws std::invalid_argument for a null payload or an unknown mode, std::runtime_error when
  // the selection cannot be taken.
  void write(std::unique_ptr<PFClipboardData> data, PFClipboardMode mode) override;

  // Whether this process owns the selection of `mode` right now.
  bool ownsSelection(PFClipboardMode mode) const;

  // The size above which this backend serves by INCR.
  std::size_t incrThreshold() const noexcept;

  struct Impl;

 private:
  std::shared_ptr<Impl> impl_;
};

// The backend for a host to install with installClipboardBackend.
std::shared_ptr<PFX11Clipboard> makeX11Clipboard(PFX11ClipboardOptions options = {});

}  // namespace pf::clipboard
