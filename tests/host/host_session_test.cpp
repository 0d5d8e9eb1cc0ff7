// HostSession in-process, the way its transports use it: lines in, output lines to a sink, over
// a backend whose operations fail on demand.
#include <gtest/gtest.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "clipboard/vocabulary.hpp"
#include "diagnostics/service_logger.hpp"
#include "host/diagnostics_capture.hpp"
#include "host/host_session.hpp"
#include "json/reader.hpp"
#include "platform/i18n.hpp"
#include "support/scripted_backend.hpp"

namespace {

using clipboard_host::BackendInstallation;
using clipboard_host::DiagnosticsCapture;
using clipboard_host::HostSession;
using clipboard_host::LineWriter;
using foundation::json::Array;
using foundation::json::Object;
using foundation::json::Value;
using test_support::ScriptedBackend;

class Output {
 public:
  LineWriter::Sink sink() {
    return [this](std::string const& line) {
      std::lock_guard<std::mutex> lock(mutex_);
      lines_.push_back(line);
    };
  }
  std::vector<Object> take() {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<Object> out;
    for (auto const& line : lines_) {
      Object parsed;
      char const* pos = line.data();
      EXPECT_EQ(foundation::json::parse_object(pos, line.data() + line.size(), false, parsed), 0)
          << line;
      out.push_back(std::move(parsed));
    }
    lines_.clear();
    return out;
  }

 private:
  std::mutex mutex_;
  std::vector<std::string> lines_;
};

struct Fixture {
  explicit Fixture(bool diagnostics)
      : backend(std::make_shared<ScriptedBackend>()),
        installation(backend),
        writer(output.sink(), false) {
    if (diagnostics) {
      capture = std::make_unique<DiagnosticsCapture>();
    }
    session = std::make_unique<HostSession>(EditorServices::defaultClipboardVocabulary(), backend,
                                            writer, diagnostics);
  }

  std::vector<Object> send(std::string const& line) {
    session->handleLine(line, ++lineNumber);
    return output.take();
  }

  std::shared_ptr<ScriptedBackend> backend;
  BackendInstallation installation;
  Output output;
  LineWriter writer;
  std::unique_ptr<DiagnosticsCapture> capture;
  std::unique_ptr<HostSession> session;
  std::size_t lineNumber = 0;
};

pf::clipboard::PFClipboardData textData(std::string const& text) {
  pf::clipboard::PFClipboardData data;
  data.addData(u"text/plain", fl::i18n::to_ustring(text));
  return data;
}

// When the service sends no reply, the error line says which request failed.
struct FailedRequestCase {
  char const* name;
  std::string line;
  char const* kind;
  char const* requestId;  // nullptr: the line carries none
  char const* uid;
};

void PrintTo(FailedRequestCase const& c, std::ostream* os) {
  *os << c.line;
}

class FailedRequest : public ::testing::TestWithParam<FailedRequestCase> {};

TEST_P(FailedRequest, ErrorLineNamesKindRequestIdAndUid) {
  FailedRequestCase const& c = GetParam();
  Fixture f(false);
  f.backend->put(textData("held"));
  f.backend->failListing(true);
  f.send("");  // line numbers count every line handed over
  auto const lines = f.send(c.line);
  ASSERT_EQ(lines.size(), 1u);
  Object const& error = lines[0];
  EXPECT_EQ(error.at("type"), Value("error"));
  EXPECT_EQ(error.at("line"), Value(2.0));
  EXPECT_EQ(error.at("kind"), Value(c.kind));
  EXPECT_NE(error.at("error").get<std::string>().find("listing failed"), std::string::npos);
  if (c.requestId != nullptr) {
    EXPECT_EQ(error.at("requestid"), Value(c.requestId));
  } else {
    EXPECT_EQ(error.count("requestid"), 0u);
  }
  if (c.uid != nullptr) {
    EXPECT_EQ(error.at("uid"), Value(c.uid));
  } else {
    EXPECT_EQ(error.count("uid"), 0u);
  }
  EXPECT_EQ(error.count("log"), 0u) << "no records without --diagnostics";
}

INSTANTIATE_TEST_SUITE_P(
    Cases, FailedRequest,
    ::testing::Values(
        FailedRequestCase{"both", R"({"kind":"flavors","request":{"requestid":"f1","uid":"ui"}})",
                          "flavors", "f1", "ui"},
        FailedRequestCase{"idOnly", R"({"kind":"flavors","request":{"requestid":"f2"}})", "flavors",
                          "f2", nullptr},
        FailedRequestCase{"numberId", R"({"kind":"flavors","request":{"requestid":7,"uid":"ui"}})",
                          "flavors", nullptr, "ui"},
        FailedRequestCase{"asString",
                          R"({"kind":"flavors","request":"{\"requestid\":\"s\",\"uid\":\"q\"}"})",
                          "flavors", "s", "q"},
        FailedRequestCase{"notAnObject", R"({"kind":"flavors","request":[1]})", "flavors", nullptr,
                          nullptr}),
    [](auto const& info) { return std::string(info.param.name); });

