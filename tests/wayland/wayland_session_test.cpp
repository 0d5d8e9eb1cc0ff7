// The event thread's side of a read whose caller stopped waiting: the backend's own caller
// passes a quick choice of type, so a slow choice stands in here for an event thread held up
// past the caller's patience.
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <thread>

#include "platform/wayland/wayland_internal.h"
#include "wayland_test_support.hpp"

namespace {

using namespace wayland_test;
using pf::clipboard::PFClipboardMode;
using pf::clipboard::wayland::Session;
using pf::clipboard::wayland::SessionConfig;

// The pipes this process holds open, by inode.
std::set<std::string> openPipes() {
  std::set<std::string> pipes;
  std::error_code ec;
  for (auto const& entry : std::filesystem::directory_iterator("/proc/self/fd", ec)) {
    std::error_code gone;
    auto const target = std::filesystem::read_symlink(entry.path(), gone).string();
    if (target.rfind("pipe:", 0) == 0)
      pipes.insert(target);
  }
  return pipes;
}

class SessionGivingUp : public ::testing::TestWithParam<pf::clipboard::PFWaylandProtocol> {};

TEST_P(SessionGivingUp, AReadAnsweredAfterItsCallerGaveUpLeavesNoPipeOpen) {
  TestCompositor compositor({"--ext", "--wlr", "2"});
  // An owner that keeps its end of every paste open and writes nothing: any pipe still open
  // here afterwards is ours.
  Process owner({peerProgram(), GetParam() == pf::clipboard::PFWaylandProtocol::ext ? "ext" : "wlr",
                 "stall", "text/plain"},
                {compositor.waylandDisplayEnv()}, {});
  SessionConfig config;
  config.display = compositor.socket();
  config.protocol = GetParam();
  config.sendTimeout = 1s;
  config.answerTimeout = 200ms;
  Session session(config);
  auto const end = std::chrono::steady_clock::now() + 10s;
  while (session.offeredTypes(PFClipboardMode::clipboard).empty() &&
         std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(5ms);
  }
  ASSERT_FALSE(session.offeredTypes(PFClipboardMode::clipboard).empty());

  auto const before = openPipes();
  EXPECT_THROW(session.startRead(PFClipboardMode::clipboard,
                                 [](std::vector<std::string> const& types) {
                                   std::this_thread::sleep_for(600ms);
                                   return std::optional<std::string>(types.front());
                                 }),
               std::runtime_error);
  // The late answer has run once a later task has: tasks run in order.
  std::this_thread::sleep_for(800ms);
  EXPECT_FALSE(session.offeredTypes(PFClipboardMode::clipboard).empty());
  EXPECT_EQ(openPipes(), before) << "the pipe of the abandoned read is still open";

  // The session goes on: the next read gets its pipe.
  auto const start =
      session.startRead(PFClipboardMode::clipboard, [](std::vector<std::string> const& types) {
        return std::optional<std::string>(types.front());
      });
  ASSERT_TRUE(start.has_value());
  EXPECT_EQ(start->type, "text/plain");
  EXPECT_EQ(openPipes().size(), before.size() + 1);
  ::close(start->fd);
}

INSTANTIATE_TEST_SUITE_P(Protocols, SessionGivingUp,
                         ::testing::Values(pf::clipboard::PFWaylandProtocol::ext,
                                           pf::clipboard::PFWaylandProtocol::wlr),
                         [](auto const& info) {
                           return info.param == pf::clipboard::PFWaylandProtocol::ext ? "Ext"
                                                                                      : "Wlr";
                         });

}  // namespace
