#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>

#include "shssim/test/simulator_under_test.hpp"
#include "testing/allocations.hpp"
#include "testing/calibration.hpp"
#include "testing/exceptions.hpp"
#include "testing/second_reader.hpp"
#include "testing/values.hpp"

namespace quen::shssim {
namespace {

using quen::image_processing::Centroiding;
using quen::image_processing::Roi;
using quen::testing::CalibrationFolder;
using quen::testing::ColumnReadByAstropy;
using quen::testing::ExpectThrows;
using quen::testing::ExpectThrowsWithDetails;
using quen::testing::kNan;
using quen::testing::kSentinel;
using quen::testing::OpenDescriptors;
using quen::testing::SimulatorUnderTest;

/// Reports, at its k-th call, flux 1000 + k, x = 0.001 · (k + 1), y = −0.002 · (k + 1).
class Numbered : public Centroiding<std::uint16_t> {
 public:
  void Compute(gsl::span<const std::uint16_t> frame, const Roi& roi) override {
    frame_data = frame.data();
    frame_size = frame.size();
    last_roi = &roi;
    flux = 1000.0 + static_cast<double>(calls);
    x = 0.001 * static_cast<double>(calls + 1);
    y = -0.002 * static_cast<double>(calls + 1);
    ++calls;
    if (calls == throw_at) throw std::domain_error("engine failed");
  }

  std::size_t calls = 0;
  std::size_t throw_at = 0;
  const std::uint16_t* frame_data = nullptr;
  std::size_t frame_size = 0;
  const Roi* last_roi = nullptr;
};

/// Always reports the same.
class Fixed : public Centroiding<std::uint16_t> {
 public:
  Fixed(double flux_value, double x_value, double y_value) : flux_(flux_value), x_(x_value), y_(y_value) {}
  void Compute(gsl::span<const std::uint16_t> /*frame*/, const Roi& /*roi*/) override {
    flux = flux_;
    x = x_;
    y = y_;
  }

 private:
  double flux_;
  double x_;
  double y_;
};

class ComputeSlopes : public ::testing::Test {
 protected:
  /// Uses exactly the sub-apertures for which `used` holds.
  void Use(const std::function<bool(std::size_t)>& used) {
    for (std::size_t i = 0; i < 1089; ++i) simulator_.rois_used[i] = used(i) ? 1 : 0;
  }

  void FillResults(double value) {
    for (auto* const results : {&simulator_.flux, &simulator_.x_slopes, &simulator_.y_slopes, &simulator_.flux_used,
                                &simulator_.slopes, &simulator_.x_slopes_used, &simulator_.y_slopes_used}) {
      std::ranges::fill(*results, value);
    }
  }

