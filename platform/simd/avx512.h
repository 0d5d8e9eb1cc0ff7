// Text kernels for x86-64 CPUs with AVX-512 (BW, VL, VBMI, VBMI2) and BMI2, chosen at run time.
// They take the common case, block by block, and stop in front of a block that needs the
// careful path; callers go on with their own code from there. Internal to the library.
#pragma once

namespace fl::simd {

// Whether the kernels below may be called: the CPU has the instructions, the OS saves the
// registers, and the environment variable EDITOR_CLIPBOARD_SIMD is not "baseline" (which keeps
// every conversion on the portable code, for tests and for comparison). Decided once.
bool avx512_usable();

// Writes the UTF-8 form of UTF-16 units from `p` at `out`, 32 units at a time, while at least
// 96 units are left (the units after a block own the room its stores write ahead into) and, if
// `limit` is not null, 128 bytes of room are left before it. A surrogate pair becomes its
// four-byte form, an unpaired surrogate U+FFFD. Returns where it stopped; `out` moves past what
// was written.
char16_t const* utf16_to_utf8_avx512(char16_t const* p, char16_t const* end, char*& out,
                                     char const* limit);

// Writes the bytes from `in` as the inside of a JSON string at `out`, 32 at a time: '"', '\\'
// and the controls escaped (\b \f \n \r \t, the others as \u00XX), well-formed UTF-8 as it
// is. Goes on while at least 64 bytes are left and 128 bytes of room before `limit`; stops in
// front of a block with malformed UTF-8. Returns where it stopped, which is never inside a
// character (a sequence the last block left open is handed back); `out` moves.
unsigned char const* escape_json_avx512(unsigned char const* in, unsigned char const* end,
                                        char*& out, char const* limit);

// Widens ASCII bytes from `p` into UTF-16 units at `out`, 32 at a time, while at least 32 bytes
// are left; stops in front of a block that holds a byte above 0x7F. Returns where it stopped;
// `out` moves past what was written.
unsigned char const* ascii_to_utf16_avx512(unsigned char const* p, unsigned char const* end,
                                           char16_t*& out);

}  // namespace fl::simd
