// Message intake: request text to request map, and the envelope every entry point runs.
#include "clipboard/clipboard_impl.hpp"
#include "clipboard/envelope.hpp"
#include "diagnostics/service_logger.hpp"
#include "json/reader.hpp"

namespace EditorServices {

ClipboardImpl::RequestMap ClipboardImpl::convertMessageToJson(
    connector::message_service::JsonMessage const& message) {
  RequestMap request;
  char const* position = message.data();
  char const* const end = position + message.size();
  if (foundation::json::parse_object(position, end, false, request) == 0) {
    request[successKey] = foundation::json::Value(true);
  } else {
    request[successKey] = foundation::json::Value(false);
    EDITOR_SERVICES_LOG("JSON Parse Error");
  }
  return request;
}

void ClipboardImpl::handleRequestForAvailableDataFlavors(
    connector::message_service::JsonMessage const& message, ReplyCallback const& reply) {
  replyThroughEnvelope(message, "[handleRequestForAvailableDataFlavors] UID is empty", reply,
                       [this](RequestMap request) {
                         return handleRequestForAvailableDataFlavors(std::move(request));
                       });
}

void ClipboardImpl::handleGetClipboardDataRequest(
    connector::message_service::JsonMessage const& message,
    pf::clipboard::PFClipboardMode const& mode, ReplyCallback const& reply) {
  replyThroughEnvelope(message, "[handleGetClipboardDataRequest] UID is empty", reply,
                       [this, &mode](RequestMap request) {
                         return handleGetClipboardDataRequest(std::move(request), mode);
                       });
}

void ClipboardImpl::handleSetClipboardDataRequest(
    connector::message_service::JsonMessage const& message,
    pf::clipboard::PFClipboardMode const& mode, ReplyCallback const& reply) {
  replyThroughEnvelope(message, "[handleSetClipboardDataRequest] UID is empty", reply,
                       [this, &mode](RequestMap request) {
                         return handleSetClipboardDataRequest(std::move(request), mode);
                       });
}

void ClipboardImpl::handleRequestForClipboardChangeSubscription(
    connector::message_service::JsonMessage const& message, NotifyCallback const& notify,
    ReplyCallback const& reply) {
  replyThroughEnvelope(message, "[handleRequestForClipboardChangeSubscription] UID is empty", reply,
                       [this, &notify](RequestMap request) {
                         return handleRequestForClipboardChangeSubscription(std::move(request),
                                                                            notify);
                       });
}

}  // namespace EditorServices
