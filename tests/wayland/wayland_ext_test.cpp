// The Wayland backend over ext-data-control-v1 (and wlr version 1), on the test compositor, with a
// second instance of the backend as the other program and wayland_peer as a misbehaving owner.
#include <gtest/gtest.h>

#include <cctype>
#include <thread>

#include "platform/i18n.hpp"
#include "wayland_test_support.hpp"

namespace {

using namespace wayland_test;
using pf::clipboard::ClipboardContent;
using pf::clipboard::PFClipboardData;
using pf::clipboard::PFClipboardMode;
using pf::clipboard::PFWaylandClipboard;
using pf::clipboard::PFWaylandProtocol;

class ExtPath : public ::testing::Test {
 protected:
  void SetUp() override {
    compositor = std::make_unique<TestCompositor>(std::vector<std::string>{"--ext", "--wlr", "2"});
    ours = pf::clipboard::makeWaylandClipboard(options(*compositor));
    auto o = options(*compositor);
    o.emitChangeEvents = false;  // only ours counts
    other = pf::clipboard::makeWaylandClipboard(o);
  }
  void TearDown() override {
    other.reset();
    ours.reset();
    compositor.reset();
  }

  // Waits until `reader` sees another client's payload offering `mime`.
  static bool waitForType(PFWaylandClipboard& reader, std::u16string const& mime,
                          PFClipboardMode mode = PFClipboardMode::clipboard) {
    auto const end = std::chrono::steady_clock::now() + 10s;
    while (std::chrono::steady_clock::now() < end) {
      if (!reader.ownsSelection(mode)) {
        auto const types = reader.availableMimeTypes(mode);
        if (std::find(types.begin(), types.end(), mime) != types.end())
          return true;
      }
      std::this_thread::sleep_for(5ms);
    }
    return false;
  }

