#include "host/options.hpp"

#include <arpa/inet.h>

#include <limits>

#include "platform/log.hpp"

namespace clipboard_host {

char const kUsage[] = R"(usage: clipboard-host [options]

Serves the editor's clipboard service over JSON Lines: one request per input line, one output
line per reply, per change notification and per error. Each line is answered as soon as it has
arrived, and output is flushed line by line. End of input shuts the service down (exit status 0).

Options:
  --backend NAME         the clipboard to use: memory (default, an in-process clipboard),
                         x11 (the X server named by --display or $DISPLAY), wayland (the
                         compositor of $WAYLAND_DISPLAY, through data-control), or auto:
                         Wayland when $WAYLAND_DISPLAY offers data-control, else X11 when
                         there is a display, else memory; auto says on standard error
                         which it took and why
  --vocabulary FILE      read the service's keys and mime names from a JSON object whose
                         members name vocabulary fields; others keep their defaults
  --log LEVELS           which levels of log records go to standard error: "none" (default),
                         "all", or a comma list of level flags ("4": the service's records;
                         1 trace, 2 debug, 8 warning, 16 error)
  --diagnostics          the service's log records emitted while a request is handled travel
                         with its reply line as "log":[...] (notifications likewise)
  --max-line BYTES       longest input line accepted (default 268435456, 256 MiB); a longer
                         line gets an error line and is skipped
  --script FILE          read the requests from FILE instead of standard input
  --pretty               print replies and notifications indented for people to read
  --help                 this text

Browser front end:
  --listen [ADDRESS:]PORT  serve the editor's page over HTTP and the requests over WebSocket
                         instead of standard input (ADDRESS 127.0.0.1 unless given, [::1] for
                         IPv6; PORT 0 picks a free one). The first line on standard error is the
                         page's address with its token. SIGINT or SIGTERM stops the host.
  --token-file FILE      the token from FILE's first line (16 to 256 of A-Z a-z 0-9 . _ ~ -)
                         instead of a random one per start
  --allow-origin ORIGIN  also accept WebSocket upgrades from pages of ORIGIN
                         ("http://localhost:8080"); repeatable
  --max-connections N    WebSocket connections open at once (default 16); more get 503
  --web-root DIR         the page's folder (default: share/editor-clipboard/web of the install
                         prefix)

X11 backend:
  --display NAME         the X display to use (default: $DISPLAY)
  --x11-timeouts FIRST,CHUNK,TOTAL
                         read time limits in milliseconds: the owner's first answer, each
                         INCR chunk, the whole transfer (default 3000,5000,60000)
  --manager-handover MS  at exit, how long a running clipboard manager gets to take over what
                         the host owns (default 3000; 0 skips the hand-off and exits at once)

Input lines:
  {"kind":"flavors",   "request":{"requestid":"r1","uid":"u1"}}
  {"kind":"get",       "mode":0, "request":{"requestid":"r2","uid":"u1","flavors":["text/plain"]}}
  {"kind":"set",       "mode":0, "request":{"requestid":"r3","uid":"u1","clipboardItems":
                          [{"mimeType":"text/plain","data":"hello"}]}}
  {"kind":"subscribe", "request":{"requestid":"r4","uid":"u1"}}
  {"kind":"external",  "mode":0, "items":[{"mimeType":"text/plain","text":"copied elsewhere"}]}
    (memory backend only: content put on the clipboard as if another program had copied it)
  "request" is passed to the service byte for byte; a JSON string there passes its decoded
  text instead. "mode" 0 is the system clipboard, 1 the primary selection (get and set);
  flavors requests and change notifications always describe the system clipboard.

Output lines:
  {"type":"reply","kind":"get","uid":"u1","reply":{...the service's reply, verbatim...}}
  {"type":"notification","notification":{...the flavors reply, verbatim...}}
  {"type":"error","line":7,"error":"what was wrong with input line 7"}
  {"type":"error","line":8,"kind":"get","requestid":"r2","uid":"u1","error":"..."}
    (the service sent no reply: the request failed)
  With --diagnostics, replies, notifications and request errors also carry "log":[...].
)";

namespace {

// A whole decimal number, nothing else around it, at most `max`.
unsigned long long parseNumber(std::string const& text, unsigned long long max,
                               std::string const& what) {
  if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos) {
    throw UsageError(what + " must be a whole number, not \"" + text + "\"");
  }
  unsigned long long value = 0;
  for (char const c : text) {
    unsigned const digit = static_cast<unsigned>(c - '0');
    if (value > (max - digit) / 10) {
      throw UsageError(what + " is too large (at most " + std::to_string(max) + ")");
    }
    value = value * 10 + digit;
  }
  return value;
}

// Up to about 24 days: far beyond any useful wait, small enough for every clock.
constexpr unsigned long long kMaxMilliseconds = 1ull << 31;

std::chrono::milliseconds parseMilliseconds(std::string const& text, std::string const& what) {
  return std::chrono::milliseconds(
      static_cast<std::chrono::milliseconds::rep>(parseNumber(text, kMaxMilliseconds, what)));
}

std::vector<std::string> splitCommas(std::string const& text) {
  std::vector<std::string> parts;
  std::size_t start = 0;
  for (;;) {
    std::size_t const comma = text.find(',', start);
    parts.push_back(text.substr(start, comma == std::string::npos ? comma : comma - start));
    if (comma == std::string::npos) {
      return parts;
    }
    start = comma + 1;
  }
}

void parseListen(std::string const& text, web::Settings& web) {
  std::size_t const colon = text.rfind(':');
  std::string address = colon == std::string::npos ? std::string() : text.substr(0, colon);
  std::string const port = colon == std::string::npos ? text : text.substr(colon + 1);
  if (port.empty() || port.find_first_not_of("0123456789") != std::string::npos ||
      port.size() > 5 || std::stoul(port) > 65535) {
    throw UsageError("--listen wants [ADDRESS:]PORT with a port from 0 to 65535, not \"" + text +
                     "\"");
  }
  if (address.size() >= 2 && address.front() == '[' && address.back() == ']') {
    address = address.substr(1, address.size() - 2);
  }
  if (!address.empty()) {
    unsigned char bytes[16];
    if (::inet_pton(AF_INET, address.c_str(), bytes) != 1 &&
        ::inet_pton(AF_INET6, address.c_str(), bytes) != 1) {
      throw UsageError("--listen: not an IP address: " + address);
    }
    web.address = address;
  }
  web.port = static_cast<unsigned short>(std::stoul(port));
}

}  // namespace