std::vector<std::string> logOf(Object const& line) {
  std::vector<std::string> out;
  for (auto const& record : line.at("log").get<Array>()) {
    out.push_back(record.get<std::string>());
  }
  return out;
}

TEST(HostSessionDiagnostics, AFailedWriteRepliesFalseAndEveryRecordOfTheRequestComesAlong) {
  Fixture f(true);
  f.backend->failWrites(true);
  auto const lines = f.send(
      R"({"kind":"set","mode":1,"request":{"requestid":"w1","uid":"ed","clipboardItems":[{"mimeType":"text/plain","data":"x"},{"mimeType":"image/png","data":"broken"}]}})");
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].at("reply").get<Object>().at("success"), Value(false));
  // The broken item, then the failed write, in the order the service logged them.
  auto const log = logOf(lines[0]);
  ASSERT_EQ(log.size(), 2u);
  EXPECT_NE(log[0].find("image/png"), std::string::npos);
  EXPECT_NE(log[1].find("handleSetClipboardDataRequest"), std::string::npos);
}

TEST(HostSessionDiagnostics, NotificationsFromAnotherThreadCarryTheirOwnRecords) {
  Fixture f(true);
  f.send(R"({"kind":"subscribe","request":{"requestid":"s","uid":"ui"}})");
  // A change that another program makes arrives on a thread of its own, outside any request.
  std::thread other([&] { f.backend->put(textData("elsewhere")); });
  other.join();
  auto const lines = f.output.take();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].at("type"), Value("notification"));
  // A notification's flavors request has no request id: the service logs that.
  EXPECT_FALSE(logOf(lines[0]).empty());
  // And nothing of it leaks into the next reply on this thread.
  auto const next = f.send(R"({"kind":"flavors","request":{"requestid":"f","uid":"ui"}})");
  ASSERT_EQ(next.size(), 1u);
  EXPECT_TRUE(logOf(next[0]).empty());
}

TEST(HostSessionDiagnostics, RecordsLoggedOutsideRequestsDoNotCrowdOutANotificationsOwn) {
  Fixture f(true);
  f.send(R"({"kind":"subscribe","request":{"requestid":"s","uid":"ui"}})");
  // As many records as a list holds, logged on this thread outside any request.
  for (std::size_t i = 0; i < clipboard_host::kMaxCapturedRecords; ++i) {
    EDITOR_SERVICES_LOG("stray " << i);
  }
  f.backend->put(textData("x"));
  auto const lines = f.output.take();
  ASSERT_EQ(lines.size(), 1u);
  auto const log = logOf(lines[0]);
  ASSERT_FALSE(log.empty());
  EXPECT_NE(log[0].find("requestid"), std::string::npos) << log[0];
}

TEST(HostSessionDiagnostics, TwoSessionsOnOneThreadEachGetTheirOwnRecords) {
  // Two front ends subscribed: one change, two notifications, each with the records of its own
  // service's flavors request.
  Fixture f(true);
  Output secondOutput;
  LineWriter secondWriter(secondOutput.sink(), false);
  HostSession second(EditorServices::defaultClipboardVocabulary(), f.backend, secondWriter, true);
  f.send(R"({"kind":"subscribe","request":{"requestid":"s","uid":"a"}})");
  second.handleLine(R"({"kind":"subscribe","request":{"requestid":"t","uid":"b"}})", 1);
  secondOutput.take();
  f.backend->put(textData("x"));
  auto const first = f.output.take();
  auto const other = secondOutput.take();
  ASSERT_EQ(first.size(), 1u);
  ASSERT_EQ(other.size(), 1u);
  EXPECT_EQ(logOf(first[0]).size(), logOf(other[0]).size());
  EXPECT_FALSE(logOf(other[0]).empty());
}

}  // namespace