  std::unique_ptr<TestCompositor> compositor;
  std::shared_ptr<PFWaylandClipboard> ours;
  std::shared_ptr<PFWaylandClipboard> other;
};

TEST_F(ExtPath, BindsExtWhenOfferedAndWlrWhenAskedFor) {
  EXPECT_EQ(ours->protocolName(), "ext_data_control_manager_v1");
  auto o = options(*compositor);
  o.protocol = PFWaylandProtocol::wlr;
  EXPECT_EQ(PFWaylandClipboard(o).protocolName(), "zwlr_data_control_manager_v1");
}

void expectText(ClipboardContent const& content, std::u16string const& text) {
  ASSERT_EQ(content.index(), 1u);
  EXPECT_EQ(std::get<1>(content).size(), text.size());
  EXPECT_TRUE(std::get<1>(content) == text);
}

std::u16string const& bigText() {
  static std::u16string const text = fl::i18n::to_ustring(sampleText(std::size_t{64} << 20));
  return text;
}

// The one exact round trip of 64 MiB over Wayland (CMakeLists also runs it under an address
// space cap): written by one instance, read by the other, in both directions.
TEST_F(ExtPath, SixtyFourMiBTextTravelsBothWays) {
  for (auto const& [writer, reader] :
       {std::make_pair(ours.get(), other.get()), std::make_pair(other.get(), ours.get())}) {
    auto data = std::make_unique<PFClipboardData>();
    data->addData(u"text/plain", bigText());
    writer->write(std::move(data), PFClipboardMode::clipboard);
    ASSERT_TRUE(waitForType(*reader, u"text/plain"));
    expectText(reader->read(u"text/plain", PFClipboardMode::clipboard), bigText());
  }
}

// Owners whose pipe ends well before their connection, with part of the data written or none
// (the connection closing first is a conformance case).
class ExtDyingOwner : public ExtPath, public ::testing::WithParamInterface<char const*> {};

TEST_P(ExtDyingOwner, GivesAnErrorNeverPartialData) {
  Process peer({peerProgram(), "ext", GetParam(), "application/x-big"},
               {compositor->waylandDisplayEnv()}, {});
  ASSERT_TRUE(waitForType(*ours, u"application/x-big"));
  try {
    auto const content = ours->read(u"application/x-big", PFClipboardMode::clipboard);
    ADD_FAILURE() << "the read returned "
                  << (content.index() == 4 ? std::get<4>(content).size() : 0) << " bytes";
  } catch (std::runtime_error const& e) {
    EXPECT_NE(std::string(e.what()).find("went away"), std::string::npos) << e.what();
  }
}

INSTANTIATE_TEST_SUITE_P(Deaths, ExtDyingOwner,
                         ::testing::Values("pipe-first-die-after=100000", "pipe-first-die-after=0"),
                         [](auto const& info) {
                           std::string name = info.param;
                           for (auto& c : name)
                             c = std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
                           return name;
                         });

TEST_F(ExtPath, AStalledPasteTargetIsDroppedWhileAnotherIsServed) {
  std::u16string const& text = bigText();
  auto data = std::make_unique<PFClipboardData>();
  data->addData(u"text/plain", text);
  ours->write(std::move(data), PFClipboardMode::clipboard);
  ASSERT_TRUE(waitForType(*other, u"text/plain"));

  // A paste target that asks and then reads nothing for longer than the send timeout.
  TempDir dir;
  auto const seconds =
      std::chrono::duration_cast<std::chrono::seconds>(options(*compositor).sendTimeout).count() +
      2;
  Process stalled({peerProgram(), "ext", "receive-stall=" + std::to_string(seconds),
                   "text/plain;charset=utf-8"},
                  {compositor->waylandDisplayEnv()}, {"/dev/null", dir.path() + "/count"});
  std::this_thread::sleep_for(300ms);
  expectText(other->read(u"text/plain", PFClipboardMode::clipboard), text);

  ASSERT_TRUE(stalled.wait(std::chrono::seconds(seconds + 10)).has_value());
  auto const count = std::stoull(readFile(dir.path() + "/count"));
  EXPECT_GT(count, 0u);
  EXPECT_LT(count, fl::i18n::ustring_to_utf8(text).size());
}

TEST(WaylandWlrVersionOne, ThePrimarySelectionIsAClearError) {
  TestCompositor compositor({"--wlr", "1"});
  PFWaylandClipboard backend(options(compositor));
  EXPECT_EQ(backend.protocolName(), "zwlr_data_control_manager_v1");
  EXPECT_FALSE(backend.hasPrimarySelection());
  auto data = std::make_unique<PFClipboardData>();
  data->addData(u"text/plain", std::u16string(u"x"));
  try {
    backend.write(std::move(data), PFClipboardMode::selection);
    FAIL() << "writing the primary selection did not throw";
  } catch (std::runtime_error const& e) {
    EXPECT_NE(std::string(e.what()).find("no primary selection"), std::string::npos) << e.what();
  }
  EXPECT_THROW(backend.read(u"text/plain", PFClipboardMode::selection), std::runtime_error);
  EXPECT_THROW(backend.availableMimeTypes(PFClipboardMode::selection), std::runtime_error);
  // The clipboard itself works.
  auto text = std::make_unique<PFClipboardData>();
  text->addData(u"text/plain", std::u16string(u"y"));
  backend.write(std::move(text), PFClipboardMode::clipboard);
  expectText(backend.read(u"text/plain", PFClipboardMode::clipboard), u"y");
}

TEST(WaylandWithoutDataControl, ConstructionSaysWhy) {
  TestCompositor compositor({});
  EXPECT_THROW(PFWaylandClipboard{options(compositor)}, pf::clipboard::PFWaylandUnavailable);
  auto const probe = pf::clipboard::probeWaylandDisplay(compositor.socket());
  EXPECT_TRUE(probe.connected);
  EXPECT_EQ(probe.dataControlGlobal, "");
}

TEST(WaylandWithoutDisplay, ConstructionThrows) {
  TempDir dir;
  auto o = pf::clipboard::PFWaylandClipboardOptions{};
  o.display = dir.path() + "/no-such-socket";
  EXPECT_THROW(PFWaylandClipboard{o}, std::runtime_error);
  EXPECT_FALSE(pf::clipboard::probeWaylandDisplay(o.display).connected);
}

}  // namespace
