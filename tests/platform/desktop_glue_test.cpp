// What the X11 and Wayland backends share around their protocols, where their own tests, which
// need a display, do not reach.
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "platform/formats/desktop_glue.hpp"

namespace {

using namespace pf::clipboard::formats;
using pf::clipboard::PFClipboardData;

TEST(DesktopGlue, AWriteAboveTheSizeLimitNamesTheTypeThatExceedsIt) {
  PFClipboardData data;
  data.addData(u"text/plain", std::u16string(u"abcd"));
  EXPECT_EQ(typesToOffer("X11 clipboard", &data, 4).size(), 5u);
  try {
    typesToOffer("X11 clipboard", &data, 3);
    FAIL() << "no error above the limit";
  } catch (std::runtime_error const& error) {
    EXPECT_STREQ(error.what(), "X11 clipboard: UTF8_STRING exceeds the size limit");
  }
}

}  // namespace
