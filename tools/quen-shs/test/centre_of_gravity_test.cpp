#include "tools/quen-shs/src/centre_of_gravity.hpp"

#include <gtest/gtest.h>

#include <vector>

namespace {

using quen::image_processing::Roi;
using quen_shs::CentreOfGravity;

class CentreOfGravityTest : public ::testing::Test {
 protected:
  std::uint16_t& At(std::size_t column, std::size_t row) { return frame_[column + 20 * row]; }

  std::vector<std::uint16_t> frame_ = std::vector<std::uint16_t>(200, 0);
  Roi roi_ = Roi(4, 9, 2, 8, 20, 10, 6.0, 4.5);
  CentreOfGravity engine_;
};

TEST_F(CentreOfGravityTest, OneBrightPixelIsWhereTheSpotIs) {
  At(8, 3) = 100;
  engine_.Compute(frame_, roi_);
  EXPECT_EQ(engine_.flux, 100);
  EXPECT_EQ(engine_.x, 2.0);
  EXPECT_EQ(engine_.y, -1.5);
}

TEST_F(CentreOfGravityTest, WeighsByLight) {
  At(5, 2) = 100;
  At(7, 6) = 300;
  engine_.Compute(frame_, roi_);
  EXPECT_EQ(engine_.flux, 400);
  EXPECT_EQ(engine_.x, 6.5 - 6.0);
  EXPECT_EQ(engine_.y, 5.0 - 4.5);
}

TEST_F(CentreOfGravityTest, PixelsAreSigned) {
  At(6, 4) = 100;
  At(4, 4) = static_cast<std::uint16_t>(-50);
  engine_.Compute(frame_, roi_);
  EXPECT_EQ(engine_.flux, 50);
  EXPECT_EQ(engine_.x, (600.0 - 200.0) / 50.0 - 6.0);
}

TEST_F(CentreOfGravityTest, OnlyTheRegionCounts) {
  At(6, 4) = 100;
  for (std::size_t row = 0; row < 10; ++row) {
    At(3, row) = 999;
    At(9, row) = 999;
  }
  for (std::size_t column = 0; column < 20; ++column) {
    At(column, 1) = 999;
    At(column, 8) = 999;
  }
  engine_.Compute(frame_, roi_);
  EXPECT_EQ(engine_.flux, 100);
  EXPECT_EQ(engine_.x, 0.0);
  EXPECT_EQ(engine_.y, -0.5);
}

TEST_F(CentreOfGravityTest, DarkOrEmptyRegionsAreUndisplaced) {
  engine_.Compute(frame_, roi_);
  EXPECT_EQ(engine_.flux, 0);
  EXPECT_EQ(engine_.x, 0);
  EXPECT_EQ(engine_.y, 0);
  At(6, 4) = static_cast<std::uint16_t>(-7);
  engine_.Compute(frame_, roi_);
  EXPECT_EQ(engine_.flux, -7);
  EXPECT_EQ(engine_.x, 0);
  engine_.Compute(frame_, Roi(20, 20, 10, 10, 20, 10, 3, 3));
  EXPECT_EQ(engine_.flux, 0);
  EXPECT_EQ(engine_.y, 0);
  engine_.Compute(frame_, Roi(20, 20, 0, 10, 20, 10, 3, 3));
  EXPECT_EQ(engine_.flux, 0);
}

TEST_F(CentreOfGravityTest, RegionMayTouchTheFramesFarCorner) {
  At(19, 9) = 8;
  engine_.Compute(frame_, Roi(15, 20, 5, 10, 20, 10, 19, 9));
  EXPECT_EQ(engine_.flux, 8);
  EXPECT_EQ(engine_.x, 0);
  EXPECT_EQ(engine_.y, 0);
}

}  // namespace
