#pragma once

#include <array>
#include <vector>

#include "centroiders/src/pixels.hpp"
#include "common/simd/level.hpp"

namespace quen::centroiders {

/// A template with zeros around it, so that the kernels may read some rows and columns beyond it.
struct Template {
  static constexpr std::size_t kRowsAround = 2;
  static constexpr std::size_t kColumnsAround = 16;

  const std::vector<double>& padded;  ///< as Padded gives it
  std::size_t size;                   ///< side of the template itself

  [[nodiscard]] static std::size_t Stride(std::size_t size) { return size + 2 * kColumnsAround; }

  /// `size` · `size` numbers, row by row, with the zeros.
  static std::vector<double> Padded(const std::vector<double>& values, std::size_t size);

  /// Element (0, y) of the template; 2 rows before the first one and after the last one are there too.
  [[nodiscard]] const double* Row(std::ptrdiff_t y) const {
    const std::size_t row = static_cast<std::size_t>(y + static_cast<std::ptrdiff_t>(kRowsAround));
    return padded.data() + row * Stride(size) + kColumnsAround;
  }
};

/// A pixel, from the rectangle's corner; may be outside.
struct Position {
  std::ptrdiff_t x;
  std::ptrdiff_t y;

  bool operator==(const Position&) const = default;
};

/// The correlations at a pixel and its eight neighbours, [1 + v][1 + u] at (x + u, y + v).
using Neighbours = std::array<std::array<double, 3>, 3>;

/// C(i, j) = Σ T(x − i, y − j) · p(x, y) at (i, j) = `at` and around it, over the template's pixels that lie in the
/// rectangle. T's arguments are from its middle.
Neighbours CorrelateAround(common::simd::Level level, const Pixels& pixels, const Template& spot, Position at);

}  // namespace quen::centroiders
