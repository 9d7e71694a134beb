#include "centroiders/src/spot_moments.hpp"

#include <immintrin.h>

#include <algorithm>
#include <cmath>
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

/// How a number is written, and how exponentials of it are made. The least of them, and of products of two, which a
/// round spot's g is, has a square that is still an ordinary number, with a weight, too: others take a hundred times as
/// long.
template <typename T>
struct Format;
template <>
struct Format<double> {
  static constexpr double kRounding = 0x1.8p52;  // pushes out the digits behind the point
  static constexpr double kLn2High = 0x1.62e42fefa0000p-1;
  static constexpr double kLn2Low = 0x1.cf79abc9e3b3ap-40;
  static constexpr std::size_t kPairs = 6;  // of terms of a series
  static constexpr std::int64_t kExponentAt = 52;
  static constexpr double kLowest = -230.0;
  static constexpr double kLeast = 1e-100;
};
template <>
struct Format<float> {
  static constexpr float kRounding = 0x1.8p23F;
  static constexpr float kLn2High = 0x1.62ep-1F;
  static constexpr float kLn2Low = 0x1.0bfbe8p-15F;
  static constexpr std::size_t kPairs = 3;
  static constexpr std::int32_t kExponentAt = 23;
  static constexpr float kLowest = -34.0F;
  static constexpr float kLeast = 1e-15F;
};

/// exp(max(x, kLowest)), x at most 1: 2ⁿ · exp(r), where n is the whole number nearest to x / ln 2, and exp(r),
/// |r| ≤ ln 2 / 2, the sum of its series up to r¹³ / 13!, or r⁷ / 7! in single precision. It errs by less than 2·10⁻¹⁶
/// of itself, or 2·10⁻⁷.
template <typename T, std::size_t W>
QUEN_ALWAYS_INLINE void Exponential(const Lanes<T, W>& x, Lanes<T, W>& result) {
  using F = Format<T>;
  using V = Lanes<T, W>;
  constexpr T kInverseFactorials[] = {T(1.0 / 2.0),        T(1.0 / 6.0),         T(1.0 / 24.0),
                                      T(1.0 / 120.0),      T(1.0 / 720.0),       T(1.0 / 5040.0),
                                      T(1.0 / 40320.0),    T(1.0 / 362880.0),    T(1.0 / 3628800.0),
                                      T(1.0 / 39916800.0), T(1.0 / 479001600.0), T(1.0 / 6227020800.0)};
  const V limited = x > F::kLowest ? x : V{} + F::kLowest;
  const V shifted = limited * T(1.4426950408889634) + F::kRounding;
  const V n = shifted - F::kRounding;
  const V r = (limited - n * F::kLn2High) - n * F::kLn2Low;
  // From r² on, terms are added in pairs, and then pairs of those: in Horner's chain each step waits for the one
  // before.
  V pairs[F::kPairs];
  for (std::size_t k = 0; k < F::kPairs; ++k) pairs[k] = kInverseFactorials[2 * k] + kInverseFactorials[2 * k + 1] * r;
  const V r2 = r * r;
  const V r4 = r2 * r2;
  V series = pairs[0] + r2 * pairs[1];
  if constexpr (F::kPairs == 3) {
    series += r4 * pairs[2];
  } else {
    series = (series + r4 * (pairs[2] + r2 * pairs[3])) + (r4 * r4) * (pairs[4] + r2 * pairs[5]);
  }
  const V sum = T(1.0) + (r + r2 * series);
  WordsOf<T, W> bits;
  WordsOf<T, W> exponent;
  std::memcpy(&bits, &sum, sizeof(bits));
  std::memcpy(&exponent, &shifted, sizeof(exponent));
  bits += exponent << F::kExponentAt;
  std::memcpy(&result, &bits, sizeof(result));
}

/// Along one axis: the whole number nearest to the centre, and the rest.
template <typename T>
struct Middle {
  explicit Middle(double centre)
      : whole(static_cast<T>(std::rint(centre))), rest(static_cast<T>(centre - std::rint(centre))) {}
  T whole;
  T rest;
};

