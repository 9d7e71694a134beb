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

// Why the bits are those of the formula.
//
// The formula computes, for a pixel at (x, y), each step rounded to double,
//
//     p = (x − cx)²,   q = (y − cy)²,   s = p + q,   g = std::exp(−s / 8),   value = 4096 · g + noise.
//
// Dividing by 8 is exact, and done at once: from here on p, q and s are the formula's divided by 8.
//
// (1) p and q belong to a column and a row. Each is rounded to a multiple of 2⁻⁴³, p' and q'. The exponentials
//     P = e^(−p') and Q = e^(−q') are computed as a sum high + low of two doubles, to better than 2⁻⁶³·⁵ (see
//     FillAxis).
// (2) p' + q' is exact, being below 2¹⁰, and so is its difference from the formula's sum, d = (p' + q') − s, save for
//     2⁻⁹⁵ where s is tiny. Hence the exact value of what std::exp computes is
//
//         E = e^(−s) = P · Q · e^d = P · Q · (1 + d) · (1 + δ),   |δ| < 2⁻⁸⁴,   as |d| < 2⁻⁴² here.
//
// (3) That product is evaluated with fused multiply-adds, one of which gives the rounding error of high · high exactly.
//     The result is a sum g + l, g the double nearest to it. Nearly all its error is that of (1), twice: it is within
//     2⁻⁶² of E, or 2⁻⁹ of a unit, which is the gap between the two doubles on either side of E.
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

constexpr std::size_t kMaxSide = 64;
constexpr double kFarthest = 48.0;
constexpr double kLargestSpan = 0x1p31;  // of the noise: every value then fits into 32 bits
constexpr double kSureness = 1.0 / (2.0 * (1.0 - kExpErrorBound));

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
  AddProduct(result, rest, t);
}

/// A bit for each element in which a and b differ.
QUEN_TARGET_AVX2 inline std::uint64_t Differing(const Vectors<4>::Doubles& a, const Vectors<4>::Doubles& b) {
  return static_cast<std::uint64_t>(_mm256_movemask_pd(_mm256_cmp_pd(a, b, _CMP_NEQ_UQ)));
}
QUEN_TARGET_AVX512 inline std::uint64_t Differing(const Vectors<8>::Doubles& a, const Vectors<8>::Doubles& b) {
  return common::simd::Bits(_mm512_cmp_pd_mask(a, b, _CMP_NEQ_UQ));
}

// Plain arrays: loops over checked ones would not be vectorised. Scratch memory is written before it is read.
// NOLINTBEGIN(cppcoreguidelines-avoid-c-arrays,cppcoreguidelines-pro-type-member-init)

// --- Columns and rows ----------------------------------------------------------------------------------------------
//
// e^(−p') is taken from a table of e^(−a²/8), a multiple of 1/64 pixel, the one nearest to the distance from the
// centre, and corrected by e^t, t = a²/8 − p'. Neighbouring pixels are 64 steps apart: the table is laid out so that
// their entries are neighbours, and a vector of them is one load.

constexpr std::int64_t kSteps = 64;      // to a pixel
constexpr std::int64_t kLeftmost = -49;  // whole pixels: a little farther than kFarthest
constexpr std::size_t kReach = 112;      // on to the last element of a vector that begins at kFarthest

/// e^(−a²/8) for a = kLeftmost + column + row / kSteps, as high + low.
struct Table {
  double high[kSteps][kReach];
  double low[kSteps][kReach];
};

struct TwoDoubles {
  double high;
  double low;
};

TwoDoubles Product(const TwoDoubles& a, const TwoDoubles& b) {
  const double product = a.high * b.high;
  const double rest = std::fma(a.high, b.high, -product) + (a.high * b.low + a.low * b.high);
  const double high = product + rest;
  return {high, rest - (high - product)};
}

