#include "workbench/sensor/hot_pixels.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "detector/detector.hpp"

// Which pixels are told from spots, from noise and from single photons.

namespace quen::workbench {
namespace {

constexpr std::size_t kSide = 24;
constexpr std::size_t kAcross = detector::kWidth / kSide;
constexpr std::size_t kDown = detector::kHeight / kSide;
constexpr std::size_t kUsed = 607;

std::vector<Roi> Regions() {
  std::vector<Roi> rois;
  for (std::size_t i = 0; i < kUsed; ++i) {
    const auto x = static_cast<std::uint16_t>(i % kAcross * kSide);
    const auto y = static_cast<std::uint16_t>(i / kAcross * kSide);
    rois.emplace_back(x, static_cast<std::uint16_t>(x + kSide), y, static_cast<std::uint16_t>(y + kSide),
                      detector::kWidth, detector::kHeight, x + 11.5, y + 11.5);
  }
  return rois;
}

/// A spot of some electrons and deviation in each region, on a background.
std::vector<double> Spots(double electrons, double sigma, double background) {
  std::vector<double> values(detector::kPixels, background);
  for (std::size_t y = 0; y < kDown * kSide; ++y) {
    for (std::size_t x = 0; x < kAcross * kSide; ++x) {
      const double u = static_cast<double>(x % kSide) - 9.3;
      const double v = static_cast<double>(y % kSide) - 12.4;
      values[x + detector::kWidth * y] +=
          electrons / (6.2832 * sigma * sigma) * std::exp(-0.5 * (u * u + v * v) / (sigma * sigma));
    }
  }
  return values;
}

std::vector<double> Exposed(const std::vector<double>& expected, const detector::DetectorConfig& config,
                            std::uint64_t frame) {
  std::vector<std::uint16_t> counts(detector::kPixels);
  detector::Detector(config).Expose(expected, frame, counts);
  return {counts.begin(), counts.end()};
}

HotPixels HotIn(const std::vector<std::vector<double>>& frames) {
  const std::vector<std::uint8_t> all_used(kUsed, 1);
  HotPixelSearch search;
  for (const std::vector<double>& frame : frames) search.Add(frame, detector::kWidth, Regions(), all_used);
  return search.Found();
}

TEST(HotPixelSearch, FindsNoneWhereThereIsNone) {
  for (const double electrons : {0.0, 300.0, 10'000.0, 1e6}) {
    for (const double sigma : {0.4, 1.0, 3.5}) {
      for (const double read_noise : {0.0, 3.0}) {
        for (const double background : {0.01, 500.0}) {
          const detector::DetectorConfig config = {.read_noise = read_noise, .offset = 200.0, .seed = 5};
          const std::vector<double> frame = Exposed(Spots(electrons, sigma, background), config, 1);
          EXPECT_EQ(HotIn({frame}).pixels, 0U)
              << electrons << " electrons, " << sigma << " pixels, " << read_noise << ", " << background;
        }
      }
    }
  }
}

TEST(HotPixelSearch, FindsNoneAmongMultipliedPhotons) {
  for (const double background : {0.003, 0.03, 0.3}) {
    const detector::DetectorConfig config = {.em_gain = 300.0, .read_noise = 40.0, .gain = 0.1, .offset = 200.0};
    const std::vector<double> expected = Spots(300.0, 2.0, background);
    EXPECT_EQ(HotIn({Exposed(expected, config, 1)}).pixels, 0U) << background;
    EXPECT_EQ(HotIn({Exposed(expected, config, 1), Exposed(expected, config, 2), Exposed(expected, config, 3)}).pixels,
              0U)
        << background;
  }
}

TEST(HotPixelSearch, FindsThoseThatAreThere) {
  const detector::DetectorConfig config = {.read_noise = 3.0, .offset = 200.0};
  std::vector<double> expected = Spots(3000.0, 2.0, 1.0);
  const auto heat = [&](std::size_t column, std::size_t row, double electrons) {
    expected[column + detector::kWidth * row] += electrons;
  };
  heat(kSide * 5 + 18, kSide * 7 + 3, 400.0);
  heat(kSide * 5 + 3, kSide * 7 + 20, 900.0);
  heat(kSide * 9, kSide * 9, 300.0);             // in a corner
  heat(kSide * 11 + 10, kSide * 3 + 12, 500.0);  // on a spot, where nobody can tell
  const HotPixels hot = HotIn({Exposed(expected, config, 1)});
  EXPECT_EQ(hot.pixels, 3U);
  EXPECT_EQ(hot.spots, 2U);
  EXPECT_EQ(hot.column, kSide * 5 + 3);
  EXPECT_EQ(hot.row, kSide * 7 + 20);
}

TEST(HotPixelSearch, PixelsThatDoNotCountAreNone) {
  std::vector<double> frame = Spots(3000.0, 2.0, 1.0);
  frame[18 + detector::kWidth * 3] = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(HotIn({frame}).pixels, 0U);
}

TEST(HotPixelSearch, InFewFramesMustBeInAllAndInFewRegions) {
  const std::vector<double> good = Spots(3000.0, 2.0, 1.0);
  std::vector<double> one = good;
  one[18 + detector::kWidth * 3] += 1000.0;
  EXPECT_EQ(HotIn({good, one}).pixels, 0U);
  EXPECT_EQ(HotIn({one, one}).pixels, 1U);
  EXPECT_EQ(HotIn({good, one, one}).pixels, 0U);
  EXPECT_EQ(HotIn({one, one, good, one}).pixels, 1U);
  std::vector<double> many = good;
  for (std::size_t i = 0; i < kUsed; i += 4) {
    many[i % kAcross * kSide + 18 + detector::kWidth * (i / kAcross * kSide + 3)] += 1000.0;
  }
  EXPECT_EQ(HotIn({many}).pixels, 0U);
  EXPECT_EQ(HotIn({many, many, many}).pixels, (kUsed + 3) / 4);
}

}  // namespace
}  // namespace quen::workbench
