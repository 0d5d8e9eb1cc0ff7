// The backend conformance suite on the Wayland backend: over each protocol on the test
// compositor, and over wlr on headless sway.
#include "support/backend_conformance.hpp"

#include "wayland_test_support.hpp"

namespace {

using namespace wayland_test;
using pf::clipboard::PFClipboardBackend;
using pf::clipboard::PFWaylandProtocol;

// The compositor lives as long as the backend, and ends after it.
struct Held {
  std::unique_ptr<Compositor> compositor;
  std::shared_ptr<pf::clipboard::PFWaylandClipboard> backend;
};

std::shared_ptr<PFClipboardBackend> over(std::unique_ptr<Compositor> compositor,
                                         PFWaylandProtocol protocol) {
  auto held = std::make_shared<Held>();
  held->compositor = std::move(compositor);
  auto o = options(*held->compositor);
  o.protocol = protocol;
  held->backend = pf::clipboard::makeWaylandClipboard(o);
  return std::shared_ptr<PFClipboardBackend>(held, held->backend.get());
}

std::shared_ptr<PFClipboardBackend> overSway() {
  std::unique_ptr<Compositor> sway;
  try {
    sway = std::make_unique<Sway>();
  } catch (SwayUnavailable const& e) {
    [&] { GTEST_SKIP() << e.what(); }();
    return nullptr;
  }
  return over(std::move(sway), PFWaylandProtocol::automatic);
}

INSTANTIATE_TEST_SUITE_P(
    Wayland, BackendConformance,
    ::testing::Values(test_support::BackendFactory{"ExtOnTestCompositor",
                                                   [] {
                                                     return over(std::make_unique<TestCompositor>(
                                                                     std::vector<std::string>{
                                                                         "--ext", "--wlr", "2"}),
                                                                 PFWaylandProtocol::automatic);
                                                   }},
                      test_support::BackendFactory{"WlrOnTestCompositor",
                                                   [] {
                                                     return over(std::make_unique<TestCompositor>(
                                                                     std::vector<std::string>{
                                                                         "--ext", "--wlr", "2"}),
                                                                 PFWaylandProtocol::wlr);
                                                   }},
                      test_support::BackendFactory{"WlrOnSway", overSway}),
    test_support::BackendFactoryName());

}  // namespace
