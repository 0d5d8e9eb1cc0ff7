// The backend against real X11 programs: xclip and xsel own, we read; we own, xclip reads.
#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <map>
#include <mutex>
#include <sstream>

#include "clipboard/clipboard_impl.hpp"
#include "platform/codec/base64.hpp"
#include "platform/i18n.hpp"
#include "x11_fixture.hpp"

namespace {

using namespace x11_test;
using pf::clipboard::ClipboardContent;
using pf::clipboard::Path;
using pf::clipboard::PFClipboardAction;
using pf::clipboard::PFClipboardData;
using pf::clipboard::PFClipboardMode;
using pf::clipboard::PFX11Clipboard;

// --- Reading what other programs put on the selections -------------------------------------

enum class Tool { xclip, xsel };

struct PeerReadCase {
  char const* name;
  Tool tool;
  PFClipboardMode mode;
  char const* type;  // xclip -t; empty for plain text
  std::string contents;
  char const* mime;  // what we read and expect to be listed
};

std::string const kPng = samplePng();
std::vector<Path> const kUriPaths = {Path(u"/tmp/a b/c.txt"), Path(u"/home/\u00fcser/\U0001F4C1")};

class ReadFromPeer : public X11Test, public ::testing::WithParamInterface<PeerReadCase> {
 protected:
  void SetUp() override {
    X11Test::SetUp();
    auto const& c = GetParam();
    if (c.tool == Tool::xclip) {
      xclipOwner(c.mode, c.type, c.contents);
    } else {
      xselOwner(c.mode, c.contents);
    }
  }

