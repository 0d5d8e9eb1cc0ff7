#include "host/diagnostics_capture.hpp"

#include <atomic>

#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/core.hpp>
#include <boost/log/expressions/message.hpp>
#include <boost/log/sinks/basic_sink_backend.hpp>
#include <boost/log/sinks/unlocked_frontend.hpp>
#include <boost/signals2/connection.hpp>

#include "diagnostics/service_logger.hpp"
#include "platform/event.hpp"

namespace clipboard_host {
namespace {

struct ThreadRecords {
  std::vector<std::string>* current = nullptr;  // the open RequestCapture's list, if any
  std::vector<std::string> ambient;             // records emitted outside any request
  std::size_t mark = 0;                         // where the current emission's records begin
  std::size_t dropped = 0;

  std::vector<std::string>& target() { return current != nullptr ? *current : ambient; }
};

thread_local ThreadRecords t_records;

// Only the emitting thread's own state is touched, so the sink needs no lock.
class CaptureBackend
    : public boost::log::sinks::basic_sink_backend<boost::log::sinks::concurrent_feeding> {
 public:
  void consume(boost::log::record_view const& record) {
    auto message = record[boost::log::expressions::smessage];
    if (!message) {
      return;
    }
    auto& list = t_records.target();
    if (list.size() + 1 < kMaxCapturedRecords) {
      list.push_back(*message);
      return;
    }
    // The last place says how many did not fit.
    std::string note = std::to_string(++t_records.dropped) + " more records dropped";
    if (list.size() + 1 == kMaxCapturedRecords) {
      list.push_back(std::move(note));
    } else {
      list.back() = std::move(note);
    }
  }
};

using CaptureSink = boost::log::sinks::unlocked_sink<CaptureBackend>;

void beginEmission() {
  if (t_records.current == nullptr) {
    // Records left on this thread outside requests and notifications belong to nothing.
    t_records.ambient.clear();
  }
  t_records.mark = t_records.target().size();
  t_records.dropped = 0;
}

}  // namespace

struct DiagnosticsCapture::State {
  boost::shared_ptr<CaptureSink> sink;
  std::unique_ptr<boost::signals2::connection> emission;
  std::uint32_t savedLevels = 0;
};

DiagnosticsCapture::DiagnosticsCapture() : state_(std::make_shared<State>()) {
  auto& logger = EditorServices::diagnostics::serviceLogger();
  state_->savedLevels = logger.enabled_levels();
  state_->sink = boost::make_shared<CaptureSink>(boost::make_shared<CaptureBackend>());
  std::string const channel = EditorServices::diagnostics::kServiceChannel;
  state_->sink->set_filter([channel](boost::log::attribute_value_set const& values) {
    auto found = boost::log::extract<std::string>("Channel", values);
    return found && *found == channel;
  });
  boost::log::core::get()->add_sink(state_->sink);
  state_->emission = pf::event::PFSignalLocator::Instance()
                         .containerOf(pf::event::PFServiceType::clipboard)
                         .connect(pf::event::kClipboardChanged, [] { beginEmission(); });
  logger.set_enabled_levels(state_->savedLevels |
                            static_cast<std::uint32_t>(EditorServices::diagnostics::kServiceLevel));
}

DiagnosticsCapture::~DiagnosticsCapture() {
  EditorServices::diagnostics::serviceLogger().set_enabled_levels(state_->savedLevels);
  if (state_->emission) {
    state_->emission->disconnect();
  }
  boost::log::core::get()->remove_sink(state_->sink);
}

RequestCapture::RequestCapture() : previous_(t_records.current), previousMark_(t_records.mark) {
  t_records.current = &records_;
  t_records.mark = 0;
  t_records.dropped = 0;
}

RequestCapture::~RequestCapture() {
  t_records.current = previous_;
  t_records.mark = previousMark_;
}

std::vector<std::string> RequestCapture::take() {
  std::vector<std::string> out;
  out.swap(records_);
  if (t_records.current == &records_) {
    t_records.mark = 0;
  }
  return out;
}

std::vector<std::string> takeNotificationRecords() {
  auto& list = t_records.target();
  std::size_t const start = std::min(t_records.mark, list.size());
  std::vector<std::string> out(std::make_move_iterator(list.begin() + static_cast<long>(start)),
                               std::make_move_iterator(list.end()));
  list.resize(start);
  t_records.mark = start;
  return out;
}

}  // namespace clipboard_host
