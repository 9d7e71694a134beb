#pragma once

#include <cstdint>

#include "common/simd/level.hpp"
#include "detector/detector.hpp"
#include "detector/src/philox.hpp"

/// @file
/// Poisson numbers by inversion: the smallest k whose probability F(k) = P(K ≤ k) exceeds u. So each number is exact
/// for every mean, takes one uniform number, and is told from that alone, whichever way it is found.
///
///     λ < 8    u is a word of 32 bits; where those do not decide, 32 more are drawn
///     λ ≥ 8    u = Φ(w) of a normal deviate w, which is a number of single precision, taken as exact
///
/// For λ ≥ 8, F is continued to all reals as Q(x, λ), the regularised upper incomplete gamma function: F(k) = Q(k + 1,
/// λ). With Q(x, λ) = Φ(w), k is the whole part of x, and
///
///     x = λ + √λ w + (1/3 + w²/6) − (w/36 + w³/72) / √λ + (−8/405 + 7w²/810 + w⁴/270) / λ
///         + (671 w/38880 − 137 w³/38880 − 23 w⁵/17280) / λ^(3/2) + error
///
/// (M. B. Giles, "Algorithm 955: Approximation of the inverse Poisson cumulative distribution function", 2016; the last
/// term is ours). The error is below Margin; where that leaves two candidates, their probability is summed and compared
/// with Φ(w).

namespace quen::detector {

inline constexpr double kLargeMean = 8.0;

/// The largest mean; greater ones are drawn as this one.
inline constexpr double kMostElectrons = DetectorLimits::kElectrons.highest;

/// Beyond this many deviations the margin does not hold.
constexpr double FarthestDeviation(double lambda) { return lambda < 1000.0 ? 4.0 : 9.0; }

/// The series above without λ + √λ w. For single and double numbers, and vectors of them.
template <typename Number, typename V>
QUEN_ALWAYS_INLINE void SeriesBeside(const V& inverse_root, const V& w, V& series) {
  const V w2 = w * w;
  const V first = w2 * Number(1.0 / 6) + Number(1.0 / 3);
  const V second = (w2 * Number(-1.0 / 72) + Number(-1.0 / 36)) * w;
  const V third = (w2 * Number(1.0 / 270) + Number(7.0 / 810)) * w2 + Number(-8.0 / 405);
  const V fourth = ((w2 * Number(-23.0 / 17280) + Number(-137.0 / 38880)) * w2 + Number(671.0 / 38880)) * w;
  series = ((fourth * inverse_root + third) * inverse_root + second) * inverse_root + first;
}

/// What the series errs by at the most, rounding aside: (1/100 + w²/100 + w⁶/500) / λ².
template <typename Number, typename V>
QUEN_ALWAYS_INLINE void Margin(const V& inverse_root, const V& w, V& margin) {
  const V w2 = w * w;
  const V inverse = inverse_root * inverse_root;
  margin = (w2 * w2 * w2 * Number(0.002) + w2 * Number(0.01) + Number(0.01)) * inverse * inverse;
}

/// P(K = k), to 10⁻¹² of itself. For k < 16 only with λ ≤ 700.
double PoissonProbability(double k, double lambda);

/// Whether the quantile of Φ(w) is k or more: whether F(k − 1) ≤ Φ(w). By summing, for any λ ≥ 8.
bool IsAtLeast(double k, double lambda, double w);

/// The quantile of Φ(w), for λ ≥ 8.
double PoissonOfNormal(double lambda, double w);

/// The photo-electrons of a pixel in a frame.
///
/// The numbers of a pixel and of the one 16 further on, in a group of 32, are made of one block: the pair of normal
/// deviates from the first two words, and a word for each.
double PhotonElectrons(const Stream& stream, std::uint32_t pixel, double lambda);

}  // namespace quen::detector
