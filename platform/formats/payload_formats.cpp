#include "platform/formats/payload_formats.hpp"

#include <algorithm>
#include <cstring>
#include <exception>
#include <utility>

#include "platform/i18n.hpp"

namespace pf::clipboard::formats {

std::string utf8Of(std::u16string const& text) {
  return fl::i18n::ustring_to_utf8(text);
}

std::vector<std::byte> bytesOf(std::string const& data) {
  std::vector<std::byte> out(data.size());
  if (!data.empty())
    std::memcpy(out.data(), data.data(), data.size());
  return out;
}

std::string stringOf(std::vector<std::byte> const& bytes) {
  std::string out(bytes.size(), '\0');
  if (!bytes.empty())
    std::memcpy(out.data(), bytes.data(), bytes.size());
  return out;
}

std::shared_ptr<pf::graphics::PFGraphics> imageOf(ReadKind kind, std::vector<std::byte> bytes) {
  return std::make_shared<pf::graphics::PFImage>(kind == ReadKind::svg
                                                     ? pf::graphics::PFImage::Format::svg
                                                     : pf::graphics::PFImage::Format::png,
                                                 std::move(bytes));
}

std::vector<OfferedType> offeredTypes(PFClipboardData const& data) {
  std::vector<OfferedType> plan;
  auto const add = [&plan](std::string name, std::string type,
                           std::shared_ptr<std::string const> const& bytes) {
    bool const have =
        std::any_of(plan.begin(), plan.end(), [&](OfferedType const& t) { return t.name == name; });
    if (!have)
      plan.push_back({std::move(name), std::move(type), bytes});
  };
  for (auto const& [mime16, content] : data.entries()) {
    std::string const mime = utf8Of(mime16);
    if (auto const* text = std::get_if<std::u16string>(&content)) {
      if (isTextTarget(mime)) {
        auto const utf8 = std::make_shared<std::string const>(utf8Of(*text));
        auto const latin1 =
            isAscii(*text) ? utf8 : std::make_shared<std::string const>(utf16ToLatin1(*text));
        add("UTF8_STRING", "UTF8_STRING", utf8);
        add("text/plain;charset=utf-8", "text/plain;charset=utf-8", utf8);
        add("text/plain", "text/plain", utf8);
        add("STRING", "STRING", latin1);
        add("TEXT", "UTF8_STRING", utf8);
      } else {
        // text/html and the like: UTF-8 unless the name asks for another charset.
        add(mime, mime, std::make_shared<std::string const>(encodeText(mime, *text)));
      }
    } else if (auto const* paths = std::get_if<std::vector<Path>>(&content)) {
      add("text/uri-list", "text/uri-list",
          std::make_shared<std::string const>(encodeUriList(*paths)));
      add("x-special/gnome-copied-files", "x-special/gnome-copied-files",
          std::make_shared<std::string const>(
              encodeGnomeCopiedFiles(*paths, data.clipboardAction())));
      if (data.clipboardAction() == PFClipboardAction::cut) {
        add("application/x-kde-cutselection", "application/x-kde-cutselection",
            std::make_shared<std::string const>("1"));
      }
    } else if (auto const* image =
                   std::get_if<std::shared_ptr<pf::graphics::PFGraphics>>(&content)) {
      if (!*image)
        continue;
      bool const svg = (*image)->kind() == pf::graphics::kVectorImage;
      std::unique_ptr<pf::graphics::PFEncodedImage> encoded;
      try {
        encoded = (*image)->encode(svg ? pf::graphics::kEncodeSvg : pf::graphics::kEncodePng,
                                   pf::graphics::kEncodeRaw, {});
      } catch (std::exception const&) {
        continue;  // an image we cannot produce is not offered
      }
      if (!encoded)
        continue;
      std::string const name = svg ? "image/svg+xml" : "image/png";
      add(name, name, std::make_shared<std::string const>(stringOf(encoded->bytes)));
    } else if (auto const* bytes = std::get_if<std::vector<std::byte>>(&content)) {
      if (!isMetaTarget(mime))
        add(mime, mime, std::make_shared<std::string const>(stringOf(*bytes)));
    }
  }
  return plan;
}

// The content of data of a target, as a read of `kind` returns it.
ClipboardContent contentOf(ReadKind kind, std::string const& typeName, std::string const& data) {
  switch (kind) {
    case ReadKind::text:
      if (auto text = decodeText(typeName, data))
        return std::move(*text);
      return {};
    case ReadKind::uriList: {
      auto paths = decodeUriList(data);
      if (paths.empty())
        return {};
      return paths;
    }
    case ReadKind::png:
    case ReadKind::svg:
      return imageOf(kind, bytesOf(data));
    case ReadKind::bytes:
      return bytesOf(data);
    case ReadKind::none:
      break;
  }
  return {};
}

std::optional<ClipboardContent> ownEntry(PFClipboardData const& data, std::string const& mime,
                                         ReadKind kind) {
  for (auto const& [name, content] : data.entries()) {
    if (equalsNoCase(utf8Of(name), mime))
      return content;
  }
  if (kind == ReadKind::text && isTextTarget(mime)) {
    for (auto const& [name, content] : data.entries()) {
      if (std::holds_alternative<std::u16string>(content) && isTextTarget(utf8Of(name)))
        return content;
    }
    // Built in place: moving an empty variant into the optional trips a false
    // maybe-uninitialized warning in g++ 12 under the sanitizers.
    return std::optional<ClipboardContent>(std::in_place);
  }
  return std::nullopt;
}

}  // namespace pf::clipboard::formats
