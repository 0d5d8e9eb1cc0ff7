// The backend conformance suite: tests written against PFClipboardBackend alone, and against
// another program on the same desktop where the backend has one. A backend is done when it passes
// them. Include this header in exactly one source file of a test program and instantiate it there:
//
//   INSTANTIATE_TEST_SUITE_P(Memory, BackendConformance,
//       ::testing::Values(test_support::BackendFactory{"memory", [] { return ...; }}),
//       test_support::BackendFactoryName());
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include "platform/clipboard.hpp"
#include "platform/codec/png.hpp"
#include "platform/event.hpp"
#include "platform/formats/payload_formats.hpp"
#include "platform/graphics.hpp"
#include "platform/i18n.hpp"
#include "support/change_counter.hpp"
#include "support/image_samples.hpp"

namespace test_support {

// Another program beside the backend: it owns a selection with one type's bytes, or reads one
// type of ours as bytes, the way xclip, wl-copy and wl-paste do.
class OtherProgram {
 public:
  enum class Fault { stalls, dies };

  virtual ~OtherProgram() = default;
  // Owns the selection of `mode` with `bytes` under `mime` (alone) until the next offer.
  virtual void offer(pf::clipboard::PFClipboardMode mode, std::string const& mime,
                     std::string const& bytes) = 0;
  // Owns the clipboard with `mime` and, asked for it, never answers or dies mid-transfer; false
  // when this program cannot.
  virtual bool offerFaulty(std::string const& mime, Fault fault) = 0;
  virtual std::string paste(pf::clipboard::PFClipboardMode mode, std::string const& mime) = 0;
};

struct BackendUnderTest {
  std::shared_ptr<pf::clipboard::PFClipboardBackend> backend;
  std::unique_ptr<OtherProgram> other;  // none: the cases that need one skip
};

struct BackendFactory {
  std::string name;
  // Nothing when the platform is missing (after GTEST_SKIP with the reason).
  std::function<BackendUnderTest()> make;
};

inline void PrintTo(BackendFactory const& factory, std::ostream* os) {
  *os << factory.name;
}

struct BackendFactoryName {
  std::string operator()(::testing::TestParamInfo<BackendFactory> const& info) const {
    return info.param.name;
  }
};

}  // namespace test_support

namespace conformance_detail {

using pf::clipboard::ClipboardContent;
using pf::clipboard::Path;
using pf::clipboard::PFClipboardData;
using pf::clipboard::PFClipboardMode;

using pf::clipboard::formats::bytesOf;
using pf::clipboard::formats::stringOf;

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
    auto made = GetParam().make();
    backend = std::move(made.backend);
    other = std::move(made.other);
    if (!backend && IsSkipped())
      return;  // the factory found its platform missing and said why
    ASSERT_TRUE(backend);
  }
  void TearDown() override {
    other.reset();
    backend.reset();
  }

  // Waits until the backend lists `mime` for `mode`: other programs' offers come asynchronously.
  bool waitForType(std::string const& mime, pf::clipboard::PFClipboardMode mode =
                                                pf::clipboard::PFClipboardMode::clipboard) {
    auto const wanted = fl::i18n::to_ustring(mime);
    auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (std::chrono::steady_clock::now() < end) {
      auto const types = backend->availableMimeTypes(mode);
      if (std::find(types.begin(), types.end(), wanted) != types.end())
        return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return false;
  }

  void write(std::unique_ptr<pf::clipboard::PFClipboardData> data,
             pf::clipboard::PFClipboardMode mode = pf::clipboard::PFClipboardMode::clipboard) {
    backend->write(std::move(data), mode);
  }

  std::shared_ptr<pf::clipboard::PFClipboardBackend> backend;
  std::unique_ptr<test_support::OtherProgram> other;
};

#define CONFORMANCE_NEEDS_OTHER_PROGRAM()                  \
  do {                                                     \
    if (!other)                                            \
      GTEST_SKIP() << "this backend has no other program"; \
  } while (false)

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

