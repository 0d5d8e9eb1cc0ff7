// Content conversion: one clipboard value to the JSON-ready form of its family.
#include <cstring>
#include <unordered_map>

#include "clipboard/clipboard_impl.hpp"
#include "diagnostics/service_logger.hpp"
#include "platform/i18n.hpp"

namespace EditorServices {

using foundation::json::Value;

namespace {

constexpr std::size_t kText = 1;
constexpr std::size_t kPaths = 2;
constexpr std::size_t kImage = 3;
constexpr std::size_t kBytes = 4;

// Bytes as text: through UTF-16 and back, so that whatever is not UTF-8 is repaired the way the
// platform's conversions repair it.
std::string normalizedByteText(std::string const& bytes) {
  return fl::i18n::ustring_to_utf8(fl::i18n::to_ustring(bytes));
}

std::string asChars(std::byte const* first, std::byte const* last) {
  return std::string(reinterpret_cast<char const*>(first), reinterpret_cast<char const*>(last));
}

// Java Object Serialization: magic, version, then the string record's own header.
constexpr unsigned char kStreamMagic0 = 0xAC;
constexpr unsigned char kStreamMagic1 = 0xED;
constexpr unsigned char kLongStringRecord = 0x7C;  // 8-byte length
constexpr unsigned char kArrayRecord = 0x75;
constexpr std::size_t kLongStringHeader = 13;
constexpr std::size_t kArrayHeader = 9;
constexpr std::size_t kShortStringHeader = 7;  // magic 2, version 2, record type 1, length 2

}  // namespace

std::string ClipboardImpl::getClipboardContentPlainText(pf::clipboard::ClipboardContent content) {
  if (content.index() != kText) {
    return std::string();
  }
  return fl::i18n::ustring_to_utf8(*std::get_if<kText>(&content));
}

std::vector<Value> ClipboardImpl::getClipboardContentUriList(
    pf::clipboard::ClipboardContent content) {
  if (content.index() != kPaths) {
    return {};
  }
  auto const& paths = *std::get_if<kPaths>(&content);
  std::vector<Value> list(paths.size());
  for (std::size_t i = 0; i < paths.size(); ++i) {
    // The text ends at its first NUL, as a C string would.
    list[i] = Value(fl::i18n::ustring_to_utf8(paths[i].text().c_str()));
  }
  return list;
}

std::string ClipboardImpl::getClipboardContentImages(pf::clipboard::ClipboardContent content) {
  if (content.index() != kImage) {
    return std::string();
  }
  std::shared_ptr<pf::graphics::PFGraphics> const image = *std::get_if<kImage>(&content);
  if (!image) {
    return std::string();
  }
  try {
    int const code = image->kind() == pf::graphics::kVectorImage ? pf::graphics::kEncodeSvg
                                                                 : pf::graphics::kEncodePng;
    std::string encoded;
    {
      std::unordered_map<std::u16string, std::u16string> const options;
      auto result = image->encode(code, pf::graphics::kEncodeBase64, options);
      encoded = asChars(result->bytes.data(), result->bytes.data() + result->bytes.size());
    }
    return normalizedByteText(encoded);
  } catch (std::bad_variant_access const& e) {
    EDITOR_SERVICES_LOG(e.what() << " [getClipboardContentImages] bad access violation\n");
    return std::string();
  }
}

std::string ClipboardImpl::getClipboardContentApplicationType(
    pf::clipboard::ClipboardContent content) {
  if (content.index() != kBytes) {
    return std::string();
  }
  auto const& bytes = *std::get_if<kBytes>(&content);
  return normalizedByteText(asChars(bytes.data(), bytes.data() + bytes.size()));
}

std::string ClipboardImpl::getClipboardContentJavaApplicationType(
    pf::clipboard::ClipboardContent content) {
  if (content.index() != kBytes) {
    return std::string();
  }
  auto const& bytes = *std::get_if<kBytes>(&content);
  // Too short to hold the magic and the record type: no string in it.
  if (bytes.size() < 5 || static_cast<unsigned char>(bytes[0]) != kStreamMagic0 ||
      static_cast<unsigned char>(bytes[1]) != kStreamMagic1) {
    return std::string();
  }
  std::size_t header = kShortStringHeader;
  switch (static_cast<unsigned char>(bytes[4])) {
    case kLongStringRecord:
      header = kLongStringHeader;
      break;
    case kArrayRecord:
      header = kArrayHeader;
      break;
    default:
      break;
  }
  if (bytes.size() <= header) {
    return std::string();
  }
  // The record's length field is not trusted: everything after the header is the string.
  return normalizedByteText(asChars(bytes.data() + header, bytes.data() + bytes.size()));
}

}  // namespace EditorServices
