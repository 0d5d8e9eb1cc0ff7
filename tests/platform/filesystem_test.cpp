#include <gtest/gtest.h>

#include <string>

#include "platform/filesystem.hpp"

namespace {

struct NativeFormCase {
  char const* name;
  std::u16string text;
  bool collapse;
  std::u16string expected;
};

class MakeNativeForm : public ::testing::TestWithParam<NativeFormCase> {};

TEST_P(MakeNativeForm, Table) {
  auto const& c = GetParam();
  EXPECT_EQ(fl::filesystem::detail::make_native_form(c.text, c.collapse), c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    FileUris, MakeNativeForm,
    ::testing::Values(
        NativeFormCase{"EmptyAuthority", u"file:///home/ann/a.txt", true, u"/home/ann/a.txt"},
        NativeFormCase{"Localhost", u"file://localhost/etc/hosts", true, u"/etc/hosts"},
        NativeFormCase{"LocalhostAnyCase", u"FILE://LocalHost/etc", false, u"/etc"},
        NativeFormCase{"NoAuthority", u"file:/tmp/x", true, u"/tmp/x"},
        NativeFormCase{"Space", u"file:///a%20b", true, u"/a b"},
        NativeFormCase{"LowerCaseHex", u"file:///%e2%82%ac", true, u"/\u20AC"},
        NativeFormCase{"FourByteUtf8", u"file:///%F0%9F%98%80", true, u"/\U0001F600"},
        NativeFormCase{"UnescapedNonAscii", u"file:///\u00E9t\u00E9/%41", true,
                       u"/\u00E9t\u00E9/A"},
        NativeFormCase{"EscapedHashAndQuery", u"file:///a%23b%3Fc", true, u"/a#b?c"},
        NativeFormCase{"PercentWithoutHex", u"file:///100%/x%4", true, u"/100%/x%4"},
        NativeFormCase{"EscapedNulKept", u"file:///a%00b", true, u"/a%00b"},
        NativeFormCase{"InvalidUtf8Replaced", u"file:///a%FFb", true, u"/a\uFFFDb"},
        NativeFormCase{"TrailingSlash", u"file:///tmp/dir/", false, u"/tmp/dir"},
        NativeFormCase{"CollapsedAfterDecoding", u"file:///a/%2E/b//c", true, u"/a/b/c"},
        NativeFormCase{"OtherHostKept", u"file://server/share/a", true, u"file://server/share/a"},
        NativeFormCase{"NoPathKept", u"file://localhost", true, u"file://localhost"},
        NativeFormCase{"RelativeKept", u"file:a/b", true, u"file:a/b"}),
    [](auto const& info) { return std::string(info.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Paths, MakeNativeForm,
    ::testing::Values(NativeFormCase{"Empty", u"", true, u""},
                      NativeFormCase{"Plain", u"/usr/share/doc", true, u"/usr/share/doc"},
                      NativeFormCase{"DoubleSlashes", u"/a//b///c", true, u"/a/b/c"},
                      NativeFormCase{"DoubleSlashesKept", u"/a//b///c", false, u"/a//b///c"},
                      NativeFormCase{"DotSegments", u"/a/./b/.", true, u"/a/b"},
                      NativeFormCase{"DotSegmentsKept", u"/a/./b", false, u"/a/./b"},
                      NativeFormCase{"DotDotKept", u"/a/../b", true, u"/a/../b"},
                      NativeFormCase{"HiddenNamesKept", u"/a/.b/..c/...", true, u"/a/.b/..c/..."},
                      NativeFormCase{"LeadingDoubleSlash", u"//srv/x", true, u"/srv/x"},
                      NativeFormCase{"TrailingSlash", u"/tmp/", true, u"/tmp"},
                      NativeFormCase{"TrailingSlashes", u"/tmp///", false, u"/tmp"},
                      NativeFormCase{"RootRun", u"///", true, u"/"},
                      NativeFormCase{"RootRunNoCollapse", u"///", false, u"/"},
                      NativeFormCase{"PercentNotDecoded", u"/a%20b", true, u"/a%20b"},
                      NativeFormCase{"RelativeKept", u"a//b/", true, u"a//b/"},
                      NativeFormCase{"OtherUriKept", u"https://example.org//x/", true,
                                     u"https://example.org//x/"},
                      NativeFormCase{"NonAscii", u"/home/\u00FCser//\u6587\u4EF6/", true,
                                     u"/home/\u00FCser/\u6587\u4EF6"}),
    [](auto const& info) { return std::string(info.param.name); });

}  // namespace
