#include "workbench/loop/control_loop.hpp"

#include <gtest/gtest.h>

#include <memory>

#include "shssim/spot.hpp"
#include "testing/environment.hpp"
#include "testing/fits_files.hpp"
#include "testing/malloc_calls.hpp"
#include "testing/second_reader.hpp"
#include "workbench/loop/telemetry.hpp"
#include "workbench/sensor/calibration.hpp"
#include "workbench/sensor/calibration_lookup.hpp"
#include "workbench/sensor/frame_file.hpp"
#include "workbench/sensor/measurement_file.hpp"

namespace quen::workbench {
namespace {

using quen::testing::TempDir;

class ControlLoop : public ::testing::Test {
 protected:
  ControlLoop() {
    WriteCalibration(folder_.Path(), false);
    UseCalibration(folder_.Path());
  }

  static std::vector<FrameRecord> Run(int frames, const LoopOptions& options, double strength = 20.0) {
    return RunAll(TurbulentSeries(frames, ZernikeBasis().variances, strength, options.exposure.seed), options).records;
  }

  static LoopRun RunAll(const Series& disturbance, const LoopOptions& options) {
    Camera camera;
    return RunLoop(camera, disturbance, options, [] {});
  }

  TempDir folder_;
};

TEST_F(ControlLoop, Converges) {
  const auto records = Run(40, {.gain = 0.5});
  ASSERT_EQ(records.size(), 40U);
  EXPECT_LT(Rms(records, &FrameRecord::residual, 20, 40), 0.25 * Rms(records, &FrameRecord::disturbance, 20, 40));
}

TEST_F(ControlLoop, IterationsAllocateNothing) {
  if (!testing::MallocCalls()) GTEST_SKIP() << "a sanitizer's malloc is not counted";
  const Series disturbance = TurbulentSeries(12, ZernikeBasis().variances, 20.0, 1);
  Camera camera;
  std::vector<std::size_t> calls;
  calls.reserve(12);
  RunLoop(camera, disturbance, {.delay = 2}, [&] { calls.push_back(*testing::MallocCalls()); });
  ASSERT_EQ(calls.size(), 12U);
  EXPECT_GT(calls[1], 0U);
  EXPECT_EQ(calls[11], calls[1]);  // the first frame makes the kernels' tables
}

TEST_F(ControlLoop, EqualSeedsGiveEqualRecords) {
  const auto first = Run(12, {.exposure = {.seed = 5}});
  const auto second = Run(12, {.exposure = {.seed = 5}});
  const auto other = Run(12, {.exposure = {.seed = 6}});
  for (std::size_t frame = 0; frame < first.size(); ++frame) {
    EXPECT_EQ(first[frame].disturbance, second[frame].disturbance);
    EXPECT_EQ(first[frame].correction, second[frame].correction);
    EXPECT_EQ(first[frame].residual, second[frame].residual);
    EXPECT_NE(first[frame].disturbance, other[frame].disturbance);
  }
}

TEST_F(ControlLoop, CorrectionActsAfterTheDelay) {
  for (const int delay : {1, 3}) {
    const auto records = Run(10, {.delay = delay});
    for (int frame = 0; frame < 10; ++frame) {
      const auto k = static_cast<std::size_t>(frame);
      EXPECT_EQ(records[k].correction.isZero(0.0), frame < delay) << "frame " << frame << ", delay " << delay;
      EXPECT_EQ(records[k].residual, records[k].disturbance - records[k].correction);
    }
  }
}

TEST_F(ControlLoop, FirstCorrectionIsGainTimesTheFirstResidual) {
  const auto records = Run(10, {.gain = 0.3, .exposure = {.noise = 0.0}}, 2.0);
  const Eigen::VectorXd expected = 0.3 * records[0].residual;
  EXPECT_LT((records[1].correction - expected).norm(), 0.02 * expected.norm());
}

TEST_F(ControlLoop, WithoutGainTheLoopIsOpen) {
  for (const FrameRecord& record : Run(10, {.gain = 0.0})) EXPECT_EQ(record.residual, record.disturbance);
}

TEST_F(ControlLoop, TellsEveryFrameAndLeavesTheLastInTheSimulator) {
  Camera camera;
  int told = 0;
  std::vector<std::uint16_t> last;
  RunLoop(camera, Series::Zero(10, 52), {}, [&] {
    ++told;
    last = camera.Frame();
  });
  EXPECT_EQ(told, 10);
  EXPECT_EQ(camera.Frame(), last);
}

TEST_F(ControlLoop, FilesOfFrameAndSlopesAreTheLibrarysOwn) {
  Camera camera;
  const std::vector<double> displacements = testing::Ramp(1089, -0.5);
  camera.ComputeFrame(displacements, displacements, 900.0, folder_ / "frame.fits");  // pixels below zero too
  camera.ComputeSlopes(*MakeEngine("weighted"), 12.0, folder_ / "slopes.fits");
  testing::WriteText(folder_ / "our_frame.fits", FrameFile(camera, {}));
  testing::WriteText(folder_ / "our_slopes.fits", MeasurementFile(camera));
  for (const std::string name : {"frame.fits", "slopes.fits"}) {
    EXPECT_TRUE(testing::BytesWithoutChecksums(folder_ / ("our_" + name)) ==
                testing::BytesWithoutChecksums(folder_ / name))
        << name;
    EXPECT_EQ(testing::ComplaintsOfFitsverify(folder_ / ("our_" + name)), "");
  }
}

TEST_F(ControlLoop, TelemetryHoldsTheRecords) {
  LoopOptions options;
  options.leak = 0.25;
  options.exposure.seed = 3;
  const auto records = Run(11, options);
  const std::string path = folder_ / "telemetry.fits";
  testing::WriteText(path, TelemetryFile(options, "D/r0 20", records));
  EXPECT_EQ(testing::ComplaintsOfFitsverify(path), "");
  EXPECT_EQ(testing::DescribedByAstropy(path),
            "0 image '' 8\n1 table 'telemetry' 11 frame:J disturbance_rms:D residual_rms:D disturbance:52D "
            "correction:52D residual:52D\n");
  EXPECT_EQ(testing::KeywordReadByAstropy(path, 1, "SEED"), "3");
  EXPECT_EQ(testing::KeywordReadByAstropy(path, 1, "LEAK"), "0.25");
  EXPECT_EQ(testing::KeywordReadByAstropy(path, 1, "DISTURB"), "D/r0 20");
  const auto residual = testing::ColumnReadByAstropy(path, "telemetry", "residual");
  const auto rms = testing::ColumnReadByAstropy(path, "telemetry", "residual_rms");
  ASSERT_EQ(residual.size(), 11U * 52U);
  for (std::size_t frame = 0; frame < 11; ++frame) {
    EXPECT_EQ(rms[frame], records[frame].residual.norm());
    for (std::size_t mode = 0; mode < 52; ++mode) {
      ASSERT_EQ(residual[frame * 52 + mode], records[frame].residual(static_cast<Eigen::Index>(mode)));
    }
  }
}

TEST_F(ControlLoop, TelemetryIsReadBackAsItWas) {
  const auto records = Run(11, {});
  testing::WriteText(folder_ / "t.fits", TelemetryFile({}, "", records));
  const auto read = ReadTelemetry(InputFile(folder_ / "t.fits"));
  ASSERT_EQ(read.size(), records.size());
  for (std::size_t frame = 0; frame < read.size(); ++frame) {
    EXPECT_EQ(read[frame].disturbance, records[frame].disturbance);
    EXPECT_EQ(read[frame].correction, records[frame].correction);
    EXPECT_EQ(read[frame].residual, records[frame].residual);
  }
}

TEST_F(ControlLoop, LeakForgetsAShareOfTheCorrection) {
  // Without gain after the first frame's correction nothing is added, so it decays; a gain of 0 leaves nothing to
  // decay, hence a disturbance that is there in one frame only, and an engine that is exact.
  Series pulse = Series::Zero(6, 52);
  pulse(0, 2) = 1.0;
  const LoopRun kept = RunAll(pulse, {.gain = 0.5, .leak = 0.0, .exposure = {.noise = 0.0}, .engine = "gaussian-fit"});
  const LoopRun leaked =
      RunAll(pulse, {.gain = 0.5, .leak = 0.2, .exposure = {.noise = 0.0}, .engine = "gaussian-fit"});
  const double first = 0.5;
  EXPECT_NEAR(kept.records[1].correction(2), first, 1e-3);
  EXPECT_NEAR(kept.records[2].correction(2), first - 0.5 * first, 1e-3);
  EXPECT_NEAR(leaked.records[1].correction(2), first, 1e-3);
  EXPECT_NEAR(leaked.records[2].correction(2), 0.8 * first - 0.5 * first, 1e-3);
}

TEST_F(ControlLoop, StopsWhereItDiverges) {
  Camera camera;
  const Series disturbance = TurbulentSeries(500, ZernikeBasis().variances, 20.0, 1);
  const LoopRun run = RunLoop(camera, disturbance, {.gain = 1.9, .delay = 4}, [] {});
  ASSERT_TRUE(run.has_diverged);
  ASSERT_LT(run.records.size(), 500U);
  double largest = 1.0;
  for (const FrameRecord& record : run.records) largest = std::max(largest, record.disturbance.norm());
  EXPECT_GT(run.records.back().residual.norm(), 10.0 * largest);
  EXPECT_LE(run.records[run.records.size() - 2].residual.norm(), 10.0 * largest);
}

TEST_F(ControlLoop, ResidualThatIsNotANumberIsDivergence) {
  Series disturbance = Series::Zero(5, 52);
  disturbance(2, 0) = std::numeric_limits<double>::quiet_NaN();
  const LoopRun run = RunAll(disturbance, {});
  EXPECT_TRUE(run.has_diverged);
  EXPECT_EQ(run.records.size(), 3U);
}

TEST_F(ControlLoop, SpotsThatAreNotFoundSayNothing) {
  const Series disturbance = TurbulentSeries(20, ZernikeBasis().variances, 10.0, 1);
  LoopOptions picky;
  picky.engine = "maximum-likelihood:significance=1000";  // no spot is as clear as that
  const LoopRun none = RunAll(disturbance, picky);
  EXPECT_FALSE(none.has_diverged);
  EXPECT_EQ(none.lost_spots, 20U * 607U);
  for (const FrameRecord& record : none.records) EXPECT_EQ(record.residual, record.disturbance);
  EXPECT_EQ(RunAll(disturbance, {}).lost_spots, 0U);
}

TEST_F(ControlLoop, SpotsThatAreNotFoundLeaveTheOthersTheirSay) {
  auto dim = std::make_shared<DetectorDescription>();
  dim->config.electrons_per_unit = 150.0 / shssim::kSpotFlux;
  dim->config.read_noise = 3.0;
  const Series disturbance = TurbulentSeries(60, ZernikeBasis().variances, 10.0, 1);
  LoopOptions options;
  options.exposure.detector = dim;
  options.engine = "maximum-likelihood:read-noise=3";
  const LoopRun run = RunAll(disturbance, options);
  EXPECT_FALSE(run.has_diverged);
  EXPECT_GT(run.lost_spots, 60U * 6U);
  EXPECT_LT(run.lost_spots, 60U * 300U);
  EXPECT_LT(Rms(run.records, &FrameRecord::residual, 30, 60),
            0.5 * Rms(run.records, &FrameRecord::disturbance, 30, 60));
}

TEST_F(ControlLoop, WithoutDisturbanceNoiseIsNoDivergence) {
  EXPECT_FALSE(RunAll(Series::Zero(20, 52), {.exposure = {.noise = 200.0}}).has_diverged);
}

}  // namespace
}  // namespace quen::workbench
