#include "json/text_scan.hpp"

#include <cctype>

#include "json/reader_detail.hpp"

namespace foundation::json {

namespace rc = read_result;

namespace reading {

// The number's text is copied out (it need not end in a NUL, and the conversion reads up to
// the first byte that cannot continue a number, which may be beyond what the scanner took);
// short numbers, all real ones, are copied to the stack rather than into a string.
double number_value(char const* first, char const* last) {
  auto const length = static_cast<std::size_t>(last - first);
  char buffer[64];
  if (length < sizeof buffer) {
    std::memcpy(buffer, first, length);
    buffer[length] = '\0';
    return detail::string_to_double(buffer);
  }
  std::string const text = detail::get_utf8_string(first, last);
  return detail::string_to_double(text.c_str());
}

int read_escaped_string(char const*& pos, char const* first, char const* run_end, char const* end,
                        std::string& decoded, std::string_view& text) {
  char const* p = first;
  if (run_end == end) {
    pos = end;
    return rc::unexpected_end;
  }

  // Escapes only shrink the text, so the distance to the closing quote bounds the result and
  // the buffer is allocated once.
  char const* close = run_end;
  while (close != end && *close == '\\') {
    close = end - close > 2 ? find_quote_or_backslash(close + 2, end) : end;
  }
  std::string collected;
  collected.reserve(static_cast<std::size_t>(close - p));

  for (;;) {
    collected.append(p, run_end);
    p = run_end;
    if (p == end) {
      pos = end;
      return rc::unexpected_end;
    }
    if (*p == '"') {
      pos = p + 1;
      decoded = std::move(collected);
      text = decoded;
      return rc::ok;
    }
    ++p;  // past the backslash
    if (p == end) {
      pos = end;
      return rc::unexpected_end;
    }
    switch (*p++) {
      case '"':
        collected += '"';
        break;
      case '\\':
        collected += '\\';
        break;
      case '/':
        collected += '/';
        break;
      case 'b':
        collected += '\b';
        break;
      case 'f':
        collected += '\f';
        break;
      case 'n':
        collected += '\n';
        break;
      case 'r':
        collected += '\r';
        break;
      case 't':
        collected += '\t';
        break;
      case 'u': {
        char16_t units[2];
        int count = 1;
        int code = parse_hex4(p, end, units[0]);
        if (code == rc::ok && units[0] >= 0xD800 && units[0] <= 0xDBFF) {
          if (end - p < 6) {
            code = rc::unexpected_end;
          } else if (p[0] != '\\' || p[1] != 'u') {
            code = rc::bad_unicode_escape;
          } else {
            p += 2;
            code = parse_hex4(p, end, units[1]);
            count = 2;
          }
        }
        if (code != rc::ok) {
          pos = p;
          return code;
        }
        collected += detail::u16_to_u8(units, count);
        break;
      }
      default:
        pos = p - 1;
        return rc::bad_escape;
    }
    run_end = find_quote_or_backslash(p, end);
  }
}

}  // namespace reading

using reading::is_digit;
using reading::is_space;
using reading::read_string;

int parse_string(char const*& pos, char const* end, std::string& out) {
  std::string_view text;
  int const code = read_string(pos, end, out, text);
  if (code == rc::ok && text.data() != out.data()) {
    out.assign(text.data(), text.size());
  }
  return code;
}

int scan_number(char const*& pos, char const* end) {
  if (pos == end) {
    return rc::unexpected_end;
  }
  if (*pos == '-') {
    ++pos;
    if (pos == end) {
      return rc::unexpected_end;
    }
  }
  auto const skip_digits = [&] {
    while (pos != end && is_digit(*pos)) {
      ++pos;
    }
  };
  bool fraction = false;
  if (*pos == '0') {
    ++pos;
    if (pos == end) {
      return rc::ok;
    }
    if (*pos == '.') {
      fraction = true;
    } else {
      // "007" is one number; no fraction may follow such a run.
      skip_digits();
      if (pos == end) {
        return rc::ok;
      }
    }
  } else {
    if (!is_digit(*pos)) {
      return rc::expected_digit;
    }
    skip_digits();
    if (pos == end) {
      return rc::ok;
    }
    fraction = *pos == '.';
  }
  if (fraction) {
    ++pos;
    if (pos == end) {
      return rc::unexpected_end;
    }
    if (!is_digit(*pos)) {
      return rc::expected_fraction_digit;
    }
    skip_digits();
    if (pos == end) {
      return rc::ok;
    }
  }
  if (*pos == 'e' || *pos == 'E') {
    ++pos;
    if (pos == end) {
      return rc::unexpected_end;
    }
    if (*pos == '+' || *pos == '-') {
      ++pos;
      if (pos == end) {
        return rc::unexpected_end;
      }
    }
    if (!is_digit(*pos)) {
      return rc::expected_exponent_digit;
    }
    skip_digits();
  }
  return rc::ok;
}

int match_literal(char const*& pos, char const* end, std::string_view literal, int mismatch) {
  auto const remaining = static_cast<std::size_t>(end - pos);
  if (remaining >= literal.size()) {
    if (std::memcmp(pos, literal.data(), literal.size()) != 0) {
      return mismatch;
    }
    pos += literal.size();
    return rc::ok;
  }
  if (remaining == 0) {
    return rc::unexpected_end;
  }
  return std::memcmp(pos, literal.data(), remaining) == 0 ? rc::unexpected_end : mismatch;
}

int parse_hex4(char const*& pos, char const* end, char16_t& out) {
  if (end - pos < 4) {
    return rc::unexpected_end;
  }
  unsigned unit = 0;
  for (int i = 0; i < 4; ++i) {
    int const c = static_cast<unsigned char>(*pos);
    if (!std::isxdigit(c)) {
      return rc::bad_unicode_escape;
    }
    ++pos;
    int const digit = std::isdigit(c) ? c - '0' : std::isupper(c) ? c - 'A' + 10 : c - 'a' + 10;
    unit = (unit << 4) | static_cast<unsigned>(digit);
  }
  out = static_cast<char16_t>(unit);
  return rc::ok;
}

void skip_space(char const*& pos, char const* end, bool comments) {
  for (;;) {
    while (pos != end && is_space(*pos)) {
      ++pos;
    }
    if (!comments || end - pos < 2 || pos[0] != '/') {
      return;
    }
    if (pos[1] == '*') {
      char const* p = pos + 2;
      while (end - p >= 2 && !(p[0] == '*' && p[1] == '/')) {
        ++p;
      }
      pos = end - p >= 2 ? p + 2 : end;
    } else if (pos[1] == '/') {
      auto const* newline = static_cast<char const*>(
          std::memchr(pos + 2, '\n', static_cast<std::size_t>(end - pos - 2)));
      pos = newline != nullptr ? newline + 1 : end;
    } else {
      return;
    }
  }
}

}  // namespace foundation::json
