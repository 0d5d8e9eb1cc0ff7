// Peers that misbehave, several threads at once, change events, MULTIPLE and TIMESTAMP, and the
// handover to a clipboard manager.
#include <gtest/gtest.h>

#include <signal.h>

#include <atomic>
#include <cstring>
#include <future>
#include <thread>

#include "platform/i18n.hpp"
#include "x11_fixture.hpp"

namespace {

using namespace x11_test;
using pf::clipboard::ClipboardContent;
using pf::clipboard::PFClipboardBackend;
using pf::clipboard::PFClipboardData;
using pf::clipboard::PFX11Clipboard;

std::unique_ptr<PFClipboardData> text(std::u16string const& value) {
  auto data = std::make_unique<PFClipboardData>();
  data->addData(u"text/plain", value);
  return data;
}

std::u16string textOf(ClipboardContent const& content) {
  return content.index() == 1 ? std::get<1>(content) : u"<not text>";
}

// --- Owners that do not behave -------------------------------------------------------------

struct StoppedCase {
  char const* name;
  std::function<void(PFX11Clipboard&)> call;
};

class StoppedOwner : public X11Test, public ::testing::WithParamInterface<StoppedCase> {};

TEST_P(StoppedOwner, CallsFailWithinTheTimeoutInsteadOfHanging) {
  auto& owner = xclipOwner(PFClipboardMode::clipboard, "", "frozen");
  owner.signal(SIGSTOP);
  auto o = options();
  o.firstReplyTimeout = 300ms;
  auto backend = pf::clipboard::makeX11Clipboard(o);
  try {
    GetParam().call(*backend);
    ADD_FAILURE() << "no exception";
  } catch (std::runtime_error const& error) {
    EXPECT_NE(std::strstr(error.what(), "did not answer"), nullptr) << error.what();
  }
  // xclip may die of the requests we gave up on; the backend itself goes on working.
  owner.stop();
  ASSERT_TRUE(raw->waitForOwner("CLIPBOARD", false));
  xclipOwner(PFClipboardMode::clipboard, "", "thawed");
  EXPECT_EQ(textOf(backend->read(u"text/plain", PFClipboardMode::clipboard)), u"thawed");
}

INSTANTIATE_TEST_SUITE_P(
    Calls, StoppedOwner,
    ::testing::Values(
        StoppedCase{"read_text",
                    [](PFX11Clipboard& b) { b.read(u"text/plain", PFClipboardMode::clipboard); }},
        StoppedCase{
            "read_bytes",
            [](PFX11Clipboard& b) { b.read(u"application/x-any", PFClipboardMode::clipboard); }},
        StoppedCase{"list",
                    [](PFX11Clipboard& b) { b.availableMimeTypes(PFClipboardMode::clipboard); }}),
    [](auto const& info) { return std::string(info.param.name); });

TEST_F(X11Test, AnOwnerThatStallsMidTransferGivesAnErrorAfterTheChunkTimeout) {
  auto const file = dir.file("big", std::string(8u << 20, 'y'));
  peerOwner(PFClipboardMode::clipboard, {"--chunk", "1048576", "--incr-above", "1048576",
                                         "--stall-after-chunks", "2", "UTF8_STRING:" + file});
  auto o = options();
  o.chunkTimeout = 300ms;
  auto backend = pf::clipboard::makeX11Clipboard(o);
  try {
    auto const content = backend->read(u"text/plain", PFClipboardMode::clipboard);
    ADD_FAILURE() << "read returned " << textOf(content).size() << " characters";
  } catch (std::runtime_error const& error) {
    EXPECT_NE(std::strstr(error.what(), "stopped sending"), nullptr) << error.what();
  }
}

TEST_F(X11Test, ASlowOwnerWithinTheTimeoutIsWaitedFor) {
  auto const file = dir.file("slow", "worth the wait");
  peerOwner(PFClipboardMode::clipboard, {"--delay-ms", "200", "UTF8_STRING:" + file});
  auto backend = pf::clipboard::makeX11Clipboard(options());
  EXPECT_EQ(textOf(backend->read(u"text/plain", PFClipboardMode::clipboard)), u"worth the wait");
}

// --- Text from owners that do not offer UTF8_STRING, or refuse it ---------------------------

struct DecodeCase {
  char const* name;
  std::vector<std::string> targets;  // TARGET[@TYPE] of the peer; the file follows
  std::string contents;
  std::vector<std::string> extra;  // more peer options
  char const* mime;
  ClipboardContent expected;
};

class PeerDecoding : public X11Test, public ::testing::WithParamInterface<DecodeCase> {};

TEST_P(PeerDecoding, FollowsWhatTheOwnerAnswers) {
  auto const& c = GetParam();
  auto const file = dir.file("contents", c.contents);
  std::vector<std::string> args = c.extra;
  for (auto const& target : c.targets)
    args.push_back(target + ":" + file);
  peerOwner(PFClipboardMode::clipboard, args);
  auto backend = pf::clipboard::makeX11Clipboard(options());
  EXPECT_EQ(backend->read(fl::i18n::to_ustring(c.mime), PFClipboardMode::clipboard), c.expected);
}

INSTANTIATE_TEST_SUITE_P(Owners, PeerDecoding,
                         ::testing::Values(DecodeCase{"string_only_is_latin1",
                                                      {"STRING"},
                                                      "caf\xE9",
                                                      {},
                                                      "text/plain",
                                                      std::u16string(u"caf\u00e9")},
                                           DecodeCase{"refused_utf8_falls_back",
                                                      {"UTF8_STRING", "text/plain;charset=utf-8"},
                                                      "\xE2\x98\x83",
                                                      {"--refuse", "UTF8_STRING"},
                                                      "text/plain",
                                                      std::u16string(u"\u2603")},
                                           DecodeCase{"utf8_answered_as_string",
                                                      {"UTF8_STRING@STRING"},
                                                      "\xE9",
                                                      {},
                                                      "text/plain",
                                                      std::u16string(u"\u00e9")},
                                           DecodeCase{"png_answered_as_text",
                                                      {"image/png@UTF8_STRING"},
                                                      "not a png",
                                                      {},
                                                      "image/png",
                                                      ClipboardContent{}},
                                           DecodeCase{"bytes_of_another_type",
                                                      {"application/x-a@application/x-b"},
                                                      "b",
                                                      {},
                                                      "application/x-a",
                                                      ClipboardContent{}},
                                           DecodeCase{"bytes_as_they_are",
                                                      {"application/x-a"},
                                                      std::string("\0\xFF", 2),
                                                      {},
                                                      "application/x-a",
                                                      bytesOf(std::string("\0\xFF", 2))},
                                           DecodeCase{"html_answered_with_a_charset",
                                                      {"text/html@text/html;charset=utf-16be"},
                                                      std::string("\0<\0b\0>", 6),
                                                      {},
                                                      "text/html",
                                                      std::u16string(u"<b>")},
                                           DecodeCase{"html_answered_as_other_text",
                                                      {"text/html@text/plain"},
                                                      "<b>",
                                                      {},
                                                      "text/html",
                                                      ClipboardContent{}},
                                           DecodeCase{"markup_is_no_plain_text",
                                                      {"UTF8_STRING@text/html"},
                                                      "<b>",
                                                      {},
                                                      "text/plain",
                                                      ClipboardContent{}},
                                           DecodeCase{"nothing_readable",
                                                      {"image/png"},
                                                      "png",
                                                      {"--refuse", "image/png"},
                                                      "text/plain",
                                                      ClipboardContent{}}),
                         [](auto const& info) { return std::string(info.param.name); });

TEST_F(X11Test, ListingCollapsesTextAndDropsMetaTargets) {
  auto const file = dir.file("any", "x");
  peerOwner(
      PFClipboardMode::clipboard,
      {"image/png:" + file, "UTF8_STRING:" + file, "DELETE:" + file, "STRING:" + file,
       "text/html:" + file, "INCR:" + file, "text/plain;charset=utf-8:" + file, "PIXMAP:" + file});
  auto backend = pf::clipboard::makeX11Clipboard(options());
  EXPECT_EQ(backend->availableMimeTypes(PFClipboardMode::clipboard),
            (std::vector<std::u16string>{u"image/png", u"text/plain", u"text/html"}));
}

TEST_F(X11Test, NoOwnerMeansNothingToListOrRead) {
  auto backend = pf::clipboard::makeX11Clipboard(options());
  for (auto mode : {PFClipboardMode::clipboard, PFClipboardMode::selection}) {
    EXPECT_TRUE(backend->availableMimeTypes(mode).empty());
    EXPECT_EQ(backend->read(u"text/plain", mode).index(), 0u);
  }
}

TEST(X11Display, AnUnreachableDisplayFailsConstruction) {
  auto o = options();
  o.display = ":9999";
  EXPECT_THROW(pf::clipboard::makeX11Clipboard(o), std::runtime_error);
}

// --- Requestors that misbehave, while we own ------------------------------------------------

TEST_F(X11Test, AStalledRequestorDoesNotBlockOthersAndIsDropped) {
  std::string const big(20u << 20, 'z');
  auto o = options();
  o.ownerChunkTimeout = 500ms;
  auto backend = pf::clipboard::makeX11Clipboard(o);
  backend->write(text(fl::i18n::to_ustring(big)), PFClipboardMode::clipboard);

  auto staller = std::make_unique<RawClient>();
  ASSERT_TRUE(staller->startIncrAndStall("CLIPBOARD", "UTF8_STRING"));
  auto const second = xclipRead(PFClipboardMode::clipboard, "UTF8_STRING");
  EXPECT_EQ(second.status, 0);
  EXPECT_TRUE(second.output == big);

  // The staller vanishes mid-transfer: BadWindow for our next chunk must not hurt.
  staller.reset();
  auto const third = xclipRead(PFClipboardMode::clipboard, "UTF8_STRING");
  EXPECT_TRUE(third.output == big);
  EXPECT_TRUE(backend->ownsSelection(PFClipboardMode::clipboard));
}

TEST_F(X11Test, AStoppedXclipReaderDoesNotBlockOthers) {
  std::string const big(20u << 20, 'q');
  auto backend = pf::clipboard::makeX11Clipboard(options());
  backend->write(text(fl::i18n::to_ustring(big)), PFClipboardMode::clipboard);
  Process stalled({"xclip", "-selection", "clipboard", "-o"},
                  {"/dev/null", dir.path() + "/stalled"});
  std::this_thread::sleep_for(50ms);
  stalled.signal(SIGSTOP);
  auto const other = xclipRead(PFClipboardMode::clipboard, "UTF8_STRING");
  EXPECT_TRUE(other.output == big);
  stalled.signal(SIGKILL);
  stalled.wait(5000ms);
  EXPECT_TRUE(xclipRead(PFClipboardMode::clipboard, "UTF8_STRING").output == big);
}

// --- Our own targets on the wire: TIMESTAMP, MULTIPLE, SAVE_TARGETS, refusals --------------

TEST_F(X11Test, TimestampIsTheTimeOfOwnership) {
  auto backend = pf::clipboard::makeX11Clipboard(options());
  backend->write(text(u"t"), PFClipboardMode::clipboard);
  auto const reply = raw->convert("CLIPBOARD", "TIMESTAMP", "_TS");
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->type, "INTEGER");
  ASSERT_EQ(reply->data.size(), 4u);
  std::uint32_t time = 0;
  std::memcpy(&time, reply->data.data(), 4);
  EXPECT_NE(time, 0u);
  // A request stamped before that time is refused.
  EXPECT_FALSE(raw->convert("CLIPBOARD", "UTF8_STRING", "_OLD", nullptr, 2000ms, time - 1));
  EXPECT_TRUE(raw->convert("CLIPBOARD", "UTF8_STRING", "_NEW", nullptr, 2000ms, time));
}

