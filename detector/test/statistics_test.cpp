#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <numbers>
#include <vector>

#include "common/simd/level.hpp"
#include "detector/detector.hpp"
#include "detector/src/exposure.hpp"
#include "detector/src/gamma.hpp"
#include "detector/src/poisson.hpp"

// Each stage's numbers against their exact distribution, from fixed seeds. Each check is a score that is a standard
// normal deviate if the numbers are what they should be. A score beyond 5 has a probability of 6·10⁻⁷; with a new seed
// for each run, one of the scores below (about 200) would give a false alarm in 10⁻⁴ of the runs. (Where fewer than a
// hundred events are counted the scores are not normal ones; but the seeds are fixed.) Every check is also shown
// numbers with a fault that it must catch.

namespace quen::detector {
namespace {

using quen::common::simd::Best;

constexpr double kAlarm = 5.0;
using Sample = std::vector<double>;

/// The photons of whole frames of a mean.
Sample Photons(double mean, std::size_t frames, std::uint64_t seed, std::uint64_t first_frame = 0) {
  Sample sample(frames * kPixels, mean);
  for (std::size_t frame = 0; frame < frames; ++frame) {
    for (std::size_t first = 0; first < kPixels; first += kChunk) {
      CountPhotons(Best(), {seed, first_frame + frame}, first, sample.data() + frame * kPixels + first);
    }
  }
  return sample;
}

/// The read noise of whole frames.
Sample ReadNoise(std::size_t frames, std::uint64_t seed, std::uint64_t first_frame = 0) {
  Sample sample(frames * kPixels, 0.0);
  for (std::size_t frame = 0; frame < frames; ++frame) {
    for (std::size_t first = 0; first < kPixels; first += kChunk) {
      AddReadNoise(Best(), {seed, first_frame + frame}, first, 1.0, sample.data() + frame * kPixels + first);
    }
  }
  return sample;
}

Sample Gammas(double shape, std::size_t number, std::uint64_t seed) {
  Sample sample(number);
  for (std::size_t k = 0; k < number; ++k) sample[k] = GammaNumber({seed, 0}, static_cast<std::uint32_t>(k), shape);
  return sample;
}

Sample Changed(Sample sample, const std::function<double(double)>& change) {
  std::ranges::transform(sample, sample.begin(), change);
  return sample;
}

// --- Scores --------------------------------------------------------------------------------------------------------

/// A distribution's mean and central moments.
struct Moments {
  double mean;
  double second;
  double third;
  double fourth;
  double sixth;
};

Moments OfPoisson(double mean) {
  return {mean, mean, mean, mean + 3.0 * mean * mean, mean + 25.0 * mean * mean + 15.0 * mean * mean * mean};
}

Moments OfNormal() { return {0.0, 1.0, 0.0, 3.0, 15.0}; }

Moments OfGamma(double a) {
  return {a, a, 2.0 * a, 3.0 * a * a + 6.0 * a, 15.0 * a * a * a + 130.0 * a * a + 120.0 * a};
}

/// Of mean, variance and third moment about the true mean.
std::array<double, 3> MomentScores(const Sample& sample, const Moments& truth) {
  long double first = 0.0L;
  long double second = 0.0L;
  long double third = 0.0L;
  for (const double value : sample) {
    const long double d = static_cast<long double>(value) - static_cast<long double>(truth.mean);
    first += d;
    second += d * d;
    third += d * d * d;
  }
  const auto n = static_cast<double>(sample.size());
  const auto score = [n](long double sum, double expected, double variance) {
    return (static_cast<double>(sum) / n - expected) / std::sqrt(variance / n);
  };
  return {score(first, 0.0, truth.second), score(second, truth.second, truth.fourth - truth.second * truth.second),
          score(third, truth.third, truth.sixth - truth.third * truth.third)};
}

/// Counts in cells and what they should be; cells with fewer than 20 expected join their neighbours. Chi-square becomes
/// a normal deviate by its cube root (E. B. Wilson and M. M. Hilferty, 1931).
double ChiSquareScore(const std::vector<double>& counts, const std::vector<double>& expected) {
  double chi2 = 0.0;
  double freedom = -1.0;
  double count = 0.0;
  double expectation = 0.0;
  for (std::size_t cell = 0; cell < counts.size(); ++cell) {
    count += counts[cell];
    expectation += expected[cell];
    const bool is_last = cell + 1 == counts.size();
    if (expectation < 20.0 && !is_last) continue;
    if (expectation > 0.0) {
      chi2 += (count - expectation) * (count - expectation) / expectation;
      ++freedom;
    }
    count = expectation = 0.0;
  }
  if (freedom < 1.0) return 0.0;
  const double spread = 2.0 / (9.0 * freedom);
  return (std::cbrt(chi2 / freedom) - (1.0 - spread)) / std::sqrt(spread);
}

/// Each count from seven deviations below the mean to seven above is a cell.
double PoissonScore(const Sample& sample, double mean) {
  const double reach = 7.0 * std::sqrt(mean) + 12.0;
  const double lowest = std::max(0.0, std::floor(mean - reach));
  const auto cells = static_cast<std::size_t>(mean + reach - lowest) + 1;
  std::vector<double> counts(cells);
  for (const double value : sample) {
    ++counts[static_cast<std::size_t>(std::clamp(value - lowest, 0.0, static_cast<double>(cells - 1)))];
  }
  std::vector<double> expected(cells);
  const auto n = static_cast<double>(sample.size());
  for (std::size_t cell = 0; cell < cells; ++cell) {
    const auto k = static_cast<long double>(lowest) + static_cast<long double>(cell);
    const auto mu = static_cast<long double>(mean);
    expected[cell] = n * static_cast<double>(std::exp(k * std::log(mu) - mu - std::lgamma(k + 1.0L)));
  }
  return ChiSquareScore(counts, expected);
}

/// A thousand equal cells of a distribution function.
double FlatnessScore(const Sample& sample, const std::function<double(double)>& distribution) {
  constexpr std::size_t kCells = 1000;
  std::vector<double> counts(kCells);
  for (const double value : sample) {
    const double place = distribution(value) * static_cast<double>(kCells);
    ++counts[std::min(static_cast<std::size_t>(place), kCells - 1)];
  }
  return ChiSquareScore(counts,
                        std::vector<double>(kCells, static_cast<double>(sample.size()) / static_cast<double>(kCells)));
}

double NormalDistribution(double x) { return 0.5 * std::erfc(-x / std::numbers::sqrt2); }

/// P(a, x) = x^a e^(−x) Σ xⁿ / Γ(a + n + 1).
double GammaDistribution(double a, double x) {
  if (x <= 0.0) return 0.0;
  double term = std::exp(a * std::log(x) - x - std::lgamma(a + 1.0));
  double sum = 0.0;
  for (int n = 1; term > 1e-17 * sum || n < x - a; ++n) {
    sum += term;
    term *= x / (a + n);
  }
  return std::min(sum, 1.0);
}

/// Of samples of mean 0 and variance 1: their products have mean 0 and variance 1.
double CorrelationScore(const Sample& a, const Sample& b, std::size_t lag = 0) {
  double products = 0.0;
  const std::size_t n = std::min(a.size(), b.size() - lag);
  for (std::size_t k = 0; k < n; ++k) products += a[k] * b[k + lag];
  return products / std::sqrt(static_cast<double>(n));
}

void ExpectQuiet(const std::array<double, 3>& scores) {
  EXPECT_LT(std::abs(scores[0]), kAlarm) << "mean";
  EXPECT_LT(std::abs(scores[1]), kAlarm) << "variance";
  EXPECT_LT(std::abs(scores[2]), kAlarm) << "third moment";
}

// --- Photons -------------------------------------------------------------------------------------------------------

class Photon : public ::testing::TestWithParam<double> {};

TEST_P(Photon, NumbersAreThoseOfPoisson) {
  const double mean = GetParam();
  const Sample sample = Photons(mean, 3, 20261);
  if (mean == 0.0) {
    EXPECT_EQ(std::ranges::count(sample, 0.0), static_cast<std::ptrdiff_t>(sample.size()));
    return;
  }
  ExpectQuiet(MomentScores(sample, OfPoisson(mean)));
  EXPECT_LT(std::abs(PoissonScore(sample, mean)), kAlarm);
  for (const double value : {sample[0], sample[1000], sample[500'000]}) EXPECT_EQ(value, std::floor(value));

  // A thousandth of the numbers too many, or too great by a hundredth of a deviation.
  const Sample more =
      Changed(sample, [&, k = 0](double n) mutable { return n + (++k % 100 == 0 ? std::ceil(std::sqrt(mean)) : 0.0); });
  EXPECT_GT(std::max(std::abs(MomentScores(more, OfPoisson(mean))[0]), std::abs(PoissonScore(more, mean))), kAlarm);
  // Everything a little farther from the mean.
  const Sample wider = Changed(sample, [&](double n) { return mean + 1.01 * (n - mean); });
  EXPECT_GT(MomentScores(wider, OfPoisson(mean))[1], mean < 0.1 ? 1.0 : kAlarm);
}

INSTANTIATE_TEST_SUITE_P(DetectorStatistics, Photon,
                         ::testing::Values(0.0, 0.01, 0.3, 1.0, 5.0, 7.999, 8.0, 20.0, 200.0, 1e4, 1e6));

TEST(DetectorStatistics, ANormalApproximationWouldBeCaught) {
  constexpr double kMean = 200.0;
  const auto rounded = [](double z) { return std::floor(kMean + std::sqrt(kMean) * z + 0.5); };
  const Sample sample = Changed(ReadNoise(3, 5), rounded);
  EXPECT_LT(MomentScores(sample, OfPoisson(kMean))[2], -kAlarm);
  EXPECT_GT(PoissonScore(sample, kMean), kAlarm);
}

// --- Read noise ----------------------------------------------------------------------------------------------------

TEST(DetectorStatistics, ReadNoiseIsNormal) {
  const Sample sample = ReadNoise(6, 20262);
  ExpectQuiet(MomentScores(sample, OfNormal()));
  EXPECT_LT(std::abs(FlatnessScore(sample, NormalDistribution)), kAlarm);
  for (const double sign : {-1.0, 1.0}) {
    for (const double far : {3.0, 4.0, 4.5, 5.0}) {
      const auto beyond = static_cast<double>(std::ranges::count_if(sample, [&](double z) { return sign * z > far; }));
      const double expected = static_cast<double>(sample.size()) * NormalDistribution(-far);
      EXPECT_LT(std::abs(beyond - expected), kAlarm * std::sqrt(expected) + 1.0) << sign * far;
    }
  }
  const auto wider = MomentScores(Changed(sample, [](double z) { return 1.002 * z; }), OfNormal());
  EXPECT_GT(wider[1], kAlarm);
  const auto shifted = MomentScores(Changed(sample, [](double z) { return z + 0.003; }), OfNormal());
  EXPECT_GT(shifted[0], kAlarm);
  const auto skewed = MomentScores(Changed(sample, [](double z) { return z + 0.003 * (z * z - 1.0); }), OfNormal());
  EXPECT_GT(skewed[2], kAlarm);
  const Sample hollow = Changed(sample, [](double z) { return z > 0.0 && z < 0.001 ? z + 0.02 : z; });
  EXPECT_GT(FlatnessScore(hollow, NormalDistribution), kAlarm);
}

// --- Multiplication ------------------------------------------------------------------------------------------------

TEST(DetectorStatistics, MultipliedElectronsAreThoseOfTheGammaDistribution) {
  for (const double shape : {0.3, 1.0, 2.0, 7.0, 100.0, 1e5}) {
    SCOPED_TRACE(shape);
    const Sample sample = Gammas(shape, 300'000, 20263);
    ExpectQuiet(MomentScores(sample, OfGamma(shape)));
    const auto spread = [shape](double x) { return shape + 1.02 * (x - shape); };
    EXPECT_GT(MomentScores(Changed(sample, spread), OfGamma(shape))[1], kAlarm);
    if (shape > 1000.0) continue;
    EXPECT_LT(std::abs(FlatnessScore(sample, [&](double x) { return GammaDistribution(shape, x); })), kAlarm);
    EXPECT_GT(FlatnessScore(sample, [&](double x) { return GammaDistribution(1.02 * shape + 0.01, x); }), kAlarm);
  }
}

TEST(DetectorStatistics, MultiplicationDoublesTheVarianceOfLight) {
  DetectorConfig config;
  config.em_gain = 20.0;
  const Detector detector(config);
  const std::vector<double> values(kPixels, 50.0);
  std::vector<std::uint16_t> counts(kPixels);
  detector.Expose(values, 0, counts);
  double sum = 0.0;
  double squares = 0.0;
  for (const std::uint16_t count : counts) {
    sum += count - 1000.0;
    squares += (count - 1000.0) * (count - 1000.0);
  }
  const auto n = static_cast<double>(kPixels);
  EXPECT_NEAR(sum / n, 0.0, kAlarm * std::sqrt(2.0 * 50.0 * 400.0 / n));
  constexpr double kRelative = 0.0095;  // five deviations: √(2.5 / n), for this distribution
  EXPECT_NEAR(squares / n / (2.0 * 50.0 * 400.0 + 1.0 / 12.0), 1.0, kRelative);
}

// --- Independence --------------------------------------------------------------------------------------------------

Sample StandardPhotons(std::size_t frames, std::uint64_t seed, double mean = 20.0, std::uint64_t first_frame = 0) {
  return Changed(Photons(mean, frames, seed, first_frame), [mean](double n) { return (n - mean) / std::sqrt(mean); });
}

TEST(DetectorStatistics, PixelsAreIndependent) {
  for (const Sample& sample : {StandardPhotons(2, 41), StandardPhotons(2, 41, 5.0), ReadNoise(2, 41)}) {
    for (const std::size_t lag : {1UL, 2UL, 4UL, 8UL, 15UL, 16UL, 17UL, 32UL, 48UL, 64UL, 640UL, 840UL}) {
      EXPECT_LT(std::abs(CorrelationScore(sample, sample, lag)), kAlarm) << lag;
      Sample squares = Changed(sample, [](double z) { return z * z; });
      double mean = 0.0;
      for (const double square : squares) mean += square / static_cast<double>(squares.size());
      double variance = 0.0;
      for (const double square : squares) variance += (square - mean) * (square - mean);
      const double root = std::sqrt(variance / static_cast<double>(squares.size()));
      for (double& square : squares) square = (square - mean) / root;
      EXPECT_LT(std::abs(CorrelationScore(squares, squares, lag)), kAlarm) << lag << ", squares";
      Sample leaking = sample;
      for (std::size_t k = leaking.size() - 1; k >= lag; --k) leaking[k] += 0.008 * leaking[k - lag];
      EXPECT_GT(CorrelationScore(leaking, leaking, lag), kAlarm) << lag;
    }
  }
}

TEST(DetectorStatistics, FramesStagesAndNeighbouringSeedsAreIndependent) {
  const Sample photons = StandardPhotons(1, 51);
  const Sample read = ReadNoise(1, 51);
  EXPECT_LT(std::abs(CorrelationScore(photons, read)), kAlarm);
  EXPECT_LT(std::abs(CorrelationScore(photons, StandardPhotons(1, 51, 3.0))), kAlarm);  // other words of the same block
  for (const std::uint64_t frame : {std::uint64_t{1}, std::uint64_t{1} << 32}) {
    EXPECT_LT(std::abs(CorrelationScore(photons, StandardPhotons(1, 51, 20.0, frame))), kAlarm) << frame;
    EXPECT_LT(std::abs(CorrelationScore(read, ReadNoise(1, 51, frame))), kAlarm) << frame;
  }
  for (const std::uint64_t seed : {std::uint64_t{50}, std::uint64_t{52}, 51 + (std::uint64_t{1} << 32)}) {
    EXPECT_LT(std::abs(CorrelationScore(photons, StandardPhotons(1, seed))), kAlarm) << seed;
    EXPECT_LT(std::abs(CorrelationScore(read, ReadNoise(1, seed))), kAlarm) << seed;
  }
  EXPECT_GT(CorrelationScore(photons, StandardPhotons(1, 51)), kAlarm);
  EXPECT_GT(CorrelationScore(photons, StandardPhotons(1, 51, 30.0)), kAlarm);  // one deviate, whatever the mean
}

// --- Photon transfer -----------------------------------------------------------------------------------------------

struct Transfer {
  double mean;
  double variance;
};

/// Of two frames of a flat illumination, whose difference has no fixed pattern.
Transfer Measure(const Detector& detector, double value, std::uint64_t frame) {
  const std::vector<double> values(kPixels, value);
  std::vector<std::uint16_t> first(kPixels);
  std::vector<std::uint16_t> second(kPixels);
  detector.Expose(values, frame, first);
  detector.Expose(values, frame + 1, second);
  double sum = 0.0;
  double squares = 0.0;
  for (std::size_t k = 0; k < kPixels; ++k) {
    const double difference = static_cast<double>(first[k]) - static_cast<double>(second[k]);
    sum += static_cast<double>(first[k]) + static_cast<double>(second[k]);
    squares += difference * difference;
  }
  const auto n = static_cast<double>(kPixels);
  return {sum / (2.0 * n), squares / (2.0 * n)};
}

TEST(DetectorStatistics, PhotonTransferRecoversGainReadNoiseAndFullWell) {
  DetectorConfig config;
  config.electrons_per_unit = 0.8;
  config.read_noise = 6.0;
  config.gain = 0.5;
  config.offset = 200.0;
  config.full_well = 30'000.0;
  const Detector detector(config);
  // variance = gain · (mean − offset) + gain² · read_noise² + 1/12. A variance errs by √(2/n) = 0.17 %.
  const Transfer dark = Measure(detector, 0.0, 0);
  EXPECT_NEAR(dark.mean, 200.0, kAlarm * 3.0 / std::sqrt(2.0 * kPixels));
  const double read_noise = std::sqrt(dark.variance - 1.0 / 12.0) / 0.5;
  EXPECT_NEAR(read_noise, 6.0, kAlarm * 0.0009 * 6.0);
  std::uint64_t frame = 2;
  for (const double value : {100.0, 1000.0, 10'000.0, 30'000.0}) {
    const Transfer lit = Measure(detector, value, frame);
    frame += 2;
    EXPECT_NEAR((lit.mean - dark.mean) / (0.4 * value), 1.0, 1e-3) << value;
    EXPECT_NEAR((lit.variance - dark.variance) / (lit.mean - dark.mean), 0.5, value < 500 ? 0.006 : 0.005) << value;
  }
  const Transfer full = Measure(detector, 60'000.0, frame);
  EXPECT_NEAR((full.mean - dark.mean) / 0.5, 30'000.0, kAlarm * 6.0 / std::sqrt(1.0 * kPixels) * 2.0);
  EXPECT_NEAR(full.variance / dark.variance, 1.0, kAlarm * 0.0017 * 1.5);  // no light's noise is left

  config.gain = 0.51;
  const Transfer other = Measure(Detector(config), 10'000.0, 2);
  EXPECT_GT(std::abs((other.variance - dark.variance) / (other.mean - dark.mean) - 0.5), 0.005);
}

}  // namespace
}  // namespace quen::detector
