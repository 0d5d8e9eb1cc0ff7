#include "platform/filesystem.hpp"

#include <optional>
#include <string_view>

#include "platform/i18n.hpp"

namespace fl::filesystem::detail {
namespace {

char16_t ascii_lower(char16_t c) {
  return c >= u'A' && c <= u'Z' ? c + (u'a' - u'A') : c;
}

bool equals_ascii_nocase(std::u16string_view s, std::string_view lower) {
  if (s.size() != lower.size())
    return false;
  for (std::size_t i = 0; i < s.size(); ++i) {
    if (ascii_lower(s[i]) != static_cast<char16_t>(lower[i]))
      return false;
  }
  return true;
}

int hex_value(char c) {
  if (c >= '0' && c <= '9')
    return c - '0';
  if (c >= 'a' && c <= 'f')
    return c - 'a' + 10;
  if (c >= 'A' && c <= 'F')
    return c - 'A' + 10;
  return -1;
}

// Escapes are decoded as bytes and the bytes read as UTF-8, so "%C3%A9" is one character.
// A "%" without two hex digits is kept, and so is "%00": no file name holds a NUL.
std::u16string percent_decode(std::u16string_view path) {
  std::string const utf8 = fl::i18n::ustring_to_utf8(std::u16string(path));
  std::string bytes;
  bytes.reserve(utf8.size());
  for (std::size_t i = 0; i < utf8.size(); ++i) {
    if (utf8[i] == '%' && i + 2 < utf8.size()) {
      int const hi = hex_value(utf8[i + 1]), lo = hex_value(utf8[i + 2]);
      if (hi >= 0 && lo >= 0 && (hi | lo) != 0) {
        bytes.push_back(static_cast<char>(hi << 4 | lo));
        i += 2;
        continue;
      }
    }
    bytes.push_back(utf8[i]);
  }
  return fl::i18n::to_ustring(bytes);
}

// The path of a local file URI ("file:///p", "file://localhost/p", "file:/p"), not yet
// decoded; nothing for another host or a URI without an absolute path. Query and fragment
// are not split off: file lists escape "?" and "#" in names, and a raw one is more likely
// part of a name than a real query.
std::optional<std::u16string_view> local_file_uri_path(std::u16string_view text) {
  if (text.size() < 5 || !equals_ascii_nocase(text.substr(0, 5), "file:"))
    return std::nullopt;
  std::u16string_view rest = text.substr(5);
  if (rest.substr(0, 2) == u"//") {
    auto const slash = rest.find(u'/', 2);
    if (slash == std::u16string_view::npos)
      return std::nullopt;
    std::u16string_view const host = rest.substr(2, slash - 2);
    if (!host.empty() && !equals_ascii_nocase(host, "localhost"))
      return std::nullopt;
    return rest.substr(slash);
  }
  if (rest.substr(0, 1) == u"/")
    return rest;
  return std::nullopt;
}

// Drops empty and "." segments of an absolute path.
std::u16string collapse_separators(std::u16string_view path) {
  std::u16string out;
  out.reserve(path.size());
  std::size_t i = 0;
  while (i < path.size()) {
    while (i < path.size() && path[i] == u'/')
      ++i;
    auto end = path.find(u'/', i);
    if (end == std::u16string_view::npos)
      end = path.size();
    std::u16string_view const segment = path.substr(i, end - i);
    if (!segment.empty() && segment != u".") {
      out += u'/';
      out += segment;
    }
    i = end;
  }
  if (out.empty())
    out.push_back(u'/');
  return out;
}

}  // namespace

std::u16string make_native_form(std::u16string const& text, bool collapse) {
  std::u16string path;
  if (auto const uri_path = local_file_uri_path(text)) {
    path = percent_decode(*uri_path);
  } else if (!text.empty() && text.front() == u'/') {
    path = text;
  } else {
    return text;  // relative paths and other URIs are not ours to rewrite
  }
  if (collapse)
    path = collapse_separators(path);
  while (path.size() > 1 && path.back() == u'/')
    path.pop_back();
  return path;
}

}  // namespace fl::filesystem::detail
