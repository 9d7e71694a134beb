#pragma once

#include <chrono>
#include <ctime>

namespace quen::workbench {

/// A moment on the monotonic clock, or a length of time.
using Time = std::chrono::nanoseconds;

inline double InSeconds(Time time) { return std::chrono::duration<double>(time).count(); }

/// What tells the time, so that a test may have a time of its own.
class Clock {
 public:
  Clock() = default;
  virtual ~Clock() = default;
  Clock(const Clock&) = delete;
  Clock& operator=(const Clock&) = delete;
  Clock(Clock&&) = delete;
  Clock& operator=(Clock&&) = delete;

  [[nodiscard]] virtual Time Now() const = 0;
  /// Returns at once if that is past.
  /// @throws Interrupted  a signal has come, before or meanwhile
  virtual void WaitUntil(Time time) = 0;
};

/// The system's monotonic clock.
class MonotonicClock : public Clock {
 public:
  [[nodiscard]] Time Now() const override;
  void WaitUntil(Time time) override;
};

/// The TAI of the system at a moment of its monotonic clock, which may be a moment to come.
std::timespec TaiAt(Time time, const Clock& clock);

inline double InSeconds(const std::timespec& time) {
  constexpr double kNanosecond = 1e-9;
  return static_cast<double>(time.tv_sec) + kNanosecond * static_cast<double>(time.tv_nsec);
}

}  // namespace quen::workbench
