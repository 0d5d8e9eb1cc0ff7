// Which clipboard backend clipboard-host runs on: memory, x11, wayland, or auto (Wayland when
// the display offers data-control, else X11 when there is a display, else memory).
#pragma once

#include <memory>
#include <string>

#include "host/options.hpp"
#include "platform/clipboard.hpp"

namespace clipboard_host {

struct BackendChoice {
  std::shared_ptr<pf::clipboard::PFClipboardBackend> backend;
  std::string name;    // memory, x11 or wayland
  std::string reason;  // why auto took it (empty for a named backend)
};

// The environment auto looks at; taken from the process by default.
struct DisplayEnvironment {
  std::string waylandDisplay;  // $WAYLAND_DISPLAY
  std::string x11Display;      // $DISPLAY
  static DisplayEnvironment fromProcess();
};

// Throws std::invalid_argument for an unknown name or a backend this build lacks, and
// std::runtime_error when the named backend cannot start. auto never fails: memory is last.
// The X11 settings of `options` apply to the X11 backend, chosen by name or by auto.
BackendChoice chooseBackend(Options const& options,
                            DisplayEnvironment const& env = DisplayEnvironment::fromProcess());

// The names --backend accepts in this build, for the usage text ("memory|x11|wayland|auto").
std::string backendNames();

}  // namespace clipboard_host
