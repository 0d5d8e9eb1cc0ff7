// clipboard-host on a real X display (Xvfb) beside xclip: the README's Python example, and the
// error line a front end gets from a stalled owner.
#include <gtest/gtest.h>

#include <signal.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include "host/child_process.hpp"

namespace {

using host_test::ChildProcess;

class X11Host : public ::testing::Test {
 protected:
  void SetUp() override {
#ifndef CLIPBOARD_HOST_HAS_X11
    GTEST_SKIP() << "this build has no X11 backend";
#endif
    try {
      // -displayfd picks a free display and writes its number to our pipe; -noreset keeps the
      // server up between clients (a reset when the last one leaves refuses the next one).
      xvfb_ = std::make_unique<ChildProcess>(std::vector<std::string>{
          "Xvfb", "-displayfd", "1", "-nolisten", "tcp", "-noreset", "-screen", "0", "320x240x24"});
    } catch (std::exception const& e) {
      GTEST_SKIP() << "no Xvfb: " << e.what();
    }
    auto number = xvfb_->readLine(std::chrono::seconds(20));
    ASSERT_TRUE(number.has_value()) << xvfb_->errorText();
    display_ = ":" + *number;
  }

  void TearDown() override {
    if (xvfb_) {
      xvfb_->terminate();
    }
  }

  std::string displayVariable() const {
    return "DISPLAY=" + display_;
  }

  // Puts `text` on CLIPBOARD from xclip, which stays in the foreground serving it.
  std::unique_ptr<ChildProcess> xclipOwner(std::string const& text) {
    auto owner = std::make_unique<ChildProcess>(
        std::vector<std::string>{"xclip", "-quiet", "-selection", "clipboard", "-i"},
        std::vector<std::string>{displayVariable()});
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
    ChildProcess reader({"xclip", "-selection", "clipboard", "-o"}, {displayVariable()});
    reader.closeInput();
    std::string text;
    while (auto line = reader.readLine(std::chrono::seconds(5))) {
      text += (text.empty() ? "" : "\n") + *line;
    }
    reader.wait();
    return text;
  }

  std::unique_ptr<ChildProcess> xvfb_;
  std::string display_;
};

TEST_F(X11Host, ThePythonExampleGetsEachReplyWhileItsPipeStaysOpen) {
  auto owner = xclipOwner("from xclip");
  ChildProcess example(
      {"python3", std::string(EDITOR_CLIPBOARD_SOURCE_DIR) + "/examples/host_client.py",
       CLIPBOARD_HOST_PATH, "--backend", "x11", "--manager-handover", "0"},
      {displayVariable()});
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
  EXPECT_EQ(owner->wait(std::chrono::seconds(5)), 0);

  example.writeLine("");
  EXPECT_EQ(example.wait(std::chrono::seconds(10)), 0) << example.errorText();
}

TEST_F(X11Host, AStalledOwnerGivesErrorLinesNamingTheRequestAndDiagnosticsSayWhy) {
  auto owner = xclipOwner("soon stalled");
  ASSERT_EQ(::kill(owner->pid(), SIGSTOP), 0);
  ChildProcess host({CLIPBOARD_HOST_PATH, "--backend", "x11", "--display", display_,
                     "--x11-timeouts", "300,300,1000", "--manager-handover", "0", "--diagnostics"});
  host.writeLine(R"({"kind":"flavors","request":{"requestid":"f1","uid":"ui"}})");
  auto line = host.readLine(std::chrono::seconds(10));
  ASSERT_TRUE(line.has_value()) << host.errorText();
  EXPECT_EQ(
      line->rfind(
          R"({"type":"error","line":1,"kind":"flavors","requestid":"f1","uid":"ui","error":")", 0),
      0u)
      << *line;
  EXPECT_NE(line->find("did not answer within 300 ms"), std::string::npos) << *line;

  // A get from the same owner: the service's reply (success, nothing read) and the record why.
  host.writeLine(
      R"({"kind":"get","request":{"requestid":"g1","uid":"ui","flavors":["text/plain"]}})");
  line = host.readLine(std::chrono::seconds(10));
  ASSERT_TRUE(line.has_value()) << host.errorText();
  EXPECT_EQ(
      *line,
      R"({"type":"reply","kind":"get","uid":"ui","reply":{"clipboardItems":{},"requestid":"g1","success":true},"log":["getClipboardDataSync threw an exception for mime Type: text/plain"]})");

  host.closeInput();
  EXPECT_EQ(host.wait(std::chrono::seconds(5)), 0);
  owner->terminate();
}

TEST_F(X11Host, ADisplayThatCannotBeOpenedIsNamed) {
  ChildProcess host({CLIPBOARD_HOST_PATH, "--backend", "x11", "--display", ":65000"});
  EXPECT_EQ(host.wait(), 1);
  EXPECT_NE(host.errorText().find("\":65000\""), std::string::npos) << host.errorText();
  ChildProcess unset({CLIPBOARD_HOST_PATH, "--backend", "x11"}, {"DISPLAY"});
  EXPECT_EQ(unset.wait(), 1);
  EXPECT_NE(unset.errorText().find("DISPLAY is not set"), std::string::npos) << unset.errorText();
}

}  // namespace
