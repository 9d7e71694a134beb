#include <algorithm>
#include <bit>

#include "common/simd/vector_memory.hpp"
#include "detector/src/exposure.hpp"
#include "detector/src/poisson.hpp"
#include "detector/src/vectors.hpp"

// Why the fast form counts the same photons.
//
// A pixel's number is a quantile, which random words and λ fix (poisson.hpp): whoever finds the right one finds the
// same one. The fast form works in single precision and knows how far off it may be; where that leaves two candidates,
// the plain form is asked, for one pixel in some hundreds. The normal deviates themselves have the same bits
// (vectors.hpp).
//
// Let ε = 2⁻²⁴, what rounding to single precision errs by, of the result.
//
// λ ≥ 8: with λ = n + f, n whole and 0 ≤ f < 1, the quantile is n + the whole part of f + √λ w + series, where |w| < 4,
// or the plain form is asked. λ becomes single with 2 ε, half of which is left in the root; root and product are
// rounded: less than 4 ε |√λ w|. The series is below 4, and errs by 4 ε of itself; the sums err by ε of what is at most
// |√λ w| + 5, twice, and f by ε. All of it is below 8 ε · (|√λ w| + 8).
//
// λ < 8: F(0), F(1), … are subtracted from u, one probability after the other, and the sign is looked at. An
// exponential is right to 4 ε and λ to 2 ε, a probability of k electrons to (4 + 5 k) ε of itself, which is 44 ε in the
// mean at the most; some 30 subtractions of numbers below 1 are right to ε / 2 each, and u to ε. All of it, with a λ
// below 2⁻²¹ taken as 0, is below 62 ε + 2⁻²¹ < 2⁻¹⁷. Probabilities stay above 10⁻²⁵: numbers too small to be normal
// ones take a hundred times as long.
//
// A product and a sum may be fused here: that is one rounding less.

