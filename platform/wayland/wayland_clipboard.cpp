#include "platform/wayland/wayland_clipboard.hpp"

#include <unistd.h>
#include <wayland-client.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <stdexcept>

#include "platform/change_notifier.hpp"
#include "platform/formats/clipboard_formats.hpp"
#include "platform/formats/derived_formats.hpp"
#include "platform/formats/desktop_glue.hpp"
#include "platform/formats/payload_formats.hpp"
#include "platform/formats/text_receiver.hpp"
#include "platform/wayland/wayland_internal.h"

namespace pf::clipboard {

using namespace wayland;
using namespace formats;

namespace {

// A pipe quiet this long before its end marks a transfer whose owner may have died...
constexpr Clock::duration kQuietBeforeEnd = std::chrono::milliseconds(100);
// ...and the compositor gets this long to withdraw such an owner's offer.
constexpr Clock::duration kOwnerExitGrace = std::chrono::milliseconds(500);

// How this backend's errors begin.
constexpr std::string_view kBackendName = "Wayland clipboard";

// The types a read of plain text takes, best first among those offered. UTF-8 by name first: it
// is decoded as it arrives, and needs no guessing.
constexpr std::array<std::string_view, 5> kWaylandTextPreference = {
    "text/plain;charset=utf-8", "UTF8_STRING", "text/plain", "STRING", "TEXT"};

class FdGuard {
 public:
  explicit FdGuard(int fd) : fd_(fd) {}
  ~FdGuard() { ::close(fd_); }
  FdGuard(FdGuard const&) = delete;
  FdGuard& operator=(FdGuard const&) = delete;

 private:
  int fd_;
};

std::optional<std::string> findType(std::vector<std::string> const& offered,
                                    std::string_view wanted) {
  for (auto const& type : offered) {
    if (equalsNoCase(type, wanted))
      return type;
  }
  return std::nullopt;
}

// Which of the offered types serves a read of `mime`.
std::optional<std::string> chooseType(std::vector<std::string> const& offered,
                                      std::string const& mime, ReadKind kind) {
  switch (kind) {
    case ReadKind::text:
      if (isTextTarget(mime)) {
        for (auto const preferred : kWaylandTextPreference) {
          if (auto type = findType(offered, preferred))
            return type;
        }
        for (auto const& type : offered) {
          if (isTextTarget(type) && textEncodingOfType(type) != TextEncoding::notText)
            return type;
        }
        return std::nullopt;
      }
      if (auto type = findType(offered, mime))
        return type;
      for (auto const& type : offered) {
        if (sameBaseType(type, mime))
          return type;
      }
      return std::nullopt;
    case ReadKind::uriList:
      for (auto const& type : offered) {
        if (sameBaseType(type, "text/uri-list"))
          return type;
      }
      return std::nullopt;
    case ReadKind::png:
      return findType(offered, "image/png");
    case ReadKind::svg:
      if (auto type = findType(offered, "image/svg+xml"))
        return type;
      return findType(offered, "image/svg");
    case ReadKind::bytes:
      return findType(offered, mime);
    case ReadKind::none:
      break;
  }
  return std::nullopt;
}

}  // namespace

struct PFWaylandClipboard::Impl {
  PFWaylandClipboardOptions options;
  std::shared_ptr<ChangeNotifier> notifier;
  std::unique_ptr<Session> session;

