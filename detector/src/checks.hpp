#pragma once

#include <iomanip>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>

#include "detector/detector.hpp"

/// @file
/// The checks of what a detector is made from and given. Their texts have the grammar of the engines' ones:
///
///     Detector: FIELD must be WHAT IS EXPECTED, found WHAT IS GIVEN

namespace quen::detector {

/// A number as a person writes it: 1000000, not 1e+06.
inline std::string InDigits(double value) {
  std::ostringstream text;
  text << std::setprecision(std::numeric_limits<double>::digits10) << value;
  return text.str();
}

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

/// @throws std::invalid_argument  another number of elements than a frame has. Allocates nothing otherwise
inline void RequireLength(std::string_view field, std::size_t size) {
  if (size == kPixels) return;
  throw std::invalid_argument(std::string(field) + " must have " + std::to_string(kPixels) + " elements, found " +
                              std::to_string(size));
}

/// The same of a map, which may be empty.
inline void RequireSize(const std::string& field, std::size_t size) {
  if (size == 0 || size == kPixels) return;
  throw std::invalid_argument(field + " must have " + std::to_string(kPixels) + " elements or none, found " +
                              std::to_string(size));
}

/// Where a pixel is, as a part of a sentence.
inline std::string PlaceOf(std::size_t pixel) {
  return " of pixel (" + std::to_string(pixel % kWidth) + ", " + std::to_string(pixel / kWidth) + ")";
}

}  // namespace quen::detector
