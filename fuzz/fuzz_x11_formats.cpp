// The decoders of what other programs put on a clipboard, fed what a hostile owner could send.
// Input: a target name, a newline, then the bytes answered under it. Everything a reader does
// with such bytes runs: text by the name's charset, uri lists, copied-files lists, the derived
// types an owner's list of types gives, image sniffing and every image decoder.
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "platform/codec/images.hpp"
#include "platform/formats/clipboard_formats.hpp"
#include "platform/formats/derived_formats.hpp"
#include "platform/formats/payload_formats.hpp"

namespace {

using namespace pf::clipboard::formats;

// Decoded images may take this much RGBA here (a real read allows 1 GiB), so that a header
// claiming a huge image costs the fuzzer milliseconds, not seconds.
constexpr std::uint64_t kFuzzImageBudget = std::uint64_t{64} << 20;

void decodeImage(std::string_view bytes) {
  try {
    auto const pixels =
        pf::graphics::codec::decode_image_rgba(bytes.data(), bytes.size(), kFuzzImageBudget);
    if (pixels.rgba.size() != std::size_t{pixels.width} * pixels.height * 4)
      __builtin_trap();
    if (pixels.width > pf::graphics::codec::kPngMaxSide ||
        pixels.height > pf::graphics::codec::kPngMaxSide)
      __builtin_trap();
  } catch (std::invalid_argument const&) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::string_view const input(reinterpret_cast<char const*>(data), size);
  auto const newline = input.find('\n');
  if (newline == std::string_view::npos || newline > 256)
    return 0;
  std::string const type(input.substr(0, newline));
  std::string_view const bytes = input.substr(newline + 1);

  (void)readKindOf(type);
  (void)textEncodingOfType(type);
  (void)decodeText(type, bytes);
  (void)decodeUriList(bytes);
  (void)isSecretHint(bytes);
  (void)isCutMark(bytes);
  if (auto files = decodeCopiedFiles(bytes)) {
    // What we would offer for those paths must decode back to as many paths.
    auto const again = decodeCopiedFiles(encodeGnomeCopiedFiles(files->paths, files->action));
    if (!again || again->action != files->action)
      __builtin_trap();
  }
  (void)contentOf(readKindOf(type), type, std::string(bytes));

  // The bytes as an owner's list of types, one a line: what we list and read for it.
  std::vector<std::string> offered;
  for (std::size_t start = 0; start < bytes.size() && offered.size() < 64;) {
    auto const end = std::min(bytes.find('\n', start), bytes.size());
    offered.emplace_back(bytes.substr(start, end - start));
    start = end + 1;
  }
  auto const listed = listedTypes(mimeTypesFromTargets(offered), true);
  if (listed.size() > offered.size() + 3)
    __builtin_trap();
  for (auto const* wanted : {"text/uri-list", "application/x-kde-cutselection", "image/png"}) {
    if (auto const source = derivedSource(wanted, offered)) {
      if (!isFileListSource(*source) && !isConvertibleImage(*source))
        __builtin_trap();
    }
  }

  // The derived contents of these bytes under the type's name, and every image decoder.
  for (auto const* wanted : {"text/uri-list", "application/x-kde-cutselection"}) {
    (void)derivedContent(wanted, type, bytes);
  }
  (void)pf::graphics::codec::sniff_image_format(bytes.data(), bytes.size());
  (void)pf::graphics::codec::jpeg_exif_orientation(bytes.data(), bytes.size());
  decodeImage(bytes);
  return 0;
}
