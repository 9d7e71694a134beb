#include "workbench/loop/disturbance.hpp"

#include <gtest/gtest.h>

#include <cmath>

#include "testing/exceptions.hpp"
#include "workbench/sensor/basis.hpp"
#include "workbench/sensor/zernike.hpp"

namespace quen::workbench {
namespace {

using quen::testing::ExpectThrows;

Eigen::VectorXd Variances() { return ZernikeBasis().variances; }

TEST(Disturbance, IsRepeatableFromItsSeed) {
  Disturbance a(Variances(), 20, 0.9, 7);
  Disturbance b(Variances(), 20, 0.9, 7);
  Disturbance c(Variances(), 20, 0.9, 8);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(a.Modes(), b.Modes());
    EXPECT_NE(a.Modes(), c.Modes());
    a.Advance();
    b.Advance();
    c.Advance();
  }
}

TEST(Disturbance, WithoutStrengthIsZero) {
  Disturbance still(Variances(), 0, 0.9, 7);
  still.Advance();
  EXPECT_EQ(still.Modes(), Eigen::VectorXd::Zero(52));
}

TEST(Disturbance, HasKolmogorovVariancesFromTheFirstFrame) {
  // 4000 seeds: a variance estimate scatters by √(2/4000) = 2.2 %; six times that fails once in 10⁹.
  constexpr int kSeeds = 4000;
  constexpr double kTolerance = 6 * 0.0224;
  const Eigen::VectorXd variances = Variances();
  for (const int frames : {0, 50}) {
    Eigen::VectorXd sum = Eigen::VectorXd::Zero(52);
    for (int seed = 0; seed < kSeeds; ++seed) {
      Disturbance disturbance(variances, 2.0, 0.95, static_cast<std::uint32_t>(seed));
      for (int frame = 0; frame < frames; ++frame) disturbance.Advance();
      sum += disturbance.Modes().cwiseAbs2();
    }
    for (int mode = 0; mode < 52; ++mode) {
      const double expected = KolmogorovVariance(2 + mode) * std::pow(2.0, 5.0 / 3.0);
      EXPECT_NEAR(sum(mode) / kSeeds / expected, 1.0, kTolerance) << "mode " << mode << " after " << frames;
    }
  }
}

TEST(Disturbance, IsCorrelatedFromFrameToFrame) {
  // 52 · 4000 products: their mean scatters by about 1/√208000 = 0.0022; six times that fails once in 10⁹.
  constexpr double kFading = 0.8;
  const Eigen::VectorXd variances = Variances();
  double sum = 0;
  double squares = 0;
  for (std::uint32_t seed = 0; seed < 4000; ++seed) {
    Disturbance disturbance(variances, 1.0, kFading, seed);
    const Eigen::VectorXd before = disturbance.Modes();
    disturbance.Advance();
    for (int mode = 0; mode < 52; ++mode) {
      const double variance = KolmogorovVariance(2 + mode);
      sum += before(mode) * disturbance.Modes()(mode) / variance;
      squares += before(mode) * before(mode) / variance;
    }
  }
  EXPECT_NEAR(sum / squares, kFading, 6 * 0.0022);
}

TEST(TurbulentSeries, HasTheFramesOfTheDisturbance) {
  const Series series = TurbulentSeries(5, Variances(), 20.0, 7);
  ASSERT_EQ(series.rows(), 5);
  Disturbance disturbance(Variances(), 20.0, kCorrelation, 7);
  for (Eigen::Index frame = 0; frame < 5; ++frame) {
    EXPECT_EQ(series.row(frame).transpose(), disturbance.Modes()) << frame;
    disturbance.Advance();
  }
}

TEST(Disturbance, IsRefusedWhereItIsBeyondAllSense) {
  Series series = Series::Constant(12, 52, -kLargestMode);
  RequireModerate(series, "file");
  series(7, 3) = -1e308;
  ExpectThrows<std::runtime_error>(
      "file: expected modes up to 1e+100 radians, found -1e+308 in frame 7, mode 3 (counted from 0)",
      [&] { RequireModerate(series, "file"); });
}

}  // namespace
}  // namespace quen::workbench
