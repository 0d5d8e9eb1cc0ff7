// The backend against real X11 programs beyond the conformance cases: xsel as owner and reader,
// HTML in a browser's encodings, every target we advertise as xclip reads it, and INCR.
#include <gtest/gtest.h>

#include <functional>
#include <sstream>

#include "platform/i18n.hpp"
#include "x11_fixture.hpp"

namespace {

using namespace x11_test;
using pf::clipboard::ClipboardContent;
using pf::clipboard::Path;
using pf::clipboard::PFClipboardAction;
using pf::clipboard::PFClipboardData;
using pf::clipboard::PFClipboardMode;

TEST_F(X11Test, XselsPrimarySelectionIsRead) {
  std::string const text = "caf\xC3\xA9 \xE2\x98\x83 \xF0\x9F\x98\x80 \xF0\x9D\x84\x9E";
  xselOwner(PFClipboardMode::selection, text);
  auto backend = pf::clipboard::makeX11Clipboard(options());
  EXPECT_EQ(backend->availableMimeTypes(PFClipboardMode::selection),
            std::vector<std::u16string>{u"text/plain"});
  EXPECT_EQ(backend->read(u"text/plain", PFClipboardMode::selection),
            ClipboardContent(fl::i18n::to_ustring(text)));
  EXPECT_FALSE(backend->ownsSelection(PFClipboardMode::selection));
}

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

TEST_P(HtmlFromXclip, IsReadAsText) {
  xclipOwner(PFClipboardMode::clipboard, "text/html", GetParam().bytes);
  auto backend = pf::clipboard::makeX11Clipboard(options());
  EXPECT_EQ(backend->read(u"text/html", PFClipboardMode::clipboard), ClipboardContent(kHtml));
  // xclip answers every target with its markup; that is still no plain text.
  EXPECT_EQ(backend->read(u"text/plain", PFClipboardMode::clipboard).index(), 0u);
}

INSTANTIATE_TEST_SUITE_P(
    Encodings, HtmlFromXclip,
    ::testing::Values(HtmlCase{"utf8_with_bom", "\xEF\xBB\xBF" + fl::i18n::ustring_to_utf8(kHtml)},
                      HtmlCase{"utf16le_with_bom", "\xFF\xFE" + utf16Le(kHtml)}),
    [](auto const& info) { return std::string(info.param.name); });

// --- What xclip gets from us ---------------------------------------------------------------

std::string const kPng = samplePng();
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

// Each payload: the targets we advertise after the four of our own, in order, and the bytes xclip
// reads from each.
struct TargetsCase {
  char const* name;
  std::function<std::unique_ptr<PFClipboardData>()> payload;
  std::vector<std::pair<std::string, std::string>> targets;
};

class AdvertisedTargets : public X11Test, public ::testing::WithParamInterface<TargetsCase> {};

TEST_P(AdvertisedTargets, AreExactlyWhatXclipReads) {
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
  for (auto const& [target, bytes] : c.targets) {
    want.push_back(target);
    auto const read = xclipRead(PFClipboardMode::clipboard, target);
    EXPECT_EQ(read.status, 0) << target;
    EXPECT_EQ(read.output, bytes) << target;
  }
  EXPECT_EQ(lines, want);
}

std::string const kUtf8 = "caf\xC3\xA9 \xE2\x98\x83 \xF0\x9F\x98\x80";
std::string const kFileUris = "file:///tmp/a%20b\r\nfile:///%C3%BC\r\n";
std::string const kGnomeList = "\nfile:///tmp/a%20b\nfile:///%C3%BC";

INSTANTIATE_TEST_SUITE_P(
    Payloads, AdvertisedTargets,
    ::testing::Values(TargetsCase{"text",
                                  textPayload,
                                  {{"UTF8_STRING", kUtf8},
                                   {"text/plain;charset=utf-8", kUtf8},
                                   {"text/plain", kUtf8},
                                   {"STRING", "caf\xE9 ? ?"},
                                   {"TEXT", kUtf8}}},
                      TargetsCase{"files_copied",
                                  [] { return filePayload(PFClipboardAction::copy); },
                                  {{"text/uri-list", kFileUris},
                                   {"x-special/gnome-copied-files", "copy" + kGnomeList}}},
                      TargetsCase{"files_cut",
                                  [] { return filePayload(PFClipboardAction::cut); },
                                  {{"text/uri-list", kFileUris},
                                   {"x-special/gnome-copied-files", "cut" + kGnomeList},
                                   {"application/x-kde-cutselection", "1"}}},
                      TargetsCase{"png", imagePayload, {{"image/png", kPng}}},
                      TargetsCase{"svg", svgPayload, {{"image/svg+xml", kSvg}}},
                      TargetsCase{"bytes",
                                  bytesPayload,
                                  {{"application/x-custom", std::string("\x00\x01\xFF raw", 7)}}},
                      TargetsCase{"html",
                                  [] { return htmlPayload(u"text/html"); },
                                  {{"text/html", fl::i18n::ustring_to_utf8(kHtml)}}},
                      TargetsCase{"html_in_its_charset",
                                  [] { return htmlPayload(u"text/html;charset=utf-16"); },
                                  {{"text/html;charset=utf-16", "\xFF\xFE" + utf16Le(kHtml)}}},
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

// The one exact 64 MiB transfer over X11: xclip's INCR; ours is read by xsel below and by a
// second backend in the robustness cases.
TEST_F(X11Test, SixtyFourMegabytesFromXclipArriveWhole) {
  std::string const text = largeText(64u << 20);
  xclipOwner(PFClipboardMode::clipboard, "", text);
  auto backend = pf::clipboard::makeX11Clipboard(options());
  auto const content = backend->read(u"text/plain", PFClipboardMode::clipboard);
  ASSERT_EQ(content.index(), 1u);
  EXPECT_TRUE(fl::i18n::ustring_to_utf8(std::get<1>(content)) == text);
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
