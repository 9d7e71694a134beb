#include "workbench/sensor/mean_spot.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <functional>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "shssim/spot.hpp"
#include "testing/environment.hpp"
#include "testing/exceptions.hpp"
#include "testing/fits_files.hpp"
#include "workbench/sensor/calibration.hpp"
#include "workbench/sensor/calibration_lookup.hpp"
#include "workbench/sensor/dimensions.hpp"
#include "workbench/sensor/displacements.hpp"
#include "workbench/sensor/frame_measurement.hpp"

namespace quen::workbench {
namespace {

using quen::testing::TempDir;

constexpr std::size_t kSize = 21;

class MeanSpotTest : public ::testing::Test {
 protected:
  MeanSpotTest() {
    WriteCalibration(folder_.Path(), false);
    UseCalibration(folder_.Path());
    std::mt19937 random(5);  // NOLINT(cert-msc51-cpp): the same spots each time
    std::uniform_real_distribution<double> displacement(-2.0, 2.0);
    for (std::size_t i = 0; i < truth_.x.size(); ++i) {
      truth_.x[i] = displacement(random);
      truth_.y[i] = displacement(random);
    }
  }

  using Light = std::function<double(double, double)>;

  /// A frame of spots, displaced from their references.
  /// @param light     of a spot, at (u, v) from its place
  /// @param pedestal  counts of a pixel without light
  /// @param bitpix    of the file
  void WriteFrames(const Light& light, double pedestal = 0.0, int bitpix = SHORT_IMG) {
    WriteFrames(std::vector<Light>{light}, pedestal, bitpix);
  }
  /// A cube of such frames.
  void WriteFrames(const std::vector<Light>& lights, double pedestal = 0.0, int bitpix = SHORT_IMG) {
    std::vector<double> frames;
    for (const Light& light : lights) {
      const std::vector<double> pixels = Pixels(light, pedestal);
      frames.insert(frames.end(), pixels.begin(), pixels.end());
    }
    std::vector<long> dims = {kFrameWidth, kFrameHeight};
    if (lights.size() > 1) dims.push_back(static_cast<long>(lights.size()));
    std::filesystem::remove(Name());
    testing::WriteImage(Name(), bitpix, dims, frames);
  }

  [[nodiscard]] std::vector<double> Pixels(const Light& light, double pedestal) const {
    const Camera camera;
    std::vector<double> pixels(kFrameWidth * kFrameHeight, pedestal);
    for (std::size_t i = 0; i < truth_.x.size(); ++i) {
      const Roi& roi = camera.Rois()[i];
      for (std::size_t row = roi.y_low; row < roi.y_up; ++row) {
        for (std::size_t column = roi.x_low; column < roi.x_up; ++column) {
          const double u = static_cast<double>(column) - roi.x_ref - truth_.x[i];
          const double v = static_cast<double>(row) - roi.y_ref - truth_.y[i];
          pixels[column + kFrameWidth * row] = std::round(pedestal + light(u, v));
        }
      }
    }
    return pixels;
  }

  [[nodiscard]] std::string Name() const { return folder_ / "frames.fits"; }

  [[nodiscard]] SpotTemplate Mean() const {
    const InputFile file(Name());
    Camera camera;
    return MeanSpot(FrameReader(file, ""), {}, camera);
  }

  /// RMS error of a measurement of the frames.
  [[nodiscard]] double Error(const std::string& engine, const std::optional<SpotTemplate>& spot) const {
    const InputFile file(Name());
    Camera camera;
    const MeasuredFrames measured =
        MeasureFrames(FrameReader(file, ""), camera, {.engine = engine, .spot = spot, .truth = truth_});
    return std::hypot(measured.error_x.Rms(), measured.error_y.Rms());
  }

