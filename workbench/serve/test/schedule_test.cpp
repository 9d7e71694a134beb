#include "workbench/serve/schedule.hpp"

#include <gtest/gtest.h>

#include <cmath>

#include "workbench/serve/disturbance_source.hpp"

namespace quen::workbench {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::seconds;

TEST(Schedule, FramesAreDueAtStartAndRateWithoutDrift) {
  const Schedule schedule(300.0, seconds(5));
  EXPECT_EQ(schedule.Due(0), seconds(5));
  EXPECT_EQ(schedule.Due(1), seconds(5) + Time(3'333'333));
  EXPECT_EQ(schedule.Due(300), seconds(6));
  EXPECT_EQ(schedule.Due(300ULL * 86400 * 365), seconds(5 + 86400 * 365));
}

TEST(Schedule, FrameIsSkippedWhenItsSuccessorIsDue) {
  const Schedule schedule(1000.0, seconds(0));
  EXPECT_FALSE(schedule.IsSkipped(7, milliseconds(8) - Time(1))) << "late, but not skipped";
  EXPECT_TRUE(schedule.IsSkipped(7, milliseconds(8)));
}

TEST(ExpectedTime, IsThatOfTheSlowestAndForgetsIt) {
  ExpectedTime expected;
  EXPECT_EQ(expected.Get(), Time(0));
  expected.Note(milliseconds(1));
  expected.Note(milliseconds(9));
  EXPECT_EQ(expected.Get(), milliseconds(9));
  expected.Note(milliseconds(1));
  EXPECT_EQ(expected.Get(), microseconds(8200));
  for (int k = 0; k < 200; ++k) expected.Note(milliseconds(1));
  EXPECT_LT(expected.Get(), microseconds(1001));
}

TEST(DisturbanceSource, TurbulenceIsThatOfTheLoopAtItsRateAndAsFastAtOthers) {
  EXPECT_EQ(CorrelationAtRate(1000.0), kCorrelation);
  EXPECT_NEAR(std::pow(CorrelationAtRate(2000.0), 2.0), kCorrelation, 1e-12);
  EXPECT_NEAR(CorrelationAtRate(100.0), std::pow(kCorrelation, 10.0), 1e-12);
  EXPECT_NEAR(std::pow(CorrelationOfWind(10.0, 8.0, 500.0), 400.0), std::exp(-1.0), 1e-12)
      << "after the 0.8 s that the wind takes across the pupil";
  EXPECT_EQ(CorrelationOfWind(0.0, 8.0, 500.0), 1.0);
}

TEST(DisturbanceSource, FileIsHeldRepeatedOrEnds) {
  Series series(2, 52);
  series.row(0).setConstant(1.0);
  series.row(1).setConstant(2.0);
  const auto fourth = [&](AtEnd at_end) {
    DisturbanceSource source(series, at_end);
    for (int k = 0; k < 3; ++k) source.Advance();
    return source;
  };
  EXPECT_EQ(fourth(AtEnd::kHold).Modes()(0), 2.0);
  EXPECT_EQ(fourth(AtEnd::kRepeat).Modes()(51), 2.0);
  EXPECT_FALSE(fourth(AtEnd::kRepeat).IsOver());
  DisturbanceSource stopping(series, AtEnd::kStop);
  stopping.Advance();
  EXPECT_FALSE(stopping.IsOver());
  stopping.Advance();
  EXPECT_TRUE(stopping.IsOver());
}

}  // namespace
}  // namespace quen::workbench
