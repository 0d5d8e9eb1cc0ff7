// The available-flavors request: the mime types the clipboard holds.
#include "clipboard/clipboard_impl.hpp"
#include "diagnostics/service_logger.hpp"
#include "platform/i18n.hpp"

namespace EditorServices {

using foundation::json::Value;

ClipboardImpl::ReplyMap ClipboardImpl::handleRequestForAvailableDataFlavors(RequestMap request) {
  std::string requestId;
  try {
    requestId = request[requestIdKey].get<std::string>();
  } catch (...) {
    EDITOR_SERVICES_LOG(
        "[handleRequestForAvailableDataFlavors] JSON message does not contain required fields "
        "'requestid'");
  }

  // Flavors are always listed from the system clipboard, whatever mode gets and sets use.
  std::vector<std::u16string> const mimeTypes =
      pf::clipboard::getAvailableMimeTypesSync(pf::clipboard::PFClipboardMode::clipboard);

  std::vector<Value> flavors(mimeTypes.size());
  for (std::size_t i = 0; i < mimeTypes.size(); ++i) {
    flavors[i] = Value(fl::i18n::ustring_to_utf8(mimeTypes[i]));
  }

  {
    std::lock_guard<std::mutex> lock(subscriptionMutex);
    if (changeSubscriptionActive) {
      lastReportedFlavors = flavors;
    }
  }

  ReplyMap reply;
  reply[successKey] = Value(true);
  reply[flavorsKey] = Value(std::move(flavors));
  reply[replyRequestIdKey] = Value(std::move(requestId));
  return reply;
}

}  // namespace EditorServices
