// Small helpers for driving the service through its message forms.
#pragma once

#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <vector>

#include "clipboard/clipboard_impl.hpp"
#include "json/reader.hpp"

namespace test_support {

struct Reply {
  std::string text;
  std::string uid;
};

// Collects what the service passes to its reply and notification callbacks.
class Replies {
 public:
  EditorServices::ClipboardImpl::ReplyCallback callback() {
    return [this](std::string text, std::string uid) {
      std::lock_guard<std::mutex> lock(mutex_);
      replies_.push_back({std::move(text), std::move(uid)});
    };
  }
  EditorServices::ClipboardImpl::NotifyCallback notifier() {
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

inline connector::message_service::JsonMessage message(std::string text) {
  return connector::message_service::JsonMessage(std::move(text));
}

// Reads reply text back with the library's own reader; fails the test if it does not parse.
inline foundation::json::Object parsed(std::string const& text) {
  foundation::json::Object out;
  char const* position = text.data();
  int const code = foundation::json::parse_object(position, text.data() + text.size(), false, out);
  EXPECT_EQ(code, 0) << "reply does not parse: " << text;
  return out;
}

}  // namespace test_support
