// connector::message_service: the request as the host's message service delivers it.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

namespace connector::message_service {

// The text of one JSON request. The service reads it as a byte range: it needs no NUL at the
// end and reads nothing outside [data(), data() + size()).
//
// A message either owns its text or views bytes that the caller keeps alive for as long as the
// message is used (JsonMessage::view), which spares a copy of a large request.
class JsonMessage {
 public:
  JsonMessage() = default;
  explicit JsonMessage(std::string payload) : owned_(std::move(payload)) {}

  static JsonMessage view(char const* data, std::size_t size) {
    JsonMessage message;
    message.external_ = std::string_view(data, size);
    message.viewsExternal_ = true;
    return message;
  }

  char const* data() const noexcept { return viewsExternal_ ? external_.data() : owned_.data(); }
  std::size_t size() const noexcept { return viewsExternal_ ? external_.size() : owned_.size(); }
  std::string_view text() const noexcept { return {data(), size()}; }

 private:
  std::string owned_;
  std::string_view external_;
  bool viewsExternal_ = false;
};

}  // namespace connector::message_service
