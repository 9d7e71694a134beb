#include "shssim/src/spot_kernel.hpp"

#include <immintrin.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>

#include "basesim/base_simulator.hpp"
#include "common/simd/fused.hpp"
#include "common/simd/mask.hpp"
#include "common/simd/vector_memory.hpp"
#include "shssim/spot.hpp"
#include "shssim/src/spot_exponential.hpp"

// Why the bits are those of the formula.
//
// The formula computes, for a pixel at (x, y), each step rounded to double,
//
//     p = (x − cx)²,   q = (y − cy)²,   s = p + q,   g = std::exp(−s / 8),   value = 4096 · g + noise.
//
// Dividing by 8 is exact, and done at once: from here on p, q and s are the formula's divided by 8.
//
// (1) p and q belong to a column and a row. Each is rounded to a multiple of 2⁻⁴³, p' and q'. The exponentials
//     P = e^(−p') and Q = e^(−q') are computed as a sum high + low of two doubles, to better than kAxisError, 2⁻⁶³·⁵
//     (see FillAxis).
// (2) p' + q' is exact, being below 2¹⁰, and so is its difference from the formula's sum, d = (p' + q') − s, save for
//     2⁻⁹⁵ where s is tiny. Hence the exact value of what std::exp computes is
//
//         E = e^(−s) = P · Q · e^d = P · Q · (1 + d) · (1 + δ),   |δ| < 2⁻⁸⁴,   as |d| < 2⁻⁴² here.
//
// (3) That product is evaluated with fused multiply-adds, one of which gives the rounding error of high · high exactly.
//     The result is a sum g + l, g the double nearest to it. Nearly all its error is that of (1), twice: it is within
//     kPixelError of E, 2⁻⁶², or 2⁻⁹ of a unit, which is the gap between the two doubles on either side of E.
// (4) std::exp errs by less than kExpErrorBound = 0.512 units; a test holds the machine's library to a little less,
//     which makes up for the error in (3). Where E is closer to g than 0.488 units, every other double is farther from
//     it than 0.512: std::exp returns g. Elsewhere it returns g or the double on the other side of E. The sum
//     g + l / (2 · 0.488) rounds to g in the first case, to that neighbour in the second.
// (5) So g and that sum are all that std::exp may have returned. Where both give the same value, that is the
//     formula's. Elsewhere std::exp itself is called: for about one pixel in forty without noise, and for far fewer
//     with noise, whose addition rounds the last bits of a small Gaussian away.
//
// Scaling by 4096 is exact, so that fusing it with the addition of the noise leaves the one rounding that the formula
// has there; the noise itself, u · span + least, keeps both of its own. Values fit into 32 bits (see IsNear). Numbers
// are normal ones: the exponentials are above e^(−2 · 48²/8) > 2⁻⁸³², what is computed of them above 2⁻⁹⁵⁰. (A square
// that is too small to be divided by 8 exactly is far too small to matter: e^0 is 1.)
//
// The code is written in vectors of W doubles, an extension that GCC and Clang share; an operator works on each
// element. The compiler fuses nothing of its own accord: AddProduct is where it happens.

