// clipboard-host on a real X display (Xvfb) beside xclip: the README's Python example, and the
// error line a front end gets from a stalled owner.
#include <gtest/gtest.h>

#include <signal.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include "host/front_end.hpp"

namespace {

using test_support::Launch;
using test_support::Process;

std::unique_ptr<Process> start(std::vector<std::string> argv, std::vector<std::string> env) {
  Launch launch;
  launch.argv = std::move(argv);
  launch.env = std::move(env);
  return std::make_unique<Process>(std::move(launch));
}

class X11Host : public ::testing::Test {
 protected:
  void SetUp() override {
#ifndef CLIPBOARD_HOST_HAS_X11
    GTEST_SKIP() << "this build has no X11 backend";
#endif
    try {
      xvfb_ = std::make_unique<test_support::Xvfb>("320x240x24");
    } catch (std::exception const& e) {
      GTEST_SKIP() << "no Xvfb: " << e.what();
    }
    display_ = xvfb_->display();
  }

  // Puts `text` on CLIPBOARD from xclip, which stays in the foreground serving it.
  std::unique_ptr<Process> xclipOwner(std::string const& text) {
    auto owner =
        start({"xclip", "-quiet", "-selection", "clipboard", "-i"}, {xvfb_->displayVariable()});
    owner->write(text);
    owner->closeInput();
    // Owned once xclip -o reads it back.
    for (int i = 0; i < 100; ++i) {
      if (xclipRead() == text) {
        return owner;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    ADD_FAILURE() << "xclip never owned the clipboard: " << owner->errorText();
    return owner;
  }

  std::string xclipRead() {
    auto reader = start({"xclip", "-selection", "clipboard", "-o"}, {xvfb_->displayVariable()});
    reader->closeInput();
    std::string text;
    while (auto line = reader->readLine(std::chrono::seconds(5))) {
      text += (text.empty() ? "" : "\n") + *line;
    }
    reader->finish();
    return text;
  }

  std::unique_ptr<test_support::Xvfb> xvfb_;
  std::string display_;
};

TEST_F(X11Host, ThePythonExampleGetsEachReplyWhileItsPipeStaysOpen) {
  auto owner = xclipOwner("from xclip");
  auto example_ =
      start({"python3", std::string(EDITOR_CLIPBOARD_SOURCE_DIR) + "/examples/host_client.py",
             CLIPBOARD_HOST_PATH, "--backend", "x11", "--manager-handover", "0"},
            {xvfb_->displayVariable()});
  Process& example = *example_;
  std::vector<std::string> lines;
  for (;;) {
    auto line = example.readLine(std::chrono::seconds(20));
    ASSERT_TRUE(line.has_value()) << "no further output; stderr: " << example.errorText();
    if (*line == "press Enter to quit") {
      break;
    }
    if (line->rfind("changed:", 0) != 0) {  // notifications come whenever X delivers them
      lines.push_back(*line);
    }
  }
  ASSERT_EQ(lines.size(), 5u);
  EXPECT_EQ(lines[0], R"(subscribe: {"requestid": "s1", "success": "true"})");
  EXPECT_EQ(
      lines[1],
      R"(get: {"clipboardItems": {"text/plain": "from xclip"}, "requestid": "g1", "success": true})");
  EXPECT_EQ(lines[2], R"(set: {"requestid": "w1", "success": true})");
  EXPECT_NE(lines[3].find(R"("text/plain")"), std::string::npos) << lines[3];
  EXPECT_EQ(
      lines[4],
      R"(get: {"clipboardItems": {"text/plain": "hello from python"}, "requestid": "g2", "success": true})");

  // While the example waits, the host owns CLIPBOARD and xclip reads what it set; xclip, which
  // lost the selection, has exited.
  EXPECT_EQ(xclipRead(), "hello from python");
  EXPECT_EQ(owner->finish(std::chrono::seconds(5)), 0);

  example.writeLine("");
  EXPECT_EQ(example.finish(), 0) << example.errorText();
}

// On both transports: the error line names the request the service could not answer, a get from
// the same owner has the service's reply (success, nothing read) and the record why, and another
// program's copy cannot be made up on a real clipboard.
TEST_F(X11Host, AStalledOwnerGivesErrorLinesNamingTheRequestAndDiagnosticsSayWhy) {
  auto owner = xclipOwner("soon stalled");
  ASSERT_EQ(::kill(owner->pid(), SIGSTOP), 0);
  host_test::Transcript const stalled{
      "AStalledOwner",
      {"--backend", "x11", "--display", display_, "--x11-timeouts", "300,300,1000",
       "--manager-handover", "0", "--diagnostics"},
      {R"({"kind":"flavors","request":{"requestid":"f1","uid":"ui"}})",
       R"({"kind":"get","request":{"requestid":"g1","uid":"ui","flavors":["text/plain"]}})",
       R"({"kind":"external","items":[{"mimeType":"text/plain","text":"x"}]})"},
      {R"({"type":"error","line":1,"kind":"flavors","requestid":"f1","uid":"ui","error":"*did not answer within 300 ms*)",
       R"({"type":"reply","kind":"get","uid":"ui","reply":{"clipboardItems":{},"requestid":"g1","success":true},"log":["getClipboardDataSync threw an exception for mime Type: text/plain"]})",
       R"({"type":"error","line":3,"error":"\"external\" needs the memory backend"})"}};
  for (auto transport : {host_test::Transport::pipe, host_test::Transport::websocket}) {
    host_test::runTranscript(stalled, transport);
  }
}

TEST_F(X11Host, ADisplayThatCannotBeOpenedIsNamed) {
  auto host = host_test::startHost({"--backend", "x11", "--display", ":65000"});
  EXPECT_EQ(host->finish(), 1);
  EXPECT_NE(host->errorText().find("\":65000\""), std::string::npos) << host->errorText();
  auto unset = host_test::startHost({"--backend", "x11"}, {"DISPLAY"});
  EXPECT_EQ(unset->finish(), 1);
  EXPECT_NE(unset->errorText().find("DISPLAY is not set"), std::string::npos) << unset->errorText();
}

}  // namespace
