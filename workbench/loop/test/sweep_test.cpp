#include "workbench/loop/sweep.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <utility>

#include "testing/environment.hpp"
#include "testing/exceptions.hpp"
#include "testing/fits_files.hpp"
#include "testing/second_reader.hpp"
#include "testing/values.hpp"
#include "workbench/sensor/basis.hpp"
#include "workbench/sensor/calibration.hpp"
#include "workbench/sensor/calibration_lookup.hpp"

namespace quen::workbench {
namespace {

using quen::testing::ExpectThrows;
using quen::testing::kInfinity;
using quen::testing::TempDir;

TEST(Sweep, GainsIncludeTheLast) {
  const std::vector<double> gains = ParseSweep("gain=0.1:0.9:0.1");
  ASSERT_EQ(gains.size(), 9U);
  EXPECT_EQ(gains.front(), 0.1);
  EXPECT_NEAR(gains.back(), 0.9, 1e-15);
  EXPECT_EQ(ParseSweep("gain=0.5:0.5:1"), std::vector<double>{0.5});
  EXPECT_EQ(ParseSweep("gain=0:1:0.4").size(), 3U);
  EXPECT_EQ(ParseSweep("gain=0.3:0.6:0.1").size(), 4U);  // (0.6 - 0.3) / 0.1 is a little less than 3
}

TEST(Sweep, SaysWhatIsWrong) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"0.1:0.9:0.1", ""},
      {"delay=1:2:1", ""},
      {"gain=0.1:0.9", ""},
      {"gain=0.1", ""},
      {"gain=a:0.9:0.1", ", three numbers"},
      {"gain=0.1:0.9:0.1:3", ", three numbers"},
      {"gain=0.9:0.1:0.1", " with 0 <= FIRST <= LAST <= 2"},
      {"gain=-1:1:0.1", " with 0 <= FIRST <= LAST <= 2"},
      {"gain=0:3:0.1", " with 0 <= FIRST <= LAST <= 2"},
      {"gain=0:1:0", " with a STEP above 0 and 1000 gains at most"},
      {"gain=0:1:-0.1", " with a STEP above 0 and 1000 gains at most"},
      {"gain=0:1:0.0001", " with a STEP above 0 and 1000 gains at most"}};
  for (const auto& [text, reason] : cases) {
    const std::string sentence =
        std::string("expected gain=FIRST:LAST:STEP").append(reason).append(", found ").append(text);
    ExpectThrows<std::invalid_argument>(sentence, [&range = text] { ParseSweep(range); });
  }
}

TEST(Sweep, BestIsTheLeastResidualOfThoseThatDidNotDiverge) {
  EXPECT_EQ(Best({{0.1, 3.0, 5.0, 10}, {0.2, 2.0, 5.0, 10}, {0.3, kInfinity, 5.0, 4}})->gain, 0.2);
  EXPECT_FALSE(Best({{0.3, kInfinity, 5.0, 4}}));
}

TEST(Sweep, IsOneLoopPerGainAndIsReadBack) {
  const TempDir folder;
  WriteCalibration(folder.Path(), false);
  auto camera = LoadSimulator<Camera>(folder.Path());
  const Series disturbance = TurbulentSeries(40, ZernikeBasis().variances, 20.0, 1);
  LoopOptions options;
  options.delay = 2;
  int frames = 0;
  const auto points = RunSweep(camera, disturbance, options, {0.0, 0.4, 2.0}, [&] { ++frames; });
  ASSERT_EQ(points.size(), 3U);
  EXPECT_EQ(points[0].residual, points[0].disturbance);
  EXPECT_LT(points[1].residual, 0.5 * points[1].disturbance);
  EXPECT_TRUE(points[2].HasDiverged());
  EXPECT_LT(points[2].frames, 40U);
  EXPECT_EQ(static_cast<std::size_t>(frames), 80 + points[2].frames);
  const auto alone = RunLoop(camera, disturbance, {.gain = 0.4, .delay = 2}, [] {});
  EXPECT_EQ(points[1].residual, Rms(alone.records, &FrameRecord::residual, 20, 40));

  const std::string path = folder / "sweep.fits";
  testing::WriteText(path, SweepFile(options, "D/r0 20", points));
  EXPECT_EQ(testing::ComplaintsOfFitsverify(path), "");
  EXPECT_EQ(testing::DescribedByAstropy(path),
            "0 image '' 8\n1 table 'sweep' 3 gain:D residual_rms:D disturbance_rms:D frames:D lost_spots:D\n");
  EXPECT_EQ(testing::ColumnReadByAstropy(path, "sweep", "gain"), (std::vector<double>{0.0, 0.4, 2.0}));
  EXPECT_EQ(testing::ColumnReadByAstropy(path, "sweep", "residual_rms")[2], kInfinity);
  EXPECT_EQ(testing::KeywordReadByAstropy(path, 1, "DELAY"), "2");
  const auto read = ReadSweep(InputFile(path));
  ASSERT_EQ(read.size(), 3U);
  EXPECT_EQ(read[1].residual, points[1].residual);
  EXPECT_EQ(read[2].frames, points[2].frames);
  EXPECT_TRUE(read[2].HasDiverged());
}

TEST(Sweep, OfMoreGainsThanAnySweepHasIsRefused) {
  const TempDir folder;
  const std::string path = folder / "sweep.fits";
  testing::AppendTable(
      path, "sweep", 1001,
      {{"gain", "D", {}}, {"residual_rms", "D", {}}, {"disturbance_rms", "D", {}}, {"frames", "D", {}}});
  ExpectThrows<std::runtime_error>(path + ": expected 1000 rows at most in its table \"sweep\", found 1001",
                                   [&] { ReadSweep(InputFile(path)); });
}

TEST(Sweep, NumberOfFramesMustBeOne) {
  for (const auto& [frames, found] :
       {std::pair(-1.0, "-1"), {1e300, "1e+300"}, {kInfinity, "inf"}, {std::nan(""), "nan"}}) {
    const TempDir folder;
    const std::string path = folder / "sweep.fits";
    testing::AppendTable(path, "sweep", 2,
                         {{"gain", "D", {0.1, 0.2}},
                          {"residual_rms", "D", {1.0, 1.0}},
                          {"disturbance_rms", "D", {1.0, 1.0}},
                          {"frames", "D", {100.0, frames}}});
    ExpectThrows<std::runtime_error>(
        path + ": expected 0 to 1e+09 frames in its table \"sweep\", found " + found + " in row 2",
        [&] { ReadSweep(InputFile(path)); });
  }
}

}  // namespace
}  // namespace quen::workbench
