#pragma once

#include <iomanip>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <string>

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

}  // namespace quen::common
