#include "platform/clipboard.hpp"

#include <mutex>
#include <stdexcept>

#include "platform/event.hpp"
#include "platform/memory/memory_clipboard.hpp"

namespace pf::clipboard {

// --- PFClipboardData ---

void PFClipboardData::put(std::u16string const& mime, ClipboardContent content) {
  for (auto& entry : entries_) {
    if (entry.first == mime) {
      entry.second = std::move(content);
      return;
    }
  }
  entries_.emplace_back(mime, std::move(content));
}

void PFClipboardData::addData(std::u16string const& mime, std::u16string const& text) {
  put(mime, ClipboardContent(std::in_place_index<1>, text));
}

void PFClipboardData::addData(std::u16string const& mime, std::u16string&& text) {
  put(mime, ClipboardContent(std::in_place_index<1>, std::move(text)));
}

void PFClipboardData::addData(std::u16string const& mime, std::vector<Path> const& paths) {
  put(mime, ClipboardContent(std::in_place_index<2>, paths));
}

void PFClipboardData::addData(std::u16string const& mime,
                              std::unique_ptr<pf::graphics::PFGraphics> image) {
  put(mime, ClipboardContent(std::in_place_index<3>, std::move(image)));
}

void PFClipboardData::addData(std::u16string const& mime, std::vector<std::byte> const& bytes) {
  put(mime, ClipboardContent(std::in_place_index<4>, bytes));
}

void PFClipboardData::addData(std::u16string const& mime, std::vector<std::byte>&& bytes) {
  put(mime, ClipboardContent(std::in_place_index<4>, std::move(bytes)));
}

ClipboardContent const* PFClipboardData::find(std::u16string const& mime) const noexcept {
  for (auto const& entry : entries_) {
    if (entry.first == mime) {
      return &entry.second;
    }
  }
  return nullptr;
}

// --- the installed backend ---

PFClipboardBackend::~PFClipboardBackend() = default;

namespace {

std::mutex g_backendMutex;
std::shared_ptr<PFClipboardBackend> g_backend;

void ensureSignalContainer() {
  pf::event::PFSignalLocator::Instance().containerOf(pf::event::PFServiceType::clipboard);
}

std::shared_ptr<PFClipboardBackend> currentBackend() {
  std::lock_guard<std::mutex> lock(g_backendMutex);
  if (!g_backend) {
    ensureSignalContainer();
    g_backend = std::make_shared<PFMemoryClipboard>();
  }
  return g_backend;
}

}  // namespace

std::shared_ptr<PFClipboardBackend> installClipboardBackend(
    std::shared_ptr<PFClipboardBackend> backend) {
  ensureSignalContainer();
  if (!backend) {
    backend = std::make_shared<PFMemoryClipboard>();
  }
  std::lock_guard<std::mutex> lock(g_backendMutex);
  std::swap(g_backend, backend);
  return backend;
}

std::shared_ptr<PFClipboardBackend> installedClipboardBackend() {
  return currentBackend();
}

std::vector<std::u16string> getAvailableMimeTypesSync(PFClipboardMode mode) {
  return currentBackend()->availableMimeTypes(mode);
}

ClipboardContent getClipboardDataSync(std::u16string const& mimeType, PFClipboardMode mode) {
  return currentBackend()->read(mimeType, mode);
}

void setClipboardData(std::unique_ptr<PFClipboardData> data, PFClipboardMode mode) {
  if (!data) {
    throw std::invalid_argument("setClipboardData: no payload");
  }
  currentBackend()->write(std::move(data), mode);
}

void notifyClipboardChanged() {
  auto& container =
      pf::event::PFSignalLocator::Instance().containerOf(pf::event::PFServiceType::clipboard);
  try {
    container.emit(pf::event::kClipboardChanged);
  } catch (...) {
    // A faulty listener must not turn the clipboard change that already happened into an error
    // of whoever changed it.
  }
}

}  // namespace pf::clipboard
