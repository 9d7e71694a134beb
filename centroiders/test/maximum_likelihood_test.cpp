#include <gtest/gtest.h>

#include <Eigen/Dense>
#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>

#include "centroiders/maximum_likelihood_fit.hpp"
#include "detector/detector.hpp"
#include "testing/allocations.hpp"
#include "testing/exceptions.hpp"
#include "testing/values.hpp"

// The fit on frames of a detector, against the least error that its parameters allow, and where it gives up.

namespace quen::centroiders {
namespace {

using quen::detector::Detector;
using quen::detector::DetectorConfig;
using quen::image_processing::Roi;
using quen::testing::ExpectThrows;
using quen::testing::kNan;

constexpr std::size_t kRegionSide = 24;  // of a region
constexpr std::size_t kRegionsAcross = detector::kWidth / kRegionSide;
constexpr std::size_t kRegionsDown = detector::kHeight / kRegionSide;
constexpr double kReference = 11.5;  // where a region's reference is

/// Variances along x and y, and the covariance.
struct Shape {
  double xx = 4.0;
  double xy = 0.0;
  double yy = 4.0;

  [[nodiscard]] double Determinant() const { return xx * yy - xy * xy; }
  static Shape Round(double sigma) { return {sigma * sigma, 0.0, sigma * sigma}; }
  static Shape Inclined(double longer, double shorter, double angle) {
    const double c = std::cos(angle);
    const double s = std::sin(angle);
    const double l = longer * longer;
    const double k = shorter * shorter;
    return {l * c * c + k * s * s, (l - k) * c * s, l * s * s + k * c * c};
  }
};

/// What a region is expected to have, in electrons.
struct Scene {
  double electrons = 1000.0;  ///< of the spot
  Shape shape = {};
  double background = 0.0;
  double slope_x = 0.0;
  double slope_y = 0.0;
  double shift = 0.0;  ///< of all spots along x, pixels
  double hot = 0.0;    ///< of one pixel in each region

  [[nodiscard]] double Spot(double u, double v) const {
    const double determinant = shape.Determinant();
    const double square = (shape.yy * u * u - 2.0 * shape.xy * u * v + shape.xx * v * v) / determinant;
    return electrons / (2.0 * std::numbers::pi * std::sqrt(determinant)) * std::exp(-0.5 * square);
  }
  [[nodiscard]] double Background(double x, double y) const {
    return background + slope_x * (x - kReference) + slope_y * (y - kReference);
  }
};

/// A spot's place in its region.
struct Place {
  double x;
  double y;
};

/// The hot pixel of a region, some pixels from its middle.
constexpr std::size_t HotColumn(std::size_t region) { return 8 + region % 7; }
constexpr std::size_t HotRow(std::size_t region) { return 7 + region % 9; }

struct Case {
  std::string name;
  Scene scene;
  DetectorConfig detector = {};
  MaximumLikelihoodConfig engine = {};
  double excess = 1.0;  ///< of the variance of light over that of photons

