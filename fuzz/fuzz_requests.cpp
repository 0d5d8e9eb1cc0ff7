// Arbitrary text to each of the four message-form entry points, over the in-memory clipboard
// behind a backend that fails platform calls at random.
//
// Input: byte 0 chooses the entry point (bits 0-1) and the mode (bit 2); byte 1 seeds the
// failures; the rest is the request text.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <ostream>
#include <random>
#include <stdexcept>
#include <string>

#include "clipboard/clipboard_impl.hpp"
#include "platform/i18n.hpp"
#include "platform/log.hpp"
#include "platform/memory/memory_clipboard.hpp"

namespace {

using pf::clipboard::PFClipboardMode;

class FlakyBackend final : public pf::clipboard::PFClipboardBackend {
 public:
  void reseed(std::uint8_t seed) {
    std::lock_guard<std::mutex> lock(mutex_);
    random_.seed(seed);
    failEvery_ = seed % 5;  // 0: never fail
  }

  std::vector<std::u16string> availableMimeTypes(PFClipboardMode mode) override {
    maybeFail("list");
    return inner_.availableMimeTypes(mode);
  }
  pf::clipboard::ClipboardContent read(std::u16string const& mime, PFClipboardMode mode) override {
    maybeFail("read");
    return inner_.read(mime, mode);
  }
  void write(std::unique_ptr<pf::clipboard::PFClipboardData> data, PFClipboardMode mode) override {
    maybeFail("write");
    inner_.write(std::move(data), mode);
  }

  pf::clipboard::PFMemoryClipboard inner_;

 private:
  void maybeFail(char const* what) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (failEvery_ != 0 && random_() % failEvery_ == 0) {
      throw std::runtime_error(std::string("injected failure: ") + what);
    }
  }

  std::mutex mutex_;
  std::minstd_rand random_;
  unsigned failEvery_ = 0;
};

// Content of every kind, as another program might have left it.
void fillClipboard(pf::clipboard::PFMemoryClipboard& clipboard) {
  static std::uint8_t const tinyPng[] = {
      0x89, 0x50, 0x4E, 0x47, 0x0D, 0x0A, 0x1A, 0x0A, 0x00, 0x00, 0x00, 0x0D, 0x49, 0x48,
      0x44, 0x52, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x01, 0x08, 0x06, 0x00, 0x00,
      0x00, 0x1F, 0x15, 0xC4, 0x89, 0x00, 0x00, 0x00, 0x0D, 0x49, 0x44, 0x41, 0x54, 0x78,
      0x9C, 0x63, 0xF8, 0xCF, 0xC0, 0xF0, 0x1F, 0x00, 0x05, 0x00, 0x01, 0xFF, 0x89, 0x99,
      0x3D, 0x1D, 0x00, 0x00, 0x00, 0x00, 0x49, 0x45, 0x4E, 0x44, 0xAE, 0x42, 0x60, 0x82};
  auto bytesOf = [](std::string const& s) {
    std::vector<std::byte> bytes(s.size());
    for (std::size_t i = 0; i < s.size(); ++i) {
      bytes[i] = static_cast<std::byte>(s[i]);
    }
    return bytes;
  };
  pf::clipboard::PFClipboardData data;
  data.addData(u"text/plain", std::u16string(u"fuzz \u00e9 \U0001F600"));
  data.addData(u"text/uri-list", std::vector<pf::clipboard::Path>{pf::clipboard::Path(u"/a b")});
  data.addData(
      u"image/png",
      std::make_unique<pf::graphics::PFImage>(
          pf::graphics::PFImage::Format::png,
          std::vector<std::byte>(reinterpret_cast<std::byte const*>(tinyPng),
                                 reinterpret_cast<std::byte const*>(tinyPng) + sizeof(tinyPng))));
  data.addData(u"application/json", bytesOf("{\"k\":1}\xff"));
  data.addData(u"application/x-java-serialized-object; class=java.lang.String; format=rtf",
               bytesOf(std::string("\xAC\xED\x00\x05\x74\x00\x03rtf", 10)));
  clipboard.copyFromOtherProgram(std::move(data), PFClipboardMode::clipboard);
}

struct Harness {
  Harness() : backend(std::make_shared<FlakyBackend>()) {
    fillClipboard(backend->inner_);
    pf::clipboard::installClipboardBackend(backend);
    // Exercise the log statements too, into a stream that discards what it is given.
    foundation::log::set_enabled_levels(foundation::log::kAllLevels);
    sink = foundation::log::add_stream_sink(std::make_shared<std::ostream>(nullptr));
    service = std::make_unique<EditorServices::ClipboardImpl>();
  }
  std::shared_ptr<FlakyBackend> backend;
  foundation::log::sink_handle sink;
  std::unique_ptr<EditorServices::ClipboardImpl> service;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  static Harness harness;
  if (size < 2) {
    return 0;
  }
  harness.backend->reseed(data[1]);
  auto const mode = (data[0] & 4) ? PFClipboardMode::selection : PFClipboardMode::clipboard;
  auto const message = connector::message_service::JsonMessage::view(
      reinterpret_cast<char const*>(data + 2), size - 2);
  std::size_t replies = 0;
  auto reply = [&](std::string text, std::string) {
    ++replies;
    (void)text;
  };
  try {
    switch (data[0] & 3) {
      case 0:
        harness.service->handleRequestForAvailableDataFlavors(message, reply);
        break;
      case 1:
        harness.service->handleGetClipboardDataRequest(message, mode, reply);
        break;
      case 2:
        harness.service->handleSetClipboardDataRequest(message, mode, reply);
        // Keep something of every kind on the system clipboard for the gets that follow.
        if ((data[1] & 7) == 0) {
          fillClipboard(harness.backend->inner_);
        }
        break;
      default:
        harness.service->handleRequestForClipboardChangeSubscription(
            message, [](std::string) {}, reply);
    }
  } catch (std::exception const&) {
    // An injected platform failure that the service does not recover from leaves the entry
    // point without a reply; that is the defined outcome.
  }
  return 0;
}
