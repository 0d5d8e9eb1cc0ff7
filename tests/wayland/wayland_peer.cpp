// A misbehaving client for the tests, on the raw protocol. As an owner it offers one type and then
// either never answers a paste (stall) or writes some bytes and dies (die-after=N: its connection
// closes first, then the pipe; pipe-first-die-after=N: it stalls, its pipe closes, and only a
// moment later its connection, the way a dying process that the scheduler preempts between its
// files closes them). As a paste
// target (receive-stall=SECONDS) it asks for TYPE, reads nothing for that long, then reads to the
// end and prints how many bytes came; `receive` prints the bytes themselves. As an owner that
// behaves (serve=FILE) it offers TYPE alone and answers every paste with the file's bytes.
// `primary` works on the primary selection instead of the clipboard.
//
//   wayland_peer ext|wlr
//   stall|die-after=N|pipe-first-die-after=N|receive-stall=S|receive|serve=FILE
//                TYPE [primary]
//   (WAYLAND_DISPLAY: the compositor)
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>
#include <wayland-client.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "ext-data-control-v1-client-protocol.h"
#include "wlr-data-control-unstable-v1-client-protocol.h"

namespace {

bool g_ext = false;
long g_dieAfter = -1;  // -1: stall
bool g_pipeFirst = false;
int g_receiveStall = -1;
bool g_printBytes = false;
bool g_primary = false;
char const* g_type = "";
std::string g_served;
bool g_serve = false;
int g_pipe = -1;
int g_socket = -1;
std::vector<int> g_held;
std::uint32_t g_manager = 0, g_seat = 0;

void onGlobal(void*, wl_registry*, std::uint32_t name, char const* interface, std::uint32_t) {
  char const* wanted = g_ext ? "ext_data_control_manager_v1" : "zwlr_data_control_manager_v1";
  if (std::strcmp(interface, wanted) == 0)
    g_manager = name;
  if (std::strcmp(interface, "wl_seat") == 0 && g_seat == 0)
    g_seat = name;
}

void onSend(int fd) {
  if (g_serve) {
    std::size_t done = 0;
    while (done < g_served.size()) {
      auto const n = ::write(fd, g_served.data() + done, g_served.size() - done);
      if (n <= 0)
        break;
      done += static_cast<std::size_t>(n);
    }
    ::close(fd);
    return;
  }
  if (g_dieAfter < 0) {
    g_held.push_back(fd);  // never written, never closed
    return;
  }
  std::string const chunk(static_cast<std::size_t>(g_dieAfter), 'x');
  std::size_t done = 0;
  while (done < chunk.size()) {
    auto const n = ::write(fd, chunk.data() + done, chunk.size() - done);
    if (n <= 0)
      break;
    done += static_cast<std::size_t>(n);
  }
  if (g_pipeFirst) {
    // Stalls, then its pipe ends well before the compositor can learn of the death.
    ::usleep(300 * 1000);
    ::close(fd);
    ::usleep(200 * 1000);
    ::raise(SIGKILL);
  }
  // Dies with its connection closed first, then the pipe.
  ::shutdown(g_socket, SHUT_RDWR);
  ::raise(SIGKILL);
}

// The paste target: asks for the type of the current selection once, keeps the pipe unread.
void onSelection(void* offer, bool ext) {
  if (offer == nullptr || g_pipe >= 0)
    return;
  int fds[2];
  if (::pipe(fds) != 0)
    std::exit(1);
  if (ext) {
    ext_data_control_offer_v1_receive(static_cast<ext_data_control_offer_v1*>(offer), g_type,
                                      fds[1]);
  } else {
    zwlr_data_control_offer_v1_receive(static_cast<zwlr_data_control_offer_v1*>(offer), g_type,
                                       fds[1]);
  }
  ::close(fds[1]);
  g_pipe = fds[0];
}

void drainLater(wl_display* display) {
  while (g_pipe < 0) {
    if (wl_display_dispatch(display) < 0)
      std::exit(1);
  }
  wl_display_flush(display);
  ::sleep(static_cast<unsigned>(g_receiveStall));
  std::size_t total = 0;
  char buffer[65536];
  for (;;) {
    auto const n = ::read(g_pipe, buffer, sizeof buffer);
    if (n <= 0)
      break;
    total += static_cast<std::size_t>(n);
    if (g_printBytes)
      std::fwrite(buffer, 1, static_cast<std::size_t>(n), stdout);
  }
  if (!g_printBytes)
    std::printf("%zu\n", total);
  std::exit(0);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4 && argc != 5) {
    std::fprintf(stderr,
                 "usage: wayland_peer ext|wlr "
                 "stall|die-after=N|pipe-first-die-after=N|receive-stall=S|receive|serve=FILE "
                 "TYPE [primary]\n");
    return 2;
  }
  g_primary = argc == 5 && std::strcmp(argv[4], "primary") == 0;
  g_ext = std::strcmp(argv[1], "ext") == 0;
  if (std::strncmp(argv[2], "die-after=", 10) == 0)
    g_dieAfter = std::atol(argv[2] + 10);
  if (std::strncmp(argv[2], "pipe-first-die-after=", 21) == 0) {
    g_dieAfter = std::atol(argv[2] + 21);
    g_pipeFirst = true;
  }
  if (std::strncmp(argv[2], "receive-stall=", 14) == 0)
    g_receiveStall = std::atoi(argv[2] + 14);
  if (std::strcmp(argv[2], "receive") == 0) {
    g_receiveStall = 0;
    g_printBytes = true;
  }
  if (std::strncmp(argv[2], "serve=", 6) == 0) {
    std::ifstream in(argv[2] + 6, std::ios::binary);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    g_served = bytes.str();
    g_serve = true;
  }
  g_type = argv[3];
  ::signal(SIGPIPE, SIG_IGN);
  wl_display* display = wl_display_connect(nullptr);
  if (display == nullptr)
    return 1;
  g_socket = wl_display_get_fd(display);
  wl_registry_listener const registryListener = {onGlobal,
                                                 [](void*, wl_registry*, std::uint32_t) {}};
  auto* registry = wl_display_get_registry(display);
  wl_registry_add_listener(registry, &registryListener, nullptr);
  wl_display_roundtrip(display);
  if (g_manager == 0 || g_seat == 0)
    return 1;
  auto* seat = static_cast<wl_seat*>(wl_registry_bind(registry, g_seat, &wl_seat_interface, 1));
  if (g_ext) {
    auto* manager = static_cast<ext_data_control_manager_v1*>(
        wl_registry_bind(registry, g_manager, &ext_data_control_manager_v1_interface, 1));
    auto* device = ext_data_control_manager_v1_get_data_device(manager, seat);
    if (g_receiveStall >= 0) {
      static ext_data_control_device_v1_listener const listener = {
          [](void*, ext_data_control_device_v1*, ext_data_control_offer_v1*) {},
          [](void*, ext_data_control_device_v1*, ext_data_control_offer_v1* offer) {
            if (!g_primary)
              onSelection(offer, true);
          },
          [](void*, ext_data_control_device_v1*) {},
          [](void*, ext_data_control_device_v1*, ext_data_control_offer_v1* offer) {
            if (g_primary)
              onSelection(offer, true);
          }};
      ext_data_control_device_v1_add_listener(device, &listener, nullptr);
      drainLater(display);
    }
    auto* source = ext_data_control_manager_v1_create_data_source(manager);
    static ext_data_control_source_v1_listener const listener = {
        [](void*, ext_data_control_source_v1*, char const*, std::int32_t fd) { onSend(fd); },
        [](void*, ext_data_control_source_v1*) { std::exit(0); }};
    ext_data_control_source_v1_add_listener(source, &listener, nullptr);
    ext_data_control_source_v1_offer(source, argv[3]);
    if (g_primary)
      ext_data_control_device_v1_set_primary_selection(device, source);
    else
      ext_data_control_device_v1_set_selection(device, source);
  } else {
    auto* manager = static_cast<zwlr_data_control_manager_v1*>(wl_registry_bind(
        registry, g_manager, &zwlr_data_control_manager_v1_interface, g_primary ? 2 : 1));
    auto* device = zwlr_data_control_manager_v1_get_data_device(manager, seat);
    if (g_receiveStall >= 0) {
      static zwlr_data_control_device_v1_listener const listener = {
          [](void*, zwlr_data_control_device_v1*, zwlr_data_control_offer_v1*) {},
          [](void*, zwlr_data_control_device_v1*, zwlr_data_control_offer_v1* offer) {
            if (!g_primary)
              onSelection(offer, false);
          },
          [](void*, zwlr_data_control_device_v1*) {},
          [](void*, zwlr_data_control_device_v1*, zwlr_data_control_offer_v1* offer) {
            if (g_primary)
              onSelection(offer, false);
          }};
      zwlr_data_control_device_v1_add_listener(device, &listener, nullptr);
      drainLater(display);
    }
    auto* source = zwlr_data_control_manager_v1_create_data_source(manager);
    static zwlr_data_control_source_v1_listener const listener = {
        [](void*, zwlr_data_control_source_v1*, char const*, std::int32_t fd) { onSend(fd); },
        [](void*, zwlr_data_control_source_v1*) { std::exit(0); }};
    zwlr_data_control_source_v1_add_listener(source, &listener, nullptr);
    zwlr_data_control_source_v1_offer(source, argv[3]);
    if (g_primary)
      zwlr_data_control_device_v1_set_primary_selection(device, source);
    else
      zwlr_data_control_device_v1_set_selection(device, source);
  }
  while (wl_display_dispatch(display) >= 0) {
  }
  return 0;
}
