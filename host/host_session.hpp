// One clipboard-host session: the service, the installed backend, and the output stream.
#pragma once

#include <cstdio>
#include <memory>
#include <mutex>
#include <string>

#include "clipboard/clipboard_impl.hpp"
#include "host/protocol.hpp"
#include "platform/clipboard.hpp"

namespace clipboard_host {

// Writes whole lines, flushed, from any thread.
class LineWriter {
 public:
  LineWriter(std::FILE* out, bool pretty) : out_(out), pretty_(pretty) {}
  void write(std::string const& line);
  void writeReply(RequestKind kind, std::string const& uid, std::string const& replyText);
  void writeNotification(std::string const& text);
  void writeError(std::size_t lineNumber, std::string const& message);

 private:
  std::mutex mutex_;
  std::FILE* out_;
  bool pretty_;
};

class HostSession {
 public:
  HostSession(EditorServices::ClipboardVocabulary const& vocabulary,
              std::shared_ptr<pf::clipboard::PFClipboardBackend> backend, LineWriter& writer);
  ~HostSession();

  // Handles one input line; every outcome is written as output lines.
  void handleLine(std::string const& line, std::size_t lineNumber);

 private:
  std::shared_ptr<pf::clipboard::PFClipboardBackend> backend_;
  std::shared_ptr<pf::clipboard::PFClipboardBackend> previousBackend_;
  LineWriter& writer_;
  std::unique_ptr<EditorServices::ClipboardImpl> service_;
};

}  // namespace clipboard_host
