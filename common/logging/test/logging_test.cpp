#include <gtest/gtest.h>

#include "common/logging/logging.hpp"

#include "testing/recording_appender.hpp"

namespace quen::common {
namespace {

TEST(GetLogger, IsTheOneNamedQuen) {
  EXPECT_EQ(GetLogger().getName(), "quen");
  EXPECT_EQ(GetLogger().getName(), log4cplus::Logger::getInstance("quen").getName());
}

TEST(GetLogger, WithoutAnyConfigurationNothingIsPrinted) {
  ::testing::internal::CaptureStderr();
  ::testing::internal::CaptureStdout();
  GetLogger().forcedLog(log4cplus::ERROR_LOG_LEVEL, "unheard");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
}

TEST(GetLogger, RecordsReachTheRootsAppenders) {
  const testing::LogListener log(log4cplus::Logger::getRoot());
  GetLogger().forcedLog(log4cplus::ERROR_LOG_LEVEL, "heard");
  ASSERT_EQ(log.Records().size(), 1U);
  EXPECT_EQ(log.Records()[0].message, "heard");
}

}  // namespace
}  // namespace quen::common
