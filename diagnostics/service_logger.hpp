// The service logger: one logger on the channel "editor_services::ClipboardImpl"; every record at
// level 4.
#pragma once

#include <boost/log/sources/record_ostream.hpp>

#include "platform/log.hpp"

namespace EditorServices::diagnostics {

constexpr foundation::log::severity_level kServiceLevel = 4;

extern char const* const kServiceChannel;

foundation::log::diagnostic_logger& serviceLogger() noexcept;

}  // namespace EditorServices::diagnostics

// One log statement of the service: `pieces` is a stream expression ("text" << value << ...).
// The gate comes first: when level 4 is disabled nothing of `pieces` is evaluated. A statement
// left by an exception thrown while its pieces are written pushes no record.
#define EDITOR_SERVICES_LOG(pieces)                                                         \
  do {                                                                                      \
    auto& editor_services_logger_ = ::EditorServices::diagnostics::serviceLogger();         \
    if (editor_services_logger_.is_enabled(::EditorServices::diagnostics::kServiceLevel)) { \
      BOOST_LOG_SEV(editor_services_logger_, ::EditorServices::diagnostics::kServiceLevel)  \
          << pieces;                                                                        \
    }                                                                                       \
  } while (false)