std::uint32_t parseLogLevels(std::string const& text) {
  if (text == "none") {
    return 0;
  }
  if (text == "all") {
    return foundation::log::kAllLevels;
  }
  std::uint32_t word = 0;
  for (auto const& item : splitCommas(text)) {
    unsigned long long const level =
        parseNumber(item, 0x80000000ull, "--log: a level (\"" + text + "\")");
    if (level == 0 || (level & (level - 1)) != 0) {
      throw UsageError("--log: a level is one flag (1, 2, 4, 8, ...), not " + item);
    }
    word |= static_cast<std::uint32_t>(level);
  }
  return word;
}

Options parseOptions(std::vector<std::string> const& arguments) {
  Options options;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    std::string const& arg = arguments[i];
    auto value = [&]() -> std::string const& {
      if (i + 1 >= arguments.size()) {
        throw UsageError(arg + " needs a value");
      }
      return arguments[++i];
    };
    if (arg == "--help" || arg == "-h") {
      options.help = true;
    } else if (arg == "--backend") {
      options.backend = value();
      if (options.backend != "memory" && options.backend != "x11" && options.backend != "wayland" &&
          options.backend != "auto") {
        throw UsageError("unknown backend " + options.backend + " (memory, x11, wayland or auto)");
      }
    } else if (arg == "--vocabulary") {
      options.vocabularyFile = value();
    } else if (arg == "--log") {
      options.logLevels = parseLogLevels(value());
    } else if (arg == "--diagnostics") {
      options.diagnostics = true;
    } else if (arg == "--script") {
      options.script = value();
    } else if (arg == "--max-line") {
      options.maxLine = static_cast<std::size_t>(
          parseNumber(value(), std::numeric_limits<std::size_t>::max(), "--max-line"));
      if (options.maxLine == 0) {
        throw UsageError("--max-line must be at least 1");
      }
    } else if (arg == "--pretty") {
      options.pretty = true;
    } else if (arg == "--display") {
      options.x11.display = value();
      if (options.x11.display.empty()) {
        throw UsageError("--display needs a display name such as :0");
      }
    } else if (arg == "--x11-timeouts") {
      std::string const& text = value();
      auto const parts = splitCommas(text);
      if (parts.size() != 3) {
        throw UsageError("--x11-timeouts takes FIRST,CHUNK,TOTAL in milliseconds, not \"" + text +
                         "\"");
      }
      options.x11.firstReplyTimeout = parseMilliseconds(parts[0], "--x11-timeouts FIRST");
      options.x11.chunkTimeout = parseMilliseconds(parts[1], "--x11-timeouts CHUNK");
      options.x11.readTimeout = parseMilliseconds(parts[2], "--x11-timeouts TOTAL");
      if (options.x11.firstReplyTimeout.count() == 0 || options.x11.chunkTimeout.count() == 0 ||
          options.x11.readTimeout.count() == 0) {
        throw UsageError("--x11-timeouts: each limit must be at least 1 ms");
      }
    } else if (arg == "--listen") {
      parseListen(value(), options.web);
      options.listen = true;
    } else if (arg == "--token-file") {
      options.web.tokenFile = value();
    } else if (arg == "--allow-origin") {
      options.web.allowOrigins.push_back(value());
    } else if (arg == "--max-connections") {
      options.web.maxConnections =
          static_cast<std::size_t>(parseNumber(value(), 1u << 16, "--max-connections"));
    } else if (arg == "--web-root") {
      options.web.webRoot = value();
    } else if (arg == "--manager-handover") {
      options.x11.managerHandover = parseMilliseconds(value(), "--manager-handover");
    } else {
      throw UsageError("unknown option " + arg);
    }
  }
  bool const x11Option = !options.x11.display.empty() ||
                         options.x11.managerHandover != X11Settings().managerHandover ||
                         options.x11.firstReplyTimeout != X11Settings().firstReplyTimeout ||
                         options.x11.chunkTimeout != X11Settings().chunkTimeout ||
                         options.x11.readTimeout != X11Settings().readTimeout;
  if (x11Option && options.backend != "x11" && options.backend != "auto") {
    throw UsageError("--display, --x11-timeouts and --manager-handover need --backend x11 or auto");
  }
  bool const webOption = !options.web.tokenFile.empty() || !options.web.allowOrigins.empty() ||
                         options.web.maxConnections != web::Settings().maxConnections ||
                         !options.web.webRoot.empty();
  if (webOption && !options.listen) {
    throw UsageError(
        "--token-file, --allow-origin, --max-connections and --web-root need --listen");
  }
  if (options.listen && !options.script.empty()) {
    throw UsageError("--listen serves sockets, not a --script");
  }
  return options;
}

}  // namespace clipboard_host
