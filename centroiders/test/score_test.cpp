#include "centroiders/score.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>

#include "centroiders/test/engines.hpp"
#include "common/random/random.hpp"
#include "testing/calibration.hpp"
#include "testing/exceptions.hpp"

// The scores themselves, with engines whose errors are known; then the engines' errors, against what follows from their
// formulas. Regions are 24 × 24 pixels with the reference in their middle, between four pixels.
//
// Four frames have 2428 spots. An RMS then scatters by 1/√(2 · 2428) = 1.4 %; kScatter leaves room for more than three
// times that. Seeds are fixed: the tests either always pass or always fail.

namespace quen::centroiders {
namespace {

using quen::shssim::kSpotPeak;
using quen::shssim::ShsSimulator;
using quen::testing::ExpectThrows;

constexpr double kScatter = 0.05;
constexpr std::size_t kFrames = 4;
constexpr double kSpots = 607.0 * kFrames;

class Scores : public ::testing::Test {
 protected:
  Score Of(Engine& engine, const ScoreOptions& options) { return ScoreEngines(simulator_, {engine}, options).front(); }
  Score Of(Engine& engine, double noise, double range) {
    return Of(engine, {.noise = noise, .range = range, .frames = kFrames, .seed = 3});
  }

  testing::CalibrationFolder calibration_;
  ShsSimulator simulator_;
};

// --- The scores

/// What the fit measures, on a straight line of its own; NaN or far off for a number of spots each frame.
class Distorted : public Engine {
 public:
  void Compute(gsl::span<const std::uint16_t> frame, const image_processing::Roi& roi) override {
    fit_.Compute(frame, roi);
    flux = light * kSpotFlux;
    x = gain * fit_.x + offset;
    y = fit_.y;
    if (count_ % 607 < lost) x = std::nan("");
    if (count_ % 607 >= 607 - strayed) y += 1.5;
    ++count_;
  }

  double gain = 1.0;
  double offset = 0.0;
  double light = 1.0;
  std::size_t lost = 0;
  std::size_t strayed = 0;

