// The Wayland backend against a real compositor, headless sway 1.7 (wlr-data-control version 2),
// with wl-copy and wl-paste as the other program.
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
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

std::u16string utf16(std::string const& text) {
  return fl::i18n::to_ustring(text);
}

class SwayInterop : public ::testing::Test {
 protected:
  void SetUp() override {
    try {
      sway = std::make_unique<Sway>();
    } catch (SwayUnavailable const& e) {
      GTEST_SKIP() << e.what();
    }
    backend = pf::clipboard::makeWaylandClipboard(options(*sway));
  }
  void TearDown() override {
    backend.reset();
    sway.reset();
  }

  // wl-copy in the foreground, owning the clipboard with `data`.
  std::unique_ptr<Process> copy(std::string const& data, std::vector<std::string> args) {
    auto const file = dir.file("copy-" + std::to_string(++copies), data);
    args.insert(args.begin(), {"wl-copy", "--foreground"});
    return std::make_unique<Process>(args, std::vector<std::string>{sway->waylandDisplayEnv()},
                                     Process::Io{file});
  }
  std::string paste(std::vector<std::string> args) {
    args.insert(args.begin(), {"wl-paste", "--no-newline"});
    auto const result = run(*sway, args);
    EXPECT_EQ(result.status, 0) << "wl-paste failed";
    return result.output;
  }
  // Waits until the clipboard of `mode` offers `mime` (wl-copy takes it asynchronously).
  bool waitForType(std::u16string const& mime, PFClipboardMode mode = PFClipboardMode::clipboard) {
    auto const end = std::chrono::steady_clock::now() + 10s;
    while (std::chrono::steady_clock::now() < end) {
      if (!backend->ownsSelection(mode)) {
        auto const types = backend->availableMimeTypes(mode);
        if (std::find(types.begin(), types.end(), mime) != types.end())
          return true;
      }
      std::this_thread::sleep_for(10ms);
    }
    return false;
  }
  void writeText(std::u16string const& mime, std::u16string const& text,
                 PFClipboardMode mode = PFClipboardMode::clipboard) {
    auto data = std::make_unique<PFClipboardData>();
    data->addData(mime, text);
    backend->write(std::move(data), mode);
  }

  std::unique_ptr<Sway> sway;
  std::shared_ptr<PFWaylandClipboard> backend;
  TempDir dir;
  int copies = 0;
};

struct TextCase {
  char const* name;
  std::size_t size;
};

void PrintTo(TextCase const& c, std::ostream* os) {
  *os << c.name;
}

class SwayText : public SwayInterop, public ::testing::WithParamInterface<TextCase> {};

TEST_P(SwayText, GoesBothWaysExactly) {
  std::string const text = GetParam().size == 0
                               ? std::string(
                                     "emoji \xf0\x9f\x98\x80, accents \xc3\xa9\xc3\xa8, "
                                     "CJK \xe4\xb8\xad\xe6\x96\x87")
                               : sampleText(GetParam().size);
  std::u16string const text16 = utf16(text);

  writeText(u"text/plain", text16);
  EXPECT_TRUE(paste({"--type", "text/plain"}) == text);
  EXPECT_TRUE(paste({"--type", "text/plain;charset=utf-8"}) == text);

  auto const owner = copy(text, {"--type", "text/plain"});
  ASSERT_TRUE(waitForType(u"text/plain"));
  auto const read = backend->read(u"text/plain", PFClipboardMode::clipboard);
  ASSERT_EQ(read.index(), 1u);
  EXPECT_EQ(std::get<1>(read).size(), text16.size());
  EXPECT_TRUE(std::get<1>(read) == text16);
}

INSTANTIATE_TEST_SUITE_P(Sizes, SwayText,
                         ::testing::Values(TextCase{"Emoji", 0}, TextCase{"OneMiB", 1u << 20},
                                           TextCase{"SixtyFourMiB", 64u << 20}),
                         [](auto const& info) { return std::string(info.param.name); });

