// The content getters on their own: the Java serialization reader, the image getter's failures,
// and the alternatives each getter does not answer. The families' values are read through the
// get request.
#include <stdexcept>
#include <variant>

#include "service_fixture.hpp"

namespace service_test {
namespace {

using ContentTest = ServiceTest;

TEST_F(ContentTest, JavaSerializedStringsAreUnwrapped) {
  auto const magic = byteList({0xAC, 0xED, 0x00, 0x05});
  struct Case {
    char const* name;
    std::vector<std::byte> in;
    std::string out;
  } const cases[] = {
      {"short string", magic + byteList({0x74, 0x00, 0x03}) + bytesOf("abc"), "abc"},
      {"long string", magic + byteList({0x7C, 0, 0, 0, 0, 0, 0, 0, 3}) + bytesOf("abc"), "abc"},
      {"0x75 record", magic + byteList({0x75, 0, 0, 0, 3}) + bytesOf("abc"), "abc"},
      {"other record", magic + byteList({0x70, 0x00, 0x00}) + bytesOf("xyz"), "xyz"},
      {"length not read", magic + byteList({0x74, 0x00, 0x01}) + bytesOf("abc"), "abc"},
      {"trailing records", javaString("abc") + byteList({0x74, 0x00, 0x01, 'd'}),
       std::string("abct\0\x01"
                   "d",
                   7)},
      {"utf-8 text", javaString("\xC3\xA9\xF0\x9F\x98\x80"), "\xC3\xA9\xF0\x9F\x98\x80"},
      {"header only", magic + byteList({0x74, 0x00, 0x00}), ""},
      {"bad first magic byte", byteList({0xAC, 0x00, 0x00, 0x05, 0x74, 0x00, 0x01, 'a'}), ""},
      {"bad second magic byte", byteList({0x00, 0xED, 0x00, 0x05, 0x74, 0x00, 0x01, 'a'}), ""},
      {"magic swapped", byteList({0xED, 0xAC, 0x00, 0x05, 0x74, 0x00, 0x01, 'a'}), ""},
      {"plain text", bytesOf("abcdefgh"), ""},
      {"no bytes", {}, ""},
      {"magic only", byteList({0xAC, 0xED}), ""},
      {"no record type", byteList({0xAC, 0xED, 0x00, 0x05}), ""},
      {"long header cut short", magic + byteList({0x7C, 0x00, 0x00}), ""},
  };
  for (auto const& c : cases) {
    EXPECT_EQ(service.getClipboardContentJavaApplicationType(ClipboardContent(c.in)), c.out)
        << c.name;
  }
}

TEST_F(ContentTest, OnlyBadVariantAccessInsideTheImageIsCaughtAndLogged) {
  auto const image = std::make_shared<RecordingImage>(0, "QUJD");
  image->failure = [] { throw std::bad_variant_access(); };
  EXPECT_EQ(service.getClipboardContentImages(ClipboardContent(image)), "");
  std::string const what = std::bad_variant_access().what();
  EXPECT_EQ(logged(),
            std::vector<std::string>{what + " [getClipboardContentImages] bad access violation\n"});

  log.clear();
  image->failure = [] { throw std::invalid_argument("cannot encode"); };
  EXPECT_THROW(service.getClipboardContentImages(ClipboardContent(image)), std::invalid_argument);
  EXPECT_TRUE(logged().empty());
}

// Each getter answers its own alternative only; every other one gives an empty result, with no
// log and no throw.
TEST_F(ContentTest, UnexpectedAlternativesGiveEmptyResults) {
  auto const image = std::make_shared<RecordingImage>(0, "QUJD");
  ClipboardContent const contents[] = {
      ClipboardContent(),
      ClipboardContent(std::u16string(u"text")),
      ClipboardContent(pathsOf({u"/a"})),
      ClipboardContent(std::shared_ptr<pf::graphics::PFGraphics>(image)),
      ClipboardContent(javaString("abc")),
  };
  for (auto const& c : contents) {
    std::size_t const held = c.index();
    EXPECT_EQ(service.getClipboardContentPlainText(c).empty(), held != 1) << held;
    EXPECT_EQ(service.getClipboardContentUriList(c).empty(), held != 2) << held;
    EXPECT_EQ(service.getClipboardContentImages(c).empty(), held != 3) << held;
    EXPECT_EQ(service.getClipboardContentApplicationType(c).empty(), held != 4) << held;
    EXPECT_EQ(service.getClipboardContentJavaApplicationType(c).empty(), held != 4) << held;
  }
  EXPECT_EQ(image->encodes, 1);  // by the images getter only
  // An image alternative without an image is not called through.
  EXPECT_EQ(service.getClipboardContentImages(
                ClipboardContent(std::shared_ptr<pf::graphics::PFGraphics>())),
            "");
  EXPECT_TRUE(logged().empty());
}

}  // namespace
}  // namespace service_test
