// A stand-in compositor for the tests: a libwayland-server display with one seat and the
// data-control objects of ext-data-control-v1 and wlr-data-control-unstable-v1, nothing else.
// Single-threaded. Used where no real compositor offers what is tested (the ext protocol, wlr
// version 1, a compositor without data-control).
//
//   test_compositor SOCKET_NAME [--ext] [--wlr VERSION]
//
// The socket is created under $XDG_RUNTIME_DIR. SIGTERM ends it.
#include <signal.h>
#include <unistd.h>
#include <wayland-server.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "ext-data-control-v1-server-protocol.h"
#include "wlr-data-control-unstable-v1-server-protocol.h"

namespace {

// Both protocols have the same requests and events in the same order.
struct Protocol {
  wl_interface const* manager;
  wl_interface const* device;
  wl_interface const* source;
  wl_interface const* offer;
  int primarySince;
};
Protocol const kExt{&ext_data_control_manager_v1_interface, &ext_data_control_device_v1_interface,
                    &ext_data_control_source_v1_interface, &ext_data_control_offer_v1_interface, 1};
Protocol const kWlr{&zwlr_data_control_manager_v1_interface, &zwlr_data_control_device_v1_interface,
                    &zwlr_data_control_source_v1_interface, &zwlr_data_control_offer_v1_interface,
                    2};

enum : std::uint32_t { kDataOffer = 0, kSelection = 1, kFinished = 2, kPrimarySelection = 3 };
enum : std::uint32_t { kSend = 0, kCancelled = 1 };
enum : std::uint32_t { kOfferEvent = 0 };

struct Source {
  wl_resource* resource;
  std::vector<std::string> types;
  bool used = false;
};
struct Device {
  wl_resource* resource;
  Protocol const* protocol;
  // A dying client's devices leave the list before its objects go, so that no offer is made
  // to a client halfway through its destruction.
  wl_listener clientGone;
  bool listening;
};
struct Offer {
  wl_resource* resource;
  Source* source;  // null once the source is gone
};

struct State {
  wl_display* display = nullptr;
  Source* selection[2] = {nullptr, nullptr};
  std::vector<Device*> devices;
  std::vector<Offer*> offers;
} state;

template <class T>
void erase(std::vector<T*>& list, T* item) {
  list.erase(std::remove(list.begin(), list.end(), item), list.end());
}

bool hasPrimary(Device const& device) {
  return wl_resource_get_version(device.resource) >= device.protocol->primarySince;
}

// Offer requests
void offerReceive(wl_client*, wl_resource* resource, char const* mime, std::int32_t fd) {
  auto* offer = static_cast<Offer*>(wl_resource_get_user_data(resource));
  if (offer->source != nullptr)
    wl_resource_post_event(offer->source->resource, kSend, mime, fd);
  close(fd);  // the event carries a duplicate
}
void destroyRequest(wl_client*, wl_resource* resource) {
  wl_resource_destroy(resource);
}
struct {
  void (*receive)(wl_client*, wl_resource*, char const*, std::int32_t);
  void (*destroy)(wl_client*, wl_resource*);
} const kOfferImpl{offerReceive, destroyRequest};

void offerGone(wl_resource* resource) {
  auto* offer = static_cast<Offer*>(wl_resource_get_user_data(resource));
  erase(state.offers, offer);
  delete offer;
}

void announce(Device& device, int index) {
  Source* source = state.selection[index];
  std::uint32_t const event = index == 0 ? kSelection : kPrimarySelection;
  if (source == nullptr) {
    wl_resource_post_event(device.resource, event, nullptr);
    return;
  }
  auto* client = wl_resource_get_client(device.resource);
  auto* resource = wl_resource_create(client, device.protocol->offer,
                                      wl_resource_get_version(device.resource), 0);
  if (resource == nullptr) {
    wl_client_post_no_memory(client);
    return;
  }
  auto* offer = new Offer{resource, source};
  wl_resource_set_implementation(resource, &kOfferImpl, offer, offerGone);
  state.offers.push_back(offer);
  wl_resource_post_event(device.resource, kDataOffer, resource);
  for (auto const& type : source->types)
    wl_resource_post_event(resource, kOfferEvent, type.c_str());
  wl_resource_post_event(device.resource, event, resource);
}

void broadcast(int index) {
  for (auto* device : state.devices) {
    if (index == 0 || hasPrimary(*device))
      announce(*device, index);
  }
}

void setSelection(int index, Source* source) {
  Source* const old = state.selection[index];
  state.selection[index] = source;
  if (old != nullptr && old != source)
    wl_resource_post_event(old->resource, kCancelled);
  broadcast(index);
}

// Source requests
void sourceOffer(wl_client*, wl_resource* resource, char const* mime) {
  auto* source = static_cast<Source*>(wl_resource_get_user_data(resource));
  if (source->types.size() < 4096)
    source->types.emplace_back(mime);
}
struct {
  void (*offer)(wl_client*, wl_resource*, char const*);
  void (*destroy)(wl_client*, wl_resource*);
} const kSourceImpl{sourceOffer, destroyRequest};

void sourceGone(wl_resource* resource) {
  auto* source = static_cast<Source*>(wl_resource_get_user_data(resource));
  for (auto* offer : state.offers) {
    if (offer->source == source)
      offer->source = nullptr;
  }
  for (int index = 0; index < 2; ++index) {
    if (state.selection[index] == source) {
      state.selection[index] = nullptr;
      broadcast(index);
    }
  }
  delete source;
}

// Device requests
void deviceSet(wl_resource* resource, wl_resource* sourceResource, int index) {
  Source* source = nullptr;
  if (sourceResource != nullptr) {
    source = static_cast<Source*>(wl_resource_get_user_data(sourceResource));
    if (source->used) {
      wl_resource_post_error(resource, 1, "source already used");
      return;
    }
    source->used = true;
  }
  setSelection(index, source);
}
void deviceSetSelection(wl_client*, wl_resource* resource, wl_resource* source) {
  deviceSet(resource, source, 0);
}
void deviceSetPrimary(wl_client*, wl_resource* resource, wl_resource* source) {
  deviceSet(resource, source, 1);
}
struct {
  void (*setSelection)(wl_client*, wl_resource*, wl_resource*);
  void (*destroy)(wl_client*, wl_resource*);
  void (*setPrimary)(wl_client*, wl_resource*, wl_resource*);
} const kDeviceImpl{deviceSetSelection, destroyRequest, deviceSetPrimary};

void deviceGone(wl_resource* resource) {
  auto* device = static_cast<Device*>(wl_resource_get_user_data(resource));
  if (device->listening)
    wl_list_remove(&device->clientGone.link);
  erase(state.devices, device);
  delete device;
}

void deviceClientGone(wl_listener* listener, void*) {
  auto* device =
      reinterpret_cast<Device*>(reinterpret_cast<char*>(listener) - offsetof(Device, clientGone));
  wl_list_remove(&listener->link);
  device->listening = false;
  erase(state.devices, device);
}

// Manager requests
void managerCreateSource(wl_client* client, wl_resource* resource, std::uint32_t id) {
  auto const* protocol = static_cast<Protocol const*>(wl_resource_get_user_data(resource));
  auto* created =
      wl_resource_create(client, protocol->source, wl_resource_get_version(resource), id);
  if (created == nullptr) {
    wl_client_post_no_memory(client);
    return;
  }
  wl_resource_set_implementation(created, &kSourceImpl, new Source{created, {}}, sourceGone);
}
void managerGetDevice(wl_client* client, wl_resource* resource, std::uint32_t id, wl_resource*) {
  auto const* protocol = static_cast<Protocol const*>(wl_resource_get_user_data(resource));
  auto* created =
      wl_resource_create(client, protocol->device, wl_resource_get_version(resource), id);
  if (created == nullptr) {
    wl_client_post_no_memory(client);
    return;
  }
  auto* device = new Device{created, protocol, {}, true};
  device->clientGone.notify = deviceClientGone;
  wl_client_add_destroy_listener(client, &device->clientGone);
  wl_resource_set_implementation(created, &kDeviceImpl, device, deviceGone);
  state.devices.push_back(device);
  announce(*device, 0);
  if (hasPrimary(*device))
    announce(*device, 1);
}
struct {
  void (*createSource)(wl_client*, wl_resource*, std::uint32_t);
  void (*getDevice)(wl_client*, wl_resource*, std::uint32_t, wl_resource*);
  void (*destroy)(wl_client*, wl_resource*);
} const kManagerImpl{managerCreateSource, managerGetDevice, destroyRequest};

void bindManager(wl_client* client, void* data, std::uint32_t version, std::uint32_t id) {
  auto const* protocol = static_cast<Protocol const*>(data);
  auto* resource = wl_resource_create(client, protocol->manager, static_cast<int>(version), id);
  if (resource == nullptr) {
    wl_client_post_no_memory(client);
    return;
  }
  wl_resource_set_implementation(resource, &kManagerImpl, const_cast<Protocol*>(protocol), nullptr);
}

// A seat with no capabilities: clients only name it.
void seatGet(wl_client* client, wl_resource* resource, std::uint32_t id) {
  // No input devices here; the object exists so that the request is not a protocol error.
  wl_resource_create(client, &wl_pointer_interface, wl_resource_get_version(resource), id);
}
struct wl_seat_interface const kSeatImpl = {seatGet, seatGet, seatGet, destroyRequest};

void bindSeat(wl_client* client, void*, std::uint32_t version, std::uint32_t id) {
  auto* resource = wl_resource_create(client, &wl_seat_interface, static_cast<int>(version), id);
  if (resource == nullptr) {
    wl_client_post_no_memory(client);
    return;
  }
  wl_resource_set_implementation(resource, &kSeatImpl, nullptr, nullptr);
  wl_seat_send_capabilities(resource, 0);
}

int onTerminate(int, void*) {
  wl_display_terminate(state.display);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: test_compositor SOCKET_NAME [--ext] [--wlr VERSION]\n");
    return 2;
  }
  bool ext = false;
  int wlrVersion = 0;
  for (int i = 2; i < argc; ++i) {
    if (std::strcmp(argv[i], "--ext") == 0) {
      ext = true;
    } else if (std::strcmp(argv[i], "--wlr") == 0 && i + 1 < argc) {
      wlrVersion = std::clamp(std::atoi(argv[++i]), 1, 2);
    } else {
      std::fprintf(stderr, "test_compositor: unknown argument %s\n", argv[i]);
      return 2;
    }
  }
  state.display = wl_display_create();
  auto* loop = wl_display_get_event_loop(state.display);
  auto* term = wl_event_loop_add_signal(loop, SIGTERM, onTerminate, nullptr);
  auto* intr = wl_event_loop_add_signal(loop, SIGINT, onTerminate, nullptr);
  wl_global_create(state.display, &wl_seat_interface, 1, nullptr, bindSeat);
  if (ext)
    wl_global_create(state.display, kExt.manager, 1, const_cast<Protocol*>(&kExt), bindManager);
  if (wlrVersion > 0) {
    wl_global_create(state.display, kWlr.manager, wlrVersion, const_cast<Protocol*>(&kWlr),
                     bindManager);
  }
  if (wl_display_add_socket(state.display, argv[1]) != 0) {
    std::fprintf(stderr, "test_compositor: cannot create the socket %s\n", argv[1]);
    return 1;
  }
  wl_display_run(state.display);
  wl_event_source_remove(term);
  wl_event_source_remove(intr);
  wl_display_destroy_clients(state.display);
  wl_display_destroy(state.display);
  return 0;
}
