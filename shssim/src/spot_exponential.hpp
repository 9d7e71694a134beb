#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>

#include "common/simd/fused.hpp"
#include "common/simd/level.hpp"
#include "common/simd/vector_memory.hpp"
#include "shssim/spot.hpp"
#include "shssim/src/spot_kernel.hpp"

/// @file
/// The exponentials of the kernel that draws spots; why they are close enough is said at the top of spot_kernel.cpp.

namespace quen::shssim {

inline constexpr std::size_t kMaxSide = 64;       ///< of a region, pixels
inline constexpr double kFarthest = 48.0;         ///< pixel from the centre, along an axis
inline constexpr double kAxisError = 0x1.6ap-64;  ///< of e^(−p'), relative: 2⁻⁶³·⁵
inline constexpr double kPixelError = 0x1p-62;    ///< of g + l, relative

/// Vectors of W elements.
template <std::size_t W>
struct Vectors {
  using Doubles __attribute__((vector_size(8 * W))) = double;
  using Truncated __attribute__((vector_size(4 * W))) = std::int32_t;
  using Pixels __attribute__((vector_size(2 * W))) = std::uint16_t;
};

/// first + second · t + … of any degree, each step fused.
template <typename Doubles>
QUEN_ALWAYS_INLINE void Polynomial(Doubles& result, const Doubles& /*t*/, double last) {
  result = Doubles{} + last;
}
template <typename Doubles, typename... Others>
QUEN_ALWAYS_INLINE void Polynomial(Doubles& result, const Doubles& t, double first, Others... others) {
  Doubles rest;
  Polynomial(rest, t, others...);
  result = Doubles{} + first;
  common::simd::AddProduct(result, rest, t);
}

// Plain arrays: loops over checked ones would not be vectorised. Scratch memory is written before it is read.
// NOLINTBEGIN(cppcoreguidelines-avoid-c-arrays,cppcoreguidelines-pro-type-member-init)

// e^(−p') is taken from a table of e^(−a²/8), a multiple of 1/64 pixel, the one nearest to the distance from the
// centre, and corrected by e^t, t = a²/8 − p'. Neighbouring pixels are 64 steps apart: the table is laid out so that
// their entries are neighbours, and a vector of them is one load.

inline constexpr std::int64_t kSteps = 64;      // to a pixel
inline constexpr std::int64_t kLeftmost = -49;  // whole pixels: a little farther than kFarthest
inline constexpr std::size_t kReach = 112;      // on to the last element of a vector that begins at kFarthest

/// e^(−a²/8) for a = kLeftmost + column + row / kSteps, as high + low.
struct Table {
  double high[kSteps][kReach];
  double low[kSteps][kReach];
};

struct TwoDoubles {
  double high;
  double low;
};

inline TwoDoubles Product(const TwoDoubles& a, const TwoDoubles& b) {
  const double product = a.high * b.high;
  const double rest = std::fma(a.high, b.high, -product) + (a.high * b.low + a.low * b.high);
  const double high = product + rest;
  return {high, rest - (high - product)};
}

/// By repeated multiplication: with n = 64 a, e^(−(n+1)²/2¹⁵) = e^(−n²/2¹⁵) · e^(−(2n+1)/2¹⁵). Errors add up to less
/// than 2⁻⁷⁵.
inline Table MakeTable() {
  Table table{};
  TwoDoubles value = {1.0, 0.0};
  TwoDoubles factor = {0x1.fffc0003fffd5p-1, 0x1.55aaaa888893fp-55};            // e^(−1/2¹⁵)
  constexpr TwoDoubles kStep = {0x1.fff8000fffeabp-1, -0x1.50000444416c2p-55};  // e^(−2/2¹⁵)
  constexpr std::int64_t kLast = (kLeftmost + static_cast<std::int64_t>(kReach)) * kSteps;
  for (std::int64_t n = 0; n < kLast; ++n) {
    for (const std::int64_t entry : {n, -n}) {
      const std::int64_t column = (entry >> 6) - kLeftmost;
      if (column < 0) continue;
      table.high[entry & 63][column] = value.high;
      table.low[entry & 63][column] = value.low;
    }
    value = Product(value, factor);
    factor = Product(factor, kStep);
  }
  return table;
}

/// Of each column or row of a region.
struct Axis {
  alignas(64) double square[kMaxSide];  ///< p
  alignas(64) double coarse[kMaxSide];  ///< p'
  alignas(64) double high[kMaxSide];    ///< e^(−p') is high + low
  alignas(64) double low[kMaxSide];
};

/// Fills whole vectors: beyond the region's last column or row too.
///
/// The error of high + low: a is within 1/128 of the distance, so |t| < 48 · 2 / 128 / 8 + 2⁻¹⁶ < 0.0938. The powers of
/// t from the third on add up to less than 2⁻¹²·⁷, with four roundings at the most: 2⁻⁶³·⁷. Whatever else is rounded or
/// left out is kept in the lower double or below 2⁻⁶⁹.
template <std::size_t W>
QUEN_ALWAYS_INLINE void FillAxis(std::size_t first, std::size_t count, double centre, const Table& table, Axis& axis) {
  using Doubles = typename Vectors<W>::Doubles;
  constexpr double kToMultiple = 0x1p9;  // its last place is 2⁻⁴³, and stays so with a square added
  const auto nearest = static_cast<std::int64_t>(std::floor(centre * kSteps + 0.5));
  const std::int64_t n = static_cast<std::int64_t>(first) * kSteps - nearest;
  const double* const entry = &table.high[n & 63][(n >> 6) - kLeftmost];
  const double* const entry_low = &table.low[n & 63][(n >> 6) - kLeftmost];
  Doubles steps;
  for (std::size_t j = 0; j < W; ++j) steps[j] = static_cast<double>(j);

  for (std::size_t block = 0; block < count; block += W) {
    const Doubles distance = (steps + static_cast<double>(first + block)) - centre;
    const Doubles square = -kSpotExponent * (distance * distance);
    const Doubles coarse = (square + kToMultiple) - kToMultiple;
    const Doubles a = steps + (static_cast<double>(n) / kSteps + static_cast<double>(block));
    Doubles t = -coarse;
    common::simd::AddProduct(t, a, -kSpotExponent * a);  // exact

    // e^t − 1 = m + m_low: t²/2 with its rounding error, then the powers from t³ on, then t
    const Doubles half = 0.5 * t;
    const Doubles square_half = t * half;
    Doubles square_half_low = -square_half;
    common::simd::AddProduct(square_half_low, t, half);
    Doubles powers;
    Polynomial(powers, t, 2.0 / 6, 2.0 / 24, 2.0 / 120, 2.0 / 720, 2.0 / 5040, 2.0 / 40320, 2.0 / 362880, 2.0 / 3628800,
               2.0 / 39916800);
    const Doubles cube = t * square_half;
    Doubles tail = square_half;
    common::simd::AddProduct(tail, cube, powers);
    Doubles tail_low = square_half - tail;
    common::simd::AddProduct(tail_low, cube, powers);
    const Doubles m = t + tail;
    const Doubles m_low = (tail - (m - t)) + (tail_low + square_half_low);

    // times the entry of the table
    Doubles power;
    Doubles power_low;
    common::simd::Load(power, entry + block);
    common::simd::Load(power_low, entry_low + block);
    Doubles high = power;
    common::simd::AddProduct(high, power, m);
    Doubles low = power - high;
    common::simd::AddProduct(low, power, m);
    common::simd::AddProduct(low, power, m_low);
    low += power_low;
    common::simd::AddProduct(low, power_low, m);
    common::simd::Store(square, axis.square + block);
    common::simd::Store(coarse, axis.coarse + block);
    common::simd::Store(high, axis.high + block);
    common::simd::Store(low, axis.low + block);
  }
}

/// An element of an axis.
struct OnAxis {
  double square;
  double coarse;
  double high;
  double low;
};

/// P · Q · (1 + d) = g + l, of a row's pixels from column `first` on.
template <typename Doubles>
QUEN_ALWAYS_INLINE void Multiply(const Axis& columns, const OnAxis& row, std::size_t first, Doubles& g, Doubles& l) {
  Doubles p;
  Doubles coarse;
  Doubles high;
  Doubles low;
  common::simd::Load(p, columns.square + first);
  common::simd::Load(coarse, columns.coarse + first);
  common::simd::Load(high, columns.high + first);
  common::simd::Load(low, columns.low + first);

  const Doubles s = p + row.square;
  const Doubles d = (coarse + row.coarse) - s;
  const Doubles product = high * row.high;
  Doubles rest = -product;
  common::simd::AddProduct(rest, high, row.high);
  common::simd::AddProduct(rest, high, row.low);
  common::simd::AddProduct(rest, low, row.high);
  common::simd::AddProduct(rest, product, d);
  g = product + rest;
  l = rest - (g - product);
}

/// What else std::exp may have returned; g, if nothing.
template <typename Doubles>
QUEN_ALWAYS_INLINE void SetOther(const Doubles& g, const Doubles& l, Doubles& other) {
  constexpr double kSureness = 1.0 / (2.0 * (1.0 - kExpErrorBound));
  other = g;
  common::simd::AddProduct(other, l, kSureness);
}

// NOLINTEND(cppcoreguidelines-avoid-c-arrays,cppcoreguidelines-pro-type-member-init)

}  // namespace quen::shssim
