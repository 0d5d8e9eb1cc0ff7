// EditorServices::ClipboardImpl: the clipboard service of the editor's front end.
//
// The host creates one object with its vocabulary (the JSON keys and mime names, see
// clipboard/vocabulary.hpp), hands it each request as a JsonMessage with a reply callback, and
// destroys it at shutdown. Replies are JSON object texts passed to the callback as
// (reply text, uid), synchronously on the caller's thread.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "clipboard/vocabulary.hpp"
#include "json/value.hpp"
#include "platform/clipboard.hpp"
#include "platform/event.hpp"
#include "platform/message_service.hpp"

namespace EditorServices {

class ClipboardImpl {
 public:
  using RequestMap = std::map<std::string, foundation::json::Value>;
  using ReplyMap = std::map<std::string, foundation::json::Value>;
  using ReplyCallback = std::function<void(std::string, std::string)>;
  using NotifyCallback = std::function<void(std::string)>;

  explicit ClipboardImpl(ClipboardVocabulary const& vocabulary = defaultClipboardVocabulary());
  ~ClipboardImpl();

  ClipboardImpl(ClipboardImpl const&) = delete;
  ClipboardImpl& operator=(ClipboardImpl const&) = delete;

  // Intake.
  RequestMap convertMessageToJson(connector::message_service::JsonMessage const& message);

  // Available flavors.
  void handleRequestForAvailableDataFlavors(connector::message_service::JsonMessage const& message,
                                            ReplyCallback const& reply);
  ReplyMap handleRequestForAvailableDataFlavors(RequestMap request);

  // Get.
  void handleGetClipboardDataRequest(connector::message_service::JsonMessage const& message,
                                     pf::clipboard::PFClipboardMode const& mode,
                                     ReplyCallback const& reply);
  ReplyMap handleGetClipboardDataRequest(RequestMap request,
                                         pf::clipboard::PFClipboardMode const& mode);
  std::map<std::string, foundation::json::Value> getClipboardData(
      std::vector<foundation::json::Value> const& flavors,
      pf::clipboard::PFClipboardMode const& mode);

  // Content conversion.
  std::string getClipboardContentPlainText(pf::clipboard::ClipboardContent content);
  std::vector<foundation::json::Value> getClipboardContentUriList(
      pf::clipboard::ClipboardContent content);
  std::string getClipboardContentImages(pf::clipboard::ClipboardContent content);
  std::string getClipboardContentApplicationType(pf::clipboard::ClipboardContent content);
  std::string getClipboardContentJavaApplicationType(pf::clipboard::ClipboardContent content);

  // Mime mapping and classification.
  std::string getJavaMimeType(std::string mimeType);
  std::string getCppMimeType(std::string mimeType);
  bool isTextUriList(std::string mimeType);
  bool isGraphicsType(std::string mimeType);
  bool isApplicationType(std::string mimeType);
  bool isTextType(std::string mimeType);
  bool isJavaMimeType(std::string mimeType);

  // Set.
  void handleSetClipboardDataRequest(connector::message_service::JsonMessage const& message,
                                     pf::clipboard::PFClipboardMode const& mode,
                                     ReplyCallback const& reply);
  ReplyMap handleSetClipboardDataRequest(RequestMap request,
                                         pf::clipboard::PFClipboardMode const& mode);
  void addClipboardContents(std::vector<foundation::json::Value> const& items,
                            pf::clipboard::PFClipboardMode const& mode);

  // Change subscription.
  void handleRequestForClipboardChangeSubscription(
      connector::message_service::JsonMessage const& message, NotifyCallback const& notify,
      ReplyCallback const& reply);
  ReplyMap handleRequestForClipboardChangeSubscription(RequestMap request,
                                                       NotifyCallback const& notify);

  // Read-only views for hosts and tests.
  bool isChangeSubscriptionActive() const;
  bool hasChangeRegistration() const;
  std::vector<foundation::json::Value> lastReportedFlavorsSnapshot() const;

 private:
  template <class Handler>
  void replyThroughEnvelope(connector::message_service::JsonMessage const& message,
                            char const* uidLogLine, ReplyCallback const& reply, Handler&& handler);

  std::unique_ptr<pf::event::PFEventRegistration> registerEventListener(
      pf::event::PFEventComponent const& component, pf::event::PFServiceType const& service,
      pf::event::PFEventId const& event, std::function<void()> listener);

  void notifyClipboardChange(NotifyCallback const& notify);

 public:
  // The vocabulary and the subscription state, in this order: destruction runs in reverse.
  // Texts marked "host text" are carried for the host and read by no operation of the service.
  std::string hostText1;                                 // 1
  std::string svgMimeType;                               // 2
  std::string taggedImageMimeType;                       // 3
  std::string hostText4;                                 // 4
  std::string hostText5;                                 // 5
  std::string hostText6;                                 // 6
  std::string textUriListMimeType;                       // 7
  std::string nativeMimeType1;                           // 8
  std::string nativeMimeType2;                           // 9
  std::string hostText10;                                // 10
  std::string hostText11;                                // 11
  std::string ignoredMimeType;                           // 12
  std::string nativeMimeType3;                           // 13
  std::string hostText14;                                // 14
  std::string javaMimeType1;                             // 15
  std::string javaMimeType3;                             // 16
  std::string javaMimeType2;                             // 17
  std::vector<foundation::json::Value> fallbackFlavors;  // 18
  std::string hostText19;                                // 19
  std::string hostText20;                                // 20
  std::string hostText21;                                // 21
  std::string hostText22;                                // 22
  std::string hostText23;                                // 23
  std::string hostText24;                                // 24
  std::string hostText25;                                // 25
  std::string hostText26;                                // 26
  std::string hostText27;                                // 27
  std::string hostText28;                                // 28
  std::string hostText29;                                // 29
  std::string hostText30;                                // 30
  std::string hostText31;                                // 31
  std::string hostText32;                                // 32
  std::string hostText33;                                // 33
  std::string hostText34;                                // 34
  std::string hostText35;                                // 35
  std::string hostText36;                                // 36
  std::string requestIdKey;                              // 37
  std::string replyRequestIdKey;                         // 38
  std::string uidKey;                                    // 39
  std::string clipboardItemsKey;                         // 40
  std::string flavorsKey;                                // 41
  std::string itemDataKey;                               // 42
  std::string itemMimeTypeKey;                           // 43
  std::string successKey;                                // 44
  std::string hostText45;                                // 45
  std::string dataUrlPrefix;                             // 46
  std::string graphicsMimePrefix;                        // 47
  std::string hostText48;                                // 48
  std::string hostText49;                                // 49
  std::string javaMimePrefix;                            // 50
  std::string applicationMimePrefix;                     // 51
  std::string textMimePrefix;                            // 52
  std::string dataUrlEncodingName;                       // 53
  std::string taggedImageValuePrefix;                    // 54
  std::string dataUrlParameterSeparator;                 // 55
  std::string dataUrlDataSeparator;                      // 56
  std::string defaultActionText;                         // 57
  std::string actionOneText;                             // 58
  std::string itemActionKey;                             // 59
  std::uint64_t hostWord = 0;                            // 60

 private:
  std::unique_ptr<pf::event::PFEventRegistration> changeRegistration;  // 61
  std::vector<foundation::json::Value> lastReportedFlavors;            // 62
  bool changeSubscriptionActive = false;                               // 63

  // Serializes the three members above between request threads and the thread that emits the
  // change signal. Held only while reading or writing them: never across a platform call, a
  // serialization or a callback.
  mutable std::mutex subscriptionMutex;
};

}  // namespace EditorServices
