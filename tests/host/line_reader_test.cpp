// LineReader on a real pipe, fed by a writer thread the way a front end writes.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "host/line_reader.hpp"

namespace {

using clipboard_host::LineReader;

class Pipe {
 public:
  Pipe() {
    int fds[2];
    EXPECT_EQ(::pipe2(fds, O_CLOEXEC), 0);
    read_ = fds[0];
    write_ = fds[1];
  }
  ~Pipe() {
    closeWrite();
    ::close(read_);
  }
  void write(std::string const& bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
      ssize_t const n = ::write(write_, bytes.data() + done, bytes.size() - done);
      ASSERT_GT(n, 0);
      done += static_cast<std::size_t>(n);
    }
  }
  void closeWrite() {
    if (write_ >= 0) {
      ::close(write_);
      write_ = -1;
    }
  }
  int readEnd() const { return read_; }

 private:
  int read_ = -1;
  int write_ = -1;
};

TEST(LineReader, ACompleteLineIsHandedOutWhileTheWriterStillHoldsThePipeOpen) {
  Pipe pipe;
  pipe.write("first\nsecond\r\nthi");
  LineReader reader(pipe.readEnd(), 100);
  std::string line;
  // Would block forever if the reader waited to fill its buffer: the writer is still open.
  ASSERT_EQ(reader.next(line), LineReader::Status::line);
  EXPECT_EQ(line, "first");
  ASSERT_EQ(reader.next(line), LineReader::Status::line);
  EXPECT_EQ(line, "second");
  std::thread writer([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    pipe.write("rd");
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    pipe.write("\n\nlast without newline");
    pipe.closeWrite();
  });
  ASSERT_EQ(reader.next(line), LineReader::Status::line);
  EXPECT_EQ(line, "third");
  ASSERT_EQ(reader.next(line), LineReader::Status::line);
  EXPECT_EQ(line, "");
  ASSERT_EQ(reader.next(line), LineReader::Status::line);
  EXPECT_EQ(line, "last without newline");
  EXPECT_EQ(reader.next(line), LineReader::Status::end);
  EXPECT_EQ(reader.lineNumber(), 5u);
  writer.join();
}

TEST(LineReader, TheBoundIsExactAndALongerLineIsSkippedToItsEnd) {
  Pipe pipe;
  std::thread writer([&] {
    pipe.write(std::string(10, 'a') + "\n");  // exactly the bound
    // Part of the next line is read while it is still within the bound: that part is dropped
    // too, its memory with it.
    pipe.write(std::string(5, 'b'));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    for (int i = 0; i < 100; ++i) {
      pipe.write(std::string(1000, 'b'));  // far over it, in many writes
    }
    pipe.write("\n" + std::string(11, 'c') + "\nok");
    pipe.closeWrite();
  });
  LineReader reader(pipe.readEnd(), 10);
  std::string line;
  ASSERT_EQ(reader.next(line), LineReader::Status::line);
  EXPECT_EQ(line, std::string(10, 'a'));
  EXPECT_EQ(reader.next(line), LineReader::Status::tooLong);
  EXPECT_TRUE(line.empty());
  EXPECT_EQ(reader.next(line), LineReader::Status::tooLong);
  ASSERT_EQ(reader.next(line), LineReader::Status::line);
  EXPECT_EQ(line, "ok");
  EXPECT_EQ(reader.lineNumber(), 4u);
  writer.join();
}

TEST(LineReader, ALineOfTheDefaultBoundOf256MiBArrivesWhole) {
  std::size_t const size = std::size_t{256} << 20;
  Pipe pipe;
  std::thread writer([&] {
    std::string const block(std::size_t{1} << 20, 'x');
    for (std::size_t done = 0; done < size; done += block.size()) {
      pipe.write(block);
    }
    pipe.write("\nnext\n");
  });
  LineReader reader(pipe.readEnd(), size);
  std::string line;
  ASSERT_EQ(reader.next(line), LineReader::Status::line);
  EXPECT_EQ(line.size(), size);
  EXPECT_EQ(line.find_first_not_of('x'), std::string::npos);
  // Memory stays bounded by the longest line: the buffer of the line, not of the input.
  EXPECT_LE(line.capacity(), 2 * size);
  ASSERT_EQ(reader.next(line), LineReader::Status::line);
  EXPECT_EQ(line, "next");
  writer.join();
}

TEST(LineReader, ANonBlockingDescriptorIsWaitedFor) {
  Pipe pipe;
  ASSERT_EQ(::fcntl(pipe.readEnd(), F_SETFL, ::fcntl(pipe.readEnd(), F_GETFL) | O_NONBLOCK), 0);
  std::thread writer([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    pipe.write("late\n");
    pipe.closeWrite();
  });
  LineReader reader(pipe.readEnd(), 100);
  std::string line;
  ASSERT_EQ(reader.next(line), LineReader::Status::line);
  EXPECT_EQ(line, "late");
  EXPECT_EQ(reader.next(line), LineReader::Status::end);
  writer.join();
}

}  // namespace
