// clipboard-host: the clipboard service over JSON Lines on standard input and output.
#include <cstdio>
#include <cstring>
#include <exception>
#include <iostream>
#include <memory>
#include <string>

#include "host/backend_choice.hpp"
#include "host/host_session.hpp"
#include "host/line_reader.hpp"
#include "host/vocabulary_file.hpp"
#include "platform/log.hpp"

namespace {

constexpr std::size_t kDefaultMaxLine = std::size_t{256} << 20;

char const kUsage[] = R"(usage: clipboard-host [options]

Serves the editor's clipboard service over JSON Lines: one request per input line, one output
line per reply, per change notification and per error. Output is flushed line by line. End of
input shuts the service down (exit status 0).

Options:
  --backend NAME         the clipboard to use: memory (default, an in-process clipboard),
                         x11 (the X server of $DISPLAY), wayland (the compositor of
                         $WAYLAND_DISPLAY, through data-control), or auto: Wayland when
                         $WAYLAND_DISPLAY offers data-control, else X11 when $DISPLAY is
                         set, else memory; auto says on standard error which and why
  --vocabulary FILE      read the service's keys and mime names from a JSON object whose
                         members name vocabulary fields; others keep their defaults
  --log LEVELS           which levels of the service's log records go to standard error:
                         "none" (default), "all", or a comma list of level numbers ("4")
  --max-line BYTES       longest input line accepted (default 268435456, 256 MiB); a longer
                         line gets an error line and is skipped
  --script FILE          read the requests from FILE instead of standard input
  --pretty               print replies and notifications indented for people to read
  --help                 this text

Input lines:
  {"kind":"flavors",   "request":{"requestid":"r1","uid":"u1"}}
  {"kind":"get",       "mode":0, "request":{"requestid":"r2","uid":"u1","flavors":["text/plain"]}}
  {"kind":"set",       "mode":0, "request":{"requestid":"r3","uid":"u1","clipboardItems":
                          [{"mimeType":"text/plain","data":"hello"}]}}
  {"kind":"subscribe", "request":{"requestid":"r4","uid":"u1"}}
  {"kind":"external",  "mode":0, "items":[{"mimeType":"text/plain","text":"copied elsewhere"}]}
    (memory backend only: content put on the clipboard as if another program had copied it)
  "request" is passed to the service byte for byte; a JSON string there passes its decoded
  text instead. "mode" 0 is the system clipboard, 1 the primary selection (get and set).

Output lines:
  {"type":"reply","kind":"get","uid":"u1","reply":{...the service's reply, verbatim...}}
  {"type":"notification","notification":{...the flavors reply, verbatim...}}
  {"type":"error","line":7,"error":"what was wrong with input line 7"}
)";

struct Options {
  std::string backend = "memory";
  std::string vocabularyFile;
  std::string log = "none";
  std::string script;
  std::size_t maxLine = kDefaultMaxLine;
  bool pretty = false;
};

std::uint32_t parseLevels(std::string const& text) {
  if (text == "none") {
    return 0;
  }
  if (text == "all") {
    return foundation::log::kAllLevels;
  }
  std::uint32_t word = 0;
  std::size_t start = 0;
  while (start <= text.size()) {
    std::size_t const comma = text.find(',', start);
    std::string const item =
        text.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
    std::size_t used = 0;
    unsigned long const level = std::stoul(item, &used);
    if (used != item.size() || level == 0 || level > 0x80000000ul || (level & (level - 1)) != 0) {
      throw std::invalid_argument("a level is one flag: 1, 2, 4, 8, ...");
    }
    word |= static_cast<std::uint32_t>(level);
    if (comma == std::string::npos) {
      break;
    }
    start = comma + 1;
  }
  return word;
}

int usageError(std::string const& message) {
  std::cerr << "clipboard-host: " << message << "\n(see clipboard-host --help)\n";
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    std::string const arg = argv[i];
    auto value = [&](char const* name) -> std::string {
      if (i + 1 >= argc) {
        throw std::invalid_argument(std::string(name) + " needs a value");
      }
      return argv[++i];
    };
    try {
      if (arg == "--help" || arg == "-h") {
        std::cout << kUsage;
        return 0;
      } else if (arg == "--backend") {
        options.backend = value("--backend");
      } else if (arg == "--vocabulary") {
        options.vocabularyFile = value("--vocabulary");
      } else if (arg == "--log") {
        options.log = value("--log");
      } else if (arg == "--script") {
        options.script = value("--script");
      } else if (arg == "--max-line") {
        options.maxLine = std::stoull(value("--max-line"));
      } else if (arg == "--pretty") {
        options.pretty = true;
      } else {
        return usageError("unknown option " + arg);
      }
    } catch (std::exception const& e) {
      return usageError(e.what());
    }
  }

  EditorServices::ClipboardVocabulary vocabulary = EditorServices::defaultClipboardVocabulary();
  std::uint32_t levels = 0;
  try {
    if (!options.vocabularyFile.empty()) {
      vocabulary = clipboard_host::loadVocabulary(options.vocabularyFile);
    }
    levels = parseLevels(options.log);
  } catch (std::exception const& e) {
    return usageError(e.what());
  }

  std::shared_ptr<pf::clipboard::PFClipboardBackend> backend;
  try {
    auto choice = clipboard_host::chooseBackend(options.backend);
    if (!choice.reason.empty())
      std::cerr << "clipboard-host: backend " << choice.name << ": " << choice.reason << "\n";
    backend = std::move(choice.backend);
  } catch (std::invalid_argument const& e) {
    return usageError(e.what());
  } catch (std::exception const& e) {
    std::cerr << "clipboard-host: " << options.backend << " backend: " << e.what() << "\n";
    return 1;
  }

  std::FILE* input = stdin;
  if (!options.script.empty()) {
    input = std::fopen(options.script.c_str(), "rb");
    if (input == nullptr) {
      return usageError("cannot open " + options.script);
    }
  }

  foundation::log::set_enabled_levels(levels);
  foundation::log::sink_handle sink;
  if (levels != 0) {
    sink = foundation::log::add_stream_sink(
        std::shared_ptr<std::ostream>(&std::cerr, [](std::ostream*) {}));
  }

  clipboard_host::LineWriter writer(stdout, options.pretty);
  {
    // Sessions end before the backend is taken down: their destructors unregister listeners.
    clipboard_host::BackendInstallation installation(backend);
    clipboard_host::HostSession session(vocabulary, backend, writer);
    clipboard_host::LineReader reader(input, options.maxLine);
    std::string line;
    for (;;) {
      auto const status = reader.next(line);
      if (status == clipboard_host::LineReader::Status::end) {
        break;
      }
      if (status == clipboard_host::LineReader::Status::tooLong) {
        writer.writeError(reader.lineNumber(),
                          "line longer than " + std::to_string(options.maxLine) + " bytes");
        continue;
      }
      if (line.empty()) {
        continue;
      }
      if (options.pretty) {
        writer.write("-> " + line);
      }
      session.handleLine(line, reader.lineNumber());
    }
  }
  if (input != stdin) {
    std::fclose(input);
  }
  return 0;
}
