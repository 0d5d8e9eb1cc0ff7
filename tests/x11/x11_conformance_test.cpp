// The backend conformance suite on the X11 backend on our Xvfb, with xclip as the other program
// (x11_peer where an owner must fail on purpose).
#include <signal.h>

#include "support/backend_conformance.hpp"
#include "x11_test_support.hpp"

namespace {

using pf::clipboard::PFClipboardMode;

class Xclip : public test_support::OtherProgram {
 public:
  void offer(PFClipboardMode mode, std::string const& mime, std::string const& bytes) override {
    start({"xclip", "-selection", selection(mode), "-t", target(mime), "-i", "-quiet",
           dir_.file("in-" + std::to_string(owners_.size()), bytes)},
          mode);
  }
  bool offerFaulty(std::string const& mime, Fault fault) override {
    if (fault == Fault::stalls) {
      offer(PFClipboardMode::clipboard, mime, "never sent");
      owners_.back()->signal(SIGSTOP);
    } else {
      start({x11_test::peerProgram(), "serve", "clipboard", "--chunk", "1048576", "--incr-above",
             "1048576", "--die-after-chunks", "3",
             mime + ":" + dir_.file("big", std::string(20u << 20, 'x'))},
            PFClipboardMode::clipboard);
    }
    return true;
  }
  std::string paste(PFClipboardMode mode, std::string const& mime) override {
    auto const result =
        x11_test::run({"xclip", "-selection", selection(mode), "-o", "-t", target(mime)});
    EXPECT_EQ(result.status, 0) << "xclip -o failed";
    return result.output;
  }

 private:
  static char const* selection(PFClipboardMode mode) {
    return mode == PFClipboardMode::selection ? "primary" : "clipboard";
  }
  static std::string target(std::string const& mime) {
    return mime == "text/plain" ? "UTF8_STRING" : mime;
  }
  // Starts an owner and waits until it has taken the selection.
  void start(std::vector<std::string> const& argv, PFClipboardMode mode) {
    auto const name = mode == PFClipboardMode::selection ? "PRIMARY" : "CLIPBOARD";
    auto const before = raw_.owner(name);
    owners_.push_back(
        std::make_unique<x11_test::Process>(argv, x11_test::Process::Io{"/dev/null", "/dev/null"}));
    auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while ((raw_.owner(name) == before || raw_.owner(name) == 0) &&
           std::chrono::steady_clock::now() < end)
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }

  x11_test::TempDir dir_;
  x11_test::RawClient raw_;
  std::vector<std::unique_ptr<x11_test::Process>> owners_;
};

INSTANTIATE_TEST_SUITE_P(X11, BackendConformance,
                         ::testing::Values(test_support::BackendFactory{
                             "xvfb",
                             [] {
                               return test_support::BackendUnderTest{
                                   pf::clipboard::makeX11Clipboard(x11_test::options()),
                                   std::make_unique<Xclip>()};
                             }}),
                         test_support::BackendFactoryName());

}  // namespace
