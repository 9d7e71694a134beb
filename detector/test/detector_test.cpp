#include "detector/detector.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "basesim/base_simulator.hpp"
#include "detector/maps.hpp"
#include "testing/allocations.hpp"
#include "testing/exceptions.hpp"
#include "testing/values.hpp"

namespace quen::detector {
namespace {

using quen::testing::ExpectThrows;
using quen::testing::kInfinity;
using quen::testing::kNan;

static_assert(kWidth == basesim::kFrameWidth);
static_assert(kHeight == basesim::kFrameHeight);

using Counts = std::vector<std::uint16_t>;

Counts Exposed(const DetectorConfig& config, const std::vector<double>& values, std::uint64_t frame_number = 0) {
  Counts counts(kPixels, 54321);
  Detector(config).Expose(values, frame_number, counts);
  return counts;
}

Counts Exposed(const DetectorConfig& config, double value, std::uint64_t frame_number = 0) {
  return Exposed(config, std::vector<double>(kPixels, value), frame_number);
}

DetectorConfig Noiseless() {
  DetectorConfig config;
  config.photon_noise = false;
  return config;
}

// --- The configuration ---------------------------------------------------------------------------------------------

struct Refused {
  std::string text;
  std::function<void(DetectorConfig&)> change;
};

std::vector<double> MapWith(double value) {
  std::vector<double> map(kPixels, 1.0);
  map[840 * 2 + 5] = value;
  return map;
}

std::vector<PixelState> OneBad(PixelState state) {
  std::vector<PixelState> states(kPixels, PixelState::kGood);
  states[840 * 2 + 5] = state;
  return states;
}

std::vector<Refused> Refusals() {
  return {
      {"electrons_per_unit must be from 0 to 1000000, found -0.5", [](auto& c) { c.electrons_per_unit = -0.5; }},
      {"electrons_per_unit must be from 0 to 1000000, found nan", [](auto& c) { c.electrons_per_unit = kNan; }},
      {"background must be from 0 to 1000000000, found inf", [](auto& c) { c.background = kInfinity; }},
      {"dark must be from 0 to 1000000000, found -1", [](auto& c) { c.dark = -1.0; }},
      {"em_gain must be from 1 to 10000, found 0.5", [](auto& c) { c.em_gain = 0.5; }},
      {"em_gain must be from 1 to 10000, found 10001", [](auto& c) { c.em_gain = 10001.0; }},
      {"read_noise must be from 0 to 1000000, found -3", [](auto& c) { c.read_noise = -3.0; }},
      {"full_well must be above 0 and at most 1000000000, found 0", [](auto& c) { c.full_well = 0.0; }},
      {"full_well must be above 0 and at most 1000000000, found inf", [](auto& c) { c.full_well = kInfinity; }},
      {"gain must be above 0 and at most 1000000, found 0", [](auto& c) { c.gain = 0.0; }},
      {"gain must be above 0 and at most 1000000, found nan", [](auto& c) { c.gain = kNan; }},
      {"offset must be from -65535 to 65535, found 65536", [](auto& c) { c.offset = 65536.0; }},
      {"bits must be from 1 to 16, found 0", [](auto& c) { c.bits = 0; }},
      {"bits must be from 1 to 16, found 17", [](auto& c) { c.bits = 17; }},
      {"flat_map must have 685440 elements or none, found 3", [](auto& c) { c.flat_map.resize(3); }},
      {"flat_map of pixel (5, 2) must be from 0 to 1000, found -1", [](auto& c) { c.flat_map = MapWith(-1.0); }},
      {"flat_map of pixel (5, 2) must be from 0 to 1000, found nan", [](auto& c) { c.flat_map = MapWith(kNan); }},
      {"dark_map must have 685440 elements or none, found 685441", [](auto& c) { c.dark_map.resize(kPixels + 1); }},
      {"dark_map of pixel (5, 2) must be from 0 to 1000000000, found inf",
       [](auto& c) { c.dark_map = MapWith(kInfinity); }},
      {"offset_map must have 685440 elements or none, found 1", [](auto& c) { c.offset_map.resize(1); }},
      {"offset_map of pixel (5, 2) must be from -65535 to 65535, found -70000",
       [](auto& c) { c.offset_map = MapWith(-70000.0); }},
      {"bad_pixels must have 685440 elements or none, found 2", [](auto& c) { c.bad_pixels.resize(2); }},
      {"bad_pixel_levels must have 685440 elements or none, found 7", [](auto& c) { c.bad_pixel_levels.resize(7); }},
      {"bad_pixels of pixel (5, 2) must be 0 (good), 1 (dead), 2 (hot) or 3 (stuck), found 4",
       [](auto& c) { c.bad_pixels = OneBad(static_cast<PixelState>(4)); }},
      {"bad_pixel_levels must have 685440 elements where a pixel is hot or stuck, found 0",
       [](auto& c) { c.bad_pixels = OneBad(PixelState::kHot); }},
      {"bad_pixel_levels of pixel (5, 2) must be from 0 to 1000000000, found -2",
       [](auto& c) {
         c.bad_pixels = OneBad(PixelState::kHot);
         c.bad_pixel_levels = MapWith(-2.0);
       }},
      {"bad_pixel_levels of pixel (5, 2) must be from 0 to 4095, found 4096",
       [](auto& c) {
         c.bits = 12;
         c.bad_pixels = OneBad(PixelState::kStuck);
         c.bad_pixel_levels = MapWith(4096.0);
       }},
      {"bad_pixels must leave a good pixel, found none",
       [](auto& c) { c.bad_pixels.assign(kPixels, PixelState::kDead); }},
  };
}

TEST(Detector, RefusesWhatIsOutOfItsRangeInOneSentence) {
  for (const Refused& refused : Refusals()) {
    DetectorConfig config;
    refused.change(config);
    ExpectThrows<std::invalid_argument>("Detector: " + refused.text, [&] { Detector{config}; });
  }
}

TEST(Detector, TakesTheEndsOfAllRanges) {
  DetectorConfig config;
  config.electrons_per_unit = 0.0;
  config.background = config.dark = 0.0;
  config.em_gain = 1.0;
  config.read_noise = 0.0;
  config.full_well = 1e9;
  config.gain = 1e6;
  config.offset = -65535.0;
  config.bits = 1;
  config.flat_map.assign(kPixels, 0.0);
  config.dark_map.assign(kPixels, 1e9);
  config.offset_map.assign(kPixels, 65535.0);
  config.bad_pixels.assign(kPixels, PixelState::kStuck);
  config.bad_pixels.back() = PixelState::kGood;
  config.bad_pixel_levels.assign(kPixels, 1.0);
  EXPECT_NO_THROW(Detector{config});
}

TEST(Detector, RefusesSpansOfAnotherLengthAndLeavesTheFrame) {
  const Detector detector{DetectorConfig{}};
  const std::vector<double> values(kPixels, 1.0);
  Counts counts(kPixels - 1, 7);
  ExpectThrows<std::invalid_argument>("Detector: frame must have 685440 elements, found 685439",
                                      [&] { detector.Expose(values, 0, counts); });
  counts.resize(kPixels, 7);
  ExpectThrows<std::invalid_argument>("Detector: values must have 685440 elements, found 4",
                                      [&] { detector.Expose(gsl::span<const double>(values).first(4), 0, counts); });
  EXPECT_EQ(std::ranges::count(counts, 7), static_cast<std::ptrdiff_t>(kPixels));
}

// --- The stages ----------------------------------------------------------------------------------------------------

TEST(Detector, OrderOfTheStagesIsThatOfTheEquations) {
  DetectorConfig config = Noiseless();
  config.electrons_per_unit = 2.0;
  config.flat_map.assign(kPixels, 0.5);
  config.background = 10.0;
  config.dark = 3.0;
  config.dark_map.assign(kPixels, 4.0);
  config.gain = 1.5;
  config.offset = 7.0;
  config.offset_map.assign(kPixels, 2.0);
  EXPECT_EQ(Exposed(config, 100.0)[1000], 177);  // 1.5 · (0.5 · (2 · 100 + 10) + 3 + 4) + 7 + 2
  config.full_well = 90.0;
  EXPECT_EQ(Exposed(config, 100.0)[1000], 144);
}

TEST(Detector, FullWellIsWhatAPixelHoldsBeforeItIsMultipliedAndRead) {
  DetectorConfig config = Noiseless();
  config.full_well = 50.0;
  config.em_gain = 100.0;
  config.read_noise = 200.0;
  config.offset = 1000.0;
  const Counts counts = Exposed(config, 1e6);
  double sum = 0.0;
  for (const std::uint16_t count : counts) sum += count;
  constexpr double kTolerance = 5.0;  // five deviations, √(50 · 100² + 200²) / √685440 each
  EXPECT_NEAR(sum / kPixels, 6000.0, kTolerance);
}

TEST(Detector, RoundsToTheNearestAndHalvesToTheEvenCount) {
  std::vector<double> values(kPixels, 0.0);
  const std::vector<std::pair<double, int>> cases = {{0.4999, 0}, {0.5, 0},         {0.5001, 1},
                                                     {1.5, 2},    {2.5, 2},         {2.51, 3},
                                                     {1e-300, 0}, {65534.5, 65534}, {65534.6, 65535}};
  for (std::size_t k = 0; k < cases.size(); ++k) values[k] = cases[k].first;
  const Counts counts = Exposed(Noiseless(), values);
  for (std::size_t k = 0; k < cases.size(); ++k) EXPECT_EQ(counts[k], cases[k].second) << cases[k].first;
}

TEST(Detector, ClampsToTheRangeOfTheConverter) {
  DetectorConfig config = Noiseless();
  EXPECT_EQ(Exposed(config, 65536.0)[0], 65535);
  EXPECT_EQ(Exposed(config, 1e12)[0], 65535);
  config.bits = 12;
  EXPECT_EQ(Exposed(config, 4095.0)[0], 4095);
  EXPECT_EQ(Exposed(config, 4096.0)[0], 4095);
  config.bits = 1;
  EXPECT_EQ(Exposed(config, 7.0)[0], 1);
  config.offset = -10.0;
  EXPECT_EQ(Exposed(config, 7.0)[0], 0);
}

TEST(Detector, NegativeAndNanValuesAreNoLightAndInfiniteOnesTheMost) {
  for (const bool photon_noise : {false, true}) {
    DetectorConfig config;
    config.photon_noise = photon_noise;
    config.offset = 5.0;
    config.gain = 1e-5;
    std::vector<double> values(kPixels, 0.0);
    values[1] = -1e3;
    values[2] = kNan;
    values[3] = -kInfinity;
    values[4] = kInfinity;
    values[5] = 1e300;
    const Counts counts = Exposed(config, values);
    for (std::size_t k = 0; k < 4; ++k) EXPECT_EQ(counts[k], 5) << k;
    EXPECT_NEAR(counts[4], 10005, photon_noise ? 2 : 0);
    EXPECT_NEAR(counts[5], 10005, photon_noise ? 2 : 0);
  }
}

TEST(Detector, NoLightMakesNoElectrons) {
  const Counts counts = Exposed(DetectorConfig{}, 0.0);
  EXPECT_EQ(std::ranges::count(counts, 0), static_cast<std::ptrdiff_t>(kPixels));
}

TEST(Detector, BadPixelsAreDeadHotOrStuck) {
  DetectorConfig config = Noiseless();
  config.background = 20.0;
  config.dark = 10.0;
  config.offset = 100.0;
  config.bad_pixels.assign(kPixels, PixelState::kGood);
  config.bad_pixel_levels.assign(kPixels, kNan);  // of good ones nobody asks
  config.bad_pixels[1] = PixelState::kDead;
  config.bad_pixels[2] = PixelState::kHot;
  config.bad_pixel_levels[2] = 500.0;
  config.bad_pixels[kPixels - 1] = PixelState::kStuck;
  config.bad_pixel_levels[kPixels - 1] = 777.4;
  const Counts counts = Exposed(config, 1000.0);
  EXPECT_EQ(counts[0], 1130);
  EXPECT_EQ(counts[1], 100);
  EXPECT_EQ(counts[2], 1630);
  EXPECT_EQ(counts[kPixels - 1], 777);
  config.photon_noise = true;
  config.read_noise = 9.0;
  EXPECT_EQ(Exposed(config, 1000.0)[kPixels - 1], 777);
}

TEST(Detector, MapsGoByPixel) {
  DetectorConfig config = Noiseless();
  config.flat_map.resize(kPixels);
  config.dark_map.resize(kPixels);
  config.offset_map.resize(kPixels);
  for (std::size_t pixel = 0; pixel < kPixels; ++pixel) {
    config.flat_map[pixel] = static_cast<double>(pixel % 7);
    config.dark_map[pixel] = static_cast<double>(pixel % 11);
    config.offset_map[pixel] = static_cast<double>(pixel % 13);
  }
  const Counts counts = Exposed(config, 100.0);
  for (std::size_t pixel = 0; pixel < kPixels; ++pixel) {
    ASSERT_EQ(counts[pixel], 100 * (pixel % 7) + pixel % 11 + pixel % 13) << pixel;
  }
}

// --- Random numbers ------------------------------------------------------------------------------------------------

DetectorConfig WithAllNoise() {
  DetectorConfig config;
  config.background = 2.0;
  config.em_gain = 3.0;
  config.read_noise = 4.0;
  config.offset = 100.0;
  return config;
}

TEST(Detector, SwitchingOffAStageLeavesTheNumbersOfTheOthers) {
  DetectorConfig both;
  both.read_noise = 3.0;
  both.offset = 100.0;
  DetectorConfig photons = both;
  photons.read_noise = 0.0;
  DetectorConfig read = both;
  read.photon_noise = false;
  const Counts of_both = Exposed(both, 1000.0);
  const Counts of_photons = Exposed(photons, 1000.0);
  const Counts of_read = Exposed(read, 1000.0);
  for (std::size_t pixel = 0; pixel < kPixels; ++pixel) {
    ASSERT_EQ(of_both[pixel], of_photons[pixel] + of_read[pixel] - 1100) << pixel;
  }
}

TEST(Detector, APixelsNumbersDoNotDependOnOtherPixels) {
  const DetectorConfig config = WithAllNoise();
  std::vector<double> values(kPixels);
  for (std::size_t pixel = 0; pixel < kPixels; ++pixel) values[pixel] = static_cast<double>(pixel * 37 % 90);
  const Counts before = Exposed(config, values);
  for (std::size_t pixel = 1; pixel < kPixels; pixel += 2) values[pixel] = static_cast<double>(pixel % 5000);
  const Counts after = Exposed(config, values);
  for (std::size_t pixel = 0; pixel < kPixels; pixel += 2) ASSERT_EQ(before[pixel], after[pixel]) << pixel;
  EXPECT_NE(before, after);
}

TEST(Detector, AFrameRepeatsByItsNumberInAnyThreadAndOrder) {
  const Detector detector(WithAllNoise());
  const std::vector<double> values(kPixels, 30.0);
  constexpr std::size_t kFrames = 3;
  std::vector<Counts> once(kFrames, Counts(kPixels));
  for (std::size_t number = 0; number < kFrames; ++number) detector.Expose(values, number, once[number]);
  std::vector<Counts> again(kFrames, Counts(kPixels));
  std::vector<std::thread> threads;
  threads.reserve(kFrames);
  for (std::size_t number = kFrames; number-- > 0;) {
    threads.emplace_back([&, number] { detector.Expose(values, number, again[number]); });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(once, again);
  EXPECT_NE(once[0], once[1]);
  EXPECT_NE(once[1], once[2]);
}

TEST(Detector, AllBitsOfSeedAndFrameNumberCount) {
  DetectorConfig config = WithAllNoise();
  const Counts counts = Exposed(config, 30.0);
  EXPECT_NE(counts, Exposed(config, 30.0, 1));
  EXPECT_NE(counts, Exposed(config, 30.0, std::uint64_t{1} << 32));
  config.seed = 1 + (std::uint64_t{1} << 63);
  EXPECT_NE(counts, Exposed(config, 30.0));
}

TEST(Detector, CopiesExposeTheSameFrames) {
  const Detector detector(WithAllNoise());
  const Detector copy = detector;  // NOLINT(performance-unnecessary-copy-initialization): what is tested
  const std::vector<double> values(kPixels, 30.0);
  Counts first(kPixels);
  Counts second(kPixels);
  detector.Expose(values, 5, first);
  copy.Expose(values, 5, second);
  EXPECT_EQ(first, second);
}

TEST(Detector, ExposingAllocatesNothing) {
  DetectorConfig config = WithAllNoise();
  AddHotPixels(1, 1000.0, 100.0, config);
  const Detector detector(config);
  const std::vector<double> values(kPixels, 30.0);
  Counts counts(kPixels);
  const std::size_t before = testing::Allocations();
  detector.Expose(values, 0, counts);
  EXPECT_EQ(testing::Allocations(), before);
}

// --- Maps ----------------------------------------------------------------------------------------------------------

TEST(DetectorMaps, FlatHasTheResponsesThatAreAskedFor) {
  const std::vector<double> map = DrawFlatMap(3, 0.02);
  ASSERT_EQ(map.size(), kPixels);
  double sum = 0.0;
  double squares = 0.0;
  for (const double response : map) {
    sum += response - 1.0;
    squares += (response - 1.0) * (response - 1.0);
  }
  const auto n = static_cast<double>(kPixels);
  EXPECT_NEAR(sum / n, 0.0, 5.0 * 0.02 / std::sqrt(n));
  EXPECT_NEAR(squares / n, 4e-4, 5.0 * 4e-4 * std::sqrt(2.0 / n));
  EXPECT_EQ(map, DrawFlatMap(3, 0.02));
  EXPECT_NE(map, DrawFlatMap(4, 0.02));
  const std::vector<double> widest = DrawFlatMap(3, 1.0);
  EXPECT_EQ(*std::ranges::min_element(widest), 0.0);
}

TEST(DetectorMaps, HotPixelsAreAsManyAndAsHotAsAskedFor) {
  DetectorConfig config;
  config.bad_pixels.assign(kPixels, PixelState::kDead);
  std::fill_n(config.bad_pixels.begin(), kPixels - 100, PixelState::kGood);
  AddHotPixels(8, 1000.0, 250.0, config);
  double number = 0.0;
  double sum = 0.0;
  for (std::size_t pixel = 0; pixel < kPixels; ++pixel) {
    if (config.bad_pixels[pixel] != PixelState::kHot) continue;
    ++number;
    sum += config.bad_pixel_levels[pixel];
  }
  EXPECT_NEAR(number, 685.0, 5.0 * std::sqrt(685.0));
  EXPECT_NEAR(sum / number, 250.0, 5.0 * 250.0 / std::sqrt(number));
  EXPECT_EQ(std::count(config.bad_pixels.end() - 100, config.bad_pixels.end(), PixelState::kDead), 100);
  EXPECT_NO_THROW(Detector{config});
}

TEST(DetectorMaps, RefuseWhatIsOutOfItsRange) {
  ExpectThrows<std::invalid_argument>("DrawFlatMap: rms must be from 0 to 1, found 2", [] { DrawFlatMap(1, 2.0); });
  DetectorConfig config;
  ExpectThrows<std::invalid_argument>("AddHotPixels: per_million must be from 0 to 1000000, found -1",
                                      [&] { AddHotPixels(1, -1.0, 1.0, config); });
  ExpectThrows<std::invalid_argument>("AddHotPixels: mean_level must be from 0 to 10000000, found nan",
                                      [&] { AddHotPixels(1, 1.0, kNan, config); });
  config.bad_pixels.resize(2);
  ExpectThrows<std::invalid_argument>("AddHotPixels: bad_pixels must have 685440 elements or none, found 2",
                                      [&] { AddHotPixels(1, 1.0, 1.0, config); });
  EXPECT_EQ(config.bad_pixels.size(), 2U);
  EXPECT_TRUE(config.bad_pixel_levels.empty());
}

}  // namespace
}  // namespace quen::detector
