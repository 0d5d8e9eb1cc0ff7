#include "support/log_capture.hpp"

#include <mutex>

#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/core.hpp>
#include <boost/log/expressions/message.hpp>
#include <boost/log/sinks/basic_sink_backend.hpp>
#include <boost/log/sinks/sync_frontend.hpp>

#include "diagnostics/service_logger.hpp"

namespace test_support {
namespace {

class CaptureBackend
    : public boost::log::sinks::basic_sink_backend<boost::log::sinks::synchronized_feeding> {
 public:
  void consume(boost::log::record_view const& record) {
    CapturedRecord captured;
    if (auto channel = boost::log::extract<std::string>("Channel", record)) {
      captured.channel = *channel;
    }
    if (auto severity = boost::log::extract<foundation::log::severity_level>("Severity", record)) {
      captured.severity = *severity;
    }
    if (auto message = record[boost::log::expressions::smessage]) {
      captured.message = *message;
    }
    std::lock_guard<std::mutex> lock(mutex);
    records.push_back(std::move(captured));
  }

  std::mutex mutex;
  std::vector<CapturedRecord> records;
};

using CaptureSink = boost::log::sinks::synchronous_sink<CaptureBackend>;

}  // namespace

struct LogCapture::State {
  boost::shared_ptr<CaptureBackend> backend;
  boost::shared_ptr<CaptureSink> sink;
};

LogCapture::LogCapture(std::uint32_t levels)
    : state_(std::make_shared<State>()),
      savedLevels_(EditorServices::diagnostics::serviceLogger().enabled_levels()) {
  state_->backend = boost::make_shared<CaptureBackend>();
  state_->sink = boost::make_shared<CaptureSink>(state_->backend);
  boost::log::core::get()->add_sink(state_->sink);
  EditorServices::diagnostics::serviceLogger().set_enabled_levels(levels);
}

LogCapture::~LogCapture() {
  EditorServices::diagnostics::serviceLogger().set_enabled_levels(savedLevels_);
  boost::log::core::get()->remove_sink(state_->sink);
}

std::vector<CapturedRecord> LogCapture::records() const {
  std::lock_guard<std::mutex> lock(state_->backend->mutex);
  return state_->backend->records;
}

void LogCapture::clear() {
  std::lock_guard<std::mutex> lock(state_->backend->mutex);
  state_->backend->records.clear();
}

}  // namespace test_support
