#pragma once

#include <chrono>

namespace quen::tool {

/// A line on standard error that tells how far a job is, its rate and the time left, redrawn in place and cut to the
/// terminal's width. Silent where standard error is not a terminal.
class Progress {
 public:
  /// @param total  number of frames to do
  explicit Progress(int total);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  Progress(Progress&&) = delete;
  Progress& operator=(Progress&&) = delete;

  /// One more frame is done.
  /// @throws Interrupted  the job is to end
  void Step();

  /// Frames per second from construction until now.
  [[nodiscard]] double Rate() const;

 private:
  using Clock = std::chrono::steady_clock;

  int total_;
  int done_ = 0;
  bool on_terminal_;
  Clock::time_point start_ = Clock::now();
  Clock::time_point shown_ = start_;
};

}  // namespace quen::tool
