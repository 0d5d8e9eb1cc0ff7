#include <gtest/gtest.h>

#include "platform/memory/memory_clipboard.hpp"
#include "support/backend_conformance.hpp"

namespace {

using pf::clipboard::PFClipboardData;
using pf::clipboard::PFClipboardMode;
using pf::clipboard::PFMemoryClipboard;

INSTANTIATE_TEST_SUITE_P(
    Memory, BackendConformance,
    ::testing::Values(
        test_support::BackendFactory{
            "synchronous",
            [] {
              return test_support::BackendUnderTest{std::make_shared<PFMemoryClipboard>(), nullptr};
            }},
        test_support::BackendFactory{"own_thread",
                                     [] {
                                       return test_support::BackendUnderTest{
                                           std::make_shared<PFMemoryClipboard>(
                                               PFMemoryClipboard::Delivery::ownThread),
                                           nullptr};
                                     }}),
    test_support::BackendFactoryName());

TEST(MemoryClipboard, CopyFromAnotherProgramIsReadAndNotified) {
  auto clipboard = std::make_shared<PFMemoryClipboard>();
  test_support::ChangeCounter counter;
  PFClipboardData data;
  data.addData(u"text/plain", std::u16string(u"from elsewhere"));
  data.setClipboardAction(pf::clipboard::PFClipboardAction::cut);
  clipboard->copyFromOtherProgram(std::move(data), PFClipboardMode::clipboard);
  EXPECT_EQ(counter.count(), 1);  // synchronous delivery: already there
  EXPECT_EQ(clipboard->action(PFClipboardMode::clipboard), pf::clipboard::PFClipboardAction::cut);
  auto const content = clipboard->read(u"text/plain", PFClipboardMode::clipboard);
  ASSERT_EQ(content.index(), 1u);
  EXPECT_EQ(std::get<1>(content), u"from elsewhere");
}

TEST(MemoryClipboard, SelectionWritesDoNotSignalTheSystemClipboard) {
  auto clipboard = std::make_shared<PFMemoryClipboard>();
  test_support::ChangeCounter counter;
  clipboard->write(std::make_unique<PFClipboardData>(), PFClipboardMode::selection);
  EXPECT_EQ(counter.count(), 0);
  clipboard->write(std::make_unique<PFClipboardData>(), PFClipboardMode::clipboard);
  EXPECT_EQ(counter.count(), 1);
  EXPECT_EQ(clipboard->changeCount(), 2u);
}

TEST(MemoryClipboard, OwnThreadDeliversEveryChangeOffTheWritingThread) {
  auto clipboard = std::make_shared<PFMemoryClipboard>(PFMemoryClipboard::Delivery::ownThread);
  std::mutex mutex;
  std::vector<std::thread::id> threads;
  auto registration = std::make_unique<pf::event::PFEventRegistration>(
      pf::event::PFSignalLocator::Instance()
          .containerOf(pf::event::PFServiceType::clipboard)
          .connect(pf::event::kClipboardChanged, [&] {
            std::lock_guard<std::mutex> lock(mutex);
            threads.push_back(std::this_thread::get_id());
          }));
  for (int i = 0; i < 10; ++i) {
    clipboard->write(std::make_unique<PFClipboardData>(), PFClipboardMode::clipboard);
  }
  clipboard->waitUntilDelivered();
  registration->unregister();
  std::lock_guard<std::mutex> lock(mutex);
  ASSERT_EQ(threads.size(), 10u);
  for (auto const& id : threads) {
    EXPECT_NE(id, std::this_thread::get_id());
  }
}

TEST(ClipboardData, SecondAddForATypeReplacesInPlace) {
  PFClipboardData data;
  data.addData(u"a", std::u16string(u"1"));
  data.addData(u"b", std::u16string(u"2"));
  data.addData(u"a", std::u16string(u"3"));
  ASSERT_EQ(data.entries().size(), 2u);
  EXPECT_EQ(data.entries()[0].first, u"a");
  EXPECT_EQ(std::get<1>(data.entries()[0].second), u"3");
}

}  // namespace
