// The fixture of the X11 tests that run peers: a clean display, owners started from xclip, xsel
// or x11_peer, all stopped when the test ends.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "x11_test_support.hpp"

namespace x11_test {

using pf::clipboard::PFClipboardMode;

inline char const* selectionName(PFClipboardMode mode) {
  return mode == PFClipboardMode::selection ? "PRIMARY" : "CLIPBOARD";
}

class X11Test : public ::testing::Test {
 protected:
  void SetUp() override {
    raw = std::make_unique<RawClient>();
    // xsel only offers UTF8_STRING when the atom already exists, as it does on any desktop.
    raw->atom("UTF8_STRING");
    // A test starts with nobody owning either selection.
    ASSERT_TRUE(raw->waitForOwner("CLIPBOARD", false));
    ASSERT_TRUE(raw->waitForOwner("PRIMARY", false));
  }

  // Starts an owner and waits until it owns `mode`'s selection.
  Process& startOwner(std::vector<std::string> const& argv, PFClipboardMode mode,
                      std::string const& stdinPath = "/dev/null") {
    owners.push_back(std::make_unique<Process>(
        argv,
        Process::Io{stdinPath, dir.path() + "/owner-" + std::to_string(owners.size()) + ".log"}));
    EXPECT_TRUE(raw->waitForOwner(selectionName(mode))) << "owner did not start: " << argv[0];
    return *owners.back();
  }

  Process& xclipOwner(PFClipboardMode mode, std::string const& type, std::string const& contents) {
    auto const file = dir.file("in-" + std::to_string(owners.size()), contents);
    std::vector<std::string> argv = {"xclip", "-selection",
                                     mode == PFClipboardMode::selection ? "primary" : "clipboard"};
    if (!type.empty())
      argv.insert(argv.end(), {"-t", type});
    argv.insert(argv.end(), {"-i", "-quiet", file});
    return startOwner(argv, mode);
  }

  Process& xselOwner(PFClipboardMode mode, std::string const& contents) {
    auto const file = dir.file("in-" + std::to_string(owners.size()), contents);
    return startOwner({"xsel", mode == PFClipboardMode::selection ? "-p" : "-b", "-i", "-n"}, mode,
                      file);
  }

  Process& peerOwner(PFClipboardMode mode, std::vector<std::string> const& args) {
    std::vector<std::string> argv = {peerProgram(), "serve",
                                     mode == PFClipboardMode::selection ? "primary" : "clipboard"};
    argv.insert(argv.end(), args.begin(), args.end());
    return startOwner(argv, mode);
  }

  RunResult xclipRead(PFClipboardMode mode, std::string const& target) {
    return run({"xclip", "-selection", mode == PFClipboardMode::selection ? "primary" : "clipboard",
                "-o", "-t", target});
  }

  TempDir dir;
  std::unique_ptr<RawClient> raw;
  std::vector<std::unique_ptr<Process>> owners;
};

}  // namespace x11_test
