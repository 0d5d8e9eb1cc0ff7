// clipboard-host run as a subprocess: input lines in, output lines checked.
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "json/reader.hpp"

namespace {

using foundation::json::Object;
using foundation::json::Value;

std::vector<std::string> operator+(std::vector<std::string> a, std::vector<std::string> const& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

struct HostRun {
  int status = -1;
  std::vector<std::string> lines;
  std::string err;
};

std::string readFile(std::string const& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

HostRun runHost(std::string const& input, std::string const& arguments = "") {
  std::string const dir = ::testing::TempDir();
  std::string const stem =
      dir + "clipboard_host_" + ::testing::UnitTest::GetInstance()->current_test_info()->name();
  { std::ofstream(stem + ".in", std::ios::binary) << input; }
  std::string const command = std::string(CLIPBOARD_HOST_PATH) + " " + arguments + " < " + stem +
                              ".in > " + stem + ".out 2> " + stem + ".err";
  HostRun run;
  int const raw = std::system(command.c_str());
  run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  std::istringstream out(readFile(stem + ".out"));
  for (std::string line; std::getline(out, line);) {
    run.lines.push_back(line);
  }
  run.err = readFile(stem + ".err");
  return run;
}

Object parse(std::string const& line) {
  Object out;
  char const* pos = line.data();
  EXPECT_EQ(foundation::json::parse_object(pos, line.data() + line.size(), false, out), 0) << line;
  EXPECT_EQ(pos, line.data() + line.size()) << "one JSON object per line: " << line;
  return out;
}

TEST(ClipboardHost, SampleSessionAnswersEveryRequestInOrder) {
  std::string const session =
      readFile(std::string(EDITOR_CLIPBOARD_SOURCE_DIR) + "/examples/session.jsonl");
  ASSERT_FALSE(session.empty());
  HostRun const run = runHost(session);
  ASSERT_EQ(run.status, 0) << run.err;

  std::vector<std::string> kinds;
  std::vector<std::string> requestIds;
  std::vector<std::string> uids;
  int notifications = 0;
  for (auto const& line : run.lines) {
    Object const out = parse(line);
    std::string const type = out.at("type").get<std::string>();
    if (type == "reply") {
      uids.push_back(out.at("uid").get<std::string>());
      kinds.push_back(out.at("kind").get<std::string>());
      requestIds.push_back(out.at("reply").get<Object>().at("requestid").get<std::string>());
    } else {
      ASSERT_EQ(type, "notification") << line;
      ++notifications;
      EXPECT_EQ(out.at("notification").get<Object>().at("success"), Value(true));
    }
  }
  EXPECT_EQ(kinds, (std::vector<std::string>{"subscribe", "set", "flavors", "get", "get", "set",
                                             "get", "get"}));
  EXPECT_EQ(requestIds, (std::vector<std::string>{"sub-1", "set-1", "flv-1", "get-1", "get-2",
                                                  "set-2", "get-3", ""}));
  // The last request is not JSON: no uid can be read from it.
  EXPECT_EQ(uids, (std::vector<std::string>(7, "editor-ui") + std::vector<std::string>{""}));
  EXPECT_EQ(notifications, 3);  // two sets and the copy "from another program"

  // What the first get read back is what the first set wrote.
  Object firstGet;
  for (auto const& line : run.lines) {
    Object out = parse(line);
    if (out.at("type") == Value("reply") &&
        out.at("reply").get<Object>().at("requestid") == Value("get-1")) {
      firstGet = out.at("reply").get<Object>();
    }
  }
  ASSERT_EQ(firstGet.count("clipboardItems"), 1u);
  auto const& items = firstGet.at("clipboardItems").get<Object>();
  EXPECT_EQ(items.at("text/plain").get<std::string>(),
            "Hello from the editor \xe2\x80\x94 caf\xc3\xa9 \xf0\x9f\x98\x80");
  EXPECT_EQ(items.at("text/uri-list").get<foundation::json::Array>().size(), 2u);
  EXPECT_EQ(items.at("image/png").get<std::string>().rfind("data:image/png;base64,iVBOR", 0), 0u);
}

TEST(ClipboardHost, BadLinesGetErrorLinesAndTheHostGoesOn) {
  std::vector<std::string> const bad = {
      "not json",
      "[1,2]",
      R"({"kind":"paste","request":{}})",
      R"({"kind":"get"})",
      R"({"kind":"get","mode":2,"request":{}})",
      R"({"kind":"get","request":{"requestid":"x"},"extra":1})",
      R"({"kind":"get","request":{"unterminated")",
      R"({"kind":"flavors","request":{}} trailing)",
  };
  std::string input;
  for (auto const& line : bad) {
    input += line + "\n";
  }
  input += R"({"kind":"flavors","request":{"requestid":"still-here","uid":"u"}})"
           "\n";
  HostRun const run = runHost(input);
  ASSERT_EQ(run.status, 0);
  ASSERT_EQ(run.lines.size(), bad.size() + 1);
  for (std::size_t i = 0; i < bad.size(); ++i) {
    Object const out = parse(run.lines[i]);
    EXPECT_EQ(out.at("type").get<std::string>(), "error") << bad[i];
    EXPECT_EQ(out.at("line").get<double>(), static_cast<double>(i + 1));
    EXPECT_FALSE(out.at("error").get<std::string>().empty());
  }
  Object const last = parse(run.lines.back());
  EXPECT_EQ(last.at("reply").get<Object>().at("requestid").get<std::string>(), "still-here");
}

TEST(ClipboardHost, OverlongLineIsRefusedAndTheNextIsServed) {
  std::string const big =
      R"({"kind":"set","request":{"requestid":"big","clipboardItems":[{"mimeType":"text/plain","data":")" +
      std::string(5000, 'x') + "\"}]}}";
  std::string const input =
      big + "\n" + R"({"kind":"flavors","request":{"requestid":"after","uid":"u"}})" + "\n";
  HostRun const run = runHost(input, "--max-line 4096");
  ASSERT_EQ(run.status, 0);
  ASSERT_EQ(run.lines.size(), 2u);
  EXPECT_EQ(parse(run.lines[0]).at("type").get<std::string>(), "error");
  Object const reply = parse(run.lines[1]).at("reply").get<Object>();
  EXPECT_EQ(reply.at("requestid").get<std::string>(), "after");
  // Nothing of the refused line reached the clipboard.
  EXPECT_TRUE(reply.at("flavors").get<foundation::json::Array>().empty());
}

TEST(ClipboardHost, RequestTextReachesTheServiceByteForByte) {
  // As an object the bytes are passed as they stand (white space included); as a string its
  // decoded text is passed, which here is not an object, so the service reports a parse error.
  std::string const input =
      R"({"kind":"get","request": {"requestid" : "spaced", "uid":"u", "flavors":[]} })"
      "\n"
      R"({"kind":"get","request":"{\"requestid\":\"in-a-string\",\"uid\":\"s\",\"flavors\":[]}"})"
      "\n"
      R"({"kind":"get","request":"[]"})"
      "\n";
  HostRun const run = runHost(input, "--log 4");
  ASSERT_EQ(run.lines.size(), 3u);
  EXPECT_EQ(parse(run.lines[0]).at("reply").get<Object>().at("requestid").get<std::string>(),
            "spaced");
  Object const second = parse(run.lines[1]);
  EXPECT_EQ(second.at("uid").get<std::string>(), "s");
  EXPECT_EQ(second.at("reply").get<Object>().at("success"), Value(true));
  EXPECT_EQ(parse(run.lines[2]).at("reply").get<Object>().at("success"), Value(false));
  EXPECT_NE(run.err.find("JSON Parse Error"), std::string::npos);
}

TEST(ClipboardHost, VocabularyFileRenamesKeys) {
  std::string const path = ::testing::TempDir() + "clipboard_host_vocabulary.json";
  std::ofstream(path) << R"({"successKey":"ok","flavorsKey":"types","uidKey":"sender"})";
  HostRun const run = runHost(R"({"kind":"flavors","request":{"requestid":"v","sender":"me"}})"
                              "\n",
                              "--vocabulary " + path);
  ASSERT_EQ(run.status, 0) << run.err;
  ASSERT_EQ(run.lines.size(), 1u);
  Object const out = parse(run.lines[0]);
  EXPECT_EQ(out.at("uid").get<std::string>(), "me");
  Object const reply = out.at("reply").get<Object>();
  EXPECT_EQ(reply.at("ok"), Value(true));
  EXPECT_EQ(reply.count("types"), 1u);

  std::ofstream(path) << R"({"noSuchField":"x"})";
  EXPECT_EQ(runHost("", "--vocabulary " + path).status, 2);
}

TEST(ClipboardHost, CommandLineErrorsExitWithStatus2AndSayWhat) {
  struct Case {
    char const* arguments;
    char const* says;
  };
  for (Case const& c : {Case{"--backend floppy", "floppy"}, Case{"--log 3", "one flag"},
                        Case{"--max-line 12k", "--max-line"},
                        Case{"--backend x11 --x11-timeouts 5,5", "FIRST,CHUNK,TOTAL"},
                        Case{"--backend x11 --manager-handover soon", "--manager-handover"},
                        Case{"--display :3", "need --backend x11"}}) {
    HostRun const run = runHost("", c.arguments);
    EXPECT_EQ(run.status, 2) << c.arguments;
    EXPECT_NE(run.err.find(c.says), std::string::npos) << c.arguments << ": " << run.err;
    EXPECT_TRUE(run.lines.empty());
  }
}

TEST(ClipboardHost, HelpNamesEveryOption) {
  HostRun const help = runHost("", "--help");
  EXPECT_EQ(help.status, 0);
  std::string all;
  for (auto const& line : help.lines) {
    all += line + "\n";
  }
  for (char const* word :
       {"--backend", "--vocabulary", "--log", "--diagnostics", "--max-line", "--script", "--pretty",
        "--display", "--x11-timeouts", "--manager-handover", "\"kind\"", "notification", "error"}) {
    EXPECT_NE(all.find(word), std::string::npos) << word;
  }
}

// Code the documents show is the code the tests build and run, line for line.
TEST(ClipboardHost, DocumentsShowTheirExamplesVerbatim) {
  std::string const source = std::string(EDITOR_CLIPBOARD_SOURCE_DIR) + "/";
  for (auto const& [document, example] :
       {std::pair{"README.md", "tests/packaging/consumer/main.cpp"},
        std::pair{"docs/protocol.md", "examples/host_client.py"}}) {
    std::string const code = readFile(source + example);
    ASSERT_FALSE(code.empty()) << example;
    std::string indented;
    std::istringstream lines(code);
    for (std::string line; std::getline(lines, line);) {
      indented += line.empty() ? "\n" : "    " + line + "\n";
    }
    EXPECT_NE(readFile(source + document).find(indented), std::string::npos)
        << document << " must show " << example << " indented by four spaces";
  }
}

// The README's session: its input lines through the host give its output lines.
TEST(ClipboardHost, ReadmeSessionGivesTheOutputItShows) {
  std::istringstream readme(readFile(std::string(EDITOR_CLIPBOARD_SOURCE_DIR) + "/README.md"));
  std::string input;
  std::vector<std::string> shown;
  for (std::string line; std::getline(readme, line);) {
    if (line.rfind("    {\"kind\":", 0) == 0) {
      input += line.substr(4) + "\n";
    } else if (line.rfind("    {\"type\":", 0) == 0) {
      shown.push_back(line.substr(4));
    }
  }
  ASSERT_FALSE(input.empty());
  ASSERT_FALSE(shown.empty());
  HostRun const run = runHost(input);
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.lines, shown);
}

}  // namespace
