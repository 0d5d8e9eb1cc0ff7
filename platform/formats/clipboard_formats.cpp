#include "platform/formats/clipboard_formats.hpp"

#include <algorithm>
#include <array>

#include "platform/i18n.hpp"

namespace pf::clipboard::formats {
namespace {

char lowerAscii(char c) noexcept {
  return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

std::string_view trimSpaces(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t'))
    s.remove_prefix(1);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t'))
    s.remove_suffix(1);
  return s;
}

// The charset parameter of a mime type, lower-cased; empty when there is none.
std::string charsetOf(std::string_view mime) {
  auto pos = mime.find(';');
  while (pos != std::string_view::npos) {
    auto rest = mime.substr(pos + 1);
    auto const next = rest.find(';');
    auto param = trimSpaces(rest.substr(0, next));
    if (startsWithNoCase(param, "charset=")) {
      auto value = trimSpaces(param.substr(8));
      if (value.size() >= 2 && value.front() == '"' && value.back() == '"') {
        value = value.substr(1, value.size() - 2);
      }
      std::string out(value);
      std::transform(out.begin(), out.end(), out.begin(), lowerAscii);
      return out;
    }
    pos = next == std::string_view::npos ? next : pos + 1 + next;
  }
  return {};
}

// The mime type without its parameters.
std::string_view baseTypeOf(std::string_view mime) {
  return trimSpaces(mime.substr(0, mime.find(';')));
}

// UTF-16 code units of `bytes`, byte-order mark already taken off. An odd last byte is no unit;
// one trailing NUL unit is dropped.
std::u16string utf16FromBytes(std::string_view bytes, bool bigEndian) {
  std::u16string out;
  out.reserve(bytes.size() / 2);
  for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
    auto const lo = static_cast<unsigned char>(bytes[i + (bigEndian ? 1 : 0)]);
    auto const hi = static_cast<unsigned char>(bytes[i + (bigEndian ? 0 : 1)]);
    out.push_back(static_cast<char16_t>(lo | (hi << 8)));
  }
  if (!out.empty() && out.back() == u'\0')
    out.pop_back();
  return out;
}

std::string utf16ToBytes(std::u16string const& text, bool bigEndian) {
  std::string out;
  out.reserve(text.size() * 2);
  for (char16_t const c : text) {
    auto const lo = static_cast<char>(c & 0xFF);
    auto const hi = static_cast<char>(c >> 8);
    out.push_back(bigEndian ? hi : lo);
    out.push_back(bigEndian ? lo : hi);
  }
  return out;
}

constexpr std::string_view kLittleEndianBom = "\xFF\xFE";
constexpr std::string_view kBigEndianBom = "\xFE\xFF";
constexpr std::string_view kUtf8Bom = "\xEF\xBB\xBF";

bool startsWithBytes(std::string_view bytes, std::string_view prefix) {
  return bytes.substr(0, prefix.size()) == prefix;
}

// An even number of bytes with a NUL among them before the trailing NULs (text may end in one);
// big-endian when the first byte is the NUL.
bool looksLikeUtf16(std::string_view bytes) {
  if (bytes.size() < 2 || bytes.size() % 2 != 0)
    return false;
  std::size_t const end = bytes.find_last_not_of('\0');
  return end != std::string_view::npos && bytes.substr(0, end).find('\0') != std::string_view::npos;
}

int hexValue(char c) noexcept {
  if (c >= '0' && c <= '9')
    return c - '0';
  c = lowerAscii(c);
  if (c >= 'a' && c <= 'f')
    return c - 'a' + 10;
  return -1;
}

std::string percentDecode(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size()) {
      int const hi = hexValue(text[i + 1]);
      int const lo = hexValue(text[i + 2]);
      if (hi >= 0 && lo >= 0) {
        out.push_back(static_cast<char>(hi * 16 + lo));
        i += 2;
        continue;
      }
    }
    out.push_back(text[i]);
  }
  return out;
}

// Characters a file URI path keeps as they are (RFC 3986 unreserved, sub-delims, ':', '@', '/').
bool keptInUriPath(unsigned char c) noexcept {
  if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'))
    return true;
  switch (c) {
    case '-':
    case '.':
    case '_':
    case '~':
    case '!':
    case '$':
    case '&':
    case '\'':
    case '(':
    case ')':
    case '*':
    case '+':
    case ',':
    case ';':
    case '=':
    case ':':
    case '@':
    case '/':
      return true;
    default:
      return false;
  }
}

// "scheme:" at the start of the text (RFC 3986: ALPHA *( ALPHA / DIGIT / "+" / "-" / "." )).
bool hasUriScheme(std::string_view text) {
  auto const colon = text.find(':');
  if (colon == std::string_view::npos || colon < 2)
    return false;  // "C:" is no scheme
  for (std::size_t i = 0; i < colon; ++i) {
    char const c = text[i];
    bool const alpha = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
    bool const other = (c >= '0' && c <= '9') || c == '+' || c == '-' || c == '.';
    if (!(alpha || (i > 0 && other)))
      return false;
  }
  return true;
}

}  // namespace

