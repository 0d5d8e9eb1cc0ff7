// The Wayland backend against a real compositor, headless sway 1.7 (wlr-data-control version 2):
// wl-copy killed mid-transfer, with the helper process it serves each paste from (the other
// exchanges with wl-copy and wl-paste are conformance cases).
#include <signal.h>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "wayland_test_support.hpp"

namespace {

using namespace wayland_test;
using pf::clipboard::ClipboardContent;
using pf::clipboard::PFClipboardMode;
using pf::clipboard::PFWaylandClipboard;

class SwayInterop : public ::testing::Test {
 protected:
  void SetUp() override {
    try {
      sway = std::make_unique<Sway>();
    } catch (SwayUnavailable const& e) {
      GTEST_SKIP() << e.what();
    }
    backend = pf::clipboard::makeWaylandClipboard(options(*sway));
  }
  void TearDown() override {
    backend.reset();
    sway.reset();
  }

  // wl-copy in the foreground, owning the clipboard with `data`.
  std::unique_ptr<Process> copy(std::string const& data, std::vector<std::string> args) {
    auto const file = dir.file("copy-" + std::to_string(++copies), data);
    args.insert(args.begin(), {"wl-copy", "--foreground"});
    return std::make_unique<Process>(args, std::vector<std::string>{sway->waylandDisplayEnv()},
                                     Process::Io{file});
  }
  // Waits until the clipboard offers `mime` (wl-copy takes it asynchronously).
  bool waitForType(std::u16string const& mime) {
    auto const end = std::chrono::steady_clock::now() + 10s;
    while (std::chrono::steady_clock::now() < end) {
      auto const types = backend->availableMimeTypes(PFClipboardMode::clipboard);
      if (std::find(types.begin(), types.end(), mime) != types.end())
        return true;
      std::this_thread::sleep_for(10ms);
    }
    return false;
  }

  std::unique_ptr<Sway> sway;
  std::shared_ptr<PFWaylandClipboard> backend;
  TempDir dir;
  int copies = 0;
};

TEST_F(SwayInterop, AnOwnerKilledMidTransferGivesAnErrorNeverPartialData) {
  std::string const big(std::size_t{128} << 20, 'k');
  int errors = 0;
  for (int attempt = 0; attempt < 3 && errors == 0; ++attempt) {
    auto owner = copy(big, {"--type", "application/x-big"});
    ASSERT_TRUE(waitForType(u"application/x-big"));
    std::atomic<bool> threw{false};
    ClipboardContent read;
    std::thread reader([&] {
      try {
        read = backend->read(u"application/x-big", PFClipboardMode::clipboard);
      } catch (std::runtime_error const&) {
        threw = true;
      }
    });
    // wl-copy serves each paste from a helper process: once it exists, the transfer is on.
    auto const end = std::chrono::steady_clock::now() + 10s;
    while (childrenOf(owner->pid()).empty() && std::chrono::steady_clock::now() < end)
      std::this_thread::sleep_for(200us);
    // The helper stalls mid-transfer; then the owner dies, and its helper after it. A helper
    // caught before it runs `cat` still holds the owner's connection, so its death may end the
    // pipe before the compositor learns that the owner is gone.
    auto const helpers = childrenOf(owner->pid());
    for (auto const helper : helpers)
      ::kill(helper, SIGSTOP);
    std::this_thread::sleep_for(300ms);
    ::kill(owner->pid(), SIGKILL);
    owner->wait(5s);
    for (auto const helper : helpers)
      ::kill(helper, SIGKILL);
    reader.join();
    if (threw) {
      ++errors;
    } else {
      ASSERT_EQ(read.index(), 4u);
      EXPECT_EQ(std::get<4>(read).size(), big.size()) << "partial data returned";
    }
  }
  EXPECT_GT(errors, 0) << "the transfer always ended before the owner was killed";
}

}  // namespace
