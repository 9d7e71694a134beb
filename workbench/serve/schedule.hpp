#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "workbench/serve/clock.hpp"

namespace quen::workbench {

/// When frames are due: frame k at start + k / rate.
class Schedule {
 public:
  /// @param rate  frames a second, above 0
  Schedule(double rate, Time start) : rate_(rate), start_(start) {}

  [[nodiscard]] Time Due(std::uint64_t frame) const {
    constexpr long double kNanoseconds = 1e9L;
    return start_ +
           Time(std::llround(static_cast<long double>(frame) * kNanoseconds / static_cast<long double>(rate_)));
  }

  /// Whether a frame that is not begun yet is to be skipped: its successor is due.
  [[nodiscard]] bool IsSkipped(std::uint64_t frame, Time now) const { return Due(frame + 1) <= now; }

 private:
  double rate_;
  Time start_;
};

/// How long a frame is expected to take, from what the frames before took: as long as the last one, or the longest of
/// the last dozen or so, which is forgotten little by little.
class ExpectedTime {
 public:
  void Note(Time took) {
    constexpr double kForgotten = 0.1;
    const auto forgotten = std::chrono::duration_cast<Time>(kForgotten * (expected_ - took));
    expected_ = std::max(took, expected_ - forgotten);
  }

  [[nodiscard]] Time Get() const { return expected_; }

 private:
  Time expected_ = {};
};

}  // namespace quen::workbench