bool equalsNoCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size())
    return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (lowerAscii(a[i]) != lowerAscii(b[i]))
      return false;
  }
  return true;
}

bool startsWithNoCase(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() && equalsNoCase(text.substr(0, prefix.size()), prefix);
}

bool isTextTarget(std::string_view name) {
  return name == "UTF8_STRING" || name == "STRING" || name == "TEXT" || name == "COMPOUND_TEXT" ||
         startsWithNoCase(name, "text/plain");
}

bool isTextMimeType(std::string_view mime) {
  return startsWithNoCase(mime, "text/") && !sameBaseType(mime, "text/uri-list");
}

bool sameBaseType(std::string_view a, std::string_view b) {
  return equalsNoCase(baseTypeOf(a), baseTypeOf(b));
}

bool isMetaTarget(std::string_view name) {
  static constexpr std::array<std::string_view, 12> kMeta = {
      "TARGETS", "MULTIPLE",  "TIMESTAMP",        "SAVE_TARGETS",    "DELETE",        "INCR",
      "LENGTH",  "ATOM_PAIR", "INSERT_SELECTION", "INSERT_PROPERTY", "CLIENT_WINDOW", "NULL"};
  return std::find(kMeta.begin(), kMeta.end(), name) != kMeta.end();
}

ReadKind readKindOf(std::string_view mime) {
  if (isMetaTarget(mime))
    return ReadKind::none;
  if (isTextTarget(mime))
    return ReadKind::text;
  if (sameBaseType(mime, "text/uri-list"))
    return ReadKind::uriList;
  if (equalsNoCase(mime, "image/png"))
    return ReadKind::png;
  if (equalsNoCase(mime, "image/svg+xml") || equalsNoCase(mime, "image/svg"))
    return ReadKind::svg;
  if (isTextMimeType(mime))
    return ReadKind::text;
  return ReadKind::bytes;
}

std::vector<std::string> mimeTypesFromTargets(std::vector<std::string> const& targets) {
  std::vector<std::string> out;
  auto const seen = [&out](std::string_view name) {
    return std::any_of(out.begin(), out.end(),
                       [name](std::string const& have) { return equalsNoCase(have, name); });
  };
  for (auto const& name : targets) {
    if (isTextTarget(name)) {
      if (!seen("text/plain"))
        out.emplace_back("text/plain");
    } else if (!isMetaTarget(name) && !seen(name) &&
               (name.find('/') != std::string::npos ||
                equalsNoCase(name, "x-kde-passwordManagerHint"))) {
      out.push_back(name);
    }
  }
  return out;
}

TextEncoding textEncodingOfType(std::string_view type) {
  if (type == "UTF8_STRING")
    return TextEncoding::utf8;
  if (type == "STRING")
    return TextEncoding::latin1;
  if (type == "TEXT" || type == "COMPOUND_TEXT")
    return TextEncoding::utf8OrLatin1;
  if (!isTextMimeType(type))
    return TextEncoding::notText;
  auto const charset = charsetOf(type);
  if (charset.empty())
    return TextEncoding::byContent;
  if (charset == "utf-8" || charset == "utf8")
    return TextEncoding::utf8;
  if (charset == "utf-16")
    return TextEncoding::utf16;
  if (charset == "utf-16le")
    return TextEncoding::utf16le;
  if (charset == "utf-16be")
    return TextEncoding::utf16be;
  if (charset == "iso-8859-1" || charset == "latin1" || charset == "us-ascii") {
    return TextEncoding::latin1;
  }
  return TextEncoding::notText;  // a charset we cannot decode
}

std::optional<std::u16string> decodeText(std::string_view type, std::string_view bytes) {
  auto encoding = textEncodingOfType(type);
  switch (encoding) {
    case TextEncoding::notText:
      return std::nullopt;
    case TextEncoding::utf16:
      if (startsWithBytes(bytes, kBigEndianBom))
        return utf16FromBytes(bytes.substr(2), true);
      if (startsWithBytes(bytes, kLittleEndianBom))
        return utf16FromBytes(bytes.substr(2), false);
      return utf16FromBytes(bytes, false);  // what LibreOffice and browsers send
    case TextEncoding::utf16le:
      return utf16FromBytes(startsWithBytes(bytes, kLittleEndianBom) ? bytes.substr(2) : bytes,
                            false);
    case TextEncoding::utf16be:
      return utf16FromBytes(startsWithBytes(bytes, kBigEndianBom) ? bytes.substr(2) : bytes, true);
    case TextEncoding::byContent:
      // Chrome has sent text/html as UTF-16 behind a byte-order mark.
      if (startsWithBytes(bytes, kLittleEndianBom))
        return utf16FromBytes(bytes.substr(2), false);
      if (startsWithBytes(bytes, kBigEndianBom))
        return utf16FromBytes(bytes.substr(2), true);
      if (startsWithBytes(bytes, kUtf8Bom)) {
        bytes.remove_prefix(kUtf8Bom.size());
        encoding = TextEncoding::utf8;
        break;
      }
      // Firefox sends text/html and text/x-moz-url as UTF-16 with no mark at all. Text never
      // holds a NUL byte before its end, while UTF-16 of Latin script is half NUL bytes.
      if (looksLikeUtf16(bytes))
        return utf16FromBytes(bytes, bytes[0] == '\0');
      break;
    default:
      break;
  }
  if (!bytes.empty() && bytes.back() == '\0')
    bytes.remove_suffix(1);
  bool const guess = encoding == TextEncoding::utf8OrLatin1 || encoding == TextEncoding::byContent;
  bool const utf8 = encoding == TextEncoding::utf8 || (guess && fl::i18n::is_valid_utf8(bytes));
  if (!utf8)
    return latin1ToUtf16(bytes);
  std::u16string out;
  Utf8Decoder decoder;
  decoder.feed(bytes, out);
  decoder.finish(out);
  return out;
}

