// clipboard-host on Wayland: which backend --backend auto takes in each situation, and a session
// through a kept-open pipe against headless sway with wl-copy and wl-paste.

#include <gtest/gtest.h>

#include <thread>

#include "wayland_test_support.hpp"

namespace {

using namespace wayland_test;

using test_support::Xvfb;

struct HostRun {
  int status = -1;
  std::string out;
  std::string err;
};

HostRun runHost(std::vector<std::string> const& env, std::string const& input) {
  TempDir dir;
  auto const in = dir.file("in", input);
  HostRun run;
  {
    Process host({CLIPBOARD_HOST_PATH, "--backend", "auto"}, env,
                 {in, dir.path() + "/out", dir.path() + "/err"});
    auto const status = host.wait(30s);
    run.status = status ? *status : -1;
  }
  run.out = readFile(dir.path() + "/out");
  run.err = readFile(dir.path() + "/err");
  return run;
}

std::string const kSetAndGet =
    R"({"kind":"set","mode":0,"request":{"requestid":"s","uid":"u","clipboardItems":[{"mimeType":"text/plain","data":"chosen"}]}})"
    "\n"
    R"({"kind":"get","mode":0,"request":{"requestid":"g","uid":"u","flavors":["text/plain"]}})"
    "\n";

struct Situation {
  char const* name;
  int wayland;  // 0: no WAYLAND_DISPLAY, 1: with data-control, 2: without
  bool x11;
  char const* chosen;
  char const* because;
};

void PrintTo(Situation const& c, std::ostream* os) {
  *os << c.name;
}

class HostAuto : public ::testing::TestWithParam<Situation> {};

TEST_P(HostAuto, TakesTheRightBackendAndSaysWhy) {
  auto const& s = GetParam();
  std::unique_ptr<TestCompositor> compositor;
  std::unique_ptr<Xvfb> xvfb;
  std::vector<std::string> env;
  if (s.wayland != 0) {
    compositor = std::make_unique<TestCompositor>(
        s.wayland == 1 ? std::vector<std::string>{"--wlr", "2"} : std::vector<std::string>{});
    env.push_back(compositor->waylandDisplayEnv());
  }
  if (s.x11) {
    xvfb = std::make_unique<Xvfb>();
    env.push_back("DISPLAY=" + xvfb->display());
  }
  auto const run = runHost(env, kSetAndGet);
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_NE(run.err.find(std::string("backend ") + s.chosen + ": "), std::string::npos) << run.err;
  EXPECT_NE(run.err.find(s.because), std::string::npos) << run.err;
  EXPECT_NE(run.out.find(R"("text/plain":"chosen")"), std::string::npos) << run.out;
}

INSTANTIATE_TEST_SUITE_P(
    Situations, HostAuto,
    ::testing::Values(Situation{"WaylandWithDataControl", 1, true, "wayland",
                                "offers zwlr_data_control_manager_v1"},
                      Situation{"WaylandWithoutDataControl", 2, true, "x11",
                                "offers no data-control protocol"},
                      Situation{"X11Only", 0, true, "x11", "WAYLAND_DISPLAY is not set; DISPLAY="},
                      Situation{"Nothing", 0, false, "memory", "DISPLAY is not set"}),
    [](auto const& info) { return std::string(info.param.name); });

// The host with pipes kept open, as a front end drives it: each reply awaited.
class HostPipe {
 public:
  HostPipe(std::vector<std::string> const& args, std::string const& waylandDisplay)
      : host_(launch(args, waylandDisplay)) {}
  // Sends one line and returns the next output line that contains `marker`.
  std::string send(std::string const& line, std::string const& marker) {
    if (!host_.writeLine(line))
      return {};
    auto const end = std::chrono::steady_clock::now() + 20s;
    while (auto out = host_.readLine(std::chrono::duration_cast<std::chrono::milliseconds>(
               end - std::chrono::steady_clock::now()))) {
      if (out->find(marker) != std::string::npos)
        return *out;
    }
    return {};
  }

 private:
  static test_support::Launch launch(std::vector<std::string> const& args,
                                     std::string const& waylandDisplay) {
    test_support::Launch launch;
    launch.argv = {CLIPBOARD_HOST_PATH};
    launch.argv.insert(launch.argv.end(), args.begin(), args.end());
    launch.env = {"WAYLAND_DISPLAY=" + waylandDisplay, "DISPLAY"};
    launch.err = test_support::Stream::null();
    return launch;
  }

  test_support::Process host_;
};

TEST(HostOnSway, ServesWlPasteAndReadsWlCopy) {
  std::unique_ptr<Sway> sway;
  try {
    sway = std::make_unique<Sway>();
  } catch (SwayUnavailable const& e) {
    GTEST_SKIP() << e.what();
  }
  HostPipe host({"--backend", "wayland"}, sway->socket());
  auto const set = host.send(
      R"({"kind":"set","mode":0,"request":{"requestid":"s","uid":"u","clipboardItems":[{"mimeType":"text/plain","data":"from the host \u00e9"}]}})",
      R"("requestid":"s")");
  EXPECT_NE(set.find(R"("success":true)"), std::string::npos) << set;
  auto const pasted = run(*sway, {"wl-paste", "--no-newline"});
  EXPECT_EQ(pasted.output, "from the host \xc3\xa9");

  TempDir dir;
  Process copier({"wl-copy", "--foreground"}, {sway->waylandDisplayEnv()},
                 {dir.file("text", "from wl-copy")});
  std::string got;
  for (int i = 0; i < 200 && got.find("from wl-copy") == std::string::npos; ++i) {
    std::this_thread::sleep_for(20ms);
    got = host.send(
        R"({"kind":"get","mode":0,"request":{"requestid":"g","uid":"u","flavors":["text/plain"]}})",
        R"("requestid":"g")");
  }
  EXPECT_NE(got.find(R"("text/plain":"from wl-copy")"), std::string::npos) << got;
}

}  // namespace
