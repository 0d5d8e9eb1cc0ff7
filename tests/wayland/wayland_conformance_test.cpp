// The backend conformance suite on the Wayland backend: over each protocol on the test
// compositor, with wayland_peer as the other program, and over wlr on headless sway, with wl-copy
// and wl-paste.
#include <signal.h>

#include "support/backend_conformance.hpp"

#include "wayland_test_support.hpp"

namespace {

using namespace wayland_test;
using pf::clipboard::PFClipboardMode;
using pf::clipboard::PFWaylandProtocol;

class OtherProgramOn : public test_support::OtherProgram {
 public:
  explicit OtherProgramOn(Compositor const& compositor) : compositor_(compositor) {}

 protected:
  Process& start(std::vector<std::string> const& argv, std::string const& stdinPath = "/dev/null") {
    owners_.push_back(std::make_unique<Process>(
        argv, std::vector<std::string>{compositor_.waylandDisplayEnv()}, Process::Io{stdinPath}));
    return *owners_.back();
  }
  std::string pasted(std::vector<std::string> const& argv) {
    auto const result = run(compositor_, argv);
    EXPECT_EQ(result.status, 0) << argv[0] << " failed";
    return result.output;
  }

  Compositor const& compositor_;
  TempDir dir_;
  std::vector<std::unique_ptr<Process>> owners_;
};

class Peer final : public OtherProgramOn {
 public:
  Peer(Compositor const& compositor, char const* protocol)
      : OtherProgramOn(compositor), protocol_(protocol) {}

  void offer(PFClipboardMode mode, std::string const& mime, std::string const& bytes) override {
    auto argv = command("serve=" + dir_.file("in-" + std::to_string(owners_.size()), bytes), mime);
    if (mode == PFClipboardMode::selection)
      argv.push_back("primary");
    start(argv);
  }
  bool offerFaulty(std::string const& mime, Fault fault) override {
    start(command(fault == Fault::stalls ? "stall" : "die-after=100000", mime));
    return true;
  }
  std::string paste(PFClipboardMode mode, std::string const& mime) override {
    auto argv = command("receive", mime);
    if (mode == PFClipboardMode::selection)
      argv.push_back("primary");
    return pasted(argv);
  }

 private:
  std::vector<std::string> command(std::string const& what, std::string const& mime) const {
    return {peerProgram(), protocol_, what, mime};
  }
  char const* protocol_;
};

class WlClipboard final : public OtherProgramOn {
 public:
  using OtherProgramOn::OtherProgramOn;

  void offer(PFClipboardMode mode, std::string const& mime, std::string const& bytes) override {
    std::vector<std::string> argv = {"wl-copy", "--foreground", "--type", mime};
    if (mode == PFClipboardMode::selection)
      argv.push_back("--primary");
    start(argv, dir_.file("in-" + std::to_string(owners_.size()), bytes));
  }
  // wl-copy stopped; how wl-copy dies mid-transfer is a test of its own.
  bool offerFaulty(std::string const& mime, Fault fault) override {
    if (fault == Fault::dies)
      return false;
    offer(PFClipboardMode::clipboard, mime, "never sent");
    // wl-copy takes the selection before anyone can ask it; stopped at once it still may not have.
    std::this_thread::sleep_for(300ms);
    owners_.back()->signalGroup(SIGSTOP);
    return true;
  }
  std::string paste(PFClipboardMode mode, std::string const& mime) override {
    std::vector<std::string> argv = {"wl-paste", "--no-newline", "--type", mime};
    if (mode == PFClipboardMode::selection)
      argv.push_back("--primary");
    return pasted(argv);
  }
};

// The compositor lives as long as the backend, and ends after it.
struct Held {
  std::unique_ptr<Compositor> compositor;
  std::shared_ptr<pf::clipboard::PFWaylandClipboard> backend;
};

test_support::BackendUnderTest over(std::unique_ptr<Compositor> compositor,
                                    PFWaylandProtocol protocol,
                                    std::unique_ptr<test_support::OtherProgram> other) {
  auto held = std::make_shared<Held>();
  held->compositor = std::move(compositor);
  auto o = options(*held->compositor);
  o.protocol = protocol;
  held->backend = pf::clipboard::makeWaylandClipboard(o);
  return {std::shared_ptr<pf::clipboard::PFClipboardBackend>(held, held->backend.get()),
          std::move(other)};
}

test_support::BackendUnderTest onTestCompositor(PFWaylandProtocol protocol) {
  auto compositor =
      std::make_unique<TestCompositor>(std::vector<std::string>{"--ext", "--wlr", "2"});
  auto peer =
      std::make_unique<Peer>(*compositor, protocol == PFWaylandProtocol::wlr ? "wlr" : "ext");
  return over(std::move(compositor), protocol, std::move(peer));
}

test_support::BackendUnderTest onSway() {
  std::unique_ptr<Compositor> sway;
  try {
    sway = std::make_unique<Sway>();
  } catch (SwayUnavailable const& e) {
    [&] { GTEST_SKIP() << e.what(); }();
    return {nullptr, nullptr};
  }
  auto wl = std::make_unique<WlClipboard>(*sway);
  return over(std::move(sway), PFWaylandProtocol::automatic, std::move(wl));
}

INSTANTIATE_TEST_SUITE_P(
    Wayland, BackendConformance,
    ::testing::Values(
        test_support::BackendFactory{"ExtOnTestCompositor",
                                     [] { return onTestCompositor(PFWaylandProtocol::automatic); }},
        test_support::BackendFactory{"WlrOnTestCompositor",
                                     [] { return onTestCompositor(PFWaylandProtocol::wlr); }},
        test_support::BackendFactory{"WlrOnSway", onSway}),
    test_support::BackendFactoryName());

}  // namespace