/// By repeated multiplication: with n = 64 a, e^(−(n+1)²/2¹⁵) = e^(−n²/2¹⁵) · e^(−(2n+1)/2¹⁵). Errors add up to less
/// than 2⁻⁷⁵.
Table MakeTable() {
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

/// Of each column or row of a region: p, p', and e^(−p') as high + low.
struct Axis {
  alignas(64) double square[kMaxSide];
  alignas(64) double coarse[kMaxSide];
  alignas(64) double high[kMaxSide];
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
    AddProduct(t, a, -kSpotExponent * a);  // exact

    // e^t − 1 = m + m_low: t²/2 with its rounding error, then the powers from t³ on, then t
    const Doubles half = 0.5 * t;
    const Doubles square_half = t * half;
    Doubles square_half_low = -square_half;
    AddProduct(square_half_low, t, half);
    Doubles powers;
    Polynomial(powers, t, 2.0 / 6, 2.0 / 24, 2.0 / 120, 2.0 / 720, 2.0 / 5040, 2.0 / 40320, 2.0 / 362880, 2.0 / 3628800,
               2.0 / 39916800);
    const Doubles cube = t * square_half;
    Doubles tail = square_half;
    AddProduct(tail, cube, powers);
    Doubles tail_low = square_half - tail;
    AddProduct(tail_low, cube, powers);
    const Doubles m = t + tail;
    const Doubles m_low = (tail - (m - t)) + (tail_low + square_half_low);

    // times the entry of the table
    Doubles power;
    Doubles power_low;
    Load(power, entry + block);
    Load(power_low, entry_low + block);
    Doubles high = power;
    AddProduct(high, power, m);
    Doubles low = power - high;
    AddProduct(low, power, m);
    AddProduct(low, power, m_low);
    low += power_low;
    AddProduct(low, power_low, m);
    Store(square, axis.square + block);
    Store(coarse, axis.coarse + block);
    Store(high, axis.high + block);
    Store(low, axis.low + block);
  }
}

// --- Pixels --------------------------------------------------------------------------------------------------------

/// What a row of pixels is drawn from.
struct Row {
  double square;  // q
  double coarse;  // q'
  double high;    // Q
  double low;
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
  Doubles p;
  Doubles coarse;
  Doubles high;
  Doubles low;
  Load(p, columns.square + first);
  Load(coarse, columns.coarse + first);
  Load(high, columns.high + first);
  Load(low, columns.low + first);

  // P · Q · (1 + d) = g + l
  const Doubles s = p + row.square;
  const Doubles d = (coarse + row.coarse) - s;
  const Doubles product = high * row.high;
  Doubles rest = -product;
  AddProduct(rest, high, row.high);
  AddProduct(rest, high, row.low);
  AddProduct(rest, low, row.high);
  AddProduct(rest, product, d);
  const Doubles g = product + rest;
  const Doubles l = rest - (g - product);
  Doubles candidate = g;
  AddProduct(candidate, l, kSureness);

  Doubles value;
  std::uint64_t unsure = 0;
  if constexpr (kWithNoise) {
    Doubles u;
    Load(u, row.u + first);
    const Doubles noise = u * row.span + row.least;
    value = noise;
    AddProduct(value, g, kSpotPeak);
    Doubles other_value = noise;
    AddProduct(other_value, candidate, kSpotPeak);
    unsure = Differing(value, other_value);
  } else {
    value = kSpotPeak * g;
    unsure = Differing(g, candidate);
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
  /// Two at a time without asking whether there are so many: branches that are guessed wrong took more than all else.
  QUEN_ALWAYS_INLINE void Add(std::size_t row, std::uint64_t bits) {
    constexpr std::uint64_t kLast = std::uint64_t{1} << (kMaxSide - 1);
    do {
      for (int k = 0; k < 2; ++k) {
        const auto column = static_cast<std::size_t>(std::countr_zero(bits | kLast));  // any, where there is none
        list_[count_] = static_cast<std::uint16_t>(row * kMaxSide + column);
        count_ += bits != 0 ? 1 : 0;
        bits &= bits - 1;
      }
    } while (bits != 0);
  }

  [[nodiscard]] const std::uint16_t* begin() const { return list_; }
  [[nodiscard]] const std::uint16_t* end() const { return list_ + count_; }

 private:
  std::size_t count_ = 0;
  std::uint16_t list_[Noise::kMaxTake + 1];
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
      const Row row = {rows.square[r], rows.coarse[r], rows.high[r], rows.low[r], u + (r - begin) * spot.width,
                       noise.Span(),   noise.Low()};
      unsure.Add(r, DrawRow<W, kWithNoise>(columns, row, spot.width, values + offset(r), pixels + offset(r)));
    }
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
