#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace quen::workbench {

/// How long something took, over and over. Quantiles are within one percent, however many there were; the worst is
/// exact. Allocates when it is made, and no more.
class Durations {
 public:
  Durations();

  /// @param seconds  any number; what is below 100 ns, or negative, counts as no time
  void Add(double seconds);

  [[nodiscard]] std::uint64_t Count() const { return count_; }
  /// The duration that a part of them, 0 to 1, are not above; 0 of none.
  [[nodiscard]] double Quantile(double part) const;
  [[nodiscard]] double Worst() const { return worst_; }
  [[nodiscard]] double Least() const { return least_; }

  /// How many are in a range of durations.
  struct Bar {
    double from = 0.0;  ///< seconds
    double to = 0.0;    ///< seconds; infinite in the last one that there may be
    std::uint64_t count = 0;
  };
  /// From the first range that has any to the last one. Ranges end at 1, 2, 5, 10, … microseconds, up to 100 seconds.
  [[nodiscard]] std::vector<Bar> Histogram() const;

 private:
  static constexpr std::size_t kDecades = 8;  ///< of bars, from a microsecond on
  static constexpr std::size_t kBars = 3 * kDecades + 2;

  std::vector<std::uint64_t> bins_;  ///< of equal ratios
  std::array<std::uint64_t, kBars> bars_ = {};
  std::uint64_t count_ = 0;
  double worst_ = 0.0;
  double least_ = 0.0;
};

}  // namespace quen::workbench
