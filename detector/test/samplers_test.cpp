#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

#include "detector/src/elementary.hpp"
#include "detector/src/normal.hpp"
#include "detector/src/philox.hpp"
#include "detector/src/poisson.hpp"

// What random numbers are made with, against long doubles of the C library.

namespace quen::detector {
namespace {

// Grids of numbers, whose ends do not matter.
// NOLINTBEGIN(cert-flp30-c,clang-analyzer-security.FloatLoopCounter)

constexpr double kLastBits = 1e-15;

TEST(Philox, GivesThePublishedWords) {
  // The known answers of Random123 for the counter and the key of π's digits: only the packaged function is asked here.
  const r123::Philox4x32::ctr_type counter = {{0x243f6a88, 0x85a308d3, 0x13198a2e, 0x03707344}};
  const r123::Philox4x32::key_type key = {{0xa4093822, 0x299f31d0}};
  const r123::Philox4x32::ctr_type words = r123::Philox4x32()(counter, key);
  EXPECT_EQ(words[0], 0xd16cfe09U);
  EXPECT_EQ(words[1], 0x94fdccebU);
  EXPECT_EQ(words[2], 0x5001e420U);
  EXPECT_EQ(words[3], 0x24126ea1U);
}

TEST(Philox, EveryPartOfTheCounterCounts) {
  const Words words = Draw({1, 2}, Stage::kPhoton, 3, 4);
  EXPECT_NE(words, Draw({2, 2}, Stage::kPhoton, 3, 4));
  EXPECT_NE(words, Draw({1, 3}, Stage::kPhoton, 3, 4));
  EXPECT_NE(words, Draw({1, 2}, Stage::kPhotonMore, 3, 4));
  EXPECT_NE(words, Draw({1, 2}, Stage::kPhoton, 2, 4));
  EXPECT_NE(words, Draw({1, 2}, Stage::kPhoton, 3, 5));
  EXPECT_EQ(words, Draw({1, 2}, Stage::kPhoton, 3, 4));
}

TEST(Elementary, ExpAndLogAreRightToTheLastBits) {
  for (double x = -700.0; x <= 700.0; x += 0.37) {
    EXPECT_NEAR(Exp(x) / static_cast<double>(std::exp(static_cast<long double>(x))), 1.0, kLastBits) << x;
  }
  for (double x = 1e-300; x < 1e300; x *= 1.37) {
    const auto expected = static_cast<double>(std::log(static_cast<long double>(x)));
    EXPECT_NEAR(Log(x), expected, kLastBits * (1.0 + std::abs(expected))) << x;
  }
  EXPECT_EQ(Exp(0.0), 1.0);
  EXPECT_EQ(Log(1.0), 0.0);
}

TEST(Elementary, LogOnePlusLessXDoesNotCancel) {
  for (const double sign : {-1.0, 1.0}) {
    for (double x = 1e-12; x < 0.99; x *= 1.17) {
      const auto t = static_cast<long double>(sign * x);
      const long double series = t * t * (-0.5L + t * (1.0L / 3 - t * (0.25L - t * (0.2L - t / 6))));
      const auto expected = static_cast<double>(x < 1e-3 ? series : std::log1p(t) - t);
      EXPECT_NEAR(LogOnePlusLessX(sign * x) / expected, 1.0, 2e-14) << sign * x;
    }
  }
}

TEST(Elementary, NormalTailIsThatOfErfc) {
  for (double w = -9.5; w <= 9.5; w += 0.01) {
    const long double tail =
        0.5L * std::erfc(static_cast<long double>(std::abs(w)) / std::numbers::sqrt2_v<long double>);
    EXPECT_NEAR(NormalTail(w) / static_cast<double>(tail), 1.0, 1e-12) << w;
  }
}

TEST(NormalPair, IsTheFormula) {
  constexpr double kSingle = 3e-7;  // 2⁻²¹·⁷
  for (std::uint32_t k = 0; k < 200'000; ++k) {
    const Words words = Draw({5, 0}, Stage::kRead, k);
    // Radii of all sizes: every fourth from the tail, some close to 0.
    const std::uint32_t word = k % 4 == 0 ? words[0] >> 21 : k % 4 == 1 ? ~(words[0] >> (k % 32)) : words[0];
    const float u = IsInTail(word) ? UniformOf(word, words[2]) : UniformOf(word);
    ASSERT_GT(u, 0.0F);
    ASSERT_LE(u, 1.0F);
    const NormalPair pair = NormalsOf(u, words[1]);
    const double r = std::sqrt(-2.0 * std::log(static_cast<double>(u)));
    const double angle = (words[1] & 0x1fffffffU) * 0x1p-29 * std::numbers::pi / 4.0;
    double first = r * std::cos(angle);
    double second = r * std::sin(angle);
    if ((words[1] & 0x20000000U) != 0) std::swap(first, second);
    if ((words[1] & 0x80000000U) != 0) first = -first;
    if ((words[1] & 0x40000000U) != 0) second = -second;
    ASSERT_NEAR(static_cast<double>(pair.first), first, kSingle * std::abs(first)) << k;
    ASSERT_NEAR(static_cast<double>(pair.second), second, kSingle * std::abs(second)) << k;
  }
}

TEST(NormalPair, UniformsGoOnWhereTheFirstBitsEnd) {
  EXPECT_FALSE(IsInTail(0xfffffffU));
  EXPECT_TRUE(IsInTail(0xfffU));
  EXPECT_FALSE(IsInTail(0x1000U));
  EXPECT_EQ(UniformOf(0xffffffffU), 1.0F);
  EXPECT_NEAR(static_cast<double>(UniformOf(0x1000U)) / (2048.5 * 0x1p-31), 1.0, 1e-7);
  EXPECT_NEAR(static_cast<double>(UniformOf(0xfffU, 0xffffffffU)) / (2048.0 * 0x1p-31), 1.0, 1e-7);
  EXPECT_EQ(UniformOf(0, 0), 0x1p-64F);
}

/// P(K = k), by the C library's logarithm of the gamma function.
double Probability(double k, double lambda) {
  const auto mean = static_cast<long double>(lambda);
  const auto number = static_cast<long double>(k);
  return static_cast<double>(std::exp(number * std::log(mean) - mean - std::lgamma(number + 1.0L)));
}

TEST(Poisson, ProbabilityIsThatOfTheFormula) {
  for (const double lambda : {8.0, 8.3, 20.0, 200.0, 1e4, 1e6}) {
    for (double w = -6.0; w <= 6.0; w += 0.5) {
      const double k = std::max(std::floor(lambda + w * std::sqrt(lambda)), 0.0);
      EXPECT_NEAR(PoissonProbability(k, lambda) / Probability(k, lambda), 1.0, 1e-11) << k << " of " << lambda;
    }
  }
}

/// The smallest k with F(k) > Φ(w), by adding up from zero, and by how little Φ(w) misses the sums around it.
double QuantileBySumming(double lambda, double w) {
  const long double tail = 0.5L * std::erfc(static_cast<long double>(std::abs(w)) / std::numbers::sqrt2_v<long double>);
  const long double u = w > 0.0 ? 1.0L - tail : tail;
  long double sum = 0.0L;
  long double term = std::exp(-static_cast<long double>(lambda));
  for (double k = 0.0;; ++k) {
    sum += term;
    if (sum > u) return k;
    term *= static_cast<long double>(lambda) / static_cast<long double>(k + 1.0);
  }
}

TEST(Poisson, QuantilesOfNormalsAreThoseOfTheSums) {
  std::uint32_t draw = 0;
  for (const double lambda : {8.0, 8.01, 9.5, 12.0, 20.0, 55.5, 200.0, 1000.0, 3000.25}) {
    for (int k = 0; k < 1000; ++k) {
      const Words words = Draw({11, 0}, Stage::kRead, draw++);
      // Every other one from beyond four deviations.
      const float u = k % 2 == 0 ? UniformOf(words[0]) : UniformOf(words[0] >> 12);
      const auto w = static_cast<double>(NormalsOf(u, words[1]).first);
      EXPECT_EQ(PoissonOfNormal(lambda, w), QuantileBySumming(lambda, w)) << lambda << ", " << w;
    }
  }
}

/// On either side of the border between two numbers, closer to it than the margin: the sums must decide there.
TEST(Poisson, QuantilesAreRightBesideTheBorders) {
  for (const double lambda : {8.0, 10.5, 30.0, 400.0}) {
    for (double k = std::floor(lambda - 2.0 * std::sqrt(lambda)); k < lambda + 2.0 * std::sqrt(lambda); ++k) {
      double low = -9.0;
      double high = 9.0;
      for (int step = 0; step < 60; ++step) {
        const double middle = 0.5 * (low + high);
        (QuantileBySumming(lambda, middle) < k ? low : high) = middle;
      }
      EXPECT_EQ(PoissonOfNormal(lambda, low - 1e-12), k - 1.0) << lambda;
      EXPECT_EQ(PoissonOfNormal(lambda, high + 1e-12), k) << lambda;
    }
  }
}

TEST(Poisson, TheSeriesErrsByLessThanItsMargin) {
  for (const double lambda : {8.0, 8.7, 12.0, 40.0, 300.0, 1000.0, 5000.0}) {
    const double inverse = 1.0 / std::sqrt(lambda);
    const double farthest = lambda < 1000.0 ? 4.0 : 6.0;
    const double reach = (farthest + 1.0) * std::sqrt(lambda);
    for (double k = std::max(1.0, std::floor(lambda - reach)); k < lambda + reach; ++k) {
      // The w at which the quantile's continuation is k: F(k − 1) = Φ(w).
      double low = -farthest;
      double high = farthest;
      if (IsAtLeast(k, lambda, low) || !IsAtLeast(k, lambda, high)) continue;
      for (int step = 0; step < 50; ++step) {
        const double middle = 0.5 * (low + high);
        (IsAtLeast(k, lambda, middle) ? high : low) = middle;
      }
      double series = 0.0;
      double margin = 0.0;
      SeriesBeside<double>(inverse, low, series);
      Margin<double>(inverse, low, margin);
      const double x = lambda + std::sqrt(lambda) * low + series;
      const double tail_rounding = 1e-8 * std::sqrt(lambda);  // of Φ far out, where w is told by few digits
      EXPECT_NEAR(x, k, margin + (std::abs(low) > 4.0 ? tail_rounding : 1e-9)) << lambda << ", " << low;
    }
  }
}

TEST(Poisson, SmallMeansAddUpTheirProbabilities) {
  for (const double lambda : {0.01, 0.3, 1.0, 5.0, 7.99}) {
    for (std::uint32_t pixel = 0; pixel < 500; ++pixel) {
      const Words words = Draw({3, 4}, Stage::kPhoton, pixel / 32 * 16 + pixel % 16);
      const double u = words.at(pixel % 32 < 16 ? 2 : 3) * 0x1p-32;
      double k = 0.0;
      for (double sum = Probability(0.0, lambda); sum <= u; sum += Probability(k, lambda)) ++k;
      EXPECT_EQ(PhotonElectrons({3, 4}, pixel, lambda), k) << lambda << ", pixel " << pixel;
    }
  }
}

// NOLINTEND(cert-flp30-c,clang-analyzer-security.FloatLoopCounter)

}  // namespace
}  // namespace quen::detector