std::string encodeText(std::string_view type, std::u16string const& text) {
  switch (textEncodingOfType(type)) {
    case TextEncoding::latin1:
      return utf16ToLatin1(text);
    case TextEncoding::utf16:
      // Without a mark a reader would have to guess the order.
      return std::string(kLittleEndianBom) + utf16ToBytes(text, false);
    case TextEncoding::utf16le:
      return utf16ToBytes(text, false);
    case TextEncoding::utf16be:
      return utf16ToBytes(text, true);
    default:
      // An unknown charset too: UTF-8 is what a reader is most likely to decode.
      return fl::i18n::ustring_to_utf8(text);
  }
}

std::u16string latin1ToUtf16(std::string_view bytes) {
  std::u16string out(bytes.size(), u'\0');
  std::transform(bytes.begin(), bytes.end(), out.begin(),
                 [](char c) { return static_cast<char16_t>(static_cast<unsigned char>(c)); });
  return out;
}

std::string utf16ToLatin1(std::u16string const& text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    char16_t const c = text[i];
    if (c < 0x100) {
      out.push_back(static_cast<char>(c));
    } else {
      out.push_back('?');
      // A surrogate pair is one character.
      if (c >= 0xD800 && c <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
          text[i + 1] <= 0xDFFF) {
        ++i;
      }
    }
  }
  return out;
}

bool isAscii(std::u16string const& text) noexcept {
  return std::all_of(text.begin(), text.end(), [](char16_t c) { return c < 0x80; });
}

std::string uriOfPath(Path const& path) {
  std::string const text = fl::i18n::ustring_to_utf8(path.text());
  if (text.empty() || text.front() != '/') {
    if (hasUriScheme(text))
      return text;
    // Relative paths name no file a receiver could find; keep them as they are, on one line.
    std::string out;
    for (char c : text) {
      if (c != '\r' && c != '\n')
        out.push_back(c);
    }
    return out;
  }
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out = "file://";
  out.reserve(out.size() + text.size());
  for (char ch : text) {
    auto const c = static_cast<unsigned char>(ch);
    if (keptInUriPath(c)) {
      out.push_back(ch);
    } else {
      out.push_back('%');
      out.push_back(kHex[c >> 4]);
      out.push_back(kHex[c & 0xF]);
    }
  }
  return out;
}

Path pathOfUri(std::string_view uri) {
  if (startsWithNoCase(uri, "file:")) {
    auto rest = uri.substr(5);
    std::string_view path;
    if (rest.substr(0, 2) == "//") {
      rest.remove_prefix(2);
      auto const slash = rest.find('/');
      auto const host = rest.substr(0, slash);
      if (slash != std::string_view::npos && (host.empty() || equalsNoCase(host, "localhost"))) {
        path = rest.substr(slash);
      }
    } else if (!rest.empty() && rest.front() == '/') {
      path = rest;
    }
    if (!path.empty()) {
      // A query or fragment is not part of the path.
      path = path.substr(0, path.find_first_of("?#"));
      return Path(fl::i18n::to_ustring(percentDecode(path)));
    }
  }
  return Path(fl::i18n::to_ustring(std::string(uri)));
}

std::string encodeUriList(std::vector<Path> const& paths) {
  std::string out;
  for (auto const& path : paths) {
    out += uriOfPath(path);
    out += "\r\n";
  }
  return out;
}

std::vector<Path> decodeUriList(std::string_view list) {
  std::vector<Path> out;
  while (!list.empty()) {
    auto const end = list.find('\n');
    auto line = list.substr(0, end);
    list = end == std::string_view::npos ? std::string_view{} : list.substr(end + 1);
    while (!line.empty() && (line.back() == '\r' || line.back() == '\0'))
      line.remove_suffix(1);
    line = trimSpaces(line);
    if (line.empty() || line.front() == '#')
      continue;
    out.push_back(pathOfUri(line));
  }
  return out;
}

std::string encodeGnomeCopiedFiles(std::vector<Path> const& paths, PFClipboardAction action) {
  std::string out = action == PFClipboardAction::cut ? "cut" : "copy";
  for (auto const& path : paths) {
    out += '\n';
    out += uriOfPath(path);
  }
  return out;
}

}  // namespace pf::clipboard::formats
