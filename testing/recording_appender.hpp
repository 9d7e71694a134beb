#pragma once

#include <log4cplus/appender.h>
#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>

#include <string>
#include <vector>

namespace quen::testing {

/// What a log record carries.
struct Record {
  log4cplus::LogLevel level;
  std::string message;
  std::string file;
  int line;
  std::string function;
};

/// Keeps every record that reaches it.
class RecordingAppender : public log4cplus::Appender {
 public:
  RecordingAppender() = default;
  ~RecordingAppender() override { destructorImpl(); }
  RecordingAppender(const RecordingAppender&) = delete;
  RecordingAppender& operator=(const RecordingAppender&) = delete;
  RecordingAppender(RecordingAppender&&) = delete;
  RecordingAppender& operator=(RecordingAppender&&) = delete;
  void close() override {}

  std::vector<Record> records;

 protected:
  void append(const log4cplus::spi::InternalLoggingEvent& event) override {
    records.push_back({event.getLogLevel(), event.getMessage(), event.getFile(), event.getLine(), event.getFunction()});
  }
};

/// Listens to a logger while it lives; the logger's level is put back after.
class LogListener {
 public:
  explicit LogListener(const log4cplus::Logger& logger) : logger_(logger), level_(logger.getLogLevel()) {
    logger_.addAppender(owner_);
  }
  ~LogListener() {
    logger_.removeAppender(owner_);
    logger_.setLogLevel(level_);
  }
  LogListener(const LogListener&) = delete;
  LogListener& operator=(const LogListener&) = delete;
  LogListener(LogListener&&) = delete;
  LogListener& operator=(LogListener&&) = delete;

  [[nodiscard]] const std::vector<Record>& Records() const { return appender_->records; }
  void SetLevel(log4cplus::LogLevel level) { logger_.setLogLevel(level); }

 private:
  log4cplus::Logger logger_;
  log4cplus::LogLevel level_;
  RecordingAppender* appender_ = new RecordingAppender;
  log4cplus::SharedAppenderPtr owner_{appender_};
};

}  // namespace quen::testing
