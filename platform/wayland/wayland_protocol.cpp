// The two data-control protocols behind one set of opcodes, and the calls on raw proxies that
// drive either.
#include <wayland-client.h>

#include "ext-data-control-v1-client-protocol.h"
#include "platform/wayland/wayland_internal.h"
#include "wlr-data-control-unstable-v1-client-protocol.h"

namespace pf::clipboard::wayland {

static_assert(EXT_DATA_CONTROL_MANAGER_V1_CREATE_DATA_SOURCE == op::managerCreateSource &&
              ZWLR_DATA_CONTROL_MANAGER_V1_CREATE_DATA_SOURCE == op::managerCreateSource);
static_assert(EXT_DATA_CONTROL_MANAGER_V1_GET_DATA_DEVICE == op::managerGetDevice &&
              ZWLR_DATA_CONTROL_MANAGER_V1_GET_DATA_DEVICE == op::managerGetDevice);
static_assert(EXT_DATA_CONTROL_MANAGER_V1_DESTROY == op::managerDestroy &&
              ZWLR_DATA_CONTROL_MANAGER_V1_DESTROY == op::managerDestroy);
static_assert(EXT_DATA_CONTROL_DEVICE_V1_SET_SELECTION == op::deviceSetSelection &&
              ZWLR_DATA_CONTROL_DEVICE_V1_SET_SELECTION == op::deviceSetSelection);
static_assert(EXT_DATA_CONTROL_DEVICE_V1_DESTROY == op::deviceDestroy &&
              ZWLR_DATA_CONTROL_DEVICE_V1_DESTROY == op::deviceDestroy);
static_assert(EXT_DATA_CONTROL_DEVICE_V1_SET_PRIMARY_SELECTION == op::deviceSetPrimary &&
              ZWLR_DATA_CONTROL_DEVICE_V1_SET_PRIMARY_SELECTION == op::deviceSetPrimary);
static_assert(EXT_DATA_CONTROL_SOURCE_V1_OFFER == op::sourceOffer &&
              ZWLR_DATA_CONTROL_SOURCE_V1_OFFER == op::sourceOffer);
static_assert(EXT_DATA_CONTROL_OFFER_V1_RECEIVE == op::offerReceive &&
              ZWLR_DATA_CONTROL_OFFER_V1_RECEIVE == op::offerReceive);

Protocol const& extProtocol() {
  static Protocol const p{"ext_data_control_manager_v1",
                          &ext_data_control_manager_v1_interface,
                          &ext_data_control_device_v1_interface,
                          &ext_data_control_source_v1_interface,
                          &ext_data_control_offer_v1_interface,
                          1,
                          1};
  return p;
}

Protocol const& wlrProtocol() {
  static Protocol const p{"zwlr_data_control_manager_v1",
                          &zwlr_data_control_manager_v1_interface,
                          &zwlr_data_control_device_v1_interface,
                          &zwlr_data_control_source_v1_interface,
                          &zwlr_data_control_offer_v1_interface,
                          2,
                          2};
  return p;
}

void addListener(wl_proxy* proxy, void const* table, void* data) {
  // libwayland takes the table as an array of function pointers.
  wl_proxy_add_listener(proxy, reinterpret_cast<void (**)(void)>(const_cast<void*>(table)), data);
}

void destroyProxy(wl_proxy* proxy, std::uint32_t opcode) {
  if (proxy != nullptr) {
    wl_proxy_marshal_flags(proxy, opcode, nullptr, wl_proxy_get_version(proxy),
                           WL_MARSHAL_FLAG_DESTROY);
  }
}

}  // namespace pf::clipboard::wayland
