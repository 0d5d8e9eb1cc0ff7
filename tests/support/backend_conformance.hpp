// The backend conformance suite: tests written against PFClipboardBackend alone. A backend is
// done when it passes them. Include this header in exactly one source file of a test program
// and instantiate it there:
//
//   INSTANTIATE_TEST_SUITE_P(Memory, BackendConformance,
//       ::testing::Values(test_support::BackendFactory{"memory", [] { return ...; }}),
//       test_support::BackendFactoryName());
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>

#include "platform/clipboard.hpp"
#include "platform/event.hpp"
#include "platform/graphics.hpp"

namespace test_support {

struct BackendFactory {
  std::string name;
  std::function<std::shared_ptr<pf::clipboard::PFClipboardBackend>()> make;
};

struct BackendFactoryName {
  std::string operator()(::testing::TestParamInfo<BackendFactory> const& info) const {
    return info.param.name;
  }
};

// Counts clipboard-change events while alive.
class ChangeCounter {
 public:
  ChangeCounter() {
    registration_ = std::make_unique<pf::event::PFEventRegistration>(
        pf::event::PFSignalLocator::Instance()
            .containerOf(pf::event::PFServiceType::clipboard)
            .connect(pf::event::kClipboardChanged, [this] {
              std::lock_guard<std::mutex> lock(mutex_);
              ++count_;
              changed_.notify_all();
            }));
  }
  ~ChangeCounter() { registration_->unregister(); }

  bool waitFor(int atLeast, std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, timeout, [&] { return count_ >= atLeast; });
  }
  int count() {
    std::lock_guard<std::mutex> lock(mutex_);
    return count_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  int count_ = 0;
  std::unique_ptr<pf::event::PFEventRegistration> registration_;
};

}  // namespace test_support

namespace conformance_detail {

using pf::clipboard::ClipboardContent;
using pf::clipboard::Path;
using pf::clipboard::PFClipboardData;
using pf::clipboard::PFClipboardMode;

inline std::vector<std::byte> bytesOf(std::string const& text) {
  std::vector<std::byte> bytes(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    bytes[i] = static_cast<std::byte>(text[i]);
  }
  return bytes;
}

inline std::vector<std::byte> smallPng() {
  std::vector<std::uint8_t> rgba(7 * 5 * 4);
  for (std::size_t i = 0; i < rgba.size(); ++i) {
    rgba[i] = static_cast<std::uint8_t>(i * 37);
  }
  return pf::graphics::PFImage::fromRgba(7, 5, rgba)->encodedBytes();
}

inline std::vector<std::byte> encodedBytesOf(ClipboardContent const& content) {
  auto const* image = std::get_if<std::shared_ptr<pf::graphics::PFGraphics>>(&content);
  if (image == nullptr || !*image) {
    return {};
  }
  return (*image)->encode(pf::graphics::kEncodePng, pf::graphics::kEncodeRaw, {})->bytes;
}

}  // namespace conformance_detail

class BackendConformance : public ::testing::TestWithParam<test_support::BackendFactory> {
 protected:
  void SetUp() override {
    backend = GetParam().make();
    if (!backend && IsSkipped())
      return;  // the factory found its platform missing and said why
    ASSERT_TRUE(backend);
  }
  void TearDown() override { backend.reset(); }

  void write(std::unique_ptr<pf::clipboard::PFClipboardData> data,
             pf::clipboard::PFClipboardMode mode = pf::clipboard::PFClipboardMode::clipboard) {
    backend->write(std::move(data), mode);
  }

  std::shared_ptr<pf::clipboard::PFClipboardBackend> backend;
};

TEST_P(BackendConformance, ListsWrittenTypesInTheOrderAdded) {
  using namespace conformance_detail;
  auto data = std::make_unique<PFClipboardData>();
  data->addData(u"application/x-conformance", bytesOf("raw"));
  data->addData(u"text/plain", std::u16string(u"hello"));
  data->addData(u"text/uri-list", std::vector<Path>{Path(u"/tmp/one")});
  write(std::move(data));
  EXPECT_EQ(
      backend->availableMimeTypes(PFClipboardMode::clipboard),
      (std::vector<std::u16string>{u"application/x-conformance", u"text/plain", u"text/uri-list"}));
}

TEST_P(BackendConformance, ReadsEveryContentKindBackAsStored) {
  using namespace conformance_detail;
  std::u16string const text = u"plain, accented \u00e9\u00e8, CJK \u4e2d\u6587, emoji \U0001F600";
  std::vector<Path> const paths = {Path(u"/tmp/space name/file.txt"),
                                   Path(u"/home/\u00fcser/\U0001F4C1/doc.pdf")};
  std::string raw("\x00\x01\xfe\xff binary", 11);
  std::vector<std::byte> const png = smallPng();

  auto data = std::make_unique<PFClipboardData>();
  data->addData(u"text/plain", text);
  data->addData(u"text/uri-list", paths);
  data->addData(u"application/x-conformance", bytesOf(raw));
  data->addData(u"image/png",
                std::make_unique<pf::graphics::PFImage>(pf::graphics::PFImage::Format::png, png));
  write(std::move(data));

  auto const readText = backend->read(u"text/plain", PFClipboardMode::clipboard);
  ASSERT_EQ(readText.index(), 1u);
  EXPECT_EQ(std::get<1>(readText), text);

  auto const readPaths = backend->read(u"text/uri-list", PFClipboardMode::clipboard);
  ASSERT_EQ(readPaths.index(), 2u);
  EXPECT_EQ(std::get<2>(readPaths), paths);

  auto const readBytes = backend->read(u"application/x-conformance", PFClipboardMode::clipboard);
  ASSERT_EQ(readBytes.index(), 4u);
  EXPECT_EQ(std::get<4>(readBytes), bytesOf(raw));

  auto const readImage = backend->read(u"image/png", PFClipboardMode::clipboard);
  ASSERT_EQ(readImage.index(), 3u);
  EXPECT_EQ(encodedBytesOf(readImage), png);
}

