#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <vector>

#include "common/fits/fits.hpp"

namespace quen::common::Fits {

/// Number of elements of an array of this shape; 1 for an empty shape.
inline std::size_t ElementCount(const std::vector<std::size_t>& shape) {
  std::size_t count = 1;
  for (const std::size_t length : shape) count *= length;
  return count;
}

inline void CheckBuffer(std::size_t needed, std::size_t available) {
  if (available < needed) {
    // Spelled as hosts know it: the text is the interface.
    throw std::invalid_argument("Fits: Provided buffer is too small, expected at least: " + std::to_string(needed) +
                                " , acctual: " + std::to_string(available));
  }
}

inline void CheckWritable(const Handle& handle) {
  if (handle->read_only) throw std::runtime_error("Fits: Handle opened for reading only");
}

}  // namespace quen::common::Fits