/// From the centre, of the columns or rows from `first` on. Rounded once, whatever the number of lanes.
template <typename T, std::size_t W>
QUEN_ALWAYS_INLINE void Distances(std::size_t first, const Middle<T>& middle, Lanes<T, W>& d) {
  for (std::size_t lane = 0; lane < W; ++lane) d[lane] = static_cast<T>(lane);
  d = (d + (static_cast<T>(first) - middle.whole)) - middle.rest;
}

/// At most kTile columns or rows, and the part of g that depends on them alone.
template <typename T>
struct Axis {
  std::size_t first;
  std::size_t end;
  alignas(64) std::array<T, kTile> g;
};

/// g = exp(−p · d² / 2), at distances d from the centre.
template <typename T, std::size_t W>
QUEN_ALWAYS_INLINE void Fill(double centre, double p, Axis<T>& axis) {
  const Middle<T> middle(centre);
  const T factor = static_cast<T>(-0.5 * p);
  for (std::size_t k = 0; axis.first + k < axis.end; k += W) {
    Lanes<T, W> d;
    Distances<T, W>(axis.first + k, middle, d);
    Lanes<T, W> g;
    Exponential<T, W>(factor * (d * d), g);
    Store(g, axis.g.data() + k);
  }
}

/// Sums for functions with gⁿ, whose powers of u and v together are below P: [j][k] over every eighth column.
template <std::size_t P>
struct Totals {
  alignas(64) double of[P][P][kBlock] = {};
};