  // What the read must return for the case's bytes.
  static ClipboardContent expected(PeerReadCase const& c) {
    std::string const mime = c.mime;
    if (mime == "text/plain")
      return fl::i18n::to_ustring(c.contents);
    if (mime == "text/uri-list")
      return kUriPaths;
    return {};
  }
};

TEST_P(ReadFromPeer, ReadsExactlyWhatThePeerHolds) {
  auto const& c = GetParam();
  auto backend = pf::clipboard::makeX11Clipboard(options());
  EXPECT_EQ(backend->availableMimeTypes(c.mode),
            std::vector<std::u16string>{fl::i18n::to_ustring(c.mime)});
  auto const content = backend->read(fl::i18n::to_ustring(c.mime), c.mode);
  if (std::string(c.mime) == "image/png") {
    ASSERT_EQ(content.index(), 3u);
    auto const& image = std::get<3>(content);
    EXPECT_EQ(
        stringOf(image->encode(pf::graphics::kEncodePng, pf::graphics::kEncodeRaw, {})->bytes),
        c.contents);
  } else {
    EXPECT_EQ(content, expected(c));
  }
  EXPECT_FALSE(backend->ownsSelection(c.mode));
}

TEST_P(ReadFromPeer, ReadsThroughTheServiceWithTheBackendInstalled) {
  auto const& c = GetParam();
  auto previous =
      pf::clipboard::installClipboardBackend(pf::clipboard::makeX11Clipboard(options()));
  foundation::json::Value got;
  {
    EditorServices::ClipboardImpl service;
    auto const data = service.getClipboardData({foundation::json::Value(c.mime)}, c.mode);
    ASSERT_EQ(data.count(c.mime), 1u);
    got = data.at(c.mime);
  }
  pf::clipboard::installClipboardBackend(previous);
  std::string const mime = c.mime;
  if (mime == "text/plain") {
    EXPECT_EQ(got, foundation::json::Value(c.contents));
  } else if (mime == "image/png") {
    EXPECT_EQ(got,
              foundation::json::Value("data:image/png;base64," +
                                      pf::graphics::codec::base64_encode(bytesOf(c.contents))));
  } else {
    foundation::json::Array paths;
    auto const want = expected(c);
    for (auto const& path : std::get<2>(want)) {
      paths.emplace_back(fl::i18n::ustring_to_utf8(path.text()));
    }
    EXPECT_EQ(got, foundation::json::Value(paths));
  }
}

std::string const kAscii = "plain ascii text";
std::string const kNonBmp = "caf\xC3\xA9 \xE2\x98\x83 \xF0\x9F\x98\x80 \xF0\x9D\x84\x9E";
std::string const kUris = "file:///tmp/a%20b/c.txt\r\nfile:///home/%C3%BCser/%F0%9F%93%81\r\n";

INSTANTIATE_TEST_SUITE_P(
    Peers, ReadFromPeer,
    ::testing::Values(PeerReadCase{"xclip_clipboard_ascii", Tool::xclip, PFClipboardMode::clipboard,
                                   "", kAscii, "text/plain"},
                      PeerReadCase{"xclip_primary_ascii", Tool::xclip, PFClipboardMode::selection,
                                   "", kAscii, "text/plain"},
                      PeerReadCase{"xclip_clipboard_non_bmp", Tool::xclip,
                                   PFClipboardMode::clipboard, "", kNonBmp, "text/plain"},
                      PeerReadCase{"xclip_primary_non_bmp", Tool::xclip, PFClipboardMode::selection,
                                   "", kNonBmp, "text/plain"},
                      PeerReadCase{"xsel_clipboard_ascii", Tool::xsel, PFClipboardMode::clipboard,
                                   "", kAscii, "text/plain"},
                      PeerReadCase{"xsel_primary_ascii", Tool::xsel, PFClipboardMode::selection, "",
                                   kAscii, "text/plain"},
                      PeerReadCase{"xsel_clipboard_non_bmp", Tool::xsel, PFClipboardMode::clipboard,
                                   "", kNonBmp, "text/plain"},
                      PeerReadCase{"xsel_primary_non_bmp", Tool::xsel, PFClipboardMode::selection,
                                   "", kNonBmp, "text/plain"},
                      PeerReadCase{"xclip_clipboard_uri_list", Tool::xclip,
                                   PFClipboardMode::clipboard, "text/uri-list", kUris,
                                   "text/uri-list"},
                      PeerReadCase{"xclip_primary_uri_list", Tool::xclip,
                                   PFClipboardMode::selection, "text/uri-list", kUris,
                                   "text/uri-list"},
                      PeerReadCase{"xclip_clipboard_png", Tool::xclip, PFClipboardMode::clipboard,
                                   "image/png", kPng, "image/png"},
                      PeerReadCase{"xclip_primary_png", Tool::xclip, PFClipboardMode::selection,
                                   "image/png", kPng, "image/png"}),
    [](auto const& info) { return std::string(info.param.name); });

// --- HTML as a browser offers it -----------------------------------------------------------

std::u16string const kHtml = u"<p>caf\u00e9 \u2603 \U0001F600</p>";

std::string utf16Le(std::u16string const& text) {
  std::string out;
  for (char16_t const c : text) {
    out.push_back(static_cast<char>(c & 0xFF));
    out.push_back(static_cast<char>(c >> 8));
  }
  return out;
}

struct HtmlCase {
  char const* name;
  std::string bytes;  // what xclip offers as text/html
};

class HtmlFromXclip : public X11Test, public ::testing::WithParamInterface<HtmlCase> {};

TEST_P(HtmlFromXclip, IsReadAsTextAndReachesTheService) {
  xclipOwner(PFClipboardMode::clipboard, "text/html", GetParam().bytes);
  auto backend = pf::clipboard::makeX11Clipboard(options());
  EXPECT_EQ(backend->availableMimeTypes(PFClipboardMode::clipboard),
            std::vector<std::u16string>{u"text/html"});
  EXPECT_EQ(backend->read(u"text/html", PFClipboardMode::clipboard), ClipboardContent(kHtml));
  // xclip answers every target with its markup; that is still no plain text.
  EXPECT_EQ(backend->read(u"text/plain", PFClipboardMode::clipboard).index(), 0u);

  auto previous = pf::clipboard::installClipboardBackend(backend);
  std::map<std::string, foundation::json::Value> data;
  {
    EditorServices::ClipboardImpl service;
    data = service.getClipboardData({foundation::json::Value("text/html")},
                                    PFClipboardMode::clipboard);
  }
  pf::clipboard::installClipboardBackend(previous);
  ASSERT_EQ(data.count("text/html"), 1u);
  EXPECT_EQ(data.at("text/html"), foundation::json::Value(fl::i18n::ustring_to_utf8(kHtml)));
}

INSTANTIATE_TEST_SUITE_P(
    Encodings, HtmlFromXclip,
    ::testing::Values(HtmlCase{"utf8", fl::i18n::ustring_to_utf8(kHtml)},
                      HtmlCase{"utf8_with_bom", "\xEF\xBB\xBF" + fl::i18n::ustring_to_utf8(kHtml)},
                      HtmlCase{"utf16le_with_bom", "\xFF\xFE" + utf16Le(kHtml)}),
    [](auto const& info) { return std::string(info.param.name); });

TEST_F(X11Test, AServiceSubscriptionHearsOfAnotherProgramsCopy) {
  auto previous =
      pf::clipboard::installClipboardBackend(pf::clipboard::makeX11Clipboard(options()));
  std::mutex mutex;
  std::condition_variable arrived;
  std::vector<std::string> notifications;
  {
    EditorServices::ClipboardImpl service;
    auto const reply = service.handleRequestForClipboardChangeSubscription(
        {{"requestid", foundation::json::Value("sub")}}, [&](std::string text) {
          std::lock_guard<std::mutex> lock(mutex);
          notifications.push_back(std::move(text));
          arrived.notify_all();
        });
    EXPECT_EQ(reply.at("success"), foundation::json::Value("true"));
    xclipOwner(PFClipboardMode::clipboard, "text/html", "<i>copied</i>");
    std::unique_lock<std::mutex> lock(mutex);
    // The listener lists the clipboard through the backend from the notification itself.
    EXPECT_TRUE(arrived.wait_for(lock, 10s, [&] {
      return std::any_of(notifications.begin(), notifications.end(), [](std::string const& n) {
        return n.find("text/html") != std::string::npos;
      });
    }));
  }
  pf::clipboard::installClipboardBackend(previous);
}

// --- What xclip gets from us ---------------------------------------------------------------

std::string const kSvg = R"(<svg xmlns="http://www.w3.org/2000/svg" width="2" height="2"/>)";

std::unique_ptr<PFClipboardData> textPayload() {
  auto data = std::make_unique<PFClipboardData>();
  data->addData(u"text/plain", std::u16string(u"caf\u00e9 \u2603 \U0001F600"));
  return data;
}

std::unique_ptr<PFClipboardData> filePayload(PFClipboardAction action) {
  auto data = std::make_unique<PFClipboardData>();
  data->addData(u"text/uri-list", std::vector<Path>{Path(u"/tmp/a b"), Path(u"/\u00fc")});
  data->setClipboardAction(action);
  return data;
}

std::unique_ptr<PFClipboardData> imagePayload() {
  auto data = std::make_unique<PFClipboardData>();
  data->addData(u"image/png", std::make_unique<pf::graphics::PFImage>(
                                  pf::graphics::PFImage::Format::png, bytesOf(kPng)));
  return data;
}

std::unique_ptr<PFClipboardData> svgPayload() {
  auto data = std::make_unique<PFClipboardData>();
  data->addData(u"image/svg", std::make_unique<pf::graphics::PFImage>(
                                  pf::graphics::PFImage::Format::svg, bytesOf(kSvg)));
  return data;
}

std::unique_ptr<PFClipboardData> htmlPayload(std::u16string const& mime) {
  auto data = std::make_unique<PFClipboardData>();
  data->addData(mime, kHtml);
  return data;
}

std::unique_ptr<PFClipboardData> bytesPayload() {
  auto data = std::make_unique<PFClipboardData>();
  data->addData(u"application/x-custom", bytesOf(std::string("\x00\x01\xFF raw", 7)));
  return data;
}

struct WriteCase {
  char const* name;
  std::function<std::unique_ptr<PFClipboardData>()> payload;
  PFClipboardMode mode;
  char const* target;
  std::string bytes;
};

class WriteForXclip : public X11Test, public ::testing::WithParamInterface<WriteCase> {};

TEST_P(WriteForXclip, XclipReadsEveryFormatByteForByte) {
  auto const& c = GetParam();
  auto backend = pf::clipboard::makeX11Clipboard(options());
  backend->write(c.payload(), c.mode);
  EXPECT_TRUE(backend->ownsSelection(c.mode));
  auto const got = xclipRead(c.mode, c.target);
  EXPECT_EQ(got.status, 0);
  EXPECT_EQ(got.output, c.bytes);
}

std::string const kUtf8 = "caf\xC3\xA9 \xE2\x98\x83 \xF0\x9F\x98\x80";
std::string const kFileUris = "file:///tmp/a%20b\r\nfile:///%C3%BC\r\n";

INSTANTIATE_TEST_SUITE_P(
    Formats, WriteForXclip,
    ::testing::Values(
        WriteCase{"utf8_string", textPayload, PFClipboardMode::clipboard, "UTF8_STRING", kUtf8},
        WriteCase{"text_plain_utf8", textPayload, PFClipboardMode::clipboard,
                  "text/plain;charset=utf-8", kUtf8},
        WriteCase{"text_plain", textPayload, PFClipboardMode::clipboard, "text/plain", kUtf8},
        WriteCase{"string_latin1", textPayload, PFClipboardMode::clipboard, "STRING",
                  "caf\xE9 ? ?"},
        WriteCase{"text", textPayload, PFClipboardMode::clipboard, "TEXT", kUtf8},
        WriteCase{"primary_utf8_string", textPayload, PFClipboardMode::selection, "UTF8_STRING",
                  kUtf8},
        WriteCase{"uri_list", [] { return filePayload(PFClipboardAction::copy); },
                  PFClipboardMode::clipboard, "text/uri-list", kFileUris},
        WriteCase{"gnome_copy", [] { return filePayload(PFClipboardAction::copy); },
                  PFClipboardMode::clipboard, "x-special/gnome-copied-files",
                  "copy\nfile:///tmp/a%20b\nfile:///%C3%BC"},
        WriteCase{"gnome_cut", [] { return filePayload(PFClipboardAction::cut); },
                  PFClipboardMode::clipboard, "x-special/gnome-copied-files",
                  "cut\nfile:///tmp/a%20b\nfile:///%C3%BC"},
        WriteCase{"kde_cut", [] { return filePayload(PFClipboardAction::cut); },
                  PFClipboardMode::clipboard, "application/x-kde-cutselection", "1"},
        WriteCase{"primary_uri_list", [] { return filePayload(PFClipboardAction::copy); },
                  PFClipboardMode::selection, "text/uri-list", kFileUris},
        WriteCase{"png", imagePayload, PFClipboardMode::clipboard, "image/png", kPng},
        WriteCase{"svg", svgPayload, PFClipboardMode::clipboard, "image/svg+xml", kSvg},
        WriteCase{"bytes", bytesPayload, PFClipboardMode::clipboard, "application/x-custom",
                  std::string("\x00\x01\xFF raw", 7)},
        WriteCase{"html_as_utf8", [] { return htmlPayload(u"text/html"); },
                  PFClipboardMode::clipboard, "text/html", fl::i18n::ustring_to_utf8(kHtml)},
        WriteCase{"html_in_its_charset", [] { return htmlPayload(u"text/html;charset=utf-16"); },
                  PFClipboardMode::clipboard, "text/html;charset=utf-16",
                  "\xFF\xFE" + utf16Le(kHtml)}),
    [](auto const& info) { return std::string(info.param.name); });

struct TargetsCase {
  char const* name;
  std::function<std::unique_ptr<PFClipboardData>()> payload;
  std::vector<std::string> targets;
};

class AdvertisedTargets : public X11Test, public ::testing::WithParamInterface<TargetsCase> {};

TEST_P(AdvertisedTargets, AreExactlyWhatWeCanProduce) {
  auto const& c = GetParam();
  auto backend = pf::clipboard::makeX11Clipboard(options());
  backend->write(c.payload(), PFClipboardMode::clipboard);
  auto const got = xclipRead(PFClipboardMode::clipboard, "TARGETS");
  ASSERT_EQ(got.status, 0);
  std::vector<std::string> lines;
  std::istringstream in(got.output);
  for (std::string line; std::getline(in, line);)
    lines.push_back(line);
  std::vector<std::string> want = {"TARGETS", "TIMESTAMP", "MULTIPLE", "SAVE_TARGETS"};
  want.insert(want.end(), c.targets.begin(), c.targets.end());
  EXPECT_EQ(lines, want);
}

INSTANTIATE_TEST_SUITE_P(
    Payloads, AdvertisedTargets,
    ::testing::Values(TargetsCase{"text",
                                  textPayload,
                                  {"UTF8_STRING", "text/plain;charset=utf-8", "text/plain",
                                   "STRING", "TEXT"}},
                      TargetsCase{"files_copied",
                                  [] { return filePayload(PFClipboardAction::copy); },
                                  {"text/uri-list", "x-special/gnome-copied-files"}},
                      TargetsCase{"files_cut",
                                  [] { return filePayload(PFClipboardAction::cut); },
                                  {"text/uri-list", "x-special/gnome-copied-files",
                                   "application/x-kde-cutselection"}},
                      TargetsCase{"png", imagePayload, {"image/png"}},
                      TargetsCase{"svg", svgPayload, {"image/svg+xml"}},
                      TargetsCase{"bytes", bytesPayload, {"application/x-custom"}},
                      TargetsCase{"html", [] { return htmlPayload(u"text/html"); }, {"text/html"}},
                      TargetsCase{"empty", [] { return std::make_unique<PFClipboardData>(); }, {}}),
    [](auto const& info) { return std::string(info.param.name); });

// --- Large transfers (INCR) ----------------------------------------------------------------

std::string largeText(std::size_t size) {
  std::string text;
  text.reserve(size + 8);
  for (std::size_t i = 0; text.size() < size; ++i) {
    text += static_cast<char>('a' + i % 26);
    if (i % 4096 == 0)
      text += "\xC3\xA9\xF0\x9F\x98\x80";
  }
  return text;
}

TEST_F(X11Test, SixtyFourMegabytesFromXclipArriveWhole) {
  std::string const text = largeText(64u << 20);
  xclipOwner(PFClipboardMode::clipboard, "", text);
  auto backend = pf::clipboard::makeX11Clipboard(options());
  auto const content = backend->read(u"text/plain", PFClipboardMode::clipboard);
  ASSERT_EQ(content.index(), 1u);
  EXPECT_TRUE(fl::i18n::ustring_to_utf8(std::get<1>(content)) == text);
}

TEST_F(X11Test, SixtyFourMegabytesFromUsArriveWholeAtXclip) {
  std::string const text = largeText(64u << 20);
  auto backend = pf::clipboard::makeX11Clipboard(options());
  auto data = std::make_unique<PFClipboardData>();
  data->addData(u"text/plain", fl::i18n::to_ustring(text));
  backend->write(std::move(data), PFClipboardMode::clipboard);
  ASSERT_GT(text.size(), backend->incrThreshold());
  auto const got = xclipRead(PFClipboardMode::clipboard, "UTF8_STRING");
  EXPECT_EQ(got.status, 0);
  EXPECT_EQ(got.output.size(), text.size());
  EXPECT_TRUE(got.output == text);
}

TEST_F(X11Test, XselReadsALargeSelectionOfOursByIncr) {
  std::string const text = largeText(3u << 20);
  auto o = options();
  o.incrThresholdBytes = 256 << 10;
  auto backend = pf::clipboard::makeX11Clipboard(o);
  auto data = std::make_unique<PFClipboardData>();
  data->addData(u"text/plain", fl::i18n::to_ustring(text));
  backend->write(std::move(data), PFClipboardMode::clipboard);
  auto const got = run({"xsel", "-b", "-o"});
  EXPECT_EQ(got.status, 0);
  EXPECT_TRUE(got.output == text);
}

}  // namespace
