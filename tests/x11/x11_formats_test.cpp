// Real programs that offer several types at once (Qt, through python3-pyqt5) and a real
// clipboard manager (xfce4-clipman) kept away from secrets. What an owner of one type alone
// gets derived is a conformance case.
#include <gtest/gtest.h>

#include <thread>

#include "clipboard/clipboard_impl.hpp"
#include "platform/codec/png.hpp"
#include "platform/i18n.hpp"
#include "support/image_samples.hpp"
#include "x11_fixture.hpp"

namespace {

using namespace x11_test;
using pf::clipboard::ClipboardContent;
using pf::clipboard::Path;
using pf::clipboard::PFClipboardData;
using Types = std::vector<std::u16string>;

std::vector<std::byte> cutMark() {
  return {std::byte{'1'}};
}

// The pixels of an image content, through its PNG.
pf::graphics::codec::RgbaPixels pixelsOf(ClipboardContent const& content) {
  auto const png = std::get<3>(content)->encode(pf::graphics::kEncodePng, 0, {});
  return pf::graphics::codec::png_decode_rgba(png->bytes.data(), png->bytes.size());
}

// A Qt program offering several types at once; PyQt5 on our display (Debian's python3, which
// has the python3-pyqt5 package, whatever python3 comes first on PATH).
class QtOwner : public X11Test {
 protected:
  // `items`: pairs of mime type and file holding its bytes.
  void offer(std::vector<std::pair<std::string, std::string>> const& items) {
    std::string script =
        "import sys\n"
        "from PyQt5.QtCore import QMimeData, QByteArray\n"
        "from PyQt5.QtWidgets import QApplication\n"
        "app = QApplication(sys.argv)\n"
        "data = QMimeData()\n";
    for (auto const& [type, file] : items) {
      script += "data.setData('" + type + "', QByteArray(open('" + file + "', 'rb').read()))\n";
    }
    script += "app.clipboard().setMimeData(data)\napp.exec_()\n";
    startOwner({"env", "QT_QPA_PLATFORM=xcb", "NO_AT_BRIDGE=1", "/usr/bin/python3",
                dir.file("qt_owner.py", script)},
               PFClipboardMode::clipboard);
  }
};

TEST_F(QtOwner, FilesCutTheKdeWayAreListedWithAUriList) {
  offer({{"application/x-kde4-urilist", dir.file("uris", "file:///srv/x%20y\r\n")},
         {"application/x-kde-cutselection", dir.file("cut", "1")}});
  auto backend = pf::clipboard::makeX11Clipboard(options());
  auto const listed = backend->availableMimeTypes(PFClipboardMode::clipboard);
  for (auto const* type :
       {u"text/uri-list", u"application/x-kde4-urilist", u"application/x-kde-cutselection"}) {
    EXPECT_NE(std::find(listed.begin(), listed.end(), type), listed.end())
        << fl::i18n::ustring_to_utf8(type);
  }
  EXPECT_EQ(backend->read(u"text/uri-list", PFClipboardMode::clipboard),
            ClipboardContent(std::vector<Path>{Path(u"/srv/x y")}));
  EXPECT_EQ(backend->read(u"application/x-kde-cutselection", PFClipboardMode::clipboard),
            ClipboardContent(cutMark()));
}

TEST_F(QtOwner, PngIsMadeFromTheLosslessFormatWhenSeveralAreOffered) {
  auto const original = test_images::pattern(21, 9);
  offer({{"image/jpeg", dir.file("j", test_images::jpeg(test_images::halves(4, 4, 0, 0), 50))},
         {"image/bmp", dir.file("b", test_images::bmp24(original))}});
  auto backend = pf::clipboard::makeX11Clipboard(options());
  auto const listed = backend->availableMimeTypes(PFClipboardMode::clipboard);
  auto const png = std::find(listed.begin(), listed.end(), u"image/png");
  ASSERT_NE(png, listed.end());
  EXPECT_EQ(*(png + 1), u"image/bmp");  // listed beside what it is made from
  auto const content = backend->read(u"image/png", PFClipboardMode::clipboard);
  ASSERT_EQ(content.index(), 3u);
  EXPECT_EQ(pixelsOf(content).rgba, original.rgba);
}

// --- Secrets and the clipboard manager ------------------------------------------------------

// xfce4-clipman in a D-Bus session of its own, its settings and history in our scratch folder.
class WithClipman : public X11Test {
 protected:
  void SetUp() override {
    X11Test::SetUp();
    auto const home = dir.path() + "/home";
    clipman_ = std::make_unique<Process>(
        std::vector<std::string>{
            "env", "NO_AT_BRIDGE=1", "HOME=" + home, "XDG_CONFIG_HOME=" + home + "/config",
            "XDG_CACHE_HOME=" + home + "/cache", "XDG_DATA_HOME=" + home + "/data",
            "dbus-run-session", "--", "xfce4-clipman"},
        Process::Io{"/dev/null", dir.path() + "/clipman.log"});
    ASSERT_TRUE(raw->waitForOwner("CLIPBOARD_MANAGER", true, 15000ms))
        << readFile(dir.path() + "/clipman.log");
  }
  void TearDown() override {
    if (clipman_)
      clipman_->stopGroup();
  }

  // The clipboard's text as xclip reads it once somebody owns it again (up to 5 s).
  std::string textAfterwards() {
    if (!raw->waitForOwner("CLIPBOARD", true, 5000ms))
      return {};
    // The manager may still be taking over.
    std::this_thread::sleep_for(300ms);
    return xclipRead(PFClipboardMode::clipboard, "UTF8_STRING").output;
  }

  std::unique_ptr<Process> clipman_;
};

TEST_F(WithClipman, KeepsPlainTextButNeverASecret) {
  {
    auto backend = pf::clipboard::makeX11Clipboard(options());
    auto data = std::make_unique<PFClipboardData>();
    data->addData(u"text/plain", u"plain words");
    backend->write(std::move(data), PFClipboardMode::clipboard);
    std::this_thread::sleep_for(500ms);  // the manager copies what it sees
  }
  EXPECT_EQ(textAfterwards(), "plain words");

  {
    // A set request as a password manager's front end sends it, through the service.
    auto backend = pf::clipboard::makeX11Clipboard(options());
    auto previous = pf::clipboard::installClipboardBackend(backend);
    {
      using foundation::json::Object;
      using foundation::json::Value;
      EditorServices::ClipboardImpl service;
      service.addClipboardContents(
          {Value(Object{{"mimeType", Value("text/plain")}, {"data", Value("hunter2")}}),
           Value(Object{{"mimeType", Value("x-kde-passwordManagerHint")},
                        {"data", Value("secret")}})},
          PFClipboardMode::clipboard);
    }
    pf::clipboard::installClipboardBackend(previous);
    // Other programs still get the secret, and the mark beside it.
    EXPECT_EQ(xclipRead(PFClipboardMode::clipboard, "UTF8_STRING").output, "hunter2");
    EXPECT_EQ(xclipRead(PFClipboardMode::clipboard, "x-kde-passwordManagerHint").output, "secret");
    auto const targets = xclipRead(PFClipboardMode::clipboard, "TARGETS").output;
    EXPECT_NE(targets.find("x-kde-passwordManagerHint"), std::string::npos) << targets;
    std::this_thread::sleep_for(500ms);
  }
  EXPECT_NE(textAfterwards(), "hunter2");
}

}  // namespace
