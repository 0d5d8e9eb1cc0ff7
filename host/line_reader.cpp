#include "host/line_reader.hpp"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace clipboard_host {

namespace {
// Large enough that a 256 MiB line arrives in few calls, small enough that a session of short
// lines costs nothing: read(2) returns what is there, not a full buffer.
constexpr std::size_t kChunkBytes = std::size_t{1} << 16;
}  // namespace

LineReader::LineReader(int fd, std::size_t maxLineBytes)
    : fd_(fd), maxLineBytes_(maxLineBytes), buffer_(kChunkBytes) {}

bool LineReader::fill() {
  if (eof_) {
    return false;
  }
  begin_ = 0;
  end_ = 0;
  for (;;) {
    ssize_t const got = ::read(fd_, buffer_.data(), buffer_.size());
    if (got > 0) {
      end_ = static_cast<std::size_t>(got);
      return true;
    }
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
      pollfd wait{fd_, POLLIN, 0};
      if (::poll(&wait, 1, -1) >= 0 || errno == EINTR) {
        continue;
      }
    }
    eof_ = true;
    return false;
  }
}

LineReader::Status LineReader::next(std::string& line) {
  line.clear();
  bool tooLong = false;
  bool sawAnything = false;
  for (;;) {
    if (begin_ == end_ && !fill()) {
      if (!sawAnything) {
        return Status::end;
      }
      break;  // a last line without "\n"
    }
    sawAnything = true;
    char const* start = buffer_.data() + begin_;
    auto const* newline = static_cast<char const*>(std::memchr(start, '\n', end_ - begin_));
    std::size_t const count = newline ? static_cast<std::size_t>(newline - start) : end_ - begin_;
    if (!tooLong) {
      if (count > maxLineBytes_ - line.size()) {
        tooLong = true;
        std::string().swap(line);
      } else {
        line.append(start, count);
      }
    }
    begin_ += count;
    if (newline) {
      ++begin_;
      break;
    }
  }
  ++lineNumber_;
  if (tooLong) {
    return Status::tooLong;
  }
  if (!line.empty() && line.back() == '\r') {
    line.pop_back();
  }
  return Status::line;
}

}  // namespace clipboard_host
