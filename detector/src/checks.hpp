#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

#include "common/checks/checks.hpp"
#include "detector/detector.hpp"

/// @file
/// The checks of what a detector is made from and given, besides those of every configuration.

namespace quen::detector {

using common::RequireElementsWithin;
using common::RequireWithin;

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
