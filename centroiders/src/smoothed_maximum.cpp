#include "centroiders/src/smoothed_maximum.hpp"

#include <algorithm>
#include <array>
#include <limits>

#include "centroiders/src/block.hpp"
#include "centroiders/src/lanes.hpp"
#include "common/simd/vector_memory.hpp"

// One source for all levels: two, four or eight columns at a time, each of which is the same in whatever company it is.
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

/// Down each column first; then every eighth one is added to those before it. In the padding there is no light.
template <std::size_t W>
QUEN_ALWAYS_INLINE void SumSlopes(const SinglePatch& patch, Slopes& slopes) {
  const double middle_x = 0.5 * static_cast<double>(patch.width - 1);
  const double middle_y = 0.5 * static_cast<double>(patch.height - 1);
  alignas(64) std::array<double, kBlock> sums_x = {};
  alignas(64) std::array<double, kBlock> sums_y = {};
  for (std::size_t x = 0; x < patch.stride; x += W) {
    Doubles<W> column = {};
    Doubles<W> with_v = {};
    double v = -middle_y;
    for (std::size_t k = x; k < patch.light.size(); k += patch.stride) {
      Doubles<W> light;
      Widen<W>(patch.light.data() + k, light);
      column += light;
      with_v += light * v;
      v += 1.0;
    }
    Doubles<W> u;
    Count<W>(x, u);
    u -= middle_x;
    Doubles<W> sum_x;
    Doubles<W> sum_y;
    Load(sum_x, sums_x.data() + x % kBlock);
    Load(sum_y, sums_y.data() + x % kBlock);
    sum_x += column * u;
    sum_y += with_v;
    Store(sum_x, sums_x.data() + x % kBlock);
    Store(sum_y, sums_y.data() + x % kBlock);
  }
  // Σ (x − middle)² over n columns is n · (n² − 1) / 12.
  const auto width = static_cast<double>(patch.width);
  const auto height = static_cast<double>(patch.height);
  slopes.x = 12.0 * SumOfEight(sums_x.data()) / (width * height * (width * width - 1.0));
  slopes.y = 12.0 * SumOfEight(sums_y.data()) / (width * height * (height * height - 1.0));
}

void SlopesPlain(const SinglePatch& patch, Slopes& slopes) { SumSlopes<2>(patch, slopes); }
QUEN_TARGET_AVX2 void SlopesAvx2(const SinglePatch& patch, Slopes& slopes) { SumSlopes<4>(patch, slopes); }
QUEN_TARGET_AVX512 void SlopesAvx512(const SinglePatch& patch, Slopes& slopes) { SumSlopes<8>(patch, slopes); }

/// Where the search has what it works on; rows are `stride` apart.
struct Search {
  const SinglePatch& patch;
  Slopes slopes = {};
  std::size_t side = 0;
  float* light = nullptr;
  float* capped = nullptr;
  float* sums = nullptr;
  float* most = nullptr;
  float* row = nullptr;
};

/// Pixels of the columns from x on, no brighter than the brightest of their neighbours.
template <std::size_t W>
QUEN_ALWAYS_INLINE void Cap(const Search& s, std::size_t x) {
  /// A row's pixels, and what their neighbours need of them.
  struct Neighbours {
    Floats<W> pixel;
    Floats<W> beside;  ///< the brighter one of the two
    Floats<W> all;     ///< the brightest one of the three
  };
  const auto read = [&](std::size_t y, Neighbours & n) __attribute__((always_inline)) {
    const float* here = s.light + y * s.patch.stride + x;
    Floats<W> right;
    Load(n.beside, here - 1);
    Load(n.pixel, here);
    Load(right, here + 1);
    Raise<W>(n.beside, right);
    n.all = n.beside;
    Raise<W>(n.all, n.pixel);
  };
  Neighbours above{};
  Neighbours here{};
  Neighbours below{};
  read(0, above);
  read(1, here);
  for (std::size_t y = 1; y + 1 < s.patch.height; ++y) {
    read(y + 1, below);
    Floats<W> most = here.beside;
    Raise<W>(most, above.all);
    Raise<W>(most, below.all);
    const Floats<W> capped = here.pixel < most ? here.pixel : most;
    Store(capped, s.capped + y * s.patch.stride + x);
    above = here;
    here = below;
  }
}

