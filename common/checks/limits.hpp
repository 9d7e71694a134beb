#pragma once

namespace quen::common {

/// The numbers that a parameter may be.
struct Limits {
  double lowest = 0.0;           ///< of them, unless it is excluded
  double highest = 0.0;          ///< of them
  bool excludes_lowest = false;  ///< whether `lowest` itself is not among them

  /// NaN is within no limits.
  [[nodiscard]] constexpr bool Contain(double value) const {
    return (excludes_lowest ? value > lowest : value >= lowest) && value <= highest;
  }
};

}  // namespace quen::common
