#pragma once

#include <algorithm>
#include <array>

#include "centroiders/src/pixels.hpp"
#include "common/simd/level.hpp"

namespace quen::centroiders {

/// Two weights of each column, or each row, of a tile.
struct AxisWeights {
  alignas(64) std::array<double, kTile> even;
  alignas(64) std::array<double, kTile> odd;
};

struct WeightedSums {
  double light = 0.0;  ///< Σ p
  double even = 0.0;   ///< Σ p · even_x · even_y
  double x = 0.0;      ///< Σ p · odd_x · even_y
  double y = 0.0;      ///< Σ p · even_x · odd_y
};

/// Σ even², Σ even · odd, Σ odd² along one axis.
struct Norms {
  double even = 0.0;
  double mixed = 0.0;
  double odd = 0.0;
};

/// The sums of a rectangle of at most kTile columns and rows.
WeightedSums SumTile(common::simd::Level level, const Pixels& pixels, const AxisWeights& columns,
                     const AxisWeights& rows);

/// The sums of a rectangle of any size.
///
/// @param fill_x, fill_y  called as fill(first, count, weights): the weights of `count` columns, or rows, from `first`.
///                        Not copied: that reads at once what has just been written in parts, and the processor waits.
template <typename FillX, typename FillY>
WeightedSums SumWeighted(common::simd::Level level, const Pixels& pixels, const FillX& fill_x, const FillY& fill_y) {
  WeightedSums sums;
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): both are filled as far as they are read
  AxisWeights columns, rows;  // NOLINT(readability-isolate-declaration)
  for (std::size_t y = 0; y < pixels.height; y += kTile) {
    const std::size_t y_up = std::min(y + kTile, pixels.height);
    fill_y(y, y_up - y, rows);
    for (std::size_t x = 0; x < pixels.width; x += kTile) {
      const std::size_t x_up = std::min(x + kTile, pixels.width);
      fill_x(x, x_up - x, columns);
      const WeightedSums tile = SumTile(level, pixels.Part(x, x_up, y, y_up), columns, rows);
      sums.light += tile.light;
      sums.even += tile.even;
      sums.x += tile.x;
      sums.y += tile.y;
    }
  }
  return sums;
}

}  // namespace quen::centroiders