TEST_F(X11Test, MultipleConvertsEachPairAndMarksRefusals) {
  auto backend = pf::clipboard::makeX11Clipboard(options());
  auto data = text(u"multi");
  data->addData(u"application/x-big", bytesOf(std::string(300000, 'b')));
  backend->write(std::move(data), PFClipboardMode::clipboard);
  std::vector<std::uint32_t> const pairs = {
      raw->atom("UTF8_STRING"),
      raw->atom("_P1"),  // served
      raw->atom("image/png"),
      raw->atom("_P2"),  // not ours
      raw->atom("STRING"),
      raw->atom("_P3"),  // served
      raw->atom("application/x-big"),
      raw->atom("_P4"),  // below the server's threshold
  };
  auto const reply = raw->convert("CLIPBOARD", "MULTIPLE", "_PAIRS", &pairs);
  ASSERT_TRUE(reply);
  EXPECT_EQ(raw->property("_P1").data, "multi");
  EXPECT_EQ(raw->property("_P3").data, "multi");
  EXPECT_EQ(raw->property("_P2").type, "");
  EXPECT_EQ(raw->property("_P4").data.size(), 300000u);
  // The pair list comes back with None where a pair was refused.
  std::vector<std::uint32_t> back(reply->data.size() / 4);
  std::memcpy(back.data(), reply->data.data(), back.size() * 4);
  ASSERT_EQ(back.size(), pairs.size());
  EXPECT_EQ(back[1], pairs[1]);
  EXPECT_EQ(back[3], 0u);
  EXPECT_EQ(back[5], pairs[5]);
  EXPECT_EQ(back[7], pairs[7]);
}

