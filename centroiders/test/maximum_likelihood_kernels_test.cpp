#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>

#include "centroiders/src/pixel_reader.hpp"
#include "centroiders/src/scoring_step.hpp"
#include "centroiders/src/smoothed_maximum.hpp"
#include "centroiders/src/spot_estimate.hpp"
#include "centroiders/src/spot_moments.hpp"
#include "testing/levels.hpp"

// What the fit is made of: how pixels are read, where it starts, and the sums of its steps, at every level.

namespace quen::centroiders {
namespace {

using quen::common::simd::kLevels;
using quen::common::simd::Level;
using quen::image_processing::Roi;

// --- Reading

/// A frame of 6 columns and 5 rows, of which a region of 3 columns and 3 rows is read.
class Reading : public testing::AtLevel {
 protected:
  static constexpr std::uint16_t kWide = 6;
  static constexpr std::uint16_t kHigh = 5;

  std::uint16_t& Count(std::size_t column, std::size_t row) { return frame_[column + kWide * row]; }

  void Read(const PixelReading& reading) {
    PixelReader("Engine", reading).Read(GetParam(), frame_, Roi(2, 5, 1, 4, kWide, kHigh, 3, 2), patch_);
  }
  /// By the frame's columns and rows.
  double Light(std::size_t column, std::size_t row) { return patch_.light[column - 2 + patch_.stride * (row - 1)]; }
  double Response(std::size_t column, std::size_t row) {
    return patch_.response[column - 2 + patch_.stride * (row - 1)];
  }

