// Captures the records of the service logger through a real Boost.Log sink.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace test_support {

struct CapturedRecord {
  std::string channel;
  int severity = 0;
  std::string message;
};

// While alive: a sink on the Boost.Log core collects every record, and the service logger's
// enabled-levels word is `levels` (restored afterwards).
class LogCapture {
 public:
  explicit LogCapture(std::uint32_t levels = 4);
  ~LogCapture();
  LogCapture(LogCapture const&) = delete;
  LogCapture& operator=(LogCapture const&) = delete;

  std::vector<CapturedRecord> records() const;
  void clear();

 private:
  struct State;
  std::shared_ptr<State> state_;
  std::uint32_t savedLevels_;
};

}  // namespace test_support
