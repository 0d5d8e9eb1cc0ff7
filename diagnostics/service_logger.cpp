#include "diagnostics/service_logger.hpp"

namespace EditorServices::diagnostics {

char const* const kServiceChannel = "editor_services::ClipboardImpl";

namespace {
// Constructed when the library is loaded, destroyed when it is unloaded.
foundation::log::diagnostic_logger g_serviceLogger{std::string(kServiceChannel)};
}  // namespace

foundation::log::diagnostic_logger& serviceLogger() noexcept {
  return g_serviceLogger;
}

}  // namespace EditorServices::diagnostics
