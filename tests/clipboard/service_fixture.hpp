// The service tests' one fixture: a scripted clipboard, a log capture, a service with the default
// vocabulary, the four message-form entries with their replies collected, and small builders.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <initializer_list>
#include <memory>
#include <mutex>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "clipboard/clipboard_impl.hpp"
#include "json/reader.hpp"
#include "json/writer.hpp"
#include "platform/event.hpp"
#include "platform/formats/payload_formats.hpp"
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
using pf::clipboard::formats::bytesOf;
using RequestMap = ClipboardImpl::RequestMap;

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
  return std::vector<Path>(texts.begin(), texts.end());
}

inline std::u16string u16(std::string const& ascii) {
  return std::u16string(ascii.begin(), ascii.end());
}

// An image that counts its encodings and answers with a fixed encoded text, or fails as told.
class RecordingImage final : public pf::graphics::PFGraphics {
 public:
  RecordingImage(int kind, std::string encoded) : kind_(kind), encoded_(std::move(encoded)) {}

  std::unique_ptr<pf::graphics::PFEncodedImage> encode(
      int, int, pf::graphics::EncodeOptions const&) const override {
    ++encodes;
    if (failure) {
      failure();
    }
    auto result = std::make_unique<pf::graphics::PFEncodedImage>();
    result->bytes = bytesOf(encoded_);
    return result;
  }

  int kind() const override { return kind_; }

  mutable int encodes = 0;
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

// The members of a JSON object text, read with the library's own reader.
inline Object parseObject(std::string const& text) {
  Object out;
  char const* pos = text.data();
  EXPECT_EQ(foundation::json::parse_object(pos, text.data() + text.size(), false, out), 0) << text;
  return out;
}

inline connector::message_service::JsonMessage message(std::string text) {
  return connector::message_service::JsonMessage(std::move(text));
}

struct Reply {
  std::string text;
  std::string uid;
};

// Collects what the service passes to its reply and notification callbacks, from any thread.
class Replies {
 public:
  ClipboardImpl::ReplyCallback callback() {
    return [this](std::string text, std::string uid) {
      std::lock_guard<std::mutex> lock(mutex_);
      replies_.push_back({std::move(text), std::move(uid)});
    };
  }
  ClipboardImpl::NotifyCallback notifier() {
    return [this](std::string text) {
      std::lock_guard<std::mutex> lock(mutex_);
      notifications_.push_back(std::move(text));
    };
  }
  std::vector<Reply> replies() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return replies_;
  }
  std::vector<std::string> notifications() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return notifications_;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<Reply> replies_;
  std::vector<std::string> notifications_;
};

// What the service logs when the flavors request it makes (or is sent) has no request id.
inline std::string const kFlavorsNoRequestId =
    "[handleRequestForAvailableDataFlavors] JSON message does not contain required fields "
    "'requestid'";

// The four request kinds, each sent through its message-form entry.
enum class Request { flavors, get, set, subscribe };

class ServiceTest : public ::testing::Test {
 protected:
  void TearDown() override { pf::event::PFAbstractEventListenerFactory::setManagerMaker(nullptr); }

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

  // Sends a request text through its entry and gives the one reply it made.
  Reply send(Request kind, std::string const& text,
             PFClipboardMode mode = PFClipboardMode::clipboard) {
    Replies replies;
    switch (kind) {
      case Request::flavors:
        service.handleRequestForAvailableDataFlavors(message(text), replies.callback());
        break;
      case Request::get:
        service.handleGetClipboardDataRequest(message(text), mode, replies.callback());
        break;
      case Request::set:
        service.handleSetClipboardDataRequest(message(text), mode, replies.callback());
        break;
      case Request::subscribe:
        service.handleRequestForClipboardChangeSubscription(message(text), notifications.notifier(),
                                                            replies.callback());
        break;
    }
    auto const got = replies.replies();
    EXPECT_EQ(got.size(), 1u) << text;
    return got.empty() ? Reply() : got[0];
  }

  std::shared_ptr<test_support::ScriptedBackend> backend =
      std::make_shared<test_support::ScriptedBackend>();
  test_support::InstalledBackend installed{backend};
  test_support::LogCapture log;
  Replies notifications;  // what subscribe requests sent through send() are told of changes
  ClipboardImpl service;
};

}  // namespace service_test
