#include "centroiders/src/correlate.hpp"

#include <algorithm>
#include <cstring>

#include "centroiders/src/block.hpp"

// The fast sum adds the same products in another order: columns eight apart share a running sum.
// Both levels agree exactly with each other.

namespace quen::centroiders {
namespace {

using common::simd::Level;

/// Two rectangles of one size, the template's part and the pixels under it.
struct Overlap {
  const double* values;
  std::size_t size;
  Pixels pixels;
};

double Plain(const Overlap& overlap) {
  double sum = 0.0;
  for (std::size_t y = 0; y < overlap.pixels.height; ++y) {
    for (std::size_t x = 0; x < overlap.pixels.width; ++x) {
      sum += overlap.values[x + overlap.size * y] * overlap.pixels.At(x, y);
    }
  }
  return sum;
}

template <typename D>
QUEN_ALWAYS_INLINE double SumBlocks(const Overlap& overlap) {
  D sum;
  double rest = 0.0;
  const std::size_t width = overlap.pixels.width;
  for (std::size_t y = 0; y < overlap.pixels.height; ++y) {
    const double* const values = overlap.values + overlap.size * y;
    const std::int16_t* const row = overlap.pixels.Row(y);
    std::size_t x = 0;
    for (; x + kBlock <= width; x += kBlock) {
      Ints p;
      LoadBlock(row + x, p);
      sum.AddProduct(D(p), D(values + x));
    }
    for (; x < width; ++x) rest += values[x] * row[x];
  }
  return sum.Total() + rest;
}

QUEN_TARGET_AVX2 double SumAvx2(const Overlap& overlap) { return SumBlocks<Avx2Block>(overlap); }
QUEN_TARGET_AVX512 double SumAvx512(const Overlap& overlap) { return SumBlocks<Avx512Block>(overlap); }

/// Columns or rows [low, up) of the rectangle under a template whose middle is at `middle`.
struct Range {
  std::ptrdiff_t low;
  std::ptrdiff_t up;
};

Range OverlapAround(std::ptrdiff_t middle, std::size_t size, std::size_t available) {
  const auto half = static_cast<std::ptrdiff_t>(size / 2);
  return {std::max<std::ptrdiff_t>(middle - half, 0),
          std::min(middle + half + 1, static_cast<std::ptrdiff_t>(available))};
}

}  // namespace

double Correlate(Level level, const Pixels& pixels, const std::vector<double>& values, std::size_t size,
                 std::ptrdiff_t x, std::ptrdiff_t y) {
  const Range columns = OverlapAround(x, size, pixels.width);
  const Range rows = OverlapAround(y, size, pixels.height);
  if (columns.low >= columns.up || rows.low >= rows.up) return 0.0;
  const auto half = static_cast<std::ptrdiff_t>(size / 2);
  const std::ptrdiff_t corner = (columns.low - x + half) + static_cast<std::ptrdiff_t>(size) * (rows.low - y + half);
  const Overlap overlap = {values.data() + corner, size,
                           pixels.Part(static_cast<std::size_t>(columns.low), static_cast<std::size_t>(columns.up),
                                       static_cast<std::size_t>(rows.low), static_cast<std::size_t>(rows.up))};
  return common::simd::Pick(level, Plain, SumAvx2, SumAvx512)(overlap);
}

}  // namespace quen::centroiders
