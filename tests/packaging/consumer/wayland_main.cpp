// A host program that links the Wayland backend from outside. It needs no compositor: a display
// socket that does not exist must fail in the backend's constructor with its own error.
#include <iostream>
#include <stdexcept>

#include "platform/wayland/wayland_clipboard.hpp"

int main() {
  pf::clipboard::PFWaylandClipboardOptions options;
  options.display = "/nonexistent/wayland-socket";
  try {
    pf::clipboard::PFWaylandClipboard backend(options);
  } catch (std::runtime_error const& error) {
    std::cout << error.what() << "\n";
    return 0;
  }
  std::cout << "connected to a compositor that cannot exist\n";
  return 1;
}
