#include "platform/formats/desktop_glue.hpp"

#include <stdexcept>
#include <string>

#include "platform/formats/derived_formats.hpp"
#include "platform/i18n.hpp"

namespace pf::clipboard::formats {
namespace {

std::vector<std::u16string> utf16Of(std::vector<std::string> const& mimes) {
  std::vector<std::u16string> out;
  out.reserve(mimes.size());
  for (auto const& mime : mimes)
    out.push_back(fl::i18n::to_ustring(mime));
  return out;
}

}  // namespace

void checkMode(PFClipboardMode mode, std::string_view backend) {
  if (mode != PFClipboardMode::clipboard && mode != PFClipboardMode::selection)
    throw std::invalid_argument(std::string(backend) + ": unknown clipboard mode");
}

std::vector<OfferedType> typesToOffer(std::string_view backend, PFClipboardData const* data,
                                      std::size_t maxBytes) {
  if (!data)
    throw std::invalid_argument(std::string(backend) + ": no payload");
  auto types = offeredTypes(*data);
  for (auto const& type : types) {
    if (type.data->size() > maxBytes)
      throw std::runtime_error(std::string(backend) + ": " + type.name + " exceeds the size limit");
  }
  return types;
}

std::vector<std::u16string> listOwnPayload(PFClipboardData const& data) {
  std::vector<std::string> names;
  bool files = false;
  for (auto const& entry : data.entries()) {
    names.push_back(utf8Of(entry.first));
    files = files || std::holds_alternative<std::vector<Path>>(entry.second);
  }
  bool const cut = files && data.clipboardAction() == PFClipboardAction::cut;
  return utf16Of(listedTypes(mimeTypesFromTargets(names), cut));
}

OfferListing listOffer(
    std::vector<std::string> const& offered,
    std::function<std::optional<std::string>(std::string const&)> const& readList) {
  OfferListing listing;
  bool cut = false;
  if (auto const source = cutStateSource(offered)) {
    try {
      if (auto const bytes = readList(*source)) {
        auto const files = decodeCopiedFiles(*bytes);
        cut = files && files->action == PFClipboardAction::cut;
      }
    } catch (std::runtime_error const&) {
      listing.probeFailed = true;
    }
  }
  listing.types = utf16Of(listedTypes(offered, cut));
  return listing;
}

ClipboardContent derivedContentOf(std::string_view backend, std::string_view wanted,
                                  std::string_view source, std::string_view bytes) {
  try {
    return derivedContent(wanted, source, bytes);
  } catch (std::invalid_argument const& error) {
    throw std::runtime_error(std::string(backend) + ": " + error.what());
  }
}

}  // namespace pf::clipboard::formats
