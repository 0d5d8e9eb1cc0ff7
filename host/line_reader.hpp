// Reads input lines of bounded length from a descriptor, as they arrive: each read(2) takes what
// is there, so a line is handed out as soon as its newline has come, however the writer split
// it, and the reader never waits for more input while a complete line is buffered. A longer line
// than the bound is skipped to its end and reported, so that a hostile line never exhausts memory.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace clipboard_host {

class LineReader {
 public:
  enum class Status { line, tooLong, end };

  // Reads `fd` (not owned; blocking or not: a descriptor without data is waited for with poll).
  LineReader(int fd, std::size_t maxLineBytes);

  // The next line without its "\n" (a "\r" before it is dropped too). On tooLong, `line` is
  // empty and the input has been consumed up to the end of the long line. A read error ends the
  // input like end of file.
  Status next(std::string& line);

  std::size_t lineNumber() const noexcept { return lineNumber_; }

 private:
  bool fill();

  int fd_;
  std::size_t maxLineBytes_;
  std::vector<char> buffer_;
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
  bool eof_ = false;
  std::size_t lineNumber_ = 0;
};

}  // namespace clipboard_host
