#include "x11_test_support.hpp"

#include <poll.h>
#include <xcb/xcb.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "platform/graphics.hpp"

namespace x11_test {

namespace {

template <class T>
struct Freed {
  T* p;
  explicit Freed(T* q) : p(q) {}
  ~Freed() { std::free(p); }
  T* operator->() const { return p; }
  explicit operator bool() const { return p != nullptr; }
};

std::unique_ptr<XServer> g_xvfb;
std::mutex g_xvfbMutex;

// Stops the server after the last test of the process.
class XvfbEnvironment : public ::testing::Environment {
 public:
  void TearDown() override {
    std::lock_guard<std::mutex> lock(g_xvfbMutex);
    g_xvfb.reset();
  }
};

[[maybe_unused]] auto* const g_environment =
    ::testing::AddGlobalTestEnvironment(new XvfbEnvironment);

}  // namespace

std::string const& display() {
  std::lock_guard<std::mutex> lock(g_xvfbMutex);
  if (!g_xvfb)
    g_xvfb = std::make_unique<XServer>();
  return g_xvfb->display();
}

Process::Process(std::vector<std::string> const& argv, Io const& io)
    : test_support::Process({argv,
                             {"DISPLAY=" + display()},
                             test_support::Stream::file(io.stdinPath),
                             test_support::Stream::file(io.outputPath),
                             test_support::Stream::output(),
                             std::nullopt}) {}

RunResult run(std::vector<std::string> const& argv, std::string const& stdinPath,
              std::chrono::seconds limit) {
  TempDir dir;
  std::vector<std::string> command = {"timeout", "-k", "1", std::to_string(limit.count())};
  command.insert(command.end(), argv.begin(), argv.end());
  auto const outputPath = dir.path() + "/stdout";
  RunResult result;
  {
    Process process(command, {stdinPath, outputPath});
    auto const status = process.wait(limit + 5s);
    result.status = status ? *status : -1;
    if (result.status == 124 || result.status == 137)
      result.status = -1;
  }
  result.output = readFile(outputPath);
  return result;
}

std::string peerProgram() {
  return X11_PEER_PROGRAM;
}

RawClient::RawClient() {
  c_ = xcb_connect(display().c_str(), nullptr);
  if (xcb_connection_has_error(c_))
    throw std::runtime_error("cannot connect to " + display());
  auto const root = xcb_setup_roots_iterator(xcb_get_setup(c_)).data->root;
  window_ = xcb_generate_id(c_);
  std::uint32_t const mask = XCB_EVENT_MASK_PROPERTY_CHANGE;
  xcb_create_window(c_, 0, window_, root, 0, 0, 1, 1, 0, XCB_WINDOW_CLASS_INPUT_ONLY,
                    XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK, &mask);
  xcb_flush(c_);
}

RawClient::~RawClient() {
  xcb_disconnect(c_);
}

std::uint32_t RawClient::atom(std::string const& name) {
  Freed<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(
      c_, xcb_intern_atom(c_, 0, static_cast<std::uint16_t>(name.size()), name.c_str()), nullptr));
  return reply ? reply->atom : 0;
}

std::string RawClient::atomName(std::uint32_t atom) {
  Freed<xcb_get_atom_name_reply_t> reply(
      xcb_get_atom_name_reply(c_, xcb_get_atom_name(c_, atom), nullptr));
  if (!reply)
    return {};
  return std::string(xcb_get_atom_name_name(reply.p),
                     static_cast<std::size_t>(xcb_get_atom_name_name_length(reply.p)));
}

std::uint32_t RawClient::owner(std::string const& selection) {
  Freed<xcb_get_selection_owner_reply_t> reply(
      xcb_get_selection_owner_reply(c_, xcb_get_selection_owner(c_, atom(selection)), nullptr));
  return reply ? reply->owner : 0;
}

bool RawClient::waitForOwner(std::string const& selection, bool want,
                             std::chrono::milliseconds timeout) {
  auto const end = std::chrono::steady_clock::now() + timeout;
  while ((owner(selection) != 0) != want) {
    if (std::chrono::steady_clock::now() >= end)
      return false;
    std::this_thread::sleep_for(5ms);
  }
  return true;
}

RawClient::Converted RawClient::property(std::string const& name) {
  Freed<xcb_get_property_reply_t> reply(xcb_get_property_reply(
      c_, xcb_get_property(c_, 1, window_, atom(name), XCB_GET_PROPERTY_TYPE_ANY, 0, 1u << 26),
      nullptr));
  Converted out;
  if (!reply)
    return out;
  out.type = reply->type ? atomName(reply->type) : "";
  out.format = reply->format;
  out.data.assign(static_cast<char const*>(xcb_get_property_value(reply.p)),
                  static_cast<std::size_t>(xcb_get_property_value_length(reply.p)));
  return out;
}

