// clipboard-host --listen: the page over HTTP and the service over WebSocket until a signal.
#pragma once

#include "host/web/session_settings.hpp"
#include "host/web/settings.hpp"

namespace clipboard_host::web {

// Serves until SIGINT or SIGTERM with the backend installed by the caller. Prints the page's
// address as the first line of standard error; returns the exit status (1 when the listener
// cannot start: address in use, no web folder, a bad token file).
int serve(Settings const& settings, SessionSettings const& sessions);

}  // namespace clipboard_host::web
