// clipboard-host as a front end drives it: one pipe kept open, each line written only after the
// reply to the previous one has been read. A host that waits for more input before answering a
// complete line fails every test here by timing out.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "host/child_process.hpp"
#include "json/reader.hpp"

namespace {

using foundation::json::Array;
using foundation::json::Object;
using foundation::json::Value;
using host_test::ChildProcess;

Object parseLine(std::string const& line) {
  Object out;
  char const* pos = line.data();
  EXPECT_EQ(foundation::json::parse_object(pos, line.data() + line.size(), false, out), 0) << line;
  return out;
}

// The next line that is not a notification.
Object awaitAnswer(ChildProcess& host, std::vector<Object>* notifications = nullptr) {
  for (;;) {
    auto line = host.readLine();
    if (!line) {
      ADD_FAILURE() << "no answer within the time limit; stderr: " << host.errorText();
      return Object();
    }
    Object out = parseLine(*line);
    if (out.count("type") != 0 && out.at("type") == Value("notification")) {
      if (notifications != nullptr) {
        notifications->push_back(std::move(out));
      }
      continue;
    }
    return out;
  }
}

std::string requestIdOf(Object const& answer) {
  return answer.at("reply").get<Object>().at("requestid").get<std::string>();
}

ChildProcess startHost(std::vector<std::string> arguments = {}) {
  arguments.insert(arguments.begin(), CLIPBOARD_HOST_PATH);
  return ChildProcess(arguments);
}

TEST(LiveHost, EachOfTheFourKindsIsAnsweredBeforeTheNextLineIsWritten) {
  ChildProcess host = startHost();
  std::vector<Object> notifications;

  host.writeLine(R"({"kind":"subscribe","request":{"requestid":"s1","uid":"ui"}})");
  Object answer = awaitAnswer(host, &notifications);
  EXPECT_EQ(answer.at("kind"), Value("subscribe"));
  EXPECT_EQ(answer.at("reply").get<Object>().at("success"), Value("true"));

  host.writeLine(
      R"({"kind":"set","mode":0,"request":{"requestid":"r1","uid":"ui","clipboardItems":[{"mimeType":"text/plain","data":"hello-live"}]}})");
  answer = awaitAnswer(host, &notifications);
  EXPECT_EQ(requestIdOf(answer), "r1");
  EXPECT_EQ(answer.at("reply").get<Object>().at("success"), Value(true));
  ASSERT_EQ(notifications.size(), 1u) << "the set's change notification";

  host.writeLine(R"({"kind":"flavors","request":{"requestid":"f1","uid":"ui"}})");
  answer = awaitAnswer(host, &notifications);
  EXPECT_EQ(requestIdOf(answer), "f1");
  EXPECT_EQ(answer.at("reply").get<Object>().at("flavors"), Value(Array{Value("text/plain")}));

  host.writeLine(
      R"({"kind":"get","mode":0,"request":{"requestid":"g1","uid":"ui","flavors":["text/plain"]}})");
  answer = awaitAnswer(host, &notifications);
  EXPECT_EQ(requestIdOf(answer), "g1");
  EXPECT_EQ(answer.at("reply").get<Object>().at("clipboardItems").get<Object>().at("text/plain"),
            Value("hello-live"));

  host.closeInput();
  EXPECT_EQ(host.wait(), 0);
}

// How the writer splits its bytes is no concern of the host's.
TEST(LiveHost, LinesSplitAcrossWritesAreAnsweredWhenTheirNewlineArrives) {
  ChildProcess host = startHost();
  std::string const line = R"({"kind":"flavors","request":{"requestid":"split","uid":"ui"}})";
  std::size_t const third = line.size() / 3;
  host.write(line.substr(0, third));
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  host.write(line.substr(third, third));
  // Nothing is answered before the line is complete.
  EXPECT_FALSE(host.readLine(std::chrono::milliseconds(200)).has_value());
  host.write(line.substr(2 * third) + "\n");
  EXPECT_EQ(requestIdOf(awaitAnswer(host)), "split");

  // Two lines in one write, then a third in the same write without its newline.
  host.write(R"({"kind":"flavors","request":{"requestid":"a"}})"
             "\n"
             R"({"kind":"flavors","request":{"requestid":"b"}})"
             "\r\n"
             R"({"kind":"flavors","request":{"requestid":"c"}})");
  EXPECT_EQ(requestIdOf(awaitAnswer(host)), "a");
  EXPECT_EQ(requestIdOf(awaitAnswer(host)), "b");
  // The last line without a newline is served when the input ends.
  EXPECT_FALSE(host.readLine(std::chrono::milliseconds(200)).has_value());
  host.closeInput();
  EXPECT_EQ(requestIdOf(awaitAnswer(host)), "c");
  EXPECT_EQ(host.wait(), 0);
}

TEST(LiveHost, AnOverlongLineSentInPiecesGetsItsErrorAndTheNextLineIsServed) {
  ChildProcess host = startHost({"--max-line", "1000"});
  host.write(
      R"({"kind":"set","request":{"requestid":"big","clipboardItems":[{"mimeType":"text/plain","data":")");
  for (int i = 0; i < 20; ++i) {
    host.write(std::string(400, 'x'));
  }
  host.write("\"}]}}\n");
  Object const error = awaitAnswer(host);
  EXPECT_EQ(error.at("type"), Value("error"));
  EXPECT_EQ(error.at("line"), Value(1.0));
  host.writeLine(R"({"kind":"flavors","request":{"requestid":"after"}})");
  Object const after = awaitAnswer(host);
  EXPECT_EQ(requestIdOf(after), "after");
  EXPECT_EQ(after.at("reply").get<Object>().at("flavors"), Value(Array{}));
}

TEST(LiveHost, RequestErrorsAndDiagnosticsReachTheFrontEndOnThePipe) {
  ChildProcess host = startHost({"--diagnostics"});
  // A broken image: the service replies success and leaves the clipboard empty; the record says
  // why.
  host.writeLine(
      R"({"kind":"set","request":{"requestid":"img","uid":"ui","clipboardItems":[{"mimeType":"image/png","data":"data:image/png;base64,AAAA"}]}})");
  Object const set = awaitAnswer(host);
  EXPECT_EQ(requestIdOf(set), "img");
  ASSERT_EQ(set.count("log"), 1u);
  EXPECT_FALSE(set.at("log").get<Array>().empty());

  host.writeLine(R"({"kind":"external","items":[{"mimeType":"text/plain","text":"x"}]})");
  host.writeLine(R"({"kind":"flavors","request":{"requestid":"f","uid":"ui"}})");
  Object const flavors = awaitAnswer(host);
  EXPECT_EQ(requestIdOf(flavors), "f");
  EXPECT_EQ(flavors.at("log"), Value(Array{})) << "a request that logs nothing has an empty log";

  host.closeInput();
  EXPECT_EQ(host.wait(), 0);
  // Capturing the records does not send them to standard error: that is --log's choice.
  EXPECT_EQ(host.errorText(), "");
}

TEST(LiveHost, ScriptFileIsStillRead) {
  std::string const path = ::testing::TempDir() + "live_host_script.jsonl";
  {
    FILE* file = std::fopen(path.c_str(), "wb");
    ASSERT_NE(file, nullptr);
    std::fputs(R"({"kind":"flavors","request":{"requestid":"from-script"}})", file);
    std::fclose(file);
  }
  ChildProcess host = startHost({"--script", path});
  EXPECT_EQ(requestIdOf(awaitAnswer(host)), "from-script");
  EXPECT_EQ(host.wait(), 0);
}

}  // namespace
