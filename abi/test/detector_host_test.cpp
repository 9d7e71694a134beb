#include <gtest/gtest.h>

#include <type_traits>
#include <vector>

#include "abi/test/loaded.hpp"
#include "abi/test/offset.hpp"
#include "detector/detector.hpp"
#include "detector/maps.hpp"

// The detector as a host sees it that has values of its own, and no simulator; and its binary interface: hosts fill in
// the configuration and make room for the detector. A change there needs a new SOVERSION.

namespace {

using quen::detector::Detector;
using quen::detector::DetectorConfig;
using quen::detector::PixelState;
using quen::testing::IsLoaded;
using quen::testing::Offset;

TEST(HostOfDetector, ExposesValuesOfItsOwn) {
  DetectorConfig config;
  config.photon_noise = false;
  config.offset = 100.0;
  config.dark_map = quen::detector::DrawFlatMap(1, 0.0);
  const std::vector<double> values(quen::detector::kPixels, 40.0);
  std::vector<std::uint16_t> frame(quen::detector::kPixels);
  Detector(config).Expose(values, 1, frame);
  EXPECT_EQ(frame.front(), 141);
  EXPECT_EQ(frame.back(), 141);
}

TEST(HostOfDetector, HasNoSimulatorInItsProcess) {
  EXPECT_TRUE(IsLoaded("libquen_detector"));
  EXPECT_FALSE(IsLoaded("libquen_shssim_lib"));
  EXPECT_FALSE(IsLoaded("libcfitsio"));
}

TEST(DetectorBinaryInterface, ConfigInOrder) {
  constexpr std::size_t kVector = sizeof(std::vector<double>);
  EXPECT_EQ(Offset(&DetectorConfig::electrons_per_unit), 0U);
  EXPECT_EQ(Offset(&DetectorConfig::background), 8U);
  EXPECT_EQ(Offset(&DetectorConfig::dark), 16U);
  EXPECT_EQ(Offset(&DetectorConfig::photon_noise), 24U);
  EXPECT_EQ(Offset(&DetectorConfig::em_gain), 32U);
  EXPECT_EQ(Offset(&DetectorConfig::read_noise), 40U);
  EXPECT_EQ(Offset(&DetectorConfig::full_well), 48U);
  EXPECT_EQ(Offset(&DetectorConfig::gain), 64U);
  EXPECT_EQ(Offset(&DetectorConfig::offset), 72U);
  EXPECT_EQ(Offset(&DetectorConfig::bits), 80U);
  EXPECT_EQ(Offset(&DetectorConfig::flat_map), 88U);
  EXPECT_EQ(Offset(&DetectorConfig::dark_map), 88U + kVector);
  EXPECT_EQ(Offset(&DetectorConfig::offset_map), 88U + 2 * kVector);
  EXPECT_EQ(Offset(&DetectorConfig::bad_pixels), 88U + 3 * kVector);
  EXPECT_EQ(Offset(&DetectorConfig::bad_pixel_levels), 88U + 4 * kVector);
  EXPECT_EQ(Offset(&DetectorConfig::seed), 88U + 5 * kVector);
  EXPECT_EQ(sizeof(DetectorConfig), 96U + 5 * kVector);
}

TEST(DetectorBinaryInterface, DetectorTakesTheRoomThatHostsMake) {
  EXPECT_EQ(sizeof(Detector), 16U);
  static_assert(sizeof(PixelState) == 1 && int(PixelState::kDead) == 1 && int(PixelState::kHot) == 2 &&
                int(PixelState::kStuck) == 3);
}

}  // namespace