  CalibrationFolder folder_;
  SimulatorUnderTest simulator_;
  Numbered numbered_;
};

TEST_F(ComputeSlopes, EngineSeesTheWholeFrameAndTheRegion) {
  Use([](std::size_t i) { return i == 500; });
  simulator_.ComputeSlopes(numbered_, 1.0, std::nullopt);
  EXPECT_EQ(numbered_.calls, 1U);
  EXPECT_EQ(numbered_.frame_data, simulator_.frame.data());
  EXPECT_EQ(numbered_.frame_size, 685440U);
  EXPECT_EQ(numbered_.last_roi, &simulator_.rois[500]);
}

TEST_F(ComputeSlopes, ResultsArePackedWithTheYBlockFirst) {
  // The 544 sub-apertures of odd index and the first 63 of even index: exactly 607.
  Use([](std::size_t i) { return i % 2 == 1 || i < 125; });
  ASSERT_EQ(std::ranges::count(simulator_.rois_used, 1), 607);
  FillResults(kSentinel);
  simulator_.ComputeSlopes(numbered_, 10.0, std::nullopt);
  EXPECT_EQ(numbered_.calls, 607U);
  std::size_t k = 0;
  for (std::size_t i = 0; i < 1089 && k < 607; ++i) {
    if (simulator_.rois_used[i] == 0) {
      ASSERT_EQ(simulator_.flux[i], 0.0);
      ASSERT_EQ(simulator_.x_slopes[i], 0.0);
      ASSERT_EQ(simulator_.y_slopes[i], 0.0);
      continue;
    }
    const double flux = 1000.0 + static_cast<double>(k);
    const double x = 0.001 * static_cast<double>(k + 1);
    const double y = -0.002 * static_cast<double>(k + 1);
    ASSERT_EQ(simulator_.flux[i], flux);
    ASSERT_EQ(simulator_.x_slopes[i], x);
    ASSERT_EQ(simulator_.y_slopes[i], y);
    ASSERT_EQ(simulator_.flux_used[k], flux);
    ASSERT_EQ(simulator_.x_slopes_used[k], x);
    ASSERT_EQ(simulator_.y_slopes_used[k], y);
    ASSERT_EQ(simulator_.slopes[k], y);
    ASSERT_EQ(simulator_.slopes[607 + k], x);
    ++k;
  }
  EXPECT_EQ(k, 607U);
}

TEST_F(ComputeSlopes, WithoutUsedSubAperturesTheEngineIsNeverCalled) {
  Use([](std::size_t) { return false; });
  FillResults(kSentinel);
  simulator_.ComputeSlopes(numbered_, -1.0, std::nullopt);  // a bad limit does not matter
  EXPECT_EQ(numbered_.calls, 0U);
  EXPECT_EQ(simulator_.flux, std::vector<double>(1089, 0.0));
  EXPECT_EQ(simulator_.x_slopes, std::vector<double>(1089, 0.0));
  EXPECT_EQ(simulator_.y_slopes, std::vector<double>(1089, 0.0));
  EXPECT_EQ(simulator_.flux_used, std::vector<double>(607, kSentinel));
  EXPECT_EQ(simulator_.x_slopes_used, std::vector<double>(607, kSentinel));
  EXPECT_EQ(simulator_.y_slopes_used, std::vector<double>(607, kSentinel));
  EXPECT_EQ(simulator_.slopes, std::vector<double>(1214, kSentinel));
}

TEST_F(ComputeSlopes, StopsAfterThe607thUsedSubAperture) {
  Use([](std::size_t i) { return i != 2; });
  FillResults(kSentinel);
  simulator_.ComputeSlopes(numbered_, 10.0, std::nullopt);
  EXPECT_EQ(numbered_.calls, 607U);
  EXPECT_EQ(simulator_.flux[2], 0.0);
  EXPECT_EQ(simulator_.flux[607], 1606.0);
  for (std::size_t i = 608; i < 1089; ++i) {
    ASSERT_EQ(simulator_.flux[i], kSentinel);
    ASSERT_EQ(simulator_.x_slopes[i], kSentinel);
    ASSERT_EQ(simulator_.y_slopes[i], kSentinel);
  }
}

TEST_F(ComputeSlopes, UnusedSubAperturesAfterThe607thUsedOneAreNotZeroed) {
  FillResults(kSentinel);
  simulator_.ComputeSlopes(numbered_, 10.0, std::nullopt);  // the first 607 are used
  EXPECT_EQ(simulator_.flux[606], 1606.0);
  EXPECT_EQ(simulator_.flux[607], kSentinel);
  EXPECT_EQ(simulator_.flux[1088], kSentinel);
}

TEST_F(ComputeSlopes, AnyNonZeroFlagMeansUsed) {
  Use([](std::size_t) { return false; });
  simulator_.rois_used[4] = 255;
  simulator_.ComputeSlopes(numbered_, 10.0, std::nullopt);
  EXPECT_EQ(numbered_.calls, 1U);
  EXPECT_EQ(simulator_.flux[4], 1000.0);
}

TEST_F(ComputeSlopes, DisplacementsAreClampedAndFluxIsNot) {
  Fixed engine(-5e9, 3.7, -3.7);
  simulator_.ComputeSlopes(engine, 2.0, std::nullopt);
  EXPECT_EQ(simulator_.x_slopes[0], 2.0);
  EXPECT_EQ(simulator_.y_slopes[0], -2.0);
  EXPECT_EQ(simulator_.slopes[0], -2.0);
  EXPECT_EQ(simulator_.slopes[607], 2.0);
  EXPECT_EQ(simulator_.flux[0], -5e9);
  EXPECT_EQ(simulator_.flux_used[606], -5e9);
  EXPECT_EQ(engine.x, 3.7);
}

TEST_F(ComputeSlopes, DisplacementsOnTheLimitPass) {
  Fixed engine(0, 2.0, -2.0);
  simulator_.ComputeSlopes(engine, 2.0, std::nullopt);
  EXPECT_EQ(simulator_.x_slopes[0], 2.0);
  EXPECT_EQ(simulator_.y_slopes[0], -2.0);
}

TEST_F(ComputeSlopes, NanDisplacementStaysNan) {
  Fixed engine(kNan, kNan, 7.0);
  simulator_.ComputeSlopes(engine, 2.0, std::nullopt);
  EXPECT_TRUE(std::isnan(simulator_.x_slopes[0]));
  EXPECT_TRUE(std::isnan(simulator_.slopes[607]));
  EXPECT_TRUE(std::isnan(simulator_.flux[0]));
  EXPECT_EQ(simulator_.y_slopes[0], 2.0);
}

TEST_F(ComputeSlopes, LimitZeroStoresZeros) {
  Fixed engine(1, 3.7, -3.7);
  simulator_.ComputeSlopes(engine, 0.0, std::nullopt);
  EXPECT_EQ(simulator_.x_slopes_used, std::vector<double>(607, 0.0));
  EXPECT_EQ(simulator_.y_slopes_used, std::vector<double>(607, 0.0));
}

TEST_F(ComputeSlopes, NanLimitDisablesTheLimiting) {
  Fixed engine(1, 3.7e9, -3.7e9);
  simulator_.ComputeSlopes(engine, kNan, std::nullopt);
  EXPECT_EQ(simulator_.x_slopes[0], 3.7e9);
  EXPECT_EQ(simulator_.y_slopes[0], -3.7e9);
}

TEST_F(ComputeSlopes, FlagsMayEndWithThe607thUsedOne) {
  simulator_.rois_used.assign(607, 1);
  simulator_.ComputeSlopes(numbered_, 1.0, std::nullopt);
  EXPECT_EQ(numbered_.calls, 607U);
}

TEST_F(ComputeSlopes, ExceptionOfTheEnginePassesAndEarlierResultsStay) {
  FillResults(kSentinel);
  numbered_.throw_at = 3;
  ExpectThrows<std::domain_error>("engine failed",
                                  [&] { simulator_.ComputeSlopes(numbered_, 1.0, folder_ / "slopes.fits"); });
  EXPECT_EQ(simulator_.flux[1], 1001.0);
  EXPECT_EQ(simulator_.flux[2], kSentinel);
  EXPECT_EQ(simulator_.slopes[609], kSentinel);
  EXPECT_FALSE(std::filesystem::exists(folder_ / "slopes.fits"));
}

TEST_F(ComputeSlopes, InputsAreReadOnly) {
  const auto rois_used = simulator_.rois_used;
  const auto frame = simulator_.frame;
  simulator_.ComputeSlopes(numbered_, 1.0, std::nullopt);
  EXPECT_EQ(simulator_.rois_used, rois_used);
  EXPECT_EQ(simulator_.frame, frame);
}

TEST_F(ComputeSlopes, AllocatesNothingWithoutAPath) {
  const std::size_t before = testing::Allocations();
  simulator_.ComputeSlopes(numbered_, 1.0, std::nullopt);
  EXPECT_EQ(testing::Allocations(), before);
}

TEST_F(ComputeSlopes, WithoutPathTheFileSystemIsUntouched) {
  simulator_.ComputeSlopes(numbered_, 1.0, std::nullopt);
  EXPECT_EQ(testing::EntriesBelow(folder_.Path()), 4U);  // the calibration and its folder
}

TEST_F(ComputeSlopes, FileHoldsGeometryFlagsAndResults) {
  simulator_.rois[0].x_ref = 412.9;
  simulator_.rois[1].y_ref = kNan;
  simulator_.rois[2].x_ref = 1e12;  // beyond 32 bits
  simulator_.rois_used[3] = 200;
  const std::string path = folder_ / "out/slopes.fits";
  const std::size_t descriptors = OpenDescriptors();
  simulator_.ComputeSlopes(numbered_, 0.5, path);
  EXPECT_EQ(OpenDescriptors(), descriptors);
  EXPECT_EQ(testing::ComplaintsOfFitsverify(path), "");
  EXPECT_EQ(testing::DescribedByAstropy(path),
            "0 image '' 8\n"
            "1 table 'rois' 1089 x_low:I x_up:I x_ref:D y_low:I y_up:I y_ref:D\n"
            "2 table 'rois_use' 1089 is_used:B\n"
            "3 table 'slopes' 1089 flux:D x:D y:D\n");
  const auto [x_low, x_up, x_ref, y_low, y_up, y_ref] = testing::RegionsReadByAstropy(path);
  const auto is_used = ColumnReadByAstropy(path, "rois_use", "is_used");
  ASSERT_EQ(y_ref.size(), 1089U);
  for (std::size_t i = 0; i < 1089; ++i) {
    const Roi& roi = simulator_.rois[i];
    ASSERT_EQ(x_low[i], roi.x_low);
    ASSERT_EQ(x_up[i], roi.x_up);
    ASSERT_EQ(y_low[i], roi.y_low);
    ASSERT_EQ(y_up[i], roi.y_up);
    if (i > 2) {
      ASSERT_EQ(x_ref[i], std::trunc(roi.x_ref));
      ASSERT_EQ(y_ref[i], std::trunc(roi.y_ref));
    }
    ASSERT_EQ(is_used[i], simulator_.rois_used[i]);
  }
  EXPECT_EQ(x_ref[0], 412.0);
  EXPECT_EQ(y_ref[1], 0.0);
  EXPECT_EQ(x_ref[2], 0.0);
  const auto slopes = testing::ColumnsReadByAstropy(path, "slopes", {"flux", "x", "y"});
  EXPECT_EQ(slopes[0], simulator_.flux);
  EXPECT_EQ(slopes[1], simulator_.x_slopes);
  EXPECT_EQ(slopes[2], simulator_.y_slopes);
}

TEST_F(ComputeSlopes, FileIsWrittenWithoutUsedSubAperturesToo) {
  Use([](std::size_t) { return false; });
  simulator_.ComputeSlopes(numbered_, 0.5, folder_ / "slopes.fits");
  EXPECT_EQ(ColumnReadByAstropy(folder_ / "slopes.fits", "slopes", "flux"), std::vector<double>(1089, 0.0));
}

TEST_F(ComputeSlopes, FileHoldsAsManyFlagsAsThereAre) {
  simulator_.rois_used.assign(2000, 1);
  const std::string path = folder_ / "slopes.fits";
  simulator_.ComputeSlopes(numbered_, 0.5, path);
  EXPECT_EQ(ColumnReadByAstropy(path, "rois_use", "is_used").size(), 2000U);
}

TEST_F(ComputeSlopes, ExistingFileGetsThreeMoreTables) {
  const std::string path = folder_ / "slopes.fits";
  simulator_.ComputeSlopes(numbered_, 0.5, path);
  simulator_.ComputeSlopes(numbered_, 0.5, path);
  const std::string description = testing::DescribedByAstropy(path);
  EXPECT_EQ(std::ranges::count(description, '\n'), 7) << description;
}

TEST_F(ComputeSlopes, FailedWriteLeavesTheResultsComplete) {
  testing::WriteText(folder_ / "taken.fits", "no FITS file");
  const std::size_t descriptors = OpenDescriptors();
  ExpectThrowsWithDetails<std::runtime_error>(
      "Fits: Could not open/create " + (folder_ / "taken.fits") + ", details: ",
      [&] { simulator_.ComputeSlopes(numbered_, 1.0, folder_ / "taken.fits"); });
  EXPECT_EQ(simulator_.flux_used[606], 1606.0);
  EXPECT_EQ(OpenDescriptors(), descriptors);
}

}  // namespace
}  // namespace quen::shssim
