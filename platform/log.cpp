#include "platform/log.hpp"

#include <algorithm>
#include <mutex>
#include <vector>

#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/core.hpp>
#include <boost/log/expressions.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/log/sinks/text_ostream_backend.hpp>
#include <boost/log/utility/formatting_ostream.hpp>

namespace foundation::log {
namespace {

std::atomic<std::uint32_t> g_default_levels{0};

// Loggers alive, so that set_enabled_levels reaches them all.
std::mutex& registry_mutex() {
  static std::mutex m;
  return m;
}
std::vector<basic_diagnostic_logger<char>*>& registry() {
  static std::vector<basic_diagnostic_logger<char>*> loggers;
  return loggers;
}

}  // namespace

template <class CharT>
basic_diagnostic_logger<CharT>::basic_diagnostic_logger(std::string const& channel)
    : base_type(boost::log::keywords::channel = channel),
      enabled_levels_(g_default_levels.load(std::memory_order_relaxed)) {
  std::lock_guard<std::mutex> lock(registry_mutex());
  registry().push_back(this);
}

template <class CharT>
basic_diagnostic_logger<CharT>::~basic_diagnostic_logger() {
  std::lock_guard<std::mutex> lock(registry_mutex());
  auto& loggers = registry();
  loggers.erase(std::remove(loggers.begin(), loggers.end(), this), loggers.end());
}

template class basic_diagnostic_logger<char>;

std::uint32_t default_enabled_levels() noexcept {
  return g_default_levels.load(std::memory_order_relaxed);
}

void set_default_enabled_levels(std::uint32_t word) noexcept {
  g_default_levels.store(word, std::memory_order_relaxed);
}

void set_enabled_levels(std::uint32_t word) noexcept {
  set_default_enabled_levels(word);
  std::lock_guard<std::mutex> lock(registry_mutex());
  for (auto* logger : registry()) {
    logger->set_enabled_levels(word);
  }
}

sink_handle& sink_handle::operator=(sink_handle&& other) noexcept {
  if (this != &other) {
    reset();
    sink_ = std::move(other.sink_);
  }
  return *this;
}

sink_handle::~sink_handle() {
  reset();
}

void sink_handle::reset() {
  if (sink_) {
    using sink_t = boost::log::sinks::synchronous_sink<boost::log::sinks::text_ostream_backend>;
    auto sink = std::static_pointer_cast<sink_t>(sink_);
    boost::log::core::get()->remove_sink(boost::shared_ptr<sink_t>(sink.get(), [sink](sink_t*) {}));
    sink_.reset();
  }
}

namespace {
BOOST_LOG_ATTRIBUTE_KEYWORD(channel_attr, "Channel", std::string)
BOOST_LOG_ATTRIBUTE_KEYWORD(severity_attr, "Severity", severity_level)
}  // namespace

sink_handle add_stream_sink(std::shared_ptr<std::ostream> stream, std::uint32_t levels) {
  namespace sinks = boost::log::sinks;
  namespace expr = boost::log::expressions;
  using sink_t = sinks::synchronous_sink<sinks::text_ostream_backend>;

  auto backend = boost::make_shared<sinks::text_ostream_backend>();
  backend->add_stream(boost::shared_ptr<std::ostream>(stream.get(), [stream](std::ostream*) {}));
  backend->auto_flush(true);
  auto sink = boost::make_shared<sink_t>(backend);
  sink->set_formatter(expr::stream << "[" << channel_attr << "] <" << severity_attr << "> "
                                   << expr::smessage);
  sink->set_filter([levels](boost::log::attribute_value_set const& values) {
    auto const severity = values[severity_attr];
    return severity && (static_cast<std::uint32_t>(*severity) & levels) != 0;
  });
  boost::log::core::get()->add_sink(sink);
  // Keep the boost::shared_ptr alive through a std::shared_ptr that owns a copy of it.
  auto holder = std::shared_ptr<sink_t>(sink.get(), [sink](sink_t*) {});
  return sink_handle(std::shared_ptr<void>(holder));
}

}  // namespace foundation::log
