#include "platform/formats/derived_formats.hpp"

#include <algorithm>
#include <array>
#include <stdexcept>

#include "platform/codec/images.hpp"
#include "platform/formats/clipboard_formats.hpp"
#include "platform/i18n.hpp"

namespace pf::clipboard::formats {
namespace {

constexpr std::array<std::string_view, 2> kCopiedFilesTypes = {"x-special/gnome-copied-files",
                                                               "x-special/mate-copied-files"};
constexpr std::string_view kKdeUriListType = "application/x-kde4-urilist";

// Lossless ones first: a screenshot offered as BMP and JPEG converts from the BMP.
constexpr std::array<pf::graphics::codec::ImageFormat, 5> kImagePreference = {
    pf::graphics::codec::ImageFormat::bmp, pf::graphics::codec::ImageFormat::tiff,
    pf::graphics::codec::ImageFormat::webp, pf::graphics::codec::ImageFormat::gif,
    pf::graphics::codec::ImageFormat::jpeg};

bool offers(std::vector<std::string> const& offered, std::string_view mime) {
  return std::any_of(offered.begin(), offered.end(),
                     [mime](std::string const& have) { return sameBaseType(have, mime); });
}

std::optional<std::string> fileListSource(std::vector<std::string> const& offered) {
  for (auto const& type : offered) {
    if (isCopiedFilesType(type))
      return type;
  }
  for (auto const& type : offered) {
    if (sameBaseType(type, kKdeUriListType))
      return type;
  }
  return std::nullopt;
}

std::optional<std::string> imageSource(std::vector<std::string> const& offered) {
  for (auto const format : kImagePreference) {
    for (auto const& type : offered) {
      if (pf::graphics::codec::image_format_of_mime(type) == format)
        return type;
    }
  }
  return std::nullopt;
}

std::string_view firstLine(std::string_view bytes) {
  auto line = bytes.substr(0, bytes.find('\n'));
  while (!line.empty() && (line.back() == '\r' || line.back() == '\0' || line.back() == ' '))
    line.remove_suffix(1);
  return line;
}

}  // namespace

std::optional<CopiedFiles> decodeCopiedFiles(std::string_view bytes) {
  auto const action = firstLine(bytes);
  CopiedFiles out;
  if (equalsNoCase(action, "cut")) {
    out.action = PFClipboardAction::cut;
  } else if (!equalsNoCase(action, "copy")) {
    return std::nullopt;
  }
  auto const newline = bytes.find('\n');
  if (newline != std::string_view::npos)
    out.paths = decodeUriList(bytes.substr(newline + 1));
  return out;
}

bool isCopiedFilesType(std::string_view mime) {
  return std::any_of(kCopiedFilesTypes.begin(), kCopiedFilesTypes.end(),
                     [mime](std::string_view type) { return sameBaseType(mime, type); });
}

bool isCutMark(std::string_view bytes) {
  return firstLine(bytes) == "1";
}

bool isFileListSource(std::string_view mime) {
  return isCopiedFilesType(mime) || sameBaseType(mime, kKdeUriListType);
}

bool isConvertibleImage(std::string_view mime) {
  auto const format = pf::graphics::codec::image_format_of_mime(mime);
  return format != pf::graphics::codec::ImageFormat::unknown &&
         format != pf::graphics::codec::ImageFormat::png;
}

std::optional<std::string> cutStateSource(std::vector<std::string> const& offered) {
  if (offers(offered, kKdeCutSelectionType))
    return std::nullopt;
  for (auto const& type : offered) {
    if (isCopiedFilesType(type))
      return type;
  }
  return std::nullopt;
}

std::vector<std::string> listedTypes(std::vector<std::string> const& offered, bool filesCut) {
  std::vector<std::string> out;
  out.reserve(offered.size() + 3);
  auto const fileSource = offers(offered, kUriListType) ? std::nullopt : fileListSource(offered);
  auto const image = offers(offered, kPngType) ? std::nullopt : imageSource(offered);
  for (auto const& type : offered) {
    // The derived type stands just before what it is read from.
    if (fileSource && type == *fileSource)
      out.emplace_back(kUriListType);
    if (image && type == *image)
      out.emplace_back(kPngType);
    out.push_back(type);
  }
  if (filesCut && !offers(offered, kKdeCutSelectionType))
    out.emplace_back(kKdeCutSelectionType);
  return out;
}

std::optional<std::string> derivedSource(std::string_view wanted,
                                         std::vector<std::string> const& offered) {
  if (offers(offered, wanted))
    return std::nullopt;
  if (sameBaseType(wanted, kUriListType))
    return fileListSource(offered);
  if (sameBaseType(wanted, kKdeCutSelectionType))
    return cutStateSource(offered);
  if (equalsNoCase(wanted, kPngType))
    return imageSource(offered);
  return std::nullopt;
}

ClipboardContent derivedContent(std::string_view wanted, std::string_view source,
                                std::string_view bytes) {
  if (sameBaseType(wanted, kUriListType) || sameBaseType(wanted, kKdeCutSelectionType)) {
    std::optional<CopiedFiles> files;
    if (isCopiedFilesType(source)) {
      files = decodeCopiedFiles(bytes);
    } else if (sameBaseType(source, kKdeUriListType)) {
      files = CopiedFiles{PFClipboardAction::copy, decodeUriList(bytes)};
    }
    if (!files)
      return {};
    if (sameBaseType(wanted, kKdeCutSelectionType)) {
      if (files->action != PFClipboardAction::cut)
        return {};
      return std::vector<std::byte>{std::byte{'1'}};
    }
    if (files->paths.empty())
      return {};
    return std::move(files->paths);
  }
  if (equalsNoCase(wanted, kPngType) && isConvertibleImage(source)) {
    try {
      auto pixels = pf::graphics::codec::decode_image_rgba(bytes.data(), bytes.size());
      return std::shared_ptr<pf::graphics::PFGraphics>(
          pf::graphics::PFImage::fromRgba(pixels.width, pixels.height, std::move(pixels.rgba)));
    } catch (std::invalid_argument const& error) {
      throw std::invalid_argument(std::string(source) +
                                  " does not convert to PNG: " + error.what());
    }
  }
  return {};
}

bool isSecretHint(std::string_view bytes) {
  while (!bytes.empty() && (bytes.back() == '\0' || bytes.back() == '\n' || bytes.back() == '\r'))
    bytes.remove_suffix(1);
  return bytes == "secret";
}

bool isMarkedSecret(PFClipboardData const& data) {
  for (auto const& [mime, content] : data.entries()) {
    if (!equalsNoCase(fl::i18n::ustring_to_utf8(mime), kPasswordManagerHintType))
      continue;
    if (auto const* text = std::get_if<std::u16string>(&content)) {
      if (isSecretHint(fl::i18n::ustring_to_utf8(*text)))
        return true;
    } else if (auto const* bytes = std::get_if<std::vector<std::byte>>(&content)) {
      if (isSecretHint(
              std::string_view(reinterpret_cast<char const*>(bytes->data()), bytes->size())))
        return true;
    }
  }
  return false;
}

}  // namespace pf::clipboard::formats
