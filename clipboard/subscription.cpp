// The change subscription: a listener on the platform's clipboard-change signal that sends the
// available-flavors reply to the subscriber on every change.
#include "clipboard/clipboard_impl.hpp"
#include "diagnostics/service_logger.hpp"
#include "json/writer.hpp"

namespace EditorServices {

using foundation::json::Value;

ClipboardImpl::ReplyMap ClipboardImpl::handleRequestForClipboardChangeSubscription(
    RequestMap request, NotifyCallback const& notify) {
  std::string requestId;
  {
    std::lock_guard<std::mutex> lock(subscriptionMutex);
    changeSubscriptionActive = true;
  }

  try {
    requestId = request[requestIdKey].get<std::string>();
  } catch (...) {
    EDITOR_SERVICES_LOG("[handleRequestForClipboardChangeSubscription] UID is empty");
  }

  std::function<void()> listener = [this, notify] { notifyClipboardChange(notify); };

  bool registered = false;
  {
    std::lock_guard<std::mutex> lock(subscriptionMutex);
    registered = changeRegistration != nullptr;
  }
  if (!registered) {
    auto registration = registerEventListener(pf::event::PFEventComponent::clipboard,
                                              pf::event::PFServiceType::clipboard,
                                              pf::event::kClipboardChanged, listener);
    {
      std::lock_guard<std::mutex> lock(subscriptionMutex);
      if (!changeRegistration) {
        changeRegistration = std::move(registration);
      }
      registered = changeRegistration != nullptr;
    }
    // Another request registered first: the earlier registration stays in force.
    if (registration) {
      registration->unregister();
    }
  }

  ReplyMap reply;
  reply[successKey] = Value(registered ? "true" : "false");
  reply[replyRequestIdKey] = Value(std::move(requestId));
  return reply;
}

std::unique_ptr<pf::event::PFEventRegistration> ClipboardImpl::registerEventListener(
    pf::event::PFEventComponent const& component, pf::event::PFServiceType const& service,
    pf::event::PFEventId const& event, std::function<void()> listener) {
  try {
    auto manager = pf::event::PFAbstractEventListenerFactory::getEventListenerManager(component);
    manager->prepareDelivery(service, event);
  } catch (...) {
    return nullptr;
  }

  pf::event::PFSignalContainer& container =
      pf::event::PFSignalLocator::Instance().containerOf(service);
  auto connection = container.connect(event, listener);
  return std::make_unique<pf::event::PFEventRegistration>(std::move(connection));
}

void ClipboardImpl::notifyClipboardChange(NotifyCallback const& notify) {
  std::string text;
  {
    ReplyMap reply = handleRequestForAvailableDataFlavors(RequestMap());
    text = foundation::json::serialize(Value(std::move(reply)));
  }
  notify(std::move(text));
}

}  // namespace EditorServices
