// What the backend lists and reads beyond the types an owner offers itself (a file manager's own
// list as paths and the KDE cut mark, other image formats as PNG): on the test compositor with
// wayland_peer as an owner of one type alone, and on sway with wl-copy.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <thread>

#include "platform/codec/png.hpp"
#include "platform/graphics.hpp"
#include "platform/i18n.hpp"
#include "support/image_samples.hpp"
#include "wayland_test_support.hpp"

namespace {

using namespace wayland_test;
using pf::clipboard::ClipboardContent;
using pf::clipboard::Path;
using pf::clipboard::PFClipboardMode;
using pf::clipboard::PFWaylandClipboard;
using Types = std::vector<std::u16string>;

std::vector<std::byte> const kCutMark = {std::byte{'1'}};

// The listing as soon as the owner's offer is seen (it is taken asynchronously).
Types listingOnce(PFWaylandClipboard& reader, std::u16string const& ownType) {
  auto const end = std::chrono::steady_clock::now() + 10s;
  while (std::chrono::steady_clock::now() < end) {
    auto const types = reader.availableMimeTypes(PFClipboardMode::clipboard);
    if (std::find(types.begin(), types.end(), ownType) != types.end())
      return types;
    std::this_thread::sleep_for(5ms);
  }
  return {};
}

bool lists(Types const& types, std::u16string const& mime) {
  return std::find(types.begin(), types.end(), mime) != types.end();
}

pf::graphics::codec::RgbaPixels pixelsOf(ClipboardContent const& content) {
  auto const png = std::get<3>(content)->encode(pf::graphics::kEncodePng, 0, {});
  return pf::graphics::codec::png_decode_rgba(png->bytes.data(), png->bytes.size());
}

// An owner offering one type alone; what we list and what each read gives.
struct DerivedCase {
  char const* name;
  char const* type;
  std::function<std::string()> bytes;
  Types listedBeside;  // besides `type`
  Types notListed;
  std::function<void(PFWaylandClipboard&)> check;
};

void PrintTo(DerivedCase const& c, std::ostream* os) {
  *os << c.name;
}

std::vector<Path> const kPaths = {Path(u"/tmp/a b"), Path(u"/home/\u00fcser/c")};
std::string const kUris = "file:///tmp/a%20b\nfile:///home/%C3%BCser/c";

test_images::RgbaPixels const& sample() {
  static auto const pixels = test_images::halves(30, 20, 0x2040C0, 0xE0A010);
  return pixels;
}

void expectPaths(PFWaylandClipboard& reader) {
  EXPECT_EQ(reader.read(u"text/uri-list", PFClipboardMode::clipboard), ClipboardContent(kPaths));
}

void expectSamplePng(PFWaylandClipboard& reader, int tolerance) {
  auto const content = reader.read(u"image/png", PFClipboardMode::clipboard);
  ASSERT_EQ(content.index(), 3u);
  auto const pixels = pixelsOf(content);
  ASSERT_EQ(pixels.width, 30u);
  ASSERT_EQ(pixels.height, 20u);
  int worst = 0;
  for (std::size_t i = 0; i < pixels.rgba.size(); ++i)
    worst = std::max(worst, std::abs(int(pixels.rgba[i]) - int(sample().rgba[i])));
  EXPECT_LE(worst, tolerance);
}

class DerivedOnTestCompositor : public ::testing::TestWithParam<DerivedCase> {};

TEST_P(DerivedOnTestCompositor, IsListedAndRead) {
  auto const& c = GetParam();
  TestCompositor compositor({"--ext"});
  TempDir dir;
  Process owner({peerProgram(), "ext", "serve=" + dir.file("owned", c.bytes()), c.type},
                {compositor.waylandDisplayEnv()}, {});
  auto reader = pf::clipboard::makeWaylandClipboard(options(compositor));
  auto const types = listingOnce(*reader, fl::i18n::to_ustring(c.type));
  ASSERT_FALSE(types.empty()) << "the owner's offer never came";
  for (auto const& mime : c.listedBeside)
    EXPECT_TRUE(lists(types, mime)) << fl::i18n::ustring_to_utf8(mime);
  for (auto const& mime : c.notListed)
    EXPECT_FALSE(lists(types, mime)) << fl::i18n::ustring_to_utf8(mime);
  c.check(*reader);
  // The owner's own type still reads as it came.
  EXPECT_EQ(reader->read(fl::i18n::to_ustring(c.type), PFClipboardMode::clipboard),
            ClipboardContent(bytesOf(c.bytes())));
}

INSTANTIATE_TEST_SUITE_P(
    Owners, DerivedOnTestCompositor,
    ::testing::Values(
        DerivedCase{"CutFiles", "x-special/gnome-copied-files", [] { return "cut\n" + kUris; },
                    Types{u"text/uri-list", u"application/x-kde-cutselection"}, Types{},
                    [](PFWaylandClipboard& r) {
                      expectPaths(r);
                      EXPECT_EQ(
                          r.read(u"application/x-kde-cutselection", PFClipboardMode::clipboard),
                          ClipboardContent(kCutMark));
                    }},
        DerivedCase{"CopiedFiles", "x-special/mate-copied-files",
                    [] { return "copy\n" + kUris + "\n"; }, Types{u"text/uri-list"},
                    Types{u"application/x-kde-cutselection"}, expectPaths},
        DerivedCase{"NotAFileList", "x-special/gnome-copied-files",
                    [] { return std::string("paste\n") + kUris; }, Types{},
                    Types{u"application/x-kde-cutselection"},
                    [](PFWaylandClipboard& r) {
                      EXPECT_EQ(r.read(u"text/uri-list", PFClipboardMode::clipboard),
                                ClipboardContent{});
                    }},
        DerivedCase{"Jpeg", "image/jpeg", [] { return test_images::jpeg(sample(), 95); },
                    Types{u"image/png"}, Types{},
                    [](PFWaylandClipboard& r) { expectSamplePng(r, 16); }},
        DerivedCase{"Bmp", "image/bmp", [] { return test_images::bmp24(sample()); },
                    Types{u"image/png"}, Types{},
                    [](PFWaylandClipboard& r) { expectSamplePng(r, 0); }},
        DerivedCase{"Gif", "image/gif", [] { return test_images::gif({sample()}); },
                    Types{u"image/png"}, Types{},
                    [](PFWaylandClipboard& r) { expectSamplePng(r, 0); }},
        DerivedCase{"CorruptJpeg", "image/jpeg",
                    [] {
                      auto jpeg = test_images::jpeg(test_images::pattern(64, 64), 90);
                      jpeg.resize(jpeg.size() / 2);
                      return jpeg;
                    },
                    Types{u"image/png"}, Types{},
                    [](PFWaylandClipboard& r) {
                      try {
                        r.read(u"image/png", PFClipboardMode::clipboard);
                        ADD_FAILURE() << "no error";
                      } catch (std::runtime_error const& error) {
                        EXPECT_NE(std::strstr(error.what(), "JPEG"), nullptr) << error.what();
                      }
                    }}),
    [](auto const& info) { return std::string(info.param.name); });

// A file manager's list copied with wl-copy under its own type alone, on sway.
TEST(DerivedOnSway, CutFilesCopiedAsGnomeListAreListedAndReadAsPaths) {
  std::unique_ptr<Sway> sway;
  try {
    sway = std::make_unique<Sway>();
  } catch (SwayUnavailable const& e) {
    GTEST_SKIP() << e.what();
  }
  TempDir dir;
  Process copy({"wl-copy", "--foreground", "--type", "x-special/gnome-copied-files"},
               {sway->waylandDisplayEnv()}, Process::Io{dir.file("list", "cut\n" + kUris)});
  auto reader = pf::clipboard::makeWaylandClipboard(options(*sway));
  auto const types = listingOnce(*reader, u"x-special/gnome-copied-files");
  ASSERT_FALSE(types.empty()) << "wl-copy's offer never came";
  EXPECT_TRUE(lists(types, u"text/uri-list"));
  EXPECT_TRUE(lists(types, u"application/x-kde-cutselection"));
  expectPaths(*reader);
  EXPECT_EQ(reader->read(u"application/x-kde-cutselection", PFClipboardMode::clipboard),
            ClipboardContent(kCutMark));
}

}  // namespace
