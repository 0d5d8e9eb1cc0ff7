// Owners that answer wrongly on purpose (x11_peer hostile), requestors that send bad MULTIPLE
// lists, and the clipboard manager kept away from secrets. Each gives a clear error or is
// ignored within the time limits, and the next read of a well-behaved owner works.
#include <gtest/gtest.h>

#include <cstring>

#include "platform/i18n.hpp"
#include "x11_fixture.hpp"

namespace {

using namespace x11_test;
using pf::clipboard::ClipboardContent;
using pf::clipboard::PFClipboardData;
using pf::clipboard::PFX11Clipboard;

enum class Call { listText, readText, readPng, readHtml };

struct HostileCase {
  char const* name;
  char const* peerCase;
  Call call;
  char const* error;  // a part of the exception's text; nullptr: no exception, nothing read
  std::vector<std::u16string> listed = {};
};

class HostileOwner : public X11Test, public ::testing::WithParamInterface<HostileCase> {};

TEST_P(HostileOwner, GivesAClearErrorOrNothingAndTheNextReadWorks) {
  auto const& c = GetParam();
  auto& peer = startOwner({peerProgram(), "hostile", c.peerCase}, PFClipboardMode::clipboard);
  auto o = options();
  o.firstReplyTimeout = 500ms;
  o.chunkTimeout = 500ms;
  o.maxTransferBytes = 4u << 20;
  auto backend = pf::clipboard::makeX11Clipboard(o);
  auto const started = std::chrono::steady_clock::now();
  try {
    switch (c.call) {
      case Call::listText:
        EXPECT_EQ(backend->availableMimeTypes(PFClipboardMode::clipboard), c.listed);
        break;
      case Call::readText:
        EXPECT_EQ(backend->read(u"text/plain", PFClipboardMode::clipboard).index(), 0u);
        break;
      case Call::readPng:
        EXPECT_EQ(backend->read(u"image/png", PFClipboardMode::clipboard).index(), 0u);
        break;
      case Call::readHtml:
        EXPECT_EQ(backend->read(u"text/html", PFClipboardMode::clipboard).index(), 0u);
        break;
    }
    EXPECT_EQ(c.error, nullptr) << "no exception";
  } catch (std::runtime_error const& error) {
    ASSERT_NE(c.error, nullptr) << error.what();
    EXPECT_NE(std::strstr(error.what(), c.error), nullptr) << error.what();
  }
  // Well within the read timeout: every case ends by a chunk or first-reply timeout at most.
  EXPECT_LT(std::chrono::steady_clock::now() - started, 10s);

  peer.stop();
  ASSERT_TRUE(raw->waitForOwner("CLIPBOARD", false));
  xclipOwner(PFClipboardMode::clipboard, "", "well behaved");
  EXPECT_EQ(backend->read(u"text/plain", PFClipboardMode::clipboard),
            ClipboardContent(std::u16string(u"well behaved")));
}

INSTANTIATE_TEST_SUITE_P(
    Cases, HostileOwner,
    ::testing::Values(
        HostileCase{"text_in_format_16", "format16", Call::readText, nullptr},
        HostileCase{"text_in_format_32", "format32", Call::readText, nullptr},
        HostileCase{"png_in_format_32", "format32", Call::readPng, nullptr},
        HostileCase{"another_type_than_asked", "wrong-type", Call::readText, nullptr},
        HostileCase{"png_of_another_type", "wrong-type", Call::readPng, nullptr},
        HostileCase{"targets_with_garbage_and_100000_entries",
                    "targets-garbage",
                    Call::listText,
                    nullptr,
                    {u"text/plain", u"text/html"}},
        HostileCase{"incr_announcing_1_gib_then_nothing", "incr-silent", Call::readText,
                    "stopped sending"},
        HostileCase{"incr_chunks_that_never_end", "incr-endless", Call::readHtml, "size limit"},
        HostileCase{"window_destroyed_mid_read", "incr-destroy", Call::readText, "went away"},
        HostileCase{"property_deleted_before_read", "deleted", Call::readText, nullptr},
        HostileCase{"notify_for_another_property", "other-property", Call::readText, nullptr},
        HostileCase{"notify_for_another_time", "other-time", Call::readText, "did not answer"}),
    [](auto const& info) { return std::string(info.param.name); });

TEST_F(X11Test, AFileListThatNeverComesStillLeavesTheTypesListed) {
  auto const file = dir.file("files", "cut\nfile:///x");
  auto& peer = peerOwner(PFClipboardMode::clipboard, {"--ignore", "x-special/gnome-copied-files",
                                                      "x-special/gnome-copied-files:" + file});
  auto o = options();
  o.firstReplyTimeout = 300ms;
  auto backend = pf::clipboard::makeX11Clipboard(o);
  // Whether the files are cut cannot be learnt, so no cut mark.
  EXPECT_EQ(backend->availableMimeTypes(PFClipboardMode::clipboard),
            (std::vector<std::u16string>{u"text/uri-list", u"x-special/gnome-copied-files"}));
  EXPECT_THROW(backend->read(u"text/uri-list", PFClipboardMode::clipboard), std::runtime_error);
  peer.stop();
  ASSERT_TRUE(raw->waitForOwner("CLIPBOARD", false));
  xclipOwner(PFClipboardMode::clipboard, "", "next");
  EXPECT_EQ(backend->read(u"text/plain", PFClipboardMode::clipboard),
            ClipboardContent(std::u16string(u"next")));
}

std::unique_ptr<PFClipboardData> text(std::u16string const& value) {
  auto data = std::make_unique<PFClipboardData>();
  data->addData(u"text/plain", value);
  return data;
}

TEST_F(X11Test, BadMultipleRequestsAreRefusedOrTrimmedAndServingGoesOn) {
  auto backend = pf::clipboard::makeX11Clipboard(options());
  backend->write(text(u"served"), PFClipboardMode::clipboard);
  auto const utf8 = raw->atom("UTF8_STRING");
  auto const multiple = raw->atom("MULTIPLE");

  // An odd count: the dangling target is ignored, the pair before it served.
  std::vector<std::uint32_t> odd = {utf8, raw->atom("_M1"), utf8};
  ASSERT_TRUE(raw->convert("CLIPBOARD", "MULTIPLE", "_MODD", &odd));
  EXPECT_EQ(raw->property("_M1").data, "served");

  // None as a property, MULTIPLE inside MULTIPLE and an atom that does not exist: refused pairs.
  std::vector<std::uint32_t> bad = {
      utf8, 0, multiple, raw->atom("_M2"), 0x1F0000F0u, raw->atom("_M3"), utf8, raw->atom("_M4")};
  auto const reply = raw->convert("CLIPBOARD", "MULTIPLE", "_MBAD", &bad);
  ASSERT_TRUE(reply);
  std::vector<std::uint32_t> back(reply->data.size() / 4);
  std::memcpy(back.data(), reply->data.data(), back.size() * 4);
  EXPECT_EQ(back, (std::vector<std::uint32_t>{utf8, 0, multiple, 0, 0x1F0000F0u, 0, utf8,
                                              raw->atom("_M4")}));
  EXPECT_EQ(raw->property("_M4").data, "served");

  // Thousands of pairs: refused whole.
  std::vector<std::uint32_t> many;
  for (int i = 0; i < 5000; ++i)
    many.insert(many.end(), {utf8, raw->atom("_MMANY")});
  EXPECT_FALSE(raw->convert("CLIPBOARD", "MULTIPLE", "_MLOTS", &many));

  EXPECT_EQ(xclipRead(PFClipboardMode::clipboard, "UTF8_STRING").output, "served");
  EXPECT_TRUE(backend->ownsSelection(PFClipboardMode::clipboard));
}

TEST_F(X11Test, ASecretIsNeverHandedToTheClipboardManager) {
  auto const saved = dir.path() + "/saved";
  Process manager({peerProgram(), "manager", saved}, {"/dev/null", dir.path() + "/manager.log"});
  ASSERT_TRUE(raw->waitForOwner("CLIPBOARD_MANAGER"));
  {
    auto backend = pf::clipboard::makeX11Clipboard(options());
    auto data = text(u"hunter2");
    data->addData(u"x-kde-passwordManagerHint", bytesOf("secret"));
    backend->write(std::move(data), PFClipboardMode::clipboard);
    // Listed for readers, so that a front end sees the mark.
    EXPECT_EQ(backend->availableMimeTypes(PFClipboardMode::clipboard),
              (std::vector<std::u16string>{u"text/plain", u"x-kde-passwordManagerHint"}));
  }
  // No SAVE_TARGETS came: the stand-in manager is still waiting for one, and saved nothing.
  EXPECT_EQ(manager.wait(1500ms), std::nullopt);
  EXPECT_TRUE(readFile(saved).empty());
  EXPECT_TRUE(raw->waitForOwner("CLIPBOARD", false));
}

}  // namespace
