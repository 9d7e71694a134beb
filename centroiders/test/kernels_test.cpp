#include <gtest/gtest.h>

#include <random>

#include "centroiders/src/brightness.hpp"
#include "centroiders/src/correlate.hpp"
#include "centroiders/src/gaussian.hpp"
#include "centroiders/src/moments.hpp"
#include "shssim/spot.hpp"
#include "testing/levels.hpp"

// Each kernel at every level against its plain twin.

namespace quen::centroiders {
namespace {

using quen::common::simd::kLevels;
using quen::common::simd::Level;

constexpr std::array<std::size_t, 16> kSizes = {1, 2, 3, 7, 8, 9, 15, 16, 17, 24, 31, 33, 63, 64, 65, 129};

/// Rectangles of all sizes at all alignments, of random pixels between a lowest and a highest value. The memory ends
/// with the last pixel, so that a sanitizer sees what reads beyond.
template <typename F>
void ForRectangles(std::int32_t lowest, std::int32_t highest, F f) {
  std::mt19937 random(11);
  std::uniform_int_distribution<std::int32_t> value(lowest, highest);
  for (const std::size_t width : kSizes) {
    for (const std::size_t height : kSizes) {
      const std::size_t offset = random() % 5;
      const std::size_t stride = width + random() % 9;
      std::vector<std::int16_t> memory(offset + stride * (height - 1) + width);
      for (std::int16_t& pixel : memory) pixel = static_cast<std::int16_t>(value(random));
      f(Pixels{memory.data() + offset, stride, width, height}, random);
    }
  }
}

class Kernels : public testing::AtLevel {};

INSTANTIATE_TEST_SUITE_P(Levels, Kernels, ::testing::ValuesIn(kLevels), testing::kNameOfLevel);

TEST_P(Kernels, MomentsAreThePlainOnes) {
  for (const std::int32_t cut : {kEveryPixel, -32768, -1, 0, 20000, 32766, 32767, 98302}) {
    ForRectangles(-32768, 32767, [&](const Pixels& pixels, std::mt19937&) {
      EXPECT_EQ(MomentsAbove(GetParam(), pixels, cut), MomentsAbove(Level::kPlain, pixels, cut))
          << pixels.width << " x " << pixels.height << " above " << cut;
    });
  }
}

TEST_P(Kernels, MomentsOfTheBrightestPixelsDoNotOverflow) {
  for (const std::int16_t value : {std::int16_t{32767}, std::int16_t{-32768}}) {
    const std::vector<std::int16_t> memory(std::size_t{300} * 300, value);
    const Pixels pixels = {memory.data(), 300, 300, 300};
    const Moments moments = MomentsAbove(GetParam(), pixels, kEveryPixel);
    EXPECT_EQ(moments.count, 90'000);
    EXPECT_EQ(moments.count_x, 90'000 * 299 / 2);
    EXPECT_EQ(moments.sum, 90'000 * std::int64_t{value});
    EXPECT_EQ(moments.sum_y, std::int64_t{90'000} * 299 / 2 * value);
  }
}

TEST_P(Kernels, LargestIsThePlainOne) {
  ForRectangles(-32768, 32767, [&](const Pixels& pixels, std::mt19937&) {
    EXPECT_EQ(Largest(GetParam(), pixels), Largest(Level::kPlain, pixels));
  });
}

TEST_P(Kernels, RankedValueIsThatOfTheSortedPixelsWhateverTheGuess) {
  for (const std::int32_t span : {3, 200, 32767}) {
    ForRectangles(-span - 1, span, [&](const Pixels& pixels, std::mt19937& random) {
      std::vector<std::int16_t> sorted;
      for (std::size_t y = 0; y < pixels.height; ++y) {
        sorted.insert(sorted.end(), pixels.Row(y), pixels.Row(y) + pixels.width);
      }
      std::ranges::sort(sorted, std::greater<>());
      for (const std::size_t rank : {std::size_t{1}, 1 + random() % sorted.size(), sorted.size()}) {
        for (const std::int32_t guess : {0, 32767, -32768, 150, -100000, 100000}) {
          EXPECT_EQ(RankedValue(GetParam(), pixels, rank, guess), sorted[rank - 1])
              << pixels.width << " x " << pixels.height << ", rank " << rank << ", guess " << guess;
        }
      }
    });
  }
}

AxisWeights RandomWeights(std::mt19937& random, bool whole) {
  std::uniform_real_distribution<double> uniform(-4.0, 4.0);
  AxisWeights weights{};
  for (std::array<double, kTile>* const values : {&weights.even, &weights.odd}) {
    for (double& value : *values) value = whole ? std::nearbyint(uniform(random)) : uniform(random);
  }
  return weights;
}

void ExpectEqual(const WeightedSums& a, const WeightedSums& b) {
  EXPECT_EQ(a.light, b.light);
  EXPECT_EQ(a.even, b.even);
  EXPECT_EQ(a.x, b.x);
  EXPECT_EQ(a.y, b.y);
}

TEST_P(Kernels, WeightedSumsOfWholeNumbersAreThePlainOnes) {
  ForRectangles(-32768, 32767, [&](const Pixels& pixels, std::mt19937& random) {
    if (pixels.width > kTile || pixels.height > kTile) return;
    const AxisWeights columns = RandomWeights(random, true);
    const AxisWeights rows = RandomWeights(random, true);
    ExpectEqual(SumTile(GetParam(), pixels, columns, rows), SumTile(Level::kPlain, pixels, columns, rows));
  });
}

TEST_P(Kernels, WeightedSumsAreThePlainOnesToTheirLastBits) {
  // Each of at most 4096 products and sums rounds a number below 4096 · 16 · 32768 = 2³¹.
  constexpr double kRounding = 4096.0 * 0x1p31 * 0x1p-53;
  ForRectangles(-32768, 32767, [&](const Pixels& pixels, std::mt19937& random) {
    if (pixels.width > kTile || pixels.height > kTile) return;
    const AxisWeights columns = RandomWeights(random, false);
    const AxisWeights rows = RandomWeights(random, false);
    const WeightedSums fast = SumTile(GetParam(), pixels, columns, rows);
    const WeightedSums plain = SumTile(Level::kPlain, pixels, columns, rows);
    EXPECT_EQ(fast.light, plain.light);
    EXPECT_NEAR(fast.even, plain.even, kRounding);
    EXPECT_NEAR(fast.x, plain.x, kRounding);
    EXPECT_NEAR(fast.y, plain.y, kRounding);
    if (GetParam() != Level::kPlain) ExpectEqual(fast, SumTile(Level::kAvx2, pixels, columns, rows));
  });
}

TEST_P(Kernels, WeightedSumsOfAnySizeAreThoseOfTheTiles) {
  const auto even = [](std::size_t k) { return static_cast<double>(k % 3); };
  const auto odd = [](std::size_t k) { return static_cast<double>(k) - 40.0; };
  const auto fill = [&](std::size_t first, std::size_t count, AxisWeights& weights) {
    for (std::size_t k = 0; k < count; ++k) {
      weights.even[k] = even(first + k);
      weights.odd[k] = odd(first + k);
    }
  };
  ForRectangles(-3000, 3000, [&](const Pixels& pixels, std::mt19937&) {
    WeightedSums expected;
    for (std::size_t y = 0; y < pixels.height; ++y) {
      for (std::size_t x = 0; x < pixels.width; ++x) {
        const double p = pixels.At(x, y);
        expected.light += p;
        expected.even += p * even(x) * even(y);
        expected.x += p * odd(x) * even(y);
        expected.y += p * even(x) * odd(y);
      }
    }
    ExpectEqual(SumWeighted(GetParam(), pixels, fill, fill), expected);
  });
}

/// The formula, over the whole template.
double Correlated(const Pixels& pixels, const std::vector<double>& values, std::size_t size, Position at) {
  double sum = 0.0;
  const auto half = static_cast<std::ptrdiff_t>(size / 2);
  for (std::ptrdiff_t v = -half; v <= half; ++v) {
    for (std::ptrdiff_t u = -half; u <= half; ++u) {
      const bool inside = at.x + u >= 0 && at.x + u < static_cast<std::ptrdiff_t>(pixels.width) && at.y + v >= 0 &&
                          at.y + v < static_cast<std::ptrdiff_t>(pixels.height);
      if (!inside) continue;
      sum += values[static_cast<std::size_t>(u + half) + size * static_cast<std::size_t>(v + half)] *
             pixels.At(static_cast<std::size_t>(at.x + u), static_cast<std::size_t>(at.y + v));
    }
  }
  return sum;
}

TEST_P(Kernels, CorrelationsOfWholeNumbersAreThePlainOnes) {
  ForRectangles(-32768, 32767, [&](const Pixels& pixels, std::mt19937& random) {
    for (const std::size_t size : {3U, 9U, 21U, 63U}) {
      std::vector<double> values(size * size);
      for (double& value : values) value = static_cast<double>(random() % 100U) - 50.0;
      const std::vector<double> padded = Template::Padded(values, size);
      for (int k = 0; k < 3; ++k) {
        const Position at = {static_cast<std::ptrdiff_t>(random() % (pixels.width + 6)) - 3,
                             static_cast<std::ptrdiff_t>(random() % (pixels.height + 6)) - 3};
        const Neighbours found = CorrelateAround(GetParam(), pixels, {padded, size}, at);
        for (std::size_t v = 0; v < 3; ++v) {
          for (std::size_t u = 0; u < 3; ++u) {
            const Position middle = {at.x + static_cast<std::ptrdiff_t>(u) - 1,
                                     at.y + static_cast<std::ptrdiff_t>(v) - 1};
            EXPECT_EQ(found.at(v).at(u), Correlated(pixels, values, size, middle))
                << pixels.width << " x " << pixels.height << ", template " << size << " at " << middle.x << ", "
                << middle.y;
          }
        }
      }
    }
  });
}

TEST_P(Kernels, CorrelationsAreThePlainOnesToTheirLastBits) {
  // Each of at most 21² products and sums rounds a number below 21² · 32768 < 2²⁴.
  constexpr double kRounding = 441.0 * 0x1p24 * 0x1p-53;
  std::uniform_real_distribution<double> uniform(-1.0, 1.0);
  ForRectangles(-32768, 32767, [&](const Pixels& pixels, std::mt19937& random) {
    std::vector<double> values(441);  // 21 · 21
    for (double& value : values) value = uniform(random);
    const std::vector<double> padded = Template::Padded(values, 21);
    const Position at = {static_cast<std::ptrdiff_t>(random() % pixels.width),
                         static_cast<std::ptrdiff_t>(random() % pixels.height)};
    const Neighbours found = CorrelateAround(GetParam(), pixels, {padded, 21}, at);
    const Neighbours plain = CorrelateAround(Level::kPlain, pixels, {padded, 21}, at);
    for (std::size_t v = 0; v < 3; ++v) {
      for (std::size_t u = 0; u < 3; ++u) EXPECT_NEAR(found.at(v).at(u), plain.at(v).at(u), kRounding);
    }
    if (GetParam() == Level::kPlain) return;
    EXPECT_EQ(found, CorrelateAround(Level::kAvx2, pixels, {padded, 21}, at));
  });
}

TEST_P(Kernels, BrightestPointIsTheMeanOfTheBrightestPixels) {
  for (const std::int32_t span : {0, 1, 32767}) {
    ForRectangles(-span - 1, span, [&](const Pixels& pixels, std::mt19937&) {
      std::int16_t most = pixels.At(0, 0);
      Point sum = {0.0, 0.0};
      double count = 0.0;
      for (std::size_t y = 0; y < pixels.height; ++y) {
        for (std::size_t x = 0; x < pixels.width; ++x) {
          if (pixels.At(x, y) < most) continue;
          if (pixels.At(x, y) > most) {
            most = pixels.At(x, y);
            sum = {0.0, 0.0};
            count = 0.0;
          }
          sum = {sum.x + static_cast<double>(x), sum.y + static_cast<double>(y)};
          count += 1.0;
        }
      }
      const Point found = BrightestPoint(GetParam(), pixels);
      EXPECT_EQ(found.x, sum.x / count) << pixels.width << " x " << pixels.height;
      EXPECT_EQ(found.y, sum.y / count) << pixels.width << " x " << pixels.height;
    });
  }
}

constexpr std::array<double, 4> kSigmas = {0.43, 1.0, 2.0, 40.0};
constexpr std::array<double, 10> kCentres = {-70.25, -3.5, 0.0, 5.5, 11.499, 12.0, 23.75, 63.0, 100.75, 1e6};

AxisWeights Filled(Level level, double sigma, double centre, std::size_t first, std::size_t count) {
  AxisWeights weights{};
  weights.even.fill(-1.0);
  weights.odd.fill(-1.0);
  Gaussian(sigma * shssim::kFwhmPerSigma).Fill(level, centre, first, count, weights);
  return weights;
}

TEST_P(Kernels, GaussianWeightsAreTheFormulas) {
  constexpr double kRelative = 1e-12;  // a power of up to 400 factors
  for (const double sigma : kSigmas) {
    for (const double centre : kCentres) {
      for (const auto& [first, count] :
           {std::pair<std::size_t, std::size_t>(0, 52), {64, 52}, {0, 24}, {3, 1}, {9, 64}}) {
        const AxisWeights weights = Filled(GetParam(), sigma, centre, first, count);
        for (std::size_t k = 0; k < count; ++k) {
          const double u = static_cast<double>(first + k) - centre;
          const double g = std::exp(-0.5 * u * u / (sigma * sigma));
          const bool is_far = std::abs(u) > 9.0 * sigma - 1.0;
          EXPECT_NEAR(weights.even.at(k), g, is_far ? 1e-8 : kRelative * g) << sigma << ' ' << centre << ' ' << k;
          EXPECT_NEAR(weights.odd.at(k), u * g, is_far ? 1e-6 : kRelative * std::abs(u * g) + 1e-300);
        }
        const std::size_t end = (count + 7) / 8 * 8;
        for (std::size_t k = count; k < kTile; ++k) {
          EXPECT_EQ(weights.even.at(k), k < end ? 0.0 : -1.0) << count << ' ' << k;
          EXPECT_EQ(weights.odd.at(k), k < end ? 0.0 : -1.0) << count << ' ' << k;
        }
      }
    }
  }
}

TEST_P(Kernels, GaussianWeightsAreTheSameAtAllLevelsAboveThePlainOne) {
  if (GetParam() == Level::kPlain) return;
  for (const double sigma : kSigmas) {
    for (const double centre : kCentres) {
      for (const std::size_t first : {0U, 7U, 64U}) {
        const AxisWeights fast = Filled(GetParam(), sigma, centre, first, 57);
        const AxisWeights avx2 = Filled(Level::kAvx2, sigma, centre, first, 57);
        EXPECT_EQ(fast.even, avx2.even) << sigma << ' ' << centre << ' ' << first;
        EXPECT_EQ(fast.odd, avx2.odd) << sigma << ' ' << centre << ' ' << first;
      }
    }
  }
}

/// The norms of weights in the order of a level.
Norms NormsOf(Level level, const AxisWeights& weights, std::size_t count) {
  Norms norms = {1.0, 2.0, 3.0};  // what there was before
  if (level == Level::kPlain) {
    for (std::size_t k = 0; k < count; ++k) {
      norms.even += weights.even.at(k) * weights.even.at(k);
      norms.mixed += weights.even.at(k) * weights.odd.at(k);
      norms.odd += weights.odd.at(k) * weights.odd.at(k);
    }
    return norms;
  }
  const auto sum = [count](const std::array<double, kTile>& a, const std::array<double, kTile>& b) {
    std::array<double, 8> lanes{};
    for (std::size_t k = 0; k < count; ++k) lanes.at(k % 8) = std::fma(a.at(k), b.at(k), lanes.at(k % 8));
    return ((lanes[0] + lanes[4]) + (lanes[1] + lanes[5])) + ((lanes[2] + lanes[6]) + (lanes[3] + lanes[7]));
  };
  norms.even += sum(weights.even, weights.even);
  norms.mixed += sum(weights.even, weights.odd);
  norms.odd += sum(weights.odd, weights.odd);
  return norms;
}

TEST_P(Kernels, NormsAreThoseOfTheFilledWeights) {
  for (const double sigma : kSigmas) {
    const Gaussian shape(sigma * shssim::kFwhmPerSigma);
    for (const double centre : kCentres) {
      for (std::size_t count = 1; count <= kTile; ++count) {
        const std::size_t first = count % 3;
        AxisWeights weights{};
        weights.even.fill(-1.0);
        weights.odd.fill(-1.0);
        Norms norms = {1.0, 2.0, 3.0};
        shape.FillAndAddNorms(GetParam(), centre, first, count, weights, norms);
        const AxisWeights alone = Filled(GetParam(), sigma, centre, first, count);
        EXPECT_EQ(weights.even, alone.even) << sigma << ' ' << centre << ' ' << count;
        EXPECT_EQ(weights.odd, alone.odd) << sigma << ' ' << centre << ' ' << count;
        const Norms expected = NormsOf(GetParam(), alone, count);
        EXPECT_EQ(norms.even, expected.even) << sigma << ' ' << centre << ' ' << count;
        EXPECT_EQ(norms.mixed, expected.mixed) << sigma << ' ' << centre << ' ' << count;
        EXPECT_EQ(norms.odd, expected.odd) << sigma << ' ' << centre << ' ' << count;
      }
    }
  }
}

TEST_P(Kernels, NormsAreThePlainOnesToTheirLastBits) {
  constexpr double kRelative = 1e-12;  // of weights that are powers of up to 400 factors
  for (const double sigma : {1.0, 2.0, 40.0}) {
    const Gaussian shape(sigma * shssim::kFwhmPerSigma);
    for (const double centre : {0.0, 5.5, 11.499, 23.75}) {
      for (const std::size_t count : {1U, 7U, 24U, 57U, 64U}) {
        const auto norms = [&](Level level) {
          AxisWeights weights{};
          Norms sums;
          shape.FillAndAddNorms(level, centre, 0, count, weights, sums);
          return sums;
        };
        const Norms fast = norms(GetParam());
        const Norms plain = norms(Level::kPlain);
        EXPECT_NEAR(fast.even, plain.even, kRelative * plain.even);
        EXPECT_NEAR(fast.mixed, plain.mixed, kRelative * std::sqrt(plain.even * plain.odd));  // no term is larger
        EXPECT_NEAR(fast.odd, plain.odd, kRelative * plain.odd);
      }
    }
  }
}

}  // namespace
}  // namespace quen::centroiders
