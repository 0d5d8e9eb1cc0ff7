// The host's behaviour as its front ends see it, written once as lines in and lines out and run
// over a live pipe and over a WebSocket (each line as one text frame), each reply awaited before
// the next line is written. A host that waits for more input before answering a whole line
// fails here by timing out.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "host/front_end.hpp"
#include "support/temp_dir.hpp"

namespace {

using host_test::FrontEnd;
using host_test::Transcript;
using host_test::Transport;

std::string const kFlavorsAfter = R"({"kind":"flavors","request":{"requestid":"after","uid":"u"}})";
std::string const kEmptyFlavorsAfter =
    R"({"type":"reply","kind":"flavors","uid":"u","reply":{"flavors":[],"requestid":"after","success":true}})";

// A set line of exactly `size` bytes.
std::string setLineOf(std::size_t size) {
  std::string const head =
      R"({"kind":"set","request":{"requestid":"big","uid":"u","clipboardItems":[{"mimeType":"text/plain","data":")";
  std::string const tail = R"("}]}})";
  return head + std::string(size - head.size() - tail.size(), 'x') + tail;
}

std::vector<Transcript> const kTranscripts = {
    {"BadLinesGetErrorLinesAndTheHostGoesOn",
     {},
     {"not json", "[1,2]", R"({"kind":"paste","request":{}})", R"({"kind":"get"})",
      R"({"kind":"get","mode":2,"request":{}})",
      R"({"kind":"get","request":{"requestid":"x"},"extra":1})",
      R"({"kind":"get","request":{"unterminated)", R"({"kind":"flavors","request":{}} trailing)",
      kFlavorsAfter},
     {R"({"type":"error","line":1,"error":"a line must be a JSON object"})",
      R"({"type":"error","line":2,"error":"a line must be a JSON object"})",
      R"x({"type":"error","line":3,"error":"unknown kind \"paste\" (flavors, get, set, subscribe, external)"})x",
      R"({"type":"error","line":4,"error":"missing \"request\""})",
      R"({"type":"error","line":5,"error":"\"mode\" must be 0 or 1"})",
      R"({"type":"error","line":6,"error":"unknown member \"extra\""})",
      R"({"type":"error","line":7,"error":"\"request\" has no complete value"})",
      R"({"type":"error","line":8,"error":"text after the object"})", kEmptyFlavorsAfter}},
    // As an object the bytes are passed as they stand (white space included); as a string its
    // decoded text is passed; text that is not an object (the last three) gets the service's
    // parse error, which --log 4 sends to standard error.
    {"RequestTextReachesTheServiceByteForByte",
     {"--log", "4"},
     {R"({"kind":"get","request": {"requestid" : "spaced", "uid":"u", "flavors":[]} })",
      R"({"kind":"get","request":"{\"requestid\":\"in-a-string\",\"uid\":\"s\",\"flavors\":[]}"})",
      R"({"kind":"flavors","request":[1]})", R"({"kind":"get","request":"[]"})",
      R"({"kind":"get","request":7,"mode":0})"},
     {R"({"type":"reply","kind":"get","uid":"u","reply":{"clipboardItems":{},"requestid":"spaced","success":true}})",
      R"({"type":"reply","kind":"get","uid":"s","reply":{"clipboardItems":{},"requestid":"in-a-string","success":true}})",
      R"({"type":"reply","kind":"flavors","uid":"","reply":{"flavors":[],"requestid":"","success":true}})",
      R"({"type":"reply","kind":"get","uid":"","reply":{"clipboardItems":{},"requestid":"","success":false}})",
      R"({"type":"reply","kind":"get","uid":"","reply":{"clipboardItems":{},"requestid":"","success":false}})"},
     {},
     "JSON Parse Error"},
    // Flavors and notifications describe the system clipboard whatever mode a get or set uses.
    {"ThePrimarySelectionIsAClipboardOfItsOwn",
     {},
     {R"({"kind":"subscribe","request":{"requestid":"s","uid":"u"}})",
      R"({"kind":"set","mode":1,"request":{"requestid":"p","uid":"u","clipboardItems":[{"mimeType":"text/plain","data":"primary"}]}})",
      R"({"kind":"get","mode":1,"request":{"requestid":"g1","uid":"u","flavors":["text/plain"]}})",
      R"({"kind":"get","mode":0,"request":{"requestid":"g0","uid":"u","flavors":["text/plain"]}})",
      kFlavorsAfter},
     {R"({"type":"reply","kind":"subscribe","uid":"u","reply":{"requestid":"s","success":"true"}})",
      R"({"type":"reply","kind":"set","uid":"u","reply":{"requestid":"p","success":true}})",
      R"({"type":"reply","kind":"get","uid":"u","reply":{"clipboardItems":{"text/plain":"primary"},"requestid":"g1","success":true}})",
      R"({"type":"reply","kind":"get","uid":"u","reply":{"clipboardItems":{},"requestid":"g0","success":true}})",
      kEmptyFlavorsAfter}},
    // A broken image: the service replies success and leaves the clipboard empty; the record says
    // why, with the set's reply and not with the notification. A request that logs nothing has
    // an empty log, and the records do not reach standard error: that is --log's choice.
    {"DiagnosticsTravelWithTheirReplies",
     {"--diagnostics"},
     {R"({"kind":"subscribe","request":{"requestid":"s","uid":"ui"}})",
      R"({"kind":"set","request":{"requestid":"img","uid":"ui","clipboardItems":[{"mimeType":"image/png","data":"data:image/png;base64,AAAA"}]}})",
      R"({"kind":"external","items":[{"mimeType":"text/plain","text":"x"}]})",
      R"({"kind":"flavors","request":{"requestid":"f","uid":"ui"}})"},
     {R"({"type":"reply","kind":"subscribe","uid":"ui","reply":{"requestid":"s","success":"true"},"log":[]})",
      R"({"type":"notification","notification":{"flavors":[],"requestid":"","success":true},"log":["*requestid*"]})",
      R"({"type":"reply","kind":"set","uid":"ui","reply":{"requestid":"img","success":true},"log":["Exception caught for flavor :: image/png\n"]})",
      R"({"type":"notification","notification":{"flavors":["text/plain"],"requestid":"","success":true},"log":["*requestid*"]})",
      R"({"type":"reply","kind":"flavors","uid":"ui","reply":{"flavors":["text/plain"],"requestid":"f","success":true},"log":[]})"},
     {},
     ""},
    {"AVocabularyFileRenamesKeys",
     {"--vocabulary", "{file}"},
     {R"({"kind":"flavors","request":{"requestid":"v","sender":"me"}})"},
     {R"({"type":"reply","kind":"flavors","uid":"me","reply":{"ok":true,"requestid":"v","types":[]}})"},
     R"({"successKey":"ok","flavorsKey":"types","uidKey":"sender","fallbackFlavors":["text/plain"]})"},
    // The bound is exact: a line (or message) of --max-line bytes is served. A longer one gets
    // an error line on the pipe (pipe_test) and closes a WebSocket (websocket_host_test).
    {"ALineOfExactlyMaxLineIsServed",
     {"--max-line", "1000"},
     {setLineOf(1000),
      R"({"kind":"get","request":{"requestid":"g","uid":"u","flavors":["text/plain"]}})"},
     {R"({"type":"reply","kind":"set","uid":"u","reply":{"requestid":"big","success":true}})",
      R"({"type":"reply","kind":"get","uid":"u","reply":{"clipboardItems":{"text/plain":"xxxx*"},"requestid":"g","success":true}})"}},
    // The demo's session: every kind, file lists, images, another program's copy, a line that
    // is not JSON.
    {"TheSampleSession",
     {},
     {},
     {R"({"type":"reply","kind":"subscribe","uid":"editor-ui","reply":{"requestid":"sub-1","success":"true"}})",
      R"({"type":"notification","notification":{"flavors":["text/plain","text/uri-list","image/png","application/json"],"requestid":"","success":true}})",
      R"({"type":"reply","kind":"set","uid":"editor-ui","reply":{"requestid":"set-1","success":true}})",
      R"({"type":"reply","kind":"flavors","uid":"editor-ui","reply":{"flavors":["text/plain","text/uri-list","image/png","application/json"],"requestid":"flv-1","success":true}})",
      R"({"type":"reply","kind":"get","uid":"editor-ui","reply":{"clipboardItems":{"application/json":"{\"selection\":[3,14]}","image/png":"data:image/png;base64,iVBOR*","text/plain":"Hello from the editor )"
      "\xe2\x80\x94 caf\xc3\xa9 \xf0\x9f\x98\x80"
      R"(","text/uri-list":["/home/user/notes.txt","/home/user/pictures/cat.png"]},"requestid":"get-1","success":true}})",
      R"({"type":"notification","notification":{"flavors":["text/plain"],"requestid":"","success":true}})",
      R"({"type":"reply","kind":"get","uid":"editor-ui","reply":{"clipboardItems":{"text/plain":"copied in another program"},"requestid":"get-2","success":true}})",
      R"({"type":"notification","notification":{"flavors":["image/svg"],"requestid":"","success":true}})",
      R"({"type":"reply","kind":"set","uid":"editor-ui","reply":{"requestid":"set-2","success":true}})",
      R"({"type":"reply","kind":"get","uid":"editor-ui","reply":{"clipboardItems":{"image/svg":"data:image/svg;base64,*"},"requestid":"get-3","success":true}})",
      R"({"type":"reply","kind":"get","uid":"","reply":{"clipboardItems":{},"requestid":"","success":false}})"}},
};

