// Base64 (RFC 4648, standard alphabet, padded) for images that travel as text.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace pf::graphics::codec {

// Exact length of the padded text for `size` bytes.
constexpr std::size_t base64_encoded_size(std::size_t size) noexcept {
  return (size + 2) / 3 * 4;
}

// Writes exactly base64_encoded_size(size) characters to `out`.
void base64_encode_to(void const* data, std::size_t size, char* out) noexcept;

std::string base64_encode(void const* data, std::size_t size);

inline std::string base64_encode(std::vector<std::byte> const& bytes) {
  return base64_encode(bytes.data(), bytes.size());
}

// Decodes padded base64, skipping ASCII white space anywhere in the text. Throws
// std::invalid_argument for a character outside the alphabet, a length that is not a whole
// number of 4-character groups, "=" anywhere but at the end of the last group, or pad bits
// that are not zero (so every byte string has exactly one accepted encoding, up to white space).
std::vector<std::byte> base64_decode(std::string_view text);

// Room that base64_decode_to needs for a text of `text_size` characters.
constexpr std::size_t base64_decoded_capacity(std::size_t text_size) noexcept {
  return text_size / 4 * 3;
}

// As base64_decode, into `out` (base64_decoded_capacity(text.size()) bytes); returns the number
// of bytes written. On a throw, the contents of `out` are unspecified.
std::size_t base64_decode_to(std::string_view text, std::byte* out);

}  // namespace pf::graphics::codec
