#pragma once

#include <chrono>

#include "tools/quen-shs/cli/status_line.hpp"

namespace quen::tool {

/// A line on standard error that tells how far a job is, its rate and the time left. Silent where standard error is not
/// a terminal.
class Progress {
 public:
  /// @param total  number of frames, or of what else there is to do
  /// @param unit   what one of them is called
  explicit Progress(int total, const char* unit = "frame");

  /// One more is done.
  /// @throws Interrupted  the job is to end
  void Step();

  /// How many per second from construction until now.
  [[nodiscard]] double Rate() const;

 private:
  using Clock = std::chrono::steady_clock;

  int total_;
  const char* unit_;
  int done_ = 0;
  Clock::time_point start_ = Clock::now();
  StatusLine line_;
};

}  // namespace quen::tool