TEST_F(X11Test, MultipleRefusesBigTargetsWithASmallThreshold) {
  auto o = options();
  o.incrThresholdBytes = 1000;
  auto backend = pf::clipboard::makeX11Clipboard(o);
  auto data = text(u"small");
  data->addData(u"application/x-big", bytesOf(std::string(5000, 'b')));
  backend->write(std::move(data), PFClipboardMode::clipboard);
  std::vector<std::uint32_t> const pairs = {raw->atom("UTF8_STRING"), raw->atom("_Q1"),
                                            raw->atom("application/x-big"), raw->atom("_Q2")};
  auto const reply = raw->convert("CLIPBOARD", "MULTIPLE", "_QPAIRS", &pairs);
  ASSERT_TRUE(reply);
  std::vector<std::uint32_t> back(reply->data.size() / 4);
  std::memcpy(back.data(), reply->data.data(), back.size() * 4);
  EXPECT_EQ(back, (std::vector<std::uint32_t>{pairs[0], pairs[1], pairs[2], 0u}));
  EXPECT_EQ(raw->property("_Q1").data, "small");
}

TEST_F(X11Test, SaveTargetsIsAnsweredWithAnEmptyNullProperty) {
  auto backend = pf::clipboard::makeX11Clipboard(options());
  backend->write(text(u"s"), PFClipboardMode::clipboard);
  auto const reply = raw->convert("CLIPBOARD", "SAVE_TARGETS", "_SAVE");
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->type, "NULL");
  EXPECT_TRUE(reply->data.empty());
}

