// The envelope shared by the four message-form entry points.
#pragma once

#include "clipboard/clipboard_impl.hpp"
#include "diagnostics/service_logger.hpp"
#include "json/writer.hpp"

namespace EditorServices {

template <class Handler>
void ClipboardImpl::replyThroughEnvelope(connector::message_service::JsonMessage const& message,
                                         char const* uidLogLine, ReplyCallback const& reply,
                                         Handler&& handler) {
  RequestMap request = convertMessageToJson(message);

  // The uid is read after the handler has run, from the entry's own map. The handler's copy is
  // never looked at again, so the map itself is moved in and only the uid member kept back: a
  // large set request is not copied.
  auto const uidMember = request.find(uidKey);
  foundation::json::Value uidValue =
      uidMember == request.end() ? foundation::json::Value() : uidMember->second;

  std::string replyText;
  {
    ReplyMap replyMap = handler(std::move(request));
    replyText = foundation::json::serialize(foundation::json::Value(std::move(replyMap)));
  }

  std::string uid;
  try {
    uid = uidValue.get<std::string>();
  } catch (...) {
    EDITOR_SERVICES_LOG(uidLogLine);
  }

  reply(std::move(replyText), std::move(uid));
}

}  // namespace EditorServices
