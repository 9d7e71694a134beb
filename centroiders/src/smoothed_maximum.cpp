#include "centroiders/src/smoothed_maximum.hpp"

#include <algorithm>
#include <limits>

#include "centroiders/src/block.hpp"
#include "centroiders/src/lanes.hpp"
#include "common/simd/vector_memory.hpp"

// One source for all levels: four or eight columns at a time, whose sums are the same in whatever company they are.
// Rows are padded to whole blocks; what is read and made beyond a row's end is in no square that counts.

namespace quen::centroiders {
namespace {

using common::simd::Level;
using common::simd::Load;
using common::simd::Store;

constexpr std::size_t kMargin = kBlock;  // before the first row, and after the last one

template <std::size_t W>
QUEN_ALWAYS_INLINE void Raise(Floats<W>& most, const Floats<W>& x) {
  most = most > x ? most : x;
}

/// The slopes of the plane that is closest to a region's light.
struct Slopes {
  double x = 0.0;
  double y = 0.0;
};

Slopes SlopesOf(const Patch& patch) {
  const double middle_x = 0.5 * static_cast<double>(patch.width - 1);
  const double middle_y = 0.5 * static_cast<double>(patch.height - 1);
  Slopes sums;
  for (std::size_t y = 0; y < patch.height; ++y) {
    for (std::size_t x = 0; x < patch.width; ++x) {
      const double light = patch.light[x + patch.stride * y];
      sums.x += light * (static_cast<double>(x) - middle_x);
      sums.y += light * (static_cast<double>(y) - middle_y);
    }
  }
  // Σ (x − middle)² over n columns is n · (n² − 1) / 12.
  const auto width = static_cast<double>(patch.width);
  const auto height = static_cast<double>(patch.height);
  return {12.0 * sums.x / (width * height * (width * width - 1.0)),
          12.0 * sums.y / (width * height * (height * height - 1.0))};
}

/// Where the search has what it works on; rows are `stride` apart.
struct Search {
  const Patch& patch;
  Slopes slopes = {};
  std::size_t side = 0;
  float* light = nullptr;
  float* capped = nullptr;
  float* columns = nullptr;
  float* most = nullptr;
  float* row = nullptr;
};

/// Pixels from x on in row y, no brighter than the brightest of their neighbours.
template <std::size_t W>
QUEN_ALWAYS_INLINE void Cap(const Search& s, std::size_t x, std::size_t y) {
  const std::size_t stride = s.patch.stride;
  const float* here = s.light + y * stride + x;
  Floats<W> most;
  Floats<W> pixel;
  Load(most, here - 1);
  for (const float* neighbour : {here + 1, here - stride - 1, here - stride, here - stride + 1, here + stride - 1,
                                 here + stride, here + stride + 1}) {
    Load(pixel, neighbour);
    Raise<W>(most, pixel);
  }
  Load(pixel, here);
  pixel = pixel < most ? pixel : most;
  Store(pixel, s.capped + y * stride + x);
}

/// Adds a row to the sums of the columns, with this sign.
template <std::size_t W>
QUEN_ALWAYS_INLINE void AddRow(const Search& s, std::size_t y, float sign) {
  for (std::size_t x = 0; x < s.patch.stride; x += W) {
    Floats<W> sum;
    Floats<W> pixels;
    Load(sum, s.columns + x);
    Load(pixels, s.capped + y * s.patch.stride + x);
    sum += sign * pixels;
    Store(sum, s.columns + x);
  }
}

/// Compares squares that begin in row y with those above.
template <std::size_t W>
QUEN_ALWAYS_INLINE void Compare(const Search& s, std::size_t y) {
  for (std::size_t x = 0; x < s.patch.stride; x += W) {
    Floats<W> square = {};
    for (std::size_t k = 0; k < s.side; ++k) {
      Floats<W> column;
      Load(column, s.columns + x + k);
      square += column;
    }
    Floats<W> most;
    Floats<W> row;
    Load(most, s.most + x);
    Load(row, s.row + x);
    row = square > most ? Floats<W>{} + static_cast<float>(y) : row;
    Raise<W>(most, square);
    Store(most, s.most + x);
    Store(row, s.row + x);
  }
}

/// The region's light, less a plane, in single precision.
template <std::size_t W>
QUEN_ALWAYS_INLINE void SubtractPlane(const Search& s) {
  Doubles<W> plane_of_x;
  for (std::size_t x = 0; x < s.patch.stride; x += W) {
    for (std::size_t lane = 0; lane < W; ++lane) plane_of_x[lane] = s.slopes.x * static_cast<double>(x + lane);
    for (std::size_t y = 0; y < s.patch.height; ++y) {
      Doubles<W> light;
      Load(light, s.patch.light.data() + x + s.patch.stride * y);
      light -= plane_of_x + s.slopes.y * static_cast<double>(y);
      const Floats<W> rounded = __builtin_convertvector(light, Floats<W>);
      Store(rounded, s.light + x + s.patch.stride * y);
    }
  }
}

template <std::size_t W>
QUEN_ALWAYS_INLINE void FindSquares(const Search& s) {
  SubtractPlane<W>(s);
  for (std::size_t y = 1; y + 1 < s.patch.height; ++y) {
    for (std::size_t x = 0; x < s.patch.stride; x += W) Cap<W>(s, x, y);
  }
  for (std::size_t y = 1; y < s.side; ++y) AddRow<W>(s, y, 1.0F);
  for (std::size_t y = 1; y + s.side < s.patch.height; ++y) {
    AddRow<W>(s, y + s.side - 1, 1.0F);
    Compare<W>(s, y);
    AddRow<W>(s, y, -1.0F);
  }
}

void FindPlain(const Search& search) { FindSquares<4>(search); }
QUEN_TARGET_AVX2 void FindAvx2(const Search& search) { FindSquares<8>(search); }

}  // namespace

SmoothedMaximum::SmoothedMaximum() {
  light_.reserve(Patch::kUsualPixels + 2 * kMargin);
  capped_.reserve(Patch::kUsualPixels);
  columns_.reserve(Patch::kUsualPixels);  // a region has three rows at the least
  most_.reserve(Patch::kUsualPixels);
  row_.reserve(Patch::kUsualPixels);
}

Point SmoothedMaximum::Find(Level level, const Patch& patch, std::size_t side, bool levelled) {
  side = std::min(side, (std::min(patch.width, patch.height) - 3) / 2 * 2 + 1);
  light_.resize(patch.light.size() + 2 * kMargin);
  capped_.resize(patch.light.size());
  columns_.assign(2 * patch.stride + kMargin, 0.0F);
  most_.assign(patch.stride, -std::numeric_limits<float>::infinity());
  row_.assign(patch.stride, 1.0F);
  common::simd::Pick(level, FindPlain, FindAvx2,
                     FindAvx2)({patch, levelled ? SlopesOf(patch) : Slopes{}, side, light_.data() + kMargin,
                                capped_.data(), columns_.data(), most_.data(), row_.data()});
  const auto first = most_.begin() + 1;
  const auto end = most_.begin() + static_cast<std::ptrdiff_t>(patch.width - side);
  const auto column = static_cast<std::size_t>(std::max_element(first, end) - most_.begin());
  const double middle = 0.5 * static_cast<double>(side - 1);
  return {static_cast<double>(column) + middle, static_cast<double>(row_[column]) + middle};
}

}  // namespace quen::centroiders
