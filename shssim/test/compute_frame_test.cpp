#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <limits>

#include "common/random/random.hpp"
#include "shssim/test/simulator_under_test.hpp"
#include "shssim/truncation.hpp"
#include "testing/allocations.hpp"
#include "testing/calibration.hpp"
#include "testing/exceptions.hpp"
#include "testing/second_reader.hpp"
#include "testing/values.hpp"

namespace quen::shssim {
namespace {

using quen::common::random::detail::MersenneTwisterEngine;
using quen::image_processing::Roi;
using quen::testing::CalibrationFolder;
using quen::testing::ExpectThrows;
using quen::testing::ExpectThrowsWithDetails;
using quen::testing::Index;
using quen::testing::kInfinity;
using quen::testing::kNan;
using quen::testing::OpenDescriptors;
using quen::testing::PlainFrames;
using quen::testing::RandomNumbers;
using quen::testing::SameValues;
using quen::testing::SimulatorUnderTest;

constexpr const char* kIncompatible = "ShsSimulator::ComputeFrame: incompatible configuration";

class ComputeFrame : public ::testing::Test {
 protected:
  /// Renders with the simulator and with the formula, from the same state of the generator, and expects the same bits
  /// and the same state after.
  void ExpectAsTheFormula(double noise, std::uint32_t seed, unsigned long long skip = 0) {
    std::mt19937 generator(seed);
    generator.discard(skip);
    MersenneTwisterEngine() = generator;
    simulator_.ComputeFrame(dx_, dy_, noise, std::nullopt);
    plain_.Render(simulator_.rois, dx_, dy_, noise, generator);
    EXPECT_TRUE(SameValues(simulator_.frame_values, plain_.values));
    EXPECT_EQ(simulator_.frame, plain_.pixels);
    EXPECT_TRUE(MersenneTwisterEngine() == generator);
  }

  /// Leaves no pixel to draw.
  void EmptyAllRegions() { std::ranges::fill(simulator_.rois, Roi(5, 5, 7, 7, 840, 816, 0, 0)); }

