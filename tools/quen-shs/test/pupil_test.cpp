#include "tools/quen-shs/src/pupil.hpp"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

using quen_shs::kGridSize;
using quen_shs::LitPixels;
using quen_shs::UsedFlags;

TEST(Pupil, GridIsCountedRowByRow) {
  EXPECT_EQ(quen_shs::FirstColumn(0), 24);
  EXPECT_EQ(quen_shs::FirstRow(0), 12);
  EXPECT_EQ(quen_shs::FirstColumn(1), 48);
  EXPECT_EQ(quen_shs::FirstRow(1), 12);
  EXPECT_EQ(quen_shs::FirstColumn(33), 24);
  EXPECT_EQ(quen_shs::FirstRow(33), 36);
  EXPECT_EQ(quen_shs::FirstColumn(1088), 792);
  EXPECT_EQ(quen_shs::FirstRow(1088), 780);
  EXPECT_EQ(quen_shs::CentreX(0), 35.5);
  EXPECT_EQ(quen_shs::CentreY(0), 23.5);
  EXPECT_EQ(quen_shs::CentreX(544), quen_shs::kPupilCentreX);
  EXPECT_EQ(quen_shs::CentreY(544), quen_shs::kPupilCentreY);
}

TEST(Pupil, MiddleIsDarkAndTheRingIsLit) {
  EXPECT_EQ(LitPixels(544), 0);        // the centre, behind the obscuration
  EXPECT_EQ(LitPixels(544 + 8), 576);  // half way out
  EXPECT_EQ(LitPixels(0), 0);          // a corner
}

TEST(Pupil, IlluminationIsSymmetric) {
  for (std::size_t row = 0; row < kGridSize; ++row) {
    for (std::size_t column = 0; column < kGridSize; ++column) {
      const int lit = LitPixels(column + kGridSize * row);
      ASSERT_EQ(lit, LitPixels((kGridSize - 1 - column) + kGridSize * row));
      ASSERT_EQ(lit, LitPixels(column + kGridSize * (kGridSize - 1 - row)));
      ASSERT_EQ(lit, LitPixels(row + kGridSize * column));
    }
  }
}

TEST(Pupil, The607BestLitAreUsedAndTiesGoByIndex) {
  const auto used = UsedFlags();
  ASSERT_EQ(used.size(), 1089U);
  EXPECT_EQ(std::ranges::count(used, 1), 607);
  EXPECT_EQ(std::ranges::count(used, 0), 482);
  int dimmest_used = 576;
  int brightest_unused = 0;
  for (std::size_t i = 0; i < used.size(); ++i) {
    if (used[i] != 0) {
      dimmest_used = std::min(dimmest_used, LitPixels(i));
    } else {
      brightest_unused = std::max(brightest_unused, LitPixels(i));
    }
  }
  ASSERT_EQ(dimmest_used, brightest_unused);  // there is a tie to be broken
  bool unused_seen = false;
  for (std::size_t i = 0; i < used.size(); ++i) {
    if (LitPixels(i) != dimmest_used) continue;
    unused_seen = unused_seen || used[i] == 0;
    EXPECT_EQ(used[i] == 0, unused_seen) << i;
  }
}

}  // namespace