  TempDir folder_;
  Displacements truth_;
};

double Drawn(double u, double v) { return shssim::kSpotPeak * std::exp(shssim::kSpotExponent * (u * u + v * v)); }

/// Brighter on one side: its centre of gravity is not where it is brightest.
double Comet(double u, double v) {
  const auto gaussian = [&](double x, double y, double sigma) {
    return std::exp(-0.5 * ((u - x) * (u - x) + (v - y) * (v - y)) / (sigma * sigma));
  };
  constexpr double kTail = 0.5;
  // The tail has 0.5 · (3 / 1.5)² = 2 thirds of the light: the two balance.
  return 3000.0 * (gaussian(-2.0, -1.0, 1.5) + kTail * gaussian(1.0, 0.5, 3.0));
}

double LargestDifference(const SpotTemplate& spot, const std::function<double(double, double)>& light) {
  double largest = 0.0;
  for (std::size_t k = 0; k < spot.values.size(); ++k) {
    const std::size_t row = k / kSize;
    const double u = static_cast<double>(k % kSize) - 10.0;
    const double v = static_cast<double>(row) - 10.0;
    largest = std::max(largest, std::abs(spot.values[k] - light(u, v) / light(0.0, 0.0)));
  }
  return largest;
}

TEST_F(MeanSpotTest, OfDrawnSpotsIsTheDrawnSpot) {
  constexpr double kResampling = 0.004;  // of the peak: what cubic convolution makes of a Gaussian of sigma 2
  WriteFrames(Drawn);
  const SpotTemplate spot = Mean();
  EXPECT_EQ(spot.size, kSize);
  ASSERT_EQ(spot.values.size(), kSize * kSize);
  EXPECT_EQ(spot.values[kSize * 10 + 10], 1.0);
  EXPECT_LT(LargestDifference(spot, Drawn), kResampling);
}

TEST_F(MeanSpotTest, HasItsCentreOfGravityInTheMiddle) {
  constexpr double kNear = 2e-3;  // pixels
  WriteFrames(Comet);
  const SpotTemplate spot = Mean();
  double light = 0.0;
  double x = 0.0;
  double y = 0.0;
  for (std::size_t k = 0; k < spot.values.size(); ++k) {
    const std::size_t row = k / kSize;
    light += spot.values[k];
    x += spot.values[k] * (static_cast<double>(k % kSize) - 10.0);
    y += spot.values[k] * (static_cast<double>(row) - 10.0);
  }
  EXPECT_NEAR(x / light, 0.0, kNear);
  EXPECT_NEAR(y / light, 0.0, kNear);
}

TEST_F(MeanSpotTest, FindsSpotsThatTheDrawnOneMisses) {
  constexpr double kSmall = 0.03;  // pixels: regions cut the comets' tails
  WriteFrames(Comet);
  EXPECT_GT(Error("correlation:top=surface", std::nullopt), 1.0);
  EXPECT_LT(Error("correlation:top=surface", Mean()), kSmall);
}

TEST_F(MeanSpotTest, LeavesThePedestalAside) {
  constexpr double kRounding = 1e-12;
  WriteFrames(Drawn);
  const SpotTemplate without = Mean();
  WriteFrames(Drawn, 40'000.0, USHORT_IMG);
  const SpotTemplate with = Mean();
  for (std::size_t k = 0; k < with.values.size(); ++k) EXPECT_NEAR(with.values[k], without.values[k], kRounding);
}

TEST_F(MeanSpotTest, OfACubeIsThatOfAllItsFrames) {
  constexpr double kRounding = 1e-3;  // of pixels to whole numbers, and of places
  WriteFrames(Drawn);
  const SpotTemplate drawn = Mean();
  const auto broad = [](double u, double v) { return 3000.0 * std::exp(-0.06 * (u * u + v * v)); };
  WriteFrames(broad);
  const SpotTemplate other = Mean();
  WriteFrames(std::vector<Light>{Drawn, broad});
  const SpotTemplate both = Mean();
  for (std::size_t k = 0; k < both.values.size(); ++k) {
    const double mean = (shssim::kSpotPeak * drawn.values[k] + 3000.0 * other.values[k]) / (shssim::kSpotPeak + 3000.0);
    EXPECT_NEAR(both.values[k], mean, kRounding) << k;
  }
}

TEST_F(MeanSpotTest, IsNoneWithoutLight) {
  WriteFrames([](double, double) { return 0.0; });
  testing::ExpectThrows<std::runtime_error>(Name() + ": there is no spot in it to make a template of",
                                            [&] { static_cast<void>(Mean()); });
  testing::WriteImage(folder_ / "small.fits", SHORT_IMG, {3, 3}, testing::Ramp(9));
  const InputFile small(folder_ / "small.fits");
  Camera camera;
  testing::ExpectThrows<std::runtime_error>(
      folder_ / "small.fits" + ": expected a frame of 840 x 816 pixels (columns x rows), found 3 x 3",
      [&] { static_cast<void>(MeanSpot(FrameReader(small, ""), {}, camera)); });
}

}  // namespace
}  // namespace quen::workbench
