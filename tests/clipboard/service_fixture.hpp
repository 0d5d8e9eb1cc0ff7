// Shared pieces of the service tests: a scripted clipboard, a log capture, a service with the
// default vocabulary, an image that records how it was encoded, and small builders.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <initializer_list>
#include <memory>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "clipboard/clipboard_impl.hpp"
#include "json/reader.hpp"
#include "json/writer.hpp"
#include "platform/graphics.hpp"
#include "support/log_capture.hpp"
#include "support/scripted_backend.hpp"

namespace foundation::json {
// Failure messages show Values as JSON text.
inline void PrintTo(Value const& value, std::ostream* os) {
  *os << serialize(value);
}
}  // namespace foundation::json

namespace service_test {

using EditorServices::ClipboardImpl;
using EditorServices::ClipboardVocabulary;
using foundation::json::Array;
using foundation::json::Object;
using foundation::json::Value;
using pf::clipboard::ClipboardContent;
using pf::clipboard::Path;
using pf::clipboard::PFClipboardData;
using pf::clipboard::PFClipboardMode;
using RequestMap = ClipboardImpl::RequestMap;

inline std::vector<std::byte> bytesOf(std::string const& text) {
  auto const* first = reinterpret_cast<std::byte const*>(text.data());
  return std::vector<std::byte>(first, first + text.size());
}

inline std::vector<std::byte> byteList(std::initializer_list<int> values) {
  std::vector<std::byte> out;
  for (int v : values) {
    out.push_back(static_cast<std::byte>(v));
  }
  return out;
}

inline std::vector<std::byte> operator+(std::vector<std::byte> a, std::vector<std::byte> const& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

// A Java serialization stream holding one short string.
inline std::vector<std::byte> javaString(std::string const& utf8) {
  return byteList({0xAC, 0xED, 0x00, 0x05, 0x74, static_cast<int>(utf8.size() >> 8),
                   static_cast<int>(utf8.size() & 0xFF)}) +
         bytesOf(utf8);
}

inline std::vector<Path> pathsOf(std::initializer_list<std::u16string> texts) {
  std::vector<Path> out;
  for (auto const& t : texts) {
    out.emplace_back(t);
  }
  return out;
}

// An image that records the questions it was asked and answers with a fixed encoded text.
class RecordingImage final : public pf::graphics::PFGraphics {
 public:
  struct Call {
    int code;
    int flag;
    pf::graphics::EncodeOptions options;
  };

  RecordingImage(int kind, std::string encoded) : kind_(kind), encoded_(std::move(encoded)) {}

  std::unique_ptr<pf::graphics::PFEncodedImage> encode(
      int code, int flag, pf::graphics::EncodeOptions const& options) const override {
    calls.push_back({code, flag, options});
    if (failure) {
      failure();
    }
    auto result = std::make_unique<pf::graphics::PFEncodedImage>();
    result->bytes = bytesOf(encoded_);
    return result;
  }

  int kind() const override {
    ++kindQueries;
    return kind_;
  }

  mutable std::vector<Call> calls;
  mutable int kindQueries = 0;
  std::function<void()> failure;

 private:
  int kind_;
  std::string encoded_;
};

// Adds one kind of content under a mime type.
using Fill = std::function<void(PFClipboardData&, std::u16string const&)>;

inline Fill text(std::u16string t) {
  return [t](PFClipboardData& d, std::u16string const& mime) { d.addData(mime, t); };
}
inline Fill bytes(std::vector<std::byte> b) {
  return [b](PFClipboardData& d, std::u16string const& mime) { d.addData(mime, b); };
}
inline Fill paths(std::vector<Path> p) {
  return [p](PFClipboardData& d, std::u16string const& mime) { d.addData(mime, p); };
}
inline Fill image(int kind, std::string encoded) {
  return [kind, encoded](PFClipboardData& d, std::u16string const& mime) {
    d.addData(mime, std::make_unique<RecordingImage>(kind, encoded));
  };
}

struct Reply {
  std::string text;
  std::string uid;
  int calls = 0;
};

// The members of a JSON object text, read with the library's own reader.
inline Object parseObject(std::string const& text) {
  Object out;
  char const* pos = text.data();
  EXPECT_EQ(foundation::json::parse_object(pos, text.data() + text.size(), false, out), 0) << text;
  return out;
}

class ServiceTest : public ::testing::Test {
 protected:
  // Replaces the clipboard's content as another program would; empty fills add nothing.
  void put(std::vector<std::pair<std::u16string, Fill>> const& formats,
           PFClipboardMode mode = PFClipboardMode::clipboard) {
    PFClipboardData data;
    for (auto const& [mime, fill] : formats) {
      if (fill) {
        fill(data, mime);
      }
    }
    backend->put(std::move(data), mode);
  }

  // The records of the service logger.
  std::vector<std::string> logged() const {
    std::vector<std::string> out;
    for (auto const& r : log.records()) {
      if (r.channel == "editor_services::ClipboardImpl") {
        out.push_back(r.message);
      }
    }
    return out;
  }

  ClipboardImpl::ReplyCallback recorder(Reply& reply) {
    return [&reply](std::string text, std::string uid) {
      reply.text = std::move(text);
      reply.uid = std::move(uid);
      ++reply.calls;
    };
  }

  Reply getByMessage(std::string const& text, PFClipboardMode mode = PFClipboardMode::clipboard) {
    Reply reply;
    service.handleGetClipboardDataRequest(connector::message_service::JsonMessage(text), mode,
                                          recorder(reply));
    return reply;
  }

  Reply setByMessage(std::string const& text, PFClipboardMode mode = PFClipboardMode::clipboard) {
    Reply reply;
    service.handleSetClipboardDataRequest(connector::message_service::JsonMessage(text), mode,
                                          recorder(reply));
    return reply;
  }

  std::shared_ptr<test_support::ScriptedBackend> backend =
      std::make_shared<test_support::ScriptedBackend>();
  test_support::InstalledBackend installed{backend};
  test_support::LogCapture log;
  ClipboardImpl service;
};

}  // namespace service_test
