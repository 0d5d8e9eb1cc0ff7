#include "host/line_reader.hpp"

#include <cstring>

namespace clipboard_host {

LineReader::LineReader(std::FILE* input, std::size_t maxLineBytes)
    : input_(input), maxLineBytes_(maxLineBytes), buffer_(1 << 20) {}

bool LineReader::fill() {
  if (eof_) {
    return false;
  }
  begin_ = 0;
  end_ = std::fread(buffer_.data(), 1, buffer_.size(), input_);
  if (end_ == 0) {
    eof_ = true;
    return false;
  }
  return true;
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
      if (line.size() + count > maxLineBytes_) {
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
