#include "centroiders/src/weighted_sums.hpp"

#include "centroiders/src/block.hpp"

// The fast sums add the same products in another order: columns eight apart and rows two apart share a running sum.
// They agree with the formula to its last bits, and exactly where all products are integers; the two levels agree
// exactly with each other.
//
// The last block of columns overlaps the one before, for no pixel outside the rectangle may be read; the columns that
// it repeats weigh nothing. Light is added up in integers, below 2²⁴ in a tile.

namespace quen::centroiders {
namespace {

using common::simd::Level;

void Plain(const Pixels& pixels, const AxisWeights& columns, const AxisWeights& rows, WeightedSums& sums) {
  sums = {};
  for (std::size_t y = 0; y < pixels.height; ++y) {
    for (std::size_t x = 0; x < pixels.width; ++x) {
      const double p = pixels.At(x, y);
      sums.light += p;
      sums.even += p * columns.even[x] * rows.even[y];
      sums.x += p * columns.odd[x] * rows.even[y];
      sums.y += p * columns.even[x] * rows.odd[y];
    }
  }
}

/// The weights of a block's columns, nothing for the first `repeated` ones.
struct BlockWeights {
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): filled at once
  QUEN_ALWAYS_INLINE BlockWeights(const std::array<double, kTile>& weights, std::size_t first, std::size_t repeated) {
    std::memcpy(values.data(), weights.data() + first, sizeof(values));
    for (std::size_t k = 0; k < repeated; ++k) values[k] = 0.0;
  }

  alignas(64) std::array<double, kBlock> values;
};

/// What the columns of a block add up to. D holds eight doubles: Avx2Block at AVX2, Avx512Block at AVX-512.
template <typename D>
struct ColumnSums {
  QUEN_ALWAYS_INLINE void AddRow(const std::int16_t* pixels, double row_even, double row_odd) {
    Ints p;
    LoadBlock(pixels, p);
    const D doubles(p);
    light += p;
    even.AddProduct(doubles, row_even);
    odd.AddProduct(doubles, row_odd);
  }

  Ints light = {};
  D even;
  D odd;
};

/// Tiles of at least kBlock columns. Rows go into two sums in turn: one alone would wait for each addition's result.
template <typename D>
QUEN_ALWAYS_INLINE void SumBlocks(const Pixels& pixels, const AxisWeights& columns, const AxisWeights& rows,
                                  WeightedSums& sums) {
  const double* const even_of = rows.even.data();  // of a row; not checked, row by row and block by block
  const double* const odd_of = rows.odd.data();
  Ints light = {};
  D even;
  D x;
  D y;
  for (std::size_t block = 0; block < pixels.width; block += kBlock) {
    const std::size_t first = std::min(block, pixels.width - kBlock);
    const std::size_t repeated = block - first;
    ColumnSums<D> a;
    ColumnSums<D> b;
    for (std::size_t row = 0; row + 1 < pixels.height; row += 2) {
      a.AddRow(pixels.Row(row) + first, even_of[row], odd_of[row]);
      b.AddRow(pixels.Row(row + 1) + first, even_of[row + 1], odd_of[row + 1]);
    }
    if (pixels.height % 2 == 1) {
      const std::size_t row = pixels.height - 1;
      a.AddRow(pixels.Row(row) + first, even_of[row], odd_of[row]);
    }
    a.even.Add(b.even);
    a.odd.Add(b.odd);
    a.light += b.light;

    const D weight(BlockWeights(columns.even, first, repeated).values.data());
    const D moment(BlockWeights(columns.odd, first, repeated).values.data());
    light += kIota >= static_cast<std::int32_t>(repeated) ? a.light : Ints{};
    even.AddProduct(a.even, weight);
    x.AddProduct(a.even, moment);
    y.AddProduct(a.odd, weight);
  }
  sums = {static_cast<double>(Total(light)), even.Total(), x.Total(), y.Total()};
}

QUEN_TARGET_AVX2 void SumAvx2(const Pixels& pixels, const AxisWeights& columns, const AxisWeights& rows,
                              WeightedSums& sums) {
  SumBlocks<Avx2Block>(pixels, columns, rows, sums);
}

QUEN_TARGET_AVX512 void SumAvx512(const Pixels& pixels, const AxisWeights& columns, const AxisWeights& rows,
                                  WeightedSums& sums) {
  SumBlocks<Avx512Block>(pixels, columns, rows, sums);
}

}  // namespace

WeightedSums SumTile(Level level, const Pixels& pixels, const AxisWeights& columns, const AxisWeights& rows) {
  if (pixels.width < kBlock) level = Level::kPlain;
  WeightedSums sums;
  common::simd::Pick(level, Plain, SumAvx2, SumAvx512)(pixels, columns, rows, sums);
  return sums;
}

}  // namespace quen::centroiders