 private:
  GaussianFit fit_;
  std::size_t count_ = 0;
};

TEST_F(Scores, TellGainOffsetBiasAndRms) {
  constexpr double kRounding = 1e-4;  // the fit's own error without noise
  Distorted engine;
  engine.gain = 1.05;
  engine.offset = 0.2;
  engine.light = 0.9;
  const Score score = Of(engine, 0.0, 2.0);
  EXPECT_NEAR(score.x.gain, 1.05, kRounding);
  EXPECT_NEAR(score.x.offset, 0.2, kRounding);
  // The mean displacement scatters by 2/√3/√2428 = 0.023, of which the gain's 5 % enter the bias.
  EXPECT_NEAR(score.x.bias, 0.2, 4.0 * 0.05 * 0.023);
  EXPECT_NEAR(score.x.rms, std::sqrt(0.2 * 0.2 + 0.05 * 0.05 * 4.0 / 3.0), 0.005);
  EXPECT_NEAR(score.y.gain, 1.0, kRounding);
  EXPECT_NEAR(score.y.bias, 0.0, kRounding);
  EXPECT_NEAR(score.worst, 0.2 + 0.05 * 2.0, 0.002);
  EXPECT_NEAR(score.flux_bias, -0.1, 1e-12);
  EXPECT_NEAR(score.flux_rms, 0.1, 1e-12);
  EXPECT_EQ(score.failed, 0.0);
  EXPECT_GT(score.microseconds, 1.0);
}

TEST_F(Scores, CountFailedSpotsAndLeaveThemOut) {
  Distorted engine;
  engine.lost = 10;
  engine.strayed = 5;
  const Score score = Of(engine, 0.0, 2.0);
  EXPECT_EQ(score.failed, 15.0 / 607.0);
  EXPECT_LT(score.worst, 1e-3);
  EXPECT_LT(score.y.rms, 1e-4);
}

TEST_F(Scores, OfNothingButFailuresAreUnknown) {
  Distorted engine;
  engine.lost = 607;
  const Score score = Of(engine, 0.0, 2.0);
  EXPECT_EQ(score.failed, 1.0);
  EXPECT_TRUE(std::isnan(score.x.rms));
  EXPECT_TRUE(std::isnan(score.worst));
  EXPECT_TRUE(std::isnan(score.flux_bias));
}

TEST_F(Scores, HaveNoLineThroughOnePoint) {
  GaussianFit engine;
  const Score score = Of(engine, 10.0, 0.0);
  EXPECT_TRUE(std::isnan(score.x.gain));
  EXPECT_TRUE(std::isnan(score.y.offset));
  EXPECT_GT(score.x.rms, 0.0);
}

TEST_F(Scores, AreTheSameForTheSameSeedAndEngineByEngine) {
  CentreOfGravity centre;
  GaussianFit fit;
  const ScoreOptions options = {.frames = 1, .seed = 8};
  const std::vector<Score> both = ScoreEngines(simulator_, {centre, fit}, options);
  ASSERT_EQ(both.size(), 2U);
  EXPECT_EQ(Of(fit, options).x.rms, both[1].x.rms);
  EXPECT_EQ(Of(centre, options).y.bias, both[0].y.bias);
  EXPECT_NE(Of(fit, {.frames = 1, .seed = 9}).x.rms, both[1].x.rms);
}

TEST_F(Scores, PutTheThreadsGeneratorBack) {
  std::mt19937& generator = common::random::detail::MersenneTwisterEngine();
  generator.seed(77);
  CentreOfGravity centre;
  Of(centre, 10.0, 1.0);
  EXPECT_EQ(generator, std::mt19937(77));
}

TEST_F(Scores, CheckTheirOptions) {
  CentreOfGravity engine;
  ExpectThrows<std::invalid_argument>("ScoreEngines: noise must be from 0 to 1000000000, found -1",
                                      [&] { Of(engine, {.noise = -1.0}); });
  ExpectThrows<std::invalid_argument>("ScoreEngines: range must be from 0 to 100, found nan",
                                      [&] { Of(engine, {.range = std::nan("")}); });
  ExpectThrows<std::invalid_argument>("ScoreEngines: frames must be from 1 to 1000000000, found 0",
                                      [&] { Of(engine, {.frames = 0}); });
}

TEST(ErrorBound, IsTheSumOverThePixels) {
  for (const double noise : {0.0, 1.0, 10.0, 300.0}) {
    for (const double centre : {0.0, 0.3, 0.5}) {
      double information = 0.0;
      for (int y = -20; y <= 20; ++y) {
        for (int x = -20; x <= 20; ++x) {
          const double u = x - centre;
          const double v = y - centre;
          const double derivative = u / 4.0 * kSpotPeak * std::exp(-(u * u + v * v) / 8.0);
          information += derivative * derivative;
        }
      }
      const double variance = noise * noise / 3.0 + 1.0 / 12.0;
      EXPECT_NEAR(ErrorBound(noise), std::sqrt(variance / information), 1e-12 * ErrorBound(noise));
    }
  }
}

TEST(ErrorBound, OfADetectorHasTheTextbooksForms) {
  constexpr double kPhotons = 1000.0;
  detector::DetectorConfig config;
  config.electrons_per_unit = kPhotons / kSpotFlux;
  config.gain = 1e6;  // no rounding
  EXPECT_NEAR(ErrorBound(config), 2.0 / std::sqrt(kPhotons), 1e-6);
  config.em_gain = 100.0;  // doubles the variance
  config.gain = 1e4;
  EXPECT_NEAR(ErrorBound(config), 2.0 * std::sqrt(2.0 / kPhotons), 1e-6);
  config.em_gain = 1.0;
  config.photon_noise = false;
  config.read_noise = 5.0;
  EXPECT_NEAR(ErrorBound(config), std::sqrt(8.0 * std::numbers::pi) * 4.0 * 5.0 / kPhotons, 1e-6);
  config.photon_noise = true;
  config.read_noise = 0.0;
  config.dark = 1e6;  // as much variance in every pixel
  EXPECT_NEAR(ErrorBound(config), std::sqrt(8.0 * std::numbers::pi) * 4.0 * 1000.0 / kPhotons, 1e-3);
  config.electrons_per_unit = 0.0;
  EXPECT_EQ(ErrorBound(config), std::numeric_limits<double>::infinity());
}

TEST(ErrorBound, OfADetectorHasThatOfUniformNoiseAsACase) {
  detector::DetectorConfig config;
  config.photon_noise = false;
  config.read_noise = 10.0 / std::sqrt(3.0);  // and rounding has the variance of truncation
  EXPECT_NEAR(ErrorBound(config), ErrorBound(10.0), 1e-12);
}

TEST_F(Scores, OfTheCentreOfGravityOnPhotonsReachTheBound) {
  detector::DetectorConfig config;
  config.electrons_per_unit = 2000.0 / kSpotFlux;
  CentreOfGravity engine;
  const Score score = ScoreEngines(simulator_, {engine}, {.range = 1.0, .frames = kFrames, .seed = 3}, config).front();
  EXPECT_NEAR(score.x.rms, 2.0 / std::sqrt(2000.0), kScatter * 2.0 / std::sqrt(2000.0));
  EXPECT_NEAR(score.y.rms, 2.0 / std::sqrt(2000.0), kScatter * 2.0 / std::sqrt(2000.0));
  EXPECT_NEAR(score.x.gain, 1.0, 0.01);
  EXPECT_NEAR(score.flux_bias, 0.0, 0.003);
  EXPECT_EQ(score.failed, 0.0);
}

TEST_F(Scores, OfTheCentreOfGravityOnReadNoiseCountWithTheSquareOfTheirDistance) {
  detector::DetectorConfig config;
  config.electrons_per_unit = 1e5 / kSpotFlux;
  config.photon_noise = false;
  config.read_noise = 20.0;
  config.offset = 200.0;
  config.gain = 0.5;
  CentreOfGravity engine({.background = 200.0});
  const Score score = ScoreEngines(simulator_, {engine}, {.range = 0.0, .frames = kFrames, .seed = 3}, config).front();
  double squares = 0.0;
  for (int x = 0; x < 24; ++x) squares += 24.0 * (x - 11.5) * (x - 11.5);
  const double expected = 20.0 * std::sqrt(squares) / 1e5;
  EXPECT_NEAR(score.x.rms, expected, kScatter * expected);
  EXPECT_NEAR(score.flux_bias, 0.0, 0.003);
}

TEST_F(Scores, OnADetectorDependOnTheSeedAndLeaveTheSimulatorsFrame) {
  detector::DetectorConfig config;
  config.electrons_per_unit = 0.01;
  CentreOfGravity engine;
  const auto rms = [&](std::uint32_t seed) {
    return ScoreEngines(simulator_, {engine}, {.frames = 1, .seed = seed}, config).front().x.rms;
  };
  const double first = rms(1);
  EXPECT_EQ(rms(1), first);
  EXPECT_NE(rms(2), first);
  EXPECT_EQ(simulator_.Frame()[0], 0);
}

TEST_F(Scores, SayWhatIsWrongWithADetector) {
  CentreOfGravity engine;
  ExpectThrows<std::invalid_argument>("Detector: read_noise must be from 0 to 1000000, found -1",
                                      [&] { ScoreEngines(simulator_, {engine}, {}, {.read_noise = -1.0}); });
  ExpectThrows<std::invalid_argument>("ScoreEngines: frames must be from 1 to 1000000000, found 0",
                                      [&] { ScoreEngines(simulator_, {engine}, {.frames = 0}, {.read_noise = -1.0}); });
}

// --- The engines' errors

/// Mean of f(d) for d uniform in [−range, range].
template <typename F>
double Mean(double range, F f) {
  constexpr int kSteps = 2000;
  double sum = 0.0;
  for (int k = 0; k < kSteps; ++k) sum += f(range * (2.0 * (k + 0.5) / kSteps - 1.0));
  return sum / kSteps;
}

double Square(double value) { return value * value; }

/// Variance of a pixel's noise where the spot is much brighter than the noise, …
double BrightVariance(double noise) { return noise * noise / 3.0 + 1.0 / 12.0; }

/// … and where there is no spot: whole noise truncated toward zero takes 0 with two of 2 · noise chances, ±k with one
/// each.
double DarkVariance(double noise) { return noise < 1.0 ? 0.0 : (noise - 1.0) * (2.0 * noise - 1.0) / 6.0; }

/// Squared radius within which the spot is brighter than a limit.
double SquaredRadius(double limit) { return 8.0 * std::log(kSpotPeak / limit); }

/// Expects no bias beyond five of its deviations.
void ExpectUnbiased(const Score& score) {
  EXPECT_NEAR(score.x.bias, 0.0, 5.0 * score.x.rms / std::sqrt(kSpots));
  EXPECT_NEAR(score.y.bias, 0.0, 5.0 * score.y.rms / std::sqrt(kSpots));
}

void ExpectRms(const Score& score, double expected, double scatter = kScatter) {
  EXPECT_NEAR(score.x.rms, expected, scatter * expected);
  EXPECT_NEAR(score.y.rms, expected, scatter * expected);
}

class Noises : public Scores, public ::testing::WithParamInterface<double> {};
INSTANTIATE_TEST_SUITE_P(Levels, Noises, ::testing::Values(2.0, 10.0, 100.0),
                         [](const auto& noise) { return "Noise" + std::to_string(std::lround(noise.param)); });

TEST_P(Noises, TheFitReachesTheBound) {
  GaussianFit engine;
  for (const double range : {0.5, 2.0, 4.0}) {
    const Score score = Of(engine, GetParam(), range);
    ExpectRms(score, ErrorBound(GetParam()));
    ExpectUnbiased(score);
    EXPECT_EQ(score.failed, 0.0);
  }
}

TEST_P(Noises, TheMatchedFilterReachesTheBoundToATwentieth) {
  Correlation engine;
  for (const double range : {0.5, 2.0, 4.0}) {
    const Score score = Of(engine, GetParam(), range);
    ExpectRms(score, 1.015 * ErrorBound(GetParam()));
    ExpectUnbiased(score);
    EXPECT_EQ(score.failed, 0.0);
  }
}

TEST_P(Noises, OfTheCentreOfGravityCountWithTheSquareOfTheirDistance) {
  // Σ (x − x̂)² over the region, 27600 + 576 d²; the spot's own pixels have the bright variance.
  CentreOfGravity engine;
  for (const double range : {0.0, 3.0}) {
    const double radius2 = SquaredRadius(GetParam());
    const double bright = std::numbers::pi * radius2 * radius2 / 4.0;
    const double all = 27600.0 + 576.0 * range * range / 3.0;
    const double variance = BrightVariance(GetParam()) * bright + DarkVariance(GetParam()) * (all - bright);
    const Score score = Of(engine, GetParam(), range);
    ExpectRms(score, std::sqrt(variance) / (kSpotFlux * (1.0 + score.flux_bias)));
    ExpectUnbiased(score);
  }
}

TEST_P(Noises, BelowAThresholdDoNotCount) {
  // What is left is the noise of the pixels above the threshold.
  CentreOfGravity engine({.threshold = GetParam()});
  const double radius2 = SquaredRadius(GetParam());
  const double bright = std::numbers::pi * radius2 * radius2 / 4.0;
  const Score score = Of(engine, GetParam(), 2.0);
  ExpectRms(score, std::sqrt(BrightVariance(GetParam()) * bright) / (kSpotFlux * (1.0 + score.flux_bias)), 0.1);
  ExpectUnbiased(score);
}

TEST_P(Noises, OfTheWeightedCentreOfGravityGrowWithTheDisplacement) {
  // The weight of the spot's own width is the matched one: the bound, where it covers the spot. Displaced by (d, e),
  // the weighted light falls by e^(−(d² + e²)/16), and Σ w² (x − d/2)² = 8π (1 + d²/8).
  WeightedCentreOfGravity engine;
  for (const double range : {0.0, 2.0}) {
    const double along = Mean(range, [](double d) { return (1.0 + d * d / 8.0) * std::exp(d * d / 8.0); });
    const double across = Mean(range, [](double e) { return std::exp(e * e / 8.0); });
    const Score score = Of(engine, GetParam(), range);
    // Truncation adds 0.0003 of the displacement: see below.
    ExpectRms(score, std::sqrt(Square(ErrorBound(GetParam())) * along * across + Square(0.0003 * range) / 3.0));
    ExpectUnbiased(score);
  }
}

TEST_P(Noises, OfTheQuadCellAreThoseOfAllPixels) {
  QuadCell engine;
  const double radius2 = SquaredRadius(GetParam());
  const double gain = std::sqrt(std::numbers::pi / 2.0) * kSpotSigma / (1.0 + 1.0 / 96.0);  // the line between pixels
  const double bright = std::numbers::pi * radius2;
  const double variance = BrightVariance(GetParam()) * bright + DarkVariance(GetParam()) * (576.0 - bright);
  const Score score = Of(engine, GetParam(), 0.0);
  ExpectRms(score, gain * std::sqrt(variance) / (kSpotFlux * (1.0 + score.flux_bias)));
  ExpectUnbiased(score);
}

TEST_P(Noises, OfTheWindowAreThoseOfItsPixels) {
  // Around the reference, 12 · 12 pixels, the sum of whose squared distances is 12 · 143. Its light is 0.9973² of the
  // spot's.
  WindowedCentreOfGravity engine({.around = WindowCentre::kReference, .half_width = 6.0});
  const double radius2 = SquaredRadius(GetParam());
  const double all = 12.0 * 143.0;
  const double bright = std::min(all, std::numbers::pi * radius2 * radius2 / 4.0);
  const double variance = BrightVariance(GetParam()) * bright + DarkVariance(GetParam()) * (all - bright);
  const Score score = Of(engine, GetParam(), 0.0);
  ExpectRms(score, std::sqrt(variance) / (kSpotFlux * (1.0 + score.flux_bias)), 0.1);
  ExpectUnbiased(score);
}

TEST_P(Noises, OfTheBrightestPixelsAreTheirs) {
  // 40 pixels within r² = 40/π have Σ (x − x̂)² = 40 r²/4; the light above the dimmest, 4096 e^(−r²/8), is measured.
  BrightestPixels engine({.number = 40});
  const double radius2 = 40.0 / std::numbers::pi;
  const double dimmest = kSpotPeak * std::exp(-radius2 / 8.0);
  const double light = 8.0 * std::numbers::pi * (kSpotPeak - dimmest) - 40.0 * dimmest;
  const Score score = Of(engine, GetParam(), 0.0);
  ExpectRms(score, std::sqrt(BrightVariance(GetParam()) * 40.0 * radius2 / 4.0) / light, 0.1);
  ExpectUnbiased(score);
  EXPECT_NEAR(score.flux_bias, light / kSpotFlux - 1.0, 0.02);
}

TEST_F(Scores, TheMatchedFilterAndTheFitAreWithinATenthOfTheBoundAtNoise10) {
  GaussianFit fit;
  Correlation correlation;
  for (Engine* const engine : {static_cast<Engine*>(&fit), static_cast<Engine*>(&correlation)}) {
    const Score score = Of(*engine, {.noise = 10.0, .range = 2.0, .frames = 10, .seed = 4});
    EXPECT_LT(score.x.rms, 1.1 * ErrorBound(10.0));
    EXPECT_LT(score.y.rms, 1.1 * ErrorBound(10.0));
  }
}

TEST_F(Scores, WithoutNoiseAreThoseOfTruncation) {
  // The bound is that of truncation then; a spot in 2428 may err by five deviations.
  GaussianFit fit;
  Correlation correlation;
  for (Engine* const engine : {static_cast<Engine*>(&fit), static_cast<Engine*>(&correlation)}) {
    const Score score = Of(*engine, 0.0, 2.0);
    ExpectRms(score, ErrorBound(0.0), 0.1);
    EXPECT_LT(score.worst, 5.0 * ErrorBound(0.0));
  }
  // Centre of gravity: the pixels brighter than 1 are off by a part of a unit, the others by all they had.
  CentreOfGravity centre;
  const double bright = std::numbers::pi * Square(SquaredRadius(1.0)) / 4.0;
  const Score score = Of(centre, 0.0, 2.0);
  ExpectRms(score, std::sqrt(bright / 12.0) / kSpotFlux, 0.15);
  EXPECT_LT(score.worst, 1e-3);
}

TEST_F(Scores, ShowTheHalfUnitThatTruncationTakes) {
  // From each pixel brighter than the noise, π r² of them, half a unit; from the wings, 8π · noise of light, a 2 ·
  // noise-th.
  CentreOfGravity centre;
  const double noise = 10.0;
  const double lost = 0.5 * std::numbers::pi * SquaredRadius(noise) + 8.0 * std::numbers::pi * noise / (2.0 * noise);
  EXPECT_NEAR(Of(centre, noise, 2.0).flux_bias, -lost / kSpotFlux, 0.1 * lost / kSpotFlux);

  // Under a weight it lowers the sum of light and so raises the gain, by ½ Σ w / Σ w p: 2.4·10⁻⁴ for small
  // displacements.
  WeightedCentreOfGravity weighted;
  const double of_light = 0.5 * 8.0 * std::numbers::pi / (4.0 * std::numbers::pi * kSpotPeak);
  EXPECT_NEAR(Of(weighted, 0.0, 0.5).x.gain - 1.0, of_light, 0.1 * of_light);
}

/// Error of the centre of gravity of `columns` columns of pixels about 0, for a spot at d.
double ErrorOfColumns(int columns, double d) {
  double light = 0.0;
  double moment = 0.0;
  for (int k = 0; k < columns; ++k) {
    const double u = k - 0.5 * (columns - 1);
    const double g = std::exp(-Square(u - d) / 8.0);
    light += g;
    moment += u * g;
  }
  return moment / light - d;
}

TEST_F(Scores, ShowWhatTheRegionsEdgeCutsOff) {
  // A spot that its edge cuts is drawn inward.
  CentreOfGravity centre;
  const auto error = [](double d) { return ErrorOfColumns(24, d); };
  for (const double range : {4.0, 8.0}) {
    const double rms = std::sqrt(Mean(range, [&](double d) { return Square(error(d)); }));
    const double slope = Mean(range, [&](double d) { return error(d) * d; }) / (range * range / 3.0);
    const Score score = Of(centre, 0.0, range);
    EXPECT_NEAR(score.x.rms, rms, 0.1 * rms + 2e-4);  // a few spots of 2428 are near enough to an edge
    EXPECT_NEAR(score.x.gain, 1.0 + slope, 0.1 * std::abs(slope) + 1e-4);
    EXPECT_EQ(score.failed, 0.0);
  }
  // The fit knows the edge.
  GaussianFit fit;
  EXPECT_LT(Of(fit, 0.0, 8.0).worst, 1e-3);
}

TEST_F(Scores, ShowHowTheQuadCellSaturates) {
  QuadCell engine;
  const double gain = std::sqrt(std::numbers::pi / 2.0) * kSpotSigma;
  const auto error = [&](double d) { return gain * std::erf(d / std::sqrt(8.0)) - d; };
  const double rms = std::sqrt(Mean(2.0, [&](double d) { return Square(error(d)); }));
  ExpectRms(Of(engine, 0.0, 2.0), rms);
}

TEST_F(Scores, ShowWhatAWindowCutsOff) {
  // Around the reference, between pixels: 12 columns.
  WindowedCentreOfGravity stays({.around = WindowCentre::kReference, .half_width = 6.0});
  ExpectRms(Of(stays, 0.0, 2.0), std::sqrt(Mean(2.0, [](double d) { return Square(ErrorOfColumns(12, d)); })));
  // Around the brightest pixel, at most half a pixel from the spot: 13 columns.
  WindowedCentreOfGravity follows({.half_width = 6.0});
  const double periodic = Mean(0.5, [](double d) { return Square(ErrorOfColumns(13, d)); });
  ExpectRms(Of(follows, 0.0, 2.0), std::sqrt(periodic), 0.1);  // truncation is not even about the window's centre
  // With noise: the window's 13 · 13 pixels, the sum of whose squared distances is 13 · 182.
  const double variance = 13.0 * 182.0 * BrightVariance(10.0) / Square(kSpotFlux);
  ExpectRms(Of(follows, 10.0, 2.0), std::sqrt(periodic + variance));
}

TEST_F(Scores, ShowThatASetOfWholePixelsIsNotQuiteRound) {
  // What it errs by depends on how the grid lies under the spot: a constant of 40 pixels, at any noise below it.
  constexpr double kPeriodic = 0.0044;
  BrightestPixels engine({.number = 40});
  ExpectRms(Of(engine, 0.0, 2.0), kPeriodic, 0.1);
  const Score noisy = Of(engine, 10.0, 2.0);
  ExpectRms(noisy, std::hypot(kPeriodic, Of(engine, 10.0, 0.0).x.rms), 0.1);
  ExpectUnbiased(noisy);
}

}  // namespace
}  // namespace quen::centroiders
