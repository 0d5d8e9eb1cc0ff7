#include "platform/x11/x11_clipboard.hpp"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <unordered_set>

#include "platform/change_notifier.hpp"
#include "platform/formats/clipboard_formats.hpp"
#include "platform/formats/derived_formats.hpp"
#include "platform/formats/desktop_glue.hpp"
#include "platform/formats/payload_formats.hpp"
#include "platform/formats/text_receiver.hpp"
#include "platform/x11/x11_internal.h"

namespace pf::clipboard {

using namespace x11;

// ---------------------------------------------------------------------------------------------
// The backend

namespace {

// How this backend's errors begin.
constexpr std::string_view kBackendName = "X11 clipboard";

// The text of a transfer of type `typeName`; nullopt when that type holds no text. UTF-8 is
// decoded piece by piece, into room for the whole transfer.
std::optional<std::u16string> textOf(Transfer const& transfer, std::string const& typeName) {
  if (transfer.format != 8)
    return std::nullopt;
  if (textEncodingOfType(typeName) != TextEncoding::utf8) {
    return decodeText(typeName, transfer.joined());
  }
  TextReceiver text(transfer.size);
  transfer.forEachPiece([&text](std::string_view piece) { text.take(piece); });
  return text.finish();
}

}  // namespace

struct PFX11Clipboard::Impl {
  explicit Impl(PFX11ClipboardOptions opts) : options(std::move(opts)) {}

  PFX11ClipboardOptions options;
  Atoms atoms;
  AtomCache atomCache;
  std::unique_ptr<ReaderPool> readers;
  std::shared_ptr<ChangeNotifier> notifier;
  std::unique_ptr<Owner> owner;

  ReadLimits limits() const {
    return {options.firstReplyTimeout, options.chunkTimeout, options.readTimeout,
            options.maxTransferBytes};
  }

  // The targets a read of plain text asks for, best first.
  std::array<xcb_atom_t, 5> x11TextPreference() const {
    return {atoms.utf8String, atoms.textPlainUtf8, atoms.textPlain, atoms.string, atoms.text};
  }

  std::string typeName(xcb_connection_t* conn, xcb_atom_t type) {
    if (type == atoms.utf8String)
      return "UTF8_STRING";
    if (type == atoms.string)
      return "STRING";
    if (type == atoms.textPlain)
      return "text/plain";
    if (type == atoms.textPlainUtf8)
      return "text/plain;charset=utf-8";
    return atomCache.name(conn, type);
  }

  // The mime types the owner's TARGETS name. Garbage atoms and None are dropped; a list longer
  // than any real owner's is cut short instead of costing one atom-name round trip per entry.
  std::vector<std::string> ownerTypes(ReaderConnection& conn, xcb_atom_t selection,
                                      xcb_window_t owner) {
    constexpr std::size_t kMaxTargets = 4096;
    auto const reply = conn.convert(selection, owner, atoms.targets, limits());
    if (!reply || reply->format != 32)
      return {};
    auto const list = reply->joined();
    std::vector<xcb_atom_t> targets;
    std::unordered_set<xcb_atom_t> seen;
    for (std::size_t i = 0; i + 4 <= list.size() && targets.size() < kMaxTargets; i += 4) {
      xcb_atom_t atom;
      std::memcpy(&atom, list.data() + i, 4);
      if (atom != XCB_NONE && seen.insert(atom).second)
        targets.push_back(atom);
    }
    return mimeTypesFromTargets(atomCache.names(conn.get(), targets));
  }

  // The bytes of `type` as the owner answers it, when it answers with that very type.
  std::optional<std::string> readBytes(ReaderConnection& conn, xcb_atom_t selection,
                                       xcb_window_t owner, std::string const& type) {
    auto const target = atomCache.intern(conn.get(), {type}).front();
    auto const reply = conn.convert(selection, owner, target, limits());
    if (!reply || reply->type != target || reply->format != 8)
      return std::nullopt;
    return reply->joined();
  }

  // A type the owner does not offer, made from one it does (a file manager's list, another
  // image format).
  ClipboardContent readDerived(ReaderConnection& conn, xcb_atom_t selection, xcb_window_t owner,
                               std::string const& mime) {
    auto const source = derivedSource(mime, ownerTypes(conn, selection, owner));
    if (!source)
      return {};
    auto const bytes = readBytes(conn, selection, owner, *source);
    if (!bytes)
      return {};
    return derivedContentOf(kBackendName, mime, *source, *bytes);
  }

