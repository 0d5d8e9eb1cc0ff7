// clipboard-host's command line: what each option sets, and bad values refused with a message
// that names the option.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/options.hpp"

namespace {

using clipboard_host::Options;
using clipboard_host::parseOptions;
using clipboard_host::UsageError;

TEST(HostOptions, DefaultsServeTheMemoryClipboardQuietly) {
  Options const options = parseOptions({});
  EXPECT_EQ(options.backend, "memory");
  EXPECT_EQ(options.logLevels, 0u);
  EXPECT_FALSE(options.diagnostics);
  EXPECT_EQ(options.maxLine, std::size_t{256} << 20);
  EXPECT_EQ(options.x11.managerHandover.count(), 3000);
}

TEST(HostOptions, X11OptionsReachTheirSettings) {
  Options const options =
      parseOptions({"--backend", "x11", "--display", ":7", "--x11-timeouts", "100,200,3000",
                    "--manager-handover", "0", "--diagnostics", "--log", "4,16"});
  EXPECT_EQ(options.backend, "x11");
  EXPECT_EQ(options.x11.display, ":7");
  EXPECT_EQ(options.x11.firstReplyTimeout.count(), 100);
  EXPECT_EQ(options.x11.chunkTimeout.count(), 200);
  EXPECT_EQ(options.x11.readTimeout.count(), 3000);
  EXPECT_EQ(options.x11.managerHandover.count(), 0);
  EXPECT_TRUE(options.diagnostics);
  EXPECT_EQ(options.logLevels, 20u);
}

TEST(HostOptions, LogLevels) {
  EXPECT_EQ(parseOptions({"--log", "none"}).logLevels, 0u);
  EXPECT_EQ(parseOptions({"--log", "all"}).logLevels, 0xFFFFFFFFu);
  EXPECT_EQ(parseOptions({"--log", "1,2,4,8,16"}).logLevels, 31u);
  EXPECT_EQ(parseOptions({"--log", "2147483648"}).logLevels, 0x80000000u);
}

struct BadCase {
  std::vector<std::string> arguments;
  char const* mentions;  // the message names what was wrong
};

void PrintTo(BadCase const& c, std::ostream* os) {
  for (auto const& argument : c.arguments) {
    *os << "[" << argument << "] ";
  }
}

class BadOptions : public ::testing::TestWithParam<BadCase> {};

TEST_P(BadOptions, AreRefusedWithAMessageNamingTheProblem) {
  try {
    parseOptions(GetParam().arguments);
    FAIL() << "accepted";
  } catch (UsageError const& e) {
    EXPECT_NE(std::string(e.what()).find(GetParam().mentions), std::string::npos) << e.what();
  }
}

INSTANTIATE_TEST_SUITE_P(
    Table, BadOptions,
    ::testing::Values(
        BadCase{{"--frobnicate"}, "--frobnicate"}, BadCase{{"--backend", "floppy"}, "floppy"},
        BadCase{{"--backend"}, "needs a value"}, BadCase{{"--log", "3"}, "one flag"},
        BadCase{{"--log", "0"}, "one flag"}, BadCase{{"--log", "4,"}, "--log"},
        BadCase{{"--log", "4294967296"}, "too large"}, BadCase{{"--log", "loud"}, "--log"},
        BadCase{{"--max-line", "-1"}, "--max-line"}, BadCase{{"--max-line", "0"}, "--max-line"},
        BadCase{{"--max-line", "12k"}, "--max-line"},
        BadCase{{"--max-line", "99999999999999999999999"}, "too large"},
        BadCase{{"--backend", "x11", "--x11-timeouts", "1,2"}, "FIRST,CHUNK,TOTAL"},
        BadCase{{"--backend", "x11", "--x11-timeouts", "1,2,3,4"}, "FIRST,CHUNK,TOTAL"},
        BadCase{{"--backend", "x11", "--x11-timeouts", "1,,3"}, "CHUNK"},
        BadCase{{"--backend", "x11", "--x11-timeouts", "1,2,0"}, "at least 1"},
        BadCase{{"--backend", "x11", "--x11-timeouts", "1,2,9999999999"}, "TOTAL is too large"},
        BadCase{{"--backend", "x11", "--manager-handover", "-5"}, "--manager-handover"},
        BadCase{{"--backend", "x11", "--manager-handover", "1.5"}, "--manager-handover"},
        BadCase{{"--backend", "x11", "--display", ""}, "--display"},
        BadCase{{"--display", ":1"}, "need --backend x11"},
        BadCase{{"--manager-handover", "0"}, "need --backend x11"}));

}  // namespace
