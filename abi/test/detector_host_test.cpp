#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <string>
#include <type_traits>
#include <vector>

#include "detector/detector.hpp"
#include "detector/maps.hpp"

// The detector as a host sees it that has values of its own, and no simulator; and its binary interface: hosts fill in
// the configuration and make room for the detector. A change there needs a new SOVERSION.

namespace {

using quen::detector::Detector;
using quen::detector::DetectorConfig;
using quen::detector::PixelState;

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
  std::ifstream maps("/proc/self/maps");
  bool has_detector = false;
  for (std::string line; std::getline(maps, line);) {
    has_detector = has_detector || line.find("libquen_detector") != std::string::npos;
    EXPECT_EQ(line.find("libquen_shssim_lib"), std::string::npos) << line;
    EXPECT_EQ(line.find("libcfitsio"), std::string::npos) << line;
  }
  EXPECT_TRUE(has_detector);
}

/// Where a member is in its object.
template <typename M>
std::size_t OffsetOf(M DetectorConfig::*member) {
  std::ptrdiff_t offset = -1;  // which is what a pointer to a data member holds
  static_assert(sizeof(member) == sizeof(offset));
  std::memcpy(&offset, &member, sizeof(offset));
  return static_cast<std::size_t>(offset);
}

TEST(DetectorBinaryInterface, ConfigInOrder) {
  constexpr std::size_t kVector = sizeof(std::vector<double>);
  EXPECT_EQ(OffsetOf(&DetectorConfig::electrons_per_unit), 0U);
  EXPECT_EQ(OffsetOf(&DetectorConfig::background), 8U);
  EXPECT_EQ(OffsetOf(&DetectorConfig::dark), 16U);
  EXPECT_EQ(OffsetOf(&DetectorConfig::photon_noise), 24U);
  EXPECT_EQ(OffsetOf(&DetectorConfig::em_gain), 32U);
  EXPECT_EQ(OffsetOf(&DetectorConfig::read_noise), 40U);
  EXPECT_EQ(OffsetOf(&DetectorConfig::full_well), 48U);
  EXPECT_EQ(OffsetOf(&DetectorConfig::gain), 64U);
  EXPECT_EQ(OffsetOf(&DetectorConfig::offset), 72U);
  EXPECT_EQ(OffsetOf(&DetectorConfig::bits), 80U);
  EXPECT_EQ(OffsetOf(&DetectorConfig::flat_map), 88U);
  EXPECT_EQ(OffsetOf(&DetectorConfig::dark_map), 88U + kVector);
  EXPECT_EQ(OffsetOf(&DetectorConfig::offset_map), 88U + 2 * kVector);
  EXPECT_EQ(OffsetOf(&DetectorConfig::bad_pixels), 88U + 3 * kVector);
  EXPECT_EQ(OffsetOf(&DetectorConfig::bad_pixel_levels), 88U + 4 * kVector);
  EXPECT_EQ(OffsetOf(&DetectorConfig::seed), 88U + 5 * kVector);
  EXPECT_EQ(sizeof(DetectorConfig), 96U + 5 * kVector);
}

TEST(DetectorBinaryInterface, DetectorTakesTheRoomThatHostsMake) {
  EXPECT_EQ(sizeof(Detector), 16U);
  static_assert(sizeof(PixelState) == 1 && int(PixelState::kDead) == 1 && int(PixelState::kHot) == 2 &&
                int(PixelState::kStuck) == 3);
}

}  // namespace