TEST_F(SwayInterop, HtmlGoesBothWays) {
  std::string const html = "<p>caf\xc3\xa9 <b>bold</b> \xf0\x9f\x98\x80</p>";
  writeText(u"text/html", utf16(html));
  EXPECT_EQ(paste({"--list-types"}), "text/html\n");
  EXPECT_EQ(paste({"--type", "text/html"}), html);

  auto const owner = copy(html, {"--type", "text/html"});
  ASSERT_TRUE(waitForType(u"text/html"));
  auto const read = backend->read(u"text/html", PFClipboardMode::clipboard);
  ASSERT_EQ(read.index(), 1u);
  EXPECT_EQ(std::get<1>(read), utf16(html));
}

TEST_F(SwayInterop, PngGoesBothWaysAsItCame) {
  std::string const png = samplePng();
  auto data = std::make_unique<PFClipboardData>();
  data->addData(u"image/png", std::make_unique<pf::graphics::PFImage>(
                                  pf::graphics::PFImage::Format::png, bytesOf(png)));
  backend->write(std::move(data), PFClipboardMode::clipboard);
  EXPECT_TRUE(paste({"--type", "image/png"}) == png);

  auto const owner = copy(png, {"--type", "image/png"});
  ASSERT_TRUE(waitForType(u"image/png"));
  auto const read = backend->read(u"image/png", PFClipboardMode::clipboard);
  EXPECT_EQ(imageBytes(read), bytesOf(png));
}

TEST_F(SwayInterop, FileListsWithCut) {
  std::vector<Path> const paths = {Path(u"/tmp/space name/one.txt"), Path(u"/home/\u00fcser/two")};
  auto data = std::make_unique<PFClipboardData>();
  data->addData(u"text/uri-list", paths);
  data->setClipboardAction(PFClipboardAction::cut);
  backend->write(std::move(data), PFClipboardMode::clipboard);

  auto const types = paste({"--list-types"});
  EXPECT_NE(types.find("text/uri-list\n"), std::string::npos) << types;
  EXPECT_NE(types.find("x-special/gnome-copied-files\n"), std::string::npos) << types;
  std::string const uris = "file:///tmp/space%20name/one.txt\r\nfile:///home/%C3%BCser/two";
  EXPECT_EQ(paste({"--type", "text/uri-list"}).substr(0, uris.size()), uris);
  EXPECT_EQ(paste({"--type", "x-special/gnome-copied-files"}),
            "cut\n" + uris.substr(0, 32) + "\n" + uris.substr(34));

  auto const owner =
      copy("file:///srv/a%20b.txt\r\n# comment\r\nfile:///srv/c\r\n", {"--type", "text/uri-list"});
  ASSERT_TRUE(waitForType(u"text/uri-list"));
  auto const read = backend->read(u"text/uri-list", PFClipboardMode::clipboard);
  ASSERT_EQ(read.index(), 2u);
  EXPECT_EQ(std::get<2>(read), (std::vector<Path>{Path(u"/srv/a b.txt"), Path(u"/srv/c")}));
}

TEST_F(SwayInterop, PrimarySelectionGoesBothWaysApartFromTheClipboard) {
  ASSERT_TRUE(backend->hasPrimarySelection());
  writeText(u"text/plain", u"clipboard");
  writeText(u"text/plain", u"primary \u00e9", PFClipboardMode::selection);
  EXPECT_EQ(paste({"--primary"}), "primary \xc3\xa9");
  EXPECT_EQ(paste({}), "clipboard");

  auto const owner = copy("from wl-copy", {"--primary", "--type", "text/plain"});
  ASSERT_TRUE(waitForType(u"text/plain", PFClipboardMode::selection));
  auto const read = backend->read(u"text/plain", PFClipboardMode::selection);
  ASSERT_EQ(read.index(), 1u);
  EXPECT_EQ(std::get<1>(read), u"from wl-copy");
  EXPECT_TRUE(backend->ownsSelection(PFClipboardMode::clipboard));
}

TEST_F(SwayInterop, EveryChangeOfTheClipboardIsOneNotification) {
  Changes counter;
  auto const first = copy("one", {});
  ASSERT_TRUE(counter.waitFor(1, 5s));
  writeText(u"text/plain", u"ours");
  ASSERT_TRUE(counter.waitFor(2, 5s));
  auto const second = copy("two", {});
  ASSERT_TRUE(counter.waitFor(3, 5s));
  // The primary selection is no change of the clipboard.
  writeText(u"text/plain", u"primary", PFClipboardMode::selection);
  EXPECT_EQ(paste({"--primary"}), "primary");
  // Nothing more may follow: wait as long as a notification takes to arrive, with margin.
  std::this_thread::sleep_for(300ms);
  EXPECT_EQ(counter.count(), 3);
}

