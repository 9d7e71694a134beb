#include "workbench/sensor/geometry.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "testing/exceptions.hpp"

namespace quen::workbench {
namespace {

using quen::testing::ExpectThrows;

TEST(Geometry, GridIsCountedRowByRow) {
  EXPECT_EQ(CellAt({}, 0).first_column, 24);
  EXPECT_EQ(CellAt({}, 0).first_row, 12);
  EXPECT_EQ(CellAt({}, 1).first_column, 48);
  EXPECT_EQ(CellAt({}, 1).first_row, 12);
  EXPECT_EQ(CellAt({}, 33).first_column, 24);
  EXPECT_EQ(CellAt({}, 33).first_row, 36);
  EXPECT_EQ(CellAt({}, 1088).first_column, 792);
  EXPECT_EQ(CellAt({}, 1088).first_row, 780);
  EXPECT_EQ(CellAt({}, 0).x_ref, 35.5);
  EXPECT_EQ(CellAt({}, 0).y_ref, 23.5);
  EXPECT_EQ(PupilX(544), 0.0);
  EXPECT_EQ(PupilY(544), 0.0);
  EXPECT_EQ(PupilX(545), 1.0 / 14.5);
  EXPECT_EQ(PupilY(544 + 33), 1.0 / 14.5);
}

TEST(Geometry, OddRegionsHaveTheirReferenceInAPixel) {
  for (const std::size_t i : {0U, 544U, 1088U}) {
    const Cell cell = CellAt({.size = 23}, i);
    EXPECT_EQ(cell.x_ref, cell.first_column + 11.0);
    EXPECT_EQ(cell.y_ref, cell.first_row + 11.0);
  }
}

TEST(Geometry, FractionsOfAPixelAreInTheReferences) {
  const Geometry geometry = {.pitch = 23.7, .size = 20, .offset_x = 3.25, .offset_y = -2.0};
  for (std::size_t i = 0; i < 1089; ++i) {
    const Cell cell = CellAt(geometry, i);
    ASSERT_LE(std::abs(cell.x_ref - (cell.first_column + 9.5)), 0.5);
    ASSERT_LE(std::abs(cell.y_ref - (cell.first_row + 9.5)), 0.5);
  }
  EXPECT_NEAR(CellAt(geometry, 1).x_ref - CellAt(geometry, 0).x_ref, 23.7, 1e-12);
  EXPECT_NEAR(CellAt(geometry, 33).y_ref - CellAt(geometry, 0).y_ref, 23.7, 1e-12);
  EXPECT_EQ(CellAt(geometry, 0).x_ref - CellAt({.pitch = 23.7, .size = 20}, 0).x_ref, 3.25);
}

TEST(Geometry, GridMustFitOnTheFrame) {
  CheckFits({});
  CheckFits({.offset_x = 24.0, .offset_y = -12.0});
  ExpectThrows<std::invalid_argument>(
      "the grid does not fit on the frame: its columns go from 49 to 840, the frame's from 0 to 839; change the pitch, "
      "the size or the offset",
      [] { CheckFits({.offset_x = 25.0}); });
  ExpectThrows<std::invalid_argument>(
      "the grid does not fit on the frame: its rows go from -1 to 790, the frame's from 0 to 815; change the pitch, "
      "the "
      "size or the offset",
      [] { CheckFits({.offset_y = -13.0}); });
}

TEST(Pupil, MiddleIsDarkAndTheRingIsLit) {
  EXPECT_EQ(LitPoints({}, 544), 0);        // the centre, behind the obscuration
  EXPECT_EQ(LitPoints({}, 544 + 8), 576);  // half way out
  EXPECT_EQ(LitPoints({}, 0), 0);          // a corner
  EXPECT_EQ(LitPoints({.obscuration = 0.0}, 544), 576);
  for (const double obscuration : {0.0, 0.28, 0.30555, 0.42}) {
    for (std::size_t i = 0; i < 1089; ++i) {
      int lit = 0;
      for (int b = 0; b < 24; ++b) {
        for (int a = 0; a < 24; ++a) {
          const double x = 24 * ColumnsFromMiddle(i) + a - 11.5;
          const double y = 24 * RowsFromMiddle(i) + b - 11.5;
          const double r = std::hypot(x, y) / (24 * kPupilRadius);
          if (r >= obscuration && r <= 1.0) ++lit;
        }
      }
      EXPECT_EQ(LitPoints({.obscuration = obscuration}, i), lit) << i;
    }
  }
}

TEST(Pupil, SpiderIsACrossAtItsAngle) {
  constexpr std::size_t kRight = 544 + 8;
  constexpr std::size_t kUp = 544 + 8 * 33;
  constexpr std::size_t kDiagonal = 544 + 6 + 6 * 33;
  const Geometry upright = {.spider_angle = 0.0};
  const Geometry diagonal = {.spider_angle = 45.0};
  // Half a vane is 0.01 of 348 points, so 6 of the rows of points are dark.
  EXPECT_EQ(LitPoints(upright, kRight), 576 - 6 * 24);
  EXPECT_EQ(LitPoints(upright, kUp), 576 - 6 * 24);
  EXPECT_EQ(LitPoints(upright, kDiagonal), 576);
  EXPECT_EQ(LitPoints(diagonal, kRight), 576);
  EXPECT_LT(LitPoints(diagonal, kDiagonal), 576);
  EXPECT_EQ(LitPoints({.spider_angle = 0.0, .spider_width = 0.0}, kRight), 576);
}

TEST(Pupil, IlluminationIsSymmetric) {
  for (std::size_t row = 0; row < kGridSize; ++row) {
    for (std::size_t column = 0; column < kGridSize; ++column) {
      const int lit = LitPoints({}, column + kGridSize * row);
      ASSERT_EQ(lit, LitPoints({}, (kGridSize - 1 - column) + kGridSize * row));
      ASSERT_EQ(lit, LitPoints({}, column + kGridSize * (kGridSize - 1 - row)));
      ASSERT_EQ(lit, LitPoints({}, row + kGridSize * column));
    }
  }
}

TEST(Pupil, The607BestLitAreUsedAndTiesGoByIndex) {
  const auto used = UsedFlags({});
  ASSERT_EQ(used.size(), 1089U);
  EXPECT_EQ(std::ranges::count(used, 1), 607);
  EXPECT_EQ(std::ranges::count(used, 0), 482);
  int dimmest_used = 576;
  int brightest_unused = 0;
  for (std::size_t i = 0; i < used.size(); ++i) {
    if (used[i] != 0) {
      dimmest_used = std::min(dimmest_used, LitPoints({}, i));
    } else {
      brightest_unused = std::max(brightest_unused, LitPoints({}, i));
    }
  }
  ASSERT_EQ(dimmest_used, brightest_unused);  // there is a tie to be broken
  bool unused_seen = false;
  for (std::size_t i = 0; i < used.size(); ++i) {
    if (LitPoints({}, i) != dimmest_used) continue;
    unused_seen = unused_seen || used[i] == 0;
    EXPECT_EQ(used[i] == 0, unused_seen) << i;
  }
}

TEST(Pupil, TooLittleLightIsRefused) {
  EXPECT_EQ(std::ranges::count(UsedFlags({.obscuration = 0.0}), 1), 607);
  ExpectThrows<std::invalid_argument>(
      "only 216 sub-apertures are lit, and 607 must be; choose a smaller obscuration or spider",
      [] { UsedFlags({.obscuration = 0.9}); });
}

}  // namespace
}  // namespace quen::workbench
