// What only the pipe has: how the writer splits its bytes is no concern of the host's, and a
// line is answered as soon as its newline arrives (the transcripts run on both transports).
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>

#include "host/front_end.hpp"

namespace {

// The request id of the next output line, or "" when none came.
std::string answerTo(test_support::Process& host) {
  std::string const line = host.readLine().value_or("");
  std::string const key = R"("requestid":")";
  std::size_t const at = line.find(key);
  return at == std::string::npos
             ? ""
             : line.substr(at + key.size(), line.find('"', at + key.size()) - at - key.size());
}

TEST(LiveHost, LinesSplitAcrossWritesAreAnsweredWhenTheirNewlineArrives) {
  auto host = host_test::startHost({});
  std::string const line = R"({"kind":"flavors","request":{"requestid":"split","uid":"ui"}})";
  std::size_t const third = line.size() / 3;
  host->write(line.substr(0, third));
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  host->write(line.substr(third, third));
  // Nothing is answered before the line is complete.
  EXPECT_FALSE(host->readLine(std::chrono::milliseconds(200)).has_value());
  host->write(line.substr(2 * third) + "\n");
  EXPECT_EQ(answerTo(*host), "split");

  // Two lines in one write, then a third in the same write without its newline.
  host->write(R"({"kind":"flavors","request":{"requestid":"a"}})"
              "\n"
              R"({"kind":"flavors","request":{"requestid":"b"}})"
              "\r\n"
              R"({"kind":"flavors","request":{"requestid":"c"}})");
  EXPECT_EQ(answerTo(*host), "a");
  EXPECT_EQ(answerTo(*host), "b");
  // The last line without a newline is served when the input ends.
  EXPECT_FALSE(host->readLine(std::chrono::milliseconds(200)).has_value());
  host->closeInput();
  EXPECT_EQ(answerTo(*host), "c");
  EXPECT_EQ(host->finish(), 0);
}

}  // namespace
