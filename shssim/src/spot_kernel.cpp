#include "shssim/src/spot_kernel.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>

#include "basesim/base_simulator.hpp"
#include "shssim/spot.hpp"
#include "shssim/truncation.hpp"

// Why the bits are those of the formula.
//
// The formula computes, for a pixel at (x, y), each step rounded to double,
//
//     p = (x − cx)²,   q = (y − cy)²,   s = p + q,   g = std::exp(−s / 8).
//
// (1) p and q belong to a column and a row. Their exponentials P = e^(−p/8) and Q = e^(−q/8) are computed once,
//     each as a sum high + low of two doubles, to better than 2⁻⁶⁶. The highs have 26 bits, so that their product is
//     exact.
// (2) s differs from p + q by its rounding error e = (p + q) − s, a double that is known exactly (Knuth's two-sum).
//     So the exponential of the exact argument of std::exp is
//
//         e^(−s/8) = P · Q · e^(e/8) = P · Q · (1 + e/8) · (1 + δ),   |δ| < 2⁻⁸⁰,   as |e| ≤ 2⁻⁴⁰ here.
//
// (3) That product is evaluated as a sum g + l, g the double nearest to it, to better than 2⁻⁶⁴ in all, or 2⁻¹¹ of
//     a unit in g's last place.
// (4) std::exp returns a double within kExpErrorBound = 0.512 units of the exact value; a test holds the machine's
//     library to a little less. Where the exact value is closer to g than 0.488 units, every other double is farther
//     from it than 0.512: std::exp returns g. That is so where g + l / (2 · 0.488) still rounds to g.
// (5) Elsewhere, for about one pixel in forty, std::exp itself is called.
//
// Scaling by 4096 is exact, the noise is added as the formula adds it, and values fit into 32 bits (see IsNear). All
// numbers are normal ones: the exponentials are above e^(−2 · 48²/8) > 2⁻⁸³², what is computed of them above 2⁻⁹²⁰.
//
// The code is written in vectors of W doubles, an extension that GCC and Clang share; an operator works on each
// element.

