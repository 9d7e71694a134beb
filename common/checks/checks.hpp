#pragma once

#include <algorithm>
#include <iomanip>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "common/checks/limits.hpp"

/// @file
/// The checks of configurations. Their texts have one grammar, which those that a class writes itself follow:
///
///     CLASS: FIELD must be WHAT IS EXPECTED, found WHAT IS GIVEN[; WHAT TO DO]
///
/// Internal to the libraries.

namespace quen::common {

/// A number as a person writes it: 1000000, not 1e+06.
inline std::string InDigits(double value) {
  std::ostringstream text;
  text << std::setprecision(std::numeric_limits<double>::digits10) << value;
  return text.str();
}

/// @param field  "Class: field"
/// @throws std::invalid_argument  a value that is not within the limits, NaN included
inline void RequireWithin(const std::string& field, double value, const Limits& limits) {
  if (limits.Contain(value)) return;
  throw std::invalid_argument(field + " must be " + (limits.excludes_lowest ? "above " : "from ") +
                              InDigits(limits.lowest) + (limits.excludes_lowest ? " and at most " : " to ") +
                              InDigits(limits.highest) + ", found " + InDigits(value));
}

/// @param field     "Class: field"
/// @param place_of  says where an element is, from its index
/// @throws std::invalid_argument  an element that is not within the limits, NaN included: the first
template <typename PlaceOf>
void RequireElementsWithin(const std::string& field, const std::vector<double>& values, const Limits& limits,
                           PlaceOf place_of) {
  const auto outside = std::ranges::find_if_not(values, [&](double value) { return limits.Contain(value); });
  if (outside == values.end()) return;
  RequireWithin(field + place_of(static_cast<std::size_t>(outside - values.begin())), *outside, limits);
}

}  // namespace quen::common
