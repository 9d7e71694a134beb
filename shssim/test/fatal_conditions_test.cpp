#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <random>

#include "shssim/test/simulator_under_test.hpp"
#include "testing/calibration.hpp"

// What ends the process, seen by a host that links the shared library and is itself compiled without assertions and
// without optimisation: its own weak copies of the standard library's code must not replace the library's.
#ifdef _GLIBCXX_ASSERTIONS
#error "this test stands for a host without assertions"
#endif

namespace quen::shssim {
namespace {

using quen::image_processing::Centroiding;
using quen::image_processing::Roi;
using quen::testing::SimulatorUnderTest;

constexpr const char* kBadNoise = "Assertion '_M_a <= _M_b' failed";
constexpr const char* kBadIndex = "Assertion '__n < this->size\\(\\)' failed";
constexpr const char* kBadLimit = "Assertion '!\\(__hi < __lo\\)' failed";

class Still : public Centroiding<std::uint16_t> {
 public:
  void Compute(gsl::span<const std::uint16_t> /*frame*/, const Roi& /*roi*/) override {}
};

class FatalConditionsDeathTest : public ::testing::Test {
 protected:
  FatalConditionsDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

  void Render(double noise) { simulator_.ComputeFrame(zeros_, zeros_, noise, std::nullopt); }
  void Measure(double slope_limit) { simulator_.ComputeSlopes(still_, slope_limit, std::nullopt); }

  testing::CalibrationFolder folder_;
  SimulatorUnderTest simulator_;
  std::vector<double> zeros_ = std::vector<double>(1089);
  Still still_;
};

TEST(HostWithoutAssertions, HasCopiesOfItsOwnThatCheckNothing) {
  // The same pieces of the standard library that the library relies on, emitted here as weak symbols.
  const std::uniform_real_distribution<double> backwards(1.0, -1.0);
  EXPECT_EQ(backwards.a(), 1.0);
  EXPECT_EQ(std::clamp(0.0, 1.0, -1.0), -1.0);
  std::vector<double> values(2);
  values.reserve(3);
  EXPECT_NE(&values[2], nullptr);
  const std::vector<double> constant_values = {1.0};
  EXPECT_EQ(constant_values[0], 1.0);
  std::vector<std::uint16_t> pixels(2);
  pixels.reserve(3);
  EXPECT_NE(&pixels[2], nullptr);
  std::vector<std::uint8_t> flags(2);
  flags.reserve(3);
  EXPECT_NE(&flags[2], nullptr);
  std::vector<Roi> rois(2, Roi(0, 0, 0, 0, 0, 0, 0, 0));
  rois.reserve(3);
  EXPECT_NE(&rois[2], nullptr);
  const std::vector<Roi>& constant_rois = rois;
  EXPECT_EQ(constant_rois[0].x_low, 0);
}

TEST_F(FatalConditionsDeathTest, NegativeOrNanNoiseAtTheFirstPixel) {
  for (const double noise :
       {-1.0, -1e-300, -std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN()}) {
    EXPECT_DEATH(Render(noise), kBadNoise) << noise;
  }
  simulator_.rois.assign(1089, Roi(5, 5, 7, 7, 840, 816, 0, 0));
  Render(-1.0);  // no pixel, no end
  simulator_.rois.back() = Roi(839, 840, 815, 816, 840, 816, 0, 0);
  EXPECT_DEATH(Render(-1.0), kBadNoise);
}

TEST_F(FatalConditionsDeathTest, PixelOutsideTheFrame) {
  simulator_.rois.back() = Roi(0, 1, 816, 817, 840, 1000, 0, 0);  // far from its spot
  EXPECT_DEATH(Render(0.0), kBadIndex);
  simulator_.rois.back() = Roi(0, 1, 816, 817, 840, 1000, 0, 816);  // near it
  EXPECT_DEATH(Render(0.0), kBadIndex);
}

TEST_F(FatalConditionsDeathTest, PixelOutsideOneOfTheTwoFrames) {
  simulator_.rois.assign(1089, Roi(0, 9, 0, 9, 840, 816, 4, 4));
  simulator_.frame_values.resize(6000);
  EXPECT_DEATH(Render(0.0), kBadIndex);
  simulator_.frame_values.resize(685440);
  simulator_.frame.resize(6000);
  EXPECT_DEATH(Render(0.0), kBadIndex);
}

TEST_F(FatalConditionsDeathTest, NegativeSlopeLimitAtTheFirstUsedSubAperture) {
  EXPECT_DEATH(Measure(-1e-9), kBadLimit);
  simulator_.rois_used.assign(1089, 0);
  Measure(-1.0);  // none used, no end
  simulator_.rois_used.back() = 1;
  EXPECT_DEATH(Measure(-1.0), kBadLimit);
}

TEST_F(FatalConditionsDeathTest, FlagsThatEndBeforeThe607thUsedOne) {
  simulator_.rois_used.assign(606, 1);
  EXPECT_DEATH(Measure(1.0), kBadIndex);
  simulator_.rois_used.assign(1088, 0);
  EXPECT_DEATH(Measure(1.0), kBadIndex);
  simulator_.rois_used.clear();
  EXPECT_DEATH(Measure(1.0), kBadIndex);
}

TEST_F(FatalConditionsDeathTest, RegionsThatEndBeforeThe607thUsedOne) {
  simulator_.rois.resize(606, simulator_.rois[0]);
  EXPECT_DEATH(Measure(1.0), kBadIndex);
}

}  // namespace
}  // namespace quen::shssim
