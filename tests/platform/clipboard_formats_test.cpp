// The wire formats, without a display.
#include <gtest/gtest.h>

#include "platform/formats/clipboard_formats.hpp"
#include "platform/formats/payload_formats.hpp"

namespace {

using namespace pf::clipboard::formats;
using pf::clipboard::Path;
using pf::clipboard::PFClipboardAction;

TEST(ReadKinds, FollowTheMimeType) {
  struct Row {
    ReadKind kind;
    std::vector<char const*> mimes;
  };
  for (auto const& row : {
           Row{ReadKind::text,
               {"text/plain", "text/plain;charset=utf-8", "TEXT/PLAIN; charset=UTF-16",
                "UTF8_STRING", "text/html", "TEXT/HTML; charset=UTF-16", "text/x-moz-url"}},
           Row{ReadKind::uriList, {"text/uri-list", "text/uri-list; charset=utf-8"}},
           Row{ReadKind::png, {"image/png", "Image/PNG"}},
           Row{ReadKind::svg, {"image/svg+xml", "image/svg"}},
           Row{ReadKind::bytes, {"textual/html", "image/jpeg", "application/x-thing"}},
           Row{ReadKind::none, {"TARGETS", "MULTIPLE", "INCR"}},
       }) {
    for (char const* mime : row.mimes)
      EXPECT_EQ(readKindOf(mime), row.kind) << mime;
  }
}

struct ListingCase {
  std::vector<std::string> targets;
  std::vector<std::string> mimes;
};

class Listings : public ::testing::TestWithParam<ListingCase> {};

TEST_P(Listings, DropMetaTargetsAndShowTextOnce) {
  EXPECT_EQ(mimeTypesFromTargets(GetParam().targets), GetParam().mimes);
}

INSTANTIATE_TEST_SUITE_P(
    Table, Listings,
    ::testing::Values(
        ListingCase{{}, {}},
        // xsel's list: meta targets around the text ones
        ListingCase{{"TIMESTAMP", "TARGETS", "MULTIPLE", "SAVE_TARGETS", "UTF8_STRING", "TEXT",
                     "STRING", "DELETE", "INCR"},
                    {"text/plain"}},
        // GTK's text targets after an image: text keeps the place of the first text target
        ListingCase{{"image/png", "UTF8_STRING", "COMPOUND_TEXT", "TEXT", "STRING",
                     "text/plain;charset=utf-8", "text/plain"},
                    {"image/png", "text/plain"}},
        ListingCase{{"text/plain", "text/html", "TEXT/HTML", "text/uri-list", "PIXMAP",
                     "x-special/gnome-copied-files"},
                    {"text/plain", "text/html", "text/uri-list", "x-special/gnome-copied-files"}}));

struct TextCase {
  char const* type;
  std::string bytes;
  std::optional<std::u16string> text;
};

class TextDecoding : public ::testing::TestWithParam<TextCase> {};

TEST_P(TextDecoding, FollowsTheReplyType) {
  EXPECT_EQ(decodeText(GetParam().type, GetParam().bytes), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    Table, TextDecoding,
    ::testing::Values(
        TextCase{"UTF8_STRING", "caf\xC3\xA9 \xF0\x9F\x98\x80", u"caf\u00e9 \U0001F600"},
        TextCase{"UTF8_STRING", std::string("nul\0", 4), u"nul"},
        TextCase{"STRING", "caf\xE9", u"caf\u00e9"},
        TextCase{"text/plain;charset=utf-8", "\xE2\x98\x83", u"\u2603"},
        TextCase{"text/plain;charset=UTF-8", "\xE2\x98\x83", u"\u2603"},
        TextCase{"text/plain", "\xE2\x98\x83", u"\u2603"},      // valid UTF-8 stays UTF-8
        TextCase{"text/plain", "\xE9t\xE9", u"\u00e9t\u00e9"},  // otherwise Latin-1
        TextCase{"TEXT", "plain", u"plain"},
        TextCase{"text/plain;charset=utf-16", std::string("\xFF\xFEh\0i\0", 6), u"hi"},
        TextCase{"text/plain;charset=utf-16", std::string("\xFE\xFF\0h\0i", 6), u"hi"},
        TextCase{"text/plain;charset=koi8-r", "x", std::nullopt},
        TextCase{"image/png", "\x89PNG", std::nullopt},
        TextCase{"text/uri-list", "file:///x", std::nullopt}));

// Other text types: the charset parameter when there is one, else what the bytes look like.
INSTANTIATE_TEST_SUITE_P(
    OtherTextTypes, TextDecoding,
    ::testing::Values(
        TextCase{"text/html", "<b>caf\xC3\xA9</b>", u"<b>caf\u00e9</b>"},
        TextCase{"text/html", std::string("\xFF\xFE<\0b\0>\0=\xD8\0\xDE", 12), u"<b>\U0001F600"},
        TextCase{"text/html", std::string("\xFE\xFF\0<\0b\0>", 8), u"<b>"},
        TextCase{"text/html", std::string("\xFF\xFE<\0\0\0", 6), u"<"},  // trailing NUL unit
        TextCase{"text/html", "\xEF\xBB\xBF<i>\xE2\x98\x83</i>", u"<i>\u2603</i>"},
        TextCase{"text/html", "\xEF\xBB\xBF\xE9", u"\uFFFD"},  // the mark says UTF-8
        TextCase{"text/html", "caf\xE9", u"caf\u00e9"},        // not UTF-8: Latin-1
        TextCase{"text/html", std::string("<b>\0", 4), u"<b>"},
        // UTF-16 without a mark, as Firefox sends it: the NUL bytes give it away.
        TextCase{"text/html", std::string("<\0b\0>\0", 6), u"<b>"},
        TextCase{"text/x-moz-url", std::string("h\0t\0\0\0", 6), u"ht"},
        TextCase{"text/html", std::string("\0<\0b", 4), u"<b"},
        TextCase{"text/html", std::string("<b>\0\0", 5),
                 std::u16string(u"<b>\0", 4)},  // odd length: not UTF-16
        TextCase{"Text/CSV", "a,\xC3\xA9", u"a,\u00e9"},
        TextCase{"text/plain", std::string("\xFF\xFEh\0i\0", 6), u"hi"},
        TextCase{"text/html; charset=\"UTF-16LE\"", std::string("<\0b\0", 4), u"<b"},
        TextCase{"text/html;charset=utf-16le", std::string("\xFF\xFEh\0", 4), u"h"},
        TextCase{"text/html;charset=utf-16be", std::string("\0h\0i", 4), u"hi"},
        TextCase{"text/html;charset=utf-16be", std::string("\xFE\xFF\0h", 4), u"h"},
        TextCase{"text/html;charset=utf-16", std::string("h\0i\0", 4), u"hi"},
        TextCase{"text/html;charset=utf-16", std::string("\xFE\xFF\0h", 4), u"h"},
        TextCase{"text/html;charset=utf-8", "\xE9", u"\uFFFD"},  // no guessing past the label
        TextCase{"text/html;charset=iso-8859-1", "\xC3\xA9", u"\u00c3\u00a9"},
        TextCase{"text/html;charset=us-ascii", "<b>", u"<b>"},
        TextCase{"text/html; charset=\"\"", "caf\xE9", u"caf\u00e9"},  // an empty label: none
        TextCase{"text/html;charset=koi8-r", "<b>", std::nullopt},
        TextCase{"application/xhtml+xml", "<b>", std::nullopt}));

struct EncodeCase {
  char const* type;
  std::u16string text;
  std::string bytes;
  std::optional<std::u16string> decoded;  // what a reader of that type gets back
};

class TextEncodingForServing : public ::testing::TestWithParam<EncodeCase> {};

TEST_P(TextEncodingForServing, FollowsTheCharsetOfTheTarget) {
  auto const& c = GetParam();
  auto const bytes = encodeText(c.type, c.text);
  EXPECT_EQ(bytes, c.bytes);
  EXPECT_EQ(decodeText(c.type, bytes), c.decoded);
}

INSTANTIATE_TEST_SUITE_P(
    Table, TextEncodingForServing,
    ::testing::Values(
        EncodeCase{"text/html", u"<b>\u00e9 \U0001F600</b>", "<b>\xC3\xA9 \xF0\x9F\x98\x80</b>",
                   u"<b>\u00e9 \U0001F600</b>"},
        EncodeCase{"text/html;charset=UTF-8", u"\u2603", "\xE2\x98\x83", u"\u2603"},
        EncodeCase{"text/html;charset=utf-16", u"h\U0001F600",
                   std::string("\xFF\xFEh\0=\xD8\0\xDE", 8), u"h\U0001F600"},
        EncodeCase{"text/html;charset=utf-16le", u"hi", std::string("h\0i\0", 4), u"hi"},
        EncodeCase{"text/html;charset=utf-16be", u"hi", std::string("\0h\0i", 4), u"hi"},
        // One question mark for each character Latin-1 lacks, a surrogate pair included.
        EncodeCase{"text/html;charset=latin1", u"\u00e9\u2603\U00010000.", "\xE9??.", u"\u00e9??."},
        // Above the surrogates, or a low one alone: one character, the next one kept.
        EncodeCase{"text/html;charset=latin1", std::u16string{u'\uFFFD', u'a', 0xDC00, u'b'},
                   "?a?b", u"?a?b"},
        EncodeCase{"text/html;charset=koi8-r", u"\u00e9", "\xC3\xA9", std::nullopt}));

struct UriCase {
  std::u16string path;
  std::string uri;
  bool both_ways;  // else only a spelling read back to the path
};

class FileUris : public ::testing::TestWithParam<UriCase> {};

TEST_P(FileUris, EncodeAndDecode) {
  if (GetParam().both_ways) {
    EXPECT_EQ(uriOfPath(Path(GetParam().path)), GetParam().uri);
  }
  EXPECT_EQ(pathOfUri(GetParam().uri).text(), GetParam().path);
}

INSTANTIATE_TEST_SUITE_P(
    Table, FileUris,
    ::testing::Values(
        UriCase{u"/tmp/one", "file:///tmp/one", true},
        UriCase{u"/tmp/space name/a#b?c%d", "file:///tmp/space%20name/a%23b%3Fc%25d", true},
        UriCase{u"/home/\u00fcser/\U0001F4C1", "file:///home/%C3%BCser/%F0%9F%93%81", true},
        UriCase{u"/keep/(these),+=;@:!$&'*", "file:///keep/(these),+=;@:!$&'*", true},
        UriCase{u"https://example.org/x", "https://example.org/x", true},
        UriCase{u"/a b", "file://localhost/a%20b", false}, UriCase{u"/x", "FILE:///x", false},
        UriCase{u"/single", "file:/single", false},
        UriCase{u"file://otherhost/x", "file://otherhost/x", false},
        UriCase{u"/with/fragment", "file:///with/fragment#frag", false},
        UriCase{u"/bad%zzescape", "file:///bad%zzescape", false},
        UriCase{u"file:relative/x", "file:relative/x", false}));

TEST(UriLists, CommentsBlankLinesAndCarriageReturnsAreDropped) {
  auto const paths = decodeUriList("# a comment\r\nfile:///one\r\n\r\nhttp://x/y\nfile:///two%21");
  EXPECT_EQ(paths, (std::vector<Path>{Path(u"/one"), Path(u"http://x/y"), Path(u"/two!")}));
}

TEST(UriLists, AreWrittenWithCrLfAndGnomeListsWithTheAction) {
  std::vector<Path> const paths = {Path(u"/a b"), Path(u"/c")};
  EXPECT_EQ(encodeUriList(paths), "file:///a%20b\r\nfile:///c\r\n");
  EXPECT_EQ(decodeUriList(encodeUriList(paths)), paths);
  EXPECT_EQ(encodeGnomeCopiedFiles(paths, PFClipboardAction::copy),
            "copy\nfile:///a%20b\nfile:///c");
  EXPECT_EQ(encodeGnomeCopiedFiles(paths, PFClipboardAction::cut), "cut\nfile:///a%20b\nfile:///c");
  // Relative names (a drive letter, a colon after a space) are no URIs: their line breaks go,
  // or they would split the list.
  EXPECT_EQ(encodeUriList({Path(u"C:\r\nx"), Path(u"a b:\nc")}), "C:x\r\na b:c\r\n");
}

// Files are offered with the KDE cut mark only when they were cut: a file manager that
// pastes them moves them.
TEST(OfferedTypes, FilesCarryTheCutMarkOnlyWhenCut) {
  for (auto const action : {PFClipboardAction::copy, PFClipboardAction::cut}) {
    pf::clipboard::PFClipboardData data;
    data.addData(u"text/uri-list", std::vector<Path>{Path(u"/a")});
    data.setClipboardAction(action);
    std::vector<std::string> names;
    for (auto const& offered : offeredTypes(data))
      names.push_back(offered.name);
    std::vector<std::string> expected = {"text/uri-list", "x-special/gnome-copied-files"};
    if (action == PFClipboardAction::cut)
      expected.push_back("application/x-kde-cutselection");
    EXPECT_EQ(names, expected);
  }
}

}  // namespace