// --- Our own selection read through X by a second backend ----------------------------------

struct ThroughXCase {
  char const* name;
  std::size_t threshold;  // 0: the server's
};

class ReadOurOwnThroughX : public X11Test, public ::testing::WithParamInterface<ThroughXCase> {};

TEST_P(ReadOurOwnThroughX, EveryKindComesBackAsWritten) {
  auto o = options();
  o.incrThresholdBytes = GetParam().threshold;
  o.incrChunkBytes = 4096;
  auto writer = pf::clipboard::makeX11Clipboard(o);
  auto readerOptions = options();
  readerOptions.emitChangeEvents = false;
  auto reader = pf::clipboard::makeX11Clipboard(readerOptions);

  std::u16string const longText(300000, u'\u00e9');
  std::vector<pf::clipboard::Path> const paths = {pf::clipboard::Path(u"/a b"),
                                                  pf::clipboard::Path(u"/\U0001F4C1")};
  auto const png = samplePng();
  std::u16string const html = u"<p>" + std::u16string(2000, u'\u2603') + u"</p>";
  auto data = text(longText);
  data->addData(u"text/html", html);
  data->addData(u"text/uri-list", paths);
  data->addData(u"image/png", std::make_unique<pf::graphics::PFImage>(
                                  pf::graphics::PFImage::Format::png, bytesOf(png)));
  data->addData(u"application/x-raw", bytesOf(std::string(70000, '\x01')));
  writer->write(std::move(data), PFClipboardMode::selection);

  EXPECT_EQ(reader->availableMimeTypes(PFClipboardMode::selection),
            (std::vector<std::u16string>{u"text/plain", u"text/html", u"text/uri-list",
                                         u"x-special/gnome-copied-files", u"image/png",
                                         u"application/x-raw"}));
  EXPECT_EQ(textOf(reader->read(u"text/plain", PFClipboardMode::selection)), longText);
  EXPECT_EQ(textOf(reader->read(u"text/html", PFClipboardMode::selection)), html);
  EXPECT_EQ(textOf(writer->read(u"TEXT/HTML", PFClipboardMode::selection)), html);
  // A text type nobody wrote is not the plain text under another name.
  EXPECT_EQ(reader->read(u"text/csv", PFClipboardMode::selection).index(), 0u);
  EXPECT_EQ(writer->read(u"text/csv", PFClipboardMode::selection).index(), 0u);
  EXPECT_EQ(reader->read(u"text/uri-list", PFClipboardMode::selection), ClipboardContent(paths));
  auto const image = reader->read(u"image/png", PFClipboardMode::selection);
  ASSERT_EQ(image.index(), 3u);
  EXPECT_EQ(stringOf(std::get<3>(image)->encode(pf::graphics::kEncodePng, 0, {})->bytes), png);
  EXPECT_EQ(reader->read(u"application/x-raw", PFClipboardMode::selection),
            ClipboardContent(bytesOf(std::string(70000, '\x01'))));
}

