#include "workbench/sensor/zernike.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>
#include <vector>

namespace quen::workbench {
namespace {

/// Modes 2 to 11 as Noll's table I has them.
double NollsTable(int j, double x, double y) {
  const double r = std::hypot(x, y);
  const double theta = std::atan2(y, x);
  switch (j) {
    case 2:
      return 2 * r * std::cos(theta);
    case 3:
      return 2 * r * std::sin(theta);
    case 4:
      return std::sqrt(3) * (2 * r * r - 1);
    case 5:
      return std::sqrt(6) * r * r * std::sin(2 * theta);
    case 6:
      return std::sqrt(6) * r * r * std::cos(2 * theta);
    case 7:
      return std::sqrt(8) * (3 * r * r * r - 2 * r) * std::sin(theta);
    case 8:
      return std::sqrt(8) * (3 * r * r * r - 2 * r) * std::cos(theta);
    case 9:
      return std::sqrt(8) * r * r * r * std::sin(3 * theta);
    case 10:
      return std::sqrt(8) * r * r * r * std::cos(3 * theta);
    case 11:
      return std::sqrt(5) * (6 * r * r * r * r - 6 * r * r + 1);
    default:
      return std::numeric_limits<double>::quiet_NaN();
  }
}

TEST(ZernikeModes, OrdersAreNolls) {
  // n and m of modes 1 to 22.
  constexpr std::array<std::array<int, 2>, 22> kOrders = {
      {{0, 0}, {1, 1}, {1, 1}, {2, 0}, {2, 2}, {2, 2}, {3, 1}, {3, 1}, {3, 3}, {3, 3}, {4, 0},
       {4, 2}, {4, 2}, {4, 4}, {4, 4}, {5, 1}, {5, 1}, {5, 3}, {5, 3}, {5, 5}, {5, 5}, {6, 0}}};
  for (int j = 1; j <= 22; ++j) {
    EXPECT_EQ(NollOrders(j).n, kOrders[static_cast<std::size_t>(j - 1)][0]) << j;
    EXPECT_EQ(NollOrders(j).m, kOrders[static_cast<std::size_t>(j - 1)][1]) << j;
  }
  EXPECT_EQ(NollOrders(53).n, 9);
}

TEST(ZernikeModes, GradientIsTheDerivativeOfNollsTable) {
  constexpr double kStep = 1e-5;
  constexpr double kTolerance = 1e-7;  // of the difference quotient: step² times a third derivative
  for (int j = 2; j <= 11; ++j) {
    for (const auto& [x, y] : {std::pair(0.3, -0.7), std::pair(-0.5, 0.1), std::pair(0.0, 0.4), std::pair(0.6, 0.0)}) {
      const Gradient gradient = Zernike(j).GradientAt(x, y);
      EXPECT_NEAR(gradient.x, (NollsTable(j, x + kStep, y) - NollsTable(j, x - kStep, y)) / (2 * kStep), kTolerance)
          << j;
      EXPECT_NEAR(gradient.y, (NollsTable(j, x, y + kStep) - NollsTable(j, x, y - kStep)) / (2 * kStep), kTolerance)
          << j;
    }
  }
}

TEST(ZernikeModes, GradientInTheCentreIsFinite) {
  for (int j = 2; j <= 53; ++j) {
    EXPECT_TRUE(std::isfinite(Zernike(j).GradientAt(0, 0).x)) << j;
    EXPECT_TRUE(std::isfinite(Zernike(j).GradientAt(0, 0).y)) << j;
  }
  EXPECT_EQ(Zernike(2).GradientAt(0, 0).x, 2.0);
  EXPECT_EQ(Zernike(3).GradientAt(0, 0).y, 2.0);
}

TEST(ZernikeModes, MeanGradientIsThatOfADenseGrid) {
  constexpr int kPoints = 200;
  constexpr double kSize = 0.1;
  constexpr double kTolerance = 2e-5;  // of the midpoint rule: size²/(24 · points²) times a third derivative, below 1e5
  for (const int j : {2, 4, 11, 29, 53}) {
    Gradient sum{0, 0};
    for (int a = 0; a < kPoints; ++a) {
      for (int b = 0; b < kPoints; ++b) {
        const Gradient gradient = Zernike(j).GradientAt(0.4 + kSize * ((a + 0.5) / kPoints - 0.5),
                                                        -0.6 + kSize * ((b + 0.5) / kPoints - 0.5));
        sum.x += gradient.x;
        sum.y += gradient.y;
      }
    }
    const Gradient mean = Zernike(j).MeanGradient(0.4, -0.6, kSize);
    EXPECT_NEAR(mean.x, sum.x / (kPoints * kPoints), kTolerance) << j;
    EXPECT_NEAR(mean.y, sum.y / (kPoints * kPoints), kTolerance) << j;
  }
}

TEST(ZernikeModes, KolmogorovVariancesAreNolls) {
  // Residual after correction of the first J modes, J = 1 to 21: Noll's table IV, rounded to three digits there. Its
  // total for J = 1 counts all modes, so differences are compared.
  const std::vector<double> residual = {1.0299, 0.582,  0.134,  0.111,  0.0880, 0.0648, 0.0587,
                                        0.0525, 0.0463, 0.0401, 0.0377, 0.0352, 0.0328, 0.0304,
                                        0.0279, 0.0267, 0.0255, 0.0243, 0.0232, 0.0220, 0.0208};
  for (int j = 2; j <= 21; ++j) {
    const auto k = static_cast<std::size_t>(j);
    const double rounding = j <= 5 ? 1.1e-3 : 1.1e-4;
    EXPECT_NEAR(KolmogorovVariance(j), residual[k - 2] - residual[k - 1], rounding) << j;
  }
}

TEST(ZernikeModes, KolmogorovCovariancesAreNolls) {
  // In units of (D/r0)^(5/3); he rounds the constant of the spectrum to two digits, half a percent too much.
  EXPECT_NEAR(KolmogorovCovariance(2, 8), -0.0141, 0.01 * 0.0141);
  EXPECT_NEAR(KolmogorovCovariance(3, 7), -0.0141, 0.01 * 0.0141);
  EXPECT_NEAR(KolmogorovCovariance(4, 11), -0.00387, 0.01 * 0.00387);
  EXPECT_DOUBLE_EQ(KolmogorovCovariance(8, 2), KolmogorovCovariance(2, 8));
}

TEST(ZernikeModes, OfOtherAngularDependenceAreUncorrelated) {
  EXPECT_EQ(KolmogorovCovariance(2, 3), 0.0);  // cosine and sine
  EXPECT_EQ(KolmogorovCovariance(2, 4), 0.0);  // other azimuthal orders
  EXPECT_EQ(KolmogorovCovariance(2, 7), 0.0);
  EXPECT_NE(KolmogorovCovariance(5, 13), 0.0);  // both r^n sin 2θ
}

}  // namespace
}  // namespace quen::workbench
