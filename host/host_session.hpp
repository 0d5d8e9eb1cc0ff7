// One clipboard-host session: the service, the installed backend, and the output stream.
#pragma once

#include <cstdio>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "clipboard/clipboard_impl.hpp"
#include "host/protocol.hpp"
#include "platform/clipboard.hpp"

namespace clipboard_host {

// Writes whole output lines (or messages) from any thread, one at a time, to a sink: a stream
// for the JSON Lines transport, a connection's queue for another transport.
class LineWriter {
 public:
  using Sink = std::function<void(std::string const& line)>;

  // Each line goes to `out` with a newline, flushed at once.
  LineWriter(std::FILE* out, bool pretty);
  LineWriter(Sink sink, bool pretty) : sink_(std::move(sink)), pretty_(pretty) {}
  void write(std::string const& line);
  // `log`: the --diagnostics records that travel with the line (none: no "log" member).
  void writeReply(RequestKind kind, std::string const& uid, std::string const& replyText,
                  LogRecords const* log = nullptr);
  void writeNotification(std::string const& text, LogRecords const* log = nullptr);
  void writeError(std::size_t lineNumber, std::string const& message,
                  RequestIdentity const* request = nullptr, LogRecords const* log = nullptr);

 private:
  std::mutex mutex_;
  Sink sink_;
  bool pretty_;
};

// Installs a backend for the life of the process's sessions and puts the previous one back.
class BackendInstallation {
 public:
  explicit BackendInstallation(std::shared_ptr<pf::clipboard::PFClipboardBackend> backend);
  ~BackendInstallation();
  BackendInstallation(BackendInstallation const&) = delete;
  BackendInstallation& operator=(BackendInstallation const&) = delete;

 private:
  std::shared_ptr<pf::clipboard::PFClipboardBackend> previous_;
};

// One front end: its own service object (and so its own subscription) over the installed
// backend, and where its output goes. With `diagnostics`, the service's records of each request
// and notification travel with its line (a DiagnosticsCapture must be installed).
class HostSession {
 public:
  HostSession(EditorServices::ClipboardVocabulary const& vocabulary,
              std::shared_ptr<pf::clipboard::PFClipboardBackend> backend, LineWriter& writer,
              bool diagnostics = false);
  ~HostSession();

  // Handles one input line; every outcome is written as output lines.
  void handleLine(std::string const& line, std::size_t lineNumber);

 private:
  std::shared_ptr<pf::clipboard::PFClipboardBackend> backend_;
  LineWriter& writer_;
  bool diagnostics_;
  std::string requestIdKey_;
  std::string uidKey_;
  std::unique_ptr<EditorServices::ClipboardImpl> service_;
};

}  // namespace clipboard_host