TEST_P(BackendConformance, RejectsUnknownModesAndMissingPayloads) {
  using namespace conformance_detail;
  auto const unknown = static_cast<PFClipboardMode>(7);
  EXPECT_THROW(backend->availableMimeTypes(unknown), std::invalid_argument);
  EXPECT_THROW(backend->read(u"text/plain", unknown), std::invalid_argument);
  EXPECT_THROW(write(std::make_unique<PFClipboardData>(), unknown), std::invalid_argument);
  EXPECT_THROW(write(nullptr), std::invalid_argument);
}

namespace conformance_detail {

inline std::string describePixels(test_images::RgbaPixels const& pixels) {
  return "image:" + std::to_string(pixels.width) + "x" + std::to_string(pixels.height) + ":" +
         std::string(pixels.rgba.begin(), pixels.rgba.end());
}

// A content as one comparable string: its kind, then text as UTF-8, paths, pixels or bytes.
inline std::string describe(ClipboardContent const& content) {
  switch (content.index()) {
    case 1:
      return "text:" + fl::i18n::ustring_to_utf8(std::get<1>(content));
    case 2: {
      std::string paths = "paths:";
      for (auto const& path : std::get<2>(content))
        paths += fl::i18n::ustring_to_utf8(path.text()) + "|";
      return paths;
    }
    case 3: {
      auto const png = encodedBytesOf(content);
      return describePixels(pf::graphics::codec::png_decode_rgba(png.data(), png.size()));
    }
    case 4:
      return "bytes:" + stringOf(std::get<4>(content));
    default:
      return "nothing";
  }
}

inline test_images::RgbaPixels const& samplePixels() {
  static auto const pixels = test_images::halves(30, 20, 0x2040C0, 0xE0A010);
  return pixels;
}

inline std::string const kUtf8Text = "caf\xC3\xA9 \xE2\x98\x83 \xF0\x9F\x98\x80 \xE4\xB8\xAD";
inline std::string const kHtml = "<p>caf\xC3\xA9 <b>bold</b> \xF0\x9F\x98\x80</p>";

}  // namespace conformance_detail

// What we write, as another program pastes it: our own types and the ones derived for it.
TEST_P(BackendConformance, TheOtherProgramPastesWhatWeWrote) {
  CONFORMANCE_NEEDS_OTHER_PROGRAM();
  using namespace conformance_detail;
  std::vector<Path> const paths = {Path(u"/tmp/a b"), Path(u"/\u00fc")};
  std::string const uris = "file:///tmp/a%20b\nfile:///%C3%BC";
  auto const png = smallPng();
  struct Case {
    char const* name;
    PFClipboardMode mode;
    std::function<void(PFClipboardData&)> fill;
    char const* mime;
    std::string bytes;
  };
  Case const cases[] = {
      {"text", PFClipboardMode::clipboard,
       [](PFClipboardData& d) { d.addData(u"text/plain", fl::i18n::to_ustring(kUtf8Text)); },
       "text/plain", kUtf8Text},
      {"primary text", PFClipboardMode::selection,
       [](PFClipboardData& d) { d.addData(u"text/plain", std::u16string(u"primary \u00e9")); },
       "text/plain", "primary \xC3\xA9"},
      {"html", PFClipboardMode::clipboard,
       [](PFClipboardData& d) { d.addData(u"text/html", fl::i18n::to_ustring(kHtml)); },
       "text/html", kHtml},
      {"png as written", PFClipboardMode::clipboard,
       [&](PFClipboardData& d) {
         d.addData(u"image/png", std::make_unique<pf::graphics::PFImage>(
                                     pf::graphics::PFImage::Format::png, png));
       },
       "image/png", stringOf(png)},
      {"uri list", PFClipboardMode::clipboard,
       [&](PFClipboardData& d) { d.addData(u"text/uri-list", paths); }, "text/uri-list",
       "file:///tmp/a%20b\r\nfile:///%C3%BC\r\n"},
      {"files cut, gnome's list", PFClipboardMode::clipboard,
       [&](PFClipboardData& d) {
         d.addData(u"text/uri-list", paths);
         d.setClipboardAction(pf::clipboard::PFClipboardAction::cut);
       },
       "x-special/gnome-copied-files", "cut\n" + uris},
      {"files cut, kde's mark", PFClipboardMode::clipboard,
       [&](PFClipboardData& d) {
         d.addData(u"text/uri-list", paths);
         d.setClipboardAction(pf::clipboard::PFClipboardAction::cut);
       },
       "application/x-kde-cutselection", "1"},
      {"bytes", PFClipboardMode::clipboard,
       [](PFClipboardData& d) {
         d.addData(u"application/x-custom", bytesOf(std::string("\x00\x01\xFF raw", 7)));
       },
       "application/x-custom", std::string("\x00\x01\xFF raw", 7)},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.name);
    auto data = std::make_unique<PFClipboardData>();
    c.fill(*data);
    write(std::move(data), c.mode);
    EXPECT_TRUE(other->paste(c.mode, c.mime) == c.bytes);
  }
}

