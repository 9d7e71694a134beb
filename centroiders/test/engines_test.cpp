#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "centroiders/test/engines.hpp"
#include "shssim/spot.hpp"
#include "testing/allocations.hpp"

// What all engines have in common.

namespace quen::centroiders {
namespace {

using quen::image_processing::Roi;

constexpr std::size_t kWidth = 90;
constexpr std::size_t kHeight = 70;
constexpr std::uint16_t kSide = 23;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

struct Result {
  double flux;
  double x;
  double y;

  bool operator==(const Result&) const = default;
};

/// A region's pixels, row by row, and its reference point from the first of them.
struct Cutout {
  std::vector<std::int16_t> pixels = std::vector<std::int16_t>(std::size_t{kSide} * kSide, 0);
  double x_ref = 11.25;
  double y_ref = 10.625;

  std::int16_t& At(std::size_t x, std::size_t y) { return pixels[x + kSide * y]; }
};

/// A spot with noise, whose pixels are all different from their neighbours.
Cutout Spot(double dx, double dy, double noise = 12.0, double height = 3000.0) {
  Cutout cutout;
  std::mt19937 random(5);
  std::uniform_real_distribution<double> uniform(-noise, noise);
  for (std::size_t y = 0; y < kSide; ++y) {
    for (std::size_t x = 0; x < kSide; ++x) {
      const double u = static_cast<double>(x) - cutout.x_ref - dx;
      const double v = static_cast<double>(y) - cutout.y_ref - dy;
      cutout.At(x, y) = static_cast<std::int16_t>(std::lround(
          height * std::exp(shssim::kSpotExponent * (u * u + v * v)) + (noise > 0.0 ? uniform(random) : 0.0)));
    }
  }
  return cutout;
}

/// Measures a cutout at a place in a frame whose other pixels are bright.
Result Measure(Engine& engine, Cutout cutout, std::size_t x_low, std::size_t y_low) {
  std::vector<std::uint16_t> frame(kWidth * kHeight, 31000);
  for (std::size_t y = 0; y < kSide; ++y) {
    for (std::size_t x = 0; x < kSide; ++x) {
      frame[x_low + x + kWidth * (y_low + y)] = static_cast<std::uint16_t>(cutout.At(x, y));
    }
  }
  const Roi roi(static_cast<std::uint16_t>(x_low), static_cast<std::uint16_t>(x_low + kSide),
                static_cast<std::uint16_t>(y_low), static_cast<std::uint16_t>(y_low + kSide), kWidth, kHeight,
                static_cast<double>(x_low) + cutout.x_ref, static_cast<double>(y_low) + cutout.y_ref);
  const std::vector<std::uint16_t> before = frame;
  const std::size_t allocations = testing::Allocations();
  engine.Compute(frame, roi);
  EXPECT_EQ(testing::Allocations(), allocations) << "Compute allocates";
  EXPECT_EQ(frame, before) << "Compute changes the frame";
  return {engine.flux, engine.x, engine.y};
}

class EveryEngine : public ::testing::TestWithParam<EngineCase> {
 protected:
  static void ExpectFailure(const Result& result) {
    EXPECT_EQ(result.flux, 0.0);
    EXPECT_TRUE(std::isnan(result.x)) << result.x;
    EXPECT_TRUE(std::isnan(result.y)) << result.y;
  }

