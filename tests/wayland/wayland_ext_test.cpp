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
using pf::clipboard::Path;
using pf::clipboard::PFClipboardAction;
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

// One content written by one instance, read by the other, in both directions.
struct ContentCase {
  char const* name;
  std::function<void(PFClipboardData&)> fill;
  std::u16string mime;
  std::function<void(ClipboardContent const&)> check;
};

void PrintTo(ContentCase const& c, std::ostream* os) {
  *os << c.name;
}

class ExtContent : public ExtPath, public ::testing::WithParamInterface<ContentCase> {};

TEST_P(ExtContent, TravelsBothWays) {
  auto const& c = GetParam();
  for (auto const& [writer, reader] :
       {std::make_pair(ours.get(), other.get()), std::make_pair(other.get(), ours.get())}) {
    auto data = std::make_unique<PFClipboardData>();
    c.fill(*data);
    writer->write(std::move(data), PFClipboardMode::clipboard);
    ASSERT_TRUE(waitForType(*reader, c.mime));
    c.check(reader->read(c.mime, PFClipboardMode::clipboard));
  }
}

std::u16string const kEmoji = u"emoji \U0001F600, accents \u00e9\u00e8, CJK \u4e2d\u6587";

void expectText(ClipboardContent const& content, std::u16string const& text) {
  ASSERT_EQ(content.index(), 1u);
  EXPECT_EQ(std::get<1>(content).size(), text.size());
  EXPECT_TRUE(std::get<1>(content) == text);
}

std::u16string const& bigText() {
  static std::u16string const text = fl::i18n::to_ustring(sampleText(std::size_t{64} << 20));
  return text;
}

INSTANTIATE_TEST_SUITE_P(
    Contents, ExtContent,
    ::testing::Values(
        ContentCase{"EmojiText", [](PFClipboardData& d) { d.addData(u"text/plain", kEmoji); },
                    u"text/plain", [](ClipboardContent const& c) { expectText(c, kEmoji); }},
        ContentCase{"SixtyFourMiBText",
                    [](PFClipboardData& d) { d.addData(u"text/plain", bigText()); }, u"text/plain",
                    [](ClipboardContent const& c) { expectText(c, bigText()); }},
        ContentCase{"Html",
                    [](PFClipboardData& d) {
                      d.addData(u"text/html", std::u16string(u"<b>caf\u00e9</b>"));
                    },
                    u"text/html",
                    [](ClipboardContent const& c) { expectText(c, u"<b>caf\u00e9</b>"); }},
        ContentCase{
            "Png",
            [](PFClipboardData& d) {
              d.addData(u"image/png",
                        std::make_unique<pf::graphics::PFImage>(pf::graphics::PFImage::Format::png,
                                                                bytesOf(samplePng())));
            },
            u"image/png",
            [](ClipboardContent const& c) { EXPECT_EQ(imageBytes(c), bytesOf(samplePng())); }},
        ContentCase{
            "FileListCut",
            [](PFClipboardData& d) {
              d.addData(u"text/uri-list", std::vector<Path>{Path(u"/tmp/a b"), Path(u"/c")});
              d.setClipboardAction(PFClipboardAction::cut);
            },
            u"x-special/gnome-copied-files",
            [](ClipboardContent const& c) {
              ASSERT_EQ(c.index(), 4u);
              EXPECT_EQ(stringOf(std::get<4>(c)), "cut\nfile:///tmp/a%20b\nfile:///c");
            }},
        ContentCase{
            "FileListAsPaths",
            [](PFClipboardData& d) {
              d.addData(u"text/uri-list", std::vector<Path>{Path(u"/tmp/a b"), Path(u"/c")});
            },
            u"text/uri-list",
            [](ClipboardContent const& c) {
              ASSERT_EQ(c.index(), 2u);
              EXPECT_EQ(std::get<2>(c), (std::vector<Path>{Path(u"/tmp/a b"), Path(u"/c")}));
            }}),
    [](auto const& info) { return std::string(info.param.name); });

TEST_F(ExtPath, PrimarySelectionIsApartFromTheClipboard) {
  auto data = std::make_unique<PFClipboardData>();
  data->addData(u"text/plain", std::u16string(u"primary"));
  other->write(std::move(data), PFClipboardMode::selection);
  ASSERT_TRUE(waitForType(*ours, u"text/plain", PFClipboardMode::selection));
  expectText(ours->read(u"text/plain", PFClipboardMode::selection), u"primary");
  EXPECT_TRUE(ours->availableMimeTypes(PFClipboardMode::clipboard).empty());
}

TEST_F(ExtPath, EveryChangeIsOneNotificationOursIncluded) {
  Changes counter;
  for (int i = 0; i < 3; ++i) {
    auto data = std::make_unique<PFClipboardData>();
    data->addData(u"text/plain", std::u16string(u"change"));
    (i % 2 ? ours : other)->write(std::move(data), PFClipboardMode::clipboard);
    ASSERT_TRUE(counter.waitFor(i + 1, 5s));
  }
  auto data = std::make_unique<PFClipboardData>();
  data->addData(u"text/plain", std::u16string(u"primary"));
  other->write(std::move(data), PFClipboardMode::selection);
  ASSERT_TRUE(waitForType(*ours, u"text/plain", PFClipboardMode::selection));
  std::this_thread::sleep_for(300ms);
  EXPECT_EQ(counter.count(), 3);
}

TEST_F(ExtPath, AStalledOwnerGivesAnError) {
  Process peer({peerProgram(), "ext", "stall", "text/plain"}, {compositor->waylandDisplayEnv()},
               {});
  ASSERT_TRUE(waitForType(*ours, u"text/plain"));
  EXPECT_THROW(ours->read(u"text/plain", PFClipboardMode::clipboard), std::runtime_error);
}

// Owners that die mid-transfer, by how they die: the connection first, or the pipe well before
// the connection; with part of the data written or none.
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
                         ::testing::Values("die-after=100000", "pipe-first-die-after=100000",
                                           "pipe-first-die-after=0"),
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
