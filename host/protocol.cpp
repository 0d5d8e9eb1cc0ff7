#include "host/protocol.hpp"

#include "json/reader.hpp"
#include "json/value.hpp"
#include "json/writer.hpp"

namespace clipboard_host {
namespace {

using foundation::json::Value;

// Finds the end of the JSON value that starts at `pos` without building it: strings with their
// escapes, and brackets by depth. Returns false when the text ends first. What the value holds is
// the service's business to judge.
bool skipValue(char const*& pos, char const* end) {
  int depth = 0;
  while (pos != end) {
    char const c = *pos;
    if (c == '"') {
      ++pos;
      while (pos != end && *pos != '"') {
        pos += (*pos == '\\' && pos + 1 != end) ? 2 : 1;
      }
      if (pos == end) {
        return false;
      }
      ++pos;
    } else if (c == '{' || c == '[') {
      ++depth;
      ++pos;
    } else if (c == '}' || c == ']') {
      if (depth == 0) {
        return true;
      }
      --depth;
      ++pos;
    } else if (c == ',' && depth == 0) {
      return true;
    } else {
      ++pos;
    }
    if (depth == 0 && (c == '}' || c == ']' || c == '"')) {
      return true;
    }
  }
  return depth == 0;
}

bool kindFromName(std::string const& name, RequestKind& kind) {
  static std::pair<char const*, RequestKind> const names[] = {{"flavors", RequestKind::flavors},
                                                              {"get", RequestKind::get},
                                                              {"set", RequestKind::set},
                                                              {"subscribe", RequestKind::subscribe},
                                                              {"external", RequestKind::external}};
  for (auto const& [text, value] : names) {
    if (name == text) {
      kind = value;
      return true;
    }
  }
  return false;
}

}  // namespace

char const* kindName(RequestKind kind) {
  switch (kind) {
    case RequestKind::flavors:
      return "flavors";
    case RequestKind::get:
      return "get";
    case RequestKind::set:
      return "set";
    case RequestKind::subscribe:
      return "subscribe";
    case RequestKind::external:
      return "external";
  }
  return "?";
}

std::string parseRequestLine(std::string const& line, HostRequest& out) {
  namespace json = foundation::json;
  char const* pos = line.data();
  char const* const end = pos + line.size();
  json::skip_space(pos, end, false);
  if (pos == end || *pos != '{') {
    return "a line must be a JSON object";
  }
  ++pos;

  std::string kindText;
  bool haveKind = false;
  bool haveRequest = false;
  json::Value items;
  for (;;) {
    json::skip_space(pos, end, false);
    if (pos != end && *pos == '}' && !haveKind && !haveRequest) {
      break;
    }
    std::string key;
    if (json::parse_string(pos, end, key) != 0) {
      return "expected a member name";
    }
    json::skip_space(pos, end, false);
    if (pos == end || *pos != ':') {
      return "expected ':' after \"" + key + "\"";
    }
    ++pos;
    json::skip_space(pos, end, false);

    if (key == "request") {
      if (pos != end && *pos == '"') {
        if (json::parse_string(pos, end, out.decodedRequest) != 0) {
          return "\"request\" is not a valid JSON string";
        }
        out.requestText = out.decodedRequest;
      } else {
        char const* start = pos;
        if (!skipValue(pos, end) || pos == start) {
          return "\"request\" has no complete value";
        }
        out.requestText = std::string_view(start, static_cast<std::size_t>(pos - start));
      }
      haveRequest = true;
    } else {
      json::Value value;
      if (json::parse_value(pos, end, false, value) != 0) {
        return "the value of \"" + key + "\" is not valid JSON";
      }
      if (key == "kind") {
        if (!value.is<std::string>()) {
          return "\"kind\" must be a string";
        }
        kindText = value.get<std::string>();
        haveKind = true;
      } else if (key == "mode") {
        if (!value.is<double>() || (value.get<double>() != 0 && value.get<double>() != 1)) {
          return "\"mode\" must be 0 or 1";
        }
        out.mode = static_cast<int>(value.get<double>());
      } else if (key == "items") {
        items = std::move(value);
      } else {
        return "unknown member \"" + key + "\"";
      }
    }

    json::skip_space(pos, end, false);
    if (pos != end && *pos == ',') {
      ++pos;
      continue;
    }
    if (pos != end && *pos == '}') {
      ++pos;
      break;
    }
    return "expected ',' or '}'";
  }
  json::skip_space(pos, end, false);
  if (pos != end) {
    return "text after the object";
  }

  if (!haveKind) {
    return "missing \"kind\"";
  }
  if (!kindFromName(kindText, out.kind)) {
    return "unknown kind \"" + kindText + "\" (flavors, get, set, subscribe, external)";
  }
  if (out.kind == RequestKind::external) {
    if (!items.is<json::Array>()) {
      return "\"external\" needs \"items\": [{\"mimeType\":...,\"text\":...}]";
    }
    for (auto const& item : items.get<json::Array>()) {
      if (!item.is<json::Object>()) {
        return "each external item must be an object";
      }
      auto const& members = item.get<json::Object>();
      auto mime = members.find("mimeType");
      auto text = members.find("text");
      if (mime == members.end() || text == members.end() || !mime->second.is<std::string>() ||
          !text->second.is<std::string>()) {
        return "each external item needs string \"mimeType\" and \"text\"";
      }
      out.items.push_back({mime->second.get<std::string>(), text->second.get<std::string>()});
    }
    return std::string();
  }
  if (!haveRequest) {
    return "missing \"request\"";
  }
  return std::string();
}

namespace {

void appendLog(std::string& line, LogRecords const* log) {
  if (log == nullptr) {
    return;
  }
  foundation::json::Array records;
  records.reserve(log->size());
  for (auto const& record : *log) {
    records.emplace_back(record);
  }
  line += R"(,"log":)";
  line += foundation::json::serialize(Value(std::move(records)));
}

}  // namespace

RequestIdentity identifyRequest(RequestKind kind, std::string_view requestText,
                                std::string const& requestIdKey, std::string const& uidKey) {
  RequestIdentity identity;
  identity.kind = kind;
  foundation::json::Object request;
  char const* pos = requestText.data();
  if (foundation::json::parse_object(pos, pos + requestText.size(), false, request) != 0) {
    return identity;
  }
  auto text = [&](std::string const& key) -> std::optional<std::string> {
    auto found = request.find(key);
    if (found == request.end() || !found->second.is<std::string>()) {
      return std::nullopt;
    }
    return found->second.get<std::string>();
  };
  identity.requestId = text(requestIdKey);
  identity.uid = text(uidKey);
  return identity;
}

std::string replyLine(RequestKind kind, std::string const& uid, std::string const& replyText,
                      LogRecords const* log) {
  std::string line;
  line.reserve(replyText.size() + uid.size() + 64);
  line += R"({"type":"reply","kind":")";
  line += kindName(kind);
  line += R"(","uid":)";
  line += foundation::json::serialize(Value(uid));
  line += R"(,"reply":)";
  line += replyText;
  appendLog(line, log);
  line += '}';
  return line;
}

