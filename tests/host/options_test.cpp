// clipboard-host's command line: what each option sets, bad values refused with a message
// that names the option, and the documents that describe it.
#include <gtest/gtest.h>

#include <cstddef>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "host/options.hpp"
#include "support/temp_dir.hpp"

namespace {

using clipboard_host::Options;
using clipboard_host::parseOptions;
using clipboard_host::UsageError;
using test_support::readFile;

std::string const kSource = std::string(EDITOR_CLIPBOARD_SOURCE_DIR) + "/";

// Every "--word" of lower-case letters, digits and inner dashes in `text`. (No std::regex: g++ 12
// warns falsely inside it under the sanitizers.)
std::set<std::string> optionWordsIn(std::string const& text) {
  auto const wordChar = [](char c) { return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9'); };
  std::set<std::string> words;
  for (std::size_t at = text.find("--"); at != std::string::npos; at = text.find("--", at + 2)) {
    std::size_t end = at + 2;
    if (end >= text.size() || !wordChar(text[end])) {
      continue;
    }
    while (end < text.size() && (wordChar(text[end]) || text[end] == '-')) {
      ++end;
    }
    words.insert(text.substr(at, end - at));
  }
  return words;
}

// --help names the options the parser knows, and the protocol document's synopsis names them too.
TEST(HostOptions, TheHelpAndTheSynopsisNameTheOptionsTheParserKnows) {
  std::set<std::string> const help = optionWordsIn(clipboard_host::kUsage);
  for (auto const& word : help) {
    try {
      parseOptions({word});
    } catch (UsageError const& e) {
      EXPECT_EQ(std::string(e.what()).find("unknown option"), std::string::npos) << e.what();
    }
  }
  std::string const protocol = readFile(kSource + "docs/protocol.md");
  std::size_t const from = protocol.find("    clipboard-host [");
  ASSERT_NE(from, std::string::npos);
  std::set<std::string> synopsis =
      optionWordsIn(protocol.substr(from, protocol.find("\n\n", from) - from));
  synopsis.insert("--help");
  EXPECT_EQ(synopsis, help);
}

// Code the documents show is the code the tests build and run, line for line.
TEST(HostDocuments, ShowTheirExamplesVerbatim) {
  for (auto const& [document, example] :
       {std::pair{"README.md", "tests/packaging/consumer/main.cpp"},
        std::pair{"docs/protocol.md", "examples/host_client.py"}}) {
    std::string const code = readFile(kSource + example);
    ASSERT_FALSE(code.empty()) << example;
    std::string indented;
    std::istringstream lines(code);
    for (std::string line; std::getline(lines, line);) {
      indented += line.empty() ? "\n" : "    " + line + "\n";
    }
    EXPECT_NE(readFile(kSource + document).find(indented), std::string::npos)
        << document << " must show " << example << " indented by four spaces";
  }
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