INSTANTIATE_TEST_SUITE_P(Thresholds, ReadOurOwnThroughX,
                         ::testing::Values(ThroughXCase{"single_property", 0},
                                           ThroughXCase{"incr", 1024}),
                         [](auto const& info) { return std::string(info.param.name); });

TEST_F(X11Test, AReadOverTheSizeLimitFailsWhole) {
  auto const file = dir.file("big", std::string(3u << 20, 'x'));
  peerOwner(PFClipboardMode::clipboard,
            {"--chunk", "65536", "--incr-above", "65536", "UTF8_STRING:" + file});
  auto o = options();
  o.maxTransferBytes = 1u << 20;
  auto backend = pf::clipboard::makeX11Clipboard(o);
  EXPECT_THROW(backend->read(u"text/plain", PFClipboardMode::clipboard), std::runtime_error);
}

// --- Threads --------------------------------------------------------------------------------

TEST_F(X11Test, SeveralThreadsReadFromAnotherOwnerAtOnce) {
  std::string const contents(200000, 'm');
  xclipOwner(PFClipboardMode::clipboard, "", contents);
  auto backend = pf::clipboard::makeX11Clipboard(options());
  std::atomic<int> good{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 10; ++i) {
        try {
          auto const content = backend->read(u"text/plain", PFClipboardMode::clipboard);
          if (content.index() == 1 && std::get<1>(content).size() == contents.size())
            ++good;
        } catch (std::exception const&) {
        }
      }
    });
  }
  for (auto& thread : threads)
    thread.join();
  EXPECT_EQ(good.load(), 40);
}

TEST_F(X11Test, AListenerMayReadThroughXWhileWeOwn) {
  // The installed backend owns; the listener reads through X with a second backend, which only
  // works if notifications do not run on the thread that serves our selection.
  auto owner = pf::clipboard::makeX11Clipboard(options());
  auto readerOptions = options();
  readerOptions.emitChangeEvents = false;
  auto reader = pf::clipboard::makeX11Clipboard(readerOptions);
  std::promise<std::u16string> seen;
  std::atomic<bool> once{false};
  auto registration = std::make_unique<pf::event::PFEventRegistration>(
      pf::event::PFSignalLocator::Instance()
          .containerOf(pf::event::PFServiceType::clipboard)
          .connect(pf::event::kClipboardChanged, [&] {
            if (once.exchange(true))
              return;
            try {
              seen.set_value(textOf(reader->read(u"text/plain", PFClipboardMode::clipboard)));
            } catch (...) {
              seen.set_exception(std::current_exception());
            }
          }));
  owner->write(text(u"from the listener"), PFClipboardMode::clipboard);
  auto future = seen.get_future();
  ASSERT_EQ(future.wait_for(10s), std::future_status::ready);
  EXPECT_EQ(future.get(), u"from the listener");
  registration->unregister();
}

TEST_F(X11Test, AListenerMayListOurOwnBackend) {
  auto backend = pf::clipboard::makeX11Clipboard(options());
  std::promise<std::vector<std::u16string>> seen;
  std::atomic<bool> once{false};
  auto registration = std::make_unique<pf::event::PFEventRegistration>(
      pf::event::PFSignalLocator::Instance()
          .containerOf(pf::event::PFServiceType::clipboard)
          .connect(pf::event::kClipboardChanged, [&] {
            if (!once.exchange(true))
              seen.set_value(backend->availableMimeTypes(PFClipboardMode::clipboard));
          }));
  xclipOwner(PFClipboardMode::clipboard, "text/html", "<b>x</b>");
  auto future = seen.get_future();
  ASSERT_EQ(future.wait_for(10s), std::future_status::ready);
  EXPECT_EQ(future.get(), std::vector<std::u16string>{u"text/html"});
  registration->unregister();
}

// --- Change events --------------------------------------------------------------------------

