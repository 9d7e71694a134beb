#include <gtest/gtest.h>

#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "centroiders/centre_of_gravity.hpp"
#include "testing/exceptions.hpp"

// The engines as a host sees them that has frames of its own, and no simulator.

namespace {

using quen::centroiders::CentreOfGravity;
using quen::image_processing::Roi;

TEST(HostOfEngines, MeasuresAFrameOfItsOwn) {
  std::vector<std::uint16_t> frame(std::size_t{8} * 8);
  frame[3 + 8 * 5] = 100;
  frame[4 + 8 * 5] = 300;
  CentreOfGravity engine;
  engine.Compute(frame, Roi(1, 7, 1, 7, 8, 8, 3.5, 4.5));
  EXPECT_EQ(engine.flux, 400.0);
  EXPECT_EQ(engine.x, 0.25);
  EXPECT_EQ(engine.y, 0.5);
}

TEST(HostOfEngines, IsToldOfAWrongRegion) {
  quen::testing::ExpectThrows<std::invalid_argument>("Roi: invalid coordinates: (7..1),(1..7)",
                                                     [] { Roi(7, 1, 1, 7, 8, 8, 3.5, 4.5); });
}

TEST(HostOfEngines, HasNoSimulatorInItsProcess) {
  std::ifstream maps("/proc/self/maps");
  bool has_engines = false;
  for (std::string line; std::getline(maps, line);) {
    has_engines = has_engines || line.find("libquen_engines") != std::string::npos;
    EXPECT_EQ(line.find("libquen_shssim_lib"), std::string::npos) << line;
  }
  EXPECT_TRUE(has_engines);
}

}  // namespace
