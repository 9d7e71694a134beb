#include "centroiders/light_engine.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "centroiders/test/engines.hpp"
#include "testing/allocations.hpp"
#include "testing/exceptions.hpp"
#include "testing/values.hpp"

// What the engines are given in place of counts.

namespace quen::centroiders {
namespace {

using quen::image_processing::Roi;
using quen::testing::ExpectThrows;
using quen::testing::kNan;

constexpr std::uint16_t kFrameSide = 40;

/// A spot with speckle, on a frame that has more.
std::vector<std::uint16_t> SpotAmongSpeckle() {
  std::vector<std::uint16_t> frame(std::size_t{kFrameSide} * kFrameSide);
  std::mt19937 random(6);
  for (std::size_t y = 0; y < kFrameSide; ++y) {
    for (std::size_t x = 0; x < kFrameSide; ++x) {
      const double u = static_cast<double>(x) - 18.3;
      const double v = static_cast<double>(y) - 21.6;
      frame[x + kFrameSide * y] = static_cast<std::uint16_t>(std::lround(3000.0 * std::exp(-0.125 * (u * u + v * v))) +
                                                             static_cast<long>(random() % 20U) - 10);
    }
  }
  return frame;
}

Roi AroundTheSpot() { return {7, 30, 10, 33, kFrameSide, kFrameSide, 18.25, 21.5}; }

/// What an engine is handed.
class Recorder : public Engine {
 public:
  void Compute(gsl::span<const std::uint16_t> frame, const Roi& roi) override {
    for (const std::uint16_t count : frame) pixels.push_back(static_cast<std::int16_t>(count));
    region = roi;
    flux = 100.0;
  }
  std::vector<int> pixels;
  Roi region = Roi(0, 0, 0, 0, 0, 0, 0, 0);
};

/// What an engine is handed of a frame that is one region, 3 columns wide.
std::vector<int> Handed(const LightConfig& config, const std::vector<std::uint16_t>& counts) {
  auto recorder = std::make_unique<Recorder>();
  const Recorder& handed = *recorder;
  LightEngine engine(config, std::move(recorder));
  const auto rows = static_cast<std::uint16_t>(counts.size() / 3);
  engine.Compute(counts, Roi(0, 3, 0, rows, 3, rows, 1, 1));
  return handed.pixels;
}

class EveryEngineOnLight : public ::testing::TestWithParam<EngineCase> {};
INSTANTIATE_TEST_SUITE_P(Engines, EveryEngineOnLight, ::testing::ValuesIn(EngineCases()),
                         [](const auto& engine) { return engine.param.name; });

TEST_P(EveryEngineOnLight, GivesTheSameWhereLightIsTheCounts) {
  const std::vector<std::uint16_t> frame = SpotAmongSpeckle();
  const auto plain = GetParam().make();
  LightEngine engine({}, GetParam().make());
  plain->Compute(frame, AroundTheSpot());
  const std::size_t allocations = testing::Allocations();
  engine.Compute(frame, AroundTheSpot());
  EXPECT_EQ(testing::Allocations(), allocations);
  EXPECT_EQ(engine.flux, plain->flux);
  EXPECT_EQ(engine.x, plain->x);
  EXPECT_EQ(engine.y, plain->y);
}

TEST_P(EveryEngineOnLight, SeesASpotOnAPedestal) {
  std::vector<std::uint16_t> frame = SpotAmongSpeckle();
  const auto plain = GetParam().make();
  plain->Compute(frame, AroundTheSpot());
  for (std::uint16_t& count : frame) count = static_cast<std::uint16_t>(count + 40'000);
  LightEngine engine({.reading = {.sign = PixelSign::kUnsigned, .pedestal = 40'000.0}}, GetParam().make());
  engine.Compute(frame, AroundTheSpot());
  EXPECT_EQ(engine.flux, plain->flux);
  EXPECT_EQ(engine.x, plain->x);
  EXPECT_EQ(engine.y, plain->y);
}

TEST(LightEngine, HandsOverTheRegionAsAFrameOfItsOwn) {
  auto recorder = std::make_unique<Recorder>();
  const Recorder& handed = *recorder;
  LightEngine engine({}, std::move(recorder));
  const std::vector<std::uint16_t> frame = SpotAmongSpeckle();
  engine.Compute(frame, AroundTheSpot());
  EXPECT_EQ(handed.pixels.size(), 23U * 23U);
  EXPECT_EQ(handed.pixels[2 + 23 * 5], static_cast<std::int16_t>(frame[9 + kFrameSide * 15U]));
  EXPECT_EQ(handed.region.x_low, 0);
  EXPECT_EQ(handed.region.x_up, 23);
  EXPECT_EQ(handed.region.y_up, 23);
  EXPECT_EQ(handed.region.x_max, 23);
  EXPECT_EQ(handed.region.y_max, 23);
  EXPECT_EQ(handed.region.x_ref, 11.25);
  EXPECT_EQ(handed.region.y_ref, 11.5);
  EXPECT_EQ(handed.region.n_pixels, 23U * 23U);
}

TEST(LightEngine, SubtractsTheBorder) {
  const std::vector<std::uint16_t> counts = {10, 11, 12, 13, 500, 14, 15, 16, 99};
  EXPECT_EQ(Handed({.background = BackgroundEstimate::kBorderMedian}, counts),
            (std::vector<int>{-3, -2, -1, 0, 487, 1, 2, 3, 86}));
  EXPECT_EQ(Handed({.background = BackgroundEstimate::kBorderMean}, counts),
            (std::vector<int>{-14, -13, -12, -11, 476, -10, -9, -8, 75}));  // 23.75
}

TEST(LightEngine, SubtractsAQuantile) {
  const std::vector<std::uint16_t> counts = {10, 11, 12, 13, 500, 14, 15, 16, 99};
  EXPECT_EQ(Handed({.background = BackgroundEstimate::kQuantile}, counts)[0], -2);
  EXPECT_EQ(Handed({.background = BackgroundEstimate::kQuantile, .quantile = 0.0}, counts)[0], 0);
  EXPECT_EQ(Handed({.background = BackgroundEstimate::kQuantile, .quantile = 1.0}, counts)[0], -490);
}

TEST(LightEngine, WhatDoesNotCountMakesNoBackground) {
  const std::vector<std::uint16_t> counts = {10, 11, 12, 13, 500, 14, 15, 16, 99};
  LightConfig config = {.background = BackgroundEstimate::kBorderMean};
  config.reading.ceiling = 99.0;
  config.reading.bad_pixels = {1, 0, 0, 0, 0, 0, 0, 0, 0};
  EXPECT_EQ(Handed(config, counts)[1], -2);  // 11 − 13.5, to the even number
  config.reading.bad_pixels.assign(9, 1);
  EXPECT_EQ(Handed(config, counts), std::vector<int>(9, 0));
}

TEST(LightEngine, WithoutAPixelThatCountsThereIsNoBackground) {
  for (const BackgroundEstimate estimate :
       {BackgroundEstimate::kBorderMean, BackgroundEstimate::kBorderMedian, BackgroundEstimate::kQuantile}) {
    const LightConfig config = {.reading = {.ceiling = 0.0}, .background = estimate};
    EXPECT_EQ(Handed(config, {10, 20, 30}), (std::vector<int>{10, 20, 30}));
  }
}

TEST(LightEngine, ReadsEachRegionAfresh) {
  LightEngine engine({.background = BackgroundEstimate::kBorderMedian}, std::make_unique<CentreOfGravity>());
  const Roi roi(0, 3, 0, 1, 3, 1, 0, 0);
  engine.Compute(std::vector<std::uint16_t>{1000, 2000, 1000}, roi);
  engine.Compute(std::vector<std::uint16_t>{1, 1, 5}, roi);
  EXPECT_EQ(engine.flux, 4.0);
  EXPECT_EQ(engine.x, 2.0);
}

TEST(LightEngine, BadPixelsAreMendedAndSaturatedOnesKept) {
  LightConfig config;
  config.reading.ceiling = 400.0;
  config.reading.bad_pixels = {1, 0, 0, 0, 0, 0, 0, 0, 0};
  EXPECT_EQ(Handed(config, {9999, 20, 12, 40, 450, 14, 15, 16, 99})[0], (20 + 40 + 450) / 3);
  EXPECT_EQ(Handed(config, {9999, 20, 12, 40, 450, 14, 15, 16, 99})[4], 450);
}

TEST(LightEngine, HalvesWhatDoesNotFitAndMakesUpForIt) {
  LightConfig config;
  config.reading.sign = PixelSign::kUnsigned;
  EXPECT_EQ(Handed(config, {32'767, 2, 4}), (std::vector<int>{32'767, 2, 4}));
  EXPECT_EQ(Handed(config, {32'768, 2, 4}), (std::vector<int>{16'384, 1, 2}));
  config.reading.pedestal = 65'535.0;
  EXPECT_EQ(Handed(config, {32'767, 65'535, 65'531}), (std::vector<int>{-32'768, 0, -4}));
  EXPECT_EQ(Handed(config, {32'766, 65'535, 65'531}), (std::vector<int>{-16'384, 0, -2}));
  LightEngine engine({.reading = {.sign = PixelSign::kUnsigned}}, std::make_unique<CentreOfGravity>());
  engine.Compute(std::vector<std::uint16_t>{60'000, 0, 20'000}, Roi(0, 3, 0, 1, 3, 1, 0, 0));
  EXPECT_EQ(engine.flux, 80'000.0);
  EXPECT_EQ(engine.x, 0.5);
}

TEST(LightEngine, ItsConfigurationIsChecked) {
  const auto make = [](const LightConfig& config) { LightEngine engine(config, std::make_unique<CentreOfGravity>()); };
  ExpectThrows<std::invalid_argument>("LightEngine: quantile must be from 0 to 1, found 2",
                                      [&] { make({.quantile = 2.0}); });
  ExpectThrows<std::invalid_argument>("LightEngine: pedestal must be from -65535 to 65535, found nan",
                                      [&] { make({.reading = {.pedestal = kNan}}); });
}

TEST(LightEngineDeathTest, NeedsAnEngine) { EXPECT_DEATH(LightEngine({}, nullptr), ""); }

}  // namespace
}  // namespace quen::centroiders
