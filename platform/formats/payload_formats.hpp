// Between a payload and the bytes other programs exchange: the types a payload is offered under
// (with the aliases other programs ask for), and the content that bytes read under a type stand
// for. Shared by the X11 and Wayland backends.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/clipboard.hpp"
#include "platform/formats/clipboard_formats.hpp"
#include "platform/graphics.hpp"

namespace pf::clipboard::formats {

std::string utf8Of(std::u16string const& text);
std::vector<std::byte> bytesOf(std::string const& data);
std::string stringOf(std::vector<std::byte> const& bytes);

// An image of a read kind (png or svg) holding `bytes` as they came.
std::shared_ptr<pf::graphics::PFGraphics> imageOf(ReadKind kind, std::vector<std::byte> bytes);

// One type a payload is offered under: its name, the type the bytes are announced as, and the
// bytes (shared between aliases).
struct OfferedType {
  std::string name;
  std::string type;
  std::shared_ptr<std::string const> data;
};

// The types that serve the payload, in the payload's order; the first entry for a name wins.
// Text is offered under the usual text names, file lists also as gnome-copied-files (and the KDE
// cut mark when cut), images encoded as PNG or SVG; images that cannot be encoded are left out.
std::vector<OfferedType> offeredTypes(PFClipboardData const& data);

// The content of `data` read under `typeName`, as a read of `kind` returns it.
ClipboardContent contentOf(ReadKind kind, std::string const& typeName, std::string const& data);

// The same for a transfer that arrived in pieces: `received` joins them once, as a string
// (joined()) or as bytes (bytes()). Bytes and images take the latter, which saves a copy.
template <class Received>
ClipboardContent contentOfReceived(ReadKind kind, std::string const& typeName,
                                   Received const& received) {
  if (kind == ReadKind::bytes)
    return received.bytes();
  if (kind == ReadKind::png || kind == ReadKind::svg)
    return imageOf(kind, received.bytes());
  return contentOf(kind, typeName, received.joined());
}

// What a read of `mime` gets from a payload we own, when the payload itself answers: the entry
// written under that name as it was written, or for a text type any text entry (nothing when
// there is none). nullopt: ask the offered types instead.
std::optional<ClipboardContent> ownEntry(PFClipboardData const& data, std::string const& mime,
                                         ReadKind kind);

// A read of our own payload: its own entry where it has one, else what another program would
// get under that name from `offered` (elements with a `name` and shared `data` bytes).
template <class Offered>
ClipboardContent readOwnPayload(PFClipboardData const& data, Offered const& offered,
                                std::string const& mime, ReadKind kind) {
  if (auto entry = ownEntry(data, mime, kind))
    return std::move(*entry);
  std::string const wanted = kind == ReadKind::svg ? std::string("image/svg+xml") : mime;
  for (auto const& type : offered) {
    if (equalsNoCase(type.name, wanted))
      return contentOf(kind, type.name, *type.data);
  }
  return {};
}

}  // namespace pf::clipboard::formats
