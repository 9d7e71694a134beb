#include "workbench/engines/engines.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <regex>
#include <sstream>

#include "centroiders/brightest_pixels.hpp"
#include "centroiders/centre_of_gravity.hpp"
#include "centroiders/correlation.hpp"
#include "centroiders/gaussian_fit.hpp"
#include "centroiders/light_engine.hpp"
#include "centroiders/maximum_likelihood_fit.hpp"
#include "centroiders/quad_cell.hpp"
#include "centroiders/weighted_centre_of_gravity.hpp"
#include "centroiders/windowed_centre_of_gravity.hpp"
#include "shssim/spot.hpp"
#include "testing/exceptions.hpp"
#include "workbench/sensor/dimensions.hpp"

namespace quen::workbench {
namespace {

using namespace quen::centroiders;  // NOLINT(google-build-using-namespace): all engines
using quen::testing::ExpectThrows;

struct Result {
  double flux;
  double x;
  double y;

  bool operator==(const Result&) const = default;
};

Result Measure(Engine& engine) {
  std::vector<std::uint16_t> frame(400);
  for (std::size_t row = 0; row < 20; ++row) {
    for (std::size_t column = 0; column < 20; ++column) {
      const double u = static_cast<double>(column) - 10.3;
      const double v = static_cast<double>(row) - 8.8;
      const double speckle = static_cast<double>(((column + 20 * row) * 37) % 50);
      frame[column + 20 * row] = static_cast<std::uint16_t>(3000.0 * std::exp(-0.125 * (u * u + v * v)) + speckle);
    }
  }
  engine.Compute(frame, Roi(0, 20, 0, 20, 20, 20, 9.5, 9.5));
  return {engine.flux, engine.x, engine.y};
}

template <typename E>
void ExpectSame(const std::string& text, E engine) {
  const auto made = MakeEngine(text);
  EXPECT_NE(dynamic_cast<E*>(made.get()), nullptr) << text;
  EXPECT_EQ(Measure(*made), Measure(engine)) << text;
}

/// That an engine is made which measures as this one does.
void ExpectLike(const std::string& text, Engine& engine) {
  EXPECT_EQ(Measure(*MakeEngine(text)), Measure(engine)) << text;
}

TEST(Engines, AreMadeByNameAndOptions) {
  ExpectSame("centre-of-gravity", CentreOfGravity());
  ExpectSame("centre-of-gravity:background=10.5,threshold=20",
             CentreOfGravity({.background = 10.5, .threshold = 20.0}));
  ExpectSame("centre-of-gravity:threshold=40,thresholding=cut",
             CentreOfGravity({.threshold = 40.0, .thresholding = Thresholding::kCut}));
  ExpectSame("windowed", WindowedCentreOfGravity());
  ExpectSame("windowed:around=reference,half-width=4.5",
             WindowedCentreOfGravity({.around = WindowCentre::kReference, .half_width = 4.5}));
  ExpectSame("weighted:fwhm=6,gain=1.5", WeightedCentreOfGravity({.fwhm = 6.0, .gain = 1.5}));
  ExpectSame("brightest", BrightestPixels({.number = 40}));
  ExpectSame("brightest:number=25", BrightestPixels({.number = 25}));
  ExpectSame("brightest:fraction=0.2", BrightestPixels({.fraction = 0.2}));
  ExpectSame("quad-cell:gain=2", QuadCell({.gain = 2.0}));
  ExpectSame("correlation:size=9", Correlation({.size = 9}));
  ExpectSame("correlation:top=parabolas", Correlation());
  ExpectSame("correlation:top=surface", Correlation({}, CorrelationTop::kOfSurface));
  ExpectSame("gaussian-fit:fwhm=5,steps=2", GaussianFit({.fwhm = 5.0, .steps = 2}));
}

TEST(Engines, OfMaximumLikelihoodAreMadeByTheirOptions) {
  const auto expect = [](const std::string& options, const MaximumLikelihoodConfig& config) {
    MaximumLikelihoodFit engine(config);
    ASSERT_NE(dynamic_cast<MaximumLikelihoodFit*>(MakeEngine("maximum-likelihood" + options).get()), nullptr);
    ExpectLike("maximum-likelihood" + options, engine);
  };
  expect("", {});
  expect(":gain=2.5,read-noise=3,fwhm=5", {.gain = 2.5, .read_noise = 3.0, .fwhm = 5.0});
  expect(":shape=given,background=constant", {});
  expect(":shape=round", {.shape = SpotShape::kRound});
  expect(":shape=oval,background=slope", {.shape = SpotShape::kOval, .background_model = SpotBackground::kSlope});
  expect(":background=25", {.background_model = SpotBackground::kGiven, .background = 25.0});
  expect(":pedestal=20,ceiling=2000", {.reading = {.pedestal = 20.0, .ceiling = 2000.0}});
  expect(":tolerance=0.5", {.tolerance = 0.5});
  MaximumLikelihoodFit impatient({.steps = 2});
  EXPECT_TRUE(std::isnan(Measure(impatient).x));
  EXPECT_TRUE(std::isnan(Measure(*MakeEngine("maximum-likelihood:steps=2")).x));
  EXPECT_TRUE(std::isnan(Measure(*MakeEngine("maximum-likelihood:significance=1000")).x));
}

TEST(Engines, OthersReadLightIfTheyAreTold) {
  const auto expect = [](const std::string& options, const LightConfig& config) {
    LightEngine engine(config, std::make_unique<WindowedCentreOfGravity>());
    ExpectLike("windowed:" + options, engine);
  };
  expect("pedestal=30", {.reading = {.pedestal = 30.0}});
  expect("subtract=border", {.background = BackgroundEstimate::kBorderMedian});
  ExpectSame(
      "windowed:subtract=none,half-width=3",
      LightEngine({}, std::make_unique<WindowedCentreOfGravity>(WindowedCentreOfGravityConfig{.half_width = 3})));
  const std::vector<std::uint16_t> bright = {0, 60'000, 0, 0};
  const auto measured = MakeEngine("centre-of-gravity:pixels=unsigned");
  measured->Compute(bright, Roi(0, 4, 0, 1, 4, 1, 0.0, 0.0));
  EXPECT_EQ(measured->flux, 60'000.0);
  EXPECT_EQ(measured->x, 1.0);
}

TEST(Engines, EveryNameIsThatOfAnEngine) {
  EXPECT_EQ(EngineNames().size(), 8U);
  for (const std::string& name : EngineNames()) {
    EXPECT_NE(MakeEngine(name), nullptr);
    EXPECT_NE(EngineHelp().find(name), std::string::npos);
  }
  EXPECT_EQ(EngineNames().front(), kDefaultEngine);
}

TEST(Engines, CorrelationLooksForASpotOfAnyWidth) {
  CorrelationConfig config = {.size = 31};
  for (int y = -15; y <= 15; ++y) {
    for (int x = -15; x <= 15; ++x) {
      const double u = x / (6.0 / shssim::kFwhmPerSigma);
      const double v = y / (6.0 / shssim::kFwhmPerSigma);
      config.template_values.push_back(std::exp(-0.5 * (u * u + v * v)));
    }
  }
  ExpectSame("correlation:fwhm=6,size=31", Correlation(config));
  EXPECT_NE(Measure(*MakeEngine("correlation:fwhm=6")), Measure(*MakeEngine("correlation")));
}

TEST(Engines, KnowTheMapsOfACamera) {
  PixelMaps maps = {.dark = std::vector<double>(400, 7.0), .flat = std::vector<double>(400, 0.5)};
  maps.bad.resize(400);
  maps.bad[10 + 20 * 9] = 1;
  const PixelReading reading = {.dark_map = maps.dark, .flat_map = maps.flat, .bad_pixels = maps.bad};
  LightEngine light({.reading = reading}, std::make_unique<CentreOfGravity>());
  EXPECT_EQ(Measure(*MakeEngine("centre-of-gravity", {.maps = maps})), Measure(light));
  MaximumLikelihoodFit fit({.reading = reading});
  EXPECT_EQ(Measure(*MakeEngine("maximum-likelihood", {.maps = maps})), Measure(fit));
  EXPECT_NE(Measure(*MakeEngine("centre-of-gravity")), Measure(light));
}

TEST(Engines, AreToldOfADetectorsMapsIfTheyKnowThem) {
  using quen::detector::kPixels;
  using quen::detector::PixelState;
  auto detector = std::make_shared<DetectorDescription>();
  detector->config = {.em_gain = 3.0, .gain = 0.5, .flat_map = std::vector<double>(kPixels, 0.9)};
  detector->config.dark_map.resize(kPixels, 4.0);
  detector->config.offset_map.resize(kPixels, -10.0);
  detector->config.bad_pixels = std::vector<PixelState>(kPixels, PixelState::kGood);
  detector->config.bad_pixels[5] = PixelState::kHot;
  EXPECT_TRUE(InputsFor(detector).maps.AreEmpty());
  detector->engines_know_maps = true;
  const EngineInputs inputs = InputsFor(detector);
  EXPECT_EQ(inputs.sign, PixelSign::kUnsigned);
  EXPECT_EQ(inputs.maps.dark, std::vector<double>(kPixels, -4.0));  // 3 · 0.5 · 4 − 10 counts
  EXPECT_EQ(inputs.maps.flat, std::vector<double>(kPixels, 0.9));
  EXPECT_EQ(std::ranges::count(inputs.maps.bad, 0), std::ptrdiff_t{kPixels} - 1);
  EXPECT_NE(inputs.maps.bad[5], 0);
  detector->config.offset_map.clear();
  EXPECT_EQ(InputsFor(detector).maps.dark, std::vector<double>(kPixels, 6.0));
  detector->config.dark_map.clear();
  EXPECT_TRUE(InputsFor(detector).maps.dark.empty());
  EXPECT_TRUE(InputsFor(nullptr).maps.AreEmpty());
}

TEST(Engines, CorrelationLooksForATemplate) {
  const SpotTemplate spot = {3, {0.0, 1.0, 0.0, 1.0, 2.0, 1.0, 0.0, 1.0, 0.5}};
  Correlation correlation({spot.size, spot.values});
  EXPECT_EQ(Measure(*MakeEngine("correlation", {.spot = spot})), Measure(correlation));
  EXPECT_TRUE(TakesTemplate("correlation:top=surface"));
  EXPECT_FALSE(TakesTemplate("gaussian-fit"));
  for (const std::string name : {"size", "fwhm"}) {
    ExpectThrows<std::invalid_argument>("correlation: " + name + ": expected none beside a template, found 5",
                                        [&] { MakeEngine("correlation:" + name + "=5", {.spot = spot}); });
  }
}

/// Calls `act` with NAME:OPTION and the two ends of the range, for each option of which the help says one.
template <typename Act>
void ForEachRange(const Act& act) {
  const std::regex option_line(R"(    ([a-z-]+) .*, (above )?(\S+) to (\d+)( \[.*\])?)");
  std::istringstream help(EngineHelp());
  std::string engine;
  for (std::string line; std::getline(help, line);) {
    std::smatch parts;
    if (std::regex_match(line, parts, option_line)) {
      act(engine + ":" + parts[1].str(), parts[2].matched, parts[3].str(), parts[4].str());
    } else if (line.starts_with("  ") && line[2] != ' ') {
      engine = line.starts_with("  all but") ? "windowed" : line.substr(2);
    }
  }
}

TEST(Engines, TakeTheRangesThatTheHelpSays) {
  constexpr int kRanges = 22;
  int count = 0;
  ForEachRange([&](const std::string& option, bool is_above, const std::string& lowest, const std::string& highest) {
    ++count;
    const std::string field = ": " + option.substr(option.find(':') + 1) + " must be ";
    const std::string range =
        is_above ? field + "above " + lowest + " and at most " + highest : field + "from " + lowest + " to " + highest;
    const std::string engine = option.substr(0, option.find(':'));
    ExpectThrows<std::invalid_argument>(engine + range + ", found " + highest + "0",
                                        [&] { MakeEngine(option + "=" + highest + "0"); });
    EXPECT_NE(MakeEngine(option + "=" + highest), nullptr);
    if (is_above) return;
    EXPECT_NE(MakeEngine(option + "=" + lowest), nullptr);
  });
  EXPECT_EQ(count, kRanges);
}

TEST(Engines, SayWhatIsWrongWithAText) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"best",
       "expected one of centre-of-gravity, windowed, weighted, brightest, quad-cell, correlation, gaussian-fit, "
       "maximum-likelihood, found best"},
      {"windowed:size=3",
       "windowed: expected one of the options around, half-width, pixels, pedestal, subtract, found size"},
      {"windowed:pixels=big", "windowed: pixels: expected signed or unsigned, found big"},
      {"windowed:subtract=sky", "windowed: subtract: expected none or border, found sky"},
      {"windowed:pedestal=1e6", "windowed: pedestal must be from -65535 to 65535, found 1000000"},
      {"maximum-likelihood:shape=flat", "maximum-likelihood: shape: expected given, round or oval, found flat"},
      {"maximum-likelihood:background=dark",
       "maximum-likelihood: background: expected constant, slope or a number, found dark"},
      {"maximum-likelihood:read-noise=-1", "maximum-likelihood: read-noise must be from 0 to 1000000, found -1"},
      {"windowed:half-width", "windowed: expected half-width=VALUE, found half-width"},
      {"windowed:half-width=wide", "windowed: half-width: expected a number, found wide"},
      {"windowed:half-width=3px", "windowed: half-width: expected a number, found 3px"},
      {"windowed:half-width=3,half-width=4", "windowed: expected half-width once, found it twice"},
      {"windowed:around=me", "windowed: around: expected brightest or reference, found me"},
      {"brightest:number=2.5", "brightest: number: expected a whole number, not below 0, found 2.5"},
      {"brightest:number=-3", "brightest: number: expected a whole number, not below 0, found -3"},
      {"brightest:number=9,fraction=0.1", "brightest: exactly one of number and fraction must be given, found both"},
      {"windowed:half-width=0", "windowed: half-width must be from 0.5 to 1000, found 0"},
      {"weighted:fwhm=nan", "weighted: fwhm: expected a number, found nan"},
      {"correlation:size=8", "correlation: size must be odd, found 8"},
      {"correlation:size=8,fwhm=5", "correlation: size must be odd, found 8"},
      {"correlation:size=900000000,fwhm=5", "correlation: size must be from 3 to 63, found 900000000"}};
  for (const auto& [text, reason] : cases) {
    ExpectThrows<std::invalid_argument>(reason, [&, engine = text] { MakeEngine(engine); });
  }
}

}  // namespace
}  // namespace quen::workbench
