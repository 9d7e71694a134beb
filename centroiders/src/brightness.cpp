#include "centroiders/src/brightness.hpp"

#include <immintrin.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>

#include "common/simd/vector_memory.hpp"

// The fast search for a value of given rank halves an interval as the plain one does, and is faster for three reasons:
// it counts sixteen pixels at a time; it ends as soon as exactly `rank` pixels are above some value, the dimmest of
// them being the one; and it starts beside a guess. Spots are much alike: with the last one's value for a guess, it
// counts some four times where it would count ten times.

namespace quen::centroiders {
namespace {

using common::simd::Level;
using common::simd::Load;
using common::simd::Pick;

constexpr std::size_t kLanes = 16;
constexpr std::size_t kMostPixels = 4096;  // of a rectangle that the fast search takes
constexpr std::int32_t kLowest = std::numeric_limits<std::int16_t>::min();
constexpr std::int32_t kHighest = std::numeric_limits<std::int16_t>::max();

std::size_t CountAbovePlain(const Pixels& pixels, std::int32_t value) {
  std::size_t count = 0;
  for (std::size_t y = 0; y < pixels.height; ++y) {
    count += static_cast<std::size_t>(
        std::count_if(pixels.Row(y), pixels.Row(y) + pixels.width, [value](std::int32_t p) { return p > value; }));
  }
  return count;
}

std::int32_t LargestPlain(const Pixels& pixels) {
  std::int32_t largest = kLowest;
  for (std::size_t y = 0; y < pixels.height; ++y) {
    largest = std::max<std::int32_t>(largest, *std::max_element(pixels.Row(y), pixels.Row(y) + pixels.width));
  }
  return largest;
}

/// How many pixels there are of a value, and the sums of their columns and rows.
struct Places {
  std::size_t count = 0;
  std::size_t x = 0;
  std::size_t y = 0;
};

Places PlacesPlain(const Pixels& pixels, std::int32_t value) {
  Places places;
  for (std::size_t y = 0; y < pixels.height; ++y) {
    for (std::size_t x = 0; x < pixels.width; ++x) {
      if (pixels.At(x, y) != value) continue;
      ++places.count;
      places.x += x;
      places.y += y;
    }
  }
  return places;
}

std::int32_t RankedPlain(const Pixels& pixels, std::size_t rank, std::int32_t /*guess*/) {
  std::int32_t lowest = kLowest;  // the value is in [lowest, highest]
  std::int32_t highest = kHighest;
  while (lowest < highest) {
    const std::int32_t middle = lowest + (highest - lowest) / 2;
    if (CountAbovePlain(pixels, middle) >= rank) {
      lowest = middle + 1;
    } else {
      highest = middle;
    }
  }
  return lowest;
}

using Shorts __attribute__((vector_size(2 * kLanes))) = std::int16_t;

/// Rectangles of at least kLanes columns; the last block of a row overlaps the one before.
QUEN_TARGET_AVX2 std::int32_t LargestAvx2(const Pixels& pixels) {
  Shorts largest = Shorts{} + static_cast<std::int16_t>(kLowest);
  const std::size_t last = pixels.width - kLanes;
  const std::int16_t* row = pixels.first;
  for (std::size_t y = 0; y < pixels.height; ++y, row += pixels.stride) {
    Shorts p;
    for (std::size_t first = 0; first < last; first += kLanes) {
      Load(p, row + first);
      largest = p > largest ? p : largest;
    }
    Load(p, row + last);
    largest = p > largest ? p : largest;
  }
  std::int32_t result = kLowest;
  for (std::size_t lane = 0; lane < kLanes; ++lane) result = std::max<std::int32_t>(result, largest[lane]);
  return result;
}

/// Rectangles of at least kLanes columns. Made for few such pixels, as there are of the brightest: only a row that has
/// one is gone through pixel by pixel.
QUEN_TARGET_AVX2 Places PlacesAvx2(const Pixels& pixels, std::int32_t value) {
  const Shorts values = Shorts{} + static_cast<std::int16_t>(value);
  const std::size_t last = pixels.width - kLanes;
  Places places;
  const std::int16_t* row = pixels.first;
  for (std::size_t y = 0; y < pixels.height; ++y, row += pixels.stride) {
    Shorts p;
    Load(p, row + last);
    Shorts found = p == values;
    for (std::size_t first = 0; first < last; first += kLanes) {
      Load(p, row + first);
      found |= p == values;
    }
    __m256i bits;
    std::memcpy(&bits, &found, sizeof(bits));
    if (_mm256_testz_si256(bits, bits) != 0) continue;
    for (std::size_t x = 0; x < pixels.width; ++x) {
      if (row[x] != value) continue;
      ++places.count;
      places.x += x;
      places.y += y;
    }
  }
  return places;
}

/// The pixels of a rectangle one after the other, filled up to whole pairs of vectors with the lowest value.
struct Copy {
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): written as far as it is read
  explicit Copy(const Pixels& pixels) : count(pixels.width * pixels.height) {
    std::int16_t* row = values.data();
    for (std::size_t y = 0; y < pixels.height; ++y, row += pixels.width) CopyRow(pixels.Row(y), pixels.width, row);
    std::fill_n(row, 2 * kLanes, static_cast<std::int16_t>(kLowest));
  }

