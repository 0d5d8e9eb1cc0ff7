// clipboard-host's command line: what each option sets, and its parsing with clear errors.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/web/settings.hpp"

namespace clipboard_host {

constexpr std::size_t kDefaultMaxLine = std::size_t{256} << 20;

struct X11Settings {
  std::string display;  // empty: $DISPLAY
  // Reads: the owner's first answer, each INCR chunk, the whole transfer (the backend's defaults).
  std::chrono::milliseconds firstReplyTimeout{3000};
  std::chrono::milliseconds chunkTimeout{5000};
  std::chrono::milliseconds readTimeout{60000};
  // How long a clipboard manager gets to take over what we own at exit; 0 skips the hand-off.
  std::chrono::milliseconds managerHandover{3000};
};

struct Options {
  std::string backend = "memory";
  std::string vocabularyFile;
  std::uint32_t logLevels = 0;  // the levels that go to standard error
  bool diagnostics = false;     // the service's records of a request travel with its reply
  std::string script;           // empty: standard input
  std::size_t maxLine = kDefaultMaxLine;
  bool pretty = false;
  bool help = false;
  X11Settings x11;
  bool listen = false;  // --listen: the page and WebSockets instead of standard input
  web::Settings web;
};

// A command line that cannot be served; main prints it and exits with status 2.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Parses argv[1..]; throws UsageError naming the option and what was wrong with it.
Options parseOptions(std::vector<std::string> const& arguments);

// "none", "all" or a comma list of level flags ("4,8").
std::uint32_t parseLogLevels(std::string const& text);

// The usage text printed by --help.
extern char const kUsage[];

}  // namespace clipboard_host