namespace quen::shssim {
namespace {

using basesim::kFrameWidth;
using common::simd::Level;

static_assert(kSpotExponent == -1.0 / 8 && kSpotPeak == 0x1p12);  // as said above

constexpr std::size_t kMaxSide = 64;
constexpr double kFarthest = 48.0;
constexpr double kLargestSpan = 0x1p31;  // of the noise: every value then fits into 32 bits
constexpr double kSureness = 1.0 / (2.0 * (1.0 - kExpErrorBound));
constexpr std::uint64_t kHighBits = ~std::uint64_t{0} << 27U;  // of a double: sign, exponent, 26 bits of the value

/// Vectors of W elements.
template <std::size_t W>
struct Vectors {
  using Doubles __attribute__((vector_size(8 * W))) = double;
  using Integers __attribute__((vector_size(8 * W))) = std::int64_t;
  using Bits __attribute__((vector_size(8 * W))) = std::uint64_t;
  using Truncated __attribute__((vector_size(4 * W))) = std::int32_t;
  using Pixels __attribute__((vector_size(2 * W))) = std::uint16_t;
};

// Plain arrays: loops over checked ones would not be vectorised. Scratch memory is written before it is read, and
// vectors are reinterpreted bit by bit.
// NOLINTBEGIN(cppcoreguidelines-avoid-c-arrays,cppcoreguidelines-pro-type-member-init)
// NOLINTBEGIN(cppcoreguidelines-pro-type-reinterpret-cast)

// --- Columns and rows ----------------------------------------------------------------------------------------------
//
// e^z for z = −p/8:   z = k · ln2/128 + r, |r| ≤ ln2/256;   e^z = 2^(k div 128) · 2^((k mod 128)/128) · e^r.

constexpr std::size_t kSteps = 128;

/// 2^(j/128) for j = 0 … 127, as high (26 bits) + low.
struct PowersOfTwo {
  double high[kSteps];
  double low[kSteps];
};

double High(double value) { return std::bit_cast<double>(std::bit_cast<std::uint64_t>(value) & kHighBits); }

/// By repeated multiplication in two doubles; errors add up to less than 2⁻⁹⁰.
PowersOfTwo MakePowersOfTwo() {
  constexpr double kStep = 0x1.0163da9fb3335p+0;  // 2^(1/128) = kStep + kStepLow
  constexpr double kStepLow = 0x1.b61299ab8cdb7p-54;
  PowersOfTwo powers{};
  double power = 1.0;
  double power_low = 0.0;
  for (std::size_t j = 0; j < kSteps; ++j) {
    powers.high[j] = High(power);
    powers.low[j] = (power - powers.high[j]) + power_low;
    const double product = power * kStep;
    const double rest = std::fma(power, kStep, -product) + (power * kStepLow + power_low * kStep);
    power = product + rest;
    power_low = rest - (power - product);
  }
  return powers;
}

/// Of each column or row of a region: the square p of its distance from the centre, and e^(−p/8) as high + low.
struct Axis {
  alignas(64) double square[kMaxSide];
  alignas(64) double high[kMaxSide];
  alignas(64) double low[kMaxSide];
};

/// Fills whole vectors: beyond the region's last column or row too.
template <std::size_t W>
QUEN_ALWAYS_INLINE void FillAxis(std::size_t first, std::size_t count, double centre, const PowersOfTwo& powers,
                                 Axis& axis) {
  using Doubles = typename Vectors<W>::Doubles;
  using Integers = typename Vectors<W>::Integers;
  using Bits = typename Vectors<W>::Bits;
  constexpr double kStepsPerLn2 = 0x1.71547652b82fep+7;
  constexpr double kLn2First = 0x1.62e42fee00000p-8;  // ln2/128 in three parts; k times the first two is exact
  constexpr double kLn2Second = 0x1.a39ef35780000p-40;
  constexpr double kLn2Third = 0x1.3c7673007e5edp-76;
  constexpr double kRound = 0x1.8p52;  // adding it leaves the nearest integer in the low bits
  constexpr auto kRoundBits = std::bit_cast<std::int64_t>(kRound);

  for (std::size_t block = 0; block < count; block += W) {
    Doubles pixel;
    for (std::size_t j = 0; j < W; ++j) pixel[j] = static_cast<double>(first + block + j);
    const Doubles distance = pixel - centre;
    const Doubles square = distance * distance;
    const Doubles z = kSpotExponent * square;
    const Doubles shifted = z * kStepsPerLn2 + kRound;
    const Doubles k = shifted - kRound;
    const Integers bits = reinterpret_cast<Integers>(shifted) - kRoundBits;

    // r as a sum of two doubles; the difference from the first part is exact.
    const Doubles coarse = z - k * kLn2First;
    const Doubles fine = k * kLn2Second;
    const Doubles r = coarse - fine;
    const Doubles r_low = ((coarse - r) - fine) - k * kLn2Third;

    // m = e^r − 1; the next term, r⁷/5040, is below 2⁻⁷¹.
    const Doubles tail = r_low + r * r * (1.0 / 2 + r * (1.0 / 6 + r * (1.0 / 24 + r * (1.0 / 120 + r * (1.0 / 720)))));
    const Doubles m = r + tail;
    const Doubles m_high = reinterpret_cast<Doubles>(reinterpret_cast<Bits>(m) & kHighBits);
    const Doubles m_low = (m - m_high) + (tail - (m - r));

    // times 2^(j/128): t + t · m, the product of the highs exact
    Doubles t;
    Doubles t_low;
    for (std::size_t j = 0; j < W; ++j) {
      const auto step = static_cast<std::size_t>(bits[j]) % kSteps;
      t[j] = powers.high[step];
      t_low[j] = powers.low[step];
    }
    const Doubles product = t * m_high;
    const Doubles sum = t + product;
    const Doubles sum_low = (product - (sum - t)) + (t * m_low + (t_low + t_low * m));

    // times 2^(k div 128), from the bits of its exponent
    const Doubles scale = reinterpret_cast<Doubles>(((bits >> 7) + 1023) << 52);
    const Doubles high = reinterpret_cast<Doubles>(reinterpret_cast<Bits>(sum) & kHighBits);
    const Doubles scaled = scale * high;
    const Doubles scaled_low = scale * ((sum - high) + sum_low);
    std::memcpy(axis.square + block, &square, sizeof(square));
    std::memcpy(axis.high + block, &scaled, sizeof(scaled));
    std::memcpy(axis.low + block, &scaled_low, sizeof(scaled_low));
  }
}

// --- Pixels --------------------------------------------------------------------------------------------------------

/// What a row of pixels is drawn from.
struct Row {
  double square;  // q
  double high;    // Q
  double low;
  const double* noise;  // canonical values u: the noise is u · span + least
  double span;
  double least;
};

/// W pixels from column `first` on. Adds to `unsure`, element by element, the bits of those pixels, counted from the
/// region's first column, whose Gaussian must come from std::exp.
template <std::size_t W>
QUEN_ALWAYS_INLINE void DrawVector(const Axis& columns, const Row& row, std::size_t first,
                                   typename Vectors<W>::Bits& unsure, double* values, std::uint16_t* pixels) {
  using Doubles = typename Vectors<W>::Doubles;
  using Bits = typename Vectors<W>::Bits;
  Doubles p;
  Doubles high;
  Doubles low;
  Doubles u;
  std::memcpy(&p, columns.square + first, sizeof(p));
  std::memcpy(&high, columns.high + first, sizeof(high));
  std::memcpy(&low, columns.low + first, sizeof(low));
  std::memcpy(&u, row.noise + first, sizeof(u));

  // s = p + q and its rounding error
  const Doubles s = p + row.square;
  const Doubles part = s - p;
  const Doubles error = (p - (s - part)) + (row.square - part);
  // P · Q · (1 + error/8) = g + l
  const Doubles product = high * row.high;
  const Doubles rest = (high * row.low + low * row.high) + (low * row.low + product * (-kSpotExponent * error));
  const Doubles g = product + rest;
  const Doubles l = rest - (g - product);

  Bits bits;
  for (std::size_t j = 0; j < W; ++j) bits[j] = std::uint64_t{1} << j;
  unsure |= reinterpret_cast<Bits>(g + l * kSureness != g) & (bits << first);

  const Doubles value = kSpotPeak * g + (u * row.span + row.least);
  const auto pixel = __builtin_convertvector(__builtin_convertvector(value, typename Vectors<W>::Truncated),
                                             typename Vectors<W>::Pixels);
  std::memcpy(values, &value, sizeof(value));
  std::memcpy(pixels, &pixel, sizeof(pixel));
}

/// @param unsure  W words: each pixel that needs std::exp is a bit of one of them
template <std::size_t W>
QUEN_ALWAYS_INLINE void DrawRow(const Axis& columns, const Row& row, std::size_t width, double* values,
                                std::uint16_t* pixels, std::uint64_t* unsure) {
  const std::size_t tail = width % W;
  const std::size_t whole = width - tail;
  typename Vectors<W>::Bits bits = {};
  for (std::size_t first = 0; first < whole; first += W) {
    DrawVector<W>(columns, row, first, bits, values + first, pixels + first);
  }
  if (tail > 0) {
    std::array<double, W> tail_values;
    std::array<std::uint16_t, W> tail_pixels;
    DrawVector<W>(columns, row, whole, bits, tail_values.data(), tail_pixels.data());
    std::copy_n(tail_values.data(), tail, values + whole);
    std::copy_n(tail_pixels.data(), tail, pixels + whole);
  }
  std::memcpy(unsure, &bits, sizeof(bits));
}

/// The pixels of a row that need std::exp.
template <std::size_t W>
QUEN_ALWAYS_INLINE void MendRow(const Axis& columns, const Row& row, std::size_t width, double* values,
                                std::uint16_t* pixels, const std::uint64_t* unsure) {
  std::uint64_t bits = 0;
  for (std::size_t j = 0; j < W; ++j) bits |= unsure[j];
  for (; bits != 0; bits &= bits - 1) {
    const auto k = static_cast<std::size_t>(std::countr_zero(bits));
    if (k >= width) break;  // beyond the region, in its last vector
    const double s = columns.square[k] + row.square;
    values[k] = kSpotPeak * std::exp(kSpotExponent * s) + (row.noise[k] * row.span + row.least);
    pixels[k] = TruncateToPixel(values[k]);
  }
}

/// Draws as many rows at a time as the noise gives numbers. What is left to std::exp waits until all of them are drawn:
/// looking for it after each row took a third of the time.
template <std::size_t W>
QUEN_ALWAYS_INLINE void DrawSpot(const Spot& spot, const PowersOfTwo& powers, Noise& noise, double* values,
                                 std::uint16_t* pixels) {
  Axis columns;
  Axis rows;
  FillAxis<W>(spot.x_low, spot.width, spot.cx, powers, columns);
  FillAxis<W>(spot.y_low, spot.height, spot.cy, powers, rows);
  alignas(64) std::uint64_t unsure[kMaxSide * W];
  for (std::size_t begin = 0; begin < spot.height;) {
    const std::size_t end = std::min(begin + Noise::kMaxTake / spot.width, spot.height);
    const double* const u = noise.Take((end - begin) * spot.width);
    const auto row_at = [&](std::size_t r) {
      return Row{rows.square[r], rows.high[r], rows.low[r], u + (r - begin) * spot.width, noise.Span(), noise.Low()};
    };
    const auto offset = [&](std::size_t r) { return spot.x_low + kFrameWidth * (spot.y_low + r); };
    for (std::size_t r = begin; r < end; ++r) {
      DrawRow<W>(columns, row_at(r), spot.width, values + offset(r), pixels + offset(r), unsure + W * r);
    }
    for (std::size_t r = begin; r < end; ++r) {
      MendRow<W>(columns, row_at(r), spot.width, values + offset(r), pixels + offset(r), unsure + W * r);
    }
    begin = end;
  }
}

// NOLINTEND(cppcoreguidelines-pro-type-reinterpret-cast)
// NOLINTEND(cppcoreguidelines-avoid-c-arrays,cppcoreguidelines-pro-type-member-init)

QUEN_TARGET_AVX2 Level DrawSpotAvx2(const Spot& spot, const PowersOfTwo& powers, Noise& noise, double* values,
                                    std::uint16_t* pixels) {
  DrawSpot<4>(spot, powers, noise, values, pixels);
  return Level::kAvx2;
}

QUEN_TARGET_AVX512 Level DrawSpotAvx512(const Spot& spot, const PowersOfTwo& powers, Noise& noise, double* values,
                                        std::uint16_t* pixels) {
  DrawSpot<8>(spot, powers, noise, values, pixels);
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
  static const PowersOfTwo powers = MakePowersOfTwo();
  return level == Level::kAvx512 ? DrawSpotAvx512(spot, powers, noise, values, pixels)
                                 : DrawSpotAvx2(spot, powers, noise, values, pixels);
}

}  // namespace quen::shssim
