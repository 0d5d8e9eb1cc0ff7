// What a reader lists and reads beyond an owner's own types, and the secret mark.
#include <gtest/gtest.h>

#include <cstring>

#include "platform/codec/png.hpp"
#include "platform/formats/derived_formats.hpp"
#include "support/image_samples.hpp"

namespace {

using namespace pf::clipboard::formats;
using pf::clipboard::ClipboardContent;
using pf::clipboard::Path;
using pf::clipboard::PFClipboardAction;
using Types = std::vector<std::string>;

TEST(CopiedFiles, DecodesTheActionAndTheUris) {
  struct Case {
    std::string bytes;
    std::optional<PFClipboardAction> action;
    std::vector<Path> paths;
  };
  for (auto const& c : {
           Case{"cut\nfile:///home/user/a%20b.txt",
                PFClipboardAction::cut,
                {Path(u"/home/user/a b.txt")}},
           Case{"copy\nfile:///x\nfile:///y%C3%BC\n",
                PFClipboardAction::copy,
                {Path(u"/x"), Path(u"/y\u00fc")}},
           Case{"copy\r\nfile:///x\r\n", PFClipboardAction::copy, {Path(u"/x")}},
           Case{"CUT", PFClipboardAction::cut, {}},
           Case{std::string("cut\0", 4), PFClipboardAction::cut, {}},
           Case{"copy \nfile:///x", PFClipboardAction::copy, {Path(u"/x")}},
           Case{std::string("copy\nfile:///z\0", 16), PFClipboardAction::copy, {Path(u"/z")}},
           Case{"move\nfile:///x", std::nullopt, {}},
           Case{"file:///x", std::nullopt, {}},
           Case{"", std::nullopt, {}},
       }) {
    auto const files = decodeCopiedFiles(c.bytes);
    ASSERT_EQ(files.has_value(), c.action.has_value()) << c.bytes;
    if (files) {
      EXPECT_EQ(files->action, *c.action) << c.bytes;
      EXPECT_EQ(files->paths, c.paths) << c.bytes;
    }
  }
  EXPECT_TRUE(isCutMark("1"));
  EXPECT_TRUE(isCutMark("1\n"));
  EXPECT_FALSE(isCutMark("0"));
  EXPECT_FALSE(isCutMark("10"));
  EXPECT_FALSE(isCutMark(""));
}

struct ListingCase {
  char const* name;
  Types offered;
  bool cut;
  Types listed;
};

class Listing : public ::testing::TestWithParam<ListingCase> {};

TEST_P(Listing, AddsWhatCanBeMadeFromTheOwnersTypes) {
  EXPECT_EQ(listedTypes(GetParam().offered, GetParam().cut), GetParam().listed);
}

INSTANTIATE_TEST_SUITE_P(
    Owners, Listing,
    ::testing::Values(
        ListingCase{"gnome_copy",
                    {"x-special/gnome-copied-files"},
                    false,
                    {"text/uri-list", "x-special/gnome-copied-files"}},
        ListingCase{"gnome_cut",
                    {"text/plain", "x-special/gnome-copied-files"},
                    true,
                    {"text/plain", "text/uri-list", "x-special/gnome-copied-files",
                     "application/x-kde-cutselection"}},
        ListingCase{"mate",
                    {"x-special/mate-copied-files"},
                    false,
                    {"text/uri-list", "x-special/mate-copied-files"}},
        ListingCase{"uri_list_already_there",
                    {"text/uri-list", "x-special/gnome-copied-files"},
                    false,
                    {"text/uri-list", "x-special/gnome-copied-files"}},
        ListingCase{
            "kde_cut_mark_already_there",
            {"application/x-kde4-urilist", "application/x-kde-cutselection"},
            true,
            {"text/uri-list", "application/x-kde4-urilist", "application/x-kde-cutselection"}},
        ListingCase{"jpeg_only", {"image/jpeg"}, false, {"image/png", "image/jpeg"}},
        ListingCase{"bmp_preferred",
                    {"text/plain", "image/jpeg", "image/bmp"},
                    false,
                    {"text/plain", "image/jpeg", "image/png", "image/bmp"}},
        ListingCase{
            "png_already_there", {"image/png", "image/gif"}, false, {"image/png", "image/gif"}},
        ListingCase{"svg_is_not_converted", {"image/svg+xml"}, false, {"image/svg+xml"}},
        ListingCase{"nothing", {}, false, {}}),
    [](auto const& info) { return std::string(info.param.name); });

TEST(DerivedSource, NamesTheOfferedTypeToRead) {
  Types const offered = {"x-special/gnome-copied-files", "image/gif", "image/tiff"};
  EXPECT_EQ(derivedSource("text/uri-list", offered), "x-special/gnome-copied-files");
  EXPECT_EQ(derivedSource("application/x-kde-cutselection", offered),
            "x-special/gnome-copied-files");
  EXPECT_EQ(derivedSource("image/png", offered), "image/tiff");
  EXPECT_EQ(derivedSource("image/png", Types{"image/png", "image/gif"}), std::nullopt);
  EXPECT_EQ(derivedSource("text/uri-list", Types{"text/uri-list", "x-special/gnome-copied-files"}),
            std::nullopt);
  EXPECT_EQ(derivedSource("application/x-kde-cutselection",
                          Types{"application/x-kde-cutselection", "x-special/gnome-copied-files"}),
            std::nullopt);
  EXPECT_EQ(derivedSource("text/html", offered), std::nullopt);
  EXPECT_EQ(cutStateSource(offered), "x-special/gnome-copied-files");
  EXPECT_EQ(cutStateSource(Types{"text/uri-list"}), std::nullopt);
}

TEST(DerivedContent, FileListsAndCutMarks) {
  std::string const cut = "cut\nfile:///home/user/a%20b.txt\nfile:///c";
  EXPECT_EQ(derivedContent("text/uri-list", "x-special/gnome-copied-files", cut),
            ClipboardContent(std::vector<Path>{Path(u"/home/user/a b.txt"), Path(u"/c")}));
  EXPECT_EQ(derivedContent("application/x-kde-cutselection", "x-special/gnome-copied-files", cut),
            ClipboardContent(std::vector<std::byte>{std::byte{'1'}}));
  EXPECT_EQ(derivedContent("application/x-kde-cutselection", "x-special/gnome-copied-files",
                           "copy\nfile:///c")
                .index(),
            0u);
  EXPECT_EQ(derivedContent("text/uri-list", "x-special/gnome-copied-files", "garbage").index(), 0u);
  EXPECT_EQ(derivedContent("text/uri-list", "x-special/gnome-copied-files", "copy").index(), 0u);
  EXPECT_EQ(derivedContent("text/uri-list", "application/x-kde4-urilist", "file:///k\r\n"),
            ClipboardContent(std::vector<Path>{Path(u"/k")}));
}

TEST(DerivedContent, ImagesBecomePng) {
  auto const original = test_images::pattern(5, 3);
  auto const content = derivedContent("image/png", "image/bmp", test_images::bmp24(original));
  ASSERT_EQ(content.index(), 3u);
  auto const png = std::get<3>(content)->encode(pf::graphics::kEncodePng, 0, {});
  auto const pixels = pf::graphics::codec::png_decode_rgba(png->bytes.data(), png->bytes.size());
  EXPECT_EQ(pixels.rgba, original.rgba);
  try {
    derivedContent("image/png", "image/jpeg", "\xFF\xD8\xFF garbage");
    ADD_FAILURE() << "no error";
  } catch (std::invalid_argument const& error) {
    EXPECT_NE(std::strstr(error.what(), "image/jpeg"), nullptr) << error.what();
    EXPECT_NE(std::strstr(error.what(), "JPEG"), nullptr) << error.what();
  }
}

TEST(SecretHint, MarksAPayloadOnlyWhenItSaysSecret) {
  EXPECT_TRUE(isSecretHint("secret"));
  EXPECT_TRUE(isSecretHint(std::string("secret\0", 7)));
  EXPECT_TRUE(isSecretHint("secret\r\n"));
  EXPECT_FALSE(isSecretHint("Secret"));
  EXPECT_FALSE(isSecretHint("secrets"));
  EXPECT_FALSE(isSecretHint(""));

  auto const payload = [](std::u16string const& mime, pf::clipboard::ClipboardContent value) {
    pf::clipboard::PFClipboardData data;
    data.addData(u"text/plain", u"hunter2");
    if (auto const* text = std::get_if<std::u16string>(&value))
      data.addData(mime, *text);
    else if (auto const* bytes = std::get_if<std::vector<std::byte>>(&value))
      data.addData(mime, *bytes);
    return data;
  };
  EXPECT_TRUE(isMarkedSecret(payload(u"x-kde-passwordManagerHint", std::u16string(u"secret"))));
  EXPECT_TRUE(isMarkedSecret(payload(u"X-KDE-PasswordManagerHint", std::u16string(u"secret"))));
  EXPECT_TRUE(isMarkedSecret(
      payload(u"x-kde-passwordManagerHint",
              std::vector<std::byte>{std::byte{'s'}, std::byte{'e'}, std::byte{'c'}, std::byte{'r'},
                                     std::byte{'e'}, std::byte{'t'}})));
  EXPECT_FALSE(isMarkedSecret(payload(u"x-kde-passwordManagerHint", std::u16string(u"other"))));
  EXPECT_FALSE(isMarkedSecret(payload(u"text/x-secret", std::u16string(u"secret"))));
  EXPECT_FALSE(isMarkedSecret(pf::clipboard::PFClipboardData{}));
}

}  // namespace