namespace quen::shssim {
namespace {

using basesim::kFrameWidth;
using common::simd::AddProduct;
using common::simd::Level;
using common::simd::Load;
using common::simd::Store;

static_assert(kSpotExponent == -1.0 / 8 && kSpotPeak == 0x1p12);  // as said above

constexpr double kLargestSpan = 0x1p31;  // of the noise: every value then fits into 32 bits

/// A bit for each element in which a and b differ.
QUEN_TARGET_AVX2 inline std::uint64_t Differing(const Vectors<4>::Doubles& a, const Vectors<4>::Doubles& b) {
  return static_cast<std::uint64_t>(_mm256_movemask_pd(_mm256_cmp_pd(a, b, _CMP_NEQ_UQ)));
}
QUEN_TARGET_AVX512 inline std::uint64_t Differing(const Vectors<8>::Doubles& a, const Vectors<8>::Doubles& b) {
  return common::simd::Bits(_mm512_cmp_pd_mask(a, b, _CMP_NEQ_UQ));
}

// Plain arrays: loops over checked ones would not be vectorised. Scratch memory is written before it is read.
// NOLINTBEGIN(cppcoreguidelines-avoid-c-arrays,cppcoreguidelines-pro-type-member-init)

/// What a row of pixels is drawn from.
struct Row {
  OnAxis at;
  const double* u;  // canonical values: the noise is u · span + least
  double span;
  double least;
};

/// W pixels from column `first` on.
/// @return  a bit for each pixel that needs std::exp
template <std::size_t W, bool kWithNoise>
QUEN_ALWAYS_INLINE std::uint64_t DrawVector(const Axis& columns, const Row& row, std::size_t first, double* values,
                                            std::uint16_t* pixels) {
  using Doubles = typename Vectors<W>::Doubles;
  Doubles g;
  Doubles l;
  Multiply(columns, row.at, first, g, l);
  Doubles other;
  SetOther(g, l, other);

  Doubles value;
  std::uint64_t unsure = 0;
  if constexpr (kWithNoise) {
    Doubles u;
    Load(u, row.u + first);
    const Doubles noise = u * row.span + row.least;
    value = noise;
    AddProduct(value, g, kSpotPeak);
    Doubles other_value = noise;
    AddProduct(other_value, other, kSpotPeak);
    unsure = Differing(value, other_value);
  } else {
    value = kSpotPeak * g;
    unsure = Differing(g, other);
  }
  const auto pixel = __builtin_convertvector(__builtin_convertvector(value, typename Vectors<W>::Truncated),
                                             typename Vectors<W>::Pixels);
  Store(value, values);
  Store(pixel, pixels);
  return unsure;
}

/// @return  a bit for each pixel that needs std::exp, the region's first column the lowest
template <std::size_t W, bool kWithNoise>
QUEN_ALWAYS_INLINE std::uint64_t DrawRow(const Axis& columns, const Row& row, std::size_t width, double* values,
                                         std::uint16_t* pixels) {
  const std::size_t tail = width % W;
  const std::size_t whole = width - tail;
  std::uint64_t unsure = 0;
  for (std::size_t first = 0; first < whole; first += W) {
    const std::uint64_t bits = DrawVector<W, kWithNoise>(columns, row, first, values + first, pixels + first);
    unsure = unsure >> W | bits << (kMaxSide - W);  // shifts by constants are the cheaper ones
  }
  if (whole > 0) unsure >>= kMaxSide - whole;
  if (tail > 0) {
    std::array<double, W> tail_values;
    std::array<std::uint16_t, W> tail_pixels;
    const std::uint64_t bits = DrawVector<W, kWithNoise>(columns, row, whole, tail_values.data(), tail_pixels.data());
    unsure |= (bits & ((1U << tail) - 1)) << whole;
    std::copy_n(tail_values.data(), tail, values + whole);
    std::copy_n(tail_pixels.data(), tail, pixels + whole);
  }
  return unsure;
}

/// Pixels of a region that need std::exp, by row · kMaxSide + column.
class Unsure {
 public:
  /// Writes two pixels, whether there are so many or not, and counts those that there are: a branch on whether a row
  /// has any is guessed wrong so often that it took a sixth of a frame's time.
  QUEN_ALWAYS_INLINE void Add(std::size_t row, std::uint64_t bits) {
    const std::uint64_t others = bits & (bits - 1);
    Put(count_, row, bits);
    Put(count_ + 1, row, others);
    std::size_t place = count_ + 2;
    for (std::uint64_t rest = others & (others - 1); rest != 0; rest &= rest - 1) Put(place++, row, rest);
    count_ += static_cast<std::size_t>(std::popcount(bits));
  }

  [[nodiscard]] const std::uint16_t* begin() const { return list_; }
  [[nodiscard]] const std::uint16_t* end() const { return list_ + count_; }

 private:
  /// The lowest bit's pixel; any, where there is none.
  QUEN_ALWAYS_INLINE void Put(std::size_t place, std::size_t row, std::uint64_t bits) {
    constexpr std::uint64_t kLast = std::uint64_t{1} << (kMaxSide - 1);
    const auto column = static_cast<std::size_t>(std::countr_zero(bits | kLast));
    list_[place] = static_cast<std::uint16_t>(row * kMaxSide + column);
  }

