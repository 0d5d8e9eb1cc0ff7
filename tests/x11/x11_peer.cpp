// A scriptable X11 peer for the backend's tests: an owner that serves any set of targets (and
// misbehaves on request), or a stand-in clipboard manager. Plain xcb, no library code.
//
//   x11_peer serve clipboard|primary [--refuse T] [--ignore T] [--delay-ms N] [--die-after-chunks
//   N]
//                  [--stall-after-chunks N] [--chunk N] [--incr-above N] TARGET[@TYPE]:FILE...
//   x11_peer manager OUTFILE
//   x11_peer hostile CASE      (owns CLIPBOARD and answers wrongly on purpose; see hostile())
#include <xcb/xcb.h>

#include <unistd.h>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace {

xcb_connection_t* c = nullptr;
xcb_window_t window = 0;

xcb_atom_t atom(std::string const& name) {
  auto* reply = xcb_intern_atom_reply(
      c, xcb_intern_atom(c, 0, static_cast<std::uint16_t>(name.size()), name.c_str()), nullptr);
  xcb_atom_t const out = reply ? reply->atom : XCB_NONE;
  std::free(reply);
  return out;
}

std::string readFile(std::string const& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// Events carry their own type in the low 7 bits.
xcb_generic_event_t* waitEvent(std::uint8_t type) {
  for (;;) {
    auto* event = xcb_wait_for_event(c);
    if (!event)
      std::exit(2);
    if ((event->response_type & 0x7f) == type)
      return event;
    std::free(event);
  }
}

xcb_timestamp_t serverTime() {
  xcb_atom_t const stamp = atom("_PEER_STAMP");
  xcb_change_property(c, XCB_PROP_MODE_APPEND, window, stamp, XCB_ATOM_INTEGER, 8, 0, nullptr);
  xcb_flush(c);
  auto* event = reinterpret_cast<xcb_property_notify_event_t*>(waitEvent(XCB_PROPERTY_NOTIFY));
  xcb_timestamp_t const time = event->time;
  std::free(event);
  return time;
}

void notify(xcb_selection_request_event_t const& request, xcb_atom_t property) {
  char buffer[32] = {};
  auto* event = reinterpret_cast<xcb_selection_notify_event_t*>(buffer);
  event->response_type = XCB_SELECTION_NOTIFY;
  event->time = request.time;
  event->requestor = request.requestor;
  event->selection = request.selection;
  event->target = request.target;
  event->property = property;
  xcb_send_event(c, 0, request.requestor, XCB_EVENT_MASK_NO_EVENT, buffer);
  xcb_flush(c);
}

struct Target {
  xcb_atom_t type;
  std::string data;
};

int serve(int argc, char** argv) {
  xcb_atom_t const selection =
      std::string(argv[2]) == "primary" ? xcb_atom_t{XCB_ATOM_PRIMARY} : atom("CLIPBOARD");
  std::set<xcb_atom_t> refused;
  std::set<xcb_atom_t> ignored;  // requests never answered
  int delayMs = 0;
  long dieAfter = -1;
  long stallAfter = -1;
  std::size_t chunk = 65536;
  std::size_t incrAbove = 262144;
  std::map<xcb_atom_t, Target> targets;
  std::vector<xcb_atom_t> order;
  for (int i = 3; i < argc; ++i) {
    std::string const arg = argv[i];
    auto const next = [&] { return std::string(i + 1 < argc ? argv[++i] : ""); };
    if (arg == "--refuse") {
      refused.insert(atom(next()));
    } else if (arg == "--ignore") {
      ignored.insert(atom(next()));
    } else if (arg == "--delay-ms") {
      delayMs = std::stoi(next());
    } else if (arg == "--die-after-chunks") {
      dieAfter = std::stol(next());
    } else if (arg == "--stall-after-chunks") {
      stallAfter = std::stol(next());
    } else if (arg == "--chunk") {
      chunk = std::stoul(next());
    } else if (arg == "--incr-above") {
      incrAbove = std::stoul(next());
    } else {
      auto const colon = arg.rfind(':');
      std::string targetArg = arg.substr(0, colon);
      auto const at = targetArg.find('@');
      std::string const name = targetArg.substr(0, at);
      std::string const type = at == std::string::npos ? name : targetArg.substr(at + 1);
      xcb_atom_t const target = atom(name);
      targets[target] = {atom(type), readFile(arg.substr(colon + 1))};
      order.push_back(target);
    }
  }
  xcb_atom_t const targetsAtom = atom("TARGETS");
  xcb_atom_t const incr = atom("INCR");

  xcb_set_selection_owner(c, window, selection, serverTime());
  xcb_flush(c);

  struct Transfer {
    std::string const* data;
    xcb_atom_t type;
    std::size_t offset;
  };
  std::map<std::pair<xcb_window_t, xcb_atom_t>, Transfer> transfers;
  long chunksSent = 0;
  for (;;) {
    auto* event = xcb_wait_for_event(c);
    if (!event)
      return 2;
    auto const type = event->response_type & 0x7f;
    if (type == XCB_SELECTION_CLEAR)
      return 0;  // like xclip: gone once replaced
    if (type == XCB_SELECTION_REQUEST) {
      auto const request = *reinterpret_cast<xcb_selection_request_event_t*>(event);
      if (delayMs > 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(delayMs));
      xcb_atom_t const property = request.property ? request.property : request.target;
      auto const found = targets.find(request.target);
      if (ignored.count(request.target)) {
        std::free(event);
        continue;
      }
      if (request.target == targetsAtom && !refused.count(targetsAtom)) {
        std::vector<xcb_atom_t> list = {targetsAtom};
        list.insert(list.end(), order.begin(), order.end());
        xcb_change_property(c, XCB_PROP_MODE_REPLACE, request.requestor, property, XCB_ATOM_ATOM,
                            32, static_cast<std::uint32_t>(list.size()), list.data());
        notify(request, property);
      } else if (found == targets.end() || refused.count(request.target)) {
        notify(request, XCB_NONE);
      } else if (found->second.data.size() > incrAbove) {
        std::uint32_t const mask = XCB_EVENT_MASK_PROPERTY_CHANGE;
        xcb_change_window_attributes(c, request.requestor, XCB_CW_EVENT_MASK, &mask);
        std::uint32_t const size = static_cast<std::uint32_t>(found->second.data.size());
        xcb_change_property(c, XCB_PROP_MODE_REPLACE, request.requestor, property, incr, 32, 1,
                            &size);
        transfers[{request.requestor, property}] = {&found->second.data, found->second.type, 0};
        notify(request, property);
      } else {
        auto const& data = found->second.data;
        xcb_change_property(c, XCB_PROP_MODE_REPLACE, request.requestor, property,
                            found->second.type, 8, static_cast<std::uint32_t>(data.size()),
                            data.data());
        notify(request, property);
      }
    } else if (type == XCB_PROPERTY_NOTIFY) {
      auto const& property = *reinterpret_cast<xcb_property_notify_event_t*>(event);
      auto const it = transfers.find({property.window, property.atom});
      if (property.state == XCB_PROPERTY_DELETE && it != transfers.end()) {
        if (dieAfter >= 0 && chunksSent >= dieAfter)
          _exit(3);
        if (stallAfter >= 0 && chunksSent >= stallAfter) {
          std::free(event);
          continue;
        }
        auto& transfer = it->second;
        std::size_t const length = std::min(chunk, transfer.data->size() - transfer.offset);
        xcb_change_property(c, XCB_PROP_MODE_REPLACE, property.window, property.atom, transfer.type,
                            8, static_cast<std::uint32_t>(length),
                            transfer.data->data() + transfer.offset);
        xcb_flush(c);
        transfer.offset += length;
        ++chunksSent;
        if (length == 0)
          transfers.erase(it);
      }
    }
    std::free(event);
  }
}

// Takes over CLIPBOARD's text on SAVE_TARGETS, as a clipboard manager would, and writes it out.
int manager(char** argv) {
  xcb_atom_t const clipboard = atom("CLIPBOARD");
  xcb_atom_t const saveTargets = atom("SAVE_TARGETS");
  xcb_atom_t const utf8 = atom("UTF8_STRING");
  xcb_atom_t const property = atom("_PEER_SAVED");
  xcb_set_selection_owner(c, window, atom("CLIPBOARD_MANAGER"), serverTime());
  xcb_flush(c);
  for (;;) {
    auto* event =
        reinterpret_cast<xcb_selection_request_event_t*>(waitEvent(XCB_SELECTION_REQUEST));
    auto const request = *event;
    std::free(event);
    if (request.target != saveTargets) {
      notify(request, XCB_NONE);
      continue;
    }
    xcb_convert_selection(c, window, clipboard, utf8, property, request.time);
    xcb_flush(c);
    auto* answer = reinterpret_cast<xcb_selection_notify_event_t*>(waitEvent(XCB_SELECTION_NOTIFY));
    bool const got = answer->property != XCB_NONE;
    std::free(answer);
    std::string text;
    if (got) {
      auto* reply = xcb_get_property_reply(
          c, xcb_get_property(c, 1, window, property, XCB_GET_PROPERTY_TYPE_ANY, 0, 1 << 20),
          nullptr);
      if (reply) {
        text.assign(static_cast<char const*>(xcb_get_property_value(reply)),
                    static_cast<std::size_t>(xcb_get_property_value_length(reply)));
      }
      std::free(reply);
    }
    std::ofstream(argv[2], std::ios::binary) << text;
    xcb_atom_t const replyProperty = request.property ? request.property : request.target;
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, request.requestor, replyProperty, atom("NULL"),
                        32, 0, nullptr);
    notify(request, replyProperty);
    // A round trip before exiting: requests still in flight when a client goes away may be
    // dropped by the server.
    std::free(xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr));
    return got ? 0 : 1;
  }
}

