#include "centroiders/src/spot_moments.hpp"

#include <immintrin.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "centroiders/src/block.hpp"
#include "centroiders/src/lanes.hpp"
#include "common/simd/vector_memory.hpp"

// One source for all levels: two, four or eight columns at a time, each from the first row to the last. A column's sums
// are the same in whatever company it is, and no operation is fused; then every eighth column is added to those before
// it, and at the end the eight to each other. So the bits are the same at all levels.

namespace quen::centroiders {
namespace {

using common::simd::Level;
using common::simd::Load;
using common::simd::Store;

// Plain arrays of vectors, which stay in registers; their bits are taken as those of whole numbers.
// NOLINTBEGIN(cppcoreguidelines-avoid-c-arrays,cppcoreguidelines-pro-type-member-init)

/// exp(max(x, −230)), x at most 1, with an error of less than 2·10⁻¹⁶ of it: 2ⁿ · exp(r), where n is the whole number
/// nearest to x / ln 2, and exp(r), |r| ≤ ln 2 / 2, the sum of its series up to r¹³ / 13!. The least value, 10⁻¹⁰⁰, is
/// still a number whose square is one; the product of two, which a round spot's g may be, is one too, and its square 0.
template <std::size_t W>
QUEN_ALWAYS_INLINE void Exponential(const Doubles<W>& x, Doubles<W>& result) {
  constexpr double kRounding = 0x1.8p52;  // pushes out the digits behind the point
  constexpr double kLn2High = 0x1.62e42fefa0000p-1;
  constexpr double kLn2Low = 0x1.cf79abc9e3b3ap-40;
  constexpr double kLowest = -230.0;
  constexpr double kInverseFactorials[] = {1.0 / 2.0,       1.0 / 6.0,        1.0 / 24.0,        1.0 / 120.0,
                                           1.0 / 720.0,     1.0 / 5040.0,     1.0 / 40320.0,     1.0 / 362880.0,
                                           1.0 / 3628800.0, 1.0 / 39916800.0, 1.0 / 479001600.0, 1.0 / 6227020800.0};
  const Doubles<W> limited = x > kLowest ? x : Doubles<W>{} + kLowest;
  const Doubles<W> shifted = limited * 1.4426950408889634 + kRounding;
  const Doubles<W> n = shifted - kRounding;
  const Doubles<W> r = (limited - n * kLn2High) - n * kLn2Low;
  // From r² on, terms are added in pairs, and then pairs of those: in Horner's chain each step waits for the one
  // before.
  Doubles<W> pairs[6];
  for (std::size_t k = 0; k < 6; ++k) pairs[k] = kInverseFactorials[2 * k] + kInverseFactorials[2 * k + 1] * r;
  const Doubles<W> r2 = r * r;
  const Doubles<W> r4 = r2 * r2;
  const Doubles<W> low = (pairs[0] + r2 * pairs[1]) + r4 * (pairs[2] + r2 * pairs[3]);
  const Doubles<W> high = pairs[4] + r2 * pairs[5];
  const Doubles<W> sum = 1.0 + (r + r2 * (low + (r4 * r4) * high));
  Words<W> bits;
  Words<W> exponent;
  std::memcpy(&bits, &sum, sizeof(bits));
  std::memcpy(&exponent, &shifted, sizeof(exponent));
  bits += exponent << 52;
  std::memcpy(&result, &bits, sizeof(result));
}

/// At most kTile columns or rows, and the part of g that depends on them alone.
struct Axis {
  std::size_t first;
  std::size_t end;
  alignas(64) std::array<double, kTile> g;
};

/// g = exp(−p · d² / 2), at distances d from the centre.
template <std::size_t W>
QUEN_ALWAYS_INLINE void Fill(double centre, double p, Axis& axis) {
  for (std::size_t k = 0; axis.first + k < axis.end; k += W) {
    Doubles<W> d;
    Count<W>(axis.first + k, d);
    d -= centre;
    Doubles<W> g;
    Exponential<W>(-0.5 * p * (d * d), g);
    Store(g, axis.g.data() + k);
  }
}

/// Sums for functions with gⁿ, whose powers of u and v together are below P: [j][k] over every eighth column.
template <std::size_t P>
struct Totals {
  alignas(64) double of[P][P][kBlock] = {};
};

/// A column's sums with powers of v, and the powers of u.
template <std::size_t P, std::size_t W>
QUEN_ALWAYS_INLINE void AddColumns(const Doubles<W>* sums, const Doubles<W>& u, std::size_t lane, Totals<P>& totals) {
  Doubles<W> power = Doubles<W>{} + 1.0;
  for (std::size_t j = 0; j < P; ++j) {
    for (std::size_t k = 0; j + k < P; ++k) {
      Doubles<W> total;
      Load(total, totals.of[j][k] + lane);
      total += power * sums[k];
      Store(total, totals.of[j][k] + lane);
    }
    power *= u;
  }
}

template <std::size_t P, typename Sums>
void Collapse(const Totals<P>& totals, Sums& sums) {
  for (std::size_t j = 0; j < P; ++j) {
    for (std::size_t k = 0; j + k < P; ++k) sums[j][k] = SumOfEight(totals.of[j][k]);
  }
}

/// One fit's sums: S and B are the degrees of spot and background.
template <std::size_t S, std::size_t B>
struct AllTotals {
  Totals<2 * B + 1> w;
  Totals<S + B + 1> wg;
  Totals<2 * S + 1> wgg;
  Totals<B + 1> wr;
  Totals<S + 1> wrg;
};

/// Adds W columns from x on, over the rows.
template <std::size_t S, std::size_t B, bool kOval, std::size_t W>
QUEN_ALWAYS_INLINE void SumColumns(const Patch& patch, const SpotModel& model, double noise, const Axis& columns,
                                   const Axis& rows, std::size_t x, AllTotals<S, B>& totals) {
  using V = Doubles<W>;
  V u;
  Count<W>(x, u);
  u -= model.centre.x;
  V column_g;
  Load(column_g, columns.g.data() + (x - columns.first));
  const V exponent_of_u = -0.5 * model.p.xx * (u * u);
  const V slope_of_u = -model.p.xy * u;
  V background_of_u = V{} + model.background;
  if constexpr (B == 1) background_of_u += model.slope_x * u;

  V w_sums[2 * B + 1] = {};
  V wg_sums[S + B + 1] = {};
  V wgg_sums[2 * S + 1] = {};
  V wr_sums[B + 1] = {};
  V wrg_sums[S + 1] = {};
  const double* light_at = patch.light.data() + rows.first * patch.stride + x;
  const double* response_at = patch.response.data() + rows.first * patch.stride + x;
  auto y = static_cast<double>(rows.first);
  for (std::size_t row = 0; row < rows.end - rows.first; ++row) {
    const double v = y - model.centre.y;
    y += 1.0;
    V g;
    if constexpr (kOval) {
      Exponential<W>(exponent_of_u + v * (slope_of_u - 0.5 * model.p.yy * v), g);
    } else {
      g = column_g * rows.g[row];
    }
    V light;
    V w;
    Load(light, light_at + row * patch.stride);
    Load(w, response_at + row * patch.stride);
    V mu = background_of_u + model.height * g;
    if constexpr (B == 1) mu = (background_of_u + model.slope_y * v) + model.height * g;
    w /= (mu > 0.0 ? mu : V{}) + noise;
    const V wr = w * (light - mu);
    const V wg = w * g;
    const V wgg = wg * g;
    const V wrg = wr * g;
    double power = 1.0;
    for (std::size_t k = 0; k < 2 * S + 1; ++k) {
      if (k < 2 * B + 1) w_sums[k] += w * power;
      if (k < S + B + 1) wg_sums[k] += wg * power;
      wgg_sums[k] += wgg * power;
      if (k < B + 1) wr_sums[k] += wr * power;
      if (k < S + 1) wrg_sums[k] += wrg * power;
      power *= v;
    }
  }
  const std::size_t lane = x % kBlock;
  AddColumns<2 * B + 1, W>(w_sums, u, lane, totals.w);
  AddColumns<S + B + 1, W>(wg_sums, u, lane, totals.wg);
  AddColumns<2 * S + 1, W>(wgg_sums, u, lane, totals.wgg);
  AddColumns<B + 1, W>(wr_sums, u, lane, totals.wr);
  AddColumns<S + 1, W>(wrg_sums, u, lane, totals.wrg);
}

template <std::size_t S, std::size_t B, bool kOval, std::size_t W>
QUEN_ALWAYS_INLINE void SumPatch(const Patch& patch, const SpotModel& model, double noise, SpotMoments& moments) {
  AllTotals<S, B> totals;
  Axis columns;
  Axis rows;
  for (rows.first = 0; rows.first < patch.height; rows.first = rows.end) {
    rows.end = std::min(rows.first + kTile, patch.height);
    if constexpr (!kOval) Fill<W>(model.centre.y, model.p.yy, rows);
    for (columns.first = 0; columns.first < patch.width; columns.first = columns.end) {
      columns.end = std::min(columns.first + kTile, patch.width);
      if constexpr (!kOval) Fill<W>(model.centre.x, model.p.xx, columns);
      for (std::size_t x = columns.first; x < columns.end; x += W) {
        SumColumns<S, B, kOval, W>(patch, model, noise, columns, rows, x, totals);
      }
    }
  }
  Collapse(totals.w, moments.information[0]);
  Collapse(totals.wg, moments.information[1]);
  Collapse(totals.wgg, moments.information[2]);
  Collapse(totals.wr, moments.score[0]);
  Collapse(totals.wrg, moments.score[1]);
}

// --- Equal weights. Where p_xy is 0, g = g_x · g_y is a function of u times one of v, and so is each product of two
// functions of the model:
//
//     Σ gⁿ · u^j · v^k  =  (Σ_x g_xⁿ · u^j) · (Σ_y g_yⁿ · v^k)
//
// The pixels are no such product. With r = l − b, their sums go down each column first:
//
//     Σ r · gⁿ · u^j · v^k  =  Σ_x g_xⁿ · u^j · (Σ_y r · g_yⁿ · v^k)

/// Of one axis' elements, [n][j]: Σ gⁿ · d^j, over every eighth one.
template <std::size_t S, std::size_t B>
struct AxisTotals {
  alignas(64) double of[3][2 * S + 1][kBlock] = {};

