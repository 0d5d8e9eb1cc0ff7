// foundation::log: the diagnostic logger over Boost.Log, and the logging layer's settings.
//
// A basic_diagnostic_logger is a Boost.Log severity + channel source logger (multi-threaded)
// with an enabled-levels word: a 32-bit set of severity flags. A statement is written only when
// the word holds its level's bit; the level value itself is the bit (level 4 is the bit of value
// 4). The word is read without a lock, so a disabled level costs one load.
//
// Which levels are enabled and where records go are the host's choice: set_enabled_levels,
// add_stream_sink (or any Boost.Log sink added to the core).
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <ostream>
#include <string>

#include <boost/log/attributes/constant.hpp>
#include <boost/log/sources/basic_logger.hpp>
#include <boost/log/sources/channel_feature.hpp>
#include <boost/log/sources/severity_feature.hpp>
#include <boost/log/sources/threading_models.hpp>
#include <boost/thread/shared_mutex.hpp>

namespace foundation::log {

using severity_level = std::int32_t;

// Severity levels the logging layer knows. They are flags: a word may enable any subset.
constexpr severity_level kTrace = 1;
constexpr severity_level kDebug = 2;
constexpr severity_level kInfo = 4;
constexpr severity_level kWarning = 8;
constexpr severity_level kError = 16;
constexpr std::uint32_t kAllLevels = 0xFFFFFFFFu;

template <class CharT>
class basic_diagnostic_logger
    : public boost::log::sources::basic_composite_logger<
          CharT, basic_diagnostic_logger<CharT>,
          boost::log::sources::multi_thread_model<boost::shared_mutex>,
          boost::log::sources::features<boost::log::sources::severity<severity_level>,
                                        boost::log::sources::channel<std::string>>> {
  using base_type = boost::log::sources::basic_composite_logger<
      CharT, basic_diagnostic_logger<CharT>,
      boost::log::sources::multi_thread_model<boost::shared_mutex>,
      boost::log::sources::features<boost::log::sources::severity<severity_level>,
                                    boost::log::sources::channel<std::string>>>;

 public:
  explicit basic_diagnostic_logger(std::string const& channel);
  ~basic_diagnostic_logger();

  basic_diagnostic_logger(basic_diagnostic_logger const&) = delete;
  basic_diagnostic_logger& operator=(basic_diagnostic_logger const&) = delete;

  // The gate: is `level`'s bit set in the enabled-levels word?
  bool is_enabled(severity_level level) const noexcept {
    return (enabled_levels_.load(std::memory_order_relaxed) & static_cast<std::uint32_t>(level)) !=
           0;
  }

  std::uint32_t enabled_levels() const noexcept {
    return enabled_levels_.load(std::memory_order_relaxed);
  }
  void set_enabled_levels(std::uint32_t word) noexcept {
    enabled_levels_.store(word, std::memory_order_relaxed);
  }

 private:
  std::atomic<std::uint32_t> enabled_levels_;
};

extern template class basic_diagnostic_logger<char>;

using diagnostic_logger = basic_diagnostic_logger<char>;

// The enabled-levels word that new loggers start with (default: none, so that an embedding host
// sees nothing until it asks). Existing loggers keep theirs.
std::uint32_t default_enabled_levels() noexcept;
void set_default_enabled_levels(std::uint32_t word) noexcept;

// Sets the word of every logger made so far and the default for later ones.
void set_enabled_levels(std::uint32_t word) noexcept;

// Adds a synchronous text sink writing "[channel] <severity> message" lines to `stream`, and
// returns a handle that removes it when destroyed. Only records whose level's bit is in `levels`
// reach the stream: a host may open a logger's gate wider than it wants to print (to capture
// records elsewhere) without them all showing up here.
class sink_handle {
 public:
  sink_handle() = default;
  explicit sink_handle(std::shared_ptr<void> sink) : sink_(std::move(sink)) {}
  sink_handle(sink_handle&&) noexcept = default;
  sink_handle& operator=(sink_handle&&) noexcept;
  ~sink_handle();
  void reset();

 private:
  std::shared_ptr<void> sink_;
};
sink_handle add_stream_sink(std::shared_ptr<std::ostream> stream,
                            std::uint32_t levels = kAllLevels);

}  // namespace foundation::log
