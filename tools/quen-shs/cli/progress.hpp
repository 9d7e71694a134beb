#pragma once

#include <chrono>

namespace quen::tool {

/// A line on standard error that tells how far a job is, its rate and the time left, redrawn in place and cut to the
/// terminal's width. Silent where standard error is not a terminal.
class Progress {
 public:
  /// @param total  number of frames, or of what else there is to do
  /// @param unit   what one of them is called
  explicit Progress(int total, const char* unit = "frame");
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  Progress(Progress&&) = delete;
  Progress& operator=(Progress&&) = delete;

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
  bool on_terminal_;
  Clock::time_point start_ = Clock::now();
  Clock::time_point shown_ = start_;
};

}  // namespace quen::tool