// What another program copied with one type alone, as we list and read it: the type itself and
// what we make of it (paths and the cut mark from a file manager's list, PNG from other images).
TEST_P(BackendConformance, WeReadWhatTheOtherProgramCopied) {
  CONFORMANCE_NEEDS_OTHER_PROGRAM();
  using namespace conformance_detail;
  std::string const uris = "file:///tmp/a%20b\nfile:///home/%C3%BCser/c";
  std::string corruptJpeg = test_images::jpeg(test_images::pattern(64, 64), 90);
  corruptJpeg.resize(corruptJpeg.size() / 2);
  auto const png = smallPng();
  struct Case {
    char const* name;
    PFClipboardMode mode;
    char const* mime;
    std::string bytes;
    // Type read, and what it gives ("error:" and a part of the message when it throws).
    std::vector<std::pair<char const*, std::string>> reads;
  };
  Case const cases[] = {
      {"text",
       PFClipboardMode::clipboard,
       "text/plain",
       kUtf8Text,
       {{"text/plain", "text:" + kUtf8Text}}},
      {"primary text",
       PFClipboardMode::selection,
       "text/plain",
       "from the other",
       {{"text/plain", "text:from the other"}}},
      {"html", PFClipboardMode::clipboard, "text/html", kHtml, {{"text/html", "text:" + kHtml}}},
      {"png",
       PFClipboardMode::clipboard,
       "image/png",
       stringOf(png),
       {{"image/png", describe(ClipboardContent(std::make_shared<pf::graphics::PFImage>(
                          pf::graphics::PFImage::Format::png, png)))}}},
      {"uri list",
       PFClipboardMode::clipboard,
       "text/uri-list",
       "file:///srv/a%20b.txt\r\n# comment\r\nfile:///srv/c\r\n",
       {{"text/uri-list", "paths:/srv/a b.txt|/srv/c|"}}},
      {"files cut, gnome's list",
       PFClipboardMode::clipboard,
       "x-special/gnome-copied-files",
       "cut\n" + uris,
       {{"text/uri-list", "paths:/tmp/a b|/home/\xC3\xBCser/c|"},
        {"application/x-kde-cutselection", "bytes:1"},
        {"x-special/gnome-copied-files", "bytes:cut\n" + uris}}},
      {"files copied, mate's list",
       PFClipboardMode::clipboard,
       "x-special/mate-copied-files",
       "copy\n" + uris + "\n",
       {{"text/uri-list", "paths:/tmp/a b|/home/\xC3\xBCser/c|"},
        {"application/x-kde-cutselection", "nothing"}}},
      {"bmp",
       PFClipboardMode::clipboard,
       "image/bmp",
       test_images::bmp24(samplePixels()),
       {{"image/png", describePixels(samplePixels())}}},
      {"corrupt jpeg",
       PFClipboardMode::clipboard,
       "image/jpeg",
       corruptJpeg,
       {{"image/png", "error:JPEG"}, {"image/jpeg", "bytes:" + corruptJpeg}}},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.name);
    // We own first, so that the other program's offer is seen to replace ours.
    auto placeholder = std::make_unique<PFClipboardData>();
    placeholder->addData(u"application/x-placeholder", bytesOf("p"));
    write(std::move(placeholder), c.mode);
    other->offer(c.mode, c.mime, c.bytes);
    ASSERT_TRUE(waitForType(c.mime, c.mode));
    for (auto const& [mime, expected] : c.reads) {
      SCOPED_TRACE(mime);
      auto const type = fl::i18n::to_ustring(mime);
      if (expected.rfind("error:", 0) == 0) {
        try {
          backend->read(type, c.mode);
          ADD_FAILURE() << "no error";
        } catch (std::runtime_error const& error) {
          EXPECT_NE(std::strstr(error.what(), expected.c_str() + 6), nullptr) << error.what();
        }
        continue;
      }
      if (expected != "nothing") {
        auto const listed = backend->availableMimeTypes(c.mode);
        EXPECT_NE(std::find(listed.begin(), listed.end(), type), listed.end());
      }
      EXPECT_TRUE(describe(backend->read(type, c.mode)) == expected);
    }
  }
}