  ReadLimits limits() const {
    return {options.firstDataTimeout, options.chunkTimeout, options.readTimeout,
            options.maxTransferBytes};
  }
};

PFWaylandClipboard::PFWaylandClipboard(PFWaylandClipboardOptions options)
    : impl_(std::make_unique<Impl>()) {
  auto& impl = *impl_;
  impl.options = std::move(options);
  impl.notifier =
      makeBackendNotifier(impl.options.emitChangeEvents, impl.options.onSelectionChanged);
  SessionConfig config;
  config.display = impl.options.display;
  config.protocol = impl.options.protocol;
  config.sendTimeout = impl.options.sendTimeout;
  config.answerTimeout =
      std::max<Clock::duration>(impl.options.firstDataTimeout, std::chrono::milliseconds(1000));
  config.changed = [notifier = impl.notifier](PFClipboardMode mode) { notifier->post(mode); };
  impl.session = std::make_unique<Session>(std::move(config));
}

PFWaylandClipboard::~PFWaylandClipboard() {
  // Deliveries first (a running listener may still read through us), then the event thread.
  impl_->notifier->stop();
  impl_->session.reset();
}

std::string const& PFWaylandClipboard::protocolName() const noexcept {
  static std::string const ext = extProtocol().global;
  static std::string const wlr = wlrProtocol().global;
  return &impl_->session->protocol() == &extProtocol() ? ext : wlr;
}

bool PFWaylandClipboard::hasPrimarySelection() const noexcept {
  return impl_->session->hasPrimary();
}

bool PFWaylandClipboard::ownsSelection(PFClipboardMode mode) const {
  checkMode(mode, kBackendName);
  return impl_->session->owned(mode) != nullptr;
}

std::vector<std::u16string> PFWaylandClipboard::availableMimeTypes(PFClipboardMode mode) {
  checkMode(mode, kBackendName);
  auto& session = *impl_->session;
  if (auto const own = session.owned(mode))
    return listOwnPayload(*own->data);
  auto const readList = [&](std::string const& type) -> std::optional<std::string> {
    // Copied by value: a read that gives up waiting leaves the choice to run later.
    auto const start = session.startRead(
        mode, [type](std::vector<std::string> const& types) { return findType(types, type); });
    if (!start)
      return std::nullopt;
    FdGuard guard(start->fd);
    return readAll(start->fd, impl_->limits()).joined();
  };
  return listOffer(mimeTypesFromTargets(session.offeredTypes(mode)), readList).types;
}

ClipboardContent PFWaylandClipboard::read(std::u16string const& mimeType, PFClipboardMode mode) {
  checkMode(mode, kBackendName);
  auto& session = *impl_->session;
  std::string const mime = utf8Of(mimeType);
  auto const kind = readKindOf(mime);
  if (kind == ReadKind::none)
    return {};
  if (auto const own = session.owned(mode))
    return readOwnPayload(*own->data, own->types, mime, kind);

  // Copied by value: a read that gives up waiting leaves the choice to run later.
  auto const start = session.startRead(mode, [mime, kind](std::vector<std::string> const& types) {
    if (auto type = chooseType(types, mime, kind))
      return type;
    // A type the owner does not offer, made from one it does (a file manager's list,
    // another image format).
    return derivedSource(mime, types);
  });
  if (!start)
    return {};
  FdGuard guard(start->fd);
  bool const derived = !chooseType(start->offered, mime, kind);
  ClipboardContent result;
  PipeEnd end;
  if (!derived && kind == ReadKind::text && textEncodingOfType(start->type) == TextEncoding::utf8) {
    // Decoded while the owner goes on writing.
    TextReceiver text(impl_->options.maxTransferBytes);
    end =
        readPipe(start->fd, impl_->limits(), [&text](std::string_view piece) { text.take(piece); });
    result = text.finish();
  } else {
    auto const received = readAll(start->fd, impl_->limits());
    end = received.end;
    result = derived ? derivedContentOf(kBackendName, mime, start->type, received.joined())
                     : contentOfReceived(kind, start->type, received);
  }
  // An owner that stalled and then died closed its pipe first: the compositor may learn of the
  // death only a little later. Owners that finish close right after their last write, and pay
  // nothing for this.
  auto const grace = end.quiet >= kQuietBeforeEnd ? kOwnerExitGrace : Clock::duration::zero();
  if (!session.stillCurrent(mode, start->generation, grace)) {
    throw std::runtime_error(
        "Wayland clipboard: the owner went away or replaced the clipboard during the read");
  }
  return result;
}

void PFWaylandClipboard::write(std::unique_ptr<PFClipboardData> data, PFClipboardMode mode) {
  checkMode(mode, kBackendName);
  auto payload = std::make_shared<OwnPayload>();
  payload->types = typesToOffer(kBackendName, data.get(), impl_->options.maxTransferBytes);
  payload->data = std::move(data);
  impl_->session->own(mode, std::move(payload));
}

PFWaylandProbe probeWaylandDisplay(std::string const& display) {
  PFWaylandProbe probe;
  wl_display* d = wl_display_connect(display.empty() ? nullptr : display.c_str());
  if (d == nullptr) {
    probe.error = std::strerror(errno);
    return probe;
  }
  probe.connected = true;
  struct Seen {
    bool ext = false, wlr = false;
  } seen;
  static wl_registry_listener const listener = {
      [](void* data, wl_registry*, std::uint32_t, char const* interface, std::uint32_t) {
        auto* s = static_cast<Seen*>(data);
        if (std::strcmp(interface, extProtocol().global) == 0)
          s->ext = true;
        if (std::strcmp(interface, wlrProtocol().global) == 0)
          s->wlr = true;
      },
      [](void*, wl_registry*, std::uint32_t) {}};
  auto* registry = wl_display_get_registry(d);
  wl_registry_add_listener(registry, &listener, &seen);
  if (wl_display_roundtrip(d) < 0) {
    probe.error = "the compositor closed the connection";
  } else if (seen.ext) {
    probe.dataControlGlobal = extProtocol().global;
  } else if (seen.wlr) {
    probe.dataControlGlobal = wlrProtocol().global;
  }
  wl_registry_destroy(registry);
  wl_display_disconnect(d);
  return probe;
}

std::shared_ptr<PFWaylandClipboard> makeWaylandClipboard(PFWaylandClipboardOptions options) {
  return std::make_shared<PFWaylandClipboard>(std::move(options));
}

}  // namespace pf::clipboard
