#include <gtest/gtest.h>

#include <Eigen/Dense>
#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <random>
#include <utility>

#include "centroiders/test/engines.hpp"
#include "testing/exceptions.hpp"

// What each engine does differently, on small frames whose results can be told by hand.

namespace quen::centroiders {
namespace {

using quen::image_processing::Roi;
using quen::testing::ExpectThrows;
using Invalid = std::invalid_argument;

class SmallFrame : public ::testing::Test {
 protected:
  static constexpr std::uint16_t kSide = 25;

  std::uint16_t& At(std::size_t column, std::size_t row) { return frame_[column + kSide * row]; }

  /// A spot of this height and deviation at (x, y), rounded to whole numbers.
  void Draw(double x, double y, double height, double sigma = kSpotSigma) {
    for (std::size_t row = 0; row < kSide; ++row) {
      for (std::size_t column = 0; column < kSide; ++column) {
        const double u = static_cast<double>(column) - x;
        const double v = static_cast<double>(row) - y;
        At(column, row) =
            static_cast<std::uint16_t>(std::lround(height * std::exp(-0.5 * (u * u + v * v) / (sigma * sigma))));
      }
    }
  }

  void Measure(Engine& engine) { engine.Compute(frame_, roi_); }

  std::vector<std::uint16_t> frame_ = std::vector<std::uint16_t>(std::size_t{kSide} * kSide, 0);
  Roi roi_ = Roi(0, kSide, 0, kSide, kSide, kSide, 12.0, 12.0);
};

// --- Centre of gravity

TEST_F(SmallFrame, CentreOfGravityWeighsByLight) {
  At(13, 10) = 100;
  At(15, 14) = 300;
  At(12, 12) = static_cast<std::uint16_t>(-50);
  CentreOfGravity engine;
  Measure(engine);
  EXPECT_EQ(engine.flux, 350.0);
  EXPECT_EQ(engine.x, (100.0 * 13 + 300.0 * 15 - 50.0 * 12) / 350.0 - 12.0);
  EXPECT_EQ(engine.y, (100.0 * 10 + 300.0 * 14 - 50.0 * 12) / 350.0 - 12.0);
}

TEST_F(SmallFrame, BackgroundIsTakenFromEveryPixel) {
  Draw(13.5, 11.0, 3000.0);
  CentreOfGravity clean;
  Measure(clean);
  for (std::uint16_t& pixel : frame_) pixel = static_cast<std::uint16_t>(pixel + 40);
  CentreOfGravity engine({.background = 40.0});
  Measure(engine);
  EXPECT_EQ(engine.flux, clean.flux);
  EXPECT_NEAR(engine.x, clean.x, 1e-13);
  EXPECT_NEAR(engine.y, clean.y, 1e-13);
}

TEST_F(SmallFrame, ThresholdIsSubtractedOrCutsOnly) {
  At(10, 12) = 30;  // not above the threshold
  At(12, 12) = 31;
  At(14, 12) = 130;
  CentreOfGravity subtracting({.background = 10.0, .threshold = 20.0});
  Measure(subtracting);
  EXPECT_EQ(subtracting.flux, 1.0 + 100.0);
  EXPECT_EQ(subtracting.x, (1.0 * 12 + 100.0 * 14) / 101.0 - 12.0);
  CentreOfGravity cutting({.background = 10.0, .threshold = 20.0, .thresholding = Thresholding::kCut});
  Measure(cutting);
  EXPECT_EQ(cutting.flux, 21.0 + 120.0);
  EXPECT_EQ(cutting.x, (21.0 * 12 + 120.0 * 14) / 141.0 - 12.0);
}

TEST_F(SmallFrame, ThresholdsNeedNotBeWhole) {
  At(10, 12) = 30;
  At(14, 12) = 31;
  CentreOfGravity engine({.background = 0.25, .threshold = 30.25});
  Measure(engine);
  EXPECT_EQ(engine.flux, 0.5);
  EXPECT_EQ(engine.x, 2.0);
}

TEST_F(SmallFrame, ThresholdsAboveEveryPixelLeaveNoLight) {
  Draw(12.0, 12.0, 32767.0);
  CentreOfGravity engine({.background = 32767.0, .threshold = 65535.0});
  Measure(engine);
  EXPECT_EQ(engine.flux, 0.0);
  EXPECT_EQ(engine.x, 0.0);
}

// --- Windowed centre of gravity

TEST_F(SmallFrame, WindowHoldsPixelsUpToItsHalfWidth) {
  for (const std::size_t column : {9U, 10U, 14U, 15U}) At(column, 12) = 100;
  At(12, 12) = 500;
  WindowedCentreOfGravity narrow({.half_width = 2.0});
  Measure(narrow);
  EXPECT_EQ(narrow.flux, 700.0);
  EXPECT_EQ(narrow.x, 0.0);
  WindowedCentreOfGravity wide({.half_width = 3.0});
  Measure(wide);
  EXPECT_EQ(wide.flux, 900.0);
}

TEST_F(SmallFrame, WindowIsCentredOnTheReferenceOrTheBrightestPixel) {
  At(5, 20) = 500;
  At(12, 12) = 100;
  WindowedCentreOfGravity follows({.half_width = 3.0});
  Measure(follows);
  EXPECT_EQ(follows.flux, 500.0);
  EXPECT_EQ(follows.x, -7.0);
  EXPECT_EQ(follows.y, 8.0);
  WindowedCentreOfGravity stays({.around = WindowCentre::kReference, .half_width = 3.0});
  Measure(stays);
  EXPECT_EQ(stays.flux, 100.0);
  EXPECT_EQ(stays.x, 0.0);
  EXPECT_EQ(stays.y, 0.0);
}

TEST_F(SmallFrame, WindowLiesBetweenEquallyBrightPixels) {
  At(10, 12) = 200;
  At(13, 12) = 200;
  At(9, 12) = 50;
  At(14, 12) = 50;
  WindowedCentreOfGravity engine({.half_width = 2.5});  // columns 9 to 14
  Measure(engine);
  EXPECT_EQ(engine.flux, 500.0);
  EXPECT_EQ(engine.x, -0.5);
}

TEST_F(SmallFrame, WindowIsClippedToTheRegion) {
  At(0, 24) = 500;
  At(2, 24) = 500;
  At(24, 0) = 300;
  roi_ = Roi(0, kSide, 0, kSide, kSide, kSide, 0.0, 24.0);
  WindowedCentreOfGravity engine({.around = WindowCentre::kReference, .half_width = 4.0});
  Measure(engine);
  EXPECT_EQ(engine.flux, 1000.0);
  EXPECT_EQ(engine.x, 1.0);
  EXPECT_EQ(engine.y, 0.0);
}

TEST_F(SmallFrame, WindowBesideTheRegionIsDark) {
  Draw(5.0, 5.0, 1000.0);
  roi_ = Roi(0, 8, 0, 8, kSide, kSide, 20.0, 20.0);
  WindowedCentreOfGravity engine({.around = WindowCentre::kReference, .half_width = 4.0});
  Measure(engine);
  EXPECT_EQ(engine.flux, 0.0);
  EXPECT_EQ(engine.x, 0.0);
}

// --- Weighted centre of gravity

TEST_F(SmallFrame, WeightedResponseIsLinearForTheDrawnSpot) {
  constexpr double kRounding = 5e-4;  // of the pixels, 0.3 units each under a weight that is worth 4π of 32000
  for (const double fwhm : {2.0, kSpotFwhm, 8.0}) {
    WeightedCentreOfGravity engine({.fwhm = fwhm});
    for (const double x : {-3.0, -1.25, 0.0, 0.5, 2.0}) {
      Draw(12.0 + x, 12.0 - 0.5 * x, 32000.0);
      Measure(engine);
      EXPECT_NEAR(engine.x, x, kRounding) << fwhm;
      EXPECT_NEAR(engine.y, -0.5 * x, kRounding) << fwhm;
    }
  }
}

TEST_F(SmallFrame, WeightedTakesAGivenGain) {
  Draw(13.0, 12.0, 32000.0);
  WeightedCentreOfGravity own;
  WeightedCentreOfGravity given({.gain = 1.0});
  Measure(own);
  Measure(given);
  EXPECT_NEAR(own.x, 2.0 * given.x, 1e-12);
}

TEST_F(SmallFrame, WeightedReportsAllLightAndMeasuresTheNearOne) {
  Draw(12.0, 12.0, 1000.0);
  At(0, 0) = 1000;
  WeightedCentreOfGravity engine({.fwhm = 2.0});
  Measure(engine);
  EXPECT_NEAR(engine.flux, 8.0 * std::numbers::pi * 1000.0 + 1000.0, 20.0);
  EXPECT_NEAR(engine.x, 0.0, 1e-9);
}

TEST_F(SmallFrame, WeightedHasNoLightWhereItsWeightedSumIsNotPositive) {
  At(13, 12) = static_cast<std::uint16_t>(-100);
  At(0, 0) = 30000;  // beyond the weight
  WeightedCentreOfGravity engine({.fwhm = 1.0});
  Measure(engine);
  EXPECT_EQ(engine.flux, 29900.0);
  EXPECT_EQ(engine.x, 0.0);
  EXPECT_EQ(engine.y, 0.0);
}

TEST_F(SmallFrame, WeightedMeasuresLightThatDarkPixelsElsewhereOutweigh) {
  At(13, 12) = 100;
  At(0, 0) = static_cast<std::uint16_t>(-30000);
  WeightedCentreOfGravity engine({.fwhm = 1.0, .gain = 1.0});
  Measure(engine);
  EXPECT_EQ(engine.flux, -29900.0);
  EXPECT_EQ(engine.x, 1.0);
  EXPECT_EQ(engine.y, 0.0);
}

TEST_F(SmallFrame, WeightedCountsItsEndFromThePixelNearestToTheReference) {
  // Nine deviations are 3.8 pixels, and so four: from column or row 12, or 13 where the reference is nearer to it.
  // Halfway between, the even one of the region's counts, which for a region that begins at 1 is frame column 11 or 13.
  struct Case {
    std::uint16_t low;
    double reference;
    std::size_t first;
    std::size_t last;
  };
  for (const Case& c : {Case{0, 12.4, 8, 16}, Case{0, 12.6, 9, 17}, Case{0, 12.5, 8, 16}, Case{0, 13.5, 10, 18},
                        Case{1, 12.5, 9, 17}}) {
    for (const bool along_x : {true, false}) {
      for (std::size_t place = 5; place < 21; ++place) {
        std::ranges::fill(frame_, std::uint16_t{0});
        (along_x ? At(place, 12) : At(12, place)) = 30000;
        roi_ = along_x ? Roi(c.low, kSide, 0, kSide, kSide, kSide, c.reference, 12.0)
                       : Roi(0, kSide, c.low, kSide, kSide, kSide, 12.0, c.reference);
        WeightedCentreOfGravity engine({.fwhm = 1.0, .gain = 1.0});
        Measure(engine);
        const bool weighs = place >= c.first && place <= c.last;
        const double expected = weighs ? static_cast<double>(place) - c.reference : 0.0;
        EXPECT_NEAR(along_x ? engine.x : engine.y, expected, 1e-12) << c.reference << ' ' << place;
      }
    }
  }
}

// --- Brightest pixels

TEST_F(SmallFrame, BrightestPixelsLeaveOutTheDimmerOnes) {
  At(10, 12) = 50;
  At(12, 12) = 400;
  At(13, 12) = 300;
  At(14, 13) = 200;
  BrightestPixels engine({.number = 3});
  Measure(engine);
  EXPECT_EQ(engine.flux, 200.0 + 100.0);
  EXPECT_EQ(engine.x, (200.0 * 12 + 100.0 * 13) / 300.0 - 12.0);
  EXPECT_EQ(engine.y, 0.0);
}

TEST_F(SmallFrame, BrightestPixelsTreatEqualOnesEqually) {
  At(10, 12) = 200;
  At(12, 12) = 400;
  At(14, 12) = 200;
  BrightestPixels engine({.number = 2});
  Measure(engine);
  EXPECT_EQ(engine.flux, 200.0);
  EXPECT_EQ(engine.x, 0.0);
}

TEST_F(SmallFrame, BrightestPixelsMayBeAFraction) {
  std::mt19937 random(3);
  for (std::uint16_t& pixel : frame_) pixel = static_cast<std::uint16_t>(random() % 3000U);
  BrightestPixels fraction({.fraction = 0.1});  // 62.5 of 625
  BrightestPixels number({.number = 63});
  Measure(fraction);
  Measure(number);
  EXPECT_EQ(fraction.flux, number.flux);
  EXPECT_EQ(fraction.x, number.x);
  EXPECT_EQ(fraction.y, number.y);
}

TEST_F(SmallFrame, BrightestPixelsOfAFewAreAllOfThem) {
  At(1, 0) = 30;
  At(0, 0) = 10;
  At(0, 1) = 10;
  At(1, 1) = 10;
  roi_ = Roi(0, 2, 0, 2, kSide, kSide, 0.0, 0.0);
  BrightestPixels engine({.number = 1000});
  Measure(engine);
  EXPECT_EQ(engine.flux, 20.0);
  EXPECT_EQ(engine.x, 1.0);
  EXPECT_EQ(engine.y, 0.0);
}

// --- Quad cell

TEST_F(SmallFrame, QuadCellComparesTheHalves) {
  At(3, 12) = 100;
  At(20, 12) = 300;
  At(12, 2) = 50;  // on the line: half and half
  QuadCell engine({.gain = 2.0});
  Measure(engine);
  EXPECT_EQ(engine.flux, 450.0);
  EXPECT_EQ(engine.x, 2.0 * 200.0 / 450.0);
  EXPECT_EQ(engine.y, 2.0 * -50.0 / 450.0);
}

TEST_F(SmallFrame, QuadCellSplitsPixelsOnTheLine) {
  At(12, 12) = 100;
  roi_ = Roi(0, kSide, 0, kSide, kSide, kSide, 11.75, 12.5);
  QuadCell engine({.gain = 1.0});
  Measure(engine);
  EXPECT_EQ(engine.x, 0.5);   // 0.75 of it is beyond column 11.75
  EXPECT_EQ(engine.y, -1.0);  // all of it is before row 12.5
}

TEST_F(SmallFrame, QuadCellIsRightForSmallDisplacementsWhereverTheLineRuns) {
  constexpr double kStep = 0.05;
  constexpr double kRounding = 4e-4;
  for (const double line : {11.5, 11.75, 11.9, 12.0, 12.01, 12.3, 12.5}) {
    roi_ = Roi(0, kSide, 0, kSide, kSide, kSide, line, line);
    QuadCell engine;
    Draw(line + kStep, line - kStep, 32000.0);
    Measure(engine);
    EXPECT_NEAR(engine.x, kStep, kRounding) << line;
    EXPECT_NEAR(engine.y, -kStep, kRounding) << line;
    Draw(line, line, 32000.0);
    Measure(engine);
    EXPECT_NEAR(engine.x, 0.0, kRounding) << line;
  }
}

TEST_F(SmallFrame, QuadCellsGainAndZeroPointDependOnWhereInAPixelTheLineRuns) {
  // Against the Gaussian's own gain: one through the centre of a pixel, and one between two, where there is no shift.
  At(3, 12) = 100;
  At(20, 12) = 300;
  QuadCell engine;
  QuadCell continuous({.gain = std::sqrt(std::numbers::pi / 2.0) * kSpotSigma});
  for (const auto& [line, gain] : {std::pair(12.0, 1.0216), std::pair(12.5, 0.9895)}) {
    roi_ = Roi(0, kSide, 0, kSide, kSide, kSide, line, 12.0);
    Measure(engine);
    Measure(continuous);
    EXPECT_NEAR(engine.x / continuous.x, gain, 5e-5) << line;
  }
  // As much light on either side: what is left is the zero point.
  At(3, 12) = 300;
  double farthest = 0.0;
  for (int k = 0; k <= 100; ++k) {
    roi_ = Roi(0, kSide, 0, kSide, kSide, kSide, 12.0 + 0.01 * k, 12.0);
    Measure(engine);
    farthest = std::max(farthest, std::abs(engine.x));
  }
  EXPECT_NEAR(farthest, 0.0041, 5e-5);
}

TEST_F(SmallFrame, QuadCellSaturatesAsTheErrorFunctionDoes) {
  constexpr double kPixels = 0.01;  // with as much per pixel: the line through whole pixels takes up to 2.1 %
  for (const double x : {1.0, 2.0, 4.0}) {
    Draw(12.0 + x, 12.0, 32000.0);
    QuadCell engine({.gain = std::sqrt(std::numbers::pi / 2.0) * kSpotSigma});
    Measure(engine);
    EXPECT_NEAR(engine.x, 2.5066 * std::erf(x / (std::sqrt(2.0) * kSpotSigma)), kPixels + 0.01 * x);
  }
}

// --- Correlation

constexpr double kFullScaleRounding = 4e-5;  // five deviations of 0.29 units on a spot of 32000

TEST_F(SmallFrame, CorrelationIsExactForTheDrawnSpot) {
  Correlation engine;
  for (const double x : {-2.5, -2.2, -0.75, 0.0, 0.125, 0.5, 0.9, 2.49}) {
    Draw(12.0 + x, 12.3 - x, 32000.0);
    Measure(engine);
    EXPECT_NEAR(engine.x, x, kFullScaleRounding);
    EXPECT_NEAR(engine.y, 0.3 - x, kFullScaleRounding);
  }
}

TEST(GaussianTemplate, IsAGaussianRowByRow) {
  const std::vector<double> spot = GaussianTemplate(5, 3.0);
  ASSERT_EQ(spot.size(), 25U);
  auto value = spot.begin();
  for (int y = -2; y <= 2; ++y) {
    for (int x = -2; x <= 2; ++x) {
      EXPECT_NEAR(*value++, std::exp2(-4.0 * (x * x + y * y) / 9.0), 1e-15) << x << ", " << y;
    }
  }
}

TEST_F(SmallFrame, CorrelationLooksForTheDrawnSpotUnlessATemplateIsGiven) {
  Draw(12.3, 11.8, 32000.0);
  Correlation drawn;
  Correlation given({.template_values = GaussianTemplate(21, shssim::kSpotFwhm)});
  Measure(drawn);
  Measure(given);
  EXPECT_EQ(drawn.x, given.x);
  EXPECT_EQ(drawn.y, given.y);
}

TEST_F(SmallFrame, CorrelationFindsAGivenTemplate) {
  // An L whose middle pixel is its corner.
  const std::vector<double> shape = {0, 4, 0, 0, 9, 3, 0, 0, 0};
  for (std::size_t row = 0; row < 3; ++row) {
    for (std::size_t column = 0; column < 3; ++column) {
      At(15 + column, 6 + row) = static_cast<std::uint16_t>(100.0 * shape[column + 3 * row]);
    }
  }
  Correlation engine({.size = 3, .template_values = shape});
  Measure(engine);
  EXPECT_EQ(engine.flux, 1600.0);
  EXPECT_NEAR(engine.x, 16.0 - 12.0, 0.5);
  EXPECT_NEAR(engine.y, 7.0 - 12.0, 0.5);
  // Symmetric templates put the top in the middle.
  std::ranges::fill(frame_, std::uint16_t{0});
  At(16, 7) = 100;
  Correlation symmetric({.size = 3, .template_values = {1, 2, 1, 2, 4, 2, 1, 2, 1}});
  Measure(symmetric);
  EXPECT_EQ(symmetric.x, 4.0);
  EXPECT_EQ(symmetric.y, -5.0);
}

TEST_F(SmallFrame, CorrelationFollowsTheSpotTowardTheRegionsCorner) {
  Correlation engine;
  Draw(3.0, 21.0, 32000.0);
  Measure(engine);
  EXPECT_NEAR(engine.x, -9.0, 0.1);  // the edge cuts spot and template
  EXPECT_NEAR(engine.y, 9.0, 0.1);
}

TEST_F(SmallFrame, CorrelationStaysWithinAPixelOfTheRegion) {
  // From an edge inward, pixels of 100, 60 and 40. One pixel outside, at the edge, and one inside, the template
  // correlates with 920, 660 and 380: on a parabola with its top far outside.
  constexpr std::array<double, 5> kTemplate = {0, 0, 1, 8, 2};
  for (const bool along_x : {true, false}) {
    for (const bool at_start : {true, false}) {
      std::ranges::fill(frame_, std::uint16_t{0});
      for (const auto& [inward, light] : {std::pair(0U, 100), std::pair(1U, 60), std::pair(2U, 40)}) {
        const std::size_t place = at_start ? inward : kSide - 1 - inward;
        (along_x ? At(place, 12) : At(12, place)) = static_cast<std::uint16_t>(light);
      }
      std::vector<double> values(25, 0.0);
      for (std::size_t k = 0; k < 5; ++k) values[along_x ? 10 + k : 2 + 5 * k] = kTemplate.at(at_start ? k : 4 - k);
      Correlation engine({.size = 5, .template_values = values});
      Measure(engine);
      const double beyond = at_start ? -13.0 : 13.0;
      EXPECT_EQ(engine.x, along_x ? beyond : 0.0);
      EXPECT_EQ(engine.y, along_x ? 0.0 : beyond);
    }
  }
}

TEST_F(SmallFrame, CorrelationLeavesABrightSpeckForTheSpot) {
  // The climb leaves the brightest pixel where its neighbours correlate better, in whatever direction.
  Correlation engine;
  for (const auto& [column, row] : {std::pair(15, 12), std::pair(9, 12), std::pair(12, 15), std::pair(12, 9)}) {
    Draw(12.0, 12.0, 1000.0);
    At(static_cast<std::size_t>(column), static_cast<std::size_t>(row)) = 1200;
    Measure(engine);
    EXPECT_NEAR(engine.x, 0.0, 0.2) << column;
    EXPECT_NEAR(engine.y, 0.0, 0.2) << row;
  }
}

TEST_F(SmallFrame, CorrelationStaysOnWholePixelsBesideNothing) {
  At(10, 14) = 100;
  Correlation left({.size = 3, .template_values = {0, 0, 0, 1, 4, 0, 0, 0, 0}});
  Measure(left);
  EXPECT_EQ(left.x, -2.0);
  EXPECT_EQ(left.y, 2.0);
  Correlation right({.size = 3, .template_values = {0, 0, 0, 0, 4, 1, 0, 0, 0}});
  Measure(right);
  EXPECT_EQ(right.x, -2.0);
  EXPECT_EQ(right.y, 2.0);
}

TEST_F(SmallFrame, CorrelationDoesNotDependOnTheTemplatesScale) {
  Draw(12.3, 11.6, 1000.0);
  const std::vector<double> shape = {1, 2, 1, 2, 4, 2, 1, 2, 1};
  std::vector<double> tiny = shape;
  for (double& value : tiny) value *= 0x1p-40;
  Correlation engine({.size = 3, .template_values = shape});
  Correlation scaled({.size = 3, .template_values = tiny});
  Measure(engine);
  Measure(scaled);
  EXPECT_EQ(scaled.x, engine.x);
  EXPECT_EQ(scaled.y, engine.y);
}

TEST_F(SmallFrame, CorrelationClimbsToAllEightNeighbours) {
  // The template of one pixel correlates as the pixels are. From between two equal ones, dark itself, the way to either
  // is across a corner.
  const CorrelationConfig one_pixel = {.size = 3, .template_values = {0, 0, 0, 0, 1, 0, 0, 0, 0}};
  for (const auto& [column, row] : {std::pair(10U, 10U), std::pair(12U, 10U)}) {
    std::ranges::fill(frame_, std::uint16_t{0});
    At(column, row) = 100;
    At(22 - column, 12) = 100;
    Correlation engine(one_pixel);
    Measure(engine);
    EXPECT_EQ(engine.x, column - 12.0);
    EXPECT_EQ(engine.y, -2.0);  // the first of two equal neighbours, row by row
  }
}

TEST_F(SmallFrame, CorrelationStartsBetweenEquallyBrightPixelsRoundedDown) {
  const CorrelationConfig one_pixel = {.size = 3, .template_values = {0, 0, 0, 0, 1, 0, 0, 0, 0}};
  Correlation engine(one_pixel);
  At(10, 12) = 100;
  At(13, 12) = 100;  // 11.5 is between them, and 11 beside the first
  Measure(engine);
  EXPECT_EQ(engine.x, -2.0);
  EXPECT_EQ(engine.y, 0.0);
  std::ranges::fill(frame_, std::uint16_t{0});
  At(12, 10) = 100;
  At(12, 13) = 100;
  Measure(engine);
  EXPECT_EQ(engine.x, 0.0);
  EXPECT_EQ(engine.y, -2.0);
}

TEST_F(SmallFrame, CorrelationTakesTheFirstOfEqualNeighbours) {
  const CorrelationConfig one_pixel = {.size = 3, .template_values = {0, 0, 0, 0, 1, 0, 0, 0, 0}};
  Correlation engine(one_pixel);
  At(10, 12) = 100;
  At(12, 12) = 100;
  Measure(engine);
  EXPECT_EQ(engine.x, -2.0);
}

TEST_F(SmallFrame, CorrelationEndsWhereNoNeighbourIsBetterWithoutLight) {
  // Three pixels apart from both equal ones: dark all around, though the region is not.
  Correlation engine({.size = 3, .template_values = {0, 0, 0, 0, 1, 0, 0, 0, 0}});
  At(8, 12) = 100;
  At(14, 12) = 100;
  Measure(engine);
  EXPECT_EQ(engine.flux, 200.0);
  EXPECT_EQ(engine.x, 0.0);
  EXPECT_EQ(engine.y, 0.0);
  roi_.x_ref = std::nan("");
  Measure(engine);
  EXPECT_EQ(engine.x, 0.0);
}

TEST_F(SmallFrame, CorrelationGoesHalfAPixelFromTheTopAtTheMost) {
  // Of 1, 3, 3 and 1 the parabola's top is in the middle, the climb's end at the first 3.
  Correlation engine({.size = 3, .template_values = {0, 0, 0, 1, 2, 1, 0, 0, 0}});
  At(10, 12) = 100;
  At(11, 12) = 100;
  Measure(engine);
  EXPECT_EQ(engine.x, 10.5 - 12.0);
  EXPECT_EQ(engine.y, 0.0);
}

TEST_F(SmallFrame, CorrelationsSurfaceIsExactForInclinedSpots) {
  constexpr double kErrorOfParabolas = 0.1;
  constexpr double kEdge = 2e-3;  // the region cuts the wings of the longer axis
  double worst = 0.0;
  for (const double x : {11.6, 12.0, 12.45}) {
    for (const double y : {11.55, 12.2}) {
      for (std::size_t row = 0; row < kSide; ++row) {
        for (std::size_t column = 0; column < kSide; ++column) {
          const double u = static_cast<double>(column) - x;
          const double v = static_cast<double>(row) - y;
          const double along = (u + v) / 3.5;  // the axes of 3.5 and 1.5 pixels are at 45 degrees
          const double across = (u - v) / 1.5;
          At(column, row) =
              static_cast<std::uint16_t>(std::lround(30'000.0 * std::exp(-0.25 * (along * along + across * across))));
        }
      }
      Correlation of_surface({}, CorrelationTop::kOfSurface);
      Correlation of_parabolas({}, CorrelationTop::kOfParabolas);
      Measure(of_surface);
      Measure(of_parabolas);
      EXPECT_NEAR(of_surface.x, x - 12.0, kEdge);
      EXPECT_NEAR(of_surface.y, y - 12.0, kEdge);
      worst = std::max({worst, std::abs(of_parabolas.x - (x - 12.0)), std::abs(of_parabolas.y - (y - 12.0))});
    }
  }
  EXPECT_GT(worst, kErrorOfParabolas);
}

TEST_F(SmallFrame, CorrelationsSurfaceIsTheParabolasWhereThereIsNoneToFind) {
  // Dark corners, of a cross and below zero; a saddle; and a top more than a pixel away.
  const auto expect_parabolas = [&](const std::vector<double>& values) {
    Correlation of_surface({.size = 3, .template_values = values}, CorrelationTop::kOfSurface);
    Correlation of_parabolas({.size = 3, .template_values = values});
    Measure(of_surface);
    Measure(of_parabolas);
    EXPECT_EQ(of_surface.x, of_parabolas.x);
    EXPECT_EQ(of_surface.y, of_parabolas.y);
  };
  At(12, 12) = 100;
  expect_parabolas({0, 3, 0, 2, 4, 2, 0, 2, 0});
  expect_parabolas({-3, 8, 2, 8, 10, 9, 2, 9, -3});
  expect_parabolas({9, 8, 1, 8, 10, 8.8, 1, 8.8, 9});
  expect_parabolas({9.99, 3.87, 1.5, 3.87, 10, 9.51, 1.5, 9.51, 9.99});
}

// --- Gaussian fit

TEST_F(SmallFrame, FitIsExactForTheDrawnSpot) {
  GaussianFit engine;
  for (const double x : {-8.0, -2.5, -0.75, 0.0, 0.5, 0.9, 6.0, 11.0}) {
    Draw(12.0 + x, 12.0 - 0.9 * x, 32000.0);
    Measure(engine);
    const double cut = std::abs(x) > 5.0 ? 4.0 : 1.0;  // fewer pixels see a spot that the edge cuts
    EXPECT_NEAR(engine.x, x, cut * kFullScaleRounding);
    EXPECT_NEAR(engine.y, -0.9 * x, cut * kFullScaleRounding);
    EXPECT_NEAR(engine.flux, 8.0 * std::numbers::pi * 32000.0, cut * 10.0);
  }
}

TEST_F(SmallFrame, FitTakesOtherWidths) {
  for (const double sigma : {1.0, 3.0}) {
    Draw(13.3, 11.4, 32000.0, sigma);
    GaussianFit engine({.fwhm = sigma * kFwhmPerSigma, .steps = 6});
    Measure(engine);
    EXPECT_NEAR(engine.x, 1.3, kFullScaleRounding);
    EXPECT_NEAR(engine.y, -0.6, kFullScaleRounding);
  }
}

TEST_F(SmallFrame, FitConvergesInTheDefaultSteps) {
  Draw(12.5, 11.5, 32000.0);
  GaussianFit engine;
  GaussianFit longer({.steps = 30});
  Measure(engine);
  Measure(longer);
  EXPECT_NEAR(engine.x, longer.x, 1e-9);
  EXPECT_NEAR(engine.y, longer.y, 1e-9);
}

TEST_F(SmallFrame, FitsStepIsThatOfTheWholeLeastSquaresProblem) {
  // All pixels against the three functions, by QR decomposition; spots in the middle, at edges and in corners.
  constexpr double kRounding = 1e-9;
  std::mt19937 random(9);
  for (const auto& [x, y] : {std::pair(12.4, 11.3), std::pair(0.6, 12.2), std::pair(0.7, 0.6), std::pair(23.4, 0.3),
                             std::pair(1.2, 23.7), std::pair(23.8, 23.6)}) {
    Draw(x, y, 3000.0);
    for (std::uint16_t& pixel : frame_) pixel = static_cast<std::uint16_t>(pixel + random() % 60U);
    const auto brightest = std::ranges::max_element(frame_) - frame_.begin();
    const auto brightest_row = brightest / kSide;
    const auto start_x = static_cast<double>(brightest % kSide);
    const auto start_y = static_cast<double>(brightest_row);

    Eigen::MatrixXd functions(frame_.size(), 3);
    Eigen::VectorXd pixels(frame_.size());
    for (Eigen::Index k = 0; k < functions.rows(); ++k) {
      const Eigen::Index row = k / kSide;
      const double u = static_cast<double>(k % kSide) - start_x;
      const double v = static_cast<double>(row) - start_y;
      const double g = std::exp(shssim::kSpotExponent * (u * u + v * v));
      functions.row(k) << g, u * g, v * g;
      pixels(k) = frame_[static_cast<std::size_t>(k)];
    }
    const Eigen::Vector3d solution = functions.colPivHouseholderQr().solve(pixels);

    GaussianFit engine({.steps = 1});
    Measure(engine);
    EXPECT_NEAR(engine.flux, 8.0 * std::numbers::pi * solution(0), kRounding * engine.flux);
    EXPECT_NEAR(engine.x, std::clamp(start_x + 4.0 * solution(1) / solution(0), 0.0, 24.0) - 12.0, kRounding);
    EXPECT_NEAR(engine.y, std::clamp(start_y + 4.0 * solution(2) / solution(0), 0.0, 24.0) - 12.0, kRounding);
  }
}

TEST(GaussianFit, IsExactInRegionsOfManyTiles) {
  constexpr std::uint16_t kWide = 150;
  std::vector<std::uint16_t> frame(std::size_t{kWide} * kWide);
  GaussianFit engine;
  for (const auto& [x, y] : {std::pair(30.3, 148.6), std::pair(148.2, 64.4), std::pair(127.7, 0.5)}) {
    for (std::size_t row = 0; row < kWide; ++row) {
      for (std::size_t column = 0; column < kWide; ++column) {
        const double u = static_cast<double>(column) - x;
        const double v = static_cast<double>(row) - y;
        frame[column + kWide * row] =
            static_cast<std::uint16_t>(std::lround(32000.0 * std::exp(shssim::kSpotExponent * (u * u + v * v))));
      }
    }
    engine.Compute(frame, Roi(0, kWide, 0, kWide, kWide, kWide, 75.0, 75.0));
    EXPECT_NEAR(engine.x, x - 75.0, 4.0 * kFullScaleRounding);
    EXPECT_NEAR(engine.y, y - 75.0, 4.0 * kFullScaleRounding);
  }
}

TEST_F(SmallFrame, FitGoesNoFartherThanToThePixelsCentres) {
  GaussianFit engine({.steps = 50});
  for (const auto& [x, y] : {std::pair(26.0, 26.0), std::pair(-2.0, 26.0), std::pair(26.0, -2.0)}) {
    Draw(x, y, 30000.0);  // a spot whose centre is outside
    Measure(engine);
    EXPECT_EQ(engine.x, x < 0.0 ? -12.0 : 12.0);
    EXPECT_EQ(engine.y, y < 0.0 ? -12.0 : 12.0);
  }
}

TEST_F(SmallFrame, FitMovesByOneDeviationAStepAtTheMost) {
  Draw(12.0, 12.0, 3000.0);
  At(17, 12) = 3100;  // where it starts; the spot's slope there would take it farther than the spot
  for (const auto& [steps, expected] : {std::pair(1, 15.0), std::pair(2, 13.0)}) {
    GaussianFit engine({.steps = steps});
    Measure(engine);
    EXPECT_NEAR(engine.x, expected - 12.0, 1e-12) << steps;
  }
}

TEST_F(SmallFrame, FitStartsAtTheMeanOfEquallyBrightPixels) {
  // One step, from the middle between them; by symmetry it does not move along the columns.
  At(10, 12) = 1000;
  At(13, 12) = 1000;
  GaussianFit engine({.steps = 1});
  Measure(engine);
  EXPECT_NEAR(engine.x, 11.5 - 12.0, 1e-12);
  EXPECT_NEAR(engine.y, 0.0, 1e-12);
}

TEST_F(SmallFrame, FitOfOneColumnOrRowHasNoLight) {
  Draw(12.0, 12.0, 3000.0);
  for (const Roi& roi :
       {Roi(12, 13, 0, kSide, kSide, kSide, 12.0, 11.0), Roi(0, kSide, 12, 13, kSide, kSide, 11.0, 12.0),
        Roi(12, 13, 0, kSide, kSide, kSide, std::nan(""), 11.0)}) {
    roi_ = roi;
    GaussianFit engine;
    Measure(engine);
    EXPECT_EQ(engine.flux, 0.0);
    EXPECT_EQ(engine.x, 0.0);
    EXPECT_EQ(engine.y, 0.0);
  }
  roi_ = Roi(12, 14, 11, 13, kSide, kSide, 12.0, 12.0);
  GaussianFit engine;
  Measure(engine);
  EXPECT_NEAR(engine.x, 0.0, 1e-3);
}

TEST_F(SmallFrame, FitReportsTheLightOfTheStepThatFindsNone) {
  std::ranges::fill(frame_, static_cast<std::uint16_t>(-100));
  GaussianFit engine;
  Measure(engine);
  EXPECT_LT(engine.flux, -100.0);
  EXPECT_EQ(engine.x, 0.0);
  roi_.x_ref = roi_.y_ref = std::nan("");
  Measure(engine);
  EXPECT_EQ(engine.x, 0.0);
  EXPECT_EQ(engine.y, 0.0);
}

// --- Configurations

TEST(Configuration, IsCheckedFieldByField) {
  ExpectThrows<Invalid>("CentreOfGravity: background must be from -32768 to 32767, found 40000",
                        [] { CentreOfGravity engine({.background = 40000.0}); });
  ExpectThrows<Invalid>("CentreOfGravity: threshold must be from 0 to 65535, found -3",
                        [] { CentreOfGravity engine({.threshold = -3.0}); });
  ExpectThrows<Invalid>("CentreOfGravity: threshold must be from 0 to 65535, found nan",
                        [] { CentreOfGravity engine({.threshold = std::nan("")}); });
  ExpectThrows<Invalid>("WindowedCentreOfGravity: half_width must be from 0.5 to 1000, found 0.25",
                        [] { WindowedCentreOfGravity engine({.half_width = 0.25}); });
  ExpectThrows<Invalid>("WeightedCentreOfGravity: fwhm must be from 1 to 100, found 0.5",
                        [] { WeightedCentreOfGravity engine({.fwhm = 0.5}); });
  ExpectThrows<Invalid>("WeightedCentreOfGravity: gain must be above 0 and at most 100, found 0",
                        [] { WeightedCentreOfGravity engine({.gain = 0.0}); });
  ExpectThrows<Invalid>("BrightestPixels: exactly one of number and fraction must be given, found none",
                        [] { BrightestPixels engine({}); });
  ExpectThrows<Invalid>("BrightestPixels: exactly one of number and fraction must be given, found both",
                        [] { BrightestPixels engine({.number = 9, .fraction = 0.5}); });
  ExpectThrows<Invalid>("BrightestPixels: number must be from 2 to 1000000, found 1",
                        [] { BrightestPixels engine({.number = 1}); });
  ExpectThrows<Invalid>("BrightestPixels: fraction must be above 0 and at most 1, found 1.5",
                        [] { BrightestPixels engine({.fraction = 1.5}); });
  ExpectThrows<Invalid>("QuadCell: gain must be above 0 and at most 1000, found -1",
                        [] { QuadCell engine({.gain = -1.0}); });
  ExpectThrows<Invalid>("Correlation: size must be from 3 to 63, found 1", [] { Correlation engine({.size = 1}); });
  ExpectThrows<Invalid>("Correlation: size must be odd, found 20", [] { Correlation engine({.size = 20}); });
  ExpectThrows<Invalid>("GaussianTemplate: size must be odd, found 20", [] { GaussianTemplate(20, 4.0); });
  ExpectThrows<Invalid>("GaussianTemplate: fwhm must be from 1 to 100, found 0.5", [] { GaussianTemplate(21, 0.5); });
  ExpectThrows<Invalid>("Correlation: template_values must be 9 numbers, found 4; size is its side", [] {
    Correlation engine({.size = 3, .template_values = {1, 2, 3, 4}});
  });
  ExpectThrows<Invalid>("Correlation: template_values[4] must be finite, found inf", [] {
    Correlation engine({.size = 3, .template_values = {1, 2, 3, 4, HUGE_VAL, 6, 7, 8, 9}});
  });
  ExpectThrows<Invalid>(
      "Correlation: template_values must be other than 0 somewhere, found 9 zeros; leave them out for the drawn spot",
      [] { Correlation engine({.size = 3, .template_values = std::vector<double>(9, 0.0)}); });
  ExpectThrows<Invalid>("GaussianFit: fwhm must be from 1 to 100, found 101",
                        [] { GaussianFit engine({.fwhm = 101.0}); });
  ExpectThrows<Invalid>("GaussianFit: steps must be from 1 to 100, found 0", [] { GaussianFit engine({.steps = 0}); });
}

TEST(Configuration, LimitsAreAllowed) {
  const CentreOfGravity least({.background = -32768.0, .threshold = 0.0});
  const CentreOfGravity most({.background = 32767.0, .threshold = 65535.0});
  const WindowedCentreOfGravity narrowest({.half_width = 0.5});
  const WindowedCentreOfGravity widest({.half_width = 1000.0});
  const WeightedCentreOfGravity sharp({.fwhm = 1.0});
  const WeightedCentreOfGravity dull({.fwhm = 100.0, .gain = 100.0});
  const BrightestPixels two({.number = 2});
  const BrightestPixels all({.fraction = 1.0});
  const QuadCell steep({.gain = 1000.0});
  const Correlation small({.size = 3});
  const Correlation large({.size = 63});
  const GaussianFit quick({.fwhm = 1.0, .steps = 1});
  const GaussianFit slow({.fwhm = 100.0, .steps = 100});
}

}  // namespace
}  // namespace quen::centroiders
