#include <gtest/gtest.h>
#include <log4cplus/appender.h>
#include <log4cplus/spi/loggingevent.h>

#include "common/logging/logging.hpp"

namespace {

using quen::common::GetLogger;

class CountingAppender : public log4cplus::Appender {
 public:
  ~CountingAppender() override { destructorImpl(); }
  void close() override {}
  int records = 0;

 protected:
  void append(const log4cplus::spi::InternalLoggingEvent& /*event*/) override { ++records; }
};

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
  auto* const appender = new CountingAppender;
  const log4cplus::SharedAppenderPtr owner(appender);
  log4cplus::Logger root = log4cplus::Logger::getRoot();
  root.addAppender(owner);
  GetLogger().forcedLog(log4cplus::ERROR_LOG_LEVEL, "heard");
  root.removeAppender(owner);
  EXPECT_EQ(appender->records, 1);
}

}  // namespace