std::vector<std::string> linesOf(std::string const& path) {
  std::istringstream text(test_support::readFile(path));
  std::vector<std::string> lines;
  for (std::string line; std::getline(text, line);) {
    lines.push_back(line);
  }
  return lines;
}

// The README's session: its input lines give the output lines it shows.
Transcript readmeSession() {
  Transcript readme{"TheReadmeSession", {}, {}, {}};
  for (auto const& line : linesOf(std::string(EDITOR_CLIPBOARD_SOURCE_DIR) + "/README.md")) {
    if (line.rfind("    {\"kind\":", 0) == 0) {
      readme.in.push_back(line.substr(4));
    } else if (line.rfind("    {\"type\":", 0) == 0) {
      readme.out.push_back(line.substr(4));
    }
  }
  return readme;
}

std::vector<Transcript> allTranscripts() {
  std::vector<Transcript> all = kTranscripts;
  for (auto& transcript : all) {
    if (std::string(transcript.name) == "TheSampleSession") {
      transcript.in = linesOf(std::string(EDITOR_CLIPBOARD_SOURCE_DIR) + "/examples/session.jsonl");
    }
  }
  all.push_back(readmeSession());
  return all;
}

// Each case on the pipe, and on the WebSocket unless it is the pipe's alone.
template <class Case>
std::vector<std::tuple<Case, Transport>> onTheirTransports(std::vector<Case> const& cases) {
  std::vector<std::tuple<Case, Transport>> out;
  for (auto const& c : cases) {
    out.emplace_back(c, Transport::pipe);
    if (!c.pipeOnly) {
      out.emplace_back(c, Transport::websocket);
    }
  }
  return out;
}