  /// The highest power of d with gⁿ.
  static constexpr std::size_t Degree(std::size_t n) { return n == 0 ? 2 * B : n == 1 ? S + B : 2 * S; }
  [[nodiscard]] double Sum(std::size_t n, std::size_t j) const { return SumOfEight(of[n][j]); }
};

/// 1 for each of the first `end` numbers, and 0.
template <std::size_t W>
QUEN_ALWAYS_INLINE void CountUpTo(std::size_t first, std::size_t end, Doubles<W>& counts) {
  Count<W>(first, counts);
  counts = counts < static_cast<double>(end) ? Doubles<W>{} + 1.0 : Doubles<W>{};
}

template <std::size_t S, std::size_t B, std::size_t W>
QUEN_ALWAYS_INLINE void SumAxis(const Axis& axis, double centre, AxisTotals<S, B>& totals) {
  for (std::size_t k = 0; k < axis.end; k += W) {
    Doubles<W> d;
    Count<W>(k, d);
    d -= centre;
    Doubles<W> g;
    Load(g, axis.g.data() + k);
    Doubles<W> function;
    CountUpTo<W>(k, axis.end, function);
    for (std::size_t n = 0; n < 3; ++n) {
      Doubles<W> power = function;
      for (std::size_t j = 0; j <= AxisTotals<S, B>::Degree(n); ++j) {
        Doubles<W> total;
        Load(total, totals.of[n][j] + k % kBlock);
        total += power;
        Store(total, totals.of[n][j] + k % kBlock);
        power *= d;
      }
      function *= g;
    }
  }
}

template <std::size_t S, std::size_t B, std::size_t W>
QUEN_ALWAYS_INLINE void SumEqually(const Patch& patch, const SpotModel& model, SpotMoments& moments) {
  using V = Doubles<W>;
  Axis columns;
  Axis rows;
  columns.first = rows.first = 0;
  columns.end = patch.width;
  rows.end = patch.height;
  Fill<W>(model.centre.x, model.p.xx, columns);
  Fill<W>(model.centre.y, model.p.yy, rows);
  AxisTotals<S, B> of_columns;
  AxisTotals<S, B> of_rows;
  SumAxis<S, B, W>(columns, model.centre.x, of_columns);
  SumAxis<S, B, W>(rows, model.centre.y, of_rows);
  for (std::size_t n = 0; n < 3; ++n) {
    const std::size_t degree = AxisTotals<S, B>::Degree(n);
    for (std::size_t j = 0; j <= degree; ++j) {
      const double of_u = of_columns.Sum(n, j);
      for (std::size_t k = 0; j + k <= degree; ++k) moments.information[n][j][k] = of_u * of_rows.Sum(n, k);
    }
  }

  Totals<B + 1> r_totals;
  Totals<S + 1> rg_totals;
  for (std::size_t x = 0; x < columns.end; x += W) {
    V r_sums[B + 1] = {};
    V rg_sums[S + 1] = {};
    const double* light_at = patch.light.data() + x;
    double y = 0.0;
    for (std::size_t row = 0; row < rows.end; ++row) {
      const double v = y - model.centre.y;
      y += 1.0;
      V light;
      Load(light, light_at + row * patch.stride);
      const V r = light - model.background;
      const V rg = r * rows.g[row];
      double power = 1.0;
      for (std::size_t k = 0; k < S + 1; ++k) {
        if (k < B + 1) r_sums[k] += r * power;
        rg_sums[k] += rg * power;
        power *= v;
      }
    }
    V u;
    Count<W>(x, u);
    u -= model.centre.x;
    V counts;
    CountUpTo<W>(x, columns.end, counts);
    V g;
    Load(g, columns.g.data() + x);
    g *= counts;
    for (V& sum : r_sums) sum *= counts;
    for (V& sum : rg_sums) sum *= g;
    AddColumns<B + 1, W>(r_sums, u, x % kBlock, r_totals);
    AddColumns<S + 1, W>(rg_sums, u, x % kBlock, rg_totals);
  }
  Collapse(r_totals, moments.score[0]);
  Collapse(rg_totals, moments.score[1]);
}

// NOLINTEND(cppcoreguidelines-avoid-c-arrays,cppcoreguidelines-pro-type-member-init)

/// Each zeroes the registers' upper halves by itself: g++ 12 forgets it on some paths through the larger functions, and
/// all code without vectors that runs after them would be slow.
template <std::size_t S, std::size_t B, bool kOval>
struct Forms {
  static void SpotSumsPlain(const Patch& patch, const SpotModel& model, double noise, SpotMoments& moments) {
    SumPatch<S, B, kOval, 2>(patch, model, noise, moments);
  }
  QUEN_TARGET_AVX2 static void SpotSumsAvx2(const Patch& patch, const SpotModel& model, double noise,
                                            SpotMoments& moments) {
    SumPatch<S, B, kOval, 4>(patch, model, noise, moments);
    _mm256_zeroupper();
  }
  QUEN_TARGET_AVX512 static void SpotSumsAvx512(const Patch& patch, const SpotModel& model, double noise,
                                                SpotMoments& moments) {
    SumPatch<S, B, kOval, 8>(patch, model, noise, moments);
    _mm256_zeroupper();
  }
};

/// For equal weights; they zero the upper halves too.
template <std::size_t S, std::size_t B>
struct EqualForms {
  static void EqualSumsPlain(const Patch& patch, const SpotModel& model, SpotMoments& moments) {
    SumEqually<S, B, 2>(patch, model, moments);
  }
  QUEN_TARGET_AVX2 static void EqualSumsAvx2(const Patch& patch, const SpotModel& model, SpotMoments& moments) {
    SumEqually<S, B, 4>(patch, model, moments);
    _mm256_zeroupper();
  }
  QUEN_TARGET_AVX512 static void EqualSumsAvx512(const Patch& patch, const SpotModel& model, SpotMoments& moments) {
    SumEqually<S, B, 8>(patch, model, moments);
    _mm256_zeroupper();
  }
};

template <std::size_t S, std::size_t B, bool kOval>
SpotMoments SumForm(Level level, const Patch& patch, const SpotModel& model, double noise) {
  using F = Forms<S, B, kOval>;
  SpotMoments moments;
  common::simd::Pick(level, F::SpotSumsPlain, F::SpotSumsAvx2, F::SpotSumsAvx512)(patch, model, noise, moments);
  return moments;
}

template <std::size_t S, std::size_t B>
SpotMoments SumEqualForm(Level level, const Patch& patch, const SpotModel& model) {
  using F = EqualForms<S, B>;
  SpotMoments moments;
  common::simd::Pick(level, F::EqualSumsPlain, F::EqualSumsAvx2, F::EqualSumsAvx512)(patch, model, moments);
  return moments;
}

}  // namespace

SpotMoments SumSpotMoments(Level level, const Patch& patch, const SpotModel& model, double noise,
                           const Extent& extent) {
  const bool slope = extent.background_degree == 1;
  if (extent.spot_degree == 1) return (slope ? SumForm<1, 1, false> : SumForm<1, 0, false>)(level, patch, model, noise);
  if (extent.is_oval) return (slope ? SumForm<2, 1, true> : SumForm<2, 0, true>)(level, patch, model, noise);
  return (slope ? SumForm<2, 1, false> : SumForm<2, 0, false>)(level, patch, model, noise);
}

SpotMoments SumBeforeTheSpot(Level level, const Patch& patch, const SpotModel& model, const Extent& extent) {
  constexpr double kAnyNoise = 1.0;  // the weights are equal with each
  if (!patch.counts_everywhere || patch.width > kTile || patch.height > kTile) {
    return SumSpotMoments(level, patch, model, kAnyNoise, {extent.spot_degree, extent.background_degree, false});
  }
  const bool slope = extent.background_degree == 1;
  if (extent.spot_degree == 1) return (slope ? SumEqualForm<1, 1> : SumEqualForm<1, 0>)(level, patch, model);
  return (slope ? SumEqualForm<2, 1> : SumEqualForm<2, 0>)(level, patch, model);
}

}  // namespace quen::centroiders
