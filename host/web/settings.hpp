// The listener's settings: where it listens, who may connect, where the page is. The command
// line fills them (--listen, --token-file, --allow-origin, --max-connections, --web-root).
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace clipboard_host::web {

struct Settings {
  std::string address = "127.0.0.1";
  unsigned short port = 0;  // 0 picks a free port
  std::string tokenFile;    // empty: a fresh random token
  std::vector<std::string> allowOrigins;
  std::size_t maxConnections = 16;
  std::string webRoot;  // empty: found beside the program or through the install prefix
};

}  // namespace clipboard_host::web
