#include "host/web/serve.hpp"

#include <exception>
#include <iostream>

#include "host/web/listener.hpp"

namespace clipboard_host::web {

int serve(Settings const& settings, SessionSettings const& sessions) {
  try {
    Listener listener(settings, sessions);
    listener.runUntilSignal(
        [&listener] { std::cerr << "listening on " << listener.pageUrl() << std::endl; });
  } catch (std::exception const& e) {
    std::cerr << "clipboard-host: " << e.what() << "\n";
    return 1;
  }
  return 0;
}

}  // namespace clipboard_host::web