  static bool mayDerive(std::string const& mime) {
    return sameBaseType(mime, kUriListType) || sameBaseType(mime, kKdeCutSelectionType) ||
           equalsNoCase(mime, kPngType);
  }
};

PFX11Clipboard::PFX11Clipboard(PFX11ClipboardOptions options)
    : impl_(std::make_shared<Impl>(std::move(options))) {
  auto& impl = *impl_;
  impl.readers = std::make_unique<ReaderPool>(impl.options.display, impl.atoms);
  {
    auto lease = impl.readers->acquire();
    impl.atoms = Atoms::intern(lease->get());
    lease.keep();
  }
  impl.notifier =
      makeBackendNotifier(impl.options.emitChangeEvents, impl.options.onSelectionChanged);
  OwnerConfig config;
  config.display = impl.options.display;
  config.chunkTimeout = impl.options.ownerChunkTimeout;
  config.handoverTimeout = impl.options.managerHandoverTimeout;
  config.chunkBytes = impl.options.incrChunkBytes;
  config.thresholdBytes = impl.options.incrThresholdBytes;
  // The event thread may still report a change while we are being destroyed; the shared
  // notifier makes that a no-op instead of a dangling call.
  impl.owner = std::make_unique<Owner>(
      config, impl.atoms,
      [notifier = impl.notifier](PFClipboardMode mode) { notifier->post(mode); });
}

PFX11Clipboard::~PFX11Clipboard() {
  // Deliveries first (a running listener may still read through us), then the event thread,
  // which hands CLIPBOARD to a clipboard manager before it ends.
  impl_->notifier->stop();
  impl_->owner.reset();
  impl_->readers.reset();
}

bool PFX11Clipboard::ownsSelection(PFClipboardMode mode) const {
  checkMode(mode, kBackendName);
  return impl_->owner->payload(mode) != nullptr;
}

std::size_t PFX11Clipboard::incrThreshold() const noexcept {
  return impl_->owner->threshold();
}

std::vector<std::u16string> PFX11Clipboard::availableMimeTypes(PFClipboardMode mode) {
  checkMode(mode, kBackendName);
  auto& impl = *impl_;
  if (auto const own = impl.owner->payload(mode))
    return listOwnPayload(*own->data);

  auto lease = impl.readers->acquire();
  auto const selection = impl.atoms.selection(mode);
  auto const owner = lease->selectionOwner(selection);
  if (owner == XCB_NONE) {
    lease.keep();
    return {};
  }
  auto listing = listOffer(impl.ownerTypes(*lease, selection, owner), [&](std::string const& type) {
    return impl.readBytes(*lease, selection, owner, type);
  });
  // A file manager's list that failed mid-transfer leaves the connection unfit for reuse.
  if (!listing.probeFailed)
    lease.keep();
  return std::move(listing.types);
}

ClipboardContent PFX11Clipboard::read(std::u16string const& mimeType, PFClipboardMode mode) {
  checkMode(mode, kBackendName);
  auto& impl = *impl_;
  std::string const mime = utf8Of(mimeType);
  auto const kind = readKindOf(mime);
  if (kind == ReadKind::none)
    return {};
  if (auto const own = impl.owner->payload(mode))
    return readOwnPayload(*own->data, own->targets, mime, kind);

  auto lease = impl.readers->acquire();
  auto const selection = impl.atoms.selection(mode);
  auto const owner = lease->selectionOwner(selection);
  ClipboardContent result;
  if (owner != XCB_NONE) {
    auto const limits = impl.limits();
    if (kind == ReadKind::text && isTextTarget(mime)) {
      // An owner may list a target and still refuse it: each is asked in turn.
      for (auto const target : impl.x11TextPreference()) {
        auto const reply = lease->convert(selection, owner, target, limits);
        if (!reply)
          continue;
        // An owner of text/html alone answers these with its markup: that is no plain text.
        auto const type = impl.typeName(lease->get(), reply->type);
        if (!isTextTarget(type))
          continue;
        if (auto text = textOf(*reply, type)) {
          result = std::move(*text);
          break;
        }
      }
    } else if (kind == ReadKind::text) {
      // text/html and the like, decoded by the type the owner answers with.
      auto const target = impl.atomCache.intern(lease->get(), {mime}).front();
      auto const reply = lease->convert(selection, owner, target, limits);
      if (reply) {
        auto const type = impl.typeName(lease->get(), reply->type);
        if (sameBaseType(type, mime)) {
          if (auto text = textOf(*reply, type))
            result = std::move(*text);
        }
      }
    } else {
      xcb_atom_t target = XCB_NONE;
      switch (kind) {
        case ReadKind::uriList:
          target = impl.atoms.uriList;
          break;
        case ReadKind::png:
          target = impl.atoms.png;
          break;
        case ReadKind::svg:
          target = impl.atoms.svg;
          break;
        default:
          target = impl.atomCache.intern(lease->get(), {mime}).front();
          break;
      }
      auto const reply = lease->convert(selection, owner, target, limits);
      // Some owners answer every target with whatever they hold; only the asked type counts.
      if (reply && reply->type == target && reply->format == 8)
        result = contentOfReceived(kind, mime, *reply);
    }
    if (result.index() == 0 && Impl::mayDerive(mime))
      result = impl.readDerived(*lease, selection, owner, mime);
  }
  lease.keep();
  return result;
}

void PFX11Clipboard::write(std::unique_ptr<PFClipboardData> data, PFClipboardMode mode) {
  checkMode(mode, kBackendName);
  auto& impl = *impl_;
  auto plan = typesToOffer(kBackendName, data.get(), impl.options.maxTransferBytes);

  auto payload = std::make_shared<Payload>();
  {
    auto lease = impl.readers->acquire();
    std::vector<std::string> names;
    for (auto const& planned : plan) {
      names.push_back(planned.name);
      names.push_back(planned.type);
    }
    auto const atoms = impl.atomCache.intern(lease->get(), names);
    for (std::size_t i = 0; i < plan.size(); ++i) {
      payload->targets.push_back(
          {atoms[2 * i], atoms[2 * i + 1], std::move(plan[i].name), std::move(plan[i].data)});
    }
    payload->time = lease->serverTime(impl.options.firstReplyTimeout);
    lease.keep();
  }
  payload->secret = isMarkedSecret(*data);
  payload->data = std::move(data);
  if (!impl.owner->own(mode, std::move(payload), impl.options.firstReplyTimeout)) {
    throw std::runtime_error("X11 clipboard: another client took the selection first");
  }
}

std::shared_ptr<PFX11Clipboard> makeX11Clipboard(PFX11ClipboardOptions options) {
  return std::make_shared<PFX11Clipboard>(std::move(options));
}

}  // namespace pf::clipboard
