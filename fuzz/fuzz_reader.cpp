// The JSON reader over arbitrary bytes: any result code, never a crash, a hang or a leak, and a
// failing read leaves its output untouched.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "json/reader.hpp"
#include "json/writer.hpp"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  auto const* begin = reinterpret_cast<char const*>(data);
  char const* position = begin;
  foundation::json::Object out;
  out["sentinel"] = foundation::json::Value(true);
  int const code = foundation::json::parse_object(position, begin + size, false, out);
  if (position < begin || position > begin + size) {
    std::abort();
  }
  if (code != 0 && (out.size() != 1 || out.count("sentinel") != 1)) {
    std::abort();
  }
  if (code == 0) {
    // What was read serializes to text that reads back.
    std::string const text = foundation::json::serialize(foundation::json::Value(std::move(out)));
    char const* again = text.data();
    foundation::json::Object reread;
    if (foundation::json::parse_object(again, text.data() + text.size(), false, reread) != 0) {
      std::abort();
    }
  }
  return 0;
}