  std::size_t count_ = 0;
  std::uint16_t list_[Noise::kMaxTake + 2];
};

/// Draws as many rows at a time as the noise gives numbers, and then the pixels among them that need std::exp.
template <std::size_t W, bool kWithNoise>
QUEN_ALWAYS_INLINE void DrawRows(const Spot& spot, const Axis& columns, const Axis& rows, Noise& noise, double* values,
                                 std::uint16_t* pixels) {
  for (std::size_t begin = 0; begin < spot.height;) {
    const std::size_t end = std::min(begin + Noise::kMaxTake / spot.width, spot.height);
    const double* const u = noise.Take((end - begin) * spot.width);
    const auto offset = [&](std::size_t r) { return spot.x_low + kFrameWidth * (spot.y_low + r); };
    Unsure unsure;
    for (std::size_t r = begin; r < end; ++r) {
      const Row row = {{rows.square[r], rows.coarse[r], rows.high[r], rows.low[r]},
                       u + (r - begin) * spot.width,
                       noise.Span(),
                       noise.Low()};
      unsure.Add(r, DrawRow<W, kWithNoise>(columns, row, spot.width, values + offset(r), pixels + offset(r)));
    }
    // NOLINTNEXTLINE(clang-analyzer-core.uninitialized.Assign): as many are written as there are bits, which it misses
    for (const std::size_t position : unsure) {
      const std::size_t r = position / kMaxSide;
      const std::size_t k = position % kMaxSide;
      const double g = std::exp(-(columns.square[k] + rows.square[r]));
      const double value = kSpotPeak * g + noise.Scaled(u[(r - begin) * spot.width + k]);
      values[offset(r) + k] = value;
      pixels[offset(r) + k] = static_cast<std::uint16_t>(static_cast<std::int32_t>(value));
    }
    begin = end;
  }
}

template <std::size_t W>
QUEN_ALWAYS_INLINE void DrawSpot(const Spot& spot, const Table& table, Noise& noise, double* values,
                                 std::uint16_t* pixels) {
  Axis columns;
  Axis rows;
  FillAxis<W>(spot.x_low, spot.width, spot.cx, table, columns);
  FillAxis<W>(spot.y_low, spot.height, spot.cy, table, rows);
  if (noise.Span() == 0.0) {
    DrawRows<W, false>(spot, columns, rows, noise, values, pixels);
  } else {
    DrawRows<W, true>(spot, columns, rows, noise, values, pixels);
  }
}

// NOLINTEND(cppcoreguidelines-avoid-c-arrays,cppcoreguidelines-pro-type-member-init)

QUEN_TARGET_AVX2 Level DrawSpotAvx2(const Spot& spot, const Table& table, Noise& noise, double* values,
                                    std::uint16_t* pixels) {
  DrawSpot<4>(spot, table, noise, values, pixels);
  return Level::kAvx2;
}

QUEN_TARGET_AVX512 Level DrawSpotAvx512(const Spot& spot, const Table& table, Noise& noise, double* values,
                                        std::uint16_t* pixels) {
  DrawSpot<8>(spot, table, noise, values, pixels);
  return Level::kAvx512;
}

/// Whether the pixels first … first + count − 1 are all near the centre. False for a NaN.
bool IsNearAlong(std::size_t first, std::size_t count, double centre) {
  const auto begin = static_cast<double>(first);
  const auto last = static_cast<double>(first + count - 1);
  return count <= kMaxSide && std::abs(begin - centre) <= kFarthest && std::abs(last - centre) <= kFarthest;
}

}  // namespace

bool IsNear(const Spot& spot, const Noise& noise) {
  return noise.Span() <= kLargestSpan && IsNearAlong(spot.x_low, spot.width, spot.cx) &&
         IsNearAlong(spot.y_low, spot.height, spot.cy);
}

Level DrawNearSpot(Level level, const Spot& spot, Noise& noise, double* values, std::uint16_t* pixels) {
  static const Table table = MakeTable();
  const auto draw = common::simd::Pick(level, DrawSpotAvx2, DrawSpotAvx2, DrawSpotAvx512);  // plain is not for here
  return draw(spot, table, noise, values, pixels);
}

}  // namespace quen::shssim