std::optional<RawClient::Converted> RawClient::convert(
    std::string const& selection, std::string const& target, std::string const& propertyName,
    std::vector<std::uint32_t> const* multiplePairs, std::chrono::milliseconds timeout,
    std::uint32_t time) {
  auto const property = atom(propertyName);
  if (multiplePairs) {
    xcb_change_property(c_, XCB_PROP_MODE_REPLACE, window_, property, atom("ATOM_PAIR"), 32,
                        static_cast<std::uint32_t>(multiplePairs->size()), multiplePairs->data());
  }
  xcb_convert_selection(c_, window_, atom(selection), atom(target), property, time);
  xcb_flush(c_);
  auto const end = std::chrono::steady_clock::now() + timeout;
  for (;;) {
    while (auto* event = xcb_poll_for_event(c_)) {
      Freed<xcb_generic_event_t> owned(event);
      if ((event->response_type & 0x7f) != XCB_SELECTION_NOTIFY)
        continue;
      auto const* notify = reinterpret_cast<xcb_selection_notify_event_t*>(event);
      if (notify->property == 0)
        return std::nullopt;
      return property == notify->property ? this->property(propertyName) : Converted{};
    }
    auto const left = std::chrono::duration_cast<std::chrono::milliseconds>(
        end - std::chrono::steady_clock::now());
    if (left.count() <= 0 || xcb_connection_has_error(c_))
      return std::nullopt;
    pollfd pfd{xcb_get_file_descriptor(c_), POLLIN, 0};
    ::poll(&pfd, 1, static_cast<int>(left.count()));
  }
}

bool RawClient::startIncrAndStall(std::string const& selection, std::string const& target,
                                  std::chrono::milliseconds timeout) {
  auto const property = atom("_STALL");
  xcb_convert_selection(c_, window_, atom(selection), atom(target), property, XCB_CURRENT_TIME);
  xcb_flush(c_);
  auto const end = std::chrono::steady_clock::now() + timeout;
  bool started = false;
  for (;;) {
    while (auto* event = xcb_poll_for_event(c_)) {
      Freed<xcb_generic_event_t> owned(event);
      auto const type = event->response_type & 0x7f;
      if (type == XCB_SELECTION_NOTIFY && !started) {
        if (reinterpret_cast<xcb_selection_notify_event_t*>(event)->property != property)
          return false;
        Freed<xcb_get_property_reply_t> reply(xcb_get_property_reply(
            c_, xcb_get_property(c_, 0, window_, property, XCB_GET_PROPERTY_TYPE_ANY, 0, 1),
            nullptr));
        if (!reply || reply->type != atom("INCR"))
          return false;
        xcb_delete_property(c_, window_, property);  // starts the transfer
        xcb_flush(c_);
        started = true;
      } else if (type == XCB_PROPERTY_NOTIFY && started) {
        auto const* notify = reinterpret_cast<xcb_property_notify_event_t*>(event);
        if (notify->atom == property && notify->state == XCB_PROPERTY_NEW_VALUE)
          return true;
      }
    }
    auto const left = std::chrono::duration_cast<std::chrono::milliseconds>(
        end - std::chrono::steady_clock::now());
    if (left.count() <= 0 || xcb_connection_has_error(c_))
      return false;
    pollfd pfd{xcb_get_file_descriptor(c_), POLLIN, 0};
    ::poll(&pfd, 1, static_cast<int>(left.count()));
  }
}

pf::clipboard::PFX11ClipboardOptions options() {
  pf::clipboard::PFX11ClipboardOptions o;
  o.display = display();
  o.firstReplyTimeout = 2000ms;
  o.chunkTimeout = 2000ms;
  o.readTimeout = 30000ms;
  o.ownerChunkTimeout = 2000ms;
  o.managerHandoverTimeout = 2000ms;
  return o;
}

std::string samplePng() {
  std::vector<std::uint8_t> rgba(9 * 4 * 4);
  for (std::size_t i = 0; i < rgba.size(); ++i)
    rgba[i] = static_cast<std::uint8_t>(i * 29 + 7);
  return stringOf(pf::graphics::PFImage::fromRgba(9, 4, std::move(rgba))->encodedBytes());
}

}  // namespace x11_test
