#include <gtest/gtest.h>

#include <stdexcept>

#include <boost/log/core.hpp>

#include "diagnostics/service_logger.hpp"
#include "support/log_capture.hpp"

namespace {

using test_support::LogCapture;

int g_evaluations = 0;
char const* counted(char const* text) {
  ++g_evaluations;
  return text;
}

struct GateCase {
  std::uint32_t levels;
  bool expectRecord;
};

class ServiceLoggerGate : public ::testing::TestWithParam<GateCase> {};

TEST_P(ServiceLoggerGate, TestsTheBitOfValueFour) {
  LogCapture capture(GetParam().levels);
  g_evaluations = 0;
  EDITOR_SERVICES_LOG(counted("piece one") << " and " << counted("piece two"));
  if (GetParam().expectRecord) {
    EXPECT_EQ(g_evaluations, 2);
    ASSERT_EQ(capture.records().size(), 1u);
  } else {
    EXPECT_EQ(g_evaluations, 0) << "a closed gate must not evaluate the message";
    EXPECT_TRUE(capture.records().empty());
  }
}

INSTANTIATE_TEST_SUITE_P(
    Levels, ServiceLoggerGate,
    ::testing::Values(GateCase{0u, false}, GateCase{1u | 2u | 8u | 16u, false},
                      GateCase{0xFFFFFFFBu, false},  // everything but the bit of value 4
                      GateCase{4u, true}, GateCase{4u | 16u, true}, GateCase{0xFFFFFFFFu, true},
                      // level 4 is the flag 4 itself, not bit number 4 (value 16)
                      GateCase{1u << 4, false}),
    [](::testing::TestParamInfo<GateCase> const& info) {
      return "levels_" + std::to_string(info.param.levels);
    });

TEST(ServiceLogger, RecordCarriesChannelLevelAndJoinedPieces) {
  LogCapture capture;
  std::string const mime = "text/plain";
  EDITOR_SERVICES_LOG("Exception caught for flavor :: " << mime << "\n");
  auto const records = capture.records();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].channel, "editor_services::ClipboardImpl");
  EXPECT_EQ(records[0].severity, 4);
  EXPECT_EQ(records[0].message, "Exception caught for flavor :: text/plain\n");
}

TEST(ServiceLogger, DisabledCoreProducesNoRecordAndEvaluatesNothing) {
  LogCapture capture;
  boost::log::core::get()->set_logging_enabled(false);
  g_evaluations = 0;
  EDITOR_SERVICES_LOG(counted("x"));
  boost::log::core::get()->set_logging_enabled(true);
  EXPECT_TRUE(capture.records().empty());
  EXPECT_EQ(g_evaluations, 0);
}

struct Throwing {};
std::ostream& operator<<(std::ostream& os, Throwing const&) {
  os << "half written";
  throw std::runtime_error("while writing");
}

TEST(ServiceLogger, StatementLeftByAnExceptionPushesNoRecord) {
  LogCapture capture;
  EXPECT_THROW(EDITOR_SERVICES_LOG("start " << Throwing{}), std::runtime_error);
  EXPECT_TRUE(capture.records().empty());
  EDITOR_SERVICES_LOG("after");
  ASSERT_EQ(capture.records().size(), 1u);
  EXPECT_EQ(capture.records()[0].message, "after");
}

TEST(DiagnosticLogger, SetEnabledLevelsReachesExistingLoggers) {
  auto& logger = EditorServices::diagnostics::serviceLogger();
  std::uint32_t const saved = logger.enabled_levels();
  foundation::log::set_enabled_levels(4u | 8u);
  EXPECT_TRUE(logger.is_enabled(4));
  EXPECT_TRUE(logger.is_enabled(8));
  EXPECT_FALSE(logger.is_enabled(2));
  foundation::log::diagnostic_logger later("another::channel");
  EXPECT_EQ(later.enabled_levels(), 4u | 8u);
  foundation::log::set_enabled_levels(saved);
  EXPECT_EQ(logger.enabled_levels(), saved);
}

TEST(DiagnosticLogger, StreamSinkWritesTheRecordsOfItsLevels) {
  auto stream = std::make_shared<std::ostringstream>();
  auto withFour = std::make_shared<std::ostringstream>();
  auto withoutFour = std::make_shared<std::ostringstream>();
  {
    auto handle = foundation::log::add_stream_sink(stream);
    auto four = foundation::log::add_stream_sink(withFour, 4u | 16u);
    auto others = foundation::log::add_stream_sink(withoutFour, 8u | 16u);
    LogCapture capture;  // opens the gate
    EDITOR_SERVICES_LOG("JSON Parse Error");
  }
  EXPECT_EQ(stream->str(), "[editor_services::ClipboardImpl] <4> JSON Parse Error\n");
  EXPECT_EQ(withFour->str(), stream->str());
  EXPECT_EQ(withoutFour->str(), "") << "a level outside the sink's set";
  std::string const before = stream->str();
  {
    LogCapture capture;
    EDITOR_SERVICES_LOG("after the sink is gone");
  }
  EXPECT_EQ(stream->str(), before);
}

}  // namespace