std::string notificationLine(std::string const& notificationText, LogRecords const* log) {
  std::string line = R"({"type":"notification","notification":)" + notificationText;
  appendLog(line, log);
  line += '}';
  return line;
}

std::string errorLine(std::size_t lineNumber, std::string const& message,
                      RequestIdentity const* request, LogRecords const* log) {
  std::string line = R"({"type":"error","line":)" + std::to_string(lineNumber);
  if (request != nullptr) {
    line += R"(,"kind":")";
    line += kindName(request->kind);
    line += '"';
    if (request->requestId) {
      line += R"(,"requestid":)" + foundation::json::serialize(Value(*request->requestId));
    }
    if (request->uid) {
      line += R"(,"uid":)" + foundation::json::serialize(Value(*request->uid));
    }
  }
  line += R"(,"error":)" + foundation::json::serialize(Value(message));
  appendLog(line, log);
  line += '}';
  return line;
}

std::string prettyJson(std::string_view text, int indent) {
  std::string out;
  out.reserve(text.size() * 2);
  int depth = 0;
  bool inString = false;
  auto newline = [&] {
    out += '\n';
    out.append(static_cast<std::size_t>(depth * indent), ' ');
  };
  for (std::size_t i = 0; i < text.size(); ++i) {
    char const c = text[i];
    if (inString) {
      out += c;
      if (c == '\\' && i + 1 < text.size()) {
        out += text[++i];
      } else if (c == '"') {
        inString = false;
      }
      continue;
    }
    switch (c) {
      case '"':
        inString = true;
        out += c;
        break;
      case '{':
      case '[':
        out += c;
        if (i + 1 < text.size() && (text[i + 1] == '}' || text[i + 1] == ']')) {
          out += text[++i];
        } else {
          ++depth;
          newline();
        }
        break;
      case '}':
      case ']':
        --depth;
        newline();
        out += c;
        break;
      case ',':
        out += c;
        newline();
        break;
      case ':':
        out += ": ";
        break;
      default:
        out += c;
    }
  }
  return out;
}

}  // namespace clipboard_host