// Each change of the clipboard, another program's or ours, is one event; the primary selection's
// are none.
TEST_P(BackendConformance, EachClipboardChangeIsOneEventAndThePrimarysNone) {
  CONFORMANCE_NEEDS_OTHER_PROGRAM();
  using namespace conformance_detail;
  test_support::ChangeCounter counter;
  other->offer(PFClipboardMode::clipboard, "text/plain", "one");
  ASSERT_TRUE(counter.waitFor(1, std::chrono::seconds(5)));
  auto data = std::make_unique<PFClipboardData>();
  data->addData(u"text/plain", std::u16string(u"ours"));
  write(std::move(data));
  ASSERT_TRUE(counter.waitFor(2, std::chrono::seconds(5)));
  other->offer(PFClipboardMode::selection, "text/html", "<i>p</i>");
  ASSERT_TRUE(waitForType("text/html", PFClipboardMode::selection));
  write(std::make_unique<PFClipboardData>(), PFClipboardMode::selection);
  // Nothing more may follow: wait as long as an event takes to arrive, with margin.
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_EQ(counter.count(), 2);
}

// An owner that never answers, or dies mid-transfer: an error within the timeouts, never part of
// the data; and the backend goes on reading the next owner.
TEST_P(BackendConformance, AFaultyOwnerGivesAnErrorAndTheNextReadWorks) {
  CONFORMANCE_NEEDS_OTHER_PROGRAM();
  using namespace conformance_detail;
  using Fault = test_support::OtherProgram::Fault;
  for (auto const& [fault, message] :
       {std::make_pair(Fault::stalls, ""), std::make_pair(Fault::dies, "went away")}) {
    SCOPED_TRACE(message);
    if (!other->offerFaulty("application/x-big", fault))
      continue;
    try {
      // Listing may already ask the owner.
      ASSERT_TRUE(waitForType("application/x-big"));
      auto const content = backend->read(u"application/x-big", PFClipboardMode::clipboard);
      ADD_FAILURE() << "the read returned " << conformance_detail::describe(content).size()
                    << " bytes";
    } catch (std::runtime_error const& error) {
      EXPECT_NE(std::strstr(error.what(), message), nullptr) << error.what();
    }
    other->offer(PFClipboardMode::clipboard, "text/plain", "after");
    ASSERT_TRUE(waitForType("text/plain"));
    EXPECT_EQ(
        conformance_detail::describe(backend->read(u"text/plain", PFClipboardMode::clipboard)),
        "text:after");
  }
}
