#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <type_traits>
#include <vector>

#include "abi/test/offset.hpp"
#include "centroiders/brightest_pixels.hpp"
#include "centroiders/centre_of_gravity.hpp"
#include "centroiders/correlation.hpp"
#include "centroiders/gaussian_fit.hpp"
#include "centroiders/light_engine.hpp"
#include "centroiders/maximum_likelihood_fit.hpp"
#include "centroiders/quad_cell.hpp"
#include "centroiders/score.hpp"
#include "centroiders/weighted_centre_of_gravity.hpp"
#include "centroiders/windowed_centre_of_gravity.hpp"

// The binary interface of the engines and of the score: hosts fill in the configurations and make room for the engines.
// A change here needs a new SOVERSION.

namespace {

using namespace quen::centroiders;  // NOLINT(google-build-using-namespace): all of them
using quen::image_processing::Centroiding;
using quen::image_processing::Roi;
using quen::testing::Offset;
using Doubles = std::vector<double>;

TEST(EnginesBinaryInterface, BrightestPixelsConfigInOrder) {
  static_assert(std::is_same_v<decltype(BrightestPixelsConfig::number), std::optional<std::size_t>>);
  static_assert(std::is_same_v<decltype(BrightestPixelsConfig::fraction), std::optional<double>>);
  EXPECT_EQ(Offset(&BrightestPixelsConfig::number), 0U);
  EXPECT_EQ(Offset(&BrightestPixelsConfig::fraction), 16U);
  EXPECT_EQ(sizeof(BrightestPixelsConfig), 32U);
}

TEST(EnginesBinaryInterface, CentreOfGravityConfigInOrder) {
  static_assert(sizeof(Thresholding) == 4 && int(Thresholding::kSubtract) == 0 && int(Thresholding::kCut) == 1);
  static_assert(std::is_same_v<decltype(CentreOfGravityConfig::background), double>);
  static_assert(std::is_same_v<decltype(CentreOfGravityConfig::threshold), std::optional<double>>);
  static_assert(std::is_same_v<decltype(CentreOfGravityConfig::thresholding), Thresholding>);
  EXPECT_EQ(Offset(&CentreOfGravityConfig::background), 0U);
  EXPECT_EQ(Offset(&CentreOfGravityConfig::threshold), 8U);
  EXPECT_EQ(Offset(&CentreOfGravityConfig::thresholding), 24U);
  EXPECT_EQ(sizeof(CentreOfGravityConfig), 32U);
}

TEST(EnginesBinaryInterface, CorrelationConfigInOrder) {
  static_assert(std::is_same_v<decltype(CorrelationConfig::size), std::size_t>);
  static_assert(std::is_same_v<decltype(CorrelationConfig::template_values), Doubles>);
  EXPECT_EQ(Offset(&CorrelationConfig::size), 0U);
  EXPECT_EQ(Offset(&CorrelationConfig::template_values), 8U);
  EXPECT_EQ(sizeof(CorrelationConfig), 8U + sizeof(Doubles));
}

TEST(EnginesBinaryInterface, GaussianFitConfigInOrder) {
  static_assert(std::is_same_v<decltype(GaussianFitConfig::fwhm), double>);
  static_assert(std::is_same_v<decltype(GaussianFitConfig::steps), int>);
  EXPECT_EQ(Offset(&GaussianFitConfig::fwhm), 0U);
  EXPECT_EQ(Offset(&GaussianFitConfig::steps), 8U);
  EXPECT_EQ(sizeof(GaussianFitConfig), 16U);
}

TEST(EnginesBinaryInterface, PixelReadingInOrder) {
  static_assert(sizeof(PixelSign) == 4 && int(PixelSign::kSigned) == 0 && int(PixelSign::kUnsigned) == 1);
  static_assert(std::is_same_v<decltype(PixelReading::ceiling), std::optional<double>>);
  static_assert(std::is_same_v<decltype(PixelReading::dark_map), Doubles>);
  static_assert(std::is_same_v<decltype(PixelReading::flat_map), Doubles>);
  static_assert(std::is_same_v<decltype(PixelReading::bad_pixels), std::vector<std::uint8_t>>);
  EXPECT_EQ(Offset(&PixelReading::sign), 0U);
  EXPECT_EQ(Offset(&PixelReading::pedestal), 8U);
  EXPECT_EQ(Offset(&PixelReading::ceiling), 16U);
  EXPECT_EQ(Offset(&PixelReading::dark_map), 32U);
  EXPECT_EQ(Offset(&PixelReading::flat_map), 32U + sizeof(Doubles));
  EXPECT_EQ(Offset(&PixelReading::bad_pixels), 32U + 2 * sizeof(Doubles));
  EXPECT_EQ(sizeof(PixelReading), 32U + 3 * sizeof(Doubles));
}

TEST(EnginesBinaryInterface, LightConfigInOrder) {
  static_assert(sizeof(BackgroundEstimate) == 4 && int(BackgroundEstimate::kNone) == 0 &&
                int(BackgroundEstimate::kBorderMean) == 1 && int(BackgroundEstimate::kBorderMedian) == 2 &&
                int(BackgroundEstimate::kQuantile) == 3);
  EXPECT_EQ(Offset(&LightConfig::reading), 0U);
  EXPECT_EQ(Offset(&LightConfig::background), sizeof(PixelReading));
  EXPECT_EQ(Offset(&LightConfig::quantile), sizeof(PixelReading) + 8U);
  EXPECT_EQ(sizeof(LightConfig), sizeof(PixelReading) + 16U);
}

TEST(EnginesBinaryInterface, MaximumLikelihoodConfigInOrder) {
  static_assert(sizeof(SpotShape) == 4 && int(SpotShape::kGiven) == 0 && int(SpotShape::kRound) == 1 &&
                int(SpotShape::kOval) == 2);
  static_assert(sizeof(SpotBackground) == 4 && int(SpotBackground::kGiven) == 0 &&
                int(SpotBackground::kConstant) == 1 && int(SpotBackground::kSlope) == 2);
  constexpr std::size_t kRest = sizeof(PixelReading);
  EXPECT_EQ(Offset(&MaximumLikelihoodConfig::reading), 0U);
  EXPECT_EQ(Offset(&MaximumLikelihoodConfig::gain), kRest);
  EXPECT_EQ(Offset(&MaximumLikelihoodConfig::read_noise), kRest + 8U);
  EXPECT_EQ(Offset(&MaximumLikelihoodConfig::shape), kRest + 16U);
  EXPECT_EQ(Offset(&MaximumLikelihoodConfig::fwhm), kRest + 24U);
  EXPECT_EQ(Offset(&MaximumLikelihoodConfig::background_model), kRest + 32U);
  EXPECT_EQ(Offset(&MaximumLikelihoodConfig::background), kRest + 40U);
  EXPECT_EQ(Offset(&MaximumLikelihoodConfig::steps), kRest + 48U);
  EXPECT_EQ(Offset(&MaximumLikelihoodConfig::tolerance), kRest + 56U);
  EXPECT_EQ(Offset(&MaximumLikelihoodConfig::significance), kRest + 64U);
  EXPECT_EQ(sizeof(MaximumLikelihoodConfig), kRest + 72U);
}

TEST(EnginesBinaryInterface, QuadCellConfigInOrder) {
  static_assert(std::is_same_v<decltype(QuadCellConfig::gain), std::optional<double>>);
  EXPECT_EQ(Offset(&QuadCellConfig::gain), 0U);
  EXPECT_EQ(sizeof(QuadCellConfig), 16U);
}

TEST(EnginesBinaryInterface, WeightedCentreOfGravityConfigInOrder) {
  static_assert(std::is_same_v<decltype(WeightedCentreOfGravityConfig::fwhm), double>);
  static_assert(std::is_same_v<decltype(WeightedCentreOfGravityConfig::gain), std::optional<double>>);
  EXPECT_EQ(Offset(&WeightedCentreOfGravityConfig::fwhm), 0U);
  EXPECT_EQ(Offset(&WeightedCentreOfGravityConfig::gain), 8U);
  EXPECT_EQ(sizeof(WeightedCentreOfGravityConfig), 24U);
}

TEST(EnginesBinaryInterface, WindowedCentreOfGravityConfigInOrder) {
  static_assert(sizeof(WindowCentre) == 4 && int(WindowCentre::kReference) == 0 &&
                int(WindowCentre::kBrightestPixel) == 1);
  static_assert(std::is_same_v<decltype(WindowedCentreOfGravityConfig::around), WindowCentre>);
  static_assert(std::is_same_v<decltype(WindowedCentreOfGravityConfig::half_width), double>);
  EXPECT_EQ(Offset(&WindowedCentreOfGravityConfig::around), 0U);
  EXPECT_EQ(Offset(&WindowedCentreOfGravityConfig::half_width), 8U);
  EXPECT_EQ(sizeof(WindowedCentreOfGravityConfig), 16U);
}

TEST(EnginesBinaryInterface, EnginesTakeTheRoomThatHostsMake) {
  EXPECT_EQ(sizeof(PixelEngine), sizeof(Centroiding<std::uint16_t>));
  EXPECT_EQ(sizeof(BrightestPixels), 72U);
  EXPECT_EQ(sizeof(CentreOfGravity), 48U);
  EXPECT_EQ(sizeof(Correlation), 64U);
  EXPECT_EQ(sizeof(GaussianFit), 56U);
  EXPECT_EQ(sizeof(LightEngine), 48U);
  EXPECT_EQ(sizeof(MaximumLikelihoodFit), 40U);
  EXPECT_EQ(sizeof(QuadCell), 32U + sizeof(double) * 2 * 129);
  EXPECT_EQ(sizeof(WeightedCentreOfGravity), 56U);
  EXPECT_EQ(sizeof(WindowedCentreOfGravity), 48U);
}

TEST(EnginesBinaryInterface, ComputeIsBehindTheDestructors) {
  CentreOfGravity engine;
  Centroiding<std::uint16_t>* const base = &engine;
  void** table = nullptr;
  std::memcpy(&table, static_cast<const void*>(base), sizeof(table));
  using ComputeFunction = void (*)(Centroiding<std::uint16_t>*, gsl::span<const std::uint16_t>, const Roi&);
  const std::vector<std::uint16_t> pixels = {0, 0, 7, 0};
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): looks at the memory itself.
  reinterpret_cast<ComputeFunction>(table[2])(base, pixels, Roi(0, 4, 0, 1, 4, 1, 1.5, 0));
  EXPECT_EQ(engine.flux, 7.0);
  EXPECT_EQ(engine.x, 0.5);
}

