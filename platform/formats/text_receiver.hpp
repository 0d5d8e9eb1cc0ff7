// UTF-8 text decoded into UTF-16 as it arrives, for the desktop backends' reads of text.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "platform/formats/clipboard_formats.hpp"

namespace pf::clipboard::formats {

// UTF-8 text as it arrives, decoded into UTF-16 piece by piece. A large transfer gets room for
// `maxBytes` (the most the read accepts, or the transfer's size where that is known), reserved
// but not touched, so the text is never moved; its pages are faulted in a few MiB ahead of the
// decoder by a thread of its own, which takes the kernel's zeroing of them off the reading
// thread and onto another core.
class TextReceiver {
 public:
  explicit TextReceiver(std::size_t maxBytes);
  ~TextReceiver();
  TextReceiver(TextReceiver const&) = delete;
  TextReceiver& operator=(TextReceiver const&) = delete;
  void take(std::string_view piece);
  // The text; one trailing NUL is dropped.
  std::u16string finish();

 private:
  class Faulter;
  void makeRoom(std::size_t units);

  std::u16string text_;
  Utf8Decoder decoder_;
  std::size_t maxUnits_;
  std::size_t received_ = 0;
  std::unique_ptr<Faulter> faulter_;
};

}  // namespace pf::clipboard::formats
