#pragma once

#include <cstddef>
#include <vector>

#include "centroiders/src/pixel_reader.hpp"
#include "common/simd/level.hpp"

namespace quen::centroiders {

/// Finds where in a region a spot is, roughly, whatever a single pixel has: the middle of the square of pixels with the
/// most light, where each pixel counts for no more than the brightest of its eight neighbours. The outermost columns
/// and rows, which have fewer, are left out.
///
/// In single precision, for a start need not be exact.
class SmoothedMaximum {
 public:
  SmoothedMaximum();

  /// @param patch     of at least 3 columns and rows
  /// @param side      of the square, pixels, odd; less where the region is too small for it
  /// @param levelled  whether the plane that is closest to the region's light is subtracted first
  Point Find(common::simd::Level level, const SinglePatch& patch, std::size_t side, bool levelled);

 private:
  std::vector<float> light_;
  std::vector<float> capped_;
  std::vector<float> sums_;  ///< of as many pixels as a square has columns
  std::vector<float> most_;  ///< the largest square that begins in a column
  std::vector<float> row_;   ///< and its first row
};

}  // namespace quen::centroiders
