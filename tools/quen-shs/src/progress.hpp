#pragma once

#include <chrono>

namespace quen_shs {

/// A line on standard error that tells how far a job is, its rate and the time left, redrawn in place. Silent where
/// standard error is not a terminal.
class Progress {
 public:
  /// @param total  number of frames to do
  explicit Progress(int total);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  Progress(Progress&&) = delete;
  Progress& operator=(Progress&&) = delete;

  void Show(int done);

  /// Frames per second from construction until now.
  [[nodiscard]] double Rate(int done) const;

 private:
  using Clock = std::chrono::steady_clock;

  int total_;
  bool on_terminal_;
  Clock::time_point start_ = Clock::now();
  Clock::time_point shown_ = start_;
};

}  // namespace quen_shs
