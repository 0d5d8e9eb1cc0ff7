// What the desktop backends (X11, Wayland) do alike around the transfers of their protocols: the
// checks of a call's arguments and sizes, the bounds of a read, the listing of our own payload
// and of another program's offer, and the content derived from what it offers. Errors begin with
// the name the backend passes ("X11 clipboard"), as the backend's own errors do.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/clipboard.hpp"
#include "platform/formats/payload_formats.hpp"

namespace pf::clipboard::formats {

// The bounds of one read of another program's clipboard: the owner's first answer, each later
// piece, the whole transfer, and the most bytes accepted.
struct ReadLimits {
  std::chrono::steady_clock::duration first;
  std::chrono::steady_clock::duration chunk;
  std::chrono::steady_clock::duration whole;
  std::size_t maxBytes;
};

// Throws std::invalid_argument unless `mode` is the clipboard or the selection.
void checkMode(PFClipboardMode mode, std::string_view backend);

// The types a write offers `data` under (offeredTypes). Throws std::invalid_argument for a null
// payload, std::runtime_error for a type whose bytes exceed `maxBytes`.
std::vector<OfferedType> typesToOffer(std::string_view backend, PFClipboardData const* data,
                                      std::size_t maxBytes);

// The types our own payload is listed under: those of its entries as another program lists them,
// with the derived ones beside them (the KDE cut mark when its files are cut).
std::vector<std::u16string> listOwnPayload(PFClipboardData const& data);

// The listing of another program's offer.
struct OfferListing {
  std::vector<std::u16string> types;
  // The file manager's list was offered, but reading it failed.
  bool probeFailed = false;
};

// The types listed for an offer of `offered` (the owner's mime types). Only a file manager's own
// list says whether its files are cut: `readList` reads the offered type named (nullopt when the
// owner refuses it). An owner that lists it and then fails to send it (std::runtime_error) still
// has its types listed.
OfferListing listOffer(
    std::vector<std::string> const& offered,
    std::function<std::optional<std::string>(std::string const&)> const& readList);

// derivedContent, with an image that does not convert reported as a failed read
// (std::runtime_error).
ClipboardContent derivedContentOf(std::string_view backend, std::string_view wanted,
                                  std::string_view source, std::string_view bytes);

}  // namespace pf::clipboard::formats