/// W columns' sums with powers of v, and the powers of u, D columns at a time.
template <std::size_t P, std::size_t D, typename T, std::size_t W>
QUEN_ALWAYS_INLINE void AddColumns(const Lanes<T, W>* sums, std::size_t x, double centre, Totals<P>& totals) {
  alignas(64) T stored[P][W];
  for (std::size_t k = 0; k < P; ++k) Store(sums[k], stored[k]);
  for (std::size_t part = 0; part < W; part += D) {
    const std::size_t lane = (x + part) % kBlock;
    Doubles<D> of_column[P];
    for (std::size_t k = 0; k < P; ++k) Widen<D>(stored[k] + part, of_column[k]);
    Doubles<D> u;
    Count<D>(x + part, u);
    u -= centre;
    Doubles<D> power = Doubles<D>{} + 1.0;
    for (std::size_t j = 0; j < P; ++j) {
      for (std::size_t k = 0; j + k < P; ++k) {
        Doubles<D> total;
        Load(total, totals.of[j][k] + lane);
        total += power * of_column[k];
        Store(total, totals.of[j][k] + lane);
      }
      power *= u;
    }
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
template <std::size_t S, std::size_t B, bool kOval, std::size_t D, std::size_t W, typename T>
QUEN_ALWAYS_INLINE void SumColumns(const PatchOf<T>& patch, const SpotModel& model, double given_noise,
                                   const Axis<T>& columns, const Axis<T>& rows, std::size_t x,
                                   AllTotals<S, B>& totals) {
  using V = Lanes<T, W>;
  V u;
  Distances<T, W>(x, Middle<T>(model.centre.x), u);
  V column_g;
  Load(column_g, columns.g.data() + (x - columns.first));
  const V exponent_of_u = static_cast<T>(-0.5 * model.p.xx) * (u * u);
  const V slope_of_u = static_cast<T>(-model.p.xy) * u;
  const T exponent_of_v = static_cast<T>(-0.5 * model.p.yy);
  const T height = static_cast<T>(model.height);
  const T slope_y = static_cast<T>(model.slope_y);
  const T noise = static_cast<T>(given_noise);
  V background_of_u = V{} + static_cast<T>(model.background);
  if constexpr (B == 1) background_of_u += static_cast<T>(model.slope_x) * u;

  V w_sums[2 * B + 1] = {};
  V wg_sums[S + B + 1] = {};
  V wgg_sums[2 * S + 1] = {};
  V wr_sums[B + 1] = {};
  V wrg_sums[S + 1] = {};
  const T* light_at = patch.light.data() + rows.first * patch.stride + x;
  const T* response_at = patch.response.data() + rows.first * patch.stride + x;
  const Middle<T> middle(model.centre.y);
  T y = static_cast<T>(rows.first) - middle.whole;
  for (std::size_t row = 0; row < rows.end - rows.first; ++row) {
    const T v = y - middle.rest;
    y += T(1.0);
    V g;
    if constexpr (kOval) {
      Exponential<T, W>(exponent_of_u + v * (slope_of_u + exponent_of_v * v), g);
    } else {
      g = column_g * rows.g[row];
      g = g > Format<T>::kLeast ? g : V{} + Format<T>::kLeast;
    }
    V light;
    V w;
    Load(light, light_at + row * patch.stride);
    Load(w, response_at + row * patch.stride);
    V mu = background_of_u + height * g;
    if constexpr (B == 1) mu = (background_of_u + slope_y * v) + height * g;
    w /= (mu > T(0.0) ? mu : V{}) + noise;
    const V wr = w * (light - mu);
    const V wg = w * g;
    const V wgg = wg * g;
    const V wrg = wr * g;
    T power = T(1.0);
    for (std::size_t k = 0; k < 2 * S + 1; ++k) {
      if (k < 2 * B + 1) w_sums[k] += w * power;
      if (k < S + B + 1) wg_sums[k] += wg * power;
      wgg_sums[k] += wgg * power;
      if (k < B + 1) wr_sums[k] += wr * power;
      if (k < S + 1) wrg_sums[k] += wrg * power;
      power *= v;
    }
  }
  AddColumns<2 * B + 1, D, T, W>(w_sums, x, model.centre.x, totals.w);
  AddColumns<S + B + 1, D, T, W>(wg_sums, x, model.centre.x, totals.wg);
  AddColumns<2 * S + 1, D, T, W>(wgg_sums, x, model.centre.x, totals.wgg);
  AddColumns<B + 1, D, T, W>(wr_sums, x, model.centre.x, totals.wr);
  AddColumns<S + 1, D, T, W>(wrg_sums, x, model.centre.x, totals.wrg);
}

/// W numbers or D doubles at a time; a block, where it is the last one and W are more.
template <std::size_t S, std::size_t B, bool kOval, std::size_t D, std::size_t W, typename T>
QUEN_ALWAYS_INLINE void SumPatch(const PatchOf<T>& patch, const SpotModel& model, double noise, SpotMoments& moments) {
  AllTotals<S, B> totals;
  Axis<T> columns;
  Axis<T> rows;
  for (rows.first = 0; rows.first < patch.height; rows.first = rows.end) {
    rows.end = std::min(rows.first + kTile, patch.height);
    if constexpr (!kOval) Fill<T, W>(model.centre.y, model.p.yy, rows);
    for (columns.first = 0; columns.first < patch.width; columns.first = columns.end) {
      columns.end = std::min(columns.first + kTile, patch.width);
      if constexpr (!kOval) Fill<T, W>(model.centre.x, model.p.xx, columns);
      const std::size_t end_of_blocks = WholeBlocks(columns.end);
      for (std::size_t x = columns.first; x < columns.end; x += W) {
        if (x + W <= end_of_blocks) {
          SumColumns<S, B, kOval, D, W, T>(patch, model, noise, columns, rows, x, totals);
        } else {
          SumColumns<S, B, kOval, D, std::min(W, kBlock), T>(patch, model, noise, columns, rows, x, totals);
        }
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
QUEN_ALWAYS_INLINE void SumAxis(const Axis<double>& axis, double centre, AxisTotals<S, B>& totals) {
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
  Axis<double> columns;
  Axis<double> rows;
  columns.first = rows.first = 0;
  columns.end = patch.width;
  rows.end = patch.height;
  Fill<double, W>(model.centre.x, model.p.xx, columns);
  Fill<double, W>(model.centre.y, model.p.yy, rows);
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
    V counts;
    CountUpTo<W>(x, columns.end, counts);
    V g;
    Load(g, columns.g.data() + x);
    g *= counts;
    for (V& sum : r_sums) sum *= counts;
    for (V& sum : rg_sums) sum *= g;
    AddColumns<B + 1, W, double, W>(r_sums, x, model.centre.x, r_totals);
    AddColumns<S + 1, W, double, W>(rg_sums, x, model.centre.x, rg_totals);
  }
  Collapse(r_totals, moments.score[0]);
  Collapse(rg_totals, moments.score[1]);
}

// NOLINTEND(cppcoreguidelines-avoid-c-arrays,cppcoreguidelines-pro-type-member-init)

/// Each zeroes the registers' upper halves by itself: g++ 12 forgets it on some paths through the larger functions, and
/// all code without vectors that runs after them would be slow.
template <std::size_t S, std::size_t B, bool kOval, typename T>
struct Forms {
  static constexpr std::size_t kPerDouble = std::is_same_v<T, float> ? 2 : 1;
  static void SpotSumsPlain(const PatchOf<T>& patch, const SpotModel& model, double noise, SpotMoments& moments) {
    SumPatch<S, B, kOval, 2, 2 * kPerDouble, T>(patch, model, noise, moments);
  }
  QUEN_TARGET_AVX2 static void SpotSumsAvx2(const PatchOf<T>& patch, const SpotModel& model, double noise,
                                            SpotMoments& moments) {
    SumPatch<S, B, kOval, 4, 4 * kPerDouble, T>(patch, model, noise, moments);
    _mm256_zeroupper();
  }
  QUEN_TARGET_AVX512 static void SpotSumsAvx512(const PatchOf<T>& patch, const SpotModel& model, double noise,
                                                SpotMoments& moments) {
    SumPatch<S, B, kOval, 8, 8 * kPerDouble, T>(patch, model, noise, moments);
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

template <std::size_t S, std::size_t B, bool kOval, typename T>
SpotMoments SumForm(Level level, const PatchOf<T>& patch, const SpotModel& model, double noise) {
  using F = Forms<S, B, kOval, T>;
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

template <typename T>
SpotMoments SumSpotMoments(Level level, const PatchOf<T>& patch, const SpotModel& model, double noise,
                           const Extent& extent) {
  const auto sum = [&] {
    const bool slope = extent.background_degree == 1;
    if (extent.spot_degree == 1) return slope ? SumForm<1, 1, false, T> : SumForm<1, 0, false, T>;
    if (extent.is_oval) return slope ? SumForm<2, 1, true, T> : SumForm<2, 0, true, T>;
    return slope ? SumForm<2, 1, false, T> : SumForm<2, 0, false, T>;
  }();
  return sum(level, patch, model, noise);
}
template SpotMoments SumSpotMoments(Level, const PatchOf<double>&, const SpotModel&, double, const Extent&);
template SpotMoments SumSpotMoments(Level, const PatchOf<float>&, const SpotModel&, double, const Extent&);

SpotMoments SumBeforeTheSpot(Level level, const Patch& patch, const SpotModel& model, const Extent& extent) {
  constexpr double kAnyNoise = 1.0;  // the weights are equal with each
  if (!patch.counts_everywhere || patch.width > kTile || patch.height > kTile) {
    return SumSpotMoments<double>(level, patch, model, kAnyNoise,
                                  {extent.spot_degree, extent.background_degree, false});
  }
  const bool slope = extent.background_degree == 1;
  if (extent.spot_degree == 1) return (slope ? SumEqualForm<1, 1> : SumEqualForm<1, 0>)(level, patch, model);
  return (slope ? SumEqualForm<2, 1> : SumEqualForm<2, 0>)(level, patch, model);
}

}  // namespace quen::centroiders