TEST_F(SwayInterop, AStoppedOwnerGivesAnErrorAndTheBackendGoesOn) {
  auto const owner = copy("never sent", {"--type", "text/plain"});
  ASSERT_TRUE(waitForType(u"text/plain"));
  owner->signalGroup(SIGSTOP);
  EXPECT_THROW(backend->read(u"text/plain", PFClipboardMode::clipboard), std::runtime_error);
  owner->signalGroup(SIGCONT);
  writeText(u"text/plain", u"still here");
  EXPECT_EQ(paste({}), "still here");
}

TEST_F(SwayInterop, AnOwnerKilledMidTransferGivesAnErrorNeverPartialData) {
  std::string const big(std::size_t{128} << 20, 'k');
  int errors = 0;
  for (int attempt = 0; attempt < 3 && errors == 0; ++attempt) {
    auto owner = copy(big, {"--type", "application/x-big"});
    ASSERT_TRUE(waitForType(u"application/x-big"));
    std::atomic<bool> threw{false};
    ClipboardContent read;
    std::thread reader([&] {
      try {
        read = backend->read(u"application/x-big", PFClipboardMode::clipboard);
      } catch (std::runtime_error const&) {
        threw = true;
      }
    });
    // wl-copy serves each paste from a helper process: once it exists, the transfer is on.
    auto const end = std::chrono::steady_clock::now() + 10s;
    while (childrenOf(owner->pid()).empty() && std::chrono::steady_clock::now() < end)
      std::this_thread::sleep_for(200us);
    // The helper stalls mid-transfer; then the owner dies, and its helper after it. A helper
    // caught before it runs `cat` still holds the owner's connection, so its death may end the
    // pipe before the compositor learns that the owner is gone.
    auto const helpers = childrenOf(owner->pid());
    for (auto const helper : helpers)
      ::kill(helper, SIGSTOP);
    std::this_thread::sleep_for(300ms);
    ::kill(owner->pid(), SIGKILL);
    owner->wait(5s);
    for (auto const helper : helpers)
      ::kill(helper, SIGKILL);
    reader.join();
    if (threw) {
      ++errors;
    } else {
      ASSERT_EQ(read.index(), 4u);
      EXPECT_EQ(std::get<4>(read).size(), big.size()) << "partial data returned";
    }
  }
  EXPECT_GT(errors, 0) << "the transfer always ended before the owner was killed";
}

TEST_F(SwayInterop, APasteTargetThatStopsReadingIsDroppedWhileAnotherIsServed) {
  std::string const text = sampleText(std::size_t{64} << 20);
  writeText(u"text/plain", utf16(text));

  // The stalled target: wl-paste writing into a FIFO that nobody reads.
  auto const fifo = dir.path() + "/stalled";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  int const fifoRead = ::open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  ASSERT_GE(fifoRead, 0);
  Process stalled({"wl-paste", "--no-newline"}, {sway->waylandDisplayEnv()},
                  Process::Io{"/dev/null", fifo});
  std::this_thread::sleep_for(200ms);

  EXPECT_TRUE(paste({}) == text);

  // Past the send timeout the stalled target is dropped: it gets an end of data, and much less
  // than the whole.
  std::this_thread::sleep_for(options(*sway).sendTimeout + 1s);
  std::size_t received = 0;
  auto const end = std::chrono::steady_clock::now() + 10s;
  char buffer[65536];
  while (std::chrono::steady_clock::now() < end) {
    auto const n = ::read(fifoRead, buffer, sizeof buffer);
    if (n > 0) {
      received += static_cast<std::size_t>(n);
    } else if (n == 0) {
      break;  // wl-paste closed its end: it finished
    } else {
      std::this_thread::sleep_for(5ms);
    }
  }
  ::close(fifoRead);
  EXPECT_TRUE(stalled.wait(5s).has_value());
  EXPECT_LT(received, text.size());
}

}  // namespace
