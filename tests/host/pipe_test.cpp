// The pipe front end: LineReader on a real pipe fed by a writer thread, and the host itself on
// one, where how the writer splits its bytes is no concern of the host's and a line is answered
// as soon as its newline arrives (the transcripts run on both transports).
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>

#include "host/front_end.hpp"
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

// A line within the bound when its start is read and past it later: what was kept of it is
// let go (a hostile line must not hold memory), and the reader goes on after it.
TEST(LineReader, ALongerLineIsSkippedToItsEndAndItsStartLetGo) {
  Pipe pipe;
  pipe.write(std::string(50, 's'));
  std::thread writer([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    pipe.write(std::string(1000, 'x') + "\nok\n");
    pipe.closeWrite();
  });
  LineReader reader(pipe.readEnd(), 100);
  std::string line;
  EXPECT_EQ(reader.next(line), LineReader::Status::tooLong);
  EXPECT_EQ(line, "");
  EXPECT_EQ(line.capacity(), std::string().capacity());
  ASSERT_EQ(reader.next(line), LineReader::Status::line);
  EXPECT_EQ(line, "ok");
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

// The request id of the next output line, or "" when none came.
std::string answerTo(test_support::Process& host) {
  std::string const line = host.readLine().value_or("");
  std::string const key = R"("requestid":")";
  std::size_t const at = line.find(key);
  return at == std::string::npos
             ? ""
             : line.substr(at + key.size(), line.find('"', at + key.size()) - at - key.size());
}

std::string flavorsLine(std::string const& id) {
  return R"({"kind":"flavors","request":{"requestid":")" + id + R"("}})";
}

TEST(LiveHost, LinesAreAnsweredWhenTheirNewlineArrivesAndALongerOneIsSkipped) {
  auto host = host_test::startHost({"--max-line", "1000"});
  std::string const line = flavorsLine("split");
  std::size_t const third = line.size() / 3;
  host->write(line.substr(0, third));
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  host->write(line.substr(third, third));
  // Nothing is answered before the line is complete.
  EXPECT_FALSE(host->readLine(std::chrono::milliseconds(200)).has_value());
  host->write(line.substr(2 * third) + "\n");
  EXPECT_EQ(answerTo(*host), "split");

  // Two lines and an empty one in one write, then the start of a line that is within the bound
  // when it is read, and only later is not: all of it is skipped, in many reads.
  host->write(flavorsLine("a") + "\n\n" + flavorsLine("b") + "\r\n" + std::string(500, 'x'));
  EXPECT_EQ(answerTo(*host), "a");
  EXPECT_EQ(answerTo(*host), "b");
  host->write(std::string(200000, 'x') + "\n" + flavorsLine("c"));
  EXPECT_EQ(host->readLine(), R"({"type":"error","line":5,"error":"line longer than 1000 bytes"})");
  // The last line without a newline is served when the input ends.
  EXPECT_FALSE(host->readLine(std::chrono::milliseconds(200)).has_value());
  host->closeInput();
  EXPECT_EQ(answerTo(*host), "c");
  EXPECT_EQ(host->finish(), 0);
}

}  // namespace
