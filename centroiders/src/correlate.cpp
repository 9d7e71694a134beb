#include "centroiders/src/correlate.hpp"

#include <algorithm>
#include <cstring>

#include "centroiders/src/block.hpp"

// The fast sums add the same products in another order: columns eight apart share a running sum, of each of the nine
// correlations. They agree with the formula to its last bits, and exactly where all products are integers; the two
// levels agree exactly with each other.
//
// A block of eight pixels is read and converted once, and multiplied with the template's elements that lie on it when
// the template's middle is at each of the nine. Where a block reaches beyond the template, it meets the zeros there.

namespace quen::centroiders {
namespace {

using common::simd::Level;

std::ptrdiff_t Half(const Template& spot) { return static_cast<std::ptrdiff_t>(spot.size / 2); }

/// Columns or rows [low, up) of a rectangle that has `available` of them.
struct Range {
  std::ptrdiff_t low;
  std::ptrdiff_t up;
};

/// Those at most `reach` from the middle.
Range Around(std::ptrdiff_t middle, std::ptrdiff_t reach, std::size_t available) {
  return {std::max<std::ptrdiff_t>(middle - reach, 0),
          std::min(middle + reach + 1, static_cast<std::ptrdiff_t>(available))};
}

double CorrelatePlain(const Pixels& pixels, const Template& spot, Position at) {
  const Range columns = Around(at.x, Half(spot), pixels.width);
  const Range rows = Around(at.y, Half(spot), pixels.height);
  double sum = 0.0;
  for (std::ptrdiff_t y = rows.low; y < rows.up; ++y) {
    for (std::ptrdiff_t x = columns.low; x < columns.up; ++x) {
      sum += spot.Row(y - at.y + Half(spot))[x - at.x + Half(spot)] *
             pixels.At(static_cast<std::size_t>(x), static_cast<std::size_t>(y));
    }
  }
  return sum;
}

void AroundPlain(const Pixels& pixels, const Template& spot, Position at, Neighbours& result) {
  for (std::ptrdiff_t v = -1; v <= 1; ++v) {
    for (std::ptrdiff_t u = -1; u <= 1; ++u) {
      result[static_cast<std::size_t>(1 + v)][static_cast<std::size_t>(1 + u)] =
          CorrelatePlain(pixels, spot, {at.x + u, at.y + v});
    }
  }
}

/// The pixels of a rectangle's columns first … first + 7, nothing for those that an earlier block has.
QUEN_ALWAYS_INLINE void LoadOnce(const Pixels& pixels, std::size_t y, std::size_t first, std::size_t repeated,
                                 Ints& block) {
  LoadColumns(pixels.Row(y) + first, pixels.width, block);
  if (repeated > 0) block &= kIota >= static_cast<std::int32_t>(repeated);
}

template <typename D>
QUEN_ALWAYS_INLINE void AroundBlocks(const Pixels& pixels, const Template& spot, Position at, Neighbours& result) {
  const Range columns = Around(at.x, Half(spot) + 1, pixels.width);
  const Range rows = Around(at.y, Half(spot) + 1, pixels.height);
  const auto stride = static_cast<std::ptrdiff_t>(Template::Stride(spot.size));
  D sums[3][3];  // NOLINT(cppcoreguidelines-avoid-c-arrays): stays in registers
  const auto end = static_cast<std::size_t>(std::max<std::ptrdiff_t>(columns.up, 0));
  for (std::size_t block = static_cast<std::size_t>(columns.low) / kBlock * kBlock; block < end; block += kBlock) {
    const std::size_t first = pixels.width < kBlock ? 0 : std::min(block, pixels.width - kBlock);
    const std::ptrdiff_t under = static_cast<std::ptrdiff_t>(first) - at.x + Half(spot);  // column of the template
    for (std::ptrdiff_t y = rows.low; y < rows.up; ++y) {
      Ints p;
      LoadOnce(pixels, static_cast<std::size_t>(y), first, block - first, p);
      const D doubles(p);
      const double* const t = spot.Row(y - at.y + Half(spot)) + under;
      for (std::ptrdiff_t v = 0; v < 3; ++v) {
        for (std::ptrdiff_t u = 0; u < 3; ++u) sums[v][u].AddProduct(doubles, D(t - (v - 1) * stride - (u - 1)));
      }
    }
  }
  for (std::size_t v = 0; v < 3; ++v) {
    for (std::size_t u = 0; u < 3; ++u) result[v][u] = sums[v][u].Total();
  }
}

QUEN_TARGET_AVX2 void AroundAvx2(const Pixels& pixels, const Template& spot, Position at, Neighbours& result) {
  AroundBlocks<Avx2Block>(pixels, spot, at, result);
}

QUEN_TARGET_AVX512 void AroundAvx512(const Pixels& pixels, const Template& spot, Position at, Neighbours& result) {
  AroundBlocks<Avx512Block>(pixels, spot, at, result);
}

}  // namespace

std::vector<double> Template::Padded(const std::vector<double>& values, std::size_t size) {
  std::vector<double> padded((size + 2 * kRowsAround) * Stride(size), 0.0);
  for (std::size_t y = 0; y < size; ++y) {
    std::copy_n(values.data() + y * size, size, padded.data() + (y + kRowsAround) * Stride(size) + kColumnsAround);
  }
  return padded;
}

Neighbours CorrelateAround(Level level, const Pixels& pixels, const Template& spot, Position at) {
  Neighbours result;  // NOLINT(cppcoreguidelines-pro-type-member-init): filled at once
  common::simd::Pick(level, AroundPlain, AroundAvx2, AroundAvx512)(pixels, spot, at, result);
  return result;
}

}  // namespace quen::centroiders
