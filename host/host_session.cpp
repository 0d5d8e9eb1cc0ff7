#include "host/host_session.hpp"

#include <exception>

#include "platform/i18n.hpp"
#include "platform/memory/memory_clipboard.hpp"

namespace clipboard_host {

LineWriter::LineWriter(std::FILE* out, bool pretty)
    : sink_([out](std::string const& line) {
        std::fwrite(line.data(), 1, line.size(), out);
        std::fputc('\n', out);
        std::fflush(out);
      }),
      pretty_(pretty) {}

void LineWriter::write(std::string const& line) {
  std::lock_guard<std::mutex> lock(mutex_);
  sink_(line);
}

void LineWriter::writeReply(RequestKind kind, std::string const& uid,
                            std::string const& replyText) {
  if (!pretty_) {
    write(replyLine(kind, uid, replyText));
    return;
  }
  write(std::string("<- ") + kindName(kind) + " reply" + (uid.empty() ? "" : " for " + uid) +
        ":\n" + prettyJson(replyText) + "\n");
}

void LineWriter::writeNotification(std::string const& text) {
  if (!pretty_) {
    write(notificationLine(text));
    return;
  }
  write("<- clipboard changed:\n" + prettyJson(text) + "\n");
}

void LineWriter::writeError(std::size_t lineNumber, std::string const& message) {
  write(pretty_ ? "<- error on line " + std::to_string(lineNumber) + ": " + message + "\n"
                : errorLine(lineNumber, message));
}

BackendInstallation::BackendInstallation(std::shared_ptr<pf::clipboard::PFClipboardBackend> backend)
    : previous_(pf::clipboard::installClipboardBackend(std::move(backend))) {}

BackendInstallation::~BackendInstallation() {
  pf::clipboard::installClipboardBackend(previous_);
}

HostSession::HostSession(EditorServices::ClipboardVocabulary const& vocabulary,
                         std::shared_ptr<pf::clipboard::PFClipboardBackend> backend,
                         LineWriter& writer)
    : backend_(std::move(backend)),
      writer_(writer),
      service_(std::make_unique<EditorServices::ClipboardImpl>(vocabulary)) {}

// The service's destructor unregisters its change listener, so no notification reaches the
// writer after this.
HostSession::~HostSession() = default;

void HostSession::handleLine(std::string const& line, std::size_t lineNumber) {
  HostRequest request;
  std::string const problem = parseRequestLine(line, request);
  if (!problem.empty()) {
    writer_.writeError(lineNumber, problem);
    return;
  }

  auto const mode = static_cast<pf::clipboard::PFClipboardMode>(request.mode);
  auto const kind = request.kind;
  auto reply = [this, kind](std::string text, std::string uid) {
    writer_.writeReply(kind, uid, text);
  };
  auto const message = connector::message_service::JsonMessage::view(request.requestText.data(),
                                                                     request.requestText.size());
  try {
    switch (kind) {
      case RequestKind::flavors:
        service_->handleRequestForAvailableDataFlavors(message, reply);
        break;
      case RequestKind::get:
        service_->handleGetClipboardDataRequest(message, mode, reply);
        break;
      case RequestKind::set:
        service_->handleSetClipboardDataRequest(message, mode, reply);
        break;
      case RequestKind::subscribe:
        service_->handleRequestForClipboardChangeSubscription(
            message, [this](std::string text) { writer_.writeNotification(text); }, reply);
        break;
      case RequestKind::external: {
        auto* memory = dynamic_cast<pf::clipboard::PFMemoryClipboard*>(backend_.get());
        if (memory == nullptr) {
          writer_.writeError(lineNumber, "\"external\" needs the memory backend");
          return;
        }
        pf::clipboard::PFClipboardData data;
        for (auto const& item : request.items) {
          data.addData(fl::i18n::to_ustring(item.mimeType), fl::i18n::to_ustring(item.text));
        }
        memory->copyFromOtherProgram(std::move(data), mode);
        break;
      }
    }
  } catch (std::exception const& e) {
    // The service sends no reply when a platform call fails beyond what it recovers from.
    writer_.writeError(lineNumber, std::string("request failed: ") + e.what());
  } catch (...) {
    writer_.writeError(lineNumber, "request failed");
  }
}

}  // namespace clipboard_host