  [[nodiscard]] bool Counts(std::size_t x, std::size_t y, std::size_t region, double electrons) const {
    if (!engine.reading.bad_pixels.empty() && x == HotColumn(region) && y == HotRow(region)) return false;
    return !engine.reading.ceiling ||
           electrons * detector.gain * detector.em_gain + detector.offset < *engine.reading.ceiling;
  }
};

std::ostream& operator<<(std::ostream& stream, const Case& c) { return stream << c.name; }

/// The least mean squared error over both axes that the free parameters allow, by the inverse of their information.
double Bound(const Case& c, const Place& place, std::size_t region) {
  const double determinant = c.scene.shape.Determinant();
  const double p_xx = c.scene.shape.yy / determinant;
  const double p_xy = -c.scene.shape.xy / determinant;
  const double p_yy = c.scene.shape.xx / determinant;
  std::array<double, 9> d{};
  std::size_t n = 0;
  Eigen::Matrix<double, 9, 9> information = Eigen::Matrix<double, 9, 9>::Zero();
  for (std::size_t y = 0; y < kRegionSide; ++y) {
    for (std::size_t x = 0; x < kRegionSide; ++x) {
      const double u = static_cast<double>(x) - place.x;
      const double v = static_cast<double>(y) - place.y;
      const double spot = c.scene.Spot(u, v);
      const double mean = spot + c.scene.Background(static_cast<double>(x), static_cast<double>(y));
      if (!c.Counts(x, y, region, mean)) continue;
      n = 0;
      const auto add = [&](double derivative) { d.at(n++) = derivative; };
      add(spot * (p_xx * u + p_xy * v));
      add(spot * (p_xy * u + p_yy * v));
      add(spot / c.scene.electrons);
      if (c.engine.shape == SpotShape::kRound) add(spot * (u * u + v * v));
      if (c.engine.shape == SpotShape::kOval) {
        add(spot * u * u);
        add(spot * u * v);
        add(spot * v * v);
      }
      if (c.engine.background_model != SpotBackground::kGiven) add(1.0);
      if (c.engine.background_model == SpotBackground::kSlope) {
        add(u);
        add(v);
      }
      const double read_noise = c.detector.read_noise / c.detector.em_gain;
      const double variance = c.excess * mean + read_noise * read_noise + 1e-12;
      for (std::size_t i = 0; i < n; ++i) {
        for (std::size_t j = 0; j <= i; ++j) {
          information(static_cast<Eigen::Index>(i), static_cast<Eigen::Index>(j)) += d.at(i) * d.at(j) / variance;
        }
      }
    }
  }
  const auto size = static_cast<Eigen::Index>(n);
  const Eigen::MatrixXd whole = information.topLeftCorner(size, size).selfadjointView<Eigen::Lower>();
  const Eigen::VectorXd scale = whole.diagonal().cwiseSqrt().cwiseInverse();
  const Eigen::MatrixXd scaled = scale.asDiagonal() * whole * scale.asDiagonal();
  const Eigen::MatrixXd inverse = scaled.inverse();
  return 0.5 * (inverse(0, 0) * scale(0) * scale(0) + inverse(1, 1) * scale(1) * scale(1));
}

/// Frames full of regions, with a spot near the middle of each.
class Frames {
 public:
  explicit Frames(const Case& c) : case_(c), detector_(c.detector) {}

  void Expose(std::uint64_t number) {
    std::uniform_real_distribution<double> uniform(-1.0, 1.0);
    for (std::size_t region = 0; region < kRegionsAcross * kRegionsDown; ++region) {
      places_[region] = {kReference + case_.scene.shift + uniform(random_), kReference + uniform(random_)};
      Render(region);
    }
    detector_.Expose(values_, number, frame_);
    if (case_.engine.reading.ceiling) {
      const auto ceiling = static_cast<std::uint16_t>(*case_.engine.reading.ceiling);
      for (std::uint16_t& count : frame_) count = std::min(count, ceiling);
    }
  }

  [[nodiscard]] const Place& At(std::size_t region) const { return places_[region]; }
  [[nodiscard]] const std::vector<std::uint16_t>& Frame() const { return frame_; }

  static Roi Region(std::size_t region) {
    const auto x = static_cast<std::uint16_t>(region % kRegionsAcross * kRegionSide);
    const auto y = static_cast<std::uint16_t>(region / kRegionsAcross * kRegionSide);
    return {x,
            static_cast<std::uint16_t>(x + kRegionSide),
            y,
            static_cast<std::uint16_t>(y + kRegionSide),
            detector::kWidth,
            detector::kHeight,
            x + kReference,
            y + kReference};
  }

