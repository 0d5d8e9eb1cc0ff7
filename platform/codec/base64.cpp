#include "platform/codec/base64.hpp"

#include <array>
#include <cstdint>
#include <cstring>
#include <stdexcept>

namespace pf::graphics::codec {
namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr bool kLittleEndian = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;

// Words are built with the first output byte in the low bits; these put it first in memory.
inline void store_le64(void* out, std::uint64_t w) noexcept {
  if constexpr (!kLittleEndian)
    w = __builtin_bswap64(w);
  std::memcpy(out, &w, 8);
}

inline void store_le48(void* out, std::uint64_t w) noexcept {
  if constexpr (kLittleEndian) {
    std::memcpy(out, &w, 6);
  } else {
    w = __builtin_bswap64(w);
    std::memcpy(out, reinterpret_cast<unsigned char const*>(&w), 6);
  }
}

inline std::uint64_t load_be64(unsigned char const* in) noexcept {
  std::uint64_t w;
  std::memcpy(&w, in, 8);
  if constexpr (kLittleEndian)
    w = __builtin_bswap64(w);
  return w;
}

// Two output characters per 12 input bits: one lookup instead of two shifts, masks and lookups.
struct PairTable {
  std::array<std::uint16_t, 4096> pair{};
  constexpr PairTable() {
    for (unsigned i = 0; i < 4096; ++i) {
      pair[i] = static_cast<std::uint16_t>(static_cast<unsigned char>(kAlphabet[i >> 6]) |
                                           static_cast<unsigned char>(kAlphabet[i & 63]) << 8);
    }
  }
};
constexpr PairTable kPairs;

inline std::uint64_t encode6(unsigned char const* in) noexcept {
  std::uint64_t const w = load_be64(in);  // the top 48 bits are the 6 input bytes
  auto const& t = kPairs.pair;
  return std::uint64_t{t[w >> 52]} | std::uint64_t{t[(w >> 40) & 0xFFF]} << 16 |
         std::uint64_t{t[(w >> 28) & 0xFFF]} << 32 | std::uint64_t{t[(w >> 16) & 0xFFF]} << 48;
}

// Per character position, the character's 6 bits already placed in the 3 output bytes of its
// group (first byte lowest); anything outside the alphabet sets bit 24, so one OR of a block's
// lookups tells whether the block is clean.
constexpr std::uint32_t kBad = 0x01000000;

struct DecodeTables {
  std::array<std::int8_t, 256> value{};
  std::array<std::array<std::uint32_t, 256>, 4> placed{};
  constexpr DecodeTables() {
    for (unsigned c = 0; c < 256; ++c) {
      value[c] = -1;
      for (auto& t : placed)
        t[c] = kBad;
    }
    for (unsigned v = 0; v < 64; ++v) {
      auto const c = static_cast<unsigned char>(kAlphabet[v]);
      value[c] = static_cast<std::int8_t>(v);
      placed[0][c] = v << 2;
      placed[1][c] = v >> 4 | (v & 0xF) << 12;
      placed[2][c] = (v >> 2) << 8 | (v & 3) << 22;
      placed[3][c] = v << 16;
    }
  }
};
constexpr DecodeTables kDecode;

inline std::uint32_t decode4(unsigned char const* s) noexcept {
  auto const& p = kDecode.placed;
  return p[0][s[0]] | p[1][s[1]] | p[2][s[2]] | p[3][s[3]];
}

constexpr bool is_space(unsigned char c) noexcept {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

// Decodes whole groups from the start of `s` up to the first character outside the alphabet;
// returns the number of characters consumed (a multiple of 4, at most `n`).
std::size_t clean_prefix(unsigned char const* s, std::size_t n, unsigned char* out) noexcept {
  std::size_t i = 0;
  for (; i + 16 <= n; i += 16, out += 12) {
    std::uint32_t const a = decode4(s + i), b = decode4(s + i + 4), c = decode4(s + i + 8),
                        d = decode4(s + i + 12);
    if ((a | b | c | d) & kBad)
      break;
    store_le64(out, a | std::uint64_t{b} << 24);
    store_le48(out + 6, c | std::uint64_t{d} << 24);
  }
  for (; i + 4 <= n; i += 4, out += 3) {
    std::uint32_t const a = decode4(s + i);
    if (a & kBad)
      break;
    out[0] = static_cast<unsigned char>(a & 0xFF);
    out[1] = static_cast<unsigned char>(a >> 8 & 0xFF);
    out[2] = static_cast<unsigned char>(a >> 16);
  }
  return i;
}

[[noreturn]] void reject(char const* why) {
  throw std::invalid_argument(std::string("base64: ") + why);
}

}  // namespace

void base64_encode_to(void const* data, std::size_t size, char* out) noexcept {
  auto const* in = static_cast<unsigned char const*>(data);
  std::size_t i = 0;
  // Each step loads 8 bytes and uses 6, so stop while 8 remain readable.
  for (; i + 26 <= size; i += 24, out += 32) {
    std::uint64_t const a = encode6(in + i), b = encode6(in + i + 6), c = encode6(in + i + 12),
                        d = encode6(in + i + 18);
    store_le64(out, a);
    store_le64(out + 8, b);
    store_le64(out + 16, c);
    store_le64(out + 24, d);
  }
  for (; i + 8 <= size; i += 6, out += 8)
    store_le64(out, encode6(in + i));
  auto const& t = kPairs.pair;
  for (; i + 3 <= size; i += 3, out += 4) {
    std::uint32_t const w = std::uint32_t{in[i]} << 16 | std::uint32_t{in[i + 1]} << 8 | in[i + 2];
    std::uint32_t const quad = std::uint32_t{t[w >> 12]} | std::uint32_t{t[w & 0xFFF]} << 16;
    out[0] = static_cast<char>(quad & 0xFF);
    out[1] = static_cast<char>(quad >> 8 & 0xFF);
    out[2] = static_cast<char>(quad >> 16 & 0xFF);
    out[3] = static_cast<char>(quad >> 24);
  }
  if (std::size_t const rest = size - i; rest != 0) {
    std::uint32_t const w =
        std::uint32_t{in[i]} << 16 | (rest == 2 ? std::uint32_t{in[i + 1]} << 8 : 0);
    out[0] = kAlphabet[w >> 18];
    out[1] = kAlphabet[w >> 12 & 63];
    out[2] = rest == 2 ? kAlphabet[w >> 6 & 63] : '=';
    out[3] = '=';
  }
}

std::string base64_encode(void const* data, std::size_t size) {
  // Through a small buffer: a string sized up front would first be filled with zeros.
  constexpr std::size_t kChunk = 12288;  // input bytes per step, a multiple of 3
  char buffer[kChunk / 3 * 4];
  std::string text;
  text.reserve(base64_encoded_size(size));
  auto const* in = static_cast<unsigned char const*>(data);
  for (std::size_t done = 0; done < size; done += kChunk) {
    std::size_t const step = size - done < kChunk ? size - done : kChunk;
    base64_encode_to(in + done, step, buffer);
    text.append(buffer, base64_encoded_size(step));
  }
  return text;
}

std::size_t base64_decode_to(std::string_view text, std::byte* bytes) {
  auto const* s = reinterpret_cast<unsigned char const*>(text.data());
  std::size_t const n = text.size();
  auto* const start = reinterpret_cast<unsigned char*>(bytes);
  unsigned char* out = start;
  std::size_t i = 0;
  for (;;) {
    std::size_t const clean = clean_prefix(s + i, n - i, out);
    i += clean;
    out += clean / 4 * 3;
    // White space, padding or a bad character ahead: gather characters of the alphabet past
    // white space until the groups line up again (line breaks between whole groups cost one
    // pass through here), then decode them and return to the text.
    constexpr std::size_t kGather = 256;
    unsigned char gathered[kGather];
    std::size_t k = 0;
    bool skipped = false;
    for (; i < n && k < kGather; ++i) {
      unsigned char const ch = s[i];
      if (kDecode.value[ch] >= 0) {
        if (skipped && k % 4 == 0)
          break;
        gathered[k++] = ch;
      } else if (ch == '=') {
        break;
      } else if (is_space(ch)) {
        skipped = true;
      } else {
        reject("character outside the alphabet");
      }
    }
    std::size_t const whole = k / 4 * 4;
    clean_prefix(gathered, whole, out);
    out += whole / 4 * 3;
    if (i < n && s[i] != '=')
      continue;
    std::size_t const r = k - whole;  // characters of the last group
    if (i == n) {
      if (r != 0)
        reject("length is not a multiple of 4");
      break;
    }
    // Padding: "xx==" or "xxx=", then only white space.
    if (r < 2)
      reject("misplaced padding");
    std::size_t pads = 0;
    for (; i < n; ++i) {
      if (is_space(s[i]))
        continue;
      if (s[i] != '=' || ++pads > 4 - r)
        reject("misplaced padding");
    }
    if (pads != 4 - r)
      reject("incomplete padding");
    unsigned const q0 = static_cast<unsigned>(kDecode.value[gathered[whole]]);
    unsigned const q1 = static_cast<unsigned>(kDecode.value[gathered[whole + 1]]);
    unsigned const q2 = r == 3 ? static_cast<unsigned>(kDecode.value[gathered[whole + 2]]) : 0;
    if ((r == 2 ? q1 & 0xF : q2 & 3) != 0)
      reject("non-zero pad bits");
    std::uint32_t const w = q0 << 18 | q1 << 12 | q2 << 6;
    *out++ = static_cast<unsigned char>(w >> 16);
    if (r == 3)
      *out++ = static_cast<unsigned char>(w >> 8);
    break;
  }
  return static_cast<std::size_t>(out - start);
}

std::vector<std::byte> base64_decode(std::string_view text) {
  std::vector<std::byte> bytes(base64_decoded_capacity(text.size()));
  bytes.resize(base64_decode_to(text, bytes.data()));
  return bytes;
}

}  // namespace pf::graphics::codec