// An owner of CLIPBOARD that answers every request wrongly, the way CASE says. TARGETS is
// answered honestly (UTF8_STRING, image/png) unless the case is about TARGETS.
int hostile(std::string const& which) {
  xcb_atom_t const clipboard = atom("CLIPBOARD");
  xcb_atom_t const targetsAtom = atom("TARGETS");
  xcb_atom_t const utf8 = atom("UTF8_STRING");
  xcb_atom_t const incr = atom("INCR");
  xcb_atom_t const other = atom("_PEER_OTHER");
  xcb_atom_t const html = atom("text/html");
  xcb_set_selection_owner(c, window, clipboard, serverTime());
  xcb_flush(c);
  std::string const chunk(65536, 'h');
  for (;;) {
    auto* event = xcb_wait_for_event(c);
    if (!event)
      return 2;
    auto const type = event->response_type & 0x7f;
    if (type == XCB_SELECTION_CLEAR)
      return 0;
    if (type == XCB_PROPERTY_NOTIFY) {
      auto const notify = *reinterpret_cast<xcb_property_notify_event_t*>(event);
      std::free(event);
      if (notify.state != XCB_PROPERTY_DELETE || notify.window == window)
        continue;
      if (which == "incr-endless") {
        xcb_change_property(c, XCB_PROP_MODE_REPLACE, notify.window, notify.atom, utf8, 8,
                            static_cast<std::uint32_t>(chunk.size()), chunk.data());
        xcb_flush(c);
      } else if (which == "incr-destroy") {
        xcb_destroy_window(c, window);  // the owner's window goes; the client stays
        xcb_flush(c);
      }
      continue;  // incr-silent: never another chunk
    }
    if (type != XCB_SELECTION_REQUEST) {
      std::free(event);
      continue;
    }
    auto const request = *reinterpret_cast<xcb_selection_request_event_t*>(event);
    std::free(event);
    xcb_atom_t const property = request.property ? request.property : request.target;
    if (request.target == targetsAtom) {
      std::vector<xcb_atom_t> list = {targetsAtom, utf8, atom("image/png")};
      if (which == "targets-garbage") {
        // None, atoms that do not exist, and the same few over and over: 100,000 entries.
        list.clear();
        for (std::uint32_t i = 0; i < 100000; ++i) {
          switch (i % 4) {
            case 0:
              list.push_back(XCB_NONE);
              break;
            case 1:
              list.push_back(0x1F000000u + i);
              break;
            case 2:
              list.push_back(i % 1000 == 6 ? html : utf8);
              break;
            default:
              list.push_back(targetsAtom);
              break;
          }
        }
      }
      xcb_change_property(c, XCB_PROP_MODE_REPLACE, request.requestor, property, XCB_ATOM_ATOM, 32,
                          static_cast<std::uint32_t>(list.size()), list.data());
      notify(request, property);
      continue;
    }
    char const text[] = "hostile!";
    if (which == "format16" || which == "format32") {
      std::uint8_t const format = which == "format16" ? 16 : 32;
      xcb_change_property(c, XCB_PROP_MODE_REPLACE, request.requestor, property, request.target,
                          format, 2, text);
      notify(request, property);
    } else if (which == "wrong-type") {
      xcb_change_property(c, XCB_PROP_MODE_REPLACE, request.requestor, property, atom("image/gif"),
                          8, 8, text);
      notify(request, property);
    } else if (which == "deleted") {
      xcb_change_property(c, XCB_PROP_MODE_REPLACE, request.requestor, property, request.target, 8,
                          8, text);
      xcb_delete_property(c, request.requestor, property);
      notify(request, property);
    } else if (which == "other-property") {
      xcb_change_property(c, XCB_PROP_MODE_REPLACE, request.requestor, other, request.target, 8, 8,
                          text);
      notify(request, other);
    } else if (which == "other-time") {
      xcb_change_property(c, XCB_PROP_MODE_REPLACE, request.requestor, property, request.target, 8,
                          8, text);
      auto stale = request;
      stale.time = request.time + 12345;
      notify(stale, property);
    } else if (which == "incr-silent" || which == "incr-endless" || which == "incr-destroy") {
      std::uint32_t const mask = XCB_EVENT_MASK_PROPERTY_CHANGE;
      xcb_change_window_attributes(c, request.requestor, XCB_CW_EVENT_MASK, &mask);
      std::uint32_t const size = 1u << 30;  // 1 GiB announced
      xcb_change_property(c, XCB_PROP_MODE_REPLACE, request.requestor, property, incr, 32, 1,
                          &size);
      notify(request, property);
    } else {
      notify(request, XCB_NONE);
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: x11_peer serve SELECTION TARGET:FILE... | manager OUTFILE\n");
    return 64;
  }
  int screen = 0;
  c = xcb_connect(nullptr, &screen);
  if (xcb_connection_has_error(c))
    return 2;
  auto const root = xcb_setup_roots_iterator(xcb_get_setup(c)).data->root;
  window = xcb_generate_id(c);
  std::uint32_t const mask = XCB_EVENT_MASK_PROPERTY_CHANGE;
  xcb_create_window(c, 0, window, root, 0, 0, 1, 1, 0, XCB_WINDOW_CLASS_INPUT_ONLY,
                    XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK, &mask);
  std::string const mode = argv[1];
  if (mode == "serve")
    return serve(argc, argv);
  if (mode == "manager")
    return manager(argv);
  if (mode == "hostile")
    return hostile(argv[2]);
  return 64;
}
