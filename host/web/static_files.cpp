#include "host/web/static_files.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <memory>

namespace clipboard_host::web {

namespace {

std::optional<std::string> realPath(std::string const& path) {
  std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(path.c_str(), nullptr),
                                                       &std::free);
  if (!resolved) {
    return std::nullopt;
  }
  return std::string(resolved.get());
}

bool isDirectory(std::string const& path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

std::string programDirectory() {
  char buffer[PATH_MAX];
  ssize_t const n = ::readlink("/proc/self/exe", buffer, sizeof buffer - 1);
  if (n <= 0) {
    return {};
  }
  std::string path(buffer, static_cast<std::size_t>(n));
  return path.substr(0, path.rfind('/'));
}

struct Extension {
  char const* suffix;
  char const* contentType;
};

constexpr Extension kExtensions[] = {
    {".html", "text/html; charset=utf-8"},
    {".js", "text/javascript; charset=utf-8"},
    {".mjs", "text/javascript; charset=utf-8"},
    {".css", "text/css; charset=utf-8"},
    {".svg", "image/svg+xml"},
    {".png", "image/png"},
    {".ico", "image/x-icon"},
    {".json", "application/json"},
    {".txt", "text/plain; charset=utf-8"},
};

bool endsWith(std::string_view text, std::string_view suffix) {
  return text.size() >= suffix.size() && text.substr(text.size() - suffix.size()) == suffix;
}

bool plainName(std::string_view segment) {
  if (segment.empty() || segment.front() == '.') {
    return false;  // "", ".", "..", hidden files
  }
  for (char c : segment) {
    bool const ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                    c == '-' || c == '_' || c == '.';
    if (!ok) {
      return false;
    }
  }
  return true;
}

}  // namespace

std::string findWebRoot(std::string const& given) {
  if (!given.empty()) {
    return isDirectory(given) ? realPath(given).value_or("") : std::string();
  }
  std::string candidates[] = {
      programDirectory() + "/../share/editor-clipboard/web",
#ifdef EDITOR_CLIPBOARD_INSTALLED_WEB_ROOT
      EDITOR_CLIPBOARD_INSTALLED_WEB_ROOT,
#endif
#ifdef EDITOR_CLIPBOARD_SOURCE_WEB_ROOT
      EDITOR_CLIPBOARD_SOURCE_WEB_ROOT,
#endif
  };
  for (auto const& candidate : candidates) {
    if (isDirectory(candidate + "/")) {
      if (auto real = realPath(candidate)) {
        return *real;
      }
    }
  }
  return {};
}

std::optional<StaticFile> resolveStaticFile(std::string const& webRoot, std::string_view path) {
  if (webRoot.empty() || path.empty() || path.front() != '/') {
    return std::nullopt;
  }
  std::string relative = path == "/" ? std::string("index.html") : std::string(path.substr(1));
  std::string_view rest = relative;
  while (true) {
    std::size_t const slash = rest.find('/');
    if (!plainName(rest.substr(0, slash))) {
      return std::nullopt;
    }
    if (slash == std::string_view::npos) {
      break;
    }
    rest.remove_prefix(slash + 1);
  }
  char const* contentType = nullptr;
  for (auto const& ext : kExtensions) {
    if (endsWith(relative, ext.suffix)) {
      contentType = ext.contentType;
    }
  }
  if (contentType == nullptr) {
    return std::nullopt;
  }
  auto const real = realPath(webRoot + "/" + relative);
  if (!real || real->compare(0, webRoot.size() + 1, webRoot + "/") != 0) {
    return std::nullopt;
  }
  struct stat st {};
  if (::stat(real->c_str(), &st) != 0 || !S_ISREG(st.st_mode)) {
    return std::nullopt;
  }
  return StaticFile{*real, contentType};
}

std::string contentSecurityPolicy(std::string_view host) {
  return "default-src 'none'; script-src 'self'; style-src 'self' 'unsafe-inline'; "
         "img-src 'self' data: blob:; frame-src 'self'; connect-src ws://" +
         std::string(host) + "; base-uri 'none'; form-action 'none'; frame-ancestors 'none'";
}

}  // namespace clipboard_host::web
