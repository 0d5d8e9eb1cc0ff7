// Reads input lines of bounded length: a longer line is skipped to its end and reported, so that
// a hostile line never exhausts memory.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>
#include <vector>

namespace clipboard_host {

class LineReader {
 public:
  enum class Status { line, tooLong, end };

  LineReader(std::FILE* input, std::size_t maxLineBytes);

  // The next line without its "\n" (a "\r" before it is dropped too). On tooLong, `line` is
  // empty and the input has been consumed up to the end of the long line.
  Status next(std::string& line);

  std::size_t lineNumber() const noexcept { return lineNumber_; }

 private:
  bool fill();

  std::FILE* input_;
  std::size_t maxLineBytes_;
  std::vector<char> buffer_;
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
  bool eof_ = false;
  std::size_t lineNumber_ = 0;
};

}  // namespace clipboard_host