  std::vector<std::uint16_t> frame_ = std::vector<std::uint16_t>(std::size_t{kWide} * kHigh, 100);
  Patch patch_;
};
INSTANTIATE_TEST_SUITE_P(Levels, Reading, ::testing::ValuesIn(kLevels), testing::kNameOfLevel);

TEST_P(Reading, CountsAreSignedUnlessToldOtherwise) {
  Count(3, 2) = 65'535;
  Read({});
  EXPECT_EQ(Light(3, 2), -1.0);
  EXPECT_EQ(Light(2, 1), 100.0);
  EXPECT_EQ(Response(3, 2), 1.0);
  Read({.sign = PixelSign::kUnsigned});
  EXPECT_EQ(Light(3, 2), 65'535.0);
}

TEST_P(Reading, LightIsWhatIsAbovePedestalAndDarkMapOverTheResponse) {
  PixelReading reading = {.pedestal = 10.0};
  reading.dark_map.resize(frame_.size(), 5.0);
  reading.flat_map.resize(frame_.size(), 1.0);
  reading.dark_map[4 + kWide * 3] = 30.0;
  reading.flat_map[4 + kWide * 3] = 0.5;
  Read(reading);
  EXPECT_EQ(Light(2, 1), 85.0);
  EXPECT_EQ(Light(4, 3), 120.0);
  EXPECT_EQ(Response(4, 3), 0.5);
}

TEST_P(Reading, SaturatedPixelsKeepTheirLightAndDoNotCount) {
  Count(3, 2) = 200;
  Count(4, 2) = 199;
  Read({.ceiling = 200.0});
  EXPECT_EQ(Response(3, 2), 0.0);
  EXPECT_EQ(Light(3, 2), 200.0);
  EXPECT_EQ(Response(4, 2), 1.0);
}

TEST_P(Reading, BadPixelsAreTheMeanOfTheirGoodNeighboursInTheRegion) {
  PixelReading reading;
  reading.bad_pixels.resize(frame_.size());
  reading.flat_map.resize(frame_.size(), 1.0);
  reading.bad_pixels[2 + kWide * 1] = 3;
  reading.flat_map[3 + kWide * 1] = 0.0009;  // as good as none
  Count(1, 1) = Count(2, 0) = 9000;          // beside the region
  Count(2, 1) = Count(3, 1) = 7000;          // the bad ones
  Count(2, 2) = 40;
  Count(3, 2) = 80;
  Read(reading);
  EXPECT_EQ(Light(2, 1), 60.0);
  EXPECT_EQ(Response(2, 1), 0.0);
  EXPECT_EQ(Light(3, 1), (100.0 + 40.0 + 80.0 + 100.0) / 4.0);
  EXPECT_EQ(Response(3, 1), 0.0);
  EXPECT_EQ(Response(2, 2), 1.0);
}

TEST_P(Reading, BadPixelsWithoutGoodNeighboursAreDark) {
  Read({.bad_pixels = std::vector<std::uint8_t>(frame_.size(), 1)});
  EXPECT_EQ(Light(3, 2), 0.0);
  EXPECT_EQ(Response(3, 2), 0.0);
}

TEST_P(Reading, PixelsWithoutResponseAreBadWithoutAMapOfThose) {
  PixelReading reading;
  reading.flat_map.resize(frame_.size(), 1.0);
  reading.flat_map[3 + kWide * 2] = 0.0;
  Read(reading);
  EXPECT_EQ(Response(3, 2), 0.0);
  EXPECT_EQ(Light(3, 2), 100.0);
  EXPECT_EQ(Response(2, 2), 1.0);
}

TEST_P(Reading, SaysWhereEveryPixelCounts) {
  Read({});
  EXPECT_TRUE(patch_.counts_everywhere);
  Read({.ceiling = 101.0});
  EXPECT_TRUE(patch_.counts_everywhere);
  Count(4, 3) = 101;
  Read({.ceiling = 101.0});
  EXPECT_FALSE(patch_.counts_everywhere);
  Read({.flat_map = std::vector<double>(frame_.size(), 1.5)});
  EXPECT_FALSE(patch_.counts_everywhere);
  Read({.bad_pixels = std::vector<std::uint8_t>(frame_.size(), 1)});
  EXPECT_FALSE(patch_.counts_everywhere);
}

TEST_P(Reading, NothingCountsBeyondTheColumns) {
  PixelReader("Engine", {}).Read(GetParam(), frame_, Roi(0, kWide, 0, kHigh, kWide, kHigh, 3, 2), patch_);
  Read({});
  for (std::size_t y = 0; y < patch_.height; ++y) {
    for (std::size_t x = patch_.width; x < patch_.stride; ++x) {
      EXPECT_EQ(patch_.response[x + patch_.stride * y], 0.0);
      EXPECT_EQ(patch_.light[x + patch_.stride * y], 0.0);
    }
  }
}

TEST_P(Reading, IsThePlainOne) {
  std::mt19937 random(6);
  std::uniform_real_distribution<double> value(0.0, 2.0);
  for (std::uint16_t width = 1; width <= 25; ++width) {
    constexpr std::uint16_t kRows = 5;
    const auto across = static_cast<std::uint16_t>(width + 3);
    const std::size_t size = std::size_t{across} * kRows;
    std::vector<std::uint16_t> frame(size);
    PixelReading reading = {.pedestal = 12.3, .ceiling = 60'000.0};
    reading.dark_map.resize(size);
    reading.flat_map.resize(size);
    reading.bad_pixels.resize(size);
    for (std::size_t k = 0; k < size; ++k) {
      frame[k] = static_cast<std::uint16_t>(random());
      reading.dark_map[k] = 100.0 * value(random);
      reading.flat_map[k] = value(random);
      reading.bad_pixels[k] = random() % 7 == 0 ? 1 : 0;
    }
    const Roi roi(2, static_cast<std::uint16_t>(2 + width), 1, 4, across, kRows, 3, 2);
    for (const PixelSign sign : {PixelSign::kSigned, PixelSign::kUnsigned}) {
      reading.sign = sign;
      Patch plain;
      PixelReader("Engine", reading).Read(Level::kPlain, frame, roi, plain);
      PixelReader("Engine", reading).Read(GetParam(), frame, roi, patch_);
      EXPECT_EQ(patch_.light, plain.light) << width;
      EXPECT_EQ(patch_.response, plain.response) << width;
    }
  }
}

TEST_P(Reading, RoundingToSinglePrecisionIsOfEachNumber) {
  PixelReading reading = {.pedestal = 0.1};
  reading.flat_map.resize(frame_.size(), 0.7);
  Read(reading);
  SinglePatch single;
  Round(GetParam(), patch_, single);
  EXPECT_EQ(single.width, patch_.width);
  EXPECT_EQ(single.height, patch_.height);
  EXPECT_EQ(single.stride, patch_.stride);
  EXPECT_EQ(single.light, std::vector<float>(patch_.light.begin(), patch_.light.end()));
  EXPECT_EQ(single.response, std::vector<float>(patch_.response.begin(), patch_.response.end()));
}

// --- Sums

class SumsOfTheFit : public testing::AtLevel {};
INSTANTIATE_TEST_SUITE_P(Levels, SumsOfTheFit, ::testing::ValuesIn(kLevels), testing::kNameOfLevel);

Patch RandomPatch(std::size_t width, std::size_t height, std::mt19937& random) {
  std::uniform_real_distribution<double> light(-20.0, 3000.0);
  std::uniform_real_distribution<double> response(0.5, 1.5);
  Patch patch;
  patch.Resize(width, height);
  std::ranges::fill(patch.light, 0.0);
  std::ranges::fill(patch.response, 0.0);
  for (std::size_t y = 0; y < height; ++y) {
    for (std::size_t x = 0; x < width; ++x) {
      patch.light[x + patch.stride * y] = light(random);
      patch.response[x + patch.stride * y] = random() % 9 == 0 ? 0.0 : response(random);
    }
  }
  return patch;
}

SinglePatch Rounded(const Patch& patch) {
  SinglePatch single;
  Round(Level::kPlain, patch, single);
  return single;
}

struct ModelAndExtent {
  SpotModel model;
  Extent extent;
};

std::vector<ModelAndExtent> ModelsOfAllForms(std::size_t width, std::size_t height) {
  std::vector<ModelAndExtent> all;
  for (const std::size_t spot : {1U, 2U}) {
    for (const std::size_t background : {0U, 1U}) {
      for (const bool is_oval : {false, true}) {
        if (is_oval && spot == 1) continue;
        SpotModel model{};
        model.centre = {0.45 * static_cast<double>(width), 0.6 * static_cast<double>(height)};
        model.p = {0.3, is_oval ? -0.11 : 0.0, is_oval ? 0.2 : 0.3};
        model.height = 900.0;
        model.background = -3.0;  // where the spot ends, no variance but that of the noise
        model.slope_x = background == 1 ? 0.7 : 0.0;
        model.slope_y = background == 1 ? -0.4 : 0.0;
        all.push_back({model, {spot, background, is_oval}});
      }
    }
  }
  return all;
}

constexpr double kNoise = 7.0;

/// The formula.
double SumOf(const Patch& patch, const SpotModel& m, double noise, int n, std::size_t j, std::size_t k,
             bool of_residuals) {
  double sum = 0.0;
  for (std::size_t row = 0; row < patch.height; ++row) {
    for (std::size_t column = 0; column < patch.width; ++column) {
      const double u = static_cast<double>(column) - m.centre.x;
      const double v = static_cast<double>(row) - m.centre.y;
      const double g = std::exp(-0.5 * (m.p.xx * u * u + 2.0 * m.p.xy * u * v + m.p.yy * v * v));
      const double mu = m.background + m.slope_x * u + m.slope_y * v + m.height * g;
      const std::size_t pixel = column + patch.stride * row;
      const double w = patch.response[pixel] / (std::max(mu, 0.0) + noise);
      const double function = std::pow(g, n) * std::pow(u, j) * std::pow(v, k);
      sum += w * (of_residuals ? patch.light[pixel] - mu : 1.0) * function;
    }
  }
  return sum;
}

constexpr double kOfDoubles = 1e-10;  // of sums whose terms have both signs
constexpr double kOfSingles = 3e-7;

/// Of all the sums that are wanted.
void ExpectTheFormulas(const SpotMoments& sums, const Patch& patch, const SpotModel& model, double noise,
                       const Extent& extent, double relative = kOfDoubles) {
  const auto powers = [degrees = std::array{extent.background_degree, extent.spot_degree}](
                          std::size_t a, std::size_t b) { return degrees.at(a) + degrees.at(b); };
  const auto expect = [&](double found, int n, std::size_t j, std::size_t k, bool of_residuals) {
    const double expected = SumOf(patch, model, noise, n, j, k, of_residuals);
    const double terms = SumOf(patch, model, noise, n, 2 * ((j + 1) / 2), 2 * ((k + 1) / 2), false);
    EXPECT_NEAR(found, expected, relative * (std::abs(expected) + (of_residuals ? 3000.0 : 1.0) * terms))
        << n << ' ' << j << ' ' << k;
  };
  for (const auto& [n, degree] :
       {std::pair(0U, powers(0, 0)), std::pair(1U, powers(0, 1)), std::pair(2U, powers(1, 1))}) {
    for (std::size_t j = 0; j <= degree; ++j) {
      for (std::size_t k = 0; j + k <= degree; ++k) {
        expect(sums.information.at(n).at(j).at(k), static_cast<int>(n), j, k, false);
      }
    }
  }
  for (const auto& [n, degree] : {std::pair(0U, extent.background_degree), std::pair(1U, extent.spot_degree)}) {
    for (std::size_t j = 0; j <= degree; ++j) {
      for (std::size_t k = 0; j + k <= degree; ++k) {
        expect(sums.score.at(n).at(j).at(k), static_cast<int>(n), j, k, true);
      }
    }
  }
}

TEST_P(SumsOfTheFit, AreTheFormulas) {
  std::mt19937 random(2);
  for (const auto& [width, height] : {std::pair(24, 24), std::pair(3, 17), std::pair(70, 5), std::pair(9, 66)}) {
    const Patch patch = RandomPatch(static_cast<std::size_t>(width), static_cast<std::size_t>(height), random);
    for (const auto& [model, extent] : ModelsOfAllForms(patch.width, patch.height)) {
      ExpectTheFormulas(SumSpotMoments<double>(GetParam(), patch, model, kNoise, extent), patch, model, kNoise, extent);
      ExpectTheFormulas(SumSpotMoments(GetParam(), Rounded(patch), model, kNoise, extent), patch, model, kNoise, extent,
                        kOfSingles);
    }
  }
}

/// As before the first step.
SpotModel WithoutASpot(SpotModel model, double background) {
  model.p.xy = 0.0;
  model.height = model.slope_x = model.slope_y = 0.0;
  model.background = background;
  return model;
}

TEST_P(SumsOfTheFit, BeforeTheSpotAreTheFormulas) {
  constexpr double kEqualWeights = 1.0;
  constexpr double kSome = 20.0;
  std::mt19937 random(5);
  for (const auto& [width, height] :
       {std::pair(24, 24), std::pair(3, 17), std::pair(64, 7), std::pair(70, 5), std::pair(9, 66)}) {
    Patch patch = RandomPatch(static_cast<std::size_t>(width), static_cast<std::size_t>(height), random);
    for (const auto& [form, extent] : ModelsOfAllForms(patch.width, patch.height)) {
      const SpotModel model = WithoutASpot(form, kSome);
      ExpectTheFormulas(SumBeforeTheSpot(GetParam(), patch, model, extent), patch, model, kEqualWeights, extent);
    }
    for (std::size_t k = 0; k < patch.response.size(); ++k) {
      patch.response[k] = k % patch.stride < patch.width ? 1.0 : 0.0;
    }
    patch.counts_everywhere = true;
    const bool is_large = std::max(width, height) > 64;
    for (const auto& [form, extent] : ModelsOfAllForms(patch.width, patch.height)) {
      const SpotModel model = WithoutASpot(form, kSome);
      ExpectTheFormulas(SumBeforeTheSpot(GetParam(), patch, model, extent), patch, model,
                        is_large ? kEqualWeights : kEqualWeights - kSome, extent);  // of variance 1
    }
  }
}

void ExpectEqual(const SpotMoments& fast, const SpotMoments& plain) {
  EXPECT_EQ(fast.information, plain.information);
  EXPECT_EQ(fast.score, plain.score);
}

TEST_P(SumsOfTheFit, AreThePlainOnes) {
  std::mt19937 random(3);
  for (const std::size_t width : {3U, 4U, 7U, 8U, 9U, 15U, 16U, 24U, 33U, 63U, 64U, 65U, 129U}) {
    for (const std::size_t height : {3U, 8U, 24U, 63U, 64U, 65U}) {
      SCOPED_TRACE(std::to_string(width) + " x " + std::to_string(height));
      const Patch patch = RandomPatch(width, height, random);
      const SinglePatch single = Rounded(patch);
      for (const auto& [model, extent] : ModelsOfAllForms(width, height)) {
        ExpectEqual(SumSpotMoments<double>(GetParam(), patch, model, kNoise, extent),
                    SumSpotMoments<double>(Level::kPlain, patch, model, kNoise, extent));
        ExpectEqual(SumSpotMoments(GetParam(), single, model, kNoise, extent),
                    SumSpotMoments(Level::kPlain, single, model, kNoise, extent));
      }
      Patch full = patch;
      full.counts_everywhere = true;
      for (const auto& [form, extent] : ModelsOfAllForms(width, height)) {
        const SpotModel model = WithoutASpot(form, 20.0);
        ExpectEqual(SumBeforeTheSpot(GetParam(), full, model, extent),
                    SumBeforeTheSpot(Level::kPlain, full, model, extent));
      }
    }
  }
}

TEST(StepOfTheFit, NeedsAsManyPixelsAsTerms) {
  // Two for the centre, one for the background and one for the height.
  const Terms terms(SpotShape::kGiven, SpotBackground::kConstant);
  Patch patch;
  patch.Resize(8, 8);
  SpotModel model{};
  model.centre = {3.3, 3.6};
  model.p = {0.25, 0.0, 0.25};
  for (std::size_t pixels = 0; pixels <= 4; ++pixels) {
    EXPECT_EQ(Solve(SumSpotMoments<double>(Level::kPlain, patch, model, 1.0, terms.SumsNeeded()), terms).has_value(),
              pixels == 4)
        << pixels;
    constexpr std::array<std::size_t, 5> kPlaces = {18, 29, 35, 53, 0};
    patch.response[kPlaces.at(pixels)] = 1.0;
  }
}

// --- What a step makes of a spot

/// A spot of height 100 in a region of its own, without noise and background.
Patch PatchWithASpot(const Point& centre, const Symmetric& p) {
  constexpr std::size_t kSide = 64;
  Patch patch;
  patch.Resize(kSide, kSide);
  std::ranges::fill(patch.response, 1.0);
  patch.counts_everywhere = true;
  for (std::size_t row = 0; row < kSide; ++row) {
    for (std::size_t column = 0; column < kSide; ++column) {
      const Point d = {static_cast<double>(column) - centre.x, static_cast<double>(row) - centre.y};
      const Point p_d = p * d;
      patch.light[column + kSide * row] = 100.0 * std::exp(-0.5 * (d.x * p_d.x + d.y * p_d.y));
    }
  }
  return patch;
}

/// One step from a round spot of deviation 2 at (30, 33), with equal weights.
SpotEstimate FirstStep(const Patch& patch, SpotShape shape) {
  const Terms terms(shape, SpotBackground::kGiven);
  SpotModel model{};
  model.centre = {30.0, 33.0};
  model.p = {0.25, 0.0, 0.25};
  const auto c = Solve(SumBeforeTheSpot(Level::kPlain, patch, model, terms.SumsNeeded()), terms)->of;
  Correction fit = {c.at(terms.Height()), {c[0], c[1]}, {0.0, 0.0, 0.0}};
  if (shape == SpotShape::kRound) fit.square = {c[2], 0.0, c[2]};
  if (shape == SpotShape::kOval) fit.square = {c[2], 0.5 * c[3], c[4]};
  return *EstimateSpot(0.0, model.p, fit, shape);
}

TEST(StepOfTheFit, FindsASpotFromFarAway) {
  constexpr double kOfSums = 1e-4;  // over pixels in place of integrals
  const Symmetric spot = Symmetric{9.0, 2.5, 3.0}.Inverse();
  const SpotEstimate oval = FirstStep(PatchWithASpot({31.3, 31.9}, spot), SpotShape::kOval);
  EXPECT_NEAR(oval.centre.x, 1.3, kOfSums);
  EXPECT_NEAR(oval.centre.y, -1.1, kOfSums);
  EXPECT_NEAR(oval.p.xx, spot.xx, kOfSums);
  EXPECT_NEAR(oval.p.xy, spot.xy, kOfSums);
  EXPECT_NEAR(oval.p.yy, spot.yy, kOfSums);
  EXPECT_NEAR(oval.height, 100.0, 2.0);  // but for the exponential's series

  const SpotEstimate round = FirstStep(PatchWithASpot({30.7, 33.4}, {0.12, 0.0, 0.12}), SpotShape::kRound);
  EXPECT_NEAR(round.centre.x, 0.7, kOfSums);
  EXPECT_NEAR(round.centre.y, 0.4, kOfSums);
  EXPECT_NEAR(round.p.xx, 0.12, kOfSums);
  EXPECT_EQ(round.p.yy, round.p.xx);
  EXPECT_EQ(round.p.xy, 0.0);
  EXPECT_NEAR(round.height, 100.0, 0.5);

  const SpotEstimate given = FirstStep(PatchWithASpot({28.2, 33.9}, {0.25, 0.0, 0.25}), SpotShape::kGiven);
  EXPECT_NEAR(given.centre.x, -1.8, kOfSums);
  EXPECT_NEAR(given.centre.y, 0.9, kOfSums);
  EXPECT_EQ(given.p.xx, 0.25);
  EXPECT_EQ(given.change, 0.0);
}

TEST(StepOfTheFit, ChangesVariancesBySomeSevenTenthsAtTheMost) {
  // Both by 0.7 / √2; the spot's inverse variances are then P · (1 − change) / (1 + change).
  const double change = 0.7 / std::numbers::sqrt2;
  for (const double p : {0.002, 10.0}) {
    const SpotEstimate found = FirstStep(PatchWithASpot({30.0, 33.0}, {p, 0.0, p}), SpotShape::kOval);
    const double sign = p < 0.25 ? 1.0 : -1.0;
    EXPECT_NEAR(found.p.xx, 0.25 * (1.0 - sign * change) / (1.0 + sign * change), 1e-9);
    EXPECT_NEAR(found.p.yy, found.p.xx, 1e-9);
    EXPECT_EQ(found.part, 1.0);
    EXPECT_GT(found.change, 1.4);
  }
}

TEST(StepOfTheFit, TakesAPartOfACorrectionThatIsTooLarge) {
  // Of a dark middle in a bright ring: what is left of the light is what changes the variances by 0.7.
  const Symmetric p = {0.25, 0.0, 0.25};
  const Correction ring = {-300.0, {8.0, 0.0}, {40.0, 0.0, 40.0}};
  const SpotEstimate found = *EstimateSpot(100.0, p, ring, SpotShape::kOval);
  const double light = 100.0 - found.part * 300.0 + found.part * 2.0 * 2.0 * 40.0;
  EXPECT_LT(found.part, 1.0);
  EXPECT_NEAR(found.part * std::numbers::sqrt2 * 2.0 * 2.0 * 40.0, 0.7 * light, 1e-9);
  EXPECT_GT(found.height, 0.0);
  EXPECT_LT(found.p.xx, p.xx);
  EXPECT_GT(found.centre.x, 0.0);
}

TEST(StepOfTheFit, WithoutLightThereIsNoSpot) {
  const Symmetric p = {0.25, 0.0, 0.25};
  const auto found = [&](double height, double added, SpotShape shape) {
    return EstimateSpot(height, p, {added, {0.0, 0.0}, {0.0, 0.0, 0.0}}, shape).has_value();
  };
  for (const SpotShape shape : {SpotShape::kGiven, SpotShape::kRound, SpotShape::kOval}) {
    EXPECT_FALSE(found(0.0, 0.0, shape));
    EXPECT_FALSE(found(0.0, -1.0, shape));
    EXPECT_FALSE(found(5.0, -5.0, shape));
    EXPECT_TRUE(found(5.0, -4.0, shape));
    EXPECT_TRUE(found(0.0, 1.0, shape));
  }
}

// --- The start

/// What the search is to find, pixel by pixel; column by column, where several are equal.
Point LargestSquare(const Patch& patch, std::size_t side) {
  side = std::min(side, (std::min(patch.width, patch.height) - 3) / 2 * 2 + 1);
  const auto at = [&](std::size_t x, std::size_t y) { return patch.light[x + patch.stride * y]; };
  const auto capped = [&](std::size_t x, std::size_t y) {
    double most = -1e300;
    for (std::size_t v = y - 1; v <= y + 1; ++v) {
      for (std::size_t u = x - 1; u <= x + 1; ++u) {
        if (u != x || v != y) most = std::max(most, at(u, v));
      }
    }
    return std::min(at(x, y), most);
  };
  double largest = -1e300;
  Point found{};
  for (std::size_t x = 1; x + side < patch.width; ++x) {
    for (std::size_t y = 1; y + side < patch.height; ++y) {
      double sum = 0.0;
      for (std::size_t v = 0; v < side; ++v) {
        for (std::size_t u = 0; u < side; ++u) sum += capped(x + u, y + v);
      }
      if (sum <= largest) continue;
      largest = sum;
      const std::size_t to_middle = side / 2;
      found = {static_cast<double>(x + to_middle), static_cast<double>(y + to_middle)};
    }
  }
  return found;
}

TEST_P(SumsOfTheFit, TheStartIsTheMiddleOfTheLargestSquare) {
  std::mt19937 random(4);
  SmoothedMaximum start;
  for (const std::size_t width : {3U, 4U, 5U, 8U, 9U, 24U, 33U}) {
    for (const std::size_t height : {3U, 4U, 7U, 24U, 70U}) {
      for (const std::size_t side : {1U, 3U, 5U, 85U}) {
        const Patch patch = RandomPatch(width, height, random);
        const Point expected = LargestSquare(patch, side);
        const Point found = start.Find(GetParam(), Rounded(patch), side, false);
        EXPECT_EQ(found.x, expected.x) << width << " x " << height << ", " << side;
        EXPECT_EQ(found.y, expected.y) << width << " x " << height << ", " << side;
      }
    }
  }
}

TEST_P(SumsOfTheFit, TheLevelledStartIsThePlainOne) {
  std::mt19937 random(5);
  SmoothedMaximum start;
  for (const std::size_t width : {3U, 5U, 8U, 9U, 24U, 33U}) {
    for (const std::size_t height : {3U, 4U, 24U, 70U}) {
      for (const double scale : {1.0, 3.0, 7.0}) {
        Patch ramp = RandomPatch(width, height, random);
        for (std::size_t k = 0; k < ramp.light.size(); ++k) {
          const std::size_t row = k / ramp.stride;
          ramp.light[k] = (17.0 * static_cast<double>(k % ramp.stride) + 30.0 * static_cast<double>(row)) / scale;
        }
        for (const Patch& patch : {RandomPatch(width, height, random), ramp}) {
          const Point fast = start.Find(GetParam(), Rounded(patch), 5, true);
          const Point plain = start.Find(Level::kPlain, Rounded(patch), 5, true);
          EXPECT_EQ(fast.x, plain.x) << width << " x " << height;
          EXPECT_EQ(fast.y, plain.y) << width << " x " << height;
        }
      }
    }
  }
}

Patch SmallPatchWithASpot(double x, double y) {
  Patch patch;
  patch.Resize(24, 24);
  for (std::size_t row = 0; row < 24; ++row) {
    for (std::size_t column = 0; column < 24; ++column) {
      const double u = static_cast<double>(column) - x;
      const double v = static_cast<double>(row) - y;
      patch.light[column + 24 * row] = 100.0 * std::exp(-0.125 * (u * u + v * v));
    }
  }
  return patch;
}

TEST_P(SumsOfTheFit, NoSinglePixelDrawsTheStartAway) {
  SmoothedMaximum start;
  for (std::size_t pixel = 0; pixel < std::size_t{24} * 24; ++pixel) {
    Patch patch = SmallPatchWithASpot(9.0, 13.0);
    patch.light[pixel] = 1e6;
    const Point found = start.Find(GetParam(), Rounded(patch), 5, false);
    EXPECT_NEAR(found.x, 9.0, 1.0) << pixel;
    EXPECT_NEAR(found.y, 13.0, 1.0) << pixel;
  }
}

TEST_P(SumsOfTheFit, NoSlopeDrawsALevelledStartAway) {
  Patch patch = SmallPatchWithASpot(9.0, 13.0);
  for (std::size_t k = 0; k < patch.light.size(); ++k) {
    const std::size_t row = k / 24;
    patch.light[k] += 20.0 * static_cast<double>(k % 24) - 30.0 * static_cast<double>(row);
  }
  SmoothedMaximum start;
  EXPECT_EQ(start.Find(GetParam(), Rounded(patch), 5, true).x, 9.0);
  EXPECT_EQ(start.Find(GetParam(), Rounded(patch), 5, true).y, 13.0);
  EXPECT_GT(start.Find(GetParam(), Rounded(patch), 5, false).x, 15.0);
}

}  // namespace
}  // namespace quen::centroiders
