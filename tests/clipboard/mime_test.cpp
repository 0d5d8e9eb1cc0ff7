// The mime mapping between the platform-side and Java-side names of the three string formats,
// and the family predicates, on the default vocabulary.
#include "service_fixture.hpp"

namespace service_test {
namespace {

TEST(MimeMapping, PairsAreMatchedInBothDirections) {
  std::string const native[] = {"application/rtf", "application/xhtml+xml", "application/json"};
  std::string const java[] = {
      "application/x-java-serialized-object; class=java.lang.String; format=rtf",
      "application/x-java-serialized-object; class=java.lang.String; format=xhtml",
      "application/x-java-serialized-object; class=java.lang.String; format=json"};
  ClipboardImpl service;
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(service.getJavaMimeType(native[i]), java[i]);
    EXPECT_EQ(service.getCppMimeType(java[i]), native[i]);
    EXPECT_EQ(service.getJavaMimeType(java[i]), "");
    EXPECT_EQ(service.getCppMimeType(native[i]), "");
  }
  EXPECT_EQ(service.getJavaMimeType("Application/rtf"), "");
  EXPECT_EQ(service.getCppMimeType(""), "");
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
        PredicateCase{"text/uri-list;charset=utf-8", false, false, false, true, false},
        PredicateCase{"image/", false, true, false, false, false},        // equal to the prefix
        PredicateCase{"image", false, false, false, false, false},        // shorter than it
        PredicateCase{"x-image/png", false, false, false, false, false},  // not at the start
        PredicateCase{"application/x-java-serialized-object", false, false, true, false, true},
        PredicateCase{"application/x-jav", false, false, true, false, false},
        PredicateCase{"", false, false, false, false, false}));

}  // namespace
}  // namespace service_test
