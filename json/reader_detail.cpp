// Helpers of the JSON reader: byte ranges to strings, number text to double, UTF-16 to UTF-8.
#include "json/reader_detail.hpp"

#include <charconv>
#include <cstdint>
#include <limits>
#include <string>
#include <system_error>

#include "platform/i18n.hpp"

namespace foundation::json::detail {

namespace {

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

bool is_high_surrogate(char16_t u) {
  return u >= 0xD800 && u <= 0xDBFF;
}
bool is_low_surrogate(char16_t u) {
  return u >= 0xDC00 && u <= 0xDFFF;
}

void append_code_point(std::string& out, char32_t cp) {
  char bytes[4];
  out.append(bytes, static_cast<std::size_t>(fl::i18n::utf8::encode(cp, bytes) - bytes));
}

void append_unit(std::string& out, char16_t unit) {
  bool const surrogate = unit >= 0xD800 && unit <= 0xDFFF;
  append_code_point(out, surrogate ? char32_t{0xFFFD} : char32_t{unit});
}

}  // namespace

std::string get_utf8_string(char const* first, char const* last) {
  return std::string(first, last);
}

double string_to_double(char const* text) {
  // Find the extent of the number first: from_chars would also take "inf", "nan" and
  // forms that are not JSON numbers.
  char const* p = text;
  bool const negative = *p == '-';
  if (negative) {
    ++p;
  }
  char const* const digits = p;
  // Decimal exponent of the first significant digit, to tell overflow from underflow.
  long long magnitude = 0;
  bool significant = false;
  while (is_digit(*p)) {
    if (significant) {
      ++magnitude;
    } else if (*p != '0') {
      significant = true;
    }
    ++p;
  }
  bool const has_int = p != digits;
  bool has_frac = false;
  if (*p == '.' && is_digit(p[1])) {
    has_frac = true;
    ++p;
    while (is_digit(*p)) {
      if (!significant) {
        --magnitude;
        significant = *p != '0';
      }
      ++p;
    }
  }
  if (!has_int && !has_frac) {
    return 0.0;
  }
  if ((*p == 'e' || *p == 'E')) {
    char const* q = p + 1;
    bool exp_negative = false;
    if (*q == '+' || *q == '-') {
      exp_negative = *q == '-';
      ++q;
    }
    if (is_digit(*q)) {
      long long exponent = 0;
      while (is_digit(*q)) {
        // Saturate: anything this large over- or underflows regardless of the mantissa.
        if (exponent < 1'000'000'000) {
          exponent = exponent * 10 + (*q - '0');
        }
        ++q;
      }
      magnitude += exp_negative ? -exponent : exponent;
      p = q;
    }
  }

  double value = 0.0;
  auto const result = std::from_chars(text, p, value, std::chars_format::general);
  if (result.ec == std::errc::result_out_of_range) {
    // from_chars leaves value alone here; give what the nearest double would be.
    double const limit = magnitude >= 0 ? std::numeric_limits<double>::infinity() : 0.0;
    value = negative ? -limit : limit;
  } else if (result.ec != std::errc{}) {
    value = 0.0;
  }
  return value;
}

std::string u16_to_u8(char16_t const* units, int count) {
  std::string out;
  if (count <= 0 || units == nullptr) {
    return out;
  }
  if (count >= 2 && is_high_surrogate(units[0]) && is_low_surrogate(units[1])) {
    char32_t const cp = 0x10000 + ((char32_t{units[0]} - 0xD800) << 10) + (units[1] - 0xDC00);
    append_code_point(out, cp);
    return out;
  }
  append_unit(out, units[0]);
  if (count >= 2) {
    append_unit(out, units[1]);
  }
  return out;
}

}  // namespace foundation::json::detail
