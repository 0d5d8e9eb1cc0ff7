// How clipboard contents look to other programs: type names, text encodings and file lists.
// Shared by the backends that talk to other programs (X11, Wayland). Pure functions.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/clipboard.hpp"
#include "platform/i18n.hpp"

namespace pf::clipboard::formats {

// What a read of a mime type returns.
enum class ReadKind {
  text,     // std::u16string
  uriList,  // std::vector<Path>
  png,      // an image
  svg,      // an image
  bytes,    // std::vector<std::byte>
  none,     // a protocol target, never read as data
};

ReadKind readKindOf(std::string_view mime);

// ASCII case-insensitive comparisons; mime names and X target names are ASCII.
bool equalsNoCase(std::string_view a, std::string_view b);
bool startsWithNoCase(std::string_view text, std::string_view prefix);

// The X targets that carry plain text: UTF8_STRING, STRING, TEXT, COMPOUND_TEXT, text/plain*.
bool isTextTarget(std::string_view name);
// Mime types read as text: every text/* type except text/uri-list (parameters allowed).
bool isTextMimeType(std::string_view mime);
// Whether two mime types name the same type once their parameters are dropped.
bool sameBaseType(std::string_view a, std::string_view b);
// Targets that describe the conversion rather than carry data (TARGETS, MULTIPLE, INCR, ...).
bool isMetaTarget(std::string_view name);

// The mime types an owner's TARGETS stand for: meta and other non-mime targets dropped (the
// password managers' x-kde-passwordManagerHint is kept, though it has no slash), every
// text target shown once as "text/plain" where the first of them stood, duplicates removed.
std::vector<std::string> mimeTypesFromTargets(std::vector<std::string> const& targets);

// How text of a property type is encoded.
enum class TextEncoding {
  utf8,
  latin1,
  utf16,    // byte order from a byte-order mark, little-endian without one
  utf16le,  // a leading FF FE is dropped
  utf16be,  // a leading FE FF is dropped
  utf8OrLatin1,
  byContent,  // a text mime type without a charset: marks, NULs (UTF-16), UTF-8, else Latin-1
  notText,
};
TextEncoding textEncodingOfType(std::string_view type);

// Text of a reply of type `type`; nullopt when that type does not hold text. One trailing NUL
// is dropped.
std::optional<std::u16string> decodeText(std::string_view type, std::string_view bytes);
// The bytes that serve `text` under the mime type `type`: in its charset when we can write
// that, UTF-8 otherwise.
std::string encodeText(std::string_view type, std::u16string const& text);

// UTF-8 to UTF-16 fed piece by piece, as the transfers arrive: the i18n core's decoder.
using fl::i18n::Utf8Decoder;

std::u16string latin1ToUtf16(std::string_view bytes);
// Latin-1 bytes of UTF-16 text; a character outside Latin-1 becomes '?'.
std::string utf16ToLatin1(std::u16string const& text);
bool isAscii(std::u16string const& text) noexcept;

// A path as a URI: absolute paths become percent-encoded file:// URIs; text that already is a
// URI is kept.
std::string uriOfPath(Path const& path);
// A URI as a path: file URIs (file:///p, file://localhost/p, file:/p) percent-decoded to the
// path; any other URI kept as its text.
Path pathOfUri(std::string_view uri);

// text/uri-list: one URI per line, CRLF-separated.
std::string encodeUriList(std::vector<Path> const& paths);
// Lines of a uri list; comment lines, blank lines and CRs dropped.
std::vector<Path> decodeUriList(std::string_view list);
// x-special/gnome-copied-files: "copy" or "cut", then one URI per line, no trailing newline.
std::string encodeGnomeCopiedFiles(std::vector<Path> const& paths, PFClipboardAction action);

}  // namespace pf::clipboard::formats