template <class Param>
std::string nameOf(::testing::TestParamInfo<Param> const& info) {
  return std::string(std::get<0>(info.param).name) + "_" +
         host_test::nameOf(std::get<1>(info.param));
}

class HostTranscript : public ::testing::TestWithParam<std::tuple<Transcript, Transport>> {};

TEST_P(HostTranscript, GivesItsOutput) {
  auto const& [transcript, transport] = GetParam();
  ASSERT_FALSE(transcript.in.empty());
  host_test::runTranscript(transcript, transport);
}

INSTANTIATE_TEST_SUITE_P(Both, HostTranscript,
                         ::testing::ValuesIn(onTheirTransports(allTranscripts())),
                         nameOf<HostTranscript::ParamType>);

// Starts that end at once: the status, and what the host says (on either output).
struct StartCase {
  char const* name;
  std::vector<std::string> options;
  std::string file;  // written to a file named by "{file}" in the options
  int status;
  char const* says;
  bool pipeOnly = false;
};

void PrintTo(StartCase const& start, std::ostream* os) {
  *os << start.name;
}

class HostStart : public ::testing::TestWithParam<std::tuple<StartCase, Transport>> {};

TEST_P(HostStart, EndsWithItsStatusAndSaysWhy) {
  auto const& [start, transport] = GetParam();
  test_support::TempDir dir;
  std::vector<std::string> options = start.options;
  for (auto& option : options) {
    if (option == "{file}") {
      option = dir.file("file", start.file);
    }
  }
  FrontEnd front(transport, options);
  EXPECT_EQ(front.started(), transport == Transport::pipe);
  std::vector<std::string> said;
  EXPECT_EQ(front.end(said), start.status);
  std::string all = front.errorText();
  for (auto const& line : said) {
    all += line + "\n";
  }
  EXPECT_NE(all.find(start.says), std::string::npos) << all;
}

INSTANTIATE_TEST_SUITE_P(
    Both, HostStart,
    ::testing::ValuesIn(onTheirTransports(std::vector<StartCase>{
        {"UnknownBackend", {"--backend", "floppy"}, "", 2, "unknown backend floppy"},
        {"UnknownVocabularyField",
         {"--vocabulary", "{file}"},
         R"({"noSuchField":"x"})",
         2,
         "noSuchField"},
        {"FallbackFlavorsNotStrings",
         {"--vocabulary", "{file}"},
         R"({"fallbackFlavors":["text/plain",1]})",
         2,
         "\"fallbackFlavors\" must be an array of strings"},
        {"Help", {"--help"}, "", 0, "--listen [ADDRESS:]PORT", true},
        {"Pretty",
         {"--pretty", "--script", "{file}"},
         R"({"kind":"get","request":{"requestid":"g","uid":"u","flavors":[]}})"
         "\n"
         R"({"kind":"flavors","request":{"requestid":"f","uid":"u"}})",
         0,
         "<- get reply for u:\n{\n  \"clipboardItems\": {},\n  \"requestid\": \"g\",\n  "
         "\"success\": true\n}\n\n-> {\"kind\":\"flavors\",\"request\":{\"requestid\":\"f\","
         "\"uid\":\"u\"}}\n<- flavors reply for u:\n{\n  \"flavors\": [],\n",
         true},
        {"Script",
         {"--script", "{file}"},
         R"({"kind":"flavors","request":{"requestid":"from-script"}})",
         0,
         R"("requestid":"from-script")",
         true}})),
    nameOf<HostStart::ParamType>);

}  // namespace
