#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "detector/detector.hpp"
#include "detector/src/exposure.hpp"
#include "detector/src/poisson.hpp"
#include "detector/src/vectors.hpp"
#include "testing/levels.hpp"
#include "testing/values.hpp"

// Each stage at every level against its plain form, with memory beyond the chunk that nothing may write.

namespace quen::detector {
namespace {

using quen::common::simd::kLevels;
using quen::common::simd::Level;
using quen::testing::kInfinity;
using quen::testing::kNan;
using quen::testing::kSentinel;

class DetectorKernels : public testing::AtLevel {};

INSTANTIATE_TEST_SUITE_P(Levels, DetectorKernels, ::testing::ValuesIn(kLevels), testing::kNameOfLevel);

class DetectorVectors : public DetectorKernels {};

INSTANTIATE_TEST_SUITE_P(Levels, DetectorVectors, ::testing::Values(Level::kAvx2, Level::kAvx512),
                         testing::kNameOfLevel);

using Values = std::vector<double>;

/// A chunk with something beyond it, not aligned.
Values Guarded(const Values& chunk) {
  Values guarded(1, kSentinel);
  guarded.insert(guarded.end(), chunk.begin(), chunk.end());
  guarded.push_back(kSentinel);
  return guarded;
}

/// Means of all sizes, in all orders: runs of one size and mixtures.
Values Means(std::mt19937& random) {
  Values means(kChunk);
  std::uniform_real_distribution<double> size(-3.0, 7.0);
  std::uniform_int_distribution<int> kind(0, 5);
  const int of_all = kind(random);
  const double level = std::pow(10.0, size(random));
  for (double& mean : means) {
    const int one = of_all == 0 ? kind(random) : of_all;
    constexpr std::array<double, 8> kEdges = {0.0, 1e-320, 7.999999999999999, 8.0, 999.9999999, 1000.0, 1e6, 1e9};
    if (one <= 1) mean = std::pow(10.0, size(random));
    if (one == 2) mean = level;
    if (one == 3) mean = kEdges.at(random() % kEdges.size());
    if (one == 4) mean = static_cast<double>(random() % 20);
    if (one == 5) mean = 6.0 + 1e-3 * static_cast<double>(random() % 8000);
  }
  return means;
}

TEST_P(DetectorKernels, PhotonsAreThePlainOnes) {
  std::mt19937 random(1);
  for (std::uint64_t round = 0; round < 600; ++round) {
    const Values means = Means(random);
    const std::size_t first = random() % (kPixels / kChunk) * kChunk;
    const Stream stream = {round * 0x123456789ABCDEF, round << 31};
    Values plain = Guarded(means);
    Values fast = plain;
    CountPhotons(Level::kPlain, stream, first, plain.data() + 1);
    CountPhotons(GetParam(), stream, first, fast.data() + 1);
    ASSERT_EQ(plain, fast) << round;
    ASSERT_EQ(fast.front(), kSentinel);
    ASSERT_EQ(fast.back(), kSentinel);
  }
}

/// The mean at which the quantile of a pixel's number changes, somewhere near a wished one.
double BorderNear(double wished, const Stream& stream, std::uint32_t pixel) {
  double low = 0.8 * wished;
  double high = 1.2 * wished;
  const double below = PhotonElectrons(stream, pixel, low);
  for (int step = 0; step < 40; ++step) {
    const double middle = 0.5 * (low + high);
    (PhotonElectrons(stream, pixel, middle) == below ? low : high) = middle;
  }
  return low;
}

/// Where single precision cannot tell which of two numbers it is.
TEST_P(DetectorKernels, PhotonsBesideTheBordersAreThePlainOnes) {
  std::mt19937 random(7);
  const std::size_t first = 77 * kChunk;
  for (const double wished : {0.05, 1.0, 6.0, 10.0, 30.0, 400.0, 5000.0}) {
    for (std::uint64_t frame = 0; frame < 4; ++frame) {
      const Stream stream = {12, frame};
      Values plain(kChunk);
      for (std::size_t k = 0; k < kChunk; ++k) {
        const double border = BorderNear(wished, stream, static_cast<std::uint32_t>(first + k));
        plain[k] = border * (1.0 + std::ldexp(static_cast<double>(random() % 200) - 100.0, -30));
      }
      Values fast = plain;
      CountPhotons(Level::kPlain, stream, first, plain.data());
      CountPhotons(GetParam(), stream, first, fast.data());
      ASSERT_EQ(plain, fast) << wished;
    }
  }
}

TEST_P(DetectorKernels, ReadNoiseIsThePlainOne) {
  std::mt19937 random(2);
  for (std::uint64_t round = 0; round < 600; ++round) {
    const std::size_t first = random() % (kPixels / kChunk) * kChunk;
    const Stream stream = {round << 40 | round, ~round};
    Values plain = Guarded(Means(random));
    Values fast = plain;
    const double rms = std::ldexp(1.3, static_cast<int>(random() % 20));
    AddReadNoise(Level::kPlain, stream, first, rms, plain.data() + 1);
    AddReadNoise(GetParam(), stream, first, rms, fast.data() + 1);
    ASSERT_EQ(plain, fast) << round;
    ASSERT_EQ(fast.front(), kSentinel);
    ASSERT_EQ(fast.back(), kSentinel);
  }
}

/// Values of all kinds, and the odd ones.
Values Odd(std::mt19937& random) {
  Values values(kChunk);
  constexpr std::array<double, 14> kValues = {
      0.0,  -0.0, 0.5,    1.5,        2.5,  -3.0,      65534.5,
      1e12, 1e19, 5e-324, -kInfinity, kNan, kInfinity, std::numeric_limits<double>::max()};
  for (double& value : values) {
    value = random() % 4 == 0 ? kValues.at(random() % kValues.size()) : 0.25 * static_cast<double>(random() % 400'000);
  }
  return values;
}

TEST_P(DetectorKernels, ExpectationsAndCountsAreThePlainOnes) {
  std::mt19937 random(3);
  Plan plan{};
  plan.gain = 0.7;
  for (int round = 0; round < 200; ++round) {
    plan.gain = round % 2 == 0 ? 1.0 : 0.01 * static_cast<double>(1 + random() % 300);
    plan.highest = std::ldexp(1.0, 1 + static_cast<int>(random() % 16)) - 1.0;
    plan.response = PerPixel(0.5 * static_cast<double>(random() % 5));
    plan.dark = PerPixel(static_cast<double>(random() % 5));
    plan.offset = PerPixel(0.5 * static_cast<double>(random() % 9) - 2.0);
    const Values values = Odd(random);
    Values plain = Guarded(Values(kChunk));
    Values fast = plain;
    Expect(Level::kPlain, plan, 0, values.data(), plain.data() + 1);
    Expect(GetParam(), plan, 0, values.data(), fast.data() + 1);
    ASSERT_EQ(plain, fast);
    ASSERT_EQ(fast.back(), kSentinel);
    for (const double expected : plain) ASSERT_TRUE(expected <= kMostElectrons);

    Values electrons = values;
    for (double& value : electrons) value = std::isfinite(value) ? value : 12.5;
    std::vector<std::uint16_t> plain_counts(kChunk + 1, 54321);
    std::vector<std::uint16_t> fast_counts(kChunk + 1, 54321);
    Convert(Level::kPlain, plan, 0, electrons.data(), plain_counts.data());
    Convert(GetParam(), plan, 0, electrons.data(), fast_counts.data());
    ASSERT_EQ(plain_counts, fast_counts);
    ASSERT_EQ(fast_counts.back(), 54321);
  }
}

/// With all stages, light of all sizes, and numbers in all bits of seed and frame.
TEST_P(DetectorKernels, FramesAreThePlainOnes) {
  std::mt19937 random(4);
  Values values(kPixels);
  for (std::size_t pixel = 0; pixel < kPixels; ++pixel) {
    const auto x = static_cast<double>(pixel % kWidth % 24) - 11.6;
    const auto y = static_cast<double>(pixel / kWidth % 24) - 11.3;
    values[pixel] = 4096.0 * std::exp(-(x * x + y * y) / 8.0);
  }
  Plan plan{};
  plan.photon_noise = true;
  plan.gain = 1.5;
  plan.highest = 65535.0;
  plan.full_well = 3000.0;
  plan.read_noise = 2.5;
  plan.response = PerPixel(1.0);
  plan.dark = PerPixel(0.3);
  plan.offset = PerPixel(100.0);
  plan.stuck = {{7, 9}};
  for (const double em_gain : {1.0, 5.0}) {
    plan.em_gain = em_gain;
    plan.seed = (std::uint64_t{random()} << 32) + random();
    std::vector<std::uint16_t> plain(kPixels);
    std::vector<std::uint16_t> fast(kPixels);
    Expose(Level::kPlain, plan, values.data(), 0x123456789ULL, plain.data());
    Expose(GetParam(), plan, values.data(), 0x123456789ULL, fast.data());
    EXPECT_EQ(plain, fast);
    EXPECT_EQ(fast[7], 9);
  }
}

// --- What the fast forms are made of -------------------------------------------------------------------------------

/// W words that few random numbers hit: the tail, its border, the ends of u, and all octants.
std::uint32_t OddWord(std::mt19937& random) {
  constexpr std::array<std::uint32_t, 8> kWords = {0,          0xfff,      0x1000,     0x7fffffff,
                                                   0x80000000, 0xffffffff, 0xb504f333, 0xb504f334};
  return random() % 3 == 0 ? kWords.at(random() % kWords.size()) : static_cast<std::uint32_t>(random());
}

template <std::size_t W>
QUEN_ALWAYS_INLINE void PairsOf(const std::uint32_t* radius, const std::uint32_t* direction, float* first,
                                float* second, std::uint32_t& in_tail) {
  typename Vectors<W>::Words32 radii;
  typename Vectors<W>::Words32 directions;
  typename Vectors<W>::Floats a;
  typename Vectors<W>::Floats b;
  std::memcpy(&radii, radius, sizeof(radii));
  std::memcpy(&directions, direction, sizeof(directions));
  in_tail = NormalVectors<W>(radii, directions, a, b);
  std::memcpy(first, &a, sizeof(a));
  std::memcpy(second, &b, sizeof(b));
}
QUEN_TARGET_AVX2 void PairsAvx2(const std::uint32_t* radius, const std::uint32_t* direction, float* first,
                                float* second, std::uint32_t& in_tail) {
  PairsOf<8>(radius, direction, first, second, in_tail);
}
QUEN_TARGET_AVX512 void PairsAvx512(const std::uint32_t* radius, const std::uint32_t* direction, float* first,
                                    float* second, std::uint32_t& in_tail) {
  PairsOf<16>(radius, direction, first, second, in_tail);
}

TEST_P(DetectorVectors, NormalDeviatesAreThoseOfTheFormula) {
  const std::size_t width = GetParam() == Level::kAvx512 ? 16 : 8;
  std::mt19937 random(5);
  for (int round = 0; round < 20'000; ++round) {
    std::array<std::uint32_t, 16> radius{};
    std::array<std::uint32_t, 16> direction{};
    std::array<float, 16> first{};
    std::array<float, 16> second{};
    for (std::size_t lane = 0; lane < width; ++lane) {
      radius.at(lane) = OddWord(random);
      direction.at(lane) = OddWord(random);
    }
    std::uint32_t in_tail = 0;
    (width == 16 ? PairsAvx512 : PairsAvx2)(radius.data(), direction.data(), first.data(), second.data(), in_tail);
    for (std::size_t lane = 0; lane < width; ++lane) {
      ASSERT_EQ((in_tail >> lane & 1U) != 0, IsInTail(radius.at(lane)));
      if (IsInTail(radius.at(lane))) continue;
      const NormalPair pair = NormalsOf(UniformOf(radius.at(lane)), direction.at(lane));
      ASSERT_EQ(std::bit_cast<std::uint32_t>(first.at(lane)), std::bit_cast<std::uint32_t>(pair.first));
      ASSERT_EQ(std::bit_cast<std::uint32_t>(second.at(lane)), std::bit_cast<std::uint32_t>(pair.second));
    }
  }
}

// NOLINTBEGIN(cppcoreguidelines-avoid-c-arrays): as the kernels have them
template <std::size_t W>
QUEN_ALWAYS_INLINE void BlocksOf(const Stream& stream, std::uint32_t block, std::uint32_t (*words)[16]) {
  typename Vectors<W>::Words32 vectors[4];
  DrawBlocks<W>(Rounds(stream, Stage::kRead), block, vectors);
  for (std::size_t k = 0; k < 4; ++k) std::memcpy(words[k], &vectors[k], sizeof(vectors[k]));
}
QUEN_TARGET_AVX2 void BlocksAvx2(const Stream& stream, std::uint32_t block, std::uint32_t (*words)[16]) {
  BlocksOf<8>(stream, block, words);
}
QUEN_TARGET_AVX512 void BlocksAvx512(const Stream& stream, std::uint32_t block, std::uint32_t (*words)[16]) {
  BlocksOf<16>(stream, block, words);
}

TEST_P(DetectorVectors, WordsAreThoseOfThePackagedGenerator) {
  const std::size_t width = GetParam() == Level::kAvx512 ? 16 : 8;
  std::mt19937_64 random(6);
  for (int round = 0; round < 10'000; ++round) {
    const Stream stream = {random(), random()};
    const auto block = static_cast<std::uint32_t>(random() >> 34);
    std::uint32_t words[4][16];
    (width == 16 ? BlocksAvx512 : BlocksAvx2)(stream, block, words);
    for (std::uint32_t lane = 0; lane < width; ++lane) {
      const Words expected = Draw(stream, Stage::kRead, block + lane);
      for (std::size_t k = 0; k < 4; ++k) ASSERT_EQ(words[k][lane], expected.at(k));
    }
  }
}

// NOLINTEND(cppcoreguidelines-avoid-c-arrays)

}  // namespace
}  // namespace quen::detector
