#pragma once

#include <cstdint>

#include "centroiders/src/pixels.hpp"
#include "common/simd/level.hpp"

namespace quen::centroiders {

/// Sums over the pixels of a rectangle that count. Integers, and so the same in whatever order they are added.
struct Moments {
  std::int64_t count = 0;    ///< Σ 1
  std::int64_t count_x = 0;  ///< Σ x
  std::int64_t count_y = 0;  ///< Σ y
  std::int64_t sum = 0;      ///< Σ p
  std::int64_t sum_x = 0;    ///< Σ p · x
  std::int64_t sum_y = 0;    ///< Σ p · y

  bool operator==(const Moments&) const = default;
};

/// Below every pixel: all count.
inline constexpr std::int32_t kEveryPixel = -32769;

/// The sums over all pixels above `cut`, at a level of instructions (see common/simd/level.hpp).
Moments MomentsAbove(common::simd::Level level, const Pixels& pixels, std::int32_t cut);

/// Light and the point where it balances.
struct Centroid {
  double flux;
  double x;
  double y;
};

/// The centroid of the light p − zero of the pixels that count; at `otherwise` where that is no light.
Centroid CentroidOf(const Moments& moments, double zero, Point otherwise);

}  // namespace quen::centroiders
