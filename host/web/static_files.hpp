// The page's files: which request paths map to which files of the web folder, and how each
// response is marked (content type, no caching, the content security policy).
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace clipboard_host::web {

// The web folder: --web-root when given, else beside the installed program
// (../share/editor-clipboard/web), else the install prefix's, else the source tree's.
// Empty when none exists.
std::string findWebRoot(std::string const& given);

struct StaticFile {
  std::string path;         // absolute, inside the web folder
  char const* contentType;  // with charset for text
};

// Maps a request path ("/", "/app.js") to a regular file of the web folder. Refuses (returns
// nothing for) anything but plain names: no "..", no "." segments, no percent-encoding, no
// backslashes, no hidden files, no unknown extension, and nothing whose real path (symbolic
// links followed) leaves the folder.
std::optional<StaticFile> resolveStaticFile(std::string const& webRoot, std::string_view path);

// The Content-Security-Policy of every response: the page's own scripts and styles, images
// from the page or data URLs, the WebSocket back to `host`, nothing else. Inline style is
// allowed for the sandboxed HTML preview, which inherits the policy and runs no script.
std::string contentSecurityPolicy(std::string_view host);

}  // namespace clipboard_host::web