TEST_F(X11Test, ChangesOfTheClipboardAreSignalled) {
  Changes changes;
  auto backend = pf::clipboard::makeX11Clipboard(options());
  xclipOwner(PFClipboardMode::clipboard, "", "one");
  EXPECT_TRUE(changes.waitFor(1));
  // xsel -c leaves the clipboard without an owner.
  EXPECT_EQ(run({"xsel", "-b", "-c"}).status, 0);
  EXPECT_TRUE(changes.waitFor(2));
  // An owner that dies takes the clipboard with it.
  xclipOwner(PFClipboardMode::clipboard, "", "two");
  EXPECT_TRUE(changes.waitFor(3));
  owners.back()->signal(SIGKILL);
  EXPECT_TRUE(changes.waitFor(4));
  backend->write(text(u"ours"), PFClipboardMode::clipboard);
  EXPECT_TRUE(changes.waitFor(5));
}

TEST_F(X11Test, PrimaryChangesReachTheHookButNotTheClipboardEvent) {
  Changes changes;
  std::promise<int> hookCount;
  std::atomic<int> calls{0};
  auto o = options();
  o.onSelectionChanged = [&](PFClipboardMode mode) {
    if (mode == PFClipboardMode::selection && calls++ == 0)
      hookCount.set_value(changes.count());
  };
  auto backend = pf::clipboard::makeX11Clipboard(o);
  xclipOwner(PFClipboardMode::selection, "", "primary");
  auto future = hookCount.get_future();
  ASSERT_EQ(future.wait_for(10s), std::future_status::ready);
  // Deliveries are in order, so a clipboard event for this change would have come first.
  EXPECT_EQ(future.get(), 0);
}

TEST_F(X11Test, LosingTheSelectionHandsReadsToTheNewOwner) {
  auto backend = pf::clipboard::makeX11Clipboard(options());
  backend->write(text(u"ours"), PFClipboardMode::clipboard);
  EXPECT_TRUE(backend->ownsSelection(PFClipboardMode::clipboard));
  owners.push_back(
      std::make_unique<Process>(std::vector<std::string>{"xclip", "-selection", "clipboard", "-i",
                                                         "-quiet", dir.file("theirs", "theirs")},
                                Process::Io{"/dev/null", dir.path() + "/xclip.log"}));
  auto const end = std::chrono::steady_clock::now() + 5s;
  while (backend->ownsSelection(PFClipboardMode::clipboard) &&
         std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(5ms);
  }
  EXPECT_FALSE(backend->ownsSelection(PFClipboardMode::clipboard));
  EXPECT_EQ(textOf(backend->read(u"text/plain", PFClipboardMode::clipboard)), u"theirs");
}

TEST(X11ServerLoss, CallsFailInsteadOfHangingWhenTheServerGoesAway) {
  XServer server;
  auto o = options();
  o.display = server.display();
  auto backend = pf::clipboard::makeX11Clipboard(o);
  backend->write(text(u"before"), PFClipboardMode::clipboard);
  server.kill();
  EXPECT_THROW(backend->read(u"text/plain", PFClipboardMode::selection), std::runtime_error);
  EXPECT_THROW(backend->availableMimeTypes(PFClipboardMode::selection), std::runtime_error);
  EXPECT_THROW(backend->write(text(u"after"), PFClipboardMode::clipboard), std::runtime_error);
  // The event thread noticed as well: we no longer claim the selection.
  auto const end = std::chrono::steady_clock::now() + 5s;
  while (backend->ownsSelection(PFClipboardMode::clipboard) &&
         std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(5ms);
  }
  EXPECT_FALSE(backend->ownsSelection(PFClipboardMode::clipboard));
}

// --- Shutdown -------------------------------------------------------------------------------

TEST_F(X11Test, AClipboardManagerGetsOurClipboardOnShutdown) {
  auto const saved = dir.path() + "/saved";
  Process manager({peerProgram(), "manager", saved}, {"/dev/null", dir.path() + "/manager.log"});
  ASSERT_TRUE(raw->waitForOwner("CLIPBOARD_MANAGER"));
  {
    auto backend = pf::clipboard::makeX11Clipboard(options());
    backend->write(text(u"keep me \u2603"), PFClipboardMode::clipboard);
  }
  EXPECT_EQ(manager.wait(5000ms), 0);
  EXPECT_EQ(readFile(saved), "keep me \xE2\x98\x83");
}

TEST_F(X11Test, WithoutAManagerShutdownJustReleasesTheSelection) {
  {
    auto backend = pf::clipboard::makeX11Clipboard(options());
    backend->write(text(u"gone"), PFClipboardMode::clipboard);
    EXPECT_NE(raw->owner("CLIPBOARD"), 0u);
  }
  EXPECT_TRUE(raw->waitForOwner("CLIPBOARD", false));
}

}  // namespace