namespace quen::detector {
namespace {

using common::simd::Level;
using common::simd::Load;
using common::simd::Store;

void CountPhotonsPlain(const Stream& stream, std::size_t first, double* electrons) {
  for (std::size_t k = 0; k < kChunk; ++k) {
    electrons[k] = PhotonElectrons(stream, static_cast<std::uint32_t>(first + k), electrons[k]);
  }
}

// Plain arrays: loops over checked ones would not be vectorised. Vectors are written before they are read.
// NOLINTBEGIN(cppcoreguidelines-avoid-c-arrays,cppcoreguidelines-pro-type-member-init,cppcoreguidelines-pro-type-reinterpret-cast)

constexpr float kUnsureSum = 0x1p-17F;
constexpr double kNoLight = 0x1p-21;
constexpr float kLeastProbability = 1e-25F;
constexpr float kUnsureProduct = 0x1p-21F;
constexpr std::int32_t kMostSmall = 63;

/// 1/k.
struct Inverses {
  float of[kMostSmall + 1];
};
constexpr Inverses MakeInverses() {
  Inverses inverses{};
  for (int k = 1; k <= kMostSmall; ++k) inverses.of[k] = 1.0F / static_cast<float>(k);
  return inverses;
}
constexpr Inverses kInverse = MakeInverses();

/// Of W pixels.
template <std::size_t W>
struct Light {
  typename Vectors<W>::Floats lambda;
  typename Vectors<W>::Ints whole;
  typename Vectors<W>::Floats fraction;
  std::uint32_t small;  ///< a bit for each that is below kLargeMean
};

template <std::size_t W>
QUEN_ALWAYS_INLINE void LoadLight(const double* from, Light<W>& light) {
  using V = Vectors<W>;
  typename V::HalfFloats fraction[2];
  typename V::HalfInts whole[2];
  for (std::size_t half = 0; half < 2; ++half) {
    typename V::Doubles exact;
    Load(exact, from + half * W / 2);
    exact = exact < kNoLight ? typename V::Doubles{} : exact;
    whole[half] = __builtin_convertvector(exact, typename V::HalfInts);
    fraction[half] = __builtin_convertvector(exact - __builtin_convertvector(whole[half], typename V::Doubles),
                                             typename V::HalfFloats);
  }
  Join(whole[0], whole[1], light.whole);
  Join(fraction[0], fraction[1], light.fraction);
  light.lambda = __builtin_convertvector(light.whole, typename V::Floats) + light.fraction;
  light.small = Below(light.whole, static_cast<std::int32_t>(kLargeMean));
}

template <typename Floats>
QUEN_ALWAYS_INLINE void Absolute(const Floats& x, Floats& absolute) {
  using Ints = typename Vectors<sizeof(Floats) / sizeof(float)>::Ints;
  Floats copy = x;
  Ints bits = reinterpret_cast<Ints>(copy) & 0x7fffffff;
  absolute = reinterpret_cast<Floats>(bits);
}

/// SeriesBeside with fused steps.
template <std::size_t W>
QUEN_ALWAYS_INLINE void FusedSeries(const typename Vectors<W>::Floats& inverse_root,
                                    const typename Vectors<W>::Floats& w, typename Vectors<W>::Floats& series) {
  using Floats = typename Vectors<W>::Floats;
  constexpr float kFirst[] = {1.0F / 3, 1.0F / 6};
  constexpr float kSecond[] = {-1.0F / 36, -1.0F / 72};
  constexpr float kThird[] = {-8.0F / 405, 7.0F / 810, 1.0F / 270};
  constexpr float kFourth[] = {671.0F / 38880, -137.0F / 38880, -23.0F / 17280};
  const Floats w2 = w * w;
  Floats first;
  Floats second;
  Floats third;
  Floats fourth;
  Fused(w2, Floats{} + kFirst[1], Floats{} + kFirst[0], first);
  Fused(w2, Floats{} + kSecond[1], Floats{} + kSecond[0], second);
  Fused(w2, Floats{} + kThird[2], Floats{} + kThird[1], third);
  Fused(third, w2, Floats{} + kThird[0], third);
  Fused(w2, Floats{} + kFourth[2], Floats{} + kFourth[1], fourth);
  Fused(fourth, w2, Floats{} + kFourth[0], fourth);
  Fused(fourth * w, inverse_root, third, third);
  Fused(third, inverse_root, second * w, second);
  Fused(second, inverse_root, first, series);
}

/// @return  a bit for each pixel that needs the plain form
template <std::size_t W>
QUEN_ALWAYS_INLINE std::uint32_t CountMany(const Light<W>& light, const typename Vectors<W>::Floats& w,
                                           typename Vectors<W>::Ints& electrons) {
  using Floats = typename Vectors<W>::Floats;
  using Ints = typename Vectors<W>::Ints;
  Floats root = light.lambda;
  SquareRoot(root);
  const Floats inverse = 1.0F / root;
  const Floats product = root * w;
  Floats series;
  FusedSeries<W>(inverse, w, series);
  const Floats sum = light.fraction + (series + product);
  Floats below;
  Floor(sum, below);
  electrons = light.whole + __builtin_convertvector(below, Ints);

  Floats from_middle;
  Absolute(sum - below - 0.5F, from_middle);
  Floats far;
  Absolute(w, far);
  Floats moved;
  Absolute(product, moved);
  Floats margin;
  Margin<float>(inverse, w, margin);
  Fused(Floats{} + kUnsureProduct, moved + 8.0F, margin, margin);
  return AtLeast(from_middle + margin, Floats{} + 0.5F) | AtLeast(far, Floats{} + 4.0F);
}

/// e^(−λ), 0 ≤ λ < 8.
template <std::size_t W>
QUEN_ALWAYS_INLINE void Darkness(const typename Vectors<W>::Floats& lambda, typename Vectors<W>::Floats& result) {
  using Floats = typename Vectors<W>::Floats;
  using Ints = typename Vectors<W>::Ints;
  constexpr float kToWhole = 0x1.8p23F;
  const Floats e = (lambda * -1.44269504F + kToWhole) - kToWhole;
  const Floats rest = (-lambda - e * 0x1.62ep-1F) - e * 0x1.0bfbe8p-15F;
  const Floats series =
      (((((0.001394110843F * rest + 0.008375126398F) * rest + 0.0416663529F) * rest + 0.1666641551F) * rest +
        0.5000000047F) *
           rest +
       1.000000038F) *
          rest +
      1.0F;
  Ints bits = (__builtin_convertvector(e, Ints) + 127) << 23;
  result = series * reinterpret_cast<Floats>(bits);
}

/// @return  a bit for each pixel that needs the plain form
template <std::size_t W>
QUEN_ALWAYS_INLINE std::uint32_t CountFew(const Light<W>& light, const typename Vectors<W>::Words32& words,
                                          typename Vectors<W>::Ints& electrons) {
  using Floats = typename Vectors<W>::Floats;
  using Ints = typename Vectors<W>::Ints;
  // Others do not matter, and must not keep the loop going.
  const Floats lambda = light.whole < static_cast<std::int32_t>(kLargeMean) ? light.lambda : Floats{};
  Floats u = (__builtin_convertvector(__builtin_convertvector(words >> 1, Ints), Floats) + 0.5F) * 0x1p-31F;
  Floats probability;
  Darkness<W>(lambda, probability);
  const Floats unsure = Floats{} + kUnsureSum;
  const Floats floor = Floats{} + kLeastProbability;
  Floats least = Floats{} + 1.0F;
  Ints negative = {};
  std::int32_t steps = 0;
  do {
#pragma GCC unroll 3
    for (int k = 0; k < 3; ++k) {
      u -= probability;
      negative += reinterpret_cast<Ints>(u) >> 31;
      LowerToMagnitude(u, least);
      ++steps;
      Fused(probability, lambda * kInverse.of[steps], floor, probability);
    }
  } while (AtLeast(u, unsure) != 0 && steps < kMostSmall);
  electrons = negative + steps;
  return AtLeast(unsure, least) | AtLeast(u, unsure);
}

/// W pixels.
template <std::size_t W>
QUEN_ALWAYS_INLINE void CountVector(const Stream& stream, std::size_t pixel, const Light<W>& light,
                                    const typename Vectors<W>::Floats& w, std::uint32_t in_tail,
                                    const typename Vectors<W>::Words32& words, double* electrons) {
  using V = Vectors<W>;
  constexpr std::uint32_t kAll = (1U << W) - 1;
  typename V::Ints counted = {};
  std::uint32_t unsure = 0;
  if (light.small != kAll) unsure = (CountMany<W>(light, w, counted) | in_tail) & ~light.small;
  if (light.small != 0) {
    typename V::Ints few;
    unsure |= CountFew<W>(light, words, few) & light.small;
    counted = light.whole < static_cast<std::int32_t>(kLargeMean) ? few : counted;
  }
  double lambda[W];
  if (unsure != 0) std::copy_n(electrons, W, lambda);
  typename V::HalfInts halves[2];
  Split(counted, halves[0], halves[1]);
  Store(__builtin_convertvector(halves[0], typename V::Doubles), electrons);
  Store(__builtin_convertvector(halves[1], typename V::Doubles), electrons + W / 2);
  for (; unsure != 0; unsure &= unsure - 1) {
    const auto lane = static_cast<std::size_t>(std::countr_zero(unsure));
    electrons[lane] = PhotonElectrons(stream, static_cast<std::uint32_t>(pixel + lane), lambda[lane]);
  }
}

template <std::size_t W>
QUEN_ALWAYS_INLINE void CountChunk(const Stream& stream, std::size_t first, double* electrons) {
  using V = Vectors<W>;
  constexpr std::uint32_t kAll = (1U << W) - 1;
  const Rounds rounds(stream, Stage::kPhoton);
  for (std::size_t group = 0; group < kChunk; group += 32) {
    for (std::size_t lane = 0; lane < 16; lane += W) {
      double* const here = electrons + group + lane;
      typename V::Words32 words[4];
      DrawBlocks<W>(rounds, static_cast<std::uint32_t>((first + group) / 2 + lane), words);
      Light<W> light;
      Light<W> other_light;
      LoadLight<W>(here, light);
      LoadLight<W>(here + 16, other_light);
      typename V::Floats w = {};
      typename V::Floats other_w = {};
      std::uint32_t in_tail = 0;
      if ((light.small & other_light.small) != kAll) in_tail = NormalVectors<W>(words[0], words[1], w, other_w);
      CountVector<W>(stream, first + group + lane, light, w, in_tail, words[2], here);
      CountVector<W>(stream, first + group + lane + 16, other_light, other_w, in_tail, words[3], here + 16);
    }
  }
}

// NOLINTEND(cppcoreguidelines-avoid-c-arrays,cppcoreguidelines-pro-type-member-init,cppcoreguidelines-pro-type-reinterpret-cast)

QUEN_TARGET_AVX2 void CountPhotonsAvx2(const Stream& stream, std::size_t first, double* electrons) {
  CountChunk<8>(stream, first, electrons);
}
QUEN_TARGET_AVX512 void CountPhotonsAvx512(const Stream& stream, std::size_t first, double* electrons) {
  CountChunk<16>(stream, first, electrons);
}

}  // namespace

void CountPhotons(Level level, const Stream& stream, std::size_t first, double* electrons) {
  common::simd::Pick(level, CountPhotonsPlain, CountPhotonsAvx2, CountPhotonsAvx512)(stream, first, electrons);
}

}  // namespace quen::detector
