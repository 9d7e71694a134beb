#include "shssim/src/spot_exponential.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <random>

#include "testing/levels.hpp"
#include "testing/values.hpp"

// The kernel's exponentials against exact ones, held to what their comments claim: frames would be those of the formula
// with errors a good deal larger, but for a pixel here and there.

namespace quen::shssim {
namespace {

using quen::common::simd::Level;
using quen::testing::kInfinity;

__extension__ using Quad = __float128;

Quad Wide(double x) { return static_cast<Quad>(x); }

/// e^(−x), with an error below 2⁻⁹⁰ of it.
Quad Exact(double x) {
  constexpr int kHalvings = 16;
  constexpr int kTerms = 14;
  const Quad t = -Wide(x) / (1 << kHalvings);
  Quad sum = 1;
  Quad term = 1;
  for (int k = 1; k < kTerms; ++k) sum += term *= t / k;
  for (int k = 0; k < kHalvings; ++k) sum *= sum;
  return sum;
}

/// |found − exact| / exact.
double RelativeError(Quad found, Quad exact) { return std::abs(static_cast<double>((found - exact) / exact)); }

/// What the kernel makes of a pixel's g + l, and the other candidate.
struct Pixel {
  double g;
  double l;
  double other;
};

using Pixels = std::array<Pixel, kMaxSide>;

template <std::size_t W>
QUEN_ALWAYS_INLINE void MakeRow(const Axis& columns, const OnAxis& row, Pixels& pixels) {
  for (std::size_t first = 0; first < kMaxSide; first += W) {
    typename Vectors<W>::Doubles g;
    typename Vectors<W>::Doubles l;
    typename Vectors<W>::Doubles other;
    Multiply(columns, row, first, g, l);
    SetOther(g, l, other);
    for (std::size_t k = 0; k < W; ++k) pixels.at(first + k) = {g[k], l[k], other[k]};
  }
}

QUEN_TARGET_AVX2 void FillAvx2(std::size_t first, double centre, const Table& table, Axis& axis) {
  FillAxis<4>(first, kMaxSide, centre, table, axis);
}
QUEN_TARGET_AVX512 void FillAvx512(std::size_t first, double centre, const Table& table, Axis& axis) {
  FillAxis<8>(first, kMaxSide, centre, table, axis);
}
QUEN_TARGET_AVX2 void RowAvx2(const Axis& columns, const OnAxis& row, Pixels& pixels) {
  MakeRow<4>(columns, row, pixels);
}
QUEN_TARGET_AVX512 void RowAvx512(const Axis& columns, const OnAxis& row, Pixels& pixels) {
  MakeRow<8>(columns, row, pixels);
}

class SpotExponential : public testing::AtLevel {
 protected:
  static constexpr std::size_t kFirst = 400;  // of 64 columns or rows

  /// Around a random centre that is near all of them.
  Axis RandomAxis() {
    constexpr double kLast = kFirst + kMaxSide - 1;
    const double centre = std::uniform_real_distribution(kLast - kFarthest, kFirst + kFarthest)(random_);
    Axis axis{};
    (GetParam() == Level::kAvx512 ? FillAvx512 : FillAvx2)(kFirst, centre, *table_, axis);
    return axis;
  }

  /// Calls `act` with each pixel of some thousand rows, and its exact value.
  template <typename Act>
  void ForEachPixel(const Act& act) {
    constexpr std::size_t kRows = 3000;
    Pixels pixels{};
    for (std::size_t row = 0; row < kRows; ++row) {
      const std::size_t r = row % kMaxSide;
      const Axis columns = RandomAxis();
      const Axis rows = RandomAxis();
      const OnAxis on_axis = {rows.square[r], rows.coarse[r], rows.high[r], rows.low[r]};
      (GetParam() == Level::kAvx512 ? RowAvx512 : RowAvx2)(columns, on_axis, pixels);
      for (std::size_t k = 0; k < kMaxSide; ++k) act(pixels.at(k), Exact(columns.square[k] + rows.square[r]));
    }
  }

 private:
  std::mt19937 random_{23};
  std::unique_ptr<Table> table_ = std::make_unique<Table>(MakeTable());
};
INSTANTIATE_TEST_SUITE_P(Levels, SpotExponential, ::testing::Values(Level::kAvx2, Level::kAvx512),
                         testing::kNameOfLevel);

TEST_P(SpotExponential, OfAnAxisErrsByNoMoreThanIsClaimed) {
  constexpr int kCentres = 1000;
  double worst = 0.0;
  for (int centre = 0; centre < kCentres; ++centre) {
    const Axis axis = RandomAxis();
    for (std::size_t k = 0; k < kMaxSide; ++k) {
      EXPECT_LE(std::abs(axis.square[k] - axis.coarse[k]), 0x1p-44);
      EXPECT_EQ(axis.coarse[k], std::nearbyint(axis.coarse[k] * 0x1p43) * 0x1p-43);
      worst = std::max(worst, RelativeError(Wide(axis.high[k]) + Wide(axis.low[k]), Exact(axis.coarse[k])));
    }
  }
  RecordProperty("worst", std::to_string(worst / kAxisError));
  EXPECT_LT(worst, kAxisError);
}

TEST_P(SpotExponential, OfAPixelErrsByNoMoreThanIsClaimed) {
  double worst = 0.0;
  ForEachPixel([&](const Pixel& pixel, const Quad& exact) {
    worst = std::max(worst, RelativeError(Wide(pixel.g) + Wide(pixel.l), exact));
    EXPECT_EQ(pixel.g, pixel.g + pixel.l);
  });
  RecordProperty("worst", std::to_string(worst / kPixelError));
  EXPECT_LT(worst, kPixelError);
}

TEST_P(SpotExponential, WhatStdExpMayReturnAreTheCandidatesAndNoOther) {
  constexpr double kOwnError = 1.0 / 512;  // of g + l, in units
  std::size_t candidates = 0;
  ForEachPixel([&](const Pixel& pixel, const Quad& exact) {
    const double neighbour = std::nextafter(pixel.g, exact > Wide(pixel.g) ? kInfinity : 0.0);
    const double units = std::abs(static_cast<double>((Wide(neighbour) - exact) / Wide(neighbour - pixel.g)));
    if (units < kExpErrorBound - kOwnError) {
      EXPECT_EQ(pixel.other, neighbour) << units;
      ++candidates;
    } else if (units > kExpErrorBound + kOwnError) {
      EXPECT_EQ(pixel.other, pixel.g) << units;
    }
  });
  EXPECT_GT(candidates, 100U);
}

}  // namespace
}  // namespace quen::shssim