 private:
  void Render(std::size_t region) {
    const Roi roi = Region(region);
    for (std::size_t y = 0; y < kRegionSide; ++y) {
      for (std::size_t x = 0; x < kRegionSide; ++x) {
        const auto column = static_cast<double>(x);
        const auto row = static_cast<double>(y);
        double& value = values_[roi.x_low + x + detector::kWidth * (roi.y_low + y)];
        value =
            case_.scene.Spot(column - places_[region].x, row - places_[region].y) + case_.scene.Background(column, row);
        if (x == HotColumn(region) && y == HotRow(region)) value += case_.scene.hot;
      }
    }
  }

  const Case& case_;
  Detector detector_;
  std::mt19937 random_{3};
  std::vector<Place> places_ = std::vector<Place>(kRegionsAcross * kRegionsDown);
  std::vector<double> values_ = std::vector<double>(detector::kPixels, 0.0);
  std::vector<std::uint16_t> frame_ = std::vector<std::uint16_t>(detector::kPixels);
};

/// A case whose engine reads what the detector makes.
Case Matched(const std::string& name, const Scene& scene, double read_noise = 0.0, double pedestal = 0.0,
             SpotShape shape = SpotShape::kGiven, SpotBackground background = SpotBackground::kConstant) {
  Case c = {.name = name + "Of" + std::to_string(std::lround(scene.electrons)), .scene = scene};
  c.detector = {.read_noise = read_noise, .offset = pedestal, .seed = 7};
  c.engine.reading.sign = PixelSign::kUnsigned;
  c.engine.reading.pedestal = pedestal;
  c.engine.read_noise = read_noise;
  c.engine.shape = shape;
  c.engine.background_model = background;
  return c;
}

std::vector<Case> Cases() {
  constexpr double kPerPeak = 8.0 * std::numbers::pi;  // electrons of a spot with deviation 2 and peak 1
  std::vector<Case> cases;
  for (const double n : {300.0, 1000.0, 10'000.0, 100'000.0}) {
    cases.push_back(Matched("Photons", {.electrons = n}));
  }
  Case given = Matched("PhotonsOnAGivenBackground", {.electrons = 300.0, .background = 2.0});
  given.engine.background_model = SpotBackground::kGiven;
  given.engine.background = 2.0;
  cases.push_back(given);
  for (const double pedestal : {200.0, 1000.0}) {
    const std::string name = "Pedestal" + std::to_string(std::lround(pedestal));
    for (const double n : {300.0, 300.0 * kPerPeak}) cases.push_back(Matched(name, {.electrons = n}, 5.0, pedestal));
  }
  for (const double n : {300.0, 3000.0, 30'000.0}) {
    cases.push_back(Matched("Gradient", {.electrons = n, .background = 20.0, .slope_x = 0.8, .slope_y = 0.4}, 1.0,
                            100.0, SpotShape::kGiven, SpotBackground::kSlope));
  }
  for (const double n : {300.0, 1000.0, 10'000.0}) {
    cases.push_back(Matched("Narrow", {.electrons = n, .shape = Shape::Round(1.2), .background = 0.1}, 0.5, 100.0,
                            SpotShape::kRound));
    cases.push_back(Matched("Wide", {.electrons = n, .shape = Shape::Round(3.5), .background = 0.1}, 0.5, 100.0,
                            SpotShape::kRound));
    cases.push_back(Matched("Inclined", {.electrons = n, .shape = Shape::Inclined(3.5, 1.5, 0.6), .background = 0.1},
                            0.5, 100.0, SpotShape::kOval));
  }
  cases.push_back(Matched("InclinedOnAGradient",
                          {.electrons = 3000.0,
                           .shape = Shape::Inclined(3.5, 1.5, 2.2),
                           .background = 5.0,
                           .slope_x = -0.2,
                           .slope_y = 0.2},
                          1.0, 100.0, SpotShape::kOval, SpotBackground::kSlope));
  Case saturated = Matched("Saturated", {.electrons = 4000.0 * kPerPeak, .background = 5.0}, 3.0, 100.0);
  saturated.engine.reading.ceiling = 2000.0;
  cases.push_back(saturated);
  for (const double n : {300.0, 3000.0}) {
    Case hot = Matched("HotPixel", {.electrons = n, .background = 1.0, .hot = 5000.0}, 1.0, 100.0);
    hot.engine.reading.bad_pixels.resize(detector::kPixels);
    for (std::size_t region = 0; region < kRegionsAcross * kRegionsDown; ++region) {
      const Roi roi = Frames::Region(region);
      hot.engine.reading.bad_pixels[roi.x_low + HotColumn(region) + detector::kWidth * (roi.y_low + HotRow(region))] =
          1;
    }
    cases.push_back(hot);
    cases.push_back(Matched("FarOut", {.electrons = n, .background = 1.0, .shift = 8.0}, 1.0, 100.0));
  }
  // Whose variance is twice that of photons: given as 2 · em_gain · gain counts for each of half the electrons.
  Case multiplied = Matched("Multiplied", {.electrons = 1000.0, .background = 1.0}, 40.0, 100.0);
  multiplied.detector.em_gain = 100.0;
  multiplied.detector.gain = 0.1;
  multiplied.engine.gain = 2.0 * 100.0 * 0.1;
  multiplied.engine.read_noise = 40.0 / (2.0 * 100.0);
  multiplied.excess = 2.0;
  cases.push_back(multiplied);
  return cases;
}

class MaximumLikelihood : public ::testing::TestWithParam<Case> {};
INSTANTIATE_TEST_SUITE_P(Cases, MaximumLikelihood, ::testing::ValuesIn(Cases()),
                         [](const auto& c) { return c.param.name; });

TEST_P(MaximumLikelihood, ErrsByTheBoundAndNoMore) {
  // Of 3570 spots along two axes, the RMS error scatters by 0.8 %.
  constexpr double kMost = 1.05;
  constexpr double kLeast = 0.96;
  constexpr std::size_t kFrames = 3;
  constexpr std::size_t kSpotsPerBound = 21;  // it depends little on where in a pixel the spot is
  const Case& c = GetParam();
  Frames frames(c);
  MaximumLikelihoodFit engine(c.engine);
  double squares = 0.0;
  double spots = 0.0;
  double failures = 0.0;
  double bound = 0.0;
  double bounds = 0.0;
  double flux = 0.0;
  for (std::size_t frame = 0; frame < kFrames; ++frame) {
    frames.Expose(frame);
    for (std::size_t region = 0; region < kRegionsAcross * kRegionsDown; ++region) {
      const Place& place = frames.At(region);
      if (region % kSpotsPerBound == 0) {
        bound += Bound(c, place, region);
        bounds += 1.0;
      }
      engine.Compute(frames.Frame(), Frames::Region(region));
      if (std::isnan(engine.x)) {
        failures += 1.0;
        continue;
      }
      const double error_x = engine.x + kReference - place.x;
      const double error_y = engine.y + kReference - place.y;
      squares += 0.5 * (error_x * error_x + error_y * error_y);
      flux += engine.flux / (c.detector.gain * c.detector.em_gain);
      spots += 1.0;
    }
  }
  const double ratio = std::sqrt(squares / spots / (bound / bounds));
  RecordProperty("ratio", std::to_string(ratio));
  EXPECT_LT(ratio, kMost);
  EXPECT_GT(ratio, kLeast);
  EXPECT_LT(failures, 0.001 * spots);
  EXPECT_NEAR(flux / spots, c.scene.electrons, 0.03 * c.scene.electrons);
}

// --- Where the fit gives up, on small frames

class FitsSmallFrame : public ::testing::Test {
 protected:
  static constexpr std::uint16_t kSmall = 25;

  std::uint16_t& At(std::size_t column, std::size_t row) { return frame_[column + kSmall * row]; }

  /// A spot of this height and deviation at (x, y), rounded to whole numbers, on a background.
  void Draw(double x, double y, double height, double sigma = kSpotSigma, double background = 0.0) {
    for (std::size_t row = 0; row < kSmall; ++row) {
      for (std::size_t column = 0; column < kSmall; ++column) {
        const double u = static_cast<double>(column) - x;
        const double v = static_cast<double>(row) - y;
        At(column, row) = static_cast<std::uint16_t>(
            std::lround(background + height * std::exp(-0.5 * (u * u + v * v) / (sigma * sigma))));
      }
    }
  }

  void Measure(MaximumLikelihoodFit& engine) { engine.Compute(frame_, roi_); }

  void ExpectFailure(const MaximumLikelihoodConfig& config) {
    MaximumLikelihoodFit engine(config);
    Measure(engine);
    EXPECT_EQ(engine.flux, 0.0);
    EXPECT_TRUE(std::isnan(engine.x)) << engine.x;
    EXPECT_TRUE(std::isnan(engine.y)) << engine.y;
  }

  std::vector<std::uint16_t> frame_ = std::vector<std::uint16_t>(std::size_t{kSmall} * kSmall, 0);
  Roi roi_ = Roi(0, kSmall, 0, kSmall, kSmall, kSmall, 12.0, 12.0);
};

constexpr MaximumLikelihoodConfig Unsigned() {
  MaximumLikelihoodConfig config;
  config.reading.sign = PixelSign::kUnsigned;
  return config;
}

TEST_F(FitsSmallFrame, FindsWhatWasDrawn) {
  constexpr double kRounding = 1e-4;  // of the pixels, half a unit of 30000
  MaximumLikelihoodConfig config;
  config.tolerance = 1e-9;
  for (const SpotShape shape : {SpotShape::kGiven, SpotShape::kRound, SpotShape::kOval}) {
    for (const SpotBackground background :
         {SpotBackground::kGiven, SpotBackground::kConstant, SpotBackground::kSlope}) {
      config.shape = shape;
      config.background_model = background;
      MaximumLikelihoodFit engine(config);
      Draw(13.3, 10.6, 30'000.0);
      Measure(engine);
      EXPECT_NEAR(engine.x, 1.3, kRounding);
      EXPECT_NEAR(engine.y, -1.4, kRounding);
      EXPECT_NEAR(engine.flux, 8.0 * std::numbers::pi * 30'000.0, 50.0);
    }
  }
}

TEST_F(FitsSmallFrame, StaysWithASpotThatTheEdgeCuts) {
  MaximumLikelihoodConfig config;
  config.tolerance = 1e-9;
  MaximumLikelihoodFit engine(config);
  for (const auto& [x, y] : {std::pair(0.3, 12.0), std::pair(24.2, 23.9), std::pair(-0.2, 24.3)}) {
    Draw(x, y, 30'000.0);
    Measure(engine);
    EXPECT_NEAR(engine.x, x - 12.0, 1e-3);
    EXPECT_NEAR(engine.y, y - 12.0, 1e-3);
  }
}

TEST_F(FitsSmallFrame, ASpotBeyondTheRegionIsAFailure) {
  for (const auto& [x, y] :
       {std::pair(-1.0, 12.0), std::pair(25.0, 12.0), std::pair(12.0, -1.0), std::pair(12.0, 25.0)}) {
    Draw(x, y, 30'000.0);
    ExpectFailure({});
  }
}

TEST_F(FitsSmallFrame, APlainRegionIsAFailure) {
  for (const std::uint16_t level : {std::uint16_t{0}, std::uint16_t{700}, std::uint16_t{0xfff0}}) {
    std::ranges::fill(frame_, level);
    ExpectFailure({});
  }
}

TEST_F(FitsSmallFrame, FewerThanThreeColumnsOrRowsAreAFailure) {
  Draw(12.0, 12.0, 3000.0);
  for (const Roi& roi :
       {Roi(12, 13, 0, kSmall, kSmall, kSmall, 12.0, 12.0), Roi(11, 13, 0, kSmall, kSmall, kSmall, 12.0, 12.0),
        Roi(0, kSmall, 12, 13, kSmall, kSmall, 12.0, 12.0), Roi(0, kSmall, 11, 13, kSmall, kSmall, 12.0, 12.0)}) {
    roi_ = roi;
    ExpectFailure({});
  }
}

TEST_F(FitsSmallFrame, FewerPixelsThanParametersAreAFailure) {
  Draw(12.0, 12.0, 3000.0);
  roi_ = Roi(11, 14, 11, 14, kSmall, kSmall, 12.0, 12.0);
  MaximumLikelihoodConfig config = {.shape = SpotShape::kRound};  // five parameters
  config.reading.bad_pixels.resize(frame_.size());
  const std::size_t row = 11;
  for (const std::size_t column : {11U, 12U, 13U}) config.reading.bad_pixels[column + kSmall * row] = 1;
  config.reading.bad_pixels[11 + kSmall * (row + 1)] = config.reading.bad_pixels[13 + kSmall * (row + 2)] = 1;
  ExpectFailure(config);
}

TEST_F(FitsSmallFrame, WithoutAPixelThatCountsItFails) {
  Draw(12.0, 12.0, 3000.0);
  MaximumLikelihoodConfig bad;
  bad.reading.bad_pixels.resize(frame_.size(), 1);
  ExpectFailure(bad);
  MaximumLikelihoodConfig saturated;
  saturated.reading.ceiling = 0.0;
  ExpectFailure(saturated);
}

TEST_F(FitsSmallFrame, ALoneHotPixelIsNoSpot) {
  At(15, 9) = 20'000;
  for (const SpotShape shape : {SpotShape::kRound, SpotShape::kOval}) {
    MaximumLikelihoodConfig config;
    config.shape = shape;
    ExpectFailure(config);
  }
}

TEST_F(FitsSmallFrame, GoesOnUntilTheWidthStandsStill) {
  // The centre does from the first step on.
  Draw(12.0, 12.0, 30'000.0, 3.0);
  MaximumLikelihoodFit engine({.shape = SpotShape::kRound});
  Measure(engine);
  EXPECT_NEAR(engine.x, 0.0, 1e-9);
  EXPECT_NEAR(engine.flux, 18.0 * std::numbers::pi * 30'000.0, 1e3);
}

TEST_F(FitsSmallFrame, AWidthThatIsNoSpotsIsAFailure) {
  MaximumLikelihoodConfig config;
  config.shape = SpotShape::kRound;
  config.background_model = SpotBackground::kGiven;
  for (const double sigma : {0.35, 20.0}) {
    Draw(12.0, 12.0, 30'000.0, sigma);
    MaximumLikelihoodFit engine(config);
    Measure(engine);
    EXPECT_NEAR(engine.x, 0.0, 1e-3) << sigma;
  }
  for (const double sigma : {0.28, 30.0}) {
    Draw(12.0, 12.0, 30'000.0, sigma);
    ExpectFailure(config);
  }
}

TEST_F(FitsSmallFrame, AnUnreachedLastStepIsAFailure) {
  Draw(13.3, 10.6, 3000.0);
  MaximumLikelihoodConfig config;
  config.tolerance = 1e-9;
  MaximumLikelihoodFit engine(config);
  Measure(engine);
  EXPECT_NEAR(engine.x, 1.3, 1e-3);
  config.steps = 2;
  ExpectFailure(config);
}

TEST_F(FitsSmallFrame, ASpotOfTooLittleLightIsAFailure) {
  // Of 2π · 4 · 100 electrons, without other light: 50 standard errors.
  Draw(12.4, 12.0, 100.0);
  MaximumLikelihoodConfig config;
  config.read_noise = 0.0;
  config.background_model = SpotBackground::kGiven;
  config.significance = 49.0;
  MaximumLikelihoodFit engine(config);
  Measure(engine);
  EXPECT_NEAR(engine.x, 0.4, 0.01);
  config.significance = 51.0;
  ExpectFailure(config);
  // A count of ten electrons: more light, and more standard errors.
  config.gain = 0.1;
  MaximumLikelihoodFit brighter(config);
  Measure(brighter);
  EXPECT_NEAR(brighter.x, 0.4, 0.01);
}

TEST(MaximumLikelihoodFit, TakesNoiseForASpotInOneRegionOfAHundredAtMost) {
  Case dark = Matched("Dark", {.electrons = 0.0, .background = 3.0}, 3.0, 100.0);
  Frames frames(dark);
  frames.Expose(0);
  MaximumLikelihoodFit engine(dark.engine);
  std::size_t spots = 0;
  for (std::size_t region = 0; region < kRegionsAcross * kRegionsDown; ++region) {
    engine.Compute(frames.Frame(), Frames::Region(region));
    if (!std::isnan(engine.x)) ++spots;
  }
  EXPECT_LT(spots, kRegionsAcross * kRegionsDown / 100);
}

TEST_F(FitsSmallFrame, ReadsCountsThatWouldBeNegativeIfTheyWereSigned) {
  Draw(12.3, 11.8, 60'000.0, kSpotSigma, 1000.0);
  MaximumLikelihoodFit engine(Unsigned());
  Measure(engine);
  EXPECT_NEAR(engine.x, 0.3, 1e-3);
  EXPECT_NEAR(engine.y, -0.2, 1e-3);
}

TEST_F(FitsSmallFrame, MapsAreThoseOfTheWholeFrame) {
  // A spot at the frame's last corner, through a flat field and on a dark one, with a bad pixel on its top.
  Draw(22.0, 22.0, 20'000.0);
  MaximumLikelihoodConfig config = Unsigned();
  config.reading.pedestal = 100.0;
  config.background_model = SpotBackground::kGiven;
  config.tolerance = 1e-9;
  config.reading.flat_map.resize(frame_.size());
  config.reading.dark_map.resize(frame_.size());
  config.reading.bad_pixels.resize(frame_.size());
  for (std::size_t k = 0; k < frame_.size(); ++k) {
    config.reading.flat_map[k] = 0.5 + 0.001 * static_cast<double>(k);
    config.reading.dark_map[k] = 3.0 * static_cast<double>(k);
    const double count = frame_[k] * config.reading.flat_map[k] + 100.0 + config.reading.dark_map[k];
    frame_[k] = static_cast<std::uint16_t>(std::lround(count));
  }
  At(22, 22) = 0;
  config.reading.bad_pixels[22 + kSmall * 22U] = 7;
  roi_ = Roi(15, kSmall, 16, kSmall, kSmall, kSmall, 21.0, 21.0);
  MaximumLikelihoodFit engine(config);
  Measure(engine);
  EXPECT_NEAR(engine.x, 1.0, 1e-3);
  EXPECT_NEAR(engine.y, 1.0, 1e-3);
  EXPECT_NEAR(engine.flux, 8.0 * std::numbers::pi * 20'000.0, 100.0);
}

TEST_F(FitsSmallFrame, AnUnknownReferenceMakesItsAxisUnknown) {
  Draw(13.3, 10.6, 3000.0);
  MaximumLikelihoodFit engine;
  Measure(engine);
  const double flux = engine.flux;
  const double y = engine.y;
  roi_.x_ref = kNan;
  Measure(engine);
  EXPECT_TRUE(std::isnan(engine.x));
  EXPECT_EQ(engine.y, y);
  EXPECT_EQ(engine.flux, flux);
}

TEST_F(FitsSmallFrame, CanBeMoved) {
  Draw(13.3, 10.6, 3000.0);
  MaximumLikelihoodFit first;
  MaximumLikelihoodFit second(std::move(first));
  Measure(second);
  EXPECT_NEAR(second.x, 1.3, 1e-3);
}

TEST(MaximumLikelihoodFit, MakesRoomForAWiderRegionOnceAndNoMore) {
  constexpr std::uint16_t kWide = 200;
  const std::vector<std::uint16_t> frame(std::size_t{kWide} * kWide, 5);
  const Roi roi(0, kWide, 0, kWide, kWide, kWide, 100.0, 100.0);
  MaximumLikelihoodFit engine;
  engine.Compute(frame, roi);
  const std::size_t allocations = testing::Allocations();
  engine.Compute(frame, roi);
  EXPECT_EQ(testing::Allocations(), allocations);
}

TEST(MaximumLikelihoodFitDeathTest, AMapOfAnotherSizeThanTheFrameEndsTheProcess) {
  const std::vector<std::uint16_t> frame(100, 5);
  const Roi roi(0, 10, 0, 10, 10, 10, 5.0, 5.0);
  MaximumLikelihoodConfig config;
  config.reading.bad_pixels.resize(101);
  EXPECT_DEATH(MaximumLikelihoodFit(config).Compute(frame, roi), "");
}

TEST(MaximumLikelihoodFit, ItsConfigurationIsCheckedFieldByField) {
  const auto expect = [](const std::string& text, auto change) {
    ExpectThrows<std::invalid_argument>("MaximumLikelihoodFit: " + text, [&] {
      MaximumLikelihoodConfig config;
      change(config);
      MaximumLikelihoodFit engine(config);
    });
  };
  expect("gain must be above 0 and at most 1000000, found 0", [](auto& c) { c.gain = 0.0; });
  expect("read_noise must be from 0 to 1000000, found -1", [](auto& c) { c.read_noise = -1.0; });
  expect("fwhm must be from 1 to 100, found nan", [](auto& c) { c.fwhm = kNan; });
  expect("background must be from 0 to 1000000000, found -3", [](auto& c) { c.background = -3.0; });
  expect("steps must be from 2 to 1000, found 1", [](auto& c) { c.steps = 1; });
  expect("tolerance must be from 1e-09 to 1, found 0", [](auto& c) { c.tolerance = 0.0; });
  expect("significance must be from 0 to 1000, found -1", [](auto& c) { c.significance = -1.0; });
  expect("pedestal must be from -65535 to 65535, found 70000", [](auto& c) { c.reading.pedestal = 70'000.0; });
  expect("ceiling must be from -32768 to 65535, found 65536", [](auto& c) { c.reading.ceiling = 65'536.0; });
  expect("dark_map[1] must be from -65535 to 65535, found nan", [](auto& c) { c.reading.dark_map = {0.0, kNan}; });
  expect("flat_map[0] must be from 0 to 1000, found -1", [](auto& c) { c.reading.flat_map = {-1.0, 1.0}; });
  expect("flat_map must have 2 elements as dark_map has, found 3", [](auto& c) {
    c.reading.dark_map = {0.0, 0.0};
    c.reading.flat_map = {1.0, 1.0, 1.0};
  });
  expect("bad_pixels must have 1 elements as dark_map has, found 2", [](auto& c) {
    c.reading.dark_map = {0.0};
    c.reading.bad_pixels = {0, 1};
  });
  expect("bad_pixels must have 3 elements as flat_map has, found 1", [](auto& c) {
    c.reading.flat_map = {1.0, 1.0, 1.0};
    c.reading.bad_pixels = {1};
  });
}

TEST(MaximumLikelihoodFit, TheLimitsOfItsConfigurationAreAllowed) {
  const MaximumLikelihoodFit least({.gain = 1e-300,
                                    .read_noise = 0.0,
                                    .fwhm = 1.0,
                                    .background = 0.0,
                                    .steps = 2,
                                    .tolerance = 1e-9,
                                    .significance = 0.0});
  const MaximumLikelihoodFit most({.gain = 1e6,
                                   .read_noise = 1e6,
                                   .fwhm = 100.0,
                                   .background = 1e9,
                                   .steps = 1000,
                                   .tolerance = 1.0,
                                   .significance = 1000.0});
}

}  // namespace
}  // namespace quen::centroiders