TEST_P(BackendConformance, ModesAreKeptApart) {
  using namespace conformance_detail;
  auto clipboardData = std::make_unique<PFClipboardData>();
  clipboardData->addData(u"text/plain", std::u16string(u"system clipboard"));
  write(std::move(clipboardData), PFClipboardMode::clipboard);
  auto selectionData = std::make_unique<PFClipboardData>();
  selectionData->addData(u"text/plain", std::u16string(u"primary selection"));
  selectionData->addData(u"application/x-selection-only", bytesOf("s"));
  write(std::move(selectionData), PFClipboardMode::selection);

  auto const fromClipboard = backend->read(u"text/plain", PFClipboardMode::clipboard);
  auto const fromSelection = backend->read(u"text/plain", PFClipboardMode::selection);
  ASSERT_EQ(fromClipboard.index(), 1u);
  ASSERT_EQ(fromSelection.index(), 1u);
  EXPECT_EQ(std::get<1>(fromClipboard), u"system clipboard");
  EXPECT_EQ(std::get<1>(fromSelection), u"primary selection");
  EXPECT_EQ(backend->availableMimeTypes(PFClipboardMode::clipboard),
            std::vector<std::u16string>{u"text/plain"});
  EXPECT_EQ(backend->read(u"application/x-selection-only", PFClipboardMode::clipboard).index(), 0u);
}

TEST_P(BackendConformance, AWriteReplacesTheWholePayload) {
  using namespace conformance_detail;
  auto first = std::make_unique<PFClipboardData>();
  first->addData(u"text/plain", std::u16string(u"first"));
  first->addData(u"application/x-conformance", bytesOf("first"));
  write(std::move(first));
  auto second = std::make_unique<PFClipboardData>();
  second->addData(u"text/plain", std::u16string(u"second"));
  write(std::move(second));

  EXPECT_EQ(backend->availableMimeTypes(PFClipboardMode::clipboard),
            std::vector<std::u16string>{u"text/plain"});
  EXPECT_EQ(backend->read(u"application/x-conformance", PFClipboardMode::clipboard).index(), 0u);
  auto const text = backend->read(u"text/plain", PFClipboardMode::clipboard);
  ASSERT_EQ(text.index(), 1u);
  EXPECT_EQ(std::get<1>(text), u"second");
}

TEST_P(BackendConformance, AbsentFormatReadsAsNothing) {
  using namespace conformance_detail;
  auto data = std::make_unique<PFClipboardData>();
  data->addData(u"text/plain", std::u16string(u"only text"));
  write(std::move(data));
  EXPECT_EQ(backend->read(u"application/x-not-there", PFClipboardMode::clipboard).index(), 0u);
}

TEST_P(BackendConformance, LargeTextSurvivesExactly) {
  using namespace conformance_detail;
  std::u16string text;
  text.reserve(4u << 20);
  for (std::size_t i = 0; text.size() < (4u << 20); ++i) {
    text += static_cast<char16_t>(u'a' + i % 26);
    if (i % 1000 == 0) {
      text += u"\u00e9\U0001F600";
    }
  }
  auto data = std::make_unique<PFClipboardData>();
  data->addData(u"text/plain", text);
  write(std::move(data));
  auto const read = backend->read(u"text/plain", PFClipboardMode::clipboard);
  ASSERT_EQ(read.index(), 1u);
  EXPECT_TRUE(std::get<1>(read) == text);
}

TEST_P(BackendConformance, WritingTheSystemClipboardEmitsAChange) {
  using namespace conformance_detail;
  test_support::ChangeCounter counter;
  int const before = counter.count();
  auto data = std::make_unique<PFClipboardData>();
  data->addData(u"text/plain", std::u16string(u"changed"));
  write(std::move(data));
  EXPECT_TRUE(counter.waitFor(before + 1, std::chrono::seconds(5)));
}

TEST_P(BackendConformance, ConcurrentReadersSeeWholePayloads) {
  using namespace conformance_detail;
  std::u16string const a(20000, u'a');
  std::u16string const b(30000, u'b');
  std::atomic<bool> stop{false};
  std::atomic<int> torn{0};
  std::thread writer([&] {
    for (int i = 0; i < 50; ++i) {
      auto data = std::make_unique<PFClipboardData>();
      data->addData(u"text/plain", i % 2 ? a : b);
      write(std::move(data));
    }
    stop = true;
  });
  std::thread reader([&] {
    while (!stop) {
      ClipboardContent content;
      try {
        content = backend->read(u"text/plain", PFClipboardMode::clipboard);
      } catch (std::runtime_error const&) {
        // A backend that cannot tell a replaced owner from a dead one may refuse the read
        // instead: an error, never part of a payload.
        continue;
      }
      if (content.index() == 1) {
        auto const& text = std::get<1>(content);
        if (text != a && text != b) {
          ++torn;
        }
      }
    }
  });
  writer.join();
  reader.join();
  EXPECT_EQ(torn.load(), 0);
}
