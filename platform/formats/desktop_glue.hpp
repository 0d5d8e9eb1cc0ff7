// What the desktop backends (X11, Wayland) do alike around the transfers of their protocols: the
// checks of a call's arguments and sizes, and the bounds of a read. Errors begin with the name
// the backend passes ("X11 clipboard"), as the backend's own errors do.
#pragma once

#include <chrono>
#include <cstddef>
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

}  // namespace pf::clipboard::formats