/// Sums of as many pixels as a square has columns, from each on.
template <std::size_t W>
QUEN_ALWAYS_INLINE void SumAlongRows(const Search& s) {
  const std::size_t end = s.patch.stride * (s.patch.height - 1);
  for (std::size_t pixel = s.patch.stride; pixel < end; pixel += W) {
    Floats<W> sum = {};
    for (std::size_t k = 0; k < s.side; ++k) {
      Floats<W> pixels;
      Load(pixels, s.capped + pixel + k);
      sum += pixels;
    }
    Store(sum, s.sums + pixel);
  }
}

/// The largest of the squares that begin in a column, for those from x on.
template <std::size_t W>
QUEN_ALWAYS_INLINE void Compare(const Search& s, std::size_t x) {
  const auto add = [&](std::size_t y, float sign, Floats<W>& square) __attribute__((always_inline)) {
    Floats<W> sum;
    Load(sum, s.sums + y * s.patch.stride + x);
    square += sign * sum;
  };
  Floats<W> square = {};
  for (std::size_t y = 1; y < s.side; ++y) add(y, 1.0F, square);
  Floats<W> most = Floats<W>{} - std::numeric_limits<float>::infinity();
  Floats<W> row = {};
  Floats<W> here = {};
  for (std::size_t y = 1; y + s.side < s.patch.height; ++y) {
    here += 1.0F;
    add(y + s.side - 1, 1.0F, square);
    row = square > most ? here : row;
    Raise<W>(most, square);
    add(y, -1.0F, square);
  }
  Store(most, s.most + x);
  Store(row, s.row + x);
}

/// The region's light, less a plane.
template <std::size_t W>
QUEN_ALWAYS_INLINE void SubtractPlane(const Search& s) {
  const auto slope_x = static_cast<float>(s.slopes.x);
  const auto slope_y = static_cast<float>(s.slopes.y);
  for (std::size_t x = 0; x < s.patch.stride; x += W) {
    Floats<W> plane = {};
    for (std::size_t lane = 0; lane < W; ++lane) plane[lane] = static_cast<float>(lane);
    plane = slope_x * (plane + static_cast<float>(x));
    for (std::size_t k = x; k < s.patch.light.size(); k += s.patch.stride) {
      Floats<W> light;
      Load(light, s.patch.light.data() + k);
      light -= plane;
      Store(light, s.light + k);
      plane += slope_y;
    }
  }
}

template <std::size_t W>
QUEN_ALWAYS_INLINE void FindSquares(const Search& s) {
  SubtractPlane<W>(s);
  for (std::size_t x = 0; x < s.patch.stride; x += W) Cap<W>(s, x);
  SumAlongRows<W>(s);
  for (std::size_t x = 0; x < s.patch.stride; x += W) Compare<W>(s, x);
}

void FindPlain(const Search& search) { FindSquares<4>(search); }
QUEN_TARGET_AVX2 void FindAvx2(const Search& search) { FindSquares<8>(search); }

}  // namespace

SmoothedMaximum::SmoothedMaximum() {
  light_.reserve(SinglePatch::kUsualPixels + 2 * kMargin);
  capped_.reserve(Patch::kUsualPixels);
  sums_.reserve(Patch::kUsualPixels);
  most_.reserve(Patch::kUsualPixels);
  row_.reserve(Patch::kUsualPixels);
}

Point SmoothedMaximum::Find(Level level, const SinglePatch& patch, std::size_t side, bool levelled) {
  side = std::min(side, (std::min(patch.width, patch.height) - 3) / 2 * 2 + 1);
  light_.resize(patch.light.size() + 2 * kMargin);
  capped_.resize(patch.light.size());
  sums_.resize(patch.light.size());
  most_.resize(patch.stride);
  row_.resize(patch.stride);
  Slopes slopes;
  if (levelled) common::simd::Pick(level, SlopesPlain, SlopesAvx2, SlopesAvx512)(patch, slopes);
  common::simd::Pick(level, FindPlain, FindAvx2, FindAvx2)(
      {patch, slopes, side, light_.data() + kMargin, capped_.data(), sums_.data(), most_.data(), row_.data()});
  const auto first = most_.begin() + 1;
  const auto end = most_.begin() + static_cast<std::ptrdiff_t>(patch.width - side);
  const auto column = static_cast<std::size_t>(std::max_element(first, end) - most_.begin());
  const double middle = 0.5 * static_cast<double>(side - 1);
  return {static_cast<double>(column) + middle, static_cast<double>(row_[column]) + middle};
}

}  // namespace quen::centroiders
