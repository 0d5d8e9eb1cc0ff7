#include <gtest/gtest.h>

#include <set>

#include "clipboard/clipboard_impl.hpp"

namespace {

using EditorServices::ClipboardImpl;
using EditorServices::ClipboardVocabulary;
using EditorServices::defaultClipboardVocabulary;

TEST(DefaultVocabulary, MeetsTheConstraintsTheServiceRelies) {
  ClipboardVocabulary const& v = defaultClipboardVocabulary();
  ClipboardImpl service(v);

  EXPECT_EQ(v.requestIdKey, "requestid");
  // The set request recognises an image data URL by these 11 characters.
  EXPECT_EQ((v.dataUrlPrefix + v.graphicsMimePrefix).size(), 11u);

  // An image string is an RFC 2397 base64 data URL: "data:" mediatype ";base64," data.
  std::string const image = v.dataUrlPrefix + "image/png" + v.dataUrlParameterSeparator +
                            v.dataUrlEncodingName + v.dataUrlDataSeparator + "iVBORw0KGgo=";
  EXPECT_EQ(image, "data:image/png;base64,iVBORw0KGgo=");
  EXPECT_EQ(image.find(','), (v.dataUrlPrefix + "image/png;base64").size());
  EXPECT_EQ(v.taggedImageValuePrefix.rfind("data:image/", 0), 0u);
  EXPECT_EQ(v.taggedImageValuePrefix.back(), ',');

  // Every mime name belongs to the family whose prefix it carries.
  EXPECT_TRUE(service.isGraphicsType(v.svgMimeType));
  EXPECT_TRUE(service.isGraphicsType(v.taggedImageMimeType));
  EXPECT_TRUE(service.isTextType(v.textUriListMimeType));
  EXPECT_TRUE(service.isTextUriList("text/uri-list"));
  for (auto const* java : {&v.javaMimeType1, &v.javaMimeType2, &v.javaMimeType3}) {
    EXPECT_TRUE(service.isJavaMimeType(*java)) << *java;
    EXPECT_TRUE(service.isApplicationType(*java)) << *java;
  }
  for (auto const* native : {&v.nativeMimeType1, &v.nativeMimeType2, &v.nativeMimeType3}) {
    EXPECT_FALSE(service.isJavaMimeType(*native)) << *native;
    EXPECT_TRUE(service.isApplicationType(*native)) << *native;  // carried as bytes by a set
  }
  EXPECT_TRUE(service.isJavaMimeType(v.ignoredMimeType));
  EXPECT_NE(v.actionOneText, v.defaultActionText);

  // Reply and request keys that share a map must not collide.
  std::set<std::string> const replyKeys = {v.successKey, v.flavorsKey, v.clipboardItemsKey,
                                           v.replyRequestIdKey};
  EXPECT_EQ(replyKeys.size(), 4u);
  std::set<std::string> const requestKeys = {v.successKey, v.requestIdKey, v.uidKey, v.flavorsKey,
                                             v.clipboardItemsKey};
  EXPECT_EQ(requestKeys.size(), 5u);
  std::set<std::string> const itemKeys = {v.itemDataKey, v.itemMimeTypeKey, v.itemActionKey};
  EXPECT_EQ(itemKeys.size(), 3u);

  // Six distinct mapping names.
  std::set<std::string> const names = {v.nativeMimeType1, v.nativeMimeType2, v.nativeMimeType3,
                                       v.javaMimeType1,   v.javaMimeType2,   v.javaMimeType3};
  EXPECT_EQ(names.size(), 6u);
  for (auto const& flavor : v.fallbackFlavors) {
    EXPECT_EQ(flavor.kind(), foundation::json::Kind::string);
  }
}

TEST(MimeMapping, PairsAreMatchedByNumberInBothDirections) {
  ClipboardVocabulary v = defaultClipboardVocabulary();
  // Member texts in an order unlike the pair numbers.
  v.nativeMimeType1 = "application/z";
  v.nativeMimeType2 = "application/a";
  v.nativeMimeType3 = "application/m";
  v.javaMimeType1 = "application/x-java-3";
  v.javaMimeType2 = "application/x-java-1";
  v.javaMimeType3 = "application/x-java-2";
  ClipboardImpl service(v);

  struct Case {
    std::string in;
    std::string java;
    std::string cpp;
  };
  Case const cases[] = {
      {"application/z", "application/x-java-3", ""},
      {"application/a", "application/x-java-1", ""},
      {"application/m", "application/x-java-2", ""},
      {"application/x-java-3", "", "application/z"},
      {"application/x-java-1", "", "application/a"},
      {"application/x-java-2", "", "application/m"},
      {"application/Z", "", ""},
      {"", "", ""},
  };
  for (auto const& c : cases) {
    EXPECT_EQ(service.getJavaMimeType(c.in), c.java) << c.in;
    EXPECT_EQ(service.getCppMimeType(c.in), c.cpp) << c.in;
  }
}

TEST(MimeMapping, FirstPairWinsWhenTwoShareAName) {
  ClipboardVocabulary v = defaultClipboardVocabulary();
  v.nativeMimeType2 = "application/shared";
  v.nativeMimeType3 = "application/shared";
  ClipboardImpl service(v);
  EXPECT_EQ(service.getJavaMimeType("application/shared"), v.javaMimeType2);
}

struct PredicateCase {
  std::string mime;
  bool uriList, graphics, application, text, java;
};

class MimePredicates : public ::testing::TestWithParam<PredicateCase> {};

TEST_P(MimePredicates, ClassifyByteWise) {
  ClipboardImpl service;
  auto const& c = GetParam();
  EXPECT_EQ(service.isTextUriList(c.mime), c.uriList);
  EXPECT_EQ(service.isGraphicsType(c.mime), c.graphics);
  EXPECT_EQ(service.isApplicationType(c.mime), c.application);
  EXPECT_EQ(service.isTextType(c.mime), c.text);
  EXPECT_EQ(service.isJavaMimeType(c.mime), c.java);
}

INSTANTIATE_TEST_SUITE_P(
    DefaultVocabulary, MimePredicates,
    ::testing::Values(
        // mime                                   uri    gfx    app    text   java
        PredicateCase{"text/uri-list", true, false, false, true, false},
        PredicateCase{"Text/uri-list", false, false, false, false, false},
        PredicateCase{"text/uri-list ", false, false, false, true, false},
        PredicateCase{"text/uri-list;charset=utf-8", false, false, false, true, false},
        PredicateCase{"image/png", false, true, false, false, false},
        PredicateCase{"image/", false, true, false, false, false},        // equal to the prefix
        PredicateCase{"image", false, false, false, false, false},        // shorter than it
        PredicateCase{"x-image/png", false, false, false, false, false},  // not at the start
        PredicateCase{"application/octet-stream", false, false, true, false, false},
        PredicateCase{"application/x-java-serialized-object", false, false, true, false, true},
        PredicateCase{"application/x-jav", false, false, true, false, false},
        PredicateCase{"text/plain;charset=utf-8", false, false, false, true, false},
        PredicateCase{"", false, false, false, false, false}),
    [](::testing::TestParamInfo<PredicateCase> const& info) {
      std::string name = "case" + std::to_string(info.index);
      return name;
    });

TEST(MimePredicates, EmptyPrefixMatchesEverything) {
  ClipboardVocabulary v = defaultClipboardVocabulary();
  v.textMimePrefix.clear();
  ClipboardImpl service(v);
  EXPECT_TRUE(service.isTextType(""));
  EXPECT_TRUE(service.isTextType("image/png"));
}

TEST(ClipboardImplLifetime, VocabularyLandsInItsMembers) {
  ClipboardVocabulary v = defaultClipboardVocabulary();
  v.hostTexts[0] = "first host text";
  v.hostTexts[27] = "last host text";
  v.hostWord = 42;
  ClipboardImpl service(v);
  EXPECT_EQ(service.hostText1, "first host text");
  EXPECT_EQ(service.hostText49, "last host text");
  EXPECT_EQ(service.hostWord, 42u);
  EXPECT_EQ(service.itemActionKey, v.itemActionKey);
  EXPECT_EQ(service.fallbackFlavors, v.fallbackFlavors);
  EXPECT_FALSE(service.isChangeSubscriptionActive());
  EXPECT_FALSE(service.hasChangeRegistration());
}

}  // namespace
