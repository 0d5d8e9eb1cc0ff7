// clipboard-host: the clipboard service over JSON Lines on standard input and output.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/backend_choice.hpp"
#include "host/diagnostics_capture.hpp"
#include "host/host_session.hpp"
#include "host/line_reader.hpp"
#include "host/options.hpp"
#include "host/vocabulary_file.hpp"
#include "host/web/serve.hpp"
#include "platform/log.hpp"

namespace {

int usageError(std::string const& message) {
  std::cerr << "clipboard-host: " << message << "\n(see clipboard-host --help)\n";
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  clipboard_host::Options options;
  try {
    options = clipboard_host::parseOptions(std::vector<std::string>(argv + 1, argv + argc));
  } catch (std::exception const& e) {
    return usageError(e.what());
  }
  if (options.help) {
    std::cout << clipboard_host::kUsage;
    return 0;
  }

  EditorServices::ClipboardVocabulary vocabulary = EditorServices::defaultClipboardVocabulary();
  try {
    if (!options.vocabularyFile.empty()) {
      vocabulary = clipboard_host::loadVocabulary(options.vocabularyFile);
    }
  } catch (std::exception const& e) {
    return usageError(e.what());
  }

  std::shared_ptr<pf::clipboard::PFClipboardBackend> backend;
  try {
    auto choice = clipboard_host::chooseBackend(options);
    if (!choice.reason.empty())
      std::cerr << "clipboard-host: backend " << choice.name << ": " << choice.reason << "\n";
    backend = std::move(choice.backend);
  } catch (std::invalid_argument const& e) {
    return usageError(e.what());
  } catch (std::exception const& e) {
    std::cerr << "clipboard-host: " << options.backend << " backend: " << e.what() << "\n";
    return 1;
  }

  int input = STDIN_FILENO;
  if (!options.script.empty()) {
    input = ::open(options.script.c_str(), O_RDONLY | O_CLOEXEC);
    if (input < 0) {
      return usageError("cannot open " + options.script);
    }
  }

  foundation::log::set_enabled_levels(options.logLevels);
  // Standard error gets the records of the --log levels only: --diagnostics may open the service's
  // level to capture it without asking for it on standard error.
  foundation::log::sink_handle stderrSink;
  if (options.logLevels != 0) {
    stderrSink = foundation::log::add_stream_sink(
        std::shared_ptr<std::ostream>(&std::cerr, [](std::ostream*) {}), options.logLevels);
  }

  if (options.listen) {
    clipboard_host::BackendInstallation installation(backend);
    std::optional<clipboard_host::DiagnosticsCapture> capture;
    if (options.diagnostics) {
      capture.emplace();
    }
    // A WebSocket message is bounded by --max-line, as a line on standard input is.
    clipboard_host::web::SessionSettings const sessions{
        vocabulary, backend, {options.maxLine}, options.diagnostics};
    return clipboard_host::web::serve(options.web, sessions);
  }

  clipboard_host::LineWriter writer(stdout, options.pretty);
  {
    // Sessions end before the backend is taken down: their destructors unregister listeners.
    clipboard_host::BackendInstallation installation(backend);
    // Before any session subscribes, so that it sees every change first.
    std::optional<clipboard_host::DiagnosticsCapture> capture;
    if (options.diagnostics) {
      capture.emplace();
    }
    clipboard_host::HostSession session(vocabulary, backend, writer, options.diagnostics);
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
  if (input != STDIN_FILENO) {
    ::close(input);
  }
  return 0;
}