  alignas(64) std::array<std::int16_t, kMostPixels + 2 * kLanes> values;
  std::size_t count;

 private:
  /// In blocks of eight, the last of which overlaps the one before: calls of memcpy take longer than short rows.
  static void CopyRow(const std::int16_t* from, std::size_t width, std::int16_t* to) {
    constexpr std::size_t kBlock = 8;
    if (width < kBlock) {
      std::copy_n(from, width, to);
      return;
    }
    const std::size_t last = width - kBlock;
    for (std::size_t x = 0; x < last; x += kBlock) std::memcpy(to + x, from + x, kBlock * sizeof(std::int16_t));
    std::memcpy(to + last, from + last, kBlock * sizeof(std::int16_t));
  }
};

/// The number of pixels above a value.
QUEN_TARGET_AVX2 std::size_t CountAboveAvx2(const Copy& copy, std::int32_t value) {
  Shorts counts = {};  // negative; 256 at the most, and 4096 in all
  const Shorts values = Shorts{} + static_cast<std::int16_t>(value);
  for (std::size_t k = 0; k < copy.count; k += 2 * kLanes) {
    Shorts p;
    Shorts q;
    Load(p, copy.values.data() + k);
    Load(q, copy.values.data() + k + kLanes);
    counts += (p > values) + (q > values);
  }
  counts += __builtin_shufflevector(counts, counts, 8, 9, 10, 11, 12, 13, 14, 15, 0, 1, 2, 3, 4, 5, 6, 7);
  counts += __builtin_shufflevector(counts, counts, 4, 5, 6, 7, 0, 1, 2, 3, 12, 13, 14, 15, 8, 9, 10, 11);
  return static_cast<std::size_t>(-(counts[0] + counts[1] + counts[2] + counts[3]));
}

/// The least value above another one.
QUEN_TARGET_AVX2 std::int32_t SmallestAboveAvx2(const Copy& copy, std::int32_t value) {
  const Shorts values = Shorts{} + static_cast<std::int16_t>(value);
  Shorts smallest = Shorts{} + static_cast<std::int16_t>(kHighest);
  for (std::size_t k = 0; k < copy.count; k += kLanes) {
    Shorts p;
    Load(p, copy.values.data() + k);
    smallest = ((p > values) & (p < smallest)) ? p : smallest;
  }
  std::int32_t result = kHighest;
  for (std::size_t lane = 0; lane < kLanes; ++lane) result = std::min<std::int32_t>(result, smallest[lane]);
  return result;
}

std::int32_t RankedAvx2(const Pixels& pixels, std::size_t rank, std::int32_t guess) {
  constexpr std::int32_t kNear = 64;
  const Copy copy(pixels);
  std::int32_t lowest = kLowest;  // the value is in [lowest, highest]
  std::int32_t highest = kHighest;
  std::int32_t distance = kNear;  // of the next step from the guess, until the value is on its other side
  std::int32_t probe = std::clamp(guess, kLowest, kHighest - 1);
  while (lowest < highest) {
    const std::size_t above = CountAboveAvx2(copy, probe);
    if (above == rank) return SmallestAboveAvx2(copy, probe);
    if (above > rank) {
      lowest = probe + 1;
      probe += distance;
    } else {
      highest = probe;
      probe -= distance;
    }
    distance = std::min(4 * distance, kHighest - kLowest);
    const bool both_sides_known = lowest > kLowest && highest < kHighest;
    if (both_sides_known) probe = lowest + (highest - lowest) / 2;
    probe = std::clamp(probe, lowest, std::max(lowest, highest - 1));
  }
  return lowest;
}

}  // namespace

std::int32_t Largest(Level level, const Pixels& pixels) {
  if (pixels.width < kLanes) level = Level::kPlain;
  return Pick(level, LargestPlain, LargestAvx2, LargestAvx2)(pixels);
}

std::int32_t RankedValue(Level level, const Pixels& pixels, std::size_t rank, std::int32_t guess) {
  if (pixels.width * pixels.height > kMostPixels) level = Level::kPlain;
  return Pick(level, RankedPlain, RankedAvx2, RankedAvx2)(pixels, rank, guess);
}

Point BrightestPoint(Level level, const Pixels& pixels) {
  if (pixels.width < kLanes) level = Level::kPlain;
  const Places brightest = Pick(level, PlacesPlain, PlacesAvx2, PlacesAvx2)(pixels, Largest(level, pixels));
  const auto count = static_cast<double>(brightest.count);
  return {static_cast<double>(brightest.x) / count, static_cast<double>(brightest.y) / count};
}

}  // namespace quen::centroiders
