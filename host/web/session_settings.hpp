// What every WebSocket session serves with: a service object of its own over one vocabulary and
// backend, and the bounds of its queues.
#pragma once

#include <cstddef>
#include <memory>

#include "clipboard/clipboard_impl.hpp"
#include "platform/clipboard.hpp"

namespace clipboard_host::web {

struct ConnectionLimits {
  std::size_t maxMessage = std::size_t{256} << 20;  // larger frames close with 1009
  std::size_t maxQueue = std::size_t{64} << 20;     // bytes waiting in either direction
};

struct SessionSettings {
  EditorServices::ClipboardVocabulary const& vocabulary;
  std::shared_ptr<pf::clipboard::PFClipboardBackend> backend;  // installed by the caller
  ConnectionLimits limits;
  bool diagnostics = false;  // the service's records travel with each reply
};

}  // namespace clipboard_host::web
