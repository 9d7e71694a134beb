#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

#include "abi/test/loaded.hpp"
#include "centroiders/centre_of_gravity.hpp"
#include "testing/exceptions.hpp"

// The engines as a host sees them that has frames of its own, and no simulator.

namespace {

using quen::centroiders::CentreOfGravity;
using quen::image_processing::Roi;
using quen::testing::IsLoaded;

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
  EXPECT_TRUE(IsLoaded("libquen_engines"));
  EXPECT_FALSE(IsLoaded("libquen_shssim_lib"));
  EXPECT_FALSE(IsLoaded("libcfitsio"));
}

}  // namespace
