#include <gtest/gtest.h>

#include <functional>

#include "clipboard/clipboard_impl.hpp"
#include "support/log_capture.hpp"
#include "support/scripted_backend.hpp"
#include "support/service_harness.hpp"

namespace {

using EditorServices::ClipboardImpl;
using foundation::json::Kind;
using foundation::json::Value;
using test_support::LogCapture;
using test_support::message;
using test_support::parsed;
using test_support::Replies;

class Intake : public ::testing::Test {
 protected:
  std::shared_ptr<test_support::ScriptedBackend> backend =
      std::make_shared<test_support::ScriptedBackend>();
  test_support::InstalledBackend installed{backend};
  ClipboardImpl service;
  LogCapture log;
};

struct ConvertCase {
  std::string text;
  bool success;
  std::size_t members;  // successKey included
};

class ConvertMessage : public Intake, public ::testing::WithParamInterface<ConvertCase> {};

TEST_P(ConvertMessage, AddsTheParseFlagAndLogsFailures) {
  auto const& c = GetParam();
  auto const request = service.convertMessageToJson(message(c.text));
  ASSERT_EQ(request.count(service.successKey), 1u);
  EXPECT_EQ(request.at(service.successKey).get<bool>(), c.success);
  EXPECT_EQ(request.size(), c.members);
  auto const messages = log.messages();
  if (c.success) {
    EXPECT_TRUE(messages.empty());
  } else {
    EXPECT_EQ(messages, std::vector<std::string>{"JSON Parse Error"});
  }
}

INSTANTIATE_TEST_SUITE_P(Texts, ConvertMessage,
                         ::testing::Values(ConvertCase{"", false, 1}, ConvertCase{"[]", false, 1},
                                           ConvertCase{" {}", false, 1},
                                           ConvertCase{"{\"a\":", false, 1},
                                           ConvertCase{"{}", true, 1},
                                           ConvertCase{"{} trailing [garbage", true, 1},
                                           ConvertCase{R"({"a":1,"b":[true]})", true, 3},
                                           // a member named like the flag is replaced by the flag
                                           ConvertCase{R"({"success":"yes","x":null})", true, 2}),
                         [](::testing::TestParamInfo<ConvertCase> const& info) {
                           return "text" + std::to_string(info.index);
                         });

TEST_F(Intake, SuccessMemberOfTheTextIsReplacedByTrue) {
  auto const request = service.convertMessageToJson(message(R"({"success":false})"));
  EXPECT_TRUE(request.at("success").get<bool>());
}

TEST_F(Intake, ReadsOnlyTheMessageBytes) {
  // A view whose bytes continue past its end: the reader must stop at the range's end.
  std::string const storage = R"({"requestid":"r1"}{"requestid":"r2"})";
  auto const view = connector::message_service::JsonMessage::view(storage.data(), 10);
  auto const request = service.convertMessageToJson(view);
  EXPECT_FALSE(request.at(service.successKey).get<bool>());
}

struct UidCase {
  std::string uidMember;  // JSON text of the uid member, empty for none
  std::string expectedUid;
  bool logs;
};

class EnvelopeUid : public Intake, public ::testing::WithParamInterface<UidCase> {};

TEST_P(EnvelopeUid, EveryEntryPassesTheUidBesideTheReply) {
  auto const& c = GetParam();
  std::string const text =
      "{\"requestid\":\"r\"" + (c.uidMember.empty() ? "" : "," + c.uidMember) + "}";

  using Entry = std::function<void(Replies&)>;
  struct Named {
    char const* uidLine;
    Entry call;
  };
  std::vector<Named> const entries = {
      {"[handleRequestForAvailableDataFlavors] UID is empty",
       [&](Replies& r) {
         service.handleRequestForAvailableDataFlavors(message(text), r.callback());
       }},
      {"[handleGetClipboardDataRequest] UID is empty",
       [&](Replies& r) {
         service.handleGetClipboardDataRequest(
             message(text), pf::clipboard::PFClipboardMode::clipboard, r.callback());
       }},
      {"[handleSetClipboardDataRequest] UID is empty",
       [&](Replies& r) {
         service.handleSetClipboardDataRequest(
             message(text), pf::clipboard::PFClipboardMode::clipboard, r.callback());
       }},
      {"[handleRequestForClipboardChangeSubscription] UID is empty",
       [&](Replies& r) {
         service.handleRequestForClipboardChangeSubscription(message(text), r.notifier(),
                                                             r.callback());
       }},
  };
  for (auto const& entry : entries) {
    Replies replies;
    log.clear();
    entry.call(replies);
    auto const got = replies.replies();
    ASSERT_EQ(got.size(), 1u) << entry.uidLine;
    EXPECT_EQ(got[0].uid, c.expectedUid) << entry.uidLine;
    auto const reply = parsed(got[0].text);
    EXPECT_EQ(reply.count(service.uidKey), 0u) << "the uid travels beside the reply";
    EXPECT_EQ(reply.at(service.replyRequestIdKey).get<std::string>(), "r");
    auto const messages = log.messages();
    bool const logged =
        std::find(messages.begin(), messages.end(), entry.uidLine) != messages.end();
    EXPECT_EQ(logged, c.logs) << entry.uidLine;
    if (c.logs) {
      EXPECT_EQ(messages.back(), entry.uidLine) << "the uid is read after the handler ran";
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Uids, EnvelopeUid,
                         ::testing::Values(UidCase{R"("uid":"front-end-7")", "front-end-7", false},
                                           UidCase{R"("uid":"")", "", false}, UidCase{"", "", true},
                                           UidCase{R"("uid":7)", "", true},
                                           UidCase{R"("uid":null)", "", true}),
                         [](::testing::TestParamInfo<UidCase> const& info) {
                           return "uid" + std::to_string(info.index);
                         });

TEST_F(Intake, UnparsableTextStillGetsAFlavorsReply) {
  Replies replies;
  service.handleRequestForAvailableDataFlavors(message("not json"), replies.callback());
  ASSERT_EQ(replies.replies().size(), 1u);
  auto const reply = parsed(replies.replies()[0].text);
  EXPECT_TRUE(reply.at(service.successKey).get<bool>());
  EXPECT_EQ(reply.at(service.replyRequestIdKey).get<std::string>(), "");
  EXPECT_EQ(log.messages(),
            (std::vector<std::string>{
                "JSON Parse Error",
                "[handleRequestForAvailableDataFlavors] JSON message does not contain required "
                "fields 'requestid'",
                "[handleRequestForAvailableDataFlavors] UID is empty"}));
}

TEST_F(Intake, EmptyReplyCallbackRunsTheHandlerThenThrows) {
  ClipboardImpl::ReplyCallback const empty;
  EXPECT_THROW(service.handleRequestForAvailableDataFlavors(
                   message(R"({"requestid":"r","uid":"u"})"), empty),
               std::bad_function_call);
  EXPECT_EQ(backend->listCalls(), 1);

  std::string const set =
      R"({"requestid":"r","uid":"u","clipboardItems":[{"mimeType":"text/plain","data":"kept"}]})";
  EXPECT_THROW(service.handleSetClipboardDataRequest(
                   message(set), pf::clipboard::PFClipboardMode::clipboard, empty),
               std::bad_function_call);
  EXPECT_EQ(backend->writes(), 1) << "the clipboard is written before the callback is called";
}

TEST_F(Intake, HandlerExceptionSendsNoReply) {
  backend->failListing(true);
  Replies replies;
  EXPECT_THROW(service.handleRequestForAvailableDataFlavors(message(R"({"requestid":"r"})"),
                                                            replies.callback()),
               std::runtime_error);
  EXPECT_TRUE(replies.replies().empty());
}

}  // namespace
