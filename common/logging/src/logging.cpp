#include "common/logging/logging.hpp"

#include <log4cplus/nullappender.h>

namespace quen::common {

log4cplus::Logger GetLogger() {
  // The null appender keeps log4cplus from complaining on standard error where the host has configured nothing.
  static const log4cplus::Logger logger = [] {
    log4cplus::Logger made = log4cplus::Logger::getInstance("quen");
    made.addAppender(log4cplus::SharedAppenderPtr(new log4cplus::NullAppender));
    return made;
  }();
  return logger;
}

}  // namespace quen::common
