#pragma once

#include <iomanip>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <string>

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
/// @throws std::invalid_argument  a value outside [lowest, highest], NaN included
inline void RequireInRange(const std::string& field, double value, double lowest, double highest) {
  if (value >= lowest && value <= highest) return;
  throw std::invalid_argument(field + " must be from " + InDigits(lowest) + " to " + InDigits(highest) + ", found " +
                              InDigits(value));
}

/// @throws std::invalid_argument  a value outside (0, highest], NaN included
inline void RequireAboveZero(const std::string& field, double value, double highest) {
  if (value > 0.0 && value <= highest) return;
  throw std::invalid_argument(field + " must be above 0 and at most " + InDigits(highest) + ", found " +
                              InDigits(value));
}

}  // namespace quen::common
