// The set request: clipboard items from JSON to one platform payload, written once.
#include <cstring>

#include "clipboard/clipboard_impl.hpp"
#include "diagnostics/service_logger.hpp"
#include "platform/i18n.hpp"

namespace EditorServices {

using foundation::json::Value;

namespace {

// The data-URL header of an image text is recognised by this many characters.
constexpr std::size_t kImageHeaderLength = 11;

// A member of an item, or Undefined when it has none: the getters then fail as for a missing
// key, without copying the item to insert one.
Value const& memberOf(std::map<std::string, Value> const& item, std::string const& key) {
  static Value const undefined;
  auto const it = item.find(key);
  return it == item.end() ? undefined : it->second;
}

}  // namespace

ClipboardImpl::ReplyMap ClipboardImpl::handleSetClipboardDataRequest(
    RequestMap request, pf::clipboard::PFClipboardMode const& mode) {
  ReplyMap reply;
  std::string requestId;

  bool outcome = request[successKey].get<bool>();
  if (outcome) {
    try {
      requestId = request[requestIdKey].get<std::string>();
      std::vector<Value> items = std::move(request[clipboardItemsKey].get<std::vector<Value>>());
      addClipboardContents(items, mode);
    } catch (...) {
      EDITOR_SERVICES_LOG(
          "[handleSetClipboardDataRequest] JSON message does not contain required fields");
      outcome = false;
    }
  }

  reply[successKey] = Value(outcome);
  reply[replyRequestIdKey] = Value(std::move(requestId));
  return reply;
}

void ClipboardImpl::addClipboardContents(std::vector<Value> const& items,
                                         pf::clipboard::PFClipboardMode const& mode) {
  auto payload = std::make_unique<pf::clipboard::PFClipboardData>();

  for (std::size_t i = 0; i < items.size(); ++i) {
    std::string mimeType;
    try {
      auto const& item = items[i].get<std::map<std::string, Value>>();
      mimeType = memberOf(item, itemMimeTypeKey).get<std::string>();

      if (mimeType == ignoredMimeType) {
        continue;
      }

      if (isTextUriList(mimeType)) {
        std::u16string const platformMimeType = fl::i18n::to_ustring(mimeType);
        std::string action;
        std::vector<Value> entries;
        try {
          action = memberOf(item, itemActionKey).get<std::string>();
          entries = memberOf(item, itemDataKey).get<std::vector<Value>>();
        } catch (...) {
          action = defaultActionText;
        }

        std::vector<pf::clipboard::Path> paths(entries.size());
        if (action == actionOneText) {
          payload->setClipboardAction(pf::clipboard::PFClipboardAction::cut);
        }
        for (std::size_t j = 0; j < entries.size(); ++j) {
          std::u16string const text = fl::i18n::to_ustring(entries[j].get<std::string>());
          if (!text.empty()) {
            paths[j] = pf::clipboard::Path(fl::filesystem::detail::make_native_form(text, true));
          }
        }
        payload->addData(platformMimeType, paths);
        continue;
      }

      std::string const& data = memberOf(item, itemDataKey).get<std::string>();

      if (isApplicationType(mimeType)) {
        // The bytes of the text as they stand: no decoding of any kind.
        std::vector<std::byte> bytes(data.size());
        if (!data.empty()) {
          std::memcpy(bytes.data(), data.data(), data.size());
        }
        payload->addData(fl::i18n::to_ustring(mimeType), std::move(bytes));
      } else if (isGraphicsType(mimeType)) {
        std::string const header = dataUrlPrefix + graphicsMimePrefix;
        std::unique_ptr<pf::graphics::PFGraphics> image;
        if (data.compare(0, kImageHeaderLength, header) == 0) {
          // From the comma on, the comma included; no comma throws std::out_of_range.
          image = pf::graphics::constructPFGraphicsFromBase64(data.substr(data.find(',')));
        } else {
          image = pf::graphics::constructPFGraphicsFromBase64(data);
        }
        payload->addData(mimeType == svgMimeType ? u"image/svg" : u"image/png", std::move(image));
      } else {
        payload->addData(fl::i18n::to_ustring(mimeType), fl::i18n::to_ustring(data));
      }
    } catch (...) {
      EDITOR_SERVICES_LOG("Exception caught for flavor :: " << mimeType << "\n");
    }
  }

  pf::clipboard::setClipboardData(std::move(payload), mode);
}

}  // namespace EditorServices