  CalibrationFolder folder_;
  SimulatorUnderTest simulator_;
  PlainFrames plain_;
  std::vector<double> dx_ = RandomNumbers(1089, 2.0, 1);
  std::vector<double> dy_ = RandomNumbers(1089, 2.0, 2);
};

TEST(ShsSimulator, FailuresOfTheBasePassUnchanged) {
  const CalibrationFolder folder;
  std::filesystem::remove(folder / "data/CM.fits");
  ExpectThrows<std::runtime_error>(
      "Simulator can not initialize: FileSystem: Path or file data/CM.fits not found, searched in:\n/\n./\n"
      "$CFGPATH ()\n",
      [] { ShsSimulator(); });
}

TEST_F(ComputeFrame, FreshSimulatorHoldsZeros) {
  EXPECT_EQ(simulator_.FrameValues(), std::vector<double>(685440));
  EXPECT_EQ(simulator_.Frame(), std::vector<std::uint16_t>(685440));
  EXPECT_EQ(simulator_.FluxUsed(), std::vector<double>(607));
  EXPECT_EQ(simulator_.Slopes(), std::vector<double>(1214));
  EXPECT_EQ(simulator_.Flux(), std::vector<double>(1089));
  EXPECT_EQ(simulator_.XSlopes(), std::vector<double>(1089));
  EXPECT_EQ(simulator_.XSlopesUsed(), std::vector<double>(607));
  EXPECT_EQ(simulator_.YSlopes(), std::vector<double>(1089));
  EXPECT_EQ(simulator_.YSlopesUsed(), std::vector<double>(607));
  static_assert(kNumRoisUsed == 607 && kSpotPeak == 4096.0);
}

TEST_F(ComputeFrame, EqualsTheFormula) {
  for (const double noise : {0.0, 0.25, 10.0, 1e6}) {
    ExpectAsTheFormula(noise, 42);
  }
}

TEST_F(ComputeFrame, EqualsTheFormulaFromEveryGeneratorPosition) {
  for (const unsigned long long skip : {1ULL, 2ULL, 311ULL, 622ULL, 623ULL, 624ULL, 625ULL, 1247ULL}) {
    ExpectAsTheFormula(10.0, 43, skip);
  }
}

TEST_F(ComputeFrame, GeneratorAdvancesWithoutNoiseToo) {
  std::mt19937 generator(9);
  MersenneTwisterEngine() = generator;
  simulator_.ComputeFrame(dx_, dy_, 0.0, std::nullopt);
  generator.discard(2ULL * 1089 * 24 * 24);
  EXPECT_TRUE(MersenneTwisterEngine() == generator);
}

TEST_F(ComputeFrame, LaterRegionWinsWhereTwoOverlap) {
  simulator_.rois[7] = simulator_.rois[3].Enlarge(5);
  ExpectAsTheFormula(10.0, 44);
  dx_.assign(1089, 0.0);
  dy_.assign(1089, 0.0);
  dx_[7] = -3.0;
  simulator_.ComputeFrame(dx_, dy_, 0.0, std::nullopt);
  const Roi& earlier = simulator_.rois[3];
  const double r2 = (0.5 + 3.0) * (0.5 + 3.0) + 0.25;
  EXPECT_EQ(simulator_.frame_values[Index(earlier.x_low + 12U, earlier.y_low + 12U)], 4096.0 * std::exp(-0.125 * r2));
}

TEST_F(ComputeFrame, OddRegionsEqualTheFormula) {
  simulator_.rois[0] = Roi(0, 1, 0, 1, 840, 816, 0, 0);              // one pixel
  simulator_.rois[1] = Roi(5, 5, 7, 70, 840, 816, 5, 7);             // empty
  simulator_.rois[2] = Roi(833, 840, 800, 816, 840, 816, 840, 816);  // touches both far edges
  simulator_.rois[3] = Roi(100, 117, 50, 51, 840, 816, 0, 816);      // reference far outside
  simulator_.rois[4] = Roi(0, 840, 0, 816, 840, 816, 419.3, 407.9);  // whole frame
  ExpectAsTheFormula(10.0, 45);
}

TEST_F(ComputeFrame, FarInfiniteAndNanCentresEqualTheFormula) {
  dx_[0] = 1e9;
  dx_[1] = kInfinity;
  dy_[2] = -kInfinity;
  dx_[3] = kNan;
  simulator_.rois[4].x_ref = kNan;
  dx_[5] = 1e200;
  dy_[6] = 80.0;
  ExpectAsTheFormula(10.0, 46);
  ExpectAsTheFormula(0.0, 46);
  const Roi& roi = simulator_.rois[3];
  EXPECT_EQ(simulator_.frame[Index(roi.x_low, roi.y_low)], 0);
}

TEST_F(ComputeFrame, InfiniteNoiseEqualsTheFormula) {
  ExpectAsTheFormula(kInfinity, 47);
  ExpectAsTheFormula(std::numeric_limits<double>::max(), 47);
}

TEST_F(ComputeFrame, SpotOnAPixelHasThePeakThere) {
  simulator_.rois[0] = Roi(24, 48, 12, 36, 840, 816, 35.0, 23.0);
  const std::vector<double> still(1089);
  simulator_.ComputeFrame(still, still, 0.0, std::nullopt);
  EXPECT_EQ(simulator_.frame_values[Index(35, 23)], 4096.0);
  EXPECT_EQ(simulator_.frame[Index(35, 23)], 4096);
  EXPECT_EQ(simulator_.frame_values[Index(37, 23)], 4096.0 * std::exp(-0.5));
  EXPECT_EQ(simulator_.frame_values[Index(35, 25)], 4096.0 * std::exp(-0.5));
}

TEST_F(ComputeFrame, DisplacementMovesTowardHigherColumnsAndRows) {
  simulator_.rois[0] = Roi(24, 48, 12, 36, 840, 816, 35.0, 23.0);
  std::vector<double> right(1089);
  std::vector<double> down(1089);
  right[0] = 3.0;
  down[0] = -4.0;
  simulator_.ComputeFrame(right, down, 0.0, std::nullopt);
  EXPECT_EQ(simulator_.frame_values[Index(38, 19)], 4096.0);
}

TEST_F(ComputeFrame, PixelsOutsideAllRegionsStayZero) {
  simulator_.ComputeFrame(dx_, dy_, 100.0, std::nullopt);
  for (std::size_t x = 0; x < 840; ++x) {
    ASSERT_EQ(simulator_.frame_values[Index(x, 11)], 0.0);
    ASSERT_EQ(simulator_.frame[Index(x, 804)], 0);
  }
  for (std::size_t y = 0; y < 816; ++y) {
    ASSERT_EQ(simulator_.frame_values[Index(23, y)], 0.0);
    ASSERT_EQ(simulator_.frame[Index(816, y)], 0);
  }
}

TEST_F(ComputeFrame, ValueBelowOneIsTruncatedToZero) {
  EXPECT_EQ(TruncateToPixel(0.9), 0);
  EXPECT_EQ(TruncateToPixel(-0.9), 0);
  EXPECT_EQ(TruncateToPixel(-1.5), 65535);
  EXPECT_EQ(TruncateToPixel(70000.9), 4464);
  EXPECT_EQ(TruncateToPixel(4095.999), 4095);
  // 4096 · exp(−r²/8) = 0.9 at the distance r.
  const double r = std::sqrt(8.0 * std::log(4096.0 / 0.9));
  simulator_.rois[0] = Roi(24, 48, 12, 36, 840, 816, 24.0 + r, 12.0);
  const std::vector<double> still(1089);
  simulator_.ComputeFrame(still, still, 0.0, std::nullopt);
  EXPECT_NEAR(simulator_.frame_values[Index(24, 12)], 0.9, 1e-12);
  EXPECT_EQ(simulator_.frame[Index(24, 12)], 0);
}

TEST(Truncation, LastValuesThatFitAreTruncatedTowardZero) {
  EXPECT_EQ(TruncateToInt32(2147483647.5), 2147483647);
  EXPECT_EQ(TruncateToInt32(-2147483647.5), -2147483647);
  EXPECT_EQ(TruncateToInt32(-2147483648.5), std::numeric_limits<std::int32_t>::min());
}

TEST(Truncation, ValuesThatDoNotFitGiveTheMostNegativeInteger) {
  constexpr std::int32_t kMin = std::numeric_limits<std::int32_t>::min();
  for (const double value : {kNan, kInfinity, -kInfinity, 2147483648.0, -2147483649.0, 1e300, -1e300}) {
    EXPECT_EQ(TruncateToInt32(value), kMin) << value;
    EXPECT_EQ(TruncateToPixel(value), 0) << value;
  }
  EXPECT_EQ(TruncateToInt32(2147483647.9), 2147483647);
  EXPECT_EQ(TruncateToInt32(-2147483648.9), kMin);
  EXPECT_EQ(TruncateToInt32(-2147483647.9), -2147483647);
  EXPECT_EQ(TruncateToPixel(2147483647.9), 65535);
}

TEST(Truncation, EqualsTheProcessorsConversion) {
  for (const double value : {0.0, -0.0, 0.5, -0.5, 65535.99, -65536.5, 2147483647.5, -2147483648.5, kNan, kInfinity}) {
    std::int32_t converted = 0;
    asm("cvttsd2si %1, %0" : "=r"(converted) : "x"(value));
    EXPECT_EQ(TruncateToInt32(value), converted) << value;
  }
}

TEST_F(ComputeFrame, NoiseMakesFramesDifferAndNoNoiseRepeatsThem) {
  simulator_.ComputeFrame(dx_, dy_, 10.0, std::nullopt);
  const std::vector<double> first = simulator_.frame_values;
  simulator_.ComputeFrame(dx_, dy_, 10.0, std::nullopt);
  EXPECT_NE(simulator_.frame_values, first);
  simulator_.ComputeFrame(dx_, dy_, 0.0, std::nullopt);
  const std::vector<double> still = simulator_.frame_values;
  simulator_.ComputeFrame(dx_, dy_, 0.0, std::nullopt);
  EXPECT_EQ(simulator_.frame_values, still);
}

TEST_F(ComputeFrame, AssignedGeneratorMakesTheRunRepeatable) {
  MersenneTwisterEngine().seed(5);
  simulator_.ComputeFrame(dx_, dy_, 10.0, std::nullopt);
  const std::vector<std::uint16_t> first = simulator_.frame;
  MersenneTwisterEngine().seed(5);
  simulator_.ComputeFrame(dx_, dy_, 10.0, std::nullopt);
  EXPECT_EQ(simulator_.frame, first);
}

TEST_F(ComputeFrame, WrongSizesAreRefusedAndBothFramesStay) {
  simulator_.ComputeFrame(dx_, dy_, 10.0, std::nullopt);
  const std::vector<double> values = simulator_.frame_values;
  const std::vector<std::uint16_t> pixels = simulator_.frame;
  const std::mt19937 generator = MersenneTwisterEngine();
  const std::vector<double> shorter(1088);
  const std::vector<double> longer(1090);
  for (const auto& wrong : {shorter, longer, std::vector<double>()}) {
    ExpectThrows<std::invalid_argument>(kIncompatible,
                                        [&] { simulator_.ComputeFrame(wrong, dy_, 10.0, folder_ / "no.fits"); });
    ExpectThrows<std::invalid_argument>(kIncompatible,
                                        [&] { simulator_.ComputeFrame(dx_, wrong, 10.0, folder_ / "no.fits"); });
  }
  const Roi last = simulator_.rois.back();
  simulator_.rois.pop_back();
  ExpectThrows<std::invalid_argument>(kIncompatible, [&] { simulator_.ComputeFrame(dx_, dy_, -1.0, std::nullopt); });
  simulator_.rois.push_back(last);
  simulator_.rois.push_back(last);
  ExpectThrows<std::invalid_argument>(kIncompatible, [&] { simulator_.ComputeFrame(dx_, dy_, -1.0, std::nullopt); });
  EXPECT_EQ(simulator_.frame_values, values);
  EXPECT_EQ(simulator_.frame, pixels);
  EXPECT_TRUE(MersenneTwisterEngine() == generator);
  EXPECT_FALSE(std::filesystem::exists(folder_ / "no.fits"));
}

TEST_F(ComputeFrame, BadNoiseDoesNotMatterWhereNoPixelIsDrawn) {
  EmptyAllRegions();
  for (const double noise : {-1.0, kNan}) simulator_.ComputeFrame(dx_, dy_, noise, std::nullopt);
  EXPECT_EQ(simulator_.frame_values, std::vector<double>(685440));
}

TEST_F(ComputeFrame, MinusZeroIsGoodNoise) { ExpectAsTheFormula(-0.0, 48); }

TEST_F(ComputeFrame, AllocatesNothingWithoutAPath) {
  MersenneTwisterEngine();
  const std::size_t before = testing::Allocations();
  simulator_.ComputeFrame(dx_, dy_, 10.0, std::nullopt);
  simulator_.ComputeFrame(dx_, dy_, 0.0, std::nullopt);
  EXPECT_EQ(testing::Allocations(), before);
}

TEST_F(ComputeFrame, AllocationsAreCounted) {
  const std::size_t before = testing::Allocations();
  simulator_.ComputeFrame(dx_, dy_, 0.0, folder_ / "frame.fits");
  EXPECT_GT(testing::Allocations(), before);
}

TEST_F(ComputeFrame, WithoutPathTheFileSystemIsUntouched) {
  simulator_.ComputeFrame(dx_, dy_, 10.0, std::nullopt);
  EXPECT_EQ(testing::EntriesBelow(folder_.Path()), 4U);  // the calibration and its folder
}

TEST_F(ComputeFrame, FileHoldsThePixelsAsSignedNumbers) {
  const std::string path = folder_ / "out/frame.fits";
  const std::size_t descriptors = OpenDescriptors();
  simulator_.ComputeFrame(dx_, dy_, 40000.0, path);
  EXPECT_EQ(OpenDescriptors(), descriptors);
  EXPECT_EQ(testing::ComplaintsOfFitsverify(path), "");
  EXPECT_EQ(testing::DescribedByAstropy(path), "0 image '' 16 840x816\n");
  const std::vector<double> pixels = testing::ImageReadByAstropy(path);
  ASSERT_EQ(pixels.size(), 685440U);
  bool negative = false;
  for (std::size_t i = 0; i < pixels.size(); ++i) {
    ASSERT_EQ(pixels[i], static_cast<double>(static_cast<std::int16_t>(simulator_.frame[i]))) << i;
    negative = negative || pixels[i] < 0;
  }
  EXPECT_TRUE(negative);
}

TEST_F(ComputeFrame, FileIsReplacedWhateverItWas) {
  const std::string path = folder_ / "frame.fits";
  testing::AppendTable(path, "table", 1, {{"a", "D", {1}}});
  simulator_.ComputeFrame(dx_, dy_, 0.0, path);
  EXPECT_EQ(testing::DescribedByAstropy(path), "0 image '' 16 840x816\n");
  testing::WriteText(path, "no FITS file");
  simulator_.ComputeFrame(dy_, dx_, 0.0, path);
  const std::vector<double> pixels = testing::ImageReadByAstropy(path);
  ASSERT_EQ(pixels.size(), 685440U);
  for (std::size_t i = 0; i < pixels.size(); ++i) ASSERT_EQ(pixels[i], simulator_.frame[i]) << i;
}

TEST_F(ComputeFrame, FailedWriteKeepsTheNewFrame) {
  testing::WriteText(folder_ / "file", "");
  std::filesystem::create_directory(folder_ / "taken.fits");
  testing::WriteText(folder_ / "taken.fits/inside", "");
  const std::size_t descriptors = OpenDescriptors();
  ExpectThrowsWithDetails<std::runtime_error>("Fits: Could not open/create " + (folder_ / "taken.fits") + ", details: ",
                                              [&] { simulator_.ComputeFrame(dx_, dy_, 0.0, folder_ / "taken.fits"); });
  std::mt19937 generator;
  plain_.Render(simulator_.rois, dx_, dy_, 0.0, generator);
  EXPECT_EQ(simulator_.frame_values, plain_.values);
  EXPECT_EQ(simulator_.frame, plain_.pixels);
  EXPECT_NE(testing::TextOfThrown<std::filesystem::filesystem_error>(
                [&] { simulator_.ComputeFrame(dy_, dx_, 0.0, folder_ / "file/frame.fits"); }),
            "");
  EXPECT_NE(simulator_.frame_values, plain_.values);
  EXPECT_EQ(OpenDescriptors(), descriptors);
}

}  // namespace
}  // namespace quen::shssim
