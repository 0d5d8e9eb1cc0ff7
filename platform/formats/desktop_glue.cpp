#include "platform/formats/desktop_glue.hpp"

#include <stdexcept>
#include <string>

namespace pf::clipboard::formats {

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

}  // namespace pf::clipboard::formats
