// What a reader of another program's clipboard lists and reads beyond the types the owner offers
// itself: a file list as text/uri-list when a file manager offers only its own type, the KDE cut
// mark when the files were cut, PNG converted from the other image formats. And the mark with
// which password managers keep what they copy out of clipboard managers. Pure functions; the
// X11 and Wayland backends call them around their own transfers.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/clipboard.hpp"

namespace pf::clipboard::formats {

constexpr std::string_view kUriListType = "text/uri-list";
constexpr std::string_view kGnomeCopiedFilesType = "x-special/gnome-copied-files";
constexpr std::string_view kKdeCutSelectionType = "application/x-kde-cutselection";
constexpr std::string_view kPngType = "image/png";
// Password managers offer this type holding "secret" beside what they copy.
constexpr std::string_view kPasswordManagerHintType = "x-kde-passwordManagerHint";

// A file manager's own list: "copy" or "cut", then one URI per line (GNOME, Nemo, Thunar; MATE
// under x-special/mate-copied-files).
struct CopiedFiles {
  PFClipboardAction action = PFClipboardAction::copy;
  std::vector<Path> paths;
};
// nullopt when the first line is neither "copy" nor "cut". URIs decode as in text/uri-list.
std::optional<CopiedFiles> decodeCopiedFiles(std::string_view bytes);
bool isCopiedFilesType(std::string_view mime);
// application/x-kde-cutselection holds "1" when the files were cut.
bool isCutMark(std::string_view bytes);

// Types whose bytes hold a file list another way: the copied-files types, then KDE's own uri
// list type, in that order of preference.
bool isFileListSource(std::string_view mime);
// Images we convert to PNG (JPEG, GIF, WebP, TIFF, BMP under their usual names).
bool isConvertibleImage(std::string_view mime);

// The copied-files type to read to learn whether the owner's files are cut, when only its first
// line can tell (no KDE cut mark offered); nullopt when no read is needed.
std::optional<std::string> cutStateSource(std::vector<std::string> const& offered);

// The mime types to list for an owner that offers `offered` (its own mime types, as
// mimeTypesFromTargets gives them): those, plus text/uri-list beside a file-list source when
// the owner offers none, the KDE cut mark when `filesCut`, and image/png beside the first
// convertible image when the owner offers no PNG.
std::vector<std::string> listedTypes(std::vector<std::string> const& offered, bool filesCut);

// The offered type to read for `wanted` when the owner does not offer `wanted` itself; nullopt
// when nothing offered can stand in for it.
std::optional<std::string> derivedSource(std::string_view wanted,
                                         std::vector<std::string> const& offered);

// The content of `wanted` made from `bytes` read under `source` (as derivedSource chose): a
// path list, the cut mark's bytes ("1"; nothing when the files were copied), or a PNG image.
// Throws std::invalid_argument with the decoder's reason for an image that does not decode.
ClipboardContent derivedContent(std::string_view wanted, std::string_view source,
                                std::string_view bytes);

// Whether a hint's bytes say "secret" (a trailing NUL or line end aside).
bool isSecretHint(std::string_view bytes);
// Whether a payload carries the password manager's hint saying "secret", as text or bytes.
// Such a payload is served to programs that ask, but never handed to a clipboard manager.
bool isMarkedSecret(PFClipboardData const& data);

}  // namespace pf::clipboard::formats
