#include "detector/src/poisson.hpp"

#include <algorithm>
#include <cmath>

#include "detector/src/elementary.hpp"
#include "detector/src/normal.hpp"

namespace quen::detector {
namespace {

constexpr double kNegligible = 1e-17;
constexpr double kBelowOne = 0x1.fffffffffffffp-1;
constexpr double kRootOfTwoPi = 0x1.40d931ff62706p1;

/// ln k! − ln(√(2πk) (k/e)^k), for k ≥ 16 to 10⁻¹⁶.
double StirlingError(double k) {
  const double square = k * k;
  return (1.0 / 12 - (1.0 / 360 - (1.0 / 1260 - (1.0 / 1680 - 1.0 / 1188 / square) / square) / square) / square) / k;
}

/// P(K ≤ k).
double SumUpTo(double k, double lambda) {
  double term = PoissonProbability(k, lambda);
  double sum = 0.0;
  while (k >= 0.0 && term > kNegligible * sum) {
    sum += term;
    term *= k / lambda;
    --k;
  }
  return sum;
}

/// P(K ≥ k).
double SumFrom(double k, double lambda) {
  double term = PoissonProbability(k, lambda);
  double sum = 0.0;
  while (term > kNegligible * sum) {
    sum += term;
    ++k;
    term *= lambda / k;
  }
  return sum;
}

/// The quantile of u, or of any number from u to `up`: then `up` does not matter. Otherwise nothing, which is −1.
double CountUpTo(double lambda, double u, double up) {
  double k = 0.0;
  double probability = Exp(-lambda);
  double sum = probability;
  while (sum <= u && probability > kNegligible) {
    ++k;
    probability *= lambda / k;
    sum += probability;
  }
  return sum <= u || sum > up ? k : -1.0;
}

/// The quantile of a number in [word, word + 1) · 2⁻³², for λ < 8.
/// @param more  gives 32 more bits, if they are needed
template <typename More>
double PoissonOfWord(double lambda, std::uint32_t word, More more) {
  const double k = CountUpTo(lambda, word * 0x1p-32, (word + 1.0) * 0x1p-32);
  if (k >= 0.0) return k;
  const double u = std::min((word + (more() + 0.5) * 0x1p-32) * 0x1p-32, kBelowOne);
  return CountUpTo(lambda, u, u);
}

}  // namespace

double PoissonProbability(double k, double lambda) {
  if (k < 16.0) {
    double probability = Exp(-lambda);
    for (int i = 1; i <= static_cast<int>(k); ++i) probability *= lambda / i;
    return probability;
  }
  // By C. Loader, "Fast and accurate computation of binomial probabilities", 2000: nothing large cancels.
  return Exp(k * LogOnePlusLessX((lambda - k) / k) - StirlingError(k)) / (kRootOfTwoPi * std::sqrt(k));
}

bool IsAtLeast(double k, double lambda, double w) {
  if (k <= 0.0) return true;
  return w <= 0.0 ? SumUpTo(k - 1.0, lambda) <= NormalTail(w) : SumFrom(k, lambda) >= NormalTail(w);
}

double PoissonOfNormal(double lambda, double w) {
  const double root = std::sqrt(lambda);
  double series = 0.0;
  SeriesBeside<double>(1.0 / root, w, series);
  const double x = lambda + (series + root * w);
  if (std::abs(w) > FarthestDeviation(lambda)) {
    double k = x > 0.0 ? std::floor(x) : 0.0;
    while (!IsAtLeast(k, lambda, w)) --k;
    while (IsAtLeast(k + 1.0, lambda, w)) ++k;
    return k;
  }
  constexpr double kRounding = 1e-14;
  const double nearest = std::floor(x + 0.5);
  double margin = 0.0;
  Margin<double>(1.0 / root, w, margin);
  if (std::abs(x - nearest) > margin + kRounding * lambda) return std::floor(x);
  return IsAtLeast(nearest, lambda, w) ? nearest : nearest - 1.0;
}

double PhotonElectrons(const Stream& stream, std::uint32_t pixel, double lambda) {
  const std::uint32_t block = pixel / 32 * 16 + pixel % 16;
  const bool is_second = pixel % 32 >= 16;
  const Words words = Draw(stream, Stage::kPhoton, block);
  if (lambda < kLargeMean) {
    const std::size_t which = is_second ? 3 : 2;
    return PoissonOfWord(lambda, words.at(which), [&] { return Draw(stream, Stage::kPhotonMore, block).at(which); });
  }
  const float u =
      IsInTail(words[0]) ? UniformOf(words[0], Draw(stream, Stage::kPhotonMore, block)[0]) : UniformOf(words[0]);
  const NormalPair normals = NormalsOf(u, words[1]);
  return PoissonOfNormal(lambda, static_cast<double>(is_second ? normals.second : normals.first));
}

}  // namespace quen::detector