TEST(EnginesBinaryInterface, ScoreOptionsInOrder) {
  EXPECT_EQ(Offset(&ScoreOptions::noise), 0U);
  EXPECT_EQ(Offset(&ScoreOptions::range), 8U);
  EXPECT_EQ(Offset(&ScoreOptions::frames), 16U);
  EXPECT_EQ(Offset(&ScoreOptions::seed), 24U);
  EXPECT_EQ(Offset(&ScoreOptions::after_frame), 32U);
  EXPECT_EQ(sizeof(ScoreOptions), 32U + sizeof(std::function<void()>));
}

TEST(EnginesBinaryInterface, ScoresInOrder) {
  EXPECT_EQ(Offset(&AxisScore::bias), 0U);
  EXPECT_EQ(Offset(&AxisScore::rms), 8U);
  EXPECT_EQ(Offset(&AxisScore::gain), 16U);
  EXPECT_EQ(Offset(&AxisScore::offset), 24U);
  EXPECT_EQ(sizeof(AxisScore), 32U);
  EXPECT_EQ(Offset(&Score::x), 0U);
  EXPECT_EQ(Offset(&Score::y), 32U);
  EXPECT_EQ(Offset(&Score::worst), 64U);
  EXPECT_EQ(Offset(&Score::flux_bias), 72U);
  EXPECT_EQ(Offset(&Score::flux_rms), 80U);
  EXPECT_EQ(Offset(&Score::failed), 88U);
  EXPECT_EQ(Offset(&Score::microseconds), 96U);
  EXPECT_EQ(sizeof(Score), 104U);
}

}  // namespace