  bool tells_of_failures_ = GetParam().without_light == WithoutLight::kFailure;
  std::unique_ptr<Engine> engine_ = GetParam().make();
};

INSTANTIATE_TEST_SUITE_P(Engines, EveryEngine, ::testing::ValuesIn(EngineCases()),
                         [](const auto& engine) { return engine.param.name; });

TEST_P(EveryEngine, FollowsTheSpotAlongTheRightAxisAndSign) {
  constexpr double kRough = 0.15;  // the saturation of the quad cell, the cut of the window on the reference
  const Result right = Measure(*engine_, Spot(0.8, 0.0), 30, 20);
  EXPECT_NEAR(right.x, 0.8, kRough);
  EXPECT_NEAR(right.y, 0.0, 0.05);
  const Result up = Measure(*engine_, Spot(0.0, -0.8), 30, 20);
  EXPECT_NEAR(up.x, 0.0, 0.05);
  EXPECT_NEAR(up.y, -0.8, kRough);
  EXPECT_GT(right.flux, 0.0);
}

TEST_P(EveryEngine, OnlyTheRegionsPixelsCountWhereverItLies) {
  const Cutout cutout = Spot(0.6, -0.4);
  const Result here = Measure(*engine_, cutout, 30, 20);
  EXPECT_EQ(Measure(*engine_, cutout, 0, 0), here);
  EXPECT_EQ(Measure(*engine_, cutout, kWidth - kSide, kHeight - kSide), here);
  EXPECT_EQ(Measure(*engine_, cutout, 31, 33), here);
}

TEST_P(EveryEngine, ResultsDependOnNoEarlierCall) {
  const Cutout cutout = Spot(0.6, -0.4);
  const Result fresh = Measure(*engine_, cutout, 30, 20);
  Measure(*engine_, Spot(-1.0, 1.0, 200.0, 20000.0), 30, 20);
  EXPECT_EQ(Measure(*engine_, cutout, 30, 20), fresh);
}

TEST_P(EveryEngine, MirroredPixelsGiveMirroredResults) {
  constexpr double kRounding = 1e-10;
  Cutout cutout = Spot(0.7, -0.3);
  Cutout mirrored = cutout;
  for (std::size_t y = 0; y < kSide; ++y) {
    for (std::size_t x = 0; x < kSide; ++x) mirrored.At(kSide - 1 - x, y) = cutout.At(x, y);
  }
  mirrored.x_ref = kSide - 1 - cutout.x_ref;
  const Result straight = Measure(*engine_, cutout, 30, 20);
  const Result result = Measure(*engine_, mirrored, 30, 20);
  EXPECT_NEAR(result.x, -straight.x, kRounding);
  EXPECT_NEAR(result.y, straight.y, kRounding);
  EXPECT_NEAR(result.flux, straight.flux, kRounding * straight.flux);
}

TEST_P(EveryEngine, ExchangedAxesGiveExchangedResults) {
  const double rounding = GetParam().rounding;
  Cutout cutout = Spot(0.7, -0.3);
  Cutout exchanged = cutout;
  for (std::size_t y = 0; y < kSide; ++y) {
    for (std::size_t x = 0; x < kSide; ++x) exchanged.At(y, x) = cutout.At(x, y);
  }
  std::swap(exchanged.x_ref, exchanged.y_ref);
  const Result straight = Measure(*engine_, cutout, 30, 20);
  const Result result = Measure(*engine_, exchanged, 30, 20);
  EXPECT_NEAR(result.x, straight.y, rounding);
  EXPECT_NEAR(result.y, straight.x, rounding);
  EXPECT_NEAR(result.flux, straight.flux, rounding * straight.flux);
}

std::vector<EngineCase> FreeOfTheReference() {
  std::vector<EngineCase> engines = EngineCases();
  std::erase_if(engines, [](const EngineCase& engine) { return engine.needs_reference; });
  return engines;
}

using EngineFreeOfTheReference = EveryEngine;
INSTANTIATE_TEST_SUITE_P(Engines, EngineFreeOfTheReference, ::testing::ValuesIn(FreeOfTheReference()),
                         [](const auto& engine) { return engine.param.name; });

TEST_P(EngineFreeOfTheReference, IsShiftedByItAndNoMore) {
  Cutout cutout = Spot(0.7, -0.3);
  const Result here = Measure(*engine_, cutout, 30, 20);
  cutout.x_ref -= 2.5;
  cutout.y_ref += 1.25;
  const Result there = Measure(*engine_, cutout, 30, 20);
  EXPECT_EQ(there.flux, here.flux);
  EXPECT_NEAR(there.x, here.x + 2.5, 1e-12);
  EXPECT_NEAR(there.y, here.y - 1.25, 1e-12);
}

TEST_P(EveryEngine, NoLightIsNoDisplacement) {
  Cutout dark;
  std::ranges::fill(dark.pixels, std::int16_t{-7});
  if (tells_of_failures_) {
    ExpectFailure(Measure(*engine_, Cutout(), 30, 20));
    ExpectFailure(Measure(*engine_, dark, 30, 20));
    return;
  }
  EXPECT_EQ(Measure(*engine_, Cutout(), 30, 20), (Result{0.0, 0.0, 0.0}));
  const Result result = Measure(*engine_, dark, 30, 20);
  EXPECT_LE(result.flux, 0.0);
  EXPECT_EQ(result.x, 0.0);
  EXPECT_EQ(result.y, 0.0);
}

TEST_P(EveryEngine, DarkPixelsAreNegative) {
  // Where they were read as unsigned, the wrapped pixels would be the brightest.
  Cutout cutout = Spot(0.5, 0.25, 0.0);
  const Result clean = Measure(*engine_, cutout, 30, 20);
  for (std::size_t x = 0; x < kSide; ++x) cutout.At(x, 0) = -1;
  const Result result = Measure(*engine_, cutout, 30, 20);
  EXPECT_NEAR(result.x, clean.x, 0.01);
  EXPECT_NEAR(result.y, clean.y, 0.01);
  EXPECT_NEAR(result.flux, clean.flux, 25.0);
}

TEST_P(EveryEngine, EmptyRegionsHaveNeitherLightNorDisplacement) {
  const std::vector<std::uint16_t> frame(kWidth * kHeight, 100);
  for (const Roi& roi :
       {Roi(5, 5, 5, 9, kWidth, kHeight, 6, 6), Roi(5, 9, 7, 7, kWidth, kHeight, 6, 6),
        Roi(kWidth, kWidth, kHeight, kHeight, kWidth, kHeight, 6, 6),
        Roi(kWidth, kWidth, 0, kHeight, kWidth, kHeight, 6, 6), Roi(5, 5, 5, 9, kWidth, kHeight, kNaN, kNaN)}) {
    engine_->flux = engine_->x = engine_->y = 99.0;
    engine_->Compute(frame, roi);
    EXPECT_EQ((Result{engine_->flux, engine_->x, engine_->y}), (Result{0.0, 0.0, 0.0}));
  }
}

TEST_P(EveryEngine, AnUnknownReferenceGivesAnUnknownDisplacement) {
  Cutout cutout = Spot(0.5, 0.25);
  const Result known = Measure(*engine_, cutout, 30, 20);
  cutout.x_ref = kNaN;
  const Result result = Measure(*engine_, cutout, 30, 20);
  EXPECT_TRUE(std::isnan(result.x));
  if (GetParam().needs_reference) {
    EXPECT_TRUE(std::isnan(result.y));
    EXPECT_EQ(result.flux, 0.0);
  } else {
    EXPECT_EQ(result.y, known.y);
    EXPECT_EQ(result.flux, known.flux);
  }
  cutout.y_ref = kNaN;
  EXPECT_TRUE(std::isnan(Measure(*engine_, cutout, 30, 20).y));
}

TEST_P(EveryEngine, AnUnknownReferenceWithoutLightIsTold) {
  // As the table in centroiders/pixel_engine.hpp says.
  Cutout dark;
  dark.x_ref = kNaN;
  const Result result = Measure(*engine_, dark, 30, 20);
  EXPECT_EQ(result.flux, 0.0);
  const WithoutLight expected = GetParam().without_light;
  EXPECT_TRUE(expected == WithoutLight::kZero ? result.x == 0.0 : std::isnan(result.x)) << result.x;
  const bool both = expected == WithoutLight::kBothNaN || expected == WithoutLight::kFailure;
  EXPECT_TRUE(both ? std::isnan(result.y) : result.y == 0.0) << result.y;
}

TEST_P(EveryEngine, RegionsOfAnySizeGiveNumbers) {
  std::vector<std::uint16_t> frame(kWidth * kHeight, 3);
  std::mt19937 random(7);
  for (std::uint16_t& pixel : frame) pixel = static_cast<std::uint16_t>(random() % 4096U);
  for (const int width : {1, 2, 3, 7, 8, 9, 15, 16, 17, 31, 64, 65, 90}) {
    for (const int height : {1, 2, 3, 8, 33, 64, 65, 70}) {
      const Roi roi(0, static_cast<std::uint16_t>(width), 0, static_cast<std::uint16_t>(height), kWidth, kHeight,
                    0.5 * width, 0.5 * height);
      engine_->Compute(frame, roi);
      if (tells_of_failures_ && std::isnan(engine_->x)) {
        ExpectFailure({engine_->flux, engine_->x, engine_->y});
        continue;
      }
      EXPECT_TRUE(std::isfinite(engine_->flux)) << width << " x " << height;
      EXPECT_TRUE(std::isfinite(engine_->x)) << width << " x " << height;
      EXPECT_TRUE(std::isfinite(engine_->y)) << width << " x " << height;
    }
  }
}

TEST_P(EveryEngine, TheBrightestPixelsThereAreDoNotOverflow) {
  std::vector<std::uint16_t> frame(kWidth * kHeight, 32767);
  engine_->Compute(frame, Roi(0, kWidth, 0, kHeight, kWidth, kHeight, 44.5, 34.5));
  EXPECT_TRUE(std::isfinite(engine_->flux));
  EXPECT_GE(engine_->flux, 0.0);
  std::ranges::fill(frame, std::uint16_t{0x8000});
  engine_->Compute(frame, Roi(0, kWidth, 0, kHeight, kWidth, kHeight, 44.5, 34.5));
  EXPECT_LE(engine_->flux, 0.0);
  EXPECT_TRUE(tells_of_failures_ ? std::isnan(engine_->x) : engine_->x == 0.0) << engine_->x;
}

using EveryEngineDeathTest = EveryEngine;
INSTANTIATE_TEST_SUITE_P(Engines, EveryEngineDeathTest, ::testing::ValuesIn(EngineCases()),
                         [](const auto& engine) { return engine.param.name; });

TEST_P(EveryEngineDeathTest, AFrameTooSmallForItsRegionEndsTheProcess) {
  const std::vector<std::uint16_t> frame(kWidth * kHeight - 1, 100);
  EXPECT_DEATH(engine_->Compute(frame, Roi(60, kWidth, 50, kHeight, kWidth, kHeight, 70, 60)), "");
}

}  // namespace
}  // namespace quen::centroiders
