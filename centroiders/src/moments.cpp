#include "centroiders/src/moments.hpp"

#include <algorithm>
#include <limits>

#include "centroiders/src/block.hpp"

// Why the fast sums are those of the formula: all of them are integers that nowhere overflow.
//
// Eight columns at a time, and at most kTile of either in one go. From the last row up to the first one, a column's sum
// C of pixels is added to T before the row joins it: row y is then in T y times, which makes T the sum of y · p without
// a product. |p| ≤ 2¹⁵, so that in one tile C ≤ 2²¹, T ≤ 2²⁶, C · x ≤ 2²⁷, and their sums over eight blocks of columns
// are below 2³¹. The same goes for the numbers of pixels that count.
//
// The last block of columns overlaps the one before, for no pixel outside the rectangle may be read; the columns that
// it repeats are cut off.

namespace quen::centroiders {
namespace {

using common::simd::Level;

Moments MomentsPlain(const Pixels& pixels, std::int32_t cut) {
  Moments moments;
  for (std::size_t y = 0; y < pixels.height; ++y) {
    for (std::size_t x = 0; x < pixels.width; ++x) {
      const std::int64_t p = pixels.At(x, y);
      if (p <= cut) continue;
      const auto column = static_cast<std::int64_t>(x);
      const auto row = static_cast<std::int64_t>(y);
      moments.count += 1;
      moments.count_x += column;
      moments.count_y += row;
      moments.sum += p;
      moments.sum_x += p * column;
      moments.sum_y += p * row;
    }
  }
  return moments;
}

/// The columns of a block of a rectangle. The last one overlaps the one before.
struct Columns {
  QUEN_ALWAYS_INLINE Columns(std::size_t block, std::size_t width)
      : first(width < kBlock ? 0 : std::min(block, width - kBlock)),
        number(kIota + static_cast<std::int32_t>(first)),
        counted((number >= static_cast<std::int32_t>(block)) & (number < static_cast<std::int32_t>(width))) {}

  std::size_t first;
  Ints number;
  Ints counted;  ///< −1, or 0 for those that the block before has, and those beyond a narrow rectangle
};

/// A rectangle of at most kTile columns and rows, of which all pixels count: a third of the steps.
QUEN_TARGET_AVX2 Moments WholeTileAvx2(const Pixels& pixels) {
  Ints sum = {};
  Ints sum_x = {};
  Ints sum_y = {};
  for (std::size_t block = 0; block < pixels.width; block += kBlock) {
    const Columns columns(block, pixels.width);
    Ints c = {};
    Ints t = {};
    for (std::size_t y = pixels.height; y-- > 0;) {
      t += c;
      Ints p;
      LoadColumns(pixels.Row(y) + columns.first, pixels.width, p);
      c += p;
    }
    c &= columns.counted;
    sum += c;
    sum_x += c * columns.number;
    sum_y += t & columns.counted;
  }
  const auto width = static_cast<std::int64_t>(pixels.width);
  const auto height = static_cast<std::int64_t>(pixels.height);
  const std::int64_t count = width * height;
  return {count, count * (width - 1) / 2, count * (height - 1) / 2, Total(sum), Total(sum_x), Total(sum_y)};
}

/// A rectangle of at most kTile columns and rows.
QUEN_TARGET_AVX2 Moments TileAvx2(const Pixels& pixels, std::int32_t cut) {
  Ints count = {};
  Ints count_x = {};
  Ints count_y = {};
  Ints sum = {};
  Ints sum_x = {};
  Ints sum_y = {};
  for (std::size_t block = 0; block < pixels.width; block += kBlock) {
    const Columns columns(block, pixels.width);
    const Ints cuts = columns.counted ? Ints{} + cut : Ints{} + std::numeric_limits<std::int32_t>::max();
    Ints c = {};  // per column: sum of the pixels below
    Ints n = {};  // and their number, negative
    for (std::size_t y = pixels.height; y-- > 0;) {
      sum_y += c;
      count_y -= n;
      Ints p;
      LoadColumns(pixels.Row(y) + columns.first, pixels.width, p);
      const Ints counts = p > cuts;  // 0 or −1
      c += p & counts;
      n += counts;
    }
    sum += c;
    sum_x += c * columns.number;
    count -= n;
    count_x -= n * columns.number;
  }
  return {Total(count), Total(count_x), Total(count_y), Total(sum), Total(sum_x), Total(sum_y)};
}

/// Adds the moments of a tile whose corner is at (x, y).
void Add(const Moments& tile, std::size_t x, std::size_t y, Moments& moments) {
  const auto column = static_cast<std::int64_t>(x);
  const auto row = static_cast<std::int64_t>(y);
  moments.count += tile.count;
  moments.count_x += tile.count_x + column * tile.count;
  moments.count_y += tile.count_y + row * tile.count;
  moments.sum += tile.sum;
  moments.sum_x += tile.sum_x + column * tile.sum;
  moments.sum_y += tile.sum_y + row * tile.sum;
}

/// In tiles.
Moments MomentsAvx2(const Pixels& pixels, std::int32_t cut) {
  Moments moments;
  for (std::size_t y = 0; y < pixels.height; y += kTile) {
    for (std::size_t x = 0; x < pixels.width; x += kTile) {
      const Pixels tile = pixels.Part(x, std::min(x + kTile, pixels.width), y, std::min(y + kTile, pixels.height));
      Add(cut == kEveryPixel ? WholeTileAvx2(tile) : TileAvx2(tile, cut), x, y, moments);
    }
  }
  return moments;
}

}  // namespace

Moments MomentsAbove(Level level, const Pixels& pixels, std::int32_t cut) {
  return common::simd::Pick(level, MomentsPlain, MomentsAvx2, MomentsAvx2)(pixels, cut);
}

Centroid CentroidOf(const Moments& moments, double zero, Point otherwise) {
  const double flux = static_cast<double>(moments.sum) - zero * static_cast<double>(moments.count);
  if (!(flux > 0.0)) return {flux, otherwise.x, otherwise.y};
  return {flux, (static_cast<double>(moments.sum_x) - zero * static_cast<double>(moments.count_x)) / flux,
          (static_cast<double>(moments.sum_y) - zero * static_cast<double>(moments.count_y)) / flux};
}

}  // namespace quen::centroiders
