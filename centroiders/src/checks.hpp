#pragma once

#include <sstream>
#include <stdexcept>
#include <string>

/// @file
/// The checks of configurations. Their texts have one grammar, which those that an engine writes itself follow:
///
///     ENGINE: FIELD must be WHAT IS EXPECTED, found WHAT IS GIVEN[; WHAT TO DO]

namespace quen::centroiders {

/// A number as a person writes it.
inline std::string Text(double value) {
  std::ostringstream text;
  text << value;
  return text.str();
}

/// @param field  "Engine: field"
/// @throws std::invalid_argument  a value outside [lowest, highest], NaN included
inline void RequireInRange(const std::string& field, double value, double lowest, double highest) {
  if (value >= lowest && value <= highest) return;
  throw std::invalid_argument(field + " must be from " + Text(lowest) + " to " + Text(highest) + ", found " +
                              Text(value));
}

/// @throws std::invalid_argument  a value outside (0, highest], NaN included
inline void RequireAboveZero(const std::string& field, double value, double highest) {
  if (value > 0.0 && value <= highest) return;
  throw std::invalid_argument(field + " must be above 0 and at most " + Text(highest) + ", found " + Text(value));
}

}  // namespace quen::centroiders
