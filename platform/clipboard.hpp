// pf::clipboard: the platform clipboard that the service reads and writes.
//
// The free functions dispatch to the backend installed for the process (installClipboardBackend);
// when none was installed, the in-memory clipboard is installed on first use.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "platform/filesystem.hpp"
#include "platform/graphics.hpp"

namespace pf::clipboard {

enum class PFClipboardMode : int {
  clipboard = 0,  // the system clipboard (X11: CLIPBOARD)
  selection = 1,  // the primary selection (X11: PRIMARY)
};

// What a paste of a file list should do with the files.
enum class PFClipboardAction : int {
  copy = 0,  // the default of a payload
  cut = 1,
};

using Path =
    fl::filesystem::basic_path<char, char16_t, fl::filesystem::detail::path_traits<char, char16_t>>;

// The data of one clipboard format.
using ClipboardContent = std::variant<std::monostate,                             // nothing
                                      std::u16string,                             // text
                                      std::vector<Path>,                          // file paths
                                      std::shared_ptr<pf::graphics::PFGraphics>,  // an image
                                      std::vector<std::byte>>;                    // raw bytes

// One clipboard payload: a content value per mime type, in the order they were first added,
// and an action. A second addData for a mime type replaces its content in place.
class PFClipboardData {
 public:
  using Entry = std::pair<std::u16string, ClipboardContent>;

  PFClipboardData() = default;

  void addData(std::u16string const& mime, std::u16string const& text);
  void addData(std::u16string const& mime, std::vector<Path> const& paths);
  void addData(std::u16string const& mime, std::unique_ptr<pf::graphics::PFGraphics> image);
  void addData(std::u16string const& mime, std::vector<std::byte> const& bytes);
  // Same as the overloads above, taking the data over instead of copying it.
  void addData(std::u16string const& mime, std::u16string&& text);
  void addData(std::u16string const& mime, std::vector<std::byte>&& bytes);

  void setClipboardAction(PFClipboardAction action) noexcept { action_ = action; }
  PFClipboardAction clipboardAction() const noexcept { return action_; }

  std::vector<Entry> const& entries() const noexcept { return entries_; }
  // The content stored under `mime`, or nullptr.
  ClipboardContent const* find(std::u16string const& mime) const noexcept;

 private:
  void put(std::u16string const& mime, ClipboardContent content);

  std::vector<Entry> entries_;
  PFClipboardAction action_ = PFClipboardAction::copy;
};

// The mime types that the clipboard of `mode` holds, in the clipboard's order.
std::vector<std::u16string> getAvailableMimeTypesSync(PFClipboardMode mode);

// The data of one format; std::monostate when the clipboard holds nothing in that format.
ClipboardContent getClipboardDataSync(std::u16string const& mimeType, PFClipboardMode mode);

// Replaces the contents of the clipboard of `mode` with the payload.
void setClipboardData(std::unique_ptr<PFClipboardData> data, PFClipboardMode mode);

// The seam between the free functions above and a real clipboard. Implementations are
// thread-safe: the service calls them from request threads and from notification threads.
class PFClipboardBackend {
 public:
  virtual ~PFClipboardBackend();

  virtual std::vector<std::u16string> availableMimeTypes(PFClipboardMode mode) = 0;
  virtual ClipboardContent read(std::u16string const& mimeType, PFClipboardMode mode) = 0;
  virtual void write(std::unique_ptr<PFClipboardData> data, PFClipboardMode mode) = 0;
};

// Makes `backend` the clipboard of the process (nullptr goes back to a fresh in-memory one) and
// returns the one it replaces. Also makes sure that the signal locator holds the container of
// the clipboard service, into which backends emit the change event (notifyClipboardChanged).
std::shared_ptr<PFClipboardBackend> installClipboardBackend(
    std::shared_ptr<PFClipboardBackend> backend);

// The backend in use (the in-memory one is installed first if none was).
std::shared_ptr<PFClipboardBackend> installedClipboardBackend();

// Emits the clipboard-change event (service 0, event 1) on the calling thread. Backends call it,
// with none of their own locks held, whenever the clipboard of mode 0 changes.
void notifyClipboardChanged();

}  // namespace pf::clipboard
