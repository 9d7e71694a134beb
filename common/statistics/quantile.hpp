#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

/// @file
/// Medians and other quantiles without interpolation: each is one of the values. Internal to the libraries.

namespace quen::common {

/// The value that a part of the others, 0 to 1, are not above; where that falls between two, the lower one; 0 of none.
/// Sorts the values, in part; allocates nothing.
inline double Quantile(std::vector<double>& values, double part) {
  if (values.empty()) return 0.0;
  const auto rank = static_cast<std::ptrdiff_t>(part * static_cast<double>(values.size() - 1));
  std::ranges::nth_element(values, values.begin() + rank);
  return values[static_cast<std::size_t>(rank)];
}

/// Of an even number of values the lower one of the two in the middle.
inline double LowerMedian(std::vector<double>& values) { return Quantile(values, 0.5); }

/// Of an even number of values the higher one of the two in the middle.
/// @param values  at least one
inline double UpperMedian(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::ranges::nth_element(values, middle);
  return *middle;
}

}  // namespace quen::common
