#include "host/backend_choice.hpp"

#include <cstdlib>
#include <exception>
#include <stdexcept>

#include "platform/memory/memory_clipboard.hpp"
#ifdef EDITOR_CLIPBOARD_HOST_X11
#include "platform/x11/x11_clipboard.hpp"
#endif
#ifdef EDITOR_CLIPBOARD_HOST_WAYLAND
#include "platform/wayland/wayland_clipboard.hpp"
#endif

namespace clipboard_host {

namespace {

std::shared_ptr<pf::clipboard::PFClipboardBackend> makeX11(X11Settings const& settings) {
#ifdef EDITOR_CLIPBOARD_HOST_X11
  pf::clipboard::PFX11ClipboardOptions x11;
  x11.display = settings.display;
  x11.firstReplyTimeout = settings.firstReplyTimeout;
  x11.chunkTimeout = settings.chunkTimeout;
  x11.readTimeout = settings.readTimeout;
  x11.managerHandoverTimeout = settings.managerHandover;
  return pf::clipboard::makeX11Clipboard(std::move(x11));
#else
  (void)settings;
  throw std::invalid_argument("this build has no X11 backend");
#endif
}

std::shared_ptr<pf::clipboard::PFClipboardBackend> makeWayland() {
#ifdef EDITOR_CLIPBOARD_HOST_WAYLAND
  return pf::clipboard::makeWaylandClipboard();
#else
  throw std::invalid_argument("this build has no Wayland backend");
#endif
}

BackendChoice chooseAutomatically(Options const& options, DisplayEnvironment env) {
  if (!options.x11.display.empty())
    env.x11Display = options.x11.display;
  std::string why;
  if (env.waylandDisplay.empty()) {
    why = "WAYLAND_DISPLAY is not set";
  } else {
#ifdef EDITOR_CLIPBOARD_HOST_WAYLAND
    auto const probe = pf::clipboard::probeWaylandDisplay(env.waylandDisplay);
    if (!probe.connected) {
      why = "cannot connect to WAYLAND_DISPLAY=" + env.waylandDisplay + " (" + probe.error + ")";
    } else if (probe.dataControlGlobal.empty()) {
      why = "WAYLAND_DISPLAY=" + env.waylandDisplay + " offers no data-control protocol";
    } else {
      try {
        pf::clipboard::PFWaylandClipboardOptions options;
        options.display = env.waylandDisplay;
        return {pf::clipboard::makeWaylandClipboard(options), "wayland",
                "WAYLAND_DISPLAY=" + env.waylandDisplay + " offers " + probe.dataControlGlobal};
      } catch (std::exception const& e) {
        why = e.what();
      }
    }
#else
    why = "this build has no Wayland backend";
#endif
  }
  if (env.x11Display.empty()) {
    why += "; DISPLAY is not set";
  } else {
#ifdef EDITOR_CLIPBOARD_HOST_X11
    try {
      X11Settings settings = options.x11;
      settings.display = env.x11Display;
      return {makeX11(settings), "x11", why + "; DISPLAY=" + env.x11Display + " is set"};
    } catch (std::exception const& e) {
      why += std::string("; ") + e.what();
    }
#else
    why += "; this build has no X11 backend";
#endif
  }
  return {std::make_shared<pf::clipboard::PFMemoryClipboard>(), "memory",
          why + ": an in-process clipboard"};
}

}  // namespace

DisplayEnvironment DisplayEnvironment::fromProcess() {
  DisplayEnvironment env;
  if (char const* wayland = std::getenv("WAYLAND_DISPLAY"))
    env.waylandDisplay = wayland;
  if (char const* x11 = std::getenv("DISPLAY"))
    env.x11Display = x11;
  return env;
}

BackendChoice chooseBackend(Options const& options, DisplayEnvironment const& env) {
  std::string const& name = options.backend;
  if (name == "memory")
    return {std::make_shared<pf::clipboard::PFMemoryClipboard>(), "memory", {}};
  if (name == "x11")
    return {makeX11(options.x11), "x11", {}};
  if (name == "wayland")
    return {makeWayland(), "wayland", {}};
  if (name == "auto")
    return chooseAutomatically(options, env);
  throw std::invalid_argument("unknown backend " + name + " (" + backendNames() + ")");
}

std::string backendNames() {
  std::string names = "memory";
#ifdef EDITOR_CLIPBOARD_HOST_X11
  names += "|x11";
#endif
#ifdef EDITOR_CLIPBOARD_HOST_WAYLAND
  names += "|wayland";
#endif
  return names + "|auto";
}

}  // namespace clipboard_host
