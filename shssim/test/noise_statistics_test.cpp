#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <numeric>
#include <thread>

#include "common/random/random.hpp"
#include "shssim/test/simulator_under_test.hpp"
#include "testing/calibration.hpp"

// The noise of frames, from fixed seeds: spots moved off the detector leave nothing else. Each check turns the noise
// into a score that is a standard normal deviate if the noise is what it should be: uniform in [−a, a), each pixel of
// each frame independent of all others. A score beyond 5 has a probability of 6·10⁻⁷; with a new seed for each run, one
// of the scores below (about 50) would give a false alarm in 3·10⁻⁵ of the runs. Every check is also shown noise with a
// fault that it must catch.

namespace quen::shssim {
namespace {

using quen::common::random::detail::MersenneTwisterEngine;

constexpr double kAmplitude = 10.0;
constexpr double kAlarm = 5.0;
constexpr std::size_t kFrames = 12;
constexpr std::size_t kRegion = 24UL * 24;      // pixels, drawn row by row
constexpr std::size_t kDraws = 1089 * kRegion;  // of a frame, region by region

using Sample = std::vector<double>;  ///< in the order of the draws

/// Frames of nothing but noise.
std::vector<Sample> Draw(std::size_t frames, std::uint32_t seed) {
  const testing::CalibrationFolder calibration;
  testing::SimulatorUnderTest simulator;
  const std::vector<double> far(1089, 1e6);
  MersenneTwisterEngine().seed(seed);
  std::vector<Sample> samples(frames);
  for (Sample& sample : samples) {
    simulator.ComputeFrame(far, far, kAmplitude, std::nullopt);
    sample.reserve(kDraws);
    for (const auto& roi : simulator.Rois()) {
      for (std::size_t y = roi.y_low; y < roi.y_up; ++y) {
        const auto row = simulator.FrameValues().begin() + static_cast<std::ptrdiff_t>(testing::Index(0, y));
        sample.insert(sample.end(), row + roi.x_low, row + roi.x_up);
      }
    }
  }
  return samples;
}

const std::vector<Sample>& Frames() {
  static const std::vector<Sample> frames = Draw(kFrames, 20261);
  return frames;
}

const Sample& AllDraws() {
  static const Sample all = [] {
    Sample joined;
    for (const Sample& frame : Frames()) joined.insert(joined.end(), frame.begin(), frame.end());
    return joined;
  }();
  return all;
}

// --- Scores --------------------------------------------------------------------------------------------------------

/// Mean 0, variance a²/3.
double MeanScore(const Sample& sample) {
  const auto n = static_cast<double>(sample.size());
  return std::accumulate(sample.begin(), sample.end(), 0.0) / std::sqrt(n * kAmplitude * kAmplitude / 3.0);
}

/// The square of the noise has mean a²/3 and variance a⁴ (1/5 − 1/9).
double VarianceScore(const Sample& sample) {
  const auto n = static_cast<double>(sample.size());
  const double squares = std::inner_product(sample.begin(), sample.end(), sample.begin(), 0.0);
  const double a2 = kAmplitude * kAmplitude;
  return (squares / n - a2 / 3.0) / (a2 * std::sqrt(4.0 / 45.0 / n));
}

/// Chi-square over equal cells; for so many cells it is nearly normal with mean k and variance 2k.
double FlatnessScore(const Sample& sample) {
  constexpr std::size_t kCells = 1000;
  std::vector<double> counts(kCells);
  for (const double value : sample) {
    const double place = (value + kAmplitude) / (2.0 * kAmplitude) * static_cast<double>(kCells);
    ++counts[std::min(static_cast<std::size_t>(place), kCells - 1)];
  }
  const double expected = static_cast<double>(sample.size()) / static_cast<double>(kCells);
  double chi2 = 0.0;
  for (const double count : counts) chi2 += (count - expected) * (count - expected) / expected;
  const auto freedom = static_cast<double>(kCells - 1);
  return (chi2 - freedom) / std::sqrt(2.0 * freedom);
}

/// Correlation of two samples: the mean of products is 0 with variance (a²/3)².
double CorrelationScore(const Sample& a, const Sample& b, std::size_t lag = 0) {
  const std::size_t n = std::min(a.size(), b.size() - lag);
  const double products = std::inner_product(a.begin(), a.begin() + static_cast<std::ptrdiff_t>(n),
                                             b.begin() + static_cast<std::ptrdiff_t>(lag), 0.0);
  return products / (kAmplitude * kAmplitude / 3.0 * std::sqrt(static_cast<double>(n)));
}

/// How many of a's numbers are among b's too, wherever. Of 2⁵³ numbers, two frames share 4·10⁻⁵ on average.
std::size_t SharedNumbers(Sample a, Sample b) {
  std::sort(a.begin(), a.end());
  std::sort(b.begin(), b.end());
  Sample shared;
  std::set_intersection(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(shared));
  return shared.size();
}

Sample Changed(Sample sample, double (*change)(double)) {
  std::transform(sample.begin(), sample.end(), sample.begin(), change);
  return sample;
}

// --- One pixel's distribution --------------------------------------------------------------------------------------

TEST(NoiseStatistics, NoiseFillsItsRange) {
  const auto [lowest, highest] = std::minmax_element(AllDraws().begin(), AllDraws().end());
  EXPECT_GE(*lowest, -kAmplitude);
  EXPECT_LT(*highest, kAmplitude);
  // 7.5 million draws all stay away from an end by this much with a probability of exp(−18.8) = 7·10⁻⁹.
  constexpr double kGap = 5e-5;
  EXPECT_LT(*lowest, -kAmplitude + kGap);
  EXPECT_GT(*highest, kAmplitude - kGap);
}

TEST(NoiseStatistics, MeanIsZero) {
  EXPECT_LT(std::abs(MeanScore(AllDraws())), kAlarm);
  EXPECT_GT(MeanScore(Changed(AllDraws(), [](double n) { return n + 0.02; })), kAlarm);
}

TEST(NoiseStatistics, VarianceIsAThirdOfTheSquaredAmplitude) {
  EXPECT_LT(std::abs(VarianceScore(AllDraws())), kAlarm);
  EXPECT_GT(VarianceScore(Changed(AllDraws(), [](double n) { return 1.002 * n; })), kAlarm);
}

TEST(NoiseStatistics, HistogramIsFlat) {
  EXPECT_LT(std::abs(FlatnessScore(AllDraws())), kAlarm);
  // A quarter of the numbers in one cell of the thousand moved to the next cell.
  EXPECT_GT(FlatnessScore(Changed(AllDraws(), [](double n) { return n > 5.005 && n < 5.010 ? n + 0.02 : n; })), kAlarm);
}

TEST(NoiseStatistics, PixelsAreTheNoiseWithoutItsFraction) {
  const testing::CalibrationFolder calibration;
  testing::SimulatorUnderTest simulator;
  const std::vector<double> far(1089, 1e6);
  MersenneTwisterEngine().seed(20262);
  std::array<double, 19> counts{};  // −9 … 9; towards zero, so that 0 gets both sides of it
  for (std::size_t frame = 0; frame < kFrames; ++frame) {
    simulator.ComputeFrame(far, far, kAmplitude, std::nullopt);
    for (const auto& roi : simulator.Rois()) {
      for (std::size_t y = roi.y_low; y < roi.y_up; ++y) {
        for (std::size_t x = roi.x_low; x < roi.x_up; ++x) {
          const auto pixel = static_cast<std::int16_t>(simulator.Frame()[testing::Index(x, y)]);
          ++counts.at(static_cast<std::size_t>(pixel + 9));
        }
      }
    }
  }
  const auto n = static_cast<double>(kFrames * kDraws);
  for (std::size_t cell = 0; cell < counts.size(); ++cell) {
    const double p = cell == 9 ? 0.1 : 0.05;
    EXPECT_LT(std::abs(counts[cell] - n * p) / std::sqrt(n * p * (1.0 - p)), kAlarm) << "pixel " << cell << " − 9";
  }
}

// --- Independence --------------------------------------------------------------------------------------------------

class Neighbours : public ::testing::TestWithParam<std::pair<const char*, std::size_t>> {};

TEST_P(Neighbours, AreNotCorrelated) {
  const auto& [name, lag] = GetParam();
  EXPECT_LT(std::abs(CorrelationScore(AllDraws(), AllDraws(), lag)), kAlarm) << name;
  // Four thousandths of the number `lag` draws before, added.
  Sample leaking = AllDraws();
  for (std::size_t i = leaking.size() - 1; i >= lag; --i) leaking[i] += 0.004 * leaking[i - lag];
  EXPECT_GT(CorrelationScore(leaking, leaking, lag), kAlarm) << name;
}

INSTANTIATE_TEST_SUITE_P(NoiseStatistics, Neighbours,
                         ::testing::Values(std::pair("pixels of a row", 1UL), std::pair("pixels of a row, two on", 2UL),
                                           std::pair("rows", 24UL), std::pair("rows, one pixel on", 25UL),
                                           std::pair("sub-apertures", kRegion),
                                           std::pair("rows of sub-apertures", 33 * kRegion),
                                           std::pair("draws of the generator's state", 312UL),
                                           std::pair("frames", kDraws)));

TEST(NoiseStatistics, FramesShareNoNumbers) {
  for (std::size_t frame = 1; frame < kFrames; ++frame) {
    EXPECT_EQ(SharedNumbers(Frames()[frame - 1], Frames()[frame]), 0U);
    EXPECT_LT(std::abs(CorrelationScore(Frames()[frame - 1], Frames()[frame])), kAlarm);
  }
}

TEST(NoiseStatistics, RepeatedAndShiftedStreamsAreCaught) {
  const std::vector<Sample> first = Draw(1, 7);
  const std::vector<Sample> again = Draw(1, 7);
  EXPECT_GT(CorrelationScore(first[0], again[0]), kAlarm);
  EXPECT_EQ(SharedNumbers(first[0], again[0]), kDraws);
  Sample shifted = first[0];
  std::rotate(shifted.begin(), shifted.begin() + 1000, shifted.end());
  EXPECT_LT(std::abs(CorrelationScore(first[0], shifted)), kAlarm);  // only the numbers themselves tell
  EXPECT_EQ(SharedNumbers(first[0], shifted), kDraws);
}

/// Of threads that seed themselves: the one check that draws anew at every run.
TEST(NoiseStatistics, ThreadsAreIndependent) {
  constexpr std::size_t kThreads = 4;
  std::vector<Sample> samples(kThreads, Sample(kDraws));
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (Sample& sample : samples) {
    threads.emplace_back(
        [&sample] { common::random::FillUniform(MersenneTwisterEngine(), -kAmplitude, kAmplitude, sample); });
  }
  for (std::thread& thread : threads) thread.join();
  for (std::size_t a = 0; a < kThreads; ++a) {
    for (std::size_t b = a + 1; b < kThreads; ++b) {
      EXPECT_LT(std::abs(CorrelationScore(samples[a], samples[b])), kAlarm);
      EXPECT_LE(SharedNumbers(samples[a], samples[b]), 1U);  // two or more: 8·10⁻¹⁰
    }
  }
}

}  // namespace
}  // namespace quen::shssim
