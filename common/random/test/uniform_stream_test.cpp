#include "common/random/uniform_stream.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <sstream>
#include <stdexcept>
#include <type_traits>
#include <vector>

#include "common/random/random.hpp"
#include "testing/levels.hpp"

namespace quen::common::random {
namespace {

using simd::Level;

/// Each level that this processor can run.
class UniformStreamTest : public testing::AtLevel {};

double Canonical(std::mt19937& generator) { return std::generate_canonical<double, 53>(generator); }

/// Draws `count` numbers in steps of `step` and expects those of the standard library, and its generator after.
void ExpectStandard(Level level, std::mt19937 generator, std::size_t count, std::size_t step) {
  std::mt19937 expected = generator;
  {
    UniformStream stream(level, generator);
    for (std::size_t done = 0; done < count;) {
      const std::size_t now = std::min(step, count - done);
      const double* const numbers = stream.Take(now);
      for (std::size_t k = 0; k < now; ++k) ASSERT_EQ(numbers[k], Canonical(expected)) << done + k;
      done += now;
    }
  }
  ASSERT_TRUE(generator == expected);
}

TEST_P(UniformStreamTest, GivesTheStandardsNumbersFromEveryPosition) {
  for (unsigned long long position = 0; position <= 1249; ++position) {
    std::mt19937 generator(static_cast<std::uint32_t>(position));
    generator.discard(position);
    ExpectStandard(GetParam(), generator, 330, 33);
  }
}

TEST_P(UniformStreamTest, GivesTheStandardsNumbersInStepsOfAnySize) {
  const std::size_t most = UniformStream::kMaxTake;
  for (const std::size_t step :
       {std::size_t{1}, std::size_t{3}, std::size_t{7}, std::size_t{24}, std::size_t{64}, most}) {
    for (const std::size_t count :
         {std::size_t{0}, std::size_t{1}, std::size_t{311}, std::size_t{312}, std::size_t{313}, std::size_t{1023},
          std::size_t{1024}, std::size_t{1025}, std::size_t{5000}}) {
      ExpectStandard(GetParam(), std::mt19937(3), count, step);
    }
  }
}

TEST_P(UniformStreamTest, MillionsOfNumbersAreTheStandards) {
  ExpectStandard(GetParam(), std::mt19937(11), 3000000, 576);
}

TEST_P(UniformStreamTest, SkippingIsDrawing) {
  for (const std::size_t before : {std::size_t{0}, std::size_t{5}}) {
    for (const std::size_t skipped : {std::size_t{0}, std::size_t{1}, std::size_t{312}, std::size_t{2000}}) {
      std::mt19937 generator(7);
      generator.discard(1);
      std::mt19937 expected = generator;
      expected.discard(2 * (before + skipped));
      {
        UniformStream stream(GetParam(), generator);
        stream.Take(before);
        stream.Skip(skipped);
        EXPECT_EQ(*stream.Take(1), Canonical(expected));
      }
      EXPECT_TRUE(generator == expected);
    }
  }
}

TEST_P(UniformStreamTest, DrawsAndSkipsFromEveryPositionLeaveTheGeneratorWhereTheyEnd) {
  // So that each may end one word before the state's last, at it, and behind it.
  for (unsigned long long position = 0; position <= 625; ++position) {
    std::mt19937 generator(static_cast<std::uint32_t>(position));
    generator.discard(position);
    for (const std::size_t count : {std::size_t{1}, std::size_t{7}, std::size_t{312}, std::size_t{313}}) {
      std::mt19937 drawn = generator;
      std::mt19937 skipped = generator;
      std::mt19937 expected = generator;
      expected.discard(2 * count);
      UniformStream(GetParam(), drawn).Take(count);
      UniformStream(GetParam(), skipped).Skip(count);
      ASSERT_TRUE(drawn == expected) << count << " from " << position;
      ASSERT_TRUE(skipped == expected) << count << " from " << position;
      ASSERT_EQ(drawn(), expected()) << count << " from " << position;  // the state compares equal, and goes on so
    }
  }
}

TEST_P(UniformStreamTest, SkippingMayStopBeforeTheLastWord) {
  std::mt19937 generator(7);
  generator.discard(1);
  std::mt19937 expected = generator;
  expected.discard(2ULL * (311 + 5));
  {
    UniformStream stream(GetParam(), generator);
    stream.Skip(311);  // 1 + 2 · 311 = 623 words used
    stream.Skip(5);
  }
  EXPECT_TRUE(generator == expected);
}

TEST_P(UniformStreamTest, NothingDrawnLeavesTheGenerator) {
  std::mt19937 generator(7);
  generator.discard(624);
  const std::mt19937 before = generator;
  { const UniformStream stream(GetParam(), generator); }
  EXPECT_TRUE(generator == before);
}

TEST_P(UniformStreamTest, AnExceptionLeavesTheGeneratorWhereTheDrawsHaveBroughtIt) {
  std::mt19937 generator(7);
  std::mt19937 expected = generator;
  expected.discard(2ULL * 700);
  const auto draw = [&] {
    UniformStream stream(GetParam(), generator);
    stream.Take(500);
    stream.Skip(200);
    throw std::domain_error("while the stream is alive");
  };
  EXPECT_THROW(draw(), std::domain_error);
  EXPECT_TRUE(generator == expected);
}

TEST(UniformStream, IsNeitherCopiedNorMoved) {
  // Two of them would put the state back twice.
  static_assert(!std::is_copy_constructible_v<UniformStream> && !std::is_move_constructible_v<UniformStream>);
  static_assert(!std::is_copy_assignable_v<UniformStream> && !std::is_move_assignable_v<UniformStream>);
}

/// The word of the state whose output is `z`.
std::uint32_t Untempered(std::uint32_t z) {
  z ^= z >> 18U;
  z ^= (z << 15U) & 0xefc60000U;
  for (std::uint32_t y = z, i = 0; i < 5; ++i) z = y ^ ((z << 7U) & 0x9d2c5680U);
  for (std::uint32_t y = z, i = 0; i < 3; ++i) z = y ^ (z >> 11U);
  return z;
}

/// A generator at position 0 whose first outputs are these; its state is read as text, as the standard lays it down.
std::mt19937 GeneratorGiving(const std::vector<std::uint32_t>& outputs) {
  std::ostringstream state;
  for (std::size_t k = 0; k < 624; ++k) state << Untempered(outputs[k % outputs.size()]) << ' ';
  state << 0;
  std::istringstream text(state.str());
  std::mt19937 generator;
  text >> generator;
  return generator;
}

TEST_P(UniformStreamTest, RoundsAndClampsAsTheStandard) {
  constexpr std::uint32_t kMax = std::numeric_limits<std::uint32_t>::max();
  // The largest values round to 1 and are clamped; others lie halfway between doubles.
  const std::vector<std::uint32_t> outputs = {kMax,  kMax, 0x3ff, kMax, 0x400, kMax,      0xbff, kMax,
                                              0xc00, kMax, 0,     0,    1,     0,         0,     1,
                                              kMax,  0,    0,     kMax, 1025,  1U << 31U, 1024,  1U << 31U};
  std::mt19937 check = GeneratorGiving(outputs);
  for (const std::uint32_t output : outputs) ASSERT_EQ(check(), output);
  std::mt19937 first = GeneratorGiving(outputs);
  ASSERT_EQ(Canonical(first), 0x1.fffffffffffffp-1);
  ExpectStandard(GetParam(), GeneratorGiving(outputs), 312, 24);
}

TEST_P(UniformStreamTest, TheGeneratorsTextIsWhatTheLayoutSays) {
  // The state after many draws, written by the standard library, read back by it.
  std::mt19937 generator(5);
  {
    UniformStream stream(GetParam(), generator);
    stream.Take(500);
  }
  std::stringstream text;
  text << generator;
  std::mt19937 reread;
  text >> reread;
  EXPECT_TRUE(reread == generator);
}

INSTANTIATE_TEST_SUITE_P(Levels, UniformStreamTest, ::testing::ValuesIn(simd::kLevels), testing::kNameOfLevel);

TEST(FillUniform, EqualsTheDistributionInALoop) {
  for (const auto& [low, high] : {std::pair(-10.0, 10.0), std::pair(0.0, 1.0), std::pair(3.0, 3.0),
                                  std::pair(-1e300, 1e300), std::pair(0.1, 0.7)}) {
    for (const std::size_t count :
         {std::size_t{1}, std::size_t{639}, std::size_t{640}, std::size_t{641}, std::size_t{100000}}) {
      std::mt19937 generator(13);
      generator.discard(3);
      std::mt19937 expected = generator;
      std::vector<double> values(count);
      FillUniform(generator, low, high, values);
      for (std::size_t k = 0; k < count; ++k) {
        ASSERT_EQ(values[k], std::uniform_real_distribution<double>(low, high)(expected)) << k;
      }
      ASSERT_TRUE(generator == expected);
    }
  }
}

TEST(FillUniform, OfNothingDoesNothing) {
  std::mt19937 generator(13);
  FillUniform(generator, 1.0, -1.0, {});
  EXPECT_TRUE(generator == std::mt19937(13));
}

}  // namespace
}  // namespace quen::common::random
