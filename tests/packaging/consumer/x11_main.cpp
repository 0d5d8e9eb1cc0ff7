// A host program that links the X11 backend from outside. It needs no display: a display name
// that cannot be parsed must fail in the backend's constructor with its own error.
#include <iostream>
#include <stdexcept>

#include "platform/x11/x11_clipboard.hpp"

int main() {
  pf::clipboard::PFX11ClipboardOptions options;
  options.display = "no display here";
  try {
    pf::clipboard::PFX11Clipboard backend(options);
  } catch (std::runtime_error const& error) {
    std::cout << error.what() << "\n";
    return 0;
  }
  std::cout << "connected to a display that cannot exist\n";
  return 1;
}
