// The get request: read the formats asked for and answer with their data as JSON.
#include "clipboard/clipboard_impl.hpp"
#include "diagnostics/service_logger.hpp"
#include "platform/i18n.hpp"

namespace EditorServices {

using foundation::json::Value;

ClipboardImpl::ReplyMap ClipboardImpl::handleGetClipboardDataRequest(
    RequestMap request, pf::clipboard::PFClipboardMode const& mode) {
  std::string requestId;
  std::vector<Value> flavors;
  std::map<std::string, Value> data;

  bool success = request[successKey].get<bool>();
  if (success) {
    try {
      requestId = request[requestIdKey].get<std::string>();
      flavors = std::move(request[flavorsKey].get<std::vector<Value>>());
    } catch (...) {
      EDITOR_SERVICES_LOG(
          "[handleGetClipboardDataRequest] JSON message does not contain required fields");
      success = false;
    }

    if (flavors.empty()) {
      bool subscribed = false;
      {
        std::lock_guard<std::mutex> lock(subscriptionMutex);
        subscribed = changeSubscriptionActive;
        if (subscribed) {
          flavors = lastReportedFlavors;
        }
      }
      if (!subscribed) {
        try {
          ReplyMap available = handleRequestForAvailableDataFlavors(RequestMap());
          flavors = std::move(available[flavorsKey].get<std::vector<Value>>());
        } catch (...) {
          EDITOR_SERVICES_LOG(
              "[handleGetClipboardDataRequest] JSON message does not contain required fields "
              "from handleRequestForAvailableDataFlavors API");
          flavors = fallbackFlavors;
        }
      }
    }

    data = getClipboardData(flavors, mode);
  }

  ReplyMap reply;
  reply[successKey] = Value(success);
  reply[clipboardItemsKey] = Value(std::move(data));
  reply[replyRequestIdKey] = Value(std::move(requestId));
  return reply;
}

std::map<std::string, Value> ClipboardImpl::getClipboardData(
    std::vector<Value> const& flavors, pf::clipboard::PFClipboardMode const& mode) {
  std::map<std::string, Value> data;
  for (std::size_t i = 0; i < flavors.size(); ++i) {
    std::string mimeType;
    pf::clipboard::ClipboardContent content;
    std::string text;

    try {
      mimeType = flavors[i].get<std::string>();
      mimeType = fl::i18n::ustring_to_utf8(fl::i18n::to_ustring(mimeType));
    } catch (...) {
      EDITOR_SERVICES_LOG("Invalid JSON format sent for getClipboardData");
      continue;
    }

    std::u16string const platformMimeType = fl::i18n::to_ustring(mimeType);

    try {
      content = pf::clipboard::getClipboardDataSync(platformMimeType, mode);
    } catch (...) {
      EDITOR_SERVICES_LOG("getClipboardDataSync threw an exception for mime Type: " << mimeType);
      continue;
    }

    // The content is handed to its getter and not used again, so it is moved rather than copied.
    if (mimeType == nativeMimeType1 || mimeType == nativeMimeType2 || mimeType == nativeMimeType3) {
      text = getClipboardContentApplicationType(std::move(content));
      if (text.empty()) {
        content = pf::clipboard::getClipboardDataSync(
            fl::i18n::to_ustring(getJavaMimeType(mimeType)), mode);
        text = getClipboardContentJavaApplicationType(std::move(content));
      }
      if (!text.empty()) {
        data[mimeType] = Value(std::move(text));
      }
    } else if (isTextUriList(mimeType)) {
      std::vector<Value> list = getClipboardContentUriList(std::move(content));
      if (!list.empty()) {
        data[mimeType] = Value(std::move(list));
      }
    } else if (isGraphicsType(mimeType)) {
      text = getClipboardContentImages(std::move(content));
      if (!text.empty()) {
        if (mimeType == taggedImageMimeType) {
          std::map<std::string, Value> tagged;
          tagged["__type__"] = Value("image");
          tagged["__value__"] = Value(taggedImageValuePrefix + text);
          data[mimeType] = Value(std::move(tagged));
        } else {
          std::string dataUrl;
          dataUrl.reserve(dataUrlPrefix.size() + mimeType.size() +
                          dataUrlParameterSeparator.size() + dataUrlEncodingName.size() +
                          dataUrlDataSeparator.size() + text.size());
          dataUrl += dataUrlPrefix;
          dataUrl += mimeType;
          dataUrl += dataUrlParameterSeparator;
          dataUrl += dataUrlEncodingName;
          dataUrl += dataUrlDataSeparator;
          dataUrl += text;
          data[mimeType] = Value(std::move(dataUrl));
        }
      }
    } else if (isTextType(mimeType)) {
      text = getClipboardContentPlainText(std::move(content));
      if (!text.empty()) {
        data[mimeType] = Value(std::move(text));
      }
    } else if (isApplicationType(mimeType)) {
      text = getClipboardContentApplicationType(std::move(content));
      if (!text.empty()) {
        data[mimeType] = Value(std::move(text));
      }
    }
  }
  return data;
}

}  // namespace EditorServices
