#include "host/host_session.hpp"

#include <exception>
#include <optional>

#include "host/diagnostics_capture.hpp"

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

namespace {

std::string prettyLog(LogRecords const* log) {
  std::string text;
  if (log != nullptr) {
    for (auto const& record : *log) {
      text += "   log: " + record + "\n";
    }
  }
  return text;
}

}  // namespace

void LineWriter::writeReply(RequestKind kind, std::string const& uid, std::string const& replyText,
                            LogRecords const* log) {
  if (!pretty_) {
    write(replyLine(kind, uid, replyText, log));
    return;
  }
  write(std::string("<- ") + kindName(kind) + " reply" + (uid.empty() ? "" : " for " + uid) +
        ":\n" + prettyJson(replyText) + "\n" + prettyLog(log));
}

void LineWriter::writeNotification(std::string const& text, LogRecords const* log) {
  if (!pretty_) {
    write(notificationLine(text, log));
    return;
  }
  write("<- clipboard changed:\n" + prettyJson(text) + "\n" + prettyLog(log));
}

void LineWriter::writeError(std::size_t lineNumber, std::string const& message,
                            RequestIdentity const* request, LogRecords const* log) {
  if (!pretty_) {
    write(errorLine(lineNumber, message, request, log));
    return;
  }
  std::string about;
  if (request != nullptr) {
    about = std::string(" (") + kindName(request->kind) +
            (request->requestId ? " " + *request->requestId : std::string()) + ")";
  }
  write("<- error on line " + std::to_string(lineNumber) + about + ": " + message + "\n" +
        prettyLog(log));
}

BackendInstallation::BackendInstallation(std::shared_ptr<pf::clipboard::PFClipboardBackend> backend)
    : previous_(pf::clipboard::installClipboardBackend(std::move(backend))) {}

BackendInstallation::~BackendInstallation() {
  pf::clipboard::installClipboardBackend(previous_);
}

HostSession::HostSession(EditorServices::ClipboardVocabulary const& vocabulary,
                         std::shared_ptr<pf::clipboard::PFClipboardBackend> backend,
                         LineWriter& writer, bool diagnostics)
    : backend_(std::move(backend)),
      writer_(writer),
      diagnostics_(diagnostics),
      requestIdKey_(vocabulary.requestIdKey),
      uidKey_(vocabulary.uidKey),
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
  std::optional<RequestCapture> capture;
  if (diagnostics_) {
    capture.emplace();
  }
  auto takeLog = [&capture]() -> std::optional<LogRecords> {
    if (!capture) {
      return std::nullopt;
    }
    return capture->take();
  };
  bool replied = false;
  auto reply = [&](std::string text, std::string uid) {
    replied = true;
    auto const log = takeLog();
    writer_.writeReply(kind, uid, text, log ? &*log : nullptr);
  };
  // The service sends no reply when a platform call fails beyond what it recovers from: the
  // error line then names the request, so that a front end waiting for that id hears of it.
  auto fail = [&](std::string const& message) {
    RequestIdentity const identity =
        identifyRequest(kind, request.requestText, requestIdKey_, uidKey_);
    auto const log = takeLog();
    writer_.writeError(lineNumber, message, &identity, log ? &*log : nullptr);
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
      case RequestKind::subscribe: {
        bool const diagnostics = diagnostics_;
        service_->handleRequestForClipboardChangeSubscription(
            message,
            [this, diagnostics](std::string text) {
              if (!diagnostics) {
                writer_.writeNotification(text);
                return;
              }
              LogRecords const log = takeNotificationRecords();
              writer_.writeNotification(text, &log);
            },
            reply);
        break;
      }
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
        return;
      }
    }
  } catch (std::exception const& e) {
    fail(std::string("request failed: ") + e.what());
    return;
  } catch (...) {
    fail("request failed");
    return;
  }
  if (!replied) {
    fail("the service sent no reply");
  }
}

}  // namespace clipboard_host
