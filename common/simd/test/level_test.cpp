#include "common/simd/level.hpp"

#include <gtest/gtest.h>

#include "testing/environment.hpp"

namespace quen::common::simd {
namespace {

TEST(SimdLevel, WithoutAWishItIsTheHighest) {
  for (const Level highest : kLevels) {
    EXPECT_EQ(Choose("", highest).level, highest);
    EXPECT_EQ(Choose("", highest).warning, "");
  }
}

TEST(SimdLevel, WishIsGrantedWhereTheProcessorHasIt) {
  for (const Level wish : kLevels) {
    for (const Level highest : kLevels) {
      if (wish > highest) continue;
      EXPECT_EQ(Choose(Name(wish), highest).level, wish);
      EXPECT_EQ(Choose(Name(wish), highest).warning, "");
    }
  }
}

TEST(SimdLevel, WishForWhatTheProcessorLacksIsAWarning) {
  EXPECT_EQ(Choose("avx512", Level::kAvx2).level, Level::kAvx2);
  EXPECT_EQ(Choose("avx512", Level::kAvx2).warning, "QUEN_SIMD: this processor does not have avx512; running avx2");
  EXPECT_EQ(Choose("avx2", Level::kPlain).level, Level::kPlain);
  EXPECT_EQ(Choose("avx2", Level::kPlain).warning, "QUEN_SIMD: this processor does not have avx2; running plain");
}

TEST(SimdLevel, UnknownWordIsAWarning) {
  for (const char* const word : {"avx", "AVX2", "avx512 ", "best", "0"}) {
    EXPECT_EQ(Choose(word, Level::kAvx2).level, Level::kAvx2);
    EXPECT_EQ(Choose(word, Level::kAvx2).warning,
              "QUEN_SIMD: expected plain, avx2 or avx512, found " + std::string(word) + "; running avx2");
  }
}

TEST(SimdLevel, PickGivesEachLevelItsForm) {
  EXPECT_EQ(Pick(Level::kPlain, 1, 2, 3), 1);
  EXPECT_EQ(Pick(Level::kAvx2, 1, 2, 3), 2);
  EXPECT_EQ(Pick(Level::kAvx512, 1, 2, 3), 3);
}

/// Ends with the process's level as its exit code.
void ExitWithLevel(const char* wish) {
  const testing::ScopedVariable variable("QUEN_SIMD", wish);
  std::exit(static_cast<int>(Best()));
}

TEST(SimdLevelDeathTest, VariableForcesTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // a process of its own, which has not decided yet
  for (const Level level : kLevels) {
    if (!IsAvailable(level)) continue;
    EXPECT_EXIT(ExitWithLevel(Name(level)), ::testing::ExitedWithCode(static_cast<int>(level)), "");
  }
}

}  // namespace
}  // namespace quen::common::simd
