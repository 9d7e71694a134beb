#include "tools/quen-shs/src/control_loop.hpp"

#include <gtest/gtest.h>

#include "testing/environment.hpp"
#include "testing/fits_files.hpp"
#include "testing/second_reader.hpp"
#include "tools/quen-shs/src/calibration.hpp"
#include "tools/quen-shs/src/calibration_lookup.hpp"
#include "tools/quen-shs/src/telemetry.hpp"

namespace {

using quen::testing::TempDir;
using quen_shs::FrameRecord;
using quen_shs::LoopOptions;
using quen_shs::Rms;
using quen_shs::RunLoop;

class ControlLoop : public ::testing::Test {
 protected:
  ControlLoop() {
    quen_shs::WriteCalibration(folder_.Path(), false);
    quen_shs::UseCalibration(folder_.Path());
  }

  std::vector<FrameRecord> Run(const LoopOptions& options) {
    quen::shssim::ShsSimulator simulator;
    return RunLoop(simulator, options, {folder_ / "frame.fits", folder_ / "slopes.fits"}, [](int) {});
  }

  TempDir folder_;
};

TEST_F(ControlLoop, Converges) {
  const auto records = Run({.frames = 40, .gain = 0.5});
  ASSERT_EQ(records.size(), 40U);
  EXPECT_LT(Rms(records, &FrameRecord::residual, 20, 40), 0.25 * Rms(records, &FrameRecord::disturbance, 20, 40));
}

TEST_F(ControlLoop, EqualSeedsGiveEqualRecords) {
  const auto first = Run({.frames = 12, .seed = 5});
  const auto second = Run({.frames = 12, .seed = 5});
  const auto other = Run({.frames = 12, .seed = 6});
  for (std::size_t frame = 0; frame < first.size(); ++frame) {
    EXPECT_EQ(first[frame].disturbance, second[frame].disturbance);
    EXPECT_EQ(first[frame].correction, second[frame].correction);
    EXPECT_EQ(first[frame].residual, second[frame].residual);
    EXPECT_NE(first[frame].disturbance, other[frame].disturbance);
  }
}

TEST_F(ControlLoop, CorrectionActsAfterTheDelay) {
  for (const int delay : {1, 3}) {
    const auto records = Run({.frames = 10, .delay = delay});
    for (int frame = 0; frame < 10; ++frame) {
      const auto k = static_cast<std::size_t>(frame);
      EXPECT_EQ(records[k].correction.isZero(0.0), frame < delay) << "frame " << frame << ", delay " << delay;
      EXPECT_EQ(records[k].residual, records[k].disturbance - records[k].correction);
    }
  }
}

TEST_F(ControlLoop, FirstCorrectionIsGainTimesTheFirstResidual) {
  const auto records = Run({.frames = 10, .gain = 0.3, .noise = 0.0, .strength = 2.0});
  const Eigen::VectorXd expected = 0.3 * records[0].residual;
  EXPECT_LT((records[1].correction - expected).norm(), 0.02 * expected.norm());
}

TEST_F(ControlLoop, WithoutGainTheLoopIsOpen) {
  for (const FrameRecord& record : Run({.frames = 10, .gain = 0.0})) EXPECT_EQ(record.residual, record.disturbance);
}

TEST_F(ControlLoop, TellsEveryFrameAndWritesTheLast) {
  quen::shssim::ShsSimulator simulator;
  std::vector<int> told;
  RunLoop(simulator, {.frames = 10}, {folder_ / "frame.fits", folder_ / "slopes.fits"},
          [&](int done) { told.push_back(done); });
  EXPECT_EQ(told, (std::vector<int>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));
  EXPECT_EQ(quen::testing::ColumnReadByAstropy(folder_ / "slopes.fits", "slopes", "x"), simulator.XSlopes());
  const auto pixels = quen::testing::ImageReadByAstropy(folder_ / "frame.fits");
  ASSERT_EQ(pixels.size(), simulator.Frame().size());
  for (std::size_t i = 0; i < pixels.size(); ++i) ASSERT_EQ(pixels[i], static_cast<std::int16_t>(simulator.Frame()[i]));
}

TEST_F(ControlLoop, TelemetryHoldsTheRecords) {
  const LoopOptions options = {.frames = 11, .seed = 3};
  const auto records = Run(options);
  const std::string path = folder_ / "telemetry.fits";
  quen_shs::WriteTelemetry(path, options, records);
  EXPECT_EQ(quen::testing::ComplaintsOfFitsverify(path), "");
  EXPECT_EQ(quen::testing::DescribedByAstropy(path),
            "0 image '' 8\n1 table 'telemetry' 11 frame:J disturbance_rms:D residual_rms:D disturbance:52D "
            "correction:52D residual:52D\n");
  EXPECT_EQ(quen::testing::KeywordReadByAstropy(path, 1, "SEED"), "3");
  const auto residual = quen::testing::ColumnReadByAstropy(path, "telemetry", "residual");
  const auto rms = quen::testing::ColumnReadByAstropy(path, "telemetry", "residual_rms");
  ASSERT_EQ(residual.size(), 11U * 52U);
  for (std::size_t frame = 0; frame < 11; ++frame) {
    EXPECT_EQ(rms[frame], records[frame].residual.norm());
    for (std::size_t mode = 0; mode < 52; ++mode) {
      ASSERT_EQ(residual[frame * 52 + mode], records[frame].residual(static_cast<Eigen::Index>(mode)));
    }
  }
}

}  // namespace
