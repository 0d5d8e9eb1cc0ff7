// The JSON Lines protocol of clipboard-host.
//
// Input, one request per line:
//   {"kind":"flavors"|"get"|"set"|"subscribe", "mode":0|1, "request":<request>}
//   <request> is the request object itself, passed to the service byte for byte as it stands in
//   the line, or a JSON string whose decoded text is passed (for text that is not an object).
//   "mode" applies to get and set; it defaults to 0 (the system clipboard), 1 is the primary
//   selection.
//   {"kind":"external", "mode":0|1, "items":[{"mimeType":"text/plain","text":"..."}, ...]}
//   puts text on the in-memory clipboard as if another program had copied it.
//
// Output, one line each:
//   {"type":"reply","kind":"get","uid":"<uid>","reply":<reply text verbatim>}
//   {"type":"notification","notification":<notification text verbatim>}
//   {"type":"error","line":<input line number>,"error":"<what was wrong>"}
//   {"type":"error","line":N,"kind":"get","requestid":"r2","uid":"u1","error":"..."} when the
//   service sent no reply (requestid and uid only when the request text carries them as strings)
// With --diagnostics, replies, notifications and request errors end in "log":["record", ...].
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace clipboard_host {

enum class RequestKind { flavors, get, set, subscribe, external };

struct ExternalItem {
  std::string mimeType;
  std::string text;
};

struct HostRequest {
  RequestKind kind = RequestKind::flavors;
  int mode = 0;
  std::string_view requestText;  // view into the line, or into `decodedRequest`
  std::string decodedRequest;
  std::vector<ExternalItem> items;
};

// Reads one input line. Returns an empty string on success, else what is wrong with the line.
// `out.requestText` may point into `line`: keep the line alive while it is used.
std::string parseRequestLine(std::string const& line, HostRequest& out);

char const* kindName(RequestKind kind);

// Which request an error line is about, so that a front end matching replies by id learns
// that its request failed.
struct RequestIdentity {
  RequestKind kind = RequestKind::flavors;
  std::optional<std::string> requestId;
  std::optional<std::string> uid;
};

// The request id and uid of a request text, when it is a JSON object holding them as strings
// under the vocabulary's keys.
RequestIdentity identifyRequest(RequestKind kind, std::string_view requestText,
                                std::string const& requestIdKey, std::string const& uidKey);

// `log`, when given, adds a "log" member with those records (empty or not).
using LogRecords = std::vector<std::string>;
std::string replyLine(RequestKind kind, std::string const& uid, std::string const& replyText,
                      LogRecords const* log = nullptr);
std::string notificationLine(std::string const& notificationText, LogRecords const* log = nullptr);
std::string errorLine(std::size_t lineNumber, std::string const& message,
                      RequestIdentity const* request = nullptr, LogRecords const* log = nullptr);

// Indents a valid JSON text for people to read.
std::string prettyJson(std::string_view text, int indent = 2);

}  // namespace clipboard_host
