#pragma once

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

 private:
  std::vector<std::uint64_t> bins_;  ///< of equal ratios
  std::uint64_t count_ = 0;
  double worst_ = 0.0;
  double least_ = 0.0;
};

}  // namespace quen::workbench
