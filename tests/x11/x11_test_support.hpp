// What the X11 tests share: a private Xvfb per test process, child processes that are always
// reaped, and a raw xcb client for looking at the wire.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/formats/payload_formats.hpp"
#include "platform/x11/x11_clipboard.hpp"
#include "support/change_counter.hpp"
#include "support/process.hpp"
#include "support/temp_dir.hpp"

struct xcb_connection_t;

namespace x11_test {

using namespace std::chrono_literals;

// The display of this process's Xvfb, started on first use and stopped at exit.
std::string const& display();

// An Xvfb of its own, for a test that takes the server away.
using XServer = test_support::Xvfb;

using test_support::readFile;
using test_support::TempDir;

// A child process in a process group of its own, with DISPLAY set to ours; stopped (SIGCONT,
// SIGTERM, then SIGKILL after a second) and reaped when destroyed.
class Process : public test_support::Process {
 public:
  struct Io {
    std::string stdinPath = "/dev/null";
    std::string outputPath = "/dev/null";  // stdout and stderr
  };
  Process(std::vector<std::string> const& argv, Io const& io);
};

struct RunResult {
  int status = -1;     // exit code; -1 when killed or timed out
  std::string output;  // stdout
};
// Runs a command to its end (at most `limit`, through timeout(1)).
RunResult run(std::vector<std::string> const& argv, std::string const& stdinPath = "/dev/null",
              std::chrono::seconds limit = 20s);

// The test peer program (x11_peer) and an owner started from it or from xclip/xsel.
std::string peerProgram();

// A plain xcb client of our Xvfb, for checks the backend cannot make about itself.
class RawClient {
 public:
  RawClient();
  ~RawClient();
  RawClient(RawClient const&) = delete;
  RawClient& operator=(RawClient const&) = delete;

  std::uint32_t atom(std::string const& name);
  std::string atomName(std::uint32_t atom);
  std::uint32_t owner(std::string const& selection);
  // Polls until the owner of `selection` is set (or gone, with want == false), up to `timeout`.
  bool waitForOwner(std::string const& selection, bool want = true,
                    std::chrono::milliseconds timeout = 5000ms);

  struct Converted {
    std::string type;
    int format = 0;
    std::string data;
  };
  // Converts `target` into `property` of our window, optionally with a MULTIPLE pair list put
  // there first. nullopt on refusal or when nothing comes within `timeout`.
  std::optional<Converted> convert(std::string const& selection, std::string const& target,
                                   std::string const& property,
                                   std::vector<std::uint32_t> const* multiplePairs = nullptr,
                                   std::chrono::milliseconds timeout = 5000ms,
                                   std::uint32_t time = 0);
  // Asks for `target`, takes the INCR answer, lets the first chunk arrive and then stalls: it
  // never deletes it. False when no INCR transfer started.
  bool startIncrAndStall(std::string const& selection, std::string const& target,
                         std::chrono::milliseconds timeout = 5000ms);
  Converted property(std::string const& name);

 private:
  xcb_connection_t* c_ = nullptr;
  std::uint32_t window_ = 0;
};

using Changes = test_support::ChangeCounter;

// Backend options for tests: our display and short timeouts, so that failures are quick.
pf::clipboard::PFX11ClipboardOptions options();

using pf::clipboard::formats::bytesOf;
using pf::clipboard::formats::stringOf;
// A small valid PNG, encoded by the library.
std::string samplePng();

}  // namespace x11_test
